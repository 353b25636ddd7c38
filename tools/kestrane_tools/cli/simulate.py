"""`kestrane simulate`: the clouds of a simulated device, to try everything without one."""

from __future__ import annotations

import os

import click

from kestrane_tools.cli import options
from kestrane_tools.cli.stop import Status, Stop

_MILLI = 1e-3
_FRAMES = 20


@click.command(
    "simulate",
    epilog=options.example(
        "kestrane simulate -o factory.npz && kestrane simulate -o field.npz"
        " --motion 1,0.5,-0.3,0.2,0,0.1"
    ),
)
@click.option("-o", "--output", type=options.FILE, required=True, help="Clouds, in any format.")
@click.option("--planes", type=click.IntRange(1, 100), default=8, show_default=True)
@click.option("--points", type=click.IntRange(1, 1_000_000), default=12_000, show_default=True,
              help="Points of each plane.")  # fmt: skip
@click.option("--seed", type=click.IntRange(0, 2**32 - 1), default=1, show_default=True,
              help="Of the device and its noise.")  # fmt: skip
@click.option("--noise", type=options.NOT_NEGATIVE, default=0.05, show_default=True,
              help="Of a point, mm.")  # fmt: skip
@click.option("--frame-noise", type=options.NOT_NEGATIVE, default=0.0, show_default=True,
              help="Common to the points of a frame, mm.")  # fmt: skip
@click.option("--motion", type=options.MOTION,
              help="Field clouds of the device after it has moved: milliradians, mm.")  # fmt: skip
@options.json_option
@click.pass_context
def command(
    ctx: click.Context,
    output: str,
    planes: int,
    points: int,
    seed: int,
    noise: float,
    frame_noise: float,
    motion: tuple[float, ...] | None,
    json_target: str | None,
) -> None:
    """Make the clouds of a simulated device with bowed sheets.

    The same seed makes the same device, so clouds of a factory and, with --motion, of the field
    belong together.
    """
    from kestrane import _simulation, clouds
    from kestrane.errors import FileOpenError
    from kestrane_tools.cli.console import Summary
    from kestrane_tools.cli.json_results import emit, software

    move = [0.0] * 6 if motion is None else [a * _MILLI for a in motion[:3]] + list(motion[3:])
    made = _simulation.measure(
        planes=planes,
        points=points,
        seed=seed,
        noise=noise,
        frame_noise=frame_noise,
        frames=min(_FRAMES, points),
        field=motion is not None,
        motion=move,
    )
    if os.path.splitext(output)[1].lower() not in clouds.SUFFIXES:
        raise click.BadParameter(
            f"'{output}': its suffix is not one of {' '.join(clouds.SUFFIXES)}"
        )
    try:
        clouds.write(output, made)
    except FileOpenError as error:
        raise Stop(Status.FILE, f"{output}: {error.strerror}") from None
    shown = Summary(not ctx.obj["quiet"] and json_target != "-")
    what = "field" if motion is not None else "factory"
    shown.line(f"{output}   {planes * points:,} points, {planes} planes, {what} clouds")
    emit(
        json_target,
        {
            "output": output,
            "planes": planes,
            "points": planes * points,
            "seed": seed,
            "noise": noise,
            "frame_noise": frame_noise,
            "motion": move if motion is not None else None,
            "software": software(),
        },
    )
