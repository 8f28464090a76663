#!/usr/bin/python3
"""What others build against: the headers, the libraries' symbols, and C programs made with gcc alone.

Run by CTest with SOURCE, the libraries STATIC, SHARED and HOST, and the compilers, CC and CXX, in the environment.
"""

import os
import re
import socket
import subprocess
import sys
import tempfile
import time
import unittest

SOURCE = os.environ["SOURCE"]
sys.path.insert(0, os.path.join(SOURCE, "tools"))
from machine import patience  # noqa: E402

INCLUDE = ["-I" + os.path.join(SOURCE, "platform/include")]
FAKE = os.path.join(SOURCE, "fake")
PRIVATE = ["-I" + os.path.join(SOURCE, "platform/kel/socket")]
MODULE = "platform/kel/socket/kel_socket.cpp"
VERSION = "KEL_SOCKET_1"  # of all exports
STATIC, SHARED, HOST = (os.environ[name] for name in ("STATIC", "SHARED", "HOST"))
CALLS = ["-lsctp", "-ltcmalloc_minimal"]  # what comes with the static library
EITHER = [[SHARED, HOST, "-Wl,-rpath," + os.path.dirname(SHARED)], [STATIC, HOST, *CALLS]]
PUBLIC = sorted(h for h in os.listdir(os.path.join(SOURCE, "platform/include")) if h.endswith(".h"))
COMPILERS = [[os.environ["CC"], "-std=c11"], [os.environ["CXX"], "-std=c++17"]]
STANDARDS = {"c": ("c11", "c17", "c2x"), "cpp": ("c++11", "c++14", "c++17", "c++20", "c++2b")}  # all that are supported

# Everything that the module calls, by its plain name: a program that defines one of them stands in for it.
CALLED = set("""
    KEL_ASSERT_X KEL_MemCmp KEL_MemCpy KEL_MemSet KEL_Printf KEL_Snprintf KEL_Sprintf KEL_StrCmp KEL_StrCpy KEL_StrnCpy
    KEL_SysLog KEL_module_register kel_info_print_filter_is_filtered module_print_filter
    socket bind listen accept connect recv send recvfrom sendto getpeername getsockname getsockopt setsockopt close
    unlink ioctl if_nametoindex inet_pton inet_ntop regcomp regexec regfree printf snprintf sprintf
    sctp_bindx sctp_connectx sctp_getpaddrs sctp_freepaddrs sctp_getladdrs sctp_freeladdrs sctp_send sctp_sendmsg
    sctp_recvmsg sctp_peeloff sctp_opt_info tc_malloc tc_free
""".split())
# What a compiler may call on its own behalf, or leaves a call when it does not optimise.
COMPILERS_OWN = {"memset", "memcpy", "__stack_chk_fail", "_GLOBAL_OFFSET_TABLE_", "htons", "ntohs"}


def run(*command, **options):
    return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, cwd=SOURCE, **options)


def symbols(path, *flags):
    listed = subprocess.run(["nm", *flags, path], check=True, stdout=subprocess.PIPE, text=True).stdout
    return {line.split()[-1].split("@")[0] for line in listed.splitlines() if len(line.split()) >= 2}


def declared_functions():
    """The functions of kel_socket.h."""
    with open(os.path.join(SOURCE, "platform/include/kel_socket.h"), encoding="ascii") as file:
        header = re.sub(r"/\*.*?\*/", "", file.read(), flags=re.S)
    return set(re.findall(r"^(?:LONG|BOOL|CHAR \*|const CHAR \*)\s*(\w+)\(", header, flags=re.M))


class Case(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)

    def path(self, name):
        return os.path.join(self.folder.name, name)

    def write(self, name, text):
        with open(self.path(name), "w", encoding="ascii") as file:
            file.write(text)
        return self.path(name)

    def compile(self, *command):
        done = run(*command)
        self.assertEqual(done.returncode, 0, " ".join(command) + "\n" + done.stdout)
        return done

    def build(self, name, port, *libraries):
        """An example, with another port, built with gcc alone."""
        with open(os.path.join(SOURCE, f"examples/{name}.c"), encoding="ascii") as file:
            source = self.write(name + ".c", file.read().replace("9000", f"(SHORT){port}"))
        self.compile("gcc-12", "-std=c11", "-Wall", "-Wextra", "-Werror", *INCLUDE, source, *libraries, "-o",
                     self.path(name))
        return self.path(name)


