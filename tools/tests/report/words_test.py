"""Every word of the page that a run decides on, without the page."""

from __future__ import annotations

import dataclasses
import math
from typing import Any

import numpy as np
import pytest
import synthetic_runs as runs

from kestrane.quality import Limits
from kestrane_tools.report import words
from kestrane_tools.report.words import Card, Cell, Column
from kestrane_tools.run_file import FactoryPart, Run

NAN = float("nan")
INF = float("inf")


def changed(part: Any, **arrays: Any) -> Any:
    """The part with other values; a list takes the place of the first entries of an array."""
    given = {}
    for name, values in arrays.items():
        old = getattr(part, name)
        if isinstance(old, np.ndarray) and isinstance(values, list):
            new = old.astype(object if old.dtype.kind == "U" else old.dtype)
            new[: len(values)] = values
            values = new.astype(str) if old.dtype.kind == "U" else new
        given[name] = values
    return dataclasses.replace(part, **given)


def told(run: Run) -> dict[str, str]:
    """The head by its labels."""
    entries = words.head(run)
    assert len(dict(entries)) == len(entries)
    return dict(entries)


# --- numbers --------------------------------------------------------------------------------------


@pytest.mark.parametrize(
    ("value", "text"),
    [
        (999.9994, "999.999"),
        (1000.0, "1,000"),
        (999_999.4, "999,999"),
        (1e6, "1e+06"),
        (1_234_567.0, "1.23e+06"),
        (-1234.5, "−1,234"),
        (0.0, "0.000"),
        (-0.0, "0.000"),
    ],
)
def test_a_length_has_as_many_digits_as_it_deserves(value, text):
    assert words.length(value) == text
    assert words.length(value, "mm") == f"{text} mm"


@pytest.mark.parametrize("value", [None, NAN, INF, -INF])
def test_a_length_that_is_not_known_is_a_dash(value):
    assert words.length(value) == words.length(value, "mm") == "–"


@pytest.mark.parametrize(
    ("value", "digits", "text"),
    [
        (0.005, 0, "0 %"),  # halves go to the even neighbour
        (0.00499, 0, "< 1 %"),
        (0.0005, 1, "0.1 %"),
        (0.000499, 1, "< 0.1 %"),
        (0.0149, 0, "1 %"),
        (1.0, 0, "100 %"),
        (0.12345, 2, "12.35 %"),
        (NAN, 0, "–"),
        (None, 0, "–"),
        (INF, 1, "–"),
    ],
)
def test_a_share_that_is_there_is_never_written_as_nothing(value, digits, text):
    assert words.share(value, digits) == text


def test_counts_have_their_thousands_apart():
    assert words.count(1234567) == "1,234,567" and words.count(999.0) == "999"
    assert words.counted(1, "point") == "1 point"
    assert words.counted(0, "point") == "0 points"
    assert words.counted(12345, "point") == "12,345 points"


# --- head -----------------------------------------------------------------------------------------


def test_the_title_tells_what_the_run_is():
    factory, field = runs.factory(1), runs.field(1)
    curve = runs.compensation(1)
    for run, title in (
        (Run(meta={}, factory=factory), "Factory calibration report"),
        (Run(meta={}), "Factory calibration report"),
        (Run(meta={"kind": "factory"}, factory=factory), "Factory calibration report"),
        (Run(meta={"kind": "field"}, field=field), "Field calibration report"),
        (Run(meta={"kind": "difference"}), "Comparison of two tables"),
        (Run(meta={"kind": "difference"}, compensation=curve), "Compensation report"),
        (Run(meta={"kind": "factory"}, factory=factory, compensation=curve), "Factory calibration report"),
        (Run(meta={}, factory=factory, field=field), "Factory and field calibration report"),
        (Run(meta={"kind": "other"}), "Calibration report"),
    ):
        assert words.title(run) == title


def test_of_a_run_that_nobody_described_all_is_not_given():
    assert words.head(Run(meta={})) == [
        ("Device", "not given"),
        ("Serial number", "not given"),
        ("Calibrated", "not given"),
        ("Operator", "not given"),
        ("Temperature", "not given"),
        ("Target", "not given"),
        ("Input", "not given"),
        ("Software", "not given"),
        ("Settings", "defaults"),
        ("Limits", "none given"),
    ]


