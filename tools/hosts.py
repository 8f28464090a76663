"""Two hosts with cables between them, in network namespaces: for frames, and for what survives the loss of a cable.

Needs the right to make namespaces, and a kernel with SCTP for associations: tools/guest/guest has both.
"""

import contextlib
import json
import os
import signal
import subprocess
import sys
import time

import machine

PATHS = (1, 2)

# Tenths of a second instead of minutes until a silent path is given up, and until a working one is taken back.
SYSCTLS = ("net.sctp.rto_min=100", "net.sctp.rto_max=400", "net.sctp.rto_initial=100",
           "net.sctp.path_max_retrans=2", "net.sctp.hb_interval=100")

ENDING = (signal.SIGHUP, signal.SIGINT, signal.SIGTERM)


def run(*command, lines=()):
    """Runs a command of the system that reads the lines. A Ctrl-C at the terminal does not reach it."""
    done = subprocess.run(command, check=False, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                          input="\n".join(lines), process_group=0)
    if done.returncode != 0:
        raise OSError(f"{' '.join(command)} failed: {done.stderr.strip()}")
    return done.stdout


def stop_tidily():
    """Lets a signal end the program through its clean-up, which no second signal disturbs."""
    def stop(number, _frame):
        for each in ENDING:
            signal.signal(each, signal.SIG_IGN)
        sys.exit(128 + number)

    for each in ENDING:
        signal.signal(each, stop)


@contextlib.contextmanager
def whole():
    """What is done inside is done whole: a signal that ends the program waits until then."""
    came = []
    before = {each: signal.signal(each, lambda number, _frame: came.append(number)) for each in ENDING}
    try:
        yield
    finally:
        for each, handler in before.items():
            signal.signal(each, handler)
        for number in came[:1]:
            signal.raise_signal(number)


class TwoHosts:
    """The hosts "near" and "far"; cable N is device pathN at either end, with 10.N.0.1 on near and 10.N.0.2 on far, and
    with fd00:N::1 and fd00:N::2 where IPv6 is asked for. Otherwise nothing is sent over a cable that is not asked for.
    """

    def __init__(self, paths=(1,), ipv6=False, sysctls=()):
        self.paths = paths
        self.ipv6 = ipv6
        self.sysctls = [*sysctls, *(f"net.ipv6.conf.path{path}.disable_ipv6={int(not ipv6)}" for path in paths)]
        self.near, self.far = (f"kel{os.getpid()}{end}" for end in ("near", "far"))

    def __enter__(self):
        try:
            self.build()
        except BaseException:
            self.__exit__()
            raise
        return self

    def build(self):
        devices = [f"path{path}" for path in self.paths]
        run("ip", "-batch", "-", lines=(
            f"netns add {self.near}", f"netns add {self.far}",
            *(f"link add {device} netns {self.near} type veth peer name {device} netns {self.far}"
              for device in devices)))
        for end, host in enumerate((self.near, self.far), start=1):
            run(*self.inside(host), "sysctl", "-qew", *self.sysctls)  # -e: a kernel may have no IPv6
            run("ip", "-n", host, "-batch", "-", lines=(
                "link set lo up",
                *(f"address add 10.{path}.0.{end}/24 dev path{path}" for path in self.paths),
                *(f"address add fd00:{path}::{end}/64 dev path{path} nodad" for path in self.paths if self.ipv6),
                *(f"link set {device} up" for device in devices)))
        for host in (self.near, self.far):
            self._wait_up(host)

    def _wait_up(self, host):
        """What is sent before the kernel has seen the carrier is lost."""
        deadline = time.monotonic() + machine.patience(30)
        while run("ip", "-n", host, "link").count(" state UP ") < len(self.paths):
            if time.monotonic() > deadline:
                raise OSError(f"the cables of {host} do not come up")

    def __exit__(self, *_):
        with whole(), contextlib.suppress(OSError):
            run("ip", "-force", "-batch", "-", lines=(f"netns del {self.near}", f"netns del {self.far}"))

    @staticmethod
    def inside(host):
        """The words in front of a command that is to run on a host."""
        return ("ip", "netns", "exec", host)

    def addresses(self, end):
        """The addresses of the near host (1) or the far one (2), joined by commas."""
        return ",".join(f"10.{path}.0.{end}" for path in self.paths)

    def received(self):
        """Bytes that have arrived at the far host, by path."""
        shown = run("ip", "-n", self.far, "-s", "-j", "link")
        links = {link["ifname"]: link["stats64"]["rx"]["bytes"] for link in json.loads(shown)}
        return {path: links[f"path{path}"] for path in self.paths}


class TwoPaths(TwoHosts):
    """Two cables, each of a limited rate if one is given, that can be cut and restored while an association uses them.

    A tc waits at either end, so that an order is carried out when it is given and not once a program has started.
    """

    def __init__(self, rate=None):
        super().__init__(PATHS, sysctls=SYSCTLS)
        self.as_new = f"rate {rate}" if rate else "limit 1000"
        self.tc = []

    def build(self):
        if not machine.has_sctp():
            raise OSError("this kernel has no SCTP")
        super().build()
        for host in (self.near, self.far):
            self.tc.append(subprocess.Popen(["tc", "-n", host, "-batch", "-"], stdin=subprocess.PIPE,
                                            stdout=subprocess.PIPE, text=True, process_group=0))
        for path in self.paths:
            self._order("add", path)

    def __exit__(self, *_):
        with whole():
            for tc in self.tc:
                tc.communicate()
            super().__exit__()

    def cut(self, path):
        """Loses everything on a path, in both directions, and tells nobody: the link stays up.

        On return the loss has been seen in force at both ends: nothing that is sent from now on arrives.
        """
        self._order("change", path, " loss 100%")

    def restore(self, path):
        self._order("change", path)

    def _order(self, verb, path, more=""):
        for tc in self.tc:
            print(f"qdisc {verb} dev path{path} root netem {self.as_new}{more}\nqdisc show dev path{path}",
                  file=tc.stdin, flush=True)
        for tc in self.tc:
            shown = tc.stdout.readline()
            if "netem" not in shown or ("loss 100%" in shown) != ("loss 100%" in more):
                raise OSError(f"the queue of path{path} is not as ordered: {shown or 'tc has ended'}")
