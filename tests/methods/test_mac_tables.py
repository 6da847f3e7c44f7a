"""The MAC tables of ports and switches, and single entries."""

import gc
import random
import struct
import sys
import tracemalloc

import pytest
from harness import ANY, BUFFER, DICT_ITEM, LIST_ITEM, Bytes, Call, Outcome, capture_stderr, run

ENTRIES, ENTRY = 16, 20
ENTRY_FIELDS = {"macAddr": (0, "6s"), "vlanID": (6, "H"), "rynPortID": (8, "I"), "macGenDiff": (16, "I")}
UNREAD = {12, 13, 14, 15}
INVALID = "TypeError: Invalid parameter passed.\n"


class Table:
    """One of the two listings."""

    def __init__(
        self, method: str, op: str, args: tuple, named: dict, size: int, room: int, keys: list[str], text: str
    ) -> None:
        self.method, self.op, self.args, self.named, self.size, self.room = method, op, args, named, size, room
        self.keys, self.text = keys, text

    def area(self, entries: bytes = b"", count: int | None = None, limit: int = 0, exceeded: int = 0) -> Bytes:
        """An answer whose unread word is full of ones."""
        count = len(entries) // ENTRY if count is None else count
        return Bytes(self.size).u32(0, count, 0xFFFFFFFF, limit, exceeded).raw(ENTRIES, entries)

    def run(self, ryn, double, area: bytes) -> Outcome:
        double.answer(self.op, area=area)
        return run(getattr(ryn, self.method), *self.args)

    def entries(self, ryn, double, area: bytes) -> list:
        outcome = self.run(ryn, double, area)
        assert (outcome.stderr, outcome.error) == ("", None)
        return outcome.value["MacTableList"]


PORT = Table(
    "ListPortMACTable",
    "Ryn_Dump_Port_MAC_Table",
    (15, 127),
    {"swID": 15, "rynPortID": 127},
    327696,
    16384,
    ["MacLimit", "LimitExceeded", "MacTableList"],
    "mac table",
)
SWITCH = Table(
    "ListSwitchMACTable",
    "Ryn_Dump_Switch_MAC_Table",
    (15,),
    {"swID": 15},
    1310736,
    65536,
    ["MacLimit", "MacTableList"],
    "switch mac table",
)
both = pytest.mark.parametrize("table", [PORT, SWITCH], ids=["port", "switch"])


def rows(entries: bytes) -> list[dict]:
    return [
        {
            "macAddr": "%02x:%02x:%02x:%02x:%02x:%02x" % tuple(mac),
            "vlanID": vlan,
            "rynPortID": port,
            "macGenDiff": generations,
        }
        for mac, vlan, port, generations in struct.iter_unpack("<6sHI4xI", entries)
    ]


# ---- Listings


@both
def test_one_call_with_a_zeroed_area_and_an_empty_table(ryn, double, table):
    outcome = run(getattr(ryn, table.method), *table.args)
    assert outcome == Outcome({key: [] if key == "MacTableList" else 0 for key in table.keys})
    assert double.calls() == [Call(table.op, **table.named, length=table.size, zeroed=True)]


@both
def test_empty_table_has_its_limits(ryn, double, table):
    area = Bytes(table.size).raw(0, b"\xff" * table.size).u32(0, 0).u32(8, 500, 7)
    outcome = table.run(ryn, double, area)
    assert list(outcome.value.items()) == (
        [("MacLimit", 500), ("LimitExceeded", 7), ("MacTableList", [])]
        if table is PORT
        else [("MacLimit", 500), ("MacTableList", [])]
    )


@both
@pytest.mark.parametrize("value", [0, 1, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF])
def test_words_are_never_negative(ryn, double, table, value):
    entry = Bytes(ENTRY).u32(8, value).u32(16, value)
    outcome = table.run(ryn, double, table.area(entry, limit=value, exceeded=value))
    assert [item for key, item in outcome.value.items() if key != "MacTableList"] == [value] * (len(table.keys) - 1)
    assert outcome.value["MacTableList"] == rows(entry)
    assert outcome.value["MacTableList"][0]["rynPortID"] == value


@both
def test_entry_keys_and_types(ryn, double, table):
    entry = bytes.fromhex("0211223344fc") + struct.pack("<HIII", 4094, 500, 0xFFFFFFFF, 600)
    (row,) = table.entries(ryn, double, table.area(entry))
    assert list(row.items()) == [
        ("macAddr", "02:11:22:33:44:fc"),
        ("vlanID", 4094),
        ("rynPortID", 500),
        ("macGenDiff", 600),
    ]
    assert [type(value) for value in row.values()] == [str, int, int, int]


