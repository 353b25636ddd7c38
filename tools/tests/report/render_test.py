from __future__ import annotations

import dataclasses
import html.parser
import json
import re
from pathlib import Path
from typing import Any

import numpy as np
import pytest
import synthetic_runs as runs

import kestrane
from kestrane import _simulation, quality
from kestrane.errors import DamagedFile, FileOpenError
from kestrane_tools import results
from kestrane_tools.report import read_page, render, words, write_page
from kestrane_tools.run_file import Run


class Reader(html.parser.HTMLParser):
    """Elements and text of a page, as a browser without scripts would have them."""

    def __init__(self) -> None:
        super().__init__()
        self.elements: list[tuple[str, dict[str, str | None]]] = []
        self.text = ""
        self.inside: list[str] = []

    def handle_starttag(self, tag: str, attrs: list[tuple[str, str | None]]) -> None:
        self.elements.append((tag, dict(attrs)))
        if tag not in ("a", "b", "i"):
            self.text += " "
        if tag in ("script", "style"):
            self.inside.append(tag)

    def handle_endtag(self, tag: str) -> None:
        if self.inside and self.inside[-1] == tag:
            self.inside.pop()

    def handle_data(self, data: str) -> None:
        if not self.inside:
            self.text += data


def read(text: str) -> Reader:
    reader = Reader()
    reader.feed(text)
    reader.text = re.sub(r"\s+", " ", reader.text)
    return reader


def text_of(run: Run, **changes: Any) -> str:
    return read(render.page_of(run, **changes)).text


# --- what a page says without scripts -------------------------------------------------------------


def test_verdict_findings_and_figures_stand_in_the_html() -> None:
    text = text_of(runs.device_run(100, failed=(17,), bad=(5,)))
    assert "Not fit for use as it stands" in text
    assert "2 findings to act on, 2 findings to keep in mind" in text
    assert "No table for plane 17: measure these planes anew." in text
    assert "99 / 100 planes calibrated" in text
    assert "17 no sector has 200 points" in text


def test_the_head_tells_what_the_certificate_needs() -> None:
    text = text_of(runs.device_run(2))
    for told in (
        "Serial number SIM-0001",
        "Calibrated 2026-11-21 19:55 UTC",
        "Operator A. Weaver",
        "Temperature 20.4 °C (start) – 20.6 °C (end)",
        "Target board 7, certificate 2026-114",
        "Software kestrane 1.0.0",
        "Working volume judged depth 250–800, whole fan",
        "RMS of a plane 0.15 mm",
        "18b52182de51da98e0539e29" + "0" * 40,
    ):
        assert told in text


def test_settings_are_told_in_words() -> None:
    given = {
        "far": False,
        "optimise": True,
        "screen": False,
        "gross": 3.0,
        "repeatability": True,
        "refine": "estimate",
        "unit": 1.0,
        "planes": None,
        "leave_out_ends": True,
        "extrinsic_t": [1.0, 0.5],
    }
    assert words._settings(given) == (
        "depth band 100–1000 · optimisation on · not screened · gross 3 · refinement estimated · "
        "leave out ends on · extrinsic t 1, 0.5"
    )
    assert words._settings({"unit": 25.4}) == "unit 25.4"
    assert words._settings({}) == "defaults"


def test_what_nobody_told_is_not_given() -> None:
    text = text_of(dataclasses.replace(runs.device_run(1), meta={}))
    assert "Serial number not given" in text
    assert "Limits none given" in text
    assert "(the band of the fit)" in text


def test_every_plane_has_its_row() -> None:
    page = read(render.page_of(runs.device_run(12, failed=(3,))))
    numbers = re.findall(r"\b0\.\d{3}\b", page.text)
    assert len(numbers) > 12 * 8
    assert sum(1 for tag, _ in page.elements if tag == "tr") == 12 + 1 + 2  # a heading, two files


def test_an_unknown_number_is_a_dash() -> None:
    assert words.length(float("nan")) == "–"
    assert words.length(-0.0314) == "−0.031"
    assert words.length(1234.5, "mm") == "1,234 mm"
    assert words.length(1.7e308) == "1.7e+308"
    assert words.length(-0.0004) == "0.000" and words.length(-0.0006) == "−0.001"
    assert words.share(0.333) == "33 %"
    assert words.share(0.0003, 1) == "< 0.1 %"
    assert words.share(0.0, 1) == "0.0 %"
    assert words.share(0.0049) == "< 1 %" and words.share(0.0051) == "1 %"


