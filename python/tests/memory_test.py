"""Whose memory is whose: what is shared, what is copied, and how long it lives."""

from __future__ import annotations

import gc
import os
import pickle
import resource
import subprocess
import sys
from typing import Any

import numpy as np
import pytest

import kestrane
from kestrane import POINT, Coefficients, Grid, PlaneTable, _core, _inputs, jobs


def test_a_point_is_laid_out_as_in_cpp(host):
    host.run("layout")
    size, alignment, x, y, z, frame = map(int, host.said.split())
    assert POINT.itemsize == size == 32
    assert POINT.alignment == alignment
    assert [POINT.fields[name][1] for name in ("x", "y", "z", "id")] == [x, y, z, frame]
    assert _core.point_type() == POINT


def test_a_point_array_is_taken_as_it_is_also_a_read_only_one(clouds):
    frozen = clouds[0].copy()
    frozen.flags.writeable = False
    assert _inputs.as_cloud(frozen, "cloud") is frozen
    before = frozen.tobytes()
    jobs.factory_calibrate([frozen])
    kestrane.calibrate_factory([frozen])
    assert frozen.tobytes() == before


@pytest.mark.parametrize("kind", ["strided", "reversed", "big-endian", "xyz frame", "list", "f4"])
def test_every_other_form_gives_what_the_points_give(same, clouds, kind):
    cloud = clouds[0]
    xyz = np.stack([cloud[name] for name in ("x", "y", "z", "id")], axis=1)
    other: Any = {
        "strided": lambda: np.repeat(cloud, 2)[::2],
        "reversed": lambda: cloud[::-1].copy()[::-1],
        "big-endian": lambda: cloud.astype(POINT.newbyteorder(">")).astype(POINT),
        "xyz frame": lambda: xyz,
        "list": lambda: xyz.tolist(),
        "f4": lambda: np.asfortranarray(xyz),
    }[kind]()
    expected = jobs.factory_calibrate([cloud])
    found = jobs.factory_calibrate([other])
    assert found.table == expected.table
    assert same(found.indicators, expected.indicators)


def test_a_table_takes_good_arrays_as_they_are_and_copies_the_others():
    cells, whole = np.zeros((2, 15, 50, 3)), np.zeros((2, 3))
    table = PlaneTable(cells, whole)
    assert table.cells is cells and table.whole is whole
    for other in (cells.astype("f4"), np.asfortranarray(cells), np.repeat(cells, 2, axis=1)[:, ::2]):
        copied = PlaneTable(other, whole)
        assert not np.shares_memory(copied.cells, other)
        assert copied.cells.flags.c_contiguous and copied.cells.flags.writeable
    cells.flags.writeable = False
    assert PlaneTable(cells, whole).cells is not cells


def test_results_can_be_written_and_outlive_all_they_came_with(clouds):
    result = jobs.factory_calibrate(clouds)
    cells, corners = result.table.cells, result.corners
    expected = cells.copy(), corners.copy()
    del result
    gc.collect()
    for _ in range(5):  # memory that was freed would be taken by these
        jobs.factory_calibrate([cloud[::2] for cloud in clouds])
    assert (cells == expected[0]).all() and np.array_equal(corners, expected[1], equal_nan=True)
    cells[0, 0, 0] = 1.0


def test_a_pooled_engine_does_not_reach_into_a_result(clouds):
    first = jobs.factory_calibrate(clouds, threads=1)
    kept = first.table.cells.copy(), first.corners.copy()
    jobs.factory_calibrate([cloud[::3] for cloud in clouds], optimise=True, threads=1)
    assert np.array_equal(first.table.cells, kept[0])
    assert np.array_equal(first.corners, kept[1], equal_nan=True)


