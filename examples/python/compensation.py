"""Compensation: a table at the device's present temperature."""

import numpy as np

import kestrane
from kestrane import Condition, _simulation, jobs

table = kestrane.calibrate_factory(_simulation.measure(planes=8, points=12000)).table

# [snippet]
condition = Condition(
    temperature=31.5,
    temperature_ref=22.0,
    temperature_spread=3e-6,  # radians per plane step and degree
    scale_per_degree=1e-5,
)
warm = jobs.compensate(table, condition, extrinsic_t=[120.0, 0.0, 0.0])
difference = kestrane.compare(table, warm)
print(f"x moves by {difference.rms:.4f} RMS, {difference.max:.4f} on plane {difference.plane}")
# [snippet end]
y, z = table.centres()[7, 10]
x = [warm.x_at(plane, y, z) - table.x_at(plane, y, z) for plane in range(table.planes)]
print("per plane at the middle:", np.round(x, 4))
assert 0 < difference.max < 1
