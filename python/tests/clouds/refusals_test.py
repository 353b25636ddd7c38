"""What each reader says as it refuses, word for word: whoever reads it has nothing but these words.

And the bounds of what is refused, each from both of its sides.
"""

import io
import struct
import zipfile

import cloud_files as files
import numpy as np
import pytest

from kestrane.clouds import csv, npy, pcd, ply, read, write
from kestrane.clouds.columns import clouds_of
from kestrane.clouds.text import line_of_row, read_columns, rows_of
from kestrane.errors import DamagedFile, FileOpenError
from kestrane.points import points, whole_numbers


def said(parse, data, columns=None, *, damaged=True):
    """What a reader says of bytes, and whether it calls them damaged."""
    data = data.encode() if isinstance(data, str) else data
    with pytest.raises(ValueError) as caught:
        parse(data, "p", columns)
    assert isinstance(caught.value, DamagedFile) == damaged
    text = str(caught.value)
    assert text.startswith("p: ")
    return text[3:]


def read_by(parse, data, columns=None):
    """The points that a reader finds, plane by plane."""
    data = data.encode() if isinstance(data, str) else data
    found = [clouds_of(part, 0, 1.0) for part in parse(data, "p", columns)]
    return {plane: cloud.tolist() for clouds in found for plane, cloud in clouds.items()}


ONE = {0: [(1.0, 2.0, 3.0, 0)]}


# --- text -----------------------------------------------------------------------------------------


@pytest.mark.parametrize(
    ("text", "words"),
    [
        ("x,y,z\n1,2,3\n4,5,6", "the last line has no line end: it may have been cut"),
        ("# points 3\nx,y,z\n1,2,3\n", "1 points where its comment tells 3"),
        ("# points 0\nx,y,z\n1,2,3\n", "1 points where its comment tells 0"),
        ("# x y z\n1 2\n", "line 2: 2 fields where 3 belong"),
        ("x,y,z\n1,2,3\n\n4,5\n", "line 4: 2 fields where 3 belong"),
        ("x,y,z\n1,2\n", "line 2: 2 fields where 3 belong"),
        ("x,y,z\n1,b,3\n", "line 2: y is 'b', not a number"),
        (f"x,y,z\n1,{'9' * 23}b,3\n", f"line 2: y is '{'9' * 23}b', not a number"),
        (f"x,y,z\n1,{'9' * 24}b,3\n", f"line 2: y is '{'9' * 21}...', not a number"),
    ],
)
def test_a_damaged_table_is_told_with_its_line(text, words):
    assert said(csv.parse, text) == words


@pytest.mark.parametrize(
    ("data", "words"),
    [
        (b"ply\nformat", "not a table of numbers but a PLY file"),
        (b"ply\rformat", "not a table of numbers but a PLY file"),
        (b"\x93NUMPY\1\0", "not a table of numbers but a NumPy array"),
        (b"PK\3\4", "not a table of numbers but a ZIP archive"),
        (b"\xff\xfex\0", "not a table of numbers but text in UTF-16; save it as UTF-8"),
        (b"\xfe\xff\0x", "not a table of numbers but text in UTF-16; save it as UTF-8"),
        (b"", "no header line and no point"),
        (b"# nothing but words\n", "no header line and no point"),
        (
            b"# a comment\n\n1,2,3\n",
            "line 3: no header line; name the columns (columns='plane,frame,x,y,z', "
            "--columns plane,frame,x,y,z)",
        ),
    ],
)
def test_what_is_no_table_is_told(data, words):
    assert said(csv.parse, data, damaged=False) == words


def test_a_count_in_a_comment_is_one_in_its_own_words_alone():
    for head in ("#points 1", "#  points  1 ", "# points 1\n#", "# points 9\n# points 1"):
        assert read_by(csv.parse, f"{head}\nx,y,z\n1,2,3\n") == ONE
    for head in ("# 9 points", "# points 9 of 10", f"# points {'9' * 19}", "// points 9"):
        assert read_by(csv.parse, f"{head}\nx,y,z\n1,2,3\n") == ONE
    assert "tells 999999999999999999" in said(csv.parse, f"# points {'9' * 18}\nx,y,z\n1,2,3\n")


def test_names_may_stand_in_a_comment_of_any_kind():
    for head in ("# x y z", "#x y z", "//  X Y Z", "##\tx y z", "# note\n# x y z\n# note"):
        assert read_by(csv.parse, f"{head}\n1 2 3\n") == ONE
    assert read_by(csv.parse, "# x;y;z\n1;2;3\n") == ONE
    # A header line of its own goes before it.
    assert read_by(csv.parse, "# x y z\nz,y,x\n3,2,1\n") == ONE


def test_a_header_is_a_line_without_a_number():
    assert read_by(csv.parse, "x y z # and more\n1 2 3\n") == ONE
    assert read_by(csv.parse, "'x' \"y\" z\n1 2 3\n") == ONE
    assert said(csv.parse, "x y 3\n1 2 3\n", damaged=False).startswith("line 1: no header line")
    assert said(csv.parse, "x nan z\n1 2 3\n", damaged=False).startswith("line 1: no header line")


def test_rows_without_a_header_take_the_names_of_the_caller():
    names = ["z", "y", "x"]
    assert read_by(csv.parse, "3,2,1\n", names) == ONE
    assert read_by(csv.parse, "\n# a\n3\t2\t1\n", names) == ONE
    assert read_by(csv.parse, "", names) == {0: []}
    assert read_by(csv.parse, "# nothing\n", names) == {0: []}
    assert said(csv.parse, "3,2,1,0\n", names, damaged=False) == (
        "3 column names are given (z,y,x), the file has 4 columns"
    )


def test_the_line_of_a_row_is_found_when_it_is_asked_for():
    where = line_of_row(b"\n1\n# c\n2\n", 10, "#")
    assert where(0) == "line 11 (row 0, counted from 0)"
    assert where(1) == "line 13 (row 1, counted from 0)"
    assert where(2) == "row 2"


