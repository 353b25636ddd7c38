"""Changes one place of a Python module at a time and looks whether a test notices.

    build/release/bin/python tests/mutants/python                       all modules
    build/release/bin/python tests/mutants/python --module kestrane.clouds
    build/release/bin/python tests/mutants/python --list                name the mutants, run nothing

The modules are those with logic of their own, named below: readers and writers of clouds, what the
tools keep of a run, and what they say about it. A mutant changes one place of the syntax tree:

    a comparison becomes its neighbour or its opposite, and becomes or; a condition is turned round;
    plus and minus, times and divided, the shifts, the operations of bits change places
    a number is one more or less, True is False, a text or a piece of one is left out
    a function returns None; a slice loses a bound; min and max, any and all change places
    raise, continue, break, a call for its effect, an assignment to a part of something are left out

Annotations, decorators, `assert` and descriptions stay: they are words to whoever reads.

First the tests run without a mutant, which they have to pass. A mark ahead of each statement tells
the tests that pass it, and their time. Then, for each mutant, the tests that pass its statement run,
short ones first, until one fails, in a forked child of this process. A crash and an exceeded limit
of time or memory count as dead. Tests that start processes of their own do not see a mutant there.

Results stay in build/mutants/python.jsonl: a dead mutant is run again when its module changes, a
survivor also when its tests do. Survivors with a reason stand in explained.txt. A module of which
fewer than 90 % of the mutants die or are explained, and in a whole run a reason without a survivor,
make the run fail.
"""

import argparse
import os
import pathlib
import shutil
import sys

ROOT = pathlib.Path(__file__).resolve().parents[3]

# Folders of packages, the modules in them, and the tests that look at them.
SOURCES = ("python", "tools")
MODULES = (
    "kestrane/_inputs.py",
    "kestrane/_output.py",
    "kestrane/clouds/*.py",
    "kestrane/points.py",
    "kestrane_tools/cli/factory_words.py",
    "kestrane_tools/cli/words.py",
    "kestrane_tools/counted.py",
    "kestrane_tools/files.py",
    "kestrane_tools/report/words.py",
    "kestrane_tools/results.py",
    "kestrane_tools/run_file.py",
)
TESTS = (
    "python/tests/clouds/*_test.py",
    "python/tests/inputs_test.py",
    "python/tests/output_test.py",
    "python/tests/points_test.py",
    "tools/tests/cli/words_test.py",
    "tools/tests/report/*_test.py",
)


def find_modules(root, sources, patterns):
    """Name and path of each module."""
    return {
        ".".join(path.relative_to(root / folder).with_suffix("").parts).removesuffix(".__init__"):
            path
        for folder in sources for pattern in patterns
        for path in sorted((root / folder).glob(pattern))
    }


def main():
    parser = argparse.ArgumentParser(prog="mutants", description=__doc__.splitlines()[0])
    parser.add_argument("--module", default="", help="only modules whose name begins with this")
    parser.add_argument("--every", type=int, default=1, help="only every N-th mutant")
    parser.add_argument("--list", action="store_true", help="name the mutants, run nothing")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), help="mutants at a time")
    parser.add_argument("--root", type=pathlib.Path, default=ROOT, help="the sources")
    parser.add_argument("--work", type=pathlib.Path, help="default: build/mutants")
    parser.add_argument("--explained", type=pathlib.Path)
    parser.add_argument("--sources", nargs="*", default=SOURCES, help="folders of packages")
    parser.add_argument("--modules", nargs="*", default=MODULES, help="patterns of files in them")
    parser.add_argument("--tests", nargs="*", default=TESTS, help="patterns of files of tests")
    options = parser.parse_args()
    os.environ["PYTEST_DISABLE_PLUGIN_AUTOLOAD"] = "1"  # only what the project itself asks for
    os.environ["OPENBLAS_NUM_THREADS"] = "1"  # a process that forks has one thread

    sys.path.append(str(pathlib.Path(__file__).resolve().parents[1]))  # what both tools share

    import changes
    import report
    import running
    from explanations import read_explained

    root = options.root.resolve()
    work = (options.work or root / "build" / "mutants").resolve()
    work.mkdir(parents=True, exist_ok=True)
    sys.pycache_prefix = str(work / "compiled")  # no child compiles what another one has
    sys.dont_write_bytecode = False
    paths = find_modules(root, options.sources, options.modules)
    texts = {name: path.read_text(encoding="utf-8") for name, path in paths.items()}
    trees = {name: changes.parsed(text) for name, text in texts.items()}
    mutants = [mutant for name, tree in trees.items() if name.startswith(options.module)
               for mutant in changes.mutants_of(tree, texts[name], name)][:: options.every]
    if options.list:
        for mutant in mutants:
            print(mutant.describe())
        return
    for old in work.glob("child-*"):
        shutil.rmtree(old, ignore_errors=True)
    tests = [str(path) for pattern in options.tests for path in sorted(root.glob(pattern))]
    running.preload()
    configuration = root / "pytest.ini"
    passed, finding = running.baseline(configuration, trees, tests, options.jobs, work)
    results = running.Results(work / "python.jsonl", texts)
    living = running.run_all(configuration, tests, mutants, trees, passed, finding, results,
                             options.jobs, work)
    explained = read_explained(options.explained or report.EXPLAINED)
    if not report.report(mutants, living, lambda mutant: running.tests_for(mutant, passed),
                         explained, not options.module and options.every == 1):
        sys.exit("mutants: too many survivors, or explanations that do not agree with them")


if __name__ == "__main__":
    main()
