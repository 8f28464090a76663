"""What the scenes share: the module's functions as Python calls them, rows, records, and changes that are undone."""

import contextlib
import ctypes
import errno
import functools
import mmap
import os
import resource
import signal
import struct
import subprocess
import sys
import tempfile
import threading
from socket import *  # noqa: F403

NOWHERE = 64  # no memory of this process
UNUSED = 999  # no descriptor of it
SILENT = "10.9.9.2"  # in the guest: a neighbour that never answers
ELSEWHERE = "203.0.113.77"  # an address that no machine has
UNREACHABLE = "10.9.8.1"  # in the guest: one that a route refuses
INTERFACE = "fifteen-letters"  # that leads to the neighbour
MSG_FASTOPEN, TCP_FASTOPEN_CONNECT, TCP_FASTOPEN_NO_COOKIE, UDP_SEGMENT, IP_RECVERR = 0x20000000, 30, 34, 103, 11

module = ctypes.CDLL(sys.argv[1], use_errno=True)
libc = ctypes.CDLL(None, use_errno=True)

# ---- Calls -----------------------------------------------------------------------------------------------------------

sys.stdout = open(os.dup(1), "w", encoding="utf-8")
console = os.memfd_create("console")
os.write(console, bytes(2**16))  # room that is there when there is no more
os.dup2(console, 1)
module.host_log_to(b"/dev/null")  # the system's log is not the tests' to fill
last = {}  # the latest call of the module: its result, errno, and what it showed on the console


def argument(value):
    """Descriptors and numbers in 64 bits; texts and memory as pointers."""
    value = value.fileno() if hasattr(value, "fileno") else value
    return ctypes.c_long(value) if isinstance(value, int) else value.encode() if isinstance(value, str) else value


def kel(name, *args):
    function = getattr(module, "kel_" + name)
    function.restype = ctypes.c_long
    os.lseek(console, 0, os.SEEK_SET)
    result = function(*map(argument, args))
    error = ctypes.get_errno()
    libc.fflush(None)
    shown = os.pread(console, os.lseek(console, 0, os.SEEK_CUR), 0).decode()
    last.update(function=name, result=result, errno=error, shown=shown)
    return result


# ---- Rows ------------------------------------------------------------------------------------------------------------

rows = []  # call, name of the error, whether it needs the guest, scene


def row(call, error, scene=None, guest=False):
    """A pair and how it is brought about: the scene's last call of the module is the one that fails."""
    if scene is None:
        return lambda function: row(call, error, function, guest)
    rows.append((call, error, guest, scene))
    return scene


in_guest = functools.partial(row, guest=True)


# ---- Records and sockets ---------------------------------------------------------------------------------------------


def record(packed):
    return ctypes.create_string_buffer(packed, 112)


def inet(port=9, address="127.0.0.1"):
    return record(struct.pack("=H", AF_INET) + struct.pack("!H", port) + inet_aton(address))


def inet6(address, scope=0):
    return record(struct.pack("=HHI16sI", AF_INET6, 0, 0, inet_pton(AF_INET6, address), scope))


def local(path):
    return record(struct.pack("=H", AF_UNIX) + path.encode())


def name_of(sock):
    return inet(sock.getsockname()[1])


def no_record():
    """Of no family, and so of no length."""
    return record(struct.pack("=H", 99))


def half_a_record():
    """Its family can be read, but no byte behind it."""
    memory = mmap.mmap(-1, 2 * mmap.PAGESIZE)
    border = ctypes.addressof(ctypes.c_char.from_buffer(memory)) + mmap.PAGESIZE
    memory[mmap.PAGESIZE - 4 : mmap.PAGESIZE] = struct.pack("=HH", AF_INET, 0)
    libc.mprotect(ctypes.c_void_p(border), mmap.PAGESIZE, 0)
    half_a_record.kept = memory
    return border - 4


def tcp():
    return socket()


def udp():
    return socket(type=SOCK_DGRAM)


def bound(made, port=0):
    made.setsockopt(SOL_SOCKET, SO_REUSEADDR, 1)
    made.bind(("127.0.0.1", port))
    return made


def listener(backlog=5, made=None):
    made = bound(made or tcp())
    made.listen(backlog)
    return made


def pair():
    """The two ends of a connection."""
    with listener() as server:
        client = create_connection(server.getsockname())
        return client, server.accept()[0]


def to_itself():
    made = bound(udp())
    made.connect(made.getsockname())
    return made


def full():
    """A listener that has no room for one more connection and answers nothing, and the one that it has."""
    server = listener(0)
    return server, create_connection(server.getsockname())


def without_waiting(made):
    os.set_blocking(made.fileno(), False)
    return made


