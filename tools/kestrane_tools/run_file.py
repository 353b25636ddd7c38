"""The run file: all that one run of the tools found, exact, in one .npz file.

In go the results of `kestrane.calibrate_factory`, `calibrate_field`, `compare` or of a compensation
over temperature; out comes a file from which the report page is drawn again and, by
`kestrane_tools.results`, a verdict is passed again, without the clouds. Nothing here computes a
figure.

A `Run` has a part for each kind of result, None where there is none. A run with a factory and a
field part is a device's life on one page. Lengths are in the unit of the points, shares 0 to 1; what
is not determined is not a number. Shapes are checked when a part is made, so that whoever draws it
may trust them: P planes, N capture frames of all planes, K bins, L lists of field frames, M frames
that were dropped, T temperatures.
"""

from __future__ import annotations

import io
import json
import os
import zipfile
import zlib
from dataclasses import dataclass, field, fields
from typing import Any

import numpy as np
from numpy.lib.format import read_array
from numpy.typing import NDArray

from kestrane.errors import DamagedFile
from kestrane.quality import Limits
from kestrane_tools.files import read_bytes, write_bytes

__all__ = [
    "SCHEMA",
    "CompensationPart",
    "DifferencePart",
    "FactoryPart",
    "FieldPart",
    "Run",
    "TablePart",
    "read",
]

SCHEMA = "kestrane-run/1"

Array = NDArray[Any]

_LARGEST = 1 << 30  # bytes of one array: a header beyond it is damage, not data
_LINES, _CELLS = 15, 50
_CORNERS = (_LINES + 1, _CELLS + 1)
_BLOCKS = (_LINES, _CELLS)


def _array(dtype: str, *shape: int | str, optional: bool = False) -> Any:
    metadata = {"dtype": dtype, "shape": shape, "optional": optional}
    return field(default=None, metadata=metadata) if optional else field(metadata=metadata)


def _number() -> Any:
    return _array("f8")


def _count() -> Any:
    return _array("i8")


def _flag() -> Any:
    return _array("?")


def _text() -> Any:
    return field(default="", metadata={"dtype": "U", "shape": (), "optional": False})


class _Part:
    """Brings each field to its dtype and holds it against its shape."""

    def __post_init__(self) -> None:
        sizes: dict[str, int] = {}
        for item in fields(self):
            value = getattr(self, item.name)
            if value is None and item.metadata["optional"]:
                continue
            array = _as_array(item.name, value, item.metadata["dtype"])
            _check_shape(item.name, array, item.metadata["shape"], sizes)
            object.__setattr__(self, item.name, array if item.metadata["shape"] else array.item())


def _as_array(name: str, value: Any, dtype: str) -> Array:
    array = np.asarray(value)
    if array.dtype.kind not in {"f8": "fiu", "U": "U", "?": "b"}.get(dtype, "iub"):
        if array.size or dtype == "U":
            raise ValueError(f"{name}: {array.dtype} does not fit {np.dtype(dtype).name}")
    return np.ascontiguousarray(array, dtype) if array.ndim else array.astype(dtype)


def _check_shape(
    name: str, array: Array, shape: tuple[int | str, ...], sizes: dict[str, int]
) -> None:
    fits = array.ndim == len(shape)
    for length, wanted in zip(array.shape, shape):
        size = sizes.setdefault(wanted, length) if isinstance(wanted, str) else wanted
        fits = fits and length == size
    if not fits:
        wanted_shape = tuple(sizes.get(w, w) if isinstance(w, str) else w for w in shape)
        raise ValueError(f"{name}: shape {array.shape} instead of {wanted_shape}")


