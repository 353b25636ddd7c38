"""Every format gives back every point, in whatever order, type and notation it is written."""

import io

import cloud_files as files
import numpy as np
import pytest
from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st

from kestrane.clouds import read, write
from kestrane.points import POINT

KEPT = {".csv": (None,), ".txt": (None,), ".xyz": (None,), ".npy": (None,), ".npz": (None,),
        ".ply": ("binary", "big", "ascii"), ".pcd": ("binary", "compressed", "ascii")}  # fmt: skip
FORMS = [(suffix, form) for suffix, forms in KEPT.items() for form in forms]

DEVICE = {
    0: files.cloud([(1.5, -2.25, 300.0, 0), (1.6, 0.1, 301.0, 1)]),
    7: files.cloud([(float("nan"), float("inf"), float("nan"), 3), (-1e-300, 1e300, -0.0, -(2**31))]),
    99: files.cloud([(0.1, 0.2, 0.3, 2**31 - 1)]),
}


def same(a, b):
    """Equal planes and points to the bit, NaN equal to NaN."""
    return list(a) == list(b) and all(
        x.dtype == y.dtype == POINT
        and all(x[n].tobytes() == y[n].tobytes() or np.array_equal(x[n], y[n], equal_nan=True) for n in POINT.names)
        for x, y in zip(a.values(), b.values(), strict=True)
    )  # fmt: skip


def stored(tmp_path, name, data):
    path = tmp_path / name
    path.write_bytes(data)
    return path


finite = st.floats(allow_nan=False, allow_infinity=False)
measured = st.tuples(finite, finite, finite, st.integers(-(2**31), 2**31 - 1))
dropped = st.tuples(
    st.just(float("nan")), st.floats(), st.floats(), st.integers(-(2**31), 2**31 - 1)
)
device = st.dictionaries(
    st.integers(0, 99), st.lists(measured | dropped, min_size=1, max_size=6), max_size=4
).map(lambda by_plane: {k: files.cloud(by_plane[k]) for k in sorted(by_plane)})


@pytest.mark.parametrize(("suffix", "form"), FORMS)
@given(clouds=device)
# With so few examples a streak of large draws would fail a test now and then by itself.
@settings(max_examples=25, deadline=None, suppress_health_check=[HealthCheck.data_too_large])
def test_what_is_written_is_read_to_the_bit(tmp_path_factory, suffix, form, clouds):
    path = tmp_path_factory.mktemp("clouds") / f"a{suffix}"
    write(path, clouds, form=form)
    assert same(read(path), clouds)


@pytest.mark.parametrize(("suffix", "form"), FORMS)
def test_the_order_of_points_is_kept_where_planes_alternate(tmp_path, suffix, form):
    # Written by hand in the one format that is simplest, handed on in the others.
    rows = [(k % 3, k, 0.5 * k, 2.0 * k, 300.0 + k) for k in range(50)]
    text = "plane,frame,x,y,z\n" + "".join(",".join(map(repr, row)) + "\n" for row in rows)
    clouds = read(stored(tmp_path, "mixed.csv", text.encode()))
    write(tmp_path / f"b{suffix}", clouds, form=form)
    for found in (clouds, read(tmp_path / f"b{suffix}")):
        for plane in range(3):
            assert found[plane]["id"].tolist() == list(range(plane, 50, 3))


