"""What callers hand in, brought to one form: every bound at both of its sides."""

import os
from collections import deque

import numpy as np
import pytest

from kestrane import _inputs
from kestrane.points import POINT

ONE = np.array([(1.0, 2.0, 3.0, 4)], POINT)
NONE = np.empty(0, POINT)


def sizes(laid):
    return [cloud.size for cloud in laid]


# --- a cloud --------------------------------------------------------------------------------------


def test_points_in_one_piece_are_taken_as_they_are():
    read_only = ONE.copy()
    read_only.flags.writeable = False
    assert _inputs.as_cloud(read_only, "cloud") is read_only


def test_points_in_pieces_or_out_of_line_are_copied_into_one():
    strided = np.repeat(ONE, 4)[::2]
    found = _inputs.as_cloud(strided, "cloud")
    assert found.flags.c_contiguous and found.tolist() == strided.tolist()
    odd = np.frombuffer(b"x" + ONE.tobytes(), POINT, 1, 1)
    assert not odd.flags.aligned
    found = _inputs.as_cloud(odd, "cloud")
    assert found.flags.aligned and found.tolist() == ONE.tolist()


def test_numbers_are_x_y_z_and_perhaps_a_frame():
    assert _inputs.as_cloud([[1, 2, 3]], "c").tolist() == [(1.0, 2.0, 3.0, 0)]
    assert _inputs.as_cloud([[1, 2, 3, 4]], "c").tolist() == [(1.0, 2.0, 3.0, 4)]
    for nothing in ([], (), np.zeros(0), np.zeros((0, 3)), np.zeros((0, 4))):
        found = _inputs.as_cloud(nothing, "c")
        assert found.dtype == POINT and found.shape == (0,)


@pytest.mark.parametrize(
    ("value", "message"),
    [
        (np.ma.masked_array(ONE), "c: a masked array; mark dropped points by an x that is NaN"),
        (ONE.reshape(1, 1), r"c: shape \(n,\) expected, got \(1, 1\)"),
        (np.zeros(2, [("x", "f8")]), r"c: POINT or numbers expected, got \[\('x', '<f8'\)\]"),
        (np.zeros(3), r"c: \(n,\) POINT, \(n, 3\) or \(n, 4\) expected, got shape \(3,\)"),
        (np.zeros((2, 2)), r"c: .* got shape \(2, 2\)"),
        (np.zeros((2, 5)), r"c: .* got shape \(2, 5\)"),
        (np.zeros((1, 3, 3)), r"c: .* got shape \(1, 3, 3\)"),
        ([[1, 2, 3, 0.5]], "c: frames: 0.5 is not a whole number within int32"),
        ([["a", "b", "c"]], "c: xyz: real numbers expected"),
    ],
)
def test_a_cloud_of_another_form_is_refused_by_its_name(value, message):
    with pytest.raises(ValueError, match=f"^{message}"):
        _inputs.as_cloud(value, "c")


# --- clouds of several planes ---------------------------------------------------------------------


def test_a_mapping_leaves_planes_empty_that_it_does_not_have():
    assert sizes(_inputs.as_clouds({2: ONE, 0: np.repeat(ONE, 3)})) == [3, 0, 1]
    assert sizes(_inputs.as_clouds({0: ONE})) == [1]


def test_a_sequence_is_numbered_from_nothing_on():
    assert sizes(_inputs.as_clouds([ONE, NONE])) == [1, 0]
    assert sizes(_inputs.as_clouds(deque([ONE, NONE]))) == [1, 0]
    assert sizes(_inputs.as_clouds(cloud for cloud in (NONE, ONE))) == [0, 1]
    assert sizes(_inputs.as_clouds(np.zeros((2, 5, 3)))) == [5, 5]
    several = np.empty(2, object)
    several[:] = [ONE, NONE]
    assert sizes(_inputs.as_clouds(several)) == [1, 0]


def test_a_hundred_planes_are_the_most():
    assert len(_inputs.as_clouds([NONE] * 100)) == 100
    assert len(_inputs.as_clouds({99: ONE})) == 100
    with pytest.raises(ValueError, match="clouds: at most 100 planes, not 101"):
        _inputs.as_clouds([NONE] * 101)
    with pytest.raises(ValueError, match="plane: 0 to 99 expected, got 100"):
        _inputs.as_clouds({100: ONE})


@pytest.mark.parametrize("nothing", [[], {}, ()])
def test_no_cloud_at_all_is_refused(nothing):
    with pytest.raises(ValueError, match="clouds: none are given"):
        _inputs.as_clouds(nothing)
    with pytest.raises(ValueError, match="frames: none are given"):
        _inputs.as_frames(nothing, 0)


@pytest.mark.parametrize("text", ["points", b"points", 5, None])
def test_what_is_no_list_of_clouds_is_refused(text):
    with pytest.raises(ValueError, match="clouds: a sequence or a mapping from plane numbers"):
        _inputs.as_clouds(text)


@pytest.mark.parametrize("single", [ONE, ONE[0], np.zeros((5, 3)), np.float64(1.0), ONE.reshape(1, 1, 1)])
def test_a_single_cloud_is_not_taken_for_several(single):
    with pytest.raises(ValueError, match="clouds: (one cloud for each plane|a sequence)"):
        _inputs.as_clouds(single)


