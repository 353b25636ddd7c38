"""A file that is written appears whole under its name, or the old one stays as it was."""

import errno
import os
import stat
import threading

import pytest

from kestrane._output import replacing
from kestrane.errors import FileOpenError


def written(path, data=b"new"):
    with replacing(path) as file:
        file.write(data)


def test_a_new_file_has_the_rights_that_the_mask_leaves(tmp_path):
    old = os.umask(0o027)
    try:
        written(tmp_path / "a.txt")
    finally:
        os.umask(old)
    assert (tmp_path / "a.txt").read_bytes() == b"new"
    assert stat.S_IMODE((tmp_path / "a.txt").stat().st_mode) == 0o640
    assert os.listdir(tmp_path) == ["a.txt"]


def test_the_old_file_is_there_until_all_is_written(tmp_path):
    path = tmp_path / "a.txt"
    path.write_bytes(b"old")
    with replacing(path) as file:
        file.write(b"new")
        file.flush()
        beside = f".a.txt.{os.getpid()}.0.part"
        assert path.read_bytes() == b"old"
        assert sorted(os.listdir(tmp_path)) == [beside, "a.txt"]
    assert path.read_bytes() == b"new"


def test_a_failure_leaves_the_old_file_and_nothing_beside_it(tmp_path):
    path = tmp_path / "a.txt"
    path.write_bytes(b"old")
    for failure in (RuntimeError, KeyboardInterrupt):
        with pytest.raises(failure), replacing(path) as file:
            file.write(b"half")
            raise failure
    assert path.read_bytes() == b"old" and os.listdir(tmp_path) == ["a.txt"]


def test_two_writers_of_one_file_do_not_meet(tmp_path):
    path = tmp_path / "a.txt"
    with replacing(path) as first:
        first.write(b"first")
        written(path, b"second")
        assert path.read_bytes() == b"second"
        assert len(os.listdir(tmp_path)) == 2
    assert path.read_bytes() == b"first" and os.listdir(tmp_path) == ["a.txt"]


def test_a_thousand_names_beside_a_file_are_tried(tmp_path):
    path = tmp_path / "a.txt"
    for attempt in range(999):
        (tmp_path / f".a.txt.{os.getpid()}.{attempt}.part").touch()
    written(path)
    assert path.read_bytes() == b"new"
    (tmp_path / f".a.txt.{os.getpid()}.999.part").touch()
    with pytest.raises(FileOpenError) as caught:
        written(path, b"newer")
    assert caught.value.errno == errno.EEXIST and caught.value.filename == str(path)
    assert path.read_bytes() == b"new" and len(os.listdir(tmp_path)) == 1001


def test_a_name_as_long_as_names_may_be_is_written(tmp_path):
    path = tmp_path / ("n" * 255)
    written(path)
    assert path.read_bytes() == b"new"


def test_a_name_without_a_folder_is_of_the_present_one(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    written("a.txt")
    assert os.listdir(tmp_path) == ["a.txt"]


def test_the_file_and_its_folder_are_synced(tmp_path, monkeypatch):
    synced = []
    real = os.fsync

    def noting(number):
        size = os.fstat(number).st_size if stat.S_ISREG(os.fstat(number).st_mode) else None
        synced.append((os.readlink(f"/proc/self/fd/{number}"), size))
        real(number)

    monkeypatch.setattr(os, "fsync", noting)
    open_before = len(os.listdir("/proc/self/fd"))
    written(tmp_path / "a.txt")
    beside = str(tmp_path / f".a.txt.{os.getpid()}.0.part")
    assert synced == [(beside, len(b"new")), (str(tmp_path), None)]  # all of it is there by then
    assert len(os.listdir("/proc/self/fd")) == open_before


def test_a_folder_that_cannot_be_synced_is_no_failure(tmp_path, monkeypatch):
    real = os.fsync

    def refusing(number):
        if stat.S_ISDIR(os.fstat(number).st_mode):
            raise OSError(errno.EINVAL, "no sync of a folder here")
        real(number)

    monkeypatch.setattr(os, "fsync", refusing)
    written(tmp_path / "a.txt")
    assert (tmp_path / "a.txt").read_bytes() == b"new"


def test_a_link_stays_one(tmp_path):
    (tmp_path / "folder").mkdir()
    (tmp_path / "link").symlink_to(tmp_path / "folder" / "a.txt")
    written(tmp_path / "link")
    assert (tmp_path / "link").is_symlink()
    assert (tmp_path / "folder" / "a.txt").read_bytes() == b"new"


def test_a_pipe_is_written_to_and_stays_one(tmp_path):
    path = tmp_path / "pipe"
    os.mkfifo(path)
    found = []
    reader = threading.Thread(target=lambda: found.append(path.read_bytes()))
    reader.start()
    written(path)
    reader.join(30)
    assert found == [b"new"] and stat.S_ISFIFO(path.stat().st_mode)
    assert os.listdir(tmp_path) == ["pipe"]


def test_what_the_system_refuses_has_its_number_the_name_and_the_call(tmp_path):
    with pytest.raises(FileOpenError) as caught:
        written(tmp_path / "none" / "a.txt")
    assert caught.value.errno == errno.ENOENT and caught.value.call == "write"
    assert caught.value.filename == str(tmp_path / "none" / "a.txt")


def test_an_error_of_a_file_inside_is_handed_on_as_it_is(tmp_path):
    inner = FileOpenError(path="inner", errno=errno.EIO, call="read")
    with pytest.raises(FileOpenError) as caught, replacing(tmp_path / "a.txt"):
        raise inner
    assert caught.value is inner
