"""Results of `kestrane` as parts of a run, and back.

In go the dataclasses that `kestrane.calibrate_factory`, `calibrate_field` and `compare` return; out
come parts of a run file with the same numbers, and from such parts again what `kestrane.judge`
takes. Only what no finding and no page speaks of is left out: the account of single frames in the
screening.
"""

from __future__ import annotations

import math
from typing import Any

import numpy as np
from numpy.typing import NDArray

import kestrane
from kestrane import quality
from kestrane_tools.run_file import DifferencePart, FactoryPart, FieldPart, Run, TablePart

__all__ = [
    "difference_of",
    "difference_part",
    "factory_of",
    "factory_part",
    "field_of",
    "field_part",
    "findings_of",
    "judged",
    "table_of",
    "table_part",
]

Array = NDArray[Any]
_BLOCKS = (15, 50)

_PLANE_FIGURES = (
    "rms",
    "bias",
    "q95",
    "q99",
    "max",
    "median",
    "sigma",
    "valid",
    "outliers",
    "coverage",
    "borrowed_in_volume",
    "seam",
    "median_seam",
    "repeatability",
    "within_poses",
    "between_poses",
)
_BLOCK_FIGURES = ("points", "rms", "bias", "q95", "q99", "max", "seam", "repeatability", "origin")
_POSE_FIGURES = ("plane", "frame", "points", "median", "off")
_SCREENED = ("points", "kept", "not_finite", "depth", "gross")
_OPTIMISATION = ("largest_move", "at_bound", "rms_without", "median_seam_without")


# --- tables ---------------------------------------------------------------------------------------


def table_part(table: kestrane.PlaneTable) -> TablePart:
    """The table's numbers, to the bit."""
    grid = table.grid
    return TablePart(
        cells=np.array(table.cells),
        whole=np.array(table.whole),
        z=np.array(grid.z),
        y_start=np.array(grid.y_start),
        y_step=np.array(grid.y_step),
        z_start=grid.z_start,
        z_step=grid.z_step,
        head=np.array(grid.head),
    )


def table_of(part: TablePart) -> kestrane.PlaneTable:
    """The table of a part, equal to the bit to the one that the part was made of."""
    grid = kestrane.Grid.of(
        z=part.z,
        y_start=part.y_start,
        y_step=part.y_step,
        z_start=part.z_start,
        z_step=part.z_step,
        head=part.head,
    )
    return kestrane.PlaneTable(part.cells, part.whole, grid)


# --- factory --------------------------------------------------------------------------------------


def factory_part(result: quality.FactoryQuality) -> FactoryPart:
    """The figures of a factory calibration."""
    count = len(result.status)
    settings, device, histogram = result.settings, result.device, result.histogram
    return FactoryPart(
        refused=result.refused,
        asked_far=settings.far,
        asked_optimise=settings.optimise,
        asked_screen=settings.screen,
        asked_gross=settings.gross,
        asked_repeatability=settings.repeatability,
        asked_refine=int(settings.refine),
        volume=np.array(result.volume.bounds),
        status=result.status,
        reason=_texts(result.reasons),
        used=result.planes.points,
        **{name: getattr(result.screening, name) for name in _SCREENED},
        **{name: getattr(result.planes, name) for name in _PLANE_FIGURES},
        **{f"block_{name}": getattr(result.blocks, name) for name in _BLOCK_FIGURES},
        **{f"pose_{name}": getattr(result.poses, name) for name in _POSE_FIGURES},
        **_optimisation_fields(result.optimisation, count),
        **_refinement_fields(result.refinement, result.refined, count),
        indicators=_rows(result.indicators, count, (*_BLOCKS, 3)),
        corners=_rows(result.corners, count, (16, 51, 3)),
        device_points=device.points,
        device_rms=device.rms,
        device_bias=device.bias,
        device_q95=device.q95,
        device_q99=device.q99,
        device_max=device.max,
        histogram_low=histogram.low,
        histogram_width=histogram.width,
        histogram_counts=histogram.counts,
        histogram_below=histogram.below,
        histogram_above=histogram.above,
    )


