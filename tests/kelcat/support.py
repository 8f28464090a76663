"""What the tests of kelcat share: programs whose outputs are followed, endpoints and peers of plain sockets, hosts.

The environment variable KELCAT names the program. Nothing here waits for time: a limit only ends what hangs.
"""

import array
import contextlib
import fcntl
import functools
import os
import random
import re
import shutil
import signal
import socket
import struct
import subprocess
import tempfile
import termios
import threading
import time
import unittest

import hosts
import machine

KELCAT = os.environ["KELCAT"]
PATIENCE = machine.patience(30)
BYTES = random.Random(1).randbytes(16 << 20)  # more than the buffers of any connection hold
QUESTION = b"question\n" + bytes(range(256))
ANSWER = b"answer\n" + bytes(range(255, -1, -1))


def wait_until(holds, what):
    """Looks at what tells nobody when it changes, such as the state of a process, until it is so."""
    deadline = time.monotonic() + PATIENCE
    while not holds():
        if time.monotonic() > deadline:
            raise AssertionError(f"in vain: {what}")
        time.sleep(0.001)


class Followed:
    """All that comes out of a descriptor, read as it comes."""

    def __init__(self, file):
        self.file = file
        self.data = bytearray()
        self.changed = threading.Condition()
        self.thread = threading.Thread(target=self.follow, daemon=True)
        self.thread.start()

    def follow(self):
        with contextlib.suppress(OSError):  # the other end of a terminal has gone
            while piece := os.read(self.file.fileno(), 1 << 16):
                with self.changed:
                    self.data += piece
                    self.changed.notify_all()

    def wait(self, holds):
        with self.changed:
            return self.changed.wait_for(lambda: holds(self.data), PATIENCE)

    def whole(self):
        self.thread.join()
        return bytes(self.data)


class Process:
    """A program with a file, a pipe or nothing as its input, and its two outputs followed."""

    def __init__(self, command, data=None, **options):
        with tempfile.TemporaryFile() as source:
            if data is not None:
                source.write(data)
                source.seek(0)
                options["stdin"] = source
            options.setdefault("stdin", subprocess.DEVNULL)
            options.setdefault("stdout", subprocess.PIPE)
            options.setdefault("stderr", subprocess.PIPE)
            self.process = subprocess.Popen(command, bufsize=0, **options)
        self.command = command
        self.pid = self.process.pid
        self.outputs = Followed(self.process.stdout) if self.process.stdout else None
        self.errors = Followed(self.process.stderr) if self.process.stderr else None

    @property
    def told(self):
        return bytes(self.errors.data) if self.errors else b""

    def wait_told(self, pattern):
        """Waits for a text on standard error, and returns its last group."""
        if not self.errors.wait(lambda data: re.search(pattern, data)):
            raise AssertionError(f"{self.command}: no {pattern!r} in {self.told!r}")
        found = re.search(pattern, self.told)
        return found.group(found.lastindex or 0).decode()

    def wait_output(self, data):
        """Waits until so much has been written."""
        if not self.outputs.wait(lambda output: len(output) >= len(data)):
            raise AssertionError(f"{self.command} wrote {len(self.outputs.data)} of {len(data)} bytes; {self.told!r}")

    def write(self, data):
        """To its standard input, which stays open."""
        written = 0
        while written < len(data):
            written += self.process.stdin.write(data[written:])

    def end_input(self, data=b""):
        self.write(data)
        self.process.stdin.close()

    def state(self):
        """As ps shows it: R, S, T ..."""
        with open(f"/proc/{self.pid}/stat", encoding="ascii") as file:
            return file.read().rpartition(") ")[2][0]

    def stop(self):
        self.process.send_signal(signal.SIGSTOP)
        wait_until(lambda: self.state() == "T", f"{self.command} stops")

    def go_on(self):
        self.process.send_signal(signal.SIGCONT)

    def wait_blocked(self, position=1):
        """Waits until it sleeps at or behind a place of its input, which is a file: then it waits for the peer to take
        data."""
        def sleeps():
            with open(f"/proc/{self.pid}/fdinfo/0", encoding="ascii") as file:
                return int(file.readline().split()[1]) >= position and self.state() == "S"

        try:
            wait_until(sleeps, f"{self.command} waits for its peer")
        except FileNotFoundError:
            raise AssertionError(f"{self.command} has ended, although nobody took its data: {self.told!r}") from None

    def finish(self):
        """The exit status, once the program has ended by itself."""
        try:
            status = self.process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            raise AssertionError(f"{self.command} does not end; it told {self.told!r}") from None
        for followed in (self.outputs, self.errors):
            if followed:
                followed.thread.join()
        return status

    def output(self):
        """All of it, once the program has ended."""
        return self.outputs.whole()

    def end(self):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()
        for followed in (self.outputs, self.errors):
            if followed:
                followed.thread.join()
        for file in (self.process.stdin, self.process.stdout, self.process.stderr):
            if file is not None:
                file.close()


