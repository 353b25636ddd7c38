"""`kestrane compensate`: a table for another temperature, and how the sheets move on the way."""

from __future__ import annotations

import dataclasses
from typing import TYPE_CHECKING, Any

import click
import numpy as np

from kestrane_tools.cli import options
from kestrane_tools.cli.stop import Status, Stop

if TYPE_CHECKING:
    import kestrane
    from kestrane_tools.run_file import CompensationPart

_MOST_STEPS = 1000
# Mid-fan at the middle of the field calibration's depths: where people look first.
_CURVE_DEPTH = 285.0
# Growth goes along the extrinsic translation, and the sheets turn about points on its line. Without
# either they keep direction and place, whatever that line is.
_ANY_LINE = (1.0, 0.0, 0.0)
_NEEDS_LINE = ("scale_per_degree", "temperature_spread", "drift_spread")


@click.command(
    "compensate",
    epilog=options.example(
        "kestrane compensate rig/table.txt -o warm.txt --params rig.toml --temperature 31.5"
    ),
)
@click.argument("table_path", metavar="TABLE", type=options.FILE)
@click.option("-o", "--output", metavar="OUT", required=True, type=options.FILE,
              help="The new table: text, .npz or .json.")  # fmt: skip
@click.option("--temperature", metavar="T", type=options.NUMBER, help="Of the device now.")
@click.option("--reference", metavar="T0", type=options.NUMBER, help="Of the device in TABLE.")
@click.option("--params", metavar="F", type=options.FILE,
              help="TOML: the eight numbers of the device's condition, and extrinsic_t.")  # fmt: skip
@click.option("--planes", type=options.PLANES, help="The planes of one fan, both ends included.")
@click.option("--curve", type=options.CURVE, metavar="FROM:TO:STEP",
              help="How the sheets move over these temperatures, in --json and --report.")  # fmt: skip
@options.json_option
@options.report_option
@click.pass_context
def command(
    ctx: click.Context,
    table_path: str,
    output: str,
    temperature: float | None,
    reference: float | None,
    params: str | None,
    planes: tuple[int, int] | None,
    curve: tuple[float, float, float] | None,
    json_target: str | None,
    report_path: str | None,
) -> int:
    """Bring TABLE to another temperature: growth of the device, and turn of its fan.

    The numbers of the device come from --params; --temperature and --reference take precedence over
    those of the file.
    """
    import kestrane
    from kestrane_tools.cli.console import Summary
    from kestrane_tools.cli.files import saving
    from kestrane_tools.cli.inputs import described, read_table
    from kestrane_tools.cli.json_results import created, emit, software
    from kestrane_tools.cli.stored import save_table
    from kestrane_tools.cli.words import length

    condition, extrinsic = _condition(params, temperature, reference)
    steps = _steps(curve)
    table = read_table(table_path)
    first, last = planes or (0, table.planes - 1)
    if last >= table.planes:
        raise click.BadParameter(f"--planes: {table_path} has {table.planes} planes")

    def at(now: kestrane.Condition) -> kestrane.PlaneTable:
        return kestrane.jobs.compensate(table, now, extrinsic, first=first, last=last + 1)

    warm = _compensated(at, condition)
    with saving(output):
        moved = save_table(warm, output)
    difference = kestrane.compare(table, warm)
    part = _curve(at, table, condition, steps) if steps is not None else None
    outcome = {
        "kind": "compensation",
        "created": created(),
        "condition": dataclasses.asdict(condition),
        "extrinsic_t": extrinsic,
        "planes": [first, last],
        "difference": {n: getattr(difference, n) for n in ("rms", "max", "plane", "refused")},
        "curve": None
        if part is None
        else {
            n: getattr(part, n) for n in ("temperature", "shift", "largest", "depth", "reference")
        },
        "software": software(),
        "inputs": described([p for p in (table_path, params) if p]),
        "outputs": described([output]),
    }
    if report_path is not None:
        _draw(report_path, warm, difference, part, outcome, table_path)
    emit(json_target, outcome)
    shown = Summary(not ctx.obj["quiet"] and json_target != "-")
    shown.line(
        f"{table_path}   planes {first}-{last}, {condition.temperature_ref:g} to "
        f"{condition.temperature:g}: sheets move by {length(difference.rms)} RMS, "
        f"{length(difference.max)} at most (plane {difference.plane})"
    )
    digits = "" if moved is None else f" (rounded to 6 digits: x within {moved:.2g})"
    shown.line(f"{output}{digits}" + (f"  {report_path}" if report_path else ""))
    return Status.DONE


