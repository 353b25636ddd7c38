"""Files that come in: what they are, what they hold, and their hashes.

A file is known by its content, so that a table named ``table.txt`` and a cloud named ``cloud.txt``
are told apart. Whatever cannot be read ends the program with the status for it.
"""

from __future__ import annotations

import contextlib
import enum
import hashlib
import os
import zipfile
from collections.abc import Iterator, Sequence
from typing import Any

from numpy.typing import NDArray

from kestrane.errors import FileOpenError, KestraneError
from kestrane_tools.cli.stop import Status, Stop
from kestrane_tools.cli.words import readable

__all__ = ["Kind", "described", "kind_of", "read_clouds", "reading", "sha256_of"]

Clouds = dict[int, NDArray[Any]]


class Kind(enum.Enum):
    """What a file holds."""

    TABLE = "table"
    COEFFICIENTS = "coefficients"
    RUN = "run"
    REPORT = "report"
    CLOUD = "cloud"
    RESULT = "result"


@contextlib.contextmanager
def reading(path: str) -> Iterator[None]:
    """Turn whatever a reader raises into the end of the program, with the file's name.

    Raises
    ------
    Stop
        The file could not be read or is damaged.
    """
    try:
        yield
    except FileOpenError as error:
        raise Stop(Status.FILE, f"{error.filename or path}: {error.strerror or error}") from None
    except (KestraneError, ValueError, LookupError) as error:
        text = str(error)
        raise Stop(Status.FILE, text if path in text else f"{path}: {text}") from None
    except OSError as error:
        raise Stop(Status.FILE, f"{path}: {error.strerror}") from None


def read_clouds(
    paths: Sequence[str], plane: int | None, columns: str | None, unit: float
) -> Clouds:
    """Read the clouds of one device.

    Raises
    ------
    Stop
        A file could not be read or is damaged, a plane is outside 0 to 99, or there is no point.
    """
    from kestrane import clouds

    with reading(paths[0]):
        found = clouds.read(list(paths), plane=plane, columns=columns, unit=unit)
    outside = [number for number in found if not 0 <= number <= 99]
    if outside:
        raise Stop(Status.FILE, f"{paths[0]}: plane {outside[0]}; planes are 0 to 99")
    if not any(cloud.size for cloud in found.values()):
        raise Stop(Status.FILE, f"{paths[0]}: no point")
    return found


def described(paths: Sequence[str], points: int | None = None) -> list[dict[str, Any]]:
    """Names and hashes of inputs, those of a folder one by one.

    Parameters
    ----------
    paths : sequence of str
        Files and folders.
    points : int, optional
        Points of all of them together; told of a single file.
    """
    from kestrane.clouds import SUFFIXES

    files: list[str] = []
    for path in paths:
        if os.path.isdir(path):
            names = sorted(n for n in os.listdir(path) if not n.startswith("."))
            files += [os.path.join(path, n) for n in names if n.lower().endswith(SUFFIXES)]
        else:
            files.append(path)
    entries: list[dict[str, Any]] = [
        {"name": readable(file), "sha256": sha256_of(file)} for file in files
    ]
    if points is not None and len(entries) == 1:
        entries[0]["points"] = points
    return entries


def sha256_of(path: str) -> str:
    """The file's SHA-256, in hexadecimal.

    Raises
    ------
    Stop
        The file could not be read.
    """
    with reading(path), open(path, "rb") as file:
        return hashlib.file_digest(file, "sha256").hexdigest()


