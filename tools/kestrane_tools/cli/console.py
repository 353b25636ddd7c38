"""What people read: lines on standard output, progress on standard error.

Colour and progress only where a terminal is; NO_COLOR turns colour off there too. Lines are never
wrapped, so that other programs may read them.
"""

from __future__ import annotations

import contextlib
import os
import sys
from collections.abc import Collection, Iterator, Sequence
from typing import TYPE_CHECKING, Protocol, TextIO

from kestrane_tools.cli.words import printable

if TYPE_CHECKING:
    import kestrane
    from rich.console import Console

_HEADLINES = ("residuals", "field_motion", "direction", "drift")
# The finding in which each limit is held.
_JUDGED = {
    "rms": "residuals",
    "p99": "residuals",
    "coverage": "coverage",
    "seam": "seams",
    "repeatability": "repeatability",
    "outliers": "outliers",
    "field_motion": "field_motion",
}
_STYLES = {"bad": "bold red", "warn": "yellow", "ok": "green"}


class Advance(Protocol):
    """Called when a step is done."""

    def __call__(self) -> None:
        ...


class Summary:
    """Lines of a summary on standard output; silent where `shown` is false."""

    def __init__(self, shown: bool) -> None:
        self._console = _console(sys.stdout) if shown else None

    def line(self, *pieces: str | tuple[str, str]) -> None:
        """Write one line of texts, each plain or with a style."""
        if self._console is None:
            return
        from rich.text import Text

        text = Text()
        for piece in pieces:
            words, style = (piece, "") if isinstance(piece, str) else piece
            text.append(printable(words), style)
        self._console.print(text, soft_wrap=True, highlight=False)

    def table(self, head: Sequence[str], rows: Sequence[Sequence[str]], left: int = 1) -> None:
        """Write columns, right-justified but for the last `left` ones."""
        if not rows:
            return
        widths = [max(map(len, column)) for column in zip(head, *rows, strict=True)]
        fixed = len(head) - left
        for number, row in enumerate([head, *rows]):
            cells = [
                cell.rjust(width) if k < fixed else cell.ljust(width)
                for k, (cell, width) in enumerate(zip(row, widths, strict=True))
            ]
            text = ("  ".join(cells)).rstrip()
            self.line((f"  {text}", "bold") if number == 0 else f"  {text}")

    def judgement(self, judgement: kestrane.Judgement, limits: Collection[str]) -> None:
        """Write the verdict and, worst first, the findings that somebody has to know.

        Those are all that are not ok, the headlines, and what keeps a limit that is given.
        """
        kept = {*_HEADLINES, *(_JUDGED[name] for name in limits)}
        told = [f for f in judgement.findings if f.level != "ok" or f.id in kept]
        verdict = judgement.verdict
        self.line((verdict[:1].upper() + verdict[1:], _STYLES[judgement.worst]))
        width = max((len(finding.id) for finding in told), default=0)
        for finding in told:
            level = (f"{finding.level:<4}", _STYLES[finding.level])
            self.line("  ", level, f"  {finding.id:<{width}}  {finding.text}")


@contextlib.contextmanager
def progress(what: str, steps: int) -> Iterator[Advance]:
    """Show how far a task of some steps has come; nothing where standard error is not a terminal."""
    if not _is_terminal(sys.stderr):
        yield lambda: None
        return
    from rich.progress import BarColumn, MofNCompleteColumn, Progress, TextColumn

    columns = (TextColumn("{task.description}"), BarColumn(), MofNCompleteColumn())
    with Progress(*columns, console=_console(sys.stderr), transient=True) as bar:
        task = bar.add_task(printable(what), total=steps)
        yield lambda: bar.advance(task)


def _is_terminal(stream: TextIO | None) -> bool:
    return stream is not None and stream.isatty() and os.environ.get("TERM") != "dumb"


def _console(stream: TextIO) -> Console:
    from rich.console import Console

    coloured = _is_terminal(stream) and not os.environ.get("NO_COLOR")
    return Console(
        file=stream,
        color_system="auto" if coloured else None,
        force_terminal=_is_terminal(stream),
        highlight=False,
        markup=False,
        emoji=False,
    )
