"""The rows: calls, their errors, and how the kernel is brought to them."""

import ctypes
import os
import struct
import tempfile
import threading
import time
from contextlib import contextmanager, nullcontext, suppress
from select import select
from socket import *

from truth import *

ERROR = -1
SCTP_INITMSG, SCTP_STATUS, SCTP_GET_ASSOC_ID_LIST, TCP_USER_TIMEOUT = 2, 14, 29, 18

PEER, FLAGS, BYTES, LIST = record(b""), record(b""), ctypes.create_string_buffer(256), ctypes.c_void_p()
SIZE, NEGATIVE = ctypes.c_uint(256), ctypes.c_uint(2**32 - 1)
ZEROS = (0, 0, 0, 0, 0)
pointer = ctypes.byref

BY_DESCRIPTOR = {
    "accept": lambda fd: kel("accept", fd, PEER),
    "bind": lambda fd: kel("bind", fd, inet()),
    "connect": lambda fd: kel("connect", fd, inet()),
    "getpeername": lambda fd: kel("getpeername", fd, PEER),
    "getsockname": lambda fd: kel("getsockname", fd, PEER),
    "getsockopt": lambda fd: kel("getsockopt", fd, SOL_SOCKET, SO_TYPE, BYTES, pointer(SIZE)),
    "setsockopt": lambda fd: kel("setsockopt", fd, SOL_SOCKET, SO_KEEPALIVE, BYTES, 4),
    "listen": lambda fd: kel("listen", fd, 1),
}
SCTP_OPTIONS = {
    "sctp_bindx": lambda fd: kel("sctp_bindx", fd, inet(), 1, 1),
    "sctp_connectx": lambda fd: kel("sctp_connectx", fd, inet(), 1, None),
    "sctp_getladdrs": lambda fd: kel("sctp_getladdrs", fd, 0, pointer(LIST)),
    "sctp_getpaddrs": lambda fd: kel("sctp_getpaddrs", fd, 0, pointer(LIST)),
    "sctp_opt_info": lambda fd: kel("sctp_opt_info", fd, 0, SCTP_STATUS, BYTES, pointer(SIZE)),
    "sctp_peeloff": lambda fd: kel("sctp_peeloff", fd, 0),
}
SENDERS = {  # each takes what it knows of a message
    "send": lambda fd, data="x", size=1, flags=0, to=None: kel("send", fd, data, size, flags),
    "sendto": lambda fd, data="x", size=1, flags=0, to=inet(): kel("sendto", fd, data, size, flags, to),
    "sctp_send": lambda fd, data="x", size=1, flags=0, to=None: kel("sctp_send", fd, data, size, None, flags),
    "sctp_sendmsg": lambda fd, data="x", size=1, flags=0, to=inet(): kel("sctp_sendmsg", fd, data, size, to, *ZEROS),
}
RECEIVERS = {
    "recv": lambda fd, data=BYTES, flags=0: kel("recv", fd, data, 1, flags),
    "recvfrom": lambda fd, data=BYTES, flags=0: kel("recvfrom", fd, data, 1, flags, PEER),
    "sctp_recvmsg": lambda fd, data=BYTES, size=1: kel("sctp_recvmsg", fd, data, size, None, None, FLAGS),
}

for call, use in (BY_DESCRIPTOR | SENDERS | RECEIVERS | SCTP_OPTIONS).items():
    row(call, "EBADF", lambda use=use: use(UNUSED))
    row(call, "ENOTSOCK", lambda use=use: use(open("/dev/null", "rb")))
for call, use in SCTP_OPTIONS.items():
    row(call, "ENOPROTOOPT", lambda use=use: use(socket(AF_NETLINK, SOCK_RAW)))
row("close", "EBADF", lambda: kel("close", UNUSED))

# ---- Sockets, options, names -----------------------------------------------------------------------------------------


def make(family=AF_INET, kind=SOCK_STREAM, protocol=0):
    return kel("socket", family, kind, protocol)


