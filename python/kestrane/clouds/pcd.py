"""PCD: text, binary, or binary compressed by LZF; fields of any size and type in any order.

A field with a COUNT above 1 is walked over. Compressed data holds one field after the other, the
other forms one point after the other; numbers are little endian.
"""

from __future__ import annotations

import re
import struct
from collections.abc import Iterable, Sequence
from dataclasses import dataclass
from typing import Any

import numpy as np
from numpy.typing import NDArray

from kestrane.clouds.columns import Part, renamed, roles_of
from kestrane.clouds.text import (
    NUMBER,
    ends_with_line_end,
    line_of_row,
    read_columns,
    rows_of,
)
from kestrane.errors import DamagedFile

_WORDS = (
    "VERSION",
    "FIELDS",
    "SIZE",
    "TYPE",
    "COUNT",
    "WIDTH",
    "HEIGHT",
    "VIEWPOINT",
    "POINTS",
    "DATA",
)
_OPTIONAL = ("COUNT", "VIEWPOINT")
_TYPES = {
    ("I", 1): "<i1",
    ("I", 2): "<i2",
    ("I", 4): "<i4",
    ("I", 8): "<i8",
    ("U", 1): "<u1",
    ("U", 2): "<u2",
    ("U", 4): "<u4",
    ("U", 8): "<u8",
    ("F", 4): "<f4",
    ("F", 8): "<f8",
}
_WHOLE = re.compile(r"\d{1,15}", re.ASCII)
_VERSIONS = ("5", "6", "7")


@dataclass(frozen=True)
class _Header:
    names: list[str]
    types: list[str]  # of NumPy
    counts: list[int]
    points: int
    form: str
    offset: int  # of the first byte after it
    lines: int


def parse(data: bytes, path: str, columns: Sequence[str] | None) -> list[Part]:
    """Read the points of a PCD file.

    Raises
    ------
    DamagedFile
        A malformed header, less or more data than it declares; with line or byte.
    ValueError
        Fields that `roles_of` refuses.
    """
    header = _read_header(data, path)
    wanted = roles_of(renamed(header.names, columns, path), path)
    for role, position in wanted.items():
        if header.counts[position] != 1:
            raise ValueError(f"{path}: the field '{header.names[position]}' ({role}) is a list")
    form = {"ascii": _parse_text, "binary": _parse_binary, "binary_compressed": _parse_compressed}
    return [form[header.form](data, path, header, wanted)]


def _read_header(data: bytes, path: str) -> _Header:
    found: dict[str, list[str]] = {}
    offset, number = 0, 0
    while "DATA" not in found:
        stop = data.find(b"\n", offset, offset + (1 << 20))
        if stop < 0:
            raise DamagedFile(path, f"cut at byte {len(data)}, in the header")
        words = data[offset:stop].decode("latin-1").split()
        offset, number = stop + 1, number + 1
        if not words or words[0].startswith("#"):
            continue
        if words[0] not in _WORDS or words[0] in found:
            raise DamagedFile(path, f"line {number}: '{' '.join(words)[:60]}' is out of place")
        found[words[0]] = words[1:]
    missing = [word for word in _WORDS if word not in found and word not in _OPTIONAL]
    if missing:
        raise DamagedFile(path, f"a header without {', '.join(missing)}")
    return _checked(found, path, offset, number)