@given(
    st.permutations(["x", "y", "z", "frame", "plane", "quality"]),
    st.tuples(*[st.sampled_from(sorted(files.PLY_TYPES))] * 6),
    st.sampled_from(["", "<", ">"]),
    st.sampled_from(["\n", "\r\n"]),
    st.booleans(),
    st.data(),
)
@settings(max_examples=300, deadline=None)
def test_ply_properties_may_have_any_order_and_type(order, kinds, form, end, with_list, data):
    from kestrane.clouds import ply
    from kestrane.clouds.columns import clouds_of

    types = dict(zip(order, kinds, strict=True))
    count = data.draw(st.integers(0, 4))
    columns, expected = {}, {}
    for name in order:
        role_is_whole = name in ("frame", "plane")
        values = st.integers(0, 99) if role_is_whole or types[name][0] != "f" else st.floats(-99, 99, width=32)
        columns[name] = data.draw(st.lists(values, min_size=count, max_size=count))
        expected[name] = columns[name]
        if types[name][0] == "f":
            columns[name] = [float(value) for value in columns[name]]
    lists = {order[2]: [list(range(row % 3)) for row in range(count)]} if with_list else None
    bytes_ = files.ply(columns, types, form=form, end=end, lists=lists)
    (part,) = ply.parse(bytes_, "a.ply", None)
    found = clouds_of(part, None, 1.0)
    rows = sorted(range(count), key=lambda row: expected["plane"][row])
    assert [int(p) for p in expected["plane"] and sorted(set(expected["plane"]))] == list(found)
    flat = [point for cloud in found.values() for point in cloud.tolist()]
    assert flat == [
        tuple(expected[name][row] for name in ("x", "y", "z", "frame")) for row in rows
    ]


FACES = ["element face 2", "property list uchar int vertex_indices", "property uchar red"]
ODD_FACES = b"\x03" + bytes(12) + b"\x01" + b"\x01" + bytes(4) + b"\x02"
EVEN_FACES = (b"\x03" + bytes(12) + b"\x01") * 2


@pytest.mark.parametrize("rows", [ODD_FACES, EVEN_FACES])
@pytest.mark.parametrize("place", ["before", "after"])
@pytest.mark.parametrize("form", ["<", ">"])
def test_ply_elements_other_than_vertex_are_walked_over(tmp_path, rows, place, form):
    columns = {"z": [300.0, 301.0], "x": [1.0, 2.0], "y": [3.0, 4.0]}
    types = dict.fromkeys(columns, "f8")
    data = files.ply(columns, types, form=form, **{place: [(FACES, rows)]})
    assert read(stored(tmp_path, "a.ply", data))[0].tolist() == [
        (1.0, 3.0, 300.0, 0),
        (2.0, 4.0, 301.0, 0),
    ]
    for name in ("cut", "long"):
        other = data[:-1] if name == "cut" else data + b"\0"
        with pytest.raises(ValueError, match="byte"):
            read(stored(tmp_path, f"{name}.ply", other))


@pytest.mark.parametrize("place", ["before", "after"])
def test_ply_text_of_other_elements_is_walked_over(tmp_path, place):
    columns = {"x": [1.0], "y": [3.0], "z": [300.0]}
    faces = (FACES, b"3 0 0 0 255\n1 0 7\n")
    data = files.ply(columns, dict.fromkeys(columns, "f4"), form="", **{place: [faces]})
    assert read(stored(tmp_path, "a.ply", data))[0].tolist() == [(1.0, 3.0, 300.0, 0)]


def test_ply_lists_of_different_length_between_coordinates_are_walked_over(tmp_path):
    columns = {"x": [1.0, 2.0, 3.0], "y": [4.0, 5.0, 6.0], "z": [7.0, 8.0, 9.0]}
    for form in ("", "<", ">"):
        for lists in ([[1, 2], [], [3]], [[1], [2], [3]], [[], [], []]):
            data = files.ply(columns, dict.fromkeys(columns, "f4"), form=form, lists={"y": lists})
            found = read(stored(tmp_path, "a.ply", data))[0]
            assert [found[n].tolist() for n in "xyz"] == list(columns.values())


def test_a_ply_in_the_order_y_x_z_keeps_its_coordinates_apart(tmp_path):
    columns = {"y": [1.0, 2.0], "x": [10.0, 20.0], "z": [100.0, 200.0]}
    for form in ("", "<", ">"):
        data = files.ply(columns, dict.fromkeys(columns, "f8"), form=form)
        found = read(stored(tmp_path, "a.ply", data))[0]
        assert [found[n].tolist() for n in "xyz"] == [[10.0, 20.0], [1.0, 2.0], [100.0, 200.0]]


