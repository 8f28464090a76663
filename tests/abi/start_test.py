#!/usr/bin/python3
"""What a program loads at its start: the module's libraries, tcmalloc above all, cost many times what it does itself.

A program without SCTP that leaves out what it does not call needs the C library alone. Run by CTest with SOURCE and
BUILD in the environment.
"""

import re
import unittest

from abi_test import CALLS, HOST, INCLUDE, STATIC, Case, declared_functions, run, symbols

WITHOUT_SCTP = sorted(name for name in declared_functions() if "_sctp_" not in name)
LANGUAGES = {"c": ["gcc-12", "-std=c11"], "cpp": ["g++-12", "-std=c++17"]}


class NeededLibraries(Case):
    def link(self, linker, suffix, functions, *libraries):
        """Compiles a program that calls functions, and links it with gcc alone. It ends with 0 when they are there."""
        declared = "".join(f'#include "{header}"\n' for header in ("kel_sctp.h", "kel_socket.h", "kel_lib.h"))
        everything = ", ".join(f"(call){name}" for name in functions)
        source = self.write("program." + suffix, f"{declared}typedef void (*call)(void);\n"
                            f"call volatile all[] = {{{everything}}};\nint main(void)\n{{\n"
                            f"    return sizeof(all) / sizeof(call) != {len(functions)} || all[0] == NULL;\n}}\n")
        self.compile(*LANGUAGES[suffix], *INCLUDE, "-c", source, "-o", self.path("program.o"))
        return run("gcc-12", f"-fuse-ld={linker}", "-Wl,--gc-sections", self.path("program.o"), STATIC, HOST,
                   *libraries, "-o", self.path("program"))

    def needed(self):
        return re.findall(r"NEEDED.*\[(.*)\]", run("readelf", "-d", self.path("program")).stdout)

    def check(self, linker):
        self.assertGreater(len(WITHOUT_SCTP), 30)
        for suffix in LANGUAGES:
            with self.subTest(language=suffix):
                linked = self.link(linker, suffix, WITHOUT_SCTP)
                self.assertEqual(linked.returncode, 0, linked.stdout)
                self.assertEqual(self.needed(), ["libc.so.6"])
                undefined = symbols(self.path("program"), "-D", "-u")
                self.assertIn("socket", undefined)
                self.assertEqual({name for name in undefined if re.match("sctp_|tc_", name)}, set())
                self.assertEqual(run(self.path("program")).returncode, 0)

    def test_without_sctp_is_the_c_library(self):
        self.check("bfd")

    def test_without_sctp_is_the_c_library_with_another_linker(self):
        self.check("gold")

    def test_with_sctp_are_libsctp_and_tcmalloc_as_well(self):
        for suffix in LANGUAGES:
            with self.subTest(language=suffix):
                refused = self.link("bfd", suffix, ["kel_sctp_bindx"])
                self.assertNotEqual(refused.returncode, 0)
                missing = re.findall(r"undefined reference to .(\w+)'", refused.stdout)
                self.assertEqual(set(missing), {"sctp_bindx", "tc_malloc", "tc_free"})
                self.assertEqual(self.link("bfd", suffix, ["kel_sctp_bindx"], *CALLS).returncode, 0)
                self.assertEqual(self.needed(), ["libsctp.so.1", "libtcmalloc_minimal.so.4", "libc.so.6"])


if __name__ == "__main__":
    unittest.main()
