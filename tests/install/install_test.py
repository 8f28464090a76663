#!/usr/bin/python3
"""What others install and link: from a prefix that was moved, and as a part of their own project.

Run by CTest with SOURCE and BUILD, this tree and its build, in the environment; with PREFIX, too, tests look at what is
installed there already. The programs of consumer/ are made with g++ and bfd by the installed CMake package, with clang
and lld from the sources, and with both by pkg-config.
"""

import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

SOURCE, BUILD = pathlib.Path(os.environ["SOURCE"]), pathlib.Path(os.environ["BUILD"])
HERE = pathlib.Path(__file__).resolve().parent
MODULE = r"platform/kel/socket/kel_socket\.cpp:\d+"
REPORTS = rf"{MODULE}: assertion failed \(code 0\)\n"  # of consumer.c and consumer.cpp, on standard error
STAND_IN = rf"\S+ err module 0 {MODULE} kel_tcp_client_socket_create: connet tcp socket\n"
OWN = rf"own log: {MODULE} kel_tcp_client_socket_create\n"
GCC = ["-DCMAKE_C_COMPILER=gcc-12", "-DCMAKE_CXX_COMPILER=g++-12"]
CLANG = ["-DCMAKE_C_COMPILER=clang-19", "-DCMAKE_CXX_COMPILER=clang++-19",
         *(f"-DCMAKE_{kind}_LINKER_FLAGS=-fuse-ld=lld-19" for kind in ("EXE", "SHARED"))]
# What a program of consumer/CMakeLists.txt writes, and what it does not need.
PROGRAMS = {"shared": (STAND_IN, ""), "shared_lto": (OWN, ""), "static": (OWN, "kel"), "static_lto": (STAND_IN, "kel"),
            "static_pie": (STAND_IN, "."), "own_allocator": (STAND_IN, "kel|tcmalloc"),
            "without_sctp": (STAND_IN, "kel|sctp|tcmalloc"), "fake": (STAND_IN, "kel|sctp|tcmalloc"),
            "whole": (STAND_IN, "")}


def run(*command, **variables):
    """What a command writes; it has to succeed."""
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="replace",
                          env={**os.environ, **variables})
    if done.returncode != 0:
        raise AssertionError(f"{' '.join(map(str, command))}\n{done.stdout}")
    return done.stdout


def needed(program):
    return re.findall(r"NEEDED.*\[(.*)\]", run("readelf", "-d", program))


