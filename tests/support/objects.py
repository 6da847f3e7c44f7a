"""Objects that scripts might pass to a method instead of a plain int."""

from __future__ import annotations


class Index:
    """Converts to an int, and counts how often it was asked to."""

    def __init__(self, value: int) -> None:
        self.value = value
        self.asked = 0

    def __index__(self) -> int:
        self.asked += 1
        return self.value


class RaisingIndex:
    """Its conversion raises."""

    def __init__(self, error: Exception | None = None) -> None:
        self.error = error or ZeroDivisionError("no index today")

    def __index__(self) -> int:
        raise self.error


class Number(int):
    """An int that is left to the parser."""


class Name(str):
    """A str that is left to the parser."""


def for_the_parser(argument: object) -> object:
    """The same argument of a type that no method reads without Python's argument parser."""
    return {int: Number, str: Name}.get(type(argument), lambda same: same)(argument)


# What the parser refuses in the place of an unsigned int, and the error that it sets.
NOT_INTS = [
    ("1", TypeError),
    (None, TypeError),
    (1.0, TypeError),
    (b"1", TypeError),
    ((), TypeError),
    (RaisingIndex(), ZeroDivisionError),
    (RaisingIndex(OverflowError("far")), OverflowError),
]
