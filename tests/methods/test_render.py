"""The exported formatters of flow keys, actions and statistics, against the plain model in flow.py."""

from __future__ import annotations

import ctypes
import random
from types import SimpleNamespace
from typing import Any, Callable

import flow
import pytest
from harness import python

GUARD = 0xA5


@pytest.fixture
def render(native) -> SimpleNamespace:
    """Each formatter writes into an area followed by guard bytes and returns (the area, result)."""
    key_to_str, actions_to_str, stats_to_str = (
        native["FCFlowKeyToStr"],
        native["FCActionsToStr"],
        native["FCActionsStatsToStr"],
    )
    key_to_str.argtypes, key_to_str.restype = [ctypes.c_char_p, ctypes.c_void_p], None
    actions_to_str.argtypes = [ctypes.c_char_p, ctypes.c_void_p, ctypes.c_uint32, ctypes.c_uint16]
    stats_to_str.argtypes = [ctypes.c_char_p, ctypes.c_void_p, ctypes.c_uint32]

    def into(size: int, call: Callable[[Any], Any]) -> tuple[bytes, Any]:
        area = ctypes.create_string_buffer(bytes([GUARD]) * (size + 64), size + 64)
        result = call(area)
        assert area.raw[size:] == bytes([GUARD]) * 64, "written past the area"
        return area.raw[:size], result

    def key_area(key: bytes, size: int = 256) -> bytes:
        return into(size, lambda area: key_to_str(key, area))[0]

    def actions(record: bytes, size: int = 1 << 15, length: int = 0) -> tuple[str, int]:
        area, result = into(size, lambda area: actions_to_str(record, area, size, length))
        return text_of(area), result

    def stats(record: bytes, size: int = 128) -> tuple[str, int]:
        area, result = into(size, lambda area: stats_to_str(record, area, size))
        return text_of(area), result

    return SimpleNamespace(key_area=key_area, key=lambda key: text_of(key_area(key)), actions=actions, stats=stats)


def text_of(area: bytes) -> str:
    """The text up to its NUL, which must be inside the area."""
    if not area:
        return ""
    text, nul, rest = area.partition(b"\0")
    assert nul and rest == bytes([GUARD]) * len(rest), "not terminated, or written past the terminator"
    return text.decode("ascii")


def header(record: bytes) -> str:
    first = next(flow.pieces(record))
    assert first is not None
    return first


# ---- Flow keys ------------------------------------------------------------------------------------------------------


def test_key_line_of_a_tcp_flow(render):
    key = flow.key(
        mac1=bytes.fromhex("00505600ABCD"),
        mac2=bytes.fromhex("020000000001"),
        word12=0xABC0,
        word14=0x0005,
        ports=bytes([0x00, 0x50, 0x1F, 0x90]),
        low20=0x2211,
        high22=0x33,
        protocol=6,
        address1=bytes([10, 0, 0, 1]),
        second_ipv4=bytes([192, 168, 255, 254]),
    )
    assert render.key(key) == (
        "00:50:56:00:ab:cd  02:00:00:00:00:01  2748  5        10.0.0.1"
        + 37 * " "
        + "  192.168.255.254"
        + 30 * " "
        + "  6      3351057  80            8080        "
    )


@pytest.mark.parametrize(
    "protocol, first, second",
    [
        (6, 80, 443),
        (17, 80, 443),
        (0, 80, 443),
        (2, 80, 443),
        (57, 80, 443),
        (59, 80, 443),
        (255, 80, 443),
        (1, 0x5000, 0xBB01),
        (58, 0x5000, 0xBB01),  # ICMP and ICMPv6: type and code are host values
    ],
)
def test_transport_fields_are_swapped_unless_the_protocol_is_icmp(render, protocol, first, second):
    key = flow.key(protocol=protocol, ports=bytes([0x00, 0x50, 0x01, 0xBB]))
    assert render.key(key).endswith("  %-5u  0        %-12u  %-12u" % (protocol, first, second))


def test_last_column_is_padded_too(render):
    assert render.key(flow.key()).endswith("  0           ")
    assert len(render.key(flow.key())) == 17 + 2 + 17 + 2 + 4 + 2 + 7 + 2 * 47 + 2 + 5 + 2 + 7 + 2 * 14


