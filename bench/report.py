"""Writes results down: docs/performance.md out of performance.md.in, and docs/performance.svg."""

import collections
import os
import string
import subprocess
import tempfile

import judge
import measure
import plan

HERE = os.path.dirname(os.path.realpath(__file__))
TEMPLATE = os.path.join(HERE, "performance.md.in")
PLOT = os.path.join(HERE, "performance.gnuplot")

MARKS = "¹²³⁴⁵"
NONE = "–"
MISSING = "missing"


def table(head, rows):
    """A Markdown table: the first column to the left, figures to the right."""
    lines = [head, ["---"] + ["---:"] * (len(head) - 1), *rows]
    return "\n".join(f"| {' | '.join(map(str, line))} |" for line in lines)


def grouped(number):
    return f"{number:,.0f}"


def quartiles(low, middle, high, form):
    return f"{middle:{form}} [{low:{form}}, {high:{form}}]"


def cells(results, operation, peers, show):
    """The figures of these peers for an operation, as show() writes each."""
    figures = results["operations"].get(operation, {})
    return [
        NONE if (peer, operation) in plan.ABSENT else show(figures[peer]) if peer in figures else MISSING
        for peer in peers
    ]


def titles(peers):
    return [peer.title for peer in peers.values()]


def show_instructions(figures):
    return grouped(figures["instructions"])


def show_ratio(figures):
    return quartiles(figures["ratio_low"], figures["ratio"], figures["ratio_high"], ".2f")


# ---- Operations of the host


def mark(peer, operation):
    """The footnote's, where there is one."""
    notes = zip(MARKS, plan.FOOTNOTES)
    return "".join(sign for sign, (peers, operations, _) in notes if peer in peers and operation in operations)


def instructions(results):
    rows = []
    for operation, title in plan.OPERATIONS.items():
        costs = cells(results, operation, plan.PEERS, show_instructions)
        costs = [cost + mark(peer, operation) for cost, peer in zip(costs, plan.PEERS)]
        limits = [judge.limit(results, peer, operation) for peer in plan.MODULE]
        shown = " / ".join(NONE if most is None else grouped(most) for most in dict.fromkeys(limits))
        rows.append([title, *costs[:4], shown, *costs[4:]])
    heads = titles(plan.PEERS)
    return table(["", *heads[:4], "limits", *heads[4:]], rows)


def footnotes():
    notes = [f"{sign} {text}" for sign, (_, _, text) in zip(MARKS, plan.FOOTNOTES)]
    reasons = collections.defaultdict(dict)  # dicts, as sets that keep their order
    for (peer, _), reason in plan.ABSENT.items():
        reasons[reason][plan.PEERS[peer].title] = None
    notes += [f"{NONE} {' and '.join(peers)}: {reason}" for reason, peers in reasons.items()]
    return "; ".join(notes) + "."


def times(results):
    peers = {name: peer for name, peer in plan.PEERS.items() if name != plan.REFERENCE}
    rows = [
        [title, *cells(results, operation, peers, show_ratio)] for operation, title in plan.OPERATIONS.items()
    ]
    return table(["", *titles(peers)], rows)


def difference(calls, reference):
    """What is missing and what is too much beside the reference's."""
    own, other = collections.Counter(calls), collections.Counter(reference)
    parts = [f"−{call}" for call in (other - own).elements()] + [f"+{call}" for call in (own - other).elements()]
    return " ".join(parts) or ("" if calls == reference else "in another order")


def system_calls(results):
    operations = {**plan.ENDPOINTS, **plan.TRANSFERS}
    columns = []
    for operation in operations:
        reference = results["operations"].get(operation, {}).get(plan.REFERENCE, {}).get("system_calls", [])

        def show(figures):
            calls = figures["system_calls"]
            return f"{len(calls)} {difference(calls, reference)}".strip()

        column = cells(results, operation, plan.PEERS, show)
        column[0] = f"{len(reference)} {', '.join(reference)}"
        columns.append([entry.replace("setsockopt ", "") for entry in column])
    return table(["", *operations.values()], zip(titles(plan.PEERS), *columns))


def show_hidden(figures):
    counts = [round(figures[key]) for key in ("allocations", "locked_instructions", "locks")]
    return " / ".join(map(str, counts)) if any(counts) else NONE


def hidden(results):
    """Of those that have any, and the operations in which they do."""
    columns = {title: cells(results, name, plan.PEERS, show_hidden) for name, title in plan.OPERATIONS.items()}
    columns = {title: column for title, column in columns.items() if set(column) != {NONE}}
    rows = [row for row in zip(titles(plan.PEERS), *columns.values()) if set(row[1:]) != {NONE}]
    return table(["", *columns], rows)


# ---- SCTP, growth, fixed costs


def sctp(results):
    module = {name: plan.SCTP_PEERS[name] for name in plan.SCTP_MODULE}
    rows = []
    for operation, title in plan.SCTP_OPERATIONS.items():
        row = [title, *cells(results, operation, plan.SCTP_PEERS, show_instructions)]
        row += cells(results, operation, module, lambda figures: f"{figures['allocations']:.0f}")[:1]
        rows.append(row + cells(results, operation, module, show_ratio))
    head = ["", *titles(plan.SCTP_PEERS), "allocations, module", *(f"time, {title}" for title in titles(module))]
    return table(head, rows)


