#!/usr/bin/python3
"""The multi-homed examples, built with gcc alone against either library, talk in a kernel that has SCTP.

Run by CTest like abi_test.py.
"""

import os
import unittest

from abi_test import EITHER, SOURCE, Case, run

GUEST = os.path.join(SOURCE, "tools/guest/guest")
TALK = 'for pair; do "$pair/multihomed_server" & until grep -qs " 9000 " /proc/net/sctp/eps; do :; done; ' \
       '"$pair/multihomed_client" && wait $! || exit 1; done'


class Examples(Case):
    def test_multihomed_server_and_client_talk(self):
        pairs = [os.path.join(self.folder.name, name) for name in ("shared", "static")]
        for pair, libraries in zip(pairs, EITHER):
            os.mkdir(pair)
            for name in ("multihomed_server", "multihomed_client"):
                os.rename(self.build(name, 9000, *libraries), os.path.join(pair, name))
        said = run(GUEST, "--", "sh", "-c", TALK, "sh", *pairs)
        self.assertEqual((said.returncode, said.stdout),
                         (0, "ipv4 127.0.0.1:9000\nipv4 127.0.0.2:9000\nhello on stream 1\n" * len(pairs)))


if __name__ == "__main__":
    unittest.main()
