"""GetPortConf: what each byte of a port's configuration becomes; FlagsToStr in areas of every size."""

import ctypes
import random
import struct

import pytest
from harness import ANY, BUFFER, DICT_ITEM, Bytes, Call, Outcome, run

RECORD, MCAST_ADDRS, MCAST_ROOM, VLAN_RANGES, VLAN_ROOM = 1272, 52, 32, 248, 256
FIELDS = {
    "portID": (0, "I"),
    "flags": (20, "I"),
    "ladrf": (24, "q"),
    "hwAddr": (32, "6s"),
    "untaggedVlanID": (38, "H"),
    "forgedMACAllowed": (40, "B"),
    "numMcastAddrs": (16, "I"),
    "vni": (44, "I"),
    "sampleRate": (244, "I"),
    "numTaggedVlanRanges": (48, "I"),
}
UNREAD = {*range(4, 16), *range(41, 44)}
WORDS = ["UNICAST ", "MULTICAST ", "ALLMULTI ", "BROADCAST ", "PROMISC ", "USE_LADRF "]
COUNTS = [0, 1, 2, 31, 32, 33, 255, 256, 257, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF]
INVALID = "TypeError: Invalid parameter passed.\n"

FIRST_KEYS = [
    "portID",
    "flags",
    "ladrf",
    "hwAddr",
    "untaggedVlanID",
    "forgedMACAllowed",
    "numMcastAddrs",
    "vni",
    "sampleRate",
]


def mac(data: bytes) -> str:
    return "%02x:%02x:%02x:%02x:%02x:%02x" % tuple(data)


def words(flags: int) -> str:
    return "".join(word for bit, word in enumerate(WORDS) if flags >> bit & 1)


def conf(record: bytes) -> dict:
    """The dict of a record, in the order of its keys."""
    value = {key: struct.unpack_from("<" + unit, record, offset)[0] for key, (offset, unit) in FIELDS.items()}
    value["flags"], value["hwAddr"] = words(value["flags"]), mac(value["hwAddr"])
    addrs = [
        mac(record[start : start + 6])
        for start in range(MCAST_ADDRS, MCAST_ADDRS + 6 * min(value["numMcastAddrs"], MCAST_ROOM), 6)
    ]
    ranges = [
        "%u-%u" % struct.unpack_from("<HH", record, start)
        for start in range(VLAN_RANGES, VLAN_RANGES + 4 * min(value["numTaggedVlanRanges"], VLAN_ROOM), 4)
    ]
    if addrs:
        value["mcastAddrList"] = addrs
    value["numTaggedVlanRanges"] = value.pop("numTaggedVlanRanges")  # after the addresses
    if ranges:
        value["vlanRanges"] = ranges
    return value


def read(ryn, double, record: bytes) -> dict:
    double.answer("Ryn_Get_Port_Conf", area=record)
    outcome = run(ryn.GetPortConf, 0, 0)
    assert (outcome.stderr, outcome.error) == ("", None)
    assert list(outcome.value) == list(conf(record))
    return outcome.value


def blank(mcast_addrs: int = 0, ranges: int = 0) -> Bytes:
    """A record of zeros whose unread bytes are full of ones."""
    return Bytes(RECORD).raw(4, b"\xff" * 12).raw(41, b"\xff" * 3).u32(16, mcast_addrs).u32(48, ranges)


@pytest.mark.parametrize("swID, rynPortID", [(0, 0), (0, 127), (15, 0), (15, 127), (8, 1)])
def test_one_call_with_a_zeroed_area(ryn, double, swID, rynPortID):
    assert run(ryn.GetPortConf, swID, rynPortID) == Outcome(
        {
            "portID": 0,
            "flags": "",
            "ladrf": 0,
            "hwAddr": "00:00:00:00:00:00",
            "untaggedVlanID": 0,
            "forgedMACAllowed": 0,
            "numMcastAddrs": 0,
            "vni": 0,
            "sampleRate": 0,
            "numTaggedVlanRanges": 0,
        }
    )
    assert double.calls() == [Call("Ryn_Get_Port_Conf", swID=swID, rynPortID=rynPortID, length=1272, zeroed=True)]


