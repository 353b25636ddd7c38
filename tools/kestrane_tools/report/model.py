"""What the page draws, as JSON.

In goes a `Run`; out comes a dict of plain values, schema ``kestrane-report/1``, that JSON can hold
without NaN: what is not determined is None. Maps are packed (see `pack`), so that a hundred planes
stay below a megabyte. No figure is computed here; where planes or corners share a place of a map,
the one that is shown is chosen, and the title says which.
"""

from __future__ import annotations

import base64
import math
import zlib
from typing import Any

import numpy as np
from numpy.typing import NDArray

from kestrane_tools.run_file import FactoryPart, Run, TablePart

__all__ = [
    "SCHEMA",
    "block_middles",
    "in_volume",
    "model_of",
    "pack",
    "plain",
    "unit_of",
    "unpack",
    "volume_of",
]

SCHEMA = "kestrane-report/1"

Array = NDArray[Any]
Json = dict[str, Any]

_LARGEST = 1e12  # beyond it a figure is none: no drawing has a scale for it
NOTHING = 65535  # the packed value of a place without a figure
_STEPS = 16383
_WHOLE_FAN = 30.0  # degrees to either side
_FIT_BAND = (100.0, 1000.0)
_FAN_LINES = (0, 5, 10, 15)
_FAN_ROWS = 7
_FIT_ROWS = 32  # depth 1000


def pack(values: Array, steps: int = _STEPS) -> Json:
    """Pack an array into 16 bits a value, deflated, as base64.

    value = low + step * q; q = 65535 stands for a place without a figure. Whole numbers from 0 to
    65534 are exact. Others are cut into 16,383 steps of the array's range: finer than a colour or
    four digits show, and two bits a value that noise leaves for deflate to save. The upper bytes of
    all values come before the lower ones, of which deflate makes less.

    Parameters
    ----------
    values : array of any shape
        NaN, infinities and sizes beyond 1e12 have no figure.
    steps : int
        How finely the range is cut where the values are not whole numbers.
    """
    values = np.asarray(values)
    finite = np.abs(values) <= _LARGEST
    low = float(values[finite].min()) if finite.any() else 0.0
    high = float(values[finite].max()) if finite.any() else 0.0
    if low >= 0 and high < NOTHING and (values[finite] == np.rint(values[finite])).all():
        low, step = 0.0, 1.0
    else:
        step = (high - low) / steps
    scaled = np.zeros(values.shape)
    if step > 0.0:
        scaled[finite] = np.rint((values[finite] - low) / step)
    packed = np.where(finite, scaled, NOTHING).astype(np.uint16).ravel()
    data = (packed >> 8).astype(np.uint8).tobytes() + (packed & 255).astype(np.uint8).tobytes()
    return {
        "low": low,
        "step": step,
        "shape": list(values.shape),
        "data": base64.b64encode(zlib.compress(data, 9)).decode("ascii"),
    }


def unpack(packed: Json) -> Array:
    """The values of `pack`, float64, NaN where there is no figure."""
    data = np.frombuffer(zlib.decompress(base64.b64decode(packed["data"])), np.uint8)
    upper, lower = data.reshape(2, -1).astype(np.uint16)
    q = (upper << 8) | lower
    values = np.where(q == NOTHING, np.nan, packed["low"] + packed["step"] * q)
    return values.reshape(packed["shape"])


def plain(value: Any) -> Any:
    """Turn NumPy values, tuples and numbers that JSON lacks into what JSON holds, None for those."""
    if isinstance(value, dict):
        return {str(key): plain(item) for key, item in value.items()}
    if isinstance(value, (list, tuple)):
        return [plain(item) for item in value]
    if isinstance(value, np.ndarray):
        return [plain(item) for item in value.tolist()]
    if isinstance(value, np.generic):
        value = value.item()
    if isinstance(value, float):
        return value if abs(value) <= _LARGEST else None
    return value


def rounded(values: Array, digits: int = 7) -> list[Any]:
    """Figures to so many significant digits: shorter text, and finer than any drawing shows."""
    return [plain(float(f"{value:.{digits}g}")) for value in np.asarray(values, float).ravel()]


def unit_of(run: Run) -> str:
    """The unit of lengths; a longer name would break the drawings."""
    return str(run.meta.get("unit", "mm"))[:12]