@pytest.mark.parametrize(
    "word12, vlan", [(0x0000, 0), (0x0010, 1), (0x0100, 16), (0xFFF0, 4095), (0xFFFD, 4095), (0x000D, 0)]
)
def test_vlan_is_byte_13_times_16_plus_the_high_bits_of_byte_12(render, word12, vlan):
    assert render.key(flow.key(word12=word12))[38:42] == "%-4u" % vlan


@pytest.mark.parametrize(
    "word14, shown", [(0, 0), (0x7FFF, 32767), (0xFFFF, 32767), (0x8000, 0), (0x8001, 1), (0x0100, 256)]
)
def test_number_at_14_is_shown_without_its_top_bit(render, word14, shown):
    assert render.key(flow.key(word14=word14))[44:51] == "%-7u" % shown


@pytest.mark.parametrize(
    "low, high, shown", [(0, 0, 0), (0xFFFF, 0xFF, 16777215), (1, 0x80, 8388609), (0x8000, 0, 32768)]
)
def test_number_at_20_has_24_bits_and_fills_its_column(render, low, high, shown):
    assert "  0      %-7u  " % shown in render.key(flow.key(low20=low, high22=high))


@pytest.mark.parametrize("flags", [0x0, 0x1, 0x4, 0x8, 0xD])
def test_only_flag_bit_1_makes_the_addresses_ipv6(render, flags):
    fields = {"address1": bytes(range(1, 17)), "address2": bytes(range(17, 33))}
    line = render.key(flow.key(word12=flags, **fields))
    assert "  %-45s  %-45s" % ("1.2.3.4", "5.6.7.8") in line
    line = render.key(flow.key(word12=flags | 0x2, **fields))
    assert "  %-45s  %-45s" % ("102:304:506:708:90a:b0c:d0e:f10", "1112:1314:1516:1718:191a:1b1c:1d1e:1f20") in line


@pytest.mark.parametrize(
    "address, text",
    [
        (bytes(16), "::"),
        (bytes(15) + b"\1", "::1"),
        (b"\xff" * 16, "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"),
        (bytes(10) + b"\xff\xff\xff\xff\xff\xff", "::ffff:255.255.255.255"),
        (bytes.fromhex("20010db8000000000000000000000001"), "2001:db8::1"),
        (bytes.fromhex("fe80" + 12 * "00" + "0001"), "fe80::1"),
    ],
)
def test_ipv6_addresses_as_the_system_writes_them(render, address, text):
    assert "  %-45s  %-45s" % (text, text) in render.key(flow.key(word12=0x2, address1=address, address2=address))


@pytest.mark.parametrize("ipv6", [False, True])
def test_longest_key_line_stays_inside_the_first_256_bytes(render, ipv6):
    key = bytearray(b"\xff" * flow.KEY)
    if not ipv6:
        key[12] &= ~0x02
    area = render.key_area(bytes(key), 300)
    assert text_of(area) == flow.key_line(bytes(key))
    assert area[256:] == bytes([GUARD]) * 44


@pytest.mark.parametrize(
    "ipv6, unread",
    [
        (False, [*range(32, 64)]),  # the second IPv4 address follows the first
        (True, [*range(56, 64)]),
    ],
)
def test_unread_bytes_of_a_key_do_not_show(render, ipv6, unread):
    rng = random.Random(41)
    key = bytearray(rng.randbytes(flow.KEY))
    key[12] = 0x12 if ipv6 else 0x10
    expected = render.key(bytes(key))
    for at in unread:
        key[at] ^= 0xFF
    key[12] ^= 0x0D  # flag bits that mean nothing here
    key[15] ^= 0x80
    assert render.key(bytes(key)) == expected


def test_every_read_byte_of_a_key_shows(render):
    for flag, read in ((0x00, range(0, 32)), (0x02, range(0, 56))):
        base = bytes([7] * 12 + [flag] + [7] * 51)
        for at in read:
            other = bytearray(base)
            other[at] ^= 0x10
            assert render.key(bytes(other)) != render.key(base), at


def test_random_keys_match_the_model(render):
    rng = random.Random(42)
    for _ in range(3000):
        key = flow.random_key(rng)
        assert render.key(key) == flow.key_line(key), key.hex()


# ---- Actions --------------------------------------------------------------------------------------------------------


def test_empty_bitmap_yields_the_header_alone(render):
    assert render.actions(flow.actions(len=240)) == ("bmap:(nil) inval(s):0 cg:(nil) dp:- len:240; ", 0)


