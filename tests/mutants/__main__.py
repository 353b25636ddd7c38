"""Changes one machine instruction of the libraries at a time and looks whether a test notices.

    python3 tests/mutants                      all units, both kinds
    python3 tests/mutants --unit fast/ --kind branch
    python3 tests/mutants --unit quality/      the units of kestrane::quality
    python3 tests/mutants --unit fit/ fast/    of several rooms
    python3 tests/mutants --list               name the mutants, run nothing
    python3 tests/mutants --quotes             look for explanations of lines that are gone

Every source file of both libraries is compiled to assembly at -O1. A mutant changes one instruction
that the line table attributes to a line under src, include or quality:

    branch      a conditional jump is taken always, or never
    arithmetic  add and subtract, multiply and divide change places: scalar and packed doubles in
                all vector widths, integers where the stack pointer is not an operand

Integer multiplication has no inverse of the same shape and address computations (lea) carry no
operation to swap; both stay. So do setcc and cmov: which of the two forms a comparison takes is the
compiler's choice, not the source's. A jump to the next instruction is not a mutant. A function
that several units emit is changed in the first of them only.

All mutants of a unit are built into one object: at each place stands an indirect jump, which touches
neither a flag nor a register, and leads to the instruction as it was or to one of its changed forms.
An environment variable picks one changed form in the whole program as it starts. So each unit is
assembled and each test program is linked once for all mutants.

First each test runs by itself without a mutant, which has to pass; one that takes longer than
--longest is left out, so that a survivor does not cost minutes. A mark at each place tells the
tests that pass it, and their time. Then, for each mutant, the tests that pass its place run, short
ones first, until one fails; with --most, as many as fit into that time, those of the unit and of its
room before others. A crash and an exceeded limit of time or memory count as dead.

Results stay in build/mutants/results.jsonl: a dead mutant is run again when its unit's assembly
changes, a survivor also when the tests that pass its place or other units change.

Survivors with a reason stand in explained.txt. A survivor without one, and in a whole run a reason
without a survivor, make the run fail.
"""

import argparse
import concurrent.futures
import math
import os
import pathlib
import sys

import folders
from assembly import assembly_of, find_units, mutants_of, take_apart
from explanations import read_explained
from report import EXPLAINED, describe, report, unquoted
from running import baseline, run_all
from switched import build_objects, find_programs, first_marks_of


def take_all_apart(jobs):
    """All units of both libraries, each with its places."""
    units = find_units()
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        texts = list(pool.map(assembly_of, units))
    emitted = set()
    for unit, text in zip(units, texts):
        take_apart(unit, text, emitted)
    return units


def run_mutants(units, mutants, longest, most, jobs):
    """Runs the mutants; returns those that live and whether a test passes a mutant's place."""
    programs = find_programs()
    objects = build_objects(units, jobs)
    for program in programs.values():
        program.build(objects)
    coverage = baseline(units, programs, longest, jobs)
    first_marks = dict(zip((unit.name for unit in units), first_marks_of(units)))

    def reached(mutant):
        return first_marks[mutant.place.unit.name] + mutant.place.index in coverage

    return run_all(mutants, coverage, units, programs, most, jobs), reached


def main():
    parser = argparse.ArgumentParser(prog="mutants", description=__doc__.splitlines()[0])
    parser.add_argument("--unit", nargs="+", help="only units whose name begins with one of these")
    parser.add_argument("--kind", choices=["branch", "arithmetic"], help="only this kind")
    parser.add_argument("--list", action="store_true", help="name the mutants, run nothing")
    parser.add_argument("--quotes", action="store_true",
                        help="fail where an explanation's source line is gone, run nothing")
    parser.add_argument("--longest", type=float, default=2.0,
                        help="seconds of processor time; tests that need more are left out")
    parser.add_argument("--most", type=float, default=math.inf,
                        help="seconds of processor time of all tests that one mutant meets")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), help="mutants at a time")
    parser.add_argument("--root", type=pathlib.Path, default=folders.ROOT, help="the sources")
    parser.add_argument("--build", type=pathlib.Path, help="default: build/release")
    parser.add_argument("--explained", type=pathlib.Path, default=EXPLAINED)
    options = parser.parse_args()

    folders.ROOT = options.root.resolve()
    folders.BUILD = (options.build or folders.ROOT / "build" / "release").resolve()
    folders.WORK = folders.BUILD.parent / "mutants"
    if options.quotes:
        gone = unquoted(read_explained(options.explained))
        sys.exit("mutants: lines that are gone\n" + "\n".join(gone) if gone else 0)
    (folders.WORK / "assembly").mkdir(parents=True, exist_ok=True)
    units = take_all_apart(options.jobs)
    mutants = [mutant for unit in units if unit.name.startswith(tuple(options.unit or [""]))
               for mutant in mutants_of(unit) if options.kind in (None, mutant.kind)]
    if options.list:
        for mutant in mutants:
            print(describe(mutant))
        return
    living, reached = run_mutants(units, mutants, options.longest, options.most,
                                  options.jobs)
    whole = not options.unit and options.kind is None
    if not report(mutants, living, reached, read_explained(options.explained), whole):
        sys.exit("mutants: survivors and explanations do not agree")


if __name__ == "__main__":
    main()
