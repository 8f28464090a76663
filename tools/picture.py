"""What pictures share: the scheme, light as drawn and dark by a style sheet, and the entry of what they are made of."""

import os
import re
import subprocess

PICTURES = os.path.join(os.path.dirname(os.path.realpath(__file__)), "pictures")
ENTRY = re.compile(r"<!-- inputs (\w+) -->\n")  # the last line of a picture

# Colours as gnuplot writes them; the others are seen well on both.
STYLE = """<style>
@media (prefers-color-scheme: dark) {
  [fill="#ffffff"] { fill: #0d1117 }
  [fill="black"] { fill: #e6edf3 }
  [color="black"] { color: #9198a1 }
  [stroke="black"] { stroke: #9198a1 }
  [stroke="rgb(221, 221, 221)"] { stroke: #30363d }
  [fill="rgb( 51, 102, 170)"] { fill: #4a80d4 }
  [color="rgb( 51, 102, 170)"] { color: #4a80d4 }
  [stroke="rgb( 51, 102, 170)"] { stroke: #4a80d4 }
  [fill="rgb( 17, 119,  85)"] { fill: #1f8f6a }
  [color="rgb( 17, 119,  85)"] { color: #1f8f6a }
  [stroke="rgb( 17, 119,  85)"] { stroke: #1f8f6a }
  [fill="rgb(170,  68, 153)"] { fill: #cc77bb }
}
</style>
"""


def enter_inputs(name):
    """Has the hash of its inputs entered in a picture that has just been made."""
    subprocess.run([PICTURES, "--enter", name], check=True)


def follow_scheme(path, title):
    """Gives a picture that gnuplot has drawn its title and the style sheet."""
    with open(path, encoding="utf-8") as file:
        text = file.read()
    with open(path, "w", encoding="utf-8") as file:
        text = text.replace("<title>Gnuplot</title>", f"<title>{title}</title>", 1)
        file.write(re.sub(r"<svg[^>]*>\n", lambda head: head[0] + STYLE, text, count=1))