def test_the_head_of_a_device_is_in_the_order_of_a_certificate():
    device = {
        "certificate": "K-7",
        "serial": "S1",
        "next_due": "2027-01",
        "model": "fan",
        "operator": "A",
        "target": "board",
        "temperature": 20.5,
    }
    run = Run(
        meta={
            "device": device,
            "created": "2026-11-21",
            "software": {"name": "kestrane", "version": "1"},
            "settings": {"far": True, "unit": 1.0, "optimise": False},
            "limits": {"rms": 0.15, "coverage": 0.8, "outliers": 0.015, "other": 2, "place": None},
            "unit": "in",
            "volume": {"depth": [200, 800], "half_angle_deg": 12.5},
        },
        table=runs.table(1),
    )
    assert words.head(run) == [
        ("Device", "fan"),
        ("Serial number", "S1"),
        ("Calibrated", "2026-11-21"),
        ("Operator", "A"),
        ("Temperature", "20.5 °C"),
        ("Target", "board"),
        ("Certificate", "K-7"),
        ("Next due", "2027-01"),
        ("Input", "not given"),
        ("Software", "kestrane 1"),
        ("Settings", "depth band 220–1000 · optimisation off"),
        ("Working volume judged", "depth 200–800, ±12.5°"),
        (
            "Limits",
            "RMS of a plane 0.15 in · measured share 80 % · outliers 2 % · other 2 in",
        ),
    ]
    assert device["serial"] == "S1"  # the run's own table is as it was


def test_each_limit_has_its_name():
    names = [item.name for item in dataclasses.fields(Limits)]
    limits = dict.fromkeys(names, 0.5)
    assert set(words.LIMITS) == set(names)
    assert told(Run(meta={"limits": limits}))["Limits"] == (
        "RMS of a plane 0.5 mm · 99 % of a plane's residuals 0.5 mm · measured share 50 % · "
        "95 % of the steps 0.5 mm · repeatability 0.5 mm · outliers 50 % · motion in the field 0.5 mm"
    )


def test_two_tables_are_compared_and_not_calibrated():
    assert "Calibrated" not in told(Run(meta={"kind": "difference"}))
    assert told(Run(meta={"kind": "difference", "created": "x"}))["Compared"] == "x"


@pytest.mark.parametrize(
    ("created", "text"),
    [
        ("2026-11-21T19:55:02", "2026-11-21 19:55"),
        ("2026-11-21 19:55", "2026-11-21 19:55"),
        ("2026-11-21T19:55:02+00:00", "2026-11-21 19:55 UTC"),
        ("2026-11-21T19:55:02+01:00", "2026-11-21 19:55 UTC+01:00"),
        ("2026-11-21", "2026-11-21"),
        ("in spring", "in spring"),
    ],
)
def test_a_date_is_written_to_the_minute_with_its_zone(created, text):
    assert told(Run(meta={"created": created}))["Calibrated"] == text


@pytest.mark.parametrize(
    ("temperature", "text"),
    [
        (20.50, "20.5 °C"),
        ([20, 21], "20 °C (start) – 21 °C (end)"),
        ((20, 21), "20 °C (start) – 21 °C (end)"),
        ([20, 21, 22], "20, 21, 22 °C"),
        ("ab", "ab °C"),
    ],
)
def test_a_temperature_is_one_or_begins_and_ends(temperature, text):
    assert words._temperature(temperature) == text
    assert told(Run(meta={"device": {"temperature": temperature}}))["Temperature"] == text


@pytest.mark.parametrize(
    ("settings", "text"),
    [
        ({"far": True}, "depth band 220–1000"),
        ({"far": False}, "depth band 100–1000"),
        ({"optimise": True}, "optimisation on"),
        ({"optimise": False}, "optimisation off"),
        ({"screen": True}, "screened"),
        ({"screen": False}, "not screened"),
        ({"repeatability": True}, "defaults"),
        ({"repeatability": False}, "repeatability not measured"),
        ({"refine": "none"}, "defaults"),
        ({"refine": "estimate"}, "refinement estimated"),
        ({"refine": "all"}, "refined"),
        ({"unit": 1.0}, "defaults"),
        ({"unit": 1000.0}, "unit 1000"),
        ({"partial": False}, "defaults"),
        ({"partial": True}, "partial on"),
        ({"leave_out": False}, "leave out off"),
        ({"columns": None}, "defaults"),
        ({"columns": "x,y,z"}, "columns x,y,z"),
        ({"planes": [1, [2, 3]]}, "planes 1, 2, 3"),
    ],
)
def test_a_setting_is_told_where_it_says_something(settings, text):
    assert told(Run(meta={"settings": settings}))["Settings"] == text


