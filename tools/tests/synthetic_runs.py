"""Runs made of closed forms and seeded draws, for tests of the run file and the page.

The figures hang together as far as a page shows (a failed plane has none, a block without points has
no residual); they are not the outcome of a calibration.
"""

from __future__ import annotations

import dataclasses
import json
from typing import Any

import numpy as np

from kestrane_tools.run_file import (
    CompensationPart,
    DifferencePart,
    FactoryPart,
    FieldPart,
    Run,
    TablePart,
)

NAN = float("nan")
BLOCKS = (15, 50)


def table(planes: int, failed: tuple[int, ...] = ()) -> TablePart:
    """A fan of flat sheets x = x0 + t z, evenly spread; the rows of `failed` are empty."""
    z = 150.0 + 27.0 * np.arange(51)
    y_start = -z * np.tan(np.radians(30.0))
    x0 = np.linspace(-90.0, -60.0, planes)
    slope = np.linspace(-0.35, 0.75, planes)
    cells = np.zeros((planes, *BLOCKS, 3))
    cells[..., 0] = (-1.0 / x0)[:, None, None]
    cells[..., 2] = (slope / x0)[:, None, None]
    whole = cells[:, 0, 0, :].copy()
    cells[list(failed)] = 0.0
    whole[list(failed)] = 0.0
    return TablePart(
        cells=cells,
        whole=whole,
        z=z,
        y_start=y_start,
        y_step=-2.0 * y_start / 15.0,
        z_start=150.0,
        z_step=27.0,
        head=np.array([51, 51, 51, 0], np.int32),
    )


def _blocks(draws: np.random.Generator, planes: int, scale: float, shape: Any) -> np.ndarray:
    return scale * (1.0 + 0.35 * draws.random((planes, *BLOCKS))) * shape


def factory(
    planes: int = 8,
    *,
    frames: int = 20,
    failed: tuple[int, ...] = (),
    bad: tuple[int, ...] = (),
    measured_to: int = 31,
    optimise: bool = True,
    seed: int = 1,
) -> FactoryPart:
    """A factory part: blocks beyond row `measured_to` extended, every fourth plane borrows a sector."""
    draws = np.random.default_rng(seed)
    calibrated = np.ones(planes, bool)
    calibrated[list(failed)] = False
    rms = 0.06 + 0.03 * draws.random(planes)
    rms[list(bad)] = 0.21

    points = np.zeros((planes, *BLOCKS), np.int64)
    points[:, :, :measured_to] = draws.integers(12, 60, (planes, 15, measured_to))
    origin = np.where(points > 0, 0, 2).astype(np.uint8)
    origin[3::4, 0, :] = 3
    points[3::4, 0, :] = 0
    points[~calibrated] = 0
    origin[~calibrated] = 4
    has_points = points > 0

    def where(values: np.ndarray, mask: np.ndarray = has_points) -> np.ndarray:
        return np.where(mask, values, NAN)

    def figure(values: np.ndarray) -> np.ndarray:
        return np.where(calibrated, values, NAN)

    def count(values: np.ndarray) -> np.ndarray:
        return np.where(calibrated, values, 0).astype(np.int64)

    block_rms = where(_blocks(draws, planes, 0.85, rms[:, None, None]))
    medians = 0.03 * draws.standard_normal((planes, frames))
    off = np.zeros((planes, frames), bool)
    if planes > 6 and frames > 4:
        medians[6, 2], off[6, 2] = 2.95, True
    medians, off = medians[calibrated], off[calibrated]
    numbers = np.nonzero(calibrated)[0]
    none = np.full(planes, NAN)
    moves = np.where(
        calibrated[:, None, None], 0.2 * draws.standard_normal((planes, 16, 51)), NAN
    ).clip(-0.5, 0.5)
    alive = points.sum(axis=(1, 2))
    device_rms = float(np.sqrt(np.nanmean(figure(rms) ** 2))) if calibrated.any() else NAN
    bins = np.exp(-0.5 * ((np.arange(80) - 39.5) / 10.0) ** 2)
    return FactoryPart(
        refused="" if calibrated.any() else "no plane could be calibrated: no points",
        asked_far=False,
        asked_optimise=optimise,
        asked_screen=True,
        asked_gross=3.0,
        asked_repeatability=True,
        asked_refine=0,
        volume=np.array([250.0, 800.0, 30.0]),
        status=np.where(calibrated, 0, -1),
        reason=np.where(calibrated, "", "no sector has 200 points"),
        points=np.where(calibrated, alive + 40, 150),
        kept=np.where(calibrated, alive + 30, 150),
        not_finite=np.where(calibrated, 4, 0),
        depth=np.where(calibrated, 5, 0),
        gross=np.where(calibrated, 1, 0),
        used=count(alive),
        rms=figure(rms),
        bias=figure(0.002 * draws.standard_normal(planes)),
        q95=figure(1.96 * rms),
        q99=figure(2.6 * rms),
        max=figure(4.1 * rms),
        median=figure(0.001 * draws.standard_normal(planes)),
        sigma=figure(0.97 * rms),
        valid=count(alive + 12),
        outliers=count(np.full(planes, 12)),
        coverage=figure(np.where(np.arange(planes) % 4 == 3, 0.933, 1.0)),
        borrowed_in_volume=calibrated & (np.arange(planes) % 4 == 3),
        seam=figure(0.1 + 0.02 * draws.random(planes)),
        median_seam=figure(0.05 + 0.01 * draws.random(planes)),
        repeatability=figure(0.03 + 0.01 * draws.random(planes)) if frames >= 4 else none,
        within_poses=figure(0.9 * rms),
        between_poses=figure(0.3 * rms) if frames > 1 else none,
        largest_move=figure(np.abs(moves).max(axis=(1, 2))) if optimise else none,
        at_bound=count((np.abs(moves) >= 0.4999).sum(axis=(1, 2)))
        if optimise
        else np.zeros(planes, int),
        rms_without=figure(1.3 * rms) if optimise else none,
        median_seam_without=figure(0.006 * np.ones(planes)) if optimise else none,
        refinement=np.zeros(planes, bool),
        refinement_refused=np.full(planes, ""),
        refinement_plane_only=np.zeros(planes, bool),
        refined_rms=none,
        plain_rms=none,
        block_points=points,
        block_rms=block_rms,
        block_bias=where(0.03 * draws.standard_normal(points.shape)),
        block_q95=1.9 * block_rms,
        block_q99=2.4 * block_rms,
        block_max=2.7 * block_rms,
        block_seam=where(_blocks(draws, planes, 0.08, 1.0)),
        block_repeatability=where(_blocks(draws, planes, 0.03, 1.0))
        if frames >= 4
        else where(points * NAN),
        block_origin=origin,
        indicators=np.zeros((planes, *BLOCKS, 3)),
        corners=np.zeros((planes, 16, 51, 3)),
        corner_moves=moves if optimise else None,
        pose_plane=np.repeat(numbers, frames),
        pose_frame=np.tile(np.arange(frames), len(numbers)),
        pose_points=np.full(len(numbers) * frames, 500),
        pose_median=medians.ravel(),
        pose_off=off.ravel(),
        device_points=int(alive.sum()),
        device_rms=device_rms,
        device_bias=0.0004 if calibrated.any() else NAN,
        device_q95=1.96 * device_rms,
        device_q99=2.6 * device_rms,
        device_max=float(np.nanmax(figure(4.1 * rms))) if calibrated.any() else NAN,
        histogram_low=-4.0 * device_rms,
        histogram_width=device_rms / 10.0,
        histogram_counts=np.round(bins * alive.sum() / bins.sum()).astype(np.int64),
        histogram_below=3,
        histogram_above=5,
    )