# ---- Changes, undone when they are left ------------------------------------------------------------------------------


@contextlib.contextmanager
def setting(name, value):
    with open(f"/proc/sys/{name}", "r+", encoding="ascii") as file:
        before = file.read()
        os.pwrite(file.fileno(), value.encode(), 0)
        try:
            yield
        finally:
            os.pwrite(file.fileno(), before.encode(), 0)


@contextlib.contextmanager
def without(*capabilities):
    """Without these rights of root's, in this thread."""
    head = struct.pack("=Ii", 0x20080522, 0)
    before = ctypes.create_string_buffer(24)
    libc.capget(head, before)
    sets = list(struct.unpack("=6I", before.raw))
    for capability in capabilities:
        sets[3 * (capability // 32)] &= ~(1 << capability % 32)
    libc.capset(head, struct.pack("=6I", *sets))
    try:
        yield
    finally:
        libc.capset(head, before)


@contextlib.contextmanager
def mounted(what, where, kind, flags):
    if libc.mount(what.encode(), where.encode(), kind.encode(), ctypes.c_ulong(flags), None) != 0:
        raise OSError(ctypes.get_errno(), where)
    try:
        yield
    finally:
        libc.umount(where.encode())


@contextlib.contextmanager
def descriptors(most):
    before = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (most, before[1]))
    try:
        yield
    finally:
        resource.setrlimit(resource.RLIMIT_NOFILE, before)


@contextlib.contextmanager
def files(most):
    """As many in the whole system; more for root alone, which this is not any longer."""
    with setting("fs/file-max", str(most)), without(CAP_SYS_ADMIN):
        yield


@contextlib.contextmanager
def signals():
    """Again and again; what waits in the kernel is not begun anew."""
    signal.signal(signal.SIGALRM, lambda *_: None)
    signal.siginterrupt(signal.SIGALRM, True)
    signal.setitimer(signal.ITIMER_REAL, 0.01, 0.01)
    try:
        yield
    finally:
        signal.setitimer(signal.ITIMER_REAL, 0)


MS_RDONLY, MS_BIND = 1, 4096
CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH, CAP_FOWNER = 1, 2, 3
CAP_NET_BIND_SERVICE, CAP_NET_RAW, CAP_SYS_ADMIN = 10, 13, 21


def run(command):
    subprocess.run(command.split(), check=True)


def using(made, act):
    return act(made)


def within(change, act):
    with change:
        return act()


def squeezed(wanted, act):
    """Acts in a thread whose memory in the kernel is used up but for a part of a page, of another size each time, until
    it fails so: what it fails at is the first thing that has no room any more."""
    group = tempfile.mkdtemp(dir=MEMORY)
    with open(f"{group}/memory.oom_control", "w", encoding="ascii") as file:
        file.write("1")  # what has no room fails, and nobody is killed
    paths = f"{group}/memory.limit_in_bytes", f"{group}/tasks", f"{MEMORY}/tasks"
    limit, inside, outside = opened = [os.open(path, os.O_WRONLY) for path in paths]

    def fill(most):
        with contextlib.suppress(OSError):
            for _ in range(most):
                opened.append(os.open("/dev/null", os.O_RDONLY))

    def attempts():
        libc.mlockall(1)  # what is touched for the first time would take memory, and wait for it
        os.pwrite(limit, b"65536", 0)
        os.write(inside, b"0")
        for i in range(200):
            fill(10**6)
            os.pwrite(limit, str(2**16 + 2**12 * (i + 1)).encode(), 0)
            fill(20 - i % 21)
            if act() > 0:
                os.close(last["result"])
            elif last["errno"] == getattr(errno, wanted):
                break
        os.write(outside, b"0")

    thread = threading.Thread(target=attempts)
    thread.start()
    thread.join()
    for descriptor in opened:
        os.close(descriptor)


# ---- The guest -------------------------------------------------------------------------------------------------------

MEMORY = "/run/memory"


def prepare_guest():
    """A neighbour who gets what is sent to it and never answers; memory that the kernel counts."""
    resource.setrlimit(resource.RLIMIT_NOFILE, (40000, 40000))
    for command in (
        f"ip link add {INTERFACE} type veth peer name far",
        f"ip address add 10.9.9.1/24 dev {INTERFACE}",
        f"ip link set {INTERFACE} up",
        "ip link set far up",
        f"ip neighbour add {SILENT} lladdr 02:00:00:00:00:02 dev {INTERFACE}",
        f"ip route add unreachable {UNREACHABLE}",
        f"mkdir {MEMORY}",
        f"mount -t cgroup -o memory none {MEMORY}",
    ):
        run(command)
