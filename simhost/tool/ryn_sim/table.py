"""Prints tables that fit the terminal, and JSON."""

from __future__ import annotations

import json
import os
import re
import shutil
import sys
import time
from itertools import zip_longest
from typing import Any, Callable, Mapping, Sequence, Tuple, Union

NARROW = 80

# A column: the key of its values, or a heading and what makes its text of a row
Column = Union[str, Tuple[str, Callable[[Mapping[str, Any]], Any]]]


def width() -> int:
    """Columns to fill: the terminal's, and 80 where there is no terminal."""
    return shutil.get_terminal_size((NARROW, 24)).columns if sys.stdout.isatty() else NARROW


def coloured() -> bool:
    """Whether to use colour: on a terminal, unless NO_COLOR is set."""
    return sys.stdout.isatty() and not os.environ.get("NO_COLOR") and os.environ.get("TERM") != "dumb"


def counted(number: int, nouns: str) -> str:
    """1 port, 2 ports; 1 switch, 2 switches."""
    one = nouns[:-2] if nouns.endswith("ches") else nouns[:-1]
    return f"{number} {one if number == 1 else nouns}"


def print_json(value: Any) -> None:
    """Prints a value as indented JSON."""
    print(json.dumps(value, indent=2, ensure_ascii=False))


def cell(value: Any) -> str:
    """A value as the text of a cell."""
    if value is None:
        return "-"
    if isinstance(value, bool):
        return "yes" if value else "no"
    if isinstance(value, (list, tuple)):
        return ",".join(cell(item) for item in value) or "-"
    return str(value)


_FIGURE = re.compile(r"-|-?[0-9][0-9.]*[kMGT]?")
_NARROWEST, _LONG = 8, 24


def print_table(
    rows: Sequence[Mapping[str, Any]],
    columns: Sequence[Column],
    nothing: str = "none",
    warns: Callable[[Mapping[str, Any]], bool] = lambda row: False,
) -> None:
    """A line for each row. Figures stand on the right; texts that do not fit go on in further lines.

    warns: rows that are shown in red on a terminal.
    """
    if not rows:
        print(nothing)
        return
    headings = [(column if isinstance(column, str) else column[0]).upper() for column in columns]
    texts = [
        [cell(row.get(column) if isinstance(column, str) else column[1](row)) for column in columns] for row in rows
    ]
    by_column = list(zip(*texts))
    figures = [all(map(_FIGURE.fullmatch, column)) and set(column) != {"-"} for column in by_column]
    widths = [max(map(len, (heading, *column))) for heading, column in zip(headings, by_column)]
    room = width() - 2 * (len(columns) - 1)
    while sum(widths) > room:
        # A long text at the end of the line is folded first, then the widest text; figures never are
        size, at = max((0 if figure else size, at) for at, (size, figure) in enumerate(zip(widths, figures)))
        if size <= _NARROWEST:
            break
        widths[-1 if widths[-1] > _LONG and not figures[-1] else at] -= 1
    styles = ["\033[1m", *("\033[31m" if warns(row) else "" for row in rows)]
    for line, style in zip([headings, *texts], styles):
        for parts in zip_longest(*(_folded(text, size) for text, size in zip(line, widths)), fillvalue=""):
            text = "  ".join(
                part.rjust(size) if figure else part.ljust(size) for part, size, figure in zip(parts, widths, figures)
            ).rstrip()
            print(f"{style}{text}\033[0m" if style and coloured() else text)


def _folded(text: str, size: int) -> list[str]:
    """The lines of a text in a column: it breaks after a comma, a space or the like where it can."""
    lines = []
    while len(text) > size:
        at = max(text.rfind(mark, 0, size) + 1 for mark in ", ./") or size
        lines.append(text[:at].rstrip())
        text = text[at:]
    return [*lines, text]


class Progress:
    """A line on a terminal's standard error that says how far long work is; nothing elsewhere or for short work."""

    def __init__(self, what: str):
        self._what = what
        self._begun = time.monotonic()
        self._shown_at = self._begun
        self._shown = False
        self._active = sys.stderr.isatty()

    def __call__(self, done: int, of: int | None = None) -> None:
        now = time.monotonic()
        if self._active and now - self._begun > 0.3 and now - self._shown_at > 0.1:
            self._shown_at, self._shown = now, True
            print(f"\r\033[K{self._what}: {done}" + (f" of {of}" if of else ""), end="", file=sys.stderr, flush=True)

    def close(self) -> None:
        """Clears the line."""
        if self._shown:
            print("\r\033[K", end="", file=sys.stderr, flush=True)

    def __enter__(self) -> Progress:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()