@dataclass(frozen=True, eq=False, kw_only=True)
class TablePart(_Part):
    """A plane table: what the figures of the other parts were measured against."""

    cells: Array = _array("f8", "P", *_BLOCKS, 3)  # a x + b y + c z + 1 = 0; a == 0: empty
    whole: Array = _array("f8", "P", 3)
    z: Array = _array("f8", 51)  # bounds of the blocks, as in the grid record
    y_start: Array = _array("f8", 51)
    y_step: Array = _array("f8", 51)
    z_start: float = _number()
    z_step: float = _number()
    head: Array = _array("i4", 4)


@dataclass(frozen=True, eq=False, kw_only=True)
class FactoryPart(_Part):
    """A factory calibration. A failed plane has its status and reason, and NaN or 0 elsewhere."""

    refused: str = _text()  # why no plane could be calibrated

    # What was asked for
    asked_far: bool = _flag()
    asked_optimise: bool = _flag()
    asked_screen: bool = _flag()
    asked_gross: float = _number()
    asked_repeatability: bool = _flag()
    asked_refine: int = _count()  # 0 none, 1 an estimate, 2 all planes
    volume: Array = _array("f8", 3)  # nearest and farthest depth, half angle in degrees

    # Planes: what went in
    status: Array = _array("i4", "P")
    reason: Array = _array("U", "P")  # why there is no plane; empty for a calibrated one
    points: Array = _array("i8", "P")  # as measured
    kept: Array = _array("i8", "P")  # left after screening
    not_finite: Array = _array("i8", "P")
    depth: Array = _array("i8", "P")
    gross: Array = _array("i8", "P")

    # Planes: figures
    used: Array = _array("i8", "P")  # points of the residual figures, without outliers
    rms: Array = _array("f8", "P")
    bias: Array = _array("f8", "P")
    q95: Array = _array("f8", "P")
    q99: Array = _array("f8", "P")
    max: Array = _array("f8", "P")
    median: Array = _array("f8", "P")
    sigma: Array = _array("f8", "P")
    valid: Array = _array("i8", "P")
    outliers: Array = _array("i8", "P")
    coverage: Array = _array("f8", "P")
    borrowed_in_volume: Array = _array("?", "P")
    seam: Array = _array("f8", "P")
    median_seam: Array = _array("f8", "P")
    repeatability: Array = _array("f8", "P")
    within_poses: Array = _array("f8", "P")
    between_poses: Array = _array("f8", "P")

    # Planes: optimisation, NaN and 0 where it was off
    largest_move: Array = _array("f8", "P")
    at_bound: Array = _array("i4", "P")
    rms_without: Array = _array("f8", "P")
    median_seam_without: Array = _array("f8", "P")

    # Planes: refinement
    refinement: Array = _array("?", "P")  # whether its gain was measured
    refinement_refused: Array = _array("U", "P")
    refinement_plane_only: Array = _array("?", "P")
    refined_rms: Array = _array("f8", "P")
    plain_rms: Array = _array("f8", "P")

    # Blocks
    block_points: Array = _array("i8", "P", *_BLOCKS)
    block_rms: Array = _array("f8", "P", *_BLOCKS)
    block_bias: Array = _array("f8", "P", *_BLOCKS)
    block_q95: Array = _array("f8", "P", *_BLOCKS)
    block_q99: Array = _array("f8", "P", *_BLOCKS)
    block_max: Array = _array("f8", "P", *_BLOCKS)
    block_seam: Array = _array("f8", "P", *_BLOCKS)
    block_repeatability: Array = _array("f8", "P", *_BLOCKS)
    block_origin: Array = _array(
        "u1", "P", *_BLOCKS
    )  # 0 measured 1 thin 2 extended 3 borrowed 4 empty

    # What the job hands out
    indicators: Array = _array("f8", "P", *_BLOCKS, 3)
    corners: Array = _array("f8", "P", *_CORNERS, 3)
    corner_moves: Array | None = _array("f8", "P", *_CORNERS, optional=True)  # with minus without
    refined_cells: Array | None = _array("f8", "P", *_BLOCKS, 3, optional=True)
    refined_whole: Array | None = _array("f8", "P", 3, optional=True)
    refined_sigma: Array | None = _array("f8", "P", *_CORNERS, optional=True)  # of a corner's x

    # Capture frames, plane by plane, ascending
    pose_plane: Array = _array("i4", "N")
    pose_frame: Array = _array("i4", "N")
    pose_points: Array = _array("i8", "N")
    pose_median: Array = _array("f8", "N")
    pose_off: Array = _array("?", "N")

    # The device
    device_points: int = _count()
    device_rms: float = _number()
    device_bias: float = _number()
    device_q95: float = _number()
    device_q99: float = _number()
    device_max: float = _number()
    histogram_low: float = _number()
    histogram_width: float = _number()
    histogram_counts: Array = _array("i8", "K")
    histogram_below: int = _count()
    histogram_above: int = _count()


