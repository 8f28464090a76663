"""What ./run bench measures, and the counts that are held: a row for each operation.

Names are those of the programs' own tables, titles those of docs/performance.md. The programs and their order come from
bench/CMakeLists.txt.
"""

import typing

ROOM = 0.02  # what a count may be above the one that stands here


class Row(typing.NamedTuple):
    """An operation and, of each of the module's programs that do it, in their order, its user instructions."""

    title: str
    counts: tuple
    allocations: int = 0
    system_calls: int | None = None  # their number, where nobody does the same by hand
    locks: bool = False  # whether it may


ENDPOINTS = {
    "tcp_server_ipv4": Row("TCP server, IPv4", (389, 391, 469, 339)),
    "tcp_server_ipv6": Row("TCP server, IPv6", (351, 353, 431, 303)),
    "tcp_client": Row("TCP client", (386, 388, 466, 314)),
    "udp_server": Row("UDP server", (378, 380, 458, 322)),
    "local_server": Row("local server", (221, 223, 338, 140)),
}
TRANSFERS = {
    "send_recv": Row("send, recv", (40, 42, 40, 40)),
    "sendto_recvfrom": Row("sendto, recvfrom", (63, 65, 63, 49)),
}
ADDRESSES = {
    "ipv4_from_text": Row("IPv4 from text", (341, 342, 341, 326)),
    "ipv6_from_text": Row("IPv6 from text", (711, 712, 711, 695)),
    "ipv4_record_from_text": Row("IPv4 record from text", (397, 398, 437, 369)),
    "ipv6_record_from_text": Row("IPv6 record from text", (768, 769, 808, 741)),
    "ipv4_to_text": Row("IPv4 to text", (1853, 1854, 1853, 1849)),
    "ipv6_to_text": Row("IPv6 to text", (4386, 4387, 4386, 4380)),
    "ipv4_line": Row("IPv4 line of text", (3023, 3024, 3094, 3016)),
    "ipv6_line": Row("IPv6 line of text", (5505, 5506, 5576, 5498)),
    "ipv4_compare": Row("IPv4 comparison", (54, 55, 99, 24)),
    "ipv6_compare": Row("IPv6 comparison", (52, 53, 97, 25)),
}
# Lists of addresses are converted in memory from tcmalloc, and libsctp makes some of its own.
SCTP = {
    "sctp_sendmsg_recvmsg": Row("sendmsg, recvmsg", (202, 204)),
    "sctp_server_one2one": Row("one-to-one server", (330, 332), 1),
    "sctp_server_one2many": Row("one-to-many server", (327, 329), 1),
    "sctp_server_one2one_str": Row("one-to-one server, from texts", (1027, 1029), 2),
    "sctp_server_one2many_str": Row("one-to-many server, from texts", (1024, 1026), 2),
    "sctp_client_one2one": Row("one-to-one client", (389, 391), 1),
    "sctp_client_one2one_bind": Row("one-to-one client, bound", (585, 587), 2),
    "sctp_client_one2one_str": Row("one-to-one client, from texts", (1086, 1088), 2),
    "sctp_client_one2many": Row("one-to-many client", (152, 154)),
    "sctp_client_one2many_bind": Row("one-to-many client, bound", (335, 337), 1),
    "sctp_client_one2many_str": Row("one-to-many client, from texts", (834, 836), 1),
    "sctp_getpaddrs": Row("a peer's addresses", (311, 313), 2),
}
# By the number of addresses: with one of them, and with the most.
LISTS = {
    "bindx": Row("`kel_sctp_bindx`", (258, 2148), 1),
    "bindx_str": Row("`kel_sctp_bindx_str`", (711, 21882), 2),
    "getladdrs": Row("`kel_sctp_getladdrs`", (303, 798), 2),
    "server_one2one": Row("`kel_sctp_server_one2one_create`", (300, 2190), 1),
    "server_one2one_str": Row("`kel_sctp_server_one2one_str_create`", (767, 21938), 2),
    "client_one2one": Row("`kel_sctp_client_one2one_create`", (359, 2249), 1),
}
LIST_LENGTHS = (1, 2, 4, 8, 16, 32, 64)
# The largest distance from the least-squares line, as a share of the value. The C library copies in steps, which show
# in the lists that are read.
STRAIGHT = 0.03

