"""Look-ups of tables and coefficients by hand, and planes that are named by a mapping."""

from __future__ import annotations

from typing import Any

import numpy as np
import pytest

import kestrane
from kestrane import Coefficients, Condition, FieldSettings, Grid, PlaneTable, jobs


@pytest.fixture
def sheet() -> PlaneTable:
    """Plane 0 empty; plane 1 is x = 100 + y / 10 + z / 4, one block of it without a plane."""
    cells, whole = np.zeros((2, 15, 50, 3)), np.zeros((2, 3))
    cells[1] = whole[1] = np.array([-1, 0.1, 0.25]) / 100
    cells[1, 7, 3] = 0
    return PlaneTable(cells, whole)


def test_a_place_is_looked_up_in_the_block_that_it_falls_into():
    grid, table = Grid(), PlaneTable(np.zeros((0, 15, 50, 3)), np.zeros((0, 3)))
    lines, steps = np.mgrid[:15, :50]
    y = grid.y_start[:50] + (lines + 0.5) * grid.y_step[:50]
    z = grid.z_start + (steps + 0.5) * grid.z_step
    found = table.lookup(y, z)
    assert (found[0] == lines).all() and (found[1] == steps).all()
    assert found[0].dtype == found[1].dtype == np.int32
    centres = table.centres()
    assert centres.shape == (15, 50, 2)
    assert np.array_equal(centres[..., 0], y) and np.array_equal(centres[..., 1], z)
    outside = table.lookup([0, 0, 1e300, np.nan, 0], [100, 1501, 500, 500, np.nan])
    assert (np.array(outside) == -1).all()
    # Truncated toward zero: up to one block before the first is the first.
    assert [int(i) for i in table.lookup(0, 150 - 26.9)] == [7, 0]
    assert table.lookup(np.zeros((2, 0)), 0)[0].shape == (2, 0)


def test_x_and_distance_of_a_sheet(sheet):
    y, z = np.array([[10.0], [-20.0]]), np.array([300.0, 500.0, 900.0])
    x = sheet.x_at(1, y, z)
    assert x.shape == (2, 3)
    assert x == pytest.approx(100 + y / 10 + z / 4, abs=1e-9)
    above = np.array([[x[0, 1] + 2.0, 10, 500], [x[1, 2] - 3.0, -20, 900], [np.nan, 0, 500]])
    normal = np.sqrt(1 + 0.1**2 + 0.25**2)
    distances = sheet.distances(1, above)
    assert distances[:2] == pytest.approx([2 / normal, -3 / normal], abs=1e-9)
    assert np.isnan(distances[2])
    unsigned = jobs.distances(sheet, 1, above)
    assert unsigned[:2] == pytest.approx([2 / normal, 3 / normal], abs=1e-9)
    # Moved along x with the sheet, the points lie on it.
    on = np.array([[x[0, 1] + 5.0, 10, 500]])
    assert jobs.distances(sheet, 1, on, np.eye(3), [5, 0, 0]) == pytest.approx([0], abs=1e-9)
    hole = sheet.centres()[7, 3]
    for nothing in (sheet.x_at(1, *hole), sheet.x_at(0, 0, 300), sheet.x_at(1, 0, 5000)):
        assert np.isnan(nothing)
    assert np.isnan(sheet.distances(1, [[0, *hole]])).all()
    assert np.isnan(jobs.distances(sheet, 1, [[0, *hole]])).all()
    assert sheet.calibrated.tolist() == [False, True]


def test_a_grid_of_its_own_moves_the_blocks(sheet):
    nominal = Grid()
    shifted = Grid.of(
        z=nominal.z + 27,
        y_start=nominal.y_start,
        y_step=nominal.y_step,
        z_start=nominal.z_start + 27,
        z_step=nominal.z_step,
        head=[1, 2, 3, 4],
    )
    table = PlaneTable(sheet.cells, sheet.whole, shifted)
    assert int(table.lookup(0, 500)[1]) == int(sheet.lookup(0, 500)[1]) - 1
    assert table != sheet and table.grid.head.tolist() == [1, 2, 3, 4]
    with pytest.raises(ValueError):
        kestrane.compare(table, sheet)
    for wrong in ({"head": [1, 2]}, {"head": [1, 2, 3, 2**31]}, {"z": nominal.z[:50]}):
        numbers: dict[str, Any] = {
            "z": nominal.z,
            "y_start": nominal.y_start,
            "y_step": nominal.y_step,
            "z_start": 150,
            "z_step": 27,
        }
        with pytest.raises(ValueError):
            Grid.of(**{**numbers, **wrong})
    with pytest.raises(ValueError):
        Grid(np.zeros(3))
    with pytest.raises(ValueError):
        PlaneTable(sheet.cells, sheet.whole, "nominal")  # type: ignore[arg-type]


