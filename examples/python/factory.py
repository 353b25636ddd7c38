"""Factory calibration in its safe form: bad points taken out, figures measured, a verdict."""

import numpy as np

import kestrane
from kestrane import _simulation

# In a real host: kestrane.clouds.read("clouds.npz"), or the device.
clouds = _simulation.measure(planes=8, points=12000)
clouds[3]["x"][::1000] += 150.0  # reflections
clouds[5]["x"][::100] = np.nan  # dropped points

# [snippet]
result = kestrane.calibrate_factory(clouds)
judgement = kestrane.judge(result, {"rms": 0.15, "coverage": 0.8})
for finding in judgement.findings:
    print(f"{finding.level:4} {finding.id:13} {finding.text}")
print(judgement.verdict)
worst = int(np.nanargmax(result.planes.rms))
print(f"plane {worst}: RMS {result.planes.rms[worst]:.3f} over {result.planes.points[worst]} points")
# [snippet end]

# The figures of the blocks, where the plane is worst:
rms = result.blocks.rms[worst]
line, step = np.unravel_index(np.nanargmax(rms), rms.shape)
y, z = result.table.centres()[line, step]
print(f"worst block at y {y:.0f}, depth {z:.0f}: RMS {rms[line, step]:.3f}")
assert judgement.worst != "bad"
