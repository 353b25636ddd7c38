"""Rows of numbers in text, as CSV files and the ASCII forms of PLY and PCD hold them.

In goes the text after a header, with the number of columns that the header tells; out come the
columns that are needed as float64. A row with another number of fields, and a field that is not a
number, are errors with their line. The plain way below decides what a number is; NumPy's reader
only goes ahead of it, and what it cannot read the plain way reads or names.
"""

from __future__ import annotations

import io
import re
from collections.abc import Callable, Iterator, Mapping, Sequence
from typing import Any

import numpy as np
from numpy.typing import NDArray

from kestrane.errors import DamagedFile

NUMBER = re.compile(
    r"[+-]?(?:(?:\d+\.?\d*|\.\d+)(?:e[+-]?\d+)?|nan|inf|infinity)", re.IGNORECASE | re.ASCII
)


def ends_with_line_end(body: bytes) -> bool:
    """Whether the last line is whole: without its end, its last number may have been cut."""
    return not body or body.endswith((b"\n", b"\r"))


def read_columns(
    body: bytes,
    width: int,
    wanted: Mapping[str, int],
    *,
    path: str,
    first_line: int,
    delimiter: str | None = None,
    comments: str | None = None,
) -> dict[str, NDArray[np.float64]]:
    """Read the wanted columns.

    Parameters
    ----------
    body : bytes
        Whole lines; blank ones are left out.
    width : int
        Fields of every row.
    wanted : mapping
        Name and position of the columns to be read; others may hold anything.
    path, first_line
        The file, and the number of the body's first line, for messages.
    delimiter : str or None
        One character, or None for any blanks.
    comments : str or None
        What begins a comment that ends with the line.

    Raises
    ------
    DamagedFile
        Another number of fields, or a field that is not a number, with its line.
    """
    if next(_rows(body, first_line, comments), None) is None:
        return {name: np.zeros(0) for name in wanted}
    try:
        rows = np.loadtxt(
            _lines(body), delimiter=delimiter, comments=comments, ndmin=2, encoding=None
        )
        if rows.shape[1] == width:
            return {name: rows[:, position] for name, position in wanted.items()}
    except ValueError:
        pass  # a text in a column that is not wanted, or an error: told below with its line
    return _read_plainly(body, width, wanted, path, first_line, delimiter, comments)


def _read_plainly(
    body: bytes,
    width: int,
    wanted: Mapping[str, int],
    path: str,
    first_line: int,
    delimiter: str | None,
    comments: str | None,
) -> dict[str, NDArray[np.float64]]:
    values: dict[str, list[float]] = {name: [] for name in wanted}
    for line, text in _rows(body, first_line, comments):
        fields = text.split(delimiter)
        if len(fields) != width:
            raise DamagedFile(path, f"line {line}: {len(fields)} fields where {width} belong")
        for name, position in wanted.items():
            field = fields[position].strip()
            if not NUMBER.fullmatch(field):
                raise DamagedFile(path, f"line {line}: {name} is {_short(field)}, not a number")
            values[name].append(float(field))
    return {name: np.array(column, np.float64) for name, column in values.items()}


def line_of_row(body: bytes, first_line: int, comments: str | None = None) -> Callable[[int], str]:
    """What tells the line of a row, for messages; it looks only when it is asked."""

    def where(row: int) -> str:
        for number, (line, _) in enumerate(_rows(body, first_line, comments)):
            if number == row:
                return f"line {line} (row {row}, counted from 0)"
        return f"row {row}"

    return where


def _lines(body: bytes) -> io.TextIOWrapper:
    # Latin 1 decodes every byte, so that a comment in any encoding can be skipped.
    return io.TextIOWrapper(io.BytesIO(body), encoding="latin-1", newline=None)


def _rows(body: bytes, first_line: int, comments: str | None) -> Iterator[tuple[int, str]]:
    for line, text in enumerate(_lines(body), first_line):
        row = text.split(comments, 1)[0] if comments else text
        if row.strip():
            yield line, row


def _short(field: str) -> str:
    return repr(field if len(field) <= 24 else field[:21] + "...")


def rows_of(
    columns: Sequence[NDArray[Any]], delimiter: str, *, block: int = 50_000
) -> Iterator[bytes]:
    """Lines with the numbers of all columns; read back they are equal to the bit."""
    for start in range(0, columns[0].size, block):
        pieces = [column[start : start + block].tolist() for column in columns]
        rows = zip(*pieces, strict=True)
        yield "".join(delimiter.join(map(repr, row)) + "\n" for row in rows).encode()