def test_a_saved_table_tells_what_six_digits_have_moved(tmp_path, clouds):
    table = jobs.factory_calibrate(clouds).table
    saved = table.save(tmp_path / "t")
    again = PlaneTable.read(tmp_path / "t")
    assert 0 < saved.largest_move < 0.01 and saved.plane in (0, 1, 2)
    y, z = np.moveaxis(table.centres(), -1, 0)
    moves = [abs(again.x_at(p, y, z) - table.x_at(p, y, z)).max() for p in range(3)]
    assert max(moves) <= saved.largest_move
    assert "x within" in repr(saved)
    empty = PlaneTable(np.zeros((1, 15, 50, 3)), np.zeros((1, 3)))
    assert empty.save(tmp_path / "e").plane == -1


def test_a_mapping_names_the_planes(clouds, frames):
    device = jobs.factory_calibrate({0: clouds[0], np.int64(2): clouds[1], 5: clouds[2]})
    assert device.status.tolist() == [0, -7, 0, -7, -7, 0]
    assert device.table.calibrated.tolist() == [True, False, True, False, False, True]
    table = jobs.factory_calibrate(clouds).table
    with kestrane.quiet():
        listed = kestrane.calibrate_field(table, frames[1:], FieldSettings(first=1))
        named = kestrane.calibrate_field(table, {2: frames[2], 1: frames[1]}, {"first": 0})
        plain = jobs.field_calibrate(table, {1: frames[1], 2: frames[2]})
    assert named.settings.first == 1 and named.used.plane.tolist() == [1, 2]
    assert (named.first_plane, named.last_plane) == (listed.first_plane, listed.last_plane) == (1, 2)
    assert np.array_equal(named.R, listed.R) and np.array_equal(named.t, listed.t)
    assert plain.t.shape == (3,)
    with kestrane.quiet():
        gap = kestrane.calibrate_field(table, {0: frames[0], 2: frames[2]})
    assert gap.refused and gap.used.plane.tolist() == [0, 1, 2]
    source = Coefficients(np.ones((3, 16, 51, 3)), [[1, 2]])
    with pytest.raises(ValueError, match="begins at 1"):
        jobs.field_calibrate_coefficients(table, {2: frames[2]}, source, first=1, last=2)
    for wrong in ({}, {"0": frames[0]}, {True: frames[0]}, {-1: frames[0]}, {100: frames[0]}):
        with pytest.raises(ValueError):
            kestrane.calibrate_field(table, wrong)
        with pytest.raises(ValueError):
            jobs.factory_calibrate(wrong)


def test_what_is_no_table_and_no_coefficients_is_refused(clouds, frames):
    result = jobs.factory_calibrate(clouds)
    with pytest.raises(ValueError, match="Coefficients"):
        jobs.update_coefficients(result, 25, None)  # type: ignore[arg-type]
    with pytest.raises(ValueError, match="Coefficients"):
        jobs.field_calibrate_coefficients(
            result.table, frames, None, first=0, last=2  # type: ignore[arg-type]
        )
    with pytest.raises(ValueError, match="3 planes"):
        jobs.update_coefficients(result, 25, Coefficients(np.ones((2, 16, 51, 3))))
    with pytest.raises(ValueError, match="Condition"):
        jobs.compensate(result.table, 30, [1, 0, 0])  # type: ignore[arg-type]
    with pytest.raises(ValueError, match="no planes"):
        empty = PlaneTable(np.zeros((0, 15, 50, 3)), np.zeros((0, 3)))
        jobs.compensate(empty, Condition(30, 20), [1, 0, 0])
    flat = Coefficients(np.zeros((1, 16, 51, 3)))
    assert np.isnan(flat.x_at(25)).all() and np.isnan(flat.slope()).all()
    with pytest.raises(ValueError):
        flat.table_at(25)
    assert flat.copy() == flat and flat != Coefficients(np.ones((1, 16, 51, 3)))
    assert flat != Coefficients(np.zeros((2, 16, 51, 3))) and flat != 3
    assert "1 planes, ranges none" in repr(flat) and result.table != 3 and Grid() != 3
    assert repr(Grid()) == "<Grid of 15 x 50 blocks, depth 150 to 1500>"
    assert "clouds" in dir(kestrane)
    with pytest.raises(AttributeError):
        kestrane.no_such_name  # noqa: B018
