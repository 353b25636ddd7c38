"""Tests run with one mutant at a time, and what is known of earlier runs."""

import collections
import concurrent.futures
import hashlib
import json
import math
import os
import pathlib
import re
import signal
import subprocess
import tempfile
import threading
import time

import folders
from assembly import key_of
from folders import run
from report import describe
from switched import first_marks_of

MEMORY_KB = 4 * 1024 * 1024  # a runaway allocation ends here
TIME_FACTOR = 4  # a step may take this often its usual processor time before it counts as dead
WALL_SECONDS = 30  # for a process that waits instead of working; grows with the tests' time
WALL_FACTOR = 100  # generous, as the processor may be shared
FILE_BLOCKS = 1 << 18  # of 512 bytes; more than any test writes
STEP_SECONDS = (0.01, 0.1, math.inf)  # tests below the first run before those below the second

Test = collections.namedtuple("Test", "program name seconds")


def run_tests(program, tests, extra, folder, seconds):
    """Runs tests of a program with limits; returns the exit status and the processor time."""
    limits = 'ulimit -c 0; ulimit -v "$1"; ulimit -f "$2"; ulimit -t "$3"; shift 3; exec "$@"'
    guarded = ["sh", "-c", limits, "sh", str(MEMORY_KB), str(FILE_BLOCKS),
               str(math.ceil(seconds * TIME_FACTOR)), program.command,
               "--gtest_fail_fast", "--gtest_brief=1", "--gtest_filter=" + ":".join(tests)]
    environment = {**program.environment, **extra, "TMPDIR": str(folder)}
    with open(folder / "output", "wb") as output:
        child = subprocess.Popen(guarded, cwd=folder, env=environment, stdin=subprocess.DEVNULL,
                                 stdout=output, stderr=output, start_new_session=True)
    watch = threading.Timer(WALL_SECONDS + WALL_FACTOR * seconds,
                            lambda: os.killpg(child.pid, signal.SIGKILL))
    watch.start()
    _, status, usage = os.wait4(child.pid, 0)
    watch.cancel()
    child.returncode = os.waitstatus_to_exitcode(status)
    return child.returncode, usage.ru_utime + usage.ru_stime


def list_tests(program):
    """The full names of a program's tests."""
    names, suite = [], ""
    for line in run([program.command, "--gtest_list_tests"], env=program.environment).splitlines():
        if line.startswith("  "):
            names.append(suite + line.split("#")[0].strip())
        elif re.match(r"^\S+\.(\s|$)", line):
            suite = line.split("#")[0].strip()
    return names


def baseline(units, programs, longest, jobs):
    """The tests of at most `longest` seconds that pass a place, by the number of its mark.

    Kept in build/mutants/coverage.json for as long as neither a unit nor a test program changes.
    """
    stamp = hashlib.sha256("".join([str(longest)] + [unit.digest for unit in units] + [
        program.digest for program in programs.values()]).encode()).hexdigest()
    store = folders.WORK / "coverage.json"
    known = json.loads(store.read_text()) if store.exists() else {}
    if known.get("stamp") != stamp:
        known = {"stamp": stamp, **measure_coverage(programs, longest, jobs)}
        store.write_text(json.dumps(known))
    tests = [Test(*entry) for entry in known["tests"]]
    return {int(mark): [tests[n] for n in numbers] for mark, numbers in known["marks"].items()}


def measure_coverage(programs, longest, jobs):
    """Runs each test by itself without a mutant: its time, and the marks that it leaves.

    Those that take longer than `longest` are left out.
    """
    tests, marks_of = [], collections.defaultdict(list)

    def measure(item):
        program, name = item
        with tempfile.TemporaryDirectory(dir=folders.WORK) as folder:
            folder = pathlib.Path(folder)
            marks = folder / "marks"
            marks.mkdir()
            status, seconds = run_tests(program, [name], {"KESTRANE_MARKS": str(marks)}, folder,
                                        longest)
            if seconds > longest and status in (0, -signal.SIGXCPU, -signal.SIGKILL):
                return None
            if status != 0:
                raise RuntimeError(f"{program.name} fails without a mutant: {name}\n"
                                   + (folder / "output").read_text(errors="replace"))
            passed = {number for file in marks.iterdir()
                      for number, mark in enumerate(file.read_bytes()) if mark}
            return (program.name, name, seconds), passed

    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        items = [(program, name) for program in programs.values() for name in list_tests(program)]
        for item, measured in zip(items, pool.map(measure, items)):
            if measured is None:
                print(f"left out, too long: {item[1]} of {item[0].name}", flush=True)
                continue
            test, passed = measured
            for mark in passed:
                marks_of[mark].append(len(tests))
            tests.append(test)
    print(f"{len(tests)} tests pass without a mutant", flush=True)
    return {"tests": tests, "marks": marks_of}


