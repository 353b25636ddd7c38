"""Real processes of the command line."""

from __future__ import annotations

import os
import subprocess
import sys

COMMAND = [sys.executable, "-m", "kestrane_tools.cli"]


def run(*arguments, cwd=None, env=None, **options):
    """A process of the command line; its output as text."""
    settings = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, "encoding": "utf-8"}
    settings |= options
    return subprocess.run(
        [*COMMAND, *map(str, arguments)],
        cwd=cwd,
        env={**os.environ, **(env or {})},
        timeout=300,
        check=False,
        **settings,
    )
