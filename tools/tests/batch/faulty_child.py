"""A child that does to a device what its name says, and otherwise what a child does."""

from __future__ import annotations

import ctypes
import os
import signal
import sys
import time
from pathlib import Path

from kestrane_tools.batch import child

calibrate = child._calibrate


def faulty(version, base, arguments):
    name = Path(sys.argv[1]).parent.name
    with open(Path(sys.argv[1]).parents[1] / "starts.txt", "a+") as starts:
        starts.write(f"{name}\n")
        starts.seek(0)
        first = starts.read().split().count(name) == 1
    match name.split("-")[0]:
        case "aborts":
            print("last words", flush=True)
            os.abort()
        case "segfaults":
            ctypes.string_at(0)
        case "hangs":
            signal.signal(signal.SIGTERM, signal.SIG_IGN)
            time.sleep(1000)
        case "exhausts":
            kept = []
            while True:
                kept.append(b"x" * (64 << 20))
        case "throws":  # as a library in C++ does that is out of memory
            print("terminate called after throwing an instance of 'std::bad_alloc'", flush=True)
            print("  what():  std::bad_alloc", flush=True)
            os.abort()
        case "threadless":  # as the C library does when a thread has no room for its variables
            print("cannot allocate memory for thread-local data: ABORT", file=sys.stderr, flush=True)
            os._exit(127)
        case "raises":
            raise RuntimeError("the board is upside down")
        case "vanishes":
            os._exit(0)
        case "once" if first:  # hangs, and then no more
            time.sleep(1000)
    return calibrate(version, base, arguments)


child._calibrate = faulty
sys.exit(child.main(sys.argv[1:]))