def test_rows_are_written_in_blocks_that_lose_none():
    columns = [np.arange(7), np.arange(7) / 4]
    expected = "".join(f"{k};{k / 4}\n" for k in range(7)).encode()
    for block in (1, 3, 7, 8):
        pieces = list(rows_of(columns, ";", block=block))
        assert b"".join(pieces) == expected and len(pieces) == -(-7 // block)


def test_a_number_beside_text_may_be_written_in_any_case():
    body = b"1E2,NaN,a\n-INF,+Infinity,b\n"
    found = read_columns(body, 3, {"u": 0, "v": 1}, path="p", first_line=1, delimiter=",")
    assert found["u"].tolist() == [100.0, -np.inf]
    assert np.isnan(found["v"][0]) and found["v"][1] == np.inf


def test_rows_of_another_width_are_refused_even_where_they_are_as_many():
    with pytest.raises(DamagedFile) as caught:
        read_columns(b"1 2 3 4\n" * 3, 3, {"a": 0}, path="p", first_line=7)
    assert str(caught.value) == "p: line 7: 4 fields where 3 belong"


def test_numbers_alone_are_read_without_a_look_at_single_fields(monkeypatch):
    monkeypatch.setattr("kestrane.clouds.text._read_plainly", None)
    found = read_columns(b"1 2\n3 4\n5 6\n", 2, {"b": 1}, path="p", first_line=1)
    assert found["b"].tolist() == [2.0, 4.0, 6.0]


def test_columns_of_a_body_without_rows_are_empty():
    for body in (b"", b"\n  \n", b"# 1 2\n"):
        found = read_columns(body, 2, {"a": 1}, path="p", first_line=1, comments="#")
        assert {name: column.tolist() for name, column in found.items()} == {"a": []}


def test_a_written_table_begins_with_its_count_and_its_names():
    cloud = points([[1.0, 2.0, 0.1]], 5)
    for delimiter in (",", " "):
        text = b"".join(csv.lines(cloud, np.array([7], np.int32), delimiter))
        assert text.decode() == "# points 1\n" + "".join(
            delimiter.join(row) + "\n"
            for row in (["plane", "frame", "x", "y", "z"], ["7", "5", "1.0", "2.0", "0.1"])
        )


# --- arrays ---------------------------------------------------------------------------------------


def header(text, version=1, pad=b""):
    """The bytes of an array's file up to its data."""
    body = text.encode("latin-1") + pad
    length = struct.pack("<H" if version == 1 else "<I", len(body))
    return b"\x93NUMPY" + bytes([version, 0]) + length + body


GOOD = "{'descr': '<f8', 'fortran_order': False, 'shape': (1, 3), }"
DATA = np.array([1.0, 2.0, 3.0]).tobytes()


def test_an_array_is_read_in_every_version_with_a_header_of_any_length():
    for version in (1, 2, 3):
        for pad in (b"", b"\n", b" " * 500 + b"\n"):
            assert read_by(npy.parse, header(GOOD, version, pad) + DATA) == ONE


@pytest.mark.parametrize(
    ("data", "words"),
    [
        (b"", "byte 0: not a NumPy array"),
        (b"\x93NUMPX" + bytes(20), "byte 0: not a NumPy array"),
        (b"\x93NUMPY", "cut at byte 6, in the header"),
        (header(GOOD)[:11], "cut at byte 11, in the header"),
        (header(GOOD)[:12], "cut at byte 12, in the header"),
        (header(GOOD, 2)[:11], "cut at byte 11, in the header"),
        (header("{}"), "byte 10: a malformed header ('shape')"),
        (header(GOOD)[:-1], f"cut at byte {len(header(GOOD)) - 1}, in the header"),
        (b"\x93NUMPY\0\0" + bytes(20), "byte 6: version 0 of the format is not known"),
        (b"\x93NUMPY\4\0" + bytes(20), "byte 6: version 4 of the format is not known"),
        (header(GOOD.replace("f8", "f\\8")), "byte 10: a backslash in the header"),
        (header(GOOD.replace("(1, 3)", "(1, True)")) + DATA, "byte 10: the shape (1, True) is not one"),
        (header(GOOD.replace("(1, 3)", "(-1, 3)")) + DATA, "byte 10: the shape (-1, 3) is not one"),
        (header(GOOD.replace("(1, 3)", "[1, 3]")) + DATA, "byte 10: the shape [1, 3] is not one"),
        (header(GOOD.replace("(1, 3)", "(1.0, 3)")) + DATA, "byte 10: the shape (1.0, 3) is not one"),
        (header(GOOD.replace("False", "0")) + DATA, "byte 10: the shape (1, 3) is not one"),
        (header(GOOD.replace("(1, 3)", f"({1 << 48},)")), f"byte 10: the shape ({1 << 48},) is not one"),
        (header(GOOD) + DATA[:-1], f"cut at byte {len(header(GOOD)) + 23}: 23 bytes of data where the shape (1, 3) of float64 has 24"),
        (header(GOOD) + DATA + b"x", f"byte {len(header(GOOD)) + 24}: 25 bytes of data where the shape (1, 3) of float64 has 24"),
    ],
)
def test_a_damaged_array_is_told_with_its_byte(data, words):
    assert said(npy.parse, data) == words


def test_a_header_without_sense_is_told_with_its_byte():
    for version, byte in ((1, 10), (2, 12), (3, 12)):
        assert said(npy.parse, header("{ ,", version)).startswith(f"byte {byte}: a malformed header (")
    assert said(npy.parse, header("{'descr': '<f8'}")) == "byte 10: a malformed header ('shape')"


def test_a_header_ends_at_a_megabyte_and_a_shape_at_32_dimensions():
    longest = (1 << 20) - 12 - len(GOOD)
    assert read_by(npy.parse, header(GOOD, 2, b" " * longest) + DATA) == ONE
    assert said(npy.parse, header(GOOD, 2, b" " * (longest + 1)) + DATA) == (
        f"byte 8: a header of {(1 << 20) + 1} bytes"
    )
    for count, fits in ((32, True), (33, False)):
        shape = "(" + "1, " * count + ")"
        data = header(GOOD.replace("(1, 3)", shape)) + DATA[:8]
        if fits:
            assert npy.array_in(data, "p").ndim == count
        else:
            assert "is not one" in said(npy.parse, data)
    assert npy.array_in(header(GOOD.replace("(1, 3)", f"({(1 << 48) - 1}, 0)")), "p").size == 0


@pytest.mark.parametrize(
    ("array", "words"),
    [
        (np.zeros((1, 1), [(name, "f8") for name in "xyz"]), "records of the shape (1, 1); (n,) expected"),
        (np.zeros(3), "the shape (3,); (n, 3) x y z, (n, 4) x y z frame or (n, 5) plane frame x y z expected"),
        (np.zeros((1, 2)), "the shape (1, 2); (n, 3) x y z, (n, 4) x y z frame or (n, 5) plane frame x y z expected"),
        (np.zeros((1, 6)), "the shape (1, 6); (n, 3) x y z, (n, 4) x y z frame or (n, 5) plane frame x y z expected"),
        (np.zeros((1, 3), complex), "x is complex128; real numbers expected"),
        (np.zeros((1, 3), bool), "x is bool; real numbers expected"),
        (np.zeros(1, [("x", "f8"), ("y", "f8", 2), ("z", "f8")]), "y is float64; real numbers expected"),
    ],
)
def test_an_array_that_is_no_list_of_points_is_told(array, words):
    assert said(npy.parse, files.npy(array), damaged=False) == words


def test_an_array_of_objects_is_told():
    data = header(GOOD.replace("<f8", "|O")) + bytes(24)
    assert said(npy.parse, data, damaged=False) == "an array of Python objects; numbers expected"


def test_an_array_of_nothing_holds_no_numbers():
    data = header(GOOD.replace("<f8", "|V0"))
    assert said(npy.parse, data, damaged=False) == "x is |V0; real numbers expected"


def test_columns_of_an_array_of_any_width_may_be_named():
    six = np.arange(6.0).reshape(1, 6)
    names = ["-", "z", "y", "x", "frame", "-"]
    assert read_by(npy.parse, files.npy(six), names) == {0: [(3.0, 2.0, 1.0, 4)]}
    assert read_by(npy.parse, files.npy(np.array([[1.0, 2.0, 3.0]])), ["z", "y", "x"]) == {
        0: [(3.0, 2.0, 1.0, 0)]
    }
    with pytest.raises(ValueError, match=r"p: the shape \(6,\)"):
        npy.parse(files.npy(six[0]), "p", names)


# --- archives -------------------------------------------------------------------------------------

XYZ = np.array([[1.0, 2.0, 3.0]])


@pytest.mark.parametrize(
    ("arrays", "words"),
    [
        ({}, "an archive without an array"),
        ({"meta": XYZ}, "the array 'meta' is neither 'points' nor named after a plane (plane_007)"),
        ({"plane_1": XYZ, "01": XYZ}, "two arrays of plane 1"),
        ({"points": XYZ, "7": XYZ, "8": XYZ}, "holds 'points' and '7': which one are the points?"),
        ({"points": np.zeros((1, 3), bool)}, "points: x is bool; real numbers expected"),
        ({"7": np.zeros((1, 3), bool)}, "7: x is bool; real numbers expected"),
        (
            {"points": np.zeros((1, 4)), "frame": np.zeros(1)},
            "'points' has a column frame, and there is 'frame' as well",
        ),
        (
            {"points": XYZ, "plane": np.zeros((1, 1))},
            "'plane' has the shape (1, 1), not one number for each of the 1 points",
        ),
    ],
)
def test_arrays_that_leave_points_open_are_told(arrays, words):
    assert said(npy.parse_archive, files.npz(arrays), damaged=False) == words


def test_an_array_that_stands_twice_is_told():
    data = files.npz({"7": XYZ, "8": XYZ, "9": XYZ}).replace(b"8.npy", b"7.npy")
    assert said(npy.parse_archive, data, damaged=False) == "the array '7' stands twice"
    both = files.npz({"7": XYZ, "8": XYZ, "2": XYZ, "3": XYZ})
    both = both.replace(b"8.npy", b"7.npy").replace(b"3.npy", b"2.npy")
    assert said(npy.parse_archive, both, damaged=False) == "the array '2' stands twice"
    with pytest.raises(ValueError, match="^p: an array stands twice$"):
        npy.arrays_in(data, "p")


def test_an_archive_that_is_damaged_is_told():
    data = files.npz({"7": XYZ})
    assert said(npy.parse_archive, b"P" + data) == "byte 0: not a ZIP archive"
    assert said(npy.parse_archive, data[:-1]) == "a damaged archive (File is not a zip file)"
    assert said(npy.parse_archive, data + b"xy") == f"byte {len(data)}: 2 bytes after the archive"
    place = data.index(DATA)
    flipped = data[:place] + bytes([data[place] ^ 1]) + data[place + 1 :]
    assert said(npy.parse_archive, flipped) == "7: a damaged archive (its checksum is another one)"
    other = data.replace(b"PK\3\4", b"PK\3\5")
    assert said(npy.parse_archive, other).startswith("7: a damaged archive (Bad magic number")
    encrypted = bytearray(data)
    for flags in (6, data.index(b"PK\1\2") + 8):
        encrypted[flags] |= 1
    assert "encrypted" in said(npy.parse_archive, bytes(encrypted))


def test_what_is_not_compressed_in_an_archive_is_not_copied():
    data = files.npz({"7": XYZ, "8": XYZ})
    for array in npy.arrays_in(data, "p").values():
        assert np.shares_memory(array, np.frombuffer(data, np.uint8))


def test_a_written_archive_holds_three_arrays_of_any_size():
    stream = io.BytesIO()
    npy.write_archive(stream, points([[1.0, 2.0, 3.0]], 5), np.array([7], np.int32))
    with zipfile.ZipFile(stream) as archive:
        assert archive.namelist() == ["points.npy", "frame.npy", "plane.npy"]
    # After its name a member has room for both of its sizes in 64 bits.
    assert struct.unpack_from("<H", stream.getvalue(), 28) == (20,)
    assert struct.unpack_from("<HH", stream.getvalue(), 30 + len("points.npy")) == (1, 16)


def test_a_comment_of_an_archive_is_no_damage(tmp_path):
    path = tmp_path / "a.npz"
    path.write_bytes(files.npz({"7": XYZ}))
    with zipfile.ZipFile(path, "a") as archive:
        archive.comment = b"made by hand"
    assert read_by(npy.parse_archive, path.read_bytes()) == {7: ONE[0]}


def test_points_of_an_archive_have_frames_and_planes_beside_them():
    arrays = {"points": np.repeat(XYZ, 2, 0), "frame": np.array([4, 5]), "plane": np.array([2, 1])}
    for compression in (zipfile.ZIP_STORED, zipfile.ZIP_DEFLATED):
        assert read_by(npy.parse_archive, files.npz(arrays, compression)) == {
            1: [(1.0, 2.0, 3.0, 5)],
            2: [(1.0, 2.0, 3.0, 4)],
        }
        found = npy.arrays_in(files.npz(arrays, compression), "p")
        assert {name: a.tolist() for name, a in found.items()} == {
            name: a.tolist() for name, a in arrays.items()
        }


def test_what_deflate_cannot_have_made_is_not_unpacked():
    # 1040 times its size and 64 KiB are the most that a member may claim.
    data = bytearray(files.npz({"7": np.zeros((3000, 3))}, zipfile.ZIP_DEFLATED))
    member = zipfile.ZipFile(io.BytesIO(bytes(data))).getinfo("7.npy")
    packed, plain = member.compress_size, member.file_size
    place = data.rindex(b"PK\1\2") + 24
    for size in (1040 * packed + (1 << 16), 1040 * packed + (1 << 16) + 1):
        struct.pack_into("<I", data, place, size)
        words = said(npy.parse_archive, bytes(data))
        too_much = size > 1040 * packed + (1 << 16)
        assert words == (
            f"7: {size} bytes out of {packed}" if too_much else f"7: {plain} bytes where {size} belong"
        )
    struct.pack_into("<I", data, place - 4, 0)  # a claim of nothing counts as one byte
    for size, too_much in ((1040 + (1 << 16), False), (1041 + (1 << 16), True)):
        struct.pack_into("<I", data, place, size)
        words = said(npy.parse_archive, bytes(data))
        assert (words == f"7: {size} bytes out of 0") == too_much


# --- PLY ------------------------------------------------------------------------------------------

HEAD = "ply\nformat ascii 1.0\nelement vertex 1\n"
COORDINATES = "property float x\nproperty float y\nproperty float z\n"


@pytest.mark.parametrize(
    ("data", "words"),
    [
        ("", "byte 0: not a PLY file"),
        ("plx\n", "byte 0: not a PLY file"),
        ("ply", "byte 3: the line 'ply' has no end"),
        ("ply format\n", "byte 3: the line 'ply' has no end"),
        (HEAD[:-1], f"cut at byte {len(HEAD) - 1}, in the header"),
        ("ply\nend_header\n", "a header without a format"),
        ("ply\nformat ascii 2.0\n", "line 2: 'format ascii 2.0': not a format that is known"),
        ("ply\nformat ascii\n", "line 2: 'format ascii': not a format that is known"),
        ("ply\nformat ascii 1.0 x\n", "line 2: 'format ascii 1.0 x': not a format that is known"),
        ("ply\nformat text 1.0\n", "line 2: 'format text 1.0': not a format that is known"),
        (HEAD + "format ascii 1.0\n", "line 4: 'format ascii 1.0': out of place"),
        ("ply\nelement vertex 1\n", "line 2: 'element vertex 1': out of place"),
        ("ply\nformat ascii 1.0\nproperty float x\n", "line 3: 'property float x': out of place"),
        (HEAD + "element vertex 2\n", "line 4: 'element vertex 2': stands twice"),
        (HEAD + "element face\n", "line 4: 'element face': a name and a number expected"),
        (HEAD + "element face -1\n", "line 4: 'element face -1': a name and a number expected"),
        (HEAD + "element face 1 2\n", "line 4: 'element face 1 2': a name and a number expected"),
        (HEAD + "property half x\n", "line 4: 'property half x': not a type that is known"),
        (HEAD + "property float\n", "line 4: 'property float': not a type that is known"),
        (HEAD + "property list int half x\n", "line 4: 'property list int half x': not a type that is known"),
        (HEAD + "property list half int x\n", "line 4: 'property list half int x': not a type that is known"),
        (HEAD + "property lost int int x\n", "line 4: 'property lost int int x': not a type that is known"),
        (HEAD + "property list float int x\n", "line 4: 'property list float int x': the length of a list is a whole number"),
        (HEAD + "camera " + "9" * 60 + "\n", f"line 4: 'camera {'9' * 53}': out of place"),
    ],
)
def test_a_damaged_ply_header_is_told_with_its_line(data, words):
    assert said(ply.parse, data) == words


@pytest.mark.parametrize(
    ("head", "words"),
    [
        (HEAD.replace("vertex", "face") + COORDINATES, "0 elements 'vertex'; one expected"),
        (HEAD + COORDINATES.replace("float y", "list uchar float y"), "the property 'y' (y) is a list"),
    ],
)
def test_a_ply_without_points_is_told(head, words):
    assert said(ply.parse, head + "end_header\n1 2 3\n", damaged=False) == words


@pytest.mark.parametrize(
    ("rows", "words"),
    [
        ("1 2 3", "cut at byte 105: the last line has no line end"),
        ("", "cut before line 8: 0 of 1 rows of 'vertex'"),
        ("1 2 3\n\n4 5 6\n", "line 9: text after the last element"),
        ("1 2\n", "line 8: 2 fields where 3 belong"),
        ("1 2 3 4\n", "line 8: 4 fields where 3 belong"),
        ("1 2 x\n", "line 8: z is 'x', not a number"),
    ],
)
def test_damaged_ply_text_is_told_with_its_line(rows, words):
    text = HEAD + COORDINATES + "end_header\n"
    assert len(text) == 100
    assert said(ply.parse, text + rows) == words


def test_damaged_ply_text_with_lists_is_told_with_its_line():
    text = HEAD.replace("1\n", "2\n") + COORDINATES + "property list uchar int n\nend_header\n"
    assert read_by(ply.parse, text + "1 2 3 2 8 9\n4 5 6 0\n") == {
        0: [(1.0, 2.0, 3.0, 0), (4.0, 5.0, 6.0, 0)]
    }
    for row, words in (
        ("4 5 6 1", "4 fields where 5 belong"),
        ("4 5 6 0 7", "5 fields where 4 belong"),
        ("4 5 6 -1", "a list of -1 items"),
        ("4 5 6 1.0 7", "a list of 1.0 items"),
        (f"4 5 6 1.{'0' * 30} 7", f"a list of 1.{'0' * 22} items"),
        ("4 5 6", "'n' is '', not a number"),
        (f"4 {'b' * 30} 6 0", f"'y' is '{'b' * 24}', not a number"),
    ):
        assert said(ply.parse, text + f"1 2 3 0\n{row}\n") == f"line 10: {words}"


def binary(rows, *, count, more="", order="<"):
    name = {"<": "little", ">": "big"}[order]
    head = f"ply\nformat binary_{name}_endian 1.0\nelement vertex {count}\n{COORDINATES}{more}end_header\n"
    return head.encode() + rows


def test_a_binary_ply_that_is_cut_tells_how_many_rows_are_whole():
    rows = struct.pack("<6f", 1, 2, 3, 4, 5, 6)
    data = binary(rows, count=2)
    assert said(ply.parse, data[:-1]) == f"cut at byte {len(data) - 1}: 1 of 2 rows of 'vertex'"
    assert said(ply.parse, data[:-12]) == f"cut at byte {len(data) - 12}: 1 of 2 rows of 'vertex'"
    assert said(ply.parse, data[:-13]) == f"cut at byte {len(data) - 13}: 0 of 2 rows of 'vertex'"
    assert said(ply.parse, data + b"ab") == f"byte {len(data)}: 2 bytes after the last element"


@pytest.mark.parametrize("order", ["<", ">"])
def test_a_binary_ply_with_lists_that_is_cut_tells_how_many_rows_are_whole(order):
    rows = struct.pack(f"{order}3fB2h3fB", 1, 2, 3, 2, 8, 9, 4, 5, 6, 0)
    data = binary(rows, count=2, more="property list uchar short n\n", order=order)
    assert read_by(ply.parse, data) == {0: [(1.0, 2.0, 3.0, 0), (4.0, 5.0, 6.0, 0)]}
    for left, whole in ((1, 1), (13, 1), (14, 0), (15, 0), (17, 0)):
        assert said(ply.parse, data[:-left]) == (
            f"cut at byte {len(data) - left}: {whole} of 2 rows of 'vertex'"
        )


def test_lists_of_a_binary_ply_that_differ_keep_its_rows_apart():
    # The first list has one item in each row, the second none and then two.
    rows = struct.pack("<3fBhB3fBhB2h", 1, 2, 3, 1, 7, 0, 4, 5, 6, 1, 8, 2, 9, 9)
    lists = "property list uchar short n\nproperty list uchar short m\n"
    assert read_by(ply.parse, binary(rows, count=2, more=lists)) == {
        0: [(1.0, 2.0, 3.0, 0), (4.0, 5.0, 6.0, 0)]
    }


@pytest.mark.parametrize("count", [1, 2])
def test_rows_with_lists_of_one_length_are_not_walked(monkeypatch, count):
    monkeypatch.setattr(ply, "_walk_rows", None)
    rows = struct.pack("<B2h3fHiB", 2, 8, 9, 1, 2, 3, 1, 7, 0) * count
    head = binary(rows, count=count, more="property list ushort int m\nproperty list uchar char n\n")
    data = head.replace(b"property float x", b"property list uchar short l\nproperty float x")
    assert read_by(ply.parse, data) == {0: [(1.0, 2.0, 3.0, 0)] * count}
    rows = struct.pack("<3fB2h", 1, 2, 3, 2, 8, 9) * count
    data = binary(rows, count=count, more="property list uchar short n\n")
    assert read_by(ply.parse, data) == {0: [(1.0, 2.0, 3.0, 0)] * count}


def test_a_binary_ply_skips_an_element_of_nothing():
    data = binary(struct.pack("<3f", 1, 2, 3), count=1)
    assert read_by(ply.parse, data.replace(b"element", b"element nothing 7\nelement")) == ONE


def test_a_ply_text_may_begin_with_an_element_without_rows():
    text = HEAD.replace("element", "element face 0\nproperty int a\nelement").replace("x 1", "x 2")
    assert read_by(ply.parse, text + COORDINATES + "end_header\n1 2 3\n1 2 3\n") == {0: ONE[0] * 2}


def test_rows_of_elements_follow_one_another():
    face = HEAD.replace("element", "element face 1\nproperty int a\nelement")
    head = face + COORDINATES + "end_header\n"  # nine lines
    assert read_by(ply.parse, head + "7\n1 2 3\n") == ONE
    for rows, words in (
        ("x\n1 2 3\n", "line 10: 'a' is 'x', not a number"),
        ("7\n1 2 x\n", "line 11: z is 'x', not a number"),
        ("7\n1 2 3\n4\n", "line 12: text after the last element"),
    ):
        assert said(ply.parse, head + rows) == words
    two = head.replace("vertex 1", "vertex 2")
    assert said(ply.parse, two + "7\n1 2 3\n") == "cut before line 12: 1 of 2 rows of 'vertex'"
    none = HEAD.replace("vertex 1", "vertex 0") + COORDINATES + "end_header\n"
    assert said(ply.parse, none + "7\n") == "line 8: text after the last element"


def test_a_list_of_a_negative_length_is_told_with_its_byte():
    rows = struct.pack("<3fb3fb", 1, 2, 3, 0, 4, 5, 6, -1)
    data = binary(rows, count=2, more="property list char short n\n")
    assert said(ply.parse, data) == f"byte {len(data) - 1}: a list of -1 items"
    data = binary(struct.pack("<3fb", 1, 2, 3, -1), count=1, more="property list char short n\n")
    assert said(ply.parse, data) == f"byte {len(data) - 1}: a list of -1 items"


def test_lines_of_a_ply_end_as_its_first_one_does():
    for end in ("\n", "\r\n", "\r"):
        text = (HEAD + COORDINATES + "end_header\n1 2 3\n").replace("\n", end)
        assert read_by(ply.parse, text) == ONE


def test_a_ply_skips_comments_empty_lines_and_elements_of_nothing():
    text = HEAD.replace("element", "comment a b c\n\nobj_info d\nelement nothing 7\nelement")
    assert read_by(ply.parse, text + COORDINATES + "end_header\n1 2 3\n") == ONE


@pytest.mark.parametrize("form", ["binary", "big", "ascii"])
def test_a_written_ply_is_this_to_the_byte(form):
    cloud = points([[1.5, 2.0, 3.0]], 5)
    name = {"binary": "binary_little_endian", "big": "binary_big_endian", "ascii": "ascii"}[form]
    head = (
        f"ply\nformat {name} 1.0\nelement vertex 1\nproperty double x\nproperty double y\n"
        "property double z\nproperty int frame\nproperty int plane\nend_header\n"
    ).encode()
    row = {
        "binary": struct.pack("<3d2i", 1.5, 2, 3, 5, 7),
        "big": struct.pack(">3d2i", 1.5, 2, 3, 5, 7),
        "ascii": b"1.5 2.0 3.0 5 7\n",
    }[form]
    assert b"".join(ply.encode(cloud, np.array([7], np.int32), form)) == head + row


# --- PCD ------------------------------------------------------------------------------------------

PCD = files.pcd({"x": [1.0], "y": [2.0], "z": [3.0]}, dict.fromkeys("xyz", "f4")).decode()
BINARY = files.pcd({"x": [1.0], "y": [2.0], "z": [3.0]}, dict.fromkeys("xyz", "f4"), form="binary")


@pytest.mark.parametrize(
    ("old", "new", "words"),
    [
        ("FIELDS x y z\n", "", "a header without FIELDS"),
        ("VERSION .7\nFIELDS x y z\n", "", "a header without VERSION, FIELDS"),
        ("HEIGHT", "DEPTH", "line 8: 'DEPTH 1' is out of place"),
        ("HEIGHT", "WIDTH", "line 8: 'WIDTH 1' is out of place"),
        ("HEIGHT 1", "A " + "9" * 70, f"line 8: 'A {'9' * 58}' is out of place"),
        ("SIZE 4 4 4", "SIZE 4 4 a", "SIZE 4 4 a: whole numbers expected"),
        ("SIZE 4 4 4", "SIZE " + "a" * 70, f"SIZE {'a' * 60}: whole numbers expected"),
        ("SIZE 4 4 4", "SIZE 4 4", "FIELDS, SIZE, TYPE and COUNT differ in their length"),
        ("TYPE F F F", "TYPE F F", "FIELDS, SIZE, TYPE and COUNT differ in their length"),
        ("COUNT 1 1 1", "COUNT 1 1", "FIELDS, SIZE, TYPE and COUNT differ in their length"),
        ("FIELDS x y z", "FIELDS x y z w", "FIELDS, SIZE, TYPE and COUNT differ in their length"),
        ("SIZE 4 4 4", "SIZE 4 4 2", "the field 'z': type F2, count 1"),
        ("COUNT 1 1 1", "COUNT 1 0 1", "the field 'y': type F4, count 0"),
        ("COUNT 1 1 1", f"COUNT 1 {(1 << 20) + 1} 1", f"the field 'y': type F4, count {(1 << 20) + 1}"),
        ("VERSION .7", "VERSION 8", "VERSION 8 is not known"),
        ("VERSION .7", "VERSION .7 1", "VERSION .7 1 is not known"),
        ("VERSION .7", "VERSION " + "9" * 70, f"VERSION {'9' * 60} is not known"),
        ("VIEWPOINT 0 0 0 1 0 0 0", "VIEWPOINT 0 0 0 1 0 0", "VIEWPOINT: seven numbers expected"),
        ("VIEWPOINT 0 0 0 1 0 0 0", "VIEWPOINT 0 0 0 1 0 0 a", "VIEWPOINT: seven numbers expected"),
        ("POINTS 1", "POINTS 1 1", "POINTS: one number expected"),
        ("POINTS 1", "POINTS 2", "POINTS 2 is not WIDTH 1 x HEIGHT 1"),
        ("POINTS 1", "POINTS 1.0", "POINTS 1.0: whole numbers expected"),
        ("DATA ascii", "DATA text", "line 11: DATA text is not known"),
        ("DATA ascii", "DATA asc ii", "line 11: DATA asc ii is not known"),
        ("DATA ascii", "DATA " + "t" * 70, f"line 11: DATA {'t' * 60} is not known"),
        ("1.0 2.0 3.0\n", "", "0 points where its header tells 1"),
        ("1.0 2.0 3.0\n", "1 2 3\n4 5 6\n", "2 points where its header tells 1"),
        ("1.0 2.0 3.0\n", "1 2\n", "line 12: 2 fields where 3 belong"),
        ("1.0 2.0 3.0\n", "1 2 3", f"cut at byte {len(PCD) - 7}: the last line has no line end"),
    ],
)
def test_a_damaged_pcd_is_told_with_its_place(old, new, words):
    assert PCD.count(old) == 1
    assert said(pcd.parse, PCD.replace(old, new)) == words


@pytest.mark.parametrize(
    ("kind", "size", "code"),
    [("I", 1, "b"), ("I", 2, "h"), ("I", 4, "i"), ("I", 8, "q"), ("F", 4, "f"), ("F", 8, "d"),
     ("U", 1, "B"), ("U", 2, "H"), ("U", 4, "I"), ("U", 8, "Q")],
)  # fmt: skip
def test_a_field_of_a_pcd_has_any_of_ten_types(kind, size, code):
    value = 1 << 8 * size - 1 if kind == "U" else -5  # beyond the largest with a sign
    head = BINARY[:-12].replace(b"SIZE 4 ", f"SIZE {size} ".encode())
    head = head.replace(b"TYPE F ", f"TYPE {kind} ".encode())
    data = struct.pack(f"<{code}", value)
    assert read_by(pcd.parse, head + data + BINARY[-8:]) == {0: [(value, 2.0, 3.0, 0)]}


def test_a_field_of_a_pcd_holds_a_million_numbers_at_most():
    for count, fits in ((1 << 20, True), ((1 << 20) + 1, False)):
        head = BINARY[:-12].replace(b"x y z", b"x y z w").replace(b"SIZE 4 4 4", b"SIZE 4 4 4 1")
        head = head.replace(b"TYPE F F F", b"TYPE F F F U")
        data = head.replace(b"COUNT 1 1 1", b"COUNT 1 1 1 %d" % count) + BINARY[-12:] + bytes(count)
        if fits:
            assert read_by(pcd.parse, data) == ONE
        else:
            assert said(pcd.parse, data) == f"the field 'w': type U1, count {count}"


def test_a_pcd_header_that_does_not_end_is_cut():
    assert read_by(pcd.parse, "\n" + PCD) == ONE
    assert said(pcd.parse, PCD[:20]) == "cut at byte 20, in the header"
    endless = "# " + "a" * (1 << 20)
    assert said(pcd.parse, endless + "\n" + PCD).startswith("cut at byte ")
    assert read_by(pcd.parse, "# " + "a" * ((1 << 20) - 3) + "\n" + PCD) == ONE


def test_a_list_in_place_of_a_coordinate_is_told():
    text = PCD.replace("COUNT 1 1 1", "COUNT 1 2 1").replace("1.0 2.0 3.0", "1 2 2 3")
    assert said(pcd.parse, text, damaged=False) == "the field 'y' (y) is a list"


def test_versions_counts_and_views_may_be_left_out_or_written_otherwise():
    for version in (".7", "0.7", "7", ".6", "0.5", "5"):
        assert read_by(pcd.parse, PCD.replace("VERSION .7", f"VERSION {version}")) == ONE
    assert read_by(pcd.parse, PCD.replace("COUNT 1 1 1\n", "")) == ONE
    assert read_by(pcd.parse, PCD.replace("VIEWPOINT 0 0 0 1 0 0 0\n", "# none\n\n")) == ONE
    assert read_by(pcd.parse, PCD.replace("VIEWPOINT 0 0", "VIEWPOINT -1e-3 .5")) == ONE


def test_a_binary_pcd_that_is_cut_tells_how_many_points_are_whole():
    two = BINARY.replace(b"WIDTH 1", b"WIDTH 2").replace(b"POINTS 1", b"POINTS 2") + bytes(12)
    assert said(pcd.parse, two[:-1]) == f"cut at byte {len(two) - 1}: 1 of 2 points"
    assert said(pcd.parse, two[:-13]) == f"cut at byte {len(two) - 13}: 0 of 2 points"
    bytewise = PCD.replace("SIZE 4 4 4", "SIZE 1 1 1").replace("TYPE F F F", "TYPE I I I")
    head = bytewise.replace("ascii", "binary").replace("1.0 2.0 3.0\n", "").encode()
    assert read_by(pcd.parse, head + b"\1\2\3") == ONE
    assert said(pcd.parse, head + b"\1\2") == f"cut at byte {len(head) + 2}: 0 of 1 points"


def test_a_pcd_may_end_with_a_page_of_zeros():
    for rest in (0, 1, 1 << 16):
        assert read_by(pcd.parse, BINARY + bytes(rest)) == ONE
    assert said(pcd.parse, BINARY + bytes((1 << 16) + 1)) == (
        f"byte {len(BINARY)}: {(1 << 16) + 1} bytes after the data"
    )
    assert said(pcd.parse, BINARY + b"\0x") == f"byte {len(BINARY)}: 2 bytes after the data"


def test_compressed_data_of_another_size_is_told_with_its_byte():
    rows = {"x": [1.0], "y": [2.0], "z": [3.0]}
    data = files.pcd(rows, dict.fromkeys("xyz", "f4"), form="binary_compressed")
    head = data.index(b"compressed\n") + len("compressed\n")
    assert read_by(pcd.parse, data) == ONE
    assert said(pcd.parse, data[: head + 7]) == (
        f"cut at byte {head + 7}, in the sizes of the compressed data"
    )
    other = data[: head + 4] + struct.pack("<I", 13) + data[head + 8 :]
    assert said(pcd.parse, other) == f"byte {head + 4}: 13 bytes of data where 1 points have 12"
    assert said(pcd.parse, data[:-1]) == f"cut at byte {len(data) - 1}: 12 of 13 bytes"
    for packed in (b"\x02abc", b"\xff\xff\xff"):
        broken = data[:head] + struct.pack("<II", len(packed), 12) + packed
        assert said(pcd.parse, broken).startswith(f"byte {head + 8}: damaged compressed data (")


def test_compressed_data_that_cannot_hold_its_size_asks_for_no_memory():
    for count, words in ((22, "damaged compressed data"), (23, "3 bytes cannot hold 276")):
        head = PCD.replace("ascii", "binary_compressed").replace("1.0 2.0 3.0\n", "")
        head = head.replace("WIDTH 1", f"WIDTH {count}").replace("POINTS 1", f"POINTS {count}")
        data = head.encode() + struct.pack("<II", 3, 12 * count) + b"\xff\xff\xff"
        assert said(pcd.parse, data).startswith(f"byte {len(head) + 8}: {words}")
        assert (said(pcd.parse, data)[-1] == ")") == (words == "damaged compressed data")
    # Three bytes make 264 at most: 53 points of five bytes are one byte more.
    head = PCD.replace("ascii", "binary_compressed").replace("1.0 2.0 3.0\n", "")
    head = head.replace("x y z", "x y z w").replace("SIZE 4 4 4", "SIZE 1 1 1 2")
    head = head.replace("TYPE F F F", "TYPE U U U U").replace("COUNT 1 1 1", "COUNT 1 1 1 1")
    head = head.replace("WIDTH 1", "WIDTH 53").replace("POINTS 1", "POINTS 53")
    data = head.encode() + struct.pack("<II", 3, 265) + b"\xff\xff\xff"
    assert said(pcd.parse, data) == f"byte {len(head) + 8}: 3 bytes cannot hold 265"


@pytest.mark.parametrize(("size", "fits"), [((1 << 32) - 1, True), (1 << 32, False)])
def test_four_gigabytes_are_too_many_to_be_compressed(monkeypatch, size, fits):
    monkeypatch.setattr(pcd, "len", lambda plain: size, raising=False)
    pieces = pcd.encode(points(np.zeros((0, 3))), np.zeros(0, np.int32), "compressed")
    next(pieces)
    if fits:
        assert next(pieces) == struct.pack("<II", size, size)
    else:
        with pytest.raises(ValueError, match="^0 points are too many for compressed PCD; use binary$"):
            next(pieces)


@pytest.mark.parametrize("form", ["binary", "ascii", "compressed"])
def test_a_written_pcd_is_this_to_the_byte(form):
    cloud = points([[1.5, 2.0, 3.0]], 5)
    name = {"compressed": "binary_compressed"}.get(form, form)
    head = (
        "# .PCD v0.7 - Point Cloud Data file format\nVERSION 0.7\nFIELDS x y z frame plane\n"
        "SIZE 8 8 8 4 4\nTYPE F F F I I\nCOUNT 1 1 1 1 1\nWIDTH 1\nHEIGHT 1\n"
        f"VIEWPOINT 0 0 0 1 0 0 0\nPOINTS 1\nDATA {name}\n"
    ).encode()
    written = b"".join(pcd.encode(cloud, np.array([7], np.int32), form))
    row = struct.pack("<3d2i", 1.5, 2, 3, 5, 7)
    if form == "compressed":
        packed, plain = struct.unpack_from("<II", written, len(head))
        assert plain == 32 and len(written) == len(head) + 8 + packed
        assert files.lzf_plain(written[len(head) + 8 :]) == row
        written, row = written[: len(head)], b""
    assert written == head + (b"1.5 2.0 3.0 5 7\n" if form == "ascii" else row)


@pytest.mark.parametrize("size", [1, 31, 32, 33, 64, 65])
def test_what_cannot_be_shrunk_is_held_in_runs(size):
    plain = bytes(range(100, 100 + size))
    assert pcd._as_literals(plain) == files.lzf_literals(plain)


# --- any file -------------------------------------------------------------------------------------

SUFFIXES = ".csv .txt .xyz .npy .npz .ply .pcd"


def test_a_file_of_another_kind_is_refused_by_its_suffix(tmp_path):
    for call in (lambda: read("a.stl"), lambda: write("a.stl", {})):
        with pytest.raises(ValueError, match="^a.stl: its suffix is not one of " + SUFFIXES + "$"):
            call()
    with pytest.raises(ValueError, match=f"^{tmp_path}: no file with a suffix of {SUFFIXES} in this folder$"):
        read(tmp_path)
    with pytest.raises(ValueError, match="^no file to read$"):
        read([])
    with pytest.raises(ValueError, match="^unit: a positive factor expected, got -1.0$"):
        read("a.csv", unit=-1.0)


def test_a_form_that_a_format_does_not_have_is_refused(tmp_path):
    for name, words in (
        ("a.ply", "form: 'text' is not one of binary, big, ascii for .ply"),
        ("a.PCD", "form: 'text' is not one of binary, compressed, ascii for .pcd"),
        ("a.csv", "form: 'text' is not one of none for .csv"),
    ):
        with pytest.raises(ValueError, match=f"^{words}$"):
            write(tmp_path / name, {}, form="text")


def test_planes_are_numbered_within_32_bits(tmp_path):
    cloud = points([[1.0, 2.0, 3.0]])
    path = tmp_path / "a.csv"
    for number in (-(2**31), 2**31 - 1):
        write(path, {number: cloud})
        assert list(read(path)) == [number]
    for number in (-(2**31) - 1, 2**31, True):
        with pytest.raises(ValueError, match=f"^plane {number!r}: a number within int32 expected$"):
            write(path, {number: cloud})


def test_points_that_could_not_be_read_back_are_told_with_their_row(tmp_path):
    cloud = points([[1.0, 2.0, 3.0], [np.inf, 2.0, 3.0]], 4)
    with pytest.raises(ValueError) as caught:
        write(tmp_path / "a.csv", [cloud[:1], cloud])
    assert str(caught.value) == "plane 1: row 1 (counted from 0) is (inf, 2.0, 3.0, 4)"
    with pytest.raises(ValueError, match=r"^plane 2: shape \(n,\) expected, got \(1, 2\)$"):
        write(tmp_path / "a.csv", {2: cloud.reshape(1, 2)})


def test_text_is_separated_as_its_suffix_says(tmp_path):
    for suffix, separator in ((".csv", ","), (".txt", " "), (".xyz", " ")):
        write(tmp_path / f"a{suffix}", {3: points([[1.0, 2.0, 3.0]])})
        lines = (tmp_path / f"a{suffix}").read_text().splitlines()
        assert lines[2] == separator.join(("3", "0", "1.0", "2.0", "3.0"))


def test_a_file_that_cannot_be_read_tells_the_call(tmp_path, monkeypatch):
    with pytest.raises(FileOpenError) as caught:
        read(tmp_path / "none.csv")
    assert caught.value.call == "read"
    monkeypatch.setattr("os.listdir", lambda _: (_ for _ in ()).throw(PermissionError(13, "no")))
    with pytest.raises(FileOpenError) as caught:
        read(tmp_path)
    assert (caught.value.errno, caught.value.call) == (13, "read")
    assert caught.value.filename == str(tmp_path)


def test_one_file_in_a_list_is_a_single_file(tmp_path):
    path = tmp_path / "scan 2026 11.csv"
    path.write_bytes(b"x,y,z\n1,2,3\n")
    assert list(read([path])) == [0] and list(read([path], plane=5)) == [5]
    with pytest.raises(ValueError, match="which one is the plane"):
        read([tmp_path])


# --- points ---------------------------------------------------------------------------------------


def test_points_of_another_form_are_told():
    for xyz, frames, words in (
        (np.zeros((2, 2)), 0, "xyz: shape (n, 3) expected, got (2, 2)"),
        (np.zeros((2, 3), bool), 0, "xyz: real numbers expected, got bool"),
        (
            np.zeros((2, 3)),
            [1, 2, 3],
            "frames: one number, or one for each of the 2 points, expected, got shape (3,)",
        ),
        (np.zeros((2, 3)), "a", "frames: whole numbers expected, got <U1"),
    ):
        with pytest.raises(ValueError) as caught:
            points(xyz, frames)
        assert str(caught.value) == words


def test_the_bounds_of_32_bits_are_whole_numbers():
    for dtype in ("i8", "f8"):
        values = np.array([-(2**31), 2**31 - 1], dtype)
        assert whole_numbers(values, "n").tolist() == values.tolist()
        for beyond in (-(2**31) - 1, 2**31):
            with pytest.raises(ValueError, match=f"^n: {np.array(beyond, dtype)} is not a whole number"):
                whole_numbers(np.array([0, beyond], dtype), "n")
