"""A store that says what cannot be is refused with its row and its column; none crashes who reads it.

The stores here have the columns of a real one but none of its constraints, as if another program had written them.
"""

from __future__ import annotations

import contextlib
import random
import shutil
import sqlite3
from pathlib import Path

import pytest
import simulated
from hostile_answers import SOAK
from ryn_sim.members import MEMBERS, TABLES

DESCRIPTION = (
    (simulated.ROOT / "simhost" / "profiles" / "default.yaml").read_text()
    + """
faults:
  - {operation: Ryn_GetLRO, where: [sw=0, port=99], delay: 1ms, times: 3, from: 0s, until: 9d}
events:
  - {event: uplink-down, target: lunic1, from: 1h, until: 30h}
  - {event: mac-limit, target: 0, value: 20}
  - {event: counters-near-wrap, target: 0/3, value: 63}
"""
)
ODD = (
    None, -1, 0, 1, 2, 7, 63, 64, 127, 128, 4096, 65535, 65536, 2**31, 2**32 - 1, 2**32, 2**62 + 1, 2**63 - 1, -(2**63),
    0.5, 1e300, "", "x", "0", "0/2", "lunic0", "é" * 500, "a\0b", b"", b"\xff", b"\xff" * 6,
    b"\xff" * 16, b"\xff" * 4096,
)  # fmt: skip
# What a script does with a host that it finds: everything that a store says comes by here.
CALLS: list[list] = [
    ["ListSwitches"], *(["ListPorts", sw] for sw in (0, 1, 9)), *(["GetPortConf", sw, 2] for sw in (0, 1)),
    *([name, 0, port] for name in ("GetPortStats", "GetPortTxUplink", "ListPortMACTable") for port in (2, 14)),
    *([name, 0, 0] for name in ("GetUplinkStats", "GetFPOUplinkStatus", "GetPortNetQInfo")),
    ["GetUplinkQueueStats", 0, 0, 0, 0], ["ListSwitchMACTable", 0], ["GetMirrorConf", 0], ["GetMirrorConf", 1],
    ["DumpFlowTable", 0, 1, 0, 0], ["GetFlowStats", 0, [], 0], ["GetFPOStats", 0, []], ["GetFlowTimeout"],
    ["ListLCoreIDs", 0], ["GetLBWeights"], ["DumpLBSnapshot", 0], ["DumpLBPortStats", 0, 0, 127], ["ListDevAffinity"],
    ["GetLBParams", "dvs-1"], ["GetSwitchBurstSize", "dvs-1"], ["GetPortLRO", 0, 2], ["SetPortLRO", 0, 2, 0],
]  # fmt: skip


@pytest.fixture(scope="module")
def reading(template: Path):
    """A process for all tests, in a list: one that does not live through a test is replaced."""
    running = [simulated.Process(template)]
    yield running
    running[0].close()


@pytest.fixture(scope="module")
def loose(tmp_path_factory: pytest.TempPathFactory, reading: list[simulated.Process]) -> Path:
    """A host in use, its tables made anew without types, keys and conditions."""
    folder = tmp_path_factory.mktemp("loose")
    path = simulated.make(folder / "used.db", DESCRIPTION)
    with contextlib.closing(sqlite3.connect(path)) as db:
        db.execute("UPDATE clock SET base_host_ns = base_host_ns + 77000000000")
        db.commit()
    reading[0].send(path, CALLS)
    reading[0].receive()
    with contextlib.closing(sqlite3.connect(path)) as used, contextlib.closing(
        sqlite3.connect(folder / "loose.db")
    ) as db:
        version = used.execute("PRAGMA user_version").fetchone()[0]
        db.execute(f"PRAGMA user_version = {version}")
        for table in TABLES:
            columns = [member.column for member in MEMBERS[table.name]]
            db.execute(f"CREATE TABLE {table.name} ({', '.join(columns)})")
            rows = used.execute(f"SELECT {', '.join(columns)} FROM {table.name}").fetchall()
            db.executemany(f"INSERT INTO {table.name} VALUES ({', '.join('?' for _ in columns)})", rows)
        db.commit()
        db.execute("PRAGMA journal_mode = WAL")
    return folder / "loose.db"


