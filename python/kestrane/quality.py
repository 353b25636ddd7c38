"""The safe forms: what goes in is screened, what comes out is measured and told in words.

In go measured clouds and settings; out come frozen dataclasses of arrays. All figures come from the
C++ library `kestrane::quality`; nothing here computes one. In shapes, P is the number of planes, n
that of the rows of a list. Lengths are in the unit of the points, shares are 0 to 1, and what is not
determined is NaN. A bad measurement raises nothing: it is a refusal in the result or a finding.
"""

from __future__ import annotations

import enum
from collections.abc import Callable, Iterable, Mapping
from dataclasses import dataclass, field, fields, replace
from typing import Any, TypeVar

import numpy as np
from numpy.typing import NDArray

from kestrane import _core
from kestrane._inputs import Cloud, Clouds, as_cloud, as_clouds, as_count, as_frames, as_threads
from kestrane.calibration import FactoryResult, FieldResult, as_table
from kestrane.tables import PlaneTable

__all__ = [
    "BlockFigures",
    "CloudSettings",
    "Difference",
    "Directions",
    "Displacement",
    "DroppedFrames",
    "FactoryQuality",
    "FactorySettings",
    "FieldQuality",
    "FieldSettings",
    "FieldUse",
    "Finding",
    "FrameAccounts",
    "Judgement",
    "Limits",
    "Motion",
    "OptimisationFigures",
    "Origin",
    "PlaneDifferences",
    "PlaneFigures",
    "PoseFigures",
    "Refine",
    "RefinedDevice",
    "RefinementGain",
    "RefinementSettings",
    "ResidualFigures",
    "ResidualHistogram",
    "ScreenedCloud",
    "ScreenedFrames",
    "ScreeningAccount",
    "ScreeningSheet",
    "StageCounts",
    "WorkingVolume",
    "WorstPoints",
    "calibrate_factory",
    "calibrate_field",
    "compare",
    "conclude",
    "judge",
    "refine",
    "screen_cloud",
    "screen_frames",
]

Floats = NDArray[np.float64]
Longs = NDArray[np.int64]
Ints = NDArray[np.int32]
Bools = NDArray[np.bool_]

_Kind = TypeVar("_Kind")


# --- settings -------------------------------------------------------------------------------------


@dataclass(frozen=True)
class WorkingVolume:
    """The part of the fan in which a device is to measure, symmetric about the z axis."""

    depth_near: float = 100.0
    depth_far: float = 1000.0
    half_angle_degrees: float = 30.0

    @property
    def bounds(self) -> tuple[float, float, float]:
        """Nearest and farthest depth, and the half angle in degrees; all included."""
        return float(self.depth_near), float(self.depth_far), float(self.half_angle_degrees)


class Refine(enum.IntEnum):
    """Whether planes are refined as well; the job's own table stays what it is."""

    NONE = 0
    ESTIMATE = 1
    """At most four planes, evenly spaced: what would it gain."""
    ALL = 2
    """Every plane; the result holds the refined table."""


@dataclass(frozen=True)
class FactorySettings:
    """How a device is calibrated and looked at."""

    far: bool = False
    """Fits take depths 220 to 1000 instead of 100 to 1000."""
    optimise: bool = False
    """Refine the corners; the job then runs once more, without, to compare."""
    screen: bool = True
    """False: the job gets every point as it is."""
    gross: float = 3.0
    """Least distance of a gross outlier, in the unit of the points."""
    repeatability: bool = True
    """Calibrate the even and the odd frames as well."""
    volume: WorkingVolume | None = None
    """None: the depth band of the fits over the whole fan."""
    refine: Refine = Refine.NONE
    """Refinement takes the clouds as measured, not screened."""


@dataclass(frozen=True)
class FieldSettings:
    """Which planes the lists of a field calibration belong to."""

    first: int = 0
    """The plane of the first list; of no effect where the lists are a mapping."""
    leave_out_ends: bool = False
    """Planes without points or table may be left out at the ends of the range."""


@dataclass(frozen=True)
class CloudSettings:
    """How a cloud is screened."""

    gross: float = 3.0
    """The least distance from the sheet that can be gross; it rises with the scatter."""
    far: bool = False
    """The depth band of the job: 220 to 1000 instead of 100 to 1000."""