def _checked(found: dict[str, list[str]], path: str, offset: int, lines: int) -> _Header:
    def whole(word: str) -> list[int]:
        if not all(_WHOLE.fullmatch(value) for value in found[word]):
            raise DamagedFile(path, f"{word} {' '.join(found[word])[:60]}: whole numbers expected")
        return [int(value) for value in found[word]]

    def single(word: str) -> int:
        values = whole(word)
        if len(values) != 1:
            raise DamagedFile(path, f"{word}: one number expected")
        return values[0]

    names, kinds = found["FIELDS"], found["TYPE"]
    sizes = whole("SIZE")
    counts = whole("COUNT") if "COUNT" in found else [1] * len(names)
    if not len(names) == len(kinds) == len(sizes) == len(counts):
        raise DamagedFile(path, "FIELDS, SIZE, TYPE and COUNT differ in their length")
    types = []
    for name, kind, size, count in zip(names, kinds, sizes, counts, strict=True):
        if (kind, size) not in _TYPES or not 1 <= count <= 1 << 20:
            raise DamagedFile(path, f"the field '{name}': type {kind}{size}, count {count}")
        types.append(_TYPES[kind, size])
    if len(found["VERSION"]) != 1 or found["VERSION"][0].removeprefix("0").removeprefix(
        "."
    ) not in (_VERSIONS):
        raise DamagedFile(path, f"VERSION {' '.join(found['VERSION'])[:60]} is not known")
    view = found.get("VIEWPOINT", ["0"] * 7)
    if len(view) != 7 or not all(NUMBER.fullmatch(value) for value in view):
        raise DamagedFile(path, "VIEWPOINT: seven numbers expected")
    points = single("POINTS")
    if points != single("WIDTH") * single("HEIGHT"):
        raise DamagedFile(
            path, f"POINTS {points} is not WIDTH {single('WIDTH')} x HEIGHT {single('HEIGHT')}"
        )
    form = " ".join(found["DATA"])
    if form not in ("ascii", "binary", "binary_compressed"):
        raise DamagedFile(path, f"line {lines}: DATA {form[:60]} is not known")
    return _Header(names, types, counts, points, form, offset, lines)


def _parse_text(data: bytes, path: str, header: _Header, wanted: dict[str, int]) -> Part:
    body = data[header.offset :]
    if not ends_with_line_end(body):
        raise DamagedFile(path, f"cut at byte {len(data)}: the last line has no line end")
    places = np.append(0, np.cumsum(header.counts)).tolist()
    positions = {role: places[k] for role, k in wanted.items()}
    first_line = header.lines + 1
    columns = read_columns(body, places[-1], positions, path=path, first_line=first_line)
    have = columns["x"].size
    if have != header.points:
        raise DamagedFile(path, f"{have} points where its header tells {header.points}")
    return Part(path, columns, line_of_row(body, first_line))


def _row_type(header: _Header) -> np.dtype[Any]:
    sizes = [
        np.dtype(kind).itemsize * count
        for kind, count in zip(header.types, header.counts, strict=True)
    ]
    offsets = np.append(0, np.cumsum(sizes)).astype(int).tolist()
    fields: Any = {
        "names": [f"p{k}" for k in range(len(sizes))],
        "formats": header.types,
        "offsets": offsets[:-1],
        "itemsize": offsets[-1],
    }
    return np.dtype(fields)


def _parse_binary(data: bytes, path: str, header: _Header, wanted: dict[str, int]) -> Part:
    row = _row_type(header)
    _check_size(data, path, header.offset, header.points * row.itemsize, row.itemsize)
    raw = np.frombuffer(data, np.uint8, header.points * row.itemsize, header.offset)
    records = raw.view(row)
    return Part(path, {role: records[f"p{k}"] for role, k in wanted.items()})


# Some writers lay a file out in whole pages of memory: it ends with zeros then.
_LARGEST_PAGE = 1 << 16


def _check_size(data: bytes, path: str, offset: int, size: int, row: int) -> None:
    end, have = offset + size, len(data)
    if have < end:
        things = "points" if row > 1 else "bytes"  # a point has three coordinates at least
        raise DamagedFile(
            path, f"cut at byte {have}: {(have - offset) // row} of {size // row} {things}"
        )
    if have - end > _LARGEST_PAGE or any(data[end:]):
        raise DamagedFile(path, f"byte {end}: {have - end} bytes after the data")


