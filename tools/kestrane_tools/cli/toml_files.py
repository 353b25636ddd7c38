"""limits.toml, device.toml and the parameters of a compensation.

In go files that people write; out come checked values. A key that is not known is an error that
names the nearest one that is: a limit with a slip in its name would never be held.
"""

from __future__ import annotations

import datetime
import math
import tomllib
from collections.abc import Callable, Mapping
from dataclasses import dataclass, field
from typing import Any

from kestrane_tools.cli.stop import Status, Stop
from kestrane_tools.cli.words import nearest

__all__ = [
    "Checks",
    "Limits",
    "Parameters",
    "Wrong",
    "checked",
    "read_device",
    "read_limits",
    "read_parameters",
    "read_toml",
    "text",
]


@dataclass(frozen=True)
class Limits:
    """What is asked of a device.

    Attributes
    ----------
    limits : dict
        Name -> value, of those that are given.
    depth : (float, float) or None
        Nearest and farthest depth of the working volume.
    half_angle_deg : float or None
        Half its angle, in degrees.
    """

    limits: dict[str, float] = field(default_factory=dict)
    depth: tuple[float, float] | None = None
    half_angle_deg: float | None = None


@dataclass(frozen=True)
class Parameters:
    """Numbers of a compensation that a file gives, by name, and the extrinsic translation."""

    condition: dict[str, float] = field(default_factory=dict)
    extrinsic_t: tuple[float, float, float] | None = None


class Wrong(Exception):
    """A value that is not what its key asks for."""


def _number(value: Any) -> float:
    if isinstance(value, bool) or not isinstance(value, (int, float)) or not math.isfinite(value):
        raise Wrong("a number expected")
    return float(value)


def _limit(value: Any) -> float:
    number = _number(value)
    if number < 0.0:
        raise Wrong("a number of at least 0 expected")
    return number


def _share(value: Any) -> float:
    number = _limit(value)
    if number > 1.0:
        raise Wrong("a share of 0 to 1 expected")
    return number


def _depths(value: Any) -> tuple[float, float]:
    if not isinstance(value, list) or len(value) != 2:
        raise Wrong("two numbers expected, [nearest, farthest]")
    near, far = _number(value[0]), _number(value[1])
    if not near < far:
        raise Wrong("the nearest depth first, then the farthest")
    return near, far


def _angle(value: Any) -> float:
    number = _number(value)
    if not 0.0 < number <= 90.0:
        raise Wrong("degrees above 0 and up to 90 expected")
    return number


def text(value: Any) -> str:
    """A text as it is; anything else is `Wrong`."""
    if not isinstance(value, str):
        raise Wrong("a text expected, in quotes")
    return value


def _temperature(value: Any) -> Any:
    if isinstance(value, list):
        if len(value) != 2:
            raise Wrong("one number expected, or two, [start, end]")
        return [_number(entry) for entry in value]
    return _number(value)


def _date(value: Any) -> str:
    if isinstance(value, datetime.date):  # a datetime is one as well
        return value.isoformat()
    if isinstance(value, str):
        return value
    raise Wrong("a date expected, 2027-11-21")


def _translation(value: Any) -> tuple[float, ...]:
    if not isinstance(value, list) or len(value) != 3:
        raise Wrong("three numbers expected")
    return tuple(_number(entry) for entry in value)


# Key -> what turns its value into the one that is used, or raises `Wrong`.
Checks = Mapping[str, Callable[[Any], Any]]

_LIMITS: Checks = {
    "rms": _limit,
    "p99": _limit,
    "coverage": _share,
    "seam": _limit,
    "repeatability": _limit,
    "outliers": _share,
    "field_motion": _limit,
}
_VOLUME: Checks = {"depth": _depths, "half_angle_deg": _angle}
_DEVICE: Checks = {
    **dict.fromkeys(("serial", "model", "operator", "place", "target"), text),
    "temperature": _temperature,
    **dict.fromkeys(("customer", "certificate"), text),
    "next_due": _date,
}
_CONDITION: Checks = dict.fromkeys(
    (
        "temperature",
        "temperature_ref",
        "drift",
        "drift_ref",
        "drift_gain",
        "temperature_spread",
        "drift_spread",
        "scale_per_degree",
    ),
    _number,
)
_PARAMETERS: Checks = {**_CONDITION, "extrinsic_t": _translation}
_TABLES = {"limits": _LIMITS, "volume": _VOLUME, "device": _DEVICE}


