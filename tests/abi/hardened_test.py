#!/usr/bin/python3
"""The module built with the flags of Debian's packages, all of its hardening: what of it arrives in the library.

Run by CTest like abi_test.py.
"""

import os
import platform
import subprocess
import tempfile
import unittest

from abi_test import CALLED, COMPILERS, COMPILERS_OWN, SOURCE, run, symbols

# Enforced control flow, which the flags of Debian 12 lack, and the note that the library then carries.
CONTROL_FLOW, NOTE = {"x86_64": ("-fcf-protection", "x86 feature: IBT, SHSTK"),
                      "aarch64": ("-mbranch-protection=standard", "AArch64 feature: BTI, PAC")}[platform.machine()]


def build(folder):
    """Has CMake build the module, as debhelper would."""
    every = {**os.environ, "DEB_BUILD_MAINT_OPTIONS": "hardening=+all", "DEB_CFLAGS_MAINT_APPEND": CONTROL_FLOW,
             "DEB_CXXFLAGS_MAINT_APPEND": CONTROL_FLOW}
    flags = {name: subprocess.run(["dpkg-buildflags", "--get", name], check=True, env=every, stdout=subprocess.PIPE,
                                  text=True).stdout.strip() for name in ("CFLAGS", "CXXFLAGS", "CPPFLAGS", "LDFLAGS")}
    (c, _), (cxx, _) = COMPILERS
    subprocess.run(["cmake", "-G", "Ninja", "-S", SOURCE, "-B", folder, "-DCMAKE_BUILD_TYPE=None",
                    f"-DCMAKE_C_COMPILER={c}", f"-DCMAKE_C_FLAGS={flags['CFLAGS']} {flags['CPPFLAGS']}",
                    f"-DCMAKE_CXX_COMPILER={cxx}", f"-DCMAKE_CXX_FLAGS={flags['CXXFLAGS']} {flags['CPPFLAGS']}",
                    f"-DCMAKE_SHARED_LINKER_FLAGS={flags['LDFLAGS']}"], check=True)
    subprocess.run(["cmake", "--build", folder, "--target", "kel_socket_shared"], check=True)


class Hardened(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        build(folder.name)
        cls.library = os.path.join(folder.name, "platform/kel/socket/libkel_socket.so")

    def test_relocations_are_read_only_before_the_program_starts(self):
        self.assertRegex(run("readelf", "-lW", self.library).stdout, "GNU_RELRO")
        self.assertRegex(run("readelf", "-dW", self.library).stdout, r"\(FLAGS\) .*BIND_NOW")

    def test_neither_stack_nor_code_is_writable_and_executable(self):
        segments = run("readelf", "-lW", self.library).stdout
        self.assertRegex(segments, r"GNU_STACK .* RW ")
        self.assertNotRegex(segments, " RWE ")
        self.assertNotIn("TEXTREL", run("readelf", "-dW", self.library).stdout)

    def test_stack_is_protected(self):
        self.assertIn("__stack_chk_fail", symbols(self.library, "-D", "-u"))

    def test_control_flow_is_enforced(self):
        self.assertRegex(run("readelf", "-nW", self.library).stdout, NOTE)

    def test_calls_are_not_fortified(self):
        """A program that stands in for printf would be passed by."""
        self.assertEqual(symbols(self.library, "-D", "-u") - COMPILERS_OWN, CALLED)


if __name__ == "__main__":
    unittest.main()
