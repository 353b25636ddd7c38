"""Folders and files that go out, with the program's end where they cannot."""

from __future__ import annotations

import contextlib
import os
from collections.abc import Iterator

from kestrane_tools.cli.stop import Status, Stop

__all__ = ["make_folder", "saving"]


def make_folder(path: str) -> None:
    """Make a folder, and those above it; one that is there has to be writable.

    Found out before a calibration of minutes and not after it.

    Raises
    ------
    Stop
        It cannot be made or written to.
    """
    try:
        os.makedirs(path, exist_ok=True)
    except OSError as error:
        raise Stop(Status.FILE, f"{path}: {error.strerror}") from None
    if not os.access(path, os.W_OK | os.X_OK):
        raise Stop(Status.FILE, f"{path}: no files can be made in this folder")


@contextlib.contextmanager
def saving(path: str) -> Iterator[None]:
    """Turn the error of a writer into the end of the program.

    Raises
    ------
    Stop
        The file could not be written.
    """
    try:
        yield
    except OSError as error:
        reason = error.strerror or str(error)
        raise Stop(Status.FILE, reason if path in reason else f"{path}: {reason}") from None
