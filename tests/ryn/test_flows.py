"""Flows: which are wanted, which cores are walked, and what of them cannot be listed."""

import ipaddress

import pytest
from harness import Bytes

import ryn
from ryn.flows import flow_filter

DROP, LRO = 1 << 5, 1 << 3


def entry(src: str = "10.0.0.1", dst: str = "10.0.0.2", protocol: int = 6, bitmap: int = 0, sport: int = 80) -> bytes:
    """A key and its actions, 64 + 240 bytes."""
    area = Bytes(304)
    area.raw(16, sport.to_bytes(2, "big")).u8(23, protocol)
    area.raw(24, ipaddress.ip_address(src).packed).raw(28, ipaddress.ip_address(dst).packed)
    area.u64(64 + 24, 5).u64(64 + 40, 500).u32(64 + 56, bitmap).u8(64 + 61, 8).u16(64 + 62, 240)
    return bytes(area)


def page(start: int, *entries: bytes) -> bytes:
    data = b"".join(entries)
    return Bytes(20).u32(8, start, len(entries), 20 + len(data)) + data


@pytest.fixture
def cores(platform):
    """Which cores the switch has."""
    return lambda *numbers: platform.double.answer(
        "Ryn_Get_LCore_ID_Bitmap", area=sum(1 << n for n in numbers).to_bytes(8, "little")
    )


def asked(platform) -> list:
    return [
        (call.lcore, call.startIndex, call.flag) for call in platform.double.calls() if call.op == "Ryn_Dump_Flow_Table"
    ]


def test_the_cores_that_the_switch_has_are_walked_to_an_empty_page(host, platform, cores):
    cores(0, 5)
    platform.double.answer("Ryn_Dump_Flow_Table", area=page(0, entry(), entry(sport=81)), times=1)
    flows = list(host.flows())
    assert [(flow.switch, flow.core, flow.sport, str(flow.dst)) for flow in flows] == [
        (3, 0, 80, "10.0.0.2"),
        (3, 0, 81, "10.0.0.2"),
    ]
    assert asked(platform) == [(0, 0, 0), (0, 2, 0), (5, 0, 0)]


def small_page(start: int, count: int) -> bytes:
    """Entries of 64 bytes each, the least that there is; 64 more have to be there for the last one."""
    return bytes(Bytes(10260).u32(8, start, count, 10260))


def walk_pages(host, platform, *pages: bytes) -> int:
    """How many flows are found in the pages, an empty one behind them."""
    platform.double.answer("Ryn_Dump_Flow_Table")
    for data in pages:
        platform.double.answer("Ryn_Dump_Flow_Table", area=data, times=1)
    return len(list(host.switch("dvs-1").flows(cores=[4])))


@pytest.mark.parametrize(
    "reported, indices",
    [
        ((0, 0, 0), [0, 2, 4, 6]),  # asked + read
        ((50, 0, 0), [0, 50, 52, 54]),  # the index that is reported, where it lies beyond the one asked for
        ((1, 1, 100), [0, 1, 3, 100]),
        ((50, 50, 49), [0, 50, 52, 54]),
        ((0xFFFFFFFB, 0, 0), [0, 0xFFFFFFFB, 0xFFFFFFFD]),  # asked + read: the index that there is none of
        ((0xFFFFFFFF, 0, 0), [0]),
    ],
)
def test_each_page_is_asked_for_from_where_the_one_before_ended(host, platform, reported, indices):
    valid = indices[-1] < 0xFFFFFFFB and len(indices) == 4
    try:
        found = walk_pages(host, platform, *(page(start, entry(), entry()) for start in reported))
    except ryn.InvalidResponse as error:
        assert not valid
        assert (error.operation, error.arguments) == ("Ryn_Dump_Flow_Table", (3, 4, indices[-1], 0))
    else:
        assert valid and found == 6
    assert [index for _, index, _ in asked(platform)] == indices


