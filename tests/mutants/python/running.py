"""Tests with one mutant at a time, each in a forked child.

A mutant inside a function is put into a process that has loaded the project and found its tests: the
function gets another body. Any other mutant, and one that has a part in finding the tests, meets its
tests in a process that loads the project anew, one module of it from a syntax tree.
"""

import builtins
import collections
import contextlib
import gc
import hashlib
import importlib
import importlib.abc
import importlib.machinery
import json
import multiprocessing
import multiprocessing.connection
import os
import pathlib
import resource
import shutil
import signal
import sys
import time
import types

import pytest

import changes

PRELOADED = ("numpy", "hypothesis.extra.numpy", "html.parser", "zipfile", "rich.console", "jinja2",
             "click")

MEMORY_BYTES = 6 << 30  # a runaway allocation ends here
TIME_FACTOR = 10  # a test may take this often its usual processor time before the mutant is dead
TIME_SECONDS = 2.0  # and this long in any case
WALL_SECONDS = 200.0  # for a process that waits instead of working; grows with the tests' time
WALL_FACTOR = 20.0
BASELINE_SECONDS = 1200.0  # for a file of tests without a mutant
FOREVER = 1e6
LONGEST_SECONDS = 1.0  # a test that takes longer looks at no mutant: too few die by it alone
MOST_SECONDS = 2.0  # of all tests that look at a mutant
LONG_TESTS = "not three_million and not changed_header and not any_bytes"  # known to take longer
RECENT = 12  # tests that killed a mutant of the module lately are tried first

Test = collections.namedtuple("Test", "file name seconds passes")  # how many statements it passes


class Loader(importlib.machinery.SourceFileLoader):
    """Loads a module from a syntax tree."""

    def __init__(self, name, path, tree):
        super().__init__(name, path)
        self.tree = tree

    def get_code(self, fullname):
        return changes.compiled(self.tree, self.path)


class Finder(importlib.abc.MetaPathFinder):
    """Finds modules that have a tree instead of their file."""

    def __init__(self, trees):
        self.trees = trees

    def find_spec(self, name, path, target=None):
        if name not in self.trees:
            return None
        found = importlib.machinery.PathFinder.find_spec(name, path)
        found.loader = Loader(name, found.origin, self.trees[name])
        return found


class Marking:
    """Notes for each test its processor time and the statements that it passes."""

    def __init__(self, marks):
        self.marks = marks
        self.tests = []
        self.collected = []

    def pytest_collection_finish(self, session):
        self.collected = sorted(self.marks)

    @pytest.hookimpl(hookwrapper=True)
    def pytest_runtest_protocol(self, item):
        self.marks.clear()
        begin = time.process_time()
        yield
        self.tests.append((item.nodeid, time.process_time() - begin, sorted(self.marks)))


class Chosen:
    """Runs some of the tests that are found, in a given order, each within its time."""

    def __init__(self, tests):
        self.tests = tests
        self.killer = None

    def pytest_runtestloop(self, session):
        if not session.testsfailed:
            self.killer = run_tests(self.tests, session)
        return True

    def pytest_collectreport(self, report):
        if report.failed:
            self.killer = self.killer or report.nodeid


class Killer:
    """Notes a test that fails."""

    name = None

    def pytest_runtest_logreport(self, report):
        if report.failed:
            self.name = self.name or report.nodeid


def run_tests(tests, session):
    """Runs tests of a session up to the first that fails; its name, or None where all pass."""
    found = {item.nodeid: item for item in session.items}
    killer = Killer()
    session.config.pluginmanager.register(killer)
    for test, later in zip(tests, [*tests[1:], None]):
        if test.name not in found:
            return test.name  # a test of each of something, of which there are fewer now
        limit_time(test.seconds)
        nextitem = found.get(later.name) if later else None
        session.config.hook.pytest_runtest_protocol(item=found[test.name], nextitem=nextitem)
        if killer.name:
            return killer.name
    signal.setitimer(signal.ITIMER_PROF, 0.0)
    return None


def limit_time(seconds):
    """Ends the process when it has worked much longer than usual."""
    signal.setitimer(signal.ITIMER_PROF, TIME_SECONDS + TIME_FACTOR * seconds)


def preload():
    """What every child would have to load."""
    for name in PRELOADED:
        with contextlib.suppress(ImportError):
            importlib.import_module(name)


