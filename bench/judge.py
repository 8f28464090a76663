"""Holds results against the plan: one sentence for each fault, none when all of it holds."""

import plan


def instructions(results, peer, operation):
    """User instructions for one operation, or None when they were not measured. Start-up and end leave fractions."""
    figures = results["operations"].get(operation, {}).get(peer)
    return None if figures is None else round(figures["instructions"])


def limit(results, peer, operation):
    """The most that this operation may cost this peer, or None."""
    shared = peer == "module_shared"
    if shared and operation in plan.SHARED_LIBRARY_LIMITS:
        return plan.SHARED_LIBRARY_LIMITS[operation]
    most = plan.LIMITS.get(operation)
    if operation in plan.SHARE_LIMITED:
        reference = instructions(results, plan.REFERENCE, operation)
        most = None if reference is None else int(reference * plan.LIMIT_SHARE)
    return None if most is None else most + plan.SHARED_LIBRARY_EXTRA * shared


def growth(results, name):
    """(addresses, instructions) of a function that works on lists."""
    points = ((n, instructions(results, "growth_addresses", f"{name}_{n}")) for n in plan.LIST_LENGTHS)
    return [(n, cost) for n, cost in points if cost is not None]


def line(points):
    """The least-squares line: cost without addresses, cost of each, and the largest distance as a share."""
    xs, ys = zip(*points)
    middle_x, middle_y = sum(xs) / len(xs), sum(ys) / len(ys)
    spread = sum((x - middle_x) ** 2 for x in xs)
    slope = sum((x - middle_x) * (y - middle_y) for x, y in points) / spread if spread else 0
    base = middle_y - slope * middle_x
    return base, slope, max(abs(y - base - slope * x) / y for x, y in points)


def thread_costs(results):
    """(threads, instructions for an endpoint of one of them)."""
    costs = ((n, instructions(results, "growth_threads", f"threads_{n}")) for n in plan.THREAD_COUNTS)
    return [(n, cost / n) for n, cost in costs if cost is not None]


def flatness(costs):
    """The largest distance from a single thread's cost, as a share of it."""
    alone = costs[0][1]
    return max(abs(cost - alone) / alone for _, cost in costs)


# ---- Faults


def completeness(results):
    measured = {(peer, operation) for operation, peers in results["operations"].items() for peer in peers}
    planned = set()
    for peer, (_, operations) in plan.programs().items():
        planned |= {(peer, operation) for operation in operations}
        if peer in results["missing"]:
            yield f"bench_{peer} is missing: it was not built"
        else:
            for operation in operations:
                if (peer, operation) not in measured:
                    yield f"bench_{peer} has no operation {operation}; the plan has"
    for peer, operation in sorted(measured - planned):
        yield f"bench_{peer} has an operation that the plan does not know: {operation}"
    for name in plan.STARTS:
        if name not in results["startup"]:
            yield f"bench_{name} is missing: it was not built"
    for peer in plan.LIBRARIES:
        objects = plan.PEERS[peer].objects
        if objects and peer not in results["sizes"] and peer not in results["missing"]:
            yield f"bench_{peer} does not load {', '.join(objects)}"


def modules(results):
    """The module's figures beside those of its reference: (operation, peer, figures, reference's figures)."""
    for reference, peers in ((plan.REFERENCE, plan.MODULE), (plan.SCTP_REFERENCE, plan.SCTP_MODULE)):
        for operation, figures in results["operations"].items():
            for peer in peers:
                if peer in figures and reference in figures:
                    yield operation, peer, figures[peer], figures[reference]


def same_system_calls(results):
    for operation, peer, figures, reference in modules(results):
        if figures["system_calls"] != reference["system_calls"]:
            own, other = (", ".join(calls["system_calls"]) or "none" for calls in (figures, reference))
            yield f"{operation}: {peer} makes other system calls than by hand: {own}; by hand: {other}"


