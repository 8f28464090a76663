#!/usr/bin/python3
"""kel_sctp.h and kel_prv_sctp.h against the headers of the kernel and of libsctp, name by name.

The names are the compiler's own list of what a header declares, so that none can be left out of the comparison. Run by
CTest like abi_test.py.
"""

import json
import os
import re
import subprocess
import unittest

from abi_test import CALLED, INCLUDE, PRIVATE, SOURCE, Case, run

COMPILERS = [["gcc-12", "-std=c11"], ["clang-19", "-std=c11"], ["g++-12", "-std=c++17"], ["clang++-19", "-std=c++17"]]
C_COMPILERS = COMPILERS[:2]

OWN = os.path.join(SOURCE, "platform/include/kel_sctp.h")
KERNEL = "/usr/include/linux/sctp.h"
LIBRARY = "/usr/include/netinet/sctp.h"
INCLUSION = {OWN: '"kel_sctp.h"', KERNEL: "<linux/sctp.h>", LIBRARY: "<netinet/sctp.h>"}

# The system's two are read after these, as a program would, and take nothing else for granted.
BEFORE = "".join(f"#include <{name}>\n" for name in ("stddef.h", "stdint.h", "stdio.h", "sys/socket.h", "netinet/in.h"))

# What differs, by intent, and the two values: the module hands over ten flags, the kernel accepts the shorter record.
DIFFERENT = {"sizeof(struct sctp_event_subscribe)": (10, 14)}

# The kernel's header has no option level; libsctp's, which is compared as well, has it.
LEVEL = "SOL_SCTP"

# What the system declares and kel_sctp.h does not: whole names, with the reason. A name that fits nothing here is news.
LEFT_OUT = {
    "the headers' own guards and feature tests": r"_SCTP_H|__linux_sctp_h__|HAVE_(KERNEL_)?SCTP\w*",
    "the protocol's number is that of <netinet/in.h>": r"IPPROTO_SCTP",
    "requests between libsctp and the kernel": r"SCTP_SOCKOPT_\w+|SCTP_GET_(PEER|LOCAL)_ADDRS|SCTP_SENDMSG_CONNECT|"
                                               r"sctp_getaddrs(_old)?|sctp_peeloff_(flags_)?arg_t",
    "ancillary data, which the library's calls read and write": r"sctp_cmsg_\w+|sctp_(rcv|nxt|pr|auth)info|"
                                                                r"SCTP_(INIT|SNDRCV|SNDINFO|RCVINFO|NXTINFO|PRINFO|"
                                                                r"AUTHINFO|DSTADDRV[46])",
    "flags of the kernel's own messages": r"sctp_msg_flags|SCTP_NOTIFICATION|SCTP_SN_TYPE_MAX",
    "calls of the library that the module does not have": r"sctp_(sendv|recvv)_\w+|SCTP_(SENDV|RECVV|SEND)_\w+|"
                                                          r"SCTP_SEND_FAILED_EVENT|sctp_send_failed_event",
    "events behind the tenth": r"sctp_event_subscribe\.(sctp_(stream_reset|assoc_reset|stream_change)_event|"
                               r"sctp_send_failure_event_event)|"
                               r"sctp_notification\.sn_(strreset|assocreset|strchange|send_failed)_event",
    "stream reconfiguration": r"SCTP_ENABLE_\w+|SCTP_ADD_STREAMS|SCTP_RESET_(STREAMS|ASSOC)|"
                              r"SCTP_(ASSOC|STREAM)_(RESET|CHANGE)_\w+|"
                              r"sctp_(add_streams|reset_streams|(assoc_reset|stream_reset|stream_change)_event)",
    "partial reliability by other policies than a lifetime": r"(__)?SCTP_PR_\w+|SCTP_DEFAULT_PRINFO|"
                                                             r"sctp_(default_prinfo|prstatus)",
    "stream schedulers": r"SCTP_SS_\w+|SCTP_STREAM_SCHEDULER\w*|sctp_(sched_type|stream_value)|"
                         r"SCTP_INTERLEAVING_SUPPORTED",
    "extensions that are negotiated by the system's settings": r"SCTP_(ASCONF|AUTH|ECN|RECONFIG)_SUPPORTED",
    "paths: encapsulation, probing and second thresholds": r"SCTP_REMOTE_UDP_ENCAPS_PORT|sctp_udpencaps|"
                                                           r"SCTP_PLPMTUD_PROBE_INTERVAL|sctp_probeinterval|"
                                                           r"SCTP_PEER_ADDR_THLDS_V2|sctp_paddrthlds_v2|"
                                                           r"SCTP_EXPOSE_PF_STATE",
    "statistics": r"SCTP_GET_ASSOC_STATS|sctp_assoc_stats|sctp_info",
    "second names for what is there under its first": r"SCTP_ADDR_PF|SCTP_AUTH_NEWKEY|sctp_setprim|"
                                                      r"guth_number_of_chunks|shmac_number_of_idents",
    "numbers of the protocol, not of the interface": r"SCTP_AUTH_HMAC_ID_SHA(1|256)",
}