@dataclass(frozen=True, eq=False, kw_only=True)
class FieldPart(_Part):
    """A field calibration. After a refusal only `refused` and what was used mean anything."""

    refused: str = _text()

    displacement_rms: float = _number()
    displacement_max: float = _number()
    displacement_sigma: float = _number()
    displacement_plane: int = _count()
    displacement_block: Array = _array("i4", 2)  # line, cell

    smallest_R: Array = _array("f8", 3, 3)
    smallest_t: Array = _array("f8", 3)
    motion_R: Array = _array("f8", 3, 3)
    motion_t: Array = _array("f8", 3)
    quaternion: Array = _array("f8", 4)  # of the job's motion, x y z w
    indicator_mean: float = _number()
    indicator_max: float = _number()
    indicator_deviation: float = _number()

    # Six directions, the one that moves the sheets least first; none after a refusal
    direction_name: Array = _array("U", "D")
    direction_vector: Array = _array("f8", "D", 6)
    direction_sigma: Array = _array("f8", "D")
    direction_strength: Array = _array("f8", "D")
    direction_fixed: Array = _array("?", "D")

    centre: Array = _array("f8", 3)
    length: float = _number()
    residual: float = _number()
    frame_clusters: int = _count()
    plane_clusters: int = _count()
    sigma_holds_table: bool = _flag()
    first_plane: int = _count()
    last_plane: int = _count()

    # Left after each stage: given, screened, frame filter, interior planes, used
    stage_points: Array = _array("i8", 5)
    stage_frames: Array = _array("i4", 5)
    stage_planes: Array = _array("i4", 5)
    plane: Array = _array("i4", "L")
    plane_points: Array = _array("i8", "L", 5)
    plane_frames: Array = _array("i4", "L", 5)
    dropped_plane: Array = _array("i4", "M")
    dropped_frame: Array = _array("i4", "M")
    dropped_stage: Array = _array("i4", "M")
    left_out: Array = _array("i4", "O")
    unit_hint: str = _text()


@dataclass(frozen=True, eq=False, kw_only=True)
class DifferencePart(_Part):
    """How the run's table differs from another one; + where the run's sheet lies at larger x."""

    refused: str = _text()
    name: str = _text()  # of the other, for people

    rms: float = _number()
    max: float = _number()
    plane: int = _count()  # where it is largest
    block: Array = _array("i4", 2)
    place: Array = _array("f8", 2)  # y, z
    rigid_R: Array = _array("f8", 3, 3)
    rigid_t: Array = _array("f8", 3)
    rest: float = _number()
    rest_max: float = _number()
    explained: float = _number()
    blocks: int = _count()
    only_in_one: int = _count()
    plane_blocks: Array = _array("i4", "P")
    plane_rms: Array = _array("f8", "P")
    plane_max: Array = _array("f8", "P")
    plane_rest: Array = _array("f8", "P")
    values: Array = _array("f8", "P", *_BLOCKS)
    rests: Array = _array("f8", "P", *_BLOCKS)


