"""ListSwitches and ListPorts: what each byte of the platform's answers becomes, and how they fail."""

import gc
import random
import struct
import sys

import pytest
from harness import ANY, BUFFER, LIST_ITEM, Bytes, Call, Outcome, run

SWITCH_AREA, SWITCHES, SWITCH, SWITCH_ROOM = 2568, 8, 160, 16
SWITCH_FIELDS = {
    "name": (0, "128s"),
    "swID": (128, "I"),
    "maxPorts": (132, "I"),
    "numActivePorts": (136, "I"),
    "numPorts": (140, "I"),
    "mtu": (144, "I"),
    "numLcores": (148, "I"),
    "lcores": (152, "q"),
}

PORT_AREA, PORTS, PORT, PORT_ROOM, QUEUE_ROOM = 11532, 12, 90, 128, 32
PORT_FIELDS = {
    "portID": (0, "I"),
    "rynPortID": (4, "I"),
    "numTxQ": (8, "B"),
    "numRxQ": (9, "B"),
    "hwAddr": (10, "6s"),
    "numMACs": (16, "H"),
    "clientType": (18, "I"),
    "txQLM": (26, "32s"),
    "rxQLM": (58, "32s"),
}
CLIENT_TYPES = {1: "VNIC", 2: "UPLINK", 3: "GENERIC", 4: "QOBNIC"}

COUNTS = [0, 1, 2, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF]
INVALID = "TypeError: Invalid switch ID passed.\n"


def fields(layout: dict, record: bytes) -> dict:
    return {key: struct.unpack_from("<" + unit, record, offset)[0] for key, (offset, unit) in layout.items()}


def switch_row(record: bytes) -> dict:
    row = fields(SWITCH_FIELDS, record)
    row["name"] = row["name"].split(b"\0")[0].decode()
    return row


def port_row(record: bytes) -> dict:
    row = fields(PORT_FIELDS, record)
    row["hwAddr"] = "%02x:%02x:%02x:%02x:%02x:%02x" % tuple(row["hwAddr"])
    row["clientType"] = CLIENT_TYPES.get(row["clientType"], "UNKNOWN")
    row["txQLM"] = list(row["txQLM"][: row["numTxQ"]])
    row["rxQLM"] = list(row["rxQLM"][: row["numRxQ"]])
    return row


def switch_area(*records: bytes, count: int | None = None) -> Bytes:
    """An answer whose unread word is full of ones."""
    return (
        Bytes(SWITCH_AREA).raw(SWITCHES, b"".join(records)).u32(0, len(records) if count is None else count, 0xFFFFFFFF)
    )


def port_area(*records: bytes, count: int | None = None) -> Bytes:
    """An answer whose two unread words are full of ones."""
    return (
        Bytes(PORT_AREA)
        .raw(PORTS, b"".join(records))
        .u32(0, 0xFFFFFFFF, len(records) if count is None else count, 0xFFFFFFFF)
    )


def random_switch(rng: random.Random) -> bytes:
    name = "".join(rng.choice("abc-_ 0\n\u00e9\u4e2d\U0001f50c") for _ in range(rng.randrange(40))).encode()[:128]
    name = name.decode(errors="ignore").encode()
    garbage = b"" if len(name) == 128 else b"\0" + rng.randbytes(127 - len(name))
    return name + garbage + rng.randbytes(32)


def random_port(rng: random.Random) -> bytes:
    record = Bytes(PORT).raw(0, rng.randbytes(PORT))
    record.u8(8, rng.randrange(33), rng.randrange(33))
    if rng.random() < 0.8:
        record.u32(18, rng.randrange(6))
    return bytes(record)


def listed(ryn, double, area: bytes) -> list:
    """The rows of ListSwitches or ListPorts, told apart by the area, where nothing goes wrong."""
    if len(area) == SWITCH_AREA:
        double.answer("Ryn_Get_Switch_List", area=area)
        outcome = run(ryn.ListSwitches)
    else:
        double.answer("Ryn_Get_Port_List", area=area)
        outcome = run(ryn.ListPorts, 0)
    assert (outcome.stderr, outcome.error) == ("", None)
    return outcome.value


# ---- ListSwitches


