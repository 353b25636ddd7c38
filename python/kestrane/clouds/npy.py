"""NumPy's files: one array (.npy), or a ZIP archive of arrays (.npz).

The headers are read here and not by NumPy, whose own reader may try to evaluate an old one and
leaves more than one kind of exception to whoever hands it a damaged file. Nothing is ever
unpickled.
"""

from __future__ import annotations

import ast
import io
import math
import re
import struct
import zipfile
import zlib
from collections.abc import Sequence
from typing import Any, BinaryIO

import numpy as np
from numpy.typing import NDArray

from kestrane.clouds.columns import Part, renamed, roles_of
from kestrane.errors import DamagedFile

_NPY: Any = np.lib.format  # without annotations in NumPy 1.24
_MAGIC = b"\x93NUMPY"
_COLUMNS_BY_WIDTH = {
    3: ("x", "y", "z"),
    4: ("x", "y", "z", "frame"),
    5: ("plane", "frame", "x", "y", "z"),
}
_PLANE_NAME = re.compile(r"(?:plane[_-]?)?(\d{1,9})", re.IGNORECASE | re.ASCII)
# Deflate cannot shrink more than this: a larger claim is damage, and no memory is asked for it.
_LARGEST_RATIO = 1040
# The last record of an archive, 22 bytes and a comment.
_END_OF_ARCHIVE = b"PK\x05\x06"
_END_SIZE = 22


def parse(data: bytes, path: str, columns: Sequence[str] | None) -> list[Part]:
    """Read the points of one array.

    A structured array has its columns by name; (n, 3) holds x, y, z, (n, 4) x, y, z, frame, and
    (n, 5) plane, frame, x, y, z.

    Raises
    ------
    DamagedFile
        The file is cut, has bytes after the array, or a malformed header.
    ValueError
        An array of another shape or of other than real numbers.
    """
    return [_part_of(array_in(data, path), path, columns)]


def parse_archive(data: bytes, path: str, columns: Sequence[str] | None) -> list[Part]:
    """Read the points of an archive.

    Either one array for each plane, named ``plane_007`` or ``7``, each as `parse` reads it; or the
    array ``points`` with ``frame`` and ``plane`` beside it where they are known.

    Raises
    ------
    DamagedFile
        The archive or an array in it is cut or altered.
    ValueError
        No such arrays, or arrays that do not fit together.
    """
    with _opened(data, path) as archive:
        names = [name.removesuffix(".npy") for name in archive.namelist()]
        twice = {name for name in names if names.count(name) > 1}
        if twice:
            raise ValueError(f"{path}: the array '{sorted(twice)[0]}' stands twice")
        if "points" in names:
            return [_points_part(archive, names, data, path, columns)]
        return _plane_parts(archive, names, data, path, columns)


def arrays_in(data: bytes, path: str) -> dict[str, NDArray[Any]]:
    """All arrays of an archive by their names, checked and read-only; nothing is unpickled.

    Raises
    ------
    DamagedFile
        The archive or an array in it is cut or altered.
    ValueError
        A name stands twice, or an array of objects.
    """
    with _opened(data, path) as archive:
        names = [name.removesuffix(".npy") for name in archive.namelist()]
        if len(set(names)) != len(names):
            raise ValueError(f"{path}: an array stands twice")
        return {name: _member(archive, name, data, path) for name in names}


def _points_part(
    archive: zipfile.ZipFile,
    names: list[str],
    data: bytes,
    path: str,
    columns: Sequence[str] | None,
) -> Part:
    planes = [name for name in names if _PLANE_NAME.fullmatch(name)]
    if planes:
        raise ValueError(f"{path}: holds 'points' and '{planes[0]}': which one are the points?")
    part = _part_of(_member(archive, "points", data, path), f"{path}: points", columns)
    found = dict(part.columns)
    for role in ("frame", "plane"):
        if role not in names:
            continue
        if role in found:
            raise ValueError(f"{path}: 'points' has a column {role}, and there is '{role}' as well")
        values = _member(archive, role, data, path)
        if values.shape != found["x"].shape:
            raise ValueError(
                f"{path}: '{role}' has the shape {values.shape}, not one number for each of the "
                f"{found['x'].size} points"
            )
        found[role] = values
    return Part(path, found, part.where)