@dataclass(frozen=True, eq=False, kw_only=True)
class CompensationPart(_Part):
    """Shifts of the sheets over temperature, against the table at the reference."""

    temperature: Array = _array("f8", "T")
    shift: Array = _array("f8", "T", "P")  # of x at mid-fan and `depth`; NaN for an empty row
    largest: Array = _array("f8", "T")  # largest size along the normals in the working volume
    depth: float = _number()
    reference: float = _number()


_PARTS: dict[str, type[_Part]] = {
    "table": TablePart,
    "factory": FactoryPart,
    "field": FieldPart,
    "difference": DifferencePart,
    "compensation": CompensationPart,
}


@dataclass(frozen=True, eq=False, kw_only=True)
class Run:
    """All that one run found.

    Attributes
    ----------
    meta : dict
        Plain values that JSON can hold. Keys that the page shows, all optional: ``kind`` ("factory",
        "field", "difference"), ``unit`` ("mm"), ``created`` (ISO date and time), ``device`` (the
        table of device.toml: serial, model, operator, place, target, temperature, customer,
        certificate, next_due), ``software`` (name, version), ``inputs`` and ``outputs`` (lists of
        {name, sha256, points}), ``settings`` (dict), ``limits`` (dict), ``volume``
        ({depth: [near, far], half_angle_deg}), ``findings`` (list of {level, id, text, figures}),
        ``verdict`` (text), ``remarks`` (list of texts).
    table, factory, field, difference, compensation
        The parts; None where there is none.

    Raises
    ------
    ValueError
        Parts of different numbers of planes, or meta that JSON cannot hold.
    """

    meta: dict[str, Any]
    table: TablePart | None = None
    factory: FactoryPart | None = None
    field: FieldPart | None = None
    difference: DifferencePart | None = None
    compensation: CompensationPart | None = None

    def __post_init__(self) -> None:
        try:
            json.dumps(self.meta)
        except (TypeError, RecursionError) as error:
            raise ValueError(f"meta: {error}") from error
        _check_meta(self.meta)
        planes = set()
        if self.table is not None:
            planes.add(len(self.table.cells))
        if self.factory is not None and not self.factory.refused:
            planes.add(len(self.factory.status))
        if self.difference is not None and not self.difference.refused:
            planes.add(len(self.difference.plane_rms))
        if self.compensation is not None:
            planes.add(self.compensation.shift.shape[1])
        if len(planes) > 1:
            raise ValueError(f"parts of {', '.join(map(str, sorted(planes)))} planes in one run")

    def save(self, path: str | os.PathLike[str]) -> None:
        """Write the run file; the same run gives the same bytes.

        Raises
        ------
        FileOpenError
            It could not be written; an older file is as it was.
        """
        stream = io.BytesIO()
        with zipfile.ZipFile(stream, "w") as archive:
            _add(archive, "meta.json", json.dumps({"schema": SCHEMA, "meta": self.meta}).encode())
            for name in _PARTS:
                part = getattr(self, name)
                if part is not None:
                    _add_part(archive, name, part)
        write_bytes(path, stream.getvalue())


# What the page reads of meta, by type; a list holds objects.
_META_TYPES: dict[str, type] = {
    **dict.fromkeys(("kind", "unit", "created", "verdict"), str),
    **dict.fromkeys(("device", "software", "settings", "limits", "volume"), dict),
    **dict.fromkeys(("inputs", "outputs", "findings", "remarks"), list),
}


def _check_meta(meta: dict[str, Any]) -> None:
    for name, kind in _META_TYPES.items():
        if name in meta and not isinstance(meta[name], kind):
            raise ValueError(f"meta: {name} is not a {kind.__name__}")
    for name in ("inputs", "outputs", "findings"):
        if not all(isinstance(entry, dict) for entry in meta.get(name, ())):
            raise ValueError(f"meta: {name} holds more than objects")
    for finding in meta.get("findings", ()):
        if not all(isinstance(finding.get(key), str) for key in ("level", "id", "text")):
            raise ValueError("meta: a finding without level, id and text")
    for known in fields(Limits):
        limit = meta.get("limits", {}).get(known.name, 0.0)
        if isinstance(limit, bool) or not isinstance(limit, (int, float)):
            raise ValueError(f"meta: the limit {known.name} is not a number")