def volume_of(run: Run) -> tuple[float, float, float]:
    """Nearest and farthest depth and half angle in degrees of the working volume."""
    if run.factory is not None:
        near, far, half_angle = run.factory.volume
        return float(near), float(far), float(half_angle)
    volume = run.meta.get("volume") or {}
    near, far = volume.get("depth") or _FIT_BAND
    return float(near), float(far), float(volume.get("half_angle_deg", _WHOLE_FAN))


def block_middles(table: TablePart) -> tuple[Array, Array]:
    """y and z of the block middles, both (15, 50), as the library has them."""
    line = np.arange(15)[:, None] + 0.5
    y = table.y_start[None, :50] + line * table.y_step[None, :50]
    z = np.broadcast_to(table.z_start + (np.arange(50) + 0.5) * table.z_step, (15, 50))
    return y, z


def in_volume(run: Run) -> Array:
    """Which blocks have their middle in the working volume, (15, 50) bool."""
    assert run.table is not None
    near, far, half_angle = volume_of(run)
    y, z = block_middles(run.table)
    inside = (z >= near) & (z <= far)
    if half_angle < _WHOLE_FAN:
        inside &= np.abs(y) <= z * math.tan(math.radians(half_angle))
    return inside


# --- maps -----------------------------------------------------------------------------------------


def _largest_of_corners(corners: Array) -> Array:
    """Per block, of its four corners the value of the largest size; (P,16,51) to (P,15,50)."""
    four = np.stack([corners[:, i : i + 15, k : k + 50] for i in (0, 1) for k in (0, 1)])
    known = np.where(np.isnan(four), 0.0, np.abs(four))
    picked = np.take_along_axis(four, known.argmax(axis=0)[None], axis=0)[0]
    return np.where(np.isnan(four).all(axis=0), np.nan, picked)


def together(values: Array, pool: str, axis: int, weights: Array | None = None) -> Array:
    """One value for those along an axis, NaN left out; NaN where there is none.

    pool: "rms" (by weight), "mean", "sum", "max" (of the largest size, signed), "most" (the class
    that most have).
    """
    there = np.isfinite(values)
    none = ~there.any(axis=axis)
    known = np.where(there, values, 0.0)
    if pool == "rms":
        weight = np.where(there, 1.0 if weights is None else weights, 0.0)
        pooled = np.sqrt((weight * known**2).sum(axis) / np.where(none, 1.0, weight.sum(axis)))
    elif pool == "mean":
        pooled = known.sum(axis) / np.where(none, 1, there.sum(axis))
    elif pool == "sum":
        pooled = known.sum(axis)
    elif pool == "max":
        at = np.expand_dims(np.abs(known).argmax(axis), axis)
        pooled = np.take_along_axis(known, at, axis).squeeze(axis)
    else:
        pooled = np.stack([(there & (values == kind)).sum(axis) for kind in range(5)]).argmax(0)
    return np.where(none, np.nan, pooled)


def _by_depth(blocks: Array, pool: str, weights: Array | None) -> Array:
    """A plane's quantity at each depth, (P, 50); of the origin the measured share."""
    if pool != "most":
        return together(blocks, pool, 1, weights)
    return together(np.where(np.isfinite(blocks), blocks == 0, np.nan), "mean", 1)


def _band(depth: Array) -> list[list[Any]]:
    """5 %, 50 % and 95 % of the planes at each of the 50 depths."""
    band = np.full((50, 3), np.nan)
    for row in np.nonzero(np.isfinite(depth).any(axis=0))[0]:
        band[row] = np.nanquantile(depth[:, row], (0.05, 0.5, 0.95))
    return [rounded(row, 5) for row in band]


def nice_top(values: Array) -> float:
    """A round number that 98 % of the sizes do not exceed: the end of a scale without a limit.

    At least a thousandth: a scale of rounding errors would paint them as if they were figures.
    """
    sizes = np.abs(values[np.isfinite(values)])
    top = max(float(np.quantile(sizes, 0.98)), 0.001) if sizes.size else 1.0
    power = 10.0 ** math.floor(math.log10(top))
    return next(
        float(f"{m * power:.3g}")
        for m in (1, 1.5, 2, 3, 4, 5, 6, 8, 10)
        if m * power >= top * 0.999
    )


