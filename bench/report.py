"""Writes results down: performance.md out of performance.md.in, and performance.svg."""

import collections
import os
import re
import string
import subprocess
import tempfile
import textwrap

import judge
import measure
import plan

import picture  # from tools/, where measure looks

HERE = os.path.dirname(os.path.realpath(__file__))
TEMPLATE = os.path.join(HERE, "performance.md.in")
PLOT = os.path.join(HERE, "performance.gnuplot")

MARKS = "¹²³⁴⁵⁶⁷⁸⁹"
NONE = "–"
MISSING = "missing"


def table(head, rows):
    """A Markdown table: the first column to the left, figures to the right."""
    lines = [head, ["---"] + ["---:"] * (len(head) - 1), *rows]
    return "\n".join(f"| {' | '.join(map(str, line))} |" for line in lines)


def grouped(number):
    return f"{number:,.0f}"


def spread(values, scale=1):
    """Median and quartiles, as they jitter: see settled()."""
    low, middle, high = (value / scale for value in values)
    form = ",.0f" if middle >= 100 else ".1f" if middle >= 10 else ".2f"
    return f"{middle:{form}} [{low:{form}}, {high:{form}}]"


def titles(build, peers):
    return [build.titles[peer] for peer in peers]


def cells(build, section, operation, peers, show):
    """The figures of these peers for an operation, as show() writes each."""
    figures = section.get(operation, {})
    return [
        show(figures[peer]) if peer in figures else MISSING if peer in build.able.get(operation, ()) else NONE
        for peer in peers
    ]


def show_instructions(figures):
    return grouped(figures["instructions"])


def show_ratio(figures):
    return spread(figures["ratio"])


def show_microseconds(figures):
    return spread(figures["ns"], 1000)


# ---- Operations of the host


def notes_of(build):
    """{note: titles of its peers}, in the order of the tables."""
    found = {}
    for operation in plan.HOST.rows:
        for peer in build.peers(*plan.HOST.groups):
            if note := build.notes.get((peer, operation)):
                found.setdefault((peer in build.able.get(operation, ()), note), {})[build.titles[peer]] = None
    return found


def mark(build, peer, operation):
    """The footnote's, where there is one."""
    noted = [note for able, note in notes_of(build) if able]
    note = build.notes.get((peer, operation))
    return MARKS[noted.index(note)] if note in noted else ""


def instructions(build, results):
    peers, rows = build.peers(*plan.HOST.groups), []
    for operation, row in plan.HOST.rows.items():
        costs = cells(build, results["counts"], operation, peers, show_instructions)
        rows.append([row.title, *(cost + mark(build, peer, operation) for cost, peer in zip(costs, peers))])
    return table(["", *titles(build, peers)], rows)


def footnotes(build, _):
    notes = notes_of(build)
    lines = [f"{sign} {note}" for sign, note in zip(MARKS, (note for able, note in notes if able))]
    lines += [f"{NONE} {' and '.join(who)}: {note}" for (able, note), who in notes.items() if not able]
    return "; ".join(lines) + "."


def times(build, results):
    peers = build.peers(*plan.HOST.groups)[1:]
    rows = [
        [row.title, *cells(build, results["times host"], operation, peers, show_ratio)]
        for operation, row in plan.HOST.rows.items()
    ]
    return table(["", *titles(build, peers)], rows)


def difference(calls, reference):
    """What is missing and what is too much beside the reference's."""
    own, other = collections.Counter(calls), collections.Counter(reference)
    parts = [f"−{call}" for call in (other - own).elements()] + [f"+{call}" for call in (own - other).elements()]
    return " ".join(parts) or ("" if calls == reference else "in another order")


def system_calls(build, results):
    peers = build.peers(*plan.HOST.groups)
    operations = {**plan.ENDPOINTS, **plan.TRANSFERS}
    columns = []
    for operation in operations:
        reference = results["counts"].get(operation, {}).get(peers[0], {}).get("system_calls", [])

        def show(figures):
            calls = figures["system_calls"]
            return f"{len(calls)} {difference(calls, reference)}".strip()

        column = cells(build, results["counts"], operation, peers, show)
        column[0] = f"{len(reference)} {', '.join(reference)}"
        columns.append([entry.replace("setsockopt ", "") for entry in column])
    return table(["", *(row.title for row in operations.values())], zip(titles(build, peers), *columns))


def show_hidden(figures):
    counts = [round(figures[key]) for key in ("allocations", "locked_instructions", "locks")]
    return " / ".join(map(str, counts)) if any(counts) else NONE


def hidden(build, results):
    """Of those that have any, and the operations in which they do."""
    peers = build.peers(*plan.HOST.groups)
    columns = {
        row.title: cells(build, results["counts"], name, peers, show_hidden) for name, row in plan.HOST.rows.items()
    }
    columns = {title: column for title, column in columns.items() if set(column) != {NONE}}
    rows = [row for row in zip(titles(build, peers), *columns.values()) if set(row[1:]) != {NONE}]
    return table(["", *columns], rows)