@dataclass(frozen=True)
class RefinementSettings:
    """How a plane is refined; the defaults are the measured ones."""

    folds: int = 20
    """Groups of frames that are left out in turn; 3 to 40."""
    significance: float = 2.5
    """How many standard errors better a less smooth surface has to be; above 0."""
    cut: float = 4.0
    """A point farther from the surface than this many noise scales is left out; 2 to 20."""
    frame_cut: float = 5.0
    """The same for a frame's median; 0 keeps all. Needs 8 frames."""
    depth_near: float = 123.0
    depth_far: float = 1500.0
    """Depths that are taken, both included, within 123 to 1500."""
    frames: bool = True
    """False: every point counts as a frame of its own."""


@dataclass(frozen=True)
class Limits:
    """What a host asks of a device; a figure without its limit is told, not judged."""

    rms: float | None = None
    """Of a plane's residuals."""
    p99: float | None = None
    """99 % of the sizes of a plane's residuals."""
    coverage: float | None = None
    """Least measured share of the working volume, 0 to 1."""
    seam: float | None = None
    """95 % of the steps between a plane's measured neighbours."""
    repeatability: float | None = None
    """Of a plane's measured blocks."""
    outliers: float | None = None
    """Share of a plane's points, 0 to 1."""
    field_motion: float | None = None
    """Largest displacement that a field calibration may repair."""


# --- factory --------------------------------------------------------------------------------------


class Origin(enum.IntEnum):
    """Where a block's plane comes from."""

    MEASURED = 0
    """At least 10 points."""
    THIN = 1
    """1 to 9 points."""
    EXTENDED = 2
    """None, but its sector has points of its own."""
    BORROWED = 3
    """Its sector has none and took a neighbour's plane."""
    EMPTY = 4
    """It has no plane."""


@dataclass(frozen=True, eq=False)
class ResidualFigures:
    """Figures of the residuals of a device, without outliers."""

    points: int
    rms: float
    bias: float
    q95: float
    q99: float
    max: float


@dataclass(frozen=True, eq=False)
class ResidualHistogram:
    """How the residuals of a device are spread: 80 bins from -4 to 4 RMS."""

    low: float
    """Lower bound of the first bin."""
    width: float
    """Of a bin; 0 where all residuals are 0."""
    counts: Longs
    """(80,); a residual at a bound counts in the upper bin."""
    below: int
    above: int


@dataclass(frozen=True, eq=False)
class PlaneFigures:
    """Figures of each plane; all arrays are (P,)."""

    points: Longs
    """Of the residuals, without outliers."""
    rms: Floats
    bias: Floats
    q95: Floats
    q99: Floats
    max: Floats
    median: Floats
    """Of all valid residuals."""
    sigma: Floats
    """1.4826 times their median distance from it."""
    valid: Longs
    outliers: Longs
    """More than 4 sigma from the median."""
    outlier_share: Floats
    coverage: Floats
    """Measured share of the blocks of the working volume."""
    borrowed_in_volume: Bools
    seam: Floats
    """95 % of the seams of its blocks."""
    median_seam: Floats
    repeatability: Floats
    within_poses: Floats
    """Standard deviation inside a frame."""
    between_poses: Floats
    """Standard deviation from frame to frame."""


@dataclass(frozen=True, eq=False)
class BlockFigures:
    """Figures of each block; all arrays are (P, 15, 50)."""

    points: Longs
    rms: Floats
    bias: Floats
    q95: Floats
    q99: Floats
    max: Floats
    seam: Floats
    """Largest step of x to a measured neighbour, both measured."""
    repeatability: Floats
    origin: NDArray[np.uint8]
    """See `Origin`."""


@dataclass(frozen=True, eq=False)
class PoseFigures:
    """Capture frames, plane after plane; all arrays are (n,)."""

    plane: Ints
    frame: Ints
    points: Longs
    median: Floats
    off: Bools
    """More than 4 sigma from the plane's median."""


@dataclass(frozen=True, eq=False)
class FrameAccounts:
    """What became of the points of each frame, plane after plane; all arrays are (n,)."""

    plane: Ints
    frame: Ints
    points: Longs
    kept: Longs
    not_finite: Longs
    depth: Longs
    gross: Longs
    no_cell: Longs
    screened: Longs


