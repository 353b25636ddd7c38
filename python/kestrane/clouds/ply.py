"""PLY: the points are the element `vertex`, in text or binary of either byte order.

Properties may stand in any order and have any type. Other elements and lists are walked over, so
that a file which is cut anywhere is told from a whole one.
"""

from __future__ import annotations

import re
import struct
from collections.abc import Iterable, Sequence
from dataclasses import dataclass, field
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

_TYPES = {
    **dict.fromkeys(("char", "int8"), "i1"),
    **dict.fromkeys(("uchar", "uint8"), "u1"),
    **dict.fromkeys(("short", "int16"), "i2"),
    **dict.fromkeys(("ushort", "uint16"), "u2"),
    **dict.fromkeys(("int", "int32"), "i4"),
    **dict.fromkeys(("uint", "uint32"), "u4"),
    **dict.fromkeys(("float", "float32"), "f4"),
    **dict.fromkeys(("double", "float64"), "f8"),
}
_STRUCT = {"i1": "b", "u1": "B", "i2": "h", "u2": "H", "i4": "i", "u4": "I", "f4": "f", "f8": "d"}
_ORDERS = {"ascii": "", "binary_little_endian": "<", "binary_big_endian": ">"}
_NUMBER_OF_ROWS = re.compile(r"\d{1,15}", re.ASCII)


@dataclass(frozen=True)
class _Property:
    name: str
    type: str  # of NumPy, without byte order; of an item where it is a list
    count_type: str | None = None  # of a list's length


@dataclass(frozen=True)
class _Element:
    name: str
    count: int
    properties: list[_Property] = field(default_factory=list)

    @property
    def has_list(self) -> bool:
        return any(p.count_type for p in self.properties)


@dataclass(frozen=True)
class _Header:
    order: str  # "<", ">", or "" for text
    elements: list[_Element]
    offset: int  # of the first byte after it
    lines: int


def parse(data: bytes, path: str, columns: Sequence[str] | None) -> list[Part]:
    """Read the points of a PLY file.

    Raises
    ------
    DamagedFile
        A malformed header, less or more data than it declares; with line or byte.
    ValueError
        No element `vertex`, or properties that `roles_of` refuses.
    """
    header = _read_header(data, path)
    vertices = [element for element in header.elements if element.name == "vertex"]
    if len(vertices) != 1:
        raise ValueError(f"{path}: {len(vertices)} elements 'vertex'; one expected")
    names = [p.name for p in vertices[0].properties]
    wanted = roles_of(renamed(names, columns, path), path)
    for role, position in wanted.items():
        if vertices[0].properties[position].count_type:
            raise ValueError(f"{path}: the property '{names[position]}' ({role}) is a list")
    return [(_parse_binary if header.order else _parse_text)(data, path, header, wanted)]


def _read_header(data: bytes, path: str) -> _Header:
    if not data.startswith(b"ply"):
        raise DamagedFile(path, "byte 0: not a PLY file")
    if data[3:4] not in (b"\n", b"\r"):
        raise DamagedFile(path, "byte 3: the line 'ply' has no end")
    # A lone carriage return ends lines only where it does so from the start.
    line_end = b"\r" if data[3:4] == b"\r" and data[4:5] != b"\n" else b"\n"
    order: str | None = None
    elements: list[_Element] = []
    offset, number = 0, 0
    while True:
        stop = data.find(line_end, offset)
        if stop < 0:
            raise DamagedFile(path, f"cut at byte {len(data)}, in the header")
        words = data[offset:stop].decode("latin-1").split()
        offset, number = stop + 1, number + 1
        if number == 1:
            continue
        if words == ["end_header"]:
            break
        if not words or words[0] in ("comment", "obj_info"):
            continue
        try:
            if words[0] == "format" and order is None and not elements:
                order = _order_of(words)
            elif words[0] == "element" and order is not None:
                elements.append(_element_of(words, elements))
            elif words[0] == "property" and elements:
                elements[-1].properties.append(_property_of(words))
            else:
                raise _Malformed("out of place")
        except _Malformed as error:
            raise DamagedFile(path, f"line {number}: '{' '.join(words)[:60]}': {error}") from None
    if order is None:
        raise DamagedFile(path, "a header without a format")
    return _Header(order, elements, offset, number)


class _Malformed(Exception):
    pass


def _order_of(words: list[str]) -> str:
    if len(words) != 3 or words[1] not in _ORDERS or words[2] != "1.0":
        raise _Malformed("not a format that is known")
    return _ORDERS[words[1]]


def _element_of(words: list[str], others: list[_Element]) -> _Element:
    if len(words) != 3 or not _NUMBER_OF_ROWS.fullmatch(words[2]):
        raise _Malformed("a name and a number expected")
    if words[1] in (element.name for element in others):
        raise _Malformed("stands twice")
    return _Element(words[1], int(words[2]))