@both
@pytest.mark.parametrize("beyond", [-1, 0, 1, 1000, None])
def test_full_table(ryn, double, table, beyond):
    """A count up to the room, above it, and as large as can be: the list ends with the room."""
    entries = random.Random(35).randbytes(table.room * ENTRY)
    count = 0xFFFFFFFF if beyond is None else table.room + beyond
    outcome = table.run(ryn, double, table.area(entries, count=count, limit=9))
    assert (outcome.stderr, outcome.error, list(outcome.value)) == ("", None, table.keys)
    assert outcome.value["MacLimit"] == 9
    assert outcome.value["MacTableList"] == rows(entries)[:count]
    assert len(outcome.value["MacTableList"]) == min(count, table.room)


def test_rooms_of_both_tables():
    assert (PORT.size, SWITCH.size) == (ENTRIES + 16384 * ENTRY, ENTRIES + 65536 * ENTRY)
    assert (PORT.room, SWITCH.room) == (16384, 65536)


@both
@pytest.mark.parametrize("count", [0, 1, 2, 255, 256, 257])
def test_entries_in_their_order(ryn, double, table, count):
    entries = b"".join(
        struct.pack("<6sHIII", bytes([255 - i % 256] * 6), i, 1000 - i, 0xFFFFFFFF, i) for i in range(300)
    )
    assert table.entries(ryn, double, table.area(entries, count=count)) == rows(entries)[:count]


@both
def test_random_tables(ryn, double, table):
    rng = random.Random(36)
    for _ in range(30):
        entries = rng.randbytes(ENTRY * rng.randrange(200))
        assert table.entries(ryn, double, table.area(entries)) == rows(entries)


@both
@pytest.mark.parametrize("count", [1, 2, 3, 1000, 16384])
def test_rows_share_keys_and_numbers(ryn, double, table, count):
    """Numbers that follow one another are one object each, as far as there are rows."""
    vlans = [300 + i % 500 % count for i in range(count)]
    entries = table.entries(
        ryn, double, table.area(b"".join(struct.pack("<6sHI4xI", bytes(6), vlan, 1, vlan) for vlan in vlans))
    )
    assert [entry["vlanID"] for entry in entries] == vlans
    assert len({id(key) for entry in entries for key in entry}) == 4
    assert len({id(entry[key]) for entry in entries for key in ("vlanID", "macGenDiff")}) == len(set(vlans))


@pytest.mark.skipif(sys.version_info[:2] != (3, 11), reason="how large objects are differs between versions")
def test_a_row_takes_at_most_300_bytes(ryn, double):
    chance = random.Random(45)
    area = SWITCH.area(
        b"".join(
            struct.pack(
                "<6sHI4xI",
                chance.randbytes(6),
                chance.randrange(1, 4095),
                chance.randrange(128),
                chance.randrange(1000),
            )
            for _ in range(SWITCH.room)
        )
    )
    SWITCH.entries(ryn, double, area)
    double.answer(SWITCH.op, area=area)
    tracemalloc.start()
    try:
        table = ryn.ListSwitchMACTable(15)
        size = tracemalloc.get_traced_memory()[0]
    finally:
        tracemalloc.stop()
    assert size <= 300 * len(table["MacTableList"])


@both
@pytest.mark.parametrize("byte", [0x01, 0x80, 0xFF])
def test_each_byte_of_an_entry_reaches_its_key(ryn, double, table, byte):
    entries = b"".join(Bytes(ENTRY).u8(offset, byte) for offset in range(ENTRY))
    blank = rows(bytes(ENTRY))[0]
    for offset, row in enumerate(table.entries(ryn, double, table.area(entries))):
        expected = {
            key for key, (start, unit) in ENTRY_FIELDS.items() if start <= offset < start + struct.calcsize("<" + unit)
        }
        assert {key for key in row if row[key] != blank[key]} == expected, offset
        assert bool(expected) == (offset not in UNREAD)


@both
@pytest.mark.parametrize("offset", range(4, 16))
def test_each_byte_of_the_header_reaches_its_key(ryn, double, table, offset):
    value = table.run(ryn, double, Bytes(table.size).u8(offset, 0x80)).value
    expected = {}
    if 8 <= offset < 12:
        expected = {"MacLimit": 0x80 << 8 * (offset - 8)}
    elif offset >= 12 and table is PORT:  # a switch's table does not tell whether its limit is exceeded
        expected = {"LimitExceeded": 0x80 << 8 * (offset - 12)}
    assert value == {**{key: 0 for key in table.keys}, "MacTableList": [], **expected}


