"""The group of the sub-commands, and what holds for all of them: standard output, exit statuses.

Descriptor 1 is kept aside at the start and leads to /dev/null afterwards, so that nothing that a
library prints gets into the output of this program. Sub-commands are imported when they are called:
`--help` has to come at once.
"""

from __future__ import annotations

import fcntl
import importlib
import os
import sys
import traceback
from collections.abc import Sequence
from typing import Any

import click

from kestrane_tools.cli.stop import Status, Stop

COMMANDS = {
    "calibrate": "Calibrate a device from measured clouds.",
    "field": "Find how a device has moved since its table was stored.",
    "compensate": "Bring a table to another temperature.",
    "inspect": "Tell what a file is and whether it is whole.",
    "diff": "Tell how two calibrations differ.",
    "convert": "Bring a table, coefficients or clouds to another format.",
    "report": "Draw the page of a run again.",
    "batch": "Calibrate many devices, each in a process of its own.",
    "simulate": "Make the clouds of a simulated device.",
}


class _Group(click.Group):
    """Sub-commands by name, each in a module of its own."""

    def list_commands(self, ctx: click.Context) -> list[str]:
        return list(COMMANDS)

    def get_command(self, ctx: click.Context, cmd_name: str) -> click.Command | None:
        if cmd_name not in COMMANDS:
            return None
        module = importlib.import_module(f"kestrane_tools.cli.{cmd_name}")
        command: click.Command = module.command
        return command

    def resolve_command(
        self, ctx: click.Context, args: list[str]
    ) -> tuple[str | None, click.Command | None, list[str]]:
        if args and args[0] not in COMMANDS and not args[0].startswith("-"):
            from kestrane_tools.cli.words import nearest

            ctx.fail(f"no command '{args[0]}'{nearest(args[0], COMMANDS)}")
        return super().resolve_command(ctx, args)

    def format_commands(self, ctx: click.Context, formatter: click.HelpFormatter) -> None:
        # From the list above: the help of all commands would import all of them.
        with formatter.section("Commands"):
            formatter.write_dl(list(COMMANDS.items()))


def _tell_version(ctx: click.Context, _: click.Parameter, asked: bool) -> None:
    if asked and not ctx.resilient_parsing:
        from importlib.metadata import version

        click.echo(f"kestrane {version('kestrane')}")
        ctx.exit()


@click.group(
    cls=_Group,
    context_settings={"help_option_names": ["--help", "-h"], "max_content_width": 100},
    epilog="Example:  kestrane simulate -o clouds.npz && kestrane calibrate clouds.npz -o rig\n\n"
    "Exit status: 0 done; 1 done, but a finding is bad or a difference was found; 2 command line; "
    "3 a file could not be read or written, or is damaged; 4 a calibration failed or its input was "
    "refused; 130 interrupted.",
)
@click.option("--version", is_flag=True, expose_value=False, is_eager=True, callback=_tell_version,
              help="Show the version and exit.")  # fmt: skip
@click.option("--quiet", is_flag=True, help="No summary on standard output.")
@click.pass_context
def cli(ctx: click.Context, quiet: bool) -> None:
    """Calibrate a laser-line scanner, judge the calibration, and show it on one page."""
    ctx.obj = {"quiet": quiet}


def main(arguments: Sequence[str] | None = None) -> int:
    """Run the command line.

    Parameters
    ----------
    arguments : sequence of str, optional
        Without the program's name; those of the process if left out.

    Returns
    -------
    int
        The exit status.
    """
    _keep_standard_output()
    try:
        status = _run(arguments)
        sys.stdout.flush()
        return status
    except BrokenPipeError:
        # Whoever read the output has enough of it: ends as a program that knows no better.
        _forget_standard_output()
        return 128 + 13
    except OSError as error:  # standard output alone: all files are written in their commands
        _forget_standard_output()
        _complain(f"standard output: {error.strerror}")
        return Status.FILE


def _run(arguments: Sequence[str] | None) -> int:
    given = sys.argv[1:] if arguments is None else list(arguments)
    try:
        if "_KESTRANE_COMPLETE" in os.environ:  # a shell asks for completions
            cli.main(given, "kestrane")
        # Without `cli.main`: it would turn a broken pipe into exit status 1.
        with cli.make_context("kestrane", given) as context:
            status = cli.invoke(context)
        return status if isinstance(status, int) else Status.DONE
    except click.exceptions.Exit as done:
        return int(done.exit_code)
    except click.UsageError as error:
        error.show(sys.stderr)
        return Status.USAGE
    except Stop as stop:
        _complain(str(stop))
        return stop.status
    except (click.Abort, KeyboardInterrupt):
        _complain("interrupted")
        return Status.INTERRUPTED
    except MemoryError:
        _complain("not enough memory")
        return Status.FAILED
    except OSError:
        raise  # of standard output: told by `main`
    except Exception:  # pylint: disable=broad-exception-caught # the last one to see it
        # Not with the interpreter's own status, which is 1: that one tells of a finding.
        traceback.print_exc()
        return Status.INTERNAL


def _complain(message: str) -> None:
    from kestrane_tools.cli.words import printable

    try:
        print(f"kestrane: {printable(message)}", file=sys.stderr, flush=True)
    except OSError:
        pass  # there is nowhere left to say it


def _keep_standard_output() -> None:
    # A name or a text that the terminal's encoding lacks is escaped and stops nothing.
    if sys.stderr is None:  # closed by the caller, who does not need it
        sys.stderr = open(os.devnull, "w", encoding="utf-8")
    sys.stderr.reconfigure(errors="backslashreplace")  # type: ignore[attr-defined]
    nowhere = _above_standard(os.open(os.devnull, os.O_WRONLY))
    try:
        kept = fcntl.fcntl(1, fcntl.F_DUPFD_CLOEXEC, 3)
    except OSError:  # closed as well
        kept = fcntl.fcntl(nowhere, fcntl.F_DUPFD_CLOEXEC, 3)
    os.dup2(nowhere, 1)
    os.close(nowhere)
    encoding: Any = getattr(sys.stdout, "encoding", None)
    sys.stdout = open(kept, "w", encoding=encoding, errors="backslashreplace")


def _above_standard(descriptor: int) -> int:
    # Not one of the first three, which may have been closed: a library writes to those.
    moved = fcntl.fcntl(descriptor, fcntl.F_DUPFD_CLOEXEC, 3)
    os.close(descriptor)
    return moved


def _forget_standard_output() -> None:
    # What is still in its buffer must not come up again when the interpreter ends.
    os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
