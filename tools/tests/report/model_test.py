from __future__ import annotations

import dataclasses
import json
import math

import numpy as np
import pytest
import synthetic_runs as runs
from hypothesis import given, settings
from hypothesis import strategies as st
from hypothesis.extra import numpy as arrays

from kestrane_tools.report import model
from kestrane_tools.run_file import Run

NAN = float("nan")


def map_of(built: model.Json, ident: str) -> model.Json:
    return next(item for item in built["maps"] if item["id"] == ident)


# --- packing --------------------------------------------------------------------------------------


@settings(max_examples=200, deadline=None)
@given(
    arrays.arrays(
        np.float64,
        arrays.array_shapes(max_dims=3, max_side=8),
        elements=st.floats(-1e6, 1e6) | st.just(NAN),
    )
)
def test_a_packed_value_is_within_half_a_step(values: np.ndarray) -> None:
    packed = model.pack(values)
    back = model.unpack(packed)
    assert back.shape == values.shape
    assert (np.isnan(back) == np.isnan(values)).all()
    finite = np.isfinite(values)
    slack = 1e-9 * max(1.0, float(np.abs(values[finite]).max(initial=0.0)))
    assert (np.abs(back[finite] - values[finite]) <= 0.5 * packed["step"] + slack).all()


@settings(max_examples=50, deadline=None)
@given(arrays.arrays(np.int64, 20, elements=st.integers(0, 65534)))
def test_whole_numbers_come_back_exactly(values: np.ndarray) -> None:
    assert (model.unpack(model.pack(values)) == values).all()


def test_the_range_is_cut_into_16383_steps() -> None:
    packed = model.pack(np.array([-1.0, 0.25, 2.0]))
    assert packed["low"] == -1.0
    assert packed["step"] == 3.0 / 16383


def test_infinities_and_gaps_have_no_figure() -> None:
    back = model.unpack(model.pack(np.array([np.inf, 1.5, -np.inf, NAN])))
    assert np.isnan(back[[0, 2, 3]]).all() and back[1] == 1.5


def test_the_largest_numbers_are_still_figures() -> None:
    assert model.unpack(model.pack(np.array([0.0, 65535.0])))[1] == pytest.approx(65535.0, rel=1e-4)
    assert model.unpack(model.pack(np.array([1e12])))[0] == 1e12
    assert np.isnan(model.unpack(model.pack(np.array([np.nextafter(1e12, 2e12)])))).all()


def test_a_long_unit_is_cut() -> None:
    assert model.unit_of(Run(meta={"unit": "hundredths of an inch"})) == "hundredths o"
    assert model.unit_of(Run(meta={})) == "mm"


def test_nothing_but_gaps_can_be_packed() -> None:
    assert np.isnan(model.unpack(model.pack(np.full((2, 3), NAN)))).all()


# --- planes that share a block --------------------------------------------------------------------


def test_values_together_follow_the_rule_of_their_map() -> None:
    values = np.array([[1.0, NAN], [-3.0, NAN], [2.0, 5.0]])
    weights = np.array([[1.0, 1.0], [0.0, 1.0], [3.0, 1.0]])
    assert model.together(values, "rms", 0, weights).tolist() == [math.sqrt(13 / 4), 5.0]
    assert model.together(values, "rms", 0).tolist() == [math.sqrt(14 / 3), 5.0]
    assert model.together(values, "mean", 0).tolist() == [0.0, 5.0]
    assert model.together(values, "sum", 0).tolist() == [0.0, 5.0]
    assert model.together(values, "max", 0).tolist() == [-3.0, 5.0]
    assert model.together(np.array([[3.0], [1.0], [3.0]]), "most", 0).tolist() == [3.0]
    assert np.isnan(model.together(np.array([[NAN], [NAN]]), "mean", 0)).all()


def test_the_map_of_all_planes_pools_points_and_not_planes() -> None:
    part = runs.factory(3)
    points = part.block_points.copy()
    points[:, 0, 0] = (10, 0, 30)
    rms = part.block_rms.copy()
    rms[:, 0, 0] = (0.1, NAN, 0.2)
    part = dataclasses.replace(part, block_points=points, block_rms=rms)
    built = model.model_of(Run(meta=runs.meta(), table=runs.table(3), factory=part))
    pooled = map_of(built, "rms")["all"]
    expected = math.sqrt((10 * 0.01 + 30 * 0.04) / 40)
    assert model.unpack(pooled)[0, 0] == pytest.approx(expected, abs=pooled["step"])


def test_a_depth_of_the_origin_is_its_measured_share() -> None:
    part = runs.factory(4)  # plane 3 borrows one sector of 15, row 31 on is extended
    depth = map_of(model.model_of(Run(meta={}, table=runs.table(4), factory=part)), "origin")[
        "depth"
    ]
    shares = model.unpack(depth)
    assert shares[0, 0] == pytest.approx(1.0, abs=1e-3)
    assert shares[3, 0] == pytest.approx(14 / 15, abs=1e-3)
    assert shares[0, 31] == 0.0


