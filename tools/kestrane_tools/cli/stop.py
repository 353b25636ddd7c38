"""How a sub-command ends before its end."""

from __future__ import annotations

import enum

__all__ = ["Status", "Stop"]


class Status(enum.IntEnum):
    """Exit statuses."""

    DONE = 0
    FOUND = 1  # done, but a finding is bad, or there is a difference
    USAGE = 2
    FILE = 3  # a file could not be read or written, or is damaged
    FAILED = 4  # a calibration failed, or its input was refused
    INTERNAL = 70  # a mistake in this program
    INTERRUPTED = 130


class Stop(Exception):
    """Ends the program with a status and a message on standard error."""

    def __init__(self, status: Status, message: str) -> None:
        super().__init__(message)
        self.status = status
