"""Point clouds from NumPy and from files, through the plain factory job."""

import tempfile
from pathlib import Path

import numpy as np

import kestrane
from kestrane import _simulation, jobs

measured = _simulation.measure(planes=2, points=12000)
folder = tempfile.TemporaryDirectory()
path = Path(folder.name) / "clouds.ply"

# [snippet]
xyz = np.stack([measured[0][axis] for axis in "xyz"], axis=1)
clouds = {0: kestrane.points(xyz, frames=measured[0]["id"]), 7: measured[1]}
kestrane.clouds.write(path, clouds)
again = kestrane.clouds.read(path)  # plane number -> points
result = jobs.factory_calibrate(again, on_plane=lambda plane, status: print(plane, status))
print(result.table, "calibrated:", np.flatnonzero(result.table.calibrated))
# [snippet end]
folder.cleanup()
assert np.flatnonzero(result.table.calibrated).tolist() == [0, 7]
