"""The rules that all formats share, apart from any file: columns, planes, numbers, names."""

import numpy as np
import pytest

from kestrane.clouds import columns
from kestrane.clouds.columns import Part, clouds_of, merged, plane_in_name, rows_by_plane
from kestrane.points import POINT


def refused(call, *arguments, **named):
    """What a call says as it refuses."""
    with pytest.raises(ValueError) as caught:
        call(*arguments, **named)
    return str(caught.value)


# --- names of columns -----------------------------------------------------------------------------


def test_columns_are_found_by_name_wherever_they_stand():
    names = ["note", " Z", "y ", "LASER", "X", "scan"]
    assert columns.roles_of(names, "p") == {"z": 1, "y": 2, "plane": 3, "x": 4, "frame": 5}


@pytest.mark.parametrize(
    ("role", "names"),
    [
        ("frame", ["frame", "frame_id", "id", "image", "pose", "scan"]),
        ("plane", ["plane", "plane_id", "laser", "line", "label", "ring"]),
    ],
)
def test_each_name_of_a_role_is_known(role, names):
    for name in names:
        assert columns.roles_of(["x", "y", "z", name], "p")[role] == 3


def test_padding_may_stand_as_often_as_it_likes():
    names = ["x", "_", "y", "_", "", "z", "", "-", "-"]
    assert columns.roles_of(names, "p") == {"x": 0, "y": 2, "z": 5}


def test_names_that_leave_a_column_open_are_refused():
    say = lambda *names: refused(columns.roles_of, list(names), "p")  # noqa: E731
    assert say("x", "y", "z", "note", "Note") == "p: the column 'Note' stands twice"
    assert say("x", "y", "z", "id", "POSE") == (
        "p: the columns 'id' and 'POSE' both tell the frame; name the columns (columns=, --columns) "
        "and leave one out"
    )
    assert say("y", "a") == "p: no column x, z; its columns are y, a"
    assert say() == "p: no column x, y, z; its columns are none"


def test_names_of_the_caller_take_the_place_of_as_many():
    assert columns.renamed(["a", "b"], None, "p") == ["a", "b"]
    assert columns.renamed(["a", "b"], ["x", "y"], "p") == ["x", "y"]
    assert refused(columns.renamed, ["a", "b"], ["x", "y", "z"], "p") == (
        "p: 3 column names are given (x,y,z), the file has 2 columns"
    )
    assert columns.split_names(None) is None
    assert columns.split_names(" plane, x ,y") == ["plane", "x", "y"]
    assert columns.split_names(iter(["x ", "y"])) == ["x", "y"]


# --- planes ---------------------------------------------------------------------------------------


def by_plane(planes):
    """Rows of every plane, found one by one."""
    return {int(p): [k for k, q in enumerate(planes) if q == p] for p in sorted(set(planes))}


@pytest.mark.parametrize(
    ("planes", "neighbours"),
    [
        ([], True),
        ([5, 5, 5], True),
        ([7, 2, 2, 9], True),
        ([-3, -3, 4], True),
        ([1, 2, 1], False),
        ([0, 255, 0], False),
        ([0, 256, 0, 256], False),
        ([-100, 155, -100], False),
        ([-100, 156, -100], False),
        ([7, 7 + (1 << 16) - 1, 7], False),
        ([7, 7 + (1 << 16), 7], False),
        ([-(2**31), 2**31 - 1, -(2**31), 0], False),
    ],
)
def test_rows_of_a_plane_are_those_that_hold_its_number(planes, neighbours):
    found = rows_by_plane(np.array(planes, np.int32))
    assert list(found) == sorted(found)
    every = np.arange(len(planes))
    assert {plane: every[rows].tolist() for plane, rows in found.items()} == by_plane(planes)
    assert all(isinstance(rows, slice) for rows in found.values()) == neighbours


@pytest.mark.parametrize(("span", "size"), [(255, 1), (256, 2), (65535, 2), (65536, 8)])
def test_planes_that_alternate_are_sorted_by_as_few_bytes_as_hold_them(monkeypatch, span, size):
    keys = []
    real = np.argsort
    monkeypatch.setattr(np, "argsort", lambda key, **how: keys.append(key) or real(key, **how))
    rows_by_plane(np.array([3, 3 + span, 3], np.int32))
    assert [key.dtype.itemsize for key in keys] == [size]
    assert keys[0].tolist() == [0, span, 0]


