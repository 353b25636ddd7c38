"""One device: how its child ends, what is kept of an earlier result, and who may be at work."""

import dataclasses
import fcntl
import json
import os
import re
import shutil
import subprocess
import sys
import threading

import pytest
from devices import HERE, running, wait_for

from kestrane_tools.batch.folder import Folder
from kestrane_tools.batch.watch import watch
from kestrane_tools.cli.stop import Stop

FAULTY = str(HERE / "faulty_child.py")


@pytest.fixture
def batch(devices, tmp_path):
    """A function that watches one device, in a batch of its own."""
    output = tmp_path / "out"
    output.mkdir()

    def run(name, *child, more="", change=None, **limits):
        plan = devices.plan(tmp_path / "plan.toml", [name], more)
        with Folder(output) as folder:
            (job,), orders = devices.orders(plan, folder, *child, **limits)
            return watch(*(job, orders) if change is None else change(job, orders, folder))

    return run


def test_a_child_that_says_it_is_done_and_leaves_nothing_has_failed(batch):
    found = batch("vanishes", FAULTY)
    assert (found.status, found.cause) == ("failed", "exit status 0 and nothing said")


def test_a_child_that_does_not_start_has_failed_and_not_found_anything(batch):
    # The interpreter's status is 1 then, which otherwise tells of a bad verdict.
    found = batch("K-1", "-m", "kestrane_tools.gone")
    assert found.status == "failed"
    assert "No module named kestrane_tools.gone" in found.cause


@pytest.mark.parametrize("name", ["throws", "threadless"])
def test_memory_that_a_library_lacks_is_told_as_such(batch, name):
    assert batch(name, FAULTY).status == "out of memory"


def test_a_limit_below_the_program_itself_is_told_with_what_it_takes(batch):
    for _ in range(5):  # the addresses, and with them what fits, differ from run to run
        found = batch("K-1", memory=40)
        assert found.status == "out of memory"
        assert re.fullmatch(r"MemoryError: the program itself takes \d+ MiB", found.cause)


@pytest.mark.parametrize("megabytes", [30, 80, 90, 100, 130, 180])
def test_too_little_memory_for_the_program_itself_is_told_as_such(batch, megabytes):
    found = batch("K-1", memory=megabytes)
    assert found.status in ("out of memory", "ok"), found
    assert megabytes > 50 or found.status == "out of memory"


def test_a_child_that_was_killed_is_begun_again_as_often_as_asked(batch, tmp_path):
    assert batch("aborts", FAULTY, retries=2).status == "killed by SIGABRT"
    assert (tmp_path / "out/starts.txt").read_text().split() == ["aborts"] * 3
    assert batch("raises", FAULTY, retries=2).status == "failed"
    assert (tmp_path / "out/starts.txt").read_text().split() == ["aborts"] * 3 + ["raises"]


def test_a_bad_verdict_is_no_failure(batch, tmp_path):
    (tmp_path / "limits.toml").write_text("[limits]\nrms = 1e-6\n")
    found = batch("K-1", more='[calibrate]\nlimits = "limits.toml"\n')
    assert (found.status, found.level) == ("limits", "bad")
    assert found.finding.startswith("residuals: ")
    assert (tmp_path / "out/K-1/table.txt").exists()


def test_a_file_that_is_not_there_fails_its_device_alone(batch):
    found = batch("K-1", change=lambda job, orders, _: (
        dataclasses.replace(job, clouds=("gone.npz",)), orders))  # fmt: skip
    assert (found.status, found.cause) == ("failed", "gone.npz: No such file or directory")


def test_a_folder_that_cannot_be_made_fails_its_device_alone(batch, tmp_path):
    (tmp_path / "out/K-1").write_text("a file\n")
    found = batch("K-1")
    assert found.status == "failed"
    assert "FileExistsError" in found.cause


def test_another_version_of_the_software_refuses(batch):
    found = batch("K-1", change=lambda job, orders, _: (
        job, dataclasses.replace(orders, version="0.1")))  # fmt: skip
    assert found.status == "failed"
    assert "the batch has 0.1" in found.cause


