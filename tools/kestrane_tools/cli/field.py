"""`kestrane field`: a stored table and clouds measured now; how far the device has moved."""

from __future__ import annotations

import os
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any

import click

from kestrane_tools.cli import options
from kestrane_tools.cli.stop import Status, Stop

if TYPE_CHECKING:
    import kestrane
    from kestrane_tools.cli.console import Summary
    from kestrane_tools.cli.inputs import Clouds
    from kestrane_tools.cli.toml_files import Limits


@dataclass(frozen=True)
class Input:
    """What a field calibration starts from."""

    table: kestrane.PlaneTable
    clouds: Clouds
    limits: Limits
    device: dict[str, Any]
    inputs: list[dict[str, Any]]
    unit: float


@click.command(
    "field",
    epilog=options.example("kestrane field rig/table.txt field.npz -o moved --limits limits.toml"),
)
@click.argument("table_path", metavar="TABLE", type=options.FILE)
@click.argument("paths", metavar="CLOUDS...", nargs=-1, required=True, type=options.FILE)
@click.option("-o", "--output", "folder", metavar="DIR", required=True, type=options.FILE,
              help="Folder of the results; made if it is not there.")  # fmt: skip
@click.option("--planes", type=options.PLANES, help="These planes alone, both ends included.")
@click.option("--coefficients", metavar="F", type=options.FILE,
              help="Write the motion into these coefficients; with --out.")  # fmt: skip
@click.option("--out", metavar="F", type=options.FILE, help="Where the new coefficients go.")
@options.judging_options
@options.cloud_options
@options.json_option
@options.report_option
@click.pass_context
def command(
    ctx: click.Context,
    table_path: str,
    paths: tuple[str, ...],
    folder: str,
    planes: tuple[int, int] | None,
    coefficients: str | None,
    out: str | None,
    limits_path: str | None,
    device_path: str | None,
    plane: int | None,
    columns: str | None,
    unit: float,
    json_target: str | None,
    report_path: str | None,
) -> int:
    """Find how far the sheets have moved since TABLE was stored.

    The headline is the displacement of the sheets, which is free of what the points do not fix. DIR
    gets run.npz with all figures, report.html and result.json.
    """
    if (coefficients is None) != (out is None):
        raise click.UsageError("--coefficients and --out come together")
    import kestrane
    from kestrane_tools.cli.console import Summary, progress
    from kestrane_tools.cli.files import make_folder
    from kestrane_tools.cli.inputs import read_coefficients

    given = _read(table_path, paths, planes, limits_path, device_path, plane, columns, unit)
    old = None if coefficients is None else read_coefficients(coefficients)
    make_folder(folder)
    shown = Summary(not ctx.obj["quiet"] and json_target != "-")
    with progress("calibrating", 1) as advance:
        result = kestrane.calibrate_field(given.table, given.clouds)
        advance()
    judgement = kestrane.judge(result, given.limits.limits)
    outputs: list[dict[str, Any]] = []
    if not result.refused and old is not None and out is not None:
        outputs.append(_move_coefficients(given, old, out))
    outcome = _outcome(given, result, judgement, outputs)
    _tell(shown, paths, given, result, judgement)
    return _deliver(shown, given, result, outcome, folder, report_path, json_target)


def _read(
    table_path: str,
    paths: tuple[str, ...],
    planes: tuple[int, int] | None,
    limits_path: str | None,
    device_path: str | None,
    plane: int | None,
    columns: str | None,
    unit: float,
) -> Input:
    from kestrane_tools.cli.inputs import described, read_clouds, read_table
    from kestrane_tools.cli.toml_files import Limits, read_device, read_limits

    limits = read_limits(limits_path) if limits_path else Limits()
    device = read_device(device_path) if device_path else {}
    table = read_table(table_path)
    clouds = read_clouds(paths, plane, columns, unit)
    count = sum(cloud.size for cloud in clouds.values())
    if planes is not None:
        clouds = {p: cloud for p, cloud in clouds.items() if planes[0] <= p <= planes[1]}
        missing = [p for p in range(planes[0], planes[1] + 1) if p not in clouds]
        if missing:
            raise Stop(Status.FILE, f"{paths[0]}: no points of plane {missing[0]}")
    beyond = [p for p in clouds if p >= table.planes]
    if beyond:
        raise Stop(
            Status.FILE, f"{paths[0]}: plane {beyond[0]}; {table_path} has {table.planes} planes"
        )
    inputs = described([table_path]) + described(paths, count)
    return Input(table, clouds, limits, device, inputs, unit)


