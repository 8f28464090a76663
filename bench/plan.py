"""What ./run bench measures, on whom, and what has to hold.

Names are those of the programs: bench_PEER OPERATION COUNT. Titles are those of docs/performance.md.
"""

import dataclasses


@dataclasses.dataclass(frozen=True)
class Peer:
    title: str
    folder: str = ""  # of its program, below the folder of the benchmarks
    packages: tuple = ()  # whose versions are told
    objects: tuple = ()  # the shared objects whose size is told
    bare: bool = False  # its transfers hand the arguments to the system unseen


# ---- On the host, the reference first. What a library looks at before a transfer stands beside it.

REFERENCE = "hand_options"
MODULE = ("module_static", "module_shared")
PEERS = {
    REFERENCE: Peer("by hand, options"),
    "hand": Peer("by hand"),
    "module_static": Peer("module, static"),
    "module_shared": Peer("module, shared"),
    # The socket's state, which says whether it may have to wait.
    "apr": Peer("APR", packages=("libapr1",), objects=("libapr-1.so.0",)),
    # Whether the thread was interrupted.
    "nspr": Peer("NSPR", packages=("libnspr4",), objects=("libnspr4.so",)),
    # The socket's type and state, the buffer and the record.
    "glib": Peer(
        "GLib",
        packages=("libglib2.0-0",),
        objects=("libgio-2.0.so.0", "libgobject-2.0.so.0", "libglib-2.0.so.0"),
    ),
    # Nothing: its methods are inline, around the system's call.
    "ace": Peer("ACE", packages=("libace-7.0.8",), objects=("libACE-7.0.8.so",), bare=True),
    # The handle's type and state, the number of buffers, the record's family.
    "libuv": Peer("libuv", packages=("libuv1",), objects=("libuv.so.1",)),
    # The descriptor; its code is in its headers, so there is no object.
    "asio": Peer("Asio", packages=("libasio-dev",)),
    # The descriptor.
    "poco": Peer(
        "POCO",
        packages=("libpoconet80", "libpocofoundation80"),
        objects=("libPocoNet.so.80", "libPocoFoundation.so.80"),
    ),
}
LIBRARIES = tuple(PEERS)[4:]

ENDPOINTS = {
    "tcp_server_ipv4": "TCP server, IPv4",
    "tcp_server_ipv6": "TCP server, IPv6",
    "tcp_client": "TCP client",
    "udp_server": "UDP server",
    "local_server": "local server",
}
TRANSFERS = {
    "send_recv": "send, recv",
    "sendto_recvfrom": "sendto, recvfrom",
}
ADDRESSES = {
    "ipv4_from_text": "IPv4 from text",
    "ipv6_from_text": "IPv6 from text",
    "ipv4_record_from_text": "IPv4 record from text",
    "ipv6_record_from_text": "IPv6 record from text",
    "ipv4_to_text": "IPv4 to text",
    "ipv6_to_text": "IPv6 to text",
    "ipv4_line": "IPv4 line of text",
    "ipv6_line": "IPv6 line of text",
    "ipv4_compare": "IPv4 comparison",
    "ipv6_compare": "IPv6 comparison",
}
OPERATIONS = {**ENDPOINTS, **TRANSFERS, **ADDRESSES}

# What a library has no call for.
NO_LINE = "text of the address alone, none with the port"
NO_COMPARISON = "no comparison of addresses"
ABSENT = {
    (peer, operation): reason
    for peer in ("nspr", "libuv")
    for reason, operations in (
        (NO_LINE, ("ipv4_line", "ipv6_line")),
        (NO_COMPARISON, ("ipv4_compare", "ipv6_compare")),
    )
    for operation in operations
}

# Where the work is not quite the same: peers, operations, and in which way.
FOOTNOTES = (
    (("apr", "glib", "ace", "asio", "poco"), ("ipv4_line", "ipv6_line"), "address and port, without the family's name"),
    (("apr", "glib"), ("ipv4_compare", "ipv6_compare"), "without the ports"),
    (("asio",), tuple(ENDPOINTS), "told that one thread uses it, which spares it most of its locks"),
)

# ---- In the guest: SCTP, whose operations have a reference of their own

