"""`kestrane convert`: tables, coefficients and clouds between their formats."""

from __future__ import annotations

import os

import click

from kestrane_tools.cli import options
from kestrane_tools.cli.stop import Status, Stop


@click.command("convert", epilog=options.example("kestrane convert clouds.csv clouds.ply"))
@click.argument("source", metavar="IN", type=options.FILE)
@click.argument("target", metavar="OUT", type=options.FILE)
@click.option("--form", type=click.Choice(["binary", "big", "compressed", "ascii"]),
              help="Of PLY and PCD; binary where none is given.")  # fmt: skip
@options.cloud_options
@click.pass_context
def command(
    ctx: click.Context,
    source: str,
    target: str,
    form: str | None,
    plane: int | None,
    columns: str | None,
    unit: float,
) -> int:
    """Bring IN to the format of OUT's suffix.

    Tables: text (six digits), .npz, .json. Coefficients: binary, .npz, .json. Clouds: .csv, .txt,
    .xyz, .npy, .npz, .ply, .pcd. All but a text table keep every bit.
    """
    from kestrane_tools.cli import stored
    from kestrane_tools.cli.console import Summary
    from kestrane_tools.cli.files import saving
    from kestrane_tools.cli.inputs import Kind, kind_of, read_clouds, read_coefficients, read_table

    kind = Kind.CLOUD if columns else kind_of(source)
    suffix = os.path.splitext(target)[1].lower()
    shown = Summary(not ctx.obj["quiet"])
    remark = ""
    if kind is Kind.CLOUD:
        remark = _convert_clouds(read_clouds([source], plane, columns, unit), target, form)
    elif form is not None:
        raise click.UsageError("--form is for clouds")
    elif kind in (Kind.TABLE, Kind.RUN):
        table = read_table(source)
        if suffix in (".csv", ".ply", ".pcd", ".npy", ".xyz"):
            raise click.UsageError(f"'{target}': a table is written as .txt, .npz or .json")
        with saving(target):
            moved = stored.save_table(table, target)
        remark = "" if moved is None else f" (rounded to 6 digits: x within {moved:.2g})"
    elif kind is Kind.COEFFICIENTS:
        coefficients = read_coefficients(source)
        with saving(target):
            stored.save_coefficients(coefficients, target)
    else:
        raise Stop(Status.FILE, f"{source}: a {kind.value} file has no other format")
    shown.line(f"{target}{remark}")
    return Status.DONE


def _convert_clouds(clouds: dict, target: str, form: str | None) -> str:  # type: ignore[type-arg]
    from kestrane import clouds as formats
    from kestrane_tools.cli.files import saving

    if os.path.splitext(target)[1].lower() not in formats.SUFFIXES:
        raise click.UsageError(f"'{target}': its suffix is not one of {' '.join(formats.SUFFIXES)}")
    try:
        with saving(target):
            formats.write(target, clouds, form=form)
    except ValueError as error:
        raise click.UsageError(str(error)) from None
    return f"   {sum(cloud.size for cloud in clouds.values()):,} points"
