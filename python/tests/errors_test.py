"""Every status has its class, and every class the builtin that says the same."""

import copy
import errno
import pickle

import pytest

from kestrane import errors

CASES = [
    (-1, errors.CalibrationFailed, Exception),
    (-2, errors.OutOfMemory, MemoryError),
    (-5, errors.NullPointer, Exception),
    (-7, errors.InvalidParameter, ValueError),
    (-8, errors.FileOpenError, OSError),
    (-14, errors.CountMismatch, ValueError),
    (-15, errors.RangeUnknown, LookupError),
    (-16, errors.FitFailed, ArithmeticError),
    (-17, errors.SolveFailed, ArithmeticError),
    (-18, errors.EmptyRange, ValueError),
    (-19, errors.NotReady, Exception),
]


@pytest.mark.parametrize(("status", "kind", "builtin"), CASES)
def test_a_status_becomes_its_class(status, kind, builtin):
    error = errors.error_of(status, "factory_calibrate", "no sector has 200 points")
    assert type(error) is kind
    assert isinstance(error, errors.KestraneError)
    assert isinstance(error, builtin)
    assert error.status == status
    assert error.call == "factory_calibrate"
    assert str(error) == f"factory_calibrate: no sector has 200 points (status {status})"


def test_a_status_without_a_detail_says_what_it_means():
    assert "no range" in str(errors.error_of(-15, "field_calibrate_coefficients"))


def test_an_unknown_status_is_a_plain_error():
    error = errors.error_of(-99, "distances")
    assert type(error) is errors.KestraneError
    assert error.status == -99


def test_a_file_that_cannot_be_opened_tells_errno_and_path():
    error = errors.FileOpenError(path="gone.csv", errno=errno.ENOENT)
    assert error.errno == errno.ENOENT
    assert error.filename == "gone.csv"
    assert error.status == -8
    assert "gone.csv" in str(error)


def test_a_damaged_file_tells_path_and_reason():
    error = errors.DamagedFile("table.txt", "cut after plane 3, line 7")
    assert isinstance(error, ValueError)
    assert error.status is None
    assert (error.path, error.reason) == ("table.txt", "cut after plane 3, line 7")
    assert str(error) == "table.txt: cut after plane 3, line 7"


EXAMPLES = [errors.error_of(status, "compensate", "why") for status, _, _ in CASES] + [
    errors.FileOpenError(path="gone.csv", errno=errno.ENOENT, call="read"),
    errors.DamagedFile("table.txt", "cut", call="read_table"),
]


@pytest.mark.parametrize("error", EXAMPLES, ids=lambda error: type(error).__name__)
@pytest.mark.parametrize("passed_on", [copy.copy, lambda e: pickle.loads(pickle.dumps(e))])
def test_an_error_that_crosses_processes_keeps_all_it_knows(error, passed_on):
    other = passed_on(error)
    assert type(other) is type(error)
    assert str(other) == str(error)
    assert other.__dict__ == error.__dict__
    assert getattr(other, "errno", None) == getattr(error, "errno", None)
    assert getattr(other, "filename", None) == getattr(error, "filename", None)
