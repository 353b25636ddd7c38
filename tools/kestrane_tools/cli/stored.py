"""Tables and coefficients in exact forms: .npz and .json beside the host's own formats.

The host's text table has six digits; an archive of arrays and JSON keep every bit (JSON writes as
many digits as bring the number back). JSON names its schema; an archive is known by its arrays.
"""

from __future__ import annotations

import json
import os
import zipfile
from collections.abc import Mapping
from typing import TYPE_CHECKING, Any

import numpy as np
from numpy.typing import NDArray

from kestrane.errors import DamagedFile, FileOpenError
from kestrane_tools.cli.json_results import plain
from kestrane_tools.cli.stop import Status, Stop

if TYPE_CHECKING:
    import kestrane

__all__ = [
    "read_coefficients",
    "read_table",
    "save_coefficients",
    "save_table",
    "schema_of",
]

_TABLE_SCHEMA = "kestrane-table/1"
_COEFFICIENT_SCHEMA = "kestrane-coefficients/1"
_LARGEST_JSON = 1 << 28

Arrays = dict[str, NDArray[Any]]


def read_table(path: str) -> kestrane.PlaneTable:
    """Read a table: text as hosts keep it, .npz or .json by their content.

    Raises
    ------
    FileOpenError, ValueError
        It could not be opened, is damaged or not a table.
    """
    import kestrane

    arrays = _arrays_of(path, _TABLE_SCHEMA)
    if arrays is None:
        return kestrane.PlaneTable.read(path)
    names = {"cells", "whole", "z", "y_start", "y_step", "z_start", "z_step", "head"}
    _require(arrays, names, path)
    numbers = {name: _scalar(arrays.pop(name), name, path) for name in ("z_start", "z_step")}
    bounds = {name: arrays.pop(name) for name in ("z", "y_start", "y_step")}
    head = arrays.pop("head")
    if not (head == np.rint(head)).all():
        raise DamagedFile(path, "head: whole numbers expected")
    bounds["head"] = head.astype(np.int64)
    for name, array in {**arrays, **bounds}.items():
        _finite(array, name, path)
    grid = kestrane.Grid.of(
        z=bounds["z"],
        y_start=bounds["y_start"],
        y_step=bounds["y_step"],
        z_start=numbers["z_start"],
        z_step=numbers["z_step"],
        head=bounds["head"],
    )
    return kestrane.PlaneTable(arrays["cells"].copy(), arrays["whole"].copy(), grid)


def save_table(table: kestrane.PlaneTable, path: str) -> float | None:
    """Save a table by the suffix of its path.

    Returns
    -------
    float or None
        How far six digits have moved x; None where the form is exact.

    Raises
    ------
    FileOpenError, ValueError
    """
    grid = table.grid
    arrays: Arrays = {
        "cells": table.cells,
        "whole": table.whole,
        "z": grid.z,
        "y_start": grid.y_start,
        "y_step": grid.y_step,
        "z_start": np.array(grid.z_start),
        "z_step": np.array(grid.z_step),
        "head": grid.head,
    }
    if _save_exact(arrays, path, _TABLE_SCHEMA):
        return None
    return table.save(path).largest_move


def read_coefficients(path: str) -> kestrane.Coefficients:
    """Read coefficients: binary as hosts keep them, .npz or .json by their content.

    Raises
    ------
    FileOpenError, ValueError
    """
    import kestrane

    arrays = _arrays_of(path, _COEFFICIENT_SCHEMA)
    if arrays is None:
        return kestrane.Coefficients.read(path)
    _require(arrays, {"models", "ranges", "factory_to_user"}, path)
    models, ranges = arrays["models"], arrays["ranges"]
    # A plane without coefficients has no number at all.
    known = ~np.isnan(models).all(axis=tuple(range(1, models.ndim))) if models.ndim else ()
    _finite(models[known], "models", path)
    _finite(arrays["factory_to_user"], "factory_to_user", path)
    if ranges.size and (ranges.ndim != 2 or not (ranges == np.rint(ranges)).all()):
        raise DamagedFile(path, "ranges: pairs of plane numbers expected")
    return kestrane.Coefficients(
        models.copy(), ranges.astype(np.int64).reshape(-1, 2), arrays["factory_to_user"].copy()
    )


