"""Writes manual pages from the comments: one for each doc comment, and those of sections 1 and 7."""

import glob
import os
import re
import textwrap

import facts
from comments import Node, blocks_of, definitions, one_line, read, without_marks

OVERVIEW = {"host.h": "kel_host", "kel_socket_fake.h": "kel_socket_fake"}
LIBRARY = {
    "kel_socket.h": "The socket module (libkel_socket, -lkel_socket; pkg-config kel_socket)",
    "host.h": "The stand-in platform (libkel_host, -lkel_host; pkg-config kel_host)",
    "kel_socket_fake.h": "The fake of the socket module "
    "(libkel_socket_fake, -lkel_socket_fake; pkg-config kel_socket_fake)",
}
SERVICE = "Supplied by the platform; the stand-in platform (libkel_host, -lkel_host; pkg-config kel_host) has it, too"
SECTION = {"inet_pton": 3, "inet_ntop": 3, "if_nametoindex": 3, "tc_malloc": None}  # others: 3 of libsctp, else 2

# The pages that a paragraph of the header's head concerns, by its opening word, and its section there. One that opens
# with names of arguments goes to these.
WAITING = {"accept", "connect", "recv", "recvfrom", "send", "sendto", "sctp_connectx", "sctp_send", "sctp_sendmsg",
           "sctp_recvmsg"}
CONCERNS = {
    "Numbers": ("NOTES", lambda page: page.takes("sockfd", "flags", "level", "maxClient", "domain")),
    "Byte order": ("NOTES", lambda page: "kel_sockaddr_t" in page.text or page.takes("port", "s_port")),
    "Unwritten records": ("NOTES", lambda page: page.takes("src_addr") or page.names[0] in UNWRITTEN),
    "Descriptors": ("NOTES", lambda page: "descriptor" in page.returns or "_create" in page.names[0]),
    "Constructors": ("RETURN VALUE", lambda page: "_create" in page.names[0] and not page.returns),
    "Steps": ("DIAGNOSTICS", lambda page: "_create" in page.names[0]),
    "Null pointers": ("DIAGNOSTICS", lambda page: "is null" in page.told),
    "Reports": ("DIAGNOSTICS", lambda page: page.told),
    "Failures": ("ERRORS", lambda page: page.errors or page.told),
    "Failures without a call": ("ERRORS", lambda page: page.takes("addrStr", "s_addrStr") or "is null" in page.told),
    "Blocking": ("NOTES", lambda page: WAITING & set(page.calls)),
    "Lists of addresses": ("NOTES", lambda page: page.takes("addrcnt", "s_addrcnt")),
    "A kernel without SCTP": ("NOTES", lambda page: "_create" in page.names[0]),
    "Memory": ("NOTES", lambda page: True),
    "Threads": ("NOTES", lambda page: True),
}
UNWRITTEN = ("kel_accept", "kel_getpeername", "kel_getsockname")


# ---- Text as the typesetter reads it ----------------------------------------------------------------------------------


def escaped(text):
    text = text.replace("\\", "\\e")
    return re.sub(r"(?<![\w-])-[\w=,-]+", lambda word: word[0].replace("-", "\\-"), text)


def marked(text):
    """With functions in bold, and no line that breaks at the edge of a quotation."""
    text = re.sub(r'"( *)(.*?)( *)"', lambda quote: '"' + quote[1].replace(" ", "\\ ") + quote[2]
                  + quote[3].replace(" ", "\\ ") + '"', escaped(text))
    text = re.sub(r"\b(\w+)(\(\d?\))(?!\w)", r"\\fB\1\\fP\2", text)
    return text.replace("`", "")


def filled(text):
    lines = textwrap.wrap(text, 78, break_long_words=False, break_on_hyphens=False)
    return [("\\&" if line[0] in ".'" else "") + line for line in lines]


def paragraph(text):
    if text.startswith(" ") and max(map(len, text.split("\n"))) > 76:
        return table(text)
    if text.startswith(" "):
        return [".PP", ".nf", *escaped(textwrap.dedent(text)).split("\n"), ".fi"]
    return [".PP", *filled(marked(text))]