def _property_of(words: list[str]) -> _Property:
    if len(words) == 3 and words[1] in _TYPES:
        return _Property(words[2], _TYPES[words[1]])
    if len(words) == 5 and words[1] == "list" and words[2] in _TYPES and words[3] in _TYPES:
        if _TYPES[words[2]].startswith("f"):
            raise _Malformed("the length of a list is a whole number")
        return _Property(words[4], _TYPES[words[3]], _TYPES[words[2]])
    raise _Malformed("not a type that is known")


# ---------------------------------------------------------------------------------------------------
# binary


def _parse_binary(data: bytes, path: str, header: _Header, wanted: dict[str, int]) -> Part:
    offset = header.offset
    found: dict[str, NDArray[Any]] = {}
    for element in header.elements:
        names = wanted if element.name == "vertex" else {}
        offset, columns = _binary_rows(data, path, offset, header.order, element, names)
        found.update(columns)
    if offset != len(data):
        raise DamagedFile(path, f"byte {offset}: {len(data) - offset} bytes after the last element")
    return Part(path, found)


def _binary_rows(
    data: bytes, path: str, offset: int, order: str, element: _Element, wanted: dict[str, int]
) -> tuple[int, dict[str, NDArray[Any]]]:
    # Where the element ends, and the wanted columns.
    if not element.properties:
        return offset, {}
    lengths = _first_lengths(data, offset, order, element) if element.count else {}
    if lengths is not None:
        row = _row_type(order, element, lengths)
        end = offset + element.count * row.itemsize
        if end <= len(data):
            rows = np.frombuffer(data, np.uint8, end - offset, offset)
            records = rows.view(row)
            if all((records[f"n{k}"] == length).all() for k, length in lengths.items()):
                return end, {role: records[f"p{k}"] for role, k in wanted.items()}
        elif not element.has_list:
            whole = (len(data) - offset) // row.itemsize
            raise _cut(data, path, element, whole)
    return _walk_rows(data, path, offset, order, element, wanted)


def _cut(data: bytes, path: str, element: _Element, whole: int) -> DamagedFile:
    return DamagedFile(
        path, f"cut at byte {len(data)}: {whole} of {element.count} rows of '{element.name}'"
    )


def _first_lengths(
    data: bytes, offset: int, order: str, element: _Element
) -> dict[int, int] | None:
    # Lengths of the lists in the first row; None where it is cut or a length is negative. Most
    # files have triangles only, so all rows are alike.
    lengths: dict[int, int] = {}
    for k, prop in enumerate(element.properties):
        if prop.count_type:
            if offset + int(prop.count_type[1]) > len(data):
                return None
            (lengths[k],) = struct.unpack_from(order + _STRUCT[prop.count_type], data, offset)
            offset += int(prop.count_type[1])
            if lengths[k] < 0 or lengths[k] > len(data):
                return None
        offset += lengths.get(k, 1) * int(prop.type[1])
    return lengths


def _row_type(order: str, element: _Element, lengths: dict[int, int]) -> np.dtype[Any]:
    names, formats, offsets, size = [], [], [], 0
    for k, prop in enumerate(element.properties):
        if prop.count_type:
            names.append(f"n{k}")
            formats.append(order + prop.count_type)
            offsets.append(size)
            size += int(prop.count_type[1])
        else:
            names.append(f"p{k}")
            formats.append(order + prop.type)
            offsets.append(size)
        size += lengths.get(k, 0 if prop.count_type else 1) * int(prop.type[1])
    fields: Any = {"names": names, "formats": formats, "offsets": offsets, "itemsize": size}
    return np.dtype(fields)


def _walk_rows(
    data: bytes, path: str, offset: int, order: str, element: _Element, wanted: dict[str, int]
) -> tuple[int, dict[str, NDArray[Any]]]:
    # Row by row, where lists have different lengths.
    readers = [
        (
            struct.Struct(order + _STRUCT[p.count_type]) if p.count_type else None,
            struct.Struct(order + _STRUCT[p.type]),
        )
        for p in element.properties
    ]
    roles = {position: role for role, position in wanted.items()}
    values: dict[str, list[float]] = {role: [] for role in wanted}
    for row in range(element.count):
        try:
            for k, (count_reader, reader) in enumerate(readers):
                if count_reader is None:
                    if k in roles:
                        values[roles[k]].append(reader.unpack_from(data, offset)[0])
                    offset += reader.size
                    continue
                (length,) = count_reader.unpack_from(data, offset)
                if length < 0:
                    raise DamagedFile(path, f"byte {offset}: a list of {length} items")
                offset += count_reader.size + length * reader.size
        except struct.error:
            raise _cut(data, path, element, row) from None
        if offset > len(data):
            raise _cut(data, path, element, row)
    types = [p.type for p in element.properties]
    return offset, {role: np.array(values[role], types[k]) for role, k in wanted.items()}