class Declared:
    """What a header itself declares: constants, types, and records with the paths and C types of their fields."""

    def __init__(self, path):
        self.path = path
        self.constants = set()  # macros and enumerators
        self.enums = set()
        self.types = set()
        self.functions = set()
        self.records = {}
        with open(path, encoding="utf-8") as file:
            self.text = re.sub(r"/\*.*?\*/", " ", file.read(), flags=re.S)
        self.macros = set(re.findall(r"^\s*#\s*define\s+(\w+)", self.text, flags=re.M))
        self.constants |= self.macros

        self.file = None
        tree = subprocess.run(["clang-19", "-std=c11", *INCLUDE, "-x", "c", "-Xclang", "-ast-dump=json",
                               "-fsyntax-only", "-"], input=f"{BEFORE}#include {INCLUSION[path]}\n",
                              stdout=subprocess.PIPE, text=True, check=True).stdout
        self.visit(json.loads(tree))

    def visit(self, node):
        self.move(node.get("loc", {}))
        if self.file == self.path:
            self.note(node)
        self.move(node.get("range", {}))
        for inner in node.get("inner", []):
            self.visit(inner)

    def move(self, location):
        """The dump names a file only where it is another than that of the location before."""
        for key in ("spellingLoc", "expansionLoc", "begin", "end"):
            if key in location:
                self.move(location[key])
        self.file = location.get("file", self.file)

    def note(self, node):
        kind, name = node["kind"], node.get("name")
        if kind == "EnumConstantDecl":
            self.constants.add(name)
        elif kind == "EnumDecl" and name:
            self.enums.add(name)
        elif kind == "TypedefDecl":
            self.types.add(name)
        elif kind == "FunctionDecl":
            self.functions.add(name)
        elif kind == "RecordDecl" and name and node.get("completeDefinition"):
            self.records[f"{node['tagUsed']} {name}"] = dict(self.fields(node, ""))

    def fields(self, record, prefix):
        unnamed = None
        for node in record.get("inner", []):
            if node["kind"] == "RecordDecl":
                unnamed = None if node.get("name") else node
            elif node["kind"] == "FieldDecl":
                path = prefix + node["name"]
                yield path, node["type"]["qualType"]
                if unnamed:
                    yield from self.fields(unnamed, path + ".")
                unnamed = None

    def names(self):
        tags = {record.split()[1] for record in self.records}
        return self.constants | self.enums | self.types | tags

    def field_names(self):
        return {f"{record.split()[1]}.{path}" for record, fields in self.records.items() for path in fields}


own = Declared(OWN)
kernel = Declared(KERNEL)
library = Declared(LIBRARY)  # with what the kernel's, which it includes, has not


