"""Text as the typesetter of manual pages reads it."""

import re
import textwrap


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
    begun = text if re.match(r"\w*", text)[0] in names else capital(text)
    return begun + ("" if not text or text.endswith((".", ":")) else ".")


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
    ORDER = ["NAME", "LIBRARY", "SYNOPSIS", "DESCRIPTION", "ARGUMENTS", "RETURN VALUE", "ERRORS", "DIAGNOSTICS",
             "NOTES", "EXAMPLES", "SEE ALSO"]  # others stand in front of the examples

    def __init__(self, name, section, version, date):
        # A title of the manual's between the names would run into long ones.
        self.sections, self.head = {}, f'.TH {name} {section} {date} "kel_socket {version}" ""\n.ad l\n.nh'

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


def references(sources):
    names = [re.match(r"(.*)\((\d)\)", source).groups() for source in sources]
    return [f".BR {name} ({section})" + ("," if i + 1 < len(names) else "") for i, (name, section) in enumerate(names)]
