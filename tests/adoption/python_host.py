"""A Python host of the installed package: it is the installed one, and it works.

python_host.py <installation> <version>
"""

import sys
import tempfile
from pathlib import Path

import kestrane
from kestrane import _core, _simulation

stage, version = Path(sys.argv[1]).resolve(), sys.argv[2]
assert kestrane.__version__ == version, kestrane.__version__
assert stage in Path(kestrane.__file__).resolve().parents, kestrane.__file__
with open("/proc/self/maps") as maps:
    libraries = {line.split()[-1] for line in maps if "/libkestrane" in line}
assert len(libraries) == 2, libraries
assert all(stage in Path(library).parents for library in libraries), libraries

result = kestrane.calibrate_factory(_simulation.measure(planes=2, points=6000))
assert result.status.tolist() == [0, 0]
with tempfile.TemporaryDirectory() as folder:
    result.table.save(Path(folder) / "table.txt")
    assert kestrane.PlaneTable.read(Path(folder) / "table.txt").planes == 2
assert kestrane.clouds.read and _core.release_build is not None