class Headers(Case):
    def test_each_compiles_alone_without_a_warning(self):
        for header in PUBLIC:
            for compiler in COMPILERS:
                with self.subTest(header=header, compiler=compiler[0]):
                    suffix = "c" if "c11" in compiler[1] else "cpp"
                    alone = self.write("alone." + suffix, f'#include "{header}"\n#include "{header}"\n')
                    self.compile(*compiler, "-Wall", "-Wextra", "-Wpedantic", "-Wformat=2", "-Werror", *INCLUDE,
                                 "-fsyntax-only", alone)
                    # kel_lib.h counts as a system header, about which compilers are silent unless they are asked.
                    self.compile(*compiler, "-Wall", "-Wextra", "-Wsystem-headers", "-Wno-format-security", "-Werror",
                                 *INCLUDE, "-fsyntax-only", alone)

    def test_stand_in_several_files_of_one_program(self):
        everything = "".join(f'#include "{header}"\n' for header in PUBLIC)
        for compiler in COMPILERS:
            with self.subTest(compiler=compiler[0]):
                suffix = "c" if "c11" in compiler[1] else "cpp"
                one = self.write("one." + suffix, everything + "int level(void);\nint level(void) "
                                 "{ return (int)_kel_print_lv; }\n")
                two = self.write("two." + suffix, everything + "int level(void);\nint main(void) "
                                 "{ return level() + (int)_kel_print_lv; }\n")
                driver = ["gcc-12" if suffix == "c" else "g++-12"]
                self.compile(*compiler, "-Wall", "-Wextra", "-Werror", *INCLUDE, "-c", one, "-o", self.path("one.o"))
                self.compile(*compiler, "-Wall", "-Wextra", "-Werror", *INCLUDE, "-c", two, "-o", self.path("two.o"))
                self.compile(*driver, self.path("one.o"), self.path("two.o"), HOST, "-o", self.path("program"))
                self.assertEqual(run(self.path("program")).returncode, 0)

    def test_every_value_size_and_offset(self):
        self.compile(*COMPILERS[0], "-Wall", "-Wextra", "-Werror", *INCLUDE, "-fsyntax-only", "tests/abi/contract.c")

    def test_every_function_is_declared_a_second_time(self):
        with open(os.path.join(SOURCE, "tests/unit/declarations.inc"), encoding="ascii") as file:
            self.assertEqual(declared_functions() - set(re.findall(r"(\w+)\(", file.read())), set())

    def test_and_uses_of_the_report_macros_cause_no_warning_in_any_standard(self):
        everything = "".join(f'#include "{header}"\n' for header in [*PUBLIC, "host.h"])
        folders = [*INCLUDE, "-I" + os.path.join(SOURCE, "host"), "-I" + os.path.join(SOURCE, "tests/unit")]
        for (compiler, _), (suffix, standards) in zip(COMPILERS, STANDARDS.items()):
            headers = self.write("headers." + suffix, everything)
            uses = self.write("uses." + suffix, f'{everything}#include "frame_uses_{suffix}.{suffix}"\n')
            for standard in standards:
                with self.subTest(compiler=compiler, standard=standard):
                    checked = [compiler, "-std=" + standard, "-Wall", "-Wextra", "-Wshadow", "-Werror", *folders]
                    self.compile(*checked, "-Wpedantic", "-Wformat=2", "-fsyntax-only", uses)
                    self.compile(*checked, "-Wsystem-headers", "-Wno-format-security", "-fsyntax-only", headers)

    def test_of_the_fake_replaces_functions_by_those_of_their_type_in_any_standard(self):
        """Others are refused even where the compiler keeps its warnings about a header to itself."""
        text = ('#include "kel_socket_fake.h"\nstatic {0} mine({0} sockfd) {{ return sockfd; }}\nvoid use(void);\n'
                'void use(void) {{ KEL_FAKE_REPLACE(kel_close, NULL); KEL_FAKE_REPLACE(kel_close, mine); }}\n')
        other = {"c": "int", "cpp": "char *"}  # in C++17 an int serves: what can be called so is taken
        for (compiler, _), (suffix, standards) in zip(COMPILERS, STANDARDS.items()):
            taken = self.write("taken." + suffix, text.format("LONG"))
            refused = self.write("refused." + suffix, text.format(other[suffix]))
            for standard in standards:
                with self.subTest(compiler=compiler, standard=standard):
                    checked = [compiler, "-std=" + standard, *INCLUDE, "-fsyntax-only"]
                    self.compile(*checked, "-I" + FAKE, "-Wall", "-Wextra", "-Wshadow", "-Wpedantic", "-Wformat=2",
                                 "-Werror", taken)
                    done = run(*checked, "-isystem", FAKE, refused)
                    self.assertNotEqual(done.returncode, 0)
                    self.assertIn("mine", done.stdout)

    def test_formats_are_checked_by_the_compiler(self):
        wrong = [("KEL_SysLog", '0, SYSLOG_ERR, "file", 1, "func", "%s", 1'), ("KEL_Printf", '"%s", 1'),
                 ("KEL_Sprintf", 'text, "%s", 1'), ("KEL_Snprintf", 'text, 9, "%s", 1'),
                 ("kel_raw_print", '"%s", 1'), ("KEL_log", '0, SYSLOG_ERR, "%s", 1')]
        wrong += [(macro, arguments) for macro in ("kel_info_print", "kel_warning_print", "kel_err_print", "kel_perror")
                  for arguments in ('"%s", 1', '"%s"')]
        for service, arguments in wrong:
            for compiler in COMPILERS:
                with self.subTest(service=service, arguments=arguments, compiler=compiler[0]):
                    source = self.write("format.c" if "c11" in compiler[1] else "format.cpp",
                                        f'#include "kel_lib.h"\nvoid use(char *text);\nvoid use(char *text) '
                                        f'{{ (void)text; {service}({arguments}); }}\n')
                    done = run(*compiler, "-Wall", "-Werror", *INCLUDE, "-fsyntax-only", source)
                    self.assertRegex(done.stdout, "-W(error=)?format")
                    self.assertNotEqual(done.returncode, 0)

    def test_report_in_inline_functions_of_hardened_programs(self):
        text = ('#include "kel_lib.h"\n'
                'inline LONG use(const void *p) { NULL_CHECK(p); kel_perror("again "); return 0; }\n'
                'LONG call(void); LONG call(void) { return use(0); }\n')
        for compiler in COMPILERS:
            with self.subTest(compiler=compiler[0]):
                source = self.write("inline.c" if "c11" in compiler[1] else "inline.cpp", text)
                self.compile(*compiler, "-Wall", "-Wextra", "-Wformat=2", "-Werror", *INCLUDE, "-c", source,
                             "-o", self.path("inline.o"))

    def test_go_together_with_the_system_headers_that_share_their_records(self):
        orders = ['#include <linux/sctp.h>\n#include "kel_socket.h"\n',
                  '#include "kel_socket.h"\n#include <linux/sctp.h>\n',
                  '#include <netpacket/packet.h>\n#include "kel_socket.h"\n',
                  '#include "kel_socket.h"\n#include <netpacket/packet.h>\n',
                  '#include <linux/if_packet.h>\n#include "kel_socket.h"\n',
                  '#include "kel_socket.h"\n#include <linux/if_packet.h>\n#include <net/if.h>\n',
                  '#include "kel_socket.h"\n#include <netpacket/packet.h>\n#include <linux/if_packet.h>\n']
        before = "#include <stdint.h>\n#include <sys/socket.h>\n"
        after = ("char sizes[sizeof(struct sockaddr_ll) == 20 && sizeof(kel_sockaddr_t) == 112 ? 1 : -1];\n"
                 "struct packet_mreq membership;\n")
        for order in orders:
            for compiler in COMPILERS:
                with self.subTest(order=order, compiler=compiler[0]):
                    suffix = "c" if "c11" in compiler[1] else "cpp"
                    self.compile(*compiler, "-Wall", "-Werror", *INCLUDE, "-fsyntax-only",
                                 self.write("order." + suffix, before + order + after))

    def test_the_kernels_packet_header_has_all_that_the_c_librarys_has(self):
        """Behind kel_socket.h, which includes the kernel's, the C library's adds nothing."""
        values = []
        with open("/usr/include/netpacket/packet.h", encoding="ascii") as file:
            names = set(re.findall(r"^#define\s+(PACKET_\w+)", file.read(), flags=re.M))
        self.assertIn("PACKET_ADD_MEMBERSHIP", names)
        shown = "".join(f'printf("{name} %d\\n", {name}); ' for name in sorted(names))
        for header in ('"kel_socket.h"', "<netpacket/packet.h>"):
            source = self.write("names.c", f"#include {header}\n#include <stdio.h>\n"
                                f"int main(void) {{ {shown} return 0; }}\n")
            self.compile("gcc-12", "-std=c11", *INCLUDE, source, "-o", self.path("names"))
            values.append(run(self.path("names")).stdout)
        self.assertEqual(*values)


