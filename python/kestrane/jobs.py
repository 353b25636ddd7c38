"""The four jobs of the library as they are: no screening, no judgement.

In go clouds, tables and conditions; out come tables, motions and coefficients. A status of 0 means
that a job ran to its end, not that its result is any good: `kestrane.calibrate_factory` and
`kestrane.calibrate_field` screen what goes in and measure what comes out.
"""

from __future__ import annotations

from kestrane.calibration import (
    FactoryResult,
    FieldResult,
    JobSettings,
    distances,
    factory_calibrate,
    field_calibrate,
)
from kestrane.coefficients import (
    Coefficients,
    field_calibrate_coefficients,
    update_coefficients,
)
from kestrane.compensation import Condition, compensate

__all__ = [
    "Coefficients",
    "Condition",
    "FactoryResult",
    "FieldResult",
    "JobSettings",
    "compensate",
    "distances",
    "factory_calibrate",
    "field_calibrate",
    "field_calibrate_coefficients",
    "update_coefficients",
]
