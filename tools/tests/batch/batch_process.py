"""A batch with a child that copies: batch_process.py PLAN OUTPUT SERIAL RESUME.

As a child it is called with the job's file, and copies what a serial calibration left of the device,
with pauses in which it can be killed, result.json last. SERIAL is in the environment then.
"""

from __future__ import annotations

import os
import sys
import time
from pathlib import Path

PAUSE = 0.008


def copy(job: Path) -> int:
    from kestrane_tools.batch.child import _die_with

    _die_with(int(sys.argv[3]))
    with open(job.parents[1] / "starts.txt", "a") as starts:
        starts.write(f"{job.parent.name}\n")
    for name in ("table.txt", "run.npz", "report.html", "result.json"):
        content = (Path(os.environ["SERIAL"]) / job.parent.name / name).read_bytes()
        beside = job.parent / f".{name}.{os.getpid()}.0.part"
        with open(beside, "wb") as file:
            file.write(content[: len(content) // 2])
            file.flush()
            time.sleep(PAUSE)
            file.write(content[len(content) // 2 :])
        time.sleep(PAUSE)
        beside.rename(job.parent / name)
        time.sleep(PAUSE)
    return 0


def batch(plan: str, output: str, serial: str, resume: bool) -> int:
    from dataclasses import replace

    from kestrane_tools.batch import scheduler
    from kestrane_tools.batch.folder import Folder
    from kestrane_tools.batch.plan import read_plan
    from kestrane_tools.cli.batch import orders_of

    os.environ["SERIAL"] = serial
    scheduler.has_engine = lambda: False  # threads begin at once; Dask has tests of its own
    read = read_plan(plan, [], output)
    with Folder(output) as folder:
        orders = replace(orders_of(read, folder, resume=resume), child=(sys.executable, __file__))
        for outcome in scheduler.outcomes(read.jobs, orders, folder, workers=2):
            print(outcome.status)
    return 0


if __name__ == "__main__":
    if "--watcher" in sys.argv:
        sys.exit(copy(Path(sys.argv[1])))
    sys.exit(batch(*sys.argv[1:4], sys.argv[4] == "1"))