in_guest("socket", "EACCES", lambda: make(AF_INET, SOCK_DGRAM, IPPROTO_ICMP))
row("socket", "EAFNOSUPPORT", lambda: make(99))
row("socket", "EINVAL", lambda: make(AF_INET, 99))
row("socket", "EMFILE", lambda: within(descriptors(0), make))
in_guest("socket", "ENFILE", lambda: within(files(0), make))
in_guest("socket", "ENOBUFS", lambda: squeezed("ENOBUFS", lambda: make(AF_INET6)))
in_guest("socket", "ENOMEM", lambda: squeezed("ENOMEM", make))
in_guest("socket", "EPERM", lambda: within(without(CAP_NET_RAW), lambda: make(AF_PACKET, SOCK_RAW)))
row("socket", "EPROTONOSUPPORT", lambda: make(AF_INET, SOCK_STREAM, IPPROTO_UDP))
row("socket", "ESOCKTNOSUPPORT", lambda: make(AF_INET, SOCK_RDM))

row("getpeername", "EFAULT", lambda: kel("getpeername", to_itself(), NOWHERE))
row("getpeername", "ENOTCONN", lambda: kel("getpeername", tcp(), PEER))
row("getsockname", "EFAULT", lambda: kel("getsockname", tcp(), NOWHERE))
row("getsockopt", "EFAULT", lambda: kel("getsockopt", tcp(), SOL_SOCKET, SO_TYPE, NOWHERE, pointer(SIZE)))
row("getsockopt", "EINVAL", lambda: kel("getsockopt", tcp(), SOL_SOCKET, SO_TYPE, BYTES, pointer(NEGATIVE)))
row("getsockopt", "ENOPROTOOPT", lambda: kel("getsockopt", tcp(), IPPROTO_TCP, 9999, BYTES, pointer(SIZE)))
row("setsockopt", "EFAULT", lambda: kel("setsockopt", tcp(), SOL_SOCKET, SO_KEEPALIVE, NOWHERE, 4))
row("setsockopt", "EINVAL", lambda: kel("setsockopt", tcp(), SOL_SOCKET, SO_KEEPALIVE, BYTES, 1))
row("setsockopt", "ENOPROTOOPT", lambda: kel("setsockopt", tcp(), IPPROTO_TCP, 9999, BYTES, 4))

# ---- Bind, listen, accept --------------------------------------------------------------------------------------------

row("bind", "EADDRINUSE", lambda: using(listener(), lambda taken: kel("bind", tcp(), name_of(taken))))
row("bind", "EADDRNOTAVAIL", lambda: kel("bind", tcp(), inet(0, ELSEWHERE)))
row("bind", "EFAULT", lambda: kel("bind", tcp(), half_a_record()))
row("bind", "EINVAL", lambda: kel("bind", listener(), inet(0)))
in_guest("bind", "ENODEV", lambda: kel("bind", socket(AF_INET6), inet6("fe80::77", UNUSED)))


def two_at_one_port():
    """Which they may be as long as neither listens nor has the same peer."""
    first = bound(tcp())
    return first, bound(tcp(), first.getsockname()[1])


row("listen", "EADDRINUSE", lambda: [kel("listen", made, 1) for made in two_at_one_port()])
row("listen", "EINVAL", lambda: kel("listen", pair()[0], 1))
row("listen", "EOPNOTSUPP", lambda: kel("listen", udp(), 1))

row("accept", "EAGAIN", lambda: kel("accept", without_waiting(listener()), PEER))
row("accept", "EFAULT", lambda: kel("accept", full()[0], NOWHERE))
row("accept", "EINTR", lambda: within(signals(), lambda: kel("accept", listener(), PEER)))
row("accept", "EINVAL", lambda: kel("accept", tcp(), PEER))
row("accept", "EOPNOTSUPP", lambda: kel("accept", udp(), PEER))


def accept_with(lack, what):
    """It is missed before there is a connection."""
    server = without_waiting(listener())
    lack(what, lambda: kel("accept", server, PEER))


