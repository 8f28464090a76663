"""SCTP, with sockets of either style; and associations that lose the paths they run on, between two hosts."""

import contextlib
import os
import re
import signal
import socket
import struct
import subprocess
import threading

import hosts
from support import ANSWER, BYTES, KELCAT, QUESTION, Test, TwoHosts, each, held, receive_all, reset, wait_until
from transfer import Transfer

NEEDS = ("hosts", "sctp")
STYLES = ([], ["--one-to-many"])
SOL_SCTP, SCTP_STATUS, SHUTDOWN_SENT = 132, 14, 6


class OneToOneTransfer(Transfer, Test):
    """What holds for every transfer, over one-to-one sockets."""

    FLOOD = BYTES[:8 << 20]

    def endpoints(self):
        return ["sctp-listen:0"]


class OneToManyTransfer(OneToOneTransfer):
    """The same, over one-to-many sockets and IPv6."""

    def endpoints(self):
        return ["sctp-listen:[::]:0"]

    def kelcat(self, *arguments, **options):
        return super().kelcat(*arguments, "--one-to-many", **options)


class Sctp(Test):
    def plain_listener(self):
        return super().plain_listener(protocol=socket.IPPROTO_SCTP)

    def plain_client(self, place):
        return super().plain_client(place, protocol=socket.IPPROTO_SCTP)

    @each(*STYLES)
    def test_what_verbose_shows(self, style):
        server, place = self.listener("sctp-listen:127.0.0.1,127.0.0.2:0", *style)
        port = place.rpartition(":")[2].encode()
        client = self.kelcat("-v", f"sctp:127.0.0.1,127.0.0.2:{port.decode()}", *style, stdin=subprocess.PIPE)
        client.write(QUESTION)
        server.wait_told(b"path 127.0.0.1 active, primary\n")
        client.wait_told(b"path 127.0.0.2 active\n")
        client.process.stdin.close()
        self.assertDone(client, server)
        self.assertRegex(server.told, rb"\Akelcat: listening on sctp:127.0.0.1,127.0.0.2:%s\n" % port)
        self.assertRegex(client.told, rb"kelcat: connected to sctp:127.0.0.1,127.0.0.2:%s from sctp:127.0.0.1" % port)
        if not style:
            self.assertRegex(server.told, rb"kelcat: peer sctp:127.0.0.1(,[\d.]+)*:\d+\n")
        for process in (client, server):
            timed = re.findall(rb"kelcat: (\d+\.\d{3}) (.*)\n", process.told)
            times = [float(time) for time, _ in timed]
            self.assertEqual(times, sorted(times))
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

    @each(*STYLES)
    def test_local_addresses(self, style):
        server, place = self.listener("sctp-listen:127.0.0.1:0", "--recv-only")
        port = self.free_port(protocol=socket.IPPROTO_SCTP)
        client = self.kelcat("-v", place, "--send-only", "--local", f"127.0.0.2,127.0.0.3:{port}", *style,
                             stdin=subprocess.PIPE)
        server.wait_told(b"kelcat: peer sctp:127.0.0.2,127.0.0.3:%d\n" % port)
        client.end_input(QUESTION)
        self.assertDone(client, server)
        self.assertIn(f"kelcat: connected to {place} from sctp:127.0.0.2,127.0.0.3:{port}\n".encode(), client.told)
        server, place = self.listener("sctp-listen:[::1]:0", "--recv-only")
        self.assertDone(self.kelcat(place, "--send-only", "--local", "[::1]", *style, data=QUESTION), server)
        self.assertEqual(server.output(), QUESTION)
        server, place = self.plain_listener()
        for local in ("192.0.2.1", "127.0.0.1,192.0.2.1", "127.0.0.1:" + place.rpartition(":")[2]):
            client = self.kelcat(place, "--local", local, *style)
            self.assertSentence(client, 1, b"cannot use --local " + local.encode() + b": ")
        mine = self.plain_client(place)
        self.assertEqual(server.accept()[1], mine.getsockname())  # the peer has seen none of them

    @each(*STYLES)
    def test_endpoint_that_cannot_be_opened(self, style):
        port = self.free_port(protocol=socket.IPPROTO_SCTP)
        _, taken = self.plain_listener()
        for place, sentence in ((f"sctp:127.0.0.1:{port}", b"cannot connect to .*: Connection refused"),
                                (f"sctp:[::1]:{port}", b"cannot connect to .*: Connection refused"),
                                (taken.replace("sctp", "sctp-listen"), b"cannot listen on .*: Address already in use"),
                                ("sctp-listen:192.0.2.1:0", b"Cannot assign requested address")):
            self.assertSentence(self.kelcat(place, *style), 1, sentence)
        self.assertSentence(self.kelcat("sctp-listen:0", "--idle", "0.1", *style), 1, b"nobody connected to sctp")

    @each(*STYLES)
    def test_one_read_is_one_message(self, style):
        for size, data in ((100, BYTES[:250]), (65536, BYTES[:150000])):
            client, connection = self.meet(self.plain_listener(), "--send-only", "--size", str(size), *style, data=data)
            while data:
                message, _, flags, _ = connection.recvmsg(100000)
                self.assertSame(message, data[:size])
                self.assertTrue(flags & socket.MSG_EOR)
                data = data[size:]
            self.assertEqual(connection.recv(1), b"")
            self.assertDone(client)

    @each(*STYLES)
    def test_message_that_comes_in_parts(self, style):
        server, place = self.listener("sctp-listen:127.0.0.1:0", *style)
        client = self.plain_client(place)
        client.setsockopt(socket.SOL_SOCKET, 32, 1 << 20)  # SO_SNDBUFFORCE
        for start in (0, 300000):
            self.assertEqual(client.send(BYTES[start:start + 300000]), 300000)
        client.close()
        self.assertMoved(BYTES[:600000], server)

    @each(*STYLES)
    def test_streams(self, style):
        server, place = self.listener("sctp-listen:127.0.0.1:0", *style)
        client = self.kelcat("-v", place, "--streams", "20", *style, stdin=subprocess.PIPE)
        client.write(QUESTION)
        client.wait_told(b"notification SCTP_SENDER_DRY_EVENT\n")  # which comes once more behind the second message
        client.end_input(ANSWER)
        self.assertDone(client, server)
        self.assertEqual(sorted(server.output()), sorted(QUESTION + ANSWER))
        self.assertRegex(client.told, rb"association \d+ up, 20 streams out, 10 in\n")
        self.assertChanges(client.told)

    @each(*STYLES)
    def test_fewer_streams_than_asked_for(self, style):
        server, place = self.listener("sctp-listen:127.0.0.1:0", "--streams", "2", *style)
        client = self.kelcat("-v", place, "--send-only", "--streams", "5", "--size", "1", *style, data=bytes(100))
        self.assertDone(client, server)
        self.assertRegex(client.told, rb"association \d+ up, 2 streams out, 2 in\n")
        self.assertIn(b"SCTP_SHUTDOWN_COMP", client.told)  # also with --send-only it waits until the peer has all
        self.assertEqual(server.output(), bytes(100))

    def test_answer_that_is_taken_slowly(self):
        answer = BYTES[:1 << 20]  # more than lies between the two, and so not all of it arrives at the first attempt
        server, place = self.plain_listener()
        clients = []
        for style in STYLES:
            reader, writer = os.pipe()
            output = self.enterContext(open(reader, "rb"))
            client = self.kelcat(place, *style, stdin=subprocess.PIPE, stdout=writer)
            clients.append((client, output))
            os.close(writer)
            connection = self.accept(server)
            client.write(QUESTION)
            self.assertEqual(connection.recv(4096), QUESTION)
            self.start_answering(connection, answer)
            wait_until(lambda: held(output) > 1 << 15, "the pipe fills")
            client.end_input()  # and no sooner: an answer that is late on a busy machine would be none

        question = BYTES[:150000]
        stopped = self.kelcat(place, data=question)
        connection = self.accept(server)
        stopped.wait_blocked(len(question))  # all is handed over, but not all has room at the peer
        stopped.stop()
        received = b""
        while len(received) < len(question):
            received += connection.recv(1 << 16)
        self.start_answering(connection, answer)  # more than finds room at the client

        self.second_of_silence()
        for client, output in clients:
            self.assertSame(output.read(), answer)
            self.assertDone(client)
        stopped.go_on()
        self.assertDone(stopped)
        self.assertSame(received, question)
        self.assertSame(stopped.output(), answer)

    def start_answering(self, connection, data):
        answering = threading.Thread(target=self.send_all, args=(connection, data))
        answering.start()
        self.addCleanup(answering.join)

    def send_all(self, connection, data):
        """In messages; and then the client ends it."""
        with contextlib.suppress(OSError):
            for at in range(0, len(data), 8192):
                connection.send(data[at:at + 8192])
            connection.recv(1)

    def test_who_has_sent_nothing_leaves_the_end_to_the_peer(self):
        pairs = []
        for style in STYLES:
            server, place = self.listener("sctp-listen:127.0.0.1:0", *style)
            pairs.append((server, self.plain_client(place), ANSWER))
            listener, place = self.plain_listener()
            client = self.kelcat(place, *style, stdin=subprocess.PIPE)
            connection = self.accept(listener)
            connection.send(QUESTION)
            client.wait_output(QUESTION)
            client.end_input()
            pairs.append((client, connection, QUESTION + ANSWER))
        self.second_of_silence()
        for process, peer, output in pairs:
            peer.send(ANSWER)
            peer.close()
            self.assertMoved(output, process)

    @each(*STYLES)
    def test_send_only_ends_it_whatever_the_peer_says(self, style):
        client, connection = self.meet(self.plain_listener(), "--send-only", *style, data=QUESTION)
        self.assertEqual(connection.recv(4096), QUESTION)
        connection.setblocking(False)  # poll never calls a socket writable whose association has gone

        def gone():
            try:
                connection.send(ANSWER)
            except BlockingIOError:
                pass
            except OSError:
                return True
            return False

        wait_until(gone, "the client ends the association")
        connection.close()
        self.assertMoved(b"", client)

    @each(*STYLES)
    def test_peer_that_ends_first(self, style):
        server, place = self.plain_listener()
        client = self.kelcat(place, *style, stdin=subprocess.PIPE)
        connection = self.accept(server)
        connection.send(ANSWER)
        connection.close()
        self.assertMoved(ANSWER, client)
        client = self.kelcat(place, *style, data=BYTES)
        connection = self.accept(server)
        connection.send(ANSWER)
        wait_until(self.waits_for_room, "the buffers fill up")
        client.stop()  # so that it can send again when it hears of the end
        for _ in range(4):
            connection.recv(8192)
        connection.shutdown(socket.SHUT_WR)
        wait_until(lambda: self.state(connection) == SHUTDOWN_SENT, "the end reaches kelcat")
        client.go_on()
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

    def waits_for_room(self):
        """Whether a sender's queue holds more than its buffer has room for."""
        with open("/proc/net/sctp/assocs", encoding="ascii") as file:
            return any(int(line.split()[7]) > 212992 for line in file.readlines()[1:])

    def state(self, connection):
        """As struct sctp_status has it, behind the association's number."""
        return struct.unpack("=Ii", connection.getsockopt(SOL_SCTP, SCTP_STATUS, 176)[:8])[1]

    def swallow(self, connection):
        with contextlib.suppress(OSError):
            receive_all(connection)

    @each(*STYLES)
    def test_abort_breaks_the_transfer_and_keeps_what_arrived(self, style):
        server, place = self.plain_listener()
        client = self.kelcat(place, *style, stdin=subprocess.PIPE)
        connection = self.accept(server)
        connection.send(ANSWER)
        client.wait_output(ANSWER)
        reset(connection)
        self.assertSentence(client, 3, rb"broke: Connection reset by peer")
        self.assertEqual(client.output(), ANSWER)

        client = self.kelcat("-v", place, "--send-only", *style, data=BYTES[:200000])
        connection = self.accept(server)
        connection.recv(1)
        client.wait_told(b"SCTP_COMM_UP")
        reset(connection)
        self.assertDone(client, status=3)
        self.assertIn(b"SCTP_ASSOC_CHANGE SCTP_COMM_LOST\n", client.told)
        self.assertChanges(client.told)

    @each(*STYLES)
    def test_receiver_that_never_reads(self, style):
        client, connection = self.meet(self.plain_listener(), "-v", "--idle", "0.3", *style, data=BYTES)
        self.assertDone(client, status=3)
        self.assertRegex(client.told, rb"\nkelcat: sctp:\S+ took no data for 0.3 s\n")
        self.assertNotIn(b"kel_sctp_send", client.told)  # the module reports each message that is refused
        connection.close()

    @each(*STYLES)
    def test_one_association_at_a_time(self, style):
        server, place = self.listener("sctp-listen:127.0.0.1:0", *style)
        first = self.plain_client(place)
        server.wait_told(rb"association \d+ up")
        server.stop()
        self.assertSentence(self.kelcat(place), 1, b"Connection refused")
        server.go_on()
        first.send(QUESTION)
        first.close()
        self.assertMoved(QUESTION, server)

    def test_two_that_come_at_once(self):
        server, place = self.listener("sctp-listen:127.0.0.1:0", "--one-to-many", data=ANSWER)
        server.stop()
        first, second = self.plain_client(place), self.plain_client(place)
        first.send(QUESTION)
        second.send(ANSWER)
        server.go_on()
        with self.assertRaises(ConnectionResetError):
            second.recv(1)
        self.assertEqual(first.recv(4096), ANSWER)
        first.close()
        self.assertMoved(QUESTION, server)

    # A foreign receiver's buffer is small, and what it drops comes again after a second: it is sent what fits.
    @each(("ncat", "--one-to-many", False), ("ncat", "--one-to-many", True), ("socat", "-v", False),
          ("socat", "-v", True))
    def test_foreign_programs(self, case):
        program, style, sends = case
        data = BYTES[:20000]

        def foreign(listens, port):
            """One that only sends or only receives."""
            if program == "ncat":
                way = ["--send-only" if sends else "--recv-only", *(["-l"] if listens else [])]
                return ["ncat", "--sctp", "-v", *way, "127.0.0.1", str(port)]
            address = f"SCTP4-LISTEN:{port},bind=127.0.0.1" if listens else f"SCTP4-CONNECT:127.0.0.1:{port}"
            return ["socat", "-d", "-d", "-u", *(["-", address] if sends else [address, "-"])]

        port = self.free_port(protocol=socket.IPPROTO_SCTP)
        # A listening ncat aborts at the end of its input, also when it does not send it.
        other = self.start(*foreign(True, port), **({"data": data} if sends else {"stdin": subprocess.PIPE}))
        other.wait_told(b"[lL]istening on")
        own = self.kelcat(f"sctp:127.0.0.1:{port}", style, *(["--recv-only"] if sends else []), data=data)
        self.assertDone(own)
        if not sends:
            other.wait_output(data)
            other.end_input()
        self.assertDone(other)
        self.assertSame((own if sends else other).output(), data)

        own, place = self.listener("sctp-listen:127.0.0.1:0", style, data=None if sends else data)
        other = self.start(*foreign(False, place.rpartition(":")[2]), data=data if sends else None)
        self.assertDone(own, other)
        self.assertSame((own if sends else other).output(), data)


