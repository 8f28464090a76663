#!/usr/bin/python3
"""The public headers on targets that they are not made for. Run by CTest like abi_test.py."""

import os
import re
import unittest

from abi_test import FAKE, INCLUDE, PUBLIC, SOURCE, Case, run

REFUSED = [["gcc-12", "-m32"], ["gcc-12", "-mx32"],
           *(["clang-19", f"--target={target}"] for target in ("i386-linux-gnu", "armeb-linux-gnueabi",
                                                               "aarch64_be-linux-gnu", "s390x-linux-gnu"))]
SENTENCE = "the socket module needs a 64-bit little-endian target, such as x86-64 or aarch64"


class Targets(Case):
    def complaints(self, header, compiler):
        """What the compiler says of a header, without the system headers of its target, which need not be there."""
        folders = [*INCLUDE, "-I" + os.path.join(SOURCE, "host"), "-I" + FAKE]
        source = self.write("alone.c", f'#include "{header}"\n')
        said = run(*compiler, "-std=c11", "-Wall", "-Wextra", "-Wsystem-headers", *folders, "-fsyntax-only", source)
        return re.findall(r"^(\S+?):\d+:\d+: (?:fatal )?(?:error|warning): (.*)", said.stdout, re.MULTILINE)

    def test_of_other_sizes_or_byte_orders_are_refused_before_all_else(self):
        for header in [*PUBLIC, "host.h", "kel_socket_fake.h"]:
            for compiler in REFUSED:
                with self.subTest(header=header, compiler=compiler):
                    (file, text), *others = self.complaints(header, compiler)
                    self.assertEqual(os.path.basename(file), "kel_types.h")
                    self.assertIn(SENTENCE, text)
                    self.assertEqual([file for file, _ in others if file.startswith(SOURCE)], [])

    def test_of_64_bits_and_little_endian_are_not(self):
        for compiler in (["gcc-12"], ["clang-19"], ["clang-19", "--target=aarch64-linux-gnu"]):
            with self.subTest(compiler=compiler):
                self.assertEqual(self.complaints("kel_types.h", compiler), [])


if __name__ == "__main__":
    unittest.main()