def test_every_key_with_its_type(ryn, double):
    record = blank(2, 2).u32(0, 67108864).u32(20, 0x3F).u64(24, 7).raw(32, bytes.fromhex("0200000a0bfc"))
    record.u16(38, 4094).u8(40, 1).u32(44, 70000).u32(244, 400).u16(248, 100, 200, 5, 5)
    record.raw(52, bytes.fromhex("01005e000001 333300000016"))
    value = read(ryn, double, record)
    assert list(value.items()) == [
        ("portID", 67108864),
        ("flags", "UNICAST MULTICAST ALLMULTI BROADCAST PROMISC USE_LADRF "),
        ("ladrf", 7),
        ("hwAddr", "02:00:00:0a:0b:fc"),
        ("untaggedVlanID", 4094),
        ("forgedMACAllowed", 1),
        ("numMcastAddrs", 2),
        ("vni", 70000),
        ("sampleRate", 400),
        ("mcastAddrList", ["01:00:5e:00:00:01", "33:33:00:00:00:16"]),
        ("numTaggedVlanRanges", 2),
        ("vlanRanges", ["100-200", "5-5"]),
    ]
    assert [type(item) for item in value.values()] == [int, str, int, str, int, int, int, int, int, list, int, list]


@pytest.mark.parametrize(
    "mcast_addrs, ranges, keys",
    [
        (0, 0, [*FIRST_KEYS, "numTaggedVlanRanges"]),
        (1, 0, [*FIRST_KEYS, "mcastAddrList", "numTaggedVlanRanges"]),
        (0, 1, [*FIRST_KEYS, "numTaggedVlanRanges", "vlanRanges"]),
        (1, 1, [*FIRST_KEYS, "mcastAddrList", "numTaggedVlanRanges", "vlanRanges"]),
    ],
)
def test_lists_are_there_only_when_they_have_items(ryn, double, mcast_addrs, ranges, keys):
    assert list(read(ryn, double, blank(mcast_addrs, ranges))) == keys
    assert (len(keys) == 10) == (mcast_addrs == ranges == 0)


@pytest.mark.parametrize("mcast_addrs", COUNTS)
@pytest.mark.parametrize("ranges", COUNTS)
def test_lists_end_with_their_room_and_counts_are_shown_as_they_came(ryn, double, mcast_addrs, ranges):
    record = blank(mcast_addrs, ranges).raw(52, bytes(range(192))).u32(244, 0xAABBCCDD).u16(248, *range(1000, 1512))
    value = read(ryn, double, record)
    assert (value["numMcastAddrs"], value["numTaggedVlanRanges"]) == (mcast_addrs, ranges)
    assert value.get("mcastAddrList", []) == [mac(range(6 * i, 6 * i + 6)) for i in range(min(mcast_addrs, 32))]
    assert value.get("vlanRanges", []) == [f"{1000 + 2 * i}-{1001 + 2 * i}" for i in range(min(ranges, 256))]


def test_random_configurations(ryn, double):
    rng = random.Random(34)
    for _ in range(300):
        record = Bytes(RECORD).raw(0, rng.randbytes(RECORD))
        record.u32(16, rng.choice([0, 1, rng.randrange(33), 32, rng.getrandbits(32)]))
        record.u32(48, rng.choice([0, 1, rng.randrange(257), 256, rng.getrandbits(32)]))
        assert read(ryn, double, record) == conf(record)


@pytest.mark.parametrize("byte", [0x01, 0x80, 0xFF])
def test_each_byte_reaches_its_key(ryn, double, byte):
    base = Bytes(RECORD).u32(16, MCAST_ROOM).u32(48, VLAN_ROOM)
    before = read(ryn, double, base)
    for offset in {*range(RECORD)} - {*range(16, 20), *range(48, 52)}:
        value = read(ryn, double, Bytes(RECORD).raw(0, base).u8(offset, byte))
        expected = {
            key for key, (start, unit) in FIELDS.items() if start <= offset < start + struct.calcsize("<" + unit)
        }
        if offset in range(20, 24):
            expected = {"flags"} if offset == 20 and byte & 0x3F else set()
        elif offset in UNREAD:
            assert expected == set()
        elif 52 <= offset < 244:
            expected = {"mcastAddrList"}
        elif offset >= 248:
            expected = {"vlanRanges"}
        assert {key for key in value if value[key] != before[key]} == expected, offset