def table_program(header):
    """A program that prints every value, size, alignment, offset and type of what kel_sctp.h declares."""
    lines = [f'SHOW({name});' for name in sorted(own.constants - {"KEL_SCTP_H"})
             if (name, header) != (LEVEL, KERNEL)]
    lines += [f'SHOW(sizeof(enum {name}));' for name in sorted(own.enums)]
    lines += [f'SHOW(sizeof({name})); SHOW(TYPE(({name})0));' for name in sorted(own.types | {"sctp_assoc_t"})]
    for record, fields in sorted(own.records.items()):
        lines.append(f'SHOW(sizeof({record})); SHOW(_Alignof({record}));')
        for path, kind in fields.items():
            field = f"(({record} *)0)->{path}" + ("[0]" if kind.endswith("[]") else "")
            lines.append(f'SHOW(offsetof({record}, {path})); SHOW(sizeof({field})); SHOW(TYPE({field}));')
    return (f"{BEFORE}#include {INCLUSION[header]}\n"
            "#define TYPE(x) _Generic((x), unsigned char: 1, unsigned short: 2, unsigned int: 3, int: 4, default: 0)\n"
            '#define SHOW(what) printf("%s = %lld\\n", #what, (long long)(what))\n'
            "int main(void)\n{\n" + "\n".join(lines) + "\nreturn 0;\n}\n")


class AgainstTheSystem(Case):
    def table(self, compiler, header):
        source = self.write("table.c", table_program(header))
        self.compile(*compiler, *INCLUDE, source, "-o", self.path("table"))
        return dict(line.split(" = ") for line in run(self.path("table")).stdout.splitlines())

    def test_every_value_size_alignment_offset_and_type(self):
        for compiler in C_COMPILERS:
            ours = self.table(compiler, OWN)
            for header in (KERNEL, LIBRARY):
                with self.subTest(compiler=compiler[0], header=header):
                    theirs = self.table(compiler, header)
                    self.assertEqual(ours.keys() - theirs.keys(), {LEVEL} if header == KERNEL else set())
                    different = {what: (int(ours[what]), int(value)) for what, value in theirs.items()
                                 if ours[what] != value}
                    self.assertEqual(different, DIFFERENT)

    def test_what_is_a_macro_there_is_one_here(self):
        """Programs ask the preprocessor for a name, whose enumerator it does not see."""
        self.assertLessEqual((kernel.macros | library.macros) & own.constants, own.macros)

    def test_covers_every_word_of_the_header(self):
        words = set(re.findall(r"\b(?:SCTP|SPP|MSG|SOL)_\w+", own.text))
        self.assertLessEqual(words, own.constants)
        self.assertEqual(own.macros - words, {"KEL_SCTP_H"})
        tags = set(re.findall(r"\b(?:struct|union|enum)\s+(\w+)\s*{", own.text))
        self.assertEqual(tags, own.enums | {record.split()[1] for record in own.records})
        fields = {path.split(".")[-1] for record in own.records.values() for path in record}
        self.assertEqual(set(re.findall(r"(\w+)(?:\[\])?;", own.text)) - fields, own.types)
        self.assertEqual(own.functions, set())

    def test_names_that_only_one_has_are_told(self):
        theirs = kernel.names() | library.names() | kernel.field_names() | library.field_names()
        ours = own.names() | own.field_names()
        self.assertEqual(ours - theirs, {"KEL_SCTP_H"})

        missing = {name for name in theirs - ours - {"sctp_assoc_t"}  # kel_socket.h has it
                   if "." not in name or name.split(".")[0] in ours}  # no fields of records that are missing whole
        for reason, pattern in LEFT_OUT.items():
            fitting = {name for name in missing if re.fullmatch(pattern, name)}
            self.assertTrue(fitting, reason)
            missing -= fitting
        self.assertEqual(missing, set())


