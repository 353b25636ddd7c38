"""Texts: names that are nearly right, lists of planes, numbers as people read them."""

from __future__ import annotations

import difflib
import math
import os
from collections.abc import Iterable, Sequence

from kestrane_tools.counted import counted

__all__ = ["counted", "length", "listed", "nearest", "printable", "readable", "runs", "share"]


def nearest(name: str, known: Iterable[str]) -> str:
    """``"; did you mean 'rms'?"``, or nothing where no known name is near."""
    found = difflib.get_close_matches(name, list(known), n=1, cutoff=0.5)
    return f"; did you mean '{found[0]}'?" if found else ""


def printable(text: str) -> str:
    """The text with everything that would steer a terminal, or break its line, escaped."""
    return "".join(c if c.isprintable() or c == "\n" else ascii(c)[1:-1] for c in text)


def readable(path: str | os.PathLike[str]) -> str:
    """A path as text that every file can hold: bytes that are not UTF-8 are escaped."""
    return os.fsencode(path).decode("utf-8", "backslashreplace")


def runs(numbers: Sequence[int]) -> str:
    """0, 1, 2, 7 as ``"0-2, 7"``."""
    pieces: list[list[int]] = []
    for number in sorted(numbers):
        if pieces and number == pieces[-1][1] + 1:
            pieces[-1][1] = number
        else:
            pieces.append([number, number])
    return ", ".join(str(a) if a == b else f"{a}-{b}" for a, b in pieces)


def listed(names: Sequence[object], most: int = 6) -> str:
    """``"a, b, c and 4 more"``."""
    shown = ", ".join(map(str, names[:most]))
    return shown if len(names) <= most else f"{shown} and {len(names) - most} more"


def length(value: float) -> str:
    """A length to the thousandth, ``"-"`` where it is not determined."""
    return f"{value:.3f}" if math.isfinite(value) else "-"


def share(value: float) -> str:
    """0.33 as ``"33 %"``, ``"-"`` where it is not determined."""
    return f"{100.0 * value:.0f} %" if math.isfinite(value) else "-"
