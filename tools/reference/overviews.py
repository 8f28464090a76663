"""Manual pages of section 7: what a header says for all its functions, a table of these, types and constants."""

import os
import re
import textwrap

from comments import Node, blocks_of, definitions, one_line, read, without_marks
from pages import LIBRARY, add_recipes, topics_of
from troff import Writer, escaped, filled, item, marked, paragraph, references, sentence


def overview(name, headers, version, date, more=None, root=None):
    """What the head of the first header says, or a document, and every function by its division."""
    made, base = Writer(name, 7, version, date), os.path.basename(headers[0].path)
    head = headers[0].head
    title = LIBRARY[base].partition(" (")[0]
    made.add("NAME", [f"{name} \\- {title[0].lower()}{title[1:]}"])
    made.add("LIBRARY", filled(marked(LIBRARY[base])))
    made.add("SYNOPSIS", [".nf", f".B #include <kel/{base}>"])
    made.add("SYNOPSIS", [".B #include <kel/kel_sctp.h>"] * (name == "kel_socket"))
    module = "kel_socket_fake" if name == "kel_socket_fake" else "kel_socket"
    link = f".B cc program.c $(pkg-config --cflags --libs {module} kel_host)"
    made.add("SYNOPSIS", [".PP", link.replace("-", "\\-"), ".fi"])
    for block in [] if more else head:
        label, colon, text = without_marks(block, Node(sources=[], recipes=[])).partition(": ")
        labelled = list(topics_of([block]))
        made.add("DESCRIPTION", item(f".B {label}", sentence(text)) if labelled else paragraph(sentence(block)))
    if more:
        markdown(made, more)
    for header in headers:
        for division in header.divisions:
            if division.pages:
                made.add("FUNCTIONS", [f'.SS "{division.title or re.split("[:.]", header.head[0])[0]}"'])
            for page in division.pages:
                made.add("FUNCTIONS", item(f".BR {page.names[0]} (3)", sentence(page.brief)))
                others = [f"{other}()" for other in page.names[1:]]
                made.add("FUNCTIONS", filled(marked(f"Also {', '.join(others)}.")) if others else [])
    types = ["platform/include/kel_types.h"] if name == "kel_socket" else []
    for path in [*types, *(header.path for header in headers)]:
        add_definitions(made, "TYPES AND CONSTANTS", path)
    recipes = sorted({recipe for header in headers for page in header.pages for recipe in page.recipes})
    add_recipes(made, recipes)
    if root:
        made.add("FILES", item(f".I {root}/docs/recipes/", "The recipes, a page each."))
        made.add("FILES", item(f".I {root}/examples/", "The programs."))
    others = ["kel-guest(1)", "kelcat(1)", "kel_host(7)", "kel_sctp(7)", "kel_socket(7)", "kel_socket_fake(7)"]
    made.add("SEE ALSO", references([other for other in others if not other.startswith(name + "(")]))
    return made.text()


def narrow(line):
    """A line of a header in lines that fit, with a long comment in front."""
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
        code = re.sub(r"\n +\* ", " ", code)
        if max(map(len, code.split("\n"))) > 72:
            code = re.sub(r"  +(?=/\*)", " ", code)
        lines = [escaped(part) for line in code.split("\n") for part in narrow(line)]
        made.add(section, [".PP", ".nf", *lines, ".fi"] if code else [])


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
    """Paragraphs, lists, commands in fences, and one kind of table, in whose first column is what the others tell
    about."""
    text, section, columns = open(path, encoding="utf-8").read(), "DESCRIPTION", []
    for block in re.split(r"\n\n|\n(?=\||- )", re.sub(r"\[([^]]*)\]\([^)]*\)", r"\1", text)):
        if block.startswith("```"):
            made.add(section, [".PP", ".nf", *map(escaped, block.split("\n")[1:-1]), ".fi"])
        elif block.startswith("#"):
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
