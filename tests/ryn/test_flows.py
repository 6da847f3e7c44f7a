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