class Installed(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.folder.cleanup)
        cls.top = pathlib.Path(cls.folder.name)
        shutil.copytree(HERE / "consumer", cls.top / "consumer")  # elsewhere, so that no path of this tree is its own
        cls.staged, cls.prefix = cls.top / "staged", pathlib.Path(os.environ.get("PREFIX", cls.top / "moved"))
        if "PREFIX" in os.environ:
            return
        for component in ("runtime", "development", "tools"):
            run("cmake", "--install", BUILD, "--prefix", "/usr/local", "--component", component, DESTDIR=str(cls.staged))
        shutil.move(cls.staged / "usr/local", cls.prefix)

    def runs(self, program, log, **variables):
        """A consumer's program reports from the module's source by the name that it has in the repository."""
        done = subprocess.run([program], stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True,
                              env={**os.environ, **variables})
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertRegex(done.stderr, rf"\A({REPORTS})?{log}\Z")

    def holds_no_path_of_the_builder(self, file):
        content = file.read_bytes()
        for path in (SOURCE, BUILD, self.staged):
            self.assertNotIn(bytes(path) + b"/", content, file)

    def make(self, build, programs, *options):
        """Makes programs and has each run; what links the one without SCTP."""
        run("cmake", "-G", "Ninja", "-S", self.top / "consumer", "-B", build, *options)
        run("cmake", "--build", build, "--target", *programs)
        for name in programs:
            log, unneeded = PROGRAMS[name]
            with self.subTest(program=name):
                self.runs(build / name, log)
                if unneeded:
                    self.assertNotRegex(" ".join(needed(build / name)), unneeded)
        link = run("ninja", "-C", build, "-t", "commands", "without_sctp").splitlines()[-1]
        self.assertNotRegex(link, "-lsctp|tcmalloc")
        self.assertNotIn("INTERP", run("readelf", "-lW", build / "static_pie"))
        return link

    def test_package_for_cmake(self):
        build = self.top / "package"
        link = self.make(build, PROGRAMS, *GCC, f"-DCMAKE_PREFIX_PATH={self.prefix}", "-DCMAKE_BUILD_TYPE=Debug")
        self.assertIn("/gcc-12 ", link)  # a program in C is linked as one
        for name in PROGRAMS:
            self.holds_no_path_of_the_builder(build / name)

    def test_sources_as_a_part_of_another_project(self):
        build = self.top / "part"
        programs = PROGRAMS.keys() - {"fake"}  # whose library takes as long to compile as all else here: see below
        self.make(build, programs, *CLANG, f"-DSOURCE={SOURCE}", f"-DCMAKE_INSTALL_PREFIX={build}/prefix")
        for name in programs:
            self.holds_no_path_of_the_builder(build / name)
        self.assertRegex(run("readelf", "-p", ".comment", build / "static"), "Linker: .*LLD")
        of_all, of_fake = (run("ninja", "-C", build, "-t", "commands", target) for target in ("kel_socket/all", "fake"))
        self.assertIn("libkel_host.a", of_all)
        self.assertEqual(set(re.findall(r"tools/kelcat|libkel_socket_fake\.a", of_all)), set(), "it named neither")
        self.assertIn("libkel_socket_fake.a", of_fake)
        self.assertEqual(set(re.findall(r" -(?:O1|g1)\b", of_fake)), set(), "as if for our tests")
        run("cmake", "--install", build)
        self.assertFalse((build / "prefix").exists(), "it installs more than what that project itself does")

    def config(self, *arguments):
        return run("pkg-config", *arguments, PKG_CONFIG_PATH=str(self.prefix / "lib/pkgconfig")).split()

    def test_pkg_config(self):
        gcc, clang = ("gcc-12", "-std=c11"), ("clang++-19", "-std=c++17", "-fuse-ld=lld-19", "-flto")
        here_first, there_first = ("kel_host", "kel_socket"), ("kel_socket", "kel_host")
        static = ["-static-pie", "-fPIE", "-Wl,-z,defs"]
        for compiler, options, libraries in ((gcc, [], here_first), (gcc, static, here_first),
                                             (clang, [], there_first), (clang, static, here_first)):
            with self.subTest(compiler=compiler[0], options=options, libraries=libraries):
                source, log = ("consumer.c", STAND_IN) if compiler == gcc else ("consumer.cpp", OWN)
                flags = self.config("--cflags", "--libs", *(["--static"] if options else []), *libraries)
                run(*compiler, "-Wall", "-Wextra", "-Wpedantic", "-Werror", *options, HERE / "consumer" / source,
                    *flags, "-o", self.top / "program")
                self.runs(self.top / "program", log, LD_LIBRARY_PATH=str(self.prefix / "lib"))
                self.holds_no_path_of_the_builder(self.top / "program")
                self.assertEqual("libkel_socket.so.1" in needed(self.top / "program"), not options)

    def test_pkg_config_without_sctp(self):
        flags = [*self.config("--cflags", "--libs", "kel_host"), *self.config("--variable=without_sctp", "kel_socket")]
        self.assertNotRegex(" ".join(flags), "-lsctp|tcmalloc")
        run("gcc-12", "-DWITHOUT_SCTP", HERE / "consumer/consumer.c", *flags, "-o", self.top / "program")
        self.runs(self.top / "program", STAND_IN)
        self.assertEqual(needed(self.top / "program"), ["libc.so.6"])

    def test_pkg_config_of_the_fake(self):
        flags = self.config("--cflags", "--libs", "kel_host", "kel_socket_fake")
        run("gcc-12", HERE / "consumer/consumer.c", *flags, "-o", self.top / "program")
        self.runs(self.top / "program", STAND_IN)
        self.assertNotRegex(" ".join(needed(self.top / "program")), "kel|sctp|tcmalloc")

    def test_commands_of_the_page(self):
        commands = re.findall(r"^gcc (?:.*\\\n)*.*$", (SOURCE / "docs/installing.md").read_text(), flags=re.M)
        self.assertGreater(len(commands), 3)
        found = {"PKG_CONFIG_PATH": f"{self.prefix}/lib/pkgconfig", "LIBRARY_PATH": f"{self.prefix}/lib"}
        for command in commands:
            with self.subTest(command=command):
                command = command.replace("build/echo_client", str(self.top / "client"))
                run("sh", "-c", f"cd {SOURCE} && " + command.replace("/usr/local", str(self.prefix)), **found)

    def test_has_every_header_and_one_version(self):
        headers = {f"kel/{file.name}" for file in (SOURCE / "platform/include").glob("*.h")}
        headers |= {"kel/host.h", "kel/kel_socket_fake.h", "kel/netinet/sctp.h", "kel/linux/sctp.h"}
        include = self.prefix / "include"
        self.assertEqual({str(file.relative_to(include)) for file in include.rglob("*") if file.is_file()}, headers)
        version, = re.findall(r'KEL_SOCKET_VERSION "(.*)"', (include / "kel/kel_socket.h").read_text())
        self.assertEqual(self.config("--modversion", "kel_socket", "kel_host"), [version, version])
        self.assertIn(version, run(self.prefix / "bin/kelcat", "--version"))
        names = {file.name for file in (self.prefix / "lib").glob("libkel_socket.so*")}
        self.assertEqual(names, {"libkel_socket.so", "libkel_socket.so.1", f"libkel_socket.so.{version}"})
        self.assertIn("[libkel_socket.so.1]", run("readelf", "-d", self.prefix / "lib/libkel_socket.so"))

    def test_carries_no_path_of_the_builder(self):
        for file in self.prefix.rglob("*"):
            if file.is_file():
                self.holds_no_path_of_the_builder(file)


if __name__ == "__main__":
    unittest.main()
