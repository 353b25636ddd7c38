#!/usr/bin/env python3
"""Changes one machine instruction of the library at a time and looks whether a test notices.

    scripts/mutants.py                        all units, both kinds
    scripts/mutants.py --unit fast/plane_cell --kind branch
    scripts/mutants.py --list                 name the mutants, run nothing

Every source file of the library is compiled to assembly at -O1. A mutant changes one instruction that the line table attributes to a line under src or include:

    branch      a conditional jump is taken always, or never
    arithmetic  add and subtract, multiply and divide change places: scalar and packed doubles in
                all vector widths, integers where the stack pointer is no operand

Integer multiplication has no inverse of the same shape and address computations (lea) carry no
operation to swap; both stay. So do setcc and cmov: which of the two forms a comparison takes is the
compiler's choice, not the source's. A jump to the instruction behind it is no mutant. A function
that several units emit is changed in the first of them only.

All mutants of a unit are built into one object: at each place stands an indirect jump, which touches
neither a flag nor a register, and leads to the instruction as it was or to one of its changed forms.
An environment variable picks one changed form in the whole program as it starts. So each unit is
assembled and each test program is linked once for all mutants.

First each test runs by itself without a mutant, which has to pass. A mark at each place tells the
tests that pass it, and their time. Then, for each mutant, the tests that pass its place run, short
ones first, until one fails. A crash and an exceeded limit of time or memory count as dead.

Results stay in build/mutants/results.jsonl: a dead mutant is run again when its unit's assembly
changes, a survivor also when the tests that pass its place or other units change.
"""

import argparse
import collections
import concurrent.futures
import hashlib
import itertools
import json
import math
import os
import pathlib
import re
import shlex
import signal
import subprocess
import sys
import tempfile
import threading
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = ROOT / "build" / "release"
WORK = ROOT / "build" / "mutants"

PAGE = 4096
MEMORY_KB = 4 * 1024 * 1024  # a runaway allocation ends here
TIME_FACTOR = 4  # a step may take this often its usual processor time before it counts as dead
WALL_SECONDS = 30  # for a process that waits instead of working; grows with the tests' time
WALL_FACTOR = 100  # generous, as the processor may be shared
FILE_BLOCKS = 1 << 18  # of 512 bytes; more than any test writes
BASELINE_SECONDS = 10  # a generous guess, before the time of a test is known
STEP_SECONDS = (0.01, 0.1, math.inf)  # tests below the first run before those below the second

# One jump for each branch of the source, as far as the compiler can be told: no vectors and peeled
# loops, no second test in front of a loop, no check of a root's argument.
SOURCE_LIKE = ["-O1", "-g1", "-fno-tree-ch", "-fno-thread-jumps", "-fno-math-errno"]

SWAPS = {}
for one, other in (("add", "sub"), ("mul", "div")):
    for form in ("sd", "ss", "pd", "ps"):
        for prefix in ("", "v"):
            SWAPS[prefix + one + form] = prefix + other + form
for width in "bwlq":
    SWAPS["add" + width] = "sub" + width
for width in "bwdq":
    for prefix in ("", "v"):
        SWAPS[prefix + "padd" + width] = prefix + "psub" + width
SWAPS.update({other: one for one, other in list(SWAPS.items())})

INSTRUCTION = re.compile(r"^\t([a-z][a-z0-9]*)(?:\t(.*))?$")
FILE_LINE = re.compile(r'^\t\.file (\d+) "([^"]*)"(?: "([^"]*)")?')
LOC_LINE = re.compile(r"^\t\.loc (\d+) (\d+)")
SECTION_LINE = re.compile(r"^\t\.(text|data|bss|section|pushsection|popsection|previous)\b\s*(.*)$")

Place = collections.namedtuple("Place", "unit index line source number mnemonic operands")
Mutant = collections.namedtuple("Mutant", "place kind change form text")
Test = collections.namedtuple("Test", "program name seconds")


class Unit:
    """One source file of the library: its assembly without debug data, and its own places."""

    def __init__(self, source, command):
        self.source = source
        self.name = str(source.relative_to(ROOT / "src").with_suffix(""))
        self.command = command
        self.lines = []
        self.places = []
        self.digest = ""

    def file_name(self, suffix):
        return self.name.replace("/", "_") + suffix