def growth(results):
    rows = []
    for name, title in plan.LISTS.items():
        points = judge.growth(results, name)
        if points:
            base, slope, distance = judge.line(points)
            rows.append([title, grouped(base), f"{slope:.1f}", f"{distance:.1%}"])
        else:
            rows.append([title, *[MISSING] * 3])
    return table(["", "the call", "each address", "farthest from the line"], rows)


def threads(results):
    costs = judge.thread_costs(results)
    rows = [["instructions", *(grouped(cost) for _, cost in costs)], ["µs"]]
    for count, _ in costs:
        figures = results["operations"][f"threads_{count}"]["growth_threads"]
        rows[1].append(f"{figures['ns'] / 1000 / count:.1f}" if "ns" in figures else NONE)
    return table(["threads", *(n for n, _ in costs)], rows)


def fixed(results):
    def microseconds(figures):
        return grouped(figures["ns"] / 1000) if "ns" in figures else NONE

    shows = (
        show_instructions,
        lambda figures: grouped(figures["allocations"]),
        lambda figures: len(figures["system_calls"]),
        microseconds,
    )
    rows = []
    for operation, title in {**plan.PATTERNS, **plan.FRAMES}.items():
        rows.append([title, *(cells(results, operation, ("fixed",), show)[0] for show in shows)])
    return table(["", "instructions", "allocations", "system calls", "µs"], rows)


def starts(results):
    rows = []
    for name, title in plan.STARTS.items():
        figures = results["startup"].get(name)
        if figures is None:
            rows.append([title, *[MISSING] * 4])
            continue
        span = figures["microseconds"]
        rows.append(
            [
                title,
                grouped(figures["instructions"]),
                quartiles(*(span[key] / 1000 for key in ("lower_quartile", "median", "upper_quartile")), ".1f"),
                grouped(figures["private_kib"]),
                len(figures["objects"]),
            ]
        )
    return table(["a program with", "instructions", "ms", "private KiB", "shared objects"], rows)


# ---- Sizes, instructions


def sizes(results):
    rows = []
    for peer in ("module_shared", *plan.LIBRARIES):
        figures = results["sizes"].get(peer)
        if figures is not None and peer != "asio":
            objects = " + ".join(f"`{name}`" for name in figures["objects"])
            counts = (grouped(figures[key]) for key in ("bytes", "relocations", "constructors"))
            rows.append([objects, *counts, ", ".join(figures["needed"])])
    return table(["", "bytes", "relocations", "constructors", "needs"], rows)


def code(results, function):
    return "\n".join(("```", f"{function}:", *results["disassembly"][function], "```"))


def verdict(faults):
    if not faults:
        return "All of them hold."
    return "\n".join(("These do not:", "", *(f"- {fault}" for fault in faults)))


# ---- The page


def page(results, faults):
    with open(TEMPLATE, encoding="utf-8") as file:
        template = string.Template(file.read())
    values = {
        "versions": ", ".join(f"{name} {version}" for name, version in results["versions"].items()),
        "asio_bytes": grouped(results["sizes"]["asio"]["bytes"]) if "asio" in results["sizes"] else MISSING,
        "rounds": measure.ROUNDS,
        "footnotes": footnotes(),
        "verdict": verdict(faults),
        "library_bytes": grouped(plan.LIBRARY_BYTES),
        "library_relocations": plan.LIBRARY_RELOCATIONS,
        "library_needed": ", ".join(plan.LIBRARY_NEEDED),
        "straight": f"{plan.STRAIGHT:.0%}",
        "flat": f"{plan.FLAT:.0%}",
        **{function: code(results, function) for function in plan.SHOWN},
    }
    tables = (instructions, times, system_calls, hidden, sctp, growth, threads, fixed, starts, sizes)
    values |= {make.__name__: make(results) for make in tables}
    return template.substitute(values)


# ---- The picture


def write_data(results, folder):
    """What performance.gnuplot reads: a row for each group or point, of complete results."""

    def write(name, lines):
        with open(os.path.join(folder, name), "w", encoding="utf-8") as file:
            for line in lines:
                print(*line, sep="\t", file=file)

    def costs(operation, peers):
        return [judge.instructions(results, peer, operation) for peer in peers]

    operations = {**plan.ENDPOINTS, **plan.TRANSFERS}
    bars = [[title, *costs(operation, plan.PEERS)] for operation, title in operations.items()]
    write("operations", [["", *titles(plan.PEERS)], *bars])
    texts = [name for name in plan.LISTS if name.endswith("_str")]
    for file, names in (("texts", texts), ("records", [name for name in plan.LISTS if name not in texts])):
        lines = (dict(judge.growth(results, name)) for name in names)
        points = zip(plan.LIST_LENGTHS, *(line.values() for line in lines))
        write(file, [["", *names], *points])
    write("threads", judge.thread_costs(results))


def picture(results, path):
    with tempfile.TemporaryDirectory(prefix="kel-bench-") as folder:
        write_data(results, folder)
        subprocess.run(["gnuplot", "-e", f"folder='{folder}'; picture='{path}'", PLOT], check=True)
