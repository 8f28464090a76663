"""Names instead of addresses, as a file says that they are."""

import socket
import subprocess

from support import KELCAT, QUESTION, PATIENCE, Test, port_of, receive_all

NEEDS = ("hosts",)
HOSTS = r"::1 both\n127.0.0.1 both\n127.0.0.1 four\n::1 six\n127.0.0.2 many\n127.0.0.3 many\n"
WITH_HOSTS = ("mount -t tmpfs none /etc && echo 'hosts: files' >/etc/nsswitch.conf && echo multi on >/etc/host.conf && "
              f"printf '{HOSTS}' >/etc/hosts")


class Names(Test):
    def kelcat(self, *arguments, **options):
        """One that finds the names above, and no others."""
        return self.start("unshare", "--mount", "bash", "-c", WITH_HOSTS + ' && exec "$0" "$@"', KELCAT, *arguments,
                          **options)

    def plain_server(self, family, kind, address):
        server = self.plain(family, kind)
        server.bind((address, 0))
        return server, server.getsockname()[1]

    def test_each_address_is_tried_in_turn(self):
        for family, address, names in ((socket.AF_INET, "127.0.0.1", ("four", "both")),
                                       (socket.AF_INET6, "::1", ("six", "both")),
                                       (socket.AF_INET, "127.0.0.3", ("many",))):
            server, port = self.plain_server(family, socket.SOCK_STREAM, address)
            server.listen()
            for name in names:
                with self.subTest(name, address=address):
                    client = self.kelcat(f"tcp:{name}:{port}", data=QUESTION)
                    connection = self.accept(server)
                    self.assertEqual(receive_all(connection), QUESTION)
                    connection.close()
                    self.assertDone(client)
                    self.assertEqual(client.told, b"")

    def test_last_reason_is_told(self):
        for name in ("four", "both", "many"):
            place = f"tcp:{name}:{self.free_port()}"
            self.assertSentence(self.kelcat(place), 1, b"cannot connect to %s: Connection refused\n" % place.encode())
            self.assertSentence(self.kelcat(place, "--timeout", str(PATIENCE)), 1, b"Connection refused\n")

    def test_datagrams_go_where_somebody_listens(self):
        for family, address in ((socket.AF_INET, "127.0.0.1"), (socket.AF_INET6, "::1")):
            server, port = self.plain_server(family, socket.SOCK_DGRAM, address)
            client = self.kelcat(f"udp:both:{port}", "--send-only", data=QUESTION)
            self.assertEqual([server.recv(2000), server.recv(2000)], [QUESTION, b""])
            self.assertDone(client)

    def test_listener_by_name(self):
        for name, address in (("four", "127.0.0.1"), ("six", "[::1]"), ("many", "127.0.0.[23]")):
            for kind in ("tcp", "udp"):
                with self.subTest(name, kind=kind):
                    server, place = self.listener(f"{kind}-listen:{name}:0")
                    self.assertRegex(place, rf"\A{kind}:{address}:\d+\Z".replace("[::1]", r"\[::1\]"))
                    self.assertDone(self.kelcat(f"{kind}:{name}:{port_of(place)}", data=QUESTION), server)
                    self.assertEqual(server.output(), QUESTION)

    def test_name_of_nobody(self):
        for endpoint in ("tcp:nobody:9000", "udp:nobody:9000", "tcp-listen:nobody:0"):
            self.assertSentence(self.kelcat(endpoint), 1, b'cannot resolve "nobody": Name or service not known\n')

    def test_address_needs_no_name_service(self):
        nothing = self.start("unshare", "--mount", "bash", "-c", 'mount -t tmpfs none /etc && exec "$0" "$@"', KELCAT,
                             "-v", "udp-listen:127.0.0.1:0", "--idle", "0.1", stdin=subprocess.DEVNULL)
        self.assertTells(nothing, 0, rb"listening on udp:127\.0\.0\.1:\d+\n")