def repeat_examples():
    """Hypothesis draws the same examples in every run."""
    with contextlib.suppress(ImportError):
        import hypothesis

        hypothesis.settings.register_profile(
            "mutants", derandomize=True, database=None, deadline=None,
            suppress_health_check=list(hypothesis.HealthCheck))
        hypothesis.settings.load_profile("mutants")


def run_pytest(configuration, files, plugin, folder, *arguments):
    """Runs pytest in this process, which has to be a child; returns its exit status."""
    resource.setrlimit(resource.RLIMIT_AS, (MEMORY_BYTES, MEMORY_BYTES))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    output = os.open(folder / "output", os.O_WRONLY | os.O_CREAT | os.O_TRUNC)
    os.dup2(output, 1)
    os.dup2(output, 2)
    repeat_examples()
    (folder / "temporary").mkdir(exist_ok=True)
    os.environ["TMPDIR"] = str(folder / "temporary")
    return int(pytest.main(
        ["-c", str(configuration), "-q", f"--basetemp={folder / 'pytest'}", *arguments, *files],
        plugins=[plugin]))


def in_children(tasks, jobs, work):
    """Runs (name, function, arguments, seconds of wall time); yields name, exit status, answer.

    A function gets a folder of its own as the first argument and returns what JSON can hold. The
    answer is None where the child died before it returned.
    """
    context = multiprocessing.get_context("fork")
    waiting, running = collections.deque(tasks), {}
    while waiting or running:
        while waiting and len(running) < jobs:
            name, function, arguments, seconds = waiting.popleft()
            folder = work / f"child-{os.getpid()}-{name}"
            folder.mkdir(parents=True)
            child = context.Process(target=_answer, args=(folder, function, arguments))
            child.start()
            running[child.sentinel] = child, name, folder, time.monotonic() + seconds
        late = min(end for _, _, _, end in running.values()) - time.monotonic()
        multiprocessing.connection.wait(list(running), max(late, 0.0))
        for sentinel, (child, name, folder, end) in list(running.items()):
            if child.is_alive() and time.monotonic() < end:
                continue
            with contextlib.suppress(ProcessLookupError):
                os.killpg(child.pid, signal.SIGKILL)  # and what it has started
            child.join()
            del running[sentinel]
            answer = folder / "answer"
            yield name, child.exitcode, json.loads(answer.read_text()) if answer.exists() else None
            shutil.rmtree(folder, ignore_errors=True)


def _answer(folder, function, arguments):
    os.setsid()
    answer = json.dumps(function(folder, *arguments))
    (folder / "unfinished").write_text(answer)
    (folder / "unfinished").rename(folder / "answer")
    os._exit(0)  # nothing of the tests' own is tidied up


# --- without a mutant -----------------------------------------------------------------------------


def measured(folder, configuration, trees, file):
    """Runs the tests of a file; the statements that are passed while they are found, and by each."""
    marks = set()
    for name, tree in trees.items():
        changes.marked(tree)
        _name_marks(tree, name)
    builtins.leave_mark = marks.add
    sys.meta_path.insert(0, Finder(trees))
    marking = Marking(marks)
    status = run_pytest(configuration, [file], marking, folder, "-k", LONG_TESTS)
    said = "" if status == 0 else (folder / "output").read_text(errors="replace")
    return {"collected": marking.collected, "tests": marking.tests, "said": said}


def _name_marks(tree, module):
    # A number becomes module:number.
    for node in changes.ast.walk(tree):
        if (isinstance(node, changes.ast.Call) and isinstance(node.func, changes.ast.Name)
                and node.func.id == "leave_mark"):
            node.args[0].value = f"{module}:{node.args[0].value}"


def baseline(configuration, trees, files, jobs, work):
    """The tests that pass a statement, by ``module:number``, those that pass the fewest statements
    first; and the statements that are passed while tests are found.

    A statement that is passed while a file's tests are found belongs to all tests of the file that
    pass a statement of its module. Kept in passed.json for as long as no module and no test changes.
    """
    stamp = _digest(" ".join(
        [pathlib.Path(__file__).read_text(encoding="utf-8")]
        + [changes.ast.unparse(tree) for tree in trees.values()]
        + [path.read_text(encoding="utf-8") for file in files
           for path in sorted(pathlib.Path(file).parent.glob("*.py"))]))
    store = work / "passed.json"
    known = json.loads(store.read_text(encoding="utf-8")) if store.exists() else {}
    if known.get("stamp") != stamp:
        passed, finding = measure(configuration, trees, files, jobs, work)
        known = {"stamp": stamp, "passed": passed, "finding": sorted(finding)}
        store.write_text(json.dumps(known), encoding="utf-8")
    return {mark: [Test(*test) for test in tests] for mark, tests in known["passed"].items()}, set(
        known["finding"])