def _move_coefficients(given: Input, old: kestrane.Coefficients, out: str) -> dict[str, Any]:
    import kestrane
    from kestrane_tools.cli.files import saving
    from kestrane_tools.cli.inputs import sha256_of
    from kestrane_tools.cli.stored import save_coefficients

    # The job for coefficients screens nothing by itself.
    screened = kestrane.screen_frames(given.clouds, given.table)
    try:
        moved = kestrane.jobs.field_calibrate_coefficients(
            given.table, screened.lists, old, first=screened.first_plane, last=screened.last_plane
        )
    except (kestrane.KestraneError, ValueError) as error:
        raise Stop(Status.FAILED, f"coefficients: {error}") from None
    with saving(out):
        save_coefficients(moved, out)
    return {"name": os.path.basename(out), "sha256": sha256_of(out)}


def _outcome(
    given: Input,
    result: kestrane.FieldQuality,
    judgement: kestrane.Judgement,
    outputs: list[dict[str, Any]],
) -> dict[str, Any]:
    from kestrane_tools.cli.json_results import created, software

    directions = result.directions
    return {
        "kind": "field",
        "created": created(),
        "refused": result.refused,
        "displacement": result.displacement,
        "smallest_motion": result.smallest_motion,
        "motion": {"R": result.R, "t": result.t},
        "directions": [
            {"name": name, "sigma": directions.sigma[k], "fixed": directions.fixed[k]}
            for k, name in enumerate(directions.names)
        ],
        "used": _used(result),
        "indicators": {
            "mean": result.mean,
            "max": result.max,
            "half_mean_deviation": result.half_mean_deviation,
        },
        "findings": judgement.findings,
        "verdict": judgement.verdict,
        "limits": given.limits.limits,
        "settings": {"planes": list(given.clouds), "unit": given.unit},
        "software": software(),
        "device_file": given.device,
        "inputs": given.inputs,
        "outputs": outputs,
    }


def _used(result: kestrane.FieldQuality) -> dict[str, Any]:
    stages = result.used.stages
    given, screened, _, _, kept = range(5)
    return {
        "planes": stages.planes[kept],
        "frames": stages.frames[kept],
        "points": {
            "in": stages.points[given],
            "screened": stages.points[screened],
            "kept": stages.points[kept],
        },
        "left_out": result.used.left_out,
        "dropped_frames": result.used.dropped,
        "unit_hint": result.used.unit_hint,
    }


def _deliver(
    shown: Summary,
    given: Input,
    result: kestrane.FieldQuality,
    outcome: dict[str, Any],
    folder: str,
    report_path: str | None,
    json_target: str | None,
) -> int:
    from kestrane_tools.cli.files import saving
    from kestrane_tools.cli.json_results import emit, plain, write_json
    from kestrane_tools.report.render import write_page
    from kestrane_tools.results import field_part, table_part
    from kestrane_tools.run_file import Run

    result_path = os.path.join(folder, "result.json")
    if result.refused:
        write_json(result_path, outcome)
        emit(json_target, outcome)
        raise Stop(Status.FAILED, f"refused: {result.refused}")
    kept = ("kind", "created", "limits", "software", "settings", "inputs", "outputs", "findings")
    meta = {"unit": "mm", "device": given.device, **{key: outcome[key] for key in kept}}
    meta["verdict"] = outcome["verdict"]
    run = Run(meta=plain(meta), table=table_part(given.table), field=field_part(result))
    run_path = os.path.join(folder, "run.npz")
    pages = [os.path.join(folder, "report.html"), *filter(None, [report_path])]
    with saving(run_path):
        run.save(run_path)
    for page in pages:
        with saving(page):
            write_page(run, page)
    write_json(result_path, outcome)
    emit(json_target, outcome)
    shown.line("  ".join([run_path, *pages]))
    bad = any(finding.level == "bad" for finding in outcome["findings"])
    return Status.FOUND if bad else Status.DONE


def _tell(
    shown: Summary,
    paths: tuple[str, ...],
    given: Input,
    result: kestrane.FieldQuality,
    judgement: kestrane.Judgement,
) -> None:
    from kestrane_tools.cli.words import counted, length, listed, runs

    stages = result.used.stages
    shown.line(
        f"{listed(paths, 3)}   {counted(int(stages.points[0]), 'point')}, "
        f"{'planes' if len(given.clouds) > 1 else 'plane'} {runs(list(given.clouds))}, "
        f"{counted(int(stages.frames[0]), 'frame')} of all planes"
    )
    shown.line(
        f"  used: {counted(int(stages.points[4]), 'point')}, "
        f"{counted(int(stages.planes[4]), 'plane')}, {counted(int(stages.frames[4]), 'frame')}"
    )
    if not result.refused:
        moved = result.displacement
        shown.line(
            f"  the sheets have moved by {length(moved.rms)} RMS, {length(moved.max)} at most "
            f"(plane {moved.plane}); sigma {length(moved.sigma)}"
        )
    shown.judgement(judgement, given.limits.limits)
