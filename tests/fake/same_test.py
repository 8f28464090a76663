#!/usr/bin/python3
"""The fake does what the module does: scenario.c prints the same with either, the module inside a user-mode kernel."""

import difflib
import os
import subprocess
import sys

GUEST = os.path.join(os.path.dirname(os.path.realpath(__file__)), "../../tools/guest/guest")


def said(*command):
    done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, encoding="utf-8", check=False)
    if done.returncode != 0:
        sys.exit(f"{' '.join(command)} ended with {done.returncode}:\n{done.stdout}")
    return done.stdout.splitlines()


def main():
    fake, module = sys.argv[1:]
    differences = list(difflib.unified_diff(said(GUEST, "--", module), said(fake), "module", "fake", lineterm=""))
    print("\n".join(differences))
    sys.exit(len(differences) > 0)


if __name__ == "__main__":
    main()