def measure(configuration, trees, files, jobs, work):
    """Runs each file of tests without a mutant."""
    passed, finding = collections.defaultdict(list), set()
    tasks = [(str(n), measured, (configuration, trees, file), BASELINE_SECONDS)
             for n, file in enumerate(files)]
    count = 0
    for name, _, answer in in_children(tasks, jobs, work):
        file = files[int(name)]
        if answer is None or answer["said"]:
            sys.exit(f"mutants: {file} fails without a mutant\n{answer and answer['said']}")
        of_module = collections.defaultdict(list)
        for test_name, seconds, marks in answer["tests"]:
            count += 1
            test = Test(file, test_name, seconds, len(marks))
            for mark in marks:
                passed[mark].append(test)
            for module in {mark.partition(":")[0] for mark in marks}:
                of_module[module].append(test)
        for mark in answer["collected"]:
            passed[mark] += of_module[mark.partition(":")[0]]
        finding.update(answer["collected"])
    print(f"{count} tests pass without a mutant", flush=True)
    return {mark: sorted(set(tests), key=lambda test: (test.passes, test.seconds, test.name))
            for mark, tests in passed.items()}, finding


# --- with one -------------------------------------------------------------------------------------


def tried_anew(folder, configuration, tree, mutant, tests):
    """Runs tests with a mutant in place from the start; the one that fails, "" where none does."""
    mutant.put_in_place()
    changes.compiled(tree, mutant.module)  # a change that is no Python is an error of this tool
    sys.meta_path.insert(0, Finder({mutant.module: tree}))
    chosen = Chosen(tests)
    limit_time(0.0)  # until the tests are found
    files = list(dict.fromkeys(test.file for test in tests))
    status = run_pytest(configuration, files, chosen, folder, "--tb=no")
    return chosen.killer or ("" if status == 0 else "no test could be found")


def tried_inside(folder, session, functions, trees, recent, mutant, tests):
    """Runs tests of this process with other bodies of functions; None where that is not enough."""
    before = changes.compiled(trees[mutant.module], mutant.module)
    mutant.put_in_place()
    after = changes.compiled(trees[mutant.module], mutant.module)
    bodies = changes.changed_functions(before, after)
    if bodies is None:
        return None
    for body in bodies:
        same = functions.get((mutant.module, body.co_qualname, body.co_firstlineno), ())
        if not same or any(len(f.__code__.co_freevars) != len(body.co_freevars) for f in same):
            return None
        for function in same:
            function.__code__ = body
    (folder / "pytest").mkdir()
    session.config._tmp_path_factory._basetemp = folder / "pytest"
    first = [test for test in tests if test.name in recent[mutant.module]]
    return run_tests(first + [test for test in tests if test not in first], session) or ""


class Inside:
    """Tries mutants in a process that has found all tests; those that it could not are `left`."""

    def __init__(self, trees, tasks, jobs, done):
        self.trees = trees
        self.tasks = tasks
        self.jobs = jobs
        self.done = done
        self.left = []

    def pytest_runtestloop(self, session):
        functions = collections.defaultdict(list)
        for function in gc.get_objects():
            if isinstance(function, types.FunctionType) and function.__module__ in self.trees:
                code = function.__code__
                key = (function.__module__, code.co_qualname, code.co_firstlineno)
                functions[key].append(function)
        gc.freeze()  # a child that sweeps would copy every page
        recent = collections.defaultdict(lambda: collections.deque(maxlen=RECENT))
        tasks = [
            (name, tried_inside, (session, functions, self.trees, recent, mutant, tests), seconds)
            for name, mutant, tests, seconds in self.tasks]
        modules = {name: mutant.module for name, mutant, _, _ in self.tasks}
        for name, status, killer in in_children(tasks, self.jobs, pathlib.Path(os.getcwd())):
            if status >= 0 and killer is None:
                self.left.append(name)
            else:
                self.done(name, status, killer)
                if killer and killer not in recent[modules[name]]:
                    recent[modules[name]].appendleft(killer)
        return True


def try_inside(folder, configuration, files, trees, tasks, jobs, done):
    """Tries mutants in one process that has found all tests; names of those that it could not."""
    inside = Inside(trees, tasks, jobs, done)
    os.chdir(folder)
    run_pytest(configuration, files, inside, folder)
    return inside.left


