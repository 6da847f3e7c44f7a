"""Entries of MAC tables that were added or deleted by hand."""

from __future__ import annotations

from typing import Any

from ..kinds import MS, PORT, STATION, TRUTH, VLAN, Kind, number
from .base import REQUIRED, Entity, M, Table


def _parse_deleted(value: Any) -> int:
    return 1 - int(TRUTH.parse(value))


_DELETED = Kind(
    "true or false", _parse_deleted, lambda present: not present, {"type": "boolean"}, low=0, high=1, cxx="bool"
)


MAC_ENTRY = Entity(
    "mac_entry",
    "a MAC table entry: a mapping with port, mac",
    (
        M("", "mac_entry.sw", number(0, 15, cxx="int"), REQUIRED),
        M("port", "mac_entry.port", PORT, REQUIRED, "the port's number"),
        M("mac", "mac_entry.mac", STATION, REQUIRED, "the address"),
        M("vlan", "mac_entry.vlan", VLAN, 0, "its VLAN"),
        M("deleted", "mac_entry.present", _DELETED, False, "it was deleted by hand, not added"),
        M("at", "mac_entry.at_ms", MS, "0s", "when, in host time"),
    ),
)

ENTITIES = (MAC_ENTRY,)
TABLES = (
    Table(
        "mac_entry",
        "Entries added to and deleted from MAC tables by hand; what ports learn follows from the inventory.",
        ("sw", "port", "mac", "vlan"),
        ("FOREIGN KEY (sw) REFERENCES sw",),
        row="MacEntryRow",
    ),
)
