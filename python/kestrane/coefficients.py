"""The coefficients of a device: per corner of the fan a line between its condition and the x there."""

from __future__ import annotations

from typing import Any, SupportsFloat

import numpy as np
from numpy.typing import ArrayLike, NDArray

from kestrane import _core
from kestrane._inputs import (
    MOST_PLANES,
    Clouds,
    Path,
    as_count,
    as_frames,
    as_numbers,
    as_path,
)
from kestrane.calibration import FactoryResult, as_table
from kestrane.tables import PlaneTable

__all__ = ["Coefficients", "field_calibrate_coefficients", "update_coefficients"]

Floats = NDArray[np.float64]


class Coefficients:
    """Per-corner lines a t + b x + c = 0 between the condition t of a device and x.

    Parameters
    ----------
    models : (P, 16, 51, 3) real
        a, b, c of each corner, P of 1 to 100; all NaN for a plane without coefficients.
    ranges : (R, 2) int, optional
        First and last plane of each range of planes, both included; at most 20.
    factory_to_user : (100, 3, 4) real, optional
        A rigid transform (R | t) for each plane; unit transforms by default.

    Attributes
    ----------
    models, factory_to_user : float64
    ranges : int32

    Raises
    ------
    ValueError
        Another shape or number.
    """

    __slots__ = ("factory_to_user", "models", "ranges")

    models: Floats
    ranges: NDArray[np.int32]
    factory_to_user: Floats

    def __init__(
        self,
        models: ArrayLike,
        ranges: ArrayLike | None = None,
        factory_to_user: ArrayLike | None = None,
    ) -> None:
        self.models = as_numbers(models, "models", (None, 16, 51, 3))
        if not 1 <= self.models.shape[0] <= MOST_PLANES:
            raise ValueError(f"models: 1 to {MOST_PLANES} planes, not {self.models.shape[0]}")
        self.ranges = _ranges(ranges)
        if factory_to_user is None:
            unit = np.hstack([np.eye(3), np.zeros((3, 1))])
            factory_to_user = np.repeat(unit[np.newaxis], MOST_PLANES, axis=0)
        self.factory_to_user = as_numbers(factory_to_user, "factory_to_user", (MOST_PLANES, 3, 4))

    @classmethod
    def read(cls, path: Path) -> Coefficients:
        """Read a coefficient file, checked from end to end.

        Raises
        ------
        FileOpenError
            The file could not be opened or read.
        DamagedFile
            It is cut, malformed, or holds numbers that are not finite.
        """
        return cls(**_core.read_coefficients(as_path(path)))

    def save(self, path: Path) -> None:
        """Save all numbers exactly, and read them back before they count.

        The file holds transforms for the planes in use, not for the other slots. It is written
        beside the target and renamed onto it: after any failure the old one is intact.

        Raises
        ------
        FileOpenError
            The file could not be written.
        ValueError
            A number that is not finite.
        """
        _core.save_coefficients(self, as_path(path))

    @property
    def plane_count(self) -> int:
        """Number of planes P."""
        return int(self.models.shape[0])

    def x_at(self, t: SupportsFloat) -> Floats:
        """x of every corner at condition t, -(a t + c) / b: (P, 16, 51) float64."""
        with np.errstate(divide="ignore", invalid="ignore"):
            xs: Floats = (
                -(self.models[..., 0] * float(t) + self.models[..., 2]) / self.models[..., 1]
            )
        return xs

    def slope(self) -> Floats:
        """Change of every corner's x per unit of the condition, -a / b: (P, 16, 51) float64."""
        with np.errstate(divide="ignore", invalid="ignore"):
            slopes: Floats = -self.models[..., 0] / self.models[..., 1]
        return slopes

    def table_at(self, t: SupportsFloat) -> PlaneTable:
        """The plane table at condition t, through all corners.

        Raises
        ------
        ValueError
            A condition that is not finite, or numbers that give no table.
        """
        corners = _core.corners_at(self, float(t))
        return PlaneTable._of(_core.table_of_corners(corners))

    def copy(self) -> Coefficients:
        """Coefficients that share nothing with these."""
        return Coefficients(self.models.copy(), self.ranges.copy(), self.factory_to_user.copy())

    def __eq__(self, other: object) -> bool:
        """All numbers equal to the bit; NaN equals NaN."""
        if not isinstance(other, Coefficients):
            return NotImplemented
        return (
            _same_bits(self.models, other.models)
            and np.array_equal(self.ranges, other.ranges)
            and _same_bits(self.factory_to_user, other.factory_to_user)
        )

    __hash__ = None  # type: ignore[assignment]

    def __repr__(self) -> str:
        ranges = ", ".join(f"{first}-{last}" for first, last in self.ranges.tolist())
        return f"<Coefficients of {self.plane_count} planes, ranges {ranges or 'none'}>"

    def __reduce__(self) -> tuple[Any, ...]:
        return Coefficients, (self.models, self.ranges, self.factory_to_user)


