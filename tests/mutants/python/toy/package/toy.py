"""A module whose mutants' fates are known."""

from __future__ import annotations

LIMIT: int = int("3")


def clamped(value: int) -> int:
    """Value, at most the limit."""
    return LIMIT if value > LIMIT else value


def refuse(name: str) -> None:
    if not name:
        raise ValueError(f"a name expected, got '{name}'")


def untested(a: float, b: float) -> float:
    return a + b


def endless(count: int) -> int:
    while count != 0:
        count -= 1
    return count
