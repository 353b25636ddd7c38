"""What a run and its parts take and refuse, word for word, and the bytes of its file."""

from __future__ import annotations

import dataclasses
import functools
import io
import json
import zipfile
import zlib
from pathlib import Path
from typing import Any

import numpy as np
import pytest
import synthetic_runs as runs

from kestrane.errors import DamagedFile
from kestrane_tools import run_file
from kestrane_tools.files import read_bytes, write_bytes
from kestrane_tools.run_file import Run

P, N, K, D, M, T = 3, 60, 80, 6, 3, 21
BLOCKS, CORNERS = (15, 50), (16, 51)

# Type and shape of every array of every part, of three planes and twenty frames a plane. Fields that
# are not listed are single values of the type that stands first.
ARRAYS: dict[str, dict[str, tuple[str, tuple[int, ...]]]] = {
    "table": {
        "cells": ("f8", (P, *BLOCKS, 3)),
        "whole": ("f8", (P, 3)),
        "z": ("f8", (51,)),
        "y_start": ("f8", (51,)),
        "y_step": ("f8", (51,)),
        "head": ("i4", (4,)),
    },
    "factory": {
        "volume": ("f8", (3,)),
        **dict.fromkeys(("status", "at_bound"), ("i4", (P,))),
        **dict.fromkeys(("reason", "refinement_refused"), ("U", (P,))),
        **dict.fromkeys(
            ("points", "kept", "not_finite", "depth", "gross", "used", "valid", "outliers"),
            ("i8", (P,)),
        ),
        **dict.fromkeys(
            "rms bias q95 q99 max median sigma coverage seam median_seam repeatability within_poses "
            "between_poses largest_move rms_without median_seam_without refined_rms plain_rms".split(),
            ("f8", (P,)),
        ),
        **dict.fromkeys(
            ("borrowed_in_volume", "refinement", "refinement_plane_only"), ("?", (P,))
        ),
        "block_points": ("i8", (P, *BLOCKS)),
        **dict.fromkeys(
            (f"block_{name}" for name in "rms bias q95 q99 max seam repeatability".split()),
            ("f8", (P, *BLOCKS)),
        ),
        "block_origin": ("u1", (P, *BLOCKS)),
        "indicators": ("f8", (P, *BLOCKS, 3)),
        "corners": ("f8", (P, *CORNERS, 3)),
        "corner_moves": ("f8", (P, *CORNERS)),
        "refined_cells": ("f8", (P, *BLOCKS, 3)),
        "refined_whole": ("f8", (P, 3)),
        "refined_sigma": ("f8", (P, *CORNERS)),
        **dict.fromkeys(("pose_plane", "pose_frame"), ("i4", (N,))),
        "pose_points": ("i8", (N,)),
        "pose_median": ("f8", (N,)),
        "pose_off": ("?", (N,)),
        "histogram_counts": ("i8", (K,)),
    },
    "field": {
        "displacement_block": ("i4", (2,)),
        **dict.fromkeys(("smallest_R", "motion_R"), ("f8", (3, 3))),
        **dict.fromkeys(("smallest_t", "motion_t", "centre"), ("f8", (3,))),
        "quaternion": ("f8", (4,)),
        "direction_name": ("U", (D,)),
        "direction_vector": ("f8", (D, 6)),
        **dict.fromkeys(("direction_sigma", "direction_strength"), ("f8", (D,))),
        "direction_fixed": ("?", (D,)),
        "stage_points": ("i8", (5,)),
        **dict.fromkeys(("stage_frames", "stage_planes"), ("i4", (5,))),
        "plane": ("i4", (P,)),
        "plane_points": ("i8", (P, 5)),
        "plane_frames": ("i4", (P, 5)),
        **dict.fromkeys(("dropped_plane", "dropped_frame", "dropped_stage"), ("i4", (M,))),
        "left_out": ("i4", (0,)),
    },
    "difference": {
        "block": ("i4", (2,)),
        "place": ("f8", (2,)),
        "rigid_R": ("f8", (3, 3)),
        "rigid_t": ("f8", (3,)),
        "plane_blocks": ("i4", (P,)),
        **dict.fromkeys(("plane_rms", "plane_max", "plane_rest"), ("f8", (P,))),
        **dict.fromkeys(("values", "rests"), ("f8", (P, *BLOCKS))),
    },
    "compensation": {
        **dict.fromkeys(("temperature", "largest"), ("f8", (T,))),
        "shift": ("f8", (T, P)),
    },
}
TEXTS = {"refused", "name", "unit_hint"}
FLAGS = {"asked_far", "asked_optimise", "asked_screen", "asked_repeatability", "sigma_holds_table"}
COUNTS = set(
    "asked_refine device_points histogram_below histogram_above displacement_plane frame_clusters "
    "plane_clusters first_plane last_plane plane blocks only_in_one".split()
)
OPTIONAL = {"corner_moves", "refined_cells", "refined_whole", "refined_sigma"}


