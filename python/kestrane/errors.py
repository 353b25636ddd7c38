"""What a call raises: one class for each status of the library, and one for a damaged file.

In goes a status of the C++ library, the name of the call that returned it and, where more is known,
what most likely led to it; out comes an exception. Every class is a `KestraneError` and, where
Python has a word for the case, that word as well, so that ``except ValueError`` or
``except OSError`` work as everywhere.

A bad measurement raises nothing: it is a refusal or a finding in a result. `CalibrationFailed` and
its neighbours come from `kestrane.jobs`, which judge nothing.
"""

from __future__ import annotations

import errno as _errno
import os

__all__ = [
    "CalibrationFailed",
    "CountMismatch",
    "DamagedFile",
    "EmptyRange",
    "FileOpenError",
    "FitFailed",
    "InvalidParameter",
    "KestraneError",
    "NotReady",
    "NullPointer",
    "OutOfMemory",
    "RangeUnknown",
    "SolveFailed",
    "error_of",
]


class KestraneError(Exception):
    """A call of the library that failed.

    Attributes
    ----------
    status : int or None
        The status of the library; None where none was involved.
    call : str
        The call that failed, ``"factory_calibrate"``; empty where that says nothing.
    """

    default_status: int | None = None

    def __init__(self, message: str = "", *, status: int | None = None, call: str = "") -> None:
        super().__init__(message)
        self.status = self.default_status if status is None else status
        self.call = call

    def __reduce__(self) -> tuple[object, ...]:
        # Keywords are not in `args`; an exception that crosses processes keeps all it knows.
        return type(self), self.args, self.__dict__


class CalibrationFailed(KestraneError):
    """Status -1: a calibration did not run to its end."""

    default_status = -1


class OutOfMemory(KestraneError, MemoryError):
    """Status -2: the library could not get memory."""

    default_status = -2


class NullPointer(KestraneError):
    """Status -5: a record without an array. No call of this package can bring it about."""

    default_status = -5


class InvalidParameter(KestraneError, ValueError):
    """Status -7: an argument outside its range."""

    default_status = -7


class FileOpenError(KestraneError, OSError):
    """Status -8: a file that could not be opened, read or written.

    Attributes
    ----------
    errno : int or None
        Reason of the operating system, as of every OSError.
    strerror : str
        The reason in words.
    filename : str or None
        The file, as the caller named it.
    """

    default_status = -8

    def __init__(
        self,
        message: str = "",
        *,
        path: str | os.PathLike[str] | None = None,
        errno: int | None = None,
        status: int | None = None,
        call: str = "",
    ) -> None:
        if errno is None and path is None:
            OSError.__init__(self, message)
        else:
            name = None if path is None else os.fspath(path)
            number = _errno.EIO if errno is None else errno
            OSError.__init__(self, number, message or os.strerror(number), name)
        self.status = self.default_status if status is None else status
        self.call = call

    def __reduce__(self) -> tuple[object, ...]:
        return _file_open_error, (*self.args, self.filename), self.__dict__


class CountMismatch(KestraneError, ValueError):
    """Status -14: lists, planes or tables whose numbers do not fit together."""

    default_status = -14


class RangeUnknown(KestraneError, LookupError):
    """Status -15: no range of the coefficients is the one that was asked for."""

    default_status = -15


class FitFailed(KestraneError, ArithmeticError):
    """Status -16: the points of a plane could not be prepared for the solve."""

    default_status = -16


class SolveFailed(KestraneError, ArithmeticError):
    """Status -17: the last solve of a field calibration gave nothing usable."""

    default_status = -17


class EmptyRange(KestraneError, ValueError):
    """Status -18: a range of one plane where the job needs more."""

    default_status = -18


class NotReady(KestraneError):
    """Status -19: a job before its engine was made. No call of this package can bring it about."""

    default_status = -19


class DamagedFile(KestraneError, ValueError):
    """A file that is cut, malformed or holds numbers that are not finite.

    Attributes
    ----------
    path : str
        The file, as the caller named it.
    reason : str
        The first place that is missing or wrong, and what is wrong there.
    """

    def __init__(self, path: str | os.PathLike[str], reason: str, *, call: str = "") -> None:
        self.path = os.fspath(path)
        self.reason = reason
        super().__init__(f"{self.path}: {reason}", call=call)

    def __reduce__(self) -> tuple[object, ...]:
        return type(self), (self.path, self.reason), self.__dict__


def _file_open_error(*parts: object) -> FileOpenError:
    # (message, None) or (errno, message, path)
    *words, path = parts
    if len(words) == 1:
        return FileOpenError(str(words[0]))
    number, message = words
    return FileOpenError(str(message), path=path, errno=number)  # type: ignore[arg-type]


_KINDS: tuple[type[KestraneError], ...] = (
    CalibrationFailed,
    OutOfMemory,
    NullPointer,
    InvalidParameter,
    FileOpenError,
    CountMismatch,
    RangeUnknown,
    FitFailed,
    SolveFailed,
    EmptyRange,
    NotReady,
)

_CLASS_OF_STATUS: dict[int, type[KestraneError]] = {
    kind.default_status: kind for kind in _KINDS if kind.default_status is not None
}

_WHAT_IT_TELLS = {
    -1: "the calibration did not run to its end",
    -2: "memory could not be had",
    -5: "a record without an array",
    -7: "an argument outside its range",
    -8: "the file could not be opened",
    -14: "counts that do not fit together",
    -15: "no range of the coefficients is the one asked for",
    -16: "the points of a plane could not be prepared",
    -17: "the last solve gave nothing usable",
    -18: "a range of one plane",
    -19: "called before it was ready",
}


def error_of(status: int, call: str, detail: str = "") -> KestraneError:
    """Make the exception that belongs to a status.

    Parameters
    ----------
    status : int
        A status of the library other than 0.
    call : str
        The call that returned it; the message begins with it.
    detail : str
        What most likely led to it; without one the message tells what the status means.

    Returns
    -------
    KestraneError
        To be raised; a status that no class stands for makes a plain `KestraneError`.
    """
    kind = _CLASS_OF_STATUS.get(status, KestraneError)
    words = detail or _WHAT_IT_TELLS.get(status, "failed")
    return kind(f"{call}: {words} (status {status})", status=status, call=call)