def test_a_ply_text_that_ends_early_is_an_error_and_not_a_short_cloud(tmp_path):
    columns = {"x": [1.0, 2.0, 3.0], "y": [4.0, 5.0, 6.0], "z": [7.0, 8.0, 9.0]}
    data = files.ply(columns, dict.fromkeys(columns, "f8"), form="")
    short = data[: data.rindex(b"3.0 6.0 9.0")]
    with pytest.raises(ValueError, match=r"a\.ply: cut before line 12: 2 of 3 rows of 'vertex'"):
        read(stored(tmp_path, "a.ply", short))


@given(
    st.permutations(["x", "y", "z", "label", "image", "normal"]),
    st.tuples(*[st.sampled_from(sorted(files.STRUCT))] * 6),
    st.sampled_from(["ascii", "binary", "binary_compressed"]),
    st.sampled_from([1, 2]),
    st.data(),
)
@settings(max_examples=300, deadline=None)
def test_pcd_fields_may_have_any_order_type_and_count(order, kinds, form, height, data):
    from kestrane.clouds import pcd
    from kestrane.clouds.columns import clouds_of

    types = dict(zip(order, kinds, strict=True))
    count = data.draw(st.sampled_from([0, 2, 4]))
    columns, expected = {}, {}
    for name in order:
        whole = name in ("label", "image") or types[name][0] != "f"
        values = st.integers(0, 99) if whole else st.floats(-99, 99, width=32)
        values = data.draw(st.lists(values, min_size=count, max_size=count))
        expected[name] = values
        cast = float if types[name][0] == "f" else int
        columns[name] = [cast(v) for v in values]
        if name == "normal":
            columns[name] = [(cast(v), cast(0), cast(1)) for v in values]
    bytes_ = files.pcd(columns, types, form=form, counts={"normal": 3}, height=height)
    (part,) = pcd.parse(bytes_, "a.pcd", None)
    found = clouds_of(part, None, 1.0)
    rows = sorted(range(count), key=lambda row: expected["label"][row])
    flat = [point for cloud in found.values() for point in cloud.tolist()]
    assert flat == [tuple(expected[n][row] for n in ("x", "y", "z", "image")) for row in rows]


@given(st.binary(max_size=400) | st.lists(st.sampled_from([0, 1]), max_size=3000).map(bytes))
@settings(max_examples=200, deadline=None)
def test_compressed_bytes_are_what_a_slow_reader_makes_of_them(plain):
    from kestrane.clouds.pcd import _compressed

    assert files.lzf_plain(_compressed(plain)) == plain


ROWS = {
    "plane": [3, 3, 1, 3],
    "frame": [0, 1, 0, 2],
    "x": [1.5, float("nan"), 1e-7, -2.0],
    "y": [4.0, float("inf"), 5.0, 6.0],
    "z": [300.0, float("nan"), 1e3, 302.5],
}


@pytest.mark.parametrize("delimiter", [",", ";", "\t", " ", "  \t "])
@pytest.mark.parametrize("end", ["\n", "\r\n", "\r"])
@pytest.mark.parametrize("comment", [None, "# a comment, with 1 2 3", "", "  "])
@pytest.mark.parametrize("head", [(), ("# ünknown \u2028 bytes", ""), ("// 5 columns",)])
def test_text_is_read_with_any_delimiter_line_end_and_comment(tmp_path, delimiter, end, comment, head):
    data = files.csv(ROWS, delimiter=delimiter, end=end, head=head, comment=comment)
    for name, prefix in (("a.csv", b""), ("a.txt", b"\xef\xbb\xbf")):
        found = read(stored(tmp_path, name, prefix + data))
        assert list(found) == [1, 3]
        assert found[1].tolist() == [(1e-7, 5.0, 1000.0, 0)]
        assert found[3]["id"].tolist() == [0, 1, 2]
        assert found[3]["z"][[0, 2]].tolist() == [300.0, 302.5]
        assert np.isnan(found[3]["x"][1])


@pytest.mark.parametrize(
    "header",
    ["X,Y,Z,Frame_ID,LASER", "x,y,z,id,plane_id", '"x","y","z","image","line"', " x , y,z ,POSE, ring"],
)
def test_names_are_taken_in_any_case_and_of_any_kin(tmp_path, header):
    found = read(stored(tmp_path, "a.csv", f"{header}\n1,2,3,4,5\n".encode()))
    assert list(found) == [5]
    assert found[5].tolist() == [(1.0, 2.0, 3.0, 4)]


