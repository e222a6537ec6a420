"""What the caller gave, checked where it was given."""

from __future__ import annotations

import math
import numbers
import operator
from collections.abc import Callable, Sequence
from typing import Optional

from ._zrncamera import PropertyInfo

EVER = 1e9  # seconds
_LARGEST = 2**32 - 1  # that exposure and gain can be asked of a camera


def seconds(name: str, value: float) -> float:
    """A time to wait."""
    if not value >= 0:
        raise ValueError(f"{name} is a number of seconds, 0 or more, not {value}")
    return min(float(value), EVER)


def optional_seconds(name: str, value: Optional[float]) -> Optional[float]:
    return None if value is None else seconds(name, value)


def count(name: str, value: int, least: int = 0) -> int:
    number = whole(name, value)
    if number < least:
        raise ValueError(f"{name} is {least} or more, not {number}")
    return number


def whole(name: str, value: object) -> int:
    """A whole number, which may come as a float."""
    try:
        return operator.index(value)  # type: ignore[arg-type]
    except TypeError:
        pass
    if isinstance(value, numbers.Real) and math.isfinite(value) and value == round(value):
        return round(value)
    raise TypeError(f"{name} takes a whole number, not {value!r}")


def microseconds(name: str, value: object) -> int:
    """A time, to the nearest microsecond."""
    if isinstance(value, numbers.Real) and math.isfinite(value):
        return round(value)
    raise TypeError(f"{name} takes a number of microseconds, not {value!r}")


def askable(name: str, number: int, limits: Callable[[], tuple[int, int]], unit: str = "") -> int:
    """A number that the camera can be asked for, whose limits it knows."""
    if not 0 <= number <= _LARGEST:
        least, most = limits()
        raise ValueError(f"{name} is {least} to {most}{unit}, not {number}")
    return number


def one_of(name: str, value: object, choices: Sequence[str]) -> None:
    if value not in choices:
        listed = ", ".join(f'"{choice}"' for choice in choices)
        raise ValueError(f"{name} is one of {listed}, not {value!r}")


def fitting(info: PropertyInfo, value: object) -> object:
    """A value that a property can have."""
    if info.type == "bool":
        if value in (0, 1):
            return bool(value)
        raise TypeError(f"{info.key} is True or False, not {value!r}")
    if info.type not in ("int", "unsigned"):
        return value
    number = whole(info.key, value)
    if info.range and not info.range[0] <= number <= info.range[1]:
        unit = f" {info.unit}" if info.unit else ""
        raise ValueError(f"{info.key} is {info.range[0]} to {info.range[1]}{unit}, not {number}")
    return number