def _plane_parts(
    archive: zipfile.ZipFile,
    names: list[str],
    data: bytes,
    path: str,
    columns: Sequence[str] | None,
) -> list[Part]:
    parts: dict[int, Part] = {}
    for name in names:
        told = _PLANE_NAME.fullmatch(name)
        if told is None:
            raise ValueError(
                f"{path}: the array '{name}' is neither 'points' nor named after a plane (plane_007)"
            )
        plane = int(told[1])
        if plane in parts:
            raise ValueError(f"{path}: two arrays of plane {plane}")
        place = f"{path}: {name}"
        part = _part_of(_member(archive, name, data, path), place, columns)
        parts[plane] = Part(place, part.columns, part.where, plane)
    if not parts:
        raise ValueError(f"{path}: an archive without an array")
    return list(parts.values())


def _part_of(array: NDArray[Any], path: str, columns: Sequence[str] | None) -> Part:
    if array.dtype.names is not None:
        if array.ndim != 1:
            raise ValueError(f"{path}: records of the shape {array.shape}; (n,) expected")
        fields = array.dtype.names
        wanted = roles_of(renamed(fields, columns, path), path)
        found = {role: array[fields[position]] for role, position in wanted.items()}
    else:
        names = _COLUMNS_BY_WIDTH.get(array.shape[1]) if array.ndim == 2 else None
        if array.ndim != 2 or (names is None and columns is None):
            raise ValueError(
                f"{path}: the shape {array.shape}; (n, 3) x y z, (n, 4) x y z frame or (n, 5) "
                "plane frame x y z expected"
            )
        own = names if names is not None else [str(k) for k in range(array.shape[1])]
        wanted = roles_of(renamed(own, columns, path), path)
        found = {role: array[:, position] for role, position in wanted.items()}
    for role, column in found.items():
        if column.dtype.kind not in "iuf" or column.ndim != 1:
            raise ValueError(f"{path}: {role} is {column.dtype}; real numbers expected")
    return Part(path, found)


def array_in(data: bytes | memoryview, path: str) -> NDArray[Any]:
    """The array of a .npy file, over its bytes and read-only.

    Raises
    ------
    DamagedFile
        A malformed header, or a number of bytes that does not match it.
    ValueError
        An array of objects.
    """
    view = memoryview(data)
    start, dtype, shape, fortran = _read_header(view, path)
    count = math.prod(shape)
    size = count * dtype.itemsize
    have = len(view) - start
    if have != size:
        what = f"cut at byte {len(view)}" if have < size else f"byte {start + size}"
        raise DamagedFile(
            path, f"{what}: {have} bytes of data where the shape {shape} of {dtype} has {size}"
        )
    if size == 0:
        return np.zeros(shape, dtype)
    flat = np.frombuffer(view, dtype, count, start)
    return flat.reshape(shape, order="F" if fortran else "C")


def _read_header(view: memoryview, path: str) -> tuple[int, np.dtype[Any], tuple[int, ...], bool]:
    if bytes(view[:6]) != _MAGIC:
        raise DamagedFile(path, "byte 0: not a NumPy array")
    if len(view) < 12:
        raise DamagedFile(path, f"cut at byte {len(view)}, in the header")
    version = view[6]
    if version not in (1, 2, 3):
        raise DamagedFile(path, f"byte 6: version {version} of the format is not known")
    field, length_format = (10, "<H") if version == 1 else (12, "<I")
    start = field + struct.unpack_from(length_format, view, 8)[0]
    if start > len(view):
        raise DamagedFile(path, f"cut at byte {len(view)}, in the header")
    if start > 1 << 20:
        raise DamagedFile(path, f"byte 8: a header of {start} bytes")
    text = bytes(view[field:start])
    if b"\\" in text:  # no name of a column needs one, and half an escape is only a warning
        raise DamagedFile(path, f"byte {field}: a backslash in the header")
    try:
        header = ast.literal_eval(text.decode("utf-8").strip())
        shape, fortran, descr = header["shape"], header["fortran_order"], header["descr"]
        dtype = _NPY.descr_to_dtype(descr)
    except Exception as error:  # a damaged header breaks in ways that none of these list
        raise DamagedFile(path, f"byte {field}: a malformed header ({error})") from None
    if not isinstance(fortran, bool) or not (
        isinstance(shape, tuple)
        and all(isinstance(n, int) and not isinstance(n, bool) and 0 <= n < 1 << 48 for n in shape)
        and len(shape) <= 32
    ):
        raise DamagedFile(path, f"byte {field}: the shape {shape} is not one")
    if dtype.hasobject:
        raise ValueError(f"{path}: an array of Python objects; numbers expected")
    return start, dtype, shape, fortran


