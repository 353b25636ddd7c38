"""One object for each unit that holds all of its mutants, and test programs linked with them."""

import collections
import concurrent.futures
import hashlib
import itertools
import os
import pathlib
import re
import shlex
import sys

import folders
from assembly import mutants_of
from folders import run

PAGE = 4096


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
    """The compiler, without the launcher that the build may run it with."""
    return unit.command[next(n for n, part in enumerate(unit.command) if part.startswith("-")) - 1]


def build_objects(units, jobs):
    """One object for each unit, with all of its mutants, and the one that chooses between them."""
    folder = folders.WORK / "objects"
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
        for command in run(["ninja", "-C", folders.BUILD, "-t", "commands", target]).splitlines():
            if match := re.match(r": && (.* -o (\S+) .*?) && ", command):
                links[match[2]] = shlex.split(match[1])
        self.link, self.command = links[target], None
        self.library = next((link for name, link in links.items() if "libkestrane.so" in name), None)
        own = " ".join(self.link)
        if "libkestrane.so" in own and "libkestrane_internal.a" in own:
            # Its own copies of the units would stay as they are, and let every mutant live.
            sys.exit(f"mutants: {target} links both the shared library and the internal symbols")
        parts = [part for part in self.link if part.endswith((".o", "simulation.a"))]
        self.digest = hashlib.sha256(b"".join(
            (folders.BUILD / part).read_bytes() for part in parts)).hexdigest()

    def build(self, objects):
        """Links the program with the mutants' objects ahead of the library's own.

        A program that uses the shared library alone stays as it is and loads a mutants' library.
        """
        folder = folders.WORK / "programs"
        folder.mkdir(exist_ok=True)
        if self.library is None:
            self.command = str(folder / self.name)
            self.run_link(self.link, objects, self.command)
            return
        soname = next(part for part in self.library if part.startswith("-Wl,-soname,"))
        output = folder / soname.split(",")[2]
        self.run_link(self.library, objects, output)
        self.environment["LD_LIBRARY_PATH"] = str(folder)
        self.command = str(folders.BUILD / self.target)

    @staticmethod
    def run_link(link, objects, output):
        command = [part for part in link
                   if not any(objects in part for objects in folders.OBJECTS)]
        command[command.index("-o") + 1] = str(output)
        command[1:1] = map(str, objects)
        run(command, cwd=folders.BUILD)


def find_programs():
    """All test programs of the build."""
    listing = run(["ninja", "-C", folders.BUILD, "-t", "targets", "all"])
    targets = re.findall(r"^(tests/\S+_test): CXX_EXECUTABLE_LINKER", listing, re.M)
    return {pathlib.Path(target).name: Program(target) for target in sorted(targets)}
