"""The tool over units whose mutants' fates are known: toy_test.py <folder to build in>."""

import pathlib
import re
import shutil
import subprocess
import sys

from toy_runs import expect, run_tool

HERE = pathlib.Path(__file__).resolve().parent
TOY = HERE / "toy"

# The way round of a jump is the compiler's choice.
SAME = re.compile(r"^j\w+ (?:always|never) \| if \(size != 0\) std::memset\(to, 0, size\);$", re.M)
UNTESTED = "addsd subsd | double untested_sum(double a, double b) { return a + b; }"


def mutants(folder, *entries, arguments=()):
    return run_tool(HERE, folder, "--root", str(TOY), "--build", str(folder / "release"), *arguments,
                    explained=entries)


def main():
    folder = pathlib.Path(sys.argv[1])
    shutil.rmtree(folder, ignore_errors=True)
    build = folder / "release"
    for command in (["cmake", "-S", TOY, "-B", build, "-G", "Ninja"], ["ninja", "-C", build]):
        subprocess.run(command, check=True, stdout=subprocess.DEVNULL)

    status, output = mutants(folder)
    expect(status != 0 and "5 mutants" in output, output)
    same = SAME.search(output)
    expect(same is not None and "\n" + UNTESTED in output, output)
    expect("(no test passes here)" in output and "divsd" not in output, output)
    expect("branch: 50.00 % dead" in output and "arithmetic: 66.67 % dead" in output, output)

    status, output = mutants(folder, same[0], UNTESTED)
    expect(status == 0 and "0 to run" in output, output)

    status, output = mutants(folder, same[0], UNTESTED, "je never | gone();")
    expect(status != 0 and "explain nothing\nje never | gone();" in output, output)

    status, output = mutants(folder, same[0], arguments=["--kind", "branch"])
    expect(status == 0 and "addsd" not in output, output)

    status, output = mutants(folder, arguments=["--unit", "oy"])
    expect("0 mutants" in output, output)

    status, output = mutants(folder, arguments=["--unit", "quality/"])
    expect(status == 0 and "1 mutants, 0 to run" in output, output)
    expect("arithmetic: 100.00 % dead" in output, output)

    status, output = mutants(folder, arguments=["--unit", "quality/", "--longest", "0.1"])
    expect(status == 0 and "left out, too long: Spread.TakesItsTime" in output, output)

    (folder / "mutants" / "results.jsonl").unlink()
    status, output = mutants(folder, arguments=["--unit", "quality/", "--most", "0"])
    expect(status != 0 and "1 mutants, 0 to run" in output, output)
    expect("arithmetic: 0.00 % dead" in output and "no test passes" not in output, output)
    status, output = mutants(folder, arguments=["--unit", "quality/", "--most", "0.1"])
    expect(status == 0 and "1 mutants, 1 to run" in output, output)

    status, output = mutants(folder, UNTESTED, arguments=["--quotes"])
    expect(status == 0 and output == "", output)

    status, output = mutants(folder, UNTESTED, "je never | gone();", arguments=["--quotes"])
    expect(status != 0 and "lines that are gone\nje never | gone();" in output, output)


main()