def _map(
    ident: str,
    title: str,
    words: str,
    blocks: Array,
    planes: Array,
    *,
    kind: str = "size",
    pool: str,
    weights: Array | None = None,
    limit: float | None = None,
    plane_limit: float | None = None,
    plane_words: str,
    worse: str = "high",
    top: float | None = None,
) -> Json:
    """One quantity: packed blocks, a figure per plane, and how they are shown.

    kind: "size" (0 to top), "signed" (-top to top), "count", "class" (origins). pool: how planes
    share a block of the map of all planes, and the blocks of a plane a depth; see `together`.
    worse: which end of the planes comes first.
    """
    depth = _by_depth(blocks, pool, weights)
    return {
        "id": ident,
        "title": title,
        "words": words,
        "kind": kind,
        "limit": limit,
        "plane_limit": plane_limit,
        "plane_words": plane_words,
        "worse": worse,
        "top": top if top is not None else (limit if limit else nice_top(blocks)),
        "planes": rounded(planes),
        "blocks": pack(blocks),
        "all": pack(together(blocks, pool, 0, weights)),
        "depth": pack(depth, 1023),
        "band": _band(depth),
    }


def _factory_maps(part: FactoryPart, limits: Json) -> list[Json]:
    rms = limits.get("rms")
    measured = part.block_points > 0
    points = part.block_points
    origin = part.block_origin.astype(float)
    origin[part.status != 0] = np.nan
    repeat_limit = limits.get("repeatability") or (rms / 3.0 if rms else None)
    maps = [
        _map(
            "rms",
            "RMS residual",
            "Root mean square of the distances of a block's points from the block's plane.",
            part.block_rms,
            part.rms,
            pool="rms",
            weights=part.block_points,
            limit=rms,
            plane_limit=rms,
            plane_words="RMS of the plane",
        ),
        _map(
            "max",
            "largest residual",
            "Largest distance of a block's points from the block's plane, outliers apart.",
            part.block_max,
            part.max,
            pool="max",
            limit=limits.get("p99"),
            plane_words="largest of the plane",
        ),
        _map(
            "bias",
            "bias (signed mean)",
            "Mean signed distance of a block's points from the block's"
            " plane; red: the points lie at larger x.",
            part.block_bias,
            part.bias,
            kind="signed",
            pool="mean",
            plane_words="mean of the plane",
        ),
        _map(
            "repeatability",
            "repeatability",
            "Half the distance of the tables from even and from odd"
            " frames at the block's middle: how far a repeated calibration would scatter.",
            part.block_repeatability,
            part.repeatability,
            pool="rms",
            limit=repeat_limit,
            plane_limit=repeat_limit,
            plane_words="RMS over the plane's blocks",
        ),
        _map(
            "seam",
            "seams",
            "Largest step of x from a measured block to a measured neighbour: what a"
            " scan shows as an edge.",
            part.block_seam,
            part.seam,
            pool="max",
            limit=limits.get("seam"),
            plane_limit=limits.get("seam"),
            plane_words="95 % of the plane's steps",
        ),
        _map(
            "points",
            "points",
            "Points of a block that the figures come from. Blocks with fewer than"
            " 10 count as thin.",
            np.where(measured, points, np.nan),
            part.used,
            kind="count",
            pool="sum",
            plane_words="points of the plane",
            worse="low",
            top=nice_top(part.block_points[measured].astype(float)),
        ),
        _map(
            "origin",
            "origin of the plane",
            "Where a block's plane comes from: 10 points and more of"
            " its own, fewer, its sector's points at other depths, or a neighbouring sector.",
            origin,
            part.coverage,
            kind="class",
            pool="most",
            plane_limit=limits.get("coverage"),
            plane_words="share of the working volume measured",
            worse="low",
            top=4,
        ),
    ]
    if part.corner_moves is not None:
        maps.append(
            _map(
                "move",
                "corner move",
                "How far the optimisation moved x: of the block's four corners the"
                " one that moved farthest. It may move 0.5.",
                _largest_of_corners(part.corner_moves),
                part.largest_move,
                kind="signed",
                pool="mean",
                plane_words="farthest corner",
                top=0.5,
            )
        )
    if part.refined_sigma is not None:
        sigma = _largest_of_corners(part.refined_sigma)
        seen = np.where(measured, sigma, np.nan)
        largest = np.where(measured.any(axis=(1, 2)), np.nan_to_num(seen).max(axis=(1, 2)), np.nan)
        maps.append(
            _map(
                "sigma",
                "σ of the refined x",
                "Standard deviation of the refined sheet's x: of the block's"
                " four corners the largest. It grows where no points are.",
                sigma,
                largest,
                pool="rms",
                plane_words="largest in a measured block",
                top=2.0 * nice_top(seen),
            )
        )
    return maps


