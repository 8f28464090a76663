#!/usr/bin/python3
"""kelcat against itself, socat, ncat and plain sockets. The program is named by the environment variable KELCAT.

The packet endpoint needs root, to make network namespaces, and SCTP a kernel that has it: their tests run where that is
so, and are demanded with --all.
"""

import contextlib
import functools
import os
import pty
import random
import re
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import unittest

KELCAT = os.environ.get("KELCAT", "")
PATIENCE = 120  # seconds: only a hang lasts so long, also on a slow machine
MEGABYTES_16 = random.Random(1).randbytes(16 << 20)
QUESTION = b"question\n" + bytes(range(256))
ANSWER = b"answer\n" + bytes(range(255, -1, -1))
LOOPBACK = {"ipv4": "127.0.0.1", "ipv6": "[::1]"}
MSG_NOTIFICATION = 0x8000


def kernel_has_sctp():
    try:
        socket.socket(socket.AF_INET, socket.SOCK_STREAM, socket.IPPROTO_SCTP).close()
    except OSError:
        return False
    return True


class Process:
    """A program with a file or nothing as its input, a file as its output, and its standard error followed."""

    def __init__(self, directory, command, data=None, **options):
        if data is not None:
            source = tempfile.TemporaryFile(dir=directory)
            source.write(data)
            source.seek(0)
            options["stdin"] = source
        options.setdefault("stdin", subprocess.DEVNULL)
        self.output_file = tempfile.TemporaryFile(dir=directory)
        options.setdefault("stdout", self.output_file)
        self.command = command
        self.process = subprocess.Popen(command, stderr=subprocess.PIPE, **options)
        if data is not None:
            source.close()
        self.pid = self.process.pid
        self.told = b""
        self.changed = threading.Condition()
        self.reader = threading.Thread(target=self.follow, daemon=True)
        self.reader.start()

    def follow(self):
        while piece := os.read(self.process.stderr.fileno(), 4096):
            with self.changed:
                self.told += piece
                self.changed.notify_all()

    def wait_told(self, pattern):
        """Waits for a text on standard error, and returns its first group."""
        with self.changed:
            found = self.changed.wait_for(lambda: re.search(pattern, self.told), PATIENCE)
        if not found:
            raise AssertionError(f"{self.command}: no {pattern!r} in {self.told!r}")
        return found.group(found.lastindex or 0).decode()

    def output(self):
        self.output_file.seek(0)
        return self.output_file.read()

    def finish(self):
        """The exit status, once the program has ended by itself."""
        try:
            status = self.process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            raise AssertionError(f"{self.command} does not end; it told {self.told!r}") from None
        self.reader.join()
        return status

    def end(self):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()
        self.reader.join()
        for file in (self.process.stdin, self.process.stdout, self.process.stderr, self.output_file):
            if file is not None:
                with contextlib.suppress(BrokenPipeError):
                    file.close()


