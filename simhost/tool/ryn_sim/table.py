"""Prints tables that fit the terminal, and JSON."""

from __future__ import annotations

import json
import shutil
import sys

_WIDEST = 100


def width() -> int:
    """Columns to fill: the terminal's, 100 at most, and 100 where there is no terminal."""
    return min(shutil.get_terminal_size((_WIDEST, 24)).columns, _WIDEST) if sys.stdout.isatty() else _WIDEST


def counted(number: int, nouns: str) -> str:
    """1 port, 2 ports; 1 switch, 2 switches."""
    one = nouns[:-2] if nouns.endswith("ches") else nouns[:-1]
    return f"{number} {one if number == 1 else nouns}"


def print_json(value) -> None:
    print(json.dumps(value, indent=2, ensure_ascii=False))


def cell(value) -> str:
    if value is None:
        return "-"
    if isinstance(value, bool):
        return "yes" if value else "no"
    if isinstance(value, (list, tuple)):
        return ",".join(cell(item) for item in value) or "-"
    return str(value)


def print_table(rows: list[dict], columns: list[str], nothing: str = "none") -> None:
    """One line a row. Numbers stand on the right; what does not fit the line is cut at the widest column's end."""
    if not rows:
        print(nothing)
        return
    texts = [[cell(row.get(column)) for column in columns] for row in rows]
    widths = [max(len(column), *(len(line[index]) for line in texts)) for index, column in enumerate(columns)]
    room = width() - 2 * (len(columns) - 1)
    while sum(widths) > room and max(widths) > 8:
        widths[widths.index(max(widths))] -= 1
    right = [
        all(isinstance(row.get(column), (int, float)) and not isinstance(row.get(column), bool) for row in rows)
        for column in columns
    ]
    for line in [[column.upper() for column in columns], *texts]:
        fitted = [text if len(text) <= room else text[: room - 1] + "…" for text, room in zip(line, widths)]
        print(
            "  ".join(
                text.rjust(room) if flush else text.ljust(room) for text, room, flush in zip(fitted, widths, right)
            ).rstrip()
        )


class Progress:
    """A line on a terminal's standard error that says how far long work is; nothing elsewhere or for short work."""

    def __init__(self, what: str):
        import time

        self._what = what
        self._time = time.monotonic
        self._begun = self._time()
        self._shown_at = self._begun
        self._shown = False
        self._active = sys.stderr.isatty()

    def __call__(self, done: int, of: int | None = None) -> None:
        now = self._time()
        if self._active and now - self._begun > 0.3 and now - self._shown_at > 0.1:
            self._shown_at, self._shown = now, True
            print(f"\r\033[K{self._what}: {done}" + (f" of {of}" if of else ""), end="", file=sys.stderr, flush=True)

    def close(self) -> None:
        if self._shown:
            print("\r\033[K", end="", file=sys.stderr, flush=True)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()
