"""Lets a picture that gnuplot has drawn follow the reader's scheme: light as it is, dark by a style sheet inside it."""

import re

# The dark one's colours, by the light one's: what is left out is seen well on both.
DARK = {
    "#ffffff": "#0d1117",
    "#000000": "#d0d7de",
    "#dddddd": "#30363d",
    "#3366aa": "#4a80d4",
    "#117755": "#1f8f6a",
    "#aa4499": "#cc77bb",
}


def notations(colour):
    """As gnuplot writes it: digits in either case, or three numbers, each padded to three characters; black by its
    name."""
    red, green, blue = (int(colour[place:place + 2], 16) for place in (1, 3, 5))
    return {colour, colour.upper(), f"rgb({red:3}, {green:3}, {blue:3})", "black" if colour == "#000000" else colour}


def follow_scheme(path):
    with open(path, encoding="utf-8") as file:
        text = file.read()
    rules = [
        f"    [{attribute}='{notation}'] {{ {attribute}: {dark}; }}"
        for light, dark in DARK.items()
        for notation in sorted(notations(light))
        for attribute in ("fill", "stroke", "color")
        if re.search(rf"""\b{attribute} *= *["']{re.escape(notation)}["']""", text)
    ]
    style = "\n".join(("<style>", "@media (prefers-color-scheme: dark) {", *rules, "}", "</style>", ""))
    with open(path, "w", encoding="utf-8") as file:
        file.write(re.sub(r"<svg[^>]*>\n", lambda head: head[0] + style, text, count=1))