@both
@pytest.mark.parametrize("status", [1, 0x0BAD0003, 0x80000000, 0xFFFFFFFF])
def test_table_that_cannot_be_retrieved(ryn, double, table, status):
    double.answer(table.op, status=status, area=table.area(bytes(ENTRY)))
    assert run(getattr(ryn, table.method), *table.args) == Outcome(None, f"Failed to retrieve {table.text}.\n")


@both
@pytest.mark.parametrize("length", [0, 16, 0xFFFFFFFF])
def test_length_that_the_library_leaves_does_not_matter(ryn, double, table, length):
    entries = bytes(range(40))
    double.answer(table.op, area=table.area(entries), length=length)
    assert run(getattr(ryn, table.method), *table.args).value["MacTableList"] == rows(entries)


@both
def test_dict_that_cannot_be_created(ryn, double, table):
    outcome = run(getattr(ryn, table.method), *table.args, failing_allocation=0)
    assert outcome == Outcome(None, f"Failed to allocate {table.text}.\n", (MemoryError, ""))


@both
def test_value_or_key_that_cannot_be_created_or_stored(ryn, double, table):
    method, entries = getattr(ryn, table.method), struct.pack("<6xHI4xI", 1000, 1000, 1000) * 3
    result = table.run(ryn, double, table.area(entries, limit=1000, exceeded=1000))  # the keys are made
    outcomes = [run(method, *table.args, failing_allocation=1)]
    while outcomes[-1].allocation_failed:
        outcomes.append(run(method, *table.args, failing_allocation=1 + len(outcomes)))
    assert outcomes.pop() == result
    assert {outcome.error for outcome in outcomes} == {BUFFER, DICT_ITEM}
    assert {(outcome.value, outcome.stderr) for outcome in outcomes} == {(None, "")}
    # After the outer dict's keys, an entry is built in one go: whatever fails there, the entry cannot be created.
    own_keys = len(outcomes) - outcomes[::-1].index(Outcome(None, error=DICT_ITEM))
    assert own_keys < 10 and len(outcomes) - own_keys >= 3 * 5  # the dict, the text, three numbers


@pytest.mark.skipif(sys.version_info >= (3, 12), reason="this interpreter collects between bytecodes only")
@both
def test_entry_that_cannot_be_stored(ryn, double, table):
    """A hook of the collector empties the half-built list; each slot that it meets there holds an object."""
    entries = bytes(ENTRY * 400)
    method, result = getattr(ryn, table.method), table.run(ryn, double, table.area(entries))
    met = []

    def empty(phase: str, info: dict) -> None:
        for candidate in gc.get_objects(generation=0) if phase == "start" else []:
            rows = candidate.get("MacTableList", ()) if type(candidate) is dict else ()  # itself out of sight
            if len(rows) == 400 and None in rows:
                met.extend(map(type, rows))
                rows.clear()

    thresholds = gc.get_threshold()
    gc.callbacks.append(empty)
    gc.set_threshold(20)
    try:
        outcome = run(method, *table.args)
    finally:
        gc.set_threshold(*thresholds)
        gc.callbacks.remove(empty)
    assert outcome == Outcome(None, error=LIST_ITEM)
    assert {*met} <= {dict, type(None)} and len(met) == 400
    assert run(method, *table.args) == result


# ---- Clearing


CLEARING = [
    ("ClearPortMACTable", "Ryn_Clear_Port_MAC_Table", ["swID", "rynPortID"]),
    ("ClearSwitchMACTable", "Ryn_Clear_Switch_MAC_Table", ["swID"]),
]


@pytest.mark.parametrize("method, op, names", CLEARING)
@pytest.mark.parametrize("swID", range(16))
def test_clearing_answers_none(ryn, double, method, op, names, swID):
    args = (swID, 42)[: len(names)]
    assert run(getattr(ryn, method), *args) == Outcome(None)
    assert double.calls() == [Call(op, **dict(zip(names, args)))]


@pytest.mark.parametrize("method, op, names", CLEARING)
@pytest.mark.parametrize("status", [1, 0x0BAD0003, 0x80000000, 0xFFFFFFFF])
def test_clearing_fails_with_the_same_text_for_port_and_switch(ryn, double, method, op, names, status):
    double.answer(op, status=status)
    assert run(getattr(ryn, method), *(0,) * len(names)) == Outcome(None, "Failed to clear mac table.\n")


# ---- Arguments of listing and clearing