def test_the_working_volume_is_the_one_that_was_chosen():
    table = runs.table(1)
    for volume, text in (
        ({"depth": [200, 800], "half_angle_deg": 30.0}, "depth 200–800, whole fan"),
        ({"depth": [200, 800], "half_angle_deg": 29.5}, "depth 200–800, ±29.5°"),
        ({"depth": [200, 800], "half_angle_deg": 25.0}, "depth 200–800, ±25°"),
        ({"depth": [200.5, 800]}, "depth 200.5–800, whole fan"),
        ({}, "depth 100–1000, whole fan (the band of the fit)"),
    ):
        assert told(Run(meta={"volume": volume}, table=table))["Working volume judged"] == text
    assert "Working volume judged" not in told(Run(meta={}))


def test_what_was_measured_is_counted():
    part = changed(runs.factory(3), points=[1, 0, 1500])
    assert told(Run(meta={}, factory=part))["Input"] == "2 clouds, 1,501 points"
    part = changed(runs.factory(1), points=[1])
    assert told(Run(meta={}, factory=part))["Input"] == "1 cloud, 1 point"
    part = changed(runs.field(2), stage_points=[1234, 7])
    assert told(Run(meta={}, field=part))["Input"] == "2 lists of frames, 1,234 points"
    inputs = [{"name": "a.txt"}, {"sha256": "0"}, {"name": "b.txt"}]
    assert told(Run(meta={"inputs": inputs}))["Input"] == "a.txt, , b.txt"


def test_files_are_told_with_their_way_and_their_hash():
    meta = {
        "inputs": [{"name": "a", "sha256": "12"}, {}],
        "outputs": [{"name": "b", "sha256": "34"}],
    }
    assert words.files(Run(meta=meta)) == [("in", "a", "12"), ("in", "", "not given"), ("out", "b", "34")]
    assert words.files(Run(meta={})) == []


# --- findings and verdict -------------------------------------------------------------------------


def finding(**said: Any) -> dict[str, Any]:
    return {"level": "ok", "id": "seams", "text": "t", "figures": {}} | said


def test_a_finding_becomes_a_sentence_with_its_label_and_its_map():
    meta = {
        "findings": [
            finding(id="seams", text=" steps above 0.1 "),
            finding(id="planes", level="bad", text="No plane!"),
            finding(id="own_one", level="warn", text="is it? yes?"),
            finding(id="coverage", text=""),
        ]
    }
    run = Run(meta=meta, table=runs.table(2), factory=runs.factory(2))
    assert words.findings(run) == [
        words.Finding("ok", "Seams", "Steps above 0.1.", "maps", "seam"),
        words.Finding("bad", "Planes", "No plane!", "glance", ""),
        words.Finding("warn", "Own one", "Is it? yes?", "", ""),
        words.Finding("ok", "Coverage", ".", "maps", "origin"),
    ]


@pytest.mark.parametrize(
    ("ident", "label", "place", "shown"),
    [
        ("planes", "Planes", "glance", ""),
        ("screened", "Screening", "table", ""),
        ("residuals", "Residuals", "maps", "rms"),
        ("coverage", "Coverage", "maps", "origin"),
        ("borrowed", "Borrowed sectors", "maps", "origin"),
        ("poses_off", "Poses far off", "poses", ""),
        ("pose_noise", "Poses against points", "poses", ""),
        ("frames", "Frames", "poses", ""),
        ("seams", "Seams", "maps", "seam"),
        ("trade", "Optimisation", "maps", "seam"),
        ("optimise_idle", "Optimisation", "maps", "move"),
        ("bound", "Optimisation", "maps", "move"),
        ("refine", "Refinement", "table", ""),
        ("outliers", "Outliers", "table", ""),
        ("repeatability", "Repeatability", "maps", "repeatability"),
        ("field_motion", "Motion", "field", ""),
        ("direction", "Directions", "field", ""),
        ("used", "What was used", "field", ""),
        ("drift", "Drift", "drift", "drift"),
    ],
)
def test_a_finding_leads_to_where_its_figure_stands(ident, label, place, shown):
    run = dataclasses.replace(runs.full_run(2), meta={"findings": [finding(id=ident)]})
    assert words.findings(run) == [words.Finding("ok", label, "T.", place, shown)]


