"""The plane table: what a factory calibration makes and every other job starts from.

In go arrays, or a file; out come look-ups and distances, by the library's own rules. Lengths are in
the unit of the points, x across the sheets, y along a laser line, z depth.
"""

from __future__ import annotations

from typing import Any, ClassVar

import numpy as np
from numpy.typing import ArrayLike, NDArray

from kestrane import _core
from kestrane._inputs import MOST_PLANES, Path, as_count, as_numbers, as_path

__all__ = ["Grid", "PlaneTable", "SavedTable"]

Floats = NDArray[np.float64]

_GRID: np.dtype[Any] = _core.grid_type()


class Grid:
    """The bounds of the blocks of a table: 15 lines across the fan, 50 steps along the depth.

    A value: its arrays are read-only. The nominal one is a fan of 60 degrees from depth 150 to
    1500.

    Attributes
    ----------
    z, y_start, y_step : (51,) float64
        Depth of each corner, y of the fan's edge there, width of a block there.
    z_start, z_step : float
        Depth of the first corner and of a block.
    head : (4,) int32
        Carried along for the host; of no meaning to the library.
    """

    __slots__ = ("record",)

    record: NDArray[Any]
    """The library's own record, an array without dimensions; read-only."""

    def __init__(self, record: NDArray[Any] | None = None) -> None:
        if record is None:
            laid = _core.nominal_grid()
        else:
            laid = np.array(record)
            if laid.dtype != _GRID or laid.shape != ():
                raise ValueError(f"a grid record expected, got {laid.dtype} of {laid.shape}")
        laid.flags.writeable = False
        self.record = laid

    @classmethod
    def of(
        cls,
        *,
        z: ArrayLike,
        y_start: ArrayLike,
        y_step: ArrayLike,
        z_start: float,
        z_step: float,
        head: ArrayLike = (0, 0, 0, 0),
    ) -> Grid:
        """Put a grid together from its numbers.

        Raises
        ------
        ValueError
            Another shape.
        """
        record = np.zeros((), _GRID)
        for name, values in (("z", z), ("y_start", y_start), ("y_step", y_step)):
            record[name] = as_numbers(values, name, (51,))
        record["z_start"] = float(z_start)
        record["z_step"] = float(z_step)
        numbers = np.asarray(head)
        if numbers.shape != (4,) or numbers.dtype.kind not in "iu":
            raise ValueError("head: four whole numbers expected")
        record["head"] = [as_count(n, "head", -(2**31), 2**31 - 1) for n in numbers.tolist()]
        return cls(record)

    @property
    def z(self) -> Floats:
        """(51,) float64: depth of each corner."""
        numbers: Floats = self.record["z"]
        return numbers

    @property
    def y_start(self) -> Floats:
        """(51,) float64: y of the fan's lower edge at each depth."""
        numbers: Floats = self.record["y_start"]
        return numbers

    @property
    def y_step(self) -> Floats:
        """(51,) float64: width of a block at each depth."""
        numbers: Floats = self.record["y_step"]
        return numbers

    @property
    def z_start(self) -> float:
        """Depth of the first corner."""
        return float(self.record["z_start"])

    @property
    def z_step(self) -> float:
        """Depth of a block."""
        return float(self.record["z_step"])

    @property
    def head(self) -> NDArray[np.int32]:
        """(4,) int32: carried along for the host."""
        numbers: NDArray[np.int32] = self.record["head"]
        return numbers

    def __eq__(self, other: object) -> bool:
        """All numbers equal to the bit."""
        if not isinstance(other, Grid):
            return NotImplemented
        return self.record.tobytes() == other.record.tobytes()

    __hash__ = None  # type: ignore[assignment]

    def __repr__(self) -> str:
        return f"<Grid of 15 x 50 blocks, depth {self.z[0]:g} to {self.z[-1]:g}>"

    def __reduce__(self) -> tuple[Any, ...]:
        return Grid, (np.array(self.record),)


class SavedTable:
    """What the six digits of a table file have made of it.

    Attributes
    ----------
    largest_move : float
        The largest move of x over corners and middles of all blocks, in the unit of the points.
    plane, line, step : int
        Where that is; plane -1 in a table without blocks.
    """

    __slots__ = ("largest_move", "line", "plane", "step")

    def __init__(self, largest_move: float, plane: int, line: int, step: int) -> None:
        self.largest_move = largest_move
        self.plane = plane
        self.line = line
        self.step = step

    def __repr__(self) -> str:
        return f"<SavedTable: x within {self.largest_move:.2g} of the table's>"