def part(rows, **more):
    """A part of (x, y, z) and further columns."""
    xyz = np.array(rows, np.float64).reshape(-1, 3)
    return Part("p", {**dict(zip("xyz", xyz.T, strict=True)), **more})


ROWS = [(1.0, 2.0, 3.0), (4.0, 5.0, 6.0), (7.0, 8.0, 9.0)]


def test_a_plane_is_told_by_the_column_then_the_part_then_the_caller():
    column = {"plane": np.array([3, 1, 3])}
    found = clouds_of(part(ROWS, **column), 9, 1.0)
    assert {p: c["x"].tolist() for p, c in found.items()} == {1: [4.0], 3: [1.0, 7.0]}
    named = Part("p", part(ROWS).columns, plane=5)
    assert list(clouds_of(named, 9, 1.0)) == [5]
    assert list(clouds_of(part(ROWS), 9, 1.0)) == [9]
    assert refused(clouds_of, part(ROWS), None, 1.0) == (
        "p: neither a column of planes nor a number in the name tells the plane; give it "
        "(plane=, --plane)"
    )


def test_a_column_has_to_agree_with_the_name_of_its_array():
    columns_ = part(ROWS, plane=np.array([5, 5, 5])).columns
    assert list(clouds_of(Part("p", columns_, plane=5), None, 1.0)) == [5]
    columns_ = part(ROWS, plane=np.array([5, 6, 7])).columns
    assert refused(clouds_of, Part("p", columns_, plane=5), None, 1.0) == (
        "p: row 1 (counted from 0): plane 6 in an array of plane 5"
    )


def test_a_part_without_points_is_its_plane_with_none():
    assert clouds_of(part([], plane=np.zeros(0, int)), 4, 1.0) == {}
    found = clouds_of(part([]), 4, 1.0)
    assert list(found) == [4] and found[4].shape == (0,) and found[4].dtype == POINT


# --- numbers --------------------------------------------------------------------------------------


@pytest.mark.parametrize("alternating", [False, True])
@pytest.mark.parametrize("count", [1, 16383, 16384, 16385, 40000])
def test_points_are_laid_out_alike_in_any_number(count, alternating):
    n = np.arange(count)
    planes = n % 2 if alternating else n * 0 + 4
    given = part(np.stack([n, n + 0.25, n + 0.5], axis=1), plane=planes, frame=n % 7)
    found = clouds_of(given, None, 2.0)
    for plane, cloud in found.items():
        rows = n[planes == plane]
        assert cloud["x"].tolist() == (2.0 * rows).tolist()
        assert cloud["y"].tolist() == (2.0 * rows + 0.5).tolist()
        assert cloud["z"].tolist() == (2.0 * rows + 1.0).tolist()
        assert cloud["id"].tolist() == (rows % 7).tolist()
        # The bytes between two records are nothing: equal points are equal bytes.
        assert not cloud.view(np.uint8).reshape(-1, 32)[:, 28:].any()
    assert sum(cloud.size for cloud in found.values()) == count


def test_points_after_those_of_another_plane_are_laid_out_in_blocks(monkeypatch):
    empty = np.empty

    def full(shape, dtype=float, **more):
        made = empty(shape, dtype, **more)
        if made.dtype == POINT:
            made.view(np.uint8)[:] = 255
        return made

    n = np.arange(40000)
    given = part(np.stack([n, n, n], axis=1), plane=(n >= 7) * 1, frame=n)
    monkeypatch.setattr(columns.np, "empty", full)
    for plane, cloud in clouds_of(given, None, 1.0).items():
        assert cloud["id"].tolist() == list(range(7, 40000) if plane else range(7))
        assert cloud["x"].tolist() == cloud["id"].tolist()
        assert not cloud.view(np.uint8).reshape(-1, 32)[:, 28:].any()


@pytest.mark.parametrize("row", [0, 16383, 16384, 20001])
@pytest.mark.parametrize("alternating", [False, True])
def test_a_number_that_is_refused_is_told_with_its_row(row, alternating):
    n = np.arange(20002.0)
    y = n.copy()
    y[row] = np.inf
    planes = np.arange(20002) % 2 if alternating else np.full(20002, 3)
    given = Part("p", {"x": n, "y": y, "z": n, "plane": planes})
    assert refused(clouds_of, given, None, 1.0) == (
        f"p: row {row} (counted from 0): y is inf; only an x that is nan is a dropped point"
    )