@pytest.mark.parametrize("more, valid", [(0, True), (1, False)])
def test_a_core_has_at_most_two_to_the_20_flows(host, platform, more, valid):
    platform.double.recording(False)
    platform.double.answer("Ryn_Dump_Flow_Table")
    platform.double.answer("Ryn_Dump_Flow_Table", area=small_page(0, 128), times=(1 << 20) // 128)
    if more:
        platform.double.answer("Ryn_Dump_Flow_Table", area=small_page(0, 1), times=1)
    walk = host.switch("dvs-1").flows(cores=[4], sport=9)  # of which there are none
    if valid:
        assert list(walk) == []
    else:
        with pytest.raises(ryn.InvalidResponse):
            list(walk)


@pytest.mark.parametrize(
    "valid_bytes, count, whole",
    [(20 + 128, 1, True), (20 + 127, 1, False), (20 + 64 + 128, 2, True), (20 + 64 + 127, 2, False), (0, 1, False)],
)
def test_an_entry_needs_128_valid_bytes(host, platform, valid_bytes, count, whole):
    data = bytes(Bytes(10260).u32(8, 0, count, valid_bytes))
    if whole:
        assert walk_pages(host, platform, data) == count
    else:
        with pytest.raises(ryn.InvalidResponse):
            walk_pages(host, platform, data)


def test_the_fields_of_an_entry(host, platform):
    """Of an IPv6 flow; type and code of ICMP come as they are, other ports in the order of the network."""
    addresses = [ipaddress.ip_address(f"2001:db8::{i}") for i in (1, 2)]
    data = Bytes(304)
    data.raw(0, bytes(range(12))).u16(12, 100 << 4 | 2).u16(14, 0xFFFE).u16(16, 135, 7).u16(20, 0x3412).u8(22, 0x56, 58)
    data.raw(24, addresses[0].packed).raw(40, addresses[1].packed).u64(64 + 24, 5).u64(64 + 40, 500).u16(64 + 62, 240)
    tcp = Bytes(bytes(data)).u8(23, 6).u8(64 + 61, 8)
    platform.double.answer("Ryn_Dump_Flow_Table", area=page(0, bytes(data), bytes(tcp)), times=1)
    icmp, counted = host.switch("dvs-1").flows(cores=[4], offloaded=True)
    assert (icmp.switch, icmp.core, icmp.offloaded, icmp.src, icmp.dst) == (3, 4, True, *addresses)
    assert (icmp.sport, icmp.dport, icmp.protocol, icmp.vlan) == (135, 7, 58, 100)
    assert (str(icmp.mac_a), str(icmp.mac_b)) == ("00:01:02:03:04:05", "06:07:08:09:0a:0b")
    assert (icmp.number15, icmp.number24, icmp.bitmap) == (0x7FFE, 0x563412, 0)
    assert (icmp.packets, icmp.bytes) == (None, None)
    assert (counted.sport, counted.dport, counted.packets, counted.bytes) == (135 << 8, 7 << 8, 5, 500)


def test_named_cores_are_walked_and_nothing_else_is_asked(host, platform):
    walk = host.switch("dvs-1").flows(cores=[7, 3, 7], offloaded=True)
    assert list(walk) == []
    assert asked(platform) == [(7, 0, 1), (3, 0, 1)]
    assert walk.unlisted is None
    assert "Ryn_Get_LCore_ID_Bitmap" not in platform.double.ops()


def test_what_cannot_be_listed_is_counted(host, platform, cores):
    cores(0, 31, *range(32, 64))
    stats = Bytes(1544).u32(0, 2)
    stats.u32(8, 32, 40).u32(56, 33, 2)
    platform.double.answer("Ryn_Get_Flow_Stats", area=stats)
    walk = host.flows()
    assert walk.unlisted == 0
    assert list(walk) == []
    assert walk.unlisted == 42
    (call,) = [call for call in platform.double.calls() if call.op == "Ryn_Get_Flow_Stats"]
    assert (call.lcoreCount, list(call.lcores)[:32]) == (32, list(range(32, 64)))
    assert {core for core, _, _ in asked(platform)} == {0, 31}


@pytest.mark.parametrize("cores, error", [([32], ValueError), ([-1], ValueError), (["0"], TypeError), (5, TypeError)])
def test_bad_cores_are_refused_at_once(host, platform, cores, error):
    with pytest.raises(error):
        host.flows(cores=cores)
    assert asked(platform) == []


@pytest.mark.parametrize("method, op", [("flow_stats", "Ryn_Get_Flow_Stats"), ("fpo_stats", "Ryn_Get_FPO_Stats")])
def test_statistics_are_asked_for_32_cores_at_a_time(host, platform, method, op):
    """Which is the room of an answer."""
    size, record = {"flow_stats": (1544, 48), "fpo_stats": (1800, 56)}[method]
    for first in (10, 20):
        platform.double.answer(op, area=Bytes(size).u32(0, 2).u32(8, first).u32(8 + record, first + 1), times=1)
    stats = getattr(host.switch("dvs-1"), method)(cores=range(63, 30, -1))
    assert [record.core for record in stats] == [10, 11, 20, 21]
    calls = [call for call in platform.double.calls() if call.op == op]
    assert [list(call.lcores)[: call.lcoreCount] for call in calls] == [list(range(63, 31, -1)), [31]]


def test_flow_statistics_are_asked_for_cores(host, platform, cores):
    cores(1, 40)
    switch = host.switch("dvs-1")
    platform.double.forget_calls()
    switch.flow_stats()
    switch.fpo_stats(cores=(5,))
    assert switch.flow_stats(cores=()) == [] and switch.fpo_stats(cores=()) == []
    bitmap, flow, fpo = platform.double.calls()
    assert (list(flow.lcores)[:2], flow.lcoreCount, flow.swID) == ([1, 40], 2, 3)
    assert (list(fpo.lcores)[:1], fpo.lcoreCount) == ([5], 1)
    for bad, error in (([64], ValueError), ([-1], ValueError), (["1"], TypeError)):
        with pytest.raises(error):
            switch.flow_stats(cores=bad)


# Filters

FLOWS = [entry(), entry(dst="10.0.0.6", bitmap=DROP | LRO), entry(src="10.1.0.1", protocol=17, bitmap=LRO)]


@pytest.mark.parametrize(
    "wanted, found",
    [
        ({}, [0, 1, 2]),
        ({"dst": "10.0.0.6"}, [1]),
        ({"dst": "10.0.0.6", "action": "DROP"}, [1]),
        ({"dst": "10.0.0.2", "action": "DROP"}, []),
        ({"action": "LRO"}, [1, 2]),
        ({"action": "lro"}, [1, 2]),
        ({"action": ryn.Actions.DROP}, [1]),
        ({"src": "10.0.0.0/16"}, [0, 1]),
        ({"src": ipaddress.ip_network("10.1.0.0/16")}, [2]),
        ({"src": ipaddress.ip_address("10.1.0.1")}, [2]),
        ({"src": "2001:db8::1"}, []),
        ({"protocol": "udp"}, [2]),
        ({"protocol": "UDP"}, [2]),
        ({"protocol": 6}, [0, 1]),
        ({"protocol": "icmp"}, []),
        ({"sport": 80}, [0, 1, 2]),
        ({"sport": 81}, []),
        ({"dport": 0}, [0, 1, 2]),
        ({"vlan": 0, "mac_a": "00:00:00:00:00:00"}, [0, 1, 2]),
        ({"mac_b": b"\1\0\0\0\0\0"}, []),
    ],
)
def test_filters(host, platform, cores, wanted, found):
    cores(0)
    platform.double.answer("Ryn_Dump_Flow_Table", area=page(0, *FLOWS), times=1)
    every = [(flow.src, flow.dst) for flow in host.flows(cores=[0])]
    platform.double.answer("Ryn_Dump_Flow_Table", area=page(0, *FLOWS), times=1)
    assert [every.index((flow.src, flow.dst)) for flow in host.flows(**wanted)] == found


@pytest.mark.parametrize(
    "wanted, error",
    [
        ({"destination": "10.0.0.6"}, TypeError),
        ({"unlisted": 1}, TypeError),
        ({"dst": "10.0.0"}, ValueError),
        ({"dst": 5}, TypeError),
        ({"src": b"\x0a\0\0\1"}, TypeError),
        ({"action": "DROPPED"}, ValueError),
        ({"action": 32}, TypeError),
        ({"protocol": "sctp"}, ValueError),
        ({"protocol": 256}, ValueError),
        ({"protocol": 6.0}, TypeError),
        ({"vlan": 4096}, ValueError),
        ({"vlan": -1}, ValueError),
        ({"sport": 65536}, ValueError),
        ({"sport": "80"}, TypeError),
        ({"mac_a": "02:00"}, ValueError),
    ],
)
def test_bad_filters_are_refused_at_once(host, platform, wanted, error):
    with pytest.raises(error):
        host.flows(**wanted)
    with pytest.raises(error):
        host.switch("dvs-1").flows(**wanted)
    assert asked(platform) == []


def test_no_filter_is_none():
    assert flow_filter() is None


def test_actions_show_every_bit_and_the_flow_its_counters(host, platform, cores):
    cores(0)
    platform.double.answer("Ryn_Dump_Flow_Table", area=page(0, entry(bitmap=DROP | 1 << 22 | 1)), times=1)
    (flow,) = host.flows()
    assert str(flow.actions) == "DROP|DECAP|0x1"
    assert (flow.packets, flow.bytes, flow.protocol, flow.bitmap) == (5, 500, 6, DROP | 1 << 22 | 1)
    assert ryn.Actions.DROP in flow.actions


def test_the_flow_cache_of_a_switch_is_cleared(host, platform):
    host.switch("dvs-1").clear_flows()
    assert platform.double.calls()[-1].op == "Ryn_Clear_Switch_Flow_Table"
    assert platform.double.calls()[-1].swID == 3


def test_a_walk_that_fails_says_where(host, platform):
    platform.double.answer("Ryn_Dump_Flow_Table", status=0x0BAD0007)
    walk = host.switch("dvs-1").flows(cores=[4])
    with pytest.raises(ryn.BadParameter) as caught:
        next(walk)
    assert caught.value.arguments[:3] == (3, 4, 0)