@pytest.mark.parametrize(
    "method, op", [("ListPortMACTable", "Ryn_Dump_Port_MAC_Table"), ("ClearPortMACTable", "Ryn_Clear_Port_MAC_Table")]
)
@pytest.mark.parametrize(
    "port, passed_on",
    [
        (0, 0),
        (127, 127),
        (128, 128),
        (65536, 65536),
        (1 << 31, 1 << 31),
        (0xFFFFFFFF, 0xFFFFFFFF),
        (-1, 0xFFFFFFFF),
        ((1 << 32) + 200, 200),
    ],
)
def test_port_is_not_checked(ryn, double, method, op, port, passed_on):
    outcome = run(getattr(ryn, method), 3, port)
    assert (outcome.stderr, outcome.error) == ("", None)
    (call,) = double.calls()
    assert (call.op, call.swID, call.rynPortID) == (op, 3, passed_on)


FORMATS = {"ListPortMACTable": 2, "ClearPortMACTable": 2, "ListSwitchMACTable": 1, "ClearSwitchMACTable": 1}


@pytest.mark.parametrize("method", FORMATS)
@pytest.mark.parametrize("swID", [16, 17, 65536, 1 << 31, 0xFFFFFFFF, -1, -16, (1 << 32) + 16])
def test_switch_out_of_range(ryn, double, method, swID):
    assert run(getattr(ryn, method), *(swID, 0)[: FORMATS[method]]) == Outcome(None, INVALID)
    assert double.calls() == []


@pytest.mark.parametrize("method", FORMATS)
@pytest.mark.parametrize("wrong", ["0", None, 0.0, b"\0", [], "\udc80"])
def test_what_is_no_number(ryn, double, method, wrong):
    count = FORMATS[method]
    for args in [(wrong,) + (0,) * (count - 1), (0,) * (count - 1) + (wrong,), (0,) * (count + 1), (0,) * (count - 1)]:
        assert run(getattr(ryn, method), *args) == Outcome(None, INVALID, (TypeError, ANY)), args
    assert double.calls() == []


# ---- Single entries


OPERATIONS = {"AddMACEntry": (1, "Failed to add a MAC entry."), "DelMACEntry": (0, "Failed to delete MAC entry.\n")}
entry_methods = pytest.mark.parametrize("method", OPERATIONS)


def reached(ryn, double, method: str, *args) -> Call:
    """The one call that a method makes, which succeeds."""
    double.forget_calls()
    assert run(getattr(ryn, method), *args) == Outcome(None)
    (call,) = double.calls()
    assert (call.op, call.operation) == ("Ryn_MAC_Entry_Ops", OPERATIONS[method][0])
    return call


@entry_methods
def test_entry_with_everything(ryn, double, method):
    call = reached(ryn, double, method, 0, 127, 0x554433221102, 4094)
    assert call == Call(
        "Ryn_MAC_Entry_Ops",
        swID=0,
        rynPortID=127,
        mac=bytes.fromhex("021122334455"),
        vlanID=4094,
        operation=OPERATIONS[method][0],
    )


@entry_methods
@pytest.mark.parametrize("swID", [0, 1, 3, 15, 16, 100, 255, 65535])
@pytest.mark.parametrize("vlan", [0, 1, 10, 4095, 65535])
def test_ordinary_entry_reaches_switch_0_whatever_switch_is_given(ryn, double, method, swID, vlan):
    call = reached(ryn, double, method, swID, 5, 0, vlan)
    assert (call.swID, call.vlanID) == (0, vlan)


@entry_methods
@pytest.mark.parametrize("swID", [0, 7, 65535])
@pytest.mark.parametrize("vlan", [0, 10, 65535])
@pytest.mark.parametrize("high", range(16))
def test_high_half_of_the_vlan_is_the_switch(ryn, double, method, swID, vlan, high):
    call = reached(ryn, double, method, swID, 5, 0, (high << 16) + vlan)
    assert (call.swID, call.vlanID) == (high, vlan)


@entry_methods
@pytest.mark.parametrize(
    "swID, vlan",
    [
        # the high half of the VLAN above 15
        (0, 16 << 16),
        (3, (16 << 16) + 10),
        (0, 0xFFFF << 16),
        (0, -1),
        (0, 0xFFFFFFFF),
        (0, 1 << 31),
        # the high half of the switch not 0
        (65536, 0),
        (65536 + 3, 10),
        (0xFFFF0000, 0),
        (1 << 31, 0),
        (-1, 0),
        (0xFFFFFFFF, 0),
        (65536, 1 << 16),
        (-1, -1),
    ],
)
def test_entry_of_a_switch_out_of_range(ryn, double, method, swID, vlan):
    assert run(getattr(ryn, method), swID, 0, 0, vlan) == Outcome(None, INVALID)
    assert double.calls() == []