@pytest.mark.parametrize("header", ["# x y z frame", "//X Y Z Scan", "#x,y,z,frame"])
def test_a_comment_may_hold_the_names(tmp_path, header):
    delimiter = "," if "," in header else " "
    data = f"{header}\n{delimiter.join('1234')}\n".encode()
    assert read(stored(tmp_path, "a.xyz", data))[0].tolist() == [(1.0, 2.0, 3.0, 4)]


def test_columns_that_are_not_needed_may_hold_text(tmp_path):
    data = b"time,x,y,z,note\n12:00:01,1,2,3,good\n12:00:02,4,5,6,\n"
    found = read(stored(tmp_path, "a.csv", data))[0]
    assert found["x"].tolist() == [1.0, 4.0]
    assert found["z"].tolist() == [3.0, 6.0]


def test_the_caller_may_name_the_columns(tmp_path):
    path = stored(tmp_path, "a.csv", b"9,8,1,2,3\n9,7,4,5,6\n")
    assert read(path, columns="plane,frame,x,y,z")[9]["id"].tolist() == [8, 7]
    assert read(path, columns=["-", "-", "z", "y", "x"])[0]["x"].tolist() == [3.0, 6.0]
    with pytest.raises(ValueError, match="no header line"):
        read(path)
    with pytest.raises(ValueError, match="4 column names"):
        read(path, columns="frame,x,y,z")
    named = stored(tmp_path, "b.csv", b"a,b,c\n1,2,3\n")
    assert read(named, columns="z,y,x")[0].tolist() == [(3.0, 2.0, 1.0, 0)]


def test_a_unit_is_a_factor_of_all_coordinates(tmp_path):
    path = stored(tmp_path, "a.csv", b"x,y,z\n0.5,0.25,0.3\n")
    assert read(path, unit=1000.0)[0].tolist() == [(500.0, 250.0, 300.0, 0)]
    for unit in (0.0, -1.0, float("nan"), float("inf")):
        with pytest.raises(ValueError, match="unit"):
            read(path, unit=unit)


@pytest.mark.parametrize("version", [(1, 0), (2, 0), (3, 0)])
@pytest.mark.parametrize("order", ["C", "F"])
@pytest.mark.parametrize("dtype", ["<f4", ">f8", "<f2", "<i4", ">u2", "<i8"])
def test_arrays_of_any_type_order_and_version_are_read(tmp_path, version, order, dtype):
    five = np.array([[2, 7, 1, 3, 5], [1, 8, 2, 4, 6]], dtype, order=order)
    for width, expected in (
        (3, {0: [(2.0, 7.0, 1.0, 0), (1.0, 8.0, 2.0, 0)]}),
        (4, {0: [(2.0, 7.0, 1.0, 3), (1.0, 8.0, 2.0, 4)]}),
        (5, {1: [(2.0, 4.0, 6.0, 8)], 2: [(1.0, 3.0, 5.0, 7)]}),
    ):
        file = io.BytesIO()
        array = np.array(five[:, :width], order=order)
        np.lib.format.write_array(file, array, version=version)
        found = read(stored(tmp_path, "a.npy", file.getvalue()))
        assert {plane: cloud.tolist() for plane, cloud in found.items()} == expected


def test_records_are_read_by_their_names(tmp_path):
    array = np.zeros(2, [("Z", "<f4"), ("extra", "S4"), ("y", ">f8"), ("X", "i2"), ("label", "u1")])
    array["Z"], array["y"], array["X"], array["label"] = 3, 2, 1, 200
    found = read(stored(tmp_path, "a.npy", files.npy(array)))
    assert found[200].tolist() == [(1.0, 2.0, 3.0, 0)] * 2
    own = read(stored(tmp_path, "b.npy", files.npy(DEVICE[0])))
    assert same(own, {0: DEVICE[0]})


