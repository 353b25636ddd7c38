"""What the package costs beside the library: time of a call, time of the import."""

from __future__ import annotations

import statistics
import subprocess
import sys
import time
from collections.abc import Callable
from typing import Any

import numpy as np
import pytest

from kestrane import POINT, _core, _simulation, jobs

pytestmark = pytest.mark.skipif(
    not _core.release_build, reason="times of a build that is not shipped"
)


def seconds(call: Callable[[], Any], times: int) -> float:
    """Processor time of a call, the median of many."""
    taken = []
    for _ in range(times):
        started = time.process_time()
        call()
        taken.append(time.process_time() - started)
    return statistics.median(taken)


def test_the_binding_takes_at_most_a_fiftieth_of_a_calibration_of_20_000_points():
    cloud = _simulation.measure(planes=1, points=20000)[0]
    nothing = np.empty(0, POINT)
    # With no point the job ends at once, and what is left is the way in and out.
    jobs.factory_calibrate([cloud], threads=1)
    shares = []
    for _ in range(5):
        whole = seconds(lambda: jobs.factory_calibrate([cloud], threads=1), 40)
        binding = seconds(lambda: jobs.factory_calibrate([nothing], threads=1), 200)
        shares.append(binding / whole)
    assert statistics.median(shares) <= 0.02


def test_the_import_takes_at_most_150_milliseconds():
    def processor_time(program: str) -> float:
        code = "import time; {}; print(time.process_time())".format(program)
        said = subprocess.run(
            [sys.executable, "-c", code], check=True, stdout=subprocess.PIPE, text=True
        ).stdout
        return float(said)

    processor_time("import kestrane")  # compiles what is not compiled yet
    numpy = min(processor_time("import numpy") for _ in range(5))
    # On a machine where NumPy alone takes most of it, twice NumPy.
    assert min(processor_time("import kestrane") for _ in range(5)) <= max(0.15, 2.0 * numpy)


def test_a_program_pays_for_the_file_formats_when_it_asks_for_them():
    code = "import sys, kestrane; print('kestrane.clouds' in sys.modules, kestrane.clouds.read)"
    said = subprocess.run(
        [sys.executable, "-c", code], check=True, stdout=subprocess.PIPE, text=True
    ).stdout
    assert said.startswith("False <function read")
