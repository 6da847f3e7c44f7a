"""NUMA nodes and their cores."""

from __future__ import annotations

from ..kinds import LCORE, NODE, listed, quantity
from .base import REQUIRED, Entity, M, Table

NODE_ENTITY = Entity(
    "node",
    "a NUMA node: a mapping with lcores",
    (
        M("", "lcore.lcore", LCORE, REQUIRED, field="id"),
        M("", "lcore.node", NODE, REQUIRED),
        M("lcores", "", listed(LCORE, 64, "a list of core numbers"), REQUIRED, "its cores, numbers from 0 to 63"),
        M(
            "capacity",
            "lcore.packets_per_s",
            quantity("packets a second", 1000, 10**9),
            "1M",
            "fast-path packets a second that each core has time for, with a burst size of 32",
        ),
    ),
)

ENTITIES = (NODE_ENTITY,)
TABLES = (Table("lcore", "A core that forwards packets.", ("lcore",), row="CoreRow"),)