_BROKEN_ARCHIVE = (
    zipfile.BadZipFile,
    zlib.error,
    struct.error,
    EOFError,
    OSError,
    OverflowError,
    NotImplementedError,  # a method of compression that is not known
    RuntimeError,  # encrypted
    ValueError,
    KeyError,
    IndexError,
    AttributeError,
)


def _opened(data: bytes, path: str) -> zipfile.ZipFile:
    if not data.startswith(b"PK"):
        raise DamagedFile(path, "byte 0: not a ZIP archive")
    try:
        archive = zipfile.ZipFile(io.BytesIO(data))
    except _BROKEN_ARCHIVE as error:
        raise DamagedFile(path, f"a damaged archive ({error})") from None
    end = data.rfind(_END_OF_ARCHIVE) + _END_SIZE + len(archive.comment)
    if end != len(data):
        raise DamagedFile(path, f"byte {end}: {len(data) - end} bytes after the archive")
    return archive


def _member(archive: zipfile.ZipFile, name: str, data: bytes, path: str) -> NDArray[Any]:
    place = f"{path}: {name}"
    held = archive.namelist()
    try:
        entry = archive.getinfo(f"{name}.npy" if f"{name}.npy" in held else name)
        if entry.file_size > _LARGEST_RATIO * max(entry.compress_size, 1) + (1 << 16):
            raise DamagedFile(place, f"{entry.file_size} bytes out of {entry.compress_size}")
        content = _stored(entry, data)
        if content is None:
            content = memoryview(archive.read(entry))
    except DamagedFile:
        raise
    except _BROKEN_ARCHIVE as error:
        raise DamagedFile(place, f"a damaged archive ({error})") from None
    if len(content) != entry.file_size:
        raise DamagedFile(place, f"{len(content)} bytes where {entry.file_size} belong")
    return array_in(content, place)


def _stored(entry: zipfile.ZipInfo, data: bytes) -> memoryview | None:
    # The bytes of a member that is neither compressed nor encrypted, where they lie, after the
    # check that the archive has for them. None for any other member: the archive's own reader takes
    # it.
    if entry.compress_type != zipfile.ZIP_STORED or entry.flag_bits & 1:
        return None
    local = entry.header_offset
    if local < 0 or data[local : local + 4] != b"PK\x03\x04" or len(data) < local + 30:
        return None
    name_length, extra_length = struct.unpack_from("<HH", data, local + 26)
    start = local + 30 + name_length + extra_length
    content = memoryview(data)[start : start + entry.file_size]
    if zlib.crc32(content) != entry.CRC:
        raise zipfile.BadZipFile("its checksum is another one")
    return content


def records(cloud: NDArray[Any], planes: NDArray[np.int32]) -> NDArray[Any]:
    """The points as one structured array with plane and frame."""
    out = np.zeros(
        cloud.size,
        [("plane", "<i4"), ("frame", "<i4"), ("x", "<f8"), ("y", "<f8"), ("z", "<f8")],
    )
    out["plane"] = planes
    out["frame"] = cloud["id"]
    for name in "xyz":
        out[name] = cloud[name]
    return out


def write_archive(file: BinaryIO, cloud: NDArray[Any], planes: NDArray[np.int32]) -> None:
    """Write the points as the arrays ``points`` (n, 3), ``frame`` and ``plane``."""
    xyz = np.stack([cloud[name] for name in "xyz"], axis=1)
    arrays = {"points": xyz, "frame": cloud["id"].copy(), "plane": planes}
    with zipfile.ZipFile(file, "w", zipfile.ZIP_STORED, allowZip64=True) as archive:
        for name, array in arrays.items():
            # One date for all, so that equal clouds make equal files.
            entry = zipfile.ZipInfo(f"{name}.npy")
            with archive.open(entry, "w", force_zip64=True) as member:
                _NPY.write_array(member, array, allow_pickle=False)