def test_a_field_calibration_is_told_in_words() -> None:
    run = Run(meta=runs.meta(kind="field", findings=[]), table=runs.table(8), field=runs.field(8))
    text = text_of(run)
    assert "Field calibration report" in text
    assert "The sheets moved by 0.140 mm RMS, 0.324 at most, ± 0.002" in text
    assert "shift along y: not fixed, trust no figure along it, ± 2.800" in text
    assert "plane 0: 7" in text


def test_a_turn_is_written_about_its_axis() -> None:
    angle = 0.002
    turn = np.array(
        [[1, 0, 0], [0, np.cos(angle), -np.sin(angle)], [0, np.sin(angle), np.cos(angle)]]
    )
    part = dataclasses.replace(runs.field(8), smallest_R=turn)
    (_, told), *_ = words.motion(part, "mm")
    assert told.startswith("turn (2.000, 0.000, 0.000) mrad")


def test_a_difference_is_told_with_its_place() -> None:
    run = Run(
        meta=runs.meta(kind="difference", findings=[]),
        table=runs.table(8),
        difference=runs.difference(8),
    )
    text = text_of(run)
    assert "Comparison of two tables" in text and "Drift against table of the spring" in text
    assert "explained by a rigid motion of the device 89 %" in text
    assert "largest (plane 7, y 442, z 785) 0.605 mm" in text


def test_the_last_line_says_what_was_not_measured() -> None:
    text = text_of(runs.device_run(1)).strip()
    assert text.endswith("measured on calibrated artefacts, and was not measured here.")
    for name in ("VDI/VDE 2634", "ISO 10360-13"):
        assert text.count(name) == 1
    for term in ("probing error", "flatness", "length error", "sphere"):
        assert term not in text.lower()


@pytest.mark.parametrize(
    ("levels", "verdict", "level", "remark"),
    [
        (
            ["bad", "warn", "ok"],
            "not fit for use as it stands",
            "bad",
            "1 finding to act on, 1 finding",
        ),
        (["warn", "warn"], "usable with limits", "warn", "2 findings to keep in mind"),
        (["ok"], "fit for use within the limits given", "ok", "nothing stands out"),
        (
            ["bad"],
            "no limits given",
            "none",
            "1 finding to act on; give limits to have them judged",
        ),
        (
            ["ok"],
            "no limits given",
            "none",
            "the figures are told; give limits to have them judged",
        ),
    ],
)
def test_the_verdict_follows_limits_and_levels(
    levels: list[str], verdict: str, level: str, remark: str
) -> None:
    findings = [{"level": name, "id": "seams", "text": "t", "figures": {}} for name in levels]
    told = words.verdict(Run(meta={"findings": findings, "verdict": verdict}))
    assert told is not None and told.level == level and remark in told.remark


def test_what_was_not_judged_has_no_verdict() -> None:
    run = Run(meta={"kind": "difference"}, table=runs.table(8), compensation=runs.compensation(8))
    page = read(render.page_of(run))
    assert "Compensation report" in page.text
    assert "imits given" not in page.text and "Nothing stands out" not in page.text
    assert "verdict" not in {attrs.get("id") for _, attrs in page.elements}


def test_each_finding_of_the_library_has_a_place_on_the_page() -> None:
    header = Path(__file__).parents[3] / "include/kestrane/quality/findings.h"
    ids = re.findall(r"^/// \| (\w+) \| .* \|", header.read_text(), re.MULTILINE)
    ids = [ident for ident in ids if ident != "id"]
    assert len(ids) >= 19
    assert set(ids) == set(words.PLACES) == set(words.LABELS)


def test_a_finding_leads_to_a_section_of_its_page() -> None:
    findings = [{"level": "ok", "id": ident, "text": "t", "figures": {}} for ident in words.PLACES]
    for run in (
        runs.full_run(8),
        runs.device_run(2, failed=(0, 1)),
        Run(meta={}, field=runs.field(8)),
        Run(meta={}, factory=runs.factory(8)),
    ):
        run = dataclasses.replace(run, meta=runs.meta(findings=findings))
        page = read(render.page_of(run))
        ids = {attrs.get("id") for _, attrs in page.elements}
        links = [attrs["href"] for tag, attrs in page.elements if tag == "a"]
        assert links and all(str(link)[1:] in ids for link in links)
        if run.field is not None and run.factory is not None:
            assert len(links) == len(findings) + 1  # and the one that skips the head