def read_limits(path: str) -> Limits:
    """Read limits.toml: the tables [limits] and [volume].

    Raises
    ------
    Stop
        The file cannot be read, is not TOML, or holds a key or value that is not known.
    """
    tables = _checked_tables(path, _TABLES, ("limits", "volume"))
    volume: dict[str, Any] = tables["volume"] if "volume" in tables else {}
    limits: dict[str, float] = tables["limits"] if "limits" in tables else {}
    return Limits(limits, volume.get("depth"), volume.get("half_angle_deg"))


def read_device(path: str) -> dict[str, Any]:
    """Read device.toml: the table [device], as plain values.

    Raises
    ------
    Stop
        As `read_limits`.
    """
    return _checked_tables(path, _TABLES, ("device",))["device"]


def read_parameters(path: str) -> Parameters:
    """Read the numbers of a compensation: keys at the top, or in a table [compensation].

    Raises
    ------
    Stop
        As `read_limits`.
    """
    tables = read_toml(path)
    if set(tables) == {"compensation"} and isinstance(tables["compensation"], dict):
        tables = tables["compensation"]
    values = checked(path, "", tables, _PARAMETERS)
    extrinsic = values.pop("extrinsic_t", None)
    return Parameters(values, extrinsic)


def read_toml(path: str) -> dict[str, Any]:
    """Read a TOML file as it is.

    Raises
    ------
    Stop
        The file cannot be read or is not TOML.
    """
    try:
        with open(path, "rb") as file:
            return tomllib.load(file)
    except OSError as error:
        raise Stop(Status.FILE, f"{path}: {error.strerror}") from None
    except (tomllib.TOMLDecodeError, UnicodeDecodeError) as error:
        raise Stop(Status.FILE, f"{path}: {error}") from None
    except RecursionError:
        raise Stop(Status.FILE, f"{path}: nested too deeply") from None


def _checked_tables(
    path: str, known: Mapping[str, Checks], needed: tuple[str, ...]
) -> dict[str, dict[str, Any]]:
    tables = read_toml(path)
    for name, table in tables.items():
        homes = [home for home, checks in known.items() if name in checks]
        if homes and not isinstance(table, dict):
            raise Stop(Status.FILE, f"{path}: '{name}' belongs below [{homes[0]}]")
        if name not in known:
            raise Stop(Status.FILE, f"{path}: unknown table [{name}]{nearest(name, known)}")
        if not isinstance(table, dict):
            raise Stop(Status.FILE, f"{path}: '{name}' is a table: write [{name}]")
    if not any(name in tables for name in needed):
        wanted = " nor ".join(f"[{name}]" for name in needed)
        raise Stop(Status.FILE, f"{path}: no {wanted}")
    return {name: checked(path, name, table, known[name]) for name, table in tables.items()}


def checked(path: str, name: str, table: dict[str, Any], checks: Checks) -> dict[str, Any]:
    """The values of a table of the file `path`; `name` is empty for keys at the top.

    Raises
    ------
    Stop
        A key is not known, or its value is not what it asks for.
    """
    place = f"{path}: [{name}] " if name else f"{path}: "
    values: dict[str, Any] = {}
    for key, value in table.items():
        if key not in checks:
            raise Stop(Status.FILE, f"{place}unknown key '{key}'{nearest(key, checks)}")
        try:
            values[key] = checks[key](value)
        except Wrong as wrong:
            raise Stop(Status.FILE, f"{place}{key}: {wrong}") from None
    return values
