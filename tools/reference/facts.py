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
        if match := re.match(r"  (\w+)(?:  - (.*)|  \+)?$", line):
            errors[call] += [match[1]] * (match[2] is None)
            of_paths |= {match[1]} if (match[2] or "").startswith("of local paths") else set()
        elif match := re.match(r"(\w+)$", line):
            call = match[1]
            errors[call] = []
    return errors, of_paths


ERRORS, OF_PATHS = table()
FOREIGN = {  # errors that a call answers for sockets of other families, or of other types, than an endpoint's own
    "kel_(tcp|udp)_": {
        "socket": "EACCES EINVAL EPERM EPROTONOSUPPORT ESOCKTNOSUPPORT",
        "bind": OF_PATHS,
        "connect": {"EPERM"} | OF_PATHS,
    },
    "kel_sctp_": {"socket": "EACCES EINVAL EPERM"},
    "kel_sctp_.*one2one": {"socket": "ESOCKTNOSUPPORT"},
    "kel_unix_": {
        "socket": "EPERM ESOCKTNOSUPPORT",
        "bind": "EADDRNOTAVAIL EINVAL ENODEV",
        "listen": "EADDRINUSE EINVAL",
        "connect": "EADDRNOTAVAIL EAFNOSUPPORT EHOSTUNREACH EINVAL ENETUNREACH EPERM ETIMEDOUT",
    },
    "kel_(raw_|get_if_)": {
        "socket": "EACCES EINVAL EPROTONOSUPPORT ESOCKTNOSUPPORT",
        "bind": {"EACCES", "EADDRINUSE", "EADDRNOTAVAIL", "EINVAL", "ENOMEM"} | OF_PATHS,
        "sendto": "EACCES EALREADY ECONNREFUSED ECONNRESET EDESTADDRREQ EINPROGRESS EISCONN ENETUNREACH ENOMEM ENOTCONN"
        " EOPNOTSUPP EPIPE",
    },
}
UNTOLD = {  # what steps leave that do not end their function
    "kel_unix_tcp_server_socket_create": {"EFAULT": "unlink"},  # of NULL, which is refused behind it without a call
}


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
    """The errors that only another family brings, or a caller's descriptor, number or memory where a function uses its
    own, which always waits."""
    given = [any(word in ways.FUNCTIONS[name].parameters for word in re.findall(r"\w+", one)) for one in arguments]
    for names, foreign in FOREIGN.items():
        if re.match(names, name):
            errors = foreign.get(call, ())
            yield from errors.split() if isinstance(errors, str) else errors
    if call == "socket":
        yield from () if any(given) else ("EACCES", "EAFNOSUPPORT", "EINVAL", "EPROTONOSUPPORT")
    elif not given[0]:
        yield from ("EBADF", "ENOTSOCK", "EOPNOTSUPP", "ENOTTY", "EISCONN", "EINPROGRESS", "ENOPROTOOPT")
        yield from ("EALREADY", "EAGAIN") if call == "connect" else ()  # sctp_connectx begins anew behind a signal
    if not any(given[1:]):
        yield from ("EFAULT", "ENOPROTOOPT")
        yield from () if call in ("bind", "connect") else ("EINVAL",)  # they refuse addresses that are written well


def errors(name):
    """The errors that a failure of the function may leave, with the calls that they come from."""
    found, lacks_descriptor = {}, False
    for row, call, ends in steps(name):
        told = any(end[-1].startswith("result") for end in ends) if ends else "->" in row.step
        if any(fate == "closed twice" for _, (_, fate) in row.fails):
            found.setdefault("EBADF", {})["close"] = True  # in place of what the step has left
            told = False
        arguments = ways.items(re.match(r"\w+\((.*)\)", row.step)[1], ",") if call in ERRORS else []
        for error in ERRORS.get(call, []) if told else []:
            of_none = error == "EBADF" and call == "sctp_bindx" and lacks_descriptor
            if of_none or error not in impossible(name, call, arguments):
                found.setdefault(error, {})[call] = True
        lacks_descriptor |= any(end[-1] == "goes on with fd -1" for end in ends)
    for error, call in UNTOLD.get(name, {}).items():
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
