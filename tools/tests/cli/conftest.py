"""A device that all tests of the command line share."""

from __future__ import annotations

import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).parent))
from command_line import run  # noqa: E402 - found by the line above


@pytest.fixture(scope="session")
def kestrane():
    return run


@pytest.fixture(scope="session")
def device(tmp_path_factory):
    """A folder with clouds of a factory and of the field, and the calibrated device `rig`."""
    folder = tmp_path_factory.mktemp("device")
    small = ("--planes", 3, "--points", 6000)
    for command in (
        ("simulate", "-o", "factory.npz", *small),
        ("simulate", "-o", "field.npz", *small, "--motion", "1,0.5,-0.3,0.2,0,0.1"),
        ("calibrate", "factory.npz", "-o", "rig"),
    ):
        done = run(*command, cwd=folder)
        assert done.returncode == 0, done.stderr
    return folder


@pytest.fixture(scope="session")
def real_clouds():
    """Clouds of a real device, where somebody has put them beside the project."""
    path = Path(__file__).parents[4] / "shared/realdata/two_laser_planes.csv"
    if path.exists():
        return path
    pytest.skip("no real clouds beside the project")
