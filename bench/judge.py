"""Holds results against the plan: one sentence for each fault, none when all of it holds."""

import plan


def instructions(results, peer, operation):
    """User instructions for one operation, or None when they were not measured. What frames them leaves fractions."""
    figures = results["counts"].get(operation, {}).get(peer)
    return None if figures is None else round(figures["instructions"])


def growth(build, results, name):
    """(addresses, instructions) of a function that works on lists."""
    (peer,) = build.peers("addresses")
    points = ((n, instructions(results, peer, f"{name}_{n}")) for n in plan.LIST_LENGTHS)
    return [(n, cost) for n, cost in points if cost is not None]


def line(points):
    """The least-squares line: cost without addresses, cost of each, and the largest distance as a share."""
    xs, ys = zip(*points)
    middle_x, middle_y = sum(xs) / len(xs), sum(ys) / len(ys)
    spread = sum((x - middle_x) ** 2 for x in xs)
    slope = sum((x - middle_x) * (y - middle_y) for x, y in points) / spread if spread else 0
    base = middle_y - slope * middle_x
    return base, slope, max(abs(y - base - slope * x) / y for x, y in points)


def thread_costs(build, results):
    """(threads, instructions for an endpoint of one of them)."""
    (peer,) = build.peers("threads")
    costs = ((n, instructions(results, peer, f"threads_{n}")) for n in plan.THREAD_COUNTS)
    return [(n, cost / n) for n, cost in costs if cost is not None]


# ---- Faults


def over(what, count, planned):
    """A sentence when a count is above the planned one by more than the room that it has."""
    most = int(planned * (1 + plan.ROOM))
    if count > most:
        yield f"{what}: {count:,} where {planned:,} are planned, and {most:,} the most"


def completeness(build, results):
    for part in plan.PARTS:
        for operation in part.rows:
            for peer in build.peers(*part.groups):
                if (peer, operation) not in build.notes:
                    yield f"{operation}: bench_{peer} neither has it nor says why not"
    planned = set().union(*(part.rows for part in plan.PARTS))
    for peer, operation in build.notes:
        if operation not in planned:
            yield f"{operation}: bench_{peer} has it, and the plan does not know it"


def judged(build, results):
    """The module's figures: (operation, row, peer, its planned count or None, figures, those by hand or None)."""
    for part in plan.PARTS:
        by_hand = build.peers(*(group for group in part.groups if group in plan.BY_HAND))
        modules = build.peers(*(group for group in part.groups if group in plan.MODULE))
        for operation, row in part.rows.items():
            figures = results["counts"].get(operation, {})
            for place, peer in enumerate(modules):
                if peer in figures:
                    planned = row.counts[place] if row.counts else None
                    yield operation, row, peer, planned, figures[peer], figures.get(by_hand[0]) if by_hand else None


def counts(build, results):
    for operation, row, peer, planned, figures, by_hand in judged(build, results):
        if planned is not None:
            yield from over(f"{operation}, {peer}, instructions", round(figures["instructions"]), planned)
        if round(figures["allocations"]) != row.allocations:
            yield f"{operation}, {peer}: {figures['allocations']:g} allocations where {row.allocations} are planned"
        for key, name in (("locked_instructions", "locked instructions"), ("locks", "locks")):
            if round(figures[key]) != 0 and not row.locks:
                yield f"{operation}, {peer}: {figures[key]:g} {name} where none are planned"
        calls = figures["system_calls"]
        if by_hand and calls != by_hand["system_calls"]:
            yield f"{operation}, {peer}: other system calls, {calls}, than by hand, {by_hand['system_calls']}"
        if row.system_calls not in (None, len(calls)):
            yield f"{operation}, {peer}: {len(calls)} system calls where {row.system_calls} are planned: {calls}"


def growing(build, results):
    for name in plan.LISTS:
        points = growth(build, results, name)
        if points and line(points)[2] > plan.STRAIGHT:
            yield f"{name}: {line(points)[2]:.1%} off a straight line, and {plan.STRAIGHT:.0%} is the most"
    costs = thread_costs(build, results)
    for threads, cost in costs[1:]:
        yield from over(f"threads_{threads}, instructions beside a single thread's", round(cost), round(costs[0][1]))


def library(_, results):
    figures = results.get("sizes", {}).get("module_shared")
    if figures:
        for key, planned in plan.LIBRARY.items():
            yield from over(f"the stripped library, {key}", figures[key], planned)
        if set(figures["needed"]) != set(plan.LIBRARY_NEEDED):
            yield f"the library needs {', '.join(figures['needed'])}, and is to need {', '.join(plan.LIBRARY_NEEDED)}"


def starts(_, results):
    for name, (_, planned) in plan.STARTS.items():
        if planned and name in results.get("starts", {}):
            yield from over(f"{name}, instructions", results["starts"][name]["instructions"], planned)


def faults(build, results):
    checks = (completeness, counts, growing, library, starts)
    return [fault for check in checks for fault in check(build, results)]
