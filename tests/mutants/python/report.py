"""What a run found: a table per module, and the survivors against their explanations.

explained.txt holds blocks of a reason and the survivors that it explains. A reason is one paragraph
of comment lines; a survivor is what changed and the first line of its statement, so that it moves
along when the source does:

    # Not an index but a bound beyond every plane: one more or less meets no plane.
    1024 -> 1025 | return as_count(threads, "threads", least=1, most=1024)
"""

import collections
import pathlib

EXPLAINED = pathlib.Path(__file__).resolve().parent / "explained.txt"
LEAST = 90.0  # per cent of a module's mutants that have to die or to be explained


def report(mutants, living, passed, explained, whole):
    """Prints the table and the survivors; returns whether each module reaches its share.

    passed     whether a test passes a mutant's statement
    explained  entries of explained.txt
    whole      all mutants were run, so that an entry without a survivor is one too many
    """
    rows = collections.defaultdict(collections.Counter)
    for mutant in mutants:
        fate = "dead" if mutant not in living else (
            "explained" if mutant.key() in explained else "open")
        rows[mutant.module].update(("all", fate))
    print("\nsurvivors without an explanation; the second line is an entry for explained.txt")
    for mutant in mutants:
        if mutant in living and mutant.key() not in explained:
            print(f"  {mutant.describe()}" + ("" if passed(mutant) else "  (no test passes here)"))
            print(mutant.key())
    print(f"\n{'module':40} {'mutants':>8} {'dead':>6} {'share':>8} {'explained':>10}")
    for name, row in rows.items():
        _print_row(name, row)
    _print_row("all", sum(rows.values(), collections.Counter()))
    stale = sorted(explained - {mutant.key() for mutant in living}) if whole else []
    if stale:
        print("\nexplanations that explain nothing\n" + "\n".join(stale))
    return not stale and all(100.0 * row["open"] <= (100.0 - LEAST) * row["all"]
                             for row in rows.values())


def _print_row(name, row):
    share = 100.0 * row["dead"] / row["all"] if row["all"] else 100.0
    print(f"{name:40} {row['all']:8} {row['dead']:6} {share:6.1f} % {row['explained']:10}")
