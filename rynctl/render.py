"""Rows as a table, JSON, JSON Lines or CSV. All formats show the same rows and columns."""

from __future__ import annotations

import json
from typing import Any, Dict, Iterable, List, Optional, Sequence, TextIO, Tuple

from rynctl.columns import Column

Row = Dict[str, Any]

GAP = "  "
SUFFIXES = ("k", "M", "G", "T")


def short(number: int) -> str:
    """From 10,000 on four digits and a suffix: 12.34k, 123.4k, 1.234M."""
    if abs(number) < 10_000:
        return str(number)
    sign, number = ("-", -number) if number < 0 else ("", number)
    for power, suffix in enumerate(SUFFIXES, 1):
        for places in (3, 2, 1):
            unit = 1000**power // 10**places
            digits = (number + unit // 2) // unit
            if digits < 10_000:
                return f"{sign}{digits // 10**places}.{digits % 10**places:0{places}}{suffix}"
    return f"{sign}{number // unit // 10}{suffix}"


def escaped(text: str) -> str:
    r"""Control characters, and bytes that are no UTF-8, as \x1b."""
    if text.isprintable():
        return text
    return "".join(_escape(character) for character in text)


def _escape(character: str) -> str:
    if character.isprintable():
        return character
    number = ord(character)
    if 0xDC80 <= number <= 0xDCFF:  # a byte that is no UTF-8
        number -= 0xDC00
    return f"\\x{number:02x}" if number < 0x100 else f"\\u{number:04x}" if number < 0x10000 else f"\\U{number:08x}"


def cell(value: Any, kind: str) -> str:
    """A value as a table shows it."""
    if value is None:
        return "-"
    if value is True or value is False:
        return "yes" if value else "no"
    if isinstance(value, int):
        return short(value) if kind == "count" else str(value)
    if isinstance(value, float):
        return short(round(value)) if abs(value) >= 10_000 else f"{value:.1f}"
    if isinstance(value, (list, tuple)):
        items = ["-".join(map(str, item)) if isinstance(item, (list, tuple)) else str(item) for item in value]
        return escaped(",".join(items)) or "-"
    return escaped(str(value)) or "-"


def is_right(column: Column) -> bool:
    return column.type in ("int", "count", "float")


def heading(column: Column) -> str:
    return column.name.upper() + (f"[{column.unit}]" if column.unit else "")


def layout(columns: Sequence[Column], rows: Sequence[Row]) -> Tuple[List[str], List[List[str]], List[int]]:
    """Headings, cells and widths of a table."""
    headings = [heading(column) for column in columns]
    lines = [[cell(row[column.name], column.type) for column in columns] for row in rows]
    widths = [max(map(len, texts)) for texts in zip(headings, *lines)]
    return headings, lines, widths


def fitting(widths: Sequence[int], width: int) -> int:
    """How many of the columns fit, the first one in any case."""
    used = 0
    for count, each in enumerate(widths):
        used += each + (len(GAP) if count else 0)
        if used > width and count:
            return count
    return len(widths)


def line(columns: Sequence[Column], texts: Sequence[str], widths: Sequence[int]) -> str:
    padded = (
        text.rjust(width) if is_right(column) else text.ljust(width)
        for column, text, width in zip(columns, texts, widths)
    )
    return GAP.join(padded).rstrip()


def table(columns: Sequence[Column], rows: Sequence[Row], width: Optional[int] = None, bold: bool = False) -> List[str]:
    """The lines of a table; where there is a width, only the first columns that fit."""
    headings, lines, widths = layout(columns, rows)
    if width is not None:
        columns = columns[: fitting(widths, width)]
    # A terminal may be narrower than the first column
    first, *others = (line(columns, texts, widths)[:width] for texts in [headings, *lines])
    return [f"\x1b[1m{first}\x1b[0m" if bold else first, *others]


def sheet(columns: Sequence[Column], rows: Sequence[Row], width: Optional[int] = None) -> List[str]:
    """One row a block, a line for each column: for what is shown one at a time."""
    headings = [heading(column).lower() for column in columns]
    left = max(map(len, headings))
    lines: List[str] = []
    for row in rows:
        if lines:
            lines.append("")
        for column, name in zip(columns, headings):
            text = f"{name.ljust(left)}{GAP}{cell(row[column.name], column.type)}"
            lines.append(text if width is None or len(text) <= width else (text[: max(width - 3, 0)] + "...")[:width])
    return lines


def chosen(columns: Sequence[Column], row: Row) -> Row:
    return {column.name: row[column.name] for column in columns}


def write_csv(columns: Sequence[Column], rows: Iterable[Row], out: TextIO, head: bool = True) -> None:
    import csv

    writer = csv.writer(out, lineterminator="\n")
    if head:
        writer.writerow([column.name for column in columns])
    for row in rows:
        writer.writerow([_csv(row[column.name]) for column in columns])


def _csv(value: Any) -> Any:
    if value is None:
        return ""
    if value is True or value is False:
        return "true" if value else "false"
    if isinstance(value, (list, tuple, dict)):
        return dumps(value)
    return value


def dumps(value: Any) -> str:
    return json.dumps(value, separators=(", ", ": "))
