from __future__ import annotations

import dataclasses
import errno
import io
import os
import zipfile
from pathlib import Path
from typing import Any

import numpy as np
import pytest
import synthetic_runs as runs
from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st
from synthetic_runs import assert_same

from kestrane.errors import DamagedFile, FileOpenError
from kestrane_tools import run_file
from kestrane_tools.run_file import Run


def saved(run: Run, folder: Path) -> Path:
    path = folder / "run.npz"
    run.save(path)
    return path


def rewritten(path: Path, change: dict[str, bytes | None]) -> None:
    """Write the archive anew with other bytes of some members, or without them."""
    with zipfile.ZipFile(path) as archive:
        members = {name: archive.read(name) for name in archive.namelist()}
    members |= change
    with zipfile.ZipFile(path, "w") as archive:
        for name, data in members.items():
            if data is not None:
                archive.writestr(name, data)


def array_bytes(array: Any) -> bytes:
    stream = io.BytesIO()
    np.save(stream, array)
    return stream.getvalue()


# --- what goes round ------------------------------------------------------------------------------


@pytest.mark.parametrize(
    "run",
    [
        runs.full_run(3),
        runs.device_run(1, frames=1),
        runs.device_run(4, failed=(0, 1, 2, 3)),
        runs.device_run(2, optimise=False),
        Run(meta={}),
        Run(meta=runs.meta(kind="field"), table=runs.table(8), field=runs.field(8)),
    ],
    ids=["every part", "one frame", "all failed", "no moves", "empty", "field"],
)
def test_a_run_is_read_back_as_it_was_saved(run: Run, tmp_path: Path) -> None:
    assert_same(run_file.read(saved(run, tmp_path)), run)


def test_the_same_run_gives_the_same_bytes(tmp_path: Path) -> None:
    first = saved(runs.full_run(2), tmp_path).read_bytes()
    assert saved(runs.full_run(2), tmp_path).read_bytes() == first


def test_any_text_of_a_device_comes_back(tmp_path: Path) -> None:
    serial = "Ł-7 </script>\u2028 \U0001f4a1 \\ \" '"
    run = Run(meta=runs.meta(device={"serial": serial}))
    assert run_file.read(saved(run, tmp_path)).meta["device"]["serial"] == serial


def test_a_figure_that_is_not_determined_stays_not_a_number(tmp_path: Path) -> None:
    run = runs.device_run(2, failed=(1,))
    back = run_file.read(saved(run, tmp_path))
    assert back.factory is not None and np.isnan(back.factory.rms[1])
    assert np.isnan(back.meta["findings"][-1]["figures"]["undetermined"])


def test_the_extremes_of_a_double_come_back(tmp_path: Path) -> None:
    values = np.array([5e-324, -0.0, 1.7976931348623157e308, np.inf, 0.1])
    part = dataclasses.replace(
        runs.compensation(1), temperature=values, shift=values[:, None], largest=values
    )
    back = run_file.read(saved(Run(meta={}, compensation=part), tmp_path))
    assert back.compensation is not None
    assert back.compensation.temperature.tobytes() == values.tobytes()


def test_numpy_reads_the_arrays_too(tmp_path: Path) -> None:
    run = runs.device_run(2)
    with np.load(saved(run, tmp_path)) as archive:
        assert run.factory is not None
        assert (archive["factory/rms"] == run.factory.rms).all()


# --- what a part refuses --------------------------------------------------------------------------


def test_a_part_refuses_an_array_of_another_shape() -> None:
    with pytest.raises(ValueError, match=r"rms: shape \(3,\) instead of \(2,\)"):
        dataclasses.replace(runs.factory(2), rms=np.zeros(3))


def test_a_part_refuses_numbers_that_do_not_fit_its_type() -> None:
    with pytest.raises(ValueError, match="block_points"):
        dataclasses.replace(runs.factory(2), block_points=np.zeros((2, 15, 50)))
    with pytest.raises(ValueError, match="pose_off"):
        dataclasses.replace(runs.factory(2), pose_off=np.zeros(40))


def test_a_run_refuses_parts_of_different_devices() -> None:
    with pytest.raises(ValueError, match="2, 3 planes"):
        Run(meta={}, table=runs.table(2), factory=runs.factory(3))


def test_a_run_refuses_meta_that_json_cannot_hold() -> None:
    with pytest.raises(ValueError, match="meta"):
        Run(meta={"created": object()})


# --- damage ---------------------------------------------------------------------------------------


