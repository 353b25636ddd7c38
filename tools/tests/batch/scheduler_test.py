"""Batches on Dask's workers and on threads: bad devices among good ones, and workers that die."""

import json
import os
import signal
import subprocess
import sys
import threading
from collections import Counter
from pathlib import Path

import pytest
from devices import GOOD, HERE, running, wait_for

from kestrane_tools.batch import scheduler
from kestrane_tools.batch.folder import Folder

BAD = {
    "aborts": ("killed by SIGABRT", "last words"),
    "segfaults": ("killed by SIGSEGV", ""),
    "hangs": ("timeout", "ended after "),
    "exhausts": ("out of memory", "MemoryError"),
    "raises": ("failed", "RuntimeError: the board is upside down"),
    "damaged": ("failed", "damaged.npz"),
}
FAULTY = str(HERE / "faulty_child.py")


def done_by(devices, tmp_path, names, *, workers=2, address=None, **limits):
    output = tmp_path / "out"
    output.mkdir(exist_ok=True)
    plan = devices.plan(tmp_path / "plan.toml", names)
    with Folder(output) as folder:
        jobs, orders = devices.orders(plan, folder, FAULTY, **limits)
        found = scheduler.outcomes(jobs, orders, folder, workers=workers, address=address)
        return {outcome.name: outcome for outcome in found}


def starts(tmp_path):
    path = tmp_path / "out/starts.txt"
    return Counter(path.read_text().split() if path.exists() else [])


@pytest.mark.parametrize("engine", ["dask", "threads"])
def test_bad_devices_are_named_and_take_no_other_with_them(devices, tmp_path, monkeypatch, engine):
    if engine == "threads":
        monkeypatch.setattr(scheduler, "has_engine", lambda: False)
    names = [name for pair in zip(BAD, [*GOOD, "K-1"], strict=True) for name in pair][:11]
    assert len(names) == 11
    found = done_by(devices, tmp_path, names, seconds=8.0, memory=512)
    assert set(found) == set(names)
    for name, (status, cause) in BAD.items():
        assert found[name].status == status, found[name]
        assert cause in found[name].cause
        assert not (tmp_path / "out" / name / "table.txt").exists()
    assert [found[name].status for name in GOOD] == ["ok"] * 5
    devices.assert_equal_to_serial(tmp_path / "out", GOOD)
    assert running(tmp_path) == {}
    assert starts(tmp_path) == Counter(names)


def test_a_worker_that_is_killed_costs_no_device(devices, tmp_path):
    names = ["once", *GOOD]
    killed = []

    def kill():
        # The child would go on for ever, and its device with it.
        wait_for(lambda: "once" in starts(tmp_path))
        child = next(p for p in running(tmp_path) if "once" in Path(f"/proc/{p}/cmdline").read_text())
        os.kill(running(tmp_path)[child], signal.SIGKILL)
        wait_for(lambda: child not in running(tmp_path))
        killed.append(child)

    killer = threading.Thread(target=kill)
    killer.start()
    found = done_by(devices, tmp_path, names)
    killer.join()
    assert killed
    assert {o.status for o in found.values()} == {"ok"}
    assert set(found) == set(names)
    devices.assert_equal_to_serial(tmp_path / "out", GOOD)
    begun = starts(tmp_path)
    assert begun.pop("once") == 2
    # Perhaps one more that the worker had done and not told of yet.
    assert sum(begun.values()) - len(GOOD) in (0, 1)


@pytest.fixture
def cluster(tmp_path):
    """A scheduler with one worker, as an administrator starts them: address, both processes."""
    folder = tmp_path / "cluster"
    folder.mkdir()
    where = folder / "scheduler.json"
    quiet = {"cwd": folder, "stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL}
    main = "import sys; from distributed.cli.dask_{0} import main; sys.exit(main())"
    processes = [
        subprocess.Popen(
            [sys.executable, "-c", main.format("scheduler"), "--no-dashboard", "--port", "0",
             "--host", "127.0.0.1", "--scheduler-file", where],
            **quiet,
        ),
        subprocess.Popen(
            [sys.executable, "-c", main.format("worker"), "--no-dashboard", "--nthreads", "2",
             "--no-nanny", "--scheduler-file", where, "--local-directory", folder],
            **quiet,
        ),
    ]  # fmt: skip
    try:
        yield wait_for(lambda: address_in(where)), processes
    finally:
        for process in processes:
            process.kill()
            process.wait()


def address_in(path):
    """The address that a scheduler's file tells, or None while the scheduler has not written all of it."""
    try:
        return json.loads(path.read_text())["address"]
    except (FileNotFoundError, json.JSONDecodeError):
        return None


def test_workers_of_another_scheduler_do_the_same(devices, tmp_path, cluster):
    address, _ = cluster
    found = done_by(devices, tmp_path, [*GOOD[:2], "aborts"], address=address)
    assert [found[name].status for name in GOOD[:2]] == ["ok"] * 2
    assert found["aborts"].status == "killed by SIGABRT"
    devices.assert_equal_to_serial(tmp_path / "out", GOOD[:2])


def test_a_scheduler_that_goes_away_ends_the_batch_and_all_children(devices, tmp_path, cluster):
    address, (process, _) = cluster
    threading.Thread(target=lambda: (wait_for(lambda: running(tmp_path)), process.kill())).start()
    names = [*GOOD[:2], *(f"hangs-{k}" for k in range(30))]
    found = done_by(devices, tmp_path, names, address=address)
    assert set(found) == set(names)
    assert {found[name].status for name in names[2:]} <= {"lost", "stopped"}
    wait_for(lambda: not running(tmp_path))


def test_no_scheduler_is_told(devices, tmp_path, monkeypatch):
    import dask

    from kestrane_tools.cli.stop import Stop

    with dask.config.set({"distributed.comm.timeouts.connect": "0.2s"}):
        with pytest.raises(Stop, match="tcp://127.0.0.1:9: no scheduler answers"):
            done_by(devices, tmp_path, GOOD, address="tcp://127.0.0.1:9")