def test_header_of_top_values(render):
    record = flow.actions(bitmap=0xE000C283, cg=(1 << 64) - 1, inval=0xFFFFFFFF, dp=255, len=0xFFFF)
    assert render.actions(record) == ("bmap:0xe000c283 inval(s):4294967295 cg:0xffffffffffffffff dp:255 len:65535; ", 0)


def test_bitmap_is_printed_as_a_pointer(render):
    assert render.actions(flow.actions(bitmap=0x2000))[0] == "bmap:0x2000 inval(s):0 cg:(nil) dp:- len:0; PR; "


def test_bit_7_makes_dp_valid_and_has_no_text_of_its_own(render):
    assert render.actions(flow.actions(bitmap=0x80, dp=0))[0] == "bmap:0x80 inval(s):0 cg:(nil) dp:0 len:0; "
    assert render.actions(flow.actions(bitmap=0x100, dp=9))[0] == "bmap:0x100 inval(s):0 cg:(nil) dp:- len:0; SP; "


ACTION_TEXTS = {
    2: "KCPInputChildPort: 4294967294; ",
    3: "LRO; ",
    4: "IPFIX Ingress; ",
    5: "DROP; ",
    6: "DFW on srcPort; ",
    7: "",
    8: "SP; ",
    10: "VI: 65534; ",
    11: "VR; ",
    12: "PI: 254; ",
    13: "PR; ",
    16: "GVLAN Insert; ",
    18: "VDR inst: 2; INST 1: 0xffffffff; INST 2: 0xa; ",
    20: "VNI: 4294967293; ",
    21: "VNI: 4294967293; ENCAP VNI: 8388863; ",
    22: "DECAP; ",
    23: "GVLAN Remove; ",
    26: "IPFIX Egress; ",
    27: "DFW on dstPort; ",
    28: "KCPOutputVLAN: 65533; ",
}
NUMBERS = dict(
    child_port=0xFFFFFFFE,
    vi=0xFFFE,
    pi=0xFE,
    vni=0xFFFFFFFD,
    encap_vni=0x8000FF,
    output_vlan=0xFFFD,
    instances=[0xFFFFFFFF, 10],
)


@pytest.mark.parametrize("bit", range(32))
def test_text_of_each_action_bit(render, bit):
    record = flow.actions(bitmap=1 << bit, **NUMBERS)
    assert render.actions(record) == (header(record) + ACTION_TEXTS.get(bit, ""), 0)


def test_bits_without_a_text_are_skipped_silently(render):
    bitmap = sum(1 << bit for bit in flow.SILENT)
    assert sorted(flow.SILENT) == sorted({*range(32)} - ACTION_TEXTS.keys() | {7})
    record = flow.actions(bitmap=bitmap | 1 << 28, output_vlan=7)
    assert render.actions(record) == (header(record) + "KCPOutputVLAN: 7; ", 0)


def test_actions_come_in_ascending_bit_order(render):
    record = flow.actions(bitmap=0xFFFFFFFF & ~0x20, **NUMBERS)
    texts = "".join(ACTION_TEXTS[bit] for bit in sorted(ACTION_TEXTS) if bit != 5)
    assert render.actions(record) == (header(record) + texts, 0)


def test_drop_ends_the_rendering(render):
    record = flow.actions(bitmap=0xFFFFFFFF, **NUMBERS)
    assert render.actions(record) == (header(record) + "".join(ACTION_TEXTS[bit] for bit in (2, 3, 4, 5)), 0)


def test_bits_20_and_21_show_the_vni_twice(render):
    record = flow.actions(bitmap=3 << 20, vni=5001, encap_vni=77)
    assert render.actions(record) == (header(record) + "VNI: 5001; VNI: 5001; ENCAP VNI: 77; ", 0)


def test_encapsulation_vni_is_in_network_byte_order(render):
    record = bytearray(flow.actions(bitmap=1 << 21))
    record[244:247] = b"\1\2\3"
    assert render.actions(bytes(record))[0].endswith("ENCAP VNI: 66051; ")


def test_no_instance_when_the_count_is_0(render):
    record = flow.actions(bitmap=1 << 18, instances=[1, 2], vdr_count=0)
    assert render.actions(record) == (header(record) + "VDR inst: 0; ", 0)