def test_switches_are_asked_for_in_one_call_with_a_zeroed_area(ryn, double):
    assert run(ryn.ListSwitches) == Outcome([])
    assert double.calls() == [Call("Ryn_Get_Switch_List", length=2568, zeroed=True)]


@pytest.mark.parametrize("args", [(1,), ("text", None), (object(), -1, 1 << 99), (b"\0",) * 40])
def test_switches_ignore_any_arguments(ryn, double, args):
    double.answer("Ryn_Get_Switch_List", area=switch_area(bytes(SWITCH)))
    assert run(ryn.ListSwitches, *args) == run(ryn.ListSwitches)


def test_switch_keys_and_types(ryn, double):
    (row,) = listed(ryn, double, switch_area(b"dvs-1".ljust(128, b"\0") + struct.pack("<6Iq", 1, 2, 3, 4, 5, 6, 7)))
    assert list(row.items()) == [
        ("name", "dvs-1"),
        ("swID", 1),
        ("maxPorts", 2),
        ("numActivePorts", 3),
        ("numPorts", 4),
        ("mtu", 5),
        ("numLcores", 6),
        ("lcores", 7),
    ]
    assert [type(value) for value in row.values()] == [str] + [int] * 7


@pytest.mark.parametrize("count", sorted({*COUNTS, 3, 15, 16, 17, 32}))
def test_switch_list_is_as_long_as_the_count_and_the_room(ryn, double, count):
    records = [struct.pack("<128s6IQ", b"switch %d" % i, *[100 - i] * 6, i) for i in range(SWITCH_ROOM)]
    rows = listed(ryn, double, switch_area(*records, count=count))
    assert rows == [switch_row(record) for record in records[:count]]
    assert len(rows) == min(count, 16)


def test_no_switches_is_an_empty_list_whatever_lies_behind_the_count(ryn, double):
    assert listed(ryn, double, Bytes(SWITCH_AREA).raw(0, b"\xff" * SWITCH_AREA).u32(0, 0)) == []


def test_switches_keep_the_order_of_the_library(ryn, double):
    records = [Bytes(SWITCH).u32(128, swID).text(0, "same") for swID in (9, 0, 15, 9)]
    assert [row["swID"] for row in listed(ryn, double, switch_area(*records))] == [9, 0, 15, 9]


def test_random_switches(ryn, double):
    rng = random.Random(31)
    for _ in range(100):
        records = [random_switch(rng) for _ in range(rng.randrange(17))]
        assert listed(ryn, double, switch_area(*records)) == [switch_row(record) for record in records]


@pytest.mark.parametrize("byte", [0x01, 0x7F])
def test_each_byte_of_a_switch_reaches_its_key(ryn, double, byte):
    (blank,) = listed(ryn, double, switch_area(bytes(SWITCH)))
    for offset in range(SWITCH):
        record = Bytes(SWITCH).u8(offset, byte)
        (row,) = listed(ryn, double, switch_area(record))
        assert row == switch_row(record), offset
        changed = {key for key in row if row[key] != blank[key]}
        expected = {
            key for key, (start, unit) in SWITCH_FIELDS.items() if start <= offset < start + struct.calcsize("<" + unit)
        }
        assert changed == (expected if offset == 0 or offset >= 128 else set()), offset  # a name ends at its first NUL


@pytest.mark.parametrize("value", [0, 1, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF])
def test_words_of_a_switch_are_never_negative(ryn, double, value):
    (row,) = listed(ryn, double, switch_area(bytes(128) + struct.pack("<6I", *[value] * 6) + bytes(8)))
    assert [row[key] for key in ("swID", "maxPorts", "numActivePorts", "numPorts", "mtu", "numLcores")] == [value] * 6


@pytest.mark.parametrize(
    "bits, value",
    [
        (0, 0),
        (1, 1),
        (1 << 31, 1 << 31),
        (1 << 32, 1 << 32),
        ((1 << 63) - 1, (1 << 63) - 1),
        (1 << 63, -(1 << 63)),
        ((1 << 64) - 1, -1),
        ((1 << 63) + 5, -(1 << 63) + 5),
    ],
)
def test_lcores_with_the_top_bit_come_out_negative(ryn, double, bits, value):
    (row,) = listed(ryn, double, switch_area(Bytes(SWITCH).u64(152, bits)))
    assert row["lcores"] == value


