"""A simulated laser-line scanner with known truth, built from C++. Private."""

from collections.abc import Sequence
from typing import Any

import numpy as np
from numpy.typing import NDArray

def measure(
    planes: int = 8,
    points: int = 12000,
    seed: int = 1,
    noise: float = 0.05,
    frame_noise: float = 0.0,
    frames: int = 20,
    field: bool = False,
    bow: float = 0.4,
    motion: Sequence[float] = ...,
) -> list[NDArray[Any]]: ...
def sheet_x(
    planes: int,
    seed: int,
    bow: float,
    plane: int,
    y: NDArray[np.float64],
    z: NDArray[np.float64],
    motion: Sequence[float] = ...,
) -> NDArray[np.float64]: ...
