"""What there is to look at after a batch: index.html and summary.csv.

In go the outcomes; out come one page, worst device first, with links to the devices' own pages, and
one table with a row for each device. The page needs neither a network nor scripts, and has the same
content policy as the report pages.
"""

from __future__ import annotations

import csv
import io
import os
from collections import Counter
from collections.abc import Sequence
from pathlib import Path
from typing import Any
from urllib.parse import quote

from markupsafe import Markup

from kestrane_tools import report
from kestrane_tools.batch.job import (
    FAILED,
    KILLED,
    LIMITS,
    LOST,
    OK,
    OUT_OF_MEMORY,
    STOPPED,
    TIMEOUT,
    Outcome,
)
from kestrane_tools.cli.words import length
from kestrane_tools.files import write_bytes
from kestrane_tools.report.render import POLICY, template

__all__ = ["counted", "ranked", "write_index", "write_summary"]

_FOLDER = Path(__file__).parent
# A browser draws as many rows at once; more of them nobody reads.
_MOST_ROWS = 10_000
_COLUMNS = ("name", "status", "verdict", "worst_finding", "seconds", "cause")
_RANKS = {KILLED: 0, OUT_OF_MEMORY: 1, TIMEOUT: 2, LOST: 3, FAILED: 4, STOPPED: 5, LIMITS: 6, OK: 7}
_LEVELS = {"bad": 0, "warn": 1, "note": 2, "": 3}


def ranked(outcomes: Sequence[Outcome]) -> list[Outcome]:
    """Worst first: without a result, beyond limits, by the worst finding, by RMS, by name."""

    def rank(outcome: Outcome) -> tuple[Any, ...]:
        kind = KILLED if outcome.status.startswith(KILLED) else outcome.status
        rms = 0.0 if outcome.rms is None else -outcome.rms
        return _RANKS[kind], _LEVELS.get(outcome.level, 3), rms, outcome.name

    return sorted(outcomes, key=rank)


def counted(outcomes: Sequence[Outcome]) -> dict[str, int]:
    """Status -> how many devices have it, worst first."""
    return dict(Counter(outcome.status for outcome in ranked(outcomes)))


def write_summary(path: str, outcomes: Sequence[Outcome]) -> None:
    """Write one row for each device, worst first, in UTF-8.

    Raises
    ------
    FileOpenError
        The file could not be written.
    """
    text = io.StringIO()
    rows = csv.writer(text, lineterminator="\n")
    rows.writerow(_COLUMNS)
    for o in ranked(outcomes):
        seconds = "" if o.seconds is None else f"{o.seconds:.3f}"
        rows.writerow((o.name, o.status, o.verdict, o.finding, seconds, o.cause))
    write_bytes(path, text.getvalue().encode("utf-8", "backslashreplace"))


def write_index(path: str, outcomes: Sequence[Outcome], about: dict[str, str]) -> None:
    """Write the page.

    Parameters
    ----------
    path : str
        The file, beside the devices' folders.
    outcomes : sequence of Outcome
        All of them.
    about : dict
        What is told of the batch as a whole: name -> text.

    Raises
    ------
    FileOpenError
        The file could not be written.
    """
    page = template(_FOLDER, "index.html.j2").render(
        about=about,
        counts=counted(outcomes),
        good=OK,
        rows=[_row(outcome) for outcome in ranked(outcomes)[:_MOST_ROWS]],
        total=len(outcomes),
        policy=POLICY,
        style=Markup((Path(report.__file__).parent / "report.css").read_text("utf-8")),
    )
    write_bytes(path, page.encode("utf-8", "backslashreplace"))


def _row(o: Outcome) -> dict[str, Any]:
    links = {name: f"{quote(os.fsencode(o.name))}/{name}" for name in o.files}
    return {
        "name": o.name,
        "status": o.status,
        "level": "ok" if o.status == OK else "bad",
        "verdict": o.verdict or "–",
        "text": o.cause or o.finding,
        "planes": "–" if o.planes is None else str(o.planes),
        "points": "–" if o.points is None else f"{o.points:,}",
        "rms": "–" if o.rms is None else length(o.rms),
        "seconds": "kept" if o.kept else "–" if o.seconds is None else f"{o.seconds:.1f}",
        "page": links.get("report.html"),
        "others": {name: link for name, link in links.items() if name != "report.html"},
    }
