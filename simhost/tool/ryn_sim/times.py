"""Times on the command line."""

from __future__ import annotations

from . import units
from .errors import BadInput


def milliseconds(option: str, text: str | None, bare: int = 1000) -> int | None:
    """A time of the command line. bare: what a number without a unit counts, in milliseconds."""
    if text is None:
        return None
    try:
        ns = int(text) * bare * 10**6 if text.isdecimal() else units.nanoseconds(text)
    except ValueError:
        ns = -1
    if ns < 0 or ns % 10**6 or ns >= 1 << 62:
        raise BadInput(f'{option}: expected a time such as 30s, 250ms or 2h, got "{text}"')
    return ns // 10**6