def kind_of(path: str) -> Kind:
    """What a file is, by its content.

    Raises
    ------
    Stop
        The file could not be read, or is nothing that is known here.
    """
    if os.path.isdir(path):
        return Kind.CLOUD
    with reading(path), open(path, "rb") as file:
        head = file.read(1 << 16)
    suffix = os.path.splitext(path)[1].lower()
    if head.startswith(b"PK"):
        return _kind_of_archive(path)
    if suffix in (".html", ".htm") or head.lstrip()[:15].lower().startswith(b"<!doctype html"):
        return Kind.REPORT
    if head.lstrip()[:1] == b"{":
        return _kind_of_json(path)
    if head.startswith((b"ply", b"\x93NUMPY", b"# .PCD")) or suffix in (".ply", ".pcd", ".npy"):
        return Kind.CLOUD
    if suffix in (".csv", ".xyz") or _names_columns(head):
        return Kind.CLOUD
    if _begins_a_table(head):
        return Kind.TABLE
    if _begins_coefficients(head):
        return Kind.COEFFICIENTS
    if suffix == ".txt":  # a table that is cut or damaged: its reader tells where
        return Kind.TABLE
    raise Stop(Status.FILE, f"{path}: neither a table, coefficients, a run, a page nor a cloud")


def _kind_of_archive(path: str) -> Kind:
    try:
        with zipfile.ZipFile(path) as archive:
            names = set(archive.namelist())
    except (zipfile.BadZipFile, OSError, ValueError, NotImplementedError) as error:
        raise Stop(Status.FILE, f"{path}: a damaged archive ({error})") from None
    if "meta.json" in names:
        return Kind.RUN
    if "cells.npy" in names:
        return Kind.TABLE
    if "models.npy" in names:
        return Kind.COEFFICIENTS
    return Kind.CLOUD


def _kind_of_json(path: str) -> Kind:
    from kestrane_tools.cli.stored import schema_of

    schema = schema_of(path)
    for kind in (Kind.TABLE, Kind.COEFFICIENTS):
        if schema.startswith(f"kestrane-{kind.value}/"):
            return kind
    return Kind.RESULT


def _names_columns(head: bytes) -> bool:
    # A table of numbers has no letters but those of exponents.
    from kestrane.clouds.columns import ROLES

    for line in head.splitlines()[:200]:
        words = line.decode("latin-1").lower().strip("#/ \t")
        for separator in ",;\t":
            words = words.replace(separator, " ")
        if set("xyz") <= {ROLES.get(word.strip("\"'")) for word in words.split()}:
            return True
    return False


def _begins_a_table(head: bytes) -> bool:
    # One real per line, and depths that ascend from the nearest one on.
    lines = head.split(b"\n")[:52]
    try:
        numbers = [float(line) for line in lines[:50]]
    except ValueError:
        return False
    return len(numbers) >= 3 and numbers[0] < numbers[1] < numbers[2]


def _begins_coefficients(head: bytes) -> bool:
    # Counts of planes, lines and cells, 32 bits each.
    if len(head) < 12:
        return False
    planes, lines, cells = (int.from_bytes(head[k : k + 4], "little") for k in (0, 4, 8))
    return 1 <= planes <= 100 and lines in (0, 16) and cells in (0, 51)


def read_table(path: str) -> Any:
    """Read a plane table in any of its forms, or that of a run: a `kestrane.PlaneTable`.

    Raises
    ------
    Stop
        It could not be read, is damaged, or is not a table.
    """
    from kestrane_tools.cli import stored

    kind = kind_of(path)
    if kind is Kind.RUN:
        return _table_of_run(path)
    if kind is not Kind.TABLE:
        found = "folder" if os.path.isdir(path) else f"{kind.value} file"
        raise Stop(Status.FILE, f"{path}: a table is needed, this is a {found}")
    with reading(path):
        return stored.read_table(path)


def _table_of_run(path: str) -> Any:
    from kestrane_tools import run_file
    from kestrane_tools.results import table_of

    with reading(path):
        run = run_file.read(path)
        if run.table is None:
            raise Stop(Status.FILE, f"{path}: a run without a table")
        table = table_of(run.table)
        if run.factory is not None and run.factory.refined_cells is not None:
            # The refined table is the one that the host got.
            table.cells[...] = run.factory.refined_cells
            table.whole[...] = run.factory.refined_whole
        return table


def read_coefficients(path: str) -> Any:
    """Read coefficients in any of their forms: a `kestrane.Coefficients`.

    Raises
    ------
    Stop
        They could not be read or are damaged.
    """
    from kestrane_tools.cli import stored

    with reading(path):
        return stored.read_coefficients(path)