@dataclass(frozen=True, eq=False)
class WorstPoints:
    """The worst points that were dropped as gross, at most 6 a plane; all arrays are (n,)."""

    plane: Ints
    index: Longs
    """Place in the cloud as handed in."""
    frame: Ints
    x: Floats
    y: Floats
    z: Floats
    residual: Floats
    """x minus the sheet's x."""


@dataclass(frozen=True, eq=False)
class ScreeningAccount:
    """What became of the points of each plane; the arrays are (P,)."""

    points: Longs
    """Handed in."""
    kept: Longs
    not_finite: Longs
    depth: Longs
    """Outside the depth band: no sign of a bad measurement."""
    gross: Longs
    no_cell: Longs
    screened: Longs
    """Taken out as bad: all that were dropped but those outside the depth band."""
    frames: FrameAccounts
    worst: WorstPoints


@dataclass(frozen=True, eq=False)
class OptimisationFigures:
    """What the optimisation did to each plane; the arrays are (P,) unless said."""

    largest_move: Floats
    at_bound: Ints
    """Corners that moved by 0.4999 and more."""
    rms_without: Floats
    median_seam_without: Floats
    corner_moves: Floats
    """(P, 16, 51): x with it minus x without."""


@dataclass(frozen=True, eq=False)
class RefinementGain:
    """What a refined table would gain on the planes that were refined; all arrays are (n,)."""

    plane: Ints
    plane_only: Bools
    refined_rms: Floats
    """Error on frames that were left out in turn, of the refined table."""
    plain_rms: Floats
    """The same of the job's table without the optimisation."""
    refused: list[str]


@dataclass(frozen=True, eq=False)
class RefinedDevice:
    """A refined device; arrays are (P,) unless said."""

    table: PlaneTable
    """The row of a plane that was refused is empty."""
    refused: list[str]
    """Why a plane has no result; empty where it has one."""
    corners: Floats
    """(P, 16, 51, 3): x of the surface, y, z."""
    sigma: Floats
    """(P, 16, 51): standard deviation of x; grows where the surface is continued."""
    indicators: Floats
    """(P, 15, 50, 3): largest, mean, standard deviation of the signed distances."""
    points: Longs
    used: Longs
    not_finite: Longs
    outside: Longs
    outliers: Longs
    bad_frames: Longs
    frames_used: Ints
    frames_left_out: list[Ints]
    order: Ints
    smoothing: Floats
    plane_only: Bools
    noise: Floats
    degrees_of_freedom: Floats
    cross_validated_rms: Floats
    """The error to expect on new frames."""


@dataclass(frozen=True, eq=False, repr=False, kw_only=True)
class FactoryQuality(FactoryResult):
    """A calibrated device with all that is known of it, or the reason why there is none.

    A refused one has a table, indicators and corners of no planes.
    """

    refused: str
    """Why no plane could be calibrated; empty where one was."""
    reasons: list[str]
    """Why each plane has no row; empty for a calibrated one."""
    settings: FactorySettings
    volume: WorkingVolume
    device: ResidualFigures
    histogram: ResidualHistogram
    planes: PlaneFigures
    blocks: BlockFigures
    poses: PoseFigures
    screening: ScreeningAccount
    optimisation: OptimisationFigures | None = None
    refinement: RefinementGain | None = None
    refined: RefinedDevice | None = None
    """With `Refine.ALL`."""

    def __repr__(self) -> str:
        if self.refused:
            return f"<FactoryQuality, refused: {self.refused}>"
        return f"{super().__repr__()[:-1]}, RMS {self.device.rms:.4g}>"


# --- field ----------------------------------------------------------------------------------------


@dataclass(frozen=True, eq=False)
class Motion:
    """A rigid motion: p goes to R p + t."""

    R: Floats
    """(3, 3)"""
    t: Floats
    """(3,)"""


@dataclass(frozen=True, eq=False)
class Displacement:
    """How far the sheets moved along their normals, free of what the points do not fix."""

    rms: float
    max: float
    sigma: float
    plane: int
    """Where it is largest."""
    line: int
    step: int


