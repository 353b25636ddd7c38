"""What programs read: results as JSON.

Numbers that are not determined, and infinite ones, are null: JSON has neither. All text is ASCII,
whatever the locale is.
"""

from __future__ import annotations

import dataclasses
import datetime
import json
import math
import os
import sys
from typing import Any

import numpy as np

from kestrane.errors import FileOpenError
from kestrane_tools.cli.stop import Status, Stop
from kestrane_tools.files import write_bytes

__all__ = ["created", "emit", "plain", "software", "write", "write_json"]


def plain(value: Any) -> Any:
    """The value as JSON holds it: arrays as lists, dataclasses as objects, not-a-number as null."""
    if isinstance(value, np.ndarray):
        return plain(value.tolist())
    if isinstance(value, np.generic):
        return plain(value.item())
    if isinstance(value, float):
        return value if math.isfinite(value) else None
    if dataclasses.is_dataclass(value) and not isinstance(value, type):
        return {f.name: plain(getattr(value, f.name)) for f in dataclasses.fields(value)}
    if isinstance(value, dict):
        return {str(key): plain(entry) for key, entry in value.items()}
    if isinstance(value, (list, tuple)):
        return [plain(entry) for entry in value]
    return value


def write_json(path: str | os.PathLike[str], result: dict[str, Any]) -> None:
    """Write a result to a file.

    Raises
    ------
    Stop
        The file could not be written.
    """
    write(path, _encoded(result))


def write(path: str | os.PathLike[str], data: bytes) -> None:
    """Write a whole file.

    Raises
    ------
    Stop
        The file could not be written.
    """
    try:
        write_bytes(path, data)
    except FileOpenError as error:
        raise Stop(Status.FILE, f"{error.filename}: {error.strerror}") from None


def emit(target: str | None, result: dict[str, Any]) -> None:
    """Write a result to where `--json` points: a file, ``-`` for standard output, or nowhere."""
    if target == "-":
        sys.stdout.write(_encoded(result).decode())
        sys.stdout.flush()
    elif target is not None:
        write_json(target, result)


def _encoded(result: dict[str, Any]) -> bytes:
    return (json.dumps(plain(result), indent=1, allow_nan=False) + "\n").encode()


def software() -> dict[str, str]:
    """Name and version of what made a result."""
    from kestrane import __version__

    return {"name": "kestrane", "version": __version__}


def created() -> str:
    """Now, with the zone: SOURCE_DATE_EPOCH where it is set, so that a run can be repeated."""
    epoch = os.environ.get("SOURCE_DATE_EPOCH", "")
    if epoch.isascii() and epoch.isdigit():
        return datetime.datetime.fromtimestamp(int(epoch), datetime.timezone.utc).isoformat()
    return datetime.datetime.now().astimezone().isoformat(timespec="seconds")
