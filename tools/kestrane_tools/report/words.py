"""What the page says without scripts: head, verdict, findings, six figures and tables, as text.

In goes a `Run`; out come plain records of text for the template, which escapes them. Numbers are
written here, once, so that the page, its print and a screen reader tell the same digits.
"""

from __future__ import annotations

import math
from dataclasses import dataclass
from datetime import datetime
from typing import Any

import numpy as np

from kestrane_tools.counted import counted
from kestrane_tools.report.model import Array, unit_of, volume_of
from kestrane_tools.run_file import FactoryPart, FieldPart, Run

__all__ = [
    "Card",
    "Cell",
    "Column",
    "Finding",
    "Table",
    "Verdict",
    "cards",
    "date",
    "field_table",
    "files",
    "findings",
    "head",
    "motion",
    "planes_table",
    "title",
    "verdict",
]

TITLES = {
    "factory": "Factory calibration report",
    "field": "Field calibration report",
    "difference": "Comparison of two tables",
    "compensation": "Compensation report",
}

# Where a finding's figure stands on the page, and which map shows it.
PLACES = {
    "planes": ("glance", ""),
    "screened": ("table", ""),
    "residuals": ("maps", "rms"),
    "coverage": ("maps", "origin"),
    "borrowed": ("maps", "origin"),
    "poses_off": ("poses", ""),
    "pose_noise": ("poses", ""),
    "frames": ("poses", ""),
    "seams": ("maps", "seam"),
    "trade": ("maps", "seam"),
    "optimise_idle": ("maps", "move"),
    "bound": ("maps", "move"),
    "refine": ("table", ""),
    "outliers": ("table", ""),
    "repeatability": ("maps", "repeatability"),
    "field_motion": ("field", ""),
    "direction": ("field", ""),
    "used": ("field", ""),
    "drift": ("drift", "drift"),
}

LABELS = {
    "planes": "Planes",
    "screened": "Screening",
    "residuals": "Residuals",
    "coverage": "Coverage",
    "borrowed": "Borrowed sectors",
    "poses_off": "Poses far off",
    "pose_noise": "Poses against points",
    "frames": "Frames",
    "seams": "Seams",
    "trade": "Optimisation",
    "optimise_idle": "Optimisation",
    "bound": "Optimisation",
    "refine": "Refinement",
    "outliers": "Outliers",
    "repeatability": "Repeatability",
    "field_motion": "Motion",
    "direction": "Directions",
    "used": "What was used",
    "drift": "Drift",
}

LIMITS = {
    "rms": "RMS of a plane",
    "p99": "99 % of a plane's residuals",
    "coverage": "measured share",
    "seam": "95 % of the steps",
    "repeatability": "repeatability",
    "outliers": "outliers",
    "field_motion": "motion in the field",
}

_SHARES = ("coverage", "outliers")


@dataclass(frozen=True)
class Finding:
    level: str  # "bad", "warn" or "ok"
    label: str
    text: str
    place: str  # id of the section that shows it, empty for none
    map: str  # which map to choose there, empty for none


@dataclass(frozen=True)
class Verdict:
    level: str  # "bad", "warn", "ok" or "none"
    text: str
    remark: str


@dataclass(frozen=True)
class Card:
    value: str
    words: str


@dataclass(frozen=True)
class Column:
    ident: str
    title: str
    words: str


@dataclass(frozen=True)
class Cell:
    text: str
    value: float | None  # what it is sorted by; None sorts last
    bad: bool = False


@dataclass(frozen=True)
class Table:
    columns: list[Column]
    rows: list[list[Cell]]


def length(value: float, unit: str = "") -> str:
    """A length to a thousandth, or a dash: fewer digits hide, more pretend."""
    if value is None or not math.isfinite(value):
        return "–"
    size = abs(value)
    text = f"{value:.3f}" if size < 1000 else f"{value:,.0f}" if size < 1e6 else f"{value:.3g}"
    if text.strip("-0.") == "":
        text = text.lstrip("-")  # nothing has no sign
    return f"{text} {unit}".rstrip().replace("-", "−")


def share(value: float, digits: int = 0) -> str:
    """A share in per cent; what is there and would be written as nothing is below the last digit."""
    if value is None or not math.isfinite(value):
        return "–"
    last = 10.0**-digits
    if 0.0 < 100.0 * value < 0.5 * last:
        return f"< {last:g} %"
    return f"{100.0 * value:.{digits}f} %"