def read(path: str | os.PathLike[str]) -> Run:
    """Read a run file.

    Raises
    ------
    FileOpenError
        It could not be opened or read.
    DamagedFile
        It is cut, changed, or not a run file; names the member that is missing or wrong.
    """
    data = read_bytes(path)
    try:
        with zipfile.ZipFile(io.BytesIO(data)) as archive:
            members = _members(archive)
        meta = _read_meta(members.pop("meta.json"))
        parts = _read_parts(members)
        return Run(meta=meta, **parts)
    except KeyError as error:
        raise DamagedFile(path, f"not a run file: {error.args[0]} is missing") from error
    except (ValueError, EOFError, OSError, NotImplementedError, zipfile.BadZipFile) as error:
        raise DamagedFile(path, f"not a whole run file: {error}") from error
    except (zlib.error, RuntimeError, MemoryError, RecursionError) as error:
        raise DamagedFile(path, f"not a whole run file: {error}") from error


def _add(archive: zipfile.ZipFile, name: str, data: bytes) -> None:
    member = zipfile.ZipInfo(name)  # a fixed date: the same run, the same bytes
    member.external_attr = 0o644 << 16
    archive.writestr(member, data, zipfile.ZIP_DEFLATED, compresslevel=1)


def _add_part(archive: zipfile.ZipFile, name: str, part: _Part) -> None:
    for item in fields(part):
        value = getattr(part, item.name)
        if value is None:
            continue
        stream = io.BytesIO()
        np.save(stream, _stored(value, item.metadata["dtype"]), allow_pickle=False)
        _add(archive, f"{name}/{item.name}.npy", stream.getvalue())


def _stored(value: Any, dtype: str) -> Array:
    # Little endian whatever the machine, so that a file means the same bytes everywhere.
    return np.asarray(value, np.dtype(dtype).newbyteorder("<"))


def _members(archive: zipfile.ZipFile) -> dict[str, bytes]:
    members: dict[str, bytes] = {}
    for member in archive.infolist():
        if member.file_size > _LARGEST or member.filename in members:
            raise ValueError(f"{member.filename}: too large, or there twice")
        members[member.filename] = archive.read(member)  # checks the sum of its bytes
    return members


def _read_meta(data: bytes) -> dict[str, Any]:
    top = json.loads(data.decode())
    if not isinstance(top, dict) or top.get("schema") != SCHEMA:
        raise ValueError(f"its schema is not {SCHEMA}")
    if not isinstance(top.get("meta"), dict):
        raise ValueError("meta.json holds no meta")
    meta: dict[str, Any] = top["meta"]
    return meta


def _read_parts(members: dict[str, bytes]) -> dict[str, Any]:
    parts: dict[str, dict[str, Array]] = {}
    for member, data in members.items():
        part, _, name = member.removesuffix(".npy").partition("/")
        if part not in _PARTS or name not in {item.name for item in fields(_PARTS[part])}:
            raise ValueError(f"{member} is not part of a run")
        parts.setdefault(part, {})[name] = _read_array(member, data)
    return {part: _made(part, values) for part, values in parts.items()}


def _read_array(member: str, data: bytes) -> Array:
    stream = io.BytesIO(data)
    try:
        array: Array = read_array(stream, allow_pickle=False)  # type: ignore[no-untyped-call]
    except ValueError as error:
        raise ValueError(f"{member}: {error}") from error
    if stream.read(1):
        raise ValueError(f"{member} goes on after its array")
    return array


def _made(part: str, values: dict[str, Array]) -> _Part:
    for item in fields(_PARTS[part]):
        if item.name not in values and not item.metadata["optional"]:
            raise KeyError(f"{part}/{item.name}")
    return _PARTS[part](**values)