def table(text):
    """One that is too wide: each row an item."""
    titles, *rows = [re.split(r"  +", line.strip()) for line in text.split("\n")]
    return [line for row in rows for line in item(f'.B "{escaped(row[0])}"', "; ".join(
        f"{title}: {cell}" for title, cell in zip(titles[1:], row[1:])) + ".")]


def item(tag, text):
    return [".TP", tag, *filled(marked(text))]


def capital(text):
    return text[:1].upper() + text[1:]


def sentence(text, names=()):
    """Begins with a capital, but not a name."""
    return (text if re.match(r"\w*", text)[0] in names else capital(text)) + ("" if not text or text.endswith((".", ":")) else ".")


def prototype(function):
    """Broken behind commas where it is too long, with the arguments' names in italics."""
    if function.arguments is None:
        return [f'.B "{function.text};"']
    head = f"{function.type}{function.name}("
    longest = max(map(len, function.arguments), default=0)
    indent = " " * (len(head) if len(head) + longest < 72 else 8)
    lines, now = [], head
    for i, one in enumerate(function.arguments or ["void"]):
        one += ")" if i + 1 >= len(function.arguments) else ","
        if now.strip() and len(now) + len(one) > 71:
            lines.append(now.rstrip())
            now = indent
        now += one + " "
    lines.append(now.rstrip() + ";" * (not function.is_macro))
    made = []
    for line in lines:
        parts = [line]
        if function.arguments:
            parts = re.split(r"(\b(?:%s)\b)(?=[,)\[])" % "|".join(map(re.escape, function.names)), line)
        made.append((".BI " if len(parts) > 1 else ".B ") + " ".join(f'"{escaped(part)}"' if " " in part or not part
                                                                    else escaped(part) for part in parts if part))
    return made


def short(lines):
    """With lines of macros that are too long in the source broken by the typesetter's own sign."""
    for line in lines:
        while len(line) > 80:
            cut = line.rfind(" ", 0, 79)
            yield line[:cut] + " \\"
            line = line[cut + 1:]
        yield line


class Writer:
    """Collects sections, and puts them together in the order of the system's pages."""
    ORDER = ["NAME", "LIBRARY", "SYNOPSIS", "DESCRIPTION", "ARGUMENTS", "RETURN VALUE", "ERRORS", "DIAGNOSTICS", "NOTES",
             "EXAMPLES", "SEE ALSO"]  # others between the last two but one

    def __init__(self, name, section, version, date):
        self.sections, self.head = {}, f'.TH {name} {section} {date} "kel_socket {version}"'

    def add(self, section, lines):
        body = self.sections.setdefault(section, [])
        follows_title = body and body[-1].startswith(".SS") and lines[:1] == [".PP"]
        body.extend(lines[1:] if follows_title else lines)

    def text(self):
        lines = [self.head]
        for name in sorted(self.sections, key=lambda name: self.ORDER.index(name) if name in self.ORDER else 8.5):
            body = self.sections[name]
            body = body[1:] if body[:1] == [".PP"] else body
            lines += [f'.SH "{name}"' if " " in name else f".SH {name}", *body] if body else []
        return "\n".join(lines) + "\n"


# ---- A page of a doc comment -------------------------------------------------------------------------------------------


def prepare(page):
    """What a page has beside its comment: the calls behind its functions, errors, reports, and what others say for it."""
    known = [name for name in page.names if name in facts.ways.FUNCTIONS]
    page.calls = list(dict.fromkeys(call for name in known for call in facts.calls(name)))
    page.errors, page.reports, page.asserts = {}, {}, False
    for name in known:
        for error, calls in facts.errors(name).items():
            page.errors.setdefault(error, []).extend(call for call in calls if call not in page.errors[error])
        reports, asserts = facts.reports(name)
        page.asserts |= asserts
        for (text, function), steps in reports.items():
            page.reports.setdefault(text, {}).setdefault(function, []).extend(steps)
    page.told = " ".join(page.reports)
    page.text = " ".join(function.text for function in page.functions)
    page.takes = lambda *names: any(name in function.names for function in page.functions for name in names)
    page.common = {}
    for label, text, place, recipes in topics_of(page.division.blocks + page.header.head):
        if isinstance(place, list):
            concerned = [name for name in place if page.takes(name)]
            for name in concerned:
                own = page.arguments.get(name)
                page.arguments[name] = f"{sentence(own, page.arguments)} {sentence(text)}" if own else text
        elif concerned := place[1](page):
            page.common.setdefault(place[0], []).append((label, text))
        page.recipes += recipes if concerned else []


