"""The two ways in which a command fails."""

from __future__ import annotations

from typing import Iterable


class Failed(Exception):
    """It could not be done: exit code 1, if no other is given."""

    def __init__(self, message: str, code: int = 1):
        super().__init__(message)
        self.code = code


class BadInput(Exception):
    """The command line or a description is wrong: exit code 2."""


def nearest(word: str, known: Iterable[object]) -> str:
    """A clause that names the known word nearest to this one, or lists them all if there are few; else nothing."""
    import difflib

    by_name = {str(name).lower(): str(name) for name in known}
    close = difflib.get_close_matches(str(word).lower(), by_name, n=1, cutoff=0.6)
    if close:
        return f'; did you mean "{by_name[close[0]]}"?'
    if 0 < len(by_name) <= 12:
        return "; known: " + ", ".join(by_name.values())
    return ""