def save_coefficients(coefficients: kestrane.Coefficients, path: str) -> None:
    """Save coefficients by the suffix of the path; every form is exact.

    Raises
    ------
    FileOpenError, ValueError
    """
    arrays: Arrays = {
        "models": coefficients.models,
        "ranges": coefficients.ranges,
        "factory_to_user": coefficients.factory_to_user,
    }
    if not _save_exact(arrays, path, _COEFFICIENT_SCHEMA):
        coefficients.save(path)


def schema_of(path: str) -> str:
    """The schema that a JSON file names; empty where it names none.

    Raises
    ------
    Stop
        The file could not be read.
    """
    try:
        schema = _json(path).get("schema", "")
    except (FileOpenError, ValueError) as error:
        raise Stop(Status.FILE, str(error)) from None
    return schema if isinstance(schema, str) else ""


def _arrays_of(path: str, schema: str) -> Arrays | None:
    # The arrays of an exact form; None for a file of another kind.
    data = _bytes(path)
    if data.startswith(b"PK"):
        from kestrane.clouds.npy import arrays_in

        return arrays_in(data, path)
    if data.lstrip()[:1] != b"{":
        return None
    content = _json(path)
    if content.get("schema") != schema:
        raise DamagedFile(path, f"its schema is not {schema}")
    del content["schema"]
    return {name: _array(value, name, path) for name, value in content.items()}


def _array(value: Any, name: str, path: str) -> NDArray[Any]:
    # null is not a number; texts and truth values are refused although NumPy would take them.
    try:
        kind = np.array(value).dtype.kind
        if np.size(value) and kind not in "ifO":
            raise DamagedFile(path, f"{name}: numbers expected")
        return np.array(value, np.float64)
    except (ValueError, TypeError, OverflowError):
        raise DamagedFile(path, f"{name}: an array of numbers expected") from None


def _bytes(path: str) -> bytes:
    from kestrane_tools.files import read_bytes

    return read_bytes(path)


def _json(path: str) -> dict[str, Any]:
    data = _bytes(path)
    if len(data) > _LARGEST_JSON:
        raise DamagedFile(path, f"{len(data)} bytes of JSON")
    try:
        content = json.loads(data)
    except (ValueError, RecursionError) as error:
        raise DamagedFile(path, f"not JSON: {error}") from None
    if not isinstance(content, dict):
        raise DamagedFile(path, "not a JSON object")
    return content


def _save_exact(arrays: Mapping[str, Any], path: str, schema: str) -> bool:
    suffix = os.path.splitext(path)[1].lower()
    if suffix == ".json":
        from kestrane_tools.files import write_bytes

        lists = {name: plain(np.asarray(array)) for name, array in arrays.items()}
        text = json.dumps({"schema": schema, **lists}, allow_nan=False)
        write_bytes(path, text.encode() + b"\n")
    elif suffix == ".npz":
        from kestrane._output import replacing

        with replacing(path) as file, zipfile.ZipFile(file, "w", zipfile.ZIP_STORED) as archive:
            for name, array in arrays.items():
                # One date for all, so that equal tables make equal files.
                with archive.open(zipfile.ZipInfo(f"{name}.npy"), "w") as member:
                    np.save(member, np.asarray(array), allow_pickle=False)
    else:
        return False
    return True


def _require(arrays: Arrays, names: set[str], path: str) -> None:
    if set(arrays) != names:
        other = sorted(set(arrays) ^ names)
        raise DamagedFile(path, f"its arrays are not those of the format ({', '.join(other[:6])})")


def _scalar(array: NDArray[Any], name: str, path: str) -> float:
    if array.shape != () or array.dtype.kind not in "if" or not np.isfinite(array):
        raise DamagedFile(path, f"{name}: one finite number expected")
    return float(array)


def _finite(array: NDArray[Any], name: str, path: str) -> None:
    if array.dtype.kind not in "if" or not np.isfinite(array).all():
        raise DamagedFile(path, f"{name}: a number that is not finite")