def run(arguments, **options):
    """Runs a command that has to succeed and returns what it writes."""
    done = subprocess.run(arguments, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                          check=False, **options)
    if done.returncode != 0:
        sys.exit(f"mutants: {shlex.join(map(str, arguments))}\n{done.stdout}{done.stderr}")
    return done.stdout


# ---------------------------------------------------------------------------- assembly


def find_units():
    """The library's source files with their compile commands, in the order of the build."""
    units = []
    for entry in json.loads((BUILD / "compile_commands.json").read_text()):
        if "kestrane_objects.dir" in entry["command"]:
            units.append(Unit(pathlib.Path(entry["file"]), shlex.split(entry["command"])))
    return units


def assembly_of(unit):
    """The compiler's assembly of a unit, with the line table at its lightest.

    Made again when the build has made the unit's object again.
    """
    command = list(unit.command)
    built = BUILD / command[command.index("-o") + 1]
    output = WORK / "assembly" / unit.file_name(".s")
    if output.exists() and output.stat().st_mtime > built.stat().st_mtime:
        return output.read_text().splitlines()
    command[command.index("-c")] = "-S"
    command[-1:-1] = SOURCE_LIKE  # behind all other options, so that it wins
    unfinished = output.with_suffix(".part.s")
    command[command.index("-o") + 1] = str(unfinished)
    run(command, cwd=BUILD)
    unfinished.rename(output)
    return output.read_text().splitlines()


def is_own(path):
    """Whether a line of this file is the project's."""
    return path is not None and (path.is_relative_to(ROOT / "src")
                                 or path.is_relative_to(ROOT / "include"))


def file_path(match):
    """The absolute path that a .file line names."""
    folder, name = (match[2], match[3]) if match[3] else ("", match[2])
    return pathlib.Path(os.path.normpath(os.path.join(BUILD, folder, name)))


def take_apart(unit, text, emitted):
    """Drops debug data from a unit's assembly and notes the places in it that mutants change.

    emitted   functions that earlier units hold as a shared copy; this unit's copies are added
    """
    files, here, section, shared = {}, (None, 0), "", None
    mine = set()
    for line in text:
        if match := FILE_LINE.match(line):
            files[match[1]] = file_path(match)
            continue
        if match := LOC_LINE.match(line):
            here = (files.get(match[1]), int(match[2]))
            continue
        if match := SECTION_LINE.match(line):
            section = match[2] if match[1] == "section" else match[1]
            shared = section.split(",")[3] if section.endswith(",comdat") else None
            if shared:
                mine.add(shared)
        if section.startswith(".debug") and not re.match(r"\t\.(hidden|weak|globl)\t", line):
            continue
        match = INSTRUCTION.match(line)
        if match and shared not in emitted and is_own(here[0]) and has_mutants(match[1], match[2]):
            unit.places.append(Place(unit, len(unit.places), len(unit.lines), here[0], here[1],
                                     match[1], match[2] or ""))
        unit.lines.append(line)
    emitted |= mine
    unit.digest = hashlib.sha256("\n".join(unit.lines).encode()).hexdigest()


def has_mutants(mnemonic, operands):
    """Whether an instruction is one that mutants change."""
    if mnemonic in SWAPS:
        return re.search(r"%[re]sp\b", operands) is None
    return mnemonic.startswith("j") and mnemonic != "jmp"


def jumps_to_next(unit, place):
    """Whether the target of a jump is the instruction behind it."""
    for line in unit.lines[place.line + 1 :]:
        if line == place.operands + ":":
            return True
        if INSTRUCTION.match(line):
            return False
    return False


def mutants_of(unit):
    """All mutants of a unit, each with its number among the forms of its place."""
    found = []
    for place in unit.places:
        swap = SWAPS.get(place.mnemonic)
        if swap is not None:
            found.append(Mutant(place, "arithmetic", swap, 1, f"\t{swap}\t{place.operands}"))
        elif not jumps_to_next(unit, place):
            found.append(Mutant(place, "branch", "always", 1, None))
            found.append(Mutant(place, "branch", "never", 2, None))
    return found


def key_of(mutant):
    """What a stored result is found by."""
    return f"{mutant.place.unit.digest[:24]}:{mutant.place.line}:{mutant.change}"


# ---------------------------------------------------------------------------- building


