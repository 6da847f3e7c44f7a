"""Numbers as people write them: 40k, 25G, 90s, 2h, 0.4, 02:00:00:0a:0b:fc."""

from __future__ import annotations

import re
from fractions import Fraction

_SCALES = {"": 1, "k": 10**3, "M": 10**6, "G": 10**9, "T": 10**12}
_SECONDS: dict[str, int | Fraction] = {
    "us": Fraction(1, 10**6),
    "ms": Fraction(1, 1000),
    "s": 1,
    "m": 60,
    "h": 3600,
    "d": 86400,
}
_QUANTITY = re.compile(r"([0-9]+(?:\.[0-9]+)?)([kMGT]?)")
_DURATION_PART = re.compile(r"([0-9]+(?:\.[0-9]+)?)(us|ms|s|m|h|d)")
_MAC = re.compile(r"[0-9A-Fa-f]{2}(:[0-9A-Fa-f]{2}){5}")


def exact(value: int | float | str) -> Fraction:
    """40000, "40k" and "0.04M" are the same number. What is no number, or below 0, is a ValueError."""
    if isinstance(value, bool):
        raise ValueError(value)
    if isinstance(value, (int, float)):
        number = Fraction(str(value))
    else:
        match = _QUANTITY.fullmatch(value.strip())
        if not match:
            raise ValueError(value)
        number = Fraction(match[1]) * _SCALES[match[2]]
    if number < 0:
        raise ValueError(value)
    return number


def quantity(value: int | float | str) -> int:
    """As exact(), and a result that is not whole is a ValueError."""
    number = exact(value)
    if number.denominator != 1:
        raise ValueError(value)
    return int(number)


def quantity_text(number: int) -> int | str:
    """The shortest form that means exactly this number."""
    for suffix in ("T", "G", "M", "k"):
        scale = _SCALES[suffix]
        if number >= scale and number % scale == 0:
            return f"{number // scale}{suffix}"
    return number


def nanoseconds(value: int | float | str) -> int:
    """A duration: a number of seconds, or a text such as 90s, 2h, 1h30m, 250ms."""
    if isinstance(value, bool):
        raise ValueError(value)
    if isinstance(value, (int, float)):
        exact = Fraction(str(value))
    else:
        text = value.strip()
        if re.fullmatch(r"[0-9]+(\.[0-9]+)?", text):
            exact = Fraction(text)
        else:
            parts = _DURATION_PART.findall(text)
            if not parts or "".join(number + unit for number, unit in parts) != text:
                raise ValueError(value)
            exact = sum((Fraction(number) * _SECONDS[unit] for number, unit in parts), Fraction(0))
    if exact < 0:
        raise ValueError(value)
    return round(exact * 10**9)


def duration_text(ns: int) -> str:
    """The shortest form that means exactly this duration."""
    for unit, scale in (("d", 86400 * 10**9), ("h", 3600 * 10**9), ("m", 60 * 10**9)):
        if ns and ns % scale == 0:
            return f"{ns // scale}{unit}"
    if ns % 10**9 == 0:
        return f"{ns // 10**9}s"
    if ns % 10**6 == 0:
        return f"{ns // 10**6}ms"
    return f"{ns / 10**9:.9f}".rstrip("0").rstrip(".") + "s"


def age_text(ns: int) -> str:
    """A duration for a reader, to the second: 1d 02:03:04."""
    seconds = ns // 10**9
    days, seconds = divmod(seconds, 86400)
    clock = f"{seconds // 3600:02}:{seconds // 60 % 60:02}:{seconds % 60:02}"
    return f"{days}d {clock}" if days else clock


def mac(text: str) -> bytes:
    """The bytes of a MAC address; anything else is a ValueError."""
    if not isinstance(text, str) or not _MAC.fullmatch(text):
        raise ValueError(text)
    return bytes.fromhex(text.replace(":", ""))


def mac_text(raw: bytes) -> str:
    """A MAC address as text."""
    return raw.hex(":")


def short(number: float) -> str:
    """A count in at most six characters: 950, 12.3k, 4.56M."""
    for suffix, scale in (("T", 1e12), ("G", 1e9), ("M", 1e6), ("k", 1e3)):
        if abs(number) >= scale:
            return f"{number / scale:.3g}{suffix}" if abs(number) < 999.5 * scale else f"{number / scale:.0f}{suffix}"
    return f"{number:.3g}" if isinstance(number, float) and not number.is_integer() else f"{int(number)}"
