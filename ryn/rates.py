"""Counters of many ports at one time, and the rates between two such readings. Needs no platform library."""

from __future__ import annotations

import time
from typing import Dict, Generic, Hashable, Iterator, List, NamedTuple, Optional, Sequence, Tuple, TypeVar, cast

from ryn._records import CounterTable, MacAddress, PortCounters, Rates

PortT = TypeVar("PortT", bound=Hashable)


class PortKey(NamedTuple):
    """What tells a port from all others, at any time: the datapath's name of the switch, the port's number in it, its
    distributed number and its address. Stands for the port where there is no host, as in a reading that was pickled.
    """

    switch: str
    number: int
    dvport: int
    mac: MacAddress

    def __str__(self) -> str:
        return f"{self.switch}/{self.number}"


def _key(port: Hashable) -> Hashable:
    return getattr(port, "key", port)


class Reading(Generic[PortT]):
    """The counters of many ports: `reading[port]`, `port in reading`, iteration over the ports, len().

    `time` is when it was made, in seconds since 1970 as time.time() has it. A reading can be pickled; its copy has
    keys in place of a host's ports, and can be asked by either.

    >>> import ryn
    >>> host = ryn.Host()
    >>> reading = host.counters()
    >>> len(reading)
    35
    >>> port = host.port("dvs-1/3")
    >>> reading[port].total.tx_packets == port.counters().total.tx_packets  # a host whose clock stands
    True
    """

    __slots__ = ("ports", "table", "time", "clock", "_rows")

    def __init__(
        self,
        ports: Sequence[PortT],
        table: CounterTable,
        time_: Optional[float] = None,
        clock: Optional[float] = None,
    ):
        """`table` has a row for each of the ports, in their order; the times are by default those of now.

        `clock` is a time in seconds that never goes back: rates are reckoned by it.
        """
        if len(ports) != len(table):
            raise ValueError(f"{len(ports)} ports, but {len(table)} rows of counters")
        self.ports: Tuple[PortT, ...] = tuple(ports)
        self.table = table
        self.time = time.time() if time_ is None else time_
        self.clock = time.monotonic() if clock is None else clock
        self._rows: Optional[Dict[Hashable, int]] = None

    @property
    def rows(self) -> Dict[Hashable, int]:
        """Where the counters of a port stand in the table, by the port's key."""
        if self._rows is None:
            self._rows = {_key(port): row for row, port in enumerate(self.ports)}
        return self._rows

    def __len__(self) -> int:
        return len(self.ports)

    def __iter__(self) -> Iterator[PortT]:
        return iter(self.ports)

    def __contains__(self, port: object) -> bool:
        return _key(cast(Hashable, port)) in self.rows

    def __getitem__(self, port: PortT) -> PortCounters:
        """The counters of a port; KeyError where it was not there."""
        try:
            row = self.rows[_key(port)]
        except KeyError:
            raise KeyError(port) from None
        return self.table[row]

    def items(self) -> Iterator[Tuple[PortT, PortCounters]]:
        return zip(self.ports, self.table)

    def rates(self, earlier: Reading[PortT]) -> Tick[PortT]:
        """What was counted since an earlier reading, a second. ValueError if that is not earlier."""
        return Tick(earlier, self)

    def __repr__(self) -> str:
        return f"<ryn.Reading of {len(self)} ports at {self.time:.3f}>"

    def __getstate__(self) -> Tuple[object, ...]:
        return tuple(map(_key, self.ports)), self.table, self.time, self.clock

    def __setstate__(self, state: Tuple[Tuple[PortT, ...], CounterTable, float, float]) -> None:
        self.ports, self.table, self.time, self.clock = state
        self._rows = None


class Tick(Generic[PortT]):
    """The rates between two readings, of the ports that are in both: `tick[port]`, iteration, len().

    A rate has the fields of `Counters`, as numbers a second of both paths together. `seconds` is the time between
    the readings by a clock that never goes back, `time` that of the later one. `resets` are the ports of which a
    counter has fallen; they have no rate. A fall of more than 2^63 is a counter that has wrapped, and no reset.

    >>> import ryn
    >>> table = ryn.CounterTable(bytes(256))
    >>> tick = Reading(["a"], table, clock=3.0).rates(Reading(["a"], table, clock=1.0))
    >>> tick.seconds, tick.top("tx_bytes")[0][1].tx_bytes, tick.resets
    (2.0, 0.0, ())
    """

    __slots__ = ("earlier", "later", "seconds", "resets", "_rates", "_keys")

    def __init__(self, earlier: Reading[PortT], later: Reading[PortT]):
        self.seconds = later.clock - earlier.clock
        if self.seconds <= 0:
            raise ValueError("rates need two readings, the earlier one first")
        self.earlier = earlier
        self.later = later
        self._rates: List[Tuple[PortT, Rates]] = []
        self._keys: Optional[Dict[Hashable, int]] = None
        resets = []
        before = earlier.rows
        for row, port in enumerate(later.ports):
            row_before = before.get(_key(port))
            if row_before is None:
                continue
            rate, fell = later.table.rates(row, earlier.table, row_before, self.seconds)
            if fell:
                resets.append(port)
            elif rate is not None:
                self._rates.append((port, rate))
        self.resets: Tuple[PortT, ...] = tuple(resets)

    @property
    def time(self) -> float:
        return self.later.time

    def __len__(self) -> int:
        return len(self._rates)

    def __iter__(self) -> Iterator[PortT]:
        return (port for port, _ in self._rates)

    def __contains__(self, port: object) -> bool:
        return _key(cast(Hashable, port)) in self._positions()

    def __getitem__(self, port: PortT) -> Rates:
        """The rate of a port; KeyError where it has none."""
        try:
            position = self._positions()[_key(port)]
        except KeyError:
            raise KeyError(port) from None
        return self._rates[position][1]

    def items(self) -> Iterator[Tuple[PortT, Rates]]:
        return iter(self._rates)

    def top(self, field: str, count: Optional[int] = None) -> List[Tuple[PortT, Rates]]:
        """The ports with the highest rates of a field such as "tx_bytes", highest first; of equal ones the earlier
        listed first.

        At most `count` of them, all by default. ValueError for a field that there is not, or a negative count.
        """
        if field not in Rates._fields:
            raise ValueError(f"there is no counter {field!r}; there are {', '.join(Rates._fields)}")
        if count is not None and count < 0:
            raise ValueError(f"a count of {count} is negative")
        column = Rates._fields.index(field)
        return sorted(self._rates, key=lambda pair: -pair[1][column])[:count]

    # Made anew of its readings, which can be pickled.
    def __reduce__(self) -> Tuple[object, ...]:
        return Tick, (self.earlier, self.later)

    def _positions(self) -> Dict[Hashable, int]:
        if self._keys is None:
            self._keys = {_key(port): i for i, (port, _) in enumerate(self._rates)}
        return self._keys

    def __repr__(self) -> str:
        return f"<ryn.Tick of {len(self)} ports over {self.seconds:.3f} s>"
