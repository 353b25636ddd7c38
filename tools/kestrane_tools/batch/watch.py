"""Starts the child of a device, ends it where it has to, and says how it went.

In goes a `Job` with the `Orders` of its batch; out comes an `Outcome`. Nothing is raised, whatever
happens to the device: the caller may be a worker on another machine, with other devices waiting.

All of a child's output goes to log.txt in the device's folder. The log is locked as long as the child
lives, so that two children are never at work in one folder, not even where a worker was given up
that was merely slow. An earlier result is removed before a child starts, and result.json is written
last: where it stands, all the other files belong to it.
"""

from __future__ import annotations

import contextlib
import fcntl
import glob
import json
import os
import re
import signal
import subprocess
import time
from typing import Any

from kestrane_tools.batch.folder import is_at_work
from kestrane_tools.batch.job import (
    FAILED,
    KILLED,
    LIMITS,
    OK,
    OUT_OF_MEMORY,
    STOPPED,
    TIMEOUT,
    Job,
    Orders,
    Outcome,
)
from kestrane_tools.cli.stop import Status, Stop

__all__ = ["watch"]

# Seconds between two looks whether the batch still runs.
_LOOK = 0.5
# Of a log, what its last words stand in: a failed import of NumPy takes a hundred lines to say.
_TAIL = 32768
_LONGEST_CAUSE = 500
# Left by an earlier run; result.json comes first, so that nothing else is ever taken for its own.
_RESULTS = ("result.json", "table.txt", "run.npz", "report.html")
_SHOWN = ("report.html", "result.json", "log.txt")
# How the interpreter, the linker, the system and the library say that memory is used up.
_NO_MEMORY = re.compile(
    r"(not enough memory|out of memory|Cannot allocate memory|std::bad_alloc'?"
    r"|failed to map segment from shared object|can't start new thread"
    r"|cannot allocate memory for thread-local data: ABORT)$"
    r"|MemoryError\b",
    re.MULTILINE,
)


def watch(job: Job, orders: Orders) -> Outcome:
    """Calibrate a device in a process of its own, unless its result is there already."""
    try:
        if not is_at_work(orders.lock, orders.token):
            return Outcome(job.name, STOPPED)
        if orders.resume:
            kept = _earlier(job, orders)
            if kept is not None:
                return kept
        os.makedirs(job.folder, exist_ok=True)
        return _tried(job, orders)
    except Exception as error:  # pylint: disable=broad-exception-caught # no device takes another along
        return Outcome(job.name, FAILED, _shortened(f"{type(error).__name__}: {error}"))


# --- an earlier result ----------------------------------------------------------------------------


def _earlier(job: Job, orders: Orders) -> Outcome | None:
    result = _result(job)
    if result is None or not _is_same(result, job, orders):
        return None
    status = FAILED
    if result["outputs"]:
        status = LIMITS if any(f["level"] == "bad" for f in result["findings"]) else OK
    return _outcome(job, status, "" if status != FAILED else _refusal(result), None, result)


def _is_same(result: dict[str, Any], job: Job, orders: Orders) -> bool:
    # Whether the same calibration would come out, of the same software, files and settings.
    from kestrane_tools.cli.inputs import described, sha256_of
    from kestrane_tools.cli.json_results import plain
    from kestrane_tools.cli.settings import bounds_of
    from kestrane_tools.cli.toml_files import Limits, read_device, read_limits

    def there(path: str) -> str:
        return os.path.join(orders.base, path)

    try:
        limits = read_limits(there(job.limits)) if job.limits else Limits()
        device = read_device(there(job.device)) if job.device else {}
        *depth, half_angle = bounds_of(limits, far=orders.far)
        asked = {
            "kind": "factory",
            "settings": orders.settings,
            "limits": limits.limits,
            "volume": {"depth": depth, "half_angle_deg": half_angle},
            "device_file": device,
            "difference": None,
        }
        if any(result[key] != plain(value) for key, value in asked.items()):
            return False
        if result["software"]["version"] != orders.version:
            return False
        inputs = described([there(path) for path in job.clouds])
        if [e["sha256"] for e in result["inputs"]] != [e["sha256"] for e in inputs]:
            return False
        if result["outputs"] and not all(_is_there(job, name) for name in _RESULTS):
            return False
        return all(
            sha256_of(os.path.join(job.folder, e["name"])) == e["sha256"] for e in result["outputs"]
        )
    except (Stop, LookupError, TypeError):
        return False  # something cannot be read, which the child tells better


def _refusal(result: dict[str, Any]) -> str:
    if result["refused"]:
        return f"refused: {result['refused']}"
    failed = [f"plane {p['plane']}: {p['reason']}" for p in result["planes"] if p["reason"]]
    return _shortened("no table: " + ", ".join(failed))


# --- a child --------------------------------------------------------------------------------------


def _tried(job: Job, orders: Orders) -> Outcome:
    with open(os.path.join(job.folder, "log.txt"), "ab", buffering=0) as log:
        if not _lock(log.fileno(), orders):
            return Outcome(job.name, FAILED, "another process is at work in the device's folder")
        log.truncate(0)
        begun = time.monotonic()
        for _ in range(orders.retries + 1):
            _clear(job)
            _write_job(job, orders)
            status, code = _run(job, orders, log.fileno())
            if not status.startswith(KILLED):
                break
        return _judged(job, status, code, time.monotonic() - begun)


