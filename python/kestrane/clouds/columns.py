"""From named columns of a file to clouds by plane.

In go the columns that a format's reader has found, as arrays of any real type; out come arrays of
`POINT`, one for each plane. The rules that all formats share stand here: which names are accepted,
which numbers are refused, and which plane a point belongs to.
"""

from __future__ import annotations

import os
import re
from collections.abc import Callable, Iterable, Mapping, Sequence
from dataclasses import dataclass, field
from typing import Any

import numpy as np
from numpy.typing import NDArray

from kestrane.points import POINT, NotWhole, whole_numbers

ROLES: Mapping[str, str] = {
    **{name: name for name in "xyz"},
    **dict.fromkeys(("frame", "frame_id", "id", "image", "pose", "scan"), "frame"),
    **dict.fromkeys(("plane", "plane_id", "laser", "line", "label", "ring"), "plane"),
}
"""What a column is, by its name in lower case."""

# Formats pad their records with fields of these names, as often as they like.
_NAMELESS = ("", "_", "-")


def roles_of(names: Sequence[str], path: str) -> dict[str, int]:
    """Find the columns that are needed.

    Returns
    -------
    dict
        x, y, z and, where there are such columns, frame and plane, each with its position.

    Raises
    ------
    ValueError
        x, y or z is missing, a name stands twice, or two names mean the same.
    """
    lower = [name.strip().lower() for name in names]
    seen: set[str] = set()
    found: dict[str, int] = {}
    for position, name in enumerate(lower):
        if name in _NAMELESS:
            continue
        if name in seen:
            raise ValueError(f"{path}: the column '{names[position]}' stands twice")
        seen.add(name)
        role = ROLES.get(name)
        if role is None:
            continue
        if role in found:
            raise ValueError(
                f"{path}: the columns '{names[found[role]]}' and '{names[position]}' both tell the "
                f"{role}; name the columns (columns=, --columns) and leave one out"
            )
        found[role] = position
    missing = [name for name in "xyz" if name not in found]
    if missing:
        raise ValueError(
            f"{path}: no column {', '.join(missing)}; its columns are "
            f"{', '.join(names) if names else 'none'}"
        )
    return found


def renamed(names: Sequence[str], columns: Sequence[str] | None, path: str) -> Sequence[str]:
    """Names that the caller gives in place of the file's own, one for each column."""
    if columns is None:
        return names
    if len(columns) != len(names):
        raise ValueError(
            f"{path}: {len(columns)} column names are given ({','.join(columns)}), the file has "
            f"{len(names)} columns"
        )
    return columns


def split_names(columns: str | Iterable[str] | None) -> list[str] | None:
    """The caller's names of columns: ``"plane,frame,x,y,z"``, or a sequence of names."""
    if columns is None:
        return None
    names = columns.split(",") if isinstance(columns, str) else list(columns)
    return [name.strip() for name in names]


@dataclass(frozen=True)
class Part:
    """Points as a file holds them, before they are sorted by plane.

    Attributes
    ----------
    path : str
        The file, and the array in it where it holds several.
    columns : dict of (n,) arrays
        x, y, z and perhaps frame and plane, of any real type.
    where : callable
        Tells where a row stands, ``"line 17"``.
    plane : int or None
        The plane of all points, where the file tells it outside its columns.
    """

    path: str
    columns: Mapping[str, NDArray[Any]]
    where: Callable[[int], str] = field(default=lambda row: f"row {row} (counted from 0)")
    plane: int | None = None


def clouds_of(part: Part, plane: int | None, unit: float) -> dict[int, NDArray[Any]]:
    """Sort the points of one part by plane.

    Parameters
    ----------
    part : Part
        What a reader has found.
    plane : int or None
        The plane of the points where the part does not tell it; None makes it an error.
    unit : float
        The factor of all coordinates.

    Returns
    -------
    dict
        By ascending plane, arrays of POINT in the order of the file. A part without points and
        without a column of planes is its plane with no points.

    Raises
    ------
    ValueError
        A number that is refused, with its place, or no plane.
    """
    columns = part.columns
    frames = _whole(part, "frame") if "frame" in columns else None
    planes = _whole(part, "plane") if "plane" in columns else None
    if planes is not None and part.plane is not None and not (planes == part.plane).all():
        row = int(np.flatnonzero(planes != part.plane)[0])
        raise ValueError(
            f"{part.path}: {part.where(row)}: plane {planes[row]} in an array of plane {part.plane}"
        )
    rows: dict[int, Any]
    if planes is not None:
        rows = rows_by_plane(planes)
    elif part.plane is not None:
        rows = {part.plane: slice(None)}
    elif plane is not None:
        rows = {plane: slice(None)}
    else:
        raise ValueError(
            f"{part.path}: neither a column of planes nor a number in the name tells the plane; "
            "give it (plane=, --plane)"
        )
    return {number: _records(part, chosen, frames, unit) for number, chosen in rows.items()}