@pytest.mark.parametrize(
    "name",
    [
        "",
        "d",
        "dvs 1\n",
        "%s%n",
        "\u00e9\u4e2d\U0001f50c",
        "x" * 126,
        "x" * 127,
        "\u00e9" * 63,
        "\U0010ffff" * 31,
    ],
)
def test_switch_name_ends_at_its_first_nul(ryn, double, name):
    data = name.encode() + b"\0"
    (row,) = listed(ryn, double, switch_area(data + b"\xff" * (SWITCH - len(data))))
    assert row == {
        "name": name,
        "swID": 0xFFFFFFFF,
        "maxPorts": 0xFFFFFFFF,
        "numActivePorts": 0xFFFFFFFF,
        "numPorts": 0xFFFFFFFF,
        "mtu": 0xFFFFFFFF,
        "numLcores": 0xFFFFFFFF,
        "lcores": -1,
    }


@pytest.mark.parametrize("name", ["x" * 128, "\u00e9" * 64, "\U0001f50c" * 32])
def test_unterminated_switch_name_ends_with_its_field(ryn, double, name):
    record = name.encode() + b"y" * 32
    rows = listed(ryn, double, switch_area(*[record] * 16))  # the last one ends with the area
    assert [row["name"] for row in rows] == [name] * 16
    assert rows[15]["swID"] == 0x79797979


NOT_UTF8 = {
    "lone byte": b"dvs\xff",
    "cut sequence": b"\xc3",
    "overlong": b"\xc0\x80",
    "surrogate": b"\xed\xa0\x80",
    "above the last character": b"\xf4\x90\x80\x80",
    "cut by the end of the field": b"x" * 127 + b"\xc3",
}


@pytest.mark.parametrize("name", NOT_UTF8.values(), ids=NOT_UTF8.keys())
@pytest.mark.parametrize("place", [0, 7, 15])
def test_switch_name_that_is_not_utf8(ryn, double, name, place):
    records = [bytes(SWITCH)] * 16
    records[place] = name.ljust(128, b"\0") + b"\xa9" * 32
    double.answer("Ryn_Get_Switch_List", area=switch_area(*records))
    assert run(ryn.ListSwitches) == Outcome(None, error=BUFFER)


def test_bad_name_behind_the_count_is_not_looked_at(ryn, double):
    assert len(listed(ryn, double, switch_area(bytes(SWITCH), b"\xff" * SWITCH, count=1))) == 1


@pytest.mark.parametrize("status", [1, 0x0BAD0003, 0x80000000, 0xFFFFFFFF])
def test_switches_that_cannot_be_retrieved(ryn, double, status):
    double.answer("Ryn_Get_Switch_List", status=status, area=switch_area(bytes(SWITCH)))
    assert run(ryn.ListSwitches) == Outcome(None, "Failed to retrieve list of switches.\n")


@pytest.mark.parametrize("length", [0, 4, 2569, 0xFFFFFFFF])
def test_length_that_the_library_leaves_does_not_matter(ryn, double, length):
    double.answer("Ryn_Get_Switch_List", area=switch_area(bytes(SWITCH)), length=length)
    double.answer("Ryn_Get_Port_List", area=port_area(bytes(PORT)), length=length)
    assert len(run(ryn.ListSwitches).value) == len(run(ryn.ListPorts, 0).value) == 1


# ---- ListPorts


@pytest.mark.parametrize("swID", range(16))
def test_ports_are_asked_for_in_one_call_with_a_zeroed_area(ryn, double, swID):
    assert run(ryn.ListPorts, swID) == Outcome([])
    assert double.calls() == [Call("Ryn_Get_Port_List", swID=swID, length=11532, zeroed=True)]


@pytest.mark.parametrize("swID", [16, 17, 255, 256, 65536, 1 << 31, (1 << 32) - 1, -1, -16, (1 << 32) + 16, -(1 << 31)])
def test_ports_of_a_switch_out_of_range(ryn, double, swID):
    assert run(ryn.ListPorts, swID) == Outcome(None, INVALID)
    assert double.calls() == []


@pytest.mark.parametrize("args", [(), (1, 2), (None,), ("1",), (1.0,), (b"\1",), ([],), ("\udc80",)])
def test_ports_of_what_is_no_switch(ryn, double, args):
    assert run(ryn.ListPorts, *args) == Outcome(None, INVALID, (TypeError, ANY))
    assert double.calls() == []


