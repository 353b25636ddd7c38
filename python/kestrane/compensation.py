"""The run-time compensation: a table at the device's present condition."""

from __future__ import annotations

from dataclasses import astuple, dataclass

from numpy.typing import ArrayLike

from kestrane import _core
from kestrane._inputs import as_count, as_numbers
from kestrane.calibration import as_table
from kestrane.tables import PlaneTable

__all__ = ["Condition", "compensate"]


@dataclass(frozen=True)
class Condition:
    """The device's present condition and its compensation gains."""

    temperature: float
    """Present; only values strictly between -20 and 100 scale a plane."""
    temperature_ref: float
    """At calibration."""
    drift: float = 0.0
    """Second present reading."""
    drift_ref: float = 0.0
    """The same at calibration."""
    drift_gain: float = 0.0
    """Gain on the second reading."""
    temperature_spread: float = 0.0
    """Rotation, radians per plane step and per unit of temperature."""
    drift_spread: float = 0.0
    """Rotation, radians per plane step and per unit of the gained drift."""
    scale_per_degree: float = 0.0
    """Relative growth of a plane's distance per unit of temperature."""


def compensate(
    table: PlaneTable,
    condition: Condition,
    extrinsic_t: ArrayLike,
    *,
    first: int = 0,
    last: int | None = None,
) -> PlaneTable:
    """Bring planes of a table to a condition.

    Planes first to last - 1 are a fan: each turns by an angle in proportion to its distance from the
    middle one. Blocks without a plane stay as they are, and so do the other planes.

    Parameters
    ----------
    table : PlaneTable
        As calibrated; only read.
    condition : Condition
    extrinsic_t : (3,) real
        Translation of the extrinsic matrix, of which only the direction counts. One of zero gives
        planes that are not numbers.
    first, last : int
        The range, `last` not included; by default all planes.

    Returns
    -------
    PlaneTable
        A new table with the same whole planes and grid.

    Raises
    ------
    ValueError
        A table without planes, a range outside it, another shape.
    """
    as_table(table)
    if table.planes == 0:
        raise ValueError("table: it has no planes")
    if not isinstance(condition, Condition):
        raise ValueError(f"condition: a Condition expected, got {type(condition).__name__}")
    end = table.planes if last is None else as_count(last, "last", 0, table.planes)
    begin = as_count(first, "first", 0, end)
    numbers = as_numbers(astuple(condition), "condition", (8,))
    translation = as_numbers(extrinsic_t, "extrinsic_t", (3,))
    cells = _core.compensate(table, numbers, translation, begin, end)
    return PlaneTable(cells, table.whole.copy(), table.grid)