def _maps(run: Run) -> list[Json]:
    limits = run.meta.get("limits") or {}
    maps: list[Json] = []
    if run.factory is not None and not run.factory.refused:
        maps += _factory_maps(run.factory, limits)
    if run.difference is not None and not run.difference.refused:
        part = run.difference
        rest_limit = limits["rms"] / 3.0 if limits.get("rms") else None
        maps.append(
            _map(
                "drift",
                "drift",
                "How far this table's sheet lies from the compared one, along its normal;"
                " red: at larger x.",
                part.values,
                part.plane_rms,
                kind="signed",
                pool="mean",
                plane_words="RMS of the plane",
            )
        )
        maps.append(
            _map(
                "rest",
                "drift without the rigid motion",
                "What is left of the drift once the smallest"
                " rigid motion that explains most of it is taken out.",
                part.rests,
                part.plane_rest,
                kind="signed",
                pool="mean",
                plane_limit=rest_limit,
                plane_words="RMS of the plane",
                top=maps[-1]["top"],
            )
        )
    return maps


def _extent(run: Run) -> Json:
    """The blocks that maps show at first: those with figures, and one around them."""
    shown = np.zeros((15, 50), bool)
    if run.factory is not None and not run.factory.refused:
        shown |= (run.factory.block_points > 0).any(axis=0)
    if run.difference is not None and not run.difference.refused:
        shown |= np.isfinite(run.difference.values).any(axis=0)
    if not shown.any():
        shown[:] = True
    lines, rows = np.nonzero(shown)
    return {
        "lines": [max(int(lines.min()) - 1, 0), min(int(lines.max()) + 2, 15)],
        "rows": [max(int(rows.min()) - 1, 0), min(int(rows.max()) + 2, 50)],
    }


# --- the other figures ----------------------------------------------------------------------------


def _origin_shares(run: Run) -> list[Any]:
    """Per plane the shares of the five origins among the blocks of the working volume."""
    assert run.factory is not None and run.table is not None
    inside = run.factory.block_origin[:, in_volume(run)]
    if inside.shape[1] == 0:
        return []
    return [rounded((inside == kind).mean(axis=1), 4) for kind in range(5)]


def _planes(run: Run) -> Json:
    part = run.factory
    assert part is not None
    return {
        "status": plain(part.status),
        "reason": plain(part.reason),
        "points": plain(part.points),
        **{name: rounded(getattr(part, name)) for name in ("rms", "q95", "q99", "max")},
        "origins": _origin_shares(run) if run.table is not None and not part.refused else [],
    }


def _poses(part: FactoryPart, planes: int, limits: Json) -> Json | None:
    """Medians as a matrix planes x columns; a column is a frame number, or, where every plane has
    numbers of its own, a frame's rank on its plane."""
    if part.pose_plane.size == 0:
        return None
    numbers = np.unique(part.pose_frame)
    most = int(np.bincount(part.pose_plane).max())
    by_number = len(numbers) <= 2 * most
    if by_number:
        columns = np.searchsorted(numbers, part.pose_frame)
    else:
        first = np.r_[True, np.diff(part.pose_plane) != 0]
        begin = np.maximum.accumulate(np.where(first, np.arange(first.size), 0))
        columns = np.arange(first.size) - begin
    width = len(numbers) if by_number else most
    median = np.full((planes, width), np.nan)
    median[part.pose_plane, columns] = part.pose_median
    frame = np.full((planes, width), -1, np.int64)
    frame[part.pose_plane, columns] = part.pose_frame
    off = part.pose_off
    kept = part.pose_median[~off]
    return {
        "by_number": by_number,
        "columns": plain(numbers) if by_number else list(range(most)),
        "frames": None if by_number else plain(frame),
        "median": pack(median),
        "off": [
            [int(p), int(c), float(m)]
            for p, c, m in zip(part.pose_plane[off], columns[off], part.pose_median[off])
        ],
        "top": limits.get("rms") or nice_top(kept),
    }