def switched(number, unit, first_mark):
    """A unit's lines with a mark and a switch at each place that has mutants.

    The mark of a place is a byte; its slots are the way that is taken and its changed forms.
    """
    forms = collections.defaultdict(list)
    for mutant in mutants_of(unit):
        forms[mutant.place].append(mutant)
    lines, data = list(unit.lines), []
    for place in reversed(unit.places):
        name = f".Lplace_{number}_{place.index}"
        stays = [f"{name}_0:", lines[place.line]]
        changed, slots = [], []
        for mutant in forms[place]:
            if mutant.kind == "branch":
                slots.append(place.operands if mutant.change == "always" else f"{name}_end")
            else:
                stays.append(f"\tjmp\t{name}_end")
                changed += [f"{name}_1:", mutant.text]
                slots.append(f"{name}_1")
        lines[place.line : place.line + 1] = [
            f"\tmovb\t$1, kestrane_marks+{first_mark + place.index}(%rip)",
            f"\tjmp\t*kestrane_slots_{number}+{24 * place.index}(%rip)",
            *stays, *changed, f"{name}_end:"]
        data.insert(0, "\t.quad " + ", ".join([f"{name}_0", *slots, "0"][:3]))
    slots = f"kestrane_slots_{number}"
    return lines + [
        f"\t.globl {slots}", f"\t.hidden {slots}", "\t.hidden kestrane_marks",
        '\t.section .data.rel.local,"aw"', "\t.balign 8", f"{slots}:", *data, "\t.quad 0"]


SWITCH = """\
#include <cstdio>
#include <cstdlib>
#include <string>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>
#define HIDDEN __attribute__((visibility("hidden")))
extern "C" {{
HIDDEN extern unsigned char kestrane_marks[{marks}];
alignas(4096) unsigned char kestrane_marks[{marks}];
{slots}
}}
namespace {{
void** const kSlots[] = {{{table}}};

__attribute__((constructor(101))) void choose_mutant() {{
  const char* chosen = std::getenv("KESTRANE_MUTANT");
  int unit = 0, place = 0, form = 0;
  if (chosen == nullptr || std::sscanf(chosen, "%d:%d:%d", &unit, &place, &form) != 3) return;
  kSlots[unit][3 * place] = kSlots[unit][3 * place + form];
}}

// The marks of a process and of those that it forks lie in a file, whatever ends them.
__attribute__((constructor(101))) void share_marks() {{
  const char* folder = std::getenv("KESTRANE_MARKS");
  if (folder == nullptr) return;
  const std::string name = std::string(folder) + "/" + std::to_string(getpid());
  const int file = open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  const bool shared = ftruncate(file, sizeof kestrane_marks) == 0 &&
                      mmap(kestrane_marks, sizeof kestrane_marks, PROT_READ | PROT_WRITE,
                           MAP_SHARED | MAP_FIXED, file, 0) == kestrane_marks;
  if (!shared) std::abort();
  close(file);
}}
}}
"""


def compiler_of(unit):
    """The compiler, behind whatever launcher the build runs it with."""
    return unit.command[next(n for n, part in enumerate(unit.command) if part.startswith("-")) - 1]