def topics_of(blocks):
    """The labelled paragraphs of a head or a division: label, text, where it belongs, recipes."""
    for block in blocks:
        label, colon, text = block.partition(": ")
        names, marks = label.split(", "), Node(sources=[], recipes=[])
        text = without_marks(text, marks)
        if label in CONCERNS:
            yield label, text, CONCERNS[label], marks.recipes
        elif colon and all(re.fullmatch(r"[a-z]\w*", name) for name in names):
            yield label, text, names, marks.recipes


def function_page(page, version, date):
    header, overview = os.path.basename(page.header.path), OVERVIEW.get(os.path.basename(page.header.path), "kel_socket")
    made = Writer(page.names[0], 3, version, date)
    brief = page.brief[:1].lower() + page.brief[1:]
    made.add("NAME", filled(f"{', '.join(page.names)} \\- {marked(brief)}"))
    made.add("LIBRARY", filled(marked(LIBRARY.get(header, SERVICE))))
    include = "kel_sctp.h" if page.division.title == "SCTP" else header
    made.add("SYNOPSIS", [".nf", f".B #include <kel/{include}>"])
    for function in page.functions:
        made.add("SYNOPSIS", [".PP", *short(prototype(function))])
    made.add("SYNOPSIS", [".fi"])
    rules = [block for block in page.division.blocks if not list(topics_of([block]))]
    for text in [page.brief, *page.paragraphs, page.division.rule, *rules]:
        made.add("DESCRIPTION", paragraph(text if text.startswith(" ") else sentence(text)) if text else [])
    for name in dict.fromkeys(name for function in page.functions for name in function.names):
        made.add("ARGUMENTS", item(f".I {name}", sentence(page.arguments.get(name, ""), page.arguments)))
    if page.returns:
        made.add("RETURN VALUE", paragraph(sentence(page.returns, page.arguments)))
    if page.reports or page.asserts:
        add_diagnostics(made, page)
    for section, common in page.common.items():
        for label, text in common:
            made.add(section, item(f".B {label}", sentence(text)) if section == "NOTES" else
                     paragraph(f"{label}: {text}"))
    if page.errors:
        made.add("ERRORS", paragraph("What tests have brought the calls behind it to, with the system's words:"))
        for error, calls in page.errors.items():
            made.add("ERRORS", item(f'.BR {error} " ({", ".join(calls)})"', os.strerror(getattr(facts.errno, error)) + "."))
    add_examples(made, page)
    add_sources(made, page, overview)
    return made.text()


def add_diagnostics(made, page):
    remarks = re.sub(r'Reported|"[^"]*"|\band\b|what [\w(), ]+ reports?\b', "", page.reported)
    if re.search(r"\w", remarks):
        made.add("DIAGNOSTICS", paragraph(page.reported))
    for text, functions in page.reports.items():
        told = {}
        for function, steps in functions.items():
            told.setdefault(whence(steps), []).append(f"{function}()")
        made.add("DIAGNOSTICS", item('.B "\\(dq%s\\(dq"' % escaped(text), " ".join(
            f"By {'each' if len(names) == len(page.names) > 1 else ' or '.join(names)}{when}."
            for when, names in told.items())))
    if page.asserts:
        made.add("DIAGNOSTICS", paragraph("For a text that is no address kel_addr_fill() calls the assertion handler, "
                                          "KEL_ASSERT_X(3)."))


def whence(steps):
    """What comes before a report: calls that fail, or else the condition."""
    calls = [step for step in dict.fromkeys(steps) if step in facts.ERRORS]
    condition = min((step for step in steps if " is " in step), key=len, default="")
    if calls:
        return f", when {' or '.join(calls)} fails"
    return f", if {condition}" if condition else ""