def test_a_file_cut_anywhere_is_refused(tmp_path: Path) -> None:
    path = saved(runs.device_run(1, frames=2), tmp_path)
    whole = path.read_bytes()
    for end in range(0, len(whole), max(1, len(whole) // 400)):
        path.write_bytes(whole[:end])
        with pytest.raises(DamagedFile):
            run_file.read(path)


@settings(
    max_examples=300, deadline=None, suppress_health_check=[HealthCheck.function_scoped_fixture]
)
@given(place=st.floats(0.0, 1.0, exclude_max=True), flip=st.integers(1, 255))
def test_a_flipped_byte_is_refused_or_changes_nothing(
    tmp_path: Path, place: float, flip: int
) -> None:
    run = runs.device_run(1, frames=2)
    path = saved(run, tmp_path)
    data = bytearray(path.read_bytes())
    data[int(place * len(data))] ^= flip
    path.write_bytes(data)
    try:
        back = run_file.read(path)
    except DamagedFile:
        return
    assert_same(back, run)  # a date in the archive, which holds no figure


def test_a_missing_array_is_named(tmp_path: Path) -> None:
    path = saved(runs.device_run(1), tmp_path)
    rewritten(path, {"factory/block_seam.npy": None})
    with pytest.raises(DamagedFile, match="not a run file: factory/block_seam is missing"):
        run_file.read(path)


def test_a_part_that_may_be_absent_is_none_then(tmp_path: Path) -> None:
    path = saved(runs.device_run(1), tmp_path)
    rewritten(path, {"factory/corner_moves.npy": None})
    part = run_file.read(path).factory
    assert part is not None and part.corner_moves is None


@pytest.mark.parametrize(
    ("member", "data", "reason"),
    [
        ("meta.json", b"{}", "schema"),
        ("meta.json", b'{"schema": "kestrane-run/2", "meta": {}}', "schema"),
        ("meta.json", b'{"schema": "kestrane-run/1", "meta": []}', "meta"),
        ("meta.json", b"[", "whole"),
        ("meta.json", b"\xff", "whole"),
        ("meta.json", None, "meta.json is missing"),
        ("factory/rms.npy", b"", "factory/rms"),
        ("factory/rms.npy", array_bytes(np.zeros(7)), "rms: shape"),
        ("factory/rms.npy", array_bytes(np.array(["a"])), "rms"),
        ("factory/rms.npy", array_bytes(np.zeros(1)) + b"x", "goes on"),
        ("factory/extra.npy", array_bytes(np.zeros(1)), "factory/extra.npy is not part of a run"),
        ("other.txt", b"", "other.txt is not part of a run"),
    ],
    ids=lambda value: value if isinstance(value, str) else "",
)
def test_a_changed_member_is_refused(
    member: str, data: bytes | None, reason: str, tmp_path: Path
) -> None:
    path = saved(runs.device_run(1), tmp_path)
    rewritten(path, {member: data})
    with pytest.raises(DamagedFile, match=reason):
        run_file.read(path)


def test_an_array_of_objects_is_refused_unread(tmp_path: Path) -> None:
    class Bomb:
        def __reduce__(self) -> tuple[Any, ...]:
            return os.mkdir, (str(tmp_path / "gone off"),)

    path = saved(runs.device_run(1), tmp_path)
    rewritten(path, {"factory/reason.npy": array_bytes(np.array([Bomb()], object))})
    with pytest.raises(DamagedFile, match="reason"):
        run_file.read(path)
    assert not (tmp_path / "gone off").exists()


def test_any_other_file_is_refused(tmp_path: Path) -> None:
    path = tmp_path / "clouds.csv"
    path.write_text("plane,frame,x,y,z\n0,0,1,2,3\n")
    with pytest.raises(DamagedFile, match="clouds.csv"):
        run_file.read(path)


# --- writing --------------------------------------------------------------------------------------


def test_a_file_that_is_not_there_is_an_error_of_opening(tmp_path: Path) -> None:
    with pytest.raises(FileOpenError) as caught:
        run_file.read(tmp_path / "none.npz")
    assert caught.value.errno == errno.ENOENT


def test_an_older_file_outlives_a_failed_save(
    tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    path = saved(runs.device_run(1), tmp_path)
    before = path.read_bytes()

    def full(number: int) -> None:
        raise OSError(errno.ENOSPC, "disk full")

    monkeypatch.setattr(os, "fsync", full)
    with pytest.raises(FileOpenError) as caught:
        runs.device_run(2).save(path)
    assert caught.value.errno == errno.ENOSPC
    assert path.read_bytes() == before
    assert [file.name for file in tmp_path.iterdir()] == ["run.npz"]


def test_a_full_device_is_an_error(tmp_path: Path) -> None:
    if not Path("/dev/full").exists():
        pytest.skip("no /dev/full here")
    with pytest.raises(FileOpenError) as caught:
        runs.device_run(1).save("/dev/full")
    assert caught.value.errno == errno.ENOSPC


def test_a_link_goes_on_leading_to_its_file(tmp_path: Path) -> None:
    path = saved(runs.device_run(1), tmp_path)
    link = tmp_path / "latest.npz"
    link.symlink_to(path)
    runs.device_run(2).save(link)
    assert link.is_symlink() and len(run_file.read(path).factory.status) == 2  # type: ignore[union-attr]


@pytest.mark.parametrize(
    "meta",
    [
        {"findings": 5},
        {"findings": [1]},
        {"findings": [{"level": "bad", "id": 3, "text": "x"}]},
        {"device": [1]},
        {"inputs": "x"},
        {"outputs": [1]},
        {"limits": {"rms": "x"}},
        {"limits": {"rms": True}},
        {"settings": 3},
        {"verdict": {}},
    ],
)
def test_meta_of_another_kind_is_refused(meta: dict[str, Any]) -> None:
    with pytest.raises(ValueError, match="meta: "):
        Run(meta=meta)