@pytest.mark.parametrize("compression", [0, 8])
def test_an_archive_holds_an_array_for_each_plane_or_one_of_all(tmp_path, compression):
    one = np.array([[1.0, 2.0, 3.0, 4.0]])
    by_plane = {"plane_007": one, "2": one[:, :3], "Plane-11": one}
    found = read(stored(tmp_path, "a.npz", files.npz(by_plane, compression)))
    assert {plane: cloud.tolist() for plane, cloud in found.items()} == {
        2: [(1.0, 2.0, 3.0, 0)],
        7: [(1.0, 2.0, 3.0, 4)],
        11: [(1.0, 2.0, 3.0, 4)],
    }
    all_in_one = {
        "points": np.array([[1, 2, 3], [4, 5, 6]], "f4"),
        "plane": np.array([3, 1], "u1"),
        "frame": np.array([8, 9], "i8"),
        "temperature": np.float64(20.5),
    }
    found = read(stored(tmp_path, "b.npz", files.npz(all_in_one, compression)))
    assert found[1].tolist() == [(4.0, 5.0, 6.0, 9)]
    assert found[3].tolist() == [(1.0, 2.0, 3.0, 8)]


def test_files_of_a_folder_tell_their_planes_in_their_names(tmp_path):
    row = b"x,y,z\n1,2,3\n"
    for name in ("plane_07.csv", "scan 9.csv", "b2_laser-12 (3).csv", "notes.md", ".hidden.csv"):
        stored(tmp_path, name, row)
    (tmp_path / "inner.csv").mkdir()
    assert list(read(tmp_path)) == [7, 9, 12]
    assert list(read([tmp_path / "plane_07.csv", tmp_path / "scan 9.csv"])) == [7, 9]


def test_a_single_file_is_the_plane_that_is_given_or_told(tmp_path):
    row = b"x,y,z\n1,2,3\n"
    assert list(read(stored(tmp_path, "scan 2026.csv", row))) == [0]
    assert list(read(stored(tmp_path, "scan 2026.csv", row), plane=5)) == [5]
    assert list(read(stored(tmp_path, "plane_07.csv", row))) == [7]
    assert list(read(stored(tmp_path, "own.csv", b"plane,x,y,z\n4,1,2,3\n"), plane=5)) == [4]


def test_several_files_without_a_plane_or_with_two_are_refused(tmp_path):
    row = b"x,y,z\n1,2,3\n"
    a, b = stored(tmp_path, "a.csv", row), stored(tmp_path, "b.csv", row)
    with pytest.raises(ValueError, match=r"a\.csv: neither a column of planes nor a number"):
        read([a, b])
    both = stored(tmp_path, "2026-11.csv", row)
    with pytest.raises(ValueError, match="which one is the plane"):
        read([both, a])


def test_files_of_one_plane_are_laid_together_unless_a_frame_stands_in_two(tmp_path):
    a = stored(tmp_path, "a.csv", b"x,y,z,frame\n1,2,3,0\n")
    b = stored(tmp_path, "b.csv", b"x,y,z,frame\n4,5,6,1\n")
    c = stored(tmp_path, "c.csv", b"x,y,z,frame\n7,8,9,1\n")
    assert read([a, b], plane=3)[3].tolist() == [(1.0, 2.0, 3.0, 0), (4.0, 5.0, 6.0, 1)]
    with pytest.raises(ValueError, match=r"c\.csv: frame 1 of plane 3 stands in .*b\.csv as well"):
        read([a, b, c], plane=3)


def test_clouds_without_points_are_clouds(tmp_path):
    assert read(stored(tmp_path, "a.csv", b"x,y,z\n"))[0].size == 0
    assert read(stored(tmp_path, "b.csv", b"plane,x,y,z\n")) == {}
    for suffix, form in FORMS:
        write(tmp_path / f"none{suffix}", {}, form=form)
        assert read(tmp_path / f"none{suffix}") == {}


def test_what_is_read_owns_its_memory(tmp_path):
    write(tmp_path / "a.npz", DEVICE)
    for cloud in read(tmp_path / "a.npz").values():
        assert cloud.base is None and cloud.flags.writeable