class Changed:
    """Stores with something changed in them, and what came of reading them."""

    def __init__(self, loose: Path, processes: list[simulated.Process], folder: Path) -> None:
        self.loose, self.processes, self.folder, self.count = loose, processes, folder, 0

    @property
    def process(self) -> simulated.Process:
        return self.processes[0]

    def read(self, statements: list[tuple[str, tuple]]) -> str:
        """What the stand-ins said of the store; the process must have lived through it."""
        self.count += 1
        path = self.folder / f"changed-{self.count}.db"  # of its own name, since a message is said once
        shutil.copy(self.loose, path)
        with contextlib.closing(sqlite3.connect(path)) as db:
            db.execute("PRAGMA synchronous = OFF")
            for sql, values in statements:
                db.execute(sql, values)
            db.commit()
        try:
            self.process.send(path, [["quiet", *CALLS[0]]])
            self.process.receive()
            if "ryn-sim: " not in self.process.stderr:  # one call is enough to refuse
                self.process.send(path, [["quiet", *call] for call in CALLS])
                self.process.receive()
        except (RuntimeError, BrokenPipeError) as error:
            self.process.close()
            self.processes[0] = simulated.Process(self.loose)
            raise AssertionError(f"{error} on {statements}") from None
        for file in self.folder.glob("changed-*"):
            file.unlink()
        return "\n".join(line for line in self.process.stderr.splitlines() if line.startswith("ryn-sim: "))


@pytest.fixture
def changed(loose: Path, reading: list[simulated.Process], tmp_path: Path) -> Changed:
    return Changed(loose, reading, tmp_path)


def wrong_for(member, value) -> bool:
    """Whether a column cannot have a value, whatever the others say."""
    kind = member.kind
    if value is None:
        return not member.null
    if kind.choices:
        return value not in kind.choices
    if kind.sql == "INTEGER":
        return not isinstance(value, int) or not kind.low <= value <= kind.high
    if kind.sql == "TEXT":
        return not isinstance(value, str) or "\0" in value or not kind.low <= len(value.encode()) <= kind.high
    return not isinstance(value, bytes) or not kind.low <= len(value) <= kind.high


def around(member) -> list:
    """Values at a column's limits, on both sides of them, and of other types."""
    kind = member.kind
    if kind.choices:
        return [None, 5, "", "x", *kind.choices]
    if kind.sql == "INTEGER":
        limits = [kind.low - 1, kind.low, kind.low + 1, kind.high - 1, kind.high, kind.high + 1]
        limits += [-(2**63), -1, 2**63 - 1]
        return [None, "x", b"\xff", 0.5, *dict.fromkeys(limit for limit in limits if -(2**63) <= limit < 2**63)]
    if kind.sql == "TEXT":
        return [None, 5, "", "x", "a\0b", "é" * 500, b"\xff"]
    return [None, 5, "x", b"", b"\xff", b"\xff" * 6, b"\xff" * 16, b"\xff" * 4096]


READ = [table for table in TABLES if table.row]


def test_the_host_without_a_change_is_read(changed):
    assert changed.read([]) == ""


@pytest.mark.parametrize("table", READ, ids=lambda table: table.name)
def test_one_changed_field_is_refused_by_name_or_means_something(changed, table):
    refused = 0
    for member in MEMBERS[table.name]:
        if member.kind.low == member.kind.high == 1:  # the key of a single row: nothing reads it
            continue
        for value in around(member):
            first = f"UPDATE {table.name} SET {member.column} = ? WHERE rowid = (SELECT min(rowid) FROM {table.name})"
            said = changed.read([(first, (value,))])
            if wrong_for(member, value):
                assert f".db: {table.name}" in said and f" {member.column} " in said, (member.column, value, said)
                refused += 1
    assert refused > 2