@functools.cache
def whole() -> Run:
    """A run in which every field of every part has a value."""
    run = runs.full_run(P)
    assert run.factory is not None
    more = {
        "refined_cells": np.ones((P, *BLOCKS, 3)),
        "refined_whole": np.ones((P, 3)),
        "refined_sigma": np.ones((P, *CORNERS)),
    }
    return dataclasses.replace(run, factory=dataclasses.replace(run.factory, **more))


EVERY = [
    (part, item.name) for part in ARRAYS for item in dataclasses.fields(getattr(whole(), part))
]


@pytest.mark.parametrize(("part", "name"), EVERY)
def test_a_field_has_its_type_and_its_shape_in_memory_and_in_the_file(part, name):
    value = getattr(getattr(whole(), part), name)
    dtype, shape = ARRAYS[part].get(name, ("", ()))
    if not dtype:
        kind = str if name in TEXTS else bool if name in FLAGS else int if name in COUNTS else float
        assert type(value) is kind
        dtype = {str: "U", bool: "?", int: "i8", float: "f8"}[kind]
    else:
        assert value.shape == shape
        assert value.dtype.kind == "U" if dtype == "U" else value.dtype == np.dtype(dtype)
        assert value.flags.c_contiguous
    stream = io.BytesIO(MEMBERS[f"{part}/{name}.npy"])
    stored = np.load(stream)
    assert stored.shape == shape
    assert stored.dtype.str[1:2] == "U" if dtype == "U" else stored.dtype == np.dtype(f"<{dtype}")


def members_of(run: Run, folder: Path) -> dict[str, bytes]:
    run.save(folder / "run.npz")
    with zipfile.ZipFile(folder / "run.npz") as archive:
        return {name: archive.read(name) for name in archive.namelist()}


@pytest.fixture(scope="module", autouse=True)
def _members(tmp_path_factory: pytest.TempPathFactory) -> None:
    MEMBERS.update(members_of(whole(), tmp_path_factory.mktemp("members")))


MEMBERS: dict[str, bytes] = {}


@pytest.mark.parametrize(
    ("part", "name"), [(part, name) for part, arrays in ARRAYS.items() for name in arrays]
)
def test_an_array_of_another_length_is_refused_in_each_direction(part, name):
    run = whole()
    value = getattr(getattr(run, part), name)
    for axis in range(value.ndim):
        longer = np.concatenate([value, np.take(value, [0] if value.size else [], axis)], axis)
        if longer.shape == value.shape:
            continue
        if (name, axis) in (("histogram_counts", 0), ("left_out", 0), ("shift", 1)):
            # No other array of the part has this length.
            dataclasses.replace(getattr(run, part), **{name: longer})
            continue
        with pytest.raises(ValueError, match="shape"):
            dataclasses.replace(getattr(run, part), **{name: longer})
    with pytest.raises(ValueError, match=f"^{name}: shape "):
        dataclasses.replace(getattr(run, part), **{name: value[None]})


@pytest.mark.parametrize(("part", "name"), EVERY)
def test_a_value_of_another_kind_is_refused(part, name):
    given = getattr(whole(), part)
    value = np.asarray(getattr(given, name))
    wrong = {"U": 1.5, "b": 1, "f": "a", "i": 1.5, "u": 1.5}[value.dtype.kind]
    if value.size == 0:
        return
    with pytest.raises(ValueError) as caught:
        dataclasses.replace(given, **{name: np.full(value.shape, wrong)})
    kind = {"U": "str", "b": "bool"}.get(value.dtype.kind, value.dtype.name)
    assert str(caught.value) == f"{name}: {np.array(wrong).dtype} does not fit {kind}"


def test_whole_numbers_and_flags_of_any_type_fit_a_count_and_a_figure():
    part = dataclasses.replace(
        runs.compensation(1), temperature=np.arange(21), depth=np.float32(2.5), reference=3
    )
    assert part.temperature.dtype == np.float64 and part.depth == 2.5
    assert type(part.reference) is float
    part = dataclasses.replace(runs.difference(1), blocks=np.uint8(7), plane_blocks=[True])
    assert type(part.blocks) is int and part.plane_blocks.tolist() == [1]


def test_an_empty_array_may_have_any_type():
    part = dataclasses.replace(
        runs.field(2), dropped_plane=[], dropped_frame=[], dropped_stage=[], left_out=[]
    )
    assert part.left_out.dtype == np.int32
    with pytest.raises(ValueError, match="direction_name: float64 does not fit str"):
        dataclasses.replace(part, direction_name=np.zeros(0))


