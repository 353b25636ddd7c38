"""The lines about the planes of a factory calibration."""

from __future__ import annotations

from typing import TYPE_CHECKING

import numpy as np

from kestrane_tools.cli.words import counted, length, share

if TYPE_CHECKING:
    import kestrane

__all__ = ["plane_rows", "refinement_words"]

_HEAD = ("plane", "points", "RMS", "95 %", "99 %", "max", "measured", "remarks")
# More rows than fit on a screen tell less than the worst of them.
_MOST_ROWS = 12


def plane_rows(
    result: kestrane.FactoryQuality, failed: dict[int, str]
) -> tuple[tuple[str, ...], list[tuple[str, ...]], str]:
    """Head and rows of the planes, and a line about those that are not shown."""
    count = len(result.reasons)
    order = list(range(count))
    rest = ""
    if count > _MOST_ROWS:
        # Failed planes have no figure: they come first.
        rms = np.where(np.isnan(result.planes.rms), np.inf, result.planes.rms)
        worst = np.argsort(-rms, kind="stable")[:_MOST_ROWS]
        order = sorted(int(plane) for plane in worst)
        rest = f"the {_MOST_ROWS} planes with the largest RMS of {count}"
    return _HEAD, [_row(result, plane, failed) for plane in order], rest


def _row(result: kestrane.FactoryQuality, plane: int, failed: dict[int, str]) -> tuple[str, ...]:
    figures = result.planes
    return (
        str(plane),
        str(int(result.screening.points[plane])),
        length(figures.rms[plane]),
        length(figures.q95[plane]),
        length(figures.q99[plane]),
        length(figures.max[plane]),
        share(figures.coverage[plane]),
        _remarks(result, plane, failed),
    )


def _remarks(result: kestrane.FactoryQuality, plane: int, failed: dict[int, str]) -> str:
    if plane in failed:
        return f"failed: {failed[plane]}"
    if result.reasons[plane]:
        return result.reasons[plane]
    remarks = []
    screened = int(result.screening.screened[plane])
    if screened:
        remarks.append(counted(screened, "point") + " screened")
    borrowed = int((~result.sectors_own[plane]).sum())
    if borrowed:
        remarks.append(counted(borrowed, "sector") + " borrowed")
    if result.optimisation is not None and not result.optimisation.corner_moves[plane].any():
        remarks.append("optimisation moved nothing")
    return "; ".join(remarks)


def refinement_words(result: kestrane.FactoryQuality) -> list[str]:
    """What the refinement gains, by frames that were left out in turn; nothing where unknown."""
    gain = result.refinement
    if gain is None or result.refined is None:
        return []
    known = np.isfinite(gain.refined_rms) & np.isfinite(gain.plain_rms)
    if not known.any():
        return []
    plain, refined = gain.plain_rms[known], gain.refined_rms[known]
    worst = int(np.argmax(refined))
    return [
        "refined table; error in x on frames left out in turn: "
        f"{length(refined.min())} to {length(refined.max())}, "
        f"plain table {length(plain.min())} to {length(plain.max())}; largest on plane "
        f"{int(gain.plane[known][worst])}"
    ]
