"""kelcat(1) and the completion for bash, from what kelcat --help says."""

import re

from comments import one_line
from troff import Writer, escaped, filled, item, paragraph, references, sentence


def parts_of_help(text):
    """Usage, purpose, and what stands under each heading: its words, and the lines below it, by their indentation."""
    usage, about, rest = re.match(r"Usage: (.*)\n(.*)\n\n(.*)", text, re.S).groups()
    parts = {}
    for line in rest.splitlines():
        if match := re.match(r"Endpoints|Options|Frames|What ends|Exit|Examples", line):
            parts[match[0]] = []
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


ENVIRONMENT = {  # of the stand-in platform, which kelcat has within
    "KEL_HOST_LOG": "Where the log goes, as kel_host(7) tells.",
    "KEL_HOST_FILTER": "What is not reported, as kel_host(7) tells.",
}
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


def page(text, version, date):
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
    for name, use in ENVIRONMENT.items():
        made.add("ENVIRONMENT", item(f".B {name}", use))
    lines = [one for line in parts["Examples"][1:] for one in re.split("   +", line.strip())]
    made.add("EXAMPLES", [".nf", *map(escaped, lines), ".fi"])
    made.add("SEE ALSO", references(["kel-guest(1)", "kel_host(7)", "kel_socket(7)"]))
    return made.text()
