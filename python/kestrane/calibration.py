"""The factory and the field calibration as they are: no screening, no judgement."""

from __future__ import annotations

from collections.abc import Callable
from dataclasses import dataclass
from typing import Any

import numpy as np
from numpy.typing import ArrayLike, NDArray

from kestrane import _core
from kestrane._inputs import (
    Clouds,
    as_clouds,
    as_count,
    as_frames,
    as_numbers,
    as_plane,
    as_threads,
)
from kestrane.tables import PlaneTable

__all__ = [
    "FactoryResult",
    "FieldResult",
    "JobSettings",
    "distances",
    "factory_calibrate",
    "field_calibrate",
]

Floats = NDArray[np.float64]


@dataclass(frozen=True)
class JobSettings:
    """What `factory_calibrate` was asked for."""

    optimise: bool = False
    far: bool = False


@dataclass(frozen=True, eq=False, repr=False, kw_only=True)
class FactoryResult:
    """What a factory calibration leaves; P is the number of planes.

    A plane that failed has an empty row in the table (all 0), NaN in indicators and corners, and
    its status.
    """

    table: PlaneTable
    status: NDArray[np.int32]
    """(P,): 0 for a plane that was calibrated."""
    indicators: Floats
    """(P, 15, 50, 3): largest (signed), mean and standard deviation of the signed distances of a
    block's points; all 0 without points."""
    corners: Floats
    """(P, 16, 51, 3): x, y, z."""
    sectors_own: NDArray[np.bool_]
    """(P, 15): whether the sector has points of its own; otherwise it took a neighbour's plane."""
    settings: Any
    """What it was made with."""

    def __repr__(self) -> str:
        failed = np.flatnonzero(self.status).tolist()
        told = f"failed: {', '.join(map(str, failed))}" if failed else "all calibrated"
        return f"<{type(self).__name__} of {len(self.status)} planes, {told}>"


@dataclass(frozen=True, eq=False, repr=False, kw_only=True)
class FieldResult:
    """One rigid motion from the stored table to the device as it is: p lies at R p + t now."""

    R: Floats
    """(3, 3)"""
    t: Floats
    """(3,)"""
    quaternion: Floats
    """(4,): the rotation as x, y, z, w."""
    mean: float
    """Mean distance of the points of the last solve."""
    max: float
    """Their largest distance."""
    half_mean_deviation: float
    """Half of their mean absolute deviation."""

    def __repr__(self) -> str:
        return (
            f"<{type(self).__name__}: t {self.t.round(4).tolist()}, mean distance {self.mean:.4g}>"
        )


def factory_calibrate(
    clouds: Clouds,
    *,
    optimise: bool = False,
    far: bool = False,
    threads: int | None = None,
    on_plane: Callable[[int, int], None] | None = None,
    strict: bool = False,
) -> FactoryResult:
    """Calibrate a device from one cloud for each laser plane.

    Parameters
    ----------
    clouds : sequence or mapping from plane numbers
        A cloud is (n,) POINT, which is not copied, or (n, 3) x y z or (n, 4) x y z frame. Planes
        that a mapping does not have fail with status -7.
    optimise : bool
        Refine the corners against the points of each block, by up to 0.5 in x.
    far : bool
        Fit depths 220 to 1000 instead of 100 to 1000.
    threads : int, optional
        Planes that are worked on side by side; by default the cores that the process may use. The
        result does not depend on it.
    on_plane : callable, optional
        Called with plane and status, in plane order; what it raises stops the run.
    strict : bool
        Raise at the first plane that fails.

    Returns
    -------
    FactoryResult

    Raises
    ------
    ValueError
        No clouds, more than 100, another shape.
    CalibrationFailed, InvalidParameter
        With `strict`: a plane failed; the message names the likely cause.
    OutOfMemory
        Memory could not be had.
    """
    found = _core.factory_calibrate(
        as_clouds(clouds), bool(optimise), bool(far), as_threads(threads), on_plane, bool(strict)
    )
    table = PlaneTable._of(found.pop("table"))
    return FactoryResult(table=table, settings=JobSettings(bool(optimise), bool(far)), **found)


def field_calibrate(
    table: PlaneTable, frames: Clouds, *, first: int = 0, last: int | None = None
) -> FieldResult:
    """Find the rigid motion from a stored table to the device as it is now.

    Along a direction that all planes of the range share, the translation is arbitrary. The library
    writes two lines of the solver to standard output; see `kestrane.quiet`.

    Parameters
    ----------
    table : PlaneTable
        The standard; only read.
    frames : sequence or mapping from plane numbers
        The points of each plane with the number of their capture frame, as clouds of
        `factory_calibrate`; the first list of a sequence belongs to plane `first`.
    first, last : int
        The range of planes, both included; by default one plane for each list.

    Returns
    -------
    FieldResult

    Raises
    ------
    ValueError
        No list, another shape, planes that the table does not have.
    CountMismatch
        Not one list for each plane of the range.
    SolveFailed
        The last solve gave nothing usable.
    """
    lists, begin = as_frames(frames, first)
    end = begin + len(lists) - 1 if last is None else as_count(last, "last")
    return FieldResult(**_core.field_calibrate(as_table(table), lists, begin, end))


def distances(
    table: PlaneTable,
    plane: int,
    xyz: ArrayLike,
    R: ArrayLike | None = None,
    t: ArrayLike | None = None,
) -> Floats:
    """Distance of points from their blocks' planes, as the field calibration measures it.

    Parameters
    ----------
    table : PlaneTable
    plane : int
    xyz : (n, 3) real
    R : (3, 3) real, optional
    t : (3,) real, optional
        A motion of the table: coordinates of the table to those of the points. None by default.

    Returns
    -------
    (n,) float64
        Not signed; NaN for a point without a block that has a plane.

    Raises
    ------
    ValueError
        Another shape, or a plane that the table does not have.
    """
    rotation = np.eye(3) if R is None else as_numbers(R, "R", (3, 3))
    translation = np.zeros(3) if t is None else as_numbers(t, "t", (3,))
    points = as_numbers(xyz, "xyz", (None, 3))
    return _core.distances(as_table(table), as_plane(plane), points, rotation, translation)


def as_table(table: PlaneTable) -> PlaneTable:
    """The table itself; ValueError for anything else."""
    if not isinstance(table, PlaneTable):
        raise ValueError(f"table: a PlaneTable expected, got {type(table).__name__}")
    return table
