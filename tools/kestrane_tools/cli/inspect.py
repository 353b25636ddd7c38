"""`kestrane inspect`: what a file is, what it holds, and whether it is whole."""

from __future__ import annotations

import json
import os
from collections.abc import Callable
from typing import Any

import click
import numpy as np

from kestrane_tools.cli import options
from kestrane_tools.cli.inputs import (
    Kind,
    kind_of,
    read_clouds,
    read_coefficients,
    read_table,
    reading,
    sha256_of,
)
from kestrane_tools.cli.stop import Status, Stop


@click.command("inspect", epilog=options.example("kestrane inspect rig/table.txt"))
@click.argument("path", metavar="FILE", type=options.FILE)
@options.cloud_options
@options.json_option
@click.pass_context
def command(
    ctx: click.Context,
    path: str,
    plane: int | None,
    columns: str | None,
    unit: float,
    json_target: str | None,
) -> int:
    """Tell what FILE is: table, coefficients, run, page or cloud; counts, ranges, damage, hash.

    A damaged file is told with its first wrong place, and exit status 3.
    """
    from kestrane_tools.cli.console import Summary
    from kestrane_tools.cli.json_results import emit

    kind = Kind.CLOUD if columns else kind_of(path)
    readers: dict[Kind, Callable[[], dict[str, Any]]] = {
        Kind.TABLE: lambda: _table(path),
        Kind.COEFFICIENTS: lambda: _coefficients(path),
        Kind.RUN: lambda: _run(path),
        Kind.REPORT: lambda: _report(path),
        Kind.CLOUD: lambda: _cloud(path, plane, columns, unit),
        Kind.RESULT: lambda: _result(path),
    }
    found = readers[kind]()
    folder = os.path.isdir(path)
    facts: dict[str, Any] = {"file": path, "kind": kind.value}
    if not folder:
        facts |= {"bytes": os.path.getsize(path), "sha256": sha256_of(path)}
    shown = Summary(not ctx.obj["quiet"] and json_target != "-")
    shown.line(f"{path}   {kind.value}, whole")
    for name, value in {**facts, **found}.items():
        if name not in ("file", "kind") and value is not None and value != []:
            _tell(shown, name, value)
    emit(json_target, {**facts, **found})
    return Status.DONE


def _tell(shown: Any, name: str, value: Any) -> None:
    if isinstance(value, list) and value and all(isinstance(row, dict) for row in value):
        keys = list(value[0])
        shown.line(f"  {name}")
        shown.table(keys, [[_text(row.get(key)) for key in keys] for row in value], left=1)
    elif isinstance(value, dict):
        shown.line(f"  {name}: " + ", ".join(f"{k} {_text(v)}" for k, v in value.items()))
    else:
        shown.line(f"  {name}: {_text(value)}")


def _text(value: Any) -> str:
    if isinstance(value, float):
        return f"{value:.6g}"
    if isinstance(value, (list, tuple)):
        return " ".join(map(_text, value))
    return "-" if value is None else str(value)


def _range(values: Any) -> list[float] | None:
    finite = np.asarray(values)[np.isfinite(values)]
    return [float(finite.min()), float(finite.max())] if finite.size else None


def _table(path: str) -> dict[str, Any]:
    table = read_table(path)
    filled = table.cells[..., 0] != 0
    calibrated = np.flatnonzero(table.calibrated)
    middles = table.centres()
    xs = [
        table.x_at(int(plane), middles[..., 0].ravel(), middles[..., 1].ravel())
        for plane in calibrated
    ]
    return {
        "planes": table.planes,
        "calibrated": int(calibrated.size),
        "empty_rows": [int(p) for p in np.flatnonzero(~table.calibrated)],
        "blocks": int(filled.sum()),
        "depth": [float(table.grid.z[0]), float(table.grid.z[-1])],
        "x": _range(np.concatenate(xs)) if xs else None,
        "first": table.cells[0, 0, 0].tolist() if table.planes else None,
        "last": table.whole[-1].tolist() if table.planes else None,
    }


def _coefficients(path: str) -> dict[str, Any]:
    coefficients = read_coefficients(path)
    models = coefficients.models
    return {
        "planes": int(models.shape[0]),
        "ranges": [f"{first}-{last}" for first, last in coefficients.ranges.tolist()],
        "a": _range(models[..., 0]),
        "b": _range(models[..., 1]),
        "c": _range(models[..., 2]),
        "first": models[0, 0, 0].tolist() if models.size else None,
        "last": models[-1, -1, -1].tolist() if models.size else None,
    }


def _run(path: str) -> dict[str, Any]:
    from kestrane_tools import run_file

    with reading(path):
        run = run_file.read(path)
    parts = ("table", "factory", "field", "difference", "compensation")
    facts: dict[str, Any] = {"parts": [name for name in parts if getattr(run, name) is not None]}
    if run.table is not None:
        facts["planes"] = len(run.table.cells)
    return {**facts, **_told(run.meta)}


def _told(meta: dict[str, Any]) -> dict[str, Any]:
    # What a run's meta says, as a run file and a page hold it.
    kept = ("created", "verdict", "device", "software", "settings", "limits", "inputs")
    facts = {"of": meta.get("kind"), **{name: meta.get(name) for name in kept}}
    findings = meta.get("findings")
    facts["findings"] = [
        {name: finding.get(name) for name in ("level", "id", "text")}
        for finding in (findings if isinstance(findings, list) else ())
        if isinstance(finding, dict)  # the file may be of another program
    ]
    return {name: value for name, value in facts.items() if value}


def _report(path: str) -> dict[str, Any]:
    from kestrane_tools.report.render import read_page

    with reading(path):
        results = read_page(path)
    return {"schema": results["schema"], **_told(results["meta"])}


def _result(path: str) -> dict[str, Any]:
    with reading(path), open(path, "rb") as file:
        content = json.load(file)
    kept = ("created", "verdict", "refused", "software", "settings")
    facts = {name: content[name] for name in kept if content.get(name)}
    if "kind" in content:
        facts = {"of": content["kind"], **facts}
    if not facts:
        raise Stop(Status.FILE, f"{path}: JSON, but nothing that is known here")
    return facts


def _cloud(path: str, plane: int | None, columns: str | None, unit: float) -> dict[str, Any]:
    clouds = read_clouds([path], plane, columns, unit)
    rows = []
    for number, cloud in clouds.items():
        measured = cloud[np.isfinite(cloud["x"])]
        frames = np.unique(cloud["id"])
        row: dict[str, Any] = {
            "plane": number,
            "points": int(cloud.size),
            "dropped": int(cloud.size - measured.size),
            "frames": int(frames.size),
        }
        for name in "xyz":
            row[name] = _range(measured[name])
        row["first"] = [float(cloud[0][name]) for name in "xyz"] if cloud.size else None
        row["last"] = [float(cloud[-1][name]) for name in "xyz"] if cloud.size else None
        rows.append(row)
    numbers = np.unique(np.concatenate([np.unique(cloud["id"]) for cloud in clouds.values()]))
    return {
        "points": sum(row["points"] for row in rows),
        "frames": [int(numbers[0]), int(numbers[-1])],
        "planes": rows,
    }