def places(run: Run) -> set[str]:
    listed = [finding(id=ident) for ident in words.PLACES]
    return {f.place for f in words.findings(dataclasses.replace(run, meta={"findings": listed}))}


def test_a_finding_leads_nowhere_where_its_section_is_not_shown():
    table, factory, field = runs.table(2), runs.factory(2), runs.field(2)
    refused = runs.factory(2, failed=(0, 1))
    assert refused.refused
    for run, expected in (
        (Run(meta={}), {""}),
        (Run(meta={}, factory=factory), {"", "table", "glance", "poses"}),
        (Run(meta={}, table=table, factory=factory), {"", "table", "glance", "poses", "maps"}),
        (Run(meta={}, table=table, factory=refused), {"", "table", "glance"}),
        (Run(meta={}, table=table, field=field), {"", "table", "field"}),
        (Run(meta={}, table=table, difference=runs.difference(2)), {"", "table", "drift", "maps"}),
    ):
        assert places(run) == expected


@pytest.mark.parametrize(
    ("levels", "verdict", "expected"),
    [
        (["bad"], "not fit", ("bad", "Not fit", "1 finding to act on")),
        (["bad", "bad", "warn"], "no", ("bad", "No", "2 findings to act on, 1 finding to keep in mind")),
        (["warn", "ok"], "usable", ("warn", "Usable", "1 finding to keep in mind")),
        (["ok"], "fit for use.", ("ok", "Fit for use", "nothing stands out")),
        ([], "fit", ("ok", "Fit", "nothing stands out")),
        (["warn"], None, ("none", "No limits given",
                          "1 finding to keep in mind; give limits to have them judged")),
        ([], "no limits given",
         ("none", "No limits given", "the figures are told; give limits to have them judged")),
    ],
)  # fmt: skip
def test_the_verdict_says_what_it_rests_on(levels, verdict, expected):
    meta: dict[str, Any] = {"findings": [finding(level=level) for level in levels]}
    if verdict is not None:
        meta["verdict"] = verdict
    found = words.verdict(Run(meta=meta))
    assert found is not None and (found.level, found.text, found.remark) == expected


def test_without_findings_and_verdict_nothing_was_judged():
    assert words.verdict(Run(meta={})) is None
    assert words.verdict(Run(meta={"findings": [], "verdict": ""})) is None


# --- six figures ----------------------------------------------------------------------------------


def factory() -> FactoryPart:
    """Three planes, of which the last one failed."""
    return changed(
        runs.factory(3, failed=(2,)),
        device_rms=0.0704,
        q99=[0.2, 0.3, NAN],
        coverage=[0.95, 0.85, NAN],
        valid=[1000, 3000, 0],
        outliers=[1, 4, 0],
        repeatability=[0.042, 0.031, NAN],
    )


def test_six_figures_tell_most_of_a_factory_calibration():
    assert words.cards(Run(meta={}, factory=factory())) == [
        Card("2 / 3", "planes calibrated"),
        Card("0.070 mm", "RMS residual, all points"),
        Card("0.300 mm", "99 % of the points below, worst plane 1"),
        Card("90 %", "of the working volume measured, at least 85 %"),
        Card("0.1 %", "outliers (beyond 4 robust σ)"),
        Card("0.042 mm", "repeatability (split poses), worst plane 0"),
    ]


def test_figures_that_are_not_known_are_dashes():
    none = [NAN] * 3
    part = changed(
        factory(),
        device_rms=NAN,
        q99=none,
        coverage=none,
        valid=[0, 0, 0],
        outliers=[0, 0, 0],
        repeatability=none,
    )
    assert words.cards(Run(meta={"unit": "in"}, factory=part)) == [
        Card("2 / 3", "planes calibrated"),
        Card("–", "RMS residual, all points"),
        Card("–", "99 % of the points below, worst plane"),
        Card("–", "of the working volume measured, at least –"),
        Card("–", "outliers (beyond 4 robust σ)"),
        Card("–", "repeatability: not determined"),
    ]