def farness(unit, program):
    """0 for a test program of the unit or of its room, by the names, 1 for one of its library."""
    *rooms, stem = unit.name.split("/")
    if stem in program or (rooms and rooms[-1] in program):
        return 0
    return 1 if rooms and rooms[0] in program else 2


def chosen_for(tests, unit, most):
    """Those of the tests for which `most` seconds suffice, near and short ones first."""
    chosen, seconds = [], 0.0
    for test in sorted(tests, key=lambda test: (farness(unit, test.program), test.seconds)):
        if seconds + test.seconds <= most:
            chosen.append(test)
            seconds += test.seconds
    return chosen


def steps_for(tests, unit):
    """The order in which a mutant meets its tests: (program, tests) with short tests first.

    The programs of the unit's own room come first, as they look at it most closely.
    """
    steps = []
    for least, most in zip((0.0, *STEP_SECONDS), STEP_SECONDS):
        groups = collections.defaultdict(list)
        for test in tests:
            if least <= test.seconds < most:
                groups[test.program].append(test)
        steps += sorted(groups.items(), key=lambda item: (
            farness(unit, item[0]), sum(test.seconds for test in item[1])))
    return steps


def run_mutant(number, mutant, tests, programs):
    """Runs the tests that pass a mutant's place; returns the program that noticed it, or None."""
    chosen = {"KESTRANE_MUTANT": f"{number}:{mutant.place.index}:{mutant.form}"}
    with tempfile.TemporaryDirectory(dir=folders.WORK) as folder:
        for name, step in steps_for(tests, mutant.place.unit):
            status, _ = run_tests(programs[name], [test.name for test in step], chosen,
                                  pathlib.Path(folder), sum(test.seconds for test in step))
            if status != 0:
                return name
    return None


class Results:
    """The results of earlier runs, and those of this one."""

    def __init__(self):
        self.path = folders.WORK / "results.jsonl"
        self.lock = threading.Lock()
        self.known = {}
        if self.path.exists():
            for line in self.path.read_text().splitlines():
                entry = json.loads(line)
                self.known[entry["key"]] = entry

    def find(self, mutant, tests_digest):
        """Whether the mutant died, or None where it has to be run."""
        entry = self.known.get(key_of(mutant))
        if entry is None or (entry["by"] is None and entry["tests"] != tests_digest):
            return None
        return entry["by"] is not None

    def add(self, mutant, tests_digest, killer):
        entry = {"key": key_of(mutant), "by": killer, "tests": tests_digest}
        with self.lock:
            self.known[entry["key"]] = entry
            with open(self.path, "a", encoding="ascii") as out:
                out.write(json.dumps(entry) + "\n")


def digest_of(tests, programs, units):
    """Stands for the tests that a mutant meets: it changes with their programs and the library."""
    parts = [test.name for test in tests] + [unit.digest for unit in units]
    parts += sorted({programs[test.program].digest for test in tests})
    return hashlib.sha256(" ".join(parts).encode()).hexdigest()[:16]


def run_all(mutants, coverage, units, programs, most, jobs):
    """Runs the mutants whose result is not known; returns the set of those that live.

    Each meets tests of at most `most` seconds in all.
    """
    results = Results()
    numbers = {unit.name: n for n, unit in enumerate(units)}
    first_marks = first_marks_of(units)
    living, waiting = set(), []
    for mutant in mutants:
        number = numbers[mutant.place.unit.name]
        tests = chosen_for(coverage.get(first_marks[number] + mutant.place.index, []),
                           mutant.place.unit, most)
        digest = digest_of(tests, programs, units)
        died = results.find(mutant, digest)
        if died is None and tests:
            waiting.append((number, mutant, tests, digest))
        elif not died:
            living.add(mutant)
    waiting.sort(key=lambda item: sum(test.seconds for test in item[2]))
    print(f"{len(mutants)} mutants, {len(waiting)} to run", flush=True)
    begin, done = time.monotonic(), 0

    def work(item):
        nonlocal done
        number, mutant, tests, digest = item
        killer = run_mutant(number, mutant, tests, programs)
        results.add(mutant, digest, killer)
        with results.lock:
            done += 1
            if killer is None:
                living.add(mutant)
                print(f"lives: {describe(mutant)}", flush=True)
            if done % 100 == 0:
                print(f"{done} of {len(waiting)} after {time.monotonic() - begin:.0f} s",
                      flush=True)

    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        for _ in pool.map(work, waiting):
            pass
    return living