def count(value: int | float) -> str:
    return f"{int(value):,}"


def _short(value: Any) -> str:
    if isinstance(value, (list, tuple)):
        return ", ".join(_short(item) for item in value)
    return f"{value:g}" if isinstance(value, (int, float)) else str(value)


# --- head -----------------------------------------------------------------------------------------


def title(run: Run) -> str:
    kind = str(run.meta.get("kind", "factory"))
    if run.compensation is not None and run.factory is None:
        kind = "compensation"
    if run.factory is not None and run.field is not None:
        return "Factory and field calibration report"
    return TITLES.get(kind, "Calibration report")


def date(text: str) -> str:
    """Date and time in ISO form as people read it, to the minute; any other text as it is."""
    try:
        moment = datetime.fromisoformat(text)
    except ValueError:
        return text
    zone = f" {moment.tzname()}" if moment.tzinfo else ""
    return moment.strftime("%Y-%m-%d %H:%M") + zone if "T" in text or " " in text else text


def _temperature(value: Any) -> str:
    if isinstance(value, (list, tuple)) and len(value) == 2:
        return f"{_short(value[0])} °C (start) – {_short(value[1])} °C (end)"
    return f"{_short(value)} °C"


# Settings in words; a setting that is as everybody expects it is not told.
_SETTINGS = {
    ("optimise", True): "optimisation on",
    ("optimise", False): "optimisation off",
    ("far", True): "depth band 220–1000",
    ("far", False): "depth band 100–1000",
    ("screen", True): "screened",
    ("screen", False): "not screened",
    ("repeatability", True): "",
    ("repeatability", False): "repeatability not measured",
    ("refine", "none"): "",
    ("refine", "estimate"): "refinement estimated",
    ("refine", "all"): "refined",
    ("unit", 1.0): "",
    ("partial", False): "",
}


def _setting(name: str, value: Any) -> str:
    if isinstance(value, (bool, float, int, str)) and (name, value) in _SETTINGS:
        return _SETTINGS[name, value]
    label = name.replace("_", " ")
    if isinstance(value, bool):
        return f"{label} {'on' if value else 'off'}"
    return f"{label} {_short(value)}"


def _settings(settings: dict[str, Any]) -> str:
    words = [_setting(name, value) for name, value in settings.items() if value is not None]
    return " · ".join(word for word in words if word) or "defaults"


def _volume(run: Run) -> str:
    near, far, half_angle = volume_of(run)
    fan = "whole fan" if half_angle >= 30.0 else f"±{half_angle:g}°"
    chosen = "" if run.meta.get("volume") else " (the band of the fit)"
    return f"depth {near:g}–{far:g}, {fan}{chosen}"


def _limits(limits: dict[str, Any], unit: str) -> str:
    words = [
        f"{LIMITS.get(name, name)} {share(value) if name in _SHARES else f'{_short(value)} {unit}'}"
        for name, value in limits.items()
        if value is not None
    ]
    return " · ".join(words) or "none given"


def _measured(run: Run) -> str:
    inputs = run.meta.get("inputs") or []
    if run.factory is not None:
        clouds = int((run.factory.points > 0).sum())
        return f"{counted(clouds, 'cloud')}, {counted(int(run.factory.points.sum()), 'point')}"
    if run.field is not None:
        return (
            f"{counted(len(run.field.plane), 'list')} of frames, "
            f"{counted(int(run.field.stage_points[0]), 'point')}"
        )
    return ", ".join(str(item.get("name", "")) for item in inputs) or "not given"


def head(run: Run) -> list[tuple[str, str]]:
    """Label and text of each entry of the head; what nobody told is left out or "not given"."""
    meta = run.meta
    device = dict(meta.get("device") or {})
    unit = str(meta.get("unit", "mm"))
    entries = [
        ("Device", str(device.pop("model", "not given"))),
        ("Serial number", str(device.pop("serial", "not given"))),
        (
            "Calibrated" if meta.get("kind") != "difference" else "Compared",
            date(str(meta.get("created", "not given"))),
        ),
        ("Operator", str(device.pop("operator", "not given"))),
    ]
    temperature = device.pop("temperature", None)
    entries.append(
        ("Temperature", "not given" if temperature is None else _temperature(temperature))
    )
    entries.append(("Target", str(device.pop("target", "not given"))))
    entries += [(name.replace("_", " ").capitalize(), str(value)) for name, value in device.items()]
    software = meta.get("software") or {}
    entries.append(("Input", _measured(run)))
    entries.append(("Software", " ".join(str(v) for v in software.values()) or "not given"))
    entries.append(("Settings", _settings(meta.get("settings") or {})))
    if run.table is not None:
        entries.append(("Working volume judged", _volume(run)))
    entries.append(("Limits", _limits(meta.get("limits") or {}, unit)))
    return entries


