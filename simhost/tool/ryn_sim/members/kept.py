"""What the stand-ins and the tool keep in the store for themselves; no description has any of it."""

from __future__ import annotations

from ..kinds import BYTES, LCORE, MS, PORT, SEED, choice, number, text
from .base import ONE, REQUIRED, Entity, M, Table

KEPT = Entity(
    "kept",
    "what the stand-ins and the tool keep for themselves",
    (
        M("", "base.kind", choice("port", "rx", "tx", "flow", "core", "passed", "lost", enum="BaseKind"), REQUIRED),
        M("", "base.sw", number(0, 15, cxx="int"), REQUIRED),
        M("", "base.id", number(0, 2**31 - 1, cxx="int"), REQUIRED),
        M("", "base.counts", BYTES, REQUIRED, "little-endian unsigned 64-bit words"),
        M("", "move.id", number(1, 2**63 - 1), REQUIRED),
        M("", "move.at_ms", MS, REQUIRED),
        M("", "move.sw", number(0, 15, cxx="int"), REQUIRED),
        M("", "move.port", PORT, REQUIRED),
        M("", "move.from_core", LCORE, REQUIRED),
        M("", "move.to_core", LCORE, REQUIRED),
        M("", "log.id", number(1, 2**63 - 1), REQUIRED),
        M("", "log.at_ms", MS, REQUIRED),
        M("", "log.pid", number(0, 2**63 - 1), REQUIRED),
        M("", "log.operation", text(), REQUIRED, "or the event's kind"),
        M("", "log.arguments", text(), ""),
        M("", "log.what", text(), REQUIRED, "'status 0x0BAD0007', 'delay 20 ms', ..."),
        M("", "origin.id", ONE),
        M("", "origin.yaml", text(0, 2**30), "", "'': the shipped profile that host.profile names"),
        M("", "origin.seed", SEED, None, "another one than the description's", null=True),
    ),
)

ENTITIES = (KEPT,)
TABLES = (
    Table(
        "base",
        "The counts at host.segment_ms. Belongs to the stand-ins; a new store has no rows here.",
        ("kind", "sw", "id"),
        row="BaseRow",
        kept=True,
    ),
    Table("move", "Moves of the balancer, the latest few hundred.", ("id",), kept=True),
    Table("log", "Every hit of a fault, and every start and end of an event.", ("id",), kept=True),
    Table(
        "origin", "The description that the host was made from, for a reset: belongs to the tool.", ("id",), kept=True
    ),
)
