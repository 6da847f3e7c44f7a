"""The host as a whole: its clock and the balancer."""

from __future__ import annotations

from fractions import Fraction
from typing import Any

from .. import names
from ..kinds import BYTES, MS, SEED, SETTING, U32, Kind, Wrong, duration, number, part, scaled, text
from .base import ONE, REQUIRED, Entity, M, Table, items

_HOST_NAME = text(
    1,
    63,
    "a name of up to 63 letters, digits, dots, hyphens and underscores, the first a letter or digit",
    "[A-Za-z0-9][A-Za-z0-9._-]{0,62}",
)


def _parse_frozen(value: Any) -> str:
    if not isinstance(value, bool):
        raise Wrong("true or false")
    return "freeze" if value else "run"


FROZEN = Kind(
    "true or false",
    _parse_frozen,
    lambda mode: mode == "freeze",
    {"type": "boolean"},
    sql="TEXT",
    choices=("run", "freeze"),
    cxx="ClockMode",
)


_WEIGHTS = tuple(
    M(f"balancer.{group}.{name}", "", U32, default if group == "default_weights" else None, about, derived)
    for group, about, derived in (
        ("weights", "what the balancer goes by", "the default weight"),
        ("default_weights", "what ResetLBWeights puts back", ""),
    )
    for name, default in zip(names.WEIGHTS, names.DEFAULT_WEIGHTS)
)

HOST = Entity(
    "host",
    "a mapping that begins with host:",
    (
        M("", "host.id", ONE),
        M("host", "host.name", _HOST_NAME, REQUIRED, "the host's name"),
        M("", "host.profile", text(), REQUIRED, "what it was made from; shown only"),
        M("about", "host.description", text(), "", "a line about it; shown only"),
        M("seed", "host.seed", SEED.held_as("std::uint64_t"), 1, "what is made up follows from it"),
        M(
            "flow_timeout",
            "host.flow_timeout_s",
            duration(10**9, high=2**32 - 1, cxx="std::uint32_t"),
            "10s",
            "whole seconds that an idle flow stays in the table",
        ),
        M("flow_floor", "host.flow_floor_ms", MS, "0s", "history: flows idle since before this have left the table"),
        M("fastslabs", "host.fastslabs", SETTING.held_as("bool"), False, "history: the packet buffers are set up"),
        M("", "host.segment_ms", MS, 0, "since when counting goes on from `base`", own=True),
        M("", "clock.id", ONE),
        M("clock.uptime", "clock.base_host_ns", duration(1), "0s", "host time to begin with"),
        M(
            "clock.speed",
            "clock.speed_permille",
            scaled(
                "a speed from 0.001 to 1000000, in seconds of host time a second",
                Fraction(1, 1000),
                10**6,
                1000,
                "permille",
            ),
            1,
            "seconds of host time a second",
        ),
        M("clock.frozen", "clock.mode", FROZEN, False, "the clock stands"),
        M(
            "",
            "clock.base_wall_ns",
            duration(1),
            0,
            "wall time at base_host_ns; 0: set it at the next opening",
            own=True,
        ),
        M("", "balancer.id", ONE),
        M("balancer.period", "balancer.period_ms", duration(low=100), "5s", "how often the balancer looks"),
        M("", "balancer.tick_ms", MS, 0, "when it last looked"),
        M("", "balancer.state", BYTES, b"", "belongs to the stand-ins", own=True),
        *_WEIGHTS,
        M("numa", "", items("node", "a list of one to eight NUMA nodes", 1, 8), REQUIRED, "a list of nodes; below"),
        M(
            "nics",
            "",
            part(
                "a mapping of NIC names to their descriptions",
                {"type": "object", "additionalProperties": {"$ref": "#/$defs/nic"}},
                dict,
            ),
            None,
            "a mapping of names to NICs; below",
        ),
        M("switches", "", items("switch", "a list of switches"), None, "below"),
        M("ports", "", items("port", "a list of ports"), None, "below"),
        M("traffic", "", items("conversation", "a list of conversations"), None, "below"),
        M("faults", "", items("fault", "a list of faults"), None, "below"),
        M("events", "", items("event", "a list of events"), None, "below"),
    ),
)

WEIGHT = Entity(
    "weight",
    "a weight of the balancer",
    (
        M("", "weight.position", number(0, 7, cxx="int"), REQUIRED, "in the platform's order"),
        M("", "weight.value", U32, REQUIRED),
        M("", "weight.default_value", U32, REQUIRED),
    ),
)

ENTITIES = (HOST, WEIGHT)
TABLES = (
    Table("host", "One row.", ("id",), row="HostRow"),
    Table(
        "clock",
        "One row, the only source of time. Host time is base_host_ns while frozen, else"
        " base_host_ns + (wall time - base_wall_ns) * speed_permille / 1000. It never goes back: whoever writes this"
        " row writes a host time at or after the present one.",
        ("id",),
        row="ClockRow",
    ),
    Table("balancer", "One row. The balancer looks every period_ms of host time.", ("id",), row="BalancerRow"),
    Table("weight", "The balancer's weights, in the platform's order.", ("position",), row="WeightRow"),
)
