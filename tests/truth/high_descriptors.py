"""The functions that take or return descriptors, with some above 32767, which would not go through 16 bits."""

import os

from rows import *

LOW = 33000


def check():
    """Makes sockets of every kind, and connections. Stops at what fails: the rest would wait for it."""
    opened = []

    def do(name, *args):
        if kel(name, *args) == ERROR:
            raise AssertionError(f"{name}{args}: {os.strerror(last['errno'])}")
        return last["result"]

    def opens(name, *args):
        opened.append(do(name, *args))
        if opened[-1] <= LOW:
            raise AssertionError(f"{name}{args} is {opened[-1]}")
        return opened[-1]

    def port_of(descriptor):
        do("getsockname", descriptor, PEER)
        return int.from_bytes(PEER.raw[2:4], "big")

    text, texts = "127.0.0.1", (ctypes.c_char_p * 1)(b"127.0.0.1")
    here, init, number = inet(0), record(struct.pack("=HHHH", 4, 4, 0, 0)), ctypes.c_int()

    server = opens("tcp_server_socket_create", AF_INET, text, 0, 5)
    port = port_of(server)
    client = opens("tcp_client_socket_create", AF_INET, text, port)
    opens("tcp_client_socket_create_bind", AF_INET, text, port, inet(0))
    accepted = opens("accept", server, PEER)
    do("getpeername", client, PEER)
    do("setsockopt", client, SOL_SOCKET, SO_KEEPALIVE, BYTES, 4)
    do("getsockopt", client, SOL_SOCKET, SO_TYPE, BYTES, pointer(SIZE))
    do("send", client, "x", 1, 0)
    do("recv", accepted, BYTES, 1, 0)

    made = opens("socket", AF_INET, SOCK_STREAM, 0)
    do("bind", made, here)
    do("listen", made, 1)
    do("connect", opens("socket", AF_INET, SOCK_STREAM, 0), inet(port_of(made)))
    made = opens("socket", AF_INET, SOCK_STREAM, 0)
    do("bind_str", made, AF_INET, 0, None, 0, None)
    do("connect_str", made, AF_INET, port, text)

    server = opens("udp_server_socket_create", AF_INET, text, 0)
    to = inet(port_of(server))
    client = opens("udp_client_socket_create", AF_INET, text, port_of(server), PEER)
    opens("udp_client_socket_create_bind", AF_INET, text, port_of(server), PEER, here)
    do("sendto", client, "x", 1, 0, to)
    do("recvfrom", server, BYTES, 1, 0, PEER)

    place = Place()
    opens("unix_tcp_server_socket_create", place / "stream", 5)
    opens("unix_tcp_client_socket_create", place / "stream")
    opens("unix_udp_socket_create", place / "datagrams", 1)

    packets = opens("raw_server_socket_create", 3, "lo")
    do("addr_fill", packets, PEER, AF_PACKET, 0, None, 3, "lo")
    do("raw_sendto", packets, "lo", bytes(60), 60, 0)

    server = opens("sctp_server_one2one_create", AF_INET, here, 1, 0, 5, init, None)
    to = inet(port_of(server))
    port = port_of(server)
    client = opens("sctp_client_one2one_create", AF_INET, to, 1, 0, init, None, pointer(number))
    opens("sctp_client_one2one_create_bind", AF_INET, to, 1, 0, init, None, pointer(number), inet(0), 1)
    opens("sctp_client_one2one_str_create", AF_INET, texts, 1, port, init, None, pointer(number))
    do("sctp_send", client, "x", 1, None, 0)
    for name, free in ("sctp_getpaddrs", "sctp_freepaddrs"), ("sctp_getladdrs", "sctp_freeladdrs"):
        do(name, client, 0, pointer(LIST))
        kel(free, LIST)
    SIZE.value = len(BYTES)
    do("sctp_opt_info", client, 0, SCTP_STATUS, BYTES, pointer(SIZE))
    do("sctp_recvmsg", opens("accept", server, PEER), BYTES, 1, None, None, FLAGS)
    opens("sctp_server_one2one_str_create", AF_INET, texts, 1, 0, 5, init, None)
    server = opens("sctp_server_one2many_create", AF_INET, inet(0), 1, 0, 5, init, None)
    opens("sctp_server_one2many_str_create", AF_INET, texts, 1, 0, 5, init, None)
    opens("sctp_client_one2many_create", AF_INET, to, 1, 0, init, None)
    opens("sctp_client_one2many_create_bind", AF_INET, to, 1, 0, init, None, inet(0), 1)
    client = opens("sctp_client_one2many_str_create", AF_INET, texts, 1, 0, init, None)
    do("sctp_bindx", client, inet(0), 1, 1)
    do("sctp_connectx", client, inet(port_of(server)), 1, pointer(number))
    opens("sctp_peeloff", client, number.value)
    client = opens("socket", AF_INET, SOCK_SEQPACKET, IPPROTO_SCTP)
    do("sctp_bindx_str", client, AF_INET, 0, texts, 1, 1)
    do("sctp_connectx_str", client, AF_INET, port_of(server), texts, 1, pointer(number))
    do("sctp_sendmsg", client, "x", 1, inet(port_of(server)), *ZEROS)

    for descriptor in opened:
        do("close", descriptor)


def try_high_descriptors():
    lowest = os.dup(0)
    while os.dup(0) < LOW:
        pass
    try:
        check()
    finally:
        os.closerange(lowest, 2 * LOW)