def tests_for(mutant, passed):
    """The tests that look at a mutant, short ones first. Of those that pass its statement, half of
    the time is for the ones that pass the least else, which are the likeliest to look at what it
    does, and half for the shortest.
    """
    found = [test for test in passed.get(f"{mutant.module}:{mutant.statement}", ())
             if test.seconds <= LONGEST_SECONDS]
    chosen = set()
    for order in (found, sorted(found, key=lambda test: (test.seconds, test.name))):
        total = 0.0
        for test in order:
            if test not in chosen and total + test.seconds <= MOST_SECONDS / 2:
                chosen.add(test)
                total += test.seconds
    return sorted(chosen, key=lambda test: (test.seconds, test.name))


class Results:
    """The results of earlier runs, and those of this one.

    A dead mutant is run again when its module changes, a survivor also when its tests do.
    """

    def __init__(self, path, modules):
        self.path = path
        self.known = {}
        self.modules = {name: _digest(text) for name, text in modules.items()}
        self.files = {}
        self.read()

    def read(self):
        if self.path.exists():
            for line in self.path.read_text(encoding="utf-8").splitlines():
                entry = json.loads(line)
                self.known[entry["key"]] = entry

    def _key(self, mutant):
        return f"{self.modules[mutant.module]}:{mutant.number}:{mutant.old} -> {mutant.new}"

    def _tests(self, tests):
        for test in tests:
            if test.file not in self.files:
                self.files[test.file] = _digest(pathlib.Path(test.file).read_text(encoding="utf-8"))
        return _digest(" ".join([self.files[file] for file in sorted({t.file for t in tests})]
                                + sorted(test.name for test in tests)))

    def find(self, mutant, tests):
        """What killed the mutant, "" where it lives, None where it has to be run."""
        entry = self.known.get(self._key(mutant))
        if entry is None or (entry["by"] == "" and entry["tests"] != self._tests(tests)):
            return None
        return entry["by"]

    def add(self, mutant, tests, killer):
        entry = {"key": self._key(mutant), "by": killer, "tests": self._tests(tests)}
        self.known[entry["key"]] = entry
        with open(self.path, "a", encoding="utf-8") as out:
            out.write(json.dumps(entry) + "\n")


def _digest(text):
    return hashlib.sha256(text.encode()).hexdigest()[:24]


def run_all(configuration, files, mutants, trees, passed, finding, results, jobs, work):
    """Runs the mutants whose result is not known; returns the set of those that live."""
    waiting = {}
    for mutant in mutants:
        tests = tests_for(mutant, passed)
        if tests and results.find(mutant, tests) is None:
            seconds = WALL_SECONDS + WALL_FACTOR * sum(test.seconds for test in tests)
            waiting[f"{mutant.module}.{mutant.number}"] = mutant, tests, seconds
    print(f"{len(mutants)} mutants, {len(waiting)} to run", flush=True)
    begin, count = time.monotonic(), 0

    def done(name, status, killer):
        nonlocal count
        mutant, tests, _ = waiting[name]
        if status > 0:
            sys.exit(f"mutants: could not be tried: {mutant.describe()}")
        results.add(mutant, tests, killer if status == 0 else signal.Signals(-status).name)
        count += 1
        if count % 100 == 0:
            seconds = time.monotonic() - begin
            print(f"{count} of {len(waiting)} after {seconds:.0f} s", file=progress, flush=True)

    progress = os.fdopen(os.dup(sys.stdout.fileno()), "w")  # the tests' process has another one
    inside = [(name, *what) for name, what in waiting.items()]
    task = ("inside", try_inside, (configuration, files, trees, inside, jobs, done), FOREVER)
    left = list(waiting)
    for _, status, answer in in_children([task], 1, work) if inside else ():
        if status != 0:
            sys.exit("mutants: the tests could not be found")
        left = answer
    results.read()  # what the child has added
    left += [name for name, (mutant, tests, _) in waiting.items()
             if name not in left and results.find(mutant, tests) == ""
             and f"{mutant.module}:{mutant.statement}" in finding]
    count = len(waiting) - len(left)  # the child has counted for itself
    anew = [(name, tried_anew, (configuration, trees[mutant.module], mutant, tests), seconds)
            for name in left for mutant, tests, seconds in [waiting[name]]]
    for name, status, killer in in_children(anew, jobs, work):
        done(name, status, killer)
    return {mutant for mutant in mutants if not results.find(mutant, tests_for(mutant, passed))}