def add_examples(made, page):
    """Recipes, programs, and how the shortest of them makes the call."""
    programs = sorted(glob.glob("examples/**/*.c*", recursive=True), key=os.path.getsize)
    uses = {path: call for path in programs if (call := used(path, page.names))}
    add_recipes(made, list(dict.fromkeys(page.recipes)))
    if uses:
        first, call = next(iter(uses.items()))
        made.add("EXAMPLES", paragraph(f"Programs: {', '.join(list(uses)[:3])}. In {os.path.basename(first)}:"))
        made.add("EXAMPLES", [".PP", ".nf", *map(escaped, call), ".fi"])


def used(path, names):
    """The statement of a program that calls a function, in lines that fit."""
    text = re.sub(r"/\*.*?\*/", "", open(path, encoding="utf-8").read(), flags=re.S)
    found = re.search(rf"^ +([^\n;{{}}]*\b(?:{'|'.join(names)})\([^;{{]*[;{{])", text, re.M)
    if not found:
        return []
    head = re.match(r".*?\(", found[1], re.S)[0]
    indent = " " * len(head) if len(head) < 40 else "        "
    return textwrap.wrap(one_line(found[1]), 72, subsequent_indent=indent, break_long_words=False, break_on_hyphens=False)


def add_recipes(made, recipes):
    if recipes:
        made.add("EXAMPLES", [".PP", *filled(f"Recipes: {', '.join(recipes)}.".replace("-", "\\-"))])


def add_sources(made, page, overview):
    sources = {source: True for source in page.sources}
    for call in page.calls:
        section = SECTION.get(call, 3 if call.startswith("sctp") else 2)
        sources.update({f"{call}({section})": True} if section else {})
    words = " ".join([page.brief, *page.paragraphs, page.returns, *page.arguments.values()])
    sources.update({f"{name}(3)": True for name in re.findall(r"\b(kel_\w+)\(\)", words) if name not in page.names})
    sources.update({"kel_sctp(7)": True} if page.division.title == "SCTP" else {})
    ordered = sorted(sources, key=lambda source: (source.split("(")[1], source)) + [f"{overview}(7)"]
    made.add("SEE ALSO", references(ordered))


def references(sources):
    names = [re.match(r"(.*)\((\d)\)", source).groups() for source in sources]
    return [f".BR {name} ({section})" + ("," if i + 1 < len(names) else "") for i, (name, section) in enumerate(names)]


# ---- Overviews: kel_socket(7), kel_host(7) -----------------------------------------------------------------------------


def overview(name, headers, version, date, more=None, docs=None):
    """What the head of the first header says, or a document, and every function by its division."""
    made, base = Writer(name, 7, version, date), os.path.basename(headers[0].path)
    head = headers[0].head
    title = LIBRARY[base].partition(" (")[0]
    made.add("NAME", [f"{name} \\- {title[0].lower()}{title[1:]}"])
    made.add("LIBRARY", filled(marked(LIBRARY[base])))
    made.add("SYNOPSIS", [".nf", f".B #include <kel/{base}>"])
    made.add("SYNOPSIS", [".B #include <kel/kel_sctp.h>"] * (name == "kel_socket") + [".fi"])
    for block in [] if more else head:
        label, colon, text = without_marks(block, Node(sources=[], recipes=[])).partition(": ")
        labelled = list(topics_of([block]))
        made.add("DESCRIPTION", item(f".B {label}", sentence(text)) if labelled else paragraph(sentence(block)))
    if more:
        markdown(made, more)
    for header in headers:
        for division in header.divisions:
            if division.pages:
                made.add("FUNCTIONS", [f'.SS "{division.title or header.head[0].rstrip(".")}"'])
            for page in division.pages:
                made.add("FUNCTIONS", item(f".BR {page.names[0]} (3)", sentence(page.brief)))
                others = [f"{other}()" for other in page.names[1:]]
                made.add("FUNCTIONS", filled(marked(f"Also {', '.join(others)}.")) if others else [])
    if name == "kel_socket":
        for path in ("platform/include/kel_types.h", headers[0].path):
            add_definitions(made, "TYPES AND CONSTANTS", path)
    recipes = sorted({recipe for header in headers for page in header.pages for recipe in page.recipes})
    add_recipes(made, recipes)
    if docs:
        made.add("FILES", item(f".I {docs}/recipes/", "The recipes, a page each, by the names that stand in these pages."))
        made.add("FILES", item(f".I {'' if docs == 'docs' else docs + '/'}examples/", "The programs."))
    others = ["kel-guest(1)", "kelcat(1)", "kel_host(7)", "kel_sctp(7)", "kel_socket(7)", *["kel_socket_fake(7)"] * os.path.exists("fake")]
    made.add("SEE ALSO", references([other for other in others if not other.startswith(name + "(")]))
    return made.text()


