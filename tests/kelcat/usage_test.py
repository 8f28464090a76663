"""The command line, what is said on standard error, and the files that local sockets leave."""

import os
import pty
import re
import shlex
import socket
import string

from support import QUESTION, Followed, Test, port_of

OPTIONS = {"--local", "--send-only", "--recv-only", "--timeout", "--idle", "--size", "--rate", "--count", "--raw",
           "--one-to-many", "--streams", "--ppid", "--verbose", "--quiet", "--help", "--version"}

NEEDS = ("ipv6",)


class Usage(Test):
    def test_bad_usage(self):
        for sentence, *lines in (
                ("endpoint is missing", ""), ('"--frob" is no option', "--frob tcp:127.0.0.1:1"),
                ('"stray" is one argument too many', "tcp:127.0.0.1:1 stray"),
                ("is no endpoint", "dccp:127.0.0.1:1", "9000"),
                ('"70000" is no port: give a number from 1 to 65535', "tcp:127.0.0.1:70000"),
                ("is no port", "tcp:127.0.0.1:0", "tcp:127.0.0.1:http", "tcp:127.0.0.1:", "'tcp:127.0.0.1: 1'",
                 "tcp-listen:-1", "tcp:127.0.0.1:9 --local 127.0.0.1:0", "sctp:127.0.0.1:0",
                 "sctp:127.0.0.1:9 --local 127.0.0.1,127.0.0.2:0"),
                ("give a number from 0 to 65535", "tcp-listen:70000"),
                ('"9000" is no address: give ADDR:PORT such as', "tcp:9000"),
                ("is no address", "tcp:256.0.0.1:9000", "tcp:::1:9000", "'tcp:local host:9000'",
                 "tcp:[localhost]:9000", "udp:[127.0.0.1]:9", "sctp:127.0.0.1,:9", "sctp:,127.0.0.1:9",
                 "sctp:127.0.0.1:9,127.0.0.2:9", "tcp:127.0.0.1,127.0.0.2:9"),
                ('"[fe80::1%lo]:9000" has a zone: the module has none', "tcp:[fe80::1%lo]:9000"),
                ("has a zone: the module has none", "sctp:[::1],[fe80::1%2]:9000",
                 "udp:[::1]:9 --local [fe80::1%lo]:9"), ("120 characters: give 1 to 107", "unix-listen:@"),
                ("0 characters", "unix:"), ("names no interface", "packet:"),
                ("is no protocol", "packet:lo,70000", "packet:lo,0xfffff", "packet:lo,0x"),
                ("of two families", "tcp:127.0.0.1:9 --local [::1]:9", "sctp:127.0.0.1:9 --local [::1],[::2]"),
                ('"localhost:9" is no numeric address', "tcp:127.0.0.1:9 --local localhost:9"),
                ("--local is empty", "tcp:127.0.0.1:9 --local ''"),
                ("--local needs a value", "tcp:127.0.0.1:9 --local"),
                ("--local is for tcp, udp, sctp and unix-dgram endpoints that do not listen",
                 "tcp-listen:9 --local 127.0.0.1:9"),
                ("--timeout is for", "tcp-listen:9 --timeout 1", "udp:127.0.0.1:9 --timeout 1"),
                ("is no time", "tcp:127.0.0.1:9 --timeout 0", "udp:127.0.0.1:9 --idle -1",
                 "udp:127.0.0.1:9 --idle 1s"), ("120 characters", "unix-dgram:/x --local @"),
                ("--recv-only needs --local", "unix-dgram:/x --recv-only"),
                ("is no size", "udp:127.0.0.1:9 --size 0"),
                ("give a number from 1 to 65507", "udp:127.0.0.1:9 --size 65508"),
                ("--size is for udp, sctp and unix-dgram endpoints alone", "tcp:127.0.0.1:9 --size 9"),
                ("--rate is for", "tcp:127.0.0.1:9 --rate 9"),
                ("--count is for", "tcp:127.0.0.1:9 --count 9", "sctp:127.0.0.1:9 --count 9"),
                ("is no rate", "udp:127.0.0.1:9 --rate 9g", "udp:127.0.0.1:9 --rate k"),
                ("is no count", "udp:127.0.0.1:9 --count 0"), ("--raw is for", "udp:127.0.0.1:9 --raw"),
                ("exclude each other", "tcp:127.0.0.1:9 --send-only --recv-only"),
                ("has no port", "tcp:[::1]", "sctp:127.0.0.1", "tcp:127.0.0.1:9 --local 127.0.0.1"),
                ("two families: give all as IPv4 or all as IPv6", "'sctp:127.0.0.1,[::1]:9'"),
                ("addresses of two families", "sctp-listen:[::1],127.0.0.1:9"),
                ("--local is for", "sctp-listen:9 --local 127.0.0.1"),
                ('"0" is no number of streams: give a number from 1', "sctp:127.0.0.1:9 --streams 0"),
                ("from 1 to 65535", "sctp:127.0.0.1:9 --streams 65536"),
                ("from 0 to 4294967295", "sctp:127.0.0.1:9 --ppid 0x100000000"),
                ("give a number from 1 to 65536", "sctp:127.0.0.1:9 --size 65537"),
                ("--streams is for", "tcp:127.0.0.1:9 --streams 9"), ("--ppid is for", "tcp:127.0.0.1:9 --ppid 9"),
                ("--one-to-many is for", "udp:127.0.0.1:9 --one-to-many"),
                ('"--s" is ambiguous: --send-only, --size, --streams\n', "tcp:127.0.0.1:9 --s"),
                ("--recv-only takes no value", "tcp:127.0.0.1:9 --re=1"),
                ("--quiet takes no value", "tcp:127.0.0.1:9 --quiet=yes"),
                ('"--sizes" is no option', "tcp:127.0.0.1:9 --sizes 9")):
            for line in lines:
                with self.subTest(line):
                    process = self.kelcat(*shlex.split(line.replace("@", "x" * 120)))
                    self.assertSentence(process, 2, re.escape(sentence.encode()))
                    self.assertEqual(process.output(), b"")

    def test_abbreviated_options(self):
        process = self.kelcat("--verb", "--id=0.1", "--rec", "udp-listen:127.0.0.1:0")
        self.assertTells(process, 0, rb"listening on udp:127\.0\.0\.1:\d+\n")

    def test_help_and_version(self):
        process = self.kelcat("--help")
        self.assertDone(process)
        text = process.output().decode()
        self.assertLessEqual(len(text.splitlines()), 50)
        self.assertLessEqual(max(map(len, text.splitlines())), 100)
        for word in ("unix-dgram-listen:", "sctp-listen:", "packet:", "null-eof", "129, 130, 143", "Examples"):
            self.assertIn(word, text)
        rules = text.partition("What ends a transfer\n")[2].partition("Exit status")[0]
        for rule in ("  Streams: ", "  Datagrams: ", "  Packets: ", "  SCTP ends"):
            self.assertIn(rule, rules)
        process = self.kelcat("--version")
        self.assertDone(process)
        self.assertRegex(process.output(), rb"\Akelcat \d+\.\d+\.\d+\n\Z")
        with open("/dev/full", "wb") as full:
            self.assertSentence(self.kelcat("--help", stdout=full), 3, b"No space left on device")

    def test_every_option_is_in_the_help(self):
        process = self.kelcat("--help")
        self.assertDone(process)
        self.assertEqual(set(re.findall(r"(?m)^ +(?:-\w, )?(--[\w-]+)", process.output().decode())), OPTIONS)
        for letter in string.ascii_lowercase:
            process = self.kelcat(f"--{letter}")
            known = {option for option in OPTIONS if option[2] == letter}
            process.finish()
            if len(known) > 1:
                named = process.told.decode().partition("is ambiguous: ")[2]
                self.assertEqual(set(named.strip().split(", ")), known)
            else:
                self.assertEqual(b"is no option" in process.told, not known)