class Module(Case):
    def test_compiles_by_itself_and_calls_plain_names(self):
        for level in ("-O0", "-O2", "-O3"):
            with self.subTest(level=level):
                self.compile(*COMPILERS[1], level, *INCLUDE, *PRIVATE, "-c", MODULE, "-o", self.path("module.o"))
                self.assertEqual(symbols(self.path("module.o"), "-u") - COMPILERS_OWN, CALLED)

    def test_is_delivered_calling_plain_names(self):
        self.assertEqual(symbols(STATIC, "-u") - COMPILERS_OWN, CALLED)

    def test_exports_the_declared_functions_and_nothing_else(self):
        self.assertTrue(declared_functions())
        self.assertEqual(symbols(SHARED, "-D", "--defined-only"), declared_functions() | {VERSION})
        listed = run("nm", "-D", "--defined-only", SHARED).stdout
        self.assertEqual(set(re.findall(r" T (\w+@@\w+)$", listed, flags=re.M)),
                         {f"{name}@@{VERSION}" for name in declared_functions()})

    def test_has_its_private_names_in_the_static_library_alone(self):
        private = {"g_module_socket", "Match_RegExpPattern", "__kel_set_sock_op_sctp", "__sctp_server_create",
                   "__sctp_one2one_client_create", "__sctp_one2many_client_create"}
        self.assertEqual(symbols(STATIC, "-g", "--defined-only"), declared_functions() | private)
        self.assertEqual(symbols(SHARED, "-D", "--defined-only") & private, set())

    def test_keeps_no_state_but_the_registrys_record(self):
        listed = subprocess.run(["nm", STATIC], check=True, stdout=subprocess.PIPE, text=True).stdout
        data = {line.split()[-1] for line in listed.splitlines() if re.search(r" [bBdDC] ", line)}
        self.assertEqual(data, {"g_module_socket"})

    def test_needs_the_c_library_libsctp_and_tcmalloc_alone(self):
        needed = re.findall(r"NEEDED.*\[(.*)\]", run("readelf", "-d", SHARED).stdout)
        self.assertEqual(needed, ["libsctp.so.1", "libtcmalloc_minimal.so.4", "libc.so.6"])

    def test_calls_its_own_functions_directly(self):
        relocated = set(re.findall(r" (\w+)(?:@\S+)?(?: \+ 0)?$", run("readelf", "-rW", SHARED).stdout, re.MULTILINE))
        self.assertIn("recvfrom", relocated)
        self.assertEqual(relocated & declared_functions(), set())

    def test_does_nothing_when_it_is_loaded(self):
        self.assertNotRegex(run("readelf", "-dW", SHARED).stdout, r"\((INIT|INIT_ARRAY|FINI|FINI_ARRAY)\)")

    def test_can_be_unwound(self):
        self.assertRegex(run("readelf", "-lW", SHARED).stdout, r"GNU_EH_FRAME +0x0*[1-9a-f]")

    def test_carries_no_path_of_the_build(self):
        for library in (SHARED, STATIC, HOST):
            with open(library, "rb") as file:
                content = file.read()
            self.assertNotIn(SOURCE.encode() + b"/", content, library)
        with open(SHARED, "rb") as file:
            self.assertIn(MODULE.encode() + b"\0", file.read())