def _histogram(part: FactoryPart) -> Json | None:
    if part.device_points == 0 or math.isnan(part.histogram_width):
        return None
    variance = part.device_rms * part.device_rms - part.device_bias * part.device_bias
    if not math.isfinite(variance):
        return None
    found: Json = plain(
        {
            "low": part.histogram_low,
            "width": part.histogram_width,
            "counts": part.histogram_counts,
            "below": part.histogram_below,
            "above": part.histogram_above,
            "mean": part.device_bias,
            "sigma": math.sqrt(max(variance, 0.0)),
            "points": part.device_points,
        }
    )
    return found


def _fan(run: Run, extent: Json) -> Json | None:
    """x of the sheets on a coarse net, down to where fits reach; None for an empty row."""
    table = run.table
    if table is None or len(table.cells) == 0:
        return None
    rows = np.unique(
        np.linspace(0, max(extent["rows"][1], _FIT_ROWS), _FAN_ROWS).round().astype(int)
    )
    lines = np.array(_FAN_LINES)
    z = table.z_start + rows * table.z_step
    at = np.minimum(rows, 50)
    y = table.y_start[at][None, :] + lines[:, None] * table.y_step[at][None, :]
    cells = table.cells[:, np.minimum(lines, 14)[:, None], np.minimum(rows, 49)[None, :], :]
    with np.errstate(all="ignore"):
        x = -(cells[..., 1] * y + cells[..., 2] * z + 1.0) / cells[..., 0]
    sheets: list[Any] = []
    for sheet in x:
        whole = bool(np.isfinite(sheet).all())
        sheets.append([rounded(line, 5) for line in sheet] if whole else None)
    if all(sheet is None for sheet in sheets):
        return None
    return {"y": [rounded(line, 5) for line in y], "z": rounded(z, 6), "x": sheets}


def _field(run: Run) -> Json | None:
    part = run.field
    if part is None or part.refused:
        return None
    rms = (run.meta.get("limits") or {}).get("rms")
    return {
        "directions": [
            {
                "name": str(name),
                "sigma": plain(float(sigma)),
                "endless": math.isinf(sigma),
                "fixed": bool(fixed),
                "weak": bool(fixed and rms and sigma > rms / 3.0),
            }
            for name, sigma, fixed in zip(
                part.direction_name, part.direction_sigma, part.direction_fixed
            )
        ],
    }


def _compensation(run: Run) -> Json | None:
    part = run.compensation
    if part is None or part.temperature.size < 2:
        return None
    alive = np.nonzero(np.isfinite(part.shift).any(axis=0))[0]
    if alive.size == 0:
        return None
    picked = np.unique(alive[np.linspace(0, len(alive) - 1, 5).round().astype(int)])
    return {
        "temperature": rounded(part.temperature),
        "planes": plain(picked),
        "shift": [rounded(part.shift[:, p]) for p in picked],
        "largest": rounded(part.largest),
        "reference": part.reference,
    }


def model_of(run: Run) -> Json:
    """All that the page draws, and the meta of the run, as plain values."""
    limits = run.meta.get("limits") or {}
    model: Json = {"schema": SCHEMA, "meta": plain(run.meta), "unit": unit_of(run)}
    if run.table is not None:
        table = run.table
        extent = _extent(run)
        near, far, half_angle = volume_of(run)
        model |= {
            "grid": {
                "y_start": rounded(table.y_start, 9),
                "y_step": rounded(table.y_step, 9),
                "z_start": table.z_start,
                "z_step": table.z_step,
            },
            "volume": {
                "near": near,
                "far": far,
                "half_angle": half_angle,
                "given": bool(run.meta.get("volume")),
            },
            "extent": extent,
            "maps": _maps(run),
            "fan": _fan(run, extent),
        }
    if run.factory is not None:
        model |= {
            "planes": _planes(run),
            "poses": _poses(run.factory, len(run.factory.status), limits),
            "histogram": _histogram(run.factory),
        }
    model |= {"field": _field(run), "compensation": _compensation(run)}
    whole: Json = plain(model)
    return whole
