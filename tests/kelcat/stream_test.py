"""TCP and local streams."""

import os
import pty
import socket
import subprocess

from support import ANSWER, BYTES, PATIENCE, QUESTION, Test, each, port_of, receive_all, reset
from transfer import HalfClosing, Transfer

NEEDS = ("ipv6",)


class StreamTransfer(Transfer, HalfClosing, Test):
    def endpoints(self):
        return ["tcp-listen:127.0.0.1:0", "tcp-listen:0", "tcp-listen:[::]:0", "unix-listen:" + self.path("stream")]


class Ends(Test):
    """When a transfer is over, and what has been delivered then."""

    @each(socket.AF_INET, socket.AF_UNIX)
    def test_either_may_end_first(self, family):
        server, place = self.plain_listener(family)
        client = self.kelcat(place, data=QUESTION)
        connection = self.accept(server)
        self.assertEqual(receive_all(connection), QUESTION)
        connection.sendall(BYTES[:1 << 20])
        connection.close()
        self.assertMoved(BYTES[:1 << 20], client)
        client = self.kelcat(place, data=BYTES)
        connection = self.accept(server)
        connection.sendall(ANSWER)
        connection.shutdown(socket.SHUT_WR)
        self.assertSame(receive_all(connection), BYTES)
        self.assertMoved(ANSWER, client)

    def test_input_of_a_terminal_ends_with_the_peer(self):
        server, place = self.plain_listener()
        master, slave = pty.openpty()
        self.addCleanup(os.close, master)
        client = self.kelcat(place, stdin=slave)
        os.close(slave)
        os.write(master, b"typed\n")
        connection = self.accept(server)
        self.assertEqual(connection.recv(100), b"typed\n")
        connection.sendall(ANSWER)
        connection.shutdown(socket.SHUT_WR)
        self.assertEqual(receive_all(connection), b"")
        self.assertMoved(ANSWER, client)

    @each(socket.AF_INET, socket.AF_UNIX)
    def test_send_only_is_over_at_the_end_of_the_input(self, family):
        client, connection = self.meet(self.plain_listener(family), "--send-only", stdin=subprocess.PIPE)
        connection.sendall(ANSWER)
        client.end_input(QUESTION)
        self.assertEqual(receive_all(connection), QUESTION)
        self.assertMoved(b"", client)

    def test_reset_breaks_the_transfer_and_keeps_what_arrived(self):
        client, connection = self.meet(self.plain_listener(), stdin=subprocess.PIPE)
        connection.sendall(ANSWER)
        client.wait_output(ANSWER)
        reset(connection)
        self.assertSentence(client, 3, rb"broke: Connection reset by peer")
        self.assertEqual(client.output(), ANSWER)

    def test_reset_after_the_last_byte_was_sent_is_noticed(self):
        server, place = self.plain_listener()
        server.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
        client = self.kelcat(place, "--send-only", data=BYTES[:200000])
        connection = self.accept(server)
        connection.recv(1)
        connection.close()  # with bytes unread: the system resets
        self.assertSentence(client, 3, rb"broke: ")

    @each(socket.AF_INET, socket.AF_UNIX)
    def test_idle_before_the_peers_end_is_no_success(self, family):
        server, place = self.plain_listener(family)
        for source in ({"stdin": subprocess.PIPE}, {"data": b""}):
            client = self.kelcat(place, "--idle", "0.2", **source)
            connection = self.accept(server)
            connection.sendall(ANSWER)
            self.assertSentence(client, 3, rb"was silent for 0.2 s: --idle ended it before the peer did")
            self.assertEqual(client.output(), ANSWER)
        client = self.kelcat(place, "--idle", "0.2", data=BYTES)
        connection = self.accept(server)  # and never reads
        self.assertSentence(client, 3, rb"took no data for 0.2 s")
        server.close()
        if family == socket.AF_UNIX:
            os.unlink(self.path("plain"))
        lonely = self.kelcat("tcp-listen:127.0.0.1:0", "--idle", "0.1")
        self.assertSentence(lonely, 1, b"nobody connected to tcp-listen:127.0.0.1:0 within 0.1 s")


