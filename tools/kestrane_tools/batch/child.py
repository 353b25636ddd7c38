"""The process that calibrates one device: ``python3 -m kestrane_tools.batch.child job.json``.

In goes the file of a job:

    {"version": "1.1.0", "base": "/data", "memory": 2147483648, "arguments": ["clouds.npz", ...]}

`arguments` are those of `kestrane calibrate`, which is what runs here, in the folder `base` and with
at most `memory` bytes of address space. Output, exit status and files are those of that command; an
exit status of 70 tells of a mistake in this program or in its surroundings.
"""

from __future__ import annotations

import ctypes
import importlib
import json
import os
import resource
import signal
import sys
import traceback

_MISTAKE = 70  # Status.INTERNAL, which may be what cannot be loaded
_PR_SET_PDEATHSIG = 1
# What the command loads when it needs it. Where memory ends while a module is loaded, the interpreter
# may crash, or fail without a word of memory.
_LOADED_FIRST = (
    "kestrane_tools.cli.app",
    "kestrane_tools.cli.calibrate",
    "kestrane_tools.cli.console",
    "kestrane_tools.cli.inputs",
    "kestrane_tools.cli.json_results",
    "kestrane_tools.cli.settings",
    "kestrane_tools.cli.stored",
    "kestrane_tools.cli.toml_files",
    "kestrane_tools.report.render",
)


def main(arguments: list[str]) -> int:
    """Do the job.

    Parameters
    ----------
    arguments : list of str
        The job's file; then, if anybody watches, ``--watcher`` and the number of that process,
        without which this one does not stay alive.

    Returns
    -------
    int
        The exit status.
    """
    if len(arguments) == 3 and arguments[1] == "--watcher":
        _die_with(int(arguments[2]))
    elif len(arguments) != 1:
        print("usage: python3 -m kestrane_tools.batch.child job.json", file=sys.stderr)
        return 2
    # All that can go wrong has to end with another status than 1, which tells of a bad verdict.
    try:
        with open(arguments[0], "rb") as file:
            job = json.load(file)
        for name in _LOADED_FIRST:
            importlib.import_module(name)
        _limit_memory(job["memory"])
        return _calibrate(job["version"], job["base"], job["arguments"])
    except Exception:  # pylint: disable=broad-exception-caught # see above
        traceback.print_exc()
        return _MISTAKE


def _die_with(watcher: int) -> None:
    # Nobody else would end this process when its watcher is killed.
    ctypes.CDLL(None).prctl(_PR_SET_PDEATHSIG, signal.SIGKILL)
    if os.getppid() != watcher:  # it has died before the line above
        os._exit(_MISTAKE)


def _limit_memory(size: int) -> None:
    _, most = resource.getrlimit(resource.RLIMIT_AS)
    if most != resource.RLIM_INFINITY:
        size = min(size, most)
    with open("/proc/self/statm", encoding="ascii") as file:
        taken = int(file.read().split()[0]) * resource.getpagesize()
    if taken > size:
        raise MemoryError(f"the program itself takes {taken >> 20} MiB")
    resource.setrlimit(resource.RLIMIT_AS, (size, most))


def _calibrate(version: str, base: str, arguments: list[str]) -> int:
    from importlib.metadata import version as installed

    if installed("kestrane") != version:
        print(f"kestrane: version {installed('kestrane')} is installed here, the batch has {version}",
              file=sys.stderr)  # fmt: skip
        return _MISTAKE
    os.chdir(base)

    from kestrane_tools.cli.app import main as command_line

    return command_line(["calibrate", *arguments])


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