# ---------------------------------------------------------------------------------------------------
# text


def _parse_text(data: bytes, path: str, header: _Header, wanted: dict[str, int]) -> Part:
    body = data[header.offset :]
    if not ends_with_line_end(body):
        raise DamagedFile(path, f"cut at byte {len(data)}: the last line has no line end")
    body = body.replace(b"\r\n", b"\n").replace(b"\r", b"\n")
    ends = np.flatnonzero(np.frombuffer(body, np.uint8) == 10) + 1
    line = 0  # of the body, from 0
    part: Part | None = None
    for element in header.elements:
        if not element.properties:
            continue
        if line + element.count > ends.size:
            raise DamagedFile(
                path,
                f"cut before line {header.lines + ends.size + 1}: {ends.size - line} of "
                f"{element.count} rows of '{element.name}'",
            )
        begin = int(ends[line - 1]) if line else 0
        end = int(ends[line + element.count - 1]) if line + element.count else 0
        first_line = header.lines + line + 1
        rows = body[begin:end]
        if element.name == "vertex":
            columns = _text_rows(rows, path, element, wanted, first_line)
            part = Part(path, columns, line_of_row(rows, first_line))
        else:
            _check_text_rows(rows, path, element, first_line)
        line += element.count
    begin = int(ends[line - 1]) if line else 0
    if body[begin:].strip():
        raise DamagedFile(path, f"line {header.lines + line + 1}: text after the last element")
    assert part is not None  # `vertex` has properties: x, y and z at least
    return part


def _text_rows(
    rows: bytes, path: str, element: _Element, wanted: dict[str, int], first_line: int
) -> dict[str, NDArray[Any]]:
    if element.has_list:
        return _walk_text_rows(rows, path, element, wanted, first_line)
    columns = read_columns(rows, len(element.properties), wanted, path=path, first_line=first_line)
    if columns["x"].size != element.count:  # blank lines among the rows
        return _walk_text_rows(rows, path, element, wanted, first_line)
    # A property of type float is what its text says, which may have more digits than the type.
    return columns


def _check_text_rows(rows: bytes, path: str, element: _Element, first_line: int) -> None:
    _walk_text_rows(rows, path, element, {}, first_line)


def _walk_text_rows(
    rows: bytes, path: str, element: _Element, wanted: dict[str, int], first_line: int
) -> dict[str, NDArray[Any]]:
    roles = {position: role for role, position in wanted.items()}
    values: dict[str, list[float]] = {role: [] for role in wanted}
    for line, row in enumerate(rows.decode("latin-1").split("\n")[:-1], first_line):
        fields = row.split()
        position = 0
        for k, prop in enumerate(element.properties):
            field_text = fields[position] if position < len(fields) else ""
            if not NUMBER.fullmatch(field_text):
                raise DamagedFile(
                    path, f"line {line}: '{prop.name}' is {field_text[:24]!r}, not a number"
                )
            position += 1
            if prop.count_type:
                if not _NUMBER_OF_ROWS.fullmatch(field_text):
                    raise DamagedFile(path, f"line {line}: a list of {field_text[:24]} items")
                position += int(field_text)
            elif k in roles:
                values[roles[k]].append(float(field_text))
        if position != len(fields):
            raise DamagedFile(path, f"line {line}: {len(fields)} fields where {position} belong")
    return {role: np.array(column, np.float64) for role, column in values.items()}


# ---------------------------------------------------------------------------------------------------
# writing


def encode(cloud: NDArray[Any], planes: NDArray[np.int32], form: str) -> Iterable[bytes]:
    """The pieces of a PLY file with these points.

    Parameters
    ----------
    cloud : (n,) POINT
    planes : (n,) int32
    form : {"binary", "big", "ascii"}
        Binary in little or big endian, or text with all digits.
    """
    name = {"binary": "binary_little_endian", "big": "binary_big_endian", "ascii": "ascii"}[form]
    yield (
        f"ply\nformat {name} 1.0\nelement vertex {cloud.size}\n"
        "property double x\nproperty double y\nproperty double z\n"
        "property int frame\nproperty int plane\nend_header\n"
    ).encode()
    if form == "ascii":
        yield from rows_of([*(cloud[c] for c in ("x", "y", "z", "id")), planes], " ")
        return
    order = ">" if form == "big" else "<"
    fields = [(c, order + "f8") for c in "xyz"] + [(c, order + "i4") for c in ("frame", "plane")]
    records = np.zeros(cloud.size, fields)
    for c in "xyz":
        records[c] = cloud[c]
    records["frame"] = cloud["id"]
    records["plane"] = planes
    yield records.tobytes()