row("accept", "EMFILE", lambda: accept_with(within, descriptors(0)))
in_guest("accept", "ENFILE", lambda: accept_with(within, files(0)))
in_guest("accept", "ENOMEM", lambda: accept_with(squeezed, "ENOMEM"))


# ---- Connect ---------------------------------------------------------------------------------------------------------


def connect_to_full(wait=True, times=1):
    (server, _connected), client = full(), tcp()
    client.setsockopt(IPPROTO_TCP, TCP_USER_TIMEOUT, 1000)
    os.set_blocking(client.fileno(), wait)
    for _ in range(times):
        kel("connect", client, name_of(server))


row("connect", "EACCES", lambda: kel("connect", udp(), inet(9, "127.255.255.255")))
row("connect", "EAFNOSUPPORT", lambda: kel("connect", tcp(), inet6("::1")))
row("connect", "EALREADY", lambda: connect_to_full(wait=False, times=2))
row("connect", "EFAULT", lambda: kel("connect", tcp(), half_a_record()))
row("connect", "EINPROGRESS", lambda: connect_to_full(wait=False))
row("connect", "EINTR", lambda: within(signals(), connect_to_full))
in_guest("connect", "EINVAL", lambda: kel("connect", socket(AF_INET6), inet6("fe80::77")))
row("connect", "EISCONN", lambda: kel("connect", pair()[0], inet()))
in_guest("connect", "EHOSTUNREACH", lambda: kel("connect", tcp(), inet(9, UNREACHABLE)))
in_guest("connect", "ENETUNREACH", lambda: kel("connect", tcp(), inet(9, ELSEWHERE)))
in_guest("connect", "ETIMEDOUT", connect_to_full)


row("connect", "ECONNREFUSED", lambda: using(bound(tcp()), lambda idle: kel("connect", tcp(), name_of(idle))))


@row("connect", "EADDRNOTAVAIL")
def connects_from_the_same_port_again():
    server = listener()
    for client in two_at_one_port():
        kel("connect", client, name_of(server))


# ---- Paths -----------------------------------------------------------------------------------------------------------


class Place:
    """A folder with everything in it that a path can fail at."""

    def __init__(self):
        self.folder = tempfile.TemporaryDirectory()
        os.mkdir(self / "folder")
        os.mkdir(self / "closed", 0)
        open(self / "file", "x", encoding="ascii").close()
        os.symlink("loop", self / "loop")
        os.symlink(300 * "l", self / "long")

    def __truediv__(self, name):
        return f"{self.folder.name}/{name}"

    def socket(self, name, kind=SOCK_STREAM):
        made = unix(kind)
        made.bind(self / name)
        return made

    @contextmanager
    def read_only(self):
        """And not for root alone."""
        with mounted("none", self / "folder", "tmpfs", MS_RDONLY), without(CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH):
            yield


def unix(kind=SOCK_STREAM):
    return socket(AF_UNIX, kind)


def serve(path):
    """The server removes what is in its way. It goes on, and what comes of that is for the bind to say."""
    answer = ctypes.c_int.in_dll(module, "unlink_errno")
    answer.value = 0
    if kel("unix_tcp_server_socket_create", path, 1) != ERROR:
        os.close(last["result"])
    last.update(result=ERROR, errno=answer.value, shown="")
    return ERROR


for path, error, guest in (
    ("missing/socket", "ENOENT", False),
    ("file/socket", "ENOTDIR", False),
    ("loop/socket", "ELOOP", False),
    ("long/socket", "ENAMETOOLONG", False),
    ("closed/socket", "EACCES", True),
    ("folder/socket", "EROFS", True),
):
    for call, use in ("bind", lambda path: kel("bind", unix(), local(path))), ("unlink", serve):

        @row(call, error, guest=guest)
        def follows_path(path=path, use=use, guest=guest):
            place = Place()
            within(place.read_only() if guest else nullcontext(), lambda: use(place / path))