@pytest.mark.parametrize("clouds", [[ONE, "x"], {0: ONE, 1: "x"}])
def test_a_cloud_that_is_none_is_named_by_its_plane(clouds):
    with pytest.raises(ValueError, match=r"clouds\[1\]: "):
        _inputs.as_clouds(clouds)


# --- lists of a range of planes -------------------------------------------------------------------


def test_frames_of_a_sequence_begin_at_the_plane_that_is_told():
    laid, first = _inputs.as_frames([ONE, NONE], 7)
    assert (sizes(laid), first) == ([1, 0], 7)
    with pytest.raises(ValueError, match="first: 0 to 99 expected, got 100"):
        _inputs.as_frames([ONE], 100)


def test_frames_of_a_mapping_tell_their_first_plane():
    laid, first = _inputs.as_frames({5: ONE, 3: np.repeat(ONE, 2)}, 7)
    assert (sizes(laid), first) == ([2, 0, 1], 3)
    assert _inputs.as_frames({np.int64(4): ONE}, 0)[1] == 4


def test_frames_of_a_hundred_planes_are_the_most():
    assert len(_inputs.as_frames([NONE] * 100, 0)[0]) == 100
    with pytest.raises(ValueError, match="frames: at most 100 planes, not 101"):
        _inputs.as_frames([NONE] * 101, 0)
    with pytest.raises(ValueError, match=r"frames\[1\]: "):
        _inputs.as_frames([ONE, np.zeros(3)], 0)


# --- numbers --------------------------------------------------------------------------------------


def test_a_count_is_taken_up_to_its_bounds():
    for value in (2, 5, np.int8(3), np.uint64(4)):
        found = _inputs.as_count(value, "n", least=2, most=5)
        assert found == value and type(found) is int
    assert _inputs.as_count(0, "n") == 0
    assert _inputs.as_count(2**31 - 1, "n") == 2**31 - 1
    for value in (1, 6):
        with pytest.raises(ValueError, match=f"^n: 2 to 5 expected, got {value}$"):
            _inputs.as_count(value, "n", least=2, most=5)
    for value in (-1, 2**31):
        with pytest.raises(ValueError, match=f"^n: 0 to 2147483647 expected, got {value}$"):
            _inputs.as_count(value, "n")


@pytest.mark.parametrize("value", [True, np.True_, 1.0, "1", None])
def test_a_count_is_a_whole_number(value):
    with pytest.raises(ValueError, match="^n: a whole number expected, got "):
        _inputs.as_count(value, "n")


def test_planes_are_numbered_up_to_99():
    assert [_inputs.as_plane(0), _inputs.as_plane(99)] == [0, 99]
    with pytest.raises(ValueError, match="^plane: 0 to 99 expected, got 100$"):
        _inputs.as_plane(100)


def test_threads_are_those_of_the_process_or_those_that_are_told(monkeypatch):
    assert [_inputs.as_threads(1), _inputs.as_threads(1024)] == [1, 1024]
    for value in (0, 1025):
        with pytest.raises(ValueError, match=f"^threads: 1 to 1024 expected, got {value}$"):
            _inputs.as_threads(value)
    monkeypatch.setattr(os, "sched_getaffinity", lambda process: {3, 5, 7} if process == 0 else {})
    assert _inputs.as_threads(None) == 3
    monkeypatch.setattr(os, "sched_getaffinity", lambda _: set())
    assert _inputs.as_threads(None) == 1


def test_numbers_are_brought_to_doubles_in_one_piece():
    found = _inputs.as_numbers(np.array([[1, 2], [3, 4]], "i2", order="F"), "n", (None, 2))
    assert found.dtype == np.float64 and found.flags.c_contiguous
    assert found.tolist() == [[1.0, 2.0], [3.0, 4.0]]
    assert _inputs.as_numbers(7, "n", ()) == 7.0


@pytest.mark.parametrize(
    ("values", "shape", "message"),
    [
        ([1.0, 2.0], (3,), r"n: shape \(3\) expected, got \(2,\)"),
        ([1.0, 2.0], (None, 3), r"n: shape \(n, 3\) expected, got \(2,\)"),
        ([[1.0, 2.0]], (None,), r"n: shape \(n\) expected, got \(1, 2\)"),
        ([[1.0, 2.0]], (1, 3), r"n: shape \(1, 3\) expected, got \(1, 2\)"),
        (["a"], (1,), "n: real numbers expected, got <U1"),
        ([True], (1,), "n: real numbers expected, got bool"),
        ([1j], (1,), "n: real numbers expected, got complex128"),
        (np.ma.masked_array([1.0]), (1,), "n: a masked array"),
    ],
)
def test_numbers_of_another_kind_or_shape_are_refused(values, shape, message):
    with pytest.raises(ValueError, match=f"^{message}$"):
        _inputs.as_numbers(values, "n", shape)


def test_a_path_is_the_bytes_of_its_name(tmp_path):
    assert _inputs.as_path(tmp_path / "ä") == os.fsencode(str(tmp_path / "ä"))
    with pytest.raises(ValueError, match="a path holds no null character"):
        _inputs.as_path("a\0b")
