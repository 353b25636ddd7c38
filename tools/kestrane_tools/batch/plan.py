"""The plan: which devices there are, and how all of them are calibrated.

    [calibrate]                     # optional: options of `kestrane calibrate`
    optimise = true
    limits = "limits.toml"

    [[device]]
    name = "K-17"                   # names its folder
    clouds = ["K-17/clouds.npz"]    # files or folders
    device = "K-17/device.toml"     # optional
    limits = "K-17/limits.toml"     # optional, in place of the one above

Paths are relative to the plan's folder. In go the file and patterns like ``line1/*/clouds.npz``;
out comes a `Plan`. What is not known is an error that names the nearest name that is.
"""

from __future__ import annotations

import glob as globbing
import math
import os
import re
from collections.abc import Iterator, Sequence
from dataclasses import dataclass, field
from typing import Any

from kestrane_tools.batch.job import Job
from kestrane_tools.cli.stop import Status, Stop
from kestrane_tools.cli.toml_files import Checks, Wrong, checked, read_toml, text
from kestrane_tools.cli.words import nearest, printable

__all__ = ["Plan", "read_plan"]

_INDEX = ("index.html", "summary.csv")
# Names of files may have 255 bytes; this leaves room for what is put before and after it.
_LONGEST_NAME = 200


@dataclass(frozen=True)
class Plan:
    """What is to be done.

    Attributes
    ----------
    base : str
        The absolute folder that paths are relative to.
    options : list of str
        Options of `kestrane calibrate` for all devices.
    jobs : list of Job
        The devices, in the plan's order, those of patterns last.
    """

    base: str
    options: list[str] = field(default_factory=list)
    jobs: list[Job] = field(default_factory=list)


def read_plan(path: str | None, patterns: Sequence[str], output: str) -> Plan:
    """Read a plan, and add a device for each path that fits a pattern.

    Parameters
    ----------
    path : str, optional
        PLAN.toml; without one patterns are relative to the working folder.
    patterns : sequence of str
        Each path is one device; its name is the part of the path that the wildcards stand for.
    output : str
        The folder of the results. Patterns do not look into it.

    Raises
    ------
    Stop
        The file cannot be read, or it or a pattern says what cannot be done.
    """
    base = os.path.abspath(os.path.dirname(path) if path else ".")
    output = os.path.abspath(output)
    tables = _tables(path) if path else {}
    options = _options(f"{path}: [calibrate] ", tables.get("calibrate", {}))
    limits = tables.get("calibrate", {}).get("limits")
    jobs: dict[str, Job] = {}
    for number, device in enumerate(tables.get("device", [])):
        place = f"{path}: [[device]] {number + 1}: "
        for key in ("name", "clouds"):
            if key not in device:
                raise Stop(Status.FILE, f"{place}no '{key}'")
        _add(jobs, place, output, {"limits": limits, **device})
    for pattern in patterns:
        found = 0
        for name, cloud in _found(base, pattern, output):
            found += 1
            _add(jobs, f"{pattern}: {cloud}: ", output,
                 {"name": name, "clouds": (cloud,), "limits": limits})  # fmt: skip
        if not found:
            raise Stop(Status.FILE, f"{pattern}: no such file below {base}")
    if not jobs:
        raise Stop(Status.FILE, f"{path}: no [[device]]")
    return Plan(base, options, list(jobs.values()))


# --- the file -------------------------------------------------------------------------------------


def _name(value: Any) -> str:
    name = text(value)
    if not name or name.startswith(".") or "/" in name or not name.isprintable():
        raise Wrong("a name of printable characters without '/' expected, no dot first")
    if len(os.fsencode(name)) > _LONGEST_NAME:
        raise Wrong(f"a name of at most {_LONGEST_NAME} bytes expected")
    if name in _INDEX:
        raise Wrong(f"'{name}' is a file of the batch itself")
    return name


def _path(value: Any) -> str:
    path = text(value)
    if not path or "\0" in path:
        raise Wrong("the path of a file expected")
    return path


def _paths(value: Any) -> tuple[str, ...]:
    if isinstance(value, str):
        return (_path(value),)
    if not isinstance(value, list) or not value:
        raise Wrong('paths expected, ["clouds.npz"]')
    return tuple(_path(entry) for entry in value)