# A cell through the origin, a table of another unit: whatever figures a run holds, it has a page.
@pytest.mark.parametrize("wild", [np.nan, np.inf, -np.inf, 1.7e308, -1.7e308, 0.0, 5e-324])
def test_any_figures_have_a_page(wild: float, recwarn: pytest.WarningsRecorder) -> None:
    run = runs.full_run(3)
    parts: dict[str, Any] = {}
    for name in ("factory", "field", "difference", "compensation"):
        part = getattr(run, name)
        change: dict[str, Any] = {}
        for item in dataclasses.fields(part):
            value = getattr(part, item.name)
            if isinstance(value, float):
                change[item.name] = wild
            elif isinstance(value, np.ndarray) and value.dtype.kind == "f":
                change[item.name] = np.where(
                    np.arange(value.size).reshape(value.shape) % 3, value, wild
                )
        parts[name] = dataclasses.replace(part, **change)
    text = render.page_of(dataclasses.replace(run, **parts))
    model = text[text.index(render._OPENING) + len(render._OPENING) :]
    json.loads(model[: model.index("</script>")], parse_constant=pytest.fail)
    assert len(recwarn) == 0


# --- what comes from outside is text --------------------------------------------------------------

EVIL = "</script><script>alert(1)</script><img src=x onerror=alert(2)>\"'{{ 7*7 }}<!--"


def test_whatever_a_serial_number_holds_is_text() -> None:
    device = {name: EVIL for name in ("serial", "model", "operator", "place", "target", "customer")}
    hostile = runs.meta(
        device=device,
        inputs=[{"name": EVIL, "sha256": EVIL}],
        settings={EVIL: EVIL},
        software={"name": EVIL},
        findings=[{"level": EVIL, "id": EVIL, "text": EVIL, "figures": {EVIL: 1.0}}],
        verdict=EVIL,
        remarks=[EVIL],
        unit=EVIL,
        created=EVIL,
        limits={EVIL: EVIL},
    )
    part = dataclasses.replace(runs.factory(2, failed=(0,)), reason=np.array([EVIL, ""]))
    run = dataclasses.replace(runs.full_run(2), meta=hostile, factory=part)
    clean = read(render.page_of(runs.full_run(2)))
    page = read(render.page_of(run))
    assert EVIL in page.text

    def count(reader: Reader, tag: str) -> int:
        return sum(1 for name, _ in reader.elements if name == tag)

    assert count(page, "script") == count(clean, "script") == 3
    assert count(page, "img") == 0
    assert not any(name.startswith("on") for _, attrs in page.elements for name in attrs)


def test_no_text_of_a_run_ends_the_json() -> None:
    text = render.json_text({"a": "</script><!-- \u2028 \u2029"})
    assert "<" not in text and "\u2028" not in text
    assert json.loads(text) == {"a": "</script><!-- \u2028 \u2029"}


def test_the_page_names_no_address_and_keeps_its_policy() -> None:
    page = render.page_of(runs.full_run(2))
    reader = read(page)
    policy = next(
        a["content"] for t, a in reader.elements if a.get("http-equiv") == "Content-Security-Policy"
    )
    assert policy == (
        "default-src 'none'; script-src 'unsafe-inline'; style-src 'unsafe-inline'; img-src data:"
    )
    for _, attrs in reader.elements:
        for name in ("src", "href"):
            value = attrs.get(name)
            assert value is None or value.startswith(("#", "data:"))
    own = (Path(render.__file__).parent / "report.js").read_text()
    for word in (
        "http:",
        "https:",
        "fetch(",
        "XMLHttp",
        "import(",
        "eval(",
        "innerHTML",
        "localStorage",
    ):
        assert word not in own


# Functions that d3 5.16 and 7 have alike, with the same arguments.
ALIKE = {
    "area",
    "axisBottom",
    "axisLeft",
    "cross",
    "descending",
    "extent",
    "format",
    "interpolateRdBu",
    "interpolateViridis",
    "interpolateYlGnBu",
    "line",
    "max",
    "mean",
    "median",
    "min",
    "range",
    "rgb",
    "scaleBand",
    "scaleLinear",
    "scaleLog",
    "select",
    "sum",
}


def test_the_script_stays_within_its_length_and_old_and_new_d3() -> None:
    own = (Path(render.__file__).parent / "report.js").read_text()
    assert own.count("\n") <= 700
    assert set(re.findall(r"\bd3\.(\w+)", own)) <= ALIKE