def test_a_plane_is_calibrated_with_its_status_and_without_a_reason():
    part = changed(factory(), status=[0, -1, -1], reason=["not refined", "", "x"])
    assert words.cards(Run(meta={}, factory=part))[0].value == "0 / 3"


def test_six_figures_tell_most_of_a_field_calibration():
    part = changed(
        runs.field(4),
        displacement_rms=0.14,
        displacement_max=0.32,
        displacement_sigma=0.002,
        displacement_plane=3,
        residual=0.083,
        stage_frames=[1200, 1100, 1100, 1100, 1000],
    )
    assert words.cards(Run(meta={"unit": "in"}, field=part)) == [
        Card("0.140 in", "RMS displacement of the sheets"),
        Card("0.320 in", "largest displacement, plane 3"),
        Card("± 0.002 in", "standard deviation of the displacement"),
        Card("5 / 6", "directions of the motion fixed by the points"),
        Card("0.083 in", "RMS residual of the points used"),
        Card("1,000 / 1,200", "frames used"),
    ]
    assert words.cards(Run(meta={}, field=dataclasses.replace(part, refused="why"))) == []


def test_six_figures_tell_most_of_a_difference():
    part = changed(
        runs.difference(2), rms=0.238, max=0.605, plane=1, rest=0.078, explained=0.89, blocks=1500,
        only_in_one=7,
    )  # fmt: skip
    run = Run(meta={}, difference=part)
    assert words.cards(run) == [
        Card("0.238 mm", "RMS difference along the normals"),
        Card("0.605 mm", "largest difference, plane 1"),
        Card("89 %", "explained by a rigid motion"),
        Card("0.078 mm", "RMS left after that motion"),
        Card("1,500", "blocks compared"),
        Card("7", "blocks in one table only"),
    ]
    assert words.cards(dataclasses.replace(run, difference=dataclasses.replace(part, refused="why"))) == []
    assert words.cards(Run(meta={})) == []


# --- field ----------------------------------------------------------------------------------------


def rotation(axis: int, angle: float) -> np.ndarray:
    one, other = (axis + 1) % 3, (axis + 2) % 3
    turn = np.eye(3)
    turn[one, one] = turn[other, other] = math.cos(angle)
    turn[other, one], turn[one, other] = math.sin(angle), -math.sin(angle)
    return turn


@pytest.mark.parametrize("axis", [0, 1, 2])
@pytest.mark.parametrize("angle", [0.0, 0.002, -0.3, 2.5])
def test_a_turn_is_angle_times_axis(axis, angle):
    expected = np.zeros(3)
    expected[axis] = angle
    assert words._turn(rotation(axis, angle)) == pytest.approx(expected, abs=1e-12)


def test_motions_are_written_out():
    part = changed(
        runs.field(2),
        smallest_R=rotation(1, 0.0015),
        smallest_t=np.array([0.204, -0.0011, -0.325]),
        motion_R=rotation(2, -0.25),
        motion_t=np.array([1.0, -6.5, 0.0]),
        indicator_mean=0.06,
        indicator_max=0.31,
        indicator_deviation=NAN,
    )
    assert words.motion(part, "in") == [
        (
            "Smallest motion (to apply)",
            "turn (0.000, 1.500, 0.000) mrad, shift (0.204, −0.001, −0.325) in",
        ),
        (
            "Motion of the job",
            "turn (0.000, 0.000, −250.000) mrad, shift (1.000, −6.500, 0.000) in",
        ),
        ("Residuals of the job", "mean 0.060, largest 0.310, half mean deviation – in"),
    ]