class SctpPaths(TwoHosts):
    """Two paths between two hosts; 10.1.0.2, for example, is the second host's address on the first one."""

    PATHS = hosts.PATHS
    IPV6 = True
    SYSCTLS = hosts.SYSCTLS

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
            subprocess.run(["tc", "-n", name, "-batch", "-"], check=True, text=True, input="".join(
                f"qdisc {command} dev {interface} {' '.join(words)}\n" for interface in interfaces))

    @contextlib.contextmanager
    def unplugged(self, interface):
        hosts.run("ip", "-n", self.names[1], "link", "set", interface, "down")
        try:
            yield
        finally:
            hosts.run("ip", "-n", self.names[1], "link", "set", interface, "up")

    def test_path_that_is_cut_and_comes_back(self):
        # By its cable with IPv4 alone, and last: an interface that is down forgets its IPv6 addresses.
        for family, options, cut in ((6, ["--one-to-many"], self.loss), (4, [], self.unplugged)):
            with self.subTest(family):
                server, client = self.transfer(family, *options, stdin=subprocess.PIPE)
                first, second = (re.escape(text.strip("[]")).encode() for text in self.addresses(family, 2))
                client.write(BYTES[:1 << 20])
                server.wait_output(BYTES[:1 << 20])
                client.wait_told(rb" path " + first + rb" active[^\n]*\n.* path " + second + rb" active")
                side = "path1"
                if re.search(rb" path " + second + rb" active, primary\n", client.told):
                    first, second, side = second, first, "path2"  # the kernel's choice: a lost packet may change it

                with cut(side):
                    client.write(BYTES[1 << 20:2 << 20])
                    server.wait_output(BYTES[:2 << 20])
                    client.wait_told(rb" path " + first + rb" potentially-failed, primary\n")
                    client.wait_told(rb" notification SCTP_PEER_ADDR_CHANGE " + first + rb" SCTP_ADDR_UNREACHABLE\n")
                    client.wait_told(rb" path " + first + rb" inactive, primary\n")
                    self.assertNotIn(second + b" SCTP_ADDR_UNREACHABLE", client.told)

                client.wait_told(rb"(?s) inactive, primary\n.* path " + first + rb" active, primary\n")
                client.end_input(BYTES[2 << 20:3 << 20])
                self.assertMoved(BYTES[:3 << 20], server, client)

    def test_peer_that_falls_silent_breaks_the_transfer(self):
        endless = 10000  # attempts: nobody gives up, however long the loss takes to begin
        for options, idle, attempts, sentence in (
                (["--one-to-many"], ["--idle", "2"], endless, b" took no data for 2 s\n"),
                ([], [], 2, b" broke: Connection timed out\n")):
            with self.subTest(options):
                for name, limit in zip(self.names, (attempts, endless)):
                    self.assertDone(self.inside(name, "sysctl", "-qw", f"net.sctp.association_max_retrans={limit}"))
                server, client = self.transfer(4, *options, client_options=idle, stdin=subprocess.PIPE)
                client.wait_told(b"SCTP_COMM_UP")
                client.stop()  # so that its silence begins with the question
                with self.loss("path1", "path2"):
                    client.write(QUESTION)
                    client.go_on()
                    self.assertDone(client, status=3)
                    self.assertIn(sentence, client.told)
                server.end()

    def test_connecting_to_a_host_that_does_not_answer(self):
        with self.loss("path1"):
            for endpoint, *style in (["tcp:10.1.0.2:9"], ["sctp:10.1.0.2:9"], ["sctp:10.1.0.2:9", "--one-to-many"]):
                client = self.inside(self.names[0], KELCAT, endpoint, "--timeout", "0.5", *style)
                self.assertSentence(client, 1, b"cannot connect to %s: no answer within 0.5 s\n" % endpoint.encode())

    def test_streams_and_identifier_on_the_wire(self):
        capture = self.inside(self.names[1], "tcpdump", "-n", "-i", "path1", "-l", "--immediate-mode", "sctp")
        capture.wait_told(b"listening on")
        for options in ([], ["--one-to-many"]):
            server, client = self.transfer(4, "--streams", "3", "--ppid", "0x11223344", "--size", "100", *options,
                                           data=BYTES[:700])
            self.assertDone(client, server)
        self.assertTrue(capture.outputs.wait(lambda seen: seen.count(b"[SHUTDOWN COMPLETE]") == 2),
                        capture.outputs.data)
        capture.process.send_signal(signal.SIGINT)
        self.assertDone(capture)
        self.assertEqual(re.findall(rb"\[INIT\] .*\[OS: (\d+)\] \[MIS: (\d+)\]", capture.output()), 2 * [(b"3", b"3")])
        messages = re.findall(rb"\[SID: (\d+)\] \[SSEQ \d+\] \[PPID (\S+)\]", capture.output())
        self.assertEqual([int(stream) for stream, _ in messages], 2 * [0, 1, 2, 0, 1, 2, 0])
        self.assertEqual({identifier for _, identifier in messages}, {b"0x11223344"})
