"""What tests/behaviour says of each function: the calls behind it, their errors as tests/truth brings them about, and
what is reported."""

import functools
import re

import ways

ways.read()
REPORT = re.compile(r'report (?:(\w+) )?"([^"]*)".*')


def table():
    """The errors of each call that the kernel has been brought to, and those that local paths alone have."""
    errors, of_paths, call = {}, set(), None
    for line in open("tests/behaviour/errno.txt", encoding="utf-8"):
        if match := re.match(r"  (\w+)(?:  - (.*))?", line):
            errors[call] += [match[1]] * (match[2] is None)
            of_paths |= {match[1]} if (match[2] or "").startswith("of local paths") else set()
        elif match := re.match(r"(\w+)$", line):
            call = match[1]
            errors[call] = []
    return errors, of_paths


ERRORS, OF_PATHS = table()


@functools.cache
def steps(name):
    """The rows of a function with what each calls and with the ends of its failures."""
    return [(row, row.is_call and re.match(r"\w+", row.step)[0], [events for _, (events, _) in row.fails])
            for row in ways.rows_of(name)]


def calls(name):
    """The calls of the system and of its libraries behind a function, in their order."""
    found = [call for _, call, _ in steps(name) if call and (call in ERRORS or call == "inet_ntop")]
    return list(dict.fromkeys(found))


def impossible(name, call, arguments):
    """The errors that only a caller's descriptor, number or memory brings, where the function uses its own."""
    given = [any(word in ways.FUNCTIONS[name].parameters for word in re.findall(r"\w+", one)) for one in arguments]
    if re.match("kel_(tcp|udp|sctp|raw)_", name) and call in ("bind", "connect"):
        yield from OF_PATHS
    if call == "socket":
        yield from () if any(given) else ("EACCES", "EAFNOSUPPORT", "EINVAL", "EPROTONOSUPPORT")
    elif not given[0]:
        yield from ("EBADF", "ENOTSOCK", "EOPNOTSUPP", "ENOTTY", "EISCONN", "EALREADY")
    if not any(given[1:]):
        yield from ("EFAULT", "ENOPROTOOPT", "EINVAL")


def errors(name):
    """The errors that a failure of the function may leave, with the calls that they come from."""
    found = {}
    for row, call, ends in steps(name):
        told = any(end[-1].startswith("result") for end in ends) if ends else "->" in row.step
        arguments = ways.items(re.match(r"\w+\((.*)\)", row.step)[1], ",") if call in ERRORS else []
        for error in ERRORS.get(call, []) if told else []:
            if error not in impossible(name, call, arguments):
                found.setdefault(error, {})[call] = True
    return {error: list(found[error]) for error in sorted(found)}


def reports(name):
    """The texts of a function's reports, each with the function that the console names and the steps that fail."""
    found, asserts = {}, False
    for row, call, ends in steps(name):
        null = re.match(r"null (\w+)", row.step)
        step = call or (f"null {null[1]}" if null else row.reached)
        for event in [event for end in ends for event in end] + [row.step]:
            asserts |= event == "assertion fails"
            if match := REPORT.fullmatch(event):
                found.setdefault((match[2], match[1] or name), {})[step] = True
    return {key: list(found[key]) for key in found}, asserts