@pytest.mark.parametrize("value", [0, 1, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF])
def test_words_are_never_negative(ryn, double, value):
    record = blank(value, value).u32(0, value).u32(44, value).u32(244, value)
    result = read(ryn, double, record)
    keys = "portID", "vni", "sampleRate", "numMcastAddrs", "numTaggedVlanRanges"
    assert [result[key] for key in keys] == [value] * 5


@pytest.mark.parametrize(
    "bits, value",
    [
        (0, 0),
        (1, 1),
        (1 << 32, 1 << 32),
        ((1 << 63) - 1, (1 << 63) - 1),
        (1 << 63, -(1 << 63)),
        ((1 << 64) - 1, -1),
        (0x8000000000000001, -0x7FFFFFFFFFFFFFFF),
    ],
)
def test_address_filter_with_the_top_bit_comes_out_negative(ryn, double, bits, value):
    assert read(ryn, double, blank().u64(24, bits))["ladrf"] == value


@pytest.mark.parametrize("value", [0, 1, 2, 127, 128, 255])
def test_forged_mac_allowed_is_the_number_that_came(ryn, double, value):
    shown = read(ryn, double, blank().u8(40, value))["forgedMACAllowed"]
    assert (shown, type(shown)) == (value, int)


@pytest.mark.parametrize("vlan", [0, 1, 4095, 4096, 0x7FFF, 0x8000, 0xFFFF])
def test_untagged_vlan_is_not_checked(ryn, double, vlan):
    assert read(ryn, double, blank().u16(38, vlan))["untaggedVlanID"] == vlan


@pytest.mark.parametrize(
    "first, last, text",
    [
        (100, 200, "100-200"),
        (5, 5, "5-5"),
        (0, 0, "0-0"),
        (9, 10, "9-10"),
        (200, 100, "200-100"),
        (0, 65535, "0-65535"),
        (65535, 65535, "65535-65535"),
        (32768, 32767, "32768-32767"),
        (10000, 9999, "10000-9999"),
    ],
)
def test_vlan_range_is_first_and_last_in_decimal(ryn, double, first, last, text):
    assert read(ryn, double, blank(0, 1).u16(248, first, last))["vlanRanges"] == [text]


@pytest.mark.parametrize("base", range(0, 65536, 512))
def test_every_vlan_id_of_a_range(ryn, double, base):
    record = blank(0, 256).u16(248, *range(base, base + 512))
    assert read(ryn, double, record)["vlanRanges"] == [f"{vlan}-{vlan + 1}" for vlan in range(base, base + 512, 2)]


@pytest.mark.parametrize("high", [0, 0x40, 0x80, 0xFFFFFFC0, 0x80000000, 0x3F00])
def test_flags_are_words_each_with_a_blank_behind_it(ryn, double, high):
    for flags in range(64):
        text = read(ryn, double, blank().u32(20, flags | high))["flags"]
        assert text == words(flags)
        assert text == "" if flags == 0 else text.endswith(" ")
    assert words(0x11) == "UNICAST PROMISC "


@pytest.mark.parametrize(
    "args",
    [
        (16, 0),
        (0, 128),
        (16, 128),
        (-1, 0),
        (0, -1),
        (1 << 31, 0),
        (0, 1 << 31),
        (0xFFFFFFFF, 0),
        (0, 0xFFFFFFFF),
        ((1 << 32) + 16, 0),
        (0, (1 << 32) + 128),
        (127, 15),
    ],
)
def test_port_out_of_range(ryn, double, args):
    assert run(ryn.GetPortConf, *args) == Outcome(None, INVALID)
    assert double.calls() == []


@pytest.mark.parametrize("args", [(), (0,), (0, 0, 0), ("0", 0), (0, "0"), (0, None), (0.0, 0), (16, b"\0")])
def test_what_is_no_port(ryn, double, args):
    assert run(ryn.GetPortConf, *args) == Outcome(None, INVALID, (TypeError, ANY))
    assert double.calls() == []


@pytest.mark.parametrize("status", [1, 0x0BAD0003, 0x80000000, 0xFFFFFFFF])
def test_configuration_that_cannot_be_retrieved(ryn, double, status):
    double.answer("Ryn_Get_Port_Conf", status=status, area=blank(32, 256))
    assert run(ryn.GetPortConf, 0, 0) == Outcome(None, "Failed to retrieve port conf.\n")


