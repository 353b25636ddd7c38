"""`kestrane batch`: many devices, each in a process of its own."""

from __future__ import annotations

import os
import sys
from typing import TYPE_CHECKING, Any

import click

from kestrane_tools.cli import options
from kestrane_tools.cli.stop import Status

if TYPE_CHECKING:
    from kestrane_tools.batch.folder import Folder
    from kestrane_tools.batch.job import Orders, Outcome
    from kestrane_tools.batch.plan import Plan

_MEGABYTE = 1 << 20
# More lines than fit on a screen tell less than the page does.
_MOST_LINES = 20


@click.command(
    "batch",
    epilog=options.example(
        "kestrane batch PLAN.toml -o results --resume\n"
        "  kestrane batch --glob 'line1/*/clouds.npz' -o results --workers 8"
    ),
)
@click.argument("plan_path", metavar="[PLAN.toml]", required=False, type=options.FILE)
@click.option("-o", "--output", metavar="DIR", required=True, type=options.FILE,
              help="Folder of the results, one below it for each device.")  # fmt: skip
@click.option("--glob", "patterns", metavar="PATTERN", multiple=True,
              help="A device for each file or folder that fits; named by what the wildcards "
              "stand for.")  # fmt: skip
@click.option("--workers", type=click.IntRange(1, 1024), metavar="N",
              help="Devices at a time on this machine; one for each core.")  # fmt: skip
@click.option("--scheduler", "address", metavar="tcp://...",
              help="Use the workers of this Dask scheduler. They have to see all folders.")  # fmt: skip
@click.option("--timeout", "seconds", type=options.POSITIVE, default=900.0, show_default=True,
              metavar="S", help="Seconds after which a device is given up.")  # fmt: skip
@click.option("--memory", type=click.IntRange(1, 1 << 24), default=2048, show_default=True,
              metavar="MB", help="Address space of each device's process.")  # fmt: skip
@click.option("--retry-killed", "retries", type=click.IntRange(0, 100), default=0, metavar="N",
              show_default=True,
              help="Begin a device again whose process was killed by a signal.")  # fmt: skip
@click.option("--resume", is_flag=True,
              help="Keep results that are there already, of the same files and settings.")  # fmt: skip
@options.json_option
@click.pass_context
def command(
    ctx: click.Context,
    plan_path: str | None,
    output: str,
    patterns: tuple[str, ...],
    workers: int | None,
    address: str | None,
    json_target: str | None,
    **limits: Any,
) -> int:
    """Calibrate many devices, each in a process of its own with limits of time and memory.

    PLAN.toml names the devices, in tables [[device]] with name, clouds, device and limits, and in
    [calibrate] options of `kestrane calibrate` for all; paths are relative to its folder. DIR/NAME
    gets what `kestrane calibrate` writes, and log.txt; DIR gets index.html, worst device first, and
    summary.csv. The exit status is 1 if any device is not ok.
    """
    from kestrane_tools.batch import scheduler
    from kestrane_tools.batch.folder import Folder
    from kestrane_tools.batch.plan import read_plan
    from kestrane_tools.cli.console import Summary
    from kestrane_tools.cli.files import make_folder
    from kestrane_tools.cli.words import counted

    if plan_path is None and not patterns:
        raise click.UsageError("a plan or --glob is needed: which devices?")
    if address is not None and workers is not None:
        raise click.UsageError("--workers and --scheduler: a scheduler has its own workers")
    if address is not None and not scheduler.has_engine():
        raise click.UsageError(f"--scheduler needs the package {scheduler.ENGINE}")
    plan = read_plan(plan_path, patterns, output)
    make_folder(output)
    with Folder(output) as folder:
        shown = Summary(not ctx.obj["quiet"] and json_target != "-")
        at_once = workers or len(os.sched_getaffinity(0))
        engine = _engine(at_once, address)
        shown.line(f"{counted(len(plan.jobs), 'device')}   {engine}")
        orders = orders_of(plan, folder, **limits)
        outcomes = _outcomes(plan, orders, folder, at_once, address)
        return _Overview(output, outcomes, engine).tell(shown, json_target)


