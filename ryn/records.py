"""The records that are made of other records, or of settings. The rest are made by the native part.

All are immutable, have named fields, compare by value and can be pickled. They hold numbers and texts, no objects of
a host.
"""

from __future__ import annotations

from typing import Any, NamedTuple, Tuple

from ryn._records import BalancerCore, BalancerGroup, BalancerPort, BalancerVertex

TEXT_SIZE = 16384  # of the snapshot's text


class Options(NamedTuple):
    """What the balancer of a switch goes by; the units are the datapath's (the simulated host's are percents).

    No core above `high` keeps its load, and only cores below `low` are given more; `pause` is the difference in usage
    below which nothing is moved, `sensitivity` the variation of traffic that counts.
    """

    high: int
    low: int
    pause: int
    sensitivity: int


class Setting(NamedTuple):
    """A setting of a switch.

    `value` is what is in force, as the attribute of the same name gives it; `source` says where it comes from:
    "property" (kept by the host), "datapath" or "default". `stored` is what the host keeps, None where it keeps
    nothing; `running` what the datapath says, None where it has no answer.
    """

    name: str
    value: Any
    source: str
    stored: Any
    running: Any


class RingSize(NamedTuple):
    """The descriptors in an uplink's transmit and receive rings, multiples of 32."""

    tx: int
    rx: int


class Edge(NamedTuple):
    """An edge of the balancer's graph: the numbers of its two vertices, and what flows along it."""

    source: int
    target: int
    load: int
    ema: int


class Snapshot(NamedTuple):
    """The topology that the balancer of a switch saw last. str() is the text of `_libryn.DumpLBSnapshot`."""

    groups: Tuple[BalancerGroup, ...]
    vertices: Tuple[BalancerVertex, ...]

    @property
    def edges(self) -> Tuple[Edge, ...]:
        """The outgoing edges of all vertices, in their order."""
        return tuple(
            Edge(vertex.number, edge.peer, edge.load, edge.ema) for vertex in self.vertices for edge in vertex.outgoing
        )

    def __str__(self) -> str:
        lines = ["", "Groups"]
        lines += [_group_text(number, group) for number, group in enumerate(self.groups)]
        lines += ["", "Veticies and Edges"]  # Deliberate: misspelled, part of the format.
        for vertex in self.vertices:
            lines.append(_vertex_text(vertex, "->", "to  ", vertex.outgoing))
            lines.append(_vertex_text(vertex, "<-", "from", vertex.incoming))
        return ("\n".join(lines) + "\n")[:TEXT_SIZE]


class BalancerStats(NamedTuple):
    """The balancer's last figures: of the ports 0 to 127, and of the cores 0 to 63."""

    ports: Tuple[BalancerPort, ...]
    cores: Tuple[BalancerCore, ...]


def _signed(number: int) -> int:
    """The text shows 32-bit figures as signed ones."""
    return number - (1 << 32) if number >= 1 << 31 else number


def _group_text(number: int, group: BalancerGroup) -> str:
    members = [f" [{port}-TX]" for port in group.tx_ports]
    members += [f" [{port}-RX]" for port in group.rx_ports]
    return f"[{number:3} load {_signed(group.load):3}] :" + "".join(members)


def _vertex_text(vertex: BalancerVertex, arrow: str, label: str, edges: Tuple[Any, ...]) -> str:
    return f"[{_signed(vertex.number):2} WID:{vertex.wid:10} Num:{len(edges):3} F:{vertex.flags:8x}] {arrow}" + "".join(
        f" [{label}:{_signed(edge.peer):2} EMA:{_signed(edge.ema):3} load:{_signed(edge.load):3}]" for edge in edges
    )
