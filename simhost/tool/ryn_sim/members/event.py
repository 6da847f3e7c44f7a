"""Events: what may happen to a host, and when it does."""

from __future__ import annotations

from dataclasses import dataclass

from ..kinds import MS, U32, choice, free, number, text
from .base import REQUIRED, Entity, M, Table


@dataclass(frozen=True)
class Event:
    """Something that can happen to a host."""

    name: str
    target: str  # nic, core, switch or port
    about: str
    values: tuple[int, ...] = ()  # what `value` may be: these,
    low: int = 0  # or a number in these limits
    high: int = 0
    default: int | None = None  # of `value`; None: it has none
    once: bool = False  # it is over as soon as it has happened


EVENTS = (
    Event("uplink-down", "nic", "its link is down; policies choose among the others"),
    Event("uplink-hang", "nic", "its link is up, but nothing is sent"),
    Event("core-stuck", "core", "it works on nothing; what reaches it is dropped"),
    Event("mac-limit", "switch", "its MAC tables hold at most `value` entries", high=2**32 - 1, default=16),
    Event(
        "counters-near-wrap",
        "port",
        "its counters go up to a little below 2^`value`, once",
        values=(32, 63, 64),
        default=32,
        once=True,
    ),
)
EVENT = {event.name: event for event in EVENTS}
EVENT_TARGETS = {"nic": "NIC", "core": "CORE", "switch": "SWITCH", "port": "PORT"}


_TARGET = free(
    "a NIC, a core's number, a switch or a port",
    {"type": ["string", "integer"], "minimum": 0},
    lambda value: isinstance(value, str) or (isinstance(value, int) and not isinstance(value, bool) and value >= 0),
)
EVENT_ENTITY = Entity(
    "event",
    "an event: a mapping with event, target",
    (
        M("", "event.id", number(1, 2**63 - 1), REQUIRED),
        M("event", "event.kind", choice(*EVENT, enum="EventKind"), REQUIRED, "which one, see [Events](#events)"),
        M(
            "target",
            "",
            _TARGET,
            REQUIRED,
            "what it happens to: a NIC, a core's number, a switch's alias or number, a port's name or `SWITCH/NUMBER`",
        ),
        M("", "event.target", text(1, 127), REQUIRED),
        M(
            "value",
            "event.value",
            U32.held_as("std::int64_t"),
            None,
            "of a limit or a size",
            "the event's own",
            null=True,
        ),
        M("from", "event.from_ms", MS, "0s", "in host time"),
        M("until", "event.until_ms", MS, None, "in host time", "no end", null=True),
        M("", "event.started", number(0, 2, cxx="int"), 0, "0 ahead, 1 on, 2 over", field="stage", own=True),
    ),
)

ENTITIES = (EVENT_ENTITY,)
TABLES = (
    Table(
        "event",
        "Something that happens to the host from from_ms (at or after the present) until until_ms (NULL: no end)."
        " target: a NIC's name, a core's or switch's number, or 'SWITCH/PORT'.",
        ("id",),
        ("CHECK (until_ms IS NULL OR until_ms > from_ms)",),
        row="EventRow",
    ),
)
