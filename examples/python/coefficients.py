"""Coefficients: how the corners follow the condition of a device, brought up to date."""

import tempfile
from pathlib import Path

import numpy as np

from kestrane import Coefficients, _simulation, jobs

result = jobs.factory_calibrate(_simulation.measure(planes=8, points=12000))
# In a real host: Coefficients.read("coefficients.bin"). Here: lines through the corners at 25 that
# rise by 0.02 per degree.
a, b = np.full((8, 16, 51), -0.02), np.ones((8, 16, 51))
source = Coefficients(np.stack([a, b, -(a * 25 + result.corners[..., 0])], axis=-1), [[0, 7]])
folder = tempfile.TemporaryDirectory()
path = Path(folder.name) / "coefficients.bin"

# [snippet]
updated = jobs.update_coefficients(result, 25.0, source)
updated.save(path)
assert Coefficients.read(path) == updated  # to the bit
rise = updated.slope()
print(f"x rises by {np.median(rise):.4f} per degree, {rise.min():.4f} to {rise.max():.4f}")
table = updated.table_at(30.0)
print(f"x of plane 0 at the middle, 30 degrees: {table.x_at(0, 0.0, 500.0):.3f}")
# [snippet end]
folder.cleanup()
assert abs(np.median(rise) - 0.02) < 1e-3