def files(run: Run) -> list[tuple[str, str, str]]:
    """Direction, name and SHA-256 of each file that went in or came out."""
    known = []
    for direction, key in (("in", "inputs"), ("out", "outputs")):
        for item in run.meta.get(key) or []:
            known.append(
                (direction, str(item.get("name", "")), str(item.get("sha256", "not given")))
            )
    return known


# --- verdict and findings -------------------------------------------------------------------------


def _sentence(text: str) -> str:
    text = text.strip()
    return text[:1].upper() + text[1:] + ("" if text.endswith((".", "!", "?")) else ".")


def findings(run: Run) -> list[Finding]:
    """The run's findings in its order, worst first."""
    shown = _sections(run)
    listed = []
    for item in run.meta.get("findings") or []:
        ident = item["id"]
        place, chosen = PLACES.get(ident, ("", ""))
        listed.append(
            Finding(
                level=item["level"],
                label=LABELS.get(ident, ident.replace("_", " ").capitalize()),
                text=_sentence(item["text"]),
                place=place if place in shown else "",
                map=chosen,
            )
        )
    return listed


def _sections(run: Run) -> set[str]:
    shown = set() if planes_table(run) is None else {"table"}
    if run.factory is not None:
        shown.add("glance")
        if run.factory.pose_plane.size:
            shown.add("poses")
    if run.field is not None:
        shown.add("field")
    if run.difference is not None:
        shown.add("drift")
    measured = any(part is not None and not part.refused for part in (run.factory, run.difference))
    if run.table is not None and measured:
        shown.add("maps")
    return shown


def verdict(run: Run) -> Verdict | None:
    """The verdict of the run, and what it rests on; None where nothing was judged."""
    if not run.meta.get("verdict") and not run.meta.get("findings"):
        return None
    text = str(run.meta.get("verdict") or "no limits given")
    levels = [finding.level for finding in findings(run)]
    bad, warn = levels.count("bad"), levels.count("warn")
    to_act = counted(bad, "finding") + " to act on" if bad else ""
    to_mind = counted(warn, "finding") + " to keep in mind" if warn else ""
    summary = ", ".join(part for part in (to_act, to_mind) if part)
    if text.startswith("no limits"):
        remark = (summary or "the figures are told") + "; give limits to have them judged"
        return Verdict("none", _sentence(text).rstrip("."), remark)
    level = "bad" if bad else "warn" if warn else "ok"
    return Verdict(level, _sentence(text).rstrip("."), summary or "nothing stands out")


# --- six figures ----------------------------------------------------------------------------------


def _mean(values: Array) -> float:
    known = values[np.isfinite(values)]
    return float(known.mean()) if known.size else math.nan


def _worst(values: Array) -> tuple[float, str]:
    known = np.isfinite(values)
    if not known.any():
        return math.nan, ""
    plane = int(np.nanargmax(values))
    return float(values[plane]), f"plane {plane}"


def _factory_cards(part: FactoryPart, unit: str) -> list[Card]:
    good = int(((part.status == 0) & (part.reason == "")).sum())
    q99, where = _worst(part.q99)
    valid = int(part.valid.sum())
    least = float(np.nanmin(part.coverage)) if np.isfinite(part.coverage).any() else math.nan
    repeat, repeat_where = _worst(part.repeatability)
    return [
        Card(f"{good} / {len(part.status)}", "planes calibrated"),
        Card(length(part.device_rms, unit), "RMS residual, all points"),
        Card(length(q99, unit), f"99 % of the points below, worst {where or 'plane'}"),
        Card(
            share(_mean(part.coverage)), f"of the working volume measured, at least {share(least)}"
        ),
        Card(
            share(int(part.outliers.sum()) / valid if valid else math.nan, 1),
            "outliers (beyond 4 robust σ)",
        ),
        Card(
            length(repeat, unit),
            f"repeatability (split poses), worst {repeat_where}"
            if repeat_where
            else "repeatability: not determined",
        ),
    ]