@dataclass(frozen=True, eq=False)
class Directions:
    """Six independent directions of a small motion, the one that moves the sheets least first."""

    names: list[str]
    """"shift along y", "turn about y (with shift along x)"."""
    vectors: Floats
    """(6, 6), of length 1: turns about the centre times `length` (x, y, z), shifts (x, y, z)."""
    sigma: Floats
    """(6,): infinite where it moves no sheet, NaN where there are too few clusters to tell."""
    strength: Floats
    """(6,): 1 for the direction that moves the sheets most."""
    fixed: Bools
    """(6,): whether the motion along it may be believed."""


@dataclass(frozen=True, eq=False)
class StageCounts:
    """What is left after each stage, of all planes; all arrays are (5,).

    The stages: given, screened, frame filter, interior planes, used.
    """

    points: Longs
    frames: Ints
    planes: Ints


@dataclass(frozen=True, eq=False)
class DroppedFrames:
    """Capture frames without any used point; all arrays are (n,)."""

    plane: Ints
    frame: Ints
    stage: Ints
    """The stage that took its last point away."""


@dataclass(frozen=True, eq=False)
class FieldUse:
    """What a field calibration used, and what it left out; L is the number of lists."""

    stages: StageCounts
    plane: Ints
    """(L,): the plane of each list."""
    points: Longs
    """(L, 5): left after each stage."""
    frames: Ints
    """(L, 5)"""
    dropped: DroppedFrames
    left_out: Ints
    """Planes left out at the ends of the range."""
    screening: ScreeningAccount
    """One row for each list."""
    unit_hint: str
    """The unit that the points seem to have; empty where millimetres fit."""


@dataclass(frozen=True, eq=False, repr=False, kw_only=True)
class FieldQuality(FieldResult):
    """What a field calibration found. After a refusal only `refused` and `used` mean anything.

    `R` and `t` are the job's own motion, arbitrary along every direction that is not fixed; apply or
    show `smallest_motion`.
    """

    refused: str
    settings: FieldSettings
    displacement: Displacement
    """The headline."""
    smallest_motion: Motion
    """The smallest motion that moves the sheets as the job's does."""
    directions: Directions
    centre: Floats
    """(3,): of the used points, that turns are about."""
    length: float
    """Root mean square distance of the used points from it."""
    residual: float
    """Root mean square distance of the used points from the moved table."""
    frame_clusters: int
    plane_clusters: int
    sigma_holds_table: bool
    """Whether `displacement.sigma` holds the errors of the stored table."""
    first_plane: int
    last_plane: int
    """Of the planes that took part, both included."""
    used: FieldUse

    def __repr__(self) -> str:
        if self.refused:
            return f"<FieldQuality, refused: {self.refused}>"
        moved = self.displacement
        return f"<FieldQuality: sheets moved by {moved.rms:.4g} RMS, sigma {moved.sigma:.2g}>"


# --- difference -----------------------------------------------------------------------------------


@dataclass(frozen=True, eq=False)
class PlaneDifferences:
    """How each plane differs; all arrays are (P,)."""

    blocks: Ints
    rms: Floats
    max: Floats
    rest: Floats
    """Root mean square of what the rigid part leaves."""


@dataclass(frozen=True, eq=False)
class Difference:
    """How two tables differ, along the normals of the first."""

    refused: str
    rms: float
    max: float
    plane: int
    """Where it is largest."""
    line: int
    step: int
    place: tuple[float, float]
    """y and z of the middle of that block."""
    rigid: Motion
    """Carries the first table towards the second."""
    rest: float
    rest_max: float
    explained: float
    """Share of the squares that the rigid part explains; NaN without any difference."""
    blocks: int
    only_in_one: int
    planes: PlaneDifferences
    values: Floats
    """(P, 15, 50): NaN where not compared; of no planes after a refusal."""
    rests: Floats


# --- screening ------------------------------------------------------------------------------------


@dataclass(frozen=True, eq=False)
class ScreeningSheet:
    """The sheet that gross outliers are measured against.

    x = c[0] + c[1] u + c[2] v + c[3] u^2 + c[4] u v + c[5] v^2, u = (y - y0) / ys, v = (z - z0) / zs.
    """

    degree: int
    """2, 1, or -1 where the points fix none: nothing is gross then."""
    c: Floats
    y0: float
    z0: float
    ys: float
    zs: float
    scale: float
    limit: float
    """A larger distance is gross."""