def test_no_call_writes_into_what_it_is_given(clouds, frames):
    table = jobs.factory_calibrate(clouds).table
    for array in (table.cells, table.whole):
        array.flags.writeable = False
    before = table.cells.tobytes(), [f.tobytes() for f in frames]
    with kestrane.quiet():
        kestrane.calibrate_field(table, frames)
        jobs.field_calibrate(table, frames)
    jobs.compensate(table, kestrane.Condition(30, 20, scale_per_degree=1e-5), [1, 0, 0])
    jobs.distances(table, 0, np.zeros((4, 3)))
    kestrane.compare(table, table)
    source = Coefficients(np.ones((3, 16, 51, 3)), [[0, 2]])
    models = source.models.tobytes()
    jobs.update_coefficients(jobs.factory_calibrate(clouds), 25, source)
    assert source.models.tobytes() == models
    assert (table.cells.tobytes(), [f.tobytes() for f in frames]) == before


def test_tables_coefficients_and_results_can_be_pickled(clouds, same):
    result = kestrane.calibrate_factory(clouds)
    again = pickle.loads(pickle.dumps(result))
    assert again.table == result.table
    assert kestrane.judge(again, {"rms": 0.1}) == kestrane.judge(result, {"rms": 0.1})
    coefficients = Coefficients(np.ones((1, 16, 51, 3)), [[0, 0]])
    assert pickle.loads(pickle.dumps(coefficients)) == coefficients


def test_a_grid_is_a_value():
    grid = Grid()
    assert grid == Grid.of(
        z=grid.z, y_start=grid.y_start, y_step=grid.y_step, z_start=grid.z_start, z_step=grid.z_step
    )
    with pytest.raises(ValueError):
        grid.z[0] = 1.0
    other = Grid.of(
        z=grid.z, y_start=grid.y_start, y_step=grid.y_step, z_start=grid.z_start, z_step=1.0
    )
    assert grid != other and other.z_step == 1.0
    assert pickle.loads(pickle.dumps(other)) == other


def test_equal_tables_are_equal_to_the_bit():
    cells = np.zeros((1, 15, 50, 3))
    table = PlaneTable(cells, np.zeros((1, 3)))
    assert table == table.copy()
    for value in (-0.0, 5e-324):
        other = table.copy()
        other.cells[0, 3, 4, 1] = value
        assert table != other
    one, two = table.copy(), table.copy()
    one.cells[0, 0, 0, 0] = np.nan
    two.cells[0, 0, 0, 0] = -np.nan
    assert one == two and one != table
    assert table != PlaneTable(np.zeros((2, 15, 50, 3)), np.zeros((2, 3)))


PEAK = """
import sys, numpy as np, kestrane
from kestrane import jobs
def peak():
    with open("/proc/self/status") as status:
        return next(int(line.split()[1]) for line in status if line.startswith("VmHWM:"))
clouds = [np.fromfile(f"{sys.argv[1]}/cloud_0.bin", kestrane.POINT)]
before = peak()
jobs.factory_calibrate(clouds, threads=1)
print(peak() - before)
"""


@pytest.mark.skipif(not _core.release_build, reason="memory of a build that is not shipped")
def test_a_calibration_takes_no_copy_of_a_point_cloud(host, clouds):
    many = np.tile(clouds[0], 100)  # 19 MB
    host.run("memory", clouds=[many])
    by_host = int(host.said)
    by_python = int(
        subprocess.run(
            [sys.executable, "-c", PEAK, host.folder],
            check=True,
            stdout=subprocess.PIPE,
            text=True,
        ).stdout
    )
    assert by_python < by_host + many.nbytes / 1024 / 2


@pytest.mark.skipif(not _core.release_build, reason="memory of a build that is not shipped")
def test_two_hundred_runs_leave_nothing_behind(clouds):
    def resident() -> int:
        with open("/proc/self/statm") as statm:
            return int(statm.read().split()[1]) * resource.getpagesize()

    def run() -> None:
        jobs.factory_calibrate([clouds[0]], threads=1)
        table = jobs.factory_calibrate([clouds[0][:50]], threads=1).table
        jobs.distances(table, 0, np.zeros((4, 3)))
        jobs.compensate(table, kestrane.Condition(30, 20), [1, 0, 0])

    for _ in range(20):
        run()
    gc.collect()
    before = resident()
    for _ in range(200):
        run()
    gc.collect()
    assert resident() - before < 2 << 20, os.getpid()