def _flag(value: Any) -> bool:
    if not isinstance(value, bool):
        raise Wrong("true or false expected")
    return value


def _count(least: int, most: int) -> Any:
    def check(value: Any) -> int:
        if isinstance(value, bool) or not isinstance(value, int) or not least <= value <= most:
            raise Wrong(f"a whole number of {least} to {most} expected")
        return value

    return check


def _factor(value: Any) -> float:
    if isinstance(value, bool) or not isinstance(value, (int, float)):
        raise Wrong("a number expected")
    if not (math.isfinite(value) and value > 0.0):
        raise Wrong("a number above 0 expected")
    return float(value)


_DEVICE: Checks = {"name": _name, "clouds": _paths, "device": _path, "limits": _path}
_CALIBRATE: Checks = {
    **dict.fromkeys(("optimise", "far", "repeatability", "refine", "raw", "partial"), _flag),
    "threads": _count(1, 1024),
    "unit": _factor,
    "plane": _count(0, 99),
    "columns": text,
    "limits": _path,
}
_TABLES = ("calibrate", "device")


def _tables(path: str) -> dict[str, Any]:
    tables = read_toml(path)
    for name in tables:
        if name not in _TABLES:
            known = [*_TABLES, *_DEVICE, *_CALIBRATE]
            raise Stop(Status.FILE, f"{path}: unknown table or key '{name}'{nearest(name, known)}")
    calibrate = tables.get("calibrate", {})
    if not isinstance(calibrate, dict):
        raise Stop(Status.FILE, f"{path}: 'calibrate' is a table: write [calibrate]")
    devices = tables.get("device", [])
    if not isinstance(devices, list) or not all(isinstance(entry, dict) for entry in devices):
        raise Stop(Status.FILE, f"{path}: 'device' is a list of tables: write [[device]]")
    return {
        "calibrate": checked(path, "calibrate", calibrate, _CALIBRATE),
        "device": [
            checked(f"{path}: [[device]] {number + 1}", "", entry, _DEVICE)
            for number, entry in enumerate(devices)
        ],
    }


def _options(place: str, table: dict[str, Any]) -> list[str]:
    """The options of `kestrane calibrate` that say the same."""
    from click import UsageError

    from kestrane_tools.cli.calibrate import options_of

    options = []
    for key, value in table.items():
        if key == "limits":
            continue  # goes with each device
        if value is True:
            options.append(f"--{key}")
        elif value is False:
            options += [f"--no-{key}"] if key in ("optimise", "repeatability") else []
        else:
            options.append(f"--{key}={value!r}" if isinstance(value, float) else f"--{key}={value}")
    try:
        options_of([*options, "-o", "folder", "cloud"])
    except UsageError as error:
        raise Stop(Status.FILE, f"{place}{error.format_message()}") from None
    return options


def _add(jobs: dict[str, Job], place: str, output: str, device: dict[str, Any]) -> None:
    name = device["name"]
    if name in jobs:
        other = jobs[name].clouds[0]
        raise Stop(Status.FILE, f"{place}a second device with the name '{name}', after {other}")
    jobs[name] = Job(folder=os.path.join(output, name), **device)


# --- patterns -------------------------------------------------------------------------------------


def _found(base: str, pattern: str, output: str) -> Iterator[tuple[str, str]]:
    # Name and path of what fits. What the wildcards stand for does not depend on what else is
    # there, so that a device keeps its name when others come and go.
    parts = [part for part in pattern.split("/") if part not in ("", ".")]
    wild = [number for number, part in enumerate(parts) if re.search(r"[*?[]", part)]
    if not wild:
        raise Stop(Status.FILE, f"{pattern}: no wildcard: write the device into a plan")
    after = len(parts) - 1 - wild[-1]
    for path in sorted(globbing.glob(pattern, root_dir=base, recursive=True)):
        whole = os.path.normpath(os.path.join(base, path))
        if whole == output or whole.startswith(output + os.sep):
            continue
        own = [part for part in path.split("/") if part not in ("", ".")]
        own = own[wild[0] : len(own) - after]
        if own and not after and not os.path.isdir(whole):
            own[-1] = os.path.splitext(own[-1])[0]
        name = "-".join(own)
        try:
            yield _name(name), path
        except Wrong as wrong:
            raise Stop(Status.FILE, f"{pattern}: {printable(path)}: name: {wrong}") from None