# ---- SCTP, growth, fixed costs


def sctp(build, results):
    by_hand, modules = build.peers("sctp_hand"), build.peers("sctp_module")
    rows = []
    for operation, row in plan.SCTP.items():
        shown = cells(build, results["counts"], operation, by_hand + modules, show_instructions)
        rows.append([row.title, *shown, *cells(build, results["times guest"], operation, modules, show_ratio)])
    head = ["", *titles(build, by_hand + modules), *(f"time, {title}" for title in titles(build, modules))]
    return table(head, rows)


def growth(build, results):
    rows = []
    for name, row in plan.LISTS.items():
        points = judge.growth(build, results, name)
        base, slope, distance = judge.line(points) if points else [float("nan")] * 3
        rows.append([row.title, grouped(base), f"{slope:.1f}", f"{distance:.1%}", row.allocations])
    return table(["", "the call", "each address", "farthest from the line", "allocations"], rows)


def threads(build, results):
    costs = judge.thread_costs(build, results)
    rows = [["instructions", *(grouped(cost) for _, cost in costs)], ["µs"]]
    for count, _ in costs:
        rows[1] += cells(build, results["times host"], f"threads_{count}", build.peers("threads"),
                         lambda figures, count=count: spread(figures["ns"], 1000 * count))
    return table(["threads", *(n for n, _ in costs)], rows)


def fixed(build, results):
    rows = []
    for part in (plan.PATTERNS, plan.FRAMES):
        for operation, row in part.items():
            shows = (show_instructions, lambda figures: grouped(figures["allocations"]),
                     lambda figures: len(figures["system_calls"]))
            peers, shown = build.peers("fixed"), [row.title]
            for show in shows:
                shown += cells(build, results["counts"], operation, peers, show)
            shown += cells(build, results["times host"], operation, peers, show_microseconds)
            inside = cells(build, results["times guest"], operation, peers, show_microseconds)
            rows.append(shown + (inside if part is plan.FRAMES else [NONE]))
    return table(["", "instructions", "allocations", "system calls", "µs", "µs, user-mode kernel"], rows)


def starts(_, results):
    rows = []
    for name, (title, _) in plan.STARTS.items():
        figures = results.get("starts", {}).get(name)
        if figures is None:
            rows.append([title, *[MISSING] * 4])
            continue
        span = [figures["microseconds"][key] for key in ("lower_quartile", "median", "upper_quartile")]
        memory = figures["private_kib"]  # which differs by some pages from run to run
        memory = float(f"{memory:.2g}" if memory > 1000 else f"{memory:.1g}")
        shown = [grouped(figures["instructions"]), spread(span, 1000), grouped(memory), len(figures["objects"])]
        rows.append([title, *shown])
    return table(["a program with", "instructions", "ms", "private KiB", "shared objects"], rows)


# ---- Sizes, code, kelcat


def sizes(build, results):
    rows = []
    for peer in ("module_shared", *build.peers("library")):
        figures = results.get("sizes", {}).get(peer, {})
        if "objects" in figures:
            objects = " + ".join(f"`{name}`" for name in figures["objects"])
            counts = (grouped(figures[key]) for key in ("bytes", "relocations", "constructors"))
            rows.append([objects, *counts, ", ".join(figures["needed"])])
    return table(["", "bytes", "relocations", "constructors", "needs"], rows)


def headers(build, results):
    """Libraries that are headers alone, and what each adds."""
    added = ((peer, figures.get("headers")) for peer, figures in results.get("sizes", {}).items())
    return "; ".join(f"{build.titles[peer]} {grouped(size)}" for peer, size in added if size is not None) or MISSING


def kelcat(_, results):
    rows, rates = [], results.get("kelcat", {})
    tools = list(next(iter(rates.values()), ()))
    for title, taken in rates.items():
        rows.append([title, *(spread(measure.quartiles(taken[tool])) if tool in taken else MISSING for tool in tools)])
    return table(["", *tools], rows)


def code(results, function):
    return "\n".join(("```", f"{function}:", *results.get("code", {}).get(function, [MISSING]), "```"))


def versions(_, results):
    """Few on a line, so that a new one moves no other."""
    told = [f"{name} {version}" for name, version in results.get("versions", {}).items()]
    return ",\n".join(", ".join(told[first:first + 4]) for first in range(0, len(told), 4))


def verdict(faults):
    if not faults:
        return "All of them hold."
    return "\n".join(("These do not:", "", *(f"- {fault}" for fault in faults)))


# ---- The page


TABLES = (versions, instructions, footnotes, times, system_calls, hidden, sctp, growth, threads, fixed, starts, sizes,
          headers, kelcat)


def in_words(number):
    return f"{number / 1e6:.1f} million" if number > 1e6 else grouped(number)


