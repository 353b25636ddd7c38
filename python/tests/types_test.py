"""The annotations: true to the module that is built, and clean for a host that is checked."""

from __future__ import annotations

import ast
import importlib.util
import os
import subprocess
import sys
from pathlib import Path

import pytest

import kestrane
from kestrane import _core, _simulation

PACKAGE = Path(kestrane.__file__).parent


@pytest.mark.parametrize("module", [_core, _simulation])
def test_the_stub_names_what_the_module_has(module):
    stub = ast.parse((PACKAGE / f"{module.__name__.rpartition('.')[2]}.pyi").read_text())
    named = {
        node.name if isinstance(node, ast.FunctionDef) else node.target.id  # type: ignore[union-attr]
        for node in stub.body
        if isinstance(node, (ast.FunctionDef, ast.AnnAssign))
    }
    assert named == {name for name in vars(module) if not name.startswith("__")}


def test_the_package_is_marked_as_annotated():
    assert (PACKAGE / "py.typed").exists()


@pytest.mark.skipif(importlib.util.find_spec("mypy") is None, reason="python3-mypy is not there")
def test_a_host_is_clean_under_the_strict_checker(tmp_path):
    sources = PACKAGE.parent
    checked = subprocess.run(
        [
            *(sys.executable, "-m", "mypy", "--strict", "--cache-dir", tmp_path),
            Path(__file__).parent / "typed_host.py",
        ],
        env={**os.environ, "MYPYPATH": str(sources), "PYTHONPATH": ""},
        stdout=subprocess.PIPE,
        text=True,
    )
    assert checked.returncode == 0, checked.stdout


def test_every_public_name_is_there_and_explained():
    for module in (kestrane, kestrane.jobs, kestrane.quality, kestrane.clouds):
        assert module.__doc__
        for name in module.__all__:
            value = getattr(module, name)
            if callable(value):
                assert value.__doc__, name
    for call in ("factory_calibrate", "field_calibrate", "compensate", "update_coefficients"):
        told = getattr(kestrane.jobs, call).__doc__
        assert all(part in told for part in ("Parameters", "Returns", "Raises")), call