def _texts(texts: list[str]) -> Array:
    return np.array(texts, dtype=str) if texts else np.zeros(0, "U1")


def _rows(values: Array, count: int, shape: tuple[int, ...]) -> Array:
    # A refused device has rows of no planes; a part has one for each cloud.
    return values if len(values) == count else np.full((count, *shape), math.nan)


def _optimisation_fields(figures: quality.OptimisationFigures | None, count: int) -> dict[str, Any]:
    if figures is None:
        none = np.full(count, math.nan)
        return {**dict.fromkeys(_OPTIMISATION, none), "at_bound": np.zeros(count, np.int32)}
    return {name: getattr(figures, name) for name in (*_OPTIMISATION, "corner_moves")}


def _refinement_fields(
    gain: quality.RefinementGain | None, refined: quality.RefinedDevice | None, count: int
) -> dict[str, Any]:
    given: dict[str, Any] = {
        "refinement": np.zeros(count, bool),
        "refinement_plane_only": np.zeros(count, bool),
        "refined_rms": np.full(count, math.nan),
        "plain_rms": np.full(count, math.nan),
    }
    refused = [""] * count
    if gain is not None:
        given["refinement"][gain.plane] = True
        given["refinement_plane_only"][gain.plane] = gain.plane_only
        given["refined_rms"][gain.plane] = gain.refined_rms
        given["plain_rms"][gain.plane] = gain.plain_rms
        for plane, reason in zip(gain.plane, gain.refused):
            refused[plane] = reason
    if refined is not None and len(refined.table.cells) == count:
        given["refined_cells"] = np.array(refined.table.cells)
        given["refined_whole"] = np.array(refined.table.whole)
        given["refined_sigma"] = refined.sigma
    return {**given, "refinement_refused": _texts(refused)}


def factory_of(part: FactoryPart, table: TablePart | None) -> quality.FactoryQuality:
    """What `kestrane.judge` takes; the account of frames in the screening is empty."""
    count = len(part.status)
    share = np.divide(part.outliers, part.valid, out=np.full(count, math.nan), where=part.valid > 0)
    near, far, half_angle = part.volume.tolist()
    if table is None or part.refused:
        plane_table = kestrane.PlaneTable(np.zeros((0, *_BLOCKS, 3)), np.zeros((0, 3)))
    else:
        plane_table = table_of(table)
    indicators = part.indicators if not part.refused else np.zeros((0, *_BLOCKS, 3))
    optimisation = None
    if part.asked_optimise and part.corner_moves is not None:
        optimisation = quality.OptimisationFigures(
            corner_moves=part.corner_moves, **{name: getattr(part, name) for name in _OPTIMISATION}
        )
    return quality.FactoryQuality(
        table=plane_table,
        status=part.status,
        indicators=indicators,
        corners=part.corners if not part.refused else np.zeros((0, 16, 51, 3)),
        sectors_own=(np.abs(indicators) > 0.0).any(axis=(2, 3)),  # not of a failed plane: NaN
        settings=quality.FactorySettings(
            far=part.asked_far,
            optimise=part.asked_optimise,
            screen=part.asked_screen,
            gross=part.asked_gross,
            repeatability=part.asked_repeatability,
            refine=quality.Refine(part.asked_refine),
        ),
        refused=part.refused,
        reasons=part.reason.tolist(),
        volume=quality.WorkingVolume(near, far, half_angle),
        device=quality.ResidualFigures(
            part.device_points,
            part.device_rms,
            part.device_bias,
            part.device_q95,
            part.device_q99,
            part.device_max,
        ),
        histogram=quality.ResidualHistogram(
            part.histogram_low,
            part.histogram_width,
            part.histogram_counts,
            part.histogram_below,
            part.histogram_above,
        ),
        planes=quality.PlaneFigures(
            points=part.used,
            outlier_share=share,
            **{name: getattr(part, name) for name in _PLANE_FIGURES},
        ),
        blocks=quality.BlockFigures(
            **{name: getattr(part, f"block_{name}") for name in _BLOCK_FIGURES}
        ),
        poses=quality.PoseFigures(
            **{name: getattr(part, f"pose_{name}") for name in _POSE_FIGURES}
        ),
        screening=_screening(**{name: getattr(part, name) for name in _SCREENED}),
        optimisation=optimisation,
        refinement=_gain(part),
    )