row("unlink", "EISDIR", lambda: using(Place(), lambda place: serve(place / "folder")))
row("unlink", "EFAULT", lambda: serve(None))
in_guest("unlink", "ENOMEM", lambda: using(Place(), lambda place: squeezed("ENOMEM", lambda: serve(place / "file"))))


@in_guest("unlink", "EBUSY")
def unlinks_what_is_mounted():
    place = Place()
    within(mounted(place / "file", place / "file", "", MS_BIND), lambda: serve(place / "file"))


@in_guest("unlink", "EPERM")
def unlinks_what_others_own():
    place = Place()
    theirs = place / "folder/theirs"
    open(theirs, "x", encoding="ascii").close()
    os.chown(theirs, 1, 1)
    os.chown(place / "folder", 1, 1)
    os.chmod(place / "folder", 0o1777)
    within(without(CAP_FOWNER), lambda: serve(theirs))


@row("connect", "EAGAIN")
def connects_where_there_is_no_room():
    place = Place()
    server, clients = place.socket("socket"), (unix(), unix())
    server.listen(0)
    for client in clients:
        kel("connect", without_waiting(client), local(place / "socket"))


row("connect", "ENOENT", lambda: kel("connect", unix(), local("/no/such/path")))


def connect_to_datagrams(kind):
    """To one who talks to another."""
    place = Place()
    first, _second = (place.socket(name, SOCK_DGRAM) for name in ("first", "second"))
    first.connect(place / "second")
    kel("connect", unix(kind), local(place / "first"))


row("connect", "EPERM", lambda: connect_to_datagrams(SOCK_DGRAM))
row("connect", "EPROTOTYPE", lambda: connect_to_datagrams(SOCK_STREAM))


@in_guest("bind", "ENOMEM")
def binds_without_memory():
    place, made = Place(), [unix() for _ in range(200)]
    squeezed("ENOMEM", lambda: kel("bind", made.pop(), local(place / str(len(made)))))


# ---- Interfaces ------------------------------------------------------------------------------------------------------


def fill(descriptor, interface="lo"):
    """The module closes it when the query fails."""
    return kel("addr_fill", descriptor, PEER, 17, 0, None, 3, interface)


row("ioctl", "EBADF", lambda: fill(UNUSED))
row("ioctl", "ENODEV", lambda: fill(tcp().detach(), "no-such-name"))
row("ioctl", "EINVAL", lambda: fill(os.open("/dev/urandom", os.O_RDONLY)))
row("ioctl", "ENOTTY", lambda: fill(os.open("/dev/null", os.O_RDONLY)))


in_guest("if_nametoindex", "ENODEV", lambda: kel("raw_sendto", UNUSED, INTERFACE + "-and-more", "x", 1, 0))

# ---- Sending ---------------------------------------------------------------------------------------------------------


def break_off(connection):
    """Ends it with a reset."""
    connection.setsockopt(SOL_SOCKET, SO_LINGER, struct.pack("=ii", 1, 0))
    connection.close()


def answered_by_nobody():
    """One who has heard that nobody is there: what comes next fails with that."""
    nobody, client = to_itself(), udp()  # it receives from itself alone
    client.connect(nobody.getsockname())
    client.send(b"x")
    select([client], [], [])
    return client


