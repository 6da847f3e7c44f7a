"""A description goes into a store and comes back as it was."""

import contextlib
import json
import re
import sqlite3

import pytest
from hostile_answers import SOAK
from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st
from ryn_sim import export, hosts, names, store
from ryn_sim.compile import sql
from ryn_sim.members import COLUMNS
from ryn_sim.yaml_text import to_yaml
from simtool import PROFILES, ROOT

SCHEMA = (ROOT / "simhost" / "schema.sql").read_text()
NAMES = sorted(file.stem for file in PROFILES.glob("*.yaml"))


def rows_of(path) -> dict:
    with contextlib.closing(sqlite3.connect(path)) as db:
        return {
            table: sorted(db.execute(f"SELECT {', '.join(columns)} FROM {table}").fetchall(), key=repr)
            for table, columns in COLUMNS.items()
        }


@pytest.mark.parametrize("profile", NAMES)
def test_a_round_trip_changes_nothing(sim, tmp_path, profile):
    sim("init", profile)
    file = tmp_path / "exported.yaml"
    sim("export", file)
    sim("init", file, "--host", "again")
    assert sim("export", "--host", "again") == file.read_text()
    before, after = (rows_of(sim.path(host)) for host in ("default", "again"))
    seed = COLUMNS["host"].index("seed")
    assert before.pop("host")[0][seed] == after.pop("host")[0][seed]
    assert before == after


def test_what_others_have_stored_comes_back_too(sim, tmp_path):
    """Values that no description would choose, as a program may have stored them through the libraries."""
    sim("init")
    with contextlib.closing(sqlite3.connect(sim.path())) as db:
        (switch_id,) = db.execute("SELECT switch_id FROM dvs WHERE alias = 'dvs-1'").fetchone()
        for scope, port, key, value in (
            ("host", "", names.STORED_BALANCER, bytes(24)),
            ("host", "", names.STORED_BURST, b"\1\0\0\0\2\0\0\0"),
            ("host", "", names.STORED_TEAMING, b"\0\0\0\0\7"),
            ("host", "", names.STORED_FPO, b""),
            ("port", "1000", names.UPLINK_RING, b"\0\1\0\0\0\2\0\0"),
            ("port", "1001", names.UPLINK_RING, b"short"),
            ("port", "none such", names.UPLINK_RING, bytes(8)),
            ("global", "", "it's 'quoted': yes", b"\xff\0\x80"),
            ("global", "", "null", b"null\0"),
        ):
            db.execute("INSERT OR REPLACE INTO prop VALUES (?, ?, ?, ?, ?)", (scope, switch_id, port, key, value))
        db.execute("DELETE FROM prop WHERE key = ? AND switch_id <> ?", (names.PORTSET, switch_id))
        db.execute("DELETE FROM prop WHERE key = ? AND switch_id = ?", (names.ALIAS, switch_id))
        db.execute(
            "UPDATE sw SET lro = 7, panic_on_tx_hang = 4294967295, lb_high = 4294967295, flow_cleared_ms = 12345"
        )
        db.execute("UPDATE port SET ladrf = -1, filter_flags = 4294967295, tx_core = 3 WHERE sw = 0 AND port = 4")
        db.execute("UPDATE port_uplink SET uplink = 4000000000 WHERE sw = 0 AND port = 5 AND seq = 1")
        db.execute("UPDATE conversation SET actions = 4294967295, stop_ms = 99, milli_pps = 1 WHERE id = 7")
        db.execute("INSERT INTO mac_entry VALUES (0, 5, x'020000000001', 4095, 0, 777)")
        db.execute("UPDATE weight SET value = 4294967295 WHERE position = 3")
        db.commit()
    (tmp_path / "e.yaml").write_text(sim("export"))
    sim("init", tmp_path / "e.yaml", "--host", "again")
    before, after = (rows_of(sim.path(host)) for host in ("default", "again"))
    del before["host"], after["host"]
    for table in before:
        assert before[table] == after[table], table


def test_the_stand_ins_profile_is_what_the_description_compiles_to(sim):
    """Made by: ryn-sim init --sql default > simhost/profiles/default.sql"""
    assert sim("init", "--sql", "default") == (PROFILES / "default.sql").read_text()


def test_large_is_as_large_as_the_platform_allows(sim):
    sim("init", "large")
    rows = rows_of(sim.path())
    behind = COLUMNS["port"].index("macs_behind")
    assert len(rows["sw"]) == 16 and len(rows["lcore"]) == 64
    for sw in range(16):
        ports = [row for row in rows["port"] if row[0] == sw]
        machines = [row for row in ports if row[COLUMNS["port"].index("nic")] is None]
        assert len(ports) == 128
        assert sum(row[behind] + 1 for row in machines) == 65536


def test_default_shows_everything_that_the_flow_table_can(sim):
    sim("init")
    actions = 0
    for conversation in json.loads(sim("export", "--json"))["traffic"]:
        for action in conversation.get("actions", []):
            actions |= 1 << names.ACTIONS[action]
    assert actions == sum(1 << bit for bit in names.ACTIONS.values())


@pytest.mark.parametrize("profile", NAMES)
def test_profiles_fill_a_fresh_schema(profile):
    text = (PROFILES / f"{profile}.yaml").read_text()
    with contextlib.closing(sqlite3.connect(":memory:")) as db:
        db.execute("PRAGMA foreign_keys = ON")
        db.executescript(SCHEMA + sql(hosts.compiled(text, profile, profile)))
        assert db.execute("PRAGMA foreign_key_check").fetchall() == []