class Test(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.mkdtemp(prefix="kelcat test ")  # a path may hold blanks
        self.addCleanup(shutil.rmtree, self.directory)

    def path(self, name):
        return os.path.join(self.directory, name)

    def start(self, *command, **options):
        process = Process(list(command), **options)
        self.addCleanup(process.end)
        return process

    def kelcat(self, *arguments, **options):
        return self.start(KELCAT, *arguments, **options)

    def listener(self, *arguments, **options):
        """A kelcat that is ready, and the endpoint that reaches it."""
        process = self.kelcat("-v", *arguments, **options)
        place = process.wait_told(rb"listening on (.+)\n")
        return process, place.replace("0.0.0.0", "127.0.0.1").replace("[::]", "[::1]")

    def second_of_silence(self):
        """Ends when a kelcat does that nobody speaks to: longer than any other would be patient with silence."""
        self.assertDone(self.kelcat("udp-listen:127.0.0.1:0", "--idle", "1"))

    def assertDone(self, *processes, status=0):
        for process in processes:
            self.assertEqual(process.finish(), status, (process.command, process.told))

    def assertMoved(self, data, receiver, *others):
        """All end well, and the first of them has written the data."""
        self.assertDone(receiver, *others)
        self.assertSame(receiver.output(), data)

    def assertSentence(self, process, status, pattern):
        """One clear sentence, and nothing else."""
        self.assertEqual(process.finish(), status, (process.command, process.told))
        self.assertRegex(process.told, rb"\Akelcat: [^\n]*\n\Z")
        self.assertRegex(process.told, pattern)

    def assertTells(self, process, status, pattern):
        """One clear sentence among what -v tells."""
        self.assertEqual(process.finish(), status, (process.command, process.told))
        self.assertEqual(len(re.findall(rb"(?m)^kelcat: .*" + pattern, process.told)), 1, process.told)

    def assertSame(self, left, right):
        self.assertTrue(left == right, f"{len(left)} and {len(right)} bytes that differ")

    def plain_listener(self, family=socket.AF_INET, kind=socket.SOCK_STREAM, protocol=0):
        """A plain socket as the peer, and the endpoint that reaches it."""
        server = self.plain(family, kind, protocol)
        if family == socket.AF_UNIX:
            server.bind(self.path("plain"))
            place = ("unix:" if kind == socket.SOCK_STREAM else "unix-dgram:") + self.path("plain")
        else:
            server.bind(("127.0.0.1", 0))
            name = "sctp" if protocol else "tcp" if kind == socket.SOCK_STREAM else "udp"
            place = f"{name}:127.0.0.1:{server.getsockname()[1]}"
        if kind == socket.SOCK_STREAM:
            server.listen()
        return server, place

    def plain_client(self, place, kind=socket.SOCK_STREAM, protocol=0):
        """A plain socket that is connected to an IPv4 listener."""
        client = self.plain(socket.AF_INET, kind, protocol)
        client.connect(("127.0.0.1", port_of(place)))
        return client

    def plain(self, family, kind, protocol=0):
        plain = socket.socket(family, kind, protocol)
        self.addCleanup(plain.close)
        plain.settimeout(PATIENCE)
        return plain

    def accept(self, server):
        connection, _ = server.accept()
        self.addCleanup(connection.close)
        connection.settimeout(PATIENCE)
        return connection

    def meet(self, listener, *arguments, **options):
        """A kelcat that connects to a plain listener, and the listener's end of the connection."""
        server, place = listener
        return self.kelcat(place, *arguments, **options), self.accept(server)

    def free_port(self, kind=socket.SOCK_STREAM, protocol=0):
        with socket.socket(socket.AF_INET, kind, protocol) as probe:
            probe.bind(("127.0.0.1", 0))
            return probe.getsockname()[1]


def each(*cases):
    """Runs a test with one case after the other."""
    def decorated(test):
        @functools.wraps(test)
        def run(self):
            for case in cases:
                with self.subTest(case):
                    test(self, case)
        return run
    return decorated


def held(pipe):
    """How many bytes lie in a pipe."""
    count = array.array("i", [0])
    fcntl.ioctl(pipe, termios.FIONREAD, count)
    return count[0]


def port_of(place):
    return int(place.rpartition(":")[2])


def receive_all(connection):
    data = bytearray()
    while piece := connection.recv(1 << 16):
        data += piece
    return bytes(data)


def reset(connection):
    """Ends a connection without a word to the peer but that it is broken."""
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    connection.close()


class TwoHosts(Test):
    """On two hosts with cables between them: path1, path2 ..."""

    PATHS = (1,)
    IPV6 = False
    SYSCTLS = ()

    def setUp(self):
        super().setUp()
        net = self.enterContext(hosts.TwoHosts(self.PATHS, self.IPV6, self.SYSCTLS))
        self.names = (net.near, net.far)

    def inside(self, name, *command, **options):
        return self.start(*hosts.TwoHosts.inside(name), *command, **options)