def test_shapes_are_told_as_they_should_be():
    with pytest.raises(ValueError) as caught:
        dataclasses.replace(runs.factory(2), block_rms=np.zeros((2, 15, 49)))
    assert str(caught.value) == "block_rms: shape (2, 15, 49) instead of (2, 15, 50)"
    with pytest.raises(ValueError) as caught:
        dataclasses.replace(runs.compensation(2), shift=np.zeros((21, 2, 1)))
    assert str(caught.value) == "shift: shape (21, 2, 1) instead of (21, 2)"


@pytest.mark.parametrize(("part", "name"), EVERY)
def test_a_field_that_is_missing_is_named_or_none(part, name, tmp_path):
    path = tmp_path / "a.npz"
    with zipfile.ZipFile(path, "w") as archive:
        for member, data in MEMBERS.items():
            if member != f"{part}/{name}.npy":
                archive.writestr(member, data)
    if name in OPTIONAL:
        assert getattr(getattr(run_file.read(path), part), name) is None
        return
    with pytest.raises(DamagedFile) as caught:
        run_file.read(path)
    assert str(caught.value) == f"{path}: not a run file: {part}/{name} is missing"


# --- runs -----------------------------------------------------------------------------------------


@pytest.mark.parametrize("others", [("factory",), ("difference",), ("compensation",)])
def test_every_part_of_a_run_has_its_planes(others):
    table = runs.table(2)
    for name in others:
        made = getattr(runs, name)
        Run(meta={}, table=table, **{name: made(2)})
        with pytest.raises(ValueError) as caught:
            Run(meta={}, table=table, **{name: made(3)})
        assert str(caught.value) == "parts of 2, 3 planes in one run"


def test_a_part_that_was_refused_has_no_planes_to_agree_with():
    table = runs.table(2)
    refused = runs.factory(3, failed=(0, 1, 2))
    assert Run(meta={}, table=table, factory=refused).factory is refused
    different = dataclasses.replace(runs.difference(3), refused="other grids")
    assert Run(meta={}, table=table, difference=different).difference is different
    Run(meta={}, table=table, field=runs.field(5))  # lists of some of the planes


@pytest.mark.parametrize(
    ("meta", "words"),
    [
        *[({name: 1}, f"meta: {name} is not a str") for name in ("kind", "unit", "created", "verdict")],
        *[
            ({name: "a"}, f"meta: {name} is not a dict")
            for name in ("device", "software", "settings", "limits", "volume")
        ],
        *[
            ({name: "a"}, f"meta: {name} is not a list")
            for name in ("inputs", "outputs", "findings", "remarks")
        ],
        *[
            ({name: [{}, 1]}, f"meta: {name} holds more than objects")
            for name in ("inputs", "outputs", "findings")
        ],
        *[
            (
                {"findings": [{**dict.fromkeys(("level", "id", "text"), "a"), name: None}]},
                "meta: a finding without level, id and text",
            )
            for name in ("level", "id", "text")
        ],
        *[
            ({"limits": {name: value}}, f"meta: the limit {name} is not a number")
            for name in "rms p99 coverage seam repeatability outliers field_motion".split()
            for value in (True, "1", None)
        ],
        ({"created": object()}, "meta: Object of type object is not JSON serializable"),
    ],
)  # fmt: skip
def test_meta_that_no_page_can_show_is_told(meta, words):
    with pytest.raises(ValueError) as caught:
        Run(meta=meta)
    assert str(caught.value) == words


def test_meta_without_an_end_is_refused():
    endless: dict[str, Any] = {}
    inner = endless
    for _ in range(100_000):
        inner["a"] = {}
        inner = inner["a"]
    with pytest.raises(ValueError, match="^meta: "):
        Run(meta=endless)


def test_meta_of_a_run_is_taken_with_all_that_a_page_knows():
    run = Run(meta=runs.meta(limits={"rms": 1, "seam": 0.5, "other": "any"}, remarks=[1, "a"]))
    assert run.meta["limits"]["rms"] == 1


# --- the file -------------------------------------------------------------------------------------


def test_a_run_file_holds_its_meta_and_an_array_for_each_field():
    assert list(MEMBERS)[0] == "meta.json"
    told = {"schema": "kestrane-run/1", "meta": whole().meta}
    assert MEMBERS["meta.json"] == json.dumps(told).encode()
    assert list(MEMBERS)[1:] == [f"{part}/{name}.npy" for part, name in EVERY]


