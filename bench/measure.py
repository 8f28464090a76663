#!/usr/bin/python3
"""Measures operations of the peers' programs: what they cost, counted and timed. Works on the host and in the guest.

measure.py KIND TASKS FILE takes "counts" or "times" of what TASKS lists, as JSON: [operation, programs, repetitions]
each. Every result is a line of FILE as soon as it is there; a task that fails leaves a line that says why.

Counts are those of some repetitions less those of fewer, divided by the repetitions between them: what frames them
cancels. Times are taken in rounds in which every peer has its turn, and each is divided by the first program's of the
same round: what disturbs the machine disturbs all of them alike.
"""

import collections
import concurrent.futures
import json
import os
import re
import statistics
import subprocess
import sys
import tempfile

ROOT = os.path.dirname(os.path.dirname(os.path.realpath(__file__)))
sys.path.insert(0, os.path.join(ROOT, "tools"))

from machine import patience

FEWER = 6  # times, beside the repetitions that are counted
ROUNDS = 11
ROUND_NS = 10e6  # how long one peer's turn is to take

ALLOCATING = re.compile(r"(tc_)?(malloc|calloc|realloc|memalign|posix_memalign|aligned_alloc)|operator new(\[\])?\(.*")
LOCKING = re.compile(r"(__)?pthread_(mutex_(try)?lock|rwlock_(try)?(rd|wr)lock|spin_(try)?lock)")


class Failure(Exception):
    """One sentence that says what could not be measured."""


# What may go wrong with one thing that is measured, and leaves all others as they are; a value may look otherwise.
FAILURES = (Failure, ValueError, subprocess.SubprocessError, OSError)


def run(command):
    done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=patience(60))
    if done.returncode != 0:
        raise Failure(f"{' '.join(done.stderr.split())[-500:]}; {' '.join(command)} ended with {done.returncode}")
    return done.stdout


def peer_of(program):
    return os.path.basename(program).removeprefix("bench_")


# ---- Counts


def plain(symbol):
    """A symbol as the source names it: without callgrind's cycle and the version or place of a library's copy."""
    return symbol.split("'")[0].split("@")[0]


def read_profile(path):
    """Instructions, locked instructions, calls that allocate and calls that lock, in a part of a run."""
    counts = collections.Counter()
    function = callee = ""
    with open(path, encoding="utf-8", errors="replace") as profile:
        for line in profile:
            if line.startswith("events:"):
                events = line.split()[1:]
            elif line.startswith("fn="):
                function = plain(line[3:].strip())
            elif line.startswith("cfn="):
                callee = plain(line[4:].strip())
            elif line.startswith("calls="):
                calls = int(line[6:].split()[0])
                # An allocator that calls another one on the way allocates once.
                if ALLOCATING.fullmatch(callee) and not ALLOCATING.fullmatch(function):
                    counts["allocations"] += calls
                if LOCKING.fullmatch(callee) and not LOCKING.fullmatch(function):
                    counts["locks"] += calls
            elif line.startswith("totals:"):
                totals = dict(zip(events, map(int, line.split()[1:])))
                counts["instructions"] = totals["Ir"]
                counts["locked_instructions"] = totals.get("Ge", 0)
    return counts


def profile(program, operation, repetitions):
    """What a repetition costs. The first two parts are the start, and what the first repetitions bring."""
    fewer = repetitions // FEWER
    with tempfile.TemporaryDirectory(prefix="kel-bench-") as folder:
        command = ["valgrind", "--tool=callgrind", "--dump-before=bench_mark", "--collect-bus=yes"]
        command += ["--compress-strings=no", "--compress-pos=no", f"--callgrind-out-file={folder}/%p"]
        run([*command, f"--log-file={folder}/log-%p", program, operation, str(fewer), str(repetitions)])
        # The acceptor that some operations connect to is a process of its own and comes to no mark.
        names = os.listdir(folder)
        few, many = (read_profile(f"{folder}/{name}") for part in (".3", ".4") for name in names if name.endswith(part))
    keys = ("instructions", "locked_instructions", "allocations", "locks")
    return {key: (many[key] - few[key]) / (repetitions - fewer) for key in keys}


def system_calls(program, operation):
    """Those of one repetition. The first thread does the work; the acceptor is not seen, nor is the driver's clock."""
    with tempfile.TemporaryDirectory(prefix="kel-bench-") as folder:
        run(["strace", "-e", "trace=!clock_gettime", "-o", f"{folder}/trace", program, operation, "1", "1"])
        with open(f"{folder}/trace", encoding="utf-8", errors="replace") as file:
            lines = file.readlines()
    *_, begin, end = (place for place, line in enumerate(lines) if line.startswith("write(-1,"))
    calls = (re.match(r"(\w+)\(", line) for line in lines[begin + 1:end])
    return [shown_call(call[1], call.string) for call in calls if call]


def shown_call(name, text):
    """A call as it is compared: an option call with its option."""
    if name in ("setsockopt", "getsockopt") and (match := re.match(r"\w+\(\d+, (\w+), (\w+)", text)):
        return f"{name} {match[2]}"
    return name


def counts(operation, programs, repetitions):
    (program,) = programs
    figures = {**profile(program, operation, repetitions), "system_calls": system_calls(program, operation)}
    return {peer_of(program): figures}


# ---- Times


def quartiles(values):
    return [float(f"{value:.4g}") for value in statistics.quantiles(values, n=4)]


def times(operation, programs, _):
    """Of every peer in nanoseconds, and as a multiple of the first one's."""

    def timed(program, count):
        return int(run([program, operation, "5", str(count)])) / count

    repetitions = {program: max(10, min(200000, int(ROUND_NS / timed(program, 20)))) for program in programs}
    rounds = []
    for first in range(ROUNDS):  # a different neighbour in front of each every time
        turn = programs[first % len(programs):] + programs[:first % len(programs)]
        rounds.append({program: timed(program, repetitions[program]) for program in turn})
    return {
        peer_of(program): {
            "ns": quartiles([turn[program] for turn in rounds]),
            "ratio": quartiles([turn[program] / turn[programs[0]] for turn in rounds]),
        }
        for program in programs
    }


# ---- All of it


def progress(text):
    end = "\r" if sys.stderr.isatty() else "\n"
    print(f"  {text:<76}", end=end, file=sys.stderr, flush=True)


KINDS = {"counts": (counts, os.cpu_count()), "times": (times, 1)}  # how many at a time


def perform(kind, tasks, keep):
    """Does the tasks and hands each result to keep(): kind, operation, {peer: figures}; a failure has its own kind."""
    take, workers = KINDS[kind]
    with concurrent.futures.ThreadPoolExecutor(workers) as pool:
        doing = {pool.submit(take, *task): task for task in tasks}
        for done, future in enumerate(concurrent.futures.as_completed(doing), 1):
            operation, programs, _ = doing[future]
            what = f"{kind} of {operation}, {peer_of(programs[0]) if len(programs) == 1 else 'all peers'}"
            try:
                keep(kind, operation, future.result())
                progress(f"{done}/{len(doing)} {what}")
            except FAILURES as failure:
                keep("failed", what, str(failure))


def main():
    kind, tasks, results = sys.argv[1:]
    with open(tasks, encoding="utf-8") as file:
        listed = json.load(file)
    with open(results, "w", encoding="utf-8", buffering=1) as file:
        perform(kind, listed, lambda *result: print(json.dumps(result), file=file))


if __name__ == "__main__":
    main()
