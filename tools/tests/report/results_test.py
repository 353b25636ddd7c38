from __future__ import annotations

import dataclasses
from typing import Any

import numpy as np
import pytest
from synthetic_runs import assert_same

import kestrane
from kestrane import _simulation, quality
from kestrane_tools import results
from kestrane_tools.report.model import model_of
from kestrane_tools.run_file import Run

LIMITS = {"rms": 0.15, "p99": 0.45, "coverage": 0.8, "seam": 0.05, "field_motion": 1.0}
SCREENED = ("points", "kept", "not_finite", "depth", "gross")


def measured(**changes: Any) -> list[Any]:
    wanted = {"planes": 3, "points": 6000, "seed": 4, "noise": 0.05, "frames": 12} | changes
    return _simulation.measure(**wanted)


@pytest.fixture(scope="module")
def device() -> quality.FactoryQuality:
    clouds = measured(bow=0.4)
    clouds[1] = clouds[1][:50]  # a plane that fails
    settings = quality.FactorySettings(
        optimise=True, refine=quality.Refine.ALL, volume=quality.WorkingVolume(250, 800, 25)
    )
    return quality.calibrate_factory(clouds, settings)


@pytest.fixture(scope="module")
def field(device: quality.FactoryQuality) -> quality.FieldQuality:
    table = quality.calibrate_factory(measured()).table
    frames = measured(field=True, seed=5, motion=[1e-3, 0, 0, 0.1, 0, 0.2])
    frames[0]["x"][frames[0]["id"] == 3] += 40.0  # a frame that the job leaves out
    with kestrane.quiet():
        return quality.calibrate_field(table, frames)


def assert_judged_alike(one: quality.Judgement, other: quality.Judgement) -> None:
    assert one.verdict == other.verdict
    assert [(f.level, f.id, f.text) for f in one.findings] == [
        (f.level, f.id, f.text) for f in other.findings
    ]
    for a, b in zip(one.findings, other.findings):
        assert a.figures.keys() == b.figures.keys()
        assert np.array_equal(
            list(a.figures.values()), list(b.figures.values()), equal_nan=True
        ), a.id


@pytest.mark.parametrize("limits", [{}, LIMITS, {"rms": 0.001}], ids=["none", "some", "strict"])
def test_a_factory_part_is_judged_as_its_result(
    device: quality.FactoryQuality, limits: dict[str, float]
) -> None:
    table, part = results.table_part(device.table), results.factory_part(device)
    back = results.factory_of(part, table)
    assert_judged_alike(quality.judge(back, limits), quality.judge(device, limits))


@pytest.mark.parametrize("limits", [{}, LIMITS], ids=["none", "some"])
def test_a_field_part_is_judged_as_its_result(
    field: quality.FieldQuality, limits: dict[str, float]
) -> None:
    back = results.field_of(results.field_part(field))
    assert all(getattr(back.used.screening, name).size == 0 for name in SCREENED)
    assert_judged_alike(quality.judge(back, limits), quality.judge(field, limits))


def test_a_difference_part_is_judged_as_its_result(device: quality.FactoryQuality) -> None:
    cells = device.table.cells.copy()
    cells[..., 2] *= 1.001
    other = kestrane.PlaneTable(cells, device.table.whole, device.table.grid)
    found = quality.compare(other, device.table)
    part = results.difference_part(found, "the other")
    assert part.name == "the other"
    assert_judged_alike(
        quality.judge(results.difference_of(part), LIMITS), quality.judge(found, LIMITS)
    )


def test_a_result_comes_back_with_every_figure(device: quality.FactoryQuality) -> None:
    with np.errstate(all="raise"):
        back = results.factory_of(results.factory_part(device), results.table_part(device.table))
    for name in ("planes", "blocks", "poses", "optimisation", "refinement", "device", "histogram"):
        one, other = getattr(back, name), getattr(device, name)
        for item in dataclasses.fields(other):
            assert equal(getattr(one, item.name), getattr(other, item.name)), item.name
    for name in ("status", "indicators", "corners", "sectors_own", "reasons"):
        assert equal(getattr(back, name), getattr(device, name)), name
    assert not back.sectors_own[1].any()  # the plane that failed
    assert back.table == device.table and back.volume == device.volume