@pytest.mark.parametrize(
    "table, column, value, said",
    [
        ("sw", "switch_id", "nobody", "alias is NULL, expected a text"),
        ("port", "sw", 15, "sw is 15, which is no switch of the datapath"),
        ("port", "nic", "nic9", 'nic is "nic9", which the host does not have'),
        ("port", "nic", None, "kind is an uplink's, but there is no nic"),
        ("port", "kind", 1, "kind is not an uplink's, but there is a nic"),
        ("port_uplink", "port", 127, "port is 127, which is no port of switch 0"),
        ("port_uplink", "uplink", 4294967295, ""),  # a policy may name uplinks that are gone
        ("port_mcast", "sw", 15, ", which is no port of switch 15"),
        ("port_vlan_range", "port", 127, "port is 127, which is no port of switch 0"),
        ("port_vlan_range", "first", 4095, "last is "),
        ("mirror", "sw", 15, "sw is 15, which is no switch of the datapath"),
        ("mirror_port", "session", 65535, "session is 65535, which the switch does not have"),
        ("mirror_port", "port", 127, "port is 127, which is no port of switch "),
        ("mirror_vlan", "session", 65535, "session is 65535, which the switch does not have"),
        ("mac_entry", "sw", 15, "sw is 15, which is no switch of the datapath"),
        ("mac_entry", "port", 127, ""),  # entries of a port outlive it
        ("conversation", "sw", 15, "src_port is "),
        ("conversation", "src_port", 127, "src_port is 127, which is no port of switch 0"),
        ("conversation", "dst_port", 127, "dst_port is 127, which is no port of switch 0"),
        ("conversation", "burst_for_ms", 2**40, "burst_for_ms is longer than what lies between"),
        ("conversation", "stop_ms", 0, ""),
        ("fault_where", "fault", 99, "fault is 99, which is no fault"),
        ("event", "target", "nic9", 'target is "nic9", which uplink-down cannot happen to here'),
        ("event", "value", 5, "value is 5, which means nothing to uplink-down"),
        ("event", "until_ms", 0, "until_ms is not after from_ms"),
        ("base", "sw", 15, ""),  # counts of what is gone
        ("balancer", "state", b"\0" * 1031, "state has 1031 bytes"),
        ("balancer", "state", b"\0" * 1033, "state has 1033 bytes"),
        ("balancer", "state", b"\xff" * 1032, "state has a time of -1 ms in it"),
        ("balancer", "state", b"\0" * 1104 + b"\x80" * 8, "state has a time of -9187201950435737472 ms in it"),
        ("prop", "switch_id", "nobody", ""),  # nobody asks for it
    ],
)
def test_what_leads_nowhere_is_refused_by_name_or_left_alone(changed, table, column, value, said):
    first = f"UPDATE {table} SET {column} = ? WHERE rowid = (SELECT min(rowid) FROM {table})"
    message = changed.read([(first, (value,))])
    assert f".db: {table}" in message and said in message if said else message == ""


@pytest.mark.parametrize("word", [0, 1, 2**32, 2**63, 2**64 - 1], ids="{:#x}".format)
@pytest.mark.parametrize("kind", ["port", "rx", "tx", "flow", "core", "passed", "lost"])
def test_counts_may_be_any_numbers(changed, kind, word):
    """They wrap as the platform's do, and harm nobody."""
    with contextlib.closing(sqlite3.connect(changed.loose)) as db:
        rows = db.execute("SELECT rowid, length(counts) FROM base WHERE kind = ?", (kind,)).fetchall()
    assert rows
    changes = [(word.to_bytes(8, "little") * (length // 8), rowid) for rowid, length in rows]
    assert changed.read([("UPDATE base SET counts = ? WHERE rowid = ?", change) for change in changes]) == ""


@pytest.mark.parametrize("table", READ, ids=lambda table: table.name)
def test_missing_and_doubled_rows_are_no_crash(changed, table):
    changed.read([(f"DELETE FROM {table.name}", ())])
    changed.read([(f"DELETE FROM {table.name} WHERE rowid = (SELECT min(rowid) FROM {table.name})", ())])
    changed.read([(f"INSERT INTO {table.name} SELECT * FROM {table.name}", ())])
    assert (
        f".db: no such table: {table.name}" in changed.read([(f"DROP TABLE {table.name}", ())])
        or table.name == "fault_where"
    )


@pytest.mark.parametrize("seed", range(40 if SOAK else 4))
def test_many_changes_at_once_are_no_crash(changed, seed):
    """A fuzzer: random fields of random rows get random values, odd ones and those of other fields."""
    chance = random.Random(seed)
    fields = [(table.name, member) for table in READ for member in MEMBERS[table.name]]
    with contextlib.closing(sqlite3.connect(changed.loose)) as db:
        known = [value for table in READ for row in db.execute(f"SELECT * FROM {table.name}") for value in row]
    refused = 0
    for _ in range(50):
        statements = []
        for _ in range(chance.choice((1, 1, 2, 5, 20))):
            table, member = chance.choice(fields)
            dice = chance.random()
            value = chance.choice(ODD if dice < 0.3 else known)
            if dice > 0.8 and member.kind.sql == "INTEGER":
                value = chance.randint(member.kind.low, member.kind.high)  # one that is in its limits
            elif dice > 0.8 and member.kind.sql == "BLOB":
                value = chance.randbytes(chance.choice((4, 6, 16, 64, 288, 1000)))
            row = chance.randrange(1 << 16)
            where = f"rowid = 1 + ? % (SELECT max(rowid) FROM {table})"
            statements.append((f"UPDATE {table} SET {member.column} = ? WHERE {where}", (value, row)))
        refused += changed.read(statements) != ""
    assert 5 < refused < 50
