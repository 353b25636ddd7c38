"""From what people write to the settings of the package, and back into words."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any

if TYPE_CHECKING:
    import kestrane
    from kestrane_tools.cli.toml_files import Limits

__all__ = ["bounds_of", "factory_settings", "volume_of"]

_WHOLE_FAN = 30.0


def bounds_of(limits: Limits, *, far: bool = False) -> tuple[float, float, float]:
    """Nearest and farthest depth and half the angle of the working volume that is judged."""
    near, end = limits.depth or (220.0 if far else 100.0, 1000.0)
    return near, end, _WHOLE_FAN if limits.half_angle_deg is None else limits.half_angle_deg


def volume_of(limits: Limits, *, far: bool = False) -> kestrane.WorkingVolume | None:
    """The working volume; None, for the depth band of the fits, where nothing is said of it."""
    import kestrane

    if limits.depth is None and limits.half_angle_deg is None:
        return None
    return kestrane.WorkingVolume(*bounds_of(limits, far=far))


def factory_settings(settings: kestrane.FactorySettings) -> dict[str, Any]:
    """The settings of a factory calibration as plain values."""
    return {
        "far": settings.far,
        "optimise": settings.optimise,
        "screen": settings.screen,
        "gross": settings.gross,
        "repeatability": settings.repeatability,
        "refine": settings.refine.name.lower(),
    }
