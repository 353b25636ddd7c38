"""The libraries' units as assembly, and the instructions in it that mutants change."""

import collections
import hashlib
import json
import os
import pathlib
import re
import shlex

import folders
from folders import run

# One jump for each branch of the source, as far as the compiler can be told: no vectors and peeled
# loops, no second test in front of a loop, no note whether a loop has stored what it keeps in a
# register, no check of a root's argument. Warnings are the build's: with these flags the compiler
# guesses other ones.
SOURCE_LIKE = ["-O1", "-g1", "-fno-tree-ch", "-fno-thread-jumps", "-fallow-store-data-races",
               "-fno-math-errno", "-w"]

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


class Unit:
    """One source file of a library: its assembly without debug data, and its own places."""

    def __init__(self, source, command):
        self.source = source
        self.name = name_of(source)
        self.command = command
        self.lines = []
        self.places = []
        self.digest = ""

    def file_name(self, suffix):
        return self.name.replace("/", "_") + suffix


def name_of(source):
    """A unit's name: its path in the project, without src/ in front of the library's own."""
    path = source.relative_to(folders.ROOT)
    return str(path.relative_to("src") if path.parts[0] == "src" else path).removesuffix(".cpp")


def find_units():
    """The source files of both libraries with their compile commands, in the order of the build."""
    units = []
    for entry in json.loads((folders.BUILD / "compile_commands.json").read_text()):
        if any(objects in entry["command"] for objects in folders.OBJECTS):
            units.append(Unit(pathlib.Path(entry["file"]), shlex.split(entry["command"])))
    return units


def assembly_of(unit):
    """The compiler's assembly of a unit, with the line table at its lightest.

    Made again when the build has made the unit's object again.
    """
    command = list(unit.command)
    built = folders.BUILD / command[command.index("-o") + 1]
    output = folders.WORK / "assembly" / unit.file_name(".s")
    if output.exists() and output.stat().st_mtime > built.stat().st_mtime:
        return output.read_text().splitlines()
    command[command.index("-c")] = "-S"
    command[-1:-1] = SOURCE_LIKE  # after all other options, so that it wins
    unfinished = output.with_suffix(".part.s")
    command[command.index("-o") + 1] = str(unfinished)
    run(command, cwd=folders.BUILD)
    unfinished.rename(output)
    return output.read_text().splitlines()


def is_own(path):
    """Whether a line of this file is the project's."""
    return path is not None and any(path.is_relative_to(folders.ROOT / folder)
                                    for folder in folders.SOURCES)


def file_path(match):
    """The absolute path that a .file line names."""
    folder, name = (match[2], match[3]) if match[3] else ("", match[2])
    return pathlib.Path(os.path.normpath(os.path.join(folders.BUILD, folder, name)))


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
    """Whether the target of a jump is the next instruction."""
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
