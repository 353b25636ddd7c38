"""Batches that are killed: nothing stays behind, and what was done is not done again."""

import os
import random
import signal
import subprocess
import sys
import time
from collections import Counter
from pathlib import Path

import pytest
from devices import COMMAND, EXACT, GOOD, HERE, running, wait_for

KILLS = 20


def starts(output: Path) -> list[str]:
    path = output / "starts.txt"
    return path.read_text().split() if path.exists() else []


def whole(output: Path) -> set[str]:
    return {path.parent.name for path in output.glob("*/result.json")}


def test_killed_at_any_moment_and_resumed_each_device_is_done_once_more_at_most(devices, tmp_path):
    # The child leaves, in steps, what the command left of the same device; random moments of a
    # batch of five such children fall into all of them.
    draw = random.Random(20)
    names = GOOD[:5]
    plan = devices.plan(tmp_path / "plan.toml", names)
    unfinished = 0
    for kill in range(KILLS):
        output = tmp_path / f"out-{kill}"
        output.mkdir()
        command = [sys.executable, HERE / "batch_process.py", plan, output, devices.base / "serial"]
        process = subprocess.Popen([*command, "0"], start_new_session=True)
        wait_for(lambda: (output / ".batch").exists() or process.poll() is not None)
        time.sleep(draw.uniform(0.0, 0.4))
        process.kill()
        process.wait()
        wait_for(lambda: not running(output))
        before, kept = starts(output), whole(output)
        unfinished += len(kept) < len(names)
        again = subprocess.run([*command, "1"], capture_output=True, text=True, check=True)
        assert again.stdout.split() == ["ok"] * len(names)
        after = Counter(starts(output)[len(before) :])
        assert after == {name: 1 for name in names if name not in kept}, kill
        for name in names:
            for file in (*EXACT, "report.html", "result.json"):
                serial = devices.base / "serial" / name / file
                assert (output / name / file).read_bytes() == serial.read_bytes()
            assert sorted(os.listdir(output / name)) == sorted(
                [*EXACT, "report.html", "result.json", "job.json", "log.txt"]
            )
    assert unfinished > KILLS // 2  # else the moments were too late to tell anything


@pytest.fixture
def begun(devices, tmp_path):
    """A batch in mid-run: its process, its folder and the command line."""
    output = tmp_path / "out"
    plan = devices.plan(tmp_path / "plan.toml", GOOD)
    command = [*COMMAND, "--quiet", "batch", plan, "-o", output]
    process = subprocess.Popen(command, start_new_session=True, stderr=subprocess.PIPE)
    wait_for(lambda: running(output) and whole(output))
    yield process, output, command
    process.kill()
    process.wait()
    process.stderr.close()


def test_an_interrupt_from_the_terminal_leaves_no_child_and_says_one_line(begun):
    process, output, _ = begun
    os.killpg(process.pid, signal.SIGINT)  # every process of the terminal's group gets it
    _, said = process.communicate(timeout=30)
    assert (process.returncode, said) == (130, b"kestrane: interrupted\n")
    assert running(output) == {}
    assert whole(output) < set(GOOD)  # nobody waited for the others


def test_an_interrupt_leaves_no_child_without_the_engine_either(devices, tmp_path, without_engine):
    output = tmp_path / "out"
    plan = devices.plan(tmp_path / "plan.toml", GOOD)
    command = [*COMMAND, "batch", plan, "-o", output]
    process = subprocess.Popen(
        command, stderr=subprocess.PIPE, stdout=subprocess.DEVNULL, env={**os.environ, **without_engine}
    )
    wait_for(lambda: running(output))
    process.send_signal(signal.SIGINT)
    _, said = process.communicate(timeout=30)
    assert process.returncode == 130
    assert said.splitlines()[-1] == b"kestrane: interrupted"
    assert running(output) == {}
    assert whole(output) < set(GOOD)


def test_a_batch_that_is_killed_leaves_no_child_and_is_resumed(begun, devices):
    process, output, command = begun
    process.kill()
    process.wait()
    wait_for(lambda: not running(output))
    times = {name: (output / name / "result.json").stat().st_mtime_ns for name in whole(output)}
    assert times
    done = subprocess.run([*command, "--resume"], capture_output=True, text=True, check=False)
    assert done.returncode == 0, done.stderr
    devices.assert_equal_to_serial(output, GOOD)
    for name, mtime in times.items():
        assert (output / name / "result.json").stat().st_mtime_ns == mtime
