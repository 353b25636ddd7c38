"""Whole files or none: what the tools write stands complete under its name, or not at all.

In goes a path and the bytes of a file; out comes the file. The bytes go into a new file beside the
target, are synced, and take its name in one step, so a reader sees the old file or the new one and
a full disk leaves the old one as it was.
"""

from __future__ import annotations

import os
import stat
from pathlib import Path

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

    A target that is no ordinary file (a device, a pipe) cannot be replaced and is written to.

    Raises
    ------
    FileOpenError
        It could not be written; a file that was there is as it was.
    """
    target = Path(path)
    try:
        if target.exists() and not target.is_file():
            _write_into(target, data)
        else:
            _replace(target, data)
    except OSError as error:
        raise FileOpenError(path=path, errno=error.errno) from error


def _write_into(target: Path, data: bytes) -> None:
    with target.open("wb", buffering=0) as file:
        _write_all(file.fileno(), data)


def _replace(target: Path, data: bytes) -> None:
    # A link keeps leading to its file, and the file keeps its permissions.
    target = target.resolve()
    beside = target.with_name(f".{target.name[:200]}.{os.getpid()}.part")
    mode = stat.S_IMODE(target.stat().st_mode) if target.exists() else 0o666
    number = os.open(beside, os.O_WRONLY | os.O_CREAT | os.O_EXCL | os.O_CLOEXEC, mode)
    try:
        try:
            _write_all(number, data)
            os.fsync(number)
        finally:
            os.close(number)
        os.replace(beside, target)
    except BaseException:
        beside.unlink(missing_ok=True)
        raise
    _sync_folder(target.parent)


def _write_all(number: int, data: bytes) -> None:
    rest = memoryview(data)
    while rest:
        rest = rest[os.write(number, rest) :]


def _sync_folder(folder: Path) -> None:
    number = os.open(folder, os.O_RDONLY | os.O_DIRECTORY | os.O_CLOEXEC)
    try:
        os.fsync(number)
    finally:
        os.close(number)
