"""Devices that are simulated, and the host in C++ that the package is held against."""

from __future__ import annotations

import subprocess
from collections.abc import Callable
from pathlib import Path
from typing import Any

import numpy as np
import pytest

from kestrane import _core, _simulation

_TYPES = {".f8": "<f8", ".i8": "<i8", ".i4": "<i4", ".u1": "u1"}


class Host:
    """Runs the host in C++ on clouds, and reads what it leaves."""

    def __init__(self, folder: Path) -> None:
        self.program = Path(_core.__file__).parent.parent / "tests" / "python_host"
        self.folder = folder

    def run(
        self,
        job: str,
        *,
        clouds: list[Any] | None = None,
        frames: list[Any] | None = None,
        arguments: list[float] | None = None,
    ) -> dict[str, Any]:
        for kind, lists in (("cloud", clouds), ("frames", frames)):
            for plane, points in enumerate(lists or []):
                points.tofile(self.folder / f"{kind}_{plane}.bin")
        if arguments is not None:
            (self.folder / "arguments.txt").write_text("\n".join(repr(float(n)) for n in arguments))
        self.said = subprocess.run(
            [self.program, job, self.folder], check=True, stdout=subprocess.PIPE, text=True
        ).stdout
        left: dict[str, Any] = {}
        for path in self.folder.iterdir():
            if path.suffix in _TYPES:
                left[path.stem] = np.fromfile(path, _TYPES[path.suffix])
            elif path.suffix == ".txt":
                left[path.name] = path.read_text().splitlines()
        return left


@pytest.fixture
def host(tmp_path: Path) -> Host:
    folder = tmp_path / "host"
    folder.mkdir()
    return Host(folder)


def equal_bits(found: Any, expected: Any) -> bool:
    """Whether all numbers are equal to the bit; NaN equals NaN."""
    a, b = np.ascontiguousarray(found).reshape(-1), np.ascontiguousarray(expected).reshape(-1)
    if a.dtype.kind == "b":
        a = a.astype(np.uint8)
    if a.dtype != b.dtype or a.shape != b.shape:
        return False
    if a.dtype.kind != "f":
        return bool((a == b).all())
    both_nan = np.isnan(a) & np.isnan(b)
    return bool(((a.view(np.int64) == b.view(np.int64)) | both_nan).all())


@pytest.fixture
def same() -> Callable[[Any, Any], bool]:
    return equal_bits


@pytest.fixture(scope="session")
def clouds() -> list[Any]:
    """Three planes of 6,000 points in 20 frames."""
    return _simulation.measure(planes=3, points=6000, seed=3)


@pytest.fixture(scope="session")
def frames() -> list[Any]:
    """The same device, moved, as the field calibration wants to see it."""
    return _simulation.measure(
        planes=3, points=3000, seed=3, field=True, motion=[1e-3, 2e-4, -3e-4, 0.2, 0.1, -0.1]
    )
