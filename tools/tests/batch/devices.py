"""Small devices, what serial calibrations make of them, and processes that are looked for."""

from __future__ import annotations

import json
import os
import sys
import time
from dataclasses import dataclass, replace
from pathlib import Path

from kestrane_tools.batch.folder import Folder
from kestrane_tools.batch.plan import read_plan
from kestrane_tools.cli.batch import orders_of

HERE = Path(__file__).parent
COMMAND = [sys.executable, "-m", "kestrane_tools.cli"]
GOOD = ["K-1", "K-2", "K-3", "K-4", "K-5"]
# What has to be equal to the bit; the page and result.json tell the time of their making as well.
EXACT = ("table.txt", "run.npz")


@dataclass(frozen=True)
class Devices:
    """Clouds below `base`/clouds, serial results below `base`/serial."""

    base: Path

    def plan(self, path: Path, names: list[str], more: str = "") -> str:
        """Write a plan of devices by these names; one that has no clouds gets those of K-1."""
        text = [more]
        for name in names:
            cloud = self.base / "clouds" / f"{name}.npz"
            if not cloud.exists():
                cloud = self.base / "clouds" / "K-1.npz"
            text.append(f"[[device]]\nname = {json.dumps(name)}\nclouds = [{json.dumps(str(cloud))}]\n")
        path.write_text("\n".join(text))
        return str(path)

    def orders(self, plan_path: str, folder: Folder, *child: str, **limits):
        """The jobs of a plan and the orders for them, with another child where one is given."""
        plan = read_plan(plan_path, [], folder.path)
        orders = orders_of(plan, folder, **limits)
        return plan.jobs, replace(orders, child=(sys.executable, *child)) if child else orders

    def assert_equal_to_serial(self, output: Path, names: list[str]) -> None:
        for name in names:
            for file in EXACT:
                ours, serial = output / name / file, self.base / "serial" / name / file
                assert contents(ours) == contents(serial), (name, file)


def contents(path: Path):
    """The bytes of a file; of a run those of its arrays, as its head tells when it was made."""
    if path.suffix != ".npz":
        return path.read_bytes()
    import zipfile

    with zipfile.ZipFile(path) as archive:
        names = [name for name in archive.namelist() if name.endswith(".npy")]
        return {name: archive.read(name) for name in names}


def running(folder: Path) -> dict[int, int]:
    """Process number -> that of its parent, of the children at work below a folder."""
    found = {}
    for entry in Path("/proc").iterdir():
        if not entry.name.isdigit():
            continue
        try:
            words = (entry / "cmdline").read_bytes().split(b"\0")
            status = (entry / "stat").read_text().rpartition(")")[2].split()
        except OSError:
            continue
        mine = any(w.startswith(os.fsencode(folder)) and w.endswith(b"job.json") for w in words)
        if mine and status[0] != "Z":
            found[int(entry.name)] = int(status[1])
    return found


def wait_for(condition, seconds=30.0):
    """Wait until something holds, and return it; it is an error if that takes too long."""
    end = time.monotonic() + seconds
    while True:
        found = condition()
        if found:
            return found
        assert time.monotonic() < end, "waited too long"
        time.sleep(0.005)