@entry_methods
def test_switch_of_an_entry_by_the_rule_for_random_arguments(ryn, double, method):
    rng = random.Random(37)
    for _ in range(300):
        swID = rng.choice([rng.getrandbits(16), rng.getrandbits(17), rng.getrandbits(32)])
        vlan = rng.choice([rng.getrandbits(16), rng.getrandbits(20), rng.getrandbits(21), rng.getrandbits(32)])
        port, mac = rng.getrandbits(32), rng.getrandbits(63)
        double.forget_calls()
        outcome = run(getattr(ryn, method), swID, port, mac, vlan)
        expected = swID // 65536 * 65536 + vlan // 65536
        if expected < 16:
            assert outcome == Outcome(None)
            assert double.calls() == [
                Call(
                    "Ryn_MAC_Entry_Ops",
                    swID=expected,
                    rynPortID=port,
                    mac=(mac % (1 << 48)).to_bytes(6, "little"),
                    vlanID=vlan % 65536,
                    operation=OPERATIONS[method][0],
                )
            ]
        else:
            assert (outcome, double.calls()) == (Outcome(None, INVALID), [])


@entry_methods
@pytest.mark.parametrize(
    "number, mac",
    [
        (0, "000000000000"),
        (1, "010000000000"),
        (0x554433221102, "021122334455"),
        (0x010203040506, "060504030201"),
        ((1 << 48) - 1, "ffffffffffff"),
        (1 << 47, "000000000080"),
        (1 << 48, "000000000000"),
        ((1 << 63) - 1, "ffffffffffff"),
        (0x7FFF000000000001, "010000000000"),
        (-1, "ffffffffffff"),
        (-2, "feffffffffff"),
        (-(1 << 63), "000000000000"),
    ],
)
def test_mac_is_the_six_low_bytes_of_the_number_lowest_first(ryn, double, method, number, mac):
    assert reached(ryn, double, method, 0, 0, number, 0).mac.hex() == mac


@entry_methods
@pytest.mark.parametrize("number", [1 << 63, (1 << 64) - 1, 1 << 64, -(1 << 63) - 1, 1 << 200])
def test_mac_that_is_no_signed_64_bit_number(ryn, double, method, number):
    assert run(getattr(ryn, method), 0, 0, number, 0) == Outcome(None, INVALID, (OverflowError, ANY))
    assert double.calls() == []


@entry_methods
@pytest.mark.parametrize("port, passed_on", [(127, 127), (128, 128), (0xFFFFFFFF, 0xFFFFFFFF), (-1, 0xFFFFFFFF)])
def test_port_of_an_entry_is_not_checked(ryn, double, method, port, passed_on):
    assert reached(ryn, double, method, 0, port, 0, 0).rynPortID == passed_on


@entry_methods
@pytest.mark.parametrize("wrong", ["0", None, 0.0, b"\0", [], "02:11:22:33:44:55", "\udc80"])
@pytest.mark.parametrize("place", range(4))
def test_entry_of_what_is_no_number(ryn, double, method, wrong, place):
    args = [0, 0, 0, 0]
    args[place] = wrong
    assert run(getattr(ryn, method), *args) == Outcome(None, INVALID, (TypeError, ANY))
    assert double.calls() == []


@entry_methods
@pytest.mark.parametrize("args", [(), (0,), (0, 0, 0), (0, 0, 0, 0, 0)])
def test_entry_with_the_wrong_number_of_arguments(ryn, double, method, args):
    assert run(getattr(ryn, method), *args) == Outcome(None, INVALID, (TypeError, ANY))
    assert double.calls() == []


@entry_methods
@pytest.mark.parametrize("status", [1, 0x0BAD0003, 0x80000000, 0xFFFFFFFF])
def test_entry_that_the_library_refuses(ryn, double, method, status):
    double.answer("Ryn_MAC_Entry_Ops", status=status)
    assert run(getattr(ryn, method), 0, 0, 0, 0) == Outcome(None, OPERATIONS[method][1])


def test_failed_add_leaves_its_line_open_for_the_next_text(ryn, double):
    double.answer("Ryn_MAC_Entry_Ops", status=1)
    with capture_stderr() as texts:
        ryn.AddMACEntry(0, 0, 0, 0)
        ryn.DelMACEntry(0, 0, 0, 0)
        ryn.AddMACEntry(0, 0, 0, 0)
        ryn.AddMACEntry(16, 0, 0, 1 << 20)
    assert texts == ["Failed to add a MAC entry.Failed to delete MAC entry.\nFailed to add a MAC entry." + INVALID]
