"""The record of a measured point.

In go coordinates in the frame of the scanner (x across the sheets, y along a laser line, z depth,
in the unit of the scan) and the numbers of the capture frames; out comes one array of records in
the memory layout of the C++ library, which takes it without a copy.
"""

from __future__ import annotations

from typing import Any

import numpy as np
from numpy.typing import ArrayLike, NDArray

__all__ = ["POINT", "points", "whole_numbers"]

POINT: np.dtype[Any] = np.dtype(
    [("x", "<f8"), ("y", "<f8"), ("z", "<f8"), ("id", "<i4")], align=True
)
"""A measured point, 32 bytes: x, y, z (float64) and id (int32), the number of its capture frame."""

_INT32 = np.iinfo(np.int32)


def points(xyz: ArrayLike, frames: ArrayLike = 0) -> NDArray[Any]:
    """Lay coordinates and frame numbers out as records.

    Parameters
    ----------
    xyz : (n, 3) real
        x, y, z of every point in the unit of the scan; an x that is NaN is a dropped point.
    frames : int or (n,) int
        The capture frame of every point, or of all of them; within int32.

    Returns
    -------
    (n,) POINT
        A new array that owns its memory.

    Raises
    ------
    ValueError
        Another shape, numbers that are not real, frames that are not whole numbers within int32.
    """
    coordinates = np.asarray(xyz)
    if coordinates.ndim != 2 or coordinates.shape[1] != 3:
        raise ValueError(f"xyz: shape (n, 3) expected, got {coordinates.shape}")
    if coordinates.dtype.kind not in "iuf":
        raise ValueError(f"xyz: real numbers expected, got {coordinates.dtype}")
    numbers = np.asarray(frames)
    if numbers.shape not in ((), coordinates.shape[:1]):
        raise ValueError(
            f"frames: one number, or one for each of the {coordinates.shape[0]} points, expected, "
            f"got shape {numbers.shape}"
        )
    records = np.zeros(coordinates.shape[0], POINT)
    records["id"] = whole_numbers(numbers, "frames")
    for column, name in enumerate("xyz"):
        records[name] = coordinates[:, column]
    return records


def whole_numbers(values: NDArray[Any], name: str) -> NDArray[np.int32]:
    """Bring numbers to int32 without changing any.

    Parameters
    ----------
    values : real array of any shape
        Whole numbers, of an integer or a floating type.
    name : str
        What they are, for the message.

    Returns
    -------
    int32 array of the same shape

    Raises
    ------
    ValueError
        A number that is not whole or not within int32, with the index of the first one.
    """
    if values.dtype == np.int32:
        return values
    if values.dtype.kind not in "iuf":
        raise ValueError(f"{name}: whole numbers expected, got {values.dtype}")
    if values.dtype.kind == "f":
        values = values.astype(np.float64)  # a shorter type would round the bounds
    # Not a number fails every comparison, so it is refused with the numbers that are too large.
    fits = (values >= _INT32.min) & (values <= _INT32.max)
    if values.dtype.kind == "f":
        fits &= values == np.rint(values)
    if not fits.all():
        first = int(np.flatnonzero(~np.atleast_1d(fits))[0])
        value = np.atleast_1d(values)[first]
        raise NotWhole(f"{name}: {value} is not a whole number within int32", first)
    return values.astype(np.int32)


class NotWhole(ValueError):
    """A number that should be whole and within int32; `row` is its index."""

    def __init__(self, message: str, row: int) -> None:
        super().__init__(message)
        self.row = row
