"""Where the sources, the build and the results are; __main__ sets them once."""

import pathlib
import shlex
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = ROOT / "build" / "release"
WORK = ROOT / "build" / "mutants"

SOURCES = ("src", "include", "quality")  # the folders whose lines mutants change
OBJECTS = ("kestrane_objects.dir", "kestrane_quality_objects.dir")  # where the build compiles them


def run(arguments, **options):
    """Runs a command that has to succeed and returns what it writes."""
    done = subprocess.run(arguments, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                          check=False, **options)
    if done.returncode != 0:
        sys.exit(f"mutants: {shlex.join(map(str, arguments))}\n{done.stdout}{done.stderr}")
    return done.stdout
