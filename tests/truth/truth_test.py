#!/usr/bin/python3
"""Brings the kernel to every pair of call and errno in tests/behaviour/errno.txt that has no reason beside it.

    truth_test.py MODULE TABLE        the rows that anybody can run on any machine
    truth_test.py MODULE TABLE --all  every row, as root in the guest
"""

import errno
import faulthandler
import gc
import os
import pathlib
import re
import sys
import traceback

import high_descriptors
import truth

HERE = os.path.dirname(os.path.realpath(__file__))
sys.path.insert(0, os.path.join(HERE, "../../tools"))
import machine  # noqa: E402


def table(path):
    """Pairs, and the reasons of those that are not provoked."""
    call, pairs = "", {}
    with open(path, encoding="utf-8") as file:
        for line in file:
            name, _, reason = line.strip().removesuffix("  +").partition("  - ")
            if line.startswith("  "):
                pairs[call, name] = reason
            elif line.strip() and not line.startswith("#"):
                call = name
    return pairs


def reported(function, call, behaviour):
    """What stands in the behaviour of a function behind a call that fails: the texts of its reports."""
    text = re.search(rf"^kel_{function}\(.*(?:\n+ .*)*", behaviour, re.M)[0]
    step = re.search(rf"^( +){call}\(.*(?:\n\1 +.*)*", text, re.M)
    return [report.replace("%s", r"\S+") for report in re.findall(r'report "([^"]*)"', step[0] if step else "")]


def open_descriptors():
    return sorted(os.listdir("/proc/self/fd"))


def fault_of(call, error, scene, behaviour):
    """What is wrong with a row, or None."""
    before = open_descriptors()
    truth.last.clear()
    try:
        scene()
    except Exception:
        return traceback.format_exc()
    gc.collect()
    number, last = getattr(errno, error), truth.last
    report = "".join(rf"\033\[1;31m\w+\.\d+:{text}: {os.strerror(number)}\033\[m"
                     for text in reported(last["function"], call, behaviour))
    if last["result"] != -1:
        return f"the result is {last['result']}"
    if last["errno"] != number:
        return f"the answer is {errno.errorcode.get(last['errno'], last['errno'])}"
    if not re.fullmatch(report, last["shown"]):
        return f"the report is {last['shown']!r}"
    if open_descriptors() != before:
        return "descriptors were left open, or closed"
    return None


def fault_of_high_descriptors():
    try:
        high_descriptors.try_high_descriptors()
    except AssertionError as fault:
        return fault
    return None


def limited(act, *args):
    """What waits for ever ends the program, which tells where."""
    faulthandler.dump_traceback_later(machine.patience(30), exit=True, file=sys.stderr)
    return act(*args)


def main():
    pairs, in_guest, provoked, faults = table(sys.argv[2]), "--all" in sys.argv, set(), []
    behaviour = "\n".join(path.read_text() for path in pathlib.Path(sys.argv[2]).parent.glob("*.txt"))
    if in_guest:
        truth.prepare_guest()
    for call, error, needs_guest, scene in truth.rows:
        if reason := pairs.get((call, error), "it is not in the table"):
            faults.append(f"{call} {error} has a row, but {reason}")
        if needs_guest and not in_guest:
            continue
        if fault := limited(fault_of, call, error, scene, behaviour):
            faults.append(f"{call} {error}: {fault}")
        else:
            provoked.add((call, error))
    if in_guest and (fault := limited(fault_of_high_descriptors)):
        faults.append(f"high descriptors: {fault}")
    for pair, reason in pairs.items():
        if not reason and pair not in {row[:2] for row in truth.rows}:
            faults.append(f"{' '.join(pair)} has neither a row nor a reason")
    print(*faults, sep="\n")
    print(f"truth: {len(provoked)} of {len(pairs)} pairs provoked")
    return 1 if faults else 0


sys.exit(main())