SCTP_REFERENCE = "sctp_hand"
SCTP_MODULE = ("sctp_module_static", "sctp_module_shared")
SCTP_PEERS = {
    SCTP_REFERENCE: Peer("by hand, options", "sctp"),
    "sctp_module_static": Peer("module, static", "sctp"),
    "sctp_module_shared": Peer("module, shared", "sctp"),
}
SCTP_OPERATIONS = {
    "sctp_sendmsg_recvmsg": "sendmsg, recvmsg",
    "sctp_server_one2one": "one-to-one server",
    "sctp_server_one2many": "one-to-many server",
    "sctp_server_one2one_str": "one-to-one server, from texts",
    "sctp_server_one2many_str": "one-to-many server, from texts",
    "sctp_client_one2one": "one-to-one client",
    "sctp_client_one2one_bind": "one-to-one client, bound",
    "sctp_client_one2one_str": "one-to-one client, from texts",
    "sctp_client_one2many": "one-to-many client",
    "sctp_client_one2many_bind": "one-to-many client, bound",
    "sctp_client_one2many_str": "one-to-many client, from texts",
    "sctp_getpaddrs": "a peer's addresses",
}
# Lists of addresses are converted in memory from tcmalloc, and libsctp makes some of its own. Nothing else allocates.
ALLOCATIONS = {
    "sctp_server_one2one": 1,
    "sctp_server_one2many": 1,
    "sctp_server_one2one_str": 2,
    "sctp_server_one2many_str": 2,
    "sctp_client_one2one": 1,
    "sctp_client_one2one_bind": 2,
    "sctp_client_one2one_str": 2,
    "sctp_client_one2many_bind": 1,
    "sctp_client_one2many_str": 1,
    "sctp_getpaddrs": 2,
    # For any number of addresses.
    "bindx": 1,
    "bindx_str": 2,
    "getladdrs": 2,
    "server_one2one": 1,
    "server_one2one_str": 2,
    "client_one2one": 1,
}

# ---- Growth: an operation's name ends in the number of addresses or threads

GROWTH = Peer("growth by addresses", "growth")
LISTS = {
    "bindx": "`kel_sctp_bindx`",
    "bindx_str": "`kel_sctp_bindx_str`",
    "getladdrs": "`kel_sctp_getladdrs`",
    "server_one2one": "`kel_sctp_server_one2one_create`",
    "server_one2one_str": "`kel_sctp_server_one2one_str_create`",
    "client_one2one": "`kel_sctp_client_one2one_create`",
}
LIST_LENGTHS = (1, 2, 4, 8, 16, 32, 64)

THREADS = Peer("growth by threads", "growth")
THREAD_COUNTS = (1, 2, 4, 8, 16)

# ---- What the module's contract fixes

FIXED = Peer("fixed costs", "fixed")
PATTERNS = {
    "is_ipv4_match": "`kel_is_ipv4_addr`, an IPv4 text",
    "is_ipv4_mismatch": "`kel_is_ipv4_addr`, an IPv6 text",
    "is_ipv6_match": "`kel_is_ipv6_addr`, an IPv6 text",
    "is_ipv6_mismatch": "`kel_is_ipv6_addr`, an IPv4 text",
}
FRAMES = {
    "raw_sendto": "`kel_raw_sendto`, by interface",
    "raw_sendto_record": "`kel_sendto`, with a record filled once",
}

# Programs that start and end: what links them, the least first.
STARTS = {
    "start_none": "the C library alone",
    "start_without_sctp": "the module, static, without SCTP",
    "start_tcmalloc_minimal": "tcmalloc, its minimal build",
    "start_tcmalloc": "tcmalloc, its full build",
    "start_static": "the module, static",
    "start_shared": "the module, shared",
}

# ---- Every program and its operations


def numbered(names, numbers):
    return tuple(f"{name}_{number}" for name in names for number in numbers)


def programs():
    """{name: (peer, operations)} of all that are measured."""
    planned = {
        name: (peer, tuple(operation for operation in OPERATIONS if (name, operation) not in ABSENT))
        for name, peer in PEERS.items()
    }
    planned |= {name: (peer, tuple(SCTP_OPERATIONS)) for name, peer in SCTP_PEERS.items()}
    planned["growth_addresses"] = (GROWTH, numbered(LISTS, LIST_LENGTHS))
    planned["growth_threads"] = (THREADS, numbered(("threads",), THREAD_COUNTS))
    planned["fixed"] = (FIXED, (*PATTERNS, *FRAMES))
    return planned


# ---- Limits: user instructions for one operation of the static module

LIMITS = {
    "tcp_server_ipv4": 410,
    "tcp_server_ipv6": 375,
    "tcp_client": 400,
    "udp_server": 400,
    "local_server": 250,
    "send_recv": 41,
    "sendto_recvfrom": 66,
    "ipv4_record_from_text": 400,
    "ipv6_record_from_text": 770,
    "ipv4_line": 3060,
    "ipv4_compare": 55,
    "ipv6_compare": 57,  # IPv4 is asked for first
}
# Nearly all of these is the C library's own conversion: the limit is a share above the reference.
LIMIT_SHARE = 1.05
SHARE_LIMITED = ("ipv4_from_text", "ipv6_from_text", "ipv4_to_text", "ipv6_to_text", "ipv6_line")

# The shared library may cost this many instructions more, and where it is given its own limit, that one.
SHARED_LIBRARY_EXTRA = 4
SHARED_LIBRARY_LIMITS = {"send_recv": 43}

LIBRARY_BYTES = 49151  # stripped
LIBRARY_RELOCATIONS = 84
LIBRARY_NEEDED = ("libc.so.6", "libsctp.so.1", "libtcmalloc_minimal.so.4")

# The largest distance from the least-squares line, as a share of the value. The C library copies in steps, which show
# in the lists that are read.
STRAIGHT = 0.03
FLAT = 0.02  # a thread's cost, from that of a single one

# Whose instructions are shown, with the reasons for each in performance.md.in.
SHOWN = ("kel_send", "kel_recvfrom", "kel_sizeof_socket")
