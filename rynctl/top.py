"""`rynctl top`: the busiest ports, cores or flows, live."""

from __future__ import annotations

import os
import sys
import time
from typing import TYPE_CHECKING, Any, Callable, Dict, Iterator, List, Optional, Tuple

from rynctl import render
from rynctl.cli import number, seconds
from rynctl.errors import DONE, CommandError, UsageError
from rynctl.output import Output
from rynctl.render import Row
from rynctl.rows import core_rows, flow_row, row, which_switches
from rynctl.select import Selection, filter_of, nearest

if TYPE_CHECKING:
    from ryn import Host
    from rynctl.cli import Context

INTERVAL = "2"
BUSY = 95  # percent of a core's time
ORDERS = {"ports": "-tx_bytes", "cores": "-usage", "flows": "-packets"}
HELP = (
    "q        quit",
    "s        sort by the next column; S by the one before",
    "r        turn the order round",
    "/        filter: KEY OP VALUE, such as drops>0; empty: all",
    "space    read now",
    "?        this help; any key leaves it",
)


class Ports:
    """Rates between one reading and the next."""

    def __init__(self, host: Host):
        self.host = host
        self.earlier = host.counters()

    def rows(self) -> Iterator[Row]:
        later = self.host.counters()
        tick = later.rates(self.earlier)
        self.earlier = later
        for port, rate in tick.items():
            yield row(
                "top.ports",
                port.switch.name,
                port.number,
                str(port.kind),
                round(rate.tx_bytes),
                round(rate.rx_bytes),
                round(rate.tx_drops + rate.rx_drops),
                round(rate.tx_packets),
                round(rate.rx_packets),
                round(rate.tx_errors + rate.rx_errors),
                False,
            )
        for port in tick.resets:
            yield row("top.ports", port.switch.name, port.number, str(port.kind), *6 * (None,), True)


class Cores:
    """The balancer's last figures, and the flow cache's rates, of all switches together."""

    def __init__(self, host: Host):
        self.host = host
        self.time, self.earlier = self.read()

    def read(self) -> Tuple[float, Dict[int, List[int]]]:
        found: Dict[int, List[int]] = {}
        for switch in which_switches(self.host, None):
            for stats in switch.flow_stats():
                sums = found.setdefault(stats.core, [0, 0, 0])
                for place, value in enumerate((stats.flows, stats.hits, stats.misses)):
                    sums[place] += value
        return time.monotonic(), found

    def rows(self) -> Iterator[Row]:
        now, later = self.read()
        elapsed = max(now - self.time, 1e-9)
        for each in core_rows(self.host):
            core = each["core"]
            flows, *counts = later.get(core, [0, 0, 0])
            before = self.earlier.get(core, [0, *counts])[1:]
            deltas = [after - earlier for after, earlier in zip(counts, before)]
            reset = min(deltas) < 0
            rates = [None if reset else round(delta / elapsed) for delta in deltas]
            yield row("top.cores", core, each["usage"], each["load"], flows, *rates, reset)
        self.time, self.earlier = now, later


class Flows:
    """The flows with what they counted since the last flush."""

    def __init__(self, host: Host):
        self.host = host

    def rows(self) -> Iterator[Row]:
        for switch in which_switches(self.host, None):
            names = {switch.number: switch.name}
            for flow in switch.flows():
                yield flow_row(flow, names)  # type: ignore[arg-type]


SOURCES: Dict[str, Callable[[Any], Any]] = {"ports": Ports, "cores": Cores, "flows": Flows}


def run(context: Context) -> int:
    options = context.options
    what = options.what or "ports"
    if what not in SOURCES:
        raise UsageError(f"top has no {what!r}{nearest(what, SOURCES) or '; it has ' + ', '.join(SOURCES)}")
    interval = seconds(options.interval or INTERVAL, "--interval") or 0.0
    count = number(options.count, "--count", 1)
    options.sort = options.sort or ORDERS[what]
    out = Output(context.command, options, f"top.{what}")
    out.schema = f"top.{what}"
    host = context._replace(out=out).host()
    source = SOURCES[what](host)
    live = out.terminal and out.format == "table" and sys.stdin.isatty()
    try:
        if live:
            return Screen(source, out, what, interval, count).run()
        return batch(source, out, interval, count)
    except KeyboardInterrupt:
        return DONE


def batch(source: Any, out: Output, interval: float, count: Optional[int]) -> int:
    first = True
    while True:
        if not isinstance(source, Flows) or not first:
            time.sleep(interval)
        if not first and out.format == "table":
            print()
        if not first and out.format == "csv":
            out.without_heading()
        out.rows(source.rows())
        sys.stdout.flush()
        first = False
        if count is not None:
            count -= 1
            if not count:
                return DONE


def stands_out(each: Row) -> bool:
    """Ports that drop, and cores that have no time left."""
    return (
        bool(each.get("drops"))
        or bool(each.get("errors"))
        or bool(each.get("reset"))
        or (each.get("usage") is not None and each["usage"] >= BUSY)
    )


