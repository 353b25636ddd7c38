"""Files that appear whole or not at all.

A file is written beside its target and renamed over it, so that neither a full disk nor an
interrupted program leaves half of one, and an old file stays as it is after any failure.
"""

from __future__ import annotations

import contextlib
import os
import stat
from collections.abc import Iterator
from typing import BinaryIO

from kestrane.errors import FileOpenError

__all__ = ["replacing"]


@contextlib.contextmanager
def replacing(path: str | os.PathLike[str]) -> Iterator[BinaryIO]:
    """Open a file for writing that takes the place of `path` at the end of the block.

    A target that is not a regular file (a pipe, a terminal, a device) is written to directly. A
    symbolic link stays one: the file that it points to is replaced.

    Raises
    ------
    FileOpenError
        The file could not be made, written, synced or renamed; an old one is intact.
    """
    name = os.fspath(path)
    try:
        if _is_special(name):
            with open(name, "wb") as direct:
                yield direct
            return
        yield from _beside(os.path.realpath(name))
    except FileOpenError:
        raise
    except OSError as error:
        raise FileOpenError(path=name, errno=error.errno, call="write") from None


def _is_special(name: str) -> bool:
    try:
        return not stat.S_ISREG(os.stat(name).st_mode)
    except FileNotFoundError:
        return False


def _beside(target: str) -> Iterator[BinaryIO]:
    # target: a whole path, from the root on
    folder, base = os.path.split(target)
    # Process number and a counter: two writers of the same target do not meet.
    for attempt in range(1000):
        beside = os.path.join(folder, f".{base[:200]}.{os.getpid()}.{attempt}.part")
        try:
            # x: fails where the file is there; 0666 less the mask, as every program's files
            file = open(beside, "xb")  # closed below, before the rename
            break
        except FileExistsError:
            continue
    else:
        raise FileExistsError(17, "no free name beside it", target)
    try:
        with file:
            yield file
            file.flush()
            os.fsync(file.fileno())
        os.replace(beside, target)
    except BaseException:
        with contextlib.suppress(OSError):
            os.unlink(beside)
        raise
    _sync_folder(folder)


def _sync_folder(folder: str) -> None:
    # Some file systems know no sync of a folder; the file itself is safe then, its name perhaps
    # not.
    with contextlib.suppress(OSError):
        descriptor = os.open(folder, os.O_RDONLY | os.O_DIRECTORY)
        try:
            os.fsync(descriptor)
        finally:
            os.close(descriptor)
