"""What holds for a transfer over any kind of endpoint with two ends; a class for each kind says which endpoints."""

import functools
import os
import signal
import subprocess

from support import BYTES, QUESTION, held, wait_until


def each_endpoint(test):
    @functools.wraps(test)
    def run(self):
        for endpoint in self.endpoints():
            with self.subTest(endpoint):
                test(self, endpoint)
    return run


class Transfer:
    """Goes in front of Test among the bases."""

    BULK = BYTES[:2 << 20]
    FLOOD = BYTES  # more than lies between two ends
    CONNECTED = True  # a listener notices when its client has gone

    def endpoints(self):
        raise NotImplementedError

    @each_endpoint
    def test_all_arrives_in_its_order(self, endpoint):
        server, place = self.listener(endpoint)
        client = self.kelcat(place, data=self.BULK)
        self.assertMoved(self.BULK, server, client)
        self.assertEqual((client.output(), client.told), (b"", b""))
        self.assertIn(b"received %d bytes" % len(self.BULK), server.told)

    @each_endpoint
    def test_both_ways_at_once(self, endpoint):
        server, place = self.listener(endpoint, data=BYTES[:1 << 20])
        local = ["--local", self.path("own")] if place.startswith("unix-dgram") else []
        client = self.kelcat(place, *local, data=BYTES[1 << 20:3 << 20])
        self.assertMoved(BYTES[1 << 20:3 << 20], server, client)
        self.assertSame(client.output(), BYTES[:1 << 20])
        self.assertEqual(os.listdir(self.directory), [])

    @each_endpoint
    def test_empty_input(self, endpoint):
        server, place = self.listener(endpoint)
        client = self.kelcat(place)
        self.assertDone(client, server)
        self.assertEqual(server.output() + client.output(), b"")

    @each_endpoint
    def test_send_only_and_recv_only(self, endpoint):
        server, place = self.listener(endpoint, "--recv-only", data=b"never sent")
        client = self.kelcat(place, "--send-only", data=QUESTION)
        self.assertDone(client, server)
        self.assertEqual((server.output(), client.output()), (QUESTION, b""))

    @each_endpoint
    def test_receiver_that_stops_for_a_while_loses_nothing(self, endpoint):
        server, place = self.listener(endpoint)
        server.stop()
        client = self.kelcat("-v", place, data=self.FLOOD)
        client.wait_blocked()
        server.go_on()
        self.assertMoved(self.FLOOD, server, client)
        for line in (client.told + server.told).splitlines():
            self.assertRegex(line, rb"\Akelcat: ")  # reports of the module are no part of a good transfer

    @each_endpoint
    def test_reader_of_the_output_that_stops_for_a_while_loses_nothing(self, endpoint):
        reader, writer = os.pipe()
        with open(reader, "rb") as output:
            server, place = self.listener(endpoint, stdout=writer)
            os.close(writer)
            client = self.kelcat(place, data=self.FLOOD)
            wait_until(lambda: held(output) > 1 << 15, "the pipe fills")
            client.wait_blocked()
            self.assertSame(output.read(), self.FLOOD)
        self.assertDone(client, server)

    @each_endpoint
    def test_peer_killed_in_the_middle_breaks_the_sender(self, endpoint):
        server, place = self.listener(endpoint)
        with open("/dev/zero", "rb") as endless:
            client = self.kelcat(place, stdin=endless)
        server.wait_output(bytes(1000))
        server.process.kill()
        self.assertSentence(client, 3, rb"(broke|listens|cannot send|ended by the peer)")
        for name in os.listdir(self.directory):
            os.unlink(self.path(name))

    @each_endpoint
    def test_sender_killed_in_the_middle_keeps_what_arrived(self, endpoint):
        server, place = self.listener(endpoint)
        client = self.kelcat(place, stdin=subprocess.PIPE)
        client.write(QUESTION)
        server.wait_output(QUESTION)
        client.process.kill()
        if not self.CONNECTED:
            server.process.send_signal(signal.SIGTERM)
        self.assertDone(server, status=0 if self.CONNECTED else 143)
        self.assertEqual(server.output(), QUESTION)
        self.assertEqual(os.listdir(self.directory), [])

    @each_endpoint
    def test_interrupt_while_waiting(self, endpoint):
        for number in (signal.SIGHUP, signal.SIGINT, signal.SIGTERM):
            server, _ = self.listener(endpoint)
            server.process.send_signal(number)
            self.assertDone(server, status=128 + number)
            self.assertEqual(os.listdir(self.directory), [])

    @each_endpoint
    def test_interrupt_in_the_middle_keeps_what_was_received(self, endpoint):
        server, place = self.listener(endpoint)
        client = self.kelcat(place, stdin=subprocess.PIPE)
        client.write(QUESTION)
        server.wait_output(QUESTION)
        server.process.send_signal(signal.SIGTERM)
        self.assertDone(server, status=143)
        self.assertEqual(server.output(), QUESTION)
        self.assertEqual(os.listdir(self.directory), [])
        client.end()

    def test_standard_output_that_fails(self):
        nobody_reads, pipe = os.pipe()
        os.close(nobody_reads)
        with open("/dev/full", "wb") as full:
            for output, sentence in (({"stdout": full}, b"No space left on device"),
                                     ({"stdout": pipe}, b"Broken pipe"),
                                     ({"preexec_fn": lambda: os.close(1)}, b"Bad file descriptor")):
                with self.subTest(sentence):
                    server, place = self.listener(self.endpoints()[0], **output)
                    self.kelcat(place, "--send-only", data=QUESTION).finish()
                    self.assertTells(server, 3, b"cannot write to standard output: " + sentence + b"\n")
        os.close(pipe)


class HalfClosing:
    """Where either end says for itself that it has sent all."""

    def test_producer_that_pauses_after_the_peer_has_ended(self):
        pairs = []
        for endpoint in self.endpoints():
            server, place = self.listener(endpoint)
            local = ["--local", self.path("own")] if place.startswith("unix-dgram") else []
            client = self.kelcat(place, *local, stdin=subprocess.PIPE)
            client.write(BYTES[:50000])
            server.wait_output(BYTES[:50000])  # which has nothing to send, and so has ended before
            pairs.append((server, client))
        self.second_of_silence()
        for server, client in pairs:
            client.end_input(BYTES[50000:600000])
            self.assertMoved(BYTES[:600000], server, client)