def test_port_keys_and_types(ryn, double):
    record = struct.pack(
        "<IIBB6sHI4s32s32s",
        67108864,
        5,
        1,
        2,
        bytes.fromhex("0200000a0bfc"),
        300,
        2,
        b"\xff" * 4,
        bytes(range(1, 33)),
        bytes(range(101, 133)),
    )
    (row,) = listed(ryn, double, port_area(record))
    assert list(row.items()) == [
        ("portID", 67108864),
        ("rynPortID", 5),
        ("numTxQ", 1),
        ("numRxQ", 2),
        ("hwAddr", "02:00:00:0a:0b:fc"),
        ("numMACs", 300),
        ("clientType", "UPLINK"),
        ("txQLM", [1]),
        ("rxQLM", [101, 102]),
    ]
    assert [type(value) for value in row.values()] == [int, int, int, int, str, int, str, list, list]


@pytest.mark.parametrize("count", sorted({*COUNTS, 127, 128, 129, 256}))
def test_port_list_is_as_long_as_the_count_and_the_room(ryn, double, count):
    records = [
        Bytes(PORT).u32(0, 1000 - i, i).u8(8, i % 33, 32 - i % 33).raw(26, bytes(range(i, i + 64)))
        for i in range(PORT_ROOM)
    ]
    rows = listed(ryn, double, port_area(*records, count=count))
    assert rows == [port_row(record) for record in records[:count]]
    assert len(rows) == min(count, 128)


def test_no_ports_is_an_empty_list_whatever_lies_around_the_count(ryn, double):
    assert listed(ryn, double, Bytes(PORT_AREA).raw(0, b"\xff" * PORT_AREA).u32(4, 0)) == []


def test_ports_keep_the_order_of_the_library(ryn, double):
    records = [Bytes(PORT).u32(4, port) for port in (127, 0, 5, 127)]
    assert [row["rynPortID"] for row in listed(ryn, double, port_area(*records))] == [127, 0, 5, 127]


def test_random_ports(ryn, double):
    rng = random.Random(32)
    for _ in range(60):
        records = [random_port(rng) for _ in range(rng.randrange(129))]
        assert listed(ryn, double, port_area(*records)) == [port_row(record) for record in records]


@pytest.mark.parametrize("byte", [0x01, 0x80, 0xFF])
def test_each_byte_of_a_port_reaches_its_key(ryn, double, byte):
    base = Bytes(PORT).u8(8, 32, 32)
    (blank,) = listed(ryn, double, port_area(base))
    for offset in {*range(PORT)} - {8, 9}:
        record = Bytes(PORT).raw(0, base).u8(offset, byte)
        (row,) = listed(ryn, double, port_area(record))
        assert row == port_row(record), offset
        changed = {key for key in row if row[key] != blank[key]}
        expected = {
            key for key, (start, unit) in PORT_FIELDS.items() if start <= offset < start + struct.calcsize("<" + unit)
        }
        if offset in range(18, 22):
            expected &= {"clientType"} if (offset, byte) == (18, 1) else set()  # other codes are UNKNOWN as 0 is
        assert changed == expected, offset


@pytest.mark.parametrize("tx", [0, 1, 31, 32, 33, 128, 255])
@pytest.mark.parametrize("rx", [0, 1, 32, 33, 255])
def test_queue_lists_are_as_long_as_their_counts_and_the_room(ryn, double, tx, rx):
    record = Bytes(PORT).u8(8, tx, rx).raw(26, bytes(range(192, 256)))
    for row in listed(ryn, double, port_area(*[record] * 128)):  # the last one ends with the area
        assert (row["numTxQ"], row["numRxQ"]) == (tx, rx)  # as they came
        assert row["txQLM"] == [*range(192, 192 + min(tx, 32))]
        assert row["rxQLM"] == [*range(224, 224 + min(rx, 32))]


def test_every_value_of_a_queue_is_passed_on(ryn, double):
    records = [Bytes(PORT).u8(8, 32, 32).raw(26, bytes((64 * i + j) % 256 for j in range(64))) for i in range(4)]
    rows = listed(ryn, double, port_area(*records))
    assert [value for row in rows for value in row["txQLM"] + row["rxQLM"]] == [*range(256)]