def add_sender(call, send):
    addressed = call in ("sendto", "sctp_sendmsg")

    def crowded(wait):
        """A local socket whose receiver has no room for more."""
        place, sender = Place(), unix(SOCK_DGRAM)
        _receiver = place.socket("socket", SOCK_DGRAM)
        sender.connect(place / "socket")
        with suppress(BlockingIOError):
            while True:
                sender.send(b"x", MSG_DONTWAIT)
        os.set_blocking(sender.fileno(), wait)
        send(sender, to=local(place / "socket"))

    row(call, "EAGAIN", lambda: crowded(wait=False))
    row(call, "EINTR", lambda: within(signals(), lambda: crowded(wait=True)))

    def deferred():
        """A connection that begins with its first data, to one who answers nothing."""
        server, connected = full()
        client = tcp()
        client.setsockopt(IPPROTO_TCP, TCP_FASTOPEN_CONNECT, 1)
        client.setsockopt(IPPROTO_TCP, TCP_FASTOPEN_NO_COOKIE, 1)
        client.connect(server.getsockname())
        return client, server, connected

    @row(call, "EINPROGRESS")
    def begins_to_connect():
        client, *_others = deferred()
        send(without_waiting(client), "", 0)

    @row(call, "EALREADY")
    def begins_to_connect_twice():
        def begin():
            with suppress(OSError):
                client.send(b"x")

        client, *_others = deferred()
        first = threading.Thread(target=begin)
        first.start()
        while client.getsockopt(IPPROTO_TCP, TCP_INFO, 104)[24:28] == bytes(4):  # nothing is under way yet
            time.sleep(0)
        send(client)
        client.shutdown(SHUT_RDWR)
        first.join()

    @row(call, "EACCES")
    def sends_to_everybody():
        client = udp()
        client.setsockopt(SOL_SOCKET, SO_BROADCAST, 1)
        client.connect(("127.255.255.255", 9))
        client.setsockopt(SOL_SOCKET, SO_BROADCAST, 0)
        send(client, flags=MSG_DONTROUTE, to=inet(9, "127.255.255.255"))  # the flag has its route looked up again

    @row(call, "ECONNRESET")
    def sends_to_one_who_broke_off():
        client, server = pair()
        break_off(server)
        select([client], [], [])
        send(client)

    if call == "sendto":
        in_guest(call, "EDESTADDRREQ", lambda: send(socket(AF_INET, SOCK_RAW, IPPROTO_UDP), to=no_record()))
    else:
        row(call, "EDESTADDRREQ", lambda: send(udp(), to=no_record()))
    row(call, "EFAULT", lambda: send(to_itself(), NOWHERE))

    @row(call, "EINVAL")
    def sends_in_more_segments_than_there_may_be():
        client = to_itself()
        client.setsockopt(IPPROTO_UDP, UDP_SEGMENT, 1)
        send(client, bytes(1000), 1000, to=name_of(client))

    def to_stream(connected):
        place = Place()
        server, client = place.socket("socket"), unix()
        server.listen()
        if connected:
            client.connect(place / "socket")
        send(client, to=local(place / "socket"))

    row(call, "EISCONN", lambda: to_stream(True) if addressed else send(pair()[0], flags=MSG_FASTOPEN))
    row(call, "EOPNOTSUPP", lambda: to_stream(False) if addressed else send(to_itself(), flags=MSG_OOB))
    row(call, "EMSGSIZE", lambda: send(to_itself(), bytes(65508), 65508))

    @in_guest(call, "ENOBUFS")
    def sends_into_no_queue():
        client = udp()
        client.setsockopt(IPPROTO_IP, IP_RECVERR, 1)
        client.connect((SILENT, 9))
        run(f"tc qdisc add dev {INTERFACE} root pfifo limit 0")
        send(client, to=inet(9, SILENT))
        run(f"tc qdisc del dev {INTERFACE} root")

    row(call, "ENOTCONN", lambda: send(unix(SOCK_DGRAM), to=no_record()))

    @row(call, "EPIPE")
    def sends_after_the_end():
        client, _server = pair()
        client.shutdown(SHUT_WR)
        send(client)


for call, send in SENDERS.items():
    add_sender(call, send)
for call in ("send", "sendto"):
    row(call, "ECONNREFUSED", lambda send=SENDERS[call]: send(answered_by_nobody()))
in_guest("sendto", "ENETUNREACH", lambda: kel("sendto", udp(), "x", 1, 0, inet(9, ELSEWHERE)))


@in_guest("sendto", "ENETDOWN")
def sends_out_of_an_interface_that_is_down():
    run("ip link add asleep type veth peer name beside")
    address = record(struct.pack("=HHi", AF_PACKET, 0, if_nametoindex("asleep")))
    kel("sendto", socket(AF_PACKET, SOCK_RAW), bytes(14), 14, 0, address)
    run("ip link del asleep")


