#!/usr/bin/python3
"""The programs of examples/ do what the pages of docs/ show of them.

examples_test.py PROGRAMS [--root]: a page shows sessions of a shell in blocks of "console". Their commands run as they
stand, in one shell for a page, where every program is at hand as ./NAME, and what they print has to be what the page
says. Sessions at the prompt "#" want root, in a network of their own, and run with --root alone; those at the prompt
"$" run without it, together with what can be read off the files. Blocks of "c" are lines of one of the page's programs.

In what is compared, colours are left out, a report that follows another begins a line, and LINE stands for the numbers
of lines.
"""

import difflib
import os
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
RECIPES = ROOT / "docs/recipes"
sys.path.insert(0, str(ROOT / "tools"))
import machine  # noqa: E402

PROGRAMS = pathlib.Path(sys.argv[1]).resolve()
AS_ROOT = "--root" in sys.argv

# The page on which the output of a program stands that is no recipe, or the folder of the tests that run it.
PAGES = {
    "connect_in_time": "docs/guide/left-out.md",
    "multihomed_client": "docs/guide/sctp.md",
    "multihomed_server": "docs/guide/sctp.md",
    "plain_calls": "docs/guide/plain-calls.md",
    "reports": "docs/guide/reports.md",
    "sctp_notifications": "docs/guide/sctp.md",
}
ELSEWHERE = {
    "echo_client": "tests/readme",
    "echo_server": "tests/readme",
    "fake_c_test": "tests/fake",
    "fake_gmock_test": "tests/fake",
    "platform": "tests/platform",
    "plugin": "tests/platform",
    "plugin_program": "tests/platform",
}


def programs(folder):
    return {file.stem: file for file in (ROOT / folder).iterdir() if file.suffix in (".c", ".cpp")}


RECIPE_PROGRAMS = programs("examples/recipes")
OTHER_PROGRAMS = programs("examples")
RECIPE_PAGES = sorted(page for page in RECIPES.glob("*.md") if page.stem != "README")
PLAYED_PAGES = sorted({*RECIPE_PAGES, *(ROOT / page for page in PAGES.values())})


def programs_of(page):
    """The sources of the programs whose output stands on a page."""
    others = [file for name, file in OTHER_PROGRAMS.items() if PAGES.get(name) == str(page.relative_to(ROOT))]
    return [file for name, file in RECIPE_PROGRAMS.items() if page == RECIPES / f"{name}.md"] + others


def blocks(page, *languages):
    """The blocks of a page that are in one of the languages."""
    found = re.findall(r"(?ms)^```(\w*)\n(.*?)^```$", page.read_text())
    return [text for language, text in found if language in languages]


def session(page, prompt):
    """What a page shows at a prompt."""
    return "".join(block for block in blocks(page, "console") if block.startswith(prompt))


def as_shown(printed):
    """What a page shows of what was printed."""
    printed = printed.replace("\r", "").replace("\033[m\033[1;31m", "\n\033[1;31m")
    printed = re.sub(r"\033\[1;31m(\w+)\.\d+:", r"\1.LINE:", printed)
    printed = re.sub(r"(kel_socket\.cpp):\d+", r"\1:LINE", printed)
    return re.sub(r"\033\[[\d;]*m", "", printed)


def played(shown, prompt, network):
    """The session with what its commands print now; a command that fails and files that are left are told behind it."""
    commands = [line.removeprefix(prompt) for line in shown.splitlines() if line.startswith(prompt)]
    script = "".join(f"echo {shlex.quote(prompt + command)}\n{command}\n[ $? -eq 0 ] || echo it failed\n"
                     for command in commands)
    with tempfile.TemporaryDirectory(prefix="examples-") as folder:
        for program in PROGRAMS.iterdir():
            os.symlink(program, f"{folder}/{program.name}")
        run = subprocess.run([*network, "timeout", str(machine.patience(30)), "stdbuf", "-oL", "bash", "-c", script],
                             cwd=folder, env={**os.environ, "LC_ALL": "C", "KEL_HOST_LOG": "/dev/null"},
                             stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        left = [f"left behind: {entry.name}\n" for entry in os.scandir(folder) if not entry.is_symlink()]
    ended = ["ended after all patience\n"] if run.returncode == 124 else []
    return as_shown(run.stdout.decode()) + "".join(ended + left)


class Sessions(unittest.TestCase):
    def test_programs_print_what_their_page_shows(self):
        prompt = "# " if AS_ROOT else "$ "
        network = [] if AS_ROOT else machine.own_network() or []
        pages = [page for page in PLAYED_PAGES if session(page, prompt)]
        self.assertGreater(len(pages), 0)
        for page in pages:
            with self.subTest(page=str(page.relative_to(ROOT))):
                shown = session(page, prompt)
                now = played(shown, prompt, network)
                lines = difflib.unified_diff(shown.splitlines(), now.splitlines(), "page", "programs", lineterm="")
                if shown != now:
                    self.fail("\n".join(["what is printed is not what the page says", *lines]))


class Files(unittest.TestCase):
    maxDiff = None

    def test_every_program_is_built_and_run(self):
        self.assertEqual(OTHER_PROGRAMS.keys(), PAGES.keys() | ELSEWHERE.keys())
        for page in PLAYED_PAGES:
            commands = re.findall(r"(?m)^[$#] .*", "".join(blocks(page, "console")))
            for program in programs_of(page):
                with self.subTest(page=page.name, program=program.name):
                    self.assertTrue((PROGRAMS / program.stem).exists(), "it is not built")
                    self.assertRegex("\n".join(commands), rf"\./{program.stem}\b")

    def test_every_recipe_has_a_page_and_a_line_in_the_index(self):
        self.assertEqual([page.stem for page in RECIPE_PAGES], sorted(RECIPE_PROGRAMS))
        index = re.findall(r"(?m)^- \[.*?\]\((.*?)\.md\)", (RECIPES / "README.md").read_text())
        self.assertEqual(sorted(index), sorted(RECIPE_PROGRAMS))

    def test_quoted_lines_are_those_of_a_program(self):
        for page in PLAYED_PAGES:
            sources = ["\n" + program.read_text() for program in programs_of(page)]
            for block in blocks(page, "c", "cpp"):
                with self.subTest(page=page.name):
                    self.assertTrue(any(f"\n{block}" in source for source in sources), f"in no program:\n{block}")

    def test_what_a_recipe_refers_to_is_there(self):
        known = {"kel_err_print", *re.findall(r"\bkel_\w+", (ROOT / "platform/kel/socket/kel_socket.map").read_text())}
        for page in [*RECIPE_PAGES, RECIPES / "README.md"]:
            with self.subTest(page=page.name):
                text = page.read_text()
                self.assertEqual([name for name in re.findall(r"\b(kel_\w+)\(", text) if name not in known], [])
                self.assertEqual([link for link in re.findall(r"\]\(([^):#]+)", text)
                                  if not (page.parent / link).exists()], [])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], defaultTest="Sessions" if AS_ROOT else None, verbosity=0)
