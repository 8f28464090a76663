"""Two hosts with two cables between them, in network namespaces, for what survives the loss of one.

Needs a kernel with SCTP and the right to make namespaces: root, for example inside tests/live/guest.
"""

import json
import os
import socket
import subprocess

PATHS = (1, 2)

# Seconds instead of minutes until a silent path is given up, and until a working one is taken back.
SYSCTLS = ("net.sctp.rto_min=100", "net.sctp.rto_max=400", "net.sctp.rto_initial=200",
           "net.sctp.path_max_retrans=2", "net.sctp.hb_interval=500")


def run(*command):
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)


def kernel_has_sctp():
    """Whether a socket can be made; asking makes the kernel load what it has."""
    try:
        socket.socket(socket.AF_INET, socket.SOCK_STREAM, socket.IPPROTO_SCTP).close()
    except OSError:
        return False
    return True


class TwoPaths:
    """The hosts "near" and "far"; path N is the cable between 10.N.0.1 and 10.N.0.2, device pathN at either end."""

    def __init__(self, rate):
        self.rate = rate
        self.near, self.far = (f"kel{os.getpid()}{end}" for end in ("near", "far"))

    def __enter__(self):
        if not kernel_has_sctp():
            raise OSError("this kernel has no SCTP")
        try:
            for name in (self.near, self.far):
                run("ip", "netns", "add", name)
                run("ip", "-n", name, "link", "set", "lo", "up")
                run("ip", "netns", "exec", name, "sysctl", "-q", "-w", *SYSCTLS)
            for path in PATHS:
                device = f"path{path}"
                run("ip", "link", "add", device, "netns", self.near, "type", "veth", "peer", "name", device, "netns",
                    self.far)
                for end, name in enumerate((self.near, self.far), start=1):
                    run("ip", "-n", name, "address", "add", f"10.{path}.0.{end}/24", "dev", device)
                    run("ip", "-n", name, "link", "set", device, "up")
                    run("tc", "-n", name, "qdisc", "add", "dev", device, "root", "netem", "rate", self.rate)
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        for name in (self.near, self.far):
            subprocess.run(["ip", "netns", "del", name], check=False, stderr=subprocess.DEVNULL)

    @staticmethod
    def inside(name):
        """The words in front of a command that is to run on a host."""
        return ("ip", "netns", "exec", name)

    @staticmethod
    def addresses(end):
        """The addresses of the near host (1) or the far one (2), joined by commas."""
        return ",".join(f"10.{path}.0.{end}" for path in PATHS)

    def cut(self, path):
        """Loses everything on a path, in both directions, and tells nobody: the link stays up."""
        self._set(path, "loss", "100%")

    def restore(self, path):
        self._set(path)

    def received(self):
        """Bytes that have arrived at the far host, by path."""
        shown = subprocess.run(["ip", "-n", self.far, "-s", "-j", "link"], check=True, stdout=subprocess.PIPE).stdout
        links = {link["ifname"]: link["stats64"]["rx"]["bytes"] for link in json.loads(shown)}
        return {path: links[f"path{path}"] for path in PATHS}

    def _set(self, path, *more):
        for name in (self.near, self.far):
            run("tc", "-n", name, "qdisc", "change", "dev", f"path{path}", "root", "netem", "rate", self.rate, *more)
