"""What Python hands out equals, to the bit, what a host in C++ gets from the same clouds."""

from __future__ import annotations

from operator import attrgetter
from typing import Any

import numpy as np
import pytest

import kestrane
from kestrane import Coefficients, Condition, FactorySettings, PlaneTable, Refine, _core, jobs
from kestrane.quality import conclude

MOTION_R = np.array([[0.0, -1, 0], [1, 0, 0], [0, 0, 1]])
LIMITS = {
    "rms": 0.06,
    "p99": 0.3,
    "coverage": 0.9,
    "seam": 0.05,
    "outliers": 0.01,
    "field_motion": 0.2,
}


@pytest.fixture(scope="module")
def table(clouds: list[Any]) -> PlaneTable:
    return jobs.factory_calibrate(clouds).table


@pytest.mark.parametrize("optimise", [False, True])
@pytest.mark.parametrize("threads", [1, 3])
def test_the_plain_factory_job(host, same, clouds, tmp_path, optimise, threads):
    left = host.run("factory", clouds=clouds, arguments=[optimise])
    result = jobs.factory_calibrate(clouds, optimise=optimise, threads=threads)
    assert result.status.tolist() == [0, 0, 0]
    assert same(result.table.cells, left["table.cells"])
    assert same(result.table.whole, left["table.whole"])
    assert same(result.indicators, left["indicators"])
    assert same(result.corners, left["corners"])
    result.table.save(tmp_path / "saved")
    assert (tmp_path / "saved").read_bytes() == (host.folder / "saved_by_host").read_bytes()


def test_the_plain_field_jobs(host, same, clouds, frames, table):
    left = host.run("field", clouds=clouds, frames=frames)
    with kestrane.quiet():
        result = jobs.field_calibrate(table, frames)
        source = Coefficients(np.full((3, 16, 51, 3), [0.1, -1, 120]), [[0, 2]])
        moved = jobs.field_calibrate_coefficients(table, frames, source, first=0, last=2)
    assert same(result.quaternion, left["quaternion"])
    assert same(result.t, left["translation"])
    indicators = [result.mean, result.max, result.half_mean_deviation]
    assert same(indicators, left["field_indicators"])
    slots = left["slots"].reshape(3, 12)
    assert same(moved.factory_to_user[:3, :, :3], slots[:, :9])
    assert same(moved.factory_to_user[:3, :, 3], slots[:, 9:])
    assert same(moved.models, source.models)
    assert not same(moved.factory_to_user[:3], source.factory_to_user[:3])


def test_distances_of_the_field_engine(host, same, clouds, frames, table):
    left = host.run("field", clouds=clouds, frames=frames)
    xyz = np.stack([frames[0][name] for name in "xyz"], axis=1)
    found = jobs.distances(table, 0, xyz, MOTION_R, [0.25, -0.5, 1])
    expected = left["residuals"]
    # A host that asks with rows of zeros finds 0 for a point without a block.
    assert same(np.where(np.isnan(found), 0.0, found), expected)
    assert np.isnan(found[expected == 0]).all()


def test_the_compensation(host, same, clouds, table):
    numbers = [31.5, 22.0, 0.4, 0.1, 1.5, 3e-6, 2e-5, 1e-5]
    left = host.run("compensation", clouds=clouds, arguments=[*numbers, 1, 2, 900, 1, 3])
    found = jobs.compensate(table, Condition(*numbers), [1, 2, 900], first=1, last=3)
    assert same(found.cells, left["compensated.cells"])
    assert same(found.whole, left["compensated.whole"])
    assert same(found.cells[0], table.cells[0]) and not same(found.cells[1], table.cells[1])


def test_coefficients_and_their_files(host, same, clouds, tmp_path):
    left = host.run("coefficients", clouds=clouds, arguments=[27.5])
    line, step, plane = np.ogrid[:16, :51, :0]
    models = np.empty((3, 16, 51, 3))
    for plane in range(3):
        models[plane, ..., 0] = 0.01 * (np.arange(16)[:, None] + 1)
        models[plane, ..., 1] = -1.0
        models[plane, ..., 2] = 118.0 + np.arange(51)[None, :] + plane
    source = Coefficients(models, [[0, 2]])
    result = jobs.update_coefficients(jobs.factory_calibrate(clouds), 27.5, source)
    for name, coefficients in (("source", source), ("result", result)):
        coefficients.save(tmp_path / name)
        by_host = host.folder / f"{name}_by_host"
        assert (tmp_path / name).read_bytes() == by_host.read_bytes()
        assert Coefficients.read(by_host) == coefficients
    table = result.table_at(30.0)
    assert same(table.cells, left["table_at_30.cells"])
    assert same(table.whole, left["table_at_30.whole"])
    a, b, c = np.moveaxis(result.models, -1, 0)
    assert same(result.x_at(30.0), -(a * 30.0 + c) / b)
    assert same(result.slope(), -a / b)


def told(judgement: kestrane.Judgement) -> tuple[list[str], list[float]]:
    lines, figures = [judgement.verdict], []
    for finding in judgement.findings:
        lines.append(f"{finding.level} {finding.id} {finding.text}")
        lines += [f"  {name}" for name in finding.figures]
        figures += finding.figures.values()
    return lines, figures


def assert_figures(same, left: dict[str, Any], prefix: str, figures: Any) -> int:
    """Every column that the host has left under the prefix; gives their number."""
    names = [name for name in left if name.startswith(f"{prefix}.") and not name.endswith(".txt")]
    for name in names:
        assert same(attrgetter(name.removeprefix(f"{prefix}."))(figures), left[name]), name
    return len(names)