def build_objects(units, jobs):
    """One object for each unit, with all of its mutants, and the one that chooses between them."""
    folder = WORK / "objects"
    folder.mkdir(exist_ok=True)
    first_marks = first_marks_of(units)

    def build(number):
        source = folder / units[number].file_name(".s")
        lines = switched(number, units[number], first_marks[number])
        source.write_text("\n".join(lines) + "\n")
        run([compiler_of(units[number]), "-c", source, "-o", source.with_suffix(".o")])
        return source.with_suffix(".o")

    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        objects = list(pool.map(build, range(len(units))))
    source = folder / "switch.cpp"
    source.write_text(SWITCH.format(
        marks=(first_marks[-1] // PAGE + 1) * PAGE,
        slots="\n".join(f"HIDDEN extern void* kestrane_slots_{n}[];" for n in range(len(units))),
        table=", ".join(f"kestrane_slots_{n}" for n in range(len(units)))))
    run([compiler_of(units[0]), "-O1", "-fPIC", "-c", source, "-o", source.with_suffix(".o")])
    return [*objects, source.with_suffix(".o")]


def first_marks_of(units):
    """The number of each unit's first mark, and of all marks."""
    return list(itertools.accumulate((len(unit.places) for unit in units), initial=0))


class Program:
    """A test program of the build, linked with the mutants' objects."""

    def __init__(self, target):
        self.name = pathlib.Path(target).name
        self.target = target
        self.environment = dict(os.environ)
        links = {}
        for command in run(["ninja", "-C", BUILD, "-t", "commands", target]).splitlines():
            if match := re.match(r": && (.* -o (\S+) .*?) && ", command):
                links[match[2]] = shlex.split(match[1])
        self.link, self.command = links[target], None
        self.library = next((link for name, link in links.items() if "libkestrane.so" in name), None)
        parts = [part for part in self.link if part.endswith((".o", "simulation.a"))]
        self.digest = hashlib.sha256(b"".join(
            (BUILD / part).read_bytes() for part in parts)).hexdigest()

    def build(self, objects):
        """Links the program with the mutants' objects ahead of the library's own.

        A program that uses the shared library alone stays as it is and loads a mutants' library.
        """
        folder = WORK / "programs"
        folder.mkdir(exist_ok=True)
        if self.library is None:
            self.command = str(folder / self.name)
            self.run_link(self.link, objects, self.command)
            return
        soname = next(part for part in self.library if part.startswith("-Wl,-soname,"))
        output = folder / soname.split(",")[2]
        self.run_link(self.library, objects, output)
        self.environment["LD_LIBRARY_PATH"] = str(folder)
        self.command = str(BUILD / self.target)

    @staticmethod
    def run_link(link, objects, output):
        command = [part for part in link if "kestrane_objects.dir" not in part]
        command[command.index("-o") + 1] = str(output)
        command[1:1] = map(str, objects)
        run(command, cwd=BUILD)


def find_programs():
    """All test programs of the build."""
    listing = run(["ninja", "-C", BUILD, "-t", "targets", "all"])
    targets = re.findall(r"^(tests/\S+_test): CXX_EXECUTABLE_LINKER", listing, re.M)
    return {pathlib.Path(target).name: Program(target) for target in sorted(targets)}


# ---------------------------------------------------------------------------- running


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


def baseline(units, programs, jobs):
    """The tests that pass a place, by the number of its mark.

    Kept in build/mutants/coverage.json for as long as neither a unit nor a test program changes.
    """
    stamp = hashlib.sha256("".join([unit.digest for unit in units] + [
        program.digest for program in programs.values()]).encode()).hexdigest()
    store = WORK / "coverage.json"
    known = json.loads(store.read_text()) if store.exists() else {}
    if known.get("stamp") != stamp:
        known = {"stamp": stamp, **measure_coverage(programs, jobs)}
        store.write_text(json.dumps(known))
    tests = [Test(*entry) for entry in known["tests"]]
    return {int(mark): [tests[n] for n in numbers] for mark, numbers in known["marks"].items()}


def measure_coverage(programs, jobs):
    """Runs each test by itself without a mutant: its time, and the marks that it leaves."""
    tests, marks_of = [], collections.defaultdict(list)

    def measure(item):
        program, name = item
        with tempfile.TemporaryDirectory(dir=WORK) as folder:
            folder = pathlib.Path(folder)
            marks = folder / "marks"
            marks.mkdir()
            status, seconds = run_tests(program, [name], {"KESTRANE_MARKS": str(marks)}, folder,
                                        BASELINE_SECONDS)
            if status != 0:
                raise RuntimeError(f"{program.name} fails without a mutant: {name}\n"
                                   + (folder / "output").read_text(errors="replace"))
            passed = {number for file in marks.iterdir()
                      for number, mark in enumerate(file.read_bytes()) if mark}
            return (program.name, name, seconds), passed

    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        items = [(program, name) for program in programs.values() for name in list_tests(program)]
        for test, passed in pool.map(measure, items):
            for mark in passed:
                marks_of[mark].append(len(tests))
            tests.append(test)
    print(f"{len(tests)} tests pass without a mutant", flush=True)
    return {"tests": tests, "marks": marks_of}


# ---------------------------------------------------------------------------- mutants


def steps_for(tests, unit):
    """The order in which a mutant meets its tests: (program, tests) with short tests first.

    The programs of the unit's own room come first, as they look at it most closely.
    """
    room, stem = unit.name.split("/")
    steps = []
    for least, most in zip((0.0, *STEP_SECONDS), STEP_SECONDS):
        groups = collections.defaultdict(list)
        for test in tests:
            if least <= test.seconds < most:
                groups[test.program].append(test)
        steps += sorted(groups.items(), key=lambda item: (
            stem not in item[0] and room not in item[0],
            sum(test.seconds for test in item[1])))
    return steps


def run_mutant(number, mutant, tests, programs):
    """Runs the tests that pass a mutant's place; returns the program that noticed it, or None."""
    chosen = {"KESTRANE_MUTANT": f"{number}:{mutant.place.index}:{mutant.form}"}
    with tempfile.TemporaryDirectory(dir=WORK) as folder:
        for name, step in steps_for(tests, mutant.place.unit):
            status, _ = run_tests(programs[name], [test.name for test in step], chosen,
                                  pathlib.Path(folder), sum(test.seconds for test in step))
            if status != 0:
                return name
    return None


class Results:
    """The results of earlier runs, and those of this one."""

    def __init__(self):
        self.path = WORK / "results.jsonl"
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


def run_all(mutants, coverage, units, programs, jobs):
    """Runs the mutants whose result is not known; returns the set of those that live."""
    results = Results()
    numbers = {unit.name: n for n, unit in enumerate(units)}
    first_marks = first_marks_of(units)
    living, waiting = set(), []
    for mutant in mutants:
        number = numbers[mutant.place.unit.name]
        tests = coverage.get(first_marks[number] + mutant.place.index, [])
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


# ---------------------------------------------------------------------------- report


def describe(mutant):
    """One line: where, what, and the source line."""
    place = mutant.place
    line = place.source.read_text().splitlines()[place.number - 1].strip()
    return (f"{place.source.relative_to(ROOT)}:{place.number}  [{place.unit.name}]  "
            f"{place.mnemonic} {place.operands} -> {mutant.change}  | {line}")


def report(mutants, living, coverage, units):
    """Prints a table per unit and the survivors."""
    first_marks = dict(zip((unit.name for unit in units), first_marks_of(units)))
    print(f"\n{'unit':40} {'branch':>7} {'dead':>6} {'arith.':>7} {'dead':>6}")
    totals = collections.Counter()
    for unit in units:
        row = collections.Counter()
        for mutant in mutants:
            if mutant.place.unit is unit:
                row[mutant.kind] += 1
                row[mutant.kind, "dead"] += mutant not in living
        if row:
            print_row(unit.name, row)
        totals.update(row)
    print_row("all", totals)
    for kind in ("branch", "arithmetic"):
        if totals[kind]:
            print(f"{kind}: {100.0 * totals[kind, 'dead'] / totals[kind]:.2f} % dead")
    print("\nsurvivors")
    for mutant in sorted(living, key=lambda m: (str(m.place.source), m.place.number, m.place.line)):
        passed = first_marks[mutant.place.unit.name] + mutant.place.index in coverage
        print(describe(mutant) + ("" if passed else "  (no test passes here)"))


def print_row(name, row):
    print(f"{name:40} {row['branch']:7} {row['branch', 'dead']:6} "
          f"{row['arithmetic']:7} {row['arithmetic', 'dead']:6}")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--unit", default="", help="only units whose name holds this")
    parser.add_argument("--kind", choices=["branch", "arithmetic"], help="only this kind")
    parser.add_argument("--list", action="store_true", help="name the mutants, run nothing")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), help="mutants at a time")
    options = parser.parse_args()

    (WORK / "assembly").mkdir(parents=True, exist_ok=True)
    units = find_units()
    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        texts = list(pool.map(assembly_of, units))
    emitted = set()
    for unit, text in zip(units, texts):
        take_apart(unit, text, emitted)
    mutants = [mutant for unit in units if options.unit in unit.name
               for mutant in mutants_of(unit) if options.kind in (None, mutant.kind)]
    if options.list:
        for mutant in mutants:
            print(describe(mutant))
        return
    programs = find_programs()
    objects = build_objects(units, options.jobs)
    for program in programs.values():
        program.build(objects)
    coverage = baseline(units, programs, options.jobs)
    living = run_all(mutants, coverage, units, programs, options.jobs)
    report(mutants, living, coverage, units)


if __name__ == "__main__":
    main()
