"""Refinement: a table that follows the bow of the sheets, from the same points."""

import numpy as np

import kestrane
from kestrane import _simulation

clouds = _simulation.measure(planes=4, points=12000)

# [snippet]
plain = kestrane.calibrate_factory(clouds).table
refined = kestrane.refine(clouds)
print("error to expect on new frames:", refined.cross_validated_rms.round(3))
line, step = plain.lookup(0.0, 200.0)
x, better = plain.x_at(0, 0.0, 200.0), refined.table.x_at(0, 0.0, 200.0)
print(f"x at depth 200: {x:.3f}, refined {better:.3f}, sigma {refined.sigma[0, line, step]:.3f}")
# [snippet end]
y, z = plain.centres()[:, 5:30].reshape(-1, 2).T.copy()
true = _simulation.sheet_x(4, 1, 0.4, 0, y, z)
errors = [np.sqrt(np.mean((table.x_at(0, y, z) - true) ** 2)) for table in (plain, refined.table)]
print(f"RMS error of x against the truth: plain {errors[0]:.4f}, refined {errors[1]:.4f}")
assert errors[1] < errors[0] / 2
