"""Descriptions with something wrong in them, made by chance: each is refused with a message or makes a sound store."""

import contextlib
import copy
import random
import sqlite3

import pytest
from ryn_sim import hosts
from ryn_sim.compile import sql
from ryn_sim.document import Document
from ryn_sim.errors import BadInput
from ryn_sim.yaml_text import to_yaml
from simtool import PROFILES, ROOT

SCHEMA = (ROOT / "simhost" / "schema.sql").read_text()
ODD: list = [
    None,
    True,
    False,
    0,
    -1,
    1,
    63,
    64,
    127,
    128,
    4095,
    4096,
    65535,
    65536,
    2**32 - 1,
    2**32,
    2**63,
    2**64,
    10**30,
    0.5,
]
ODD += [
    1e300,
    1e-9,
    "",
    "x",
    "*",
    "[",
    "uplink",
    "lunic0",
    "dvs-1",
    "dvs-1/2",
    "{n}",
    "5s",
    "1us",
    "99999999999d",
    "1e5",
]
ODD += [
    "10k",
    "99999T",
    "0.0001k",
    "text:",
    "hex:0",
    "hex:",
    "u32:",
    "u32:5",
    "::1",
    "1.2.3.4",
    "999.1.1.1",
    "é",
    "0-1",
]
ODD += ["9-5", "5000-6000", "key=*", [], {}, [1], ["a"], {"a": 1}, [[]], [{}]]


def places(value, path=()):
    if path:
        yield path
    items = value.items() if isinstance(value, dict) else enumerate(value) if isinstance(value, list) else ()
    for key, item in items:
        yield from places(item, (*path, key))


def mutated(description: dict, chance: random.Random) -> dict:
    description = copy.deepcopy(description)
    for _ in range(chance.choice([1, 1, 1, 2, 3])):
        *way, last = chance.choice(list(places(description)))
        inside = description
        for key in way:
            inside = inside[key]
        what = chance.random()
        if what < 0.1:
            del inside[last]
        elif what < 0.2 and isinstance(inside, dict):
            inside[chance.choice(["x", "mtu", "vlan", "count", "port", "switch"])] = chance.choice(ODD)
        else:
            inside[last] = copy.deepcopy(chance.choice(ODD))
    return description


@pytest.mark.parametrize("profile", ["default", "asymmetric", "overloaded", "degraded"])
def test_a_wrong_description_is_refused_or_sound(profile):
    chance = random.Random(profile)
    description = Document((PROFILES / f"{profile}.yaml").read_text(), profile).value
    refused = sound = 0
    for _ in range(120):
        text = to_yaml(mutated(description, chance))
        try:
            rows = hosts.compiled(text, "mutant.yaml", profile)
        except BadInput as error:
            assert all(line.startswith("mutant.yaml:") for line in str(error).splitlines()), text
            refused += 1
            continue
        with contextlib.closing(sqlite3.connect(":memory:")) as db:
            db.execute("PRAGMA foreign_keys = ON")
            db.executescript(SCHEMA + sql(rows))
        sound += 1
    assert refused > 60 and sound > 3
