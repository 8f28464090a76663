"""The packet endpoint, between two hosts; and what a kernel without SCTP says, while this one has loaded none."""

import re
import struct

import hosts
from support import KELCAT, Test, TwoHosts

NEEDS = ("hosts",)


class Packet(TwoHosts):
    FRAME = bytes.fromhex("ffffffffffff 020000000001 88b5") + bytes(range(84))

    def receiver(self, *arguments, host=0):
        process = self.inside(self.names[host], KELCAT, "-v", *arguments)
        process.wait_told(rb"listening on " + re.escape(arguments[0].replace("34997", "0x88b5")).encode() + b"\n")
        return process

    def sender(self, *arguments, **options):
        return self.inside(self.names[1], KELCAT, "packet:path1", "--send-only", *arguments, **options)

    def test_frames_travel_as_text(self):
        text = (b"# a comment\n0000  ff ff ff ff ff ff 02 00 00 00 00 01 88 b5 00 01\n0010  02 03\n\n"
                b"0000 ff ff ff ff ff ff 02 00 00 00 00 01 88 b5 7f\n")
        server = self.receiver("packet:path1,0x88b5", "--count", "2")
        self.assertDone(self.sender(data=text), server)
        self.assertEqual(server.output(),
                         b"# 1: 18 bytes in, protocol 0x88b5\n0000  ff ff ff ff ff ff 02 00 00 00 00 01 88 b5 00 01\n"
                         b"0010  02 03\n# 2: 15 bytes in, protocol 0x88b5\n"
                         b"0000  ff ff ff ff ff ff 02 00 00 00 00 01 88 b5 7f\n")
        again = self.receiver("packet:path1,34997", "--count", "2")
        self.assertDone(self.sender(data=server.output()), again)
        self.assertEqual(again.output(), server.output())

    def frames(self, count):
        frames = [self.FRAME + struct.pack(">I", number) for number in range(count)]
        return "".join(f"# {number}: {len(frame)} bytes in, protocol 0x88b5\n" + "".join(
            f"{at:04x}  {frame[at:at + 16].hex(' ')}\n" for at in range(0, len(frame), 16))
                       for number, frame in enumerate(frames, start=1)).encode()

    def test_many_frames_lose_none(self):
        server = self.receiver("packet:path1,0x88b5", "--count", "1000")
        self.assertDone(self.sender("--rate", "1m", data=self.frames(1000)), server)
        self.assertSame(server.output(), self.frames(1000))

    def test_frame_costs_three_system_calls(self):
        # clock_gettime is a call in a user-mode kernel alone
        calls = self.path("calls")
        self.assertDone(self.inside(self.names[1], "strace", "-f", "-o", calls, "-e", "trace=!clock_gettime", KELCAT,
                                    "packet:path1", "--send-only", "--rate", "1000m", data=self.frames(1000)))
        with open(calls, encoding="ascii") as file:
            made = [re.match(r"\d+ +(\w+)\(", line) for line in file]
        names = [call[1] for call in made if call]
        self.assertEqual(names.count("sendto"), 1000)
        self.assertLessEqual(len(names), 3 * 1000)

    def test_raw(self):
        server = self.receiver("packet:path1,0x88b5", "--count", "1", "--raw")
        self.assertDone(self.sender("--raw", data=self.FRAME), server)
        self.assertEqual(server.output(), self.FRAME)

    def test_own_frames_are_shown_on_demand(self):
        with_v = self.receiver("packet:path1", "--count", "1", host=1)
        without = self.inside(self.names[1], KELCAT, "packet:path1", "--count", "1")
        watch = self.receiver("packet:path1", "--count", "2", host=1)
        self.wait_sockets(self.names[1], 3)
        self.assertDone(self.sender("--raw", data=self.FRAME), with_v)
        self.assertTrue(with_v.output().startswith(b"# 1: 98 bytes out, protocol 0x88b5\n"))
        # What comes in is the later event: by then the own frame has not been shown.
        self.assertDone(self.inside(self.names[0], KELCAT, "packet:path1", "--send-only", "--raw", data=self.FRAME),
                        without, watch)
        self.assertRegex(without.output(), rb"\A# 1: 98 bytes in, protocol 0x88b5\n")
        self.assertEqual(re.findall(rb"# \d: 98 bytes (\w+),", watch.output()), [b"out", b"in"])

    def wait_sockets(self, name, count):
        while True:
            look = self.inside(name, "cat", "/proc/net/packet")
            self.assertDone(look)
            if len(look.output().splitlines()) == 1 + count:
                return

    def test_both_ends_against_socat(self):
        server = self.receiver("packet:path1,0x88b5", "--count", "1", "--raw")
        self.assertDone(self.inside(self.names[1], "socat", "-u", "-", "INTERFACE:path1", data=self.FRAME), server)
        self.assertEqual(server.output(), self.FRAME)

        server = self.inside(self.names[0], "socat", "-d", "-d", "-u", "INTERFACE:path1", "-")
        server.wait_told(b"starting data transfer")
        self.assertDone(self.sender("--raw", data=self.FRAME))
        server.wait_output(self.FRAME)
        self.assertEqual(server.outputs.data, self.FRAME)

    def test_what_is_no_frame(self):
        first = b"0000  ff ff ff ff ff ff 02 00 00 00 00 01 88 b5 00 01\n"
        for text, sentence in ((b"hello\n", b"line 1 of standard input does not begin with an offset"),
                               (b"# x\n0000 f\n", b"line 2 of standard input holds something else"),
                               (b"0000 fff\n", b"line 1 of standard input holds something else"),
                               (b"0000 ff\0\n", b"line 1 of standard input holds"),
                               (b"#\0\n", b"line 1 of standard input holds a NUL"),
                               (first + b"0020 00\n", b"line 2 of standard input has an offset that is neither"),
                               (b"0000 ff ff\n", b"cannot send 2 bytes to packet:path1: Invalid argument"),
                               (b"".join(b"%04x  %s\n" % (at, b"00 " * 16) for at in range(0, 2000, 16)),
                                b"cannot send 2000 bytes to packet:path1: Message too long")):
            with self.subTest(text[:40]):
                self.assertSentence(self.sender(data=text), 3, sentence)
        self.assertSentence(self.sender("--raw", data=bytes(70000)), 3, b"longer than any frame")

    def test_idle(self):
        self.assertDone(self.receiver("packet:path1", "--idle", "0.1"))

    def test_interface_that_goes_away(self):
        server = self.receiver("packet:path1")
        hosts.run("ip", "-n", self.names[0], "link", "del", "path1")
        self.assertTells(server, 3, b"the transfer with packet:path1 broke: Network is down\n")

    def test_without_the_privilege(self):
        process = self.inside(self.names[0], "setpriv", "--reuid=65534", "--clear-groups", "--bounding-set=-all",
                              KELCAT, "packet:path1")
        self.assertSentence(process, 1, rb"it needs the raw-socket privilege \(CAP_NET_RAW\)")


class WithoutSctp(Test):
    LOADER = "/proc/sys/kernel/modprobe"

    def setUp(self):
        super().setUp()
        with open("/proc/net/protocols", encoding="ascii") as file:
            self.assertNotIn("SCTP", file.read(), "the kernel has SCTP already: this runs in a guest of its own")
        with open(self.LOADER, encoding="ascii") as file:
            loader = file.read().strip()
        self.set_loader("/bin/false")
        self.addCleanup(self.set_loader, loader)

    def set_loader(self, path):
        with open(self.LOADER, "w", encoding="ascii") as file:
            file.write(path)

    def test_kernel_that_has_none(self):
        for endpoint in ("sctp-listen:0", "sctp:127.0.0.1:9", "sctp:[::1]:9"):
            for style in ([], ["--one-to-many"]):
                with self.subTest(endpoint, style=style):
                    process = self.kelcat(endpoint, *style)
                    self.assertSentence(process, 1, b"this kernel has no SCTP; .*`modprobe sctp`")
