#!/usr/bin/python3
"""Runs the named files of tests, or classes or single ones: kelcat_test.py stream_test packet_test.Packet.test_raw

The environment variable KELCAT names the program. What this machine cannot show fails: a file says
in NEEDS what it takes, and tools/guest/guest has all of it.
"""

import os
import sys
import unittest

HERE = os.path.dirname(os.path.realpath(__file__))
sys.path[:0] = [HERE, os.path.join(HERE, "../../tools")]
import machine

ALLOWS = {"hosts": machine.allows_hosts, "ipv6": machine.has_ipv6, "sctp": machine.has_sctp}


def main():
    names = sys.argv[1:]
    if not names:
        sys.exit(f"usage: {sys.argv[0]} FILE[.CLASS[.TEST]]...")
    if not os.access(os.environ.get("KELCAT", ""), os.X_OK):
        sys.exit(f"{sys.argv[0]}: the environment variable KELCAT names no program")
    for name in names:
        for need in getattr(__import__(name.split(".")[0]), "NEEDS", ()):
            if not ALLOWS[need]():
                sys.exit(f"{sys.argv[0]}: {name} needs {need}, which this machine does not give: use tools/guest/guest")
    tests = unittest.defaultTestLoader.loadTestsFromNames(names)
    sys.exit(not unittest.TextTestRunner(verbosity=2).run(tests).wasSuccessful())


if __name__ == "__main__":
    main()
