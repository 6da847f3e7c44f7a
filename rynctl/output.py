"""Where rows go: a terminal, a pipe or a file, in the format that was asked for."""

from __future__ import annotations

import os
import sys
import time
from typing import TYPE_CHECKING, Any, Iterable, List, Optional, Sequence

from rynctl import render
from rynctl.columns import COLUMNS, Column
from rynctl.errors import UsageError
from rynctl.render import Row
from rynctl.select import Selection, columns_of

if TYPE_CHECKING:
    import argparse

    from rynctl.cli import Context
    from rynctl.commands import Command


def timestamp(seconds: Optional[float] = None) -> str:
    """A time in UTC as RFC 3339 has it, to the millisecond."""
    seconds = time.time() if seconds is None else seconds
    return time.strftime("%Y-%m-%dT%H:%M:%S", time.gmtime(seconds)) + f".{int(seconds * 1000) % 1000:03}Z"


def wants_color(when: Optional[str], terminal: bool) -> bool:
    if when in ("always", "never"):
        return when == "always"
    return terminal and not os.environ.get("NO_COLOR") and os.environ.get("TERM") != "dumb"


class Output:
    """Renders the rows of one command. Bad columns, filters and the like are refused when it is made."""

    def __init__(self, command: Command, options: argparse.Namespace, table: Optional[str] = None):
        self.command = command
        self.format: str = options.output or "table"
        self.terminal = sys.stdout.isatty()
        if self.format == "csv":  # exact: bytes that are no UTF-8 leave as they came
            sys.stdout.reconfigure(encoding="utf-8", errors="surrogateescape")  # type: ignore[attr-defined]
        else:
            sys.stdout.reconfigure(errors="backslashreplace")  # type: ignore[attr-defined]
        self.color = wants_color(options.color, self.terminal)
        self.backend: Optional[str] = None
        self.schema = table or command.table
        self.columns: Sequence[Column] = COLUMNS.get(self.schema, ())
        self.chosen = columns_of(self.columns, options.columns) if self.columns else ()
        self.all_columns = options.columns is not None or not self.terminal
        if options.columns is not None and not self.columns and command.words != ("top",):
            raise UsageError(f"{command.name} has no columns")
        self.selection: Optional[Selection] = (
            Selection(
                self.columns,
                getattr(options, "filter", []),
                getattr(options, "sort", None),
                getattr(options, "limit", None),
            )
            if self.columns
            else None
        )
        self._named = False
        self._heading = True

    @property
    def width(self) -> Optional[int]:
        """The columns of the terminal; None where nothing is to be cut."""
        if self.all_columns:
            return None
        try:
            return os.get_terminal_size(sys.stdout.fileno()).columns or 80
        except OSError:
            return 80

    def envelope(self, data: Any) -> Row:
        return {
            "schema": f"ryn/{self.schema}/1",
            "host": os.uname().nodename,
            "backend": self.backend,
            "time": timestamp(),
            "data": data,
        }

    def rows(self, rows: Iterable[Row], context: Optional[Context] = None) -> None:
        """Shows rows, as filters, order and limit want them."""
        assert self.selection is not None
        self.show(self.selection.rows(rows))

    def show(self, rows: List[Row]) -> None:
        if self.format == "json":
            print(render.dumps(self.envelope([render.chosen(self.chosen, row) for row in rows])))
            return
        if self.format == "jsonl":
            for row in rows:
                print(render.dumps(render.chosen(self.chosen, row)))
            self.name_simulated()
            return
        self.name_simulated()
        if self.format == "csv":
            render.write_csv(self.chosen, rows, sys.stdout, self._heading)
            return
        for line in self.lines(rows):
            print(line)

    def lines(self, rows: List[Row]) -> List[str]:
        if self.command.kind == "show" and self.command.words != ("find",) and not self.command.words[-1] == "get":
            return render.sheet(self.chosen, rows, self.width)
        return render.table(self.chosen, rows, self.width, self.color)

    def repeat(self) -> None:
        """The screen is cleared: what stands in the heading is to be said again."""
        self._named = False

    def without_heading(self) -> None:
        """Of repeated CSV only the first has a heading."""
        self._heading = False

    def name_simulated(self) -> None:
        """Says once that the host is simulated: in the heading on a terminal, else beside the data."""
        if self.backend == "simulated" and not self._named:
            self._named = True
            text = f"simulated host {os.uname().nodename}"
            if self.terminal and self.format == "table":
                print(text[: self.width])
            else:
                print(text, file=sys.stderr)

    def note(self, text: str) -> None:
        """A remark about the rows; it never stands among data."""
        print(f"rynctl: {text}", file=sys.stderr)
