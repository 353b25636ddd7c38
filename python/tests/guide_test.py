"""The programs of examples/python run, and the guide shows what they do to the letter."""

from __future__ import annotations

import os
import re
import subprocess
import sys
import textwrap
from pathlib import Path

import pytest

import kestrane

ROOT = Path(__file__).parents[2]
PROGRAMS = sorted((ROOT / "examples" / "python").glob("*.py"))
NOT_THERE = 77  # what a program ends with that lacks a package


@pytest.mark.parametrize("program", PROGRAMS, ids=lambda program: program.stem)
def test_an_example_runs(program, tmp_path):
    ran = subprocess.run(
        [sys.executable, program],
        cwd=tmp_path,
        env={**os.environ, "PYTHONWARNINGS": "error"},
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        text=True,
    )
    if ran.returncode == NOT_THERE:
        pytest.skip(ran.stdout.strip())
    assert ran.returncode == 0, ran.stdout
    assert ran.stdout
    if program.stem == "plot_map":
        assert (tmp_path / "map.png").stat().st_size > 10_000


def snippet_in(program: Path) -> str | None:
    found = re.search(r"# \[snippet\]\n(.*?)# \[snippet end\]", program.read_text(), re.DOTALL)
    return textwrap.dedent(found[1]).rstrip() if found else None


def test_the_guide_shows_every_snippet_once_and_to_the_letter():
    guide = (ROOT / "docs" / "guide.md").read_text()
    shown = re.findall(r"<!-- Python from (\S+) -->\n```python\n(.*?)\n```", guide, re.DOTALL)
    assert len(shown) == guide.count("```python")
    there = {program: snippet for program in PROGRAMS if (snippet := snippet_in(program))}
    assert {ROOT / name for name, _ in shown} == set(there)
    for name, text in shown:
        assert text == there[ROOT / name], name


def test_the_guide_names_every_exception_with_its_status():
    guide = (ROOT / "docs" / "guide.md").read_text()
    for name in kestrane.errors.__all__:
        if isinstance(getattr(kestrane.errors, name), type):
            assert f"`{name}`" in guide, name


def test_help_reads_as_a_guide():
    said = subprocess.run(
        [sys.executable, "-c", "import kestrane; help(kestrane)"],
        check=True,
        stdout=subprocess.PIPE,
        text=True,
    ).stdout
    for word in ("calibrate_factory", "PlaneTable", "Errors", "Units", "jobs", "clouds"):
        assert word in said.split("PACKAGE CONTENTS")[0], word
