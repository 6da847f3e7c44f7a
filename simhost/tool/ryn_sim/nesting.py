"""Keys with dots in them, and the mappings within mappings that they stand for."""

from __future__ import annotations

from typing import Any, Iterator, Mapping


def nested(values: Mapping[str, Any]) -> dict[str, Any]:
    """{"clock.speed": 1} as {"clock": {"speed": 1}}."""
    result: dict[str, Any] = {}
    for key, value in values.items():
        *around, last = key.split(".")
        inside = result
        for part in around:
            inside = inside.setdefault(part, {})
        inside[last] = value
    return result


def at_key(mapping: Any, key: str) -> Any:
    """What a key with dots stands for in a nested mapping; None if that is not there."""
    for part in key.split("."):
        mapping = mapping.get(part) if isinstance(mapping, Mapping) else None
    return mapping


def flat(mapping: Mapping[str, Any], prefix: str = "") -> Iterator[tuple[str, Any]]:
    """The values of a nested mapping by their keys with dots; an empty mapping is a value."""
    for key, value in mapping.items():
        if isinstance(value, Mapping) and value:
            yield from flat(value, f"{prefix}{key}.")
        else:
            yield prefix + key, value
