"""A map of a plane: how far its points lie from the table, block by block. Needs matplotlib."""

import sys
from pathlib import Path

import numpy as np

import kestrane
from kestrane import _simulation

try:
    import matplotlib
except ImportError:
    print("plot_map: matplotlib is not installed (python3-matplotlib)")
    raise SystemExit(77) from None
matplotlib.use("Agg")
from matplotlib import pyplot  # noqa: E402


def main(target: Path) -> None:
    result = kestrane.calibrate_factory(_simulation.measure(planes=8, points=12000))
    plane = int(np.nanargmax(result.planes.rms))
    grid = result.table.grid
    # The corners of the blocks: 16 rays at 51 depths.
    y = grid.y_start + np.arange(16)[:, None] * grid.y_step
    z = np.broadcast_to(grid.z, y.shape)
    figure, axes = pyplot.subplots(figsize=(6, 7), layout="constrained")
    colours = axes.pcolormesh(y, z, result.blocks.rms[plane], cmap="viridis", vmin=0)
    axes.set_aspect("equal")
    axes.set(xlabel="y", ylabel="depth", title=f"plane {plane}: RMS of the residuals")
    figure.colorbar(colours, label="RMS, in the unit of the points")
    figure.savefig(target)
    print(f"{target}: plane {plane}, RMS {result.planes.rms[plane]:.3f}")


main(Path(sys.argv[1] if len(sys.argv) > 1 else "map.png"))