# A TCP server in each of so many threads; the others' costs are held to a single one's. In a program with threads the C
# library locks what marks a call that may be cancelled.
THREADS = Row("threads", (427,), locks=True)
THREAD_COUNTS = (1, 2, 4, 8, 16)

PATTERNS = {
    "is_ipv4_match": Row("`kel_is_ipv4_addr`, an IPv4 text", (229832,), 633, 0, True),
    "is_ipv4_mismatch": Row("`kel_is_ipv4_addr`, an IPv6 text", (176352,), 425, 0, True),
    "is_ipv6_match": Row("`kel_is_ipv6_addr`, an IPv6 text", (3396155,), 7790, 0, True),
    "is_ipv6_mismatch": Row("`kel_is_ipv6_addr`, an IPv4 text", (2925882,), 6886, 0, True),
    "is_ipv4_match_utf8": Row("`kel_is_ipv4_addr`, an IPv4 text, UTF-8", (655089,), 876, 0, True),
    "is_ipv4_mismatch_utf8": Row("`kel_is_ipv4_addr`, an IPv6 text, UTF-8", (581444,), 665, 0, True),
    "is_ipv6_match_utf8": Row("`kel_is_ipv6_addr`, an IPv6 text, UTF-8", (6900636,), 13095, 0, True),
    "is_ipv6_mismatch_utf8": Row("`kel_is_ipv6_addr`, an IPv4 text, UTF-8", (6191395,), 12181, 0, True),
}
FRAMES = {
    "raw_sendto": Row("`kel_raw_sendto`, by interface", (938,), 0, 7),
    "raw_sendto_record": Row("`kel_sendto`, with a record filled once", (36,), 0, 1),
}


# ---- Who does them, and where


class Part(typing.NamedTuple):
    """Operations, and the groups of programs that do them. The first program is the reference of the times, and one by
    hand that of the system calls."""

    rows: dict
    groups: tuple
    counted: str  # "host" or "guest"
    timed: tuple  # one of these, both, or none
    repetitions: int = 60  # that are counted


def lengths(name, row):
    """A row for each number of addresses; the first and the last are held to their counts, all to the line."""
    counts = {LIST_LENGTHS[0]: row.counts[:1], LIST_LENGTHS[-1]: row.counts[1:]}
    return {f"{name}_{n}": row._replace(counts=counts.get(n, ())) for n in LIST_LENGTHS}


LISTED = {name: row for each in LISTS.items() for name, row in lengths(*each).items()}
THREADED = {f"threads_{n}": THREADS if n == 1 else THREADS._replace(counts=()) for n in THREAD_COUNTS}
HOST = Part({**ENDPOINTS, **TRANSFERS, **ADDRESSES}, ("hand", "module", "library"), "host", ("host",))
PARTS = (
    HOST,
    Part(THREADED, ("threads",), "host", ("host",), 1200),  # to make a thread never takes quite the same
    Part(PATTERNS, ("fixed",), "host", ("host",), 24),  # millions of instructions each
    Part(SCTP, ("sctp_hand", "sctp_module"), "guest", ("guest",)),
    Part(FRAMES, ("fixed",), "guest", ("guest", "host")),
    Part(LISTED, ("addresses",), "guest", ()),
)
BY_HAND = ("hand", "sctp_hand")
MODULE = ("module", "sctp_module", "addresses", "threads", "fixed")  # the groups that are judged

# Programs that start and end, the least first: what links them, and the instructions of those that link the module.
STARTS = {
    "start_none": ("the C library alone", None),
    "start_without_sctp": ("the module, static, without SCTP", 112705),
    "start_tcmalloc_minimal": ("tcmalloc, its minimal build", None),
    "start_tcmalloc": ("tcmalloc, its full build", None),
    "start_static": ("the module, static", 6272100),
    "start_shared": ("the module, shared", 6263277),
}

# The shared library, without symbols.
LIBRARY = {"bytes": 42320, "relocations": 52, "constructors": 0}
LIBRARY_NEEDED = ("libc.so.6", "libsctp.so.1", "libtcmalloc_minimal.so.4")

# Whose instructions are shown, with the reasons for each in performance.md.in.
SHOWN = ("kel_send", "kel_recvfrom", "kel_sizeof_socket")