def test_members_have_one_date_and_common_rights(tmp_path):
    runs.device_run(1).save(tmp_path / "a.npz")
    with zipfile.ZipFile(tmp_path / "a.npz") as archive:
        for member in archive.infolist():
            assert member.date_time == (1980, 1, 1, 0, 0, 0)
            assert member.external_attr == 0o644 << 16
            assert member.compress_type == zipfile.ZIP_DEFLATED
        zeros = archive.getinfo("factory/corners.npy")
        assert zeros.compress_size < zeros.file_size / 100


def changed(tmp_path: Path, member: str, data: bytes) -> str:
    """What the reader says of a file of which one member holds other bytes."""
    path = tmp_path / "a.npz"
    with zipfile.ZipFile(path, "w") as archive:
        for name, old in {**MEMBERS, member: data}.items():
            archive.writestr(name, data if name == member else old)
    with pytest.raises(DamagedFile) as caught:
        run_file.read(path)
    text = str(caught.value)
    assert text.startswith(f"{path}: ")
    return text[len(f"{path}: ") :]


def test_a_changed_member_is_told(tmp_path):
    for member, data, words in (
        ("meta.json", b'{"schema": "kestrane-run/2", "meta": {}}', "its schema is not kestrane-run/1"),
        ("meta.json", b"[]", "its schema is not kestrane-run/1"),
        ("meta.json", b'{"schema": "kestrane-run/1", "meta": []}', "meta.json holds no meta"),
        ("meta.json", b'{"schema": "kestrane-run/1"}', "meta.json holds no meta"),
        ("other/rms.npy", b"", "other/rms.npy is not part of a run"),
        ("factory/rms2.npy", b"", "factory/rms2.npy is not part of a run"),
        ("factory/rms.npy", MEMBERS["factory/rms.npy"] + b"x", "factory/rms.npy goes on after its array"),
    ):
        assert changed(tmp_path, member, data) == f"not a whole run file: {words}"
    assert changed(tmp_path, "factory/rms.npy", b"").startswith("not a whole run file: factory/rms.npy: ")


def test_a_member_that_stands_twice_is_told(tmp_path):
    path = tmp_path / "a.npz"
    with pytest.warns(UserWarning), zipfile.ZipFile(path, "w") as archive:
        for name in ("meta.json", "factory/rms.npy", "factory/rms.npy"):
            archive.writestr(name, MEMBERS[name])
    with pytest.raises(DamagedFile) as caught:
        run_file.read(path)
    assert str(caught.value) == (
        f"{path}: not a whole run file: factory/rms.npy: too large, or there twice"
    )


def test_an_array_of_objects_is_not_unpickled(tmp_path):
    stream = io.BytesIO()
    np.save(stream, np.array([Unpickled()], object), allow_pickle=True)
    text = changed(tmp_path, "factory/rms.npy", stream.getvalue())
    assert text.startswith("not a whole run file: factory/rms.npy: ") and Unpickled.times == 0


class Unpickled:
    times = 0

    def __reduce__(self):
        return Unpickled._made, ()

    @staticmethod
    def _made():
        Unpickled.times += 1
        return Unpickled()


@pytest.mark.parametrize(("beyond", "fits"), [(0, True), (1, False)])
def test_a_member_beyond_a_gigabyte_is_not_unpacked(tmp_path, monkeypatch, beyond, fits):
    path = tmp_path / "a.npz"
    runs.device_run(1).save(path)
    real = zipfile.ZipFile.infolist

    def claiming(archive: zipfile.ZipFile) -> list[zipfile.ZipInfo]:
        found = real(archive)
        found[-1].file_size = (1 << 30) + beyond
        return found

    monkeypatch.setattr(zipfile.ZipFile, "infolist", claiming)
    monkeypatch.setattr(zipfile.ZipFile, "read", lambda archive, member: MEMBERS["meta.json"])
    with pytest.raises(DamagedFile) as caught:
        run_file.read(path)
    assert ("too large" in str(caught.value)) != fits


@pytest.mark.parametrize(
    "error",
    [ValueError, EOFError, OSError, NotImplementedError, zipfile.BadZipFile,
     zlib.error, RuntimeError, MemoryError, RecursionError],
)  # fmt: skip
def test_however_an_archive_breaks_it_is_damaged(tmp_path, monkeypatch, error):
    path = tmp_path / "a.npz"
    runs.device_run(1).save(path)

    def breaking(archive: zipfile.ZipFile, member: Any) -> bytes:
        raise error("broken here")

    monkeypatch.setattr(zipfile.ZipFile, "read", breaking)
    with pytest.raises(DamagedFile) as caught:
        run_file.read(path)
    assert str(caught.value) == f"{path}: not a whole run file: broken here"


def test_bytes_are_written_and_read_as_they_are(tmp_path):
    write_bytes(tmp_path / "a", b"\0\r\n\xff")
    assert read_bytes(tmp_path / "a") == b"\0\r\n\xff"