def test_instances_are_numbered_from_1_at_a_stride_of_32(render):
    record = flow.actions(bitmap=1 << 18, instances=[0x1000 + i for i in range(255)])
    texts = "".join("INST %d: 0x%x; " % (i + 1, 0x1000 + i) for i in range(255))
    assert render.actions(record) == (header(record) + "VDR inst: 255; " + texts, 0)


def test_instance_value_0_has_its_prefix_too(render):
    assert render.actions(flow.actions(bitmap=1 << 18, instances=[0]))[0].endswith("VDR inst: 1; INST 1: 0x0; ")


def test_length_argument_is_not_used(render):
    record = flow.actions(bitmap=1 << 18, instances=[1, 2, 3], len=352)
    assert {render.actions(record, length=length) for length in (0, 1, 352, 0xFFFF)} == {flow.actions_line(record)}


def test_unread_bytes_of_actions_do_not_show(render):
    fields = dict(bitmap=0xFFFFFFDF, cg=1, inval=2, dp=3, len=4, packets=5, bytes=6, flags=8, **NUMBERS)
    clean, dirty = (flow.actions(fill=fill, **fields) for fill in (0x00, 0xFF))
    assert clean != dirty
    assert render.actions(clean) == render.actions(dirty)
    assert render.stats(clean) == render.stats(dirty)


# The order of the steps decides about the result of a text that does not fit.


def test_text_that_fills_the_area_to_its_last_byte_is_complete(render):
    for bitmap in (0, 0x8, 0x3C, 0x600):
        record = flow.actions(bitmap=bitmap)
        text, _ = flow.actions_line(record)
        assert render.actions(record, len(text) + 1) == (text, 0)


def test_text_cut_in_its_last_action_still_gives_0(render):
    record = flow.actions(bitmap=0x8)
    text = header(record) + "LRO; "
    for size in range(len(header(record)) + 1, len(text) + 1):
        assert render.actions(record, size) == (text[: size - 1], 0)
    assert render.actions(record, len(header(record))) == (header(record)[:-1], 1)


def test_text_cut_in_drop_gives_0_whatever_actions_are_behind(render):
    record = flow.actions(bitmap=0xFFFFFFE0)
    text = header(record) + "DROP; "
    for size in range(len(header(record)) + 1, len(text) + 1):
        assert render.actions(record, size) == (text[: size - 1], 0)


def test_header_cut_with_no_action_left_gives_0(render):
    record = flow.actions(len=240)
    for size in range(len(header(record)) + 1):
        assert render.actions(record, size) == (header(record)[: max(size - 1, 0)], 0)


def test_bit_without_a_text_finds_no_room_either(render):
    record = flow.actions(bitmap=1 << 31)
    assert render.actions(record, len(header(record))) == (header(record)[:-1], 1)
    assert render.actions(record, len(header(record)) + 1) == (header(record), 0)


def test_encapsulation_vni_that_finds_no_room_is_no_further_action(render):
    record = flow.actions(bitmap=1 << 21, vni=5, encap_vni=6)
    size = len(header(record)) + len("VNI: 5; ")
    assert render.actions(record, size) == (header(record) + "VNI: 5;", 0)


def test_full_area_in_the_middle_of_the_instances_gives_1(render):
    record = flow.actions(bitmap=1 << 18, instances=[10, 11, 12])
    text, _ = flow.actions_line(record)
    last = text.index("INST 3")
    assert render.actions(record, last) == (text[: last - 1], 1)
    assert render.actions(record, last + 1) == (text[:last], 0)  # the third began, and was cut at once
    assert render.actions(record, last - 4) == (text[: last - 5], 1)


def test_area_of_size_0_is_not_touched(render):
    assert render.actions(flow.actions(), 0) == ("", 0)
    assert render.actions(flow.actions(bitmap=0x8), 0) == ("", 1)
    assert render.stats(flow.actions(), 0) == ("", 14)
    assert render.stats(flow.actions(flags=8), 0) == ("", 0)


def test_every_size_of_random_actions_matches_the_model(render):
    rng = random.Random(43)
    for _ in range(6):
        record = flow.random_actions(rng, max_instances=20)
        for size in range(600):
            assert render.actions(record, size) == flow.actions_line(record, size), (record.hex(), size)


@pytest.mark.parametrize("values", [[0, 1, 0xA, 0xF0], [0xFFFFFFFF, 0x80000000, 0x12345678]])
def test_every_size_of_instances_matches_the_model(render, values):
    record = flow.actions(bitmap=1 << 18, instances=values)
    for size in range(200):
        assert render.actions(record, size) == flow.actions_line(record, size), size


