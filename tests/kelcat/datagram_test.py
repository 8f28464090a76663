"""UDP and local datagrams."""

import contextlib
import socket
import sys

from support import ANSWER, BYTES, QUESTION, Test, each, port_of
from transfer import HalfClosing, Transfer

NEEDS = ("ipv6",)
COME_AND_GO = """
import socket
print("busy", flush=True)
while True:
    sockets = [socket.socket(socket.AF_INET, socket.SOCK_DGRAM) for _ in range(100)]
    for one in sockets:
        one.bind(("127.0.0.1", 0))
    for one in sockets:
        one.close()
"""


class DatagramTransfer(Transfer, HalfClosing, Test):
    CONNECTED = False

    def endpoints(self):
        return ["udp-listen:127.0.0.1:0", "udp-listen:[::1]:0", "unix-dgram-listen:" + self.path("dgram")]


class Datagrams(Test):
    def peer(self, place=None):
        """A plain socket, connected to a listener."""
        if place is None or place.startswith("udp"):
            peer = self.plain(socket.AF_INET, socket.SOCK_DGRAM)
            peer.bind(("127.0.0.1", 0))
            if place is not None:
                peer.connect(("127.0.0.1", port_of(place)))
        else:
            peer = self.plain(socket.AF_UNIX, socket.SOCK_DGRAM)
            peer.bind(self.path(f"peer{peer.fileno()}"))
            peer.connect(place.partition(":")[2])
        return peer

    def listeners(self):
        return ["udp-listen:127.0.0.1:0", "unix-dgram-listen:" + self.path("d")]

    @each(socket.AF_INET, socket.AF_UNIX)
    def test_one_read_is_one_datagram_and_an_empty_one_the_end(self, family):
        server, place = self.plain_listener(family, socket.SOCK_DGRAM)
        self.assertDone(self.kelcat(place, "--send-only", "--size", "100", data=BYTES[:250]))
        self.assertEqual([len(server.recv(1000)) for _ in range(4)], [100, 100, 50, 0])

    def test_largest_datagrams(self):
        for endpoint, size in zip(self.listeners(), (65507, 200000)):
            with self.subTest(endpoint):
                server, place = self.listener(endpoint, "--count", "3")
                client = self.kelcat(place, "--size", str(size), "--send-only", data=BYTES[:3 * size])
                self.assertMoved(BYTES[:3 * size], server, client)

    def test_datagram_that_is_cut_is_no_success(self):
        server, place = self.listener("unix-dgram-listen:" + self.path("d"))
        peer = self.peer(place)
        peer.setsockopt(socket.SOL_SOCKET, socket.SO_SNDBUF, 212992)  # doubled by the system
        peer.setblocking(False)  # poll would wait for more room than is needed
        server.stop()
        peer.send(BYTES[:200000])
        peer.send(BYTES[:400000])
        server.go_on()
        self.assertTells(server, 3, b"a datagram of 400000 bytes was cut: it is longer than the buffer\n")
        self.assertSame(server.output(), BYTES[:200000])

    def test_listener_belongs_to_its_first_sender(self):
        for endpoint in self.listeners():
            with self.subTest(endpoint):
                server, place = self.listener(endpoint, data=ANSWER)
                first, other = self.peer(place), self.peer(place)
                first.send(QUESTION)
                self.assertEqual([first.recv(2000), first.recv(2000)], [ANSWER, b""])
                for datagram in (b"not yours", b"", b"neither"):
                    other.send(datagram)
                first.send(ANSWER)
                first.send(b"")
                self.assertTells(server, 0, b"ignored 3 datagrams of other senders\n")
                self.assertEqual(server.output(), QUESTION + ANSWER)
                other.setblocking(False)
                with self.assertRaises((BlockingIOError, ConnectionRefusedError)):
                    other.recv(2000)

                server, place = self.listener(endpoint, "--count", "2")
                first.connect(server_address(place))
                other.connect(server_address(place))
                for peer in (first, other, first):
                    peer.send(QUESTION)
                self.assertTells(server, 0, b"ignored 1 datagram of another sender\n")
                self.assertEqual(server.output(), 2 * QUESTION)

    @each(b"", ANSWER)
    def test_sender_that_has_gone_keeps_its_datagrams(self, data):
        server, place = self.listener("udp-listen:127.0.0.1:0", data=data)
        server.stop()
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as peer:
            for datagram in (b"one ", b"two ", b"three", b""):
                peer.sendto(datagram, server_address(place))
        server.go_on()
        if data:
            self.assertTells(server, 3, rb"nothing listens on udp:127\.0\.0\.1:\d+\n")
        else:
            self.assertMoved(b"one two three", server)

    def test_sender_without_a_path_cannot_be_answered(self):
        server, place = self.listener("unix-dgram-listen:" + self.path("d"), data=ANSWER)
        self.assertDone(self.kelcat(place, data=QUESTION))
        self.assertTells(server, 3, b"the sender has no path and cannot be answered: give it --local PATH\n")
        self.assertEqual(server.output(), QUESTION)

    def test_idle_and_count_end_it(self):
        for endpoint in self.listeners():
            with self.subTest(endpoint):
                self.assertDone(self.listener(endpoint, "--idle", "0.3")[0])
                server, place = self.listener(endpoint, "--count", "2")
                peer = self.peer(place)
                server.stop()
                for data in (b"one ", b"two ", b"three "):
                    peer.send(data)
                server.go_on()
                self.assertMoved(b"one two ", server)

    def test_receiver_that_never_reads(self):
        server, place = self.plain_listener(socket.AF_INET, socket.SOCK_DGRAM)
        client = self.kelcat(place, "--idle", "0.3", data=BYTES)
        self.assertSentence(client, 3, rb"took no data for 0\.3 s")
        server.setblocking(False)
        received = b""
        with contextlib.suppress(BlockingIOError):
            while True:
                received += server.recv(2000)
        self.assertSame(received, BYTES[:len(received)])

    def test_nobody_listens(self):
        port = self.free_port(socket.SOCK_DGRAM)
        client = self.kelcat(f"udp:127.0.0.1:{port}", data=QUESTION)
        self.assertSentence(client, 3, b"nothing listens on udp:127.0.0.1:%d" % port)

    def test_sockets_of_others_that_come_and_go(self):
        others = self.start(sys.executable, "-c", COME_AND_GO)
        others.wait_output(b"busy")
        for _ in range(40):
            server, place = self.listener("udp-listen:127.0.0.1:0")
            client = self.kelcat(place, data=BYTES[:100000])
            self.assertDone(client, server)
            self.assertEqual(client.told, b"")
            self.assertSame(server.output(), BYTES[:100000])

    def test_port_in_use(self):
        _, place = self.listener("udp-listen:127.0.0.1:0")
        for listen in (f"udp-listen:{port_of(place)}", f"udp-listen:127.0.0.1:{port_of(place)}"):
            self.assertSentence(self.kelcat(listen), 1, b"Address already in use")

    def test_local_address(self):
        server, place = self.plain_listener(socket.AF_INET, socket.SOCK_DGRAM)
        port = self.free_port(socket.SOCK_DGRAM)
        for local in ("127.0.0.1", "0.0.0.0"):
            client = self.kelcat(place, "--local", f"{local}:{port}", "--send-only", data=QUESTION)
            self.assertDone(client)
            self.assertEqual(server.recvfrom(2000), (QUESTION, ("127.0.0.1", port)))
            self.assertEqual(server.recv(2000), b"")


