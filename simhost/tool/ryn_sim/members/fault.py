"""Faults: which calls are made to fail, and how."""

from __future__ import annotations

from typing import Any

from .. import names
from ..kinds import MS, NAME, SEED, choice, free, number, scaled, text
from .base import REQUIRED, Entity, M, Table

_FAULT_NUMBER = number(0, 2**63 - 1)


def _where(value: Any) -> bool:
    return isinstance(value, str) and value.partition("=")[0] in names.FAULT_ARGUMENTS and "=" in value


WHERE_ITEM = free(
    "an argument and what it must match, such as key=*.fpo",
    {"type": "string", "pattern": "^(" + "|".join(names.FAULT_ARGUMENTS) + ")=.*$"},
    _where,
)
WHERE = free(
    "an argument and what it must match, such as key=*.fpo, or a list of them",
    {"anyOf": [WHERE_ITEM.schema, {"type": "array", "items": WHERE_ITEM.schema, "maxItems": 9}]},
    lambda value: isinstance(value, str) or (isinstance(value, list) and len(value) <= 9),
)
FAULT = Entity(
    "fault",
    "a fault: a mapping with operation",
    (
        M("", "fault.id", number(1, 2**63 - 1), REQUIRED),
        M("operation", "fault.operation", NAME, REQUIRED, "an operation's name, or a pattern such as `Ryn_Get*`"),
        M("where", "", WHERE, None, "`ARGUMENT=GLOB`, or a list of them, which must all hold"),
        M(
            "status",
            "fault.status",
            number(1, 2**32 - 1),
            None,
            "answered instead of the operation",
            "the operation answers",
            null=True,
        ),
        M("delay", "fault.delay_ms", MS, "0s", "it waits first"),
        M(
            "corrupt",
            "fault.corrupt",
            choice(*names.CORRUPTIONS, enum="Corruption"),
            None,
            "`zero`, `ones`, `random`, `half`: what is done to the answer's bytes",
            "nothing",
            null=True,
        ),
        M("after", "fault.after", _FAULT_NUMBER, 0, "so many matching calls pass first"),
        M("times", "fault.times", number(1, 2**63 - 1), None, "at most so many calls are touched", "all", null=True),
        M(
            "probability",
            "fault.probability_ppm",
            scaled("a share from 0 to 1", 0, 1, 10**6, "ppm").held_as("std::uint64_t"),
            1,
            "how likely a matching call is touched",
        ),
        M("seed", "fault.seed", SEED.held_as("std::uint64_t"), 1, "of the probability's dice"),
        M("from", "fault.from_ms", MS, None, "in host time", "always", null=True),
        M("until", "fault.until_ms", MS, None, "in host time", "no end", null=True),
        M("", "fault.calls", _FAULT_NUMBER, 0, "matching calls so far", own=True),
        M("", "fault.hits", _FAULT_NUMBER, 0, "of these, touched", own=True),
        M("", "fault_where.fault", number(1, 2**63 - 1), REQUIRED),
        M("", "fault_where.seq", number(0, 8, cxx="int"), REQUIRED),
        M("", "fault_where.name", choice(*names.FAULT_ARGUMENTS, enum="FaultArgument"), REQUIRED, "an argument"),
        M("", "fault_where.glob", text(0, 2**16), REQUIRED, "what that argument, as text, must match"),
    ),
)

ENTITIES = (FAULT,)
TABLES = (
    Table(
        "fault",
        "A rule for calls of an operation. All conditions must hold; the first rule that holds is applied.",
        ("id",),
        row="FaultRow",
    ),
    Table(
        "fault_where",
        "What a fault's calls must have as arguments, all of it.",
        ("fault", "seq"),
        ("FOREIGN KEY (fault) REFERENCES fault ON DELETE CASCADE",),
        row="FaultWhereRow",
    ),
)
