"""--watch: a list again and again."""

from __future__ import annotations

import sys
import time
from typing import TYPE_CHECKING, Any, Callable

from rynctl.cli import number, seconds
from rynctl.errors import DONE

if TYPE_CHECKING:
    from rynctl.cli import Context

INTERVAL = "2"
CLEAR = "\x1b[H\x1b[2J"


def watch(context: Context, work: Callable[[Context], Any]) -> int:
    options, out = context.options, context.out
    interval = seconds(options.interval or INTERVAL, "--interval") or 0.0
    left = number(options.count, "--count", 1)
    due = time.monotonic()
    first = True
    try:
        while True:
            rows = list(work(context))
            if out.format == "table":
                if out.terminal:
                    out.repeat()
                    sys.stdout.write(CLEAR)
                elif not first:
                    print()
            elif out.format == "csv" and not first:
                out.without_heading()
            out.rows(rows)
            sys.stdout.flush()
            first = False
            if left is not None:
                left -= 1
                if not left:
                    return DONE
            due = max(due + interval, time.monotonic())
            time.sleep(max(0.0, due - time.monotonic()))
    except KeyboardInterrupt:
        return DONE