def test_each_stage_of_the_field_has_its_row():
    part = changed(
        runs.field(2),
        stage_points=[5000, 4000, 3000, 2000, 1000],
        stage_frames=[50, 40, 30, 20, 10],
        stage_planes=[5, 4, 3, 2, 1],
    )
    table = words.field_table(part)
    assert [(c.ident, c.title, c.words) for c in table.columns] == [
        (name, name, "") for name in ("stage", "points", "frames", "planes")
    ]
    assert table.rows == [
        [
            Cell(name, float(i)),
            Cell(f"{5 - i},000", 1000.0 * (5 - i)),
            Cell(f"{5 - i}0", 10.0 * (5 - i)),
            Cell(f"{5 - i}", float(5 - i)),
        ]
        for i, name in enumerate(
            (
                "given",
                "after screening",
                "after the frame filter",
                "after the interior planes",
                "used",
            )
        )
    ]


def test_dropped_frames_are_told_by_plane_up_to_forty():
    def part(count: int) -> Any:
        frames = np.arange(count)
        return dataclasses.replace(
            runs.field(2), dropped_plane=frames % 2, dropped_frame=frames, dropped_stage=frames
        )

    assert words.dropped_frames(part(0)) == ""
    assert words.dropped_frames(part(5)) == "plane 0: 0, 2, 4; plane 1: 1, 3"
    forty = "; ".join(f"plane {p}: " + ", ".join(map(str, range(p, 40, 2))) for p in (0, 1))
    assert words.dropped_frames(part(40)) == forty
    assert words.dropped_frames(part(41)) == forty + "; and 1 more"


# --- tables of the planes -------------------------------------------------------------------------


def rows_by_column(run: Run) -> tuple[list[str], list[dict[str, Cell]]]:
    table = words.planes_table(run)
    assert table is not None
    idents = [column.ident for column in table.columns]
    assert all(len(row) == len(idents) for row in table.rows)
    return idents, [dict(zip(idents, row, strict=True)) for row in table.rows]


def test_the_table_of_a_factory_run_has_its_columns():
    table = words.planes_table(Run(meta={}, factory=factory()))
    assert table is not None
    assert table.columns == [
        Column("plane", "plane", "number of the plane"),
        Column("points", "points", "points measured"),
        Column("screened", "screened", "points taken out: not finite, or gross"),
        Column("rms", "RMS", "root mean square residual"),
        Column("bias", "bias", "mean signed residual"),
        Column("q95", "95 %", "95 % of the residuals' sizes below"),
        Column("q99", "99 %", "99 % of the residuals' sizes below"),
        Column("max", "largest", "largest residual, outliers apart"),
        Column("outliers", "outliers", "share beyond 4 robust σ"),
        Column("coverage", "measured", "share of the working volume"),
        Column("seam", "seams", "95 % of the steps between neighbouring blocks"),
        Column("repeatability", "repeat.", "repeatability from split poses"),
        Column("within", "within", "scatter within a pose"),
        Column("between", "between", "scatter between poses"),
    ]


def test_a_row_of_a_factory_run_holds_the_figures_of_its_plane():
    part = changed(
        factory(),
        points=[12345, 7],
        not_finite=[3, 0],
        gross=[4, 0],
        rms=[0.0611234, 0.07],
        bias=[-0.0021, 0.0],
        q95=[0.12, 0.13],
        max=[0.44, 0.45],
        seam=[0.1, 0.11],
        within_poses=[0.05, 0.06],
        between_poses=[0.02, 0.03],
    )
    _, rows = rows_by_column(Run(meta={}, factory=part))
    assert rows[0] == {
        "plane": Cell("0", 0.0),
        "points": Cell("12,345", 12345.0),
        "screened": Cell("7", 7.0),
        "rms": Cell("0.061", 0.0611234),
        "bias": Cell("−0.002", -0.0021),
        "q95": Cell("0.120", 0.12),
        "q99": Cell("0.200", 0.2),
        "max": Cell("0.440", 0.44),
        "outliers": Cell("0.1 %", 0.001),
        "coverage": Cell("95 %", 0.95),
        "seam": Cell("0.100", 0.1),
        "repeatability": Cell("0.042", 0.042),
        "within": Cell("0.050", 0.05),
        "between": Cell("0.020", 0.02),
    }
    assert rows[1]["outliers"] == Cell("0.1 %", 0.001333333)  # seven digits sort well enough
    assert rows[2]["plane"] == Cell("2", 2.0, bad=True)
    assert rows[2]["outliers"] == rows[2]["rms"] == rows[2]["coverage"] == Cell("–", None)


