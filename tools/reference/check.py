"""What the reference lacks, and what it describes that is not there."""

import errno
import glob
import os
import re
import subprocess
import tempfile

import pages
from troff import escaped

# Where variables of the environment are read, by the page that describes them; kelcat has the stand-ins within.
READERS = {
    "man7/kel_host.7": ["host/*.cpp"],
    "man1/kelcat.1": ["tools/kelcat/*.cpp", "host/*.cpp"],
    "man1/kel-guest.1": ["tools/guest/guest"],
}

OF_OTHERS = {  # errors that a page names, and that its functions do not leave
    ("kel_sctp_client_one2one_create", "ESOCKTNOSUPPORT"): "what is said of a kernel without SCTP is said of all",
    ("kel_addr_fill", "EINVAL"): "the call that gets the record refuses it",
    ("kel_udp_client_socket_create", "EINVAL"): "the server's record is not bound, and the local bind is not reported",
}

COMPLETIONS = {  # the line up to the cursor, and what stands there then
    "kelcat": [],
    "kelcat t": ["tcp:", "tcp-listen:"],
    "kelcat packet:l": ["lo"],
    "kelcat unix-dgram:tools/refer": ["tools/reference"],
    "kelcat tcp:127.0.0.1:9 --se": ["--send-only"],
    "kelcat tcp-listen:9 --ti": [],
    "kelcat tcp:h:9 --ti": ["--timeout"],
    "kelcat udp:h:9 --streams ": [],
    "kelcat sctp:h:9 --str": ["--streams"],
    "kelcat --ra": ["--rate", "--raw"],
    "kelcat unix-dgram:/x --local tools/refer": ["tools/reference"],
}


def read(path):
    return open(path, encoding="utf-8").read()


def differences(there, described, what):
    for name in sorted(set(there) - set(described)):
        yield f"{what} {name} has no place in the reference"
    for name in sorted(set(described) - set(there)):
        yield f"{what} {name} is described, and is not there"


# ---- Functions and their arguments ----------------------------------------------------------------------------------


def faults_of_functions(headers):
    exports = re.findall(r"^ +(\w+);", read("platform/kel/socket/kel_socket.map"), re.M)
    described = [name for page in headers[0].pages for name in page.names]
    yield from differences(exports, described, "the export")
    for header in headers:
        code = re.sub(r"/\*.*?\*/|^ *#(?:[^\n]*\\\n)*[^\n]*", "", read(header.path), flags=re.S | re.M)
        declared = re.findall(r"^(?!typedef|static)\w[\w *]*?(\w+)\([^;{]*\)(?: *__attr[^;]*)?;", code, re.M)
        declared += [name for name in re.findall(r"^#define (\w+)\(", read(header.path), re.M) if name[0] != "_"]
        functions = [function for page in header.pages for function in page.functions]
        pages = [function.name for function in functions if function.arguments is not None]
        yield from differences(declared, pages, f"{header.path}: the function")
        for page in header.pages:
            names = {name for function in page.functions for name in function.names}
            yield from differences(names, page.arguments, f"{header.path}: {page.names[0]}: the argument")
            types = {function.type.strip() for function in page.functions if function.arguments is not None}
            if types - {"", "void"} and not page.returns and "_create" not in page.names[0]:
                yield f"{header.path}: {page.names[0]}: the result has no description"


def faults_of_subjects(headers):
    """What the head of kel_socket.h and its divisions say for others reaches a page, and nothing else is awaited."""
    header = headers[0]
    blocks = header.head[2:] + [block for division in header.divisions for block in division.blocks]
    topics = {label: place for label, _, place, _ in pages.topics_of(blocks)}
    reached = {label for page in header.pages for common in page.common.values() for label, _ in common}
    for label, place in topics.items():
        if isinstance(place, list) and all(any(page.takes(name) for page in header.pages) for name in place):
            reached.add(label)
    wanted = set(topics) | {block.partition(": ")[0] for block in header.head[2:]}
    yield from (f"{header.path}: no page is told of: {label}" for label in sorted(wanted - reached))
    yield from (f"no comment speaks of: {label}" for label in pages.CONCERNS if label not in topics)


def faults_of_services(headers):
    table = re.findall(r"^\| (`[^|]*) \|", read("host/README.md"), re.M)
    services = [function.name for header in headers[1:4] for page in header.pages for function in page.functions
                if not function.is_macro]
    yield from differences(services + ["_kel_print_lv"], re.findall(r"`(\w+)`", " ".join(table)), "the service")


# ---- Reports --------------------------------------------------------------------------------------------------------


def quoted(text):
    return set(re.findall(r'"([^"]*)"', text))


def faults_of_reports(headers):
    """The texts under "Reported", with those of the functions that it refers to, against tests/behaviour."""
    pages = {name: page for page in headers[0].pages for name in page.names}
    for page in headers[0].pages:
        said, others = quoted(page.reported), re.findall(r"what ((?:\w+\(\)(?:,| and)? ?)+)reports?", page.reported)
        taken = [name for group in others for name in re.findall(r"\w+", group) if name in pages]
        borrowed = {text for name in taken for text in pages[name].reports}
        for text in sorted(set(page.reports) - said - borrowed):
            yield f"{page.names[0]}: the report \"{text}\" is not in its comment"
        for text in sorted(said - set(page.reports)):
            yield f"{page.names[0]}: the report \"{text}\" is in its comment, and is never made"
    source = read("platform/kel/socket/kel_socket.cpp")
    printed = re.findall(r'\bKEL_Printf\("([^"]*)"', source)
    comments = " ".join(page.returns + page.reported for page in headers[0].pages)
    yield from (f'the console line "{text}" is in no comment' for text in printed if text not in comments)