class Connecting(Test):
    def test_endpoint_that_cannot_be_opened(self):
        port = self.free_port()
        _, taken = self.plain_listener()
        for arguments, sentence in (
                ([f"tcp:127.0.0.1:{port}"], b"cannot connect to tcp:127.0.0.1:%d: Connection refused\n" % port),
                ([f"tcp-listen:127.0.0.1:{port_of(taken)}"], b"cannot listen on .*: Address already in use\n"),
                (["tcp-listen:192.0.2.1:9"], b"Cannot assign requested address\n"),
                (["udp:127.0.0.1:9", "--local", "192.0.2.1:9"], b"cannot use --local 192.0.2.1:9: Cannot assign"),
                (["unix:" + self.path("none")], b"cannot connect to unix:.*: No such file or directory\n"),
                (["unix-dgram:" + self.path("none")], b"No such file or directory\n"),
                (["unix-listen:" + self.path("none/x")], b"No such file or directory\n"),
                (["packet:nosuch0"], b"there is no such interface")):
            with self.subTest(arguments):
                process = self.kelcat(*arguments)
                self.assertSentence(process, 1, sentence)
                self.assertEqual(process.output(), b"")

    def test_local_address(self):
        server, place = self.plain_listener()
        port = self.free_port()
        client = self.kelcat("-v", place, "--local", f"127.0.0.1:{port}", "--recv-only")
        connection, address = server.accept()
        connection.close()
        self.assertEqual(address, ("127.0.0.1", port))
        self.assertDone(client)
        self.assertIn(f"kelcat: connected to {place} from tcp:127.0.0.1:{port}\n".encode(), client.told)

    def test_local_address_is_checked_before_the_peer_sees_a_connection(self):
        server, place = self.plain_listener()
        taken = f"127.0.0.1:{port_of(place)}"
        for local, reason in (("192.0.2.1:9999", b"Cannot assign requested address"),
                              (taken, b"Address already in use")):
            self.assertSentence(self.kelcat(place, "--local", local), 1,
                                b"cannot use --local %s: %s\n" % (local.encode(), reason))
        mine = self.plain_client(place)
        self.assertEqual(server.accept()[1], mine.getsockname())  # nobody stood in front of it

    @each(socket.AF_INET, socket.AF_UNIX)
    def test_peer_that_does_not_answer(self, family):
        server, place = self.plain_listener(family)
        server.listen(0)
        self.plain(family, socket.SOCK_STREAM).connect(server.getsockname())  # takes the only place
        self.assertSentence(self.kelcat(place, "--timeout", "0.2"), 1,
                            b"cannot connect to .*: no answer within 0.2 s\n")


class Pipes(Test):
    @each(socket.AF_INET, socket.AF_UNIX)
    def test_output_is_written_in_whole_buffers(self, family):
        def writes():
            with open(f"/proc/{client.pid}/io", encoding="ascii") as file:
                return int(dict(line.split(": ") for line in file)["syscw"])

        client, connection = self.meet(self.plain_listener(family))
        connection.sendall(b"ready")
        client.wait_output(b"ready")
        client.stop()  # so that all of it lies there at once
        sent = connection.send(BYTES[:1 << 20], socket.MSG_DONTWAIT)
        self.assertGreaterEqual(sent, 100000)
        before = writes()
        client.go_on()
        client.wait_output(b"ready" + BYTES[:sent])
        self.assertLessEqual(writes() - before, 4 + sent // 16384)
        connection.close()
        self.assertMoved(b"ready" + BYTES[:sent], client)


class OtherPrograms(Test):
    def expect_exchange(self, server, client):
        """The server sends an answer, the client more; each ends when it has all."""
        self.assertMoved(BYTES[:1 << 20], server, client)
        self.assertEqual(client.output(), ANSWER)

    def test_as_servers(self):
        port, another = self.free_port(), self.free_port()
        socat = ["socat", "-d", "-d", "-t", str(PATIENCE), "-"]
        for command, place in (([*socat, f"TCP4-LISTEN:{port},bind=127.0.0.1"], f"tcp:127.0.0.1:{port}"),
                               ([*socat, f"TCP6-LISTEN:{port},bind=[::1]"], f"tcp:[::1]:{port}"),
                               ([*socat, f"UNIX-LISTEN:{self.path('socat')}"], "unix:" + self.path("socat")),
                               (["ncat", "-v", "-l", "127.0.0.1", str(another)], f"tcp:127.0.0.1:{another}"),
                               (["ncat", "-v", "-l", "-U", self.path("ncat")], "unix:" + self.path("ncat"))):
            with self.subTest(command):
                server = self.start(*command, data=ANSWER)
                server.wait_told(b"[lL]istening on")
                self.expect_exchange(server, self.kelcat(place, data=BYTES[:1 << 20]))

    def test_as_clients(self):
        socat = ["socat", "-t", str(PATIENCE), "-"]
        for listen, command in (("tcp-listen:127.0.0.1:0", lambda place: [*socat, "TCP4:" + place]),
                                ("tcp-listen:[::1]:0", lambda place: [*socat, "TCP6:" + place]),
                                ("unix-listen:" + self.path("socat"), lambda place: [*socat, "UNIX:" + place]),
                                ("tcp-listen:127.0.0.1:0", lambda place: ["ncat", *place.split(":")]),
                                ("tcp-listen:[::1]:0", lambda place: ["ncat", "::1", place.rpartition(":")[2]]),
                                ("unix-listen:" + self.path("ncat"), lambda place: ["ncat", "-U", place])):
            with self.subTest(listen):
                server, place = self.listener(listen, data=ANSWER)
                self.expect_exchange(server, self.start(*command(place.partition(":")[2]), data=BYTES[:1 << 20]))
