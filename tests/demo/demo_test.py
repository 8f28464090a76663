#!/usr/bin/python3
"""tools/demo: every file goes every way, whatever its size and name; what is no file is refused; nothing is left."""

import os
import pathlib
import select
import signal
import subprocess
import sys
import tempfile
import unittest

TOOLS = pathlib.Path(__file__).resolve().parents[2] / "tools"
DEMO = TOOLS / "demo"
WAYS = 8

sys.path.insert(0, str(TOOLS))
import machine


class DemoTest(unittest.TestCase):
    def setUp(self):
        holder = tempfile.TemporaryDirectory(prefix="demo test ", dir="/var/tmp")
        self.addCleanup(holder.cleanup)
        self.folder = pathlib.Path(holder.name)
        self.scratch = self.folder / "scratch"
        self.scratch.mkdir()

    def start(self, *arguments, prefix=()):
        """The folder is in the environment of all that the demo starts, and its TMPDIR lies there."""
        process = subprocess.Popen([*prefix, DEMO, *arguments], cwd=self.folder, stdin=subprocess.DEVNULL,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                                   env={**os.environ, "TMPDIR": str(self.scratch)})
        self.addCleanup(process.__exit__, None, None, None)
        self.addCleanup(process.kill)
        return process

    def finish(self, process):
        """Status, output and errors; no file, no process and no host is left."""
        output, errors = process.communicate()
        self.assertEqual(list(self.scratch.iterdir()), [], errors)
        self.assertEqual([entry for entry in pathlib.Path("/proc").glob("[0-9]*") if self.stays(entry)], [])
        hosts = pathlib.Path("/run/netns")
        self.assertEqual(list(hosts.glob(f"*{process.pid}*")) if hosts.exists() else [], [])
        return process.returncode, output, errors

    def stays(self, entry):
        """Whether a process is of the demo and does not end; one that was killed takes a moment."""
        try:
            if os.fsencode(self.scratch) not in (entry / "environ").read_bytes():
                return False
            descriptor = os.pidfd_open(int(entry.name))
        except OSError:
            return False  # it has ended, or is another user's
        try:
            return not select.select([descriptor], [], [], machine.patience(10))[0]
        finally:
            os.close(descriptor)

    def moves(self, *arguments):
        status, output, errors = self.finish(self.start(*arguments))
        self.assertEqual((status, errors), (0, ""), output)
        self.assertEqual(output.count("same checksum"), WAYS, output)
        self.assertLessEqual(max(map(len, output.splitlines())), 80, output)
        return output

    def refuses(self, path, why, prefix=()):
        self.assertEqual(self.finish(self.start(path, prefix=prefix)), (1, "", f"demo: {why}\n"))

    def test_usual_file(self):
        self.assertRegex(self.moves(), r"(?m)^ +path [12] cut after [\d,]+ bytes, silence of [\d.]+ s, the rest over")

    def test_nothing_at_all(self):
        (self.folder / "empty").touch()
        self.assertRegex(self.moves("empty"), "path [12] cut while the association was up; it was ended over path [12]")

    def test_one_byte_and_a_name_with_a_dash_and_a_blank(self):
        (self.folder / "-a file").write_bytes(b"x")
        self.assertIn("cut after 0 bytes", self.moves("-a file"))

    def test_what_is_no_file(self):
        os.mkfifo(self.folder / "pipe")
        self.refuses("missing", "cannot read missing: No such file or directory")
        self.refuses(".", "cannot read .: it is no file")
        self.refuses("pipe", "cannot read pipe: it is no file")

    def test_unreadable_file(self):
        (self.folder / "secret").touch(mode=0)
        # What lets root read every file is taken from it; others have no such thing, and may not give it up either.
        prefix = ["setpriv", "--bounding-set", "-dac_override,-dac_read_search"] if os.geteuid() == 0 else []
        self.refuses("secret", "cannot read secret: Permission denied", prefix)

    def test_signals_leave_nothing(self):
        for number, row in ((signal.SIGTERM, "TCP over IPv4"), (signal.SIGINT, "local datagram"),
                            (signal.SIGHUP, "packet socket")):
            with self.subTest(row):
                process = self.start()
                for line in process.stdout:
                    if line.startswith(f"  {row}"):
                        process.send_signal(number)
                        break
                status, _, errors = self.finish(process)
                self.assertEqual((status, errors), (128 + number, ""))


if __name__ == "__main__":
    sys.exit(unittest.main(verbosity=0))
