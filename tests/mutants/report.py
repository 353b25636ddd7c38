"""What a run found: a table per unit, and the survivors against their explanations.

explained.txt holds blocks of a reason and the survivors that it explains. A reason is one paragraph
of comment lines; a survivor is a line of instruction, change and source line, so that it moves along
when the source does:

    # Nothing to give back: deleting a null pointer does nothing that a host could see.
    je never | delete engine_;
"""

import collections
import pathlib

import folders

EXPLAINED = pathlib.Path(__file__).resolve().parent / "explained.txt"


def describe(mutant):
    """One line: where, what, and the source line."""
    place = mutant.place
    line = place.source.read_text().splitlines()[place.number - 1].strip()
    return (f"{place.source.relative_to(folders.ROOT)}:{place.number}  [{place.unit.name}]  "
            f"{place.mnemonic} {place.operands} -> {mutant.change}  | {line}")


def entry_of(mutant):
    """The line of explained.txt that explains a survivor."""
    place = mutant.place
    line = place.source.read_text().splitlines()[place.number - 1].strip()
    return f"{place.mnemonic} {mutant.change} | {line}"


def unquoted(explained):
    """The entries whose source line stands in no file any more."""
    lines = {line.strip() for folder in folders.SOURCES
             for source in (folders.ROOT / folder).rglob("*") if source.suffix in (".h", ".cpp")
             for line in source.read_text(encoding="utf-8").splitlines()}
    return sorted(entry for entry in explained if entry.partition(" | ")[2] not in lines)


def report(mutants, living, reached, explained, whole):
    """Prints the table and the survivors; returns whether each survivor has its explanation.

    reached    whether a test passes a mutant's place
    explained  entries of explained.txt
    whole      all mutants were run, so that an entry without a survivor is one too many
    """
    print(f"\n{'unit':40} {'branch':>7} {'dead':>6} {'arith.':>7} {'dead':>6}")
    totals, rows = collections.Counter(), collections.defaultdict(collections.Counter)
    for mutant in mutants:
        row = rows[mutant.place.unit.name]
        row[mutant.kind] += 1
        row[mutant.kind, "dead"] += mutant not in living
    for name, row in rows.items():
        print_row(name, row)
        totals.update(row)
    print_row("all", totals)
    for kind in ("branch", "arithmetic"):
        if totals[kind]:
            print(f"{kind}: {100.0 * totals[kind, 'dead'] / totals[kind]:.2f} % dead")
    survivors = sorted(living, key=lambda m: (str(m.place.source), m.place.number, m.place.line))
    entries = {mutant: entry_of(mutant) for mutant in survivors}
    print("\nexplained survivors")
    for mutant in survivors:
        if entries[mutant] in explained:
            print("  " + describe(mutant))
    unexplained = [mutant for mutant in survivors if entries[mutant] not in explained]
    print("\nsurvivors without an explanation; the second line is an entry for explained.txt")
    for mutant in unexplained:
        print("  " + describe(mutant) + ("" if reached(mutant) else "  (no test passes here)"))
        print(entries[mutant])
    stale = sorted(explained - set(entries.values())) if whole else []
    if stale:
        print("\nexplanations that explain nothing")
        print("\n".join(stale))
    return not unexplained and not stale


def print_row(name, row):
    print(f"{name:40} {row['branch']:7} {row['branch', 'dead']:6} "
          f"{row['arithmetic']:7} {row['arithmetic', 'dead']:6}")