def nothing_hidden(results):
    own = [(operation, peer, figures) for operation, peer, figures, _ in modules(results)]
    for operation in plan.FRAMES:
        own += [(operation, peer, figures) for peer, figures in results["operations"].get(operation, {}).items()]
    for operation in plan.programs()["growth_addresses"][1]:
        own += [(operation, peer, figures) for peer, figures in results["operations"].get(operation, {}).items()]
    for operation, peer, figures in own:
        allowed = plan.ALLOCATIONS.get(operation, plan.ALLOCATIONS.get(operation.rpartition("_")[0], 0))
        if figures["allocations"] != allowed:
            yield f"{operation}: {peer} makes {figures['allocations']:g} allocations, and is to make {allowed}"
        for key, name in (("locked_instructions", "locked instructions"), ("locks", "locks")):
            if figures[key] != 0:
                yield f"{operation}: {peer} has {figures[key]:g} {name}, and is to have none"


def below_limits(results):
    for operation in plan.OPERATIONS:
        for peer in plan.MODULE:
            cost, most = instructions(results, peer, operation), limit(results, peer, operation)
            if None not in (cost, most) and cost > most:
                yield f"{operation}: {peer} takes {cost} instructions, and is to take at most {most}"


def shared_like_static(results):
    for static, shared in (plan.MODULE, plan.SCTP_MODULE):
        for operation, figures in results["operations"].items():
            if static in figures and shared in figures:
                more = instructions(results, shared, operation) - instructions(results, static, operation)
                if abs(more) > plan.SHARED_LIBRARY_EXTRA:
                    yield (
                        f"{operation}: the shared library takes {more:+} instructions beside the static one, "
                        f"and is to be within {plan.SHARED_LIBRARY_EXTRA}"
                    )


def below_libraries(results):
    for operation in (*plan.ENDPOINTS, *plan.TRANSFERS):
        own = instructions(results, "module_shared", operation)
        for peer in plan.LIBRARIES:
            theirs = instructions(results, peer, operation)
            compared = operation in plan.ENDPOINTS or not plan.PEERS[peer].bare
            if compared and None not in (own, theirs) and own >= theirs:
                yield f"{operation}: module_shared takes {own} instructions, and is to be below {peer}'s {theirs}"


def library(results):
    figures = results["sizes"]["module_shared"]
    if figures["bytes"] > plan.LIBRARY_BYTES:
        yield f"the stripped library has {figures['bytes']} bytes, and is to have at most {plan.LIBRARY_BYTES}"
    if figures["relocations"] > plan.LIBRARY_RELOCATIONS:
        yield f"the library has {figures['relocations']} relocations, and is to have at most {plan.LIBRARY_RELOCATIONS}"
    if figures["constructors"] != 0:
        yield f"the library has {figures['constructors']} start-up constructors of its own, and is to have none"
    if set(figures["needed"]) != set(plan.LIBRARY_NEEDED):
        yield f"the library needs {', '.join(figures['needed'])}, and is to need {', '.join(plan.LIBRARY_NEEDED)}"


def growing(results):
    for name in plan.LISTS:
        points = growth(results, name)
        if points and line(points)[2] > plan.STRAIGHT:
            yield (
                f"{name}: the cost by number of addresses is {line(points)[2]:.1%} off a straight line, "
                f"and is to be at most {plan.STRAIGHT:.0%} off"
            )
    costs = thread_costs(results)
    if costs and flatness(costs) > plan.FLAT:
        yield (
            f"threads: an endpoint's cost is {flatness(costs):.1%} off a single thread's, "
            f"and is to be at most {plan.FLAT:.0%} off"
        )


CHECKS = (
    completeness,
    same_system_calls,
    nothing_hidden,
    below_limits,
    shared_like_static,
    below_libraries,
    library,
    growing,
)


def faults(results):
    return [fault for check in CHECKS for fault in check(results)]
