#!/usr/bin/python3
"""The table of docs/platform/without-sctp.md: seen on this machine's kernel when that has no SCTP, and otherwise in a
user-mode kernel that is refused its own. Run by CTest like platform_test.py.
"""

import errno
import os
import re
import unittest

from platform_test import HERE, SOURCE, Case, machine, text_of

GUEST = [os.path.join(SOURCE, "tools/guest/guest"), "--", "sh", "-c",
         'echo 1 >/proc/sys/kernel/modules_disabled && exec "$@"', "sh"]
HEAD = "| Function | Result | `errno` | Reports |\n|---|---|---|---|\n"


def exported():
    with open(os.path.join(SOURCE, "platform/kel/socket/kel_socket.map"), encoding="utf-8") as file:
        return set(re.findall(r"^ +(kel_sctp_\w+);", file.read(), re.M))


class WithoutSctp(Case):
    def test_every_function_does_what_the_table_says(self):
        self.compile(os.path.join(HERE, "without_sctp.c"), "-lkel_socket", "-lkel_host", "-o", "without_sctp")
        kernel = GUEST if machine.has_sctp() else []
        said = self.run_here(*kernel, "env", "KEL_HOST_LOG=/dev/null", "./without_sctp").stdout
        rows, functions = [], set()
        for reports, function, result, number in re.findall(r"(.*?)\n(\w+) = (-?\d+), errno (\d+)\n", said, re.S):
            words = re.escape(": " + os.strerror(int(number)))
            shown = ", ".join(f'`{name}` "{text}"' for name, text in
                              re.findall(rf"\033\[1;31m(\w+)\.\d+:(.*?){words}\033", reports)) or "none"
            name = errno.errorcode.get(int(number), "as before")
            rows.append(f"| `{function}` | {result} | {name} | {shown} |\n")
            functions.add(function)
        self.assertEqual(functions, exported() | {"kel_socket"}, said)
        self.assertIn(HEAD + "".join(rows), text_of("without-sctp.md"), "the table is\n" + HEAD + "".join(rows))


if __name__ == "__main__":
    unittest.main()
