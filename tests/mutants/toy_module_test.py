"""The tool over a module whose mutants' fates are known: toy_module_test.py <folder to work in>."""

import pathlib
import shutil
import sys
import types

from toy_runs import expect, run_tool

TOOL = pathlib.Path(__file__).resolve().parent / "python"

SAME = "value > LIMIT -> value >= LIMIT | return LIMIT if value > LIMIT else value"
QUOTE = """\"'\" -> '' | raise ValueError(f"a name expected, got '{name}'")"""
STEP = "1 -> 2 | count -= 1"
UNTESTED = ["return -> return None | return a + b", "a + b -> a - b | return a + b"]
ENDLESS = "toy:24  count -= 1 -> count += 1"


def mutants(folder, *entries, arguments=()):
    return run_tool(TOOL, folder, "--root", str(TOOL / "toy"), "--work", str(folder / "work"),
                    "--sources", "package", "--modules", "*.py", "--tests", "tests/*_test.py",
                    "--jobs", "2", *arguments, explained=entries)


def expect_narrow_and_short_tests():
    """Of too many tests, some are chosen that pass little else, and some that are short."""
    sys.path[:0] = [str(TOOL), str(TOOL.parent)]
    import running

    names = {"narrow": 0.9, "endless": 1.5, "wider": 0.8, "wide": 0.7, "short": 0.2, "tiny": 0.1}
    tests = [running.Test("file", name, seconds, passes)
             for passes, (name, seconds) in enumerate(names.items())]
    mutant = types.SimpleNamespace(module="toy", statement=1)
    chosen = [test.name for test in running.tests_for(mutant, {"toy:1": tests})]
    expect(chosen == ["tiny", "short", "wide", "narrow"], str(chosen))


def main():
    expect_narrow_and_short_tests()
    folder = pathlib.Path(sys.argv[1])
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)

    status, output = mutants(folder, arguments=["--list"])
    expect(status == 0 and output.count("\n") == 18 and ENDLESS in output, output)

    status, output = mutants(folder)
    expect(status != 0 and "5 tests pass" in output, output)
    expect("18 mutants, 16 to run" in output, output)  # two stand where no test passes
    for survivor in (SAME, QUOTE, STEP, *UNTESTED):
        expect(f"\n{survivor}\n" in output, output)
    expect(output.count("(no test passes here)") == 2 and ENDLESS not in output, output)
    expect("\ntoy" + 37 * " " + "       18     13   72.2 %          0\n" in output, output)

    status, output = mutants(folder, SAME, QUOTE, STEP, *UNTESTED)
    expect(status == 0 and "0 to run" in output and "          5\n" in output, output)

    status, output = mutants(folder, SAME, QUOTE, STEP)
    expect(status != 0, output)  # two of eighteen are more than one in ten

    status, output = mutants(folder, SAME, QUOTE, STEP, *UNTESTED, "1 -> 2 | gone()")
    expect(status != 0 and "explain nothing\n1 -> 2 | gone()" in output, output)

    status, output = mutants(folder, arguments=["--module", "oy"])
    expect(status == 0 and "0 mutants, 0 to run" in output, output)


main()
