"""A host with annotations: what the type checker is shown. It is checked, not run by a test."""

from __future__ import annotations

from pathlib import Path

import numpy as np
from numpy.typing import NDArray

import kestrane
from kestrane import Coefficients, Condition, FactorySettings, PlaneTable, Refine, jobs


def calibrate(path: Path) -> PlaneTable:
    clouds = kestrane.clouds.read(path)
    settings = FactorySettings(optimise=False, refine=Refine.ESTIMATE)
    result = kestrane.calibrate_factory(clouds, settings, on_plane=lambda plane, status: None)
    judgement = kestrane.judge(result, {"rms": 0.1})
    for finding in judgement.findings:
        text: str = finding.text
        print(finding.level, text, finding.figures.get("rms", 0.0))
    rms: NDArray[np.float64] = result.planes.rms
    worst: float = float(rms.max())
    assert worst >= 0.0
    moved: float = result.table.save(path.with_suffix(".txt")).largest_move
    assert moved < 1.0
    return result.table


def in_the_field(table: PlaneTable, frames: dict[int, NDArray[np.float64]]) -> kestrane.Judgement:
    result = kestrane.calibrate_field(table, frames)
    name: str = result.directions.names[0]
    shift: NDArray[np.float64] = result.smallest_motion.t
    print(name, shift, result.displacement.rms, result.settings.first)
    return kestrane.judge(result)


def with_coefficients(table: PlaneTable, coefficients: Coefficients) -> Coefficients:
    warm = jobs.compensate(table, Condition(30.0, 22.0, scale_per_degree=1e-5), [1.0, 0.0, 0.0])
    difference: kestrane.Difference = kestrane.compare(table, warm)
    print(difference.explained, difference.place[0])
    plain: kestrane.FactoryResult = jobs.factory_calibrate([np.zeros((300, 3))], strict=False)
    return jobs.update_coefficients(plain, 25.0, coefficients)


def points() -> float:
    cloud = kestrane.points([[1.0, 2.0, 300.0]], frames=3)
    x: NDArray[np.float64] = PlaneTable(np.zeros((1, 15, 50, 3)), np.zeros((1, 3))).x_at(0, 0, 300)
    try:
        kestrane.screen_cloud(cloud)
    except kestrane.KestraneError as error:
        print(error.status, error.call)
    return float(x)
