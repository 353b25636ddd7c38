"""Texts and lines about planes, as people read them on a terminal."""

from __future__ import annotations

import dataclasses

import numpy as np
import pytest

from kestrane import _simulation, quality
from kestrane_tools.cli import words
from kestrane_tools.cli.factory_words import plane_rows, refinement_words

NAN = float("nan")


# --- texts ----------------------------------------------------------------------------------------


def test_a_name_that_is_nearly_right_is_told():
    assert words.nearest("rsm", ["rms", "seam"]) == "; did you mean 'rms'?"
    assert words.nearest("frequency", ["rms", "seam"]) == ""
    assert words.nearest("abcd", ["abxy"]) == "; did you mean 'abxy'?"  # half of it is right
    assert words.nearest("abcd", ["axyz"]) == ""


def test_what_would_steer_a_terminal_is_escaped():
    assert words.printable("line 1\nä – σ") == "line 1\nä – σ"
    assert words.printable("\x1b[31m\r\t\u202e") == r"\x1b[31m\r\t\u202e"


def test_a_path_in_no_encoding_can_be_told():
    assert words.readable(b"a\xff.csv") == r"a\xff.csv"
    assert words.readable("ä.csv") == "ä.csv"


def test_numbers_in_a_row_are_told_by_their_ends():
    assert words.runs([]) == ""
    assert words.runs([4]) == "4"
    assert words.runs([7, 0, 2, 1]) == "0-2, 7"
    assert words.runs([0, 2, 3]) == "0, 2-3"


def test_a_list_is_told_up_to_its_most():
    assert words.listed([]) == ""
    assert words.listed(["a", 2]) == "a, 2"
    assert words.listed(list("abcdef")) == "a, b, c, d, e, f"
    assert words.listed(list("abcdefgh")) == "a, b, c, d, e, f and 2 more"
    assert words.listed(list("abc"), 1) == "a and 2 more"


def test_one_has_no_plural():
    assert words.counted(1, "frame") == "1 frame"
    assert words.counted(0, "frame") == "0 frames"
    assert words.counted(2000, "frame") == "2,000 frames"


def test_what_is_not_determined_is_a_dash():
    assert words.length(0.12345) == "0.123" and words.length(NAN) == "-"
    assert words.share(0.335) == "34 %" and words.share(float("inf")) == "-"


# --- lines about planes ---------------------------------------------------------------------------


@pytest.fixture(scope="module")
def device() -> quality.FactoryQuality:
    """Four planes: a good one, one with a gross point and borrowed sectors, one that fails, a good one."""
    clouds = _simulation.measure(planes=4, points=6000, seed=2, frames=12, bow=0.4)
    angle = np.degrees(np.arctan2(clouds[1]["y"], clouds[1]["z"]))
    clouds[1] = clouds[1][np.abs(angle) < 20.0]
    clouds[1]["x"][0] += 500.0
    clouds[2] = clouds[2][:50]
    return quality.calibrate_factory(
        clouds, quality.FactorySettings(optimise=True, refine=quality.Refine.ALL)
    )


def test_each_plane_has_a_row_of_its_figures(device):
    head, rows, rest = plane_rows(device, {})
    assert head == ("plane", "points", "RMS", "95 %", "99 %", "max", "measured", "remarks")
    assert rest == "" and len(rows) == 4
    figures = device.planes
    for plane in (0, 1, 3):
        assert rows[plane][:7] == (
            str(plane),
            str(device.screening.points[plane]),
            f"{figures.rms[plane]:.3f}",
            f"{figures.q95[plane]:.3f}",
            f"{figures.q99[plane]:.3f}",
            f"{figures.max[plane]:.3f}",
            f"{100 * figures.coverage[plane]:.0f} %",
        )
    assert rows[2][2:7] == ("-",) * 5