def test_random_actions_match_the_model(render):
    rng = random.Random(44)
    for _ in range(3000):
        record = flow.random_actions(rng)
        size = rng.choice([512, 1 << 15, rng.randrange(700)])
        assert render.actions(record, size) == flow.actions_line(record, size), (record.hex(), size)


# ---- Statistics -----------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("flags", [0x08, 0x09, 0x88, 0xFF])
def test_statistics_apply(render, flags):
    record = flow.actions(flags=flags, packets=12, bytes=3456)
    assert render.stats(record) == ("pktsSinceLastFlush:12 bytesSinceLastFlush:3456", 0)


@pytest.mark.parametrize("flags", [0x00, 0x07, 0x10, 0xF7])
def test_statistics_do_not_apply(render, flags):
    assert render.stats(flow.actions(flags=flags, packets=1, bytes=2)) == ("Not Applicable", 14)


def test_statistics_are_unsigned(render):
    record = flow.actions(flags=8, packets=1 << 63, bytes=(1 << 64) - 1)
    assert render.stats(record) == (
        "pktsSinceLastFlush:9223372036854775808 bytesSinceLastFlush:18446744073709551615",
        0,
    )


@pytest.mark.parametrize("flags", [0, 8])
def test_statistics_are_cut_at_any_size(render, flags):
    record = flow.actions(flags=flags, packets=(1 << 64) - 1, bytes=(1 << 64) - 1)
    for size in range(1, 100):
        text, result = render.stats(record, size)
        assert (text, result) == (flow.stats_text(record)[: size - 1], 0 if flags else 14)


# ---- What is read ---------------------------------------------------------------------------------------------------

TO_THE_LAST_BYTE = """
import ctypes, mmap
import _libryn, flow

area = mmap.mmap(-1, 3 * mmap.PAGESIZE)
start = ctypes.addressof(ctypes.c_char.from_buffer(area))
end = start + 2 * mmap.PAGESIZE
libc = ctypes.CDLL(None)
libc.mprotect.argtypes = [ctypes.c_void_p, ctypes.c_size_t, ctypes.c_int]
assert libc.mprotect(end, mmap.PAGESIZE, 0) == 0
native = ctypes.PyDLL(_libryn.__file__)
text = ctypes.create_string_buffer(1 << 15)

def ends_here(record):
    ctypes.memmove(end - len(record), record, len(record))
    return ctypes.c_void_p(end - len(record))

def check(size, **fields):
    record = flow.actions(**fields)[:size]
    assert native.FCActionsToStr(ends_here(record), text, 1 << 15, 0) == 0
    assert text.value.decode() == flow.actions_line(record)[0]
    print(text.value.decode().split("; ", 1)[1].strip())

check(72, bitmap=0xFFFFFFFF & ~0x10341424)
check(73, bitmap=1 << 12, pi=1)
check(76, bitmap=1 << 10, vi=2)
check(80, bitmap=1 << 20, vni=3)
check(118, bitmap=1 << 2, child_port=4)
check(120, bitmap=1 << 28, output_vlan=5)
check(247, bitmap=1 << 21, encap_vni=6)
check(257, bitmap=1 << 18)
check(278 + 32, bitmap=1 << 18, instances=[7, 8])
native.FCActionsStatsToStr(ends_here(flow.actions(flags=8)[:62]), text, 128)
print(text.value.decode())
native.FCFlowKeyToStr(ends_here(flow.key()), text)
"""


def test_record_is_read_no_further_than_what_its_actions_show(ryn):
    """A native caller's record may end with the last field that its bits name."""
    done = python(TO_THE_LAST_BYTE)
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout.splitlines() == [
        "LRO; IPFIX Ingress; DFW on srcPort; SP; VR; PR; GVLAN Insert; DECAP; GVLAN Remove; IPFIX Egress; "
        "DFW on dstPort;",
        "PI: 1;",
        "VI: 2;",
        "VNI: 3;",
        "KCPInputChildPort: 4;",
        "KCPOutputVLAN: 5;",
        "VNI: 0; ENCAP VNI: 6;",
        "VDR inst: 0;",
        "VDR inst: 2; INST 1: 0x7; INST 2: 0x8;",
        "pktsSinceLastFlush:0 bytesSinceLastFlush:0",
    ]
