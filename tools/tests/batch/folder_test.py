"""The folder of a batch: who works in it, and what is said where nobody can."""

import errno
import os

import pytest

from kestrane_tools.batch import folder
from kestrane_tools.batch.folder import Folder, is_at_work
from kestrane_tools.cli.stop import Status, Stop


def refused(path):
    open_before = len(os.listdir("/proc/self/fd"))
    with pytest.raises(Stop) as caught:
        Folder(str(path))
    assert caught.value.status == Status.FILE
    assert len(os.listdir("/proc/self/fd")) == open_before
    return str(caught.value)


def test_a_folder_that_is_not_there_is_told(tmp_path):
    path = tmp_path / "none"
    assert refused(path) == f"{path}/.batch: No such file or directory"


def test_a_second_batch_is_told_who_the_first_one_is(tmp_path):
    with Folder(str(tmp_path)) as first:
        told = refused(tmp_path)
        assert told.startswith(f"{tmp_path}: another batch is at work here (process {os.getpid()} on ")
        first.stop()  # which leaves nothing to be told
        assert refused(tmp_path) == f"{tmp_path}: another batch is at work here"
    with Folder(str(tmp_path)):
        pass


def test_a_file_system_without_locks_is_told(tmp_path, monkeypatch):
    def without(number, operation):
        raise OSError(errno.ENOLCK, os.strerror(errno.ENOLCK))

    monkeypatch.setattr(folder.fcntl, "flock", without)
    assert refused(tmp_path) == (
        f"{tmp_path}: no locks on this file system: {os.strerror(errno.ENOLCK)}"
    )


def test_a_batch_works_as_long_as_its_token_is_there_or_cannot_be_read(tmp_path):
    with Folder(str(tmp_path)) as first:
        assert is_at_work(first.lock, first.token) and not is_at_work(first.lock, "another")
        first.stop()
        assert not is_at_work(first.lock, first.token)
    assert not is_at_work(str(tmp_path / "none"), first.token)
    assert is_at_work(str(tmp_path), first.token)  # a folder, which cannot be read
