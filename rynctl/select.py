"""--columns, --filter, --sort and --limit: which rows and columns are shown, in that order."""

from __future__ import annotations

import itertools
import re
from typing import Any, Callable, Iterable, List, NamedTuple, Optional, Sequence

from rynctl.columns import Column
from rynctl.errors import UsageError
from rynctl.render import Row

_EXPRESSION = re.compile(r"\s*(\w+)\s*(!=|<=|>=|=|<|>|~)\s*(.*?)\s*", re.DOTALL)

OPERATORS = {
    "=": lambda a, b: a == b,
    "!=": lambda a, b: a != b,
    "<": lambda a, b: a < b,
    "<=": lambda a, b: a <= b,
    ">": lambda a, b: a > b,
    ">=": lambda a, b: a >= b,
}


def nearest(word: str, words: Iterable[str]) -> str:
    """ "; did you mean ...?" where a known word is close."""
    import difflib

    close = difflib.get_close_matches(word, list(words), 1, 0.6)
    return f"; did you mean {close[0]!r}?" if close else ""


def column(columns: Sequence[Column], name: str) -> Column:
    for each in columns:
        if each.name == name:
            return each
    known = [each.name for each in columns]
    raise UsageError(f"there is no column {name!r}{nearest(name, known) or '; there are ' + ', '.join(known)}")


def columns_of(columns: Sequence[Column], names: Optional[str]) -> Sequence[Column]:
    """The columns of a list NAME,NAME; all of them without one."""
    if names is None:
        return columns
    return [column(columns, name.strip()) for name in names.split(",")]


def _number(text: str) -> Optional[float]:
    try:
        return int(text, 0)
    except ValueError:
        try:
            return float(text)
        except ValueError:
            return None


class Filter(NamedTuple):
    column: Column
    operator: str
    value: str

    def holds(self, row: Row) -> bool:
        value = row[self.column.name]
        if self.operator == "~":
            return re.search(self.value, _text(value)) is not None
        compare: Callable[[Any, Any], bool] = OPERATORS[self.operator]
        if value is None:
            # Nothing equals no value but an empty one, and is neither greater nor less.
            return compare(self.value in ("", "-", "null"), True) if self.operator in ("=", "!=") else False
        if isinstance(value, bool):
            truth = {
                "true": True,
                "yes": True,
                "on": True,
                "1": True,
                "false": False,
                "no": False,
                "off": False,
                "0": False,
            }.get(self.value.lower())
            return compare(value, truth)
        if isinstance(value, (int, float)):
            number = _number(self.value)
            return compare(value, number) if number is not None else self.operator == "!="
        return compare(_text(value), self.value)


def _text(value: Any) -> str:
    if value is None:
        return ""
    if value is True or value is False:
        return "true" if value else "false"
    if isinstance(value, (list, tuple)):
        return ",".join("-".join(map(str, item)) if isinstance(item, (list, tuple)) else str(item) for item in value)
    return str(value)


def filter_of(columns: Sequence[Column], expression: str) -> Filter:
    match = _EXPRESSION.fullmatch(expression)
    if not match:
        raise UsageError(f"--filter {expression!r} is not 'KEY OP VALUE' with one of = != < <= > >= ~")
    found = Filter(column(columns, match[1]), match[2], match[3])
    if found.operator == "~":
        try:
            re.compile(found.value)
        except re.error as error:
            raise UsageError(f"--filter {expression!r}: {error}") from None
    elif found.operator in ("<", "<=", ">", ">="):
        if found.column.type in ("bool", "ints", "strs", "pairs"):
            raise UsageError(f"--filter {expression!r}: {found.column.name} has no order, use = or !=")
        if found.column.type in ("int", "count", "float") and _number(found.value) is None:
            raise UsageError(f"--filter {expression!r}: {found.value!r} is no number")
    return found


class Selection:
    """What the options say of the rows. UsageError for a column that there is not."""

    def __init__(self, columns: Sequence[Column], filters: Sequence[str], sort: Optional[str], limit: Optional[str]):
        self.filters = [filter_of(columns, expression) for expression in filters]
        self.down = sort is not None and sort.startswith("-")
        self.sort = None if sort is None else column(columns, sort.lstrip("-"))
        self.limit: Optional[int] = None
        if limit is not None:
            if not limit.isascii() or not limit.isdigit():
                raise UsageError(f"--limit {limit!r} is no number of rows")
            self.limit = int(limit)

    def rows(self, rows: Iterable[Row]) -> List[Row]:
        held = (row for row in rows if all(each.holds(row) for each in self.filters))
        # Without an order, no more rows are read than are shown
        chosen = list(held if self.sort is not None else itertools.islice(held, self.limit))
        if self.sort is not None:
            name = self.sort.name
            present = [row for row in chosen if row[name] is not None]
            absent = [row for row in chosen if row[name] is None]  # last, whichever way
            numbers = all(isinstance(row[name], (int, float)) for row in present)
            present.sort(key=lambda row: row[name] if numbers else _text(row[name]), reverse=self.down)
            chosen = present + absent
        return chosen if self.limit is None else chosen[: self.limit]