def test_a_child_is_stopped_with_its_batch(batch, tmp_path):
    def stopped(job, orders, folder):
        threading.Thread(target=lambda: (wait_for(lambda: running(tmp_path)), folder.stop())).start()
        return job, orders

    assert batch("hangs", FAULTY, change=stopped).status == "stopped"
    assert running(tmp_path) == {}


def test_nothing_starts_for_a_batch_that_has_ended(batch, tmp_path):
    found = batch("K-1", FAULTY, change=lambda job, orders, folder: (folder.stop(), (job, orders))[1])
    assert found.status == "stopped"
    assert not (tmp_path / "out/starts.txt").exists()


def test_two_children_are_never_at_work_in_one_folder(batch, tmp_path):
    (tmp_path / "out/K-1").mkdir()
    with open(tmp_path / "out/K-1/log.txt", "wb") as other:
        fcntl.flock(other, fcntl.LOCK_EX)
        found = batch("K-1", FAULTY, seconds=0.3)
        assert found.status == "failed"
        assert "another process is at work" in found.cause
        threading.Timer(0.3, other.close).start()
        assert batch("K-1", FAULTY).status == "ok"


def test_a_job_can_be_done_by_hand(batch, tmp_path, devices):
    batch("K-1")
    shutil.copy(tmp_path / "out/K-1/job.json", tmp_path)
    shutil.rmtree(tmp_path / "out/K-1")
    command = [sys.executable, "-m", "kestrane_tools.batch.child", "job.json"]
    done = subprocess.run(command, cwd=tmp_path, capture_output=True, check=False)
    assert done.returncode == 0, done.stderr
    devices.assert_equal_to_serial(tmp_path / "out", ["K-1"])


def test_a_child_does_not_outlive_a_watcher_that_died_before_it_began(batch, tmp_path):
    batch("K-1")
    (tmp_path / "out/K-1/result.json").unlink()
    command = [sys.executable, "-m", "kestrane_tools.batch.child", tmp_path / "out/K-1/job.json"]
    assert subprocess.run([*command, "--watcher", "1"], check=False).returncode == 70
    assert not (tmp_path / "out/K-1/result.json").exists()


def test_the_log_is_that_of_the_last_child(batch, tmp_path):
    for _ in range(2):
        batch("raises", FAULTY)
    assert (tmp_path / "out/raises/log.txt").read_text().count("RuntimeError: the board") == 1


# --- earlier results ------------------------------------------------------------------------------------


def resumed(batch, **changes):
    found = batch("K-1", FAULTY, resume=True, **changes)
    assert found.status in ("ok", "limits")
    return found.kept


def test_a_result_of_the_same_files_and_settings_is_kept(batch, devices, tmp_path):
    shutil.copytree(devices.base / "serial/K-1", tmp_path / "out/K-1")  # of the command itself
    found = batch("K-1", FAULTY, resume=True)
    assert found.status == "ok" and found.kept and found.planes == 2 and found.points == 8000
    assert not (tmp_path / "out/starts.txt").exists()


SETTINGS = {
    "far": "true",
    "optimise": "true",
    "repeatability": "false",
    "refine": "true",
    "raw": "true",
    "partial": "true",
    "unit": "1.0000001",
    "plane": "3",
    "columns": '"plane,frame,x,y,z"',
}


def options(*names):
    return "\n".join(["[calibrate]", *(f"{name} = {SETTINGS[name]}" for name in names), ""])


@pytest.mark.parametrize("name", SETTINGS)
def test_every_setting_makes_another_result(batch, devices, tmp_path, name):
    shutil.copytree(devices.base / "serial/K-1", tmp_path / "out/K-1")
    found = batch("K-1", "-c", "raise SystemExit(3)", resume=True, more=options(name))
    assert (found.status, found.kept) == ("failed", False)


def test_threads_make_no_other_result(batch, devices, tmp_path):
    shutil.copytree(devices.base / "serial/K-1", tmp_path / "out/K-1")
    assert resumed(batch, more="[calibrate]\nthreads = 2\n")


@pytest.mark.parametrize(
    "names", [("far", "partial", "unit"), ("refine", "repeatability", "raw"), ("optimise",)]
)
def test_a_result_of_other_settings_is_kept_by_these(batch, names):
    assert [resumed(batch, more=options(*names)) for _ in range(2)] == [False, True]


