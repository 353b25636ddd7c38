"""The end of the demo: a device's life by the command line, and the page at the path it names."""

import subprocess
import sys
from pathlib import Path

from kestrane_tools.report.render import read_page

PROJECT = Path(__file__).parents[3]


def test_the_last_line_names_the_page_of_factory_and_field(tmp_path):
    program = tmp_path / "bin/kestrane"
    program.parent.mkdir()
    program.write_text(f'#!/bin/sh\nexec {sys.executable} -m kestrane_tools.cli "$@"\n')
    program.chmod(0o755)
    done = subprocess.run(
        [PROJECT / "scripts/demo-page.sh", tmp_path], capture_output=True, encoding="utf-8", check=True
    )
    last = done.stdout.splitlines()[-1]
    page = Path(last.split(": ", 1)[1])
    assert page.is_relative_to(tmp_path)
    results = read_page(page)
    told = page.read_text()
    assert "SIM-0001" in told
    assert results["schema"] == "kestrane-report/1"
    assert {"field_motion", "residuals"} <= {finding["id"] for finding in results["meta"]["findings"]}