def test_a_sector_without_an_indicator_has_no_points_of_its_own(
    device: quality.FactoryQuality,
) -> None:
    part = results.factory_part(device)
    indicators = np.array(part.indicators)
    indicators[0] = 0.0
    indicators[0, 4, 7, 1] = -0.25
    own = results.factory_of(dataclasses.replace(part, indicators=indicators), None).sectors_own
    assert own[0].tolist() == [sector == 4 for sector in range(15)]


def test_a_share_of_outliers_needs_a_valid_point(device: quality.FactoryQuality) -> None:
    part = dataclasses.replace(
        results.factory_part(device), outliers=np.array([1, 0, 1]), valid=np.array([4, 0, 1])
    )
    with np.errstate(all="raise"):
        shares = results.factory_of(part, None).planes.outlier_share
    assert equal(shares, [0.25, np.nan, 1.0])


def test_moves_of_corners_belong_to_an_optimisation(device: quality.FactoryQuality) -> None:
    part = results.factory_part(device)
    assert results.factory_of(part, None).optimisation is not None
    for changes in ({"asked_optimise": False}, {"corner_moves": None}):
        changed = dataclasses.replace(part, **changes)
        assert results.factory_of(changed, None).optimisation is None


def test_a_gain_stands_at_the_planes_that_it_was_measured_on(device: quality.FactoryQuality) -> None:
    gain = quality.RefinementGain(
        plane=np.array([0, 2], np.int32),
        plane_only=np.array([False, True]),
        refined_rms=np.array([0.5, np.nan]),
        plain_rms=np.array([0.75, 0.25]),
        refused=["", "too few frames"],
    )
    part = results.factory_part(dataclasses.replace(device, refinement=gain))
    assert part.refinement.tolist() == [True, False, True]
    assert part.refinement_plane_only.tolist() == [False, False, True]
    assert equal(part.refined_rms, [0.5, np.nan, np.nan])
    assert equal(part.plain_rms, [0.75, np.nan, 0.25])
    assert part.refinement_refused.tolist() == ["", "", "too few frames"]
    for refine in (quality.Refine.ESTIMATE, quality.Refine.ALL):
        back = results.factory_of(dataclasses.replace(part, asked_refine=int(refine)), None)
        for item in dataclasses.fields(gain):
            assert equal(getattr(back.refinement, item.name), getattr(gain, item.name)), item.name
    assert results.factory_of(dataclasses.replace(part, asked_refine=0), None).refinement is None


def test_a_table_comes_back_to_the_bit(device: quality.FactoryQuality) -> None:
    assert results.table_of(results.table_part(device.table)) == device.table


def equal(a: Any, b: Any) -> bool:
    return np.array_equal(np.asarray(a), np.asarray(b), equal_nan=np.asarray(a).dtype.kind == "f")


# Each field of a part against the figure of the same name, found here by name and not by the tables
# of the module.
def test_a_factory_part_holds_the_figures_by_their_names(device: quality.FactoryQuality) -> None:
    part = results.factory_part(device)
    groups = {
        "": device.planes,
        "block_": device.blocks,
        "pose_": device.poses,
        "device_": device.device,
        "histogram_": device.histogram,
    }
    elsewhere = {"points": "used", "outlier_share": ""}
    for prefix, group in groups.items():
        for item in dataclasses.fields(group):
            name = elsewhere.get(item.name, item.name) if not prefix else prefix + item.name
            if name:
                assert equal(getattr(part, name), getattr(group, item.name)), name
    for name in ("points", "kept", "not_finite", "depth", "gross"):
        assert equal(getattr(part, name), getattr(device.screening, name)), name
    for name in ("far", "optimise", "screen", "gross", "repeatability", "refine"):
        assert getattr(part, f"asked_{name}") == getattr(device.settings, name), name
    assert part.volume.tolist() == [250, 800, 25]
    assert part.reason.tolist() == device.reasons
    assert device.optimisation is not None and device.refined is not None
    for name in ("largest_move", "at_bound", "rms_without", "median_seam_without", "corner_moves"):
        assert equal(getattr(part, name), getattr(device.optimisation, name)), name
    assert equal(part.refined_cells, device.refined.table.cells)
    assert equal(part.refined_sigma, device.refined.sigma)
    assert equal(part.corners, device.corners) and equal(part.indicators, device.indicators)


