"""`kestrane report`: the page of a run, drawn again without clouds."""

from __future__ import annotations

import os
from typing import Any

import click

from kestrane_tools.cli import options
from kestrane_tools.cli.stop import Status, Stop


@click.command(
    "report",
    epilog=options.example("kestrane report rig/run.npz -o page.html --limits limits.toml"),
)
@click.argument("run_path", metavar="RUN", type=options.FILE)
@click.option("-o", "--output", metavar="HTML", required=True, type=options.FILE, help="The page.")
@click.option("--compare", metavar="FILE", type=options.FILE,
              help="A table: how far the run is from it. A run: both on one page.")  # fmt: skip
@click.option(
    "--limits", "limits_path", type=options.FILE, help="Judge again, by this limits.toml."
)
@options.json_option
@click.pass_context
def command(
    ctx: click.Context,
    run_path: str,
    output: str,
    compare: str | None,
    limits_path: str | None,
    json_target: str | None,
) -> int:
    """Draw the page of RUN, a run.npz of calibrate or field."""
    from kestrane_tools import run_file
    from kestrane_tools.cli.console import Summary
    from kestrane_tools.cli.files import saving
    from kestrane_tools.cli.inputs import Kind, described, kind_of, read_table, reading
    from kestrane_tools.cli.json_results import emit, software
    from kestrane_tools.cli.toml_files import read_limits
    from kestrane_tools.report.render import write_page

    with reading(run_path):
        run = run_file.read(run_path)
    limits = read_limits(limits_path).limits if limits_path else None
    other: Any = None
    if compare is not None:
        if kind_of(compare) is Kind.RUN:
            with reading(compare):
                other = run_file.read(compare)
        else:
            other = read_table(compare)
    try:
        with saving(output):
            write_page(run, output, limits=limits, compare=other)
    except ValueError as error:
        raise Stop(Status.FILE, f"{compare or run_path}: {error}") from None
    shown = Summary(not ctx.obj["quiet"] and json_target != "-")
    shown.line(
        f"{output}   {os.path.getsize(output):,} bytes" if os.path.isfile(output) else output
    )
    emit(json_target, {"output": output, "inputs": described([p for p in (run_path, compare) if p]),
                       "software": software()})  # fmt: skip
    return Status.DONE