def server_address(place):
    return ("127.0.0.1", port_of(place)) if place.startswith("udp") else place.partition(":")[2]


class OtherPrograms(Test):
    def test_socat(self):
        port = self.free_port(socket.SOCK_DGRAM)
        path = self.path("socat")
        # Standard input of the receiver is empty: in both directions the end mark is what ends it.
        for receive, place in ((f"UDP4-RECV:{port},bind=127.0.0.1", f"udp:127.0.0.1:{port}"),
                               (f"UDP6-RECV:{port},bind=[::1]", f"udp:[::1]:{port}"),
                               (f"UNIX-RECV:{path}", f"unix-dgram:{path}")):
            with self.subTest(receive):
                server = self.start("socat", "-d", "-d", "-u", receive + ",null-eof", "-")
                server.wait_told(b"starting data transfer")
                client = self.kelcat(place, "--send-only", data=BYTES[:1 << 20])  # many times its queue
                self.assertMoved(BYTES[:1 << 20], server, client)
        for listen, place in (("udp-listen:127.0.0.1:0", "UDP4"), ("udp-listen:[::1]:0", "UDP6"),
                              ("unix-dgram-listen:" + self.path("own"), "UNIX-SENDTO")):
            with self.subTest(place):
                server, reached = self.listener(listen)
                # socat does not wait for a receiver: what is sent fits into the receiver's queue
                client = self.start("socat", "-u", "-b1000", "-", f"{place}:{reached.partition(':')[2]},shut-null",
                                    data=BYTES[:50000])
                self.assertMoved(BYTES[:50000], server, client)

    def test_ncat(self):
        port = str(self.free_port(socket.SOCK_DGRAM))
        receiver = self.start("ncat", "-v", "-u", "-l", "127.0.0.1", port)
        receiver.wait_told(b"Listening on")
        client = self.kelcat(f"udp:127.0.0.1:{port}", "--send-only", data=BYTES[:1 << 20])
        receiver.wait_output(BYTES[:1 << 20])
        self.assertSame(receiver.outputs.data, BYTES[:1 << 20])
        self.assertDone(client)

        server, place = self.listener("udp-listen:127.0.0.1:0", "--count", "1")
        self.start("ncat", "-u", *place.split(":")[1:], data=QUESTION)
        self.assertMoved(QUESTION, server)
