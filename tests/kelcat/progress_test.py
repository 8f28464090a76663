"""The line that a terminal shows of a transfer."""

import os
import pty
import re
import subprocess

from support import BYTES, Followed, Test, receive_all


class ProgressLine(Test):
    def watched(self, *options, **source):
        """A transfer whose receiver does not take it yet, and what a terminal shows of it."""
        server, place = self.plain_listener()
        master, slave = pty.openpty()
        terminal = Followed(self.enterContext(open(master, "rb")))
        self.addCleanup(terminal.thread.join)
        client = self.kelcat(place, *options, stderr=slave, **source)
        os.close(slave)
        return self.accept(server), client, terminal

    def wait_shown(self, terminal, pattern):
        self.assertTrue(terminal.wait(lambda shown: re.search(pattern, shown)), terminal.data)

    def test_a_line_is_shown_and_taken_away(self):
        connection, client, terminal = self.watched(data=BYTES)
        self.wait_shown(terminal, rb"\rsent [\d.]+ \w+, received 0 B, [\d.]+ \w+/s, \d+ %, \d+:\d\d left")
        self.assertSame(receive_all(connection), BYTES)
        connection.close()
        self.assertDone(client)
        shown = terminal.whole()
        self.assertTrue(shown.endswith(b"\r\033[K"), shown)
        self.assertNotIn(b"\n", shown)

    def test_rate_is_that_of_the_last_seconds(self):
        connection, client, terminal = self.watched(stdin=subprocess.PIPE)
        client.write(BYTES[:100000])
        self.wait_shown(terminal, rb"\rsent [\d.]+ \w+, received 0 B, [1-9][\d.]* \w+/s")
        self.wait_shown(terminal, rb"\rsent [\d.]+ \w+, received 0 B, 0 B/s")  # the mean of all would never get there
        client.end_input()
        self.assertSame(receive_all(connection), BYTES[:100000])
        connection.close()
        self.assertDone(client)

    def test_quiet(self):
        connection, client, terminal = self.watched("-q", data=BYTES)
        loud_connection, loud, loud_terminal = self.watched(data=BYTES)
        self.wait_shown(loud_terminal, rb"\rsent ")  # and it began later
        for one in (connection, loud_connection):
            self.assertSame(receive_all(one), BYTES)
            one.close()
        self.assertDone(client, loud)
        self.assertEqual(terminal.whole(), b"")
