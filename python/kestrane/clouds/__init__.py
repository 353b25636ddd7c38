"""Point clouds in files: CSV, NPY, NPZ, PLY and PCD, one file, several, or a folder.

``read`` returns all points of a file, sorted by plane, or raises; ``write`` writes what ``read``
reads. A file is known by its suffix and then checked by its content.

=========================  ============================================================
.csv, .txt, .xyz           names in a header line, fields between ``,`` ``;`` tab or blanks
.npy                       records with these names, or (n, 3) x y z, (n, 4) x y z frame,
                           (n, 5) plane frame x y z
.npz                       an array for each plane (``plane_007`` or ``7``), or the arrays
                           ``points``, ``frame`` and ``plane``
.ply                       text or binary of either byte order, the element ``vertex``
.pcd                       text, binary, binary compressed
=========================  ============================================================

Names, in any case: ``x`` ``y`` ``z``; ``frame`` ``frame_id`` ``id`` ``image`` ``pose`` ``scan``;
``plane`` ``plane_id`` ``laser`` ``line`` ``label`` ``ring``. Without a column of frames all points
are of frame 0. Coordinates are taken as they are but for the factor `unit`: no unit is guessed, no
bad row is left out. An x that is not a number is a dropped point, whatever its y and z.
"""

from __future__ import annotations

import math
import os
from collections.abc import Callable, Iterable, Mapping, Sequence
from typing import Any

import numpy as np
from numpy.typing import NDArray

from kestrane._output import replacing
from kestrane.clouds import csv, npy, pcd, ply
from kestrane.clouds.columns import (
    Part,
    clouds_of,
    first_refused,
    merged,
    plane_in_name,
    split_names,
)
from kestrane.errors import FileOpenError
from kestrane.points import POINT, points

__all__ = ["SUFFIXES", "read", "write"]

Path = str | os.PathLike[str]
_Parser = Callable[[bytes, str, Sequence[str] | None], list[Part]]

_PARSERS: Mapping[str, _Parser] = {
    ".csv": csv.parse,
    ".txt": csv.parse,
    ".xyz": csv.parse,
    ".npy": npy.parse,
    ".npz": npy.parse_archive,
    ".ply": ply.parse,
    ".pcd": pcd.parse,
}
SUFFIXES = tuple(_PARSERS)
"""Suffixes of the files that can be read and written, in lower case."""

_FORMS = {".ply": ("binary", "big", "ascii"), ".pcd": ("binary", "compressed", "ascii")}


def read(
    path: Path | Sequence[Path],
    *,
    plane: int | None = None,
    columns: str | Sequence[str] | None = None,
    unit: float = 1.0,
) -> dict[int, NDArray[Any]]:
    """Read the points of a file, of several files, or of all known files of a folder.

    Parameters
    ----------
    path : path or sequence of paths
        A file, a folder (its files with a known suffix, by name; no folders in it), or several
        of both.
    plane : int, optional
        The plane of points where the file does not tell it. A file tells it in a column, in the
        name of an array, or in its own name: ``plane_07.ply``, among several files also a lone
        number. A single file without any of these is plane 0.
    columns : str or sequence of str, optional
        Names of all columns in the order of the file, ``"plane,frame,x,y,z"``, in place of those
        that the file has. Columns with other names are left out.
    unit : float
        The factor that brings the coordinates to the unit of the calibration, 1000.0 for metres.

    Returns
    -------
    dict
        plane number -> (n,) POINT, ascending, in the order of the file.

    Raises
    ------
    FileOpenError
        A file cannot be opened or read.
    DamagedFile
        A file is cut or malformed, with line or byte; a ValueError as well.
    ValueError
        Names, types or numbers that are refused, with file and line or row: x, y or z missing, a
        name twice, numbers of frames or planes that are not whole or outside int32, an infinite x,
        or y, z that are not finite beside a number in x.
    """
    if not math.isfinite(unit) or unit <= 0.0:
        raise ValueError(f"unit: a positive factor expected, got {unit}")
    names = split_names(columns)
    single = isinstance(path, (str, os.PathLike)) and not os.path.isdir(path)
    listed: Sequence[Path] = [path] if isinstance(path, (str, os.PathLike)) else list(path)
    single = single or (len(listed) == 1 and not os.path.isdir(listed[0]))
    files = [file for entry in listed for file in _files_of(entry)]
    if not files:
        raise ValueError("no file to read")
    clouds = []
    for file in files:
        fallback = _fallback_plane(file, plane, single)
        for part in _parts_of(file, names):
            clouds.append((part.path, clouds_of(part, fallback, unit)))
    return merged(clouds)