def narrow(line):
    """A line of a header in lines that fit, with a long comment in front."""
    line = line if len(line) < 73 else re.sub(r"  +(?=/\*)", " ", line)
    if len(line) < 73:
        return [line]
    code, _, remark = line.partition(" /*")
    indent = re.match(" *", line)[0]
    if not remark:
        return textwrap.wrap(code, 72, subsequent_indent=indent + "    ")
    return textwrap.wrap(f"/* {remark.strip()}", 72, initial_indent=indent, subsequent_indent=indent + "   ") + [code]


def add_definitions(made, section, path, with_titles=False):
    """Records, enumerations and constants as they stand in a header."""
    for title, about, code in definitions(open(path, encoding="utf-8").read(), with_titles):
        if title:
            made.add(section, [f'.SS "{title}"'])
        made.add(section, [line for text in blocks_of(about) for line in paragraph(text)])
        if code:
            made.add(section, [".PP", ".nf", *(escaped(part) for line in code.split("\n") for part in narrow(line)), ".fi"])


def records_page(version, date):
    path = "platform/include/kel_sctp.h"
    header, made = read(path), Writer("kel_sctp", 7, version, date)
    made.add("NAME", ["kel_sctp \\- records and constants of SCTP"])
    made.add("LIBRARY", filled(marked(LIBRARY["kel_socket.h"])))
    made.add("SYNOPSIS", [".B #include <kel/kel_sctp.h>"])
    for block in header.head:
        made.add("DESCRIPTION", paragraph(block))
    add_definitions(made, "DEFINITIONS", path, with_titles=True)
    made.add("SEE ALSO", references(["kel_sctp_opt_info(3)", "kel_sctp_recvmsg(3)", "kel_sctp_sendmsg(3)",
                                     "kel_socket(7)", "sctp(7)"]))
    return made.text()


def markdown(made, path):
    """Paragraphs, lists and one kind of table, in whose first column is what the others tell about."""
    text, section, columns = open(path, encoding="utf-8").read(), "DESCRIPTION", []
    for block in re.split(r"\n\n|\n(?=\||- )", re.sub(r"\[([^]]*)\]\([^)]*\)", r"\1", text)):
        if block.startswith("#"):
            section = block.lstrip("# ").upper() if block.startswith("##") else section
        elif match := re.match(r"- (.*?): (.*)", block, re.S):
            made.add(section, item(f".B {escaped(match[1].strip('`'))}", one_line(match[2])))
        elif block.startswith("|"):
            cells = [cell.strip().replace("\\|", "|") for cell in re.split(r"(?<!\\)\|", block.strip("|"))]
            if not columns:
                columns = cells
            elif not re.fullmatch("[|-]+", block):
                made.add("SERVICES", item(f'.B "{escaped(cells[0].replace("`", ""))}"', sentence(cells[1])))
                for title, cell in zip(columns[2:], cells[2:]):
                    made.add("SERVICES", [".IP", *filled(marked(f"{title}: {cell}."))])
        elif block.strip():
            made.add(section, paragraph(one_line(block)))


# ---- kelcat(1), from what kelcat --help says ---------------------------------------------------------------------------