def test_remarks_tell_what_became_of_a_plane(device):
    _, rows, _ = plane_rows(device, {3: "not refined: too few frames"})
    screened = int(device.screening.screened[1])
    borrowed = int((~device.sectors_own[1]).sum())
    assert screened >= 1 and borrowed >= 2
    points = "point" if screened == 1 else "points"
    assert rows[1][7] == f"{screened} {points} screened; {borrowed} sectors borrowed"
    assert rows[2][7] == device.reasons[2] != ""
    assert rows[3][7] == "failed: not refined: too few frames"
    assert device.optimisation is not None and device.optimisation.corner_moves[0].any()
    assert "optimisation" not in rows[0][7]


def test_an_optimisation_that_moved_nothing_is_told(device):
    still = dataclasses.replace(
        device.optimisation, corner_moves=np.zeros_like(device.optimisation.corner_moves)
    )
    _, rows, _ = plane_rows(dataclasses.replace(device, optimisation=still), {})
    assert rows[0][7].endswith("optimisation moved nothing")
    _, rows, _ = plane_rows(dataclasses.replace(device, optimisation=None), {})
    assert "optimisation" not in rows[0][7]


def many(count: int) -> quality.FactoryQuality:
    """Planes of which every fifth fails, with RMS of 1, 2, 3 ... thousandths."""
    clouds = _simulation.measure(planes=1, points=3000, seed=2, frames=6)
    one = quality.calibrate_factory(clouds, quality.FactorySettings(repeatability=False))
    numbers = np.arange(count)
    failed = numbers % 5 == 4

    def repeated(group):
        return dataclasses.replace(
            group,
            **{
                item.name: np.repeat(getattr(group, item.name)[:1], count, axis=0)
                for item in dataclasses.fields(group)
                if isinstance(getattr(group, item.name), np.ndarray)
                and len(getattr(group, item.name)) == 1
            },
        )

    planes = dataclasses.replace(
        repeated(one.planes), rms=np.where(failed, np.nan, (numbers + 1) / 1000.0)
    )
    return dataclasses.replace(
        one,
        planes=planes,
        screening=repeated(one.screening),
        sectors_own=np.repeat(one.sectors_own, count, axis=0),
        reasons=["no points" if fails else "" for fails in failed],
    )


def test_of_many_planes_the_worst_are_shown_in_their_order():
    _, rows, rest = plane_rows(many(12), {})
    assert len(rows) == 12 and rest == ""
    _, rows, rest = plane_rows(many(20), {})
    # Four failed ones (4, 9, 14, 19), then the eight largest RMS.
    shown = [4, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19]
    assert [int(row[0]) for row in rows] == shown
    assert rest == "the 12 planes with the largest RMS of 20"


def test_the_gain_of_a_refinement_is_told(device):
    gain = device.refinement
    assert gain is not None
    known = np.isfinite(gain.refined_rms) & np.isfinite(gain.plain_rms)
    assert known.sum() >= 2
    refined, plain = gain.refined_rms[known], gain.plain_rms[known]
    assert refinement_words(device) == [
        "refined table; error in x on frames left out in turn: "
        f"{min(refined):.3f} to {max(refined):.3f}, plain table {min(plain):.3f} to "
        f"{max(plain):.3f}; largest on plane {gain.plane[known][list(refined).index(max(refined))]}"
    ]


def test_a_gain_that_is_not_known_is_not_told(device):
    gain = device.refinement
    assert refinement_words(dataclasses.replace(device, refinement=None)) == []
    assert refinement_words(dataclasses.replace(device, refined=None)) == []
    for name in ("refined_rms", "plain_rms"):
        none = dataclasses.replace(gain, **{name: np.full(len(gain.plane), NAN)})
        assert refinement_words(dataclasses.replace(device, refinement=none)) == []


def test_a_gain_known_for_some_planes_is_told_of_these(device):
    gain = device.refinement
    refined = np.full(len(gain.plane), NAN)
    refined[-1] = 0.25
    told = refinement_words(
        dataclasses.replace(device, refinement=dataclasses.replace(gain, refined_rms=refined))
    )
    assert "turn: 0.250 to 0.250, plain table" in told[0]
    assert told[0].endswith(f"largest on plane {gain.plane[-1]}")
