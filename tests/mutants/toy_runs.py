"""Runs of the tools over what their tests know the fates of."""

import subprocess
import sys


def run_tool(tool, folder, *arguments, explained=()):
    """Runs a tool with these explanations; returns its exit status and what it prints."""
    path = folder / "explained.txt"
    path.write_text("# A reason.\n" + "\n".join(explained) + "\n", encoding="utf-8")
    done = subprocess.run(
        [sys.executable, str(tool), "--explained", str(path), *arguments],
        stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    return done.returncode, done.stdout


def expect(holds, output):
    if not holds:
        sys.exit(f"not as expected:\n{output}")