def test_a_figure_beyond_its_limit_is_marked():
    part = changed(
        factory(),
        rms=[0.1, 0.2],
        q99=[0.3, 0.4],
        seam=[0.5, 0.6],
        repeatability=[0.7, 0.8],
        coverage=[0.9, 0.8],
        valid=[100, 100],
        outliers=[10, 20],
        status=[0, 0],
        reason=["", "not refined"],
    )
    limits = {"rms": 0.1, "p99": 0.3, "seam": 0.5, "repeatability": 0.7, "coverage": 0.9, "outliers": 0.1}
    _, rows = rows_by_column(Run(meta={"limits": limits}, factory=part))
    marked = {"rms", "q99", "seam", "repeatability", "coverage", "outliers"}
    assert {name for name, cell in rows[0].items() if cell.bad} == set()
    assert {name for name, cell in rows[1].items() if cell.bad} == marked | {"plane"}
    _, rows = rows_by_column(Run(meta={}, factory=part))
    assert {name for row in rows for name, cell in row.items() if cell.bad} == {"plane"}


def test_the_gain_of_a_refinement_has_columns_where_it_was_measured():
    part = changed(factory(), refinement=[True], refined_rms=[0.01], plain_rms=[0.02])
    table = words.planes_table(Run(meta={}, factory=part))
    assert table is not None
    assert table.columns[-2:] == [
        Column("refined", "refined", "error on unseen frames of the refined table"),
        Column("plain", "plain", "error on unseen frames of the plain table"),
    ]
    assert table.rows[0][-2:] == [Cell("0.010", 0.01), Cell("0.020", 0.02)]
    assert table.rows[1][-2:] == [Cell("–", None)] * 2


def test_failed_planes_are_told_with_their_reason_or_status():
    part = changed(factory(), status=[0, -3, 0], reason=["", "", "not refined"])
    assert words.failed_planes(part) == [(1, "status -3"), (2, "not refined")]


def test_the_table_of_a_difference_holds_its_planes():
    part = changed(
        runs.difference(2),
        plane_blocks=[1375, 0],
        plane_rms=[0.1, NAN],
        plane_max=[0.3, NAN],
        plane_rest=[0.05, NAN],
    )
    table = words.planes_table(Run(meta={}, difference=part))
    assert table is not None and table.columns == [
        Column("plane", "plane", "number of the plane"),
        Column("blocks", "blocks", "blocks compared"),
        Column("rms", "RMS", "root mean square difference"),
        Column("max", "largest", "largest difference"),
        Column("rest", "rest", "RMS left after the rigid motion"),
    ]
    assert table.rows == [
        [Cell("0", 0.0), Cell("1,375", 1375.0), Cell("0.100", 0.1), Cell("0.300", 0.3), Cell("0.050", 0.05)],
        [Cell("1", 1.0), Cell("0", 0.0), *[Cell("–", None)] * 3],
    ]
    assert words.planes_table(Run(meta={}, difference=dataclasses.replace(part, refused="why"))) is None


def test_the_table_of_a_field_run_holds_its_lists():
    part = changed(runs.field(2), plane=[4, 6])
    points, frames = part.plane_points.copy(), part.plane_frames.copy()
    points[1], frames[1] = [5000, 4000, 3000, 2000, 1000], [50, 40, 30, 20, 10]
    part = dataclasses.replace(part, plane_points=points, plane_frames=frames)
    table = words.planes_table(Run(meta={}, field=part))
    assert table is not None and table.columns == [
        Column("plane", "plane", "number of the plane"),
        Column("points0", "points given", ""),
        Column("points1", "points after screening", ""),
        Column("points2", "points after the frame filter", ""),
        Column("points3", "points after the interior planes", ""),
        Column("points4", "points used", ""),
        Column("frames0", "frames given", ""),
        Column("frames4", "frames used", ""),
    ]
    assert len(table.rows) == 2 and table.rows[0][0] == Cell("4", 4.0)
    assert table.rows[1] == [
        Cell("6", 6.0),
        *(Cell(f"{n},000", 1000.0 * n) for n in (5, 4, 3, 2, 1)),
        Cell("50", 50.0),
        Cell("10", 10.0),
    ]


def test_a_run_without_results_has_no_table():
    assert words.planes_table(Run(meta={})) is None