def _parse_compressed(data: bytes, path: str, header: _Header, wanted: dict[str, int]) -> Part:
    row = _row_type(header)
    size = header.points * row.itemsize
    if len(data) < header.offset + 8:
        raise DamagedFile(path, f"cut at byte {len(data)}, in the sizes of the compressed data")
    packed, unpacked = struct.unpack_from("<II", data, header.offset)
    if unpacked != size:
        raise DamagedFile(
            path,
            f"byte {header.offset + 4}: {unpacked} bytes of data where {header.points} points have "
            f"{size}",
        )
    begin = header.offset + 8
    _check_size(data, path, begin, packed, 1)
    plain = _decompressed(data[begin : begin + packed], size, path, begin)
    found = {}
    offset = 0
    for k, (kind, count) in enumerate(zip(header.types, header.counts, strict=True)):
        for role, position in wanted.items():
            if position == k:
                size = header.points * np.dtype(kind).itemsize
                found[role] = np.frombuffer(plain[offset : offset + size], kind)
        offset += np.dtype(kind).itemsize * count * header.points
    return Part(path, found)


def _decompressed(packed: bytes, size: int, path: str, begin: int) -> bytes:
    if size == 0:
        return b""
    # LZF makes at most 264 bytes out of 3: no memory for a size that cannot come out.
    if size > 88 * len(packed):
        raise DamagedFile(path, f"byte {begin}: {len(packed)} bytes cannot hold {size}")
    from kestrane import _core

    try:
        return _core.lzf_decompress(packed, size)  # so many bytes or an error
    except ValueError as error:
        raise DamagedFile(path, f"byte {begin}: damaged compressed data ({error})") from None


# ---------------------------------------------------------------------------------------------------
# writing


def encode(cloud: NDArray[Any], planes: NDArray[np.int32], form: str) -> Iterable[bytes]:
    """The pieces of a PCD file with these points.

    Parameters
    ----------
    cloud : (n,) POINT
    planes : (n,) int32
    form : {"binary", "compressed", "ascii"}

    Raises
    ------
    ValueError
        More than 4 GiB to be compressed: the format has 32 bits for it.
    """
    name = "binary_compressed" if form == "compressed" else form
    yield (
        "# .PCD v0.7 - Point Cloud Data file format\nVERSION 0.7\nFIELDS x y z frame plane\n"
        "SIZE 8 8 8 4 4\nTYPE F F F I I\nCOUNT 1 1 1 1 1\n"
        f"WIDTH {cloud.size}\nHEIGHT 1\nVIEWPOINT 0 0 0 1 0 0 0\nPOINTS {cloud.size}\nDATA {name}\n"
    ).encode()
    columns = [*(cloud[c] for c in ("x", "y", "z", "id")), planes]
    if form == "ascii":
        yield from rows_of(columns, " ")
    elif form == "binary":
        fields = [(c, "<f8") for c in "xyz"] + [(c, "<i4") for c in ("frame", "plane")]
        records = np.zeros(cloud.size, fields)
        for (field, _), column in zip(fields, columns, strict=True):
            records[field] = column
        yield records.tobytes()
    else:
        plain = b"".join(np.ascontiguousarray(column).tobytes() for column in columns)
        if len(plain) >= 1 << 32:
            raise ValueError(f"{cloud.size} points are too many for compressed PCD; use binary")
        packed = _compressed(plain)
        yield struct.pack("<II", len(packed), len(plain))
        yield packed


def _compressed(plain: bytes) -> bytes:
    if not plain:
        return b""
    from kestrane import _core

    return _core.lzf_compress(plain) or _as_literals(plain)


def _as_literals(plain: bytes) -> bytes:
    # What LZF cannot shrink it holds in runs of at most 32 bytes, after their length less one.
    whole = len(plain) // 32 * 32
    runs = np.frombuffer(plain[:whole], np.uint8).reshape(-1, 32)
    packed = np.insert(runs, 0, 31, axis=1).tobytes()
    rest = plain[whole:]
    return packed + (bytes([len(rest) - 1]) + rest if rest else b"")