class CPrograms(Case):
    """Built with gcc alone, against the shared and the static library."""

    def test_server_and_client_of_the_readme_talk(self):
        for libraries in EITHER:
            with self.subTest(library=libraries[0]):
                port = self.free_port()
                server = self.build("echo_server", port, *libraries)
                client = self.build("echo_client", port, *libraries)
                with subprocess.Popen([server]) as running:
                    try:
                        # Refused until the server listens; then the first attempt that is taken is the only one.
                        limit = patience(60)
                        deadline = time.monotonic() + limit
                        while (said := run(client, timeout=limit)).returncode != 0 and time.monotonic() < deadline:
                            self.assertIn("Connection refused", said.stdout)
                        self.assertEqual((said.returncode, said.stdout), (0, "hello\n"))
                        self.assertEqual(running.wait(timeout=limit), 0)
                    finally:
                        running.kill()

    def test_every_function_links_beside_the_sctp_records(self):
        everything = "".join(f"(void (*)(void)){name}, " for name in sorted(declared_functions()))
        source = self.write("sctp.c", '#include "kel_sctp.h"\n'
                            "static struct sctp_initmsg initmsg = {.sinit_num_ostreams = 10};\n"
                            "static struct sctp_event_subscribe events = {.sctp_data_io_event = 1};\n"
                            f"static void (*const all[])(void) = {{{everything}}};\n"
                            "int main(void)\n{\n    sctp_assoc_t id = 0;\n"
                            f"    return sizeof(all) / sizeof(all[0]) != {len(declared_functions())} ||\n"
                            "           kel_sctp_freepaddrs(NULL) != KEL_OK ||\n"
                            "           kel_sctp_client_one2one_create(KEL_AF_INET, NULL, 1, 0, &initmsg, &events,\n"
                            "                                          &id) != KEL_ERROR;\n}\n")
        for libraries in EITHER:
            with self.subTest(library=libraries[0]):
                self.compile("gcc-12", "-std=c11", "-Wall", "-Wextra", "-Werror", *INCLUDE, source, *libraries, "-o",
                             self.path("sctp"))
                ran = run(self.path("sctp"), env={**os.environ, "KEL_HOST_LOG": self.path("log")})
                self.assertEqual(ran.returncode, 0)
                self.assertIn("s_addrs is null", ran.stdout)

    def test_log_names_the_source_as_the_repository_does(self):
        client = self.build("echo_client", self.free_port(), STATIC, HOST, *CALLS)
        log = self.path("log")
        refused = run(client, env={**os.environ, "KEL_HOST_LOG": log})
        self.assertEqual(refused.returncode, 1)
        with open(log, encoding="ascii") as file:
            first = file.readline()
        self.assertRegex(first, rf" err module 0 {re.escape(MODULE)}:\d+ kel_connect: connect :\n$")

    def test_readme_shows_the_examples_as_they_are(self):
        with open(os.path.join(SOURCE, "README.md"), encoding="utf-8") as file:
            readme = file.read()
        with open(os.path.join(SOURCE, "examples/echo_server.c"), encoding="ascii") as file:
            self.assertIn(f"```c\n{file.read()}```\n", readme)
        with open(os.path.join(SOURCE, "examples/multihomed_server.c"), encoding="ascii") as file:
            example = [line.strip() for line in file]
        for line in readme.split("```c\n")[1].split("```")[0].splitlines():
            self.assertIn(line, example)

    @staticmethod
    def free_port():
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            return probe.getsockname()[1]


class HostServices(Case):
    def test_each_can_be_replaced_alone(self):
        everything = "".join(f"(void *){name}, " for name in SERVICES)
        for name, definition in SERVICES.items():
            with self.subTest(service=name):
                others = "".join(f'extern char {other}[] __asm__("{other}");\n' for other in SERVICES if other != name)
                program = self.write("replace.c", f"{others}{definition}\nvoid *volatile all[] = {{{everything}}};\n"
                                     "int main(void) { return all[0] == 0; }\n")
                self.compile("gcc-12", "-std=c11", "-w", program, STATIC, HOST, *CALLS, "-o", self.path("replace"))
                self.assertEqual(run(self.path("replace")).returncode, 0)


# A definition of each service, as a program may bring it along; the parameters do not matter to the linker.
SERVICES = {name: f"char {name}(void) {{ return 0; }}" for name in CALLED if name.startswith(("KEL_", "kel_info"))}
SERVICES["module_print_filter"] = "char module_print_filter[120];"

if __name__ == "__main__":
    unittest.main()