def _lock(log: int, orders: Orders) -> bool:
    end = time.monotonic() + orders.seconds
    while True:
        try:
            fcntl.flock(log, fcntl.LOCK_EX | fcntl.LOCK_NB)
            return True
        except BlockingIOError:
            if time.monotonic() > end or not is_at_work(orders.lock, orders.token):
                return False
            time.sleep(0.1)


def _clear(job: Job) -> None:
    for name in _RESULTS:
        with contextlib.suppress(FileNotFoundError):
            os.unlink(os.path.join(job.folder, name))
    # What a child was writing when it was killed.
    for path in glob.glob(os.path.join(glob.escape(job.folder), ".*.part")):
        os.unlink(path)


def _write_job(job: Job, orders: Orders) -> None:
    from kestrane_tools.files import write_bytes

    judging = [f"--limits={job.limits}"] if job.limits else []
    judging += [f"--device={job.device}"] if job.device else []
    content = {
        "version": orders.version,
        "base": orders.base,
        "memory": orders.memory,
        "arguments": [*orders.options, *judging, "-o", job.folder, "--", *job.clouds],
    }
    write_bytes(os.path.join(job.folder, "job.json"), json.dumps(content, indent=1).encode())


def _run(job: Job, orders: Orders, log: int) -> tuple[str, int]:
    """Status and exit status of the child; the status is empty where it ended by itself."""
    end = time.monotonic() + orders.seconds
    process = subprocess.Popen(
        [*orders.child, os.path.join(job.folder, "job.json"), "--watcher", str(os.getpid())],
        stdin=subprocess.DEVNULL,
        stdout=log,
        stderr=log,
        start_new_session=True,
        env=_environment(),
    )
    try:
        while True:
            left = end - time.monotonic()
            try:
                code = process.wait(max(0.0, min(left, _LOOK)))
                return (KILLED + _signal(-code) if code < 0 else ""), code
            except subprocess.TimeoutExpired:
                if left <= _LOOK:
                    return TIMEOUT, 0
                if not is_at_work(orders.lock, orders.token):
                    return STOPPED, 0
    finally:
        if process.returncode is None:
            os.killpg(process.pid, signal.SIGKILL)  # its session's, as it has one of its own
            process.wait()


def _environment() -> dict[str, str]:
    # Threads of libraries of linear algebra, of which nothing here makes use, would reserve address
    # space for each processor of the machine. And Dask has its workers give back memory at once,
    # which costs a calibration a tenth of its time.
    environment = {**os.environ, "OPENBLAS_NUM_THREADS": "1", "OMP_NUM_THREADS": "1"}
    environment.pop("MALLOC_TRIM_THRESHOLD_", None)
    return environment


def _signal(number: int) -> str:
    try:
        return signal.Signals(number).name
    except ValueError:
        return f"signal {number}"


# --- how it went ----------------------------------------------------------------------------------


def _judged(job: Job, status: str, code: int, seconds: float) -> Outcome:
    result = _result(job) if not status else None
    last, no_memory = _said(job)
    if status in (TIMEOUT, STOPPED):
        cause = f"ended after {seconds:.0f} s" if status == TIMEOUT else ""
    elif result is not None and code in (Status.DONE, Status.FOUND):
        status, cause = (OK, "") if code == Status.DONE else (LIMITS, "")
    elif no_memory:
        status, cause = OUT_OF_MEMORY, last
    else:
        cause = last or f"exit status {code} and nothing said"
        if not status:
            status = FAILED
        elif not last:
            cause = ""
    return _outcome(job, status, cause, seconds, result)


def _said(job: Job) -> tuple[str, bool]:
    # The last line that the child wrote, and whether any of those before it says "no memory".
    with open(os.path.join(job.folder, "log.txt"), "rb") as log:
        log.seek(max(0, os.fstat(log.fileno()).st_size - _TAIL))
        lines = log.read().decode("utf-8", "backslashreplace").splitlines()
    lines = [line.strip() for line in lines if line.strip()]
    last = lines[-1].removeprefix("kestrane: ") if lines else ""
    return _shortened(last), _NO_MEMORY.search("\n".join(lines)) is not None


def _shortened(text: str) -> str:
    from kestrane_tools.cli.words import printable

    text = printable(text.replace("\n", " "))
    return text if len(text) <= _LONGEST_CAUSE else text[: _LONGEST_CAUSE - 4] + " ..."


def _outcome(
    job: Job, status: str, cause: str, seconds: float | None, result: dict[str, Any] | None
) -> Outcome:
    files = tuple(name for name in _SHOWN if _is_there(job, name))
    if result is None:
        return Outcome(job.name, status, cause, seconds=seconds, files=files)
    worst = _worst(result["findings"])
    measured = [plane for plane in result["planes"] if plane["points"]]
    return Outcome(
        job.name,
        status,
        cause,
        verdict=result["verdict"],
        finding=_shortened(f"{worst['id']}: {worst['text']}") if worst else "",
        level=worst["level"] if worst else "",
        seconds=seconds,
        planes=len(measured),
        points=sum(plane["points"] for plane in measured),
        rms=result["device"]["rms"],
        files=files,
    )


def _worst(findings: list[dict[str, Any]]) -> dict[str, Any] | None:
    for level in ("bad", "warn", "note"):
        for finding in findings:
            if finding["level"] == level:
                return finding
    return None


def _is_there(job: Job, name: str) -> bool:
    return os.path.isfile(os.path.join(job.folder, name))


def _result(job: Job) -> dict[str, Any] | None:
    try:
        with open(os.path.join(job.folder, "result.json"), "rb") as file:
            result = json.load(file)
    except (OSError, ValueError, RecursionError):
        return None
    return result if isinstance(result, dict) else None