class Test(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.mkdtemp(prefix="kelcat-")
        self.addCleanup(shutil.rmtree, self.directory)

    def path(self, name):
        return os.path.join(self.directory, name)

    def start(self, *command, **options):
        process = Process(self.directory, list(command), **options)
        self.addCleanup(process.end)
        return process

    def kelcat(self, *arguments, **options):
        return self.start(KELCAT, *arguments, **options)

    def listener(self, *arguments, **options):
        """A kelcat that is ready, and the endpoint that reaches it."""
        process = self.kelcat("-v", *arguments, **options)
        place = process.wait_told(rb"listening on (.+)\n")
        kind = arguments[0].split(":")[0].replace("-listen", "")
        family, _, address = place.partition(" ")
        if family == "file":
            return process, f"{kind}:{address}"
        return process, f"{kind}:{LOOPBACK[family]}:{address.rpartition(':')[2]}"

    def assertDone(self, *processes, status=0):
        for process in processes:
            self.assertEqual(process.finish(), status, (process.command, process.told))

    def assertSentence(self, process, status, pattern):
        """One clear sentence, and nothing else."""
        self.assertEqual(process.finish(), status, process.told)
        self.assertRegex(process.told, rb"\Akelcat: [^\n]*" + pattern + rb"[^\n]*\n\Z")

    def assertSame(self, left, right):
        self.assertTrue(left == right, f"{len(left)} and {len(right)} bytes that differ")

    def listening_socket(self, family=socket.AF_INET, kind=socket.SOCK_STREAM, protocol=0):
        """A plain socket as the peer, and the endpoint that reaches it."""
        server = socket.socket(family, kind, protocol)
        self.addCleanup(server.close)
        server.settimeout(PATIENCE)
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

    def accept(self, server):
        connection, _ = server.accept()
        self.addCleanup(connection.close)
        connection.settimeout(PATIENCE)
        return connection

    def receive_all(self, connection):
        data = bytearray()
        while piece := connection.recv(1 << 16):
            data += piece
        return bytes(data)

    def free_port(self, kind=socket.SOCK_STREAM, protocol=0):
        with socket.socket(socket.AF_INET, kind, protocol) as probe:
            probe.bind(("127.0.0.1", 0))
            return probe.getsockname()[1]

    def wait_output(self, process, data):
        while os.fstat(process.output_file.fileno()).st_size < len(data):
            self.assertIsNone(process.process.poll(), process.told)
            threading.Event().wait(0.005)


class Transfer(Test):
    FAILING_OUTPUT = ["tcp-listen:0", "udp-listen:0"]

    def endpoints(self):
        return ["tcp-listen:127.0.0.1:0", "tcp-listen:0", "tcp-listen:[::]:0", "udp-listen:127.0.0.1:0",
                "udp-listen:[::1]:0", "unix-listen:" + self.path("stream"), "unix-dgram-listen:" + self.path("dgram")]

    def test_sixteen_megabytes_arrive_whole(self):
        for endpoint in self.endpoints():
            with self.subTest(endpoint):
                server, place = self.listener(endpoint)
                client = self.kelcat(place, data=MEGABYTES_16)
                self.assertDone(client, server)
                self.assertSame(server.output(), MEGABYTES_16)
                self.assertEqual(client.output(), b"")
                self.assertEqual(client.told, b"")
                self.assertIn(b"received 16777216 bytes", server.told)

    def test_both_ways_at_once(self):
        for endpoint in self.endpoints():
            with self.subTest(endpoint):
                server, place = self.listener(endpoint, data=MEGABYTES_16[:1 << 20])
                local = ["--local", self.path("own")] if place.startswith("unix-dgram") else []
                client = self.kelcat(place, *local, data=MEGABYTES_16[1 << 20:3 << 20])
                self.assertDone(client, server)
                self.assertSame(server.output(), MEGABYTES_16[1 << 20:3 << 20])
                self.assertSame(client.output(), MEGABYTES_16[:1 << 20])
                self.assertEqual(os.listdir(self.directory), [])

    def test_empty_input(self):
        for endpoint in self.endpoints():
            with self.subTest(endpoint):
                server, place = self.listener(endpoint)
                client = self.kelcat(place)
                self.assertDone(client, server)
                self.assertEqual(server.output() + client.output(), b"")

    def test_send_only_and_recv_only(self):
        for endpoint in self.endpoints():
            with self.subTest(endpoint):
                server, place = self.listener(endpoint, "--recv-only", data=b"never sent")
                client = self.kelcat(place, "--send-only", data=QUESTION)
                self.assertDone(client, server)
                self.assertEqual((server.output(), client.output()), (QUESTION, b""))

    def test_receiver_that_stops_for_a_while_loses_nothing(self):
        for endpoint in self.endpoints():
            with self.subTest(endpoint):
                server, place = self.listener(endpoint)
                client = self.kelcat(place, data=MEGABYTES_16)
                os.kill(server.pid, signal.SIGSTOP)
                self.wait_blocked(client)
                os.kill(server.pid, signal.SIGCONT)
                self.assertDone(client, server)
                self.assertSame(server.output(), MEGABYTES_16)

    def wait_blocked(self, process):
        """Until it has stood at one place of its input for 20 looks."""
        looks, place = 0, None
        while looks < 20 and process.process.poll() is None:
            with open(f"/proc/{process.pid}/fdinfo/0", encoding="ascii") as file:
                latest = file.readline()
            looks = looks + 1 if latest == place else 0
            place = latest
            threading.Event().wait(0.005)

    def test_peer_killed_in_the_middle_breaks_the_sender(self):
        for endpoint in self.endpoints():
            with self.subTest(endpoint):
                server, place = self.listener(endpoint, stdout=subprocess.PIPE)
                with open("/dev/zero", "rb") as endless:
                    client = self.kelcat(place, stdin=endless)
                self.assertEqual(server.process.stdout.read(1000), bytes(1000))
                server.process.kill()
                self.assertSentence(client, 3, rb"(broke|listens|cannot send|ended by the peer)")
                for name in os.listdir(self.directory):
                    os.unlink(self.path(name))

    def test_sender_killed_in_the_middle_keeps_what_arrived(self):
        for endpoint in self.endpoints():
            if "udp" in endpoint or "dgram" in endpoint:
                continue
            with self.subTest(endpoint):
                server, place = self.listener(endpoint)
                client = self.kelcat("-v", place, stdin=subprocess.PIPE)
                client.process.stdin.write(QUESTION)
                client.process.stdin.flush()
                self.wait_output(server, QUESTION)
                client.process.kill()
                self.assertDone(server)
                self.assertEqual(server.output(), QUESTION)

    def test_interrupt_while_waiting(self):
        for endpoint in self.endpoints():
            for number in (signal.SIGINT, signal.SIGTERM):
                with self.subTest(endpoint, number=number):
                    server, _ = self.listener(endpoint)
                    server.process.send_signal(number)
                    self.assertDone(server, status=128 + number)
                    self.assertEqual(os.listdir(self.directory), [])

    def test_interrupt_in_the_middle_keeps_what_was_received(self):
        for endpoint in self.endpoints():
            with self.subTest(endpoint):
                server, place = self.listener(endpoint)
                client = self.kelcat(place, stdin=subprocess.PIPE)
                client.process.stdin.write(QUESTION)
                client.process.stdin.flush()
                self.wait_output(server, QUESTION)
                server.process.send_signal(signal.SIGTERM)
                self.assertDone(server, status=143)
                self.assertEqual(server.output(), QUESTION)
                client.end()
                self.assertEqual(os.listdir(self.directory), [])

    def test_standard_output_that_fails(self):
        for endpoint in self.FAILING_OUTPUT:
            with self.subTest(endpoint), open("/dev/full", "wb") as full:
                server, place = self.listener(endpoint, stdout=full)
                self.kelcat(place, "--send-only", data=QUESTION).finish()
                self.assertDone(server, status=3)
                self.assertIn(b"kelcat: cannot write to standard output: No space left on device\n", server.told)
            with self.subTest(endpoint, output="closed pipe"):
                server, place = self.listener(endpoint, stdout=subprocess.PIPE)
                server.process.stdout.close()
                self.kelcat(place, "--send-only", data=QUESTION).finish()
                self.assertDone(server, status=3)
                self.assertIn(b"kelcat: cannot write to standard output: Broken pipe\n", server.told)
            with self.subTest(endpoint, output="closed"):
                server = self.start("bash", "-c", f"exec {KELCAT} -v {endpoint} >&-")
                port = server.wait_told(rb"listening on .*:(\d+)\n")
                kind = endpoint.partition("-")[0]
                self.kelcat(f"{kind}:127.0.0.1:{port}", "--send-only", data=QUESTION).finish()
                self.assertDone(server, status=3)
                self.assertIn(b"cannot write to standard output: Bad file descriptor\n", server.told)


class Streams(Test):
    def test_question_ended_then_answer(self):
        for family in (socket.AF_INET, socket.AF_UNIX):
            with self.subTest(family):
                server, place = self.listening_socket(family)
                client = self.kelcat(place, data=QUESTION)
                connection = self.accept(server)
                self.assertEqual(self.receive_all(connection), QUESTION)
                connection.sendall(MEGABYTES_16[:1 << 20])
                connection.close()
                self.assertDone(client)
                self.assertSame(client.output(), MEGABYTES_16[:1 << 20])

    def test_input_goes_on_after_the_peer_has_ended(self):
        for family in (socket.AF_INET, socket.AF_UNIX):
            with self.subTest(family):
                server, place = self.listening_socket(family)
                client = self.kelcat(place, data=MEGABYTES_16)
                connection = self.accept(server)
                connection.sendall(ANSWER)
                connection.shutdown(socket.SHUT_WR)
                self.assertSame(self.receive_all(connection), MEGABYTES_16)
                self.assertDone(client)
                self.assertEqual(client.output(), ANSWER)

    def test_silent_input_ends_after_the_peer(self):
        server, place = self.listening_socket()
        client = self.kelcat(place, stdin=subprocess.PIPE)
        self.accept(server).close()
        self.assertDone(client)

    def test_send_only_does_not_end_with_the_peer(self):
        server, place = self.listening_socket()
        client = self.kelcat("-v", place, "--send-only", stdin=subprocess.PIPE)
        connection = self.accept(server)
        connection.shutdown(socket.SHUT_WR)
        with self.assertRaises(subprocess.TimeoutExpired):
            client.process.wait(1)  # twice the patience with a silent input
        client.process.stdin.write(QUESTION)
        client.process.stdin.close()
        self.assertEqual(self.receive_all(connection), QUESTION)
        self.assertDone(client)

    def test_reset_breaks_the_transfer_and_keeps_what_arrived(self):
        server, place = self.listening_socket()
        client = self.kelcat(place, stdin=subprocess.PIPE)
        connection = self.accept(server)
        connection.sendall(ANSWER)
        self.wait_output(client, ANSWER)
        connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        connection.close()
        self.assertSentence(client, 3, rb"broke: Connection reset by peer")
        self.assertEqual(client.output(), ANSWER)

    def test_reset_after_the_last_byte_was_sent_is_noticed(self):
        server, place = self.listening_socket()
        server.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
        client = self.kelcat(place, "--send-only", data=MEGABYTES_16[:200000])
        connection = self.accept(server)
        connection.recv(1)
        connection.close()  # with bytes unread: the system resets
        self.assertSentence(client, 3, rb"broke: ")

    def test_idle_ends_it(self):
        server, place = self.listening_socket()
        client = self.kelcat(place, "--idle", "0.2", stdin=subprocess.PIPE)
        connection = self.accept(server)
        self.assertEqual(self.receive_all(connection), b"")
        self.assertDone(client)
        lonely = self.kelcat("tcp-listen:127.0.0.1:0", "--idle", "0.1")
        self.assertSentence(lonely, 1, b"nobody connected to tcp-listen")

    def test_socat(self):
        port = self.free_port()
        path = self.path("socat")
        for listen, place in ((f"TCP4-LISTEN:{port},bind=127.0.0.1", f"tcp:127.0.0.1:{port}"),
                              (f"TCP6-LISTEN:{port},bind=[::1]", f"tcp:[::1]:{port}"),
                              (f"UNIX-LISTEN:{path}", f"unix:{path}")):
            with self.subTest(listen):
                server = self.start("socat", "-d", "-d", "-t", str(PATIENCE), "-", listen, data=ANSWER)
                server.wait_told(b"listening on")
                client = self.kelcat(place, data=MEGABYTES_16)
                self.assertDone(client, server)
                self.assertSame(server.output(), MEGABYTES_16)
                self.assertEqual(client.output(), ANSWER)
        for listen, place in (("tcp-listen:127.0.0.1:0", "TCP4"), ("tcp-listen:[::1]:0", "TCP6"),
                              ("unix-listen:" + self.path("own"), "UNIX")):
            with self.subTest(place):
                server, reached = self.listener(listen, data=MEGABYTES_16)
                client = self.start("socat", "-t", str(PATIENCE), "-", place + ":" + reached.partition(":")[2],
                                    data=QUESTION)
                self.assertDone(client, server)
                self.assertSame(client.output(), MEGABYTES_16)
                self.assertEqual(server.output(), QUESTION)

    def test_ncat(self):
        port = str(self.free_port())
        for listen, place in ((["127.0.0.1", port], f"tcp:127.0.0.1:{port}"),
                              (["-U", self.path("ncat")], "unix:" + self.path("ncat"))):
            with self.subTest(place):
                server = self.start("ncat", "-v", "-l", *listen, data=ANSWER)
                server.wait_told(b"Listening on")
                client = self.kelcat(place, data=MEGABYTES_16)
                self.assertDone(client, server)
                self.assertSame(server.output(), MEGABYTES_16)
                self.assertEqual(client.output(), ANSWER)
        for listen, options in (("tcp-listen:127.0.0.1:0", []), ("tcp-listen:[::1]:0", []),
                                ("unix-listen:" + self.path("own"), ["-U"])):
            with self.subTest(listen):
                server, place = self.listener(listen, data=MEGABYTES_16)
                place = place.partition(":")[2]
                address = [place] if options else place.replace("[", "").replace("]", "").rsplit(":", 1)
                client = self.start("ncat", *options, *address, data=QUESTION)
                self.assertDone(client, server)
                self.assertSame(client.output(), MEGABYTES_16)
                self.assertEqual(server.output(), QUESTION)

    def test_local_address(self):
        server, place = self.listening_socket()
        port = self.free_port()
        client = self.kelcat("-v", place, "--local", f"127.0.0.1:{port}", "--recv-only")
        connection, address = server.accept()
        connection.close()
        self.assertEqual(address, ("127.0.0.1", port))
        self.assertDone(client)
        self.assertIn(f"kelcat: local ipv4 127.0.0.1:{port}\nkelcat: peer ipv4 127.0.0.1:".encode(), client.told)


class Datagrams(Test):
    def test_one_read_is_one_datagram_and_an_empty_one_the_end(self):
        for family in (socket.AF_INET, socket.AF_UNIX):
            with self.subTest(family):
                server, place = self.listening_socket(family, socket.SOCK_DGRAM)
                self.assertDone(self.kelcat(place, "--send-only", "--size", "100", data=MEGABYTES_16[:250]))
                self.assertEqual([len(server.recv(1000)) for _ in range(4)], [100, 100, 50, 0])

    def test_largest_datagrams(self):
        for endpoint, size in (("udp-listen:127.0.0.1:0", 65507), ("unix-dgram-listen:" + self.path("d"), 200000)):
            with self.subTest(endpoint):
                server, place = self.listener(endpoint, "--count", "3")
                client = self.kelcat(place, "--size", str(size), "--send-only", data=MEGABYTES_16[:3 * size])
                self.assertDone(server, client)
                self.assertSame(server.output(), MEGABYTES_16[:3 * size])

    def test_latest_sender_is_answered(self):
        server, place = self.listener("udp-listen:127.0.0.1:0", data=ANSWER)
        peer = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.addCleanup(peer.close)
        peer.settimeout(PATIENCE)
        peer.sendto(QUESTION, ("127.0.0.1", int(place.rpartition(":")[2])))
        self.assertEqual([peer.recv(2000), peer.recv(2000)], [ANSWER, b""])
        peer.sendto(b"", ("127.0.0.1", int(place.rpartition(":")[2])))
        self.assertDone(server)
        self.assertEqual(server.output(), QUESTION)

    def test_sender_that_has_gone_keeps_its_datagrams(self):
        for data in (b"", ANSWER):
            with self.subTest(data):
                server, place = self.listener("udp-listen:127.0.0.1:0", data=data)
                os.kill(server.pid, signal.SIGSTOP)
                with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as peer:
                    for datagram in (b"one ", b"two ", b"three", b""):
                        peer.sendto(datagram, ("127.0.0.1", int(place.rpartition(":")[2])))
                os.kill(server.pid, signal.SIGCONT)
                self.assertDone(server, status=3 if data else 0)
                self.assertEqual(server.output(), b"one two three")

    def test_sender_without_a_path_cannot_be_answered(self):
        path = self.path("d")
        for data in (b"", ANSWER):
            with self.subTest(data):
                server, place = self.listener("unix-dgram-listen:" + path, data=data)
                client = self.kelcat(place, data=QUESTION)
                self.assertDone(client)
                self.assertDone(server, status=3 if data else 0)
                self.assertEqual(server.output(), QUESTION)
                self.assertEqual(b"cannot be answered: give it --local PATH" in server.told, bool(data))

    def test_idle_and_count_end_it(self):
        server, place = self.listener("udp-listen:127.0.0.1:0", "--idle", "0.3")
        self.assertDone(server)
        server, place = self.listener("udp-listen:127.0.0.1:0", "--count", "2")
        peer = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.addCleanup(peer.close)
        for data in (b"one ", b"two ", b"three "):
            peer.sendto(data, ("127.0.0.1", int(place.rpartition(":")[2])))
        self.assertDone(server)
        self.assertEqual(server.output(), b"one two ")

    def test_receiver_that_never_reads(self):
        server, place = self.listening_socket(socket.AF_INET, socket.SOCK_DGRAM)
        client = self.kelcat(place, "--idle", "0.3", data=MEGABYTES_16)
        self.assertSentence(client, 3, rb"took no data for 0.3 s")
        server.setblocking(False)
        received = b""
        with contextlib.suppress(BlockingIOError):
            while True:
                received += server.recv(2000)
        self.assertGreater(len(received), 10000)
        self.assertSame(received, MEGABYTES_16[:len(received)])

    def test_nobody_listens(self):
        port = self.free_port(socket.SOCK_DGRAM)
        client = self.kelcat(f"udp:127.0.0.1:{port}", data=QUESTION)
        self.assertSentence(client, 3, b"nothing listens on udp ipv4 127.0.0.1:%d" % port)

    def test_port_in_use(self):
        _, place = self.listener("udp-listen:127.0.0.1:0")
        port = place.rpartition(":")[2]
        for listen in (f"udp-listen:{port}", f"udp-listen:127.0.0.1:{port}"):
            self.assertSentence(self.kelcat(listen), 1, b"Address already in use")

    def test_local_address(self):
        server, place = self.listening_socket(socket.AF_INET, socket.SOCK_DGRAM)
        port = self.free_port(socket.SOCK_DGRAM)
        for local in ("127.0.0.1", "0.0.0.0"):
            client = self.kelcat(place, "--local", f"{local}:{port}", "--send-only", data=QUESTION)
            self.assertDone(client)
            self.assertEqual(server.recvfrom(2000), (QUESTION, ("127.0.0.1", port)))
            self.assertEqual(server.recv(2000), b"")

    def test_socat(self):
        port = self.free_port(socket.SOCK_DGRAM)
        path = self.path("socat")
        # Standard input of the receiver is empty: in both directions the end mark is what ends it.
        for receive, place in ((f"UDP4-RECV:{port},bind=127.0.0.1,null-eof", f"udp:127.0.0.1:{port}"),
                               (f"UDP6-RECV:{port},bind=[::1],null-eof", f"udp:[::1]:{port}"),
                               (f"UNIX-RECV:{path},null-eof", f"unix-dgram:{path}")):
            with self.subTest(receive):
                server = self.start("socat", "-d", "-d", "-u", receive, "-")
                server.wait_told(b"starting data transfer")
                # many times its queue: more shows nothing more, and this reader is slow
                client = self.kelcat(place, "--send-only", data=MEGABYTES_16[:4 << 20])
                self.assertDone(client, server)
                self.assertSame(server.output(), MEGABYTES_16[:4 << 20])
        for listen, place in (("udp-listen:127.0.0.1:0", "UDP4"), ("udp-listen:[::1]:0", "UDP6"),
                              ("unix-dgram-listen:" + self.path("own"), "UNIX-SENDTO")):
            with self.subTest(place):
                server, reached = self.listener(listen)
                # socat does not wait for a receiver: what is sent fits into the receiver's queue
                client = self.start("socat", "-u", "-b1000", "-", f"{place}:{reached.partition(':')[2]},shut-null",
                                    data=MEGABYTES_16[:50000])
                self.assertDone(client, server)
                self.assertSame(server.output(), MEGABYTES_16[:50000])

    def test_ncat(self):
        port = str(self.free_port(socket.SOCK_DGRAM))
        receiver = self.start("ncat", "-v", "-u", "-l", "127.0.0.1", port, stdout=subprocess.PIPE)
        receiver.wait_told(b"Listening on")
        client = self.kelcat(f"udp:127.0.0.1:{port}", "--send-only", data=MEGABYTES_16)
        self.assertSame(receiver.process.stdout.read(len(MEGABYTES_16)), MEGABYTES_16)
        self.assertDone(client)

        server, place = self.listener("udp-listen:127.0.0.1:0", "--count", "1")
        self.start("ncat", "-u", *place.split(":")[1:], data=QUESTION)
        self.assertDone(server)
        self.assertEqual(server.output(), QUESTION)


class Messages(Test):
    def test_bad_usage(self):
        long_path = "x" * 120
        for arguments, sentence in (
                ([], b"endpoint is missing"), (["--frob", "tcp:127.0.0.1:1"], b'"--frob" is no option'),
                (["tcp:127.0.0.1:1", "stray"], b'"stray" is one argument too many'),
                (["dccp:127.0.0.1:1"], b"is no endpoint"), (["9000"], b"is no endpoint"),
                (["tcp:127.0.0.1:70000"], b'"70000" is no port: give a number from 1 to 65535'),
                (["tcp:127.0.0.1:0"], b"is no port"), (["tcp:127.0.0.1:http"], b"is no port"),
                (["tcp:127.0.0.1:"], b"is no port"), (["tcp:127.0.0.1: 1"], b"is no port"),
                (["tcp-listen:70000"], b"give a number from 0 to 65535"), (["tcp-listen:-1"], b"is no port"),
                (["tcp:9000"], b"is no numeric address"), (["tcp:localhost:9000"], b"is no numeric address"),
                (["tcp:256.0.0.1:9000"], b"is no numeric address"), (["tcp:::1:9000"], b"is no numeric address"),
                (["tcp:[::1%lo]:9000"], b"is no numeric address"), (["udp:[127.0.0.1]:9"], b"is no numeric address"),
                (["unix-listen:" + long_path], b"120 characters: give 1 to 107"), (["unix:"], b"0 characters"),
                (["packet:"], b"names no interface"), (["packet:lo,70000"], b"is no protocol"),
                (["packet:lo,0xfffff"], b"is no protocol"), (["packet:lo,0x"], b"is no protocol"),
                (["tcp:127.0.0.1:9", "--local", "127.0.0.1:0"], b"is no port"),
                (["tcp:127.0.0.1:9", "--local", "[::1]:9"], b"of two families"),
                (["tcp:127.0.0.1:9", "--local", ""], b"--local is empty"),
                (["tcp:127.0.0.1:9", "--local"], b"--local needs a value"),
                (["tcp-listen:9", "--local", "127.0.0.1:9"], b"--local is for"),
                (["unix-dgram:/x", "--local", long_path], b"120 characters"),
                (["unix-dgram:/x", "--recv-only"], b"--recv-only needs --local"),
                (["udp:127.0.0.1:9", "--size", "0"], b"is no size"),
                (["udp:127.0.0.1:9", "--size", "65508"], b"give a number from 1 to 65507"),
                (["tcp:127.0.0.1:9", "--size", "9"], b"--size is for"),
                (["tcp:127.0.0.1:9", "--rate", "9"], b"--rate and --count are for"),
                (["udp:127.0.0.1:9", "--rate", "9g"], b"is no rate"),
                (["udp:127.0.0.1:9", "--rate", "k"], b"is no rate"),
                (["udp:127.0.0.1:9", "--idle", "-1"], b"is no time"),
                (["udp:127.0.0.1:9", "--idle", "1s"], b"is no time"),
                (["udp:127.0.0.1:9", "--count", "0"], b"is no count"), (["udp:127.0.0.1:9", "--raw"], b"--raw is for"),
                (["tcp:127.0.0.1:9", "--send-only", "--recv-only"], b"exclude each other"),
                (["tcp:[::1]"], b"has no port"), (["sctp:127.0.0.1"], b"has no port"),
                (["sctp:127.0.0.1,:9"], b"is no numeric address"),
                (["sctp:,127.0.0.1:9"], b"is no numeric address"), (["sctp:127.0.0.1:0"], b"is no port"),
                (["sctp:127.0.0.1:9,127.0.0.2:9"], b"is no numeric address"),
                (["tcp:127.0.0.1,127.0.0.2:9"], b"is no numeric address"),
                (["sctp:127.0.0.1,[::1]:9"], b"two families: give all as IPv4 or all as IPv6"),
                (["sctp-listen:[::1],127.0.0.1:9"], b"addresses of two families"),
                (["sctp:127.0.0.1:9", "--local", "[::1],[::2]"], b"of two families"),
                (["sctp:127.0.0.1:9", "--local", "127.0.0.1,127.0.0.2:0"], b"is no port"),
                (["sctp-listen:9", "--local", "127.0.0.1"], b"--local is for"),
                (["tcp:127.0.0.1:9", "--local", "127.0.0.1"], b"has no port"),
                (["sctp:127.0.0.1:9", "--streams", "0"], b'"0" is no number of streams: give a number from 1'),
                (["sctp:127.0.0.1:9", "--streams", "65536"], b"from 1 to 65535"),
                (["sctp:127.0.0.1:9", "--ppid", "0x100000000"], b"from 0 to 4294967295"),
                (["sctp:127.0.0.1:9", "--size", "65537"], b"give a number from 1 to 65536"),
                (["sctp:127.0.0.1:9", "--count", "9"], b"--rate and --count are for"),
                (["tcp:127.0.0.1:9", "--streams", "9"], b"are for sctp endpoints alone"),
                (["udp:127.0.0.1:9", "--one-to-many"], b"are for sctp endpoints alone")):
            with self.subTest(arguments):
                process = self.kelcat(*arguments)
                self.assertSentence(process, 2, re.escape(sentence))
                self.assertEqual(process.output(), b"")

    def test_endpoint_that_cannot_be_opened(self):
        port = self.free_port()
        taken, place = self.listening_socket()
        taken_port = place.rpartition(":")[2]
        for arguments, sentence in (
                ([f"tcp:127.0.0.1:{port}"], b"cannot connect to tcp:127.0.0.1:%d: Connection refused" % port),
                ([f"tcp-listen:127.0.0.1:{taken_port}"], b"Address already in use"),
                (["tcp-listen:192.0.2.1:9"], b"Cannot assign requested address"),
                ([place, "--local", "192.0.2.1:9999"], b"cannot use --local 192.0.2.1:9999: the address"),
                ([place, "--local", f"127.0.0.1:{taken_port}"], b"cannot (use --local|connect)"),
                (["udp:127.0.0.1:9", "--local", "192.0.2.1:9"], b"cannot use --local"),
                (["unix:" + self.path("none")], b"cannot connect to unix:.*: No such file or directory"),
                (["unix-dgram:" + self.path("none")], b"No such file or directory"),
                (["unix-listen:" + self.path("none/x")], b"No such file or directory"),
                (["packet:nosuch0"], b"there is no such interface")):
            with self.subTest(arguments):
                process = self.kelcat(*arguments)
                self.assertSentence(process, 1, sentence)
                self.assertEqual(process.output(), b"")

    def test_packet_without_the_privilege(self):
        as_nobody = ["setpriv", "--reuid=65534", "--clear-groups"] if os.geteuid() == 0 else []
        process = self.start(*as_nobody, KELCAT, "packet:lo")
        self.assertSentence(process, 1, rb"it needs the raw-socket privilege \(CAP_NET_RAW\)")

    def test_files_of_others_are_left_alone(self):
        path = self.path("file")
        with open(path, "w", encoding="ascii") as file:
            file.write("precious")
        for endpoint in (["unix-listen:" + path], ["unix-dgram-listen:" + path],
                         ["unix-dgram:" + self.path("x"), "--local", path]):
            self.assertSentence(self.kelcat(*endpoint), 1, b"a file that is no socket stands there")
        with open(path, encoding="ascii") as file:
            self.assertEqual(file.read(), "precious")

    def test_sockets_of_others_are_left_alone_and_abandoned_ones_replaced(self):
        for kind in ("unix", "unix-dgram"):
            with self.subTest(kind):
                path = self.path(kind)
                server, _ = self.listener(f"{kind}-listen:{path}")
                for other in ("unix", "unix-dgram"):
                    self.assertSentence(self.kelcat(f"{other}-listen:{path}"), 1, b"another program's socket")
                server.process.kill()
                server.finish()
                successor, place = self.listener(f"{kind}-listen:{path}")
                self.assertDone(self.kelcat(place, data=QUESTION), successor)
                self.assertEqual(successor.output(), QUESTION)

    def test_reports_keep_off_standard_output(self):
        port = self.free_port()
        process = self.kelcat("-v", f"tcp:127.0.0.1:{port}", env={**os.environ, "KEL_HOST_LOG": self.path("log")})
        self.assertDone(process, status=1)
        self.assertEqual(process.output(), b"")
        self.assertRegex(process.told, rb"(?s)connet tcp socket.*\nkelcat: cannot connect .*: Connection refused\n\Z")
        with open(self.path("log"), encoding="ascii") as log:
            self.assertIn("connet tcp socket", log.read())

    def test_help_and_version(self):
        process = self.kelcat("--help")
        self.assertDone(process)
        lines = process.output().decode().splitlines()
        self.assertLessEqual(len(lines), 45)
        self.assertLessEqual(max(map(len, lines)), 100)
        for word in ("unix-dgram-listen:", "sctp-listen:", "packet:", "--streams", "--local", "--idle", "null-eof",
                     "Exit status", "Examples"):
            self.assertIn(word, process.output().decode())
        process = self.kelcat("--version")
        self.assertDone(process)
        self.assertRegex(process.output(), rb"\Akelcat \d+\.\d+\.\d+\n\Z")
        with open("/dev/full", "wb") as full:
            self.assertSentence(self.kelcat("--help", stdout=full), 3, b"No space left on device")


class WithoutSctp(Test):
    def test_kernel_that_has_none(self):
        for endpoint in ("sctp-listen:0", "sctp:127.0.0.1:9", "sctp:[::1]:9"):
            for style in ([], ["--one-to-many"]):
                with self.subTest(endpoint, style=style):
                    process = self.kelcat(endpoint, *style)
                    self.assertSentence(process, 1, b"this kernel has no SCTP; .*`modprobe sctp`")


class ProgressLine(Test):
    def watched(self, *options):
        """What a terminal shows of a transfer that lasts until the line has come, or has had the time to."""
        server, place = self.listening_socket()
        master, slave = pty.openpty()
        with tempfile.TemporaryFile(dir=self.directory) as data:
            data.write(MEGABYTES_16)
            data.seek(0)
            client = subprocess.Popen([KELCAT, place, *options], stdin=data, stdout=subprocess.DEVNULL, stderr=slave)
        os.close(slave)
        self.addCleanup(os.close, master)
        self.addCleanup(client.wait)
        return self.accept(server), client, master

    def test_a_line_is_shown_and_taken_away(self):
        connection, client, master = self.watched()
        shown = b""
        while not re.search(rb"\rsent [\d.]+ \w+, received 0 B, [\d.]+ \w+/s, \d+ %, \d+:\d\d left", shown):
            shown += os.read(master, 4096)
        self.assertSame(self.receive_all(connection), MEGABYTES_16)
        connection.close()
        with contextlib.suppress(OSError):  # the terminal's end
            while piece := os.read(master, 4096):
                shown += piece
        self.assertEqual(client.wait(PATIENCE), 0)
        self.assertTrue(shown.endswith(b"\r\033[K"), shown)
        self.assertNotIn(b"\n", shown)

    def test_quiet(self):
        connection, client, master = self.watched("-q")
        self.assertEqual(len(connection.recv(1, socket.MSG_PEEK)), 1)
        with self.assertRaises(subprocess.TimeoutExpired):
            client.wait(1.5)  # past the time at which the line comes
        self.assertSame(self.receive_all(connection), MEGABYTES_16)
        connection.close()
        with contextlib.suppress(OSError):
            self.assertEqual(os.read(master, 4096), b"")


class TwoHosts(Test):
    """Two network namespaces, joined by pairs of interfaces: side0, side1 ..."""

    PAIRS = 1

    def setUp(self):
        super().setUp()
        self.names = [f"kelcat{os.getpid()}{side}" for side in "ab"]
        for name in self.names:
            self.run_ip("netns", "add", name)
            self.addCleanup(self.run_ip, "netns", "del", name)
        for pair in range(self.PAIRS):
            self.run_ip("-n", self.names[0], "link", "add", f"side{pair}", "type", "veth", "peer", "name",
                        f"side{pair}", "netns", self.names[1])
            for name in self.names:
                self.ready(name, f"side{pair}")

    def ready(self, name, interface):
        self.inside(name, "sysctl", "-qw", f"net.ipv6.conf.{interface}.disable_ipv6=1").finish()
        self.run_ip("-n", name, "link", "set", interface, "up")

    def run_ip(self, *arguments):
        subprocess.run(["ip", *arguments], check=True)

    def inside(self, name, *command, **options):
        return self.start("ip", "netns", "exec", name, *command, **options)


class Packet(TwoHosts):
    FRAME = bytes.fromhex("ffffffffffff 020000000001 88b5") + bytes(range(84))

    def receiver(self, *arguments):
        process = self.inside(self.names[0], KELCAT, "-v", *arguments)
        process.wait_told(rb"listening on ifindex")
        return process

    def sender(self, *arguments, **options):
        return self.inside(self.names[1], KELCAT, "packet:side0", "--send-only", *arguments, **options)

    def test_frames_travel_as_text(self):
        text = (b"# a comment\n0000  ff ff ff ff ff ff 02 00 00 00 00 01 88 b5 00 01\n0010  02 03\n\n"
                b"0000 ff ff ff ff ff ff 02 00 00 00 00 01 88 b5 7f\n")
        server = self.receiver("packet:side0,0x88b5", "--count", "2")
        self.assertDone(self.sender(data=text), server)
        self.assertEqual(server.output(),
                         b"# 1: 18 bytes in, protocol 0x88b5\n0000  ff ff ff ff ff ff 02 00 00 00 00 01 88 b5 00 01\n"
                         b"0010  02 03\n# 2: 15 bytes in, protocol 0x88b5\n"
                         b"0000  ff ff ff ff ff ff 02 00 00 00 00 01 88 b5 7f\n")
        again = self.receiver("packet:side0,34997", "--count", "2")
        self.assertDone(self.sender(data=server.output()), again)
        self.assertEqual(again.output(), server.output())

    def test_many_frames_lose_none(self):
        frames = [self.FRAME + struct.pack(">I", i) for i in range(1000)]
        text = "".join(f"# {i + 1}: {len(frame)} bytes in, protocol 0x88b5\n" + "".join(
            f"{at:04x}  {frame[at:at + 16].hex(' ')}\n" for at in range(0, len(frame), 16))
                       for i, frame in enumerate(frames)).encode()
        server = self.receiver("packet:side0,0x88b5", "--count", "1000")
        self.assertDone(self.sender("--rate", "1m", data=text), server)
        self.assertSame(server.output(), text)

    def test_raw(self):
        server = self.receiver("packet:side0,0x88b5", "--count", "1", "--raw")
        self.assertDone(self.sender("--raw", data=self.FRAME), server)
        self.assertEqual(server.output(), self.FRAME)

    def test_own_frames_are_shown_on_demand(self):
        for options, output in (([], b""), (["-v"], b"# 1: 98 bytes out, protocol 0x88b5\n")):
            server = self.inside(self.names[1], KELCAT, "packet:side0", "--idle", "1", *options)
            other = self.receiver("packet:side0,0x88b5", "--idle", "1")
            self.wait_packet_sockets(self.names[1], 1)
            self.assertDone(self.sender("--raw", data=self.FRAME), server, other)
            self.assertEqual(server.output()[:len(output) or None], output)
            self.assertIn(b"98 bytes in", other.output())

    def wait_packet_sockets(self, name, count):
        while True:
            look = self.inside(name, "cat", "/proc/net/packet")
            look.finish()
            if len(look.output().splitlines()) == 1 + count:
                return

    def test_both_ends_against_socat(self):
        server = self.receiver("packet:side0,0x88b5", "--count", "1", "--raw")
        self.assertDone(self.inside(self.names[1], "socat", "-u", "-", "INTERFACE:side0", data=self.FRAME), server)
        self.assertEqual(server.output(), self.FRAME)

        server = self.inside(self.names[0], "socat", "-d", "-d", "-u", "INTERFACE:side0", "-", stdout=subprocess.PIPE)
        server.wait_told(b"starting data transfer")
        self.assertDone(self.sender("--raw", data=self.FRAME))
        self.assertEqual(server.process.stdout.read(len(self.FRAME)), self.FRAME)

    def test_what_is_no_frame(self):
        first = b"0000  ff ff ff ff ff ff 02 00 00 00 00 01 88 b5 00 01\n"
        for text, sentence in ((b"hello\n", b"line 1 of standard input does not begin with an offset"),
                               (b"# x\n0000 f\n", b"line 2 of standard input holds something else"),
                               (b"0000 fff\n", b"line 1 of standard input holds something else"),
                               (b"0000 ff\0\n", b"line 1 of standard input holds"),
                               (b"#\0\n", b"line 1 of standard input holds a NUL"),
                               (first + b"0020 00\n", b"line 2 of standard input has an offset that is neither"),
                               (b"0000 ff ff\n", b"cannot send 2 bytes to packet:side0: Invalid argument"),
                               (b"".join(b"%04x  %s\n" % (at, b"00 " * 16) for at in range(0, 2000, 16)),
                                b"cannot send 2000 bytes to packet:side0: Message too long")):
            with self.subTest(text[:40]):
                self.assertSentence(self.sender(data=text), 3, sentence)
        self.assertSentence(self.sender("--raw", data=bytes(70000)), 3, b"longer than any frame")

    def test_interface_that_goes_down(self):
        server = self.receiver("packet:side0")
        self.run_ip("-n", self.names[0], "link", "del", "side0")
        self.assertDone(server, status=3)
        self.assertIn(b"kelcat: the transfer with packet:side0 broke: Network is down\n", server.told)


class SctpTransfer(Transfer):
    """What holds for every transfer, over one-to-one sockets."""

    FAILING_OUTPUT = ["sctp-listen:127.0.0.1:0"]

    def endpoints(self):
        return ["sctp-listen:127.0.0.1:0"]


class SctpOneToMany(SctpTransfer):
    """The same, over one-to-many sockets and IPv6."""

    def endpoints(self):
        return ["sctp-listen:[::1]:0"]

    def kelcat(self, *arguments, **options):
        return super().kelcat(*arguments, "--one-to-many", **options)


def each_style(test):
    """Runs a test with one-to-one sockets and with one-to-many ones."""

    @functools.wraps(test)
    def run(self):
        for style in ([], ["--one-to-many"]):
            with self.subTest(style=style):
                test(self, style)

    return run


class Sctp(Test):
    def plain_listener(self):
        return self.listening_socket(protocol=socket.IPPROTO_SCTP)

    def plain_client(self, place):
        client = socket.socket(socket.AF_INET, socket.SOCK_STREAM, socket.IPPROTO_SCTP)
        self.addCleanup(client.close)
        client.settimeout(PATIENCE)
        client.connect(("127.0.0.1", int(place.rpartition(":")[2])))
        return client

    def reset(self, connection):
        connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        connection.close()

    @each_style
    def test_what_verbose_shows(self, style):
        server, place = self.listener("sctp-listen:127.0.0.1,127.0.0.2:0", *style)
        port = place.rpartition(":")[2].encode()
        client = self.kelcat("-v", f"sctp:127.0.0.1,127.0.0.2:{port.decode()}", *style, data=QUESTION)
        self.assertDone(client, server)
        self.assertRegex(server.told, rb"\Akelcat: listening on ipv4 127.0.0.1,127.0.0.2:%s\n" % port)
        self.assertRegex(client.told, rb"kelcat: peer ipv4 127.0.0.1,127.0.0.2:%s\n" % port)
        self.assertIn(b"path 127.0.0.2 active\n", client.told)
        if not style:
            self.assertRegex(server.told, rb"kelcat: peer ipv4 127.0.0.1:\d+\n")
        for process in (client, server):
            timed = re.findall(rb"kelcat: (\d+\.\d{3}) (.*)\n", process.told)
            times = [float(time) for time, _ in timed]
            self.assertEqual(times, sorted(times))
            self.assertLessEqual(times[-1], float(re.search(rb" bytes in (\d+\.\d{3}) s\n\Z", process.told)[1]))
            self.assertRegex(timed[0][1], rb"\Aassociation \d+ up, 10 streams out, 10 in\Z")
            self.assertEqual(timed[1][1], b"path 127.0.0.1 active, primary")
            told = [text for _, text in timed if text.startswith(b"notification")]
            self.assertEqual(told[0], b"notification SCTP_ASSOC_CHANGE SCTP_COMM_UP")
            self.assertEqual(told[-1], b"notification SCTP_ASSOC_CHANGE SCTP_SHUTDOWN_COMP")
            for text in told:
                self.assertRegex(text, rb"\Anotification( SCTP_[A-Z_]+| 127\.0\.0\.[12])+\Z")
            self.assertChanges(process.told)
        self.assertIn(b"notification SCTP_SHUTDOWN_EVENT\n", server.told)
        self.assertNotIn(b"notification SCTP_SHUTDOWN_EVENT\n", client.told)

    @each_style
    def test_reports_of_the_module_are_no_part_of_a_good_transfer(self, style):
        server, place = self.listener("sctp-listen:127.0.0.1:0", *style)
        client = self.kelcat("-v", place, "--send-only", *style, data=MEGABYTES_16[:3 << 20])
        self.assertDone(client, server)
        for line in (client.told + server.told).splitlines():
            self.assertRegex(line, rb"\Akelcat: ")
        self.assertIn(b"SCTP_SHUTDOWN_COMP", client.told)  # also with --send-only it waits until the peer has all

    @each_style
    def test_wildcard_listeners(self, style):
        for listen, shown, place in (("sctp-listen:0", b"ipv4 0.0.0.0", "127.0.0.1"),
                                     ("sctp-listen:[::]:0", b"ipv6 ::", "[::1]")):
            server = self.kelcat("-v", listen, *style)
            port = server.wait_told(rb"listening on " + re.escape(shown) + rb":(\d+)\n")
            self.assertDone(self.kelcat(f"sctp:{place}:{port}", "--send-only", *style, data=QUESTION), server)
            self.assertEqual(server.output(), QUESTION)

    @each_style
    def test_local_addresses(self, style):
        server, place = self.listener("sctp-listen:127.0.0.1:0", "--recv-only")
        port = self.free_port(protocol=socket.IPPROTO_SCTP)
        client = self.kelcat("-v", place, "--send-only", "--local", f"127.0.0.2,127.0.0.3:{port}", *style,
                             data=QUESTION)
        self.assertDone(client, server)
        self.assertIn(b"kelcat: local ipv4 127.0.0.2,127.0.0.3:%d\n" % port, client.told)
        self.assertIn(b"kelcat: peer ipv4 127.0.0.2,127.0.0.3:%d\n" % port, server.told)
        server, place = self.listener("sctp-listen:[::1]:0", "--recv-only")
        self.assertDone(self.kelcat(place, "--send-only", "--local", "[::1]", *style, data=QUESTION), server)
        self.assertEqual(server.output(), QUESTION)
        server, place = self.plain_listener()
        for local in ("192.0.2.1", "127.0.0.1,192.0.2.1", "127.0.0.1:" + place.rpartition(":")[2]):
            client = self.kelcat(place, "--local", local, *style)
            self.assertSentence(client, 1, b"cannot use --local " + local.encode())

    @each_style
    def test_endpoint_that_cannot_be_opened(self, style):
        port = self.free_port(protocol=socket.IPPROTO_SCTP)
        _, taken = self.plain_listener()
        for place, sentence in ((f"sctp:127.0.0.1:{port}", b"cannot connect to .*: Connection refused"),
                                (f"sctp:[::1]:{port}", b"cannot connect to .*: Connection refused"),
                                (taken.replace("sctp", "sctp-listen"), b"cannot listen on .*: Address already in use"),
                                ("sctp-listen:192.0.2.1:0", b"Cannot assign requested address")):
            self.assertSentence(self.kelcat(place, *style), 1, sentence)
        self.assertSentence(self.kelcat("sctp-listen:0", "--idle", "0.1", *style), 1, b"nobody connected to sctp")

    @each_style
    def test_one_read_is_one_message(self, style):
        for size, data in ((100, MEGABYTES_16[:250]), (65536, MEGABYTES_16[:150000])):
            server, place = self.plain_listener()
            client = self.kelcat(place, "--send-only", "--size", str(size), *style, data=data)
            connection = self.accept(server)
            while data:
                message, _, flags, _ = connection.recvmsg(100000)
                self.assertSame(message, data[:size])
                self.assertTrue(flags & socket.MSG_EOR)
                data = data[size:]
            self.assertEqual(connection.recv(1), b"")
            self.assertDone(client)

    @each_style
    def test_message_that_comes_in_parts(self, style):
        server, place = self.listener("sctp-listen:127.0.0.1:0", *style)
        client = self.plain_client(place)
        client.setsockopt(socket.SOL_SOCKET, 32, 1 << 20)  # SO_SNDBUFFORCE
        for start in (0, 300000):
            self.assertEqual(client.send(MEGABYTES_16[start:start + 300000]), 300000)
        client.close()
        self.assertDone(server)
        self.assertSame(server.output(), MEGABYTES_16[:600000])

    @each_style
    def test_streams(self, style):
        server, place = self.listener("sctp-listen:127.0.0.1:0", *style)
        client = self.kelcat("-v", place, "--streams", "20", *style, stdin=subprocess.PIPE)
        client.process.stdin.write(QUESTION)
        client.process.stdin.flush()
        client.wait_told(b"notification SCTP_SENDER_DRY_EVENT\n")  # which comes once more behind the second message
        client.process.stdin.write(ANSWER)
        client.process.stdin.close()
        self.assertDone(client, server)
        self.assertEqual(sorted(server.output()), sorted(QUESTION + ANSWER))
        self.assertRegex(client.told, rb"association \d+ up, 20 streams out, 10 in\n")
        self.assertChanges(client.told)

    @each_style
    def test_fewer_streams_than_asked_for(self, style):
        server, place = self.listener("sctp-listen:127.0.0.1:0", "--streams", "2", *style)
        client = self.kelcat("-v", place, "--send-only", "--streams", "5", "--size", "1", *style, data=bytes(100))
        self.assertDone(client, server)
        self.assertRegex(client.told, rb"association \d+ up, 2 streams out, 2 in\n")
        self.assertEqual(server.output(), bytes(100))

    @each_style
    def test_answer_to_a_question(self, style):
        server, place = self.plain_listener()
        client = self.kelcat(place, *style, data=QUESTION)
        connection = self.accept(server)
        self.assertEqual(connection.recv(4096), QUESTION)
        connection.send(ANSWER)
        self.assertEqual(connection.recv(1), b"")  # the client ends it
        self.assertDone(client)
        self.assertEqual(client.output(), ANSWER)

    def test_answer_that_comes_in_many_parts(self):
        server, place = self.plain_listener()
        client = self.kelcat(place, data=QUESTION)
        connection = self.accept(server)
        self.assertEqual(connection.recv(4096), QUESTION)
        for _ in range(100):  # for longer than the patience with silence, which there is none
            connection.send(ANSWER)
            threading.Event().wait(0.01)
        self.assertDone(client)
        self.assertEqual(client.output(), 100 * ANSWER)

    @each_style
    def test_who_has_sent_nothing_leaves_the_end_to_the_peer(self, style):
        server, place = self.listener("sctp-listen:127.0.0.1:0", *style)
        peer = self.plain_client(place)
        listener, place = self.plain_listener()
        client = self.kelcat(place, *style)
        connection = self.accept(listener)
        connection.send(QUESTION)
        with self.assertRaises(subprocess.TimeoutExpired):
            server.process.wait(1)  # twice the patience with silence
        for process, socket_ in ((server, peer), (client, connection)):
            socket_.send(ANSWER)
            socket_.close()
            self.assertDone(process)
        self.assertEqual((server.output(), client.output()), (ANSWER, QUESTION + ANSWER))

    @each_style
    def test_send_only_ends_it_whatever_the_peer_says(self, style):
        server, place = self.plain_listener()
        client = self.kelcat(place, "--send-only", *style, data=QUESTION)
        connection = self.accept(server)
        self.assertEqual(connection.recv(4096), QUESTION)
        connection.setblocking(False)  # poll never calls a socket writable whose association has gone
        with self.assertRaises(BrokenPipeError):
            for _ in range(1000):
                connection.send(ANSWER)
                threading.Event().wait(0.01)  # many times less than the patience with silence
        connection.close()
        self.assertDone(client)
        self.assertEqual(client.output(), b"")

    @each_style
    def test_peer_that_ends_first(self, style):
        server, place = self.plain_listener()
        client = self.kelcat(place, *style, stdin=subprocess.PIPE)
        connection = self.accept(server)
        connection.send(ANSWER)
        connection.close()
        self.assertDone(client)
        self.assertEqual(client.output(), ANSWER)
        with open("/dev/zero", "rb") as endless:
            client = self.kelcat(place, *style, stdin=endless)
        connection = self.accept(server)
        connection.send(ANSWER)
        connection.shutdown(socket.SHUT_WR)
        client.wait_told(b"was ended by the peer")  # although nobody takes what is on its way
        threading.Thread(target=self.swallow, args=(connection,), daemon=True).start()
        self.assertSentence(client, 3, b"was ended by the peer before all of the input was sent")
        self.assertEqual(client.output(), ANSWER)

    def assertChanges(self, told):
        """Neither the state of a path nor a notification is told twice in a row."""
        for lines in (re.findall(rb" (path) (\S+) (.*)\n", told), re.findall(rb" (notification) ()(.*)\n", told)):
            latest = {}
            for _, address, state in lines:
                self.assertNotEqual(latest.get(address), state, told)
                latest[address] = state

    def swallow(self, connection):
        with contextlib.suppress(OSError):
            self.receive_all(connection)

    @each_style
    def test_abort_breaks_the_transfer_and_keeps_what_arrived(self, style):
        server, place = self.plain_listener()
        client = self.kelcat(place, *style, stdin=subprocess.PIPE)
        connection = self.accept(server)
        connection.send(ANSWER)
        self.wait_output(client, ANSWER)
        self.reset(connection)
        self.assertSentence(client, 3, rb"broke: Connection reset by peer")
        self.assertEqual(client.output(), ANSWER)

        client = self.kelcat("-v", place, "--send-only", *style, data=MEGABYTES_16[:200000])
        connection = self.accept(server)
        connection.recv(1)
        client.wait_told(b"SCTP_COMM_UP")
        self.reset(connection)
        self.assertDone(client, status=3)
        self.assertIn(b"SCTP_ASSOC_CHANGE SCTP_COMM_LOST\n", client.told)
        self.assertChanges(client.told)

    @each_style
    def test_receiver_that_never_reads(self, style):
        server, place = self.plain_listener()
        client = self.kelcat("-v", place, "--idle", "0.3", *style, data=MEGABYTES_16)
        connection = self.accept(server)
        self.assertDone(client, status=3)
        self.assertRegex(client.told, rb"\nkelcat: sctp:\S+ took no data for 0.3 s\n")
        self.assertNotIn(b"kel_sctp_send", client.told)  # the module reports each message that is refused
        connection.close()

    @each_style
    def test_one_association_at_a_time(self, style):
        server, place = self.listener("sctp-listen:127.0.0.1:0", *style)
        first = self.plain_client(place)
        server.wait_told(rb"association \d+ up")
        os.kill(server.pid, signal.SIGSTOP)
        self.assertSentence(self.kelcat(place), 1, b"Connection refused")
        os.kill(server.pid, signal.SIGCONT)
        first.send(QUESTION)
        first.close()
        self.assertDone(server)
        self.assertEqual(server.output(), QUESTION)

    def test_two_that_come_at_once(self):
        server, place = self.listener("sctp-listen:127.0.0.1:0", "--one-to-many", data=ANSWER)
        os.kill(server.pid, signal.SIGSTOP)
        first, second = self.plain_client(place), self.plain_client(place)
        second.send(ANSWER)
        os.kill(server.pid, signal.SIGCONT)
        with self.assertRaises(ConnectionResetError):
            second.recv(1)
        first.send(QUESTION)
        self.assertEqual(first.recv(4096), ANSWER)
        first.close()
        self.assertDone(server)
        self.assertEqual(server.output(), QUESTION)

    def foreign(self, program, listen, sends, port):
        """The command of another program that only sends or only receives."""
        if program == "ncat":
            way = ["--send-only" if sends else "--recv-only"]
            return ["ncat", "--sctp", "-v", *way, *(["-l"] if listen else []), "127.0.0.1", str(port)]
        address = f"SCTP4-LISTEN:{port},bind=127.0.0.1" if listen else f"SCTP4-CONNECT:127.0.0.1:{port}"
        return ["socat", "-d", "-d", "-u", *(["-", address] if sends else [address, "-"])]

    def test_foreign_programs(self):
        for program, style in (("ncat", ["--one-to-many"]), ("socat", [])):
            for sends in (False, True):
                with self.subTest(program, sends=sends):
                    self.foreign_listener(program, style, sends, MEGABYTES_16[:50000])
                    self.foreign_client(program, style, sends, MEGABYTES_16[:1 << 20 if sends else 50000])

    # A foreign receiver's buffer is small, and what it drops comes again after a second: it is sent what fits.

    def foreign_listener(self, program, style, sends, data):
        port = self.free_port(protocol=socket.IPPROTO_SCTP)
        # A listening ncat aborts at the end of its input, also when it does not send it.
        other = self.start(*self.foreign(program, True, sends, port),
                           **({"data": data} if sends else {"stdin": subprocess.PIPE}))
        other.wait_told(b"[lL]istening on")
        own = self.kelcat(f"sctp:127.0.0.1:{port}", *style, data=None if sends else data)
        self.assertDone(own)
        if not sends:
            self.wait_output(other, data)
            other.process.stdin.close()
        self.assertDone(other)
        self.assertSame((own if sends else other).output(), data)

    def foreign_client(self, program, style, sends, data):
        own, place = self.listener("sctp-listen:127.0.0.1:0", *style, data=None if sends else data)
        other = self.start(*self.foreign(program, False, sends, place.rpartition(":")[2]), data=data if sends else None)
        self.assertDone(own, other)
        self.assertSame((own if sends else other).output(), data)


class SctpPaths(TwoHosts):
    """Two paths between two hosts; 10.1.0.2, for example, is the second host's address on the first one."""

    PAIRS = 2

    def ready(self, name, interface):
        path, host = int(interface[-1]) + 1, self.names.index(name) + 1
        self.run_ip("-n", name, "addr", "add", f"10.{path}.0.{host}/24", "dev", interface)
        self.run_ip("-n", name, "addr", "add", f"fd00:{path}::{host}/64", "dev", interface, "nodad")
        self.run_ip("-n", name, "link", "set", interface, "up")
        # A lost path shows within a second or two.
        self.assertDone(self.inside(name, "sysctl", "-qw", *(f"net.sctp.{key}={value}" for key, value in (
            ("rto_min", 100), ("rto_max", 400), ("rto_initial", 200), ("path_max_retrans", 2), ("hb_interval", 200)))))

    def addresses(self, family, host):
        return [f"10.{path}.0.{host}" if family == 4 else f"[fd00:{path}::{host}]" for path in (1, 2)]

    def transfer(self, family, *options, client_options=(), **streams):
        """A receiving listener on the second host and a client on the first one."""
        server = self.inside(self.names[1], KELCAT, "-v", f"sctp-listen:{','.join(self.addresses(family, 2))}:0",
                             "--recv-only", *options)
        port = server.wait_told(rb"listening on .*:(\d+)\n")
        client = self.inside(self.names[0], KELCAT, "-v", f"sctp:{','.join(self.addresses(family, 2))}:{port}",
                             "--local", ",".join(self.addresses(family, 1)), "--send-only", *options, *client_options,
                             **streams)
        return server, client

    @contextlib.contextmanager
    def loss(self, *interfaces):
        """Of all that is sent over them, either way."""
        self.tell_queues("add", interfaces, "root", "netem", "loss", "100%")
        try:
            yield
        finally:
            self.tell_queues("del", interfaces, "root")

    def tell_queues(self, command, interfaces, *words):
        for name in self.names:
            for interface in interfaces:
                subprocess.run(["tc", "-n", name, "qdisc", command, "dev", interface, *words], check=True)

    @contextlib.contextmanager
    def unplugged(self, interface):
        self.run_ip("-n", self.names[1], "link", "set", interface, "down")
        try:
            yield
        finally:
            self.run_ip("-n", self.names[1], "link", "set", interface, "up")

    def test_path_that_is_cut_and_comes_back(self):
        # By its cable with IPv4 alone, and last: an interface that is down forgets its IPv6 addresses.
        for family, options, cut in ((6, ["--one-to-many"], self.loss), (4, [], self.unplugged)):
            with self.subTest(family):
                server, client = self.transfer(family, *options, stdin=subprocess.PIPE)
                first, second = (re.escape(text.strip("[]")).encode() for text in self.addresses(family, 2))
                self.send(client, MEGABYTES_16[:1 << 20])
                self.wait_output(server, MEGABYTES_16[:1 << 20])
                client.wait_told(rb" path " + first + rb" active[^\n]*\n.* path " + second + rb" active")
                side = "side0"
                if re.search(rb" path " + second + rb" active, primary\n", client.told):
                    first, second, side = second, first, "side1"  # the kernel's choice: a lost packet may change it

                with cut(side):
                    self.send(client, MEGABYTES_16[1 << 20:2 << 20])
                    self.wait_output(server, MEGABYTES_16[:2 << 20])
                    client.wait_told(rb" path " + first + rb" potentially-failed, primary\n")
                    client.wait_told(rb" notification SCTP_PEER_ADDR_CHANGE " + first + rb" SCTP_ADDR_UNREACHABLE\n")
                    client.wait_told(rb" path " + first + rb" inactive, primary\n")
                    self.assertNotIn(second + b" SCTP_ADDR_UNREACHABLE", client.told)

                client.wait_told(rb"(?s) inactive, primary\n.* path " + first + rb" active, primary\n")
                self.send(client, MEGABYTES_16[2 << 20:3 << 20])
                client.process.stdin.close()
                self.assertDone(client, server)
                self.assertSame(server.output(), MEGABYTES_16[:3 << 20])

    def send(self, client, data):
        client.process.stdin.write(data)
        client.process.stdin.flush()

    def test_peer_that_falls_silent_breaks_the_transfer(self):
        for options, idle, attempts, sentence in ((["--one-to-many"], ["--idle", "2"], 50, b" took no data for 2 s\n"),
                                                  ([], [], 2, b" broke: Connection timed out\n")):
            with self.subTest(options):
                limit = f"net.sctp.association_max_retrans={attempts}"
                self.assertDone(self.inside(self.names[0], "sysctl", "-qw", limit))
                server, client = self.transfer(4, *options, client_options=idle, stdin=subprocess.PIPE)
                client.wait_told(b"SCTP_COMM_UP")
                with self.loss("side0", "side1"):
                    self.send(client, QUESTION)
                    self.assertDone(client, status=3)
                    self.assertIn(sentence, client.told)
                    self.assertRegex(client.told, rb" path 10\.1\.0\.2 potentially-failed, primary\n")  # not notified
                server.end()

    def test_streams_and_identifier_on_the_wire(self):
        capture = self.inside(self.names[1], "tcpdump", "-n", "-i", "side0", "-l", "--immediate-mode", "sctp")
        capture.wait_told(b"listening on")
        for options in ([], ["--one-to-many"]):
            server, client = self.transfer(4, "--streams", "3", "--ppid", "0x11223344", "--size", "100", *options,
                                           data=MEGABYTES_16[:700])
            self.assertDone(client, server)
        capture.process.send_signal(signal.SIGINT)
        self.assertDone(capture)
        self.assertEqual(re.findall(rb"\[INIT\] .*\[OS: (\d+)\] \[MIS: (\d+)\]", capture.output()), 2 * [(b"3", b"3")])
        messages = re.findall(rb"\[SID: (\d+)\] \[SSEQ \d+\] \[PPID (\S+)\]", capture.output())
        self.assertEqual([int(stream) for stream, _ in messages], 2 * [0, 1, 2, 0, 1, 2, 0])
        self.assertEqual({identifier for _, identifier in messages}, {b"0x11223344"})


def leave_out(wanted, why):
    """Takes the tests out of the run whose class is not wanted, and says so."""
    names = [name for name, value in globals().items()
             if isinstance(value, type) and issubclass(value, Test) and value not in (Test, TwoHosts)
             and not wanted(name)]
    for name in names:
        del globals()[name]
    if names:
        print(f"kelcat_test.py: {', '.join(names)} are NOT part of this run: {why}", file=sys.stderr)


def main():
    """Runs what this machine can show; --messages and --streams run that half of it all, and fail where it cannot."""
    if not os.access(KELCAT, os.X_OK):
        sys.exit("kelcat_test.py: the environment variable KELCAT names no program")
    root = os.geteuid() == 0
    sctp = kernel_has_sctp()
    arguments = [argument for argument in sys.argv if argument not in ("--messages", "--streams")]
    messages = ("Sctp", "Datagrams", "Packet")
    if "--messages" in sys.argv:
        leave_out(lambda name: name.startswith(messages), "they are the other half")
    elif "--streams" in sys.argv:
        leave_out(lambda name: not name.startswith(messages), "they are the other half")
    else:
        leave_out(lambda name: root or name not in ("Packet", "SctpPaths"), "they need root")
        leave_out(lambda name: sctp or not name.startswith("Sctp"), "they need SCTP in the kernel")
    leave_out(lambda name: not sctp or name != "WithoutSctp", "only a kernel without SCTP can show it")
    unittest.main(argv=arguments)


if __name__ == "__main__":
    main()
