"""Standard output without the lines that the library writes there."""

from __future__ import annotations

import contextlib
import os
import sys
from collections.abc import Iterator

from kestrane import _core

__all__ = ["quiet"]


@contextlib.contextmanager
def quiet() -> Iterator[None]:
    """Point standard output at nothing for the length of a block, for the whole process.

    The solver's two lines of a field calibration go to descriptor 1, where they would land in the
    middle of what a program writes itself. What other threads write meanwhile is lost too.

    Examples
    --------
    >>> import kestrane
    >>> with kestrane.quiet():
    ...     print("not seen")
    """
    _flush()
    kept = os.dup(1)
    try:
        nothing = os.open(os.devnull, os.O_WRONLY)
        try:
            os.dup2(nothing, 1)
        finally:
            os.close(nothing)
        try:
            yield
        finally:
            _flush()
            os.dup2(kept, 1)
    finally:
        os.close(kept)


def _flush() -> None:
    if sys.stdout is not None:
        with contextlib.suppress(ValueError):  # closed
            sys.stdout.flush()
    _core.flush_output()