def test_a_field_part_holds_the_figures_by_their_names(field: quality.FieldQuality) -> None:
    part = results.field_part(field)
    assert len(part.dropped_stage) > 0
    for prefix, group in {"stage_": field.used.stages, "dropped_": field.used.dropped}.items():
        for item in dataclasses.fields(group):
            assert equal(getattr(part, prefix + item.name), getattr(group, item.name)), item.name
    for name in ("rms", "max", "sigma", "plane"):
        assert getattr(part, f"displacement_{name}") == getattr(field.displacement, name), name
    for name in ("sigma", "strength", "fixed"):
        assert equal(getattr(part, f"direction_{name}"), getattr(field.directions, name)), name
    for name in (
        "centre",
        "length",
        "residual",
        "frame_clusters",
        "plane_clusters",
        "sigma_holds_table",
        "first_plane",
        "last_plane",
        "quaternion",
    ):
        assert equal(getattr(part, name), getattr(field, name)), name
    assert equal(part.motion_R, field.R) and equal(part.motion_t, field.t)
    assert equal(part.smallest_R, field.smallest_motion.R)
    assert equal(part.smallest_t, field.smallest_motion.t)
    assert equal(part.plane_points, field.used.points) and equal(
        part.plane_frames, field.used.frames
    )


def test_the_page_counts_the_working_volume_as_the_library_does(
    device: quality.FactoryQuality,
) -> None:
    run = Run(meta={}, table=results.table_part(device.table), factory=results.factory_part(device))
    shares = model_of(run)["planes"]["origins"]
    for plane in (0, 2):
        assert shares[0][plane] == pytest.approx(device.planes.coverage[plane], abs=1e-4)
        assert 0.0 < shares[0][plane]


def test_a_part_survives_the_way_there_and_back(device: quality.FactoryQuality) -> None:
    table, part = results.table_part(device.table), results.factory_part(device)
    again = results.factory_part(results.factory_of(part, table))
    # What a refined table is made of stays in the part alone.
    kept = {
        name: getattr(part, name) for name in ("refined_cells", "refined_whole", "refined_sigma")
    }
    assert all(value is not None for value in kept.values())
    assert_same(
        Run(meta={}, factory=dataclasses.replace(again, **kept)), Run(meta={}, factory=part)
    )


def test_a_field_part_survives_the_way_there_and_back(field: quality.FieldQuality) -> None:
    part = results.field_part(field)
    assert_same(
        Run(meta={}, field=results.field_part(results.field_of(part))), Run(meta={}, field=part)
    )


def test_a_refused_device_is_a_part_too() -> None:
    refused = quality.calibrate_factory([np.zeros((3, 4)), np.zeros((0, 4))])
    part = results.factory_part(refused)
    assert part.refused and part.indicators.shape == (2, 15, 50, 3)
    back = results.factory_of(part, results.table_part(refused.table))
    assert_judged_alike(quality.judge(back, LIMITS), quality.judge(refused, LIMITS))
    for name in ("indicators", "corners", "sectors_own"):
        assert equal(getattr(back, name), getattr(refused, name)), name


def test_a_refused_field_calibration_is_a_part_too(device: quality.FactoryQuality) -> None:
    refused = quality.calibrate_field(device.table, [np.zeros((0, 4))] * 3)
    part = results.field_part(refused)
    assert part.refused
    assert_judged_alike(
        quality.judge(results.field_of(part), LIMITS), quality.judge(refused, LIMITS)
    )


def test_a_run_is_judged_in_all_its_parts(
    device: quality.FactoryQuality, field: quality.FieldQuality
) -> None:
    run = Run(
        meta={"limits": LIMITS},
        factory=results.factory_part(device),
        field=results.field_part(field),
        difference=results.difference_part(quality.compare(device.table, device.table)),
    )
    judgement = results.judged(run)
    assert {"planes", "direction", "drift"} <= {finding.id for finding in judgement.findings}
    levels = [("ok", "warn", "bad").index(finding.level) for finding in judgement.findings]
    assert levels == sorted(levels, reverse=True)
    assert judgement.verdict == "not fit for use as it stands"
    assert results.findings_of(judgement) == [
        {"level": f.level, "id": f.id, "text": f.text, "figures": f.figures}
        for f in judgement.findings
    ]