def _screening(**counts: Array) -> quality.ScreeningAccount:
    ints, longs, reals = np.zeros(0, np.int32), np.zeros(0, np.int64), np.zeros(0)
    return quality.ScreeningAccount(
        **counts,
        no_cell=np.zeros_like(counts["points"]),
        screened=np.add(counts["not_finite"], counts["gross"], dtype=np.int64),
        frames=quality.FrameAccounts(ints, ints, *[longs] * 7),
        worst=quality.WorstPoints(ints, longs, ints, *[reals] * 4),
    )


def _gain(part: FactoryPart) -> quality.RefinementGain | None:
    if part.asked_refine == 0:
        return None
    at = np.nonzero(part.refinement)[0]
    return quality.RefinementGain(
        plane=at.astype(np.int32),
        plane_only=part.refinement_plane_only[at],
        refined_rms=part.refined_rms[at],
        plain_rms=part.plain_rms[at],
        refused=part.refinement_refused[at].tolist(),
    )


# --- field ----------------------------------------------------------------------------------------


def field_part(result: quality.FieldQuality) -> FieldPart:
    """The figures of a field calibration."""
    moved, directions, used = result.displacement, result.directions, result.used
    return FieldPart(
        refused=result.refused,
        displacement_rms=moved.rms,
        displacement_max=moved.max,
        displacement_sigma=moved.sigma,
        displacement_plane=moved.plane,
        displacement_block=np.array([moved.line, moved.step]),
        smallest_R=result.smallest_motion.R,
        smallest_t=result.smallest_motion.t,
        motion_R=result.R,
        motion_t=result.t,
        quaternion=result.quaternion,
        indicator_mean=result.mean,
        indicator_max=result.max,
        indicator_deviation=result.half_mean_deviation,
        direction_name=_texts(directions.names),
        direction_vector=directions.vectors,
        direction_sigma=directions.sigma,
        direction_strength=directions.strength,
        direction_fixed=directions.fixed,
        centre=result.centre,
        length=result.length,
        residual=result.residual,
        frame_clusters=result.frame_clusters,
        plane_clusters=result.plane_clusters,
        sigma_holds_table=result.sigma_holds_table,
        first_plane=result.first_plane,
        last_plane=result.last_plane,
        stage_points=used.stages.points,
        stage_frames=used.stages.frames,
        stage_planes=used.stages.planes,
        plane=used.plane,
        plane_points=used.points,
        plane_frames=used.frames,
        dropped_plane=used.dropped.plane,
        dropped_frame=used.dropped.frame,
        dropped_stage=used.dropped.stage,
        left_out=used.left_out,
        unit_hint=used.unit_hint,
    )