# ---- Receiving -------------------------------------------------------------------------------------------------------


def add_receiver(call, receive):
    row(call, "EAGAIN", lambda: receive(without_waiting(to_itself())))

    row(call, "ECONNREFUSED", lambda: receive(answered_by_nobody()))

    def with_a_message(client):
        client.send(b"x")
        return client

    @row(call, "ECONNRESET")
    def receives_from_one_who_broke_off():
        client, server = pair()
        break_off(server)
        receive(client)

    row(call, "EFAULT", lambda: receive(with_a_message(to_itself()), NOWHERE))
    row(call, "EINTR", lambda: within(signals(), lambda: receive(to_itself())))
    if call == "sctp_recvmsg":
        row(call, "EINVAL", lambda: receive(udp(), size=-1))
    else:
        row(call, "EINVAL", lambda: receive(pair()[0], flags=MSG_OOB))
    row(call, "ENOTCONN", lambda: receive(tcp()))


for call, receive in RECEIVERS.items():
    add_receiver(call, receive)

# ---- SCTP ------------------------------------------------------------------------------------------------------------

ASSOCIATION = 0x7777  # which nobody has


def sctp(kind=SOCK_STREAM):
    return socket(AF_INET, kind, IPPROTO_SCTP)


def bindx(made, address):
    return kel("sctp_bindx", made, address, 1, 1)


def connectx(made, address, wait=True, associated=None):
    os.set_blocking(made.fileno(), wait)
    return kel("sctp_connectx", made, address, 1, associated)


def associated(family=AF_INET):
    """A one-to-many socket, its association with another, and the other."""
    client, server = (socket(family, SOCK_SEQPACKET, IPPROTO_SCTP) for _ in range(2))
    server.bind(("::1" if family == AF_INET6 else "127.0.0.1", 0))
    server.listen()
    client.connect(server.getsockname())
    return client, struct.unpack("=i", client.getsockopt(IPPROTO_SCTP, SCTP_GET_ASSOC_ID_LIST, 8)[4:])[0], server


in_guest("sctp_bindx", "EACCES", lambda: within(without(CAP_NET_BIND_SERVICE), lambda: bindx(sctp(), inet(100))))
in_guest("sctp_bindx", "EADDRINUSE", lambda: using(listener(made=sctp()), lambda taken: bindx(sctp(), name_of(taken))))
in_guest("sctp_bindx", "EADDRNOTAVAIL", lambda: bindx(sctp(), inet(0, ELSEWHERE)))
in_guest("sctp_bindx", "EINVAL", lambda: bindx(bound(sctp()), inet(1)))


def in_port_of_root(act):
    """Which it is not any longer."""
    with bound(sctp(), 101) as client, without(CAP_NET_BIND_SERVICE):
        act(client, inet())


in_guest("sctp_connectx", "EACCES", lambda: in_port_of_root(connectx))


@in_guest("sctp_connectx", "EADDRNOTAVAIL")
def associates_with_one_who_was_peeled_off():
    client, number, server = associated()
    peeled = kel("sctp_peeloff", client, number)
    connectx(client, name_of(server))
    os.close(peeled)


@in_guest("sctp_connectx", "EAGAIN")
def associates_when_no_port_is_left():
    with setting("net/ipv4/ip_local_port_range", "40000 40000"):
        taken = bound(sctp(), 40000)
        connectx(sctp(), inet())


def connectx_twice(server, client, wait):
    for _ in range(2):
        connectx(client, server, wait)


@in_guest("sctp_connectx", "EISCONN")
def associates_again():
    with listener(made=sctp()) as server:
        connectx_twice(name_of(server), sctp(), wait=True)


in_guest("sctp_connectx", "EALREADY", lambda: connectx_twice(inet(9, SILENT), sctp(), wait=False))


@in_guest("sctp_connectx", "ETIMEDOUT")
def associates_with_nobody():
    with setting("net/sctp/rto_initial", "1000"):
        client = sctp()
    client.setsockopt(IPPROTO_SCTP, SCTP_INITMSG, struct.pack("=HHHH", 1, 1, 1, 10))
    connectx(client, inet(9, SILENT))


