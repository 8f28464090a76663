"""kel-guest(1), from what kel-guest --help says."""

import re

from comments import one_line
from troff import Writer, escaped, filled, item, paragraph, references, sentence

TMPDIR = """A folder for the guest's memory, where /dev/shm has no room for it, and for what host and guest tell each
other; behind it /tmp and /var/tmp are tried. Inside, it names a folder of the guest's own."""


def page(text, version, date):
    usage, about, rest, status, options, examples = re.fullmatch(
        r"usage: \S+ (.*?)\n\n(.*?)\n\n(.*?)\n\n(The exit .*?)\n\npositional arguments:\n.*?"
        r"\n\noptions:\n(.*?)\n\nexamples:\n(.*)", text, re.S).groups()
    made = Writer("kel-guest", 1, version, date)
    made.add("NAME", filled(f"kel-guest \\- {about[0].lower()}{about[1:].rstrip('.')}"))
    made.add("SYNOPSIS", [".B kel\\-guest", *filled(escaped(usage))])
    made.add("DESCRIPTION", paragraph(rest.replace("\n", " ")))
    for names, use in re.findall(r"^  (-\S.*?)  +(\S.*)", options, re.M):
        made.add("OPTIONS", item(f'.B "{escaped(names)}"', sentence(use)))
    first, *table = status.splitlines()
    made.add("EXIT STATUS", paragraph(first))
    for number, meaning in (row.split(maxsplit=1) for row in table):
        made.add("EXIT STATUS", item(f".B {number}", sentence(meaning)))
    made.add("ENVIRONMENT", item(".B TMPDIR", one_line(TMPDIR)))
    lines = [re.sub(r"^  \S+", "kel-guest", line) for line in examples.strip("\n").splitlines()]
    made.add("EXAMPLES", [".nf", *map(escaped, lines), ".fi"])
    made.add("SEE ALSO", references(["kelcat(1)", "kel_socket(7)", "sctp(7)", "ip-netns(8)", "tc-netem(8)"]))
    return made.text()
