"""Numbers of things in words, for the terminal and for the page."""

from __future__ import annotations

__all__ = ["counted"]


def counted(count: int, what: str) -> str:
    """``"1 frame"``, ``"2,000 frames"``."""
    return f"{count:,} {what}{'' if count == 1 else 's'}"
