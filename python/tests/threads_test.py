"""The lock, several threads, the pool of engines, and what happens between planes."""

from __future__ import annotations

import os
import signal
import subprocess
import sys
import threading
import time
from typing import Any

import numpy as np
import pytest

import kestrane
from kestrane import _inputs, _simulation, jobs


def counted_while(work: Any) -> tuple[int, float]:
    """How often another thread comes to run while this one works, and how long that takes."""
    stop = threading.Event()
    ticks = 0

    def count() -> None:
        nonlocal ticks
        while not stop.is_set():
            ticks += 1
            time.sleep(0.001)

    counter = threading.Thread(target=count)
    counter.start()
    before, started = ticks, time.perf_counter()
    work()
    elapsed, after = time.perf_counter() - started, ticks
    stop.set()
    counter.join()
    return after - before, elapsed


@pytest.mark.parametrize("form", ["job", "safe", "refine", "screen", "field"])
def test_the_lock_is_free_while_the_library_works(form):
    cloud = _simulation.measure(planes=1, points=20000)[0]
    many = np.tile(cloud, 50)  # a million points
    table = jobs.factory_calibrate([cloud]).table
    work = {
        "job": lambda: jobs.factory_calibrate([many], threads=1),
        "safe": lambda: kestrane.calibrate_factory([many], threads=1),
        "refine": lambda: kestrane.refine([many[::20]], threads=1),
        "screen": lambda: kestrane.screen_cloud(many),
        "field": lambda: kestrane.screen_frames([many], table),
    }[form]
    ticks, elapsed = counted_while(work)
    # With the lock held the other thread would come to run once or twice at the ends.
    assert ticks > 5 and ticks > 20 * elapsed


def test_two_threads_with_their_own_clouds_get_what_one_gets(same):
    devices = [_simulation.measure(planes=3, points=6000, seed=seed) for seed in range(1, 5)]
    expected = [jobs.factory_calibrate(device, optimise=True, threads=1) for device in devices]
    found: dict[int, Any] = {}

    def calibrate(number: int) -> None:
        for _ in range(3):
            found[number] = jobs.factory_calibrate(devices[number], optimise=True, threads=2)

    threads = [threading.Thread(target=calibrate, args=(n,)) for n in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    for number, result in enumerate(expected):
        assert found[number].table == result.table
        assert same(found[number].corners, result.corners)


@pytest.mark.parametrize("threads", [1, 2])
def test_planes_are_reported_in_order_and_a_callback_can_stop_the_run(clouds, threads):
    many = [clouds[0][:3000]] * 20
    for calibrate in (jobs.factory_calibrate, kestrane.calibrate_factory):
        reported: list[tuple[int, int]] = []
        calibrate(many, threads=threads, on_plane=lambda *plane: reported.append(plane))
        assert [plane for plane, _ in reported] == list(range(20))
        assert {status for _, status in reported} <= {0, -1}

        class Stop(Exception):
            pass

        def stop(plane: int, status: int) -> None:
            reported.append((plane, status))
            if plane == 2:
                raise Stop

        reported.clear()
        with pytest.raises(Stop):
            calibrate(many, threads=threads, on_plane=stop)
        assert [plane for plane, _ in reported] == [0, 1, 2]


INTERRUPTED = """
import kestrane, signal, sys
from kestrane import _simulation, jobs
# Where a shell runs the tests in the background, interrupts are ignored from the start.
signal.signal(signal.SIGINT, signal.default_int_handler)
clouds = _simulation.measure(planes=1, points=20000) * 100
def ready(plane, status):
    if plane == 0:
        print("ready", flush=True)
try:
    {call}(clouds, threads={threads}, on_plane=ready{more})
except KeyboardInterrupt:
    print("interrupted", flush=True)
"""


@pytest.mark.parametrize("threads", [1, 2])
@pytest.mark.parametrize(
    ("call", "more"), [("jobs.factory_calibrate", ", optimise=True"), ("kestrane.calibrate_factory", "")]
)
def test_interrupts_are_served_between_planes(call, more, threads):
    program = INTERRUPTED.format(call=call, threads=threads, more=more)
    with subprocess.Popen(
        [sys.executable, "-c", program], stdout=subprocess.PIPE, text=True
    ) as process:
        assert process.stdout is not None
        assert process.stdout.readline() == "ready\n"
        process.send_signal(signal.SIGINT)
        assert process.stdout.readline() == "interrupted\n"


def test_a_plane_that_fails_after_a_good_device_has_an_empty_row(clouds):
    jobs.factory_calibrate(clouds, threads=1)
    few = clouds[1][:100]
    for calibrate in (jobs.factory_calibrate, kestrane.calibrate_factory):
        result = calibrate([clouds[0], few, clouds[2]], threads=1)
        assert result.status.tolist() == [0, -1, 0]
        assert result.table.calibrated.tolist() == [True, False, True]
        assert not result.table.cells[1].any() and not result.table.whole[1].any()
        assert np.isnan(result.indicators[1]).all() and np.isnan(result.corners[1]).all()
        assert not result.sectors_own[1].any() and result.sectors_own[0].any()


def test_by_default_as_many_threads_as_the_process_may_use_cores():
    cores = os.sched_getaffinity(0)
    try:
        os.sched_setaffinity(0, {min(cores)})
        assert _inputs.as_threads(None) == 1
    finally:
        os.sched_setaffinity(0, cores)
    assert _inputs.as_threads(None) == len(cores)


QUIET = """
import kestrane
from kestrane import _simulation, jobs
table = jobs.factory_calibrate(_simulation.measure(planes=3, points=6000)).table
frames = _simulation.measure(planes=3, points=2000, field=True)
print("before")
with kestrane.quiet():
    jobs.field_calibrate(table, frames)
    print("inside")
print("between")
jobs.field_calibrate(table, frames)
try:
    with kestrane.quiet():
        raise ValueError
except ValueError:
    print("after")
"""


def test_quiet_hides_what_is_printed_inside_and_nothing_else():
    said = subprocess.run(
        [sys.executable, "-u", "-c", QUIET], check=True, stdout=subprocess.PIPE, text=True
    ).stdout.splitlines()
    assert [line for line in said if "Solver" not in line] == ["before", "between", "after"]
    assert [line for line in said if "Solver" in line] == said[2:4]