@pytest.mark.parametrize("length", [0, 4, 1273, 0xFFFFFFFF])
def test_length_that_the_library_leaves_does_not_matter(ryn, double, length):
    record = blank(32, 256)
    double.answer("Ryn_Get_Port_Conf", area=record, length=length)
    assert run(ryn.GetPortConf, 0, 0) == Outcome(conf(record))


def test_dict_that_cannot_be_created_speaks_of_memory(ryn, double):
    outcome = run(ryn.GetPortConf, 0, 0, failing_allocation=0)
    assert outcome == Outcome(None, "Failed to allocate memory.\n", (MemoryError, ""))


def test_value_or_key_that_cannot_be_created_or_stored(ryn, double):
    record = blank(3, 5).u32(0, 1000).u32(20, 0x3F).u64(24, 1000).u16(38, 1000).u32(44, 1000).u32(244, 1000)
    double.answer("Ryn_Get_Port_Conf", area=record)
    assert run(ryn.GetPortConf, 0, 0) == Outcome(conf(record))  # the keys are made
    outcomes = [run(ryn.GetPortConf, 0, 0, failing_allocation=1)]
    while outcomes[-1].allocation_failed:
        outcomes.append(run(ryn.GetPortConf, 0, 0, failing_allocation=1 + len(outcomes)))
    assert outcomes.pop() == Outcome(conf(record))
    # Two texts and five numbers, the slots of two lists, their eight items. The lists themselves may be used again.
    assert outcomes.count(Outcome(None, error=BUFFER)) >= 17
    assert outcomes.count(Outcome(None, error=DICT_ITEM)) > 0
    assert {outcome.error for outcome in outcomes} == {BUFFER, DICT_ITEM}


# ---- FlagsToStr

GUARD = 16


@pytest.fixture
def flags_to_str(native):
    function = native["FlagsToStr"]
    function.argtypes, function.restype = [ctypes.c_uint32, ctypes.c_void_p, ctypes.c_uint32], None
    return function


@pytest.fixture(scope="module")
def model():
    """The same text by libc's bounded prints, one word after the other."""
    snprintf = ctypes.CDLL(None).snprintf
    snprintf.argtypes = [ctypes.c_void_p, ctypes.c_size_t, ctypes.c_char_p]

    def flags_to_str(flags: int, address: int, size: int) -> None:
        position = snprintf(address, size, b"")
        for bit, word in enumerate(WORDS):
            if flags & 1 << bit:
                reported = snprintf(address + position, size - position, word.encode())
                position = min(position + reported, size)

    return flags_to_str


def written(function, flags: int, size: int, fill: int) -> bytes:
    """The area with guards around it, after the call."""
    room = min(size, 64)
    area = (ctypes.c_ubyte * (GUARD + room + GUARD))(*[fill] * (GUARD + room + GUARD))
    function(flags, ctypes.addressof(area) + GUARD, size)
    return bytes(area)


@pytest.mark.parametrize("size", range(65))
def test_every_flag_set_in_an_area_of_every_size(flags_to_str, model, size):
    for flags in range(64):
        for fill in (0x00, 0xEE):
            area = written(flags_to_str, flags, size, fill)
            assert area == written(model, flags, size, fill), flags
            assert area[:GUARD] == area[GUARD + size :] == bytes([fill] * GUARD), flags
        if size:
            assert area[GUARD:].split(b"\0")[0].decode() == words(flags)[: size - 1], flags


@pytest.mark.parametrize("flags", [0, 0x3F, 0xFFFFFFFF])
def test_area_of_size_0_is_not_touched(flags_to_str, flags):
    assert written(flags_to_str, flags, 0, 0xEE) == b"\xee" * 2 * GUARD


@pytest.mark.parametrize("bit", range(6, 32))
def test_higher_flags_are_ignored(flags_to_str, bit):
    for flags in range(64):
        assert written(flags_to_str, flags | 1 << bit, 64, 0xEE) == written(flags_to_str, flags, 64, 0xEE)
    assert written(flags_to_str, 1 << bit, 64, 0xEE)[GUARD] == 0


@pytest.mark.parametrize("size", [119, 120, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF])
def test_size_is_taken_unsigned(flags_to_str, size):
    area = written(flags_to_str, 0x3F, size, 0xEE)[GUARD:]
    assert area == "".join(WORDS).encode() + b"\0" + b"\xee" * (GUARD + 64 - 56)