def faults_of_errors(headers):
    """The errors that a page's words name, against its list."""
    exceptions = set(OF_OTHERS)
    for page in headers[0].pages:
        common = [text for texts in page.common.values() for _, text in texts]
        words = " ".join([*page.paragraphs, *page.arguments.values(), page.returns, page.reported, *common])
        for error in sorted(set(re.findall(r"\bE[A-Z]+\b", words)) & set(errno.errorcode.values()) - set(page.errors)):
            if (page.names[0], error) not in OF_OTHERS:
                yield f"{page.names[0]}: the error {error} is named and not listed"
            exceptions -= {(page.names[0], error)}
    yield from (f"{name}: the error {error} needs no exception" for name, error in sorted(exceptions))


def faults_of_recipes(headers):
    there = {os.path.basename(path).removesuffix(".md") for path in glob.glob("docs/recipes/*.md")} - {"README"}
    named = {recipe for header in headers for page in header.pages for recipe in page.recipes}
    named |= set(re.findall(r"Recipe: ([\w-]+)", read("platform/include/kel_sctp.h")))
    yield from differences(there, named, "the recipe")


# ---- What the pages say of options and of the environment -----------------------------------------------------------


def faults_of_options(folder):
    table = set(re.findall(r'^ +\{"([\w-]+)",', read("tools/kelcat/options.cpp"), re.M))
    page = read(f"{folder}/man/man1/kelcat.1").replace("\\-", "-").partition(".SH OPTIONS")[2].partition(".SH")[0]
    yield from differences(table, re.findall(r"^\.BI? .*--([\w-]+)", page, re.M), "kelcat: the option")
    completed = re.findall(r"^(?:.*')?--([\w-]+)", read(f"{folder}/kelcat").partition("<<<")[2], re.M)
    yield from differences(table, completed, "completion of kelcat: the option")
    guest = re.findall(r'add_argument\(\s*"--([\w-]+)"', read("tools/guest/guest"))
    page = read(f"{folder}/man/man1/kel-guest.1").replace("\\-", "-").partition(".SH OPTIONS")[2].partition(".SH")[0]
    yield from differences([*guest, "help"], re.findall(r"^\.B .*--([\w-]+)", page, re.M), "kel-guest: the option")


def faults_of_environment(folder):
    for page, readers in READERS.items():
        code = "".join(read(path) for reader in readers for path in glob.glob(reader))
        there = re.findall(r'(?:getenv\(|environ\.get\(|environ\[)"(\w+)"', code)
        text = read(f"{folder}/man/{page}")
        section = re.search(r"^\.SH ENVIRONMENT\n(.*?)(?=^\.SH )", text, re.M | re.S)
        described = re.findall(r"^\.B (\w+)", section[1], re.M) if section else []
        yield from differences(there, described, f"{page}: the variable")


def faults_of_completion(folder):
    for line, expected in COMPLETIONS.items():
        script = 'source "$1"; COMP_LINE=$2 COMP_POINT=${#2}; _kelcat; printf "%s\\n" "${COMPREPLY[@]}"'
        done = subprocess.run(["bash", "-c", script, "bash", f"{folder}/kelcat", line], capture_output=True, text=True)
        if done.stdout.split() != expected or done.stderr:
            yield f"completion: \"{line}\" becomes {done.stdout.split()}, not {expected} {done.stderr}"


# ---- The pages as the typesetter sees them --------------------------------------------------------------------------


def faults_of_pages(folder):
    commands = re.findall(r"^```\w*\n(.*?)\n```", read("host/README.md"), re.M | re.S)
    page = read(f"{folder}/man/man7/kel_host.7")
    yield from (f"kel_host(7) lacks these lines:\n{lines}" for lines in commands if escaped(f"\n{lines}\n") not in page)
    paths = sorted(os.path.relpath(path, f"{folder}/man") for path in glob.glob(f"{folder}/man/man*/*"))
    texts = {path: read(f"{folder}/man/{path}") for path in paths}
    links = {path: text.split()[1] for path, text in texts.items() if text.startswith(".so ")}
    yield from (f"{path} leads to {to}, which is not there" for path, to in links.items() if to not in texts)
    own = [f"{folder}/man/{path}" for path in paths if path not in links]
    lint = subprocess.run(["mandoc", "-Tlint", "-Wwarning", *own], capture_output=True, text=True)
    yield from lint.stdout.splitlines()
    shown = subprocess.run(["mandoc", "-Tutf8", "-Owidth=80", *own], capture_output=True, text=True).stdout
    sources = {path: text for path, text in texts.items() if text.startswith(".TH")}
    for where, lines in {"as it is shown": shown, **sources}.items():
        yield from (f"{where}: longer than 80 columns: {line}" for line in re.sub(".\b", "", lines).splitlines()
                    if len(line) > 80)
    for path, text in texts.items():
        for name, section in re.findall(r"^\.BR (kel\S*|host_\w+) \(?(\d)", text, re.M):
            if f"man{section}/{name}.{section}" not in texts:
                yield f"{path} refers to {name}({section}), which has no page"


def faults(headers, make):
    with tempfile.TemporaryDirectory() as folder:
        make(folder)
        yield from faults_of_functions(headers)
        yield from faults_of_subjects(headers)
        yield from faults_of_services(headers)
        yield from faults_of_reports(headers)
        yield from faults_of_errors(headers)
        yield from faults_of_recipes(headers)
        yield from faults_of_options(folder)
        yield from faults_of_environment(folder)
        yield from faults_of_completion(folder)
        yield from faults_of_pages(folder)
