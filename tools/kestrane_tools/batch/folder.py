"""One batch at a time in a folder, and a sign by which children see that theirs still runs.

A file in the folder is locked for the life of the process that runs the batch, and holds the batch's
token. The lock goes with the process, whatever ends it; the token is taken out when a batch ends, or
is replaced by that of the next one, and whoever watches a child of the former one stops it then.
"""

from __future__ import annotations

import fcntl
import json
import os
import secrets
import socket
from types import TracebackType

from kestrane_tools.cli.stop import Status, Stop

__all__ = ["NAME", "Folder", "is_at_work"]

NAME = ".batch"


class Folder:
    """The folder of a batch, held until the end of the block.

    Attributes
    ----------
    path : str
        Its absolute path.
    lock : str
        The file with the token.
    token : str
        Names this batch and no other.

    Raises
    ------
    Stop
        Another batch is at work in it, or the file cannot be made.
    """

    def __init__(self, path: str) -> None:
        self.path = os.path.abspath(path)
        self.lock = os.path.join(self.path, NAME)
        self.token = secrets.token_hex(8)
        try:
            self._number = os.open(self.lock, os.O_RDWR | os.O_CREAT | os.O_CLOEXEC, 0o666)
        except OSError as error:
            raise Stop(Status.FILE, f"{self.lock}: {error.strerror}") from None
        try:
            fcntl.flock(self._number, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            who = _holder(self.lock)
            os.close(self._number)
            raise Stop(Status.FILE, f"{path}: another batch is at work here{who}") from None
        except OSError as error:
            os.close(self._number)
            raise Stop(
                Status.FILE, f"{path}: no locks on this file system: {error.strerror}"
            ) from None
        self._write({"token": self.token, "host": socket.gethostname(), "process": os.getpid()})

    def stop(self) -> None:
        """Have all children stopped; to be called more than once."""
        os.ftruncate(self._number, 0)

    def __enter__(self) -> Folder:
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        value: BaseException | None,
        trace: TracebackType | None,
    ) -> None:
        self.stop()
        os.close(self._number)

    def _write(self, content: dict[str, object]) -> None:
        os.ftruncate(self._number, 0)
        os.pwrite(self._number, json.dumps(content).encode(), 0)


def is_at_work(lock: str, token: str) -> bool:
    """Whether the batch of this token still runs, as far as its folder tells."""
    try:
        with open(lock, "rb") as file:
            return token.encode() in file.read()
    except FileNotFoundError:
        return False  # somebody has removed the folder
    except OSError:
        return True  # a file server that is away for a moment tells nothing


def _holder(lock: str) -> str:
    try:
        with open(lock, "rb") as file:
            found = json.load(file)
        return f" (process {int(found['process'])} on {found['host']})"
    except (OSError, ValueError, LookupError, TypeError):
        return ""