def _condition(
    params: str | None, temperature: float | None, reference: float | None
) -> tuple[kestrane.Condition, tuple[float, float, float]]:
    import kestrane
    from kestrane_tools.cli.toml_files import Parameters, read_parameters

    given: Parameters = read_parameters(params) if params else Parameters()
    numbers = dict(given.condition)
    if temperature is not None:
        numbers["temperature"] = temperature
    if reference is not None:
        numbers["temperature_ref"] = reference
    missing = [name for name in ("temperature", "temperature_ref") if name not in numbers]
    if missing:
        option = {"temperature": "--temperature", "temperature_ref": "--reference"}[missing[0]]
        raise click.UsageError(f"{missing[0]} is given neither by {option} nor by --params")
    condition = kestrane.Condition(**numbers)
    if given.extrinsic_t is not None:
        if not any(given.extrinsic_t):
            raise Stop(Status.FILE, f"{params}: extrinsic_t is 0: it has no direction")
        return condition, given.extrinsic_t
    needing = [name for name in _NEEDS_LINE if getattr(condition, name) != 0.0]
    if needing:
        raise Stop(
            Status.FILE,
            f"{params}: {needing[0]} needs extrinsic_t, the line of growth and of the pivots",
        )
    return condition, _ANY_LINE


def _steps(curve: tuple[float, float, float] | None) -> list[float] | None:
    if curve is None:
        return None
    start, end, step = curve
    if step <= 0.0 or end < start or (end - start) / step > _MOST_STEPS:
        raise click.BadParameter(
            f"--curve: from the lower to the higher temperature in at most {_MOST_STEPS} steps"
        )
    return [start + k * step for k in range(int((end - start) / step + 1e-9) + 1)]


def _compensated(at: Any, condition: kestrane.Condition) -> kestrane.PlaneTable:
    table: kestrane.PlaneTable = at(condition)
    if not (np.isfinite(table.cells).all() and np.isfinite(table.whole).all()):
        raise Stop(Status.FAILED, "the compensated table holds numbers that are not finite")
    return table


def _curve(
    at: Any, table: kestrane.PlaneTable, condition: kestrane.Condition, steps: list[float]
) -> CompensationPart:
    import kestrane
    from kestrane_tools.run_file import CompensationPart

    def middle(of: kestrane.PlaneTable) -> list[float]:
        return [float(of.x_at(p, [0.0], [_CURVE_DEPTH])[0]) for p in range(of.planes)]

    before = np.array(middle(table))
    tables = [_compensated(at, dataclasses.replace(condition, temperature=t)) for t in steps]
    return CompensationPart(
        temperature=np.array(steps),
        shift=np.array([np.array(middle(warm)) - before for warm in tables]),
        largest=np.array([kestrane.compare(table, warm).max for warm in tables]),
        depth=_CURVE_DEPTH,
        reference=condition.temperature_ref,
    )


def _draw(
    path: str,
    warm: kestrane.PlaneTable,
    difference: kestrane.Difference,
    part: CompensationPart | None,
    outcome: dict[str, Any],
    table_path: str,
) -> None:
    from kestrane_tools.cli.files import saving
    from kestrane_tools.cli.json_results import plain
    from kestrane_tools.cli.words import readable
    from kestrane_tools.report.render import write_page
    from kestrane_tools.results import difference_part, table_part
    from kestrane_tools.run_file import Run

    kept = ("kind", "created", "software", "inputs", "outputs")
    meta: dict[str, Any] = {"unit": "mm", **{key: outcome[key] for key in kept}}
    meta["kind"] = "difference"
    meta["settings"] = {**outcome["condition"], "extrinsic_t": outcome["extrinsic_t"]}
    run = Run(
        meta=plain(meta),
        table=table_part(warm),
        difference=difference_part(difference, readable(table_path)),
        compensation=part,
    )
    with saving(path):
        write_page(run, path)