def update_coefficients(
    result: FactoryResult, condition: SupportsFloat, source: Coefficients
) -> Coefficients:
    """Bring coefficients up to date from a factory calibration at a known condition.

    Corners of blocks without points, and of planes that failed, keep their line; the others get one
    through ten samples of the old line and the new reading, which is held within 0.01 of what the
    old line predicts.

    Parameters
    ----------
    result : FactoryResult
        Of at most as many planes as `source`.
    condition : float
        t at which it was measured, on the scale of the lines, which are sampled from 22 to 40.
    source : Coefficients
        Only read.

    Returns
    -------
    Coefficients
        With unit transforms for the planes in use.

    Raises
    ------
    ValueError
        More planes than `source` has, or another shape.
    """
    if not isinstance(source, Coefficients):
        raise ValueError(f"source: Coefficients expected, got {type(source).__name__}")
    found = _core.update_coefficients(
        np.ascontiguousarray(result.indicators),
        np.ascontiguousarray(result.corners),
        float(condition),
        source,
    )
    return Coefficients(**found)


def field_calibrate_coefficients(
    table: PlaneTable,
    frames: Clouds,
    coefficients: Coefficients,
    *,
    first: int,
    last: int,
) -> Coefficients:
    """Find where a device with coefficients stands to its user, for a range of planes.

    The variant of `field_calibrate` for a device with coefficients: the capture frames that cross
    the plane of their list's points, one solve, and the motion in the slots of the range.

    Parameters
    ----------
    table : PlaneTable
        The standard; only read.
    frames : sequence or mapping from plane numbers
        See `field_calibrate`.
    coefficients : Coefficients
        Only read; one of its ranges is first to last.
    first, last : int
        The range of planes, both included.

    Returns
    -------
    Coefficients
        A copy with new `factory_to_user` of planes first to last. A solve that gave nothing usable
        leaves unit transforms there.

    Raises
    ------
    ValueError
        No list, another shape, planes that the table does not have.
    CountMismatch
        Not one list for each plane.
    EmptyRange
        A range of one plane.
    InvalidParameter
        20 ranges of planes and more.
    RangeUnknown
        The coefficients do not have this range.
    FitFailed
        A list is empty, has no plane between depth 220 and 350, or no frame that crosses it.
    """
    if not isinstance(coefficients, Coefficients):
        raise ValueError(f"coefficients: Coefficients expected, got {type(coefficients).__name__}")
    lists, begin = as_frames(frames, first)
    if begin != first:
        raise ValueError(f"frames: from plane {begin} on, but the range begins at {first}")
    found = _core.field_calibrate_coefficients(
        as_table(table), lists, coefficients, begin, as_count(last, "last")
    )
    return Coefficients(**found)


def _ranges(ranges: ArrayLike | None) -> NDArray[np.int32]:
    if ranges is None:
        return np.empty((0, 2), np.int32)
    array = np.asarray(ranges)
    if array.size == 0:
        return np.empty((0, 2), np.int32)
    if (
        array.ndim != 2
        or array.shape[1] != 2
        or array.shape[0] > 20
        or array.dtype.kind not in "iu"
    ):
        raise ValueError(f"ranges: (R, 2) whole numbers, at most 20, expected, got {array.shape}")
    if array.min() < 0 or array.max() >= MOST_PLANES:
        raise ValueError(f"ranges: planes 0 to {MOST_PLANES - 1}")
    return np.ascontiguousarray(array, np.int32)


def _same_bits(a: Floats, b: Floats) -> bool:
    if a.shape != b.shape:
        return False
    both_nan = np.isnan(a) & np.isnan(b)
    same = np.ascontiguousarray(a).view(np.int64) == np.ascontiguousarray(b).view(np.int64)
    return bool((same | both_nan).all())
