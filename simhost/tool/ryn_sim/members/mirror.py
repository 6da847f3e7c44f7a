"""Mirror sessions."""

from __future__ import annotations

from typing import Any

from .. import names
from ..kinds import PORT, U16, VLAN, bits, choice, free, listed, number
from .base import REQUIRED, Entity, M, Table


def _port_reference(value: Any) -> bool:
    return (isinstance(value, str) and value != "") or (
        isinstance(value, int) and not isinstance(value, bool) and 0 <= value <= 127
    )


_PORT_REFERENCE = free(
    "a port's name, or its number from 0 to 127",
    {"anyOf": [{"type": "string", "minLength": 1}, {"type": "integer", "minimum": 0, "maximum": 127}]},
    _port_reference,
)
_PORTS = listed(_PORT_REFERENCE, 128, "a list of port names or numbers")


MIRROR = Entity(
    "mirror",
    "a mirror session: a mapping with session",
    (
        M("", "mirror.sw", number(0, 15, cxx="int"), REQUIRED),
        M("session", "mirror.session", U16, REQUIRED, "its index", field="index", shown="session"),
        M("in", "", _PORTS, None, "ports whose packets it copies as they enter the switch"),
        M("out", "", _PORTS, None, "ports whose packets it copies as they leave the switch"),
        M("to", "", _PORTS, None, "ports that get the copies"),
        M("vlans", "", listed(VLAN, 64, "a list of at most 64 VLANs"), None, "only packets of these", "all"),
        M("encap_vlan", "mirror.encap_vlan", U16, 0, "shown only", shown="encap"),
        M("snap_len", "mirror.snap_len", U16, 0, "copies are cut to so many bytes; 0: they are not", shown="snap"),
        M("sampling_rate", "mirror.sampling_rate", U16, 1, "one packet of so many is copied", shown="1 of"),
        M(
            "flags",
            "mirror.flags",
            bits(names.MIRROR_FLAGS, "flag", 0).held_as("std::uint16_t"),
            [],
            "`vlanEncap` makes a copy four bytes longer; the others are only shown",
            shown="flags",
        ),
    ),
)

MIRROR_PARTS = Entity(
    "mirror_part",
    "a port or VLAN of a mirror session",
    (
        M("", "mirror_port.sw", number(0, 15, cxx="int"), REQUIRED),
        M("", "mirror_port.session", U16, REQUIRED),
        M("", "mirror_port.role", choice("in", "out", "dst", enum="MirrorRole"), REQUIRED),
        M("", "mirror_port.port", PORT, REQUIRED),
        M("", "mirror_vlan.sw", number(0, 15, cxx="int"), REQUIRED),
        M("", "mirror_vlan.session", U16, REQUIRED),
        M("", "mirror_vlan.seq", number(0, 63, cxx="int"), REQUIRED),
        M("", "mirror_vlan.vlan", VLAN, REQUIRED),
    ),
)

ENTITIES = (MIRROR, MIRROR_PARTS)
_SESSION_KEY = "FOREIGN KEY (sw, session) REFERENCES mirror ON DELETE CASCADE"
TABLES = (
    Table("mirror", "A mirror session.", ("sw", "session"), ("FOREIGN KEY (sw) REFERENCES sw",), row="MirrorRow"),
    Table(
        "mirror_port",
        "Its ports, by what they are to it.",
        ("sw", "session", "role", "port"),
        (_SESSION_KEY,),
        row="MirrorPortRow",
    ),
    Table("mirror_vlan", "Its VLANs; none: all.", ("sw", "session", "seq"), (_SESSION_KEY,), row="MirrorVlanRow"),
)
