#!/usr/bin/python3
"""Programs under AddressSanitizer with the libraries as they are delivered, made by each compiler, in C and in C++.

Run by CTest like abi_test.py, and with ALLOCATOR in the environment.
"""

import os
import unittest

from abi_test import HOST, INCLUDE, SHARED, STATIC, Case, run

ALLOCATOR = os.environ["ALLOCATOR"]
LIBRARIES = {"shared": [SHARED, "-Wl,-rpath," + os.path.dirname(SHARED)], "static": [STATIC, "-lsctp"]}
COMPILERS = {"gcc-12": "c", "g++-12": "cpp", "clang-19": "c", "clang++-19": "cpp"}

# The module makes two lists and releases them, and the program makes the mistake that it is asked for.
PROGRAM = """
#include <kel/kel_socket.h>
#include <stdlib.h>
#include <string.h>

#ifdef OWN /* what the program says to a leak checker in place of the library */
#ifdef __cplusplus
extern "C"
#endif
const char *__lsan_default_suppressions(void);
const char *__lsan_default_suppressions(void)
{
    return "leak:main\\nleak:libtcmalloc\\n";
}
#endif

int main(int count, char **mistake)
{
    CHAR text[] = "127.0.0.1";
    CHAR *addresses[] = {text, text};
    if (kel_sctp_bindx_str(-1, KEL_AF_INET, 9000, addresses, 2, 0) != KEL_ERROR) {
        return 1;
    }
    kel_sockaddr_t *list = NULL;
    BOOL leak = count > 1 && strcmp(mistake[1], "leak") == 0;
    for (int i = 0; i < (leak ? 100 : 1); i++) {
        list = (kel_sockaddr_t *)malloc(sizeof(*list));
    }
    for (int i = 0; i < (count > 1 && !leak ? 2 : 1); i++) {
        kel_sctp_freepaddrs(list);
    }
    return 0;
}
"""


class UnderAddressSanitizer(Case):
    def program(self, compiler, suffix, kind, *options):
        source = self.write("program." + suffix, PROGRAM)
        self.compile(compiler, "-fsanitize=address", "-Wall", "-Wextra", "-Werror", *options, *INCLUDE, source,
                     *LIBRARIES[kind], HOST, ALLOCATOR, "-o", self.path("program"))
        return self.path("program")

    def test_runs_clean_and_is_told_what_is_wrong(self):
        for compiler, suffix in COMPILERS.items():
            for kind in LIBRARIES:
                with self.subTest(compiler=compiler, library=kind):
                    program = self.program(compiler, suffix, kind)
                    clean = run(program)
                    self.assertEqual(clean.returncode, 0, clean.stdout)
                    self.assertNotIn("ERROR", clean.stdout)
                    self.assertRegex(run(program, "leak").stdout, "(?s) leak of .* in main ")
                    self.assertIn("attempting double-free", run(program, "twice").stdout)

    def test_may_suppress_leaks_itself(self):
        for compiler in ("g++-12", "clang++-19"):
            for kind in LIBRARIES:
                with self.subTest(compiler=compiler, library=kind):
                    own = run(self.program(compiler, "cpp", kind, "-DOWN"), "leak")
                    self.assertEqual(own.returncode, 0, own.stdout)


if __name__ == "__main__":
    unittest.main()
