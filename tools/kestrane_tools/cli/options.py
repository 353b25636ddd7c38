"""Options that more than one sub-command has, and types of their values."""

from __future__ import annotations

import math
import re
from collections.abc import Callable
from typing import Any, TypeVar

import click

F = TypeVar("F", bound=Callable[..., Any])


class _Range(click.ParamType):
    """``A-B``: two plane numbers, both included."""

    name = "A-B"

    def convert(self, value: Any, param: click.Parameter | None, ctx: click.Context | None) -> Any:
        if isinstance(value, tuple):
            return value
        found = re.fullmatch(r"(\d{1,3})(?:-(\d{1,3}))?", value, re.ASCII)
        if found is None:
            self.fail(f"'{value}' is not a range of planes like 0-9", param, ctx)
        first, last = int(found[1]), int(found[2] or found[1])
        if last < first or last > 99:
            self.fail(f"'{value}': planes are 0 to 99, the first one first", param, ctx)
        return first, last


class _Numbers(click.ParamType):
    """Finite numbers between separators."""

    def __init__(self, name: str, separator: str, count: int) -> None:
        self.name = name
        self._separator = separator
        self._count = count

    def convert(self, value: Any, param: click.Parameter | None, ctx: click.Context | None) -> Any:
        if isinstance(value, tuple):
            return value
        try:
            numbers = tuple(float(piece) for piece in value.split(self._separator))
        except ValueError:
            numbers = ()
        if len(numbers) != self._count or not all(map(math.isfinite, numbers)):
            self.fail(f"'{value}' is not {self.name}", param, ctx)
        return numbers


class _Finite(click.ParamType):
    """A finite number, perhaps above or not below a bound."""

    def __init__(self, least: float = -math.inf, *, open_: bool = False) -> None:
        self.name = "number"
        self._least = least
        self._open = open_

    def convert(self, value: Any, param: click.Parameter | None, ctx: click.Context | None) -> Any:
        try:
            number = float(value)
        except ValueError:
            number = math.nan
        if not math.isfinite(number):
            self.fail(f"'{value}' is not a number", param, ctx)
        if number < self._least or (self._open and number == self._least):
            word = "above" if self._open else "at least"
            self.fail(f"'{value}' is not {word} {self._least:g}", param, ctx)
        return number


PLANES = _Range()
NUMBER = _Finite()
NOT_NEGATIVE = _Finite(0.0)
POSITIVE = _Finite(0.0, open_=True)
DEPTHS = _Numbers("Z0:Z1", ":", 2)
CURVE = _Numbers("FROM:TO:STEP", ":", 3)
MOTION = _Numbers("RX,RY,RZ,TX,TY,TZ", ",", 6)
# No check here: a file that is not there is an input that cannot be read, not a wrong option.
FILE = click.Path()


def _standard_output_by_its_sign(
    _: click.Context, __: click.Parameter, target: str | None
) -> str | None:
    # The system's name of it leads to where libraries print: nowhere.
    return "-" if target == "/dev/stdout" else target


def json_option(function: F) -> F:
    """--json"""
    return click.option(
        "--json",
        "json_target",
        metavar="PATH|-",
        help="Write the result as JSON; - for stdout.",
        callback=_standard_output_by_its_sign,
    )(function)


def report_option(function: F) -> F:
    """--report"""
    return click.option("--report", "report_path", type=FILE, help="Write the page to this file.")(
        function
    )


def judging_options(function: F) -> F:
    """--limits, --device"""
    function = click.option(
        "--device", "device_path", type=FILE, help="device.toml: who and what was measured."
    )(function)
    return click.option(
        "--limits", "limits_path", type=FILE, help="limits.toml: what is asked of the device."
    )(function)


def cloud_options(function: F) -> F:
    """--plane, --columns, --unit"""
    function = click.option(
        "--unit", type=POSITIVE, default=1.0, help="Factor of all coordinates; 1000 for metres."
    )(function)
    function = click.option(
        "--columns", metavar="NAMES", help="Names of the columns: plane,frame,x,y,z."
    )(function)
    return click.option(
        "--plane", type=click.IntRange(0, 99), help="The plane, where a file does not tell it."
    )(function)


def example(text: str) -> str:
    """The end of a help page: an example on a line of its own."""
    return f"\b\nExample:\n  {text}"