class Screen:
    """The live view in a terminal."""

    def __init__(self, source: Any, out: Output, what: str, interval: float, count: Optional[int]):
        assert out.selection is not None
        self.source = source
        self.out = out
        self.what = what
        self.interval = interval
        self.count = count
        self.selection: Selection = out.selection
        self.all: List[Row] = []
        self.error: Optional[str] = None
        self.filter_text = ""

    def run(self) -> int:
        import curses

        os.environ.setdefault("ESCDELAY", "25")
        curses.use_env(False)  # the terminal's own size, not that of COLUMNS and LINES
        try:
            return curses.wrapper(self.loop)
        except curses.error as error:
            raise CommandError(f"top cannot use this terminal (TERM={os.environ.get('TERM', '')}): {error}") from None

    def loop(self, window: Any) -> int:
        import curses

        self.curses = curses
        self.window = window
        try:
            curses.curs_set(0)
        except curses.error:  # a terminal that cannot hide its cursor
            pass
        self.alarm = curses.A_BOLD
        if self.out.color and curses.has_colors():
            curses.use_default_colors()
            curses.init_pair(1, curses.COLOR_RED, -1)
            self.alarm |= curses.color_pair(1)
        due = time.monotonic() + (0 if self.what == "flows" else min(self.interval, 0.5))
        self.draw("reading...")
        while True:
            window.timeout(max(0, int((due - time.monotonic()) * 1000)))
            key = window.getch()
            if key in (ord("q"), ord("Q")):
                return DONE
            if key == -1 or key == ord(" "):
                self.all = list(self.source.rows())
                due = time.monotonic() + self.interval
                if self.count is not None:
                    self.count -= 1
                    if not self.count:
                        return DONE
            elif not self.pressed(key):
                continue
            self.draw()

    def pressed(self, key: int) -> bool:
        """What a key does; whether anything is to be drawn anew."""
        if key == ord("?"):
            self.help()
        elif key in (ord("s"), ord("S")):
            self.next_column(1 if key == ord("s") else -1)
        elif key == ord("r"):
            self.selection.down = not self.selection.down
        elif key == ord("/"):
            self.ask_filter()
        elif key != self.curses.KEY_RESIZE:
            return False
        return True

    def next_column(self, step: int) -> None:
        columns = self.out.columns
        place = columns.index(self.selection.sort) if self.selection.sort in columns else -1
        self.selection.sort = columns[(place + step) % len(columns)]
        self.selection.down = self.selection.sort.type in ("int", "count", "float")

    def ask_filter(self) -> None:
        curses = self.curses
        height, width = self.window.getmaxyx()
        self.put(height - 1, "filter: ".ljust(width - 1), curses.A_REVERSE)
        self.window.refresh()
        curses.echo()
        self.window.timeout(-1)
        try:
            text = self.window.getstr(height - 1, 8, max(1, width - 10)).decode("utf-8", "replace").strip()
        finally:
            curses.noecho()
        self.error = None
        try:
            self.selection.filters = [filter_of(self.out.columns, text)] if text else []
            self.filter_text = text
        except UsageError as error:
            self.error = str(error)

    def help(self) -> None:
        self.window.erase()
        for y, text in enumerate(("Keys", "", *HELP)):
            self.put(y, text, self.curses.A_BOLD if y == 0 else 0)
        self.window.refresh()
        self.window.timeout(-1)
        self.window.getch()

    def put(self, y: int, text: str, attribute: int = 0) -> None:
        height, width = self.window.getmaxyx()
        if y < height:
            try:
                self.window.addnstr(y, 0, text.encode(sys.stdout.encoding or "ascii", "replace"), width - 1, attribute)
            except self.curses.error:  # the terminal has just become smaller
                pass

    def draw(self, status: str = "") -> None:
        height, width = self.window.getmaxyx()
        rows = self.selection.rows(self.all)
        sort = self.selection.sort.name if self.selection.sort else "-"
        title = f"rynctl top {self.what}  {os.uname().nodename}"
        if self.out.backend == "simulated":
            title += " (simulated)"
        state = f"{time.strftime('%H:%M:%S')}  every {self.interval:g} s  {len(rows)} of {len(self.all)}  by {sort}"
        if self.filter_text:
            state += f"  where {self.filter_text}"
        self.window.erase()
        self.put(0, title, self.curses.A_BOLD)
        self.put(1, status or self.error or state)
        room = max(0, height - 5)
        shown = rows[:room]
        chosen = self.out.chosen
        headings, cells, widths = render.layout(chosen, shown)
        count = len(widths) if self.out.all_columns else render.fitting(widths, width - 1)
        columns = chosen[:count]
        self.put(3, render.line(columns, headings, widths).ljust(width - 1), self.curses.A_REVERSE)
        for y, (each, texts) in enumerate(zip(shown, cells), 4):
            self.put(y, render.line(columns, texts, widths), self.alarm if stands_out(each) else 0)
        self.put(height - 1, "q quit  ? help  s sort  r reverse  / filter", self.curses.A_DIM)
        self.window.refresh()
