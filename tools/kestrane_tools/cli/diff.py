"""`kestrane diff`: how two tables, coefficients or runs differ, and what to do about it."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any

import click
import numpy as np

from kestrane_tools.cli import options
from kestrane_tools.cli.inputs import (
    Kind,
    described,
    kind_of,
    read_coefficients,
    read_table,
)
from kestrane_tools.cli.stop import Status, Stop
from kestrane_tools.cli.words import counted, length, readable, runs

if TYPE_CHECKING:
    import kestrane

# The scale on which the coefficients are kept, and the conditions that they serve.
_CONDITIONS = (22.0, 31.0, 40.0)


@click.command(
    "diff",
    epilog=options.example("kestrane diff old.txt new.txt --tolerance 0.05 --volume 250:800"),
)
@click.argument("path_a", metavar="A", type=options.FILE)
@click.argument("path_b", metavar="B", type=options.FILE)
@click.option("--tolerance", metavar="MM", type=options.NOT_NEGATIVE, default=0.0,
              show_default=True,
              help="Differences up to this do not count; 0: to the last digit of a text "
              "table.")  # fmt: skip
@click.option("--volume", metavar="Z0:Z1", type=options.DEPTHS, help="Depths to compare.")
@click.option("--planes", type=options.PLANES, help="Planes to compare, both ends included.")
@options.json_option
@options.report_option
@click.pass_context
def command(
    ctx: click.Context,
    path_a: str,
    path_b: str,
    tolerance: float,
    volume: tuple[float, float] | None,
    planes: tuple[int, int] | None,
    json_target: str | None,
    report_path: str | None,
) -> int:
    """Tell how B differs from A: tables, coefficients, or the tables of runs.

    Exit status 1 where they differ by more than the tolerance.
    """
    from kestrane_tools.cli.console import Summary
    from kestrane_tools.cli.json_results import emit

    if volume is not None and not volume[0] < volume[1]:
        raise click.BadParameter("--volume: the nearest depth first, then the farthest")
    shown = Summary(not ctx.obj["quiet"] and json_target != "-")
    kinds = kind_of(path_a), kind_of(path_b)
    if Kind.COEFFICIENTS in kinds:
        if kinds[0] is not kinds[1]:
            raise Stop(
                Status.FILE,
                f"{path_a} and {path_b}: a {kinds[0].value} and a {kinds[1].value} file",
            )
        if report_path is not None:
            raise click.UsageError("--report: there is a page for tables and runs alone")
        outcome = _of_coefficients(path_a, path_b, tolerance, planes, shown)
    else:
        outcome = _of_tables(path_a, path_b, tolerance, volume, planes, report_path, shown)
    outcome["inputs"] = described([path_a, path_b])
    emit(json_target, outcome)
    return Status.FOUND if outcome["differs"] else Status.DONE


def _of_tables(
    path_a: str,
    path_b: str,
    tolerance: float,
    volume: tuple[float, float] | None,
    planes: tuple[int, int] | None,
    report_path: str | None,
    shown: Any,
) -> dict[str, Any]:
    import kestrane
    from kestrane_tools.cli.json_results import software

    a, b = (_cut(read_table(path), planes, path) for path in (path_a, path_b))
    depths = volume or (100.0, 1000.0)
    try:
        difference = kestrane.compare(a, b, kestrane.WorkingVolume(*depths))
    except ValueError as error:  # tables of different devices: a difference, but without figures
        return _of_unlike_tables(str(error), tolerance, shown)
    # What the rigid part leaves is held against a third of this limit.
    judgement = kestrane.judge(difference, {"rms": 3.0 * tolerance})
    differs = _differ(a, b, difference, tolerance, volume)
    number = planes[0] if planes else 0
    if difference.refused:
        shown.line(f"{counted(a.planes, 'plane')}: {difference.refused}")
    else:
        y, z = difference.place
        shown.line(
            f"{counted(a.planes, 'plane')}, volume {depths[0]:g}:{depths[1]:g}   "
            f"RMS {length(difference.rms)}   largest {length(difference.max)} "
            f"(plane {number + difference.plane}, y {y:.0f}, z {z:.0f})"
        )
        if difference.max > 0.0:
            shown.line(
                f"rigid motion explains {100.0 * difference.explained:.0f} %; "
                f"{length(difference.rest)} left after it"
            )
        if difference.only_in_one:
            shown.line(
                f"in one table alone: {counted(difference.only_in_one, 'block')} with a plane"
            )
    for finding in judgement.findings:
        if differs:
            shown.line(finding.text)
    if not differs:
        shown.line("no difference" + (f" above {tolerance:g}" if tolerance else ""))
    if report_path is not None:
        _draw(report_path, b, difference, judgement, path_a, path_b, depths)
    names = ("refused", "rms", "max", "plane", "line", "step", "place", "rest", "rest_max")
    return {
        "kind": "difference",
        "differs": differs,
        "tolerance": tolerance,
        "volume": {"depth": depths},
        "planes": difference.planes,
        "first_plane": number,
        **{name: getattr(difference, name) for name in names},
        "explained": difference.explained,
        "rigid": difference.rigid,
        "blocks": difference.blocks,
        "only_in_one": difference.only_in_one,
        "findings": judgement.findings,
        "software": software(),
    }


def _of_unlike_tables(why: str, tolerance: float, shown: Any) -> dict[str, Any]:
    from kestrane_tools.cli.json_results import software

    shown.line(why)
    return {
        "kind": "difference",
        "differs": True,
        "tolerance": tolerance,
        "refused": why,
        "software": software(),
    }


def _cut(table: kestrane.PlaneTable, planes: tuple[int, int] | None, path: str) -> Any:
    import kestrane

    if planes is None:
        return table
    first, last = planes
    if last >= table.planes:
        raise Stop(Status.FILE, f"{path}: has {table.planes} planes, no plane {last}")
    rows = slice(first, last + 1)
    return kestrane.PlaneTable(table.cells[rows].copy(), table.whole[rows].copy(), table.grid)


def _differ(
    a: kestrane.PlaneTable,
    b: kestrane.PlaneTable,
    difference: kestrane.Difference,
    tolerance: float,
    volume: tuple[float, float] | None,
) -> bool:
    if difference.only_in_one:
        return True
    if tolerance > 0.0 or volume is not None:
        # Refused: no block of the volume is in both; without one in either there is no difference.
        return not difference.refused and difference.max > tolerance
    return not (_same_digits(a.cells, b.cells) and _same_digits(a.whole, b.whole))


def _same_digits(a: Any, b: Any) -> bool:
    # As a text table would print them.
    other = a != b
    if not other.any():
        return True
    pairs = zip(a[other].tolist(), b[other].tolist(), strict=True)
    return all(f"{x:.6g}" == f"{y:.6g}" for x, y in pairs)


def _of_coefficients(
    path_a: str, path_b: str, tolerance: float, planes: tuple[int, int] | None, shown: Any
) -> dict[str, Any]:
    from kestrane_tools.cli.json_results import software

    a, b = read_coefficients(path_a), read_coefficients(path_b)
    counts = a.models.shape[0], b.models.shape[0]
    if counts[0] != counts[1]:
        raise Stop(Status.FILE, f"{path_b}: {counts[1]} planes, {path_a} has {counts[0]}")
    first, last = planes or (0, counts[0] - 1)
    if last >= counts[0]:
        raise Stop(Status.FILE, f"{path_a}: has {counts[0]} planes, no plane {last}")
    rows = slice(first, last + 1)
    moved = [np.abs(b.x_at(t)[rows] - a.x_at(t)[rows]) for t in _CONDITIONS]
    largest = [float(np.nanmax(m)) if np.isfinite(m).any() else 0.0 for m in moved]
    ranges = not np.array_equal(a.ranges, b.ranges)
    transforms = not np.array_equal(a.factory_to_user, b.factory_to_user)
    same = np.array_equal(a.models[rows], b.models[rows])
    differs = ranges or transforms or (max(largest) > tolerance if tolerance > 0.0 else not same)
    shown.line(f"coefficients of planes {runs(range(first, last + 1))}")
    for t, x in zip(_CONDITIONS, largest, strict=True):
        shown.line(f"  at {t:g}: x differs by at most {length(x)}")
    for name, found in (("ranges", ranges), ("transforms to user coordinates", transforms)):
        if found:
            shown.line(f"  {name} differ")
    if not differs:
        shown.line("no difference" + (f" above {tolerance:g}" if tolerance else ""))
    return {
        "kind": "coefficient difference",
        "differs": differs,
        "tolerance": tolerance,
        "planes": [first, last],
        "conditions": _CONDITIONS,
        "largest": largest,
        "ranges_differ": ranges,
        "transforms_differ": transforms,
        "software": software(),
    }


def _draw(
    path: str,
    b: kestrane.PlaneTable,
    difference: kestrane.Difference,
    judgement: kestrane.Judgement,
    path_a: str,
    path_b: str,
    depths: tuple[float, float],
) -> None:
    from kestrane_tools.cli.files import saving
    from kestrane_tools.cli.json_results import created, plain, software
    from kestrane_tools.report.render import write_page
    from kestrane_tools.results import difference_part, findings_of, table_part
    from kestrane_tools.run_file import Run

    meta = {
        "kind": "difference",
        "unit": "mm",
        "created": created(),
        "software": software(),
        "inputs": described([path_a, path_b]),
        "volume": {"depth": list(depths), "half_angle_deg": 30.0},
        "findings": findings_of(judgement),
        "verdict": judgement.verdict,
    }
    run = Run(
        meta=plain(meta),
        table=table_part(b),
        difference=difference_part(difference, readable(path_a)),
    )
    with saving(path):
        write_page(run, path)
