#!/usr/bin/python3
"""The pages of docs/platform are true: their programs are built, their commands run, their tables compared.

A block of a page that is marked "console" has commands behind "$ " and what they print; "..." stands for any lines,
and the numbers of lines in the module's source and the folders of libraries are left out of the comparison. A block
behind a line such as "`early.c`:" is the file of that name. Run by CTest with SOURCE, the libraries SHARED and HOST,
and the compiler CC in the environment.
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

SOURCE = os.environ["SOURCE"]
sys.path.insert(0, os.path.join(SOURCE, "tools"))
import machine  # noqa: E402

PAGES = os.path.join(SOURCE, "docs/platform")
HERE = os.path.join(SOURCE, "tests/platform")
SHARED = os.environ["SHARED"]
LIBRARIES = [os.path.dirname(SHARED), os.path.dirname(os.environ["HOST"])]
INSTALLED = {  # as if everything were installed
    **{key: value for key, value in os.environ.items() if not key.startswith("KEL_")},
    "C_INCLUDE_PATH": os.path.join(SOURCE, "platform/include"), "LIBRARY_PATH": ":".join(LIBRARIES),
    "LD_LIBRARY_PATH": LIBRARIES[0], "LC_ALL": "C"}
STRICT = ["-std=gnu11", "-Wall", "-Wextra", "-Wpedantic", "-Werror"]


def text_of(page):
    with open(os.path.join(PAGES, page), encoding="utf-8") as file:
        return file.read()


def masked(text):
    """Without what differs from build to build."""
    text = re.sub(r"\033\[[\d;]*m|\r", "", text)
    text = re.sub("|".join(re.escape(folder + "/") for folder in LIBRARIES), "", text)
    text = re.sub(r"(kel_socket\.cpp:|\b(?:__)?(?:kel|sctp)_\w+\.)\d+", r"\1LINE", text)
    return [line.rstrip() for line in text.splitlines()]


def agree(expected, found):
    """Whether lines are those of a page, where "..." stands for any number of them."""
    if not expected:
        return not found
    if expected[0] == "...":
        return any(agree(expected[1:], found[skipped:]) for skipped in range(len(found) + 1))
    return bool(found) and expected[0] == found[0] and agree(expected[1:], found[1:])


class Case(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def run_here(self, *command, **options):
        return subprocess.run(command, cwd=self.folder, env=INSTALLED, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, check=False, **options)

    def compile(self, *arguments):
        done = self.run_here(os.environ["CC"], *STRICT, *arguments)
        self.assertEqual(done.returncode, 0, done.stdout)


class Pages(Case):
    def follow(self, page):
        """Does what a page shows, from above to below, in a folder with the examples."""
        shutil.copytree(os.path.join(SOURCE, "examples"), self.folder, dirs_exist_ok=True)
        commands = 0
        for name, kind, block in re.findall(r"(?:^`([\w.]+)`:\n\n)?^```(\w*)\n(.*?)^```$", text_of(page), re.M | re.S):
            if name:
                with open(os.path.join(self.folder, name), "w", encoding="utf-8") as file:
                    file.write(block)
            for part in re.split(r"^\$ ", block, flags=re.M)[1:] if kind == "console" else ():
                command, _, output = part.partition("\n")
                found = self.run_here("sh", "-c", command, timeout=machine.patience(60)).stdout
                with self.subTest(page=page, command=command):
                    self.assertTrue(agree(masked(output), masked(found)),
                                    f"the page shows\n{output}\nand it is\n{found}")
                commands += 1
        self.assertGreater(commands, 0)

    def test_the_whole_platform(self):
        self.follow("README.md")

    def test_linking(self):
        self.follow("linking.md")

    def test_start_up(self):
        self.follow("start-up.md")

    def test_services(self):
        self.follow("services.md")

    def test_index_names_every_page(self):
        named = set(re.findall(r"\]\(([\w-]+\.md)\)", text_of("README.md")))
        self.assertEqual(named, set(os.listdir(PAGES)) - {"README.md"})

    def test_files_that_are_linked_are_there(self):
        for page in os.listdir(PAGES):
            for link in re.findall(r"\]\(([^)#:]+)\)", text_of(page)):
                self.assertTrue(os.path.exists(os.path.join(PAGES, link)), f"{page} links {link}")


class Example(Case):
    def test_is_free_of_warnings_and_needs_no_stand_in(self):
        example = os.path.join(SOURCE, "examples/platform.c")
        self.compile("-std=c11", example, "-Wl,--gc-sections", "-l:libkel_socket.a", "-o", "static")
        self.compile("-std=c11", example, "-lkel_socket", "-o", "shared")
        self.assertEqual(*(self.run_here(f"./{program}").stdout for program in ("static", "shared")))


class Record(Case):
    def test_layout_is_that_of_the_table(self):
        rows = re.findall(r"^\| (\d+) \| (\d+) \| `(\w+)` \|", text_of("start-up.md"), re.M)
        self.assertEqual(len(rows), 10)
        size = re.search(r"takes (\d+) bytes", text_of("start-up.md"))[1]
        checks = "".join(f'_Static_assert(offsetof(kel_module_t, {name}) == {offset}, "{name}");\n'
                         f'_Static_assert(sizeof(((kel_module_t *)0)->{name}) == {length}, "{name}");\n'
                         for offset, length, name in rows)
        with open(os.path.join(self.folder, "layout.c"), "w", encoding="ascii") as file:
            file.write(f'#include <kel/kel_module.h>\n{checks}_Static_assert(sizeof(kel_module_t) == {size}, "");\n')
        self.compile("-fsyntax-only", "layout.c")


class FilterKeys(unittest.TestCase):
    def test_names_of_the_modules_own_functions_are_listed(self):
        with open(os.path.join(SOURCE, "platform/kel/socket/kel_socket.cpp"), encoding="utf-8") as file:
            found = re.findall(r"^\w[^\n;=]*?\b(\w+)\(|\b(?:kel_perror|NULL_CHECK\w*)\(", file.read(), re.M)
        reporting = {function for function, following in zip(found, found[1:]) if function and not following}
        self.assertIn("kel_connect", reporting)
        own = {name for name in reporting if name.startswith("__")}
        self.assertEqual(set(re.findall(r"`(__\w+)`", text_of("services.md"))), own)


class Errno(Case):
    """What is seen of a service that leaves another errno behind, one service after the other."""

    def test_matters_where_the_table_says_so(self):
        rows = re.findall(r"^\| `(\w+)` \| (.*?) \| (.*?) \| (.*?) \|$", text_of("services.md"), re.M)
        self.assertEqual(len(rows), 13)
        wrapped = [f"-Wl,--wrap={row[0]}" for row in rows]
        self.compile(os.path.join(HERE, "errno.c"), *wrapped, "-l:libkel_socket.a", "-lkel_host", "-lsctp",
                     "-ltcmalloc_minimal", "-o", "errno")
        plain = self.calls("none")
        for service, *expected in rows:
            first = second = left = False
            for (reports, errno), (plain_reports, plain_errno) in zip(self.calls(service), plain):
                self.assertEqual(len(reports), len(plain_reports))
                first |= reports[:1] != plain_reports[:1]
                second |= reports[1:] != plain_reports[1:]
                left |= errno != plain_errno
            with self.subTest(service=service):
                self.assertEqual(expected, ["other" if seen else "the call's" for seen in (first, second, left)])

    def calls(self, service):
        """The reports of each call and the errno behind it, where a system call has failed: of a text that is no
        address none says anything."""
        said = self.run_here("./errno", service).stdout
        found = re.findall(r"(.*?)\n(\w+)\(([^\n]*)\) = -1, errno (\d+)\n", said, re.S)
        self.assertEqual(len(found), 14)
        return [(re.findall(r"\033\[1;31m(.*?)\033", reports, re.S), errno)
                for reports, _, arguments, errno in found if "localhost" not in arguments and "wrong" not in arguments]


if __name__ == "__main__":
    unittest.main()