class Files(Test):
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

    def test_file_that_another_program_has_put_in_its_place_stays(self):
        for kind in ("unix", "unix-dgram"):
            with self.subTest(kind):
                path = self.path(kind)
                process, _ = self.listener(f"{kind}-listen:{path}", "--idle", "1")
                os.unlink(path)
                with socket.socket(socket.AF_UNIX) as successor:
                    successor.bind(path)
                    process.finish()
                    self.assertTrue(os.path.exists(path))

    def test_letters_in_one_word(self):
        server, place = self.listener("unix-listen:" + self.path("letters"))
        client = self.kelcat("-qv", place, "--send-only")
        self.assertDone(client, server)
        self.assertIn(b"connected to " + place.encode(), client.told)
        self.assertSentence(self.kelcat("-qx", place), 2, b'"-x" is no option')

    def test_longest_path(self):
        for kind in ("unix", "unix-dgram"):
            path, own = (self.path("") + letter * (107 - len(self.path(""))) for letter in "po")
            server, place = self.listener(f"{kind}-listen:{path}")
            self.assertEqual(place, f"{kind}:{path}")
            client = self.kelcat("-v", place, *(["--local", own] if kind == "unix-dgram" else []), data=QUESTION)
            self.assertMoved(QUESTION, server, client)
            if kind == "unix-dgram":
                self.assertIn(f"kelcat: connected to {place} from {kind}:{own}\n".encode(), client.told)
                self.assertIn(f"kelcat: peer {kind}:{own}\n".encode(), server.told)