def field(planes: int = 8, *, frames: int = 20) -> FieldPart:
    """A field part: everything fixed but the shift along y."""
    names = [
        "shift along y",
        "turn about y (with shift along x)",
        "turn about x",
        "turn about z",
        "shift along z",
        "shift along x",
    ]
    used = np.array([500, 495, 480, 470, 465]) * frames
    return FieldPart(
        displacement_rms=0.1402,
        displacement_max=0.3241,
        displacement_sigma=0.0021,
        displacement_plane=planes - 1,
        displacement_block=np.array([2, 5]),
        smallest_R=np.eye(3),
        smallest_t=np.array([0.204, -0.001, -0.325]),
        motion_R=np.eye(3),
        motion_t=np.array([0.204, -6.5, -0.325]),
        quaternion=np.array([0.0, 0.0, 0.0, 1.0]),
        indicator_mean=0.06,
        indicator_max=0.31,
        indicator_deviation=0.02,
        direction_name=np.array(names),
        direction_vector=np.eye(6),
        direction_sigma=np.array([2.8, 0.0048, 0.0047, 0.0011, 0.0013, 0.00084]),
        direction_strength=np.array([0.001, 0.3, 0.5, 0.6, 0.8, 1.0]),
        direction_fixed=np.array([False, True, True, True, True, True]),
        centre=np.array([1.0, 2.0, 280.0]),
        length=105.0,
        residual=0.0831,
        frame_clusters=planes * frames,
        plane_clusters=planes,
        sigma_holds_table=planes >= 8,
        first_plane=0,
        last_plane=planes - 1,
        stage_points=used * planes,
        stage_frames=np.array([frames, frames, frames - 1, frames - 1, frames - 1]) * planes,
        stage_planes=np.full(5, planes),
        plane=np.arange(planes),
        plane_points=np.tile(used, (planes, 1)),
        plane_frames=np.tile([frames, frames, frames - 1, frames - 1, frames - 1], (planes, 1)),
        dropped_plane=np.arange(planes),
        dropped_frame=np.full(planes, 7),
        dropped_stage=np.full(planes, 2),
        left_out=np.zeros(0, int),
    )