# --- what a map shows -----------------------------------------------------------------------------


def extent_of(points: list[tuple[int, int, int]], refused: str = "", **parts) -> model.Json:
    """The extent of a run of two planes with points in these blocks: plane, line, row."""
    counts = np.zeros((2, 15, 50), np.int64)
    for place in points:
        counts[place] = 1
    rms = np.where(counts > 0, 0.1, NAN)
    part = dataclasses.replace(
        runs.factory(2), block_points=counts, block_rms=rms, refused=refused
    )
    return model.model_of(Run(meta={}, table=runs.table(2), factory=part, **parts))["extent"]


def test_maps_show_the_blocks_with_figures_and_one_around_them() -> None:
    one, other = (0, 4, 10), (1, 6, 20)
    assert extent_of([one, other]) == {"lines": [3, 8], "rows": [9, 22]}
    assert extent_of([(0, 0, 0), (1, 14, 49)]) == {"lines": [0, 15], "rows": [0, 50]}
    assert extent_of([(0, 1, 1), (1, 13, 48)]) == {"lines": [0, 15], "rows": [0, 50]}
    assert extent_of([(0, 2, 2), (1, 12, 47)]) == {"lines": [1, 14], "rows": [1, 49]}
    whole = {"lines": [0, 15], "rows": [0, 50]}
    assert extent_of([]) == whole and extent_of([one], refused="no plane") == whole
    values = np.full((2, 15, 50), NAN)
    values[1, 9, 30] = 0.0
    difference = dataclasses.replace(runs.difference(2), values=values)
    assert extent_of([one], difference=difference) == {"lines": [3, 11], "rows": [9, 32]}
    refused = dataclasses.replace(difference, refused="other grids")
    assert extent_of([one], difference=refused) == {"lines": [3, 6], "rows": [9, 12]}


def test_each_quantity_has_its_name_its_scale_and_its_worse_end() -> None:
    run = runs.full_run(3)
    part = dataclasses.replace(run.factory, refined_sigma=np.full((3, 16, 51), 0.01))
    built = model.model_of(dataclasses.replace(run, factory=part))
    names = ("id", "title", "kind", "worse", "plane_words")
    assert [tuple(item[name] for name in names) for item in built["maps"]] == [
        ("rms", "RMS residual", "size", "high", "RMS of the plane"),
        ("max", "largest residual", "size", "high", "largest of the plane"),
        ("bias", "bias (signed mean)", "signed", "high", "mean of the plane"),
        ("repeatability", "repeatability", "size", "high", "RMS over the plane's blocks"),
        ("seam", "seams", "size", "high", "95 % of the plane's steps"),
        ("points", "points", "count", "low", "points of the plane"),
        ("origin", "origin of the plane", "class", "low", "share of the working volume measured"),
        ("move", "corner move", "signed", "high", "farthest corner"),
        ("sigma", "σ of the refined x", "size", "high", "largest in a measured block"),
        ("drift", "drift", "signed", "high", "RMS of the plane"),
        ("rest", "drift without the rigid motion", "signed", "high", "RMS of the plane"),
    ]
    top = {item["id"]: item["top"] for item in built["maps"]}
    assert (top["origin"], top["move"], top["sigma"]) == (4, 0.5, 0.02)
    assert top["rest"] == top["drift"]  # to be compared by eye
    assert all(item["words"].endswith(".") for item in built["maps"])


# --- the whole ------------------------------------------------------------------------------------


@pytest.mark.parametrize(
    "run",
    [
        runs.full_run(3),
        runs.device_run(1, frames=1),
        runs.device_run(4, failed=(0, 1, 2, 3)),
        runs.device_run(2, optimise=False),
        Run(meta={}),
        Run(meta={}, table=runs.table(8), field=runs.field(8)),
        Run(meta={}, table=runs.table(8), difference=runs.difference(8)),
        Run(meta={}, table=runs.table(8), compensation=runs.compensation(8)),
    ],
    ids=[
        "every part",
        "one frame",
        "all failed",
        "no moves",
        "empty",
        "field",
        "difference",
        "curve",
    ],
)
def test_the_model_is_json_without_nan(run: Run) -> None:
    text = json.dumps(model.model_of(run), allow_nan=False)
    assert json.loads(text)["schema"] == "kestrane-report/1"


def test_a_factory_run_has_nine_quantities_with_its_drift() -> None:
    built = model.model_of(runs.full_run(3))
    assert [item["id"] for item in built["maps"]] == [
        "rms",
        "max",
        "bias",
        "repeatability",
        "seam",
        "points",
        "origin",
        "move",
        "drift",
        "rest",
    ]


def test_a_refined_run_shows_how_sure_its_x_is() -> None:
    sigma = np.full((2, 16, 51), 0.01)
    sigma[1, 3, 4] = 0.5
    part = dataclasses.replace(runs.factory(2), refined_sigma=sigma)
    built = model.model_of(Run(meta={}, table=runs.table(2), factory=part))
    values = model.unpack(map_of(built, "sigma")["blocks"])
    blocks = [(2, 3), (3, 3), (2, 4), (3, 4)]
    assert all(values[1][block] == pytest.approx(0.5, abs=1e-4) for block in blocks)
    assert (values[1] > 0.4).sum() == 4
    assert map_of(built, "sigma")["planes"] == [0.01, 0.5]