def _field_cards(part: FieldPart, unit: str) -> list[Card]:
    fixed = int(part.direction_fixed.sum())
    return [
        Card(length(part.displacement_rms, unit), "RMS displacement of the sheets"),
        Card(
            length(part.displacement_max, unit),
            f"largest displacement, plane {part.displacement_plane}",
        ),
        Card(
            f"± {length(part.displacement_sigma, unit)}", "standard deviation of the displacement"
        ),
        Card(
            f"{fixed} / {len(part.direction_fixed)}", "directions of the motion fixed by the points"
        ),
        Card(length(part.residual, unit), "RMS residual of the points used"),
        Card(f"{count(part.stage_frames[4])} / {count(part.stage_frames[0])}", "frames used"),
    ]


def cards(run: Run) -> list[Card]:
    """Six figures that tell most; none where the call was refused."""
    unit = unit_of(run)
    if run.factory is not None:
        return _factory_cards(run.factory, unit)
    if run.field is not None and not run.field.refused:
        return _field_cards(run.field, unit)
    if run.difference is not None and not run.difference.refused:
        part = run.difference
        return [
            Card(length(part.rms, unit), "RMS difference along the normals"),
            Card(length(part.max, unit), f"largest difference, plane {part.plane}"),
            Card(share(part.explained), "explained by a rigid motion"),
            Card(length(part.rest, unit), "RMS left after that motion"),
            Card(count(part.blocks), "blocks compared"),
            Card(count(part.only_in_one), "blocks in one table only"),
        ]
    return []


# --- field ----------------------------------------------------------------------------------------


def _vector(values: Array, factor: float, digits: int) -> str:
    return (
        "(" + ", ".join(f"{factor * value:.{digits}f}" for value in values).replace("-", "−") + ")"
    )


def _turn(rotation: Array) -> Array:
    """Angle times axis of a rotation by less than half a turn."""
    skew = (
        np.array(
            [
                rotation[2, 1] - rotation[1, 2],
                rotation[0, 2] - rotation[2, 0],
                rotation[1, 0] - rotation[0, 1],
            ]
        )
        / 2.0
    )
    sine = float(np.linalg.norm(skew))
    cosine = float((np.trace(rotation) - 1.0) / 2.0)
    return skew * (math.atan2(sine, cosine) / sine) if sine > 0.0 else skew


def motion(part: FieldPart, unit: str) -> list[tuple[str, str]]:
    """Smallest motion and the job's own, written out."""
    listed = []
    for label, rotation, shift in (
        ("Smallest motion (to apply)", part.smallest_R, part.smallest_t),
        ("Motion of the job", part.motion_R, part.motion_t),
    ):
        listed.append(
            (
                label,
                f"turn {_vector(_turn(rotation), 1000.0, 3)} mrad, "
                f"shift {_vector(shift, 1.0, 3)} {unit}",
            )
        )
    listed.append(
        (
            "Residuals of the job",
            f"mean {length(part.indicator_mean)}, largest {length(part.indicator_max)}, "
            f"half mean deviation {length(part.indicator_deviation)} {unit}",
        )
    )
    return listed


_STAGES = (
    "given",
    "after screening",
    "after the frame filter",
    "after the interior planes",
    "used",
)


def field_table(part: FieldPart) -> Table:
    """What is left after each stage."""
    columns = [
        Column("stage", "stage", ""),
        Column("points", "points", ""),
        Column("frames", "frames", ""),
        Column("planes", "planes", ""),
    ]
    rows = [
        [
            Cell(name, float(i)),
            *(
                Cell(count(n), float(n))
                for n in (part.stage_points[i], part.stage_frames[i], part.stage_planes[i])
            ),
        ]
        for i, name in enumerate(_STAGES)
    ]
    return Table(columns, rows)


def dropped_frames(part: FieldPart) -> str:
    """Frames without a used point, by plane; at most forty are listed."""
    places: dict[int, list[int]] = {}
    for plane, frame in zip(part.dropped_plane[:40], part.dropped_frame):
        places.setdefault(int(plane), []).append(int(frame))
    words = "; ".join(f"plane {p}: {', '.join(map(str, frames))}" for p, frames in places.items())
    more = len(part.dropped_plane) - 40
    return words + (f"; and {more} more" if more > 0 else "")


# --- table of the planes --------------------------------------------------------------------------