@dataclass(frozen=True, eq=False)
class ScreenedCloud:
    """A screened cloud of one plane."""

    points: NDArray[Any]
    """(n,) POINT: what is left, in order."""
    account: ScreeningAccount
    """One row."""
    sheet: ScreeningSheet
    refused: str
    """Why the job must not see this plane; empty where it may."""
    unit_hint: str


@dataclass(frozen=True, eq=False)
class ScreenedFrames:
    """Screened lists of the planes of one range, numbered as the field job needs them."""

    lists: list[NDArray[Any]]
    """(n,) POINT for each plane; `id` is a new number, -m to 0."""
    first_plane: int
    last_plane: int
    first_number: int
    original: list[Ints]
    """For each list, the original number of frame `first_number` + k."""
    account: ScreeningAccount
    left_out: Ints
    refused: str
    unit_hint: str


# --- findings -------------------------------------------------------------------------------------


@dataclass(frozen=True)
class Finding:
    """One thing to know."""

    level: str
    """"ok": a fact; "warn": usable, with this in mind; "bad": not as it stands."""
    id: str
    text: str
    """What, where, how much, what to do."""
    figures: dict[str, float] = field(default_factory=dict)


@dataclass(frozen=True)
class Judgement:
    """The findings, worst first, and what follows from them."""

    findings: list[Finding]
    verdict: str
    """"no limits given", "not fit for use as it stands", "usable with limits" or "fit for use
    within the limits given"."""

    @property
    def worst(self) -> str:
        """The level of the worst finding; "ok" without findings."""
        return self.findings[0].level if self.findings else "ok"

    def find(self, id: str) -> Finding | None:  # pylint: disable=redefined-builtin # as its field
        """The finding of that id; None where there is none."""
        return next((finding for finding in self.findings if finding.id == id), None)


# --- functions ------------------------------------------------------------------------------------


def calibrate_factory(
    clouds: Clouds,
    settings: FactorySettings | Mapping[str, Any] | None = None,
    *,
    threads: int | None = None,
    on_plane: Callable[[int, int], None] | None = None,
) -> FactoryQuality:
    """Screen the clouds of a device, calibrate it plane by plane and measure what came out.

    A plane fails alone: its row is empty, its status and reason tell why, and the other planes are not
    affected. The whole is refused only if no plane is left.

    Parameters
    ----------
    clouds : sequence or mapping from plane numbers
        A cloud is (n,) POINT, which is not copied, or (n, 3) x y z or (n, 4) x y z frame. Planes
        that a mapping does not have are gaps.
    settings : FactorySettings or mapping, optional
    threads : int, optional
        Planes that are worked on side by side; by default the cores that the process may use. The
        result does not depend on it.
    on_plane : callable, optional
        Called with plane and status, in plane order; what it raises stops the run.

    Returns
    -------
    FactoryQuality

    Raises
    ------
    ValueError
        No clouds, more than 100, another shape, a setting out of its range.
    OutOfMemory
        Memory could not be had.
    """
    wanted = _checked_factory(_settings(FactorySettings, settings))
    found = _core.calibrate_factory(as_clouds(clouds), wanted, as_threads(threads), on_plane)
    return FactoryQuality(
        table=PlaneTable._of(found["table"]),
        status=found["status"],
        indicators=found["indicators"],
        corners=found["corners"],
        sectors_own=found["sectors_own"],
        refused=found["refused"],
        reasons=found["reasons"],
        settings=wanted,
        volume=WorkingVolume(*found["volume"]),
        device=ResidualFigures(**found["device"]),
        histogram=ResidualHistogram(**found["histogram"]),
        planes=PlaneFigures(**found["planes"]),
        blocks=BlockFigures(**found["blocks"]),
        poses=PoseFigures(**found["poses"]),
        screening=_account(found["screening"]),
        optimisation=_optional(OptimisationFigures, found["optimisation"]),
        refinement=_optional(RefinementGain, found["refinement"]),
        refined=_refined(found["refined"]),
    )


