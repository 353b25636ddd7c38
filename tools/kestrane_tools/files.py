"""Whole files or none: what the tools write stands complete under its name, or not at all.

In goes a path and the bytes of a file; out comes the file. It is written as the package `kestrane`
writes point clouds: beside the target, synced, and renamed in one step.
"""

from __future__ import annotations

import os
from pathlib import Path

from kestrane._output import replacing
from kestrane.errors import FileOpenError

__all__ = ["read_bytes", "write_bytes"]


def read_bytes(path: str | os.PathLike[str]) -> bytes:
    """Read a whole file.

    Raises
    ------
    FileOpenError
        It could not be opened or read.
    """
    try:
        return Path(path).read_bytes()
    except OSError as error:
        raise FileOpenError(path=path, errno=error.errno) from error


def write_bytes(path: str | os.PathLike[str], data: bytes) -> None:
    """Write a whole file in place of the one that may be there.

    Raises
    ------
    FileOpenError
        It could not be written; a file that was there is as it was.
    """
    with replacing(path) as file:
        file.write(data)