# --- files ----------------------------------------------------------------------------------------


def test_a_page_is_read_back(tmp_path: Path) -> None:
    path = tmp_path / "report.html"
    write_page(runs.full_run(3), path)
    found = read_page(path)
    assert found["schema"] == "kestrane-report/1"
    assert found["meta"]["device"]["serial"] == "SIM-0001"


def test_the_same_run_gives_the_same_page() -> None:
    assert render.page_of(runs.full_run(2)) == render.page_of(runs.full_run(2))


def test_a_cut_page_is_refused(tmp_path: Path) -> None:
    path = tmp_path / "report.html"
    write_page(runs.device_run(1), path)
    whole = path.read_bytes()
    for end in range(0, len(whole) - 8, len(whole) // 60):
        path.write_bytes(whole[:end])
        with pytest.raises(DamagedFile):
            read_page(path)


def test_another_html_file_is_refused(tmp_path: Path) -> None:
    path = tmp_path / "other.html"
    path.write_text("<!DOCTYPE html><html><body></body></html>")
    with pytest.raises(DamagedFile, match="not a whole report page"):
        read_page(path)
    path.write_text(render._OPENING + '{"schema": "other"}</script></html>')
    with pytest.raises(DamagedFile, match="kestrane-report/1"):
        read_page(path)
    path.write_text(render._OPENING + "{]</script></html>")
    with pytest.raises(DamagedFile, match="figures"):
        read_page(path)


def test_a_page_that_cannot_be_written_is_an_error(tmp_path: Path) -> None:
    with pytest.raises(FileOpenError):
        write_page(runs.device_run(1), tmp_path / "none" / "report.html")


def test_without_d3_the_package_is_named(monkeypatch: pytest.MonkeyPatch, tmp_path: Path) -> None:
    monkeypatch.setattr(render, "_D3", (tmp_path / "d3.min.js",))
    with pytest.raises(FileOpenError, match="node-d3"):
        render.page_of(runs.device_run(1))


def test_pages_are_no_larger_than_mail_takes() -> None:
    assert len(render.page_of(runs.full_run(100, frames=40)).encode()) <= 1_500_000
    assert len(render.page_of(runs.full_run(2)).encode()) <= 400_000


# --- judged anew, joined --------------------------------------------------------------------------


@pytest.fixture(scope="module")
def device() -> quality.FactoryQuality:
    return quality.calibrate_factory(_simulation.measure(planes=2, points=6000, frames=12, bow=0.4))


@pytest.fixture(scope="module")
def plain_run(device: quality.FactoryQuality) -> Run:
    return Run(
        meta={"verdict": "no limits given"},
        table=results.table_part(device.table),
        factory=results.factory_part(device),
    )


def test_a_run_is_judged_against_other_limits(plain_run: Run) -> None:
    assert "No limits given" in text_of(plain_run)
    strict = text_of(plain_run, limits={"rms": 0.001})
    assert "Not fit for use as it stands" in strict and "RMS of a plane 0.001 mm" in strict
    lax = text_of(plain_run, limits=kestrane.quality.Limits(rms=10.0))
    assert "Residuals. Worst RMS" in lax and "RMS of a plane 10 mm" in lax
    with pytest.raises(ValueError, match="'rsm'"):
        render.page_of(plain_run, limits={"rsm": 0.1})


def test_a_table_to_compare_with_gives_a_drift(
    plain_run: Run, device: quality.FactoryQuality
) -> None:
    cells = device.table.cells.copy()
    cells[..., 0] *= 1.0 + 1e-3  # the older sheets stood nearer to x = 0
    older = kestrane.PlaneTable(cells, device.table.whole, device.table.grid)
    run = render.joined(plain_run, older)
    found = quality.compare(older, device.table)
    assert run.difference is not None and run.difference.rms == found.rms
    assert "Drift against the compared table" in text_of(plain_run, compare=older)


def test_a_field_run_joins_its_factory_run(plain_run: Run) -> None:
    other = Run(meta={"inputs": [{"name": "field.npz", "sha256": "ab12"}]}, field=runs.field(2))
    text = text_of(plain_run, compare=other)
    assert "in field.npz ab12" in text
    assert "Factory and field calibration report" in text
    assert "Directions." in text and "Planes. All of 2 planes calibrated." in text


def test_a_run_without_a_table_has_no_drift(device: quality.FactoryQuality) -> None:
    with pytest.raises(ValueError, match="no table"):
        render.joined(Run(meta={}), device.table)
