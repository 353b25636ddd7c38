"""CSV and other text: one point per line, names of the columns in a header line or from the caller.

Fields are separated by a comma, a semicolon, a tab or blanks, as the header (without one, the first
row) shows. What follows a # is a comment, and so are lines that begin with // ahead of the first
row; one of these may hold the names. `nan` in x is a dropped point. A comment ``# points 1200``
ahead of the header is a count that the file is held against: the format itself has none, so a file
that is cut exactly at the end of a line can only be told from a whole one by it. `write` begins
with it.
"""

from __future__ import annotations

import re
from collections.abc import Iterable, Sequence
from dataclasses import dataclass
from typing import Any

import numpy as np
from numpy.typing import NDArray

from kestrane.clouds.columns import ROLES, Part, renamed, roles_of
from kestrane.clouds.text import NUMBER, ends_with_line_end, line_of_row, read_columns, rows_of
from kestrane.errors import DamagedFile

_COUNT = re.compile(r"#\s*points\s+(\d{1,18})\s*", re.ASCII)
_BYTE_ORDER_MARK = b"\xef\xbb\xbf"
_OTHER_CONTENT = {
    b"ply\n": "a PLY file",
    b"ply\r": "a PLY file",
    b"\x93NUMPY": "a NumPy array",
    b"PK\x03\x04": "a ZIP archive",
    b"\xff\xfe": "text in UTF-16; save it as UTF-8",
    b"\xfe\xff": "text in UTF-16; save it as UTF-8",
}


def parse(data: bytes, path: str, columns: Sequence[str] | None) -> list[Part]:
    """Read the points of a text file.

    Raises
    ------
    DamagedFile
        A malformed row, a last line without its end, a count that differs from the comment's.
    ValueError
        No names, or names that `roles_of` refuses.
    """
    for magic, content in _OTHER_CONTENT.items():
        if data.startswith(magic):
            raise ValueError(f"{path}: not a table of numbers but {content}")
    data = data.removeprefix(_BYTE_ORDER_MARK)
    head = _read_head(data, path, columns)
    if not ends_with_line_end(data):
        raise DamagedFile(path, "the last line has no line end: it may have been cut")
    body = data[head.offset :]
    wanted = roles_of(renamed(head.names, columns, path), path)
    values = read_columns(
        body,
        len(head.names),
        wanted,
        path=path,
        first_line=head.line,
        delimiter=head.delimiter,
        comments="#",
    )
    if head.count is not None and values["x"].size != head.count:
        raise DamagedFile(path, f"{values['x'].size} points where its comment tells {head.count}")
    return [Part(path, values, line_of_row(body, head.line, "#"))]


@dataclass(frozen=True)
class _Head:
    names: list[str]
    delimiter: str | None
    offset: int  # of the first row, in bytes
    line: int  # number of the line there
    count: int | None


def _read_head(data: bytes, path: str, columns: Sequence[str] | None) -> _Head:
    count: int | None = None
    names: list[str] | None = None
    names_delimiter: str | None = None
    offset = 0
    for line, raw in enumerate(_raw_lines(data), 1):
        text = raw.decode("latin-1")
        if text.lstrip().startswith(("#", "//")):
            if told := _COUNT.fullmatch(text.strip()):
                count = int(told[1])
            fields, delimiter = _split(text.lstrip(" \t#/"))
            if set("xyz") <= {ROLES.get(name.lower()) for name in fields}:
                names, names_delimiter = fields, delimiter
        elif text.strip():
            text = text.split("#", 1)[0]
            fields, delimiter = _split(text)
            if not any(NUMBER.fullmatch(field) for field in fields):
                return _Head(fields, delimiter, offset + len(raw), line + 1, count)
            if names is not None and len(names) != len(fields):
                # "# x y z" above "1,2,3": the rows decide what separates them
                raise DamagedFile(
                    path, f"line {line}: {len(fields)} fields where {len(names)} belong"
                )
            if names is None and columns is None:
                raise ValueError(
                    f"{path}: line {line}: no header line; name the columns "
                    "(columns='plane,frame,x,y,z', --columns plane,frame,x,y,z)"
                )
            own = names if names is not None else [str(k) for k in range(len(fields))]
            return _Head(own, delimiter, offset, line, count)
        offset += len(raw)
    if names is None and columns is None:
        raise ValueError(f"{path}: no header line and no point")
    own = names if names is not None else list(columns or ())
    return _Head(own, names_delimiter, offset, 1, count)


def _raw_lines(data: bytes) -> Iterable[bytes]:
    # As a text file's lines, but in bytes and with their ends. `bytes.splitlines` would do the same
    # to the whole file.
    start = 0
    end = re.compile(rb"\r\n|\n|\r")
    while start < len(data):
        found = end.search(data, start)
        stop = found.end() if found else len(data)
        yield data[start:stop]
        start = stop


def _split(text: str) -> tuple[list[str], str | None]:
    # What separates the fields of a line, and the fields.
    for delimiter in (";", ",", "\t"):
        if delimiter in text:
            return [field.strip().strip("\"'") for field in text.split(delimiter)], delimiter
    return [field.strip("\"'") for field in text.split()], None


def lines(records: NDArray[Any], planes: NDArray[np.int32], delimiter: str) -> Iterable[bytes]:
    """The lines of a file with these points, which read back are equal to the bit."""
    names = ("plane", "frame", "x", "y", "z")
    yield f"# points {records.size}\n{delimiter.join(names)}\n".encode()
    columns = [planes, *(records[name] for name in ("id", "x", "y", "z"))]
    yield from rows_of(columns, delimiter)
