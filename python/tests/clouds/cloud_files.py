"""Files as other programs write them, byte by byte, independent of the package's own writers."""

from __future__ import annotations

import io
import random
import struct
import zipfile

import numpy as np

from kestrane.points import POINT

PLY_TYPES = {
    "i1": ("char", "int8"),
    "u1": ("uchar", "uint8"),
    "i2": ("short", "int16"),
    "u2": ("ushort", "uint16"),
    "i4": ("int", "int32"),
    "u4": ("uint", "uint32"),
    "f4": ("float", "float32"),
    "f8": ("double", "float64"),
}
STRUCT = {"i1": "b", "u1": "B", "i2": "h", "u2": "H", "i4": "i", "u4": "I", "i8": "q", "u8": "Q",
          "f4": "f", "f8": "d"}  # fmt: skip


def cloud(rows):
    """Points from (x, y, z, frame)."""
    return np.array([tuple(row) for row in rows], POINT)


def columns_of(clouds, roles=("x", "y", "z", "frame", "plane")):
    """The columns of clouds by plane, in the order of the planes."""
    rows = [(*point.item(), plane) for plane, points in clouds.items() for point in points]
    return {role: [row[k] for row in rows] for k, role in enumerate(roles)}


def ply(columns, types, *, form="<", end="\n", names=None, before=(), after=(), lists=None):
    """A PLY file.

    columns: name -> values in the order of the properties; types: name -> "f4" and so on; form:
    "<", ">" or "" for text; before, after: whole elements as (header lines, rows of bytes or text);
    lists: name of a property after which a list follows -> list of the rows' items (uchar, short).
    """
    fmt = {"": "ascii", "<": "binary_little_endian", ">": "binary_big_endian"}[form]
    count = len(next(iter(columns.values())))
    head = ["ply", f"format {fmt} 1.0", "comment made by hand"]
    for lines, _ in before:
        head += lines
    head.append(f"element vertex {count}")
    for k, name in enumerate(columns):
        head.append(f"property {PLY_TYPES[types[name]][k % 2]} {(names or {}).get(name, name)}")
        if lists and name in lists:
            head.append(f"property list uchar short {name}_list")
    for lines, _ in after:
        head += lines
    head += ["obj_info nothing", "end_header"]
    data = "".join(line + end for line in head).encode()
    data += b"".join(rows for _, rows in before)
    for row in range(count):
        words = []
        for name, values in columns.items():
            if form:
                data += struct.pack(form + STRUCT[types[name]], values[row])
            else:
                words.append(repr(values[row]))
            if lists and name in lists:
                items = lists[name][row]
                if form:
                    data += struct.pack(f"{form}B{len(items)}h", len(items), *items)
                else:
                    words += [str(len(items)), *map(str, items)]
        if not form:
            data += (" ".join(words) + end).encode()
    return data + b"".join(rows for _, rows in after)


def lzf_literals(plain):
    """LZF without any repeat: runs of up to 32 bytes after their length less one."""
    runs = (plain[k : k + 32] for k in range(0, len(plain), 32))
    return b"".join(bytes([len(run) - 1]) + run for run in runs)


def lzf_plain(packed):
    """The bytes that LZF data stands for, read the slow way."""
    plain = bytearray()
    k = 0
    while k < len(packed):
        control = packed[k]
        k += 1
        if control < 32:
            plain += packed[k : k + control + 1]
            k += control + 1
            continue
        length = control >> 5
        if length == 7:
            length += packed[k]
            k += 1
        offset = ((control & 31) << 8) + packed[k] + 1
        k += 1
        for _ in range(length + 2):
            plain.append(plain[-offset])
    return bytes(plain)


def pcd(columns, types, *, form="ascii", counts=None, end="\n", height=1, names=None):
    """A PCD file; a column with a count above 1 holds a tuple per row."""
    counts = counts or {}
    count = len(next(iter(columns.values())))
    head = [
        "# .PCD v.7 - Point Cloud Data file format",
        "VERSION .7",
        "FIELDS " + " ".join((names or {}).get(name, name) for name in columns),
        "SIZE " + " ".join(types[name][1] for name in columns),
        "TYPE " + " ".join(types[name][0].upper() for name in columns),
        "COUNT " + " ".join(str(counts.get(name, 1)) for name in columns),
        f"WIDTH {count // height}",
        f"HEIGHT {height}",
        "VIEWPOINT 0 0 0 1 0 0 0",
        f"POINTS {count}",
        f"DATA {form}",
    ]
    data = "".join(line + end for line in head).encode()

    def packed(name, row):
        value = columns[name][row]
        items = value if counts.get(name, 1) > 1 else (value,)
        return struct.pack(f"<{len(items)}{STRUCT[types[name]]}", *items)

    if form == "ascii":
        for row in range(count):
            words = []
            for name in columns:
                value = columns[name][row]
                words += map(repr, value if counts.get(name, 1) > 1 else (value,))
            data += (" ".join(words) + end).encode()
        return data
    if form == "binary":
        return data + b"".join(packed(name, row) for row in range(count) for name in columns)
    plain = b"".join(packed(name, row) for name in columns for row in range(count))
    squeezed = lzf_literals(plain)
    return data + struct.pack("<II", len(squeezed), len(plain)) + squeezed


def npy(array):
    """A .npy file as NumPy writes it."""
    file = io.BytesIO()
    np.lib.format.write_array(file, array, allow_pickle=False)
    return file.getvalue()


def npz(arrays, compression=zipfile.ZIP_STORED):
    """An archive of arrays."""
    file = io.BytesIO()
    with zipfile.ZipFile(file, "w", compression) as archive:
        for name, array in arrays.items():
            archive.writestr(f"{name}.npy", npy(array))
    return file.getvalue()


def csv(columns, *, delimiter=",", end="\n", head=(), comment=None):
    """A table in text; a comment follows every third row."""
    lines = [*head, delimiter.join(columns)]
    for number, row in enumerate(zip(*columns.values(), strict=True)):
        lines.append(delimiter.join(map(repr, row)))
        if comment is not None and number % 3 == 2:
            lines.append(comment)
    return "".join(line + end for line in lines).encode()


def mutated(data, header_size, draw: random.Random):
    """The bytes with one to four changes in the first header_size of them."""
    out = bytearray(data)
    for _ in range(draw.choice((1, 1, 2, 4))):
        place = draw.randrange(min(header_size, len(out)))
        left = header_size - place  # nothing after the header is touched
        kind = draw.randrange(6)
        if kind == 0:
            out[place] = draw.randrange(256)
        elif kind == 1:
            out[place] ^= 1 << draw.randrange(8)
        elif kind == 2:
            del out[place : place + min(left, draw.choice((1, 1, 2, 7)))]
        elif kind == 3:
            out[place:place] = bytes(draw.randrange(256) for _ in range(draw.choice((1, 1, 2, 7))))
        elif kind == 4:
            out[place : place + 1] = draw.choice(
                (b"0", b"9", b"-", b" ", b"\n", b"99999999999", b"1e9", b"\xff", b"\0")
            )
        else:
            other = draw.randrange(min(header_size, len(out)))
            size = min(left, draw.randrange(1, 12))
            out[place : place + size] = out[other : other + size]
        if not out:
            break
    return bytes(out)