# Random hosts ---------------------------------------------------------------------------------------------------------

u32 = st.integers(0, 2**32 - 1)
texts = st.text(st.characters(blacklist_categories=["Cs", "Cc", "Zl", "Zp"]), min_size=1, max_size=20)
durations = st.integers(0, 10**9).map(lambda ms: f"{ms}ms")
stations = st.binary(min_size=6, max_size=6).map(lambda raw: bytes((raw[0] & 254, *raw[1:])).hex(":"))
groups = st.binary(min_size=6, max_size=6).map(lambda raw: bytes((raw[0] | 1, *raw[1:])).hex(":"))
values = st.one_of(
    st.none(),
    st.binary(max_size=30).map(lambda raw: "hex:" + raw.hex()),
    texts.map("text:".__add__),
    st.lists(u32, min_size=1, max_size=4).map(lambda numbers: "u32:" + ",".join(map(str, numbers))),
)
balancers = st.fixed_dictionaries(  # type: ignore[misc]
    {}, optional={"metric": st.sampled_from(["none", "cpu", "count"]), "high": u32, "low": u32, "pause": u32}
)


@st.composite
def descriptions(draw):
    cores = draw(st.lists(st.integers(0, 63), unique=True, min_size=1, max_size=8))
    host = {
        "host": draw(st.from_regex(r"[A-Za-z0-9][A-Za-z0-9._-]{0,62}", fullmatch=True)),
        "seed": draw(st.integers(0, 2**63 - 1)),
        "about": draw(st.text(st.characters(blacklist_categories=["Cs", "Cc"]), max_size=30)),
        "numa": [{"lcores": cores}],
        "nics": {f"nic{n}": {"numa": 0, "crc_ppm": draw(st.integers(0, 10**6))} for n in range(4)},
        "clock": {"uptime": draw(durations), "frozen": draw(st.booleans())},
        "switches": [],
        "ports": [],
        "traffic": [],
    }
    aliases = draw(st.lists(texts, unique=True, max_size=3))
    for index, alias in enumerate(aliases):
        switch = {
            "alias": alias,
            "lro": draw(st.one_of(st.booleans(), u32)),
            "balancer": draw(balancers),
            "properties": {
                "host": draw(st.dictionaries(texts, values, max_size=2)),
                "global": draw(st.dictionaries(st.sampled_from([names.ALIAS, names.MARKER, "x"]), values, max_size=2)),
                "ports": draw(
                    st.dictionaries(texts, st.dictionaries(texts, values.filter(bool), max_size=2), max_size=2)
                ),
            },
            "stored": draw(st.fixed_dictionaries({}, optional={"fpo": u32, "burst": u32, "balancer": balancers})),
        }
        if draw(st.booleans()):
            switch["name"] = f"set {index}"
        if draw(st.booleans()):
            switch["marker"] = draw(texts)
        if index == 0 and draw(st.booleans()):
            switch["uplinks"] = ["nic0", "nic1"][: draw(st.integers(0, 2))]
        host["switches"].append(switch)
        for number in draw(st.lists(st.integers(2, 127), unique=True, max_size=4)):
            port = {"switch": alias, "port": number, "vm": draw(texts)}
            port |= draw(
                st.fixed_dictionaries(
                    {},
                    optional={
                        "mac": stations,
                        "vlan": st.integers(0, 4095),
                        "tx_queues": st.integers(0, 32),
                        "filter": st.lists(
                            st.one_of(st.sampled_from(list(names.FILTERS)), st.sampled_from([64, 128])), unique=True
                        ),
                        "ladrf": st.integers(0, 2**64 - 1),
                        "core": st.sampled_from([-1, *cores]),
                        "teaming": st.fixed_dictionaries(
                            {"type": st.sampled_from(list(names.TX_TYPES))},
                            optional={"uplinks": st.lists(u32, max_size=8)},
                        ),
                        "multicast": st.lists(groups, max_size=3),
                        "rings": st.fixed_dictionaries({"tx": u32, "rx": u32}),
                        "macs_cleared": durations,
                    },
                )
            )
            host["ports"].append(port)
            host["traffic"].append(
                {
                    "from": f"{alias}/{number}",
                    "to": "uplink",
                    "pps": draw(st.integers(0, 10**9)) / 1000,
                    "slow": draw(st.integers(0, 1000)) / 1000,
                    "start": draw(durations),
                    "proto": draw(st.integers(0, 255)),
                    "actions": draw(st.lists(st.integers(0, 31), unique=True)),
                }
            )
    return host


@settings(max_examples=2000 if SOAK else 100, deadline=None, suppress_health_check=list(HealthCheck))
@given(description=descriptions())
def test_any_host_comes_back_as_it_was(tmp_path_factory, description):
    text = to_yaml(description)
    from ryn_sim.errors import BadInput

    try:
        rows = hosts.compiled(text, "random", "random")
    except BadInput as error:
        # A name with a slash or a pattern's characters may mean several ports, and two ports may have one address;
        # nothing else can be wrong with these.
        assert re.search("there is no port|is taken already|is that of", str(error)), error
        return
    folder = tmp_path_factory.mktemp("random")
    store.create(str(folder / "one.db"), sql(rows))
    once = to_yaml(export.describe(store.Store(str(folder / "one.db"))))
    again = hosts.compiled(once, "again", "random")
    for table in rows:
        assert sorted(again[table], key=repr) == sorted(rows[table], key=repr), table
    store.create(str(folder / "two.db"), sql(again))
    assert to_yaml(export.describe(store.Store(str(folder / "two.db")))) == once