def test_a_corner_move_keeps_its_sign_and_the_largest_of_four_corners() -> None:
    moves = np.zeros((1, 16, 51))
    moves[0, 5, 7] = -0.4
    moves[0, 6, 7] = 0.3
    part = dataclasses.replace(runs.factory(1), corner_moves=moves)
    built = model.model_of(Run(meta={}, table=runs.table(1), factory=part))
    values = model.unpack(map_of(built, "move")["blocks"])[0]
    assert values[5, 6] == pytest.approx(-0.4, abs=1e-4)
    assert values[6, 6] == pytest.approx(0.3, abs=1e-4)
    assert values[7, 7] == pytest.approx(0.0, abs=1e-4)


def test_limits_set_the_scales_and_mark_planes() -> None:
    built = model.model_of(runs.device_run(3))
    assert map_of(built, "rms")["top"] == 0.15 and map_of(built, "rms")["plane_limit"] == 0.15
    assert map_of(built, "max")["limit"] == 0.45
    assert map_of(built, "repeatability")["limit"] == 0.05
    assert map_of(built, "origin")["plane_limit"] == 0.8


def test_without_limits_a_scale_ends_at_a_round_number() -> None:
    assert model.nice_top(np.array([0.0231, NAN])) == 0.03
    assert model.nice_top(np.array([-0.7, 0.1])) == 0.8
    assert model.nice_top(np.array([])) == 1.0
    assert model.nice_top(np.array([-3e-14, 1e-14])) == 0.001


def test_shares_of_origins_are_those_of_the_working_volume() -> None:
    run = runs.device_run(4, failed=(1,))
    shares = model.model_of(run)["planes"]["origins"]
    for plane in (0, 2):
        assert [kind[plane] for kind in shares] == [1.0, 0.0, 0.0, 0.0, 0.0]
    assert [kind[3] for kind in shares] == pytest.approx([14 / 15, 0, 0, 1 / 15, 0], abs=1e-4)
    assert [kind[1] for kind in shares] == [0.0, 0.0, 0.0, 0.0, 1.0]


def test_the_working_volume_takes_blocks_by_their_middle() -> None:
    run = runs.device_run(1)
    assert run.factory is not None
    part = dataclasses.replace(run.factory, volume=np.array([163.5, 190.5, 30.0]))
    inside = model.in_volume(dataclasses.replace(run, factory=part))
    assert inside[:, :2].all() and not inside[:, 2:].any()  # middles at 163.5, 190.5, 217.5 ...
    part = dataclasses.replace(run.factory, volume=np.array([100.0, 1000.0, 1.0]))
    inside = model.in_volume(dataclasses.replace(run, factory=part))
    assert inside[7].any() and not inside[[0, 14]].any()


def test_frames_that_every_plane_numbers_alike_are_columns() -> None:
    poses = model.model_of(runs.device_run(3, frames=5))["poses"]
    assert poses["by_number"] and poses["columns"] == [0, 1, 2, 3, 4]
    assert model.unpack(poses["median"]).shape == (3, 5)


def test_frames_that_number_on_from_plane_to_plane_are_ranked() -> None:
    part = runs.factory(4, frames=5)
    part = dataclasses.replace(part, pose_frame=np.arange(20) + 100)
    poses = model.model_of(Run(meta={}, table=runs.table(4), factory=part))["poses"]
    assert not poses["by_number"] and poses["columns"] == [0, 1, 2, 3, 4]
    assert poses["frames"][2] == [110, 111, 112, 113, 114]
    median = model.unpack(poses["median"])
    assert median[3, 4] == pytest.approx(part.pose_median[19], abs=1e-4)


def test_a_frame_that_is_off_is_told_with_its_place() -> None:
    poses = model.model_of(runs.device_run(8, frames=20))["poses"]
    assert [(p, c) for p, c, _ in poses["off"]] == [(6, 2)]
    assert poses["off"][0][2] == pytest.approx(2.95)


def test_the_fan_stands_where_the_table_has_it() -> None:
    fan = model.model_of(Run(meta={}, table=runs.table(3, failed=(1,))))["fan"]
    assert fan["x"][1] is None
    x0, slope = -90.0, -0.35  # the first sheet of the builder
    for line in range(4):
        for row, z in enumerate(fan["z"]):
            assert fan["x"][0][line][row] == pytest.approx(x0 + slope * z, rel=1e-4)


def test_a_table_of_empty_rows_has_no_fan() -> None:
    assert model.model_of(Run(meta={}, table=runs.table(2, failed=(0, 1))))["fan"] is None


def test_a_hundred_planes_fit_into_a_megabyte_and_a_half() -> None:
    built = model.model_of(runs.full_run(100, frames=40))
    assert len(json.dumps(built)) < 1_150_000  # beside d3, 260 kB