class InPlaceOfTheSystems(Case):
    def test_both_are_one_clear_error_in_either_order(self):
        text = "kel_sctp.h takes the place of the system's SCTP header: include one of them, not both"
        for header in (KERNEL, LIBRARY):
            own = '"kel_sctp.h"'
            for order, place in ((f"#include {INCLUSION[header]}\n#include {own}\n", "kel_sctp.h:"),
                                 (f"#include {own}\n#include {INCLUSION[header]}\n", f"{INCLUSION[header][1:-1]}:")):
                for compiler in COMPILERS:
                    with self.subTest(order=order, compiler=compiler[0]):
                        suffix = "c" if "c11" in compiler[1] else "cpp"
                        source = self.write("both." + suffix, f"{BEFORE}{order}struct sctp_initmsg used;\n")
                        done = run(*compiler, "-Wall", "-Wextra", "-Wpedantic", *INCLUDE, "-fsyntax-only", source)
                        self.assertNotEqual(done.returncode, 0)
                        self.assertNotIn("warning:", done.stdout)
                        errors = [line for line in done.stdout.splitlines() if " error: " in line]
                        self.assertEqual(len(errors), 1, done.stdout)
                        self.assertIn(text, errors[0])
                        self.assertIn(place, errors[0])

    def test_the_guard_of_either_is_enough(self):
        alone = self.write("guard.c", '#include "kel_sctp.h"\n')
        for guard in ("_SCTP_H", "__linux_sctp_h__"):  # libsctp's header does not include the kernel's everywhere
            done = run(*COMPILERS[0], "-D" + guard, *INCLUDE, "-fsyntax-only", alone)
            self.assertIn("takes the place of", done.stdout, guard)

    def test_includes_none_of_them_and_leaves_the_protocols_number_alone(self):
        self.assertNotIn("IPPROTO_SCTP", own.text)
        for compiler in COMPILERS:
            with self.subTest(compiler=compiler[0]):
                suffix = "c" if "c11" in compiler[1] else "cpp"
                alone = self.write("alone." + suffix,
                                   '#include "kel_sctp.h"\nchar number[IPPROTO_SCTP == 132 ? 1 : -1];\n')
                self.compile(*compiler, *INCLUDE, "-fsyntax-only", alone)
                included = self.compile(*compiler, *INCLUDE, "-M", alone).stdout.split()
                self.assertEqual([name for name in included if name.endswith("sctp.h")], [OWN])

    def test_may_be_included_twice(self):
        for compiler in COMPILERS:
            suffix = "c" if "c11" in compiler[1] else "cpp"
            self.compile(*compiler, "-Werror", *INCLUDE, "-fsyntax-only",
                         self.write("twice." + suffix, '#include "kel_sctp.h"\n#include "kel_sctp.h"\n'))


class Prototypes(Case):
    """kel_prv_sctp.h declares libsctp a second time behind its own header: a difference would be an error."""

    def test_are_the_librarys(self):
        both = self.write("both.c", f'{BEFORE}#include {INCLUSION[LIBRARY]}\n#include "kel_prv_sctp.h"\n')
        for compiler in C_COMPILERS:
            self.compile(*compiler, *INCLUDE, *PRIVATE, "-fsyntax-only", both)

        compared = set(re.findall(r"redundant redeclaration of .(sctp_\w+).",
                                  run("gcc-12", "-std=c11", "-Wredundant-decls", *INCLUDE, *PRIVATE, "-fsyntax-only",
                                      both).stdout))
        with open(os.path.join(SOURCE, "platform/kel/socket/kel_prv_sctp.h"), encoding="ascii") as file:
            declared = set(re.findall(r"^\w+ (sctp_\w+)\(", file.read(), flags=re.M))
        self.assertEqual(compared, declared)
        self.assertEqual(declared, {name for name in CALLED if name.startswith("sctp_")})
        self.assertLessEqual(declared, library.functions)


if __name__ == "__main__":
    unittest.main()
