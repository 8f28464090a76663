"""What this machine allows and how fast it is: found out by trying, here, for everything that depends on it.

As a program, machine.py COMMAND... runs a command in a network of its own, of this machine or of a user-mode kernel.
"""

import contextlib
import functools
import os
import socket
import subprocess
import sys
import time

USUAL = 0.03  # seconds that an idle machine of today needs for the known piece of work


@functools.cache
def slowness():
    """How many times longer than usual this machine takes, now: programs are started one after the other."""
    started = time.monotonic()
    for _ in range(20):
        subprocess.run(["true"], check=True)
    return max(1, (time.monotonic() - started) / USUAL)


def patience(seconds):
    """A limit for what takes far less than so many seconds on an idle machine."""
    return seconds * slowness()


@functools.cache
def allows_hosts():
    """Whether network namespaces can be made, reached by name, and entered."""
    name = f"try{os.getpid()}"
    quiet = {"check": True, "stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL}
    try:
        subprocess.run(["ip", "netns", "add", name], **quiet)
        try:
            subprocess.run(["ip", "-n", name, "link", "set", "lo", "up"], **quiet)
            subprocess.run(["ip", "netns", "exec", name, "true"], **quiet)
        finally:
            subprocess.run(["ip", "netns", "del", name], **quiet)
    except (OSError, subprocess.CalledProcessError):
        return False
    return True


@functools.cache
def own_network():
    """What runs a command in a network namespace of its own, with loopback up, as root there; None without one."""
    for options in ([], ["--user", "--map-root-user"]):
        command = ["unshare", "--net", *options, "sh", "-c", 'ip link set lo up && exec "$@"', "network"]
        with contextlib.suppress(OSError):
            if subprocess.run([*command, "true"], stderr=subprocess.DEVNULL).returncode == 0:
                return command
    return None


@functools.cache
def has_sctp():
    """Whether the kernel makes an SCTP socket; asking makes it load what it has."""
    with contextlib.suppress(OSError), socket.socket(socket.AF_INET, socket.SOCK_STREAM, socket.IPPROTO_SCTP):
        return True
    return False


@functools.cache
def has_ipv6():
    """Whether loopback has an IPv6 address."""
    with contextlib.suppress(OSError), socket.socket(socket.AF_INET6, socket.SOCK_STREAM) as probe:
        probe.bind(("::1", 0))
        return True
    return False


@functools.cache
def allows_frames():
    """Whether packet sockets are to be had, for which it takes a privilege."""
    with contextlib.suppress(OSError), socket.socket(socket.AF_PACKET, socket.SOCK_RAW):
        return True
    return False


def main():
    guest = [os.path.join(os.path.dirname(os.path.realpath(__file__)), "guest/guest"), "--timeout", "1500", "--"]
    command = [*(own_network() or guest), *sys.argv[1:]]
    os.execvp(command[0], command)


if __name__ == "__main__":
    main()