def parts_of_help(text):
    """Usage, purpose, and what stands under each heading: its words, and the lines below it, by their indentation."""
    usage, about, rest = re.match(r"Usage: (.*)\n(.*)\n\n(.*)", text, re.S).groups()
    parts = {}
    for line in rest.splitlines():
        if not line.startswith(" ") and (match := re.match(r"(Endpoints|Options|Frames|What ends|Exit|Examples)", line)):
            parts[match[1]] = []
        list(parts.values())[-1].append(line)
    return usage, about, parts


def options_of(lines):
    """Names with their argument, and what is said of each."""
    found = []
    for line in lines:
        match = re.match(r"  ((?:-\w, )?--.*?)(?:  +(.*))?$", line)
        found += [[match[1], match[2] or ""]] if match else []
        if not match:
            found[-1][1] += " " + line.strip()
    return found


TAKERS = re.compile(r"([a-z-]+(?:, [a-z-]+)*)( \(not -listen\))?: ")


def completion(text):
    """The completion for bash: every option with the endpoints that take it, and every endpoint's beginning."""
    _, _, parts = parts_of_help(text)
    names, valued = [], []
    for name, use in options_of(parts["Options"][1:]):
        takers = TAKERS.match(use)
        listen = "" if takers and takers[2] else "-listen"
        ends = [end for one in takers[1].split(", ") for end in dict.fromkeys((one, one + listen))] if takers else []
        for one in re.findall(r"(?<!\S)-[\w-]+", name):
            names.append(" ".join([one, *ends]))
            valued += [one] if re.search(r" [A-Z]", name) else []
    ends = re.findall(r"(?<!\S)[a-z-]+:", "\n".join(parts["Endpoints"]))
    made = open("tools/reference/completion.bash", encoding="utf-8").read()
    for key, words in {"OPTIONS": "\n".join(names), "VALUED": " | ".join(valued), "ENDPOINTS": " ".join(ends)}.items():
        made = made.replace(f"@{key}@", words)
    return made


def kelcat_page(text, version, date):
    usage, about, parts = parts_of_help(text)
    made = Writer("kelcat", 1, version, date)
    made.add("NAME", [f"kelcat \\- {about[0].lower()}{about[1:].rstrip('.')}"])
    made.add("SYNOPSIS", [f'.BI "{usage.split(" ", 1)[0]} " "{usage.split(" ", 1)[1]}"'])
    made.add("DESCRIPTION", filled(about))
    made.add("ENDPOINTS", paragraph(sentence(re.search(r"\((.*)\)", parts["Endpoints"][0])[1])))
    for line in parts["Endpoints"][1:]:
        *forms, use = re.split(r"  +", line.strip())
        made.add("ENDPOINTS", item('.B "%s"' % "   ".join(map(escaped, forms)), sentence(use)))
    made.add("OPTIONS", paragraph("An abbreviation will do."))
    for name, use in options_of(parts["Options"][1:]):
        takes = re.search(r" ([A-Z].*)$", name)
        tag = escaped(name.removesuffix(takes[0]) if takes else name).replace("-", "\\-").replace("\\\\", "\\")
        use = "For " + use if TAKERS.match(use) else use
        made.add("OPTIONS", item(f'.BI "{tag} " "{takes[1]}"' if takes else f'.B "{tag}"', sentence(use)))
    made.add("FRAMES", paragraph(" ".join(parts["Frames"])))
    for rule in re.split(r"\n  (?=[A-Z]\w+(?:: | ends both))", "\n".join(parts["What ends"]))[1:]:
        made.add("WHAT ENDS A TRANSFER", paragraph(one_line(rule)))
    for status in one_line(" ".join(parts["Exit"])).removeprefix("Exit status: ").split("; "):
        numbers, meaning = re.match(r"([\d, ]+) (.*)", status).groups()
        made.add("EXIT STATUS", item(f'.B "{numbers}"', sentence(meaning)))
    made.add("EXAMPLES", [".nf", *(escaped(one) for line in parts["Examples"][1:] for one in re.split("   +", line.strip())),
                          ".fi"])
    made.add("SEE ALSO", references(["kel-guest(1)", "kel_socket(7)"]))
    return made.text()
