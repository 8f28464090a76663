"""Turns a header into what Doxygen reads: every comment becomes a doc comment, one that stands in front of several
functions is repeated for each of them, and divisions become groups."""

import re

from comments import BANNER, TOKEN, bare, blocks_of, one_line
from pages import topics_of
from troff import sentence


def plain(text):
    """Text without what Doxygen would take for a command, a tag or a link of its own. Quotations it leaves alone."""
    parts = re.split(r'("[^"]*")', text)
    return "".join(part if part.startswith('"') else re.sub(r"::|[\\@<>#%&]", r"\\\g<0>", part) for part in parts)


def blocks(texts):
    return "\n\n".join(f"@verbatim\n{text}\n@endverbatim" if text.startswith(" ") else plain(text)
                       for text in texts if text)


def of_group(page):
    """Every function behind a comment of its own, with its own arguments alone."""
    for function in page.functions:
        parts = [plain(sentence(page.brief)), blocks(page.paragraphs)]
        parts += [f"@param {name} {plain(page.arguments[name])}" for name in function.names if name in page.arguments]
        own = [text for label, text in page.common.get("RETURN VALUE", [])] + [page.returns] * bool(page.returns)
        parts += [f"@return {plain(text)}" for text in own]
        errors = [f"{error} ({', '.join(calls)})" for error, calls in page.errors.items()]
        parts += [f"@par Errors\n{', '.join(errors)}"] if errors else []
        parts += [f"@par Reports\n{plain(page.reported.removeprefix('Reported: '))}"] if page.reported else []
        parts += [f"@par Recipes\n{', '.join(page.recipes)}"] if page.recipes else []
        parts += [f"@see {', '.join(page.sources)}"] if page.sources else []
        head, behind = (f"@def {function.name}\n", "") if function.is_macro else ("", f"{function.text};\n")
        yield f"/**\n{head}" + "\n\n".join(part for part in parts if part) + f"\n*/\n{behind}"


def exchanged(comment, line, behind):
    """An ordinary comment as Doxygen wants it, where it belongs to a declaration."""
    if line.strip():
        return "" if re.match(r" *#(?!define)", line) else f"/**< {plain(one_line(bare(comment)))} */"
    declares = re.match(r"\n(?:typedef|enum|struct|union|extern|#define|#undef|\w+ \w+;)", behind)
    return "/** " + blocks(blocks_of(bare(comment))) + " */" if declares else ""


def head(header):
    """What a header says for all its functions, its subjects as a list."""
    for block in header.head[1:]:
        label, colon, text = block.partition(": ")
        yield f"<dl><dt>{plain(label)}</dt><dd>{plain(text)}</dd></dl>" if list(topics_of([block])) else plain(block)


def filtered(header):
    """The header's text with its comments exchanged. A group ends where the next begins, the declarations in C end, or
    the header does."""
    source, pages = open(header.path, encoding="utf-8").read(), {page.start: page for page in header.pages}
    c_ends = source.index("\n#ifdef __cplusplus\n}") if "\n#ifdef __cplusplus\n}" in source else 0
    made, at, is_open = [], 0, False
    for match in TOKEN.finditer(source):
        if match.start() < at:
            continue
        if is_open and at <= c_ends < match.start():
            made += [source[at:c_ends], "\n/** @} */"]
            at, is_open = c_ends, False
        made.append(source[at:match.start()])
        at = match.end()
        if page := pages.get(match.start()):
            made += of_group(page)
            at = at if page.functions[0].is_macro else source.index("\n\n", at) + 1
        elif match.start() == 0:
            made.append(f"/** @file\n{blocks(header.head[:1])}\n*/\n")
            place = "@mainpage" if header.path.endswith("kel_socket.h") else "@file"
            made.append(f"/** {place}\n" + "\n\n".join(head(header)) + "\n*/")
        elif banner := BANNER.match(match[0]):
            text = blocks(blocks_of(bare("/*\n" + banner[2] + "*/")))
            made.append(("/** @} */\n" if is_open else "") + f"/** @name {plain(banner[1])}\n{text}\n*/\n/** @{{ */\n")
            is_open = True
        else:
            line = source[source.rfind("\n", 0, match.start()) + 1:match.start()]
            made.append(exchanged(match[0], line, source[at:]))
    ends = c_ends if at <= c_ends else source.rindex("\n#endif")
    return "".join(made) + (source[at:ends] + "\n/** @} */" + source[ends:] if is_open else source[at:])