# Sanitizers need a quarter of a minute for each.
ALL = [(optimise, threads) for optimise in (False, True) for threads in (1, 2)]


@pytest.mark.parametrize("optimise, threads", ALL if _core.release_build else ALL[::3])
def test_every_figure_of_a_safe_factory_calibration(host, same, clouds, optimise, threads):
    bad = [cloud.copy() for cloud in clouds]
    bad[0]["x"][::500] += 40.0  # gross outliers
    bad[1]["z"][5] = np.nan
    bad[2]["x"][bad[2]["id"] == 7] += 2.0  # a pose that is off
    bad.insert(1, np.empty(0, kestrane.POINT))  # a gap
    left = host.run("safe_factory", clouds=bad, arguments=[optimise])
    settings = FactorySettings(optimise=optimise, refine=Refine.ALL)
    result = kestrane.calibrate_factory(bad, settings, threads=threads)
    assert same(result.table.cells, left["table.cells"])
    assert same(result.table.whole, left["table.whole"])
    assert same(result.indicators, left["indicators"])
    assert same(result.corners, left["corners"])
    assert same(result.status, left["status"])
    assert result.reasons == left["reasons.txt"]
    assert same(result.histogram.counts, left["histogram.counts"])
    assert same([result.histogram.low, result.histogram.width], left["histogram.bounds"])
    for name in ("points", "rms", "bias", "q95", "q99", "max"):
        expected = left[f"device.{name}"][0]
        assert getattr(result.device, name) == expected, name
    assert assert_figures(same, left, "planes", result.planes) == 18
    assert assert_figures(same, left, "blocks", result.blocks) == 9
    assert assert_figures(same, left, "poses", result.poses) == 4
    assert assert_figures(same, left, "screening", result.screening) == 14
    assert assert_figures(same, left, "refinement", result.refinement) == 2
    assert (result.screening.gross > 0).tolist() == [True, False, False, False]
    if optimise:
        present = np.repeat([True, False, True, True], 16 * 51)
        moves = result.optimisation.corner_moves.reshape(-1)
        assert same(moves[present], left["optimisation.corner_moves"])
        for name in ("largest_move", "at_bound", "rms_without", "median_seam_without"):
            assert same(getattr(result.optimisation, name), left[f"optimisation.{name}"])
    else:
        assert result.optimisation is None
    for limits, name in ((LIMITS, "findings"), (None, "findings_without_limits")):
        lines, figures = told(kestrane.judge(result, limits))
        assert lines == left[f"{name}.txt"]
        assert same(np.array(figures), left[name])

    refined = kestrane.refine(bad, threads=threads)
    assert same(refined.table.cells, left["refined.cells"])
    assert same(refined.table.whole, left["refined.whole"])
    assert result.refined is not None and result.refined.table == refined.table
    kept = [0, 2, 3]
    assert same(refined.corners[kept], left["refined.corners"])
    assert same(refined.sigma[kept], left["refined.sigma"])
    assert same(refined.indicators[kept], left["refined.indicators"])
    for name in (
        "smoothing",
        "noise",
        "degrees_of_freedom",
        "cross_validated_rms",
        "order",
        "frames_used",
        "used",
    ):
        assert same(getattr(refined, name), left[f"refined.{name}"]), name
    assert refined.refused[1] and not refined.refused[0]

    difference = kestrane.compare(result.table, refined.table)
    assert same(difference.values, left["difference.values"])
    assert same(difference.rests, left["difference.rests"])
    figures = [getattr(difference, n) for n in ("rms", "max", "rest", "rest_max", "explained")]
    assert same(figures, left["difference"])
    assert same(difference.rigid.R, left["difference.R"])
    assert same(difference.rigid.t, left["difference.t"])
    lines, numbers = told(kestrane.judge(difference, LIMITS))
    assert lines == left["drift.txt"] and same(np.array(numbers), left["drift"])


def test_every_figure_of_a_safe_field_calibration(host, same, clouds, frames, table):
    left = host.run("safe_field", clouds=clouds, frames=frames)
    with kestrane.quiet():
        result = kestrane.calibrate_field(table, frames)
    assert same(result.R, left["R"])
    assert same(result.t, left["t"])
    assert same(result.quaternion, left["quaternion"])
    assert same(result.smallest_motion.R, left["smallest.R"])
    assert same(result.smallest_motion.t, left["smallest.t"])
    d = result.displacement
    figures = [d.rms, d.max, d.sigma, result.mean, result.max, result.half_mean_deviation]
    figures += [*result.centre, result.length, result.residual]
    assert same(figures, left["figures"])
    assert result.directions.names == left["directions.names.txt"]
    assert assert_figures(same, left, "directions", result.directions) == 4
    assert assert_figures(same, left, "stages", result.used.stages) == 3
    lines, numbers = told(kestrane.judge(result, LIMITS))
    assert lines == left["findings.txt"] and same(np.array(numbers), left["findings"])


def test_judgements_join(clouds, frames, table):
    with kestrane.quiet():
        field = kestrane.judge(kestrane.calibrate_field(table, frames), LIMITS)
    factory = kestrane.judge(kestrane.calibrate_factory(clouds), LIMITS)
    both = conclude([*factory.findings, *field.findings], LIMITS)
    order = {"bad": 0, "warn": 1, "ok": 2}
    levels = [order[finding.level] for finding in both.findings]
    assert levels == sorted(levels)
    assert len(both.findings) == len(factory.findings) + len(field.findings)
    assert both.worst == min((factory.worst, field.worst), key=order.__getitem__)
