"""Manual pages of section 3: one for each doc comment, complete when it is read alone."""

import errno
import glob
import os
import re
import textwrap

import facts
from comments import Node, one_line, without_marks
from troff import Writer, escaped, filled, item, marked, paragraph, prototype, references, sentence, short

OVERVIEW = {"host.h": "kel_host", "kel_socket_fake.h": "kel_socket_fake"}
LIBRARY = {
    "kel_socket.h": "The socket module (libkel_socket, -lkel_socket; pkg-config kel_socket)",
    "host.h": "The stand-in platform (libkel_host, -lkel_host; pkg-config kel_host)",
    "kel_socket_fake.h": "The fake of the socket module "
    "(libkel_socket_fake, -lkel_socket_fake; pkg-config kel_socket_fake)",
}
SERVICE = "Supplied by the platform; the stand-in platform (libkel_host, -lkel_host; pkg-config kel_host) has it, too"
SECTION = {"inet_pton": 3, "inet_ntop": 3, "if_nametoindex": 3, "tc_malloc": None}  # others: 3 of libsctp, else 2

# The pages that a paragraph of a header's head or of a division concerns, by its opening words, and its section there.
# One that opens with names of arguments goes to these.
WAITING = {"accept", "connect", "recv", "recvfrom", "send", "sendto", "sctp_connectx", "sctp_send", "sctp_sendmsg",
           "sctp_recvmsg"}
UNWRITTEN = ("kel_accept", "kel_getpeername", "kel_getsockname", "kel_recvfrom")
CONCERNS = {
    "Numbers": ("NOTES", lambda page: page.takes("sockfd", "flags", "level", "maxClient", "domain")),
    "Byte order": ("NOTES", lambda page: "kel_sockaddr_t" in page.text or page.takes("port", "s_port")),
    "Unwritten records": ("NOTES", lambda page: page.names[0] in UNWRITTEN),
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


def prepare(page):
    """What a page has beside its comment: calls behind its functions, errors, reports, and what others say for it."""
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
    is_macro = page.functions[0].is_macro
    for label, text, place, recipes in () if is_macro else topics_of(page.division.blocks + page.header.head):
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


def function_page(page, version, date, root):
    header = os.path.basename(page.header.path)
    overview = OVERVIEW.get(header, "kel_socket")
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
    for text in [opening(page, brief), *page.paragraphs, page.division.rule, *rules]:
        made.add("DESCRIPTION", paragraph(text if text.startswith(" ") else sentence(text, page.names)) if text else [])
    for name in dict.fromkeys(name for function in page.functions for name in function.names):
        made.add("ARGUMENTS", item(f".I {name}", sentence(page.arguments.get(name, ""), page.arguments)))
    if page.returns:
        made.add("RETURN VALUE", paragraph(sentence(page.returns, page.arguments)))
    if page.reports or page.asserts:
        add_diagnostics(made, page)
    else:
        made.add("DIAGNOSTICS", paragraph(page.reported) if page.reported else [])
    for section, common in page.common.items():
        for label, text in common:
            made.add(section, item(f".B {label}", sentence(text)) if section == "NOTES" else
                     paragraph(f"{label}: {text}"))
    if page.errors:
        made.add("ERRORS", paragraph("What tests have brought the calls behind it to, with the system's words:"))
        for error, calls in page.errors.items():
            made.add("ERRORS", item(f'.BR {error} " ({", ".join(calls)})"', os.strerror(getattr(errno, error)) + "."))
    add_examples(made, page, root)
    add_sources(made, page, overview)
    return made.text()


def listed(words, last):
    return f" {last} ".join(filter(None, [", ".join(words[:-1]), words[-1]]))


def opening(page, brief):
    """The brief as a sentence about the functions, or the variable."""
    names = [function.name + "()" * (function.arguments is not None) for function in page.functions]
    return f"{listed(names, 'and') if len(names) < 4 else 'These'} {brief}"


def add_diagnostics(made, page):
    for text, functions in page.reports.items():
        told = {}
        for function, steps in functions.items():
            told.setdefault(whence(steps), []).append(f"{function}()")
        made.add("DIAGNOSTICS", item('.B "\\(dq%s\\(dq"' % escaped(text), " ".join(
            f"By {those(names, page, when)}{when}." for when, names in told.items())))
    if page.asserts:
        made.add("DIAGNOSTICS", paragraph("For a text that is no address kel_addr_fill() calls the assertion handler, "
                                          "KEL_ASSERT_X(3)."))


def those(names, page, when):
    """The functions that make a report. A call that fails is reported where it is made, and then by its caller."""
    inner = [name for name in names if name.startswith("__")]
    if inner and when and len(inner) < len(names):
        return f"{listed(inner, 'or')}, and once more by {those(sorted(set(names) - set(inner)), page, when)}"
    return "each" if len(names) == len(page.names) > 1 else listed(names, "or")


def whence(steps):
    """What comes before a report: calls that fail, or else the condition."""
    calls = [step for step in dict.fromkeys(steps) if step in facts.ERRORS]
    condition = min((step for step in steps if " is " in step), key=len, default="")
    if calls:
        return f", when {listed(calls, 'or')} fails"
    return f", if {condition}" if condition else ""


def add_examples(made, page, root):
    """Recipes, programs, and how the shortest of them makes the call."""
    programs = sorted(glob.glob("examples/**/*.c*", recursive=True), key=os.path.getsize)
    uses = {path: call for path in programs if (call := used(path, page.names))}
    add_recipes(made, list(dict.fromkeys(page.recipes)))
    if uses:
        first, call = next(iter(uses.items()))
        made.add("EXAMPLES", paragraph(f"Programs: {', '.join(list(uses)[:3])}. In {os.path.basename(first)}:"))
        made.add("EXAMPLES", [".PP", ".nf", *map(escaped, call), ".fi"])
    if uses or page.recipes:
        made.add("FILES", item(f".I {root}/", "The folder of docs/ and examples/."))


def used(path, names):
    """The statement of a program that calls a function, in lines that fit."""
    text = re.sub(r"/\*.*?\*/", "", open(path, encoding="utf-8").read(), flags=re.S)
    found = re.search(rf"^ +([^\n;{{}}]*\b(?:{'|'.join(names)})\([^;{{]*[;{{])", text, re.M)
    if not found:
        return []
    head = re.match(r".*?\(", found[1], re.S)[0]
    indent = " " * len(head) if len(head) < 40 else "        "
    return textwrap.wrap(one_line(found[1]), 72, subsequent_indent=indent, break_on_hyphens=False)


def add_recipes(made, recipes):
    if recipes:
        text = f"Recipes, each in docs/recipes/NAME.md: {', '.join(recipes)}."
        made.add("EXAMPLES", [".PP", *filled(text.replace("-", "\\-"))])


def add_sources(made, page, overview):
    sources = {source: True for source in page.sources}
    for call in page.calls:
        section = SECTION.get(call, 3 if call.startswith("sctp") else 2)
        sources.update({f"{call}({section})": True} if section else {})
    words = " ".join([page.brief, *page.paragraphs, page.returns, page.reported, *page.arguments.values()])
    sources.update({f"{name}(3)": True for name in re.findall(r"\b(kel_\w+)\(\)", words) if name not in page.names})
    sources.update({"kel_sctp(7)": True} if page.division.title == "SCTP" else {})
    ordered = sorted(sources, key=lambda source: (source.split("(")[1], source)) + [f"{overview}(7)"]
    made.add("SEE ALSO", references(ordered))