in_guest("sctp_connectx", "ECONNREFUSED", lambda: connectx(sctp(), inet()))
in_guest("sctp_connectx", "EINPROGRESS", lambda: connectx(sctp(), inet(9, SILENT), wait=False))
in_guest("sctp_connectx", "EINTR", lambda: within(signals(), lambda: connectx(sctp(), inet(9, SILENT))))
in_guest("sctp_connectx", "EINVAL", lambda: connectx(sctp(), inet(9, "224.0.0.1")))

for call in ("sctp_getladdrs", "sctp_getpaddrs"):
    in_guest(call, "EINVAL", lambda call=call: kel(call, sctp(SOCK_SEQPACKET), ASSOCIATION, pointer(LIST)))


def opt_info(data):
    return kel("sctp_opt_info", sctp(SOCK_SEQPACKET), ASSOCIATION, SCTP_STATUS, data, pointer(SIZE))


in_guest("sctp_opt_info", "EFAULT", lambda: opt_info(half_a_record()))
in_guest("sctp_opt_info", "EINVAL", lambda: opt_info(BYTES))
in_guest("sctp_peeloff", "EINVAL", lambda: kel("sctp_peeloff", sctp(SOCK_SEQPACKET), ASSOCIATION))


def peel_off(change):
    client, number, _server = associated()
    within(change, lambda: kel("sctp_peeloff", client, number))


in_guest("sctp_peeloff", "EMFILE", lambda: peel_off(descriptors(0)))
in_guest("sctp_peeloff", "ENFILE", lambda: peel_off(files(0)))


def peel_off_without_memory(family, error):
    client, number, _server = associated(family)
    squeezed(error, lambda: kel("sctp_peeloff", client, number))


in_guest("sctp_peeloff", "ENOBUFS", lambda: peel_off_without_memory(AF_INET6, "ENOBUFS"))
in_guest("sctp_peeloff", "ENOMEM", lambda: peel_off_without_memory(AF_INET, "ENOMEM"))


def send_to_path_without_memory(send):
    client, missing = unix(SOCK_DGRAM), local("/run/" + 100 * "m")  # a long name takes memory of its own
    squeezed("ENOMEM", lambda: send(client, to=missing))


for call in ("sendto", "sctp_sendmsg"):
    in_guest(call, "ENOMEM", lambda send=SENDERS[call]: send_to_path_without_memory(send))


def add_sctp_sender(call, send):
    def overfull(wait):
        server, client = listener(made=sctp()), sctp()
        client.connect(server.getsockname())
        os.set_blocking(client.fileno(), False)
        while send(client, bytes(1000), 1000, to=name_of(server)) != ERROR:
            pass
        if wait:
            os.set_blocking(client.fileno(), True)
            within(signals(), lambda: send(client, bytes(1000), 1000, to=name_of(server)))

    in_guest(call, "EAGAIN", lambda: overfull(wait=False))
    in_guest(call, "EINTR", lambda: overfull(wait=True))

    @in_guest(call, "EMSGSIZE")
    def sends_more_than_the_buffer_holds():
        client, _number, server = associated()
        send(client, bytes(2**20), 2**20, to=name_of(server))


for call in ("sctp_send", "sctp_sendmsg"):
    add_sctp_sender(call, SENDERS[call])
in_guest("sctp_send", "EPIPE", lambda: SENDERS["sctp_send"](sctp(SOCK_SEQPACKET)))
in_guest("sctp_sendmsg", "EPIPE", lambda: SENDERS["sctp_sendmsg"](listener(made=sctp())))
in_guest("sctp_recvmsg", "ENOTCONN", lambda: RECEIVERS["sctp_recvmsg"](sctp()))

# More than there are addresses for.
row("tc_malloc", "ENOMEM", lambda: kel("sctp_bindx", UNUSED, inet(), 2**44, 1))