def rows_by_plane(planes: NDArray[np.int32]) -> dict[int, Any]:
    """The rows of every plane, as a slice where they are neighbours, else as indices."""
    if planes.size == 0:
        return {}
    low, high = int(planes.min()), int(planes.max())
    if low == high:
        return {low: slice(None)}
    starts = np.flatnonzero(planes[1:] != planes[:-1]) + 1
    first = planes[np.append(0, starts)]
    if first.size == np.unique(first).size:
        bounds = [0, *starts.tolist(), planes.size]
        runs = {int(first[k]): slice(bounds[k], bounds[k + 1]) for k in range(first.size)}
        return dict(sorted(runs.items()))
    # Few planes: a key of 8 or 16 bits sorts by counting.
    span = high - low
    key = planes.astype(np.int64) - low
    if span < 1 << 16:
        key = key.astype(np.uint8 if span < 1 << 8 else np.uint16)
    order = np.argsort(key, kind="stable")
    numbers, begins = np.unique(planes[order], return_index=True)
    ends = [*begins[1:].tolist(), planes.size]
    return {int(n): order[b:e] for n, b, e in zip(numbers, begins.tolist(), ends, strict=True)}


# Points that are laid out and checked at a time: their columns stay in the processor's cache.
_BLOCK = 1 << 14


def _records(part: Part, rows: Any, frames: NDArray[np.int32] | None, unit: float) -> NDArray[Any]:
    columns = part.columns
    if isinstance(rows, slice):
        begin, end, _ = rows.indices(columns["x"].size)
    else:
        begin, end = 0, rows.size
    records = np.empty(end - begin, POINT)
    # The record ends with four bytes that no field covers; equal points are equal bytes.
    padding = records.view(np.int32).reshape(-1, POINT.itemsize // 4)[:, -1]
    for start in range(begin, end, _BLOCK):
        stop = min(start + _BLOCK, end)
        chosen = slice(start, stop) if isinstance(rows, slice) else rows[start:stop]
        block = records[start - begin : stop - begin]
        with np.errstate(over="ignore"):
            for name in "xyz":
                block[name] = columns[name][chosen]
                if unit != 1.0:
                    block[name] *= unit
        block["id"] = 0 if frames is None else frames[chosen]
        padding[start - begin : stop - begin] = 0
        refused = first_refused(block)
        if refused is not None:
            row = start + refused if isinstance(rows, slice) else int(chosen[refused])
            raise ValueError(f"{part.path}: {part.where(row)}: {_why(block[refused])}")
    return records


def first_refused(records: NDArray[Any]) -> int | None:
    """The first row that is neither a measured point nor a dropped one; None where there is none.

    An x that is not a number is a dropped point whatever y and z are.
    """
    known = np.isfinite(records["x"])
    known &= np.isfinite(records["y"])
    known &= np.isfinite(records["z"])
    if known.all():
        return None
    refused = np.flatnonzero(~(known | np.isnan(records["x"])))
    return int(refused[0]) if refused.size else None


def _why(record: Any) -> str:
    name = next(name for name in "xyz" if not np.isfinite(record[name]))
    return f"{name} is {record[name]}; only an x that is nan is a dropped point"


def _whole(part: Part, role: str) -> NDArray[np.int32]:
    try:
        return whole_numbers(part.columns[role], role)
    except NotWhole as error:
        raise ValueError(f"{part.path}: {part.where(error.row)}: {error}") from None
    except ValueError as error:
        raise ValueError(f"{part.path}: {error}") from None


def merged(clouds: Sequence[tuple[str, dict[int, NDArray[Any]]]]) -> dict[int, NDArray[Any]]:
    """Lay the clouds of several parts together.

    Points of one plane may come from several files as long as no capture frame does: equal
    numbers of different captures would be taken for one.

    Parameters
    ----------
    clouds : sequence of (path, clouds)
        In the order in which points are laid together.

    Raises
    ------
    ValueError
        A frame of a plane stands in two files.
    """
    parts: dict[int, list[tuple[str, NDArray[Any]]]] = {}
    for path, by_plane in clouds:
        for plane, cloud in by_plane.items():
            parts.setdefault(plane, []).append((path, cloud))
    for plane, pieces in parts.items():
        owner: dict[int, str] = {}
        for path, cloud in pieces if len(pieces) > 1 else ():
            for frame in np.unique(cloud["id"]).tolist():
                if frame in owner:
                    raise ValueError(
                        f"{path}: frame {frame} of plane {plane} stands in {owner[frame]} as well"
                    )
                owner[frame] = path
    return {
        plane: pieces[0][1]
        if len(pieces) == 1
        else np.concatenate([cloud for _, cloud in pieces]).astype(POINT)
        for plane, pieces in sorted(parts.items())
    }


_AFTER_A_WORD = re.compile(r"(?:plane|laser|line|ring|label)[ _.-]?(\d+)", re.IGNORECASE | re.ASCII)
_ANY_NUMBER = re.compile(r"\d+", re.ASCII)


def plane_in_name(path: str, *, any_number: bool) -> int | None:
    """The plane that a file's name tells: ``plane_07.ply`` is plane 7.

    Parameters
    ----------
    path : str
        The file.
    any_number : bool
        Whether a lone number without a word is taken too: ``scan 7.ply``.

    Raises
    ------
    ValueError
        Several numbers, of which none follows a word for a plane.
    """
    stem = os.path.splitext(os.path.basename(path))[0]
    numbers = _AFTER_A_WORD.findall(stem)
    if not numbers and any_number:
        numbers = _ANY_NUMBER.findall(stem)
    if len(set(map(int, numbers))) > 1:
        raise ValueError(
            f"{path}: {', '.join(numbers)} in the name: which one is the plane? "
            "Name the file plane_N, or give it a column of planes"
        )
    return int(numbers[0]) if numbers else None