def told(build, results):
    """Counts that sentences tell: ${OPERATION__PEER}, and of the library that takes the least."""
    found = {}
    for operation, figures in results["counts"].items():
        costs = {peer: figures[peer]["instructions"] for peer in figures}
        costs["least_library"] = min((costs[peer] for peer in build.peers("library") if peer in costs), default=0)
        found |= {f"{operation}__{peer}": in_words(cost) for peer, cost in costs.items()}
    return collections.defaultdict(lambda: MISSING, found)


def page(build, results, faults):
    with open(TEMPLATE, encoding="utf-8") as file:
        template = string.Template(file.read())
    text = template.substitute(
        told(build, results) | {make.__name__: make(build, results) for make in TABLES},
        **{function: code(results, function) for function in plan.SHOWN},
        rounds=measure.ROUNDS,
        verdict=verdict(faults),
        room=f"{plan.ROOM:.0%}",
        straight=f"{plan.STRAIGHT:.0%}",
    )
    title, opening, rest = text.split("\n\n", 2)  # the numbers in it have moved the ends of its lines
    return "\n\n".join((title, textwrap.fill(opening, 120), rest))


JITTER = re.compile(r"([\d,.]+) \[([\d,.]+), ([\d,.]+)\]")


def settled(old, new):
    """The new page, with the old one's times where both runs agree: each one's median lies between the other's
    quartiles. Counts from 100,000 on, which an allocator's state moves a little, agree within a half per cent. A
    table's line is known by the heading above it and its first cell."""

    def lines(text):
        heading = ""
        for line in text.splitlines():
            heading = line if line.startswith("#") else heading
            yield (heading, line.split("|")[1] if line.startswith("|") else line), line

    def agree(one, other):
        large = [float(cell.replace(",", "")) for cell in (one, other) if re.fullmatch(r" [\d,]{7,} ", cell)]
        if len(large) == 2:
            return abs(large[0] - large[1]) < large[0] / 200
        found = [JITTER.fullmatch(cell.strip()) for cell in (one, other)]
        if not all(found):
            return False
        (a, low_a, high_a), (b, low_b, high_b) = ([float(text.replace(",", "")) for text in m.groups()] for m in found)
        return low_a <= b <= high_a and low_b <= a <= high_b

    before, result = dict(lines(old)), []
    for key, line in lines(new):
        fresh, kept = line.split("|"), before.get(key, "").split("|")
        if len(fresh) == len(kept) > 1:
            line = "|".join(one if agree(one, other) else other for one, other in zip(kept, fresh))
        result.append(line)
    return "\n".join(result) + "\n"


def shown(build, results):
    """The tables that a reader waits for, their columns aligned."""
    parts = []
    for make in (instructions, sctp, fixed, kelcat):
        rows = [[cell.strip() for cell in line.strip("|").split("|")] for line in make(build, results).splitlines()]
        del rows[1]
        widths = [max(map(len, column)) for column in zip(*rows)]
        parts.append("\n".join("  ".join([first.ljust(widths[0]), *map(str.rjust, rest, widths[1:])])
                               for first, *rest in rows))
    return "\n\n".join(parts)


# ---- The picture


def write_data(build, results, folder):
    """What performance.gnuplot reads: a row for each group or point."""

    def write(name, lines):
        with open(os.path.join(folder, name), "w", encoding="utf-8") as file:
            for line in lines:
                print(*line, sep="\t", file=file)

    # The delivered stand-ins and link-time optimisation have their columns in the table.
    peers = [*build.peers("hand"), *build.peers("module")[:2], *build.peers("library")]
    operations = {**plan.ENDPOINTS, **plan.TRANSFERS}
    bars = (
        [row.title, *(judge.instructions(results, peer, operation) for peer in peers)]
        for operation, row in operations.items()
    )
    write("operations", [["", *titles(build, peers)], *bars])
    texts = [name for name in plan.LISTS if name.endswith("_str")]
    for file, names in (("texts", texts), ("records", [name for name in plan.LISTS if name not in texts])):
        lines = [dict(judge.growth(build, results, name)) for name in names]
        write(file, [["", *names], *([n, *(line.get(n) for line in lines)] for n in plan.LIST_LENGTHS)])
    write("threads", ((threads, round(cost)) for threads, cost in judge.thread_costs(build, results)))
    return {"bars": len(peers), "groups": len(operations), "records": len(plan.LISTS) - len(texts), "texts": len(texts)}


def draw(build, results, path):
    with tempfile.TemporaryDirectory(prefix="kel-bench-") as folder:
        numbers = write_data(build, results, folder)
        values = [f"{name}={number}" for name, number in numbers.items()]
        values += [f"folder='{folder}'", f"picture='{path}'"]
        subprocess.run(["gnuplot", "-e", "; ".join(values), PLOT], check=True)
    picture.follow_scheme(path, "What the module costs beside others")


def write(build, results, faults, folder):
    path = os.path.join(folder, "performance.md")
    text = page(build, results, faults)
    if os.path.exists(path):
        with open(path, encoding="utf-8") as file:
            text = settled(file.read(), text)
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)
    draw(build, results, os.path.join(folder, "performance.svg"))
