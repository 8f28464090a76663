#!/usr/bin/python3
"""Measures operations of the peers' programs: what they cost, counted and timed.

measure.py FILE PROGRAM... writes {operation: {peer: figures}} to FILE as JSON. Works on the host and inside the guest.

Counts are taken twice, with fewer and with more repetitions, and the difference is divided by the repetitions between
them: start-up and end cancel. Times are taken in rounds in which every peer has its turn, and each is divided by the
first program's of the same round: what disturbs the machine disturbs all of them alike.
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

FEW, MANY = 40, 240  # repetitions under callgrind
ROUNDS = 15
ROUND_NS = 20e6  # how long one peer's turn is to take
LIMIT = 120  # seconds for one run of a program

ALLOCATING = re.compile(r"(tc_)?(malloc|calloc|realloc|memalign|posix_memalign|aligned_alloc)|operator new(\[\])?\(.*")
LOCKING = re.compile(r"(__)?pthread_(mutex_(try)?lock|rwlock_(try)?(rd|wr)lock|spin_(try)?lock)")


class Failure(Exception):
    """One sentence that says what could not be measured."""


def run(command, **options):
    done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=LIMIT, **options)
    if done.returncode != 0:
        raise Failure(f"{' '.join(command)} ended with {done.returncode}:\n{done.stderr.strip()[-2000:]}")
    return done.stdout


def peer_of(program):
    return os.path.basename(program).removeprefix("bench_")


# ---- Counts


def plain(symbol):
    """A symbol as the source names it: without callgrind's cycle and the version or place of a library's copy."""
    return symbol.split("'")[0].split("@")[0]


def read_profile(path):
    """Instructions, locked instructions, calls that allocate and calls that lock, in a whole run."""
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


def profile(program, operation, count):
    with tempfile.TemporaryDirectory(prefix="kel-bench-") as folder:
        command = ["valgrind", "--tool=callgrind", "--collect-bus=yes", "--compress-strings=no", "--compress-pos=no"]
        command += [f"--callgrind-out-file={folder}/%p", f"--log-file={folder}/log-%p", program, operation, str(count)]
        process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        _, complaint = process.communicate(timeout=LIMIT)
        if process.returncode != 0:
            raise Failure(f"{' '.join(command)} ended with {process.returncode}:\n{complaint.decode()[-2000:]}")
        return read_profile(f"{folder}/{process.pid}")


def counts(program, operation):
    few, many = (profile(program, operation, count) for count in (FEW, MANY))
    keys = ("instructions", "locked_instructions", "allocations", "locks")
    return {key: (many[key] - few[key]) / (MANY - FEW) for key in keys}


# ---- System calls


def system_calls(program, operation):
    """Those of one repetition, which the driver does between two marks. The first thread does the work; the acceptor
    that some operations connect to is a process of its own and not seen."""
    with tempfile.TemporaryDirectory(prefix="kel-bench-") as folder:
        run(["strace", "-o", f"{folder}/trace", program, operation, "2"])
        with open(f"{folder}/trace", encoding="utf-8", errors="replace") as file:
            lines = file.readlines()
    begin, end = (place for place, line in enumerate(lines) if line.startswith("write(-1,"))
    calls = (re.match(r"(\w+)\(", line) for line in lines[begin + 1:end])
    return [shown_call(call[1], call.string) for call in calls if call]


def shown_call(name, text):
    """A call as it is compared: an option call with its option."""
    if name in ("setsockopt", "getsockopt") and (match := re.match(r"\w+\(\d+, (\w+), (\w+)", text)):
        return f"{name} {match[2]}"
    return name


# ---- Times


def timed(program, operation, count):
    return int(run([program, operation, str(count)]))


def times(programs, operation):
    """Every peer's time as a multiple of the first one's: quartiles over the rounds, and its median in nanoseconds."""
    repetitions = {}
    for program in programs:
        trial = max(timed(program, operation, 50), 1)
        repetitions[program] = max(10, min(200000, int(50 * ROUND_NS / trial)))
    rounds = []
    for first in range(ROUNDS):
        turn = {}
        for place in range(len(programs)):  # a different neighbour in front of it every time
            program = programs[(first + place) % len(programs)]
            turn[program] = timed(program, operation, repetitions[program]) / repetitions[program]
        rounds.append(turn)
    figures = {}
    for program in programs:
        ratios = [turn[program] / turn[programs[0]] for turn in rounds]
        low, middle, high = statistics.quantiles(ratios, n=4)
        figures[program] = {
            "ns": statistics.median(turn[program] for turn in rounds),
            "ratio": middle,
            "ratio_low": low,
            "ratio_high": high,
        }
    return figures


# ---- All of it


def progress(text):
    end = "\r" if sys.stderr.isatty() else "\n"
    print(f"  {text:<76}", end=end, file=sys.stderr, flush=True)


def measure(programs, timing=True):
    """Counts and times of every operation of the programs, each compared with the first that has it."""
    operations = {}
    for program in programs:
        for operation in run([program, "--list"]).split():
            operations.setdefault(operation, []).append(program)

    results = {operation: {peer_of(program): {} for program in able} for operation, able in operations.items()}
    tasks = [(operation, program) for operation, able in operations.items() for program in able]
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        counted = {pool.submit(counts, program, operation): (operation, program) for operation, program in tasks}
        for done, future in enumerate(concurrent.futures.as_completed(counted), 1):
            operation, program = counted[future]
            results[operation][peer_of(program)].update(future.result())
            progress(f"{done}/{len(tasks)} counted: {operation}, {peer_of(program)}")

    for done, (operation, program) in enumerate(tasks, 1):
        results[operation][peer_of(program)]["system_calls"] = system_calls(program, operation)
        progress(f"{done}/{len(tasks)} traced: {operation}, {peer_of(program)}")

    for done, (operation, able) in enumerate(operations.items() if timing else (), 1):
        for program, figures in times(able, operation).items():
            results[operation][peer_of(program)].update(figures)
        progress(f"{done}/{len(operations)} timed: {operation}")
    return results


def main():
    target, *programs = sys.argv[1:]
    try:
        results = measure(programs, timing="KEL_BENCH_NO_TIMES" not in os.environ)
    except (Failure, subprocess.TimeoutExpired) as failure:
        sys.exit(f"measure.py: {failure}")
    with open(target, "w", encoding="utf-8") as file:
        json.dump(results, file, indent=1)


if __name__ == "__main__":
    main()