def field_of(part: FieldPart) -> quality.FieldQuality:
    """What `kestrane.judge` takes; the account of the screening is empty."""
    line, step = part.displacement_block.tolist()
    none = dict.fromkeys(_SCREENED, np.zeros(0, np.int64))
    return quality.FieldQuality(
        R=part.motion_R,
        t=part.motion_t,
        quaternion=part.quaternion,
        mean=part.indicator_mean,
        max=part.indicator_max,
        half_mean_deviation=part.indicator_deviation,
        refused=part.refused,
        settings=quality.FieldSettings(first=part.first_plane),
        displacement=quality.Displacement(
            part.displacement_rms,
            part.displacement_max,
            part.displacement_sigma,
            part.displacement_plane,
            line,
            step,
        ),
        smallest_motion=quality.Motion(part.smallest_R, part.smallest_t),
        directions=quality.Directions(
            names=part.direction_name.tolist(),
            vectors=part.direction_vector,
            sigma=part.direction_sigma,
            strength=part.direction_strength,
            fixed=part.direction_fixed,
        ),
        centre=part.centre,
        length=part.length,
        residual=part.residual,
        frame_clusters=part.frame_clusters,
        plane_clusters=part.plane_clusters,
        sigma_holds_table=part.sigma_holds_table,
        first_plane=part.first_plane,
        last_plane=part.last_plane,
        used=quality.FieldUse(
            stages=quality.StageCounts(part.stage_points, part.stage_frames, part.stage_planes),
            plane=part.plane,
            points=part.plane_points,
            frames=part.plane_frames,
            dropped=quality.DroppedFrames(
                part.dropped_plane, part.dropped_frame, part.dropped_stage
            ),
            left_out=part.left_out,
            screening=_screening(**none),
            unit_hint=part.unit_hint,
        ),
    )


# --- difference -----------------------------------------------------------------------------------


def difference_part(result: quality.Difference, name: str = "") -> DifferencePart:
    """How the run's table differs from another, `name`: of ``compare(other, run's table)``."""
    count = len(result.planes.rms)
    return DifferencePart(
        refused=result.refused,
        name=name,
        block=np.array([result.line, result.step]),
        place=np.array(result.place),
        rigid_R=result.rigid.R,
        rigid_t=result.rigid.t,
        plane_blocks=result.planes.blocks,
        plane_rms=result.planes.rms,
        plane_max=result.planes.max,
        plane_rest=result.planes.rest,
        values=_rows(result.values, count, _BLOCKS),
        rests=_rows(result.rests, count, _BLOCKS),
        **{
            figure: getattr(result, figure)
            for figure in (
                "rms",
                "max",
                "plane",
                "rest",
                "rest_max",
                "explained",
                "blocks",
                "only_in_one",
            )
        },
    )


def difference_of(part: DifferencePart) -> quality.Difference:
    """What `kestrane.judge` takes."""
    line, step = part.block.tolist()
    y, z = part.place.tolist()
    return quality.Difference(
        refused=part.refused,
        rms=part.rms,
        max=part.max,
        plane=part.plane,
        line=line,
        step=step,
        place=(y, z),
        rigid=quality.Motion(part.rigid_R, part.rigid_t),
        rest=part.rest,
        rest_max=part.rest_max,
        explained=part.explained,
        blocks=part.blocks,
        only_in_one=part.only_in_one,
        planes=quality.PlaneDifferences(
            part.plane_blocks, part.plane_rms, part.plane_max, part.plane_rest
        ),
        values=part.values,
        rests=part.rests,
    )


# --- verdict --------------------------------------------------------------------------------------


def findings_of(judgement: quality.Judgement) -> list[dict[str, Any]]:
    """Findings as the meta of a run holds them."""
    return [
        {"level": f.level, "id": f.id, "text": f.text, "figures": dict(f.figures)}
        for f in judgement.findings
    ]


def judged(run: Run, limits: Any = None) -> quality.Judgement:
    """Judge every part of a run, as `kestrane.judge`, and bring the findings together.

    Parameters
    ----------
    run : Run
    limits : kestrane Limits or mapping, optional
        None: those of the run's meta.

    Raises
    ------
    ValueError
        A limit that is not a number, negative, or not known.
    """
    if limits is None:
        limits = run.meta.get("limits") or {}
    findings: list[quality.Finding] = []
    if run.factory is not None:
        findings += quality.judge(factory_of(run.factory, run.table), limits).findings
    if run.field is not None:
        findings += quality.judge(field_of(run.field), limits).findings
    if run.difference is not None:
        findings += quality.judge(difference_of(run.difference), limits).findings
    return quality.conclude(findings, limits)