def calibrate_field(
    table: PlaneTable,
    frames: Clouds,
    settings: FieldSettings | Mapping[str, Any] | None = None,
) -> FieldQuality:
    """Screen the frames, find what has moved since the table was made, and tell how surely.

    The library writes two lines of the solver to standard output; see `kestrane.quiet`.

    Parameters
    ----------
    table : PlaneTable
        The standard; only read.
    frames : sequence or mapping from plane numbers
        The points of each plane of the range, with the number of their capture frame, as clouds of
        `calibrate_factory`. The first list of a sequence belongs to plane `settings.first`.
    settings : FieldSettings or mapping, optional

    Returns
    -------
    FieldQuality

    Raises
    ------
    ValueError
        No list, another shape, a plane that the table does not have.
    OutOfMemory
        Memory could not be had.
    """
    wanted = _settings(FieldSettings, settings)
    lists, first = as_frames(frames, wanted.first)
    found = _core.calibrate_field(as_table(table), lists, first, bool(wanted.leave_out_ends))
    motion = Motion(*found.pop("motion"))
    used = found["used"]
    return _made(
        FieldQuality,
        found,
        R=motion.R,
        t=motion.t,
        settings=FieldSettings(first, bool(wanted.leave_out_ends)),
        displacement=Displacement(**found["displacement"]),
        smallest_motion=Motion(*found["smallest_motion"]),
        directions=Directions(**found["directions"]),
        used=_made(
            FieldUse,
            used,
            stages=StageCounts(**used["stages"]),
            dropped=DroppedFrames(**used["dropped"]),
            screening=_account(used["screening"]),
        ),
    )


def compare(
    a: PlaneTable, b: PlaneTable, volume: WorkingVolume | Mapping[str, Any] | None = None
) -> Difference:
    """Tell how table `b` differs from `a`, and how much of that one rigid motion explains.

    Parameters
    ----------
    a, b : PlaneTable
        Of one device: as many planes and the same bounds of the blocks, to the six digits of a
        table file.
    volume : WorkingVolume or mapping, optional
        Where they are compared; by default depths 100 to 1000 over the whole fan.

    Returns
    -------
    Difference

    Raises
    ------
    ValueError
        Different numbers of planes, or different grids.
    """
    wanted = _settings(WorkingVolume, volume)
    found = _core.compare(as_table(a), as_table(b), wanted.bounds)
    return _made(
        Difference,
        found,
        rigid=Motion(*found["rigid"]),
        planes=PlaneDifferences(**found["planes"]),
    )


def judge(
    quality: FactoryQuality | FieldQuality | Difference,
    limits: Limits | Mapping[str, float] | None = None,
) -> Judgement:
    """Say what a person or a host has to know about a result.

    Parameters
    ----------
    quality : FactoryQuality, FieldQuality or Difference
    limits : Limits or mapping, optional
        Without any limit there is no verdict, whatever the findings.

    Returns
    -------
    Judgement

    Raises
    ------
    ValueError
        A limit that is not a number, negative, or not known.
    """
    wanted = _limits(limits)
    if isinstance(quality, FactoryQuality):
        return _judgement(_core.judge_factory(quality, wanted))
    if isinstance(quality, FieldQuality):
        return _judgement(_core.judge_field(quality, wanted))
    if isinstance(quality, Difference):
        return _judgement(_core.judge_difference(quality, wanted))
    raise ValueError(f"nothing to judge: {type(quality).__name__}")


def conclude(
    findings: Iterable[Finding], limits: Limits | Mapping[str, float] | None = None
) -> Judgement:
    """Sort findings of one or several judgements, and say what they come to.

    Raises
    ------
    ValueError
        A limit that is not a number, negative, or not known.
    """
    return _judgement(_core.conclude(list(findings), _limits(limits)))


def refine(
    clouds: Clouds,
    settings: RefinementSettings | Mapping[str, Any] | None = None,
    *,
    threads: int | None = None,
) -> RefinedDevice:
    """Lay a smooth surface through each plane's points: a far better table from the same points.

    Parameters
    ----------
    clouds : sequence or mapping from plane numbers
        As measured, not screened; see `calibrate_factory`.
    settings : RefinementSettings or mapping, optional
    threads : int, optional
        See `calibrate_factory`.

    Returns
    -------
    RefinedDevice

    Raises
    ------
    ValueError
        No clouds, more than 100, another shape, a setting out of its range.
    """
    wanted = _settings(RefinementSettings, settings)
    as_count(wanted.folds, "folds")
    found = _core.refine(as_clouds(clouds), wanted, as_threads(threads))
    refined = _refined(found)
    assert refined is not None
    return refined


