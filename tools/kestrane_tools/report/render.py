"""From a run to its page: one HTML file that needs no network.

In goes a `Run`; out comes the file. All text of the run is escaped by the template; scripts, style
and figures stand in the page itself, under a content policy that lets nothing else in.
"""

from __future__ import annotations

import dataclasses
import json
import os
from pathlib import Path
from typing import Any

import jinja2
import numpy as np
from markupsafe import Markup

from kestrane import quality
from kestrane.errors import DamagedFile, FileOpenError
from kestrane_tools.files import read_bytes, write_bytes
from kestrane_tools.report import words
from kestrane_tools.report.model import SCHEMA, model_of, unit_of, volume_of
from kestrane_tools.results import difference_part, findings_of, judged, table_of
from kestrane_tools.run_file import Run

__all__ = ["POLICY", "joined", "judged_anew", "page_of", "read_page", "template", "write_page"]

POLICY = "default-src 'none'; script-src 'unsafe-inline'; style-src 'unsafe-inline'; img-src data:"

_FOLDER = Path(__file__).parent
# Beside the template once installed, else where the package node-d3 has it.
_D3 = (_FOLDER / "d3.min.js", Path("/usr/share/nodejs/d3/dist/d3.min.js"))
_OPENING = '<script type="application/json" id="results">'


def write_page(
    run: Run,
    path: str | os.PathLike[str],
    *,
    limits: Any = None,
    compare: Any = None,
) -> None:
    """Write the page of a run.

    Parameters
    ----------
    run : Run
        What to show.
    path : path
        The file; an older one is replaced in one step.
    limits : dict or kestrane Limits, optional
        Limits by their names in a limits file. The run's figures are judged anew against these.
    compare : kestrane.PlaneTable or Run, optional
        A table: the drift against it is shown. A run: its parts that `run` lacks are shown as well.

    Raises
    ------
    FileOpenError
        The file could not be written, or d3 is not installed.
    """
    write_bytes(path, page_of(run, limits=limits, compare=compare).encode())


def page_of(run: Run, *, limits: Any = None, compare: Any = None) -> str:
    """The page's text; parameters as `write_page`."""
    if compare is not None:
        run = joined(run, compare)
    if limits is not None or compare is not None:
        run = judged_anew(run, limits)
    with np.errstate(all="ignore"):  # figures may be infinite or none; a page shows them as none
        return _filled(run)


def template(folder: Path, name: str) -> jinja2.Template:
    """A page's template, which escapes all text and refuses a name that it is not given."""
    environment = jinja2.Environment(
        loader=jinja2.FileSystemLoader(folder),
        autoescape=True,
        undefined=jinja2.StrictUndefined,
        trim_blocks=True,
        lstrip_blocks=True,
    )
    return environment.get_template(name)


def _filled(run: Run) -> str:
    model = model_of(run)
    return template(_FOLDER, "report.html.j2").render(
        run=run,
        maps=model.get("maps", []),
        words=words,
        unit=unit_of(run),
        policy=POLICY,
        results=Markup(json_text(model)),
        style=Markup((_FOLDER / "report.css").read_text("utf-8")),
        script=Markup((_FOLDER / "report.js").read_text("utf-8")),
        d3=Markup(_d3()),
    )


def joined(run: Run, other: Any) -> Run:
    """The run with its drift against a table, or with the parts of another run that it lacks.

    Raises
    ------
    ValueError
        A table and no table to hold it against, or parts of different devices.
    """
    if not isinstance(other, Run):
        if run.table is None:
            raise ValueError("the run has no table to compare")
        volume = quality.WorkingVolume(*volume_of(run))
        found = quality.compare(other, table_of(run.table), volume)
        return dataclasses.replace(run, difference=difference_part(found))
    missing = {
        name: getattr(other, name)
        for name in ("table", "factory", "field", "difference", "compensation")
        if getattr(run, name) is None
    }
    files = {
        key: _together(run.meta.get(key), other.meta.get(key)) for key in ("inputs", "outputs")
    }
    return dataclasses.replace(run, meta={**run.meta, **files}, **missing)


def _together(files: list[Any] | None, more: list[Any] | None) -> list[Any]:
    listed = list(files or [])
    return listed + [file for file in more or [] if file not in listed]


def judged_anew(run: Run, limits: Any = None) -> Run:
    """The run with the findings and the verdict of these limits, or of its own."""
    if limits is None:
        limits = run.meta.get("limits") or {}
    judgement = judged(run, limits)
    told = {
        name: value
        for name, value in (
            limits if isinstance(limits, dict) else dataclasses.asdict(limits)
        ).items()
        if value is not None
    }
    news = {"limits": told, "findings": findings_of(judgement), "verdict": judgement.verdict}
    return dataclasses.replace(run, meta={**run.meta, **news})


def json_text(model: dict[str, Any]) -> str:
    """JSON that can stand in a script element: no character of it can end the element."""
    text = json.dumps(model, allow_nan=False, ensure_ascii=False, separators=(",", ":"))
    return text.replace("<", "\\u003c").replace("\u2028", "\\u2028").replace("\u2029", "\\u2029")


def read_page(path: str | os.PathLike[str]) -> dict[str, Any]:
    """Read the figures that a page holds: the dict of `model_of`.

    Raises
    ------
    FileOpenError
        The file could not be read.
    DamagedFile
        It is not a page of this tool, or was cut.
    """
    text = read_bytes(path).decode("utf-8", "replace")
    begin = text.find(_OPENING)
    end = text.find("</script>", begin)
    if begin < 0 or end < 0 or "</html>" not in text[end:]:
        raise DamagedFile(path, "not a whole report page")
    try:
        model = json.loads(text[begin + len(_OPENING) : end])
    except (ValueError, RecursionError) as error:
        raise DamagedFile(path, f"the figures of the page: {error}") from error
    if not isinstance(model, dict) or model.get("schema") != SCHEMA:
        raise DamagedFile(path, f"the figures of the page are not of {SCHEMA}")
    return model


def _d3() -> str:
    for place in _D3:
        if place.is_file():
            return place.read_text("utf-8").replace("</script", "<\\/script")
    raise FileOpenError("d3.min.js is missing: install the package node-d3", path=_D3[-1], errno=2)