@pytest.mark.parametrize(
    "code, name",
    [
        (0, "UNKNOWN"),
        (1, "VNIC"),
        (2, "UPLINK"),
        (3, "GENERIC"),
        (4, "QOBNIC"),
        (5, "UNKNOWN"),
        (6, "UNKNOWN"),
        (0x100, "UNKNOWN"),
        (0x10001, "UNKNOWN"),
        (0x1000001, "UNKNOWN"),
        (0x80000001, "UNKNOWN"),
        (0x80000000, "UNKNOWN"),
        (0xFFFFFFFF, "UNKNOWN"),
        (0xFFFFFFFE, "UNKNOWN"),
    ],
)
def test_client_types(ryn, double, code, name):
    (row,) = listed(ryn, double, port_area(Bytes(PORT).u32(18, code)))
    assert row["clientType"] == name


def test_every_byte_of_a_mac_address_is_two_lower_case_digits(ryn, double):
    for place in range(6):
        for half in (0, 128):
            records = [Bytes(PORT).u8(10 + place, half + i) for i in range(128)]
            rows = listed(ryn, double, port_area(*records))
            assert [row["hwAddr"] for row in rows] == [
                ":".join(["00"] * place + ["%02x" % (half + i)] + ["00"] * (5 - place)) for i in range(128)
            ]
            # Made in place: the str must know by itself that it is plain ASCII
            assert {(row["hwAddr"].isascii(), sys.getsizeof(row["hwAddr"])) for row in rows} == {
                (True, sys.getsizeof("00:00:00:00:00:00"))
            }


@pytest.mark.parametrize("status", [1, 0x0BAD0007, 0x80000000, 0xFFFFFFFF])
def test_ports_that_cannot_be_retrieved(ryn, double, status):
    double.answer("Ryn_Get_Port_List", status=status, area=port_area(bytes(PORT)))
    assert run(ryn.ListPorts, 15) == Outcome(None, "Failed to retrieve list of ports.\n")


# ---- Results that cannot be built


@pytest.mark.parametrize(
    "method, args, text",
    [
        ("ListSwitches", (), "Failed to allocate buffer.\n"),
        ("ListPorts", (0,), "Failed to allocate port list.\n"),
    ],
)
def test_result_list_that_cannot_be_created(ryn, double, method, args, text):
    double.answer("Ryn_Get_Switch_List", area=switch_area(*[bytes(SWITCH)] * 16))
    double.answer("Ryn_Get_Port_List", area=port_area(*[bytes(PORT)] * 128))
    assert len(run(getattr(ryn, method), *args).value) in (16, 128)  # the keys are made
    assert run(getattr(ryn, method), *args, failing_allocation=0) == Outcome(None, text, (MemoryError, ""))


@pytest.mark.skipif(sys.version_info >= (3, 12), reason="this interpreter collects between bytecodes only")
@pytest.mark.parametrize(
    "method, op, args, area",
    [
        ("ListSwitches", "Ryn_Get_Switch_List", (), switch_area(*[bytes(SWITCH)] * 16)),
        ("ListPorts", "Ryn_Get_Port_List", (3,), port_area(*[bytes(PORT)] * 128)),
    ],
)
def test_row_that_cannot_be_stored(ryn, double, method, op, args, area):
    """A hook of the collector empties the half-built result; each slot that it meets there holds an object."""
    double.answer(op, area=area)
    rows = len(run(getattr(ryn, method), *args).value)
    met = []

    def empty(phase: str, info: dict) -> None:
        for candidate in gc.get_objects(generation=0) if phase == "start" else []:
            if type(candidate) is list and len(candidate) == rows and None in candidate and candidate is not met:
                met.extend(map(type, candidate))
                candidate.clear()

    thresholds = gc.get_threshold()
    spare = [{} for _ in range(200)]  # no dict is left over: creating one counts as an allocation
    gc.callbacks.append(empty)
    gc.set_threshold(3)
    try:
        outcome = run(getattr(ryn, method), *args)
    finally:
        gc.set_threshold(*thresholds)
        gc.callbacks.remove(empty)
    del spare
    assert outcome == Outcome(None, error=LIST_ITEM)
    assert {*met} <= {dict, type(None)} and len(met) == rows