def difference(planes: int = 8, *, seed: int = 2) -> DifferencePart:
    """A difference that is mostly a rigid motion."""
    draws = np.random.default_rng(seed)
    slope = np.linspace(-0.2, 0.2, planes)[:, None, None] + np.linspace(0, 0.3, 50)
    rests = 0.05 * draws.standard_normal((planes, *BLOCKS))
    values = np.broadcast_to(slope, (planes, *BLOCKS)) + rests
    beyond = np.arange(50) > 24
    values = np.where(beyond, NAN, values)
    rests = np.where(beyond, NAN, rests)

    def rms(array: np.ndarray) -> np.ndarray:
        return np.sqrt(np.nanmean(array**2, axis=(-1, -2)))

    return DifferencePart(
        name="table of the spring",
        rms=0.238,
        max=0.605,
        plane=planes - 1,
        block=np.array([9, 23]),
        place=np.array([442.0, 785.0]),
        rigid_R=np.eye(3),
        rigid_t=np.array([0.1, 0.0, 0.2]),
        rest=0.078,
        rest_max=0.2,
        explained=0.89,
        blocks=planes * 375,
        only_in_one=0,
        plane_blocks=np.full(planes, 375),
        plane_rms=rms(values),
        plane_max=np.nanmax(np.abs(values), axis=(1, 2)),
        plane_rest=rms(rests),
        values=values,
        rests=rests,
    )


def compensation(planes: int = 8) -> CompensationPart:
    """Shifts that rise with the temperature and the distance from the middle plane."""
    temperature = np.arange(0.0, 42.0, 2.0)
    slope = np.linspace(-0.05, 0.05, planes)
    shift = (temperature - 20.0)[:, None] * slope
    return CompensationPart(
        temperature=temperature,
        shift=shift,
        largest=1.6 * np.abs(shift).max(axis=1),
        depth=515.0,
        reference=20.0,
    )


FINDINGS = [
    {
        "level": "bad",
        "id": "planes",
        "text": "no table for plane 17: measure these planes anew",
        "figures": {"planes": 100.0, "failed": 1.0},
    },
    {
        "level": "bad",
        "id": "residuals",
        "text": "RMS above 0.150 on plane 5, worst 0.210 on plane 5",
        "figures": {"largest_rms": 0.21},
    },
    {
        "level": "warn",
        "id": "poses_off",
        "text": "1 frame off by more than 4 sigma: plane 6 frame 2: "
        "repeat or leave out these poses",
        "figures": {"frames": 1.0},
    },
    {
        "level": "warn",
        "id": "seams",
        "text": "95 % of the steps between blocks above 0.110 on planes 1, 5",
        "figures": {"seam": 0.12},
    },
    {
        "level": "ok",
        "id": "repeatability",
        "text": "at most 0.040 on plane 3, within 0.050",
        "figures": {"repeatability": 0.04, "undetermined": NAN},
    },
]


def meta(**changes: Any) -> dict[str, Any]:
    """What a command line knows about a run."""
    known: dict[str, Any] = {
        "kind": "factory",
        "unit": "mm",
        "created": "2026-11-21T19:55:02+00:00",
        "device": {
            "serial": "SIM-0001",
            "model": "simulated fan",
            "operator": "A. Weaver",
            "place": "line 1",
            "target": "board 7, certificate 2026-114",
            "temperature": [20.4, 20.6],
        },
        "software": {"name": "kestrane", "version": "1.0.0"},
        "inputs": [
            {
                "name": "clouds.npz",
                "sha256": "18b52182de51da98e0539e29" + "0" * 40,
                "points": 1980150,
            }
        ],
        "outputs": [{"name": "table.txt", "sha256": "9ea0de5e9c316018c58fbf7e" + "0" * 40}],
        "settings": {"optimise": True, "screen": True, "type": "standard"},
        "limits": {"rms": 0.15, "p99": 0.45, "coverage": 0.8, "seam": 0.11, "repeatability": 0.05},
        "volume": {"depth": [250.0, 800.0], "half_angle_deg": 30.0},
        "findings": FINDINGS,
        "verdict": "not fit for use as it stands",
    }
    return {**known, **changes}


def device_run(planes: int = 8, **changes: Any) -> Run:
    """A factory run with the keywords of `factory`."""
    part = factory(planes, **changes)
    return Run(meta=meta(), table=table(planes, changes.get("failed", ())), factory=part)


def full_run(planes: int = 8, **changes: Any) -> Run:
    """A run with every part that there is."""
    return dataclasses.replace(
        device_run(planes, **changes),
        field=field(planes),
        difference=difference(planes),
        compensation=compensation(planes),
    )


PARTS = ("table", "factory", "field", "difference", "compensation")


def assert_same(a: Run, b: Run) -> None:
    """Equal to the bit, NaN equal to NaN of the same bits."""
    assert json.dumps(a.meta) == json.dumps(b.meta)
    for name in PARTS:
        one, other = getattr(a, name), getattr(b, name)
        assert (one is None) == (other is None), name
        if one is None:
            continue
        for item in dataclasses.fields(one):
            x, y = getattr(one, item.name), getattr(other, item.name)
            assert type(x) is type(y), item.name
            x, y = np.asarray(x), np.asarray(y)
            assert x.shape == y.shape and x.tobytes() == y.astype(x.dtype).tobytes(), item.name
