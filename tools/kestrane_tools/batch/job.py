"""What goes to whoever watches a child, and what comes back."""

from __future__ import annotations

from dataclasses import dataclass, field
from typing import Any

__all__ = ["FAILED", "KILLED", "LIMITS", "LOST", "OK", "OUT_OF_MEMORY", "STOPPED", "TIMEOUT"]
__all__ += ["Job", "Orders", "Outcome"]

OK = "ok"
LIMITS = "limits"  # done, but the verdict is bad
FAILED = "failed"
KILLED = "killed by "  # and the name of the signal
TIMEOUT = "timeout"
OUT_OF_MEMORY = "out of memory"
STOPPED = "stopped"  # the batch ended before the device
LOST = "lost"  # whoever watched the child is gone, again and again


@dataclass(frozen=True)
class Job:
    """One device.

    Attributes
    ----------
    name : str
        Its name, which is that of its folder too.
    folder : str
        The absolute path of that folder.
    clouds : tuple of str
        Files or folders with its clouds, relative to the plan's folder or absolute.
    limits, device : str or None
        Its limits.toml and device.toml, likewise.
    """

    name: str
    folder: str
    clouds: tuple[str, ...]
    limits: str | None = None
    device: str | None = None


@dataclass(frozen=True)
class Orders:
    """What holds for all devices of a batch.

    Attributes
    ----------
    base : str
        The plan's folder, absolute: the working folder of the children.
    options : tuple of str
        Options of `kestrane calibrate`.
    settings : dict
        The settings that `result.json` has to tell to be one of this batch.
    far : bool
        The depth band of the fits, on which the judged volume depends.
    version : str
        Of the software; a worker with another one refuses.
    seconds : float
        After these a child is ended.
    memory : int
        Bytes of address space that a child may have.
    retries : int
        How often a device is begun again whose child was killed by a signal.
    resume : bool
        Leave a device alone whose result is there and was made of the same files and settings.
    lock, token : str
        The file that names the batch which works in the folder, and the name of this one: children
        are stopped when the file names another one, or none.
    child : tuple of str
        The program that does one job; the path of the job's file and its watcher follow.
    """

    base: str
    options: tuple[str, ...]
    settings: dict[str, Any]
    far: bool
    version: str
    seconds: float
    memory: int
    retries: int
    resume: bool
    lock: str
    token: str
    child: tuple[str, ...]


@dataclass(frozen=True, slots=True)
class Outcome:
    """How it went with one device.

    Attributes
    ----------
    name : str
        The device's.
    status : str
        One of the words above.
    cause : str
        Why it is not ok, in one line; empty where the findings tell.
    verdict : str
        Of the result; empty without one.
    finding : str
        The worst finding that is not ok; empty without one.
    level : str
        Its level: "bad", "warn" or "note".
    seconds : float or None
        From the start of the child to its end; None where an earlier result was kept.
    planes, points : int or None
        Measured planes and their points.
    rms : float or None
        Of all residuals.
    files : tuple of str
        What there is to look at in the device's folder.
    """

    name: str
    status: str
    cause: str = ""
    verdict: str = ""
    finding: str = ""
    level: str = ""
    seconds: float | None = None
    planes: int | None = None
    points: int | None = None
    rms: float | None = None
    files: tuple[str, ...] = field(default=())

    @property
    def kept(self) -> bool:
        """Whether an earlier result was kept."""
        return self.seconds is None and self.status not in (LOST, STOPPED)