class StandardError(Test):
    def test_addresses_can_be_given_back(self):
        for listen, address in (("tcp-listen:127.0.0.1:0", r"tcp:127\.0\.0\.1"), ("tcp-listen:0", r"tcp:0\.0\.0\.0"),
                                ("tcp-listen:[::1]:0", r"tcp:\[::1\]"), ("tcp-listen:[::]:0", r"tcp:\[::\]"),
                                ("udp-listen:127.0.0.1:0", r"udp:127\.0\.0\.1"), ("udp-listen:0", r"udp:0\.0\.0\.0"),
                                ("udp-listen:[::1]:0", r"udp:\[::1\]"), ("udp-listen:[::]:0", r"udp:\[::\]")):
            with self.subTest(listen):
                server, place = self.listener(listen)
                peer = place.rpartition(":")[0]
                client = self.kelcat("-v", place, data=QUESTION)
                self.assertDone(server, client)
                self.assertRegex(server.told.decode(), rf"\Akelcat: listening on {address}:{port_of(place)}\n")
                self.assertRegex(client.told.decode(), rf"\Akelcat: connected to {re.escape(place)} from "
                                                       rf"({re.escape(peer)}:\d+)\n")
                own = re.search(rb" from (\S+)\n", client.told)[1]
                self.assertIn(b"\nkelcat: peer " + own + b"\n", server.told)

    def test_reports_keep_off_standard_output(self):
        port = self.free_port()
        process = self.kelcat("-v", f"tcp:127.0.0.1:{port}", env={**os.environ, "KEL_HOST_LOG": self.path("log")})
        self.assertDone(process, status=1)
        self.assertEqual(process.output(), b"")
        self.assertRegex(process.told, rb"(?s)connet tcp socket.*\nkelcat: cannot connect .*: Connection refused\n\Z")
        with open(self.path("log"), encoding="ascii") as log:
            self.assertIn("connet tcp socket", log.read())

    def test_reports_are_lines_and_coloured_on_a_terminal_alone(self):
        arguments = ["-v", f"tcp:127.0.0.1:{self.free_port()}"]
        process = self.kelcat(*arguments)
        self.assertDone(process, status=1)
        lines = process.told.splitlines()
        self.assertEqual([b"connet tcp socket" in line for line in lines].count(True), 1, process.told)
        self.assertEqual([line.startswith(b"kelcat: ") for line in lines], [False] * (len(lines) - 1) + [True])
        self.assertNotIn(b"", lines)
        self.assertNotIn(b"\033", process.told)

        master, slave = pty.openpty()
        with open(master, "rb") as terminal:
            process = self.kelcat(*arguments, stderr=slave)
            os.close(slave)
            self.assertDone(process, status=1)
            self.assertIn(b"\033[", Followed(terminal).whole())
