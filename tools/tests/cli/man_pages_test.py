"""The manual pages and the completion are those of the commands as they are."""

import os
import shutil
import subprocess
import sys
from pathlib import Path

import click
import pytest

from kestrane_tools.cli.app import COMMANDS, cli

SCRIPT = Path(__file__).parents[2] / "man_pages.py"


@pytest.fixture(scope="module")
def folder(tmp_path_factory):
    folder = tmp_path_factory.mktemp("manual")
    subprocess.run([sys.executable, SCRIPT, folder], check=True, env={**os.environ, "SOURCE_DATE_EPOCH": "0"})
    return folder


@pytest.mark.parametrize("name", COMMANDS)
def test_a_page_tells_every_option_an_example_and_every_exit_status(folder, name):
    page = (folder / f"kestrane-{name}.1").read_text()
    context = click.Context(cli, info_name="kestrane")
    for parameter in cli.get_command(context, name).params:
        for option in parameter.opts if isinstance(parameter, click.Option) else ():
            assert option.replace("-", "\\-") in page
    assert f"kestrane {name}" in page.split(".SH EXAMPLE")[1]
    for status in (0, 1, 2, 3, 4, 130):
        assert f".B {status}\n" in page
    assert page.startswith(f'.TH "KESTRANE\\-{name.upper()}" 1 "1970-01-01"')


def test_the_overview_names_every_command(folder):
    page = (folder / "kestrane.1").read_text()
    assert all(f"kestrane\\-{name} (1)" in page for name in COMMANDS)


@pytest.mark.skipif(shutil.which("groff") is None, reason="no groff here")
def test_a_formatter_has_nothing_to_complain_about(folder):
    for page in sorted(folder.glob("*.1")):
        done = subprocess.run(
            ["groff", "-man", "-Tutf8", "-ww", "-z", page], capture_output=True, check=True
        )
        assert done.stderr == b"", page.name


@pytest.mark.skipif(shutil.which("bash") is None, reason="no bash here")
def test_bash_completes_commands_and_options(folder, tmp_path):
    assert subprocess.run(["bash", "-n", folder / "kestrane.bash"], check=True)
    program = tmp_path / "kestrane"
    program.write_text(f'#!/bin/sh\nexec {sys.executable} -m kestrane_tools.cli "$@"\n')
    program.chmod(0o755)
    for words, expected in (("kestrane ca", "calibrate"), ("kestrane diff --tol", "--tolerance")):
        line = f'. {folder}/kestrane.bash; COMP_WORDS=({words}); COMP_CWORD=$(({len(words.split())} - 1)); '
        line += f'_kestrane_completion {program}; printf "%s\\n" "${{COMPREPLY[@]}}"'
        done = subprocess.run(["bash", "-c", line], capture_output=True, encoding="utf-8", check=True)
        assert done.stdout.split() == [expected]
