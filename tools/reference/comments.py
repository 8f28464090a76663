"""Reads the comments of the public headers: what stands in front of functions, at the head and over each division.

A doc comment serves the functions in front of the next empty line, or the macros that a table in it begins its lines
with. Its first sentence says what they do; @param and @return are Doxygen's. A paragraph that begins with "Reported"
quotes the texts of reports, and "what kel_x() reports" stands for those of another function. "Recipe: NAME." and "See
name(3)." may end any paragraph. The items of a list at the head or over a division begin with the argument or the
subject that they are about, and a colon: they reach the pages that it concerns.
"""

import re
from types import SimpleNamespace as Node

TOKEN = re.compile(r"/\*.*?\*/", re.S)


def bare(comment):
    """The text of a comment without its signs."""
    lines = re.sub(r"^/\*+|\*/$", "", comment).strip("\n").split("\n")
    return "\n".join(re.sub(r"^ \* ?| +$", "", line) for line in lines).strip("\n")


def blocks_of(text):
    """Paragraphs in one line each; the items of a list are paragraphs of their own, and a table keeps its lines."""
    found = []
    for block in re.split(r"\n\s*\n", text):
        if re.match(r" +- ", block):
            found += [one_line(item) for item in re.split(r"^ +- ", block, flags=re.M) if item.strip()]
        elif re.match(r"  +\S", block):
            found.append(block)
        elif block.strip():
            found.append(one_line(block))
    return found


def one_line(text):
    return re.sub(r"\s+", " ", text).strip()


def described(text):
    """A doc comment as its parts."""
    found = Node(paragraphs=[], arguments={}, returns="", reported="", sources=[], recipes=[])
    plain, *tagged = re.split(r"^(?=@(?:param|return)\b)", text, flags=re.M)
    behind = ""
    for tag in tagged:
        tag, _, more = tag.partition("\n\n")  # a paragraph behind the last tag is text again
        behind += more + "\n\n"
        if match := re.match(r"@param +(\w+) +(.*)", tag, re.S):
            found.arguments[match[1]] = one_line(match[2])
        else:
            found.returns = one_line(tag.removeprefix("@return"))
    texts = [block if block.startswith(" ") else without_marks(block, found) for block in blocks_of(plain)]
    texts += [without_marks(block, found) for block in blocks_of(behind)]
    found.returns = without_marks(found.returns, found)
    texts = [block for block in texts if block]
    found.brief, _, rest = texts[0].partition(". ") if texts else ("", "", "")
    found.brief = found.brief.rstrip(".")
    found.paragraphs = [rest] * bool(rest) + texts[1:]
    return found


def without_marks(block, found):
    """What a paragraph says for sections of their own: reports, sources, recipes."""
    def keep(match):
        found.sources += re.findall(r"\w+\(\d\)", match[0])
        return ""

    def keep_recipes(match):
        found.recipes += re.findall(r"[\w-]+", match[1])
        return ""

    block = re.sub(r"\s*\bRecipes?: ([\w, -]+)\.", keep_recipes, block)
    block = re.sub(r"\s*\bSee (?:\w+\(\d\)(?:, | and )?)+\.", keep, block)
    if block.startswith(("Reported", "Nothing is reported")):
        found.reported = block
        return ""
    return block.strip()


def parameters(text):
    arguments = [] if text == "void" else re.split(r", (?![^()]*\))", text)
    return arguments, [name[1] for name in (re.search(r"(\w+)(?:\[\])?$", one) for one in arguments) if name]


def macros(text, blocks):
    """The one that is defined behind a comment, or those that a table in the comment begins its lines with."""
    table = "\n".join(block for block in blocks if block.startswith(" "))
    calls = re.findall(r"^ +((\w+)\((.*?)\)) ", table, re.M)
    calls = calls or re.findall(r"\A(?:#if.*?^)?#define ((\w+)\((.*?)\))", text, re.S | re.M)
    return [Node(name=name, type="", arguments=(of := parameters(inner))[0], names=of[1], text=call, is_macro=True)
            for call, name, inner in calls]


def declarations(text):
    """The functions and variables that stand in front of the next empty line, with their arguments."""
    found = []
    for one in re.sub(r"/\*.*?\*/", "", re.split(r"\n\s*\n", text)[0], flags=re.S).split(";"):
        one = re.sub(r" *__attribute__\(\(.*\)\)", "", one_line(one))
        if match := re.match(r"(?!typedef|#)(.*?)(\w+)\((.*)\)$", one):
            arguments, names = parameters(match[3])
            found.append(Node(name=match[2], type=match[1], arguments=arguments, names=names, text=one, is_macro=False))
        elif match := re.match(r"extern (.*?)(\w+)$", one):
            found.append(Node(name=match[2], type=match[1], arguments=None, names=[], text=one, is_macro=False))
    return found


BANNER = re.compile(r"/\* -{4} (.*?) -{4,}[ *]*\n?(.*)\*/", re.S)


def definitions(source, with_titles):
    """What a header defines but functions, piece by piece: the comment in front of it and the code, or a division."""
    for chunk in re.split(r"\n(?=\n)", source[TOKEN.search(source).end():]):
        about, code = re.fullmatch(r"\n*(/\*(?:(?!\*/).)*\*/\n?)?(.*)", chunk, re.S).groups("")
        is_plain = not about.startswith("/**") and re.match(r"(?:typedef|enum|struct|union|#define)\b", code)
        if (banner := BANNER.match(about)) and with_titles:
            yield banner[1].partition(": ")[0], bare("/*\n" + banner[2] + "*/"), ""
        elif is_plain and not re.match(r"struct \w+;|#define (\w+_H\b|__|\w+\(|(\w+) \2\n)", code):
            yield "", bare(about), re.sub(r"__extension__ | KEL_ENUM_OF_INT", "", code).strip("\n")


def read(path):
    """A header: its head comment, and its divisions with a page for each doc comment."""
    source = open(path, encoding="utf-8").read()
    header = Node(path=path, head=blocks_of(bare(TOKEN.search(source)[0])), divisions=[])
    for match in TOKEN.finditer(source):
        if banner := BANNER.match(match[0]):
            title, _, rule = banner[1].partition(": ")
            text = bare("/*\n" + banner[2] + "*/")
            header.divisions.append(Node(title=title, rule=rule, blocks=blocks_of(text), pages=[]))
        elif match[0].startswith("/**"):
            page = described(bare(match[0]))
            behind = source[match.end():].lstrip("\n")
            page.functions = macros(behind, page.paragraphs) or declarations(behind)
            page.header, page.start = header, match.start()
            if not header.divisions:
                header.divisions.append(Node(title="", rule="", blocks=[], pages=[]))
            page.division = header.divisions[-1]
            page.names = [function.name for function in page.functions]
            header.divisions[-1].pages.append(page)
    header.pages = [page for division in header.divisions for page in division.pages]
    return header
