"""Devices that all tests of batches share."""

from __future__ import annotations

import subprocess
import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).parent))
from devices import COMMAND, GOOD, Devices  # noqa: E402 - found by the line above


@pytest.fixture(scope="session")
def devices(tmp_path_factory):
    """Five good devices and one damaged file; the good ones calibrated one after the other."""
    from kestrane import _core, _simulation, clouds

    if not _core.release_build:
        pytest.skip("sanitizers need more address space than a child has")
    base = tmp_path_factory.mktemp("devices")
    (base / "clouds").mkdir()
    for seed, name in enumerate(GOOD):
        made = _simulation.measure(planes=2, points=4000, seed=seed + 1)
        clouds.write(base / "clouds" / f"{name}.npz", made)
    whole = (base / "clouds" / "K-1.npz").read_bytes()
    (base / "clouds" / "damaged.npz").write_bytes(whole[: len(whole) // 2])
    for name in GOOD:
        cloud, folder = base / "clouds" / f"{name}.npz", base / "serial" / name
        subprocess.run([*COMMAND, "--quiet", "calibrate", cloud, "-o", folder], check=True)
    return Devices(base)


@pytest.fixture(scope="session")
def kestrane():
    def run(*arguments, env=None, cwd=None):
        import os

        return subprocess.run(
            [*COMMAND, *map(str, arguments)],
            cwd=cwd,
            env={**os.environ, **(env or {})},
            capture_output=True,
            encoding="utf-8",
            timeout=120,
            check=False,
        )

    return run


@pytest.fixture
def without_engine(tmp_path):
    """Environment of a process that finds no Dask."""
    import os

    folder = tmp_path / "without"
    folder.mkdir()
    (folder / "distributed.py").write_text("raise ImportError('not here')\n")
    return {"PYTHONPATH": f"{folder}:{os.environ.get('PYTHONPATH', '')}"}
