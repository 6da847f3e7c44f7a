"""The members of a simulated host: one row for each key of a description and each column of the store.

Each file is a kind of thing that a host has: its members, and the tables of the store that hold them. schema.sql,
host.schema.json, the stand-ins' rows.h and the tables of docs/ryn-sim.md are written from here by generate.py;
compiling, exporting, showing and setting go by these rows as they are. A new setting is a row here and its use in the
stand-ins.
"""

from __future__ import annotations

from typing import Any

from . import conversation, event, fault, host, kept, mac_entry, mirror, nic, node, port, switch
from .base import Member

_TOPICS = (host, node, nic, switch, port, mirror, mac_entry, conversation, fault, event, kept)

ENTITIES = tuple(entity for topic in _TOPICS for entity in topic.ENTITIES)
# The store's tables, in the order in which they can be filled
TABLES = tuple(table for topic in _TOPICS for table in topic.TABLES)
# What the parts of a description are lists or mappings of, by their keys; "": the whole
PARTS = {
    "": host.HOST,
    "numa": node.NODE_ENTITY,
    "nics": nic.NIC,
    "switches": switch.SWITCH,
    "ports": port.PORT_ENTITY,
    "traffic": conversation.CONVERSATION,
    "faults": fault.FAULT,
    "events": event.EVENT_ENTITY,
    "mirrors": mirror.MIRROR,
    "mac_entries": mac_entry.MAC_ENTRY,
}
TABLE = {table.name: table for table in TABLES}


def _of(table: str) -> tuple[Member, ...]:
    members = [member for entity in ENTITIES for member in entity.members if member.table == table]
    key = TABLE[table].key
    rank = {column: position for position, column in enumerate(key)}
    return tuple(sorted(members, key=lambda member: rank.get(member.column, len(key))))


MEMBERS = {table.name: _of(table.name) for table in TABLES}
# The columns that compiling writes: all but the stand-ins' and the tool's own.
COLUMNS = {
    table: tuple(member.column for member in members if not member.own)
    for table, members in MEMBERS.items()
    if not TABLE[table].kept
}


def member(table: str, column: str) -> Member:
    """The row of a column."""
    return next(found for found in MEMBERS[table] if found.column == column)


def default(table: str, column: str) -> Any:
    """A column's default, as the store has it."""
    return member(table, column).stored_default
