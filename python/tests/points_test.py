"""The record of a point: its layout, and what `points` takes and refuses."""

import numpy as np
import pytest
from hypothesis import given
from hypothesis import strategies as st
from hypothesis.extra import numpy as hnp

from kestrane.points import POINT, points, whole_numbers


def test_a_record_is_laid_out_as_three_doubles_and_a_number():
    assert POINT.itemsize == 32
    assert {name: POINT.fields[name][1] for name in POINT.names} == {"x": 0, "y": 8, "z": 16, "id": 24}
    assert [POINT[name].str for name in POINT.names] == ["<f8", "<f8", "<f8", "<i4"]


@pytest.mark.parametrize(
    "dtype", ["f2", "<f4", ">f4", "<f8", ">f8", "g", "i1", "u1", ">i2", "u4", "i8", "u8"]
)
def test_any_real_type_is_taken_with_its_value(dtype):
    xyz = np.array([[1, 2, 3], [40, 50, 60]], dtype)
    records = points(xyz, [7, 8])
    assert records["x"].tolist() == [1.0, 40.0]
    assert records["y"].tolist() == [2.0, 50.0]
    assert records["z"].tolist() == [3.0, 60.0]
    assert records["id"].tolist() == [7, 8]


def test_one_number_is_the_frame_of_all_points():
    assert points(np.zeros((3, 3)), -4)["id"].tolist() == [-4, -4, -4]
    assert points(np.zeros((2, 3)))["id"].tolist() == [0, 0]


def test_no_points_are_an_array_of_none():
    assert points(np.zeros((0, 3))).shape == (0,)


def test_records_share_nothing_with_their_input():
    xyz = np.zeros((2, 3))
    records = points(xyz)
    xyz[:] = 5.0
    assert records["x"].tolist() == [0.0, 0.0]
    assert records.base is None


def test_strided_and_read_only_input_is_taken():
    xyz = np.arange(24.0).reshape(4, 6)[::2, ::2]
    xyz.flags.writeable = False
    assert points(xyz)["z"].tolist() == [4.0, 16.0]


@pytest.mark.parametrize("shape", [(3,), (3, 2), (2, 4), (1, 3, 1), ()])
def test_another_shape_is_refused(shape):
    with pytest.raises(ValueError, match="shape"):
        points(np.zeros(shape))


@pytest.mark.parametrize("values", [[["a", "b", "c"]], [[1j, 0, 0]], [[None, 0, 0]], [[True] * 3]])
def test_numbers_that_are_not_real_are_refused(values):
    with pytest.raises(ValueError, match="real numbers"):
        points(np.array(values))


@pytest.mark.parametrize(
    "frames", [[1, 2], [[1], [2], [3]], 2**31, -(2**31) - 1, 0.5, float("nan"), "a", [0, 1, 2**40]]
)
def test_frames_that_do_not_fit_are_refused(frames):
    with pytest.raises(ValueError, match="frames"):
        points(np.zeros((3, 3)), frames)


@pytest.mark.parametrize("dtype", ["<f4", ">f4", "f8", "u4", "i8", "u8"])
def test_the_first_number_beyond_int32_is_refused_in_every_type(dtype):
    with pytest.raises(ValueError, match="frames: 2147483648"):
        whole_numbers(np.array([0, 2**31], dtype), "frames")


@given(
    hnp.arrays(
        st.sampled_from([np.int8, np.uint8, np.int64, np.uint64, np.float32, np.float64, ">i4"]),
        st.integers(0, 20),
    )
)
def test_whole_numbers_keep_every_value_or_refuse(values):
    fits = [np.isfinite(v) and int(v) == v and -(2**31) <= int(v) < 2**31 for v in values.tolist()]
    if all(fits):
        numbers = whole_numbers(values, "frames")
        assert numbers.dtype == np.int32
        assert numbers.tolist() == values.tolist()
    else:
        with pytest.raises(ValueError, match="frames") as caught:
            whole_numbers(values, "frames")
        assert caught.value.row == fits.index(False)