def test_limits_and_device_files_are_settings_too(batch, tmp_path):
    limits, device = tmp_path / "limits.toml", tmp_path / "device.toml"
    limits.write_text("[limits]\nrms = 1.0\n")
    device.write_text('[device]\nserial = "K-1"\ntemperature = [20, 20.5]\nnext_due = 2027-11-21\n')

    def again():
        return resumed(batch, change=lambda job, orders, _: (
            dataclasses.replace(job, limits="limits.toml", device="device.toml"), orders))  # fmt: skip

    assert [again(), again()] == [False, True]
    for path, text in (
        (limits, "[limits]\nrms = 1\n[volume]\ndepth = [250, 800]\n"),
        (limits, "[limits]\nrms = 1\n[volume]\ndepth = [250, 800]\nhalf_angle_deg = 20\n"),
        (limits, "[limits]\nrms = 1e-6\n[volume]\ndepth = [250, 800]\nhalf_angle_deg = 20\n"),
        (device, '[device]\nserial = "K-2"\n'),
    ):
        path.write_text(text)
        assert [again(), again()] == [False, True], text


def test_other_points_make_another_result(batch, devices, tmp_path):
    own = tmp_path / "own.npz"
    shutil.copy(devices.base / "clouds/K-1.npz", own)

    def again():
        return resumed(batch, change=lambda job, orders, _: (
            dataclasses.replace(job, clouds=("own.npz",)), orders))  # fmt: skip

    assert [again(), again()] == [False, True]
    shutil.copy(devices.base / "clouds/K-2.npz", own)
    assert [again(), again()] == [False, True]


@pytest.mark.parametrize("file", ["table.txt", "run.npz", "report.html", "result.json"])
def test_a_result_of_which_something_is_gone_is_made_again(batch, devices, tmp_path, file):
    shutil.copytree(devices.base / "serial/K-1", tmp_path / "out/K-1")
    (tmp_path / "out/K-1" / file).unlink()
    assert not resumed(batch)


@pytest.mark.parametrize("damage", [b"", b"{", b"[]", b'{"kind": "factory"}', b"[" * 100_000])
def test_a_result_that_cannot_be_read_is_made_again(batch, devices, tmp_path, damage):
    shutil.copytree(devices.base / "serial/K-1", tmp_path / "out/K-1")
    (tmp_path / "out/K-1/result.json").write_bytes(damage)
    assert not resumed(batch)


def test_a_table_that_is_not_the_one_of_its_result_is_made_again(batch, devices, tmp_path):
    shutil.copytree(devices.base / "serial/K-1", tmp_path / "out/K-1")
    shutil.copy(devices.base / "serial/K-2/table.txt", tmp_path / "out/K-1")
    assert not resumed(batch)
    devices.assert_equal_to_serial(tmp_path / "out", ["K-1"])


def test_a_refusal_is_kept_as_well(batch, tmp_path):
    more = "[calibrate]\nunit = 100.0\n"  # no point is left in the depths of the fit
    first, second = (batch("K-1", FAULTY, resume=True, more=more) for _ in range(2))
    assert (first.status, second.status, second.kept) == ("failed", "failed", True)
    assert first.cause.startswith("refused: ")
    assert second.cause == first.cause


def test_an_earlier_result_is_gone_before_a_child_starts(batch, devices, tmp_path):
    # Killed in between, it would be taken for the new one's.
    shutil.copytree(devices.base / "serial/K-1", tmp_path / "out/aborts")
    (tmp_path / "out/aborts/.run.npz.123.0.part").write_text("half a file")
    assert batch("aborts", FAULTY).status == "killed by SIGABRT"
    assert sorted(os.listdir(tmp_path / "out/aborts")) == ["job.json", "log.txt"]


# --- folders --------------------------------------------------------------------------------------------


def test_a_folder_belongs_to_one_batch_at_a_time(tmp_path):
    with Folder(tmp_path) as first:
        with pytest.raises(Stop, match=f"another batch is at work here .process {os.getpid()} on "):
            Folder(tmp_path)
        assert json.loads((tmp_path / ".batch").read_text())["token"] == first.token
    with Folder(tmp_path) as second:
        assert second.token != first.token