def _engine(workers: int, address: str | None) -> str:
    from kestrane_tools.batch import scheduler

    if address is not None:
        return f"workers of {address}"
    many = "1 worker" if workers == 1 else f"{workers} workers"
    if scheduler.has_engine():
        return many
    print(f"kestrane: {scheduler.ENGINE} is not installed: threads watch the devices' processes",
          file=sys.stderr)  # fmt: skip
    return f"{many}, threads"


def orders_of(
    plan: Plan,
    folder: Folder,
    *,
    seconds: float = 900.0,
    memory: int = 2048,
    retries: int = 0,
    resume: bool = False,
) -> Orders:
    """What holds for all devices of a plan: `memory` in megabytes, the others as in `Orders`."""
    from kestrane_tools.batch.job import Orders
    from kestrane_tools.cli.calibrate import options_of, settings_of, told_settings
    from kestrane_tools.cli.json_results import plain, software

    wanted = options_of([*plan.options, "-o", "folder", "cloud"])
    return Orders(
        base=plan.base,
        options=tuple(plan.options) if wanted.threads else (*plan.options, "--threads=1"),
        settings=plain(told_settings(wanted, settings_of(wanted, None))),
        far=wanted.far,
        version=software()["version"],
        seconds=seconds,
        memory=memory * _MEGABYTE,
        retries=retries,
        resume=resume,
        lock=folder.lock,
        token=folder.token,
        child=(sys.executable, "-m", "kestrane_tools.batch.child"),
    )


def _outcomes(
    plan: Plan, orders: Orders, folder: Folder, workers: int, address: str | None
) -> list[Outcome]:
    from contextlib import closing

    from kestrane_tools.batch.scheduler import outcomes
    from kestrane_tools.cli.console import progress

    found = outcomes(plan.jobs, orders, folder, workers=workers, address=address)
    ended = []
    with progress("devices", len(plan.jobs)) as advance, closing(found):
        for outcome in found:
            ended.append(outcome)
            advance()
    return ended


class _Overview:
    """What is told of all devices at the end."""

    def __init__(self, output: str, outcomes: list[Outcome], engine: str) -> None:
        from kestrane_tools.batch.overview import counted, ranked

        self.output = output
        self.outcomes = ranked(outcomes)
        self.counts = counted(outcomes)
        self.engine = engine

    def tell(self, shown: Any, json_target: str | None) -> int:
        from kestrane_tools.batch.job import OK
        from kestrane_tools.batch.overview import write_index, write_summary
        from kestrane_tools.cli.files import saving
        from kestrane_tools.cli.json_results import created, emit, software
        from kestrane_tools.report.words import date

        moment = created()
        index, summary = (os.path.join(self.output, n) for n in ("index.html", "summary.csv"))
        about = {"kestrane": software()["version"], "ended": date(moment), "engine": self.engine}
        with saving(summary):
            write_summary(summary, self.outcomes)
        with saving(index):
            write_index(index, self.outcomes, about)
        emit(json_target, {
            "kind": "batch",
            "created": moment,
            "counts": self.counts,
            "devices": self.outcomes,
            "engine": self.engine,
            "software": software(),
        })  # fmt: skip
        bad = [outcome for outcome in self.outcomes if outcome.status != OK]
        self._tell_bad(shown, bad)
        shown.line(", ".join(f"{count} {status}" for status, count in self.counts.items()))
        shown.line(f"{index}  {summary}")
        return Status.FOUND if bad else Status.DONE

    def _tell_bad(self, shown: Any, bad: list[Outcome]) -> None:
        from kestrane_tools.cli.words import printable

        rows = [
            (printable(o.name), o.status, printable(o.cause or o.finding))
            for o in bad[:_MOST_LINES]
        ]
        shown.table(("device", "status", "cause"), rows, left=3)
        if len(bad) > _MOST_LINES:
            shown.line(f"  and {len(bad) - _MOST_LINES} more")