@pytest.mark.parametrize("name", "xyz")
@pytest.mark.parametrize("value", [np.inf, -np.inf, np.nan])
def test_a_coordinate_that_is_not_finite_is_a_dropped_point_or_refused(name, value):
    row = dict(zip("xyz", (1.0, 2.0, 3.0), strict=True)) | {name: value}
    given = Part("p", {key: np.array([number]) for key, number in row.items()})
    if name == "x" and np.isnan(value):
        assert clouds_of(given, 0, 1.0)[0].size == 1
    else:
        told = refused(clouds_of, given, 0, 1.0)
        assert told.endswith(f": {name} is {value}; only an x that is nan is a dropped point")


def test_a_dropped_point_keeps_whatever_its_y_and_z_are():
    for y, z in ((np.inf, 1.0), (1.0, -np.inf), (np.nan, np.nan)):
        found = clouds_of(part([(np.nan, y, z), (1.0, 2.0, 3.0)]), 0, 1.0)[0]
        assert np.array_equal([found["y"][0], found["z"][0]], [y, z], equal_nan=True)


def test_a_unit_that_makes_a_number_infinite_is_refused_without_a_warning(recwarn):
    assert "x is inf" in refused(clouds_of, part([(1e308, 0.0, 0.0)]), 0, 1000.0)
    assert len(recwarn) == 0


def test_the_first_row_that_is_refused_is_none_where_all_are_points():
    records = np.zeros(4, POINT)
    assert columns.first_refused(records) is None
    records["x"][1] = np.nan
    assert columns.first_refused(records) is None
    records["z"][[2, 3]] = np.nan
    assert columns.first_refused(records) == 2


def test_frames_and_planes_are_whole_numbers_of_32_bits():
    for role in ("frame", "plane"):
        for values in ([1, 0.5], [1, 2**31], [1, np.nan]):
            told = refused(clouds_of, part(ROWS[:2], **{role: np.array(values)}), 0, 1.0)
            assert told.startswith(f"p: row 1 (counted from 0): {role}: {np.array(values)[1]} is not a whole")
        told = refused(clouds_of, part(ROWS[:1], **{role: np.array(["a"])}), 0, 1.0)
        assert told == f"p: {role}: whole numbers expected, got <U1"


# --- several parts --------------------------------------------------------------------------------


def cloud(*frames):
    return np.array([(1.0, 2.0, 3.0, frame) for frame in frames], POINT)


def test_parts_of_a_plane_are_laid_together_in_their_order():
    found = merged([("b", {7: cloud(3)}), ("a", {2: cloud(5), 7: cloud(1, 2)})])
    assert {p: c["id"].tolist() for p, c in found.items()} == {2: [5], 7: [3, 1, 2]}
    assert list(found) == [2, 7] and all(c.dtype == POINT for c in found.values())
    alone = cloud(1, 1)
    assert merged([("a", {4: alone})])[4] is alone


def test_a_frame_in_two_parts_of_a_plane_is_refused():
    parts = [("a", {1: cloud(1)}), ("b", {1: cloud(2, 2)}), ("c", {1: cloud(3, 2)})]
    assert refused(merged, parts) == "c: frame 2 of plane 1 stands in b as well"
    assert refused(merged, parts[1:]) == "c: frame 2 of plane 1 stands in b as well"
    assert list(merged([("a", {1: cloud(2)}), ("b", {2: cloud(2)})])) == [1, 2]


@pytest.mark.parametrize(
    ("name", "strict", "lax"),
    [
        ("/7/plane_07.ply", 7, 7),
        ("Laser-12 of 3.csv", 12, 12),
        ("line.3.csv", 3, 3),
        ("ring4.csv", 4, 4),
        ("label 5.csv", 5, 5),
        ("scan 9.csv", None, 9),
        ("007.csv", None, 7),
        ("cloud.csv", None, None),
        ("cloud.7", None, None),
        ("plane_1 plane_01.csv", 1, 1),
        ("3 and 03.csv", None, 3),
    ],
)
def test_a_name_tells_a_plane_by_a_word_or_by_a_lone_number(name, strict, lax):
    assert plane_in_name(name, any_number=False) == strict
    assert plane_in_name(name, any_number=True) == lax


def test_a_name_with_several_planes_is_refused():
    expected = "1, 2 in the name: which one is the plane? Name the file plane_N, or give it a column of planes"
    assert refused(plane_in_name, "plane1_plane2.csv", any_number=False) == f"plane1_plane2.csv: {expected}"
    assert refused(plane_in_name, "1-2.csv", any_number=True) == f"1-2.csv: {expected}"
    assert plane_in_name("1-2.csv", any_number=False) is None
