"""Writes the manual pages and the bash completion of the command line.

    man_pages.py FOLDER

In go the commands as they are; FOLDER gets kestrane.1, kestrane-calibrate.1 and so on, and
kestrane.bash. So no option is described twice.
"""

from __future__ import annotations

import datetime
import os
import sys
from importlib.metadata import PackageNotFoundError, version
from pathlib import Path

import click
from click.shell_completion import BashComplete

from kestrane_tools.cli.app import COMMANDS, cli
from kestrane_tools.cli.stop import Status

_STATUSES = {
    Status.DONE: "Done, and no finding is bad.",
    Status.FOUND: "Done, but a finding is bad, or a difference was found.",
    Status.USAGE: "The command line was not understood.",
    Status.FILE: "A file could not be read or written, or is damaged.",
    Status.FAILED: "A calibration failed, or its input was refused.",
    Status.INTERNAL: "A mistake in the program, told with its traceback.",
    Status.INTERRUPTED: "Interrupted.",
}

_ENVIRONMENT = {
    "NO_COLOR": "Where it is set and not empty, nothing is coloured. Without a terminal nothing is.",
    "SOURCE_DATE_EPOCH": "Seconds since 1970 that results and pages give as their date.",
}


class BashWithoutAsking(BashComplete):
    """The script for bash, on a machine that may have none."""

    def _check_version(self, *_: object) -> None:  # a build needs no bash of a certain version
        return


def main() -> int:
    folder = Path(sys.argv[1])
    folder.mkdir(parents=True, exist_ok=True)
    context = click.Context(cli, info_name="kestrane")
    (folder / "kestrane.1").write_text(_overview(context))
    for name in COMMANDS:
        command = cli.get_command(context, name)
        assert command is not None
        (folder / f"kestrane-{name}.1").write_text(_page(context, name, command))
    completion = BashWithoutAsking(cli, {}, "kestrane", "_KESTRANE_COMPLETE")
    (folder / "kestrane.bash").write_text(completion.source())
    return 0


def _overview(context: click.Context) -> str:
    lines = [
        *_head("kestrane", "calibrate a laser-line scanner and judge the calibration"),
        ".SH SYNOPSIS",
        ".B kestrane",
        _text("[--version] [--quiet] COMMAND [ARGUMENTS]"),
        ".SH DESCRIPTION",
        _text(cli.help or ""),
        ".SH COMMANDS",
    ]
    for name, purpose in COMMANDS.items():
        lines += [".TP", f".BR kestrane\\-{_text(name)} (1)", _text(purpose)]
    lines += [*_options(context, cli), *_tail()]
    others = (f".BR kestrane\\-{_text(name)} (1)" for name in COMMANDS)
    lines += [".SH SEE ALSO", ",\n".join(others)]
    return "\n".join(lines) + "\n"


def _page(parent: click.Context, name: str, command: click.Command) -> str:
    context = click.Context(command, info_name=name, parent=parent)
    usage = " ".join(command.collect_usage_pieces(context))
    example = (command.epilog or "").split("Example:", 1)[-1].strip()
    lines = [
        *_head(f"kestrane-{name}", COMMANDS[name].rstrip(".").lower()),
        ".SH SYNOPSIS",
        f".B kestrane {_text(name)}",
        _text(usage),
        ".SH DESCRIPTION",
        _text(command.help or ""),
        *_options(context, command),
        ".SH EXAMPLE",
        ".nf",
        _text(example),
        ".fi",
        *_tail(),
        ".SH SEE ALSO",
        ".BR kestrane (1)",
    ]
    return "\n".join(lines) + "\n"


def _head(name: str, purpose: str) -> list[str]:
    title = _text(name.upper())
    return [
        f'.TH "{title}" 1 "{_date()}" "kestrane {_version()}" "kestrane"',
        ".SH NAME",
        f"{_text(name)} \\- {_text(purpose)}",
    ]


def _options(context: click.Context, command: click.Command) -> list[str]:
    lines = [".SH OPTIONS"]
    for parameter in command.get_params(context):
        record = parameter.get_help_record(context)
        if record is not None:
            lines += [".TP", f".B {_text(record[0])}", _text(record[1])]
    return lines


def _tail() -> list[str]:
    lines = [".SH EXIT STATUS"]
    for status, meaning in _STATUSES.items():
        lines += [".TP", f".B {int(status)}", _text(meaning)]
    lines.append(".SH ENVIRONMENT")
    for name, meaning in _ENVIRONMENT.items():
        lines += [".TP", f".B {name}", _text(meaning)]
    return lines


def _text(text: str) -> str:
    """Text of a help page for a formatter that reads backslashes, hyphens and leading dots."""
    escaped = text.replace("\b", "").replace("\\", "\\e").replace("-", "\\-")
    lines = [line.strip() for line in escaped.strip().splitlines()]
    return "\n".join(f"\\&{line}" if line[:1] in (".", "'") else line or ".PP" for line in lines)


def _date() -> str:
    epoch = os.environ.get("SOURCE_DATE_EPOCH", "")
    now = datetime.datetime.now(datetime.timezone.utc)
    if epoch.isdigit():
        now = datetime.datetime.fromtimestamp(int(epoch), datetime.timezone.utc)
    return now.date().isoformat()


def _version() -> str:
    try:
        return version("kestrane")
    except PackageNotFoundError:
        return ""


if __name__ == "__main__":
    sys.exit(main())