def _number_cell(value: float, text: str, bad: bool = False) -> Cell:
    return Cell(text, float(f"{value:.7g}") if math.isfinite(value) else None, bad)


def _above(value: float, limit: float | None) -> bool:
    return limit is not None and value > limit


def _factory_rows(part: FactoryPart, limits: dict[str, Any]) -> Table:
    columns = [
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
    with_gain = bool(part.refinement.any())
    if with_gain:
        columns.append(Column("refined", "refined", "error on unseen frames of the refined table"))
        columns.append(Column("plain", "plain", "error on unseen frames of the plain table"))
    rows = []
    for p, status in enumerate(part.status):
        screened = int(part.not_finite[p] + part.gross[p])
        outliers = part.outliers[p] / part.valid[p] if part.valid[p] else math.nan
        coverage = limits.get("coverage")
        failed = bool(status != 0 or part.reason[p])
        row = [
            Cell(str(p), float(p), failed),
            Cell(count(part.points[p]), float(part.points[p])),
            Cell(count(screened), float(screened)),
            _number_cell(part.rms[p], length(part.rms[p]), _above(part.rms[p], limits.get("rms"))),
            _number_cell(part.bias[p], length(part.bias[p])),
            _number_cell(part.q95[p], length(part.q95[p])),
            _number_cell(part.q99[p], length(part.q99[p]), _above(part.q99[p], limits.get("p99"))),
            _number_cell(part.max[p], length(part.max[p])),
            _number_cell(outliers, share(outliers, 1), _above(outliers, limits.get("outliers"))),
            _number_cell(
                part.coverage[p],
                share(part.coverage[p]),
                coverage is not None and part.coverage[p] < coverage,
            ),
            _number_cell(
                part.seam[p], length(part.seam[p]), _above(part.seam[p], limits.get("seam"))
            ),
            _number_cell(
                part.repeatability[p],
                length(part.repeatability[p]),
                _above(part.repeatability[p], limits.get("repeatability")),
            ),
            _number_cell(part.within_poses[p], length(part.within_poses[p])),
            _number_cell(part.between_poses[p], length(part.between_poses[p])),
        ]
        if with_gain:
            row.append(_number_cell(part.refined_rms[p], length(part.refined_rms[p])))
            row.append(_number_cell(part.plain_rms[p], length(part.plain_rms[p])))
        rows.append(row)
    return Table(columns, rows)


def failed_planes(part: FactoryPart) -> list[tuple[int, str]]:
    """Number and reason of every plane without a table."""
    return [
        (p, str(part.reason[p]) or f"status {part.status[p]}")
        for p in range(len(part.status))
        if part.status[p] != 0 or part.reason[p]
    ]


def planes_table(run: Run) -> Table | None:
    """One row per plane, of whatever the run is about."""
    limits = run.meta.get("limits") or {}
    if run.factory is not None:
        return _factory_rows(run.factory, limits)
    if run.difference is not None and not run.difference.refused:
        part = run.difference
        columns = [
            Column("plane", "plane", "number of the plane"),
            Column("blocks", "blocks", "blocks compared"),
            Column("rms", "RMS", "root mean square difference"),
            Column("max", "largest", "largest difference"),
            Column("rest", "rest", "RMS left after the rigid motion"),
        ]
        return Table(
            columns,
            [
                [
                    Cell(str(p), float(p)),
                    Cell(count(part.plane_blocks[p]), float(part.plane_blocks[p])),
                    *(
                        _number_cell(v[p], length(v[p]))
                        for v in (part.plane_rms, part.plane_max, part.plane_rest)
                    ),
                ]
                for p in range(len(part.plane_rms))
            ],
        )
    if run.field is not None:
        part_f = run.field
        columns = [
            Column("plane", "plane", "number of the plane"),
            *(Column(f"points{i}", f"points {name}", "") for i, name in enumerate(_STAGES)),
            Column("frames0", "frames given", ""),
            Column("frames4", "frames used", ""),
        ]
        return Table(
            columns,
            [
                [
                    Cell(str(int(p)), float(p)),
                    *(Cell(count(n), float(n)) for n in part_f.plane_points[i]),
                    *(
                        Cell(count(part_f.plane_frames[i, s]), float(part_f.plane_frames[i, s]))
                        for s in (0, 4)
                    ),
                ]
                for i, p in enumerate(part_f.plane)
            ],
        )
    return None
