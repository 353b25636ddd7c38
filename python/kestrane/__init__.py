"""Calibration and compensation of a laser-line 3D scanner, over NumPy.

A device throws up to 100 sheets of laser light. The factory calibration makes a table of 15 x 50
local planes for each sheet from points that were measured on it; the field calibration finds how
the device has moved since; the compensation brings the table to the present temperature.

    >>> import numpy as np
    >>> import kestrane
    >>> clouds = kestrane.clouds.read("clouds.npz")            # plane number -> points
    >>> result = kestrane.calibrate_factory(clouds)            # screened, calibrated, measured
    >>> for finding in kestrane.judge(result, {"rms": 0.15}).findings:
    ...     print(finding.level, finding.text)
    >>> result.table.save("table.txt")                         # for the host

Points
    `POINT` is the record of a measured point: x across the sheets, y along a laser line, z depth,
    and the number of the capture frame. `points` makes an array of them from coordinates. A
    contiguous `POINT` array is used as it is, even a read-only one; everything else is converted once.
    `clouds` reads and writes them as CSV, NPY, NPZ, PLY and PCD.

The safe forms, which most callers want
    `calibrate_factory`, `calibrate_field`, `refine` screen what goes in and measure what comes out.
    Their results are frozen dataclasses of arrays; `judge` says in words what has to be known of
    them, `compare` tells two tables apart. `screen_cloud` and `screen_frames` are the screens
    alone. Bad measurements raise nothing: they are a refusal in the result, or a finding.

The jobs
    `jobs` holds the four jobs as they are, without screening and without judgement: a plane that
    cannot be calibrated has a status, and other failures raise.

Tables and coefficients
    `PlaneTable` and `Coefficients` are arrays with the look-ups and the files that belong to them.
    Files are checked from end to end; saving replaces the old file only by a whole new one.

Errors
    What a caller got wrong is a `ValueError`. What a job could not do is a `KestraneError`, one
    class for each status of the library. A file is a `FileOpenError` (an `OSError`) where the
    system refused it, and a `DamagedFile` (a `ValueError`) where what it holds is wrong.

Units and threads
    Nothing is converted: lengths have the unit of the points, which fixed depths expect to be
    millimetres; angles are radians. All long calls run without the interpreter's lock, and planes
    are worked on side by side; results are equal to the bit whatever the number of threads. Ctrl-C
    is served between planes. No call changes an array that it is given.
"""

from __future__ import annotations

from typing import TYPE_CHECKING, Any

from kestrane import jobs, quality
from kestrane._quiet import quiet
from kestrane.calibration import FactoryResult, FieldResult
from kestrane.coefficients import Coefficients
from kestrane.compensation import Condition
from kestrane.errors import (
    CalibrationFailed,
    CountMismatch,
    DamagedFile,
    EmptyRange,
    FileOpenError,
    FitFailed,
    InvalidParameter,
    KestraneError,
    NotReady,
    NullPointer,
    OutOfMemory,
    RangeUnknown,
    SolveFailed,
)
from kestrane.points import POINT, points
from kestrane.quality import (
    CloudSettings,
    Difference,
    FactoryQuality,
    FactorySettings,
    FieldQuality,
    FieldSettings,
    Finding,
    Judgement,
    Limits,
    Origin,
    Refine,
    RefinedDevice,
    RefinementSettings,
    ScreenedCloud,
    ScreenedFrames,
    WorkingVolume,
    calibrate_factory,
    calibrate_field,
    compare,
    conclude,
    judge,
    refine,
    screen_cloud,
    screen_frames,
)
from kestrane.tables import Grid, PlaneTable, SavedTable

if TYPE_CHECKING:
    from kestrane import clouds

    __version__: str

__all__ = [
    "POINT",
    "CalibrationFailed",
    "CloudSettings",
    "Coefficients",
    "Condition",
    "CountMismatch",
    "DamagedFile",
    "Difference",
    "EmptyRange",
    "FactoryQuality",
    "FactoryResult",
    "FactorySettings",
    "FieldQuality",
    "FieldResult",
    "FieldSettings",
    "FileOpenError",
    "Finding",
    "FitFailed",
    "Grid",
    "InvalidParameter",
    "Judgement",
    "KestraneError",
    "Limits",
    "NotReady",
    "NullPointer",
    "Origin",
    "OutOfMemory",
    "PlaneTable",
    "RangeUnknown",
    "Refine",
    "RefinedDevice",
    "RefinementSettings",
    "SavedTable",
    "ScreenedCloud",
    "ScreenedFrames",
    "SolveFailed",
    "WorkingVolume",
    "__version__",
    "calibrate_factory",
    "calibrate_field",
    "clouds",
    "compare",
    "conclude",
    "jobs",
    "judge",
    "points",
    "quality",
    "quiet",
    "refine",
    "screen_cloud",
    "screen_frames",
]


def __getattr__(name: str) -> Any:
    # What not every program needs is got when it is asked for: a command line starts faster.
    if name == "clouds":
        from importlib import import_module

        return import_module("kestrane.clouds")
    if name == "__version__":
        from importlib.metadata import version

        return version("kestrane")
    raise AttributeError(f"module 'kestrane' has no attribute {name!r}")


def __dir__() -> list[str]:
    return sorted({*globals(), *__all__})