def write(
    path: Path,
    clouds: Mapping[int, NDArray[Any]] | Sequence[NDArray[Any]],
    *,
    form: str | None = None,
) -> None:
    """Write clouds to one file, which appears whole or not at all.

    Parameters
    ----------
    path : path
        The suffix decides on the format.
    clouds : mapping or sequence
        plane number -> (n,) POINT or (n, 3) real; a sequence is numbered from 0.
    form : str, optional
        ``"binary"``, ``"big"`` (big endian) or ``"ascii"`` for PLY, ``"binary"``, ``"compressed"``
        or ``"ascii"`` for PCD; binary where none is given.

    Raises
    ------
    FileOpenError
        The file cannot be written; an old one is intact.
    ValueError
        An unknown suffix or form, or clouds that `read` would refuse.

    Notes
    -----
    All digits are kept in every format. A plane without points leaves nothing in the file.
    """
    name = os.fspath(path)
    suffix = _suffix_of(name)
    form = _checked_form(suffix, form)
    cloud, planes = _laid_together(clouds)
    with replacing(name) as file:
        if suffix == ".npy":
            np.save(file, npy.records(cloud, planes))
        elif suffix == ".npz":
            npy.write_archive(file, cloud, planes)
        else:
            for piece in _encoded(suffix, cloud, planes, form):
                file.write(piece)


def _files_of(entry: Path) -> list[str]:
    name = os.fspath(entry)
    if not os.path.isdir(name):
        return [name]
    try:
        held = sorted(os.listdir(name))
    except OSError as error:
        raise FileOpenError(path=name, errno=error.errno, call="read") from None
    found = [
        os.path.join(name, file)
        for file in held
        if not file.startswith(".")
        and os.path.splitext(file)[1].lower() in _PARSERS
        and not os.path.isdir(os.path.join(name, file))
    ]
    if not found:
        raise ValueError(f"{name}: no file with a suffix of {' '.join(SUFFIXES)} in this folder")
    return found


def _fallback_plane(file: str, plane: int | None, single: bool) -> int | None:
    if not single:
        told = plane_in_name(file, any_number=True)
        return plane if told is None else told
    if plane is not None:
        return plane
    told = plane_in_name(file, any_number=False)
    return 0 if told is None else told


def _parts_of(file: str, names: Sequence[str] | None) -> list[Part]:
    parser = _PARSERS[_suffix_of(file)]
    try:
        with open(file, "rb") as opened:
            data = opened.read()
    except OSError as error:
        raise FileOpenError(path=file, errno=error.errno, call="read") from None
    return parser(data, file, names)


def _suffix_of(name: str) -> str:
    suffix = os.path.splitext(name)[1].lower()
    if suffix not in _PARSERS:
        raise ValueError(f"{name}: its suffix is not one of {' '.join(SUFFIXES)}")
    return suffix


def _checked_form(suffix: str, form: str | None) -> str:
    known = _FORMS.get(suffix, ())
    if form is None:
        return "binary"
    if form not in known:
        raise ValueError(f"form: {form!r} is not one of {', '.join(known) or 'none'} for {suffix}")
    return form


def _laid_together(
    clouds: Mapping[int, NDArray[Any]] | Sequence[NDArray[Any]],
) -> tuple[NDArray[Any], NDArray[np.int32]]:
    by_plane = dict(clouds) if isinstance(clouds, Mapping) else dict(enumerate(clouds))
    for number in by_plane:
        if isinstance(number, bool) or not -(2**31) <= number < 2**31:
            raise ValueError(f"plane {number!r}: a number within int32 expected")
    records = {number: _as_points(cloud, number) for number, cloud in sorted(by_plane.items())}
    for number, cloud in records.items():
        row = first_refused(cloud)
        if row is not None:
            raise ValueError(f"plane {number}: row {row} (counted from 0) is {cloud[row].item()}")
    planes = np.repeat(
        np.array(list(records), np.int32), [cloud.size for cloud in records.values()]
    )
    return np.concatenate([np.zeros(0, POINT), *records.values()]).astype(POINT), planes


def _as_points(cloud: Any, number: int) -> NDArray[Any]:
    array = np.asarray(cloud)
    if array.dtype == POINT:
        if array.ndim != 1:
            raise ValueError(f"plane {number}: shape (n,) expected, got {array.shape}")
        return array
    return points(array)


def _encoded(
    suffix: str, cloud: NDArray[Any], planes: NDArray[np.int32], form: str
) -> Iterable[bytes]:
    if suffix == ".ply":
        return ply.encode(cloud, planes, form)
    if suffix == ".pcd":
        return pcd.encode(cloud, planes, form)
    return csv.lines(cloud, planes, "," if suffix == ".csv" else " ")
