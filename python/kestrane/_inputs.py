"""What a caller hands in, brought to the very form that `_core` takes.

In go clouds, tables' settings and paths as people write them; out come contiguous `POINT` arrays,
numbers in range and paths as bytes. Validation happens here, once; what follows trusts it. A
contiguous `POINT` array is taken as it is, read-only or not; all else is converted once.
"""

from __future__ import annotations

import os
from collections.abc import Iterable, Mapping, Sequence
from typing import Any, TypeAlias

import numpy as np
from numpy.typing import ArrayLike, NDArray

from kestrane.points import POINT, points

MOST_PLANES = 100

Path: TypeAlias = str | os.PathLike[str]
Cloud: TypeAlias = ArrayLike
Clouds: TypeAlias = Sequence[Any] | Mapping[int, Any]


def as_cloud(value: Cloud, name: str) -> NDArray[Any]:
    """(n,) POINT of a (n,) POINT, a (n, 3) x y z or a (n, 4) x y z frame."""
    if isinstance(value, np.ma.MaskedArray):
        raise ValueError(f"{name}: a masked array; mark dropped points by an x that is NaN")
    array = np.asarray(value)
    if array.dtype == POINT:
        if array.ndim != 1:
            raise ValueError(f"{name}: shape (n,) expected, got {array.shape}")
        if array.flags.c_contiguous and array.flags.aligned:
            return array
        return np.array(array, POINT)
    if array.dtype.names is not None:
        raise ValueError(f"{name}: POINT or numbers expected, got {array.dtype}")
    if array.ndim == 1 and array.size == 0:
        return np.empty(0, POINT)
    if array.ndim != 2 or array.shape[1] not in (3, 4):
        raise ValueError(f"{name}: (n,) POINT, (n, 3) or (n, 4) expected, got shape {array.shape}")
    try:
        return points(array[:, :3], array[:, 3] if array.shape[1] == 4 else 0)
    except ValueError as error:
        raise ValueError(f"{name}: {error}") from None


def as_clouds(clouds: Clouds, name: str = "clouds") -> list[NDArray[Any]]:
    """One cloud for each plane from 0 on; planes that a mapping does not have are empty."""
    if isinstance(clouds, Mapping):
        numbers = [as_plane(plane) for plane in clouds]
        laid = [np.empty(0, POINT) for _ in range(max(numbers, default=-1) + 1)]
        for plane, cloud in zip(numbers, clouds.values(), strict=True):
            laid[plane] = as_cloud(cloud, f"{name}[{plane}]")
    else:
        given = _as_sequence(clouds, name)
        if len(given) > MOST_PLANES:
            raise ValueError(f"{name}: at most {MOST_PLANES} planes, not {len(given)}")
        laid = [as_cloud(cloud, f"{name}[{plane}]") for plane, cloud in enumerate(given)]
    if not laid:
        raise ValueError(f"{name}: none are given")
    return laid


def as_frames(frames: Clouds, first: int, name: str = "frames") -> tuple[list[NDArray[Any]], int]:
    """Lists of a range of planes, and the plane of the first; a mapping says that by itself."""
    if isinstance(frames, Mapping):
        if not frames:
            raise ValueError(f"{name}: none are given")
        numbers = sorted(as_plane(plane) for plane in frames)
        by_plane = {as_plane(plane): cloud for plane, cloud in frames.items()}
        first = numbers[0]
        given = [by_plane.get(plane, np.empty(0, POINT)) for plane in range(first, numbers[-1] + 1)]
    else:
        given = list(_as_sequence(frames, name))
        if not given:
            raise ValueError(f"{name}: none are given")
        if len(given) > MOST_PLANES:
            raise ValueError(f"{name}: at most {MOST_PLANES} planes, not {len(given)}")
    laid = [as_cloud(cloud, f"{name}[{plane}]") for plane, cloud in enumerate(given)]
    return laid, as_plane(first, "first")


def as_plane(value: Any, name: str = "plane") -> int:
    """A plane number, 0 to 99."""
    plane = as_count(value, name)
    if plane >= MOST_PLANES:
        raise ValueError(f"{name}: 0 to {MOST_PLANES - 1} expected, got {plane}")
    return plane


def as_count(value: Any, name: str, least: int = 0, most: int = 2**31 - 1) -> int:
    """A whole number within bounds."""
    if isinstance(value, (bool, np.bool_)) or not isinstance(value, (int, np.integer)):
        raise ValueError(f"{name}: a whole number expected, got {value!r}")
    number = int(value)
    if not least <= number <= most:
        raise ValueError(f"{name}: {least} to {most} expected, got {number}")
    return number


def as_threads(threads: int | None) -> int:
    """How many planes are worked on side by side; None for the cores that this process may use."""
    if threads is None:
        return max(len(os.sched_getaffinity(0)), 1)
    return as_count(threads, "threads", least=1, most=1024)


def as_numbers(values: ArrayLike, name: str, shape: tuple[int | None, ...]) -> NDArray[np.float64]:
    """A contiguous float64 array of this shape; None stands for any length."""
    if isinstance(values, np.ma.MaskedArray):
        raise ValueError(f"{name}: a masked array")
    array = np.asarray(values)
    if array.dtype.kind not in "iuf":
        raise ValueError(f"{name}: real numbers expected, got {array.dtype}")
    fits = array.ndim == len(shape) and all(
        wanted is None or length == wanted
        for length, wanted in zip(array.shape, shape, strict=True)
    )
    if not fits:
        wanted_text = ", ".join("n" if length is None else str(length) for length in shape)
        raise ValueError(f"{name}: shape ({wanted_text}) expected, got {array.shape}")
    return np.ascontiguousarray(array, np.float64)


def as_path(path: Path) -> bytes:
    """A path as the bytes that the system knows it by."""
    name = os.fsencode(path)
    if b"\0" in name:
        raise ValueError("a path holds no null character")
    return name


def _as_sequence(values: Iterable[Any], name: str) -> Sequence[Any]:
    if isinstance(values, (str, bytes)) or not isinstance(values, Iterable):
        raise ValueError(f"{name}: a sequence or a mapping from plane numbers expected")
    if isinstance(values, np.ndarray) and (values.ndim == 0 or not _holds_clouds(values)):
        raise ValueError(f"{name}: one cloud for each plane expected, not a single array")
    return values if isinstance(values, Sequence) else list(values)


def _holds_clouds(values: NDArray[Any]) -> bool:
    return values.dtype == object or (values.dtype.names is None and values.ndim >= 3)
