#!/usr/bin/python3
"""The program guest: what it passes on, and that no failure of the guest looks like a success. Installed, it is kel-guest.

BUILD in the environment is the build folder that kel-guest is installed from, with kelcat.
"""

import contextlib
import os
import pathlib
import select
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

TOOLS = pathlib.Path(__file__).resolve().parent.parent.parent / "tools"
GUEST = TOOLS / "guest/guest"
EXAMPLE = TOOLS.parent / "examples/kel-guest/two-hosts"
BUILD = pathlib.Path(os.environ["BUILD"])
sys.path.insert(0, str(TOOLS))
import machine  # noqa: E402

PATIENCE = machine.patience(60)  # for one guest, its boot included


def ends(process):
    """Whether a process is on its way out: one that was killed takes a moment."""
    descriptor = os.pidfd_open(process)
    try:
        return bool(select.select([descriptor], [], [], PATIENCE)[0])
    finally:
        os.close(descriptor)


class GuestTest(unittest.TestCase):
    def setUp(self):
        holder = tempfile.TemporaryDirectory(prefix="guest-test-", dir="/var/tmp")
        self.addCleanup(holder.cleanup)
        self.folder = pathlib.Path(holder.name)
        self.folder.chmod(0o777)

    def start(self, *command, options=(), prefix=(), guest=GUEST, **more):
        environment = {**os.environ, "TMPDIR": str(self.folder), **more.pop("environment", {})}
        process = subprocess.Popen(
            [*prefix, str(guest), "--memory", "256M", "--timeout", str(PATIENCE), *options, "--", *command],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=environment, **more)
        self.addCleanup(process.__exit__, None, None, None)
        self.addCleanup(process.kill)
        return process

    def finish(self, process):
        """Status, output and errors; nothing is left behind, neither files nor processes."""
        output, errors = (data.decode() for data in process.communicate(timeout=2 * PATIENCE))
        self.assertEqual(list(self.folder.iterdir()), [])
        left = []
        for entry in pathlib.Path("/proc").glob("[0-9]*/cmdline"):
            with contextlib.suppress(OSError):  # it has ended
                if str(self.folder).encode() in entry.read_bytes() and not ends(int(entry.parent.name)):
                    left.append(entry)
        self.assertEqual(left, [])
        return process.returncode, output, errors

    def run_guest(self, *command, **more):
        return self.finish(self.start(*command, **more))

    def test_command_has_root_network_directory_environment_whole_outputs_and_its_own_status(self):
        script = """
            id -u; pwd; echo "$WORD"; ip -br address show lo; test -t 1 && echo terminal; cat
            seq 100000; seq 5 >&2; sleep 1000 & exit 7"""
        status, output, errors = self.run_guest(
            "bash", "-c", script, cwd="/usr/lib", environment={"WORD": "of several  words"})
        self.assertEqual(status, 7, errors)
        lines = output.splitlines(keepends=True)
        self.assertEqual(lines[:3], ["0\n", "/usr/lib\n", "of several  words\n"])
        self.assertIn("127.0.0.1/8", lines[3])
        self.assertIn("::1/128", lines[3])
        self.assertEqual(lines[4:], [f"{number}\n" for number in range(1, 100001)])
        self.assertEqual(errors, "1\n2\n3\n4\n5\n")

    def test_modules_load_when_they_are_asked_for(self):
        script = """
            ip netns add host && ip link add near type veth peer name far netns host && ip link add spare type dummy &&
            tc qdisc add dev near root netem loss 100% &&
            socat -d -d -u SCTP-LISTEN:5000 - 2>$TMPDIR/log & until grep -q listening $TMPDIR/log; do :; done
            echo hello | socat -u - SCTP:127.0.0.1:5000 && wait"""
        status, output, errors = self.run_guest("bash", "-c", script, options=["--module", "bridge"])
        self.assertEqual((status, output), (0, "hello\n"), errors)

    def test_two_at_a_time_one_of_which_finds_no_command(self):
        first, second = self.start("echo", "first"), self.start("/no/such/command")
        _, errors = second.communicate(timeout=2 * PATIENCE)
        self.assertEqual(second.returncode, 127)
        self.assertIn(b"/no/such/command", errors)
        self.assertEqual(self.finish(first)[:2], (0, "first\n"))

    def test_ordinary_user_is_root_inside_and_folders_may_have_blanks(self):
        nobody = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"]
        with tempfile.TemporaryDirectory(prefix="guest copy ", dir="/var/tmp") as copy:  # root may hide its tree
            os.chmod(copy, 0o777)
            for name in ("guest", "init", "preload.c"):
                shutil.copy(GUEST.parent / name, copy)
            status, output, errors = self.run_guest(
                "sh", "-c", "id -u; pwd", prefix=nobody if os.geteuid() == 0 else [],
                guest=pathlib.Path(copy, "guest"), cwd=copy, environment={"TMPDIR": copy})
            self.assertEqual((status, output), (0, f"0\n{copy}\n"), errors)
            self.assertEqual(len(os.listdir(copy)), 3)

    def test_installed_it_needs_no_compiler_and_runs_the_example(self):
        with tempfile.TemporaryDirectory(prefix="guest prefix ", dir="/var/tmp") as prefix:
            subprocess.run(["cmake", "--install", BUILD, "--component", "guest", "--prefix", prefix], check=True,
                           stdout=subprocess.DEVNULL)
            installed = pathlib.Path(prefix, "bin/kel-guest")
            status, output, errors = self.run_guest(
                "/usr/bin/env", f"PATH={BUILD}/tools/kelcat:{os.environ['PATH']}", EXAMPLE,
                guest=installed, environment={"PATH": "/no/compiler"})
            self.assertEqual((status, output), (0, "hello over the cable\n"), errors)
            status, _, errors = self.run_guest("true", guest=installed, options=["--memory", "much"])
            self.assertEqual((status, errors.split()[0]), (125, "kel-guest:"))

    def test_time_limit_ends_the_kernel(self):
        status, output, errors = self.run_guest("bash", "-c", "echo began; sleep 1000", options=["--timeout", "1"])
        self.assertEqual(status, 124)
        self.assertIn(output, ("", "began\n"))  # however long the boot took
        self.assertIn("ended after 1 seconds", errors)

    def test_end_without_a_result_is_a_failure(self):
        ended = "the guest ended without a result"
        for command, options, reasons in (("echo c >/proc/sysrq-trigger; sleep 1000", [], [ended, "panic"]),
                                          ("echo o >/proc/sysrq-trigger; sleep 1000", [], [ended]),
                                          ("true", ["--module", "nosuchmodule"], ["nosuchmodule cannot be loaded"]),
                                          ("true", ["--memory", "1000000G"], ["no folder has room"])):
            with self.subTest(command, options=options):
                status, _, errors = self.run_guest("bash", "-c", command, options=options)
                self.assertEqual(status, 125)
                for reason in reasons:
                    self.assertIn(reason, errors)

    def test_signals_end_the_kernel(self):
        started = {number: self.start("bash", "-c", "echo began; sleep 1000")
                   for number in (signal.SIGINT, signal.SIGTERM, signal.SIGKILL)}
        for number, process in started.items():
            self.assertEqual(process.stdout.readline(), b"began\n")
            process.send_signal(number)
            process.communicate(timeout=2 * PATIENCE)
            self.assertEqual(process.returncode, -number if number == signal.SIGKILL else 128 + number)
        self.finish(process)

    def test_guest_that_is_killed_while_it_starts_leaves_nothing(self):
        process = self.start("sleep", "1000")
        while not list(self.folder.iterdir()):
            self.assertIsNone(process.poll())
        process.kill()
        self.assertEqual(self.finish(process)[0], -signal.SIGKILL)


if __name__ == "__main__":
    sys.exit(unittest.main(verbosity=0))