def screen_cloud(
    points: Cloud, settings: CloudSettings | Mapping[str, Any] | None = None
) -> ScreenedCloud:
    """Take out of one plane's cloud what the factory job must not see.

    Points that are not finite, outside the depth band, or too far from the sheet.

    Raises
    ------
    ValueError
        Another shape, `gross` not above 0.
    """
    wanted = _settings(CloudSettings, settings)
    found = _core.screen_cloud(as_cloud(points, "points"), float(wanted.gross), bool(wanted.far))
    return _made(
        ScreenedCloud,
        found,
        account=_account(found["account"]),
        sheet=ScreeningSheet(**found["sheet"]),
    )


def screen_frames(
    frames: Clouds,
    table: PlaneTable,
    settings: FieldSettings | Mapping[str, Any] | None = None,
) -> ScreenedFrames:
    """Take out of the lists of a range what the field job must not see, and number frames anew.

    Raises
    ------
    ValueError
        No list, another shape, a plane that the table does not have.
    """
    wanted = _settings(FieldSettings, settings)
    lists, first = as_frames(frames, wanted.first)
    found = _core.screen_frames(lists, as_table(table), first, bool(wanted.leave_out_ends))
    return _made(ScreenedFrames, found, account=_account(found["account"]))


# --- helpers --------------------------------------------------------------------------------------


def _settings(kind: type[_Kind], given: _Kind | Mapping[str, Any] | None) -> _Kind:
    """Settings of this kind: as they are, of a mapping with their names, or the defaults."""
    if given is None:
        return kind()
    dataclass_kind: Any = kind
    defaults = {item.name: item.default for item in fields(dataclass_kind)}
    if isinstance(given, kind):
        settings = given
    elif isinstance(given, Mapping):
        unknown = [name for name in given if name not in defaults]
        if unknown:
            raise ValueError(f"nothing is named {unknown[0]!r}; there are {', '.join(defaults)}")
        settings = kind(**given)
    else:
        raise ValueError(f"{kind.__name__} expected, got {type(given).__name__}")
    for name, default in defaults.items():
        _check_setting(name, getattr(settings, name), default)
    return settings


def _check_setting(name: str, value: Any, default: Any) -> None:
    """ValueError for what is not of the kind that the default is of."""
    if isinstance(default, bool):
        if not isinstance(value, (bool, np.bool_)):
            raise ValueError(f"{name}: True or False expected, got {value!r}")
    elif isinstance(default, float):
        if isinstance(value, bool) or not isinstance(value, (int, float, np.number)):
            raise ValueError(f"{name}: a number expected, got {value!r}")
        if isinstance(value, int) and abs(value) > 1 << 1000:
            raise ValueError(f"{name}: too large")


def _checked_factory(settings: FactorySettings) -> FactorySettings:
    try:
        wanted = Refine(settings.refine)
    except ValueError:
        raise ValueError(f"refine: a Refine expected, got {settings.refine!r}") from None
    volume = None if settings.volume is None else _settings(WorkingVolume, settings.volume)
    return replace(settings, refine=wanted, volume=volume)


def _limits(limits: Limits | Mapping[str, float] | None) -> Limits:
    wanted = _settings(Limits, limits)
    for item in fields(wanted):
        limit = getattr(wanted, item.name)
        if limit is not None:
            _check_setting(item.name, limit, 0.0)
    return wanted


def _judgement(found: tuple[list[tuple[str, str, str, dict[str, float]]], str]) -> Judgement:
    findings, verdict = found
    return Judgement([Finding(*finding) for finding in findings], verdict)


def _account(found: dict[str, Any]) -> ScreeningAccount:
    return _made(
        ScreeningAccount,
        found,
        frames=FrameAccounts(**found["frames"]),
        worst=WorstPoints(**found["worst"]),
    )


def _refined(found: dict[str, Any] | None) -> RefinedDevice | None:
    if found is None:
        return None
    return _made(RefinedDevice, found, table=PlaneTable._of(found["table"]))


def _made(kind: type[_Kind], found: dict[str, Any], **parts: Any) -> _Kind:
    """A dataclass of what the core has found, with some of it in a form of its own."""
    return kind(**{**found, **parts})


def _optional(kind: Any, found: dict[str, Any] | None) -> Any:
    return None if found is None else kind(**found)