class PlaneTable:
    """Local planes (a, b, c) of a x + b y + c z + 1 = 0, 15 x 50 blocks for each laser plane.

    Parameters
    ----------
    cells : (P, 15, 50, 3) real
        The planes of the blocks, P of 0 to 100. A block with a == 0 has no plane. Taken as it is
        where it is a writable contiguous float64 array; copied otherwise.
    whole : (P, 3) real
        The whole planes, in the same form. Taken or copied likewise.
    grid : Grid, optional
        The bounds of the blocks; the nominal ones by default.

    Attributes
    ----------
    cells, whole : float64, writable
    grid : Grid

    Raises
    ------
    ValueError
        Another shape, more than 100 planes, numbers that are not real.
    """

    __slots__ = ("cells", "grid", "whole")

    LINES: ClassVar[int] = 15
    STEPS: ClassVar[int] = 50

    cells: Floats
    whole: Floats
    grid: Grid

    def __init__(self, cells: ArrayLike, whole: ArrayLike, grid: Grid | None = None) -> None:
        self.cells = _writable(as_numbers(cells, "cells", (None, 15, 50, 3)))
        planes = self.cells.shape[0]
        if planes > MOST_PLANES:
            raise ValueError(f"cells: at most {MOST_PLANES} planes, not {planes}")
        self.whole = _writable(as_numbers(whole, "whole", (planes, 3)))
        if grid is not None and not isinstance(grid, Grid):
            raise ValueError(f"grid: a Grid expected, got {type(grid).__name__}")
        self.grid = Grid() if grid is None else grid

    @classmethod
    def _of(cls, arrays: tuple[Floats, Floats, NDArray[Any]]) -> PlaneTable:
        """A table over arrays of the core, which are in form and belong to nobody else."""
        table = cls.__new__(cls)
        table.cells, table.whole, record = arrays
        record.flags.writeable = False
        table.grid = Grid.__new__(Grid)
        table.grid.record = record
        return table

    @classmethod
    def read(cls, path: Path) -> PlaneTable:
        """Read a table file, checked from end to end.

        The format holds six digits and no `grid.head`, which comes out as 0.

        Raises
        ------
        FileOpenError
            The file could not be opened or read.
        DamagedFile
            It is cut, malformed, or holds numbers that are not finite.
        """
        return cls._of(_core.read_table(as_path(path)))

    def save(self, path: Path) -> SavedTable:
        """Save the table as text, six digits a number, and read it back before it counts.

        The file is written beside the target and renamed onto it: after any failure the old one is
        intact.

        Returns
        -------
        SavedTable
            How far the six digits have moved x.

        Raises
        ------
        FileOpenError
            The file could not be written.
        ValueError
            The table has no planes, or a number that is not finite.
        """
        return SavedTable(*_core.save_table(self, as_path(path)))

    @property
    def planes(self) -> int:
        """Number of planes P."""
        return int(self.cells.shape[0])

    @property
    def calibrated(self) -> NDArray[np.bool_]:
        """(P,) bool: whether any block of the plane has a != 0."""
        found: NDArray[np.bool_] = (self.cells[..., 0] != 0).any(axis=(1, 2))
        return found

    def lookup(self, y: ArrayLike, z: ArrayLike) -> tuple[NDArray[np.int32], NDArray[np.int32]]:
        """Find the block of each place, by the library's own rule.

        Parameters
        ----------
        y, z : real arrays that broadcast to one shape
            Places in the fan.

        Returns
        -------
        line, step : int32 arrays of that shape
            -1 outside the 15 x 50 blocks and for what is not a number.
        """
        ys, zs, shape = _places(y, z)
        line, step = _core.lookup(self, ys, zs)
        return line.reshape(shape), step.reshape(shape)

    def x_at(self, plane: int, y: ArrayLike, z: ArrayLike) -> Floats:
        """x of a plane's sheet at each place: float64 of the places' shape.

        NaN outside the blocks and in one without a plane.

        Raises
        ------
        ValueError
            The table has no such plane.
        """
        ys, zs, shape = _places(y, z)
        xs: Floats = _core.x_at(self, self._plane(plane), ys, zs).reshape(shape)
        return xs

    def distances(self, plane: int, xyz: ArrayLike) -> Floats:
        """Signed distance of points from a plane's sheet, + at larger x.

        Parameters
        ----------
        plane : int
        xyz : (n, 3) real

        Returns
        -------
        (n,) float64
            NaN outside the blocks and in one without a plane.

        Raises
        ------
        ValueError
            The table has no such plane, or another shape.
        """
        laid = as_numbers(xyz, "xyz", (None, 3))
        return _core.signed_distances(self, self._plane(plane), laid)

    def centres(self) -> Floats:
        """(15, 50, 2) float64: y and z of the middles of the blocks."""
        return _core.block_middles(self)

    def copy(self) -> PlaneTable:
        """A table that shares nothing with this one."""
        return PlaneTable(self.cells.copy(), self.whole.copy(), self.grid)

    def __eq__(self, other: object) -> bool:
        """All numbers equal to the bit; NaN equals NaN."""
        if not isinstance(other, PlaneTable):
            return NotImplemented
        return self.planes == other.planes and _core.tables_equal(self, other)

    __hash__ = None  # type: ignore[assignment]

    def __repr__(self) -> str:
        calibrated = int(self.calibrated.sum())
        return f"<PlaneTable of {self.planes} planes, {calibrated} calibrated>"

    def __reduce__(self) -> tuple[Any, ...]:
        return PlaneTable, (self.cells, self.whole, self.grid)

    def _plane(self, plane: int) -> int:
        return as_count(plane, "plane", 0, max(self.planes - 1, 0))


def _writable(array: Floats) -> Floats:
    return array if array.flags.writeable else array.copy()


def _places(y: ArrayLike, z: ArrayLike) -> tuple[Floats, Floats, tuple[int, ...]]:
    ys, zs = np.broadcast_arrays(np.asarray(y), np.asarray(z))
    shape = ys.shape
    return (
        as_numbers(ys.reshape(-1), "y", (None,)),
        as_numbers(zs.reshape(-1), "z", (None,)),
        shape,
    )
