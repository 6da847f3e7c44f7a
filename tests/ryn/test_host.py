"""The host: loading, counters of all ports, rates, MAC addresses of all switches, the balancer's figures."""

import itertools
import time

import pytest
from harness import Bytes
from platform_script import PORTS, PortLine, port_list

import ryn


def counters(packets: int) -> Bytes:
    return Bytes(128).u64(8, packets).u64(112, 1)


def mac_table(*rows: tuple) -> Bytes:
    area = Bytes(1310736).u32(0, len(rows)).u32(8, 4096)
    for i, (mac, vlan, port) in enumerate(rows):
        area.raw(16 + 20 * i, bytes.fromhex(mac)).u16(22 + 20 * i, vlan).u32(24 + 20 * i, port)
    return area


@pytest.mark.parametrize(
    "options, error",
    [
        ({"timeout": -1}, ValueError),
        ({"timeout": 0}, ValueError),
        ({"timeout": float("nan")}, ValueError),
        ({"settle": -0.1}, ValueError),
        ({"settle": float("nan")}, ValueError),
        ({"timeout": "1"}, TypeError),
        ({"settle": None}, TypeError),
    ],
)
def test_seconds_are_checked_before_anything_is_called(platform, options, error):
    with pytest.raises(error):
        ryn.Host(**options)
    assert platform.double.calls() == []


def test_making_a_host_reads_the_configuration_anew(platform):
    ryn.Host()
    assert platform.double.ops() == ["DVSQOB_StateGet", "DVSState_ConfigReset", "DVSState_ConfigDeserialize"]


def test_a_configuration_that_cannot_be_read_is_an_error(platform):
    platform.double.answer("DVSQOB_StateGet", status=5)
    with pytest.raises(ryn.PlatformError, match="DVSQOB_StateGet"):
        ryn.Host()
    assert "DVSState_ConfigReset" not in platform.double.ops()


def test_the_double_is_no_simulation(host):
    assert (host.backend, repr(host)) == ("platform", "<ryn.Host platform>")


def test_one_call_reads_every_port(host, platform):
    platform.double.answer("Ryn_Get_Port_Stats", area=counters(100))
    platform.double.answer("Ryn_Get_Port_Stats_Slowpath", area=counters(5))
    before = time.time()
    reading = host.counters()
    assert before <= reading.time <= time.time()
    assert [str(port) for port in reading] == ["dvs-1/0", "dvs-1/1", "dvs-1/7"]
    port = host.port("dvs-1/1")
    assert (reading[port].fast.tx_packets, reading[port].slow.tx_packets, reading[port].total.tx_packets) == (
        100,
        5,
        105,
    )
    assert reading[port] == port.counters()
    assert (port in reading, "dvs-1/1" in reading) == (True, False)


def test_a_port_is_found_in_a_reading_by_what_it_is(host, platform):
    reading = host.counters()
    platform.ports(PortLine(1, 11, mac=PORTS[1].mac, mac_count=9, tx_cores=(4,)), PortLine(7, 99))
    assert host.port("dvs-1/1") in reading
    other = host.port("dvs-1/7")
    assert other not in reading
    with pytest.raises(KeyError):
        reading[other]


def test_a_port_that_goes_meanwhile_is_left_out(host, platform):
    platform.double.answer("Ryn_Get_Port_List", area=port_list(*PORTS), times=1)
    platform.ports(*PORTS[1:])
    platform.double.answer("Ryn_Get_Port_Stats", status=0x0BAD0003, times=1)
    assert [port.number for port in host.counters()] == [1, 7]


def test_ports_that_go_with_their_switch_are_left_out(host, platform):
    platform.datapath(("dvs-1-set", 3), ("other", 4))
    platform.double.answer("Ryn_Get_Port_List", status=0x0BAD0003, times=1)
    assert [(port.switch.number, port.number) for port in host.counters()] == [(4, 0), (4, 1), (4, 7)]
    platform.double.answer("Ryn_Get_Port_List", area=port_list(*PORTS), times=1)
    platform.double.answer("Ryn_Get_Port_List", status=0x0BAD0003)
    platform.double.answer("Ryn_Get_Port_Stats", status=0x0BAD0003)
    assert list(host.counters()) == []


def test_a_port_of_which_only_half_can_be_read_and_that_has_gone_is_left_out(host, platform):
    platform.double.answer("Ryn_Get_Port_List", area=port_list(*PORTS), times=1)
    platform.ports(PortLine(0, 99), *PORTS[1:])  # its number is another's now
    platform.double.answer("Ryn_Get_Port_Stats_Slowpath", status=0x0BAD0003, times=1)
    assert [port.number for port in host.counters()] == [1, 7]


def test_a_port_that_is_there_and_cannot_be_read_is_an_error(host, platform):
    for op in ("Ryn_Get_Port_Stats", "Ryn_Get_Port_Stats_Slowpath"):
        platform.double.answer(op, status=5, times=1)
        with pytest.raises(ryn.PlatformError, match=f"{op}[(]3, 0[)]"):
            host.counters()
    platform.double.answer("Ryn_Get_Port_List", status=5, times=1)
    with pytest.raises(ryn.PlatformError, match="Ryn_Get_Port_List[(]3[)]"):
        host.counters()
    platform.double.answer("Ryn_Get_Port_List", area=port_list(*PORTS), times=1)
    platform.double.answer("Ryn_Get_Port_List", status=6, times=1)  # whether it is there cannot be said
    platform.double.answer("Ryn_Get_Port_Stats", status=5, times=1)
    with pytest.raises(ryn.PlatformError, match="Ryn_Get_Port_List[(]3[)].*0x00000006"):
        host.counters()


def test_a_copy_of_a_reading_needs_no_host(host, platform):
    import pickle

    platform.double.answer("Ryn_Get_Port_Stats", area=counters(100))
    reading = host.counters()
    twin = pickle.loads(pickle.dumps(reading))
    assert list(map(str, twin)) == ["dvs-1-set/0", "dvs-1-set/1", "dvs-1-set/7"]
    assert twin[host.port("dvs-1/1")] == reading[host.port("dvs-1/1")]


def test_rates_are_between_two_readings(host, platform):
    platform.double.answer("Ryn_Get_Port_Stats", area=counters(100), times=3)
    platform.double.answer("Ryn_Get_Port_Stats", area=counters(300))
    ticks = list(itertools.islice(host.watch(interval=0.01), 2))
    first = ticks[0].top("tx_packets", 2)
    assert len(first) == 2 and isinstance(first[0][0], ryn.Port)
    assert first[0][1].tx_packets == pytest.approx(200 / ticks[0].seconds)
    assert first[0][1].rx_drops == 0
    assert ticks[1].top("tx_packets", 1)[0][1].tx_packets == 0
    assert ticks[0].seconds >= 0.01


@pytest.mark.parametrize("interval", [0, -1, float("nan")])
def test_the_interval_is_checked_at_once(host, interval):
    with pytest.raises(ValueError):
        host.watch(interval)


def test_a_mac_address_is_found_on_every_switch(host, platform):
    platform.datapath(("dvs-1-set", 3), ("dvs-2-set", 4))
    platform.double.answer(
        "Ryn_Dump_Switch_MAC_Table", area=mac_table(("020000000005", 100, 1), ("020000010005", 0, 7))
    )
    found = host.find_mac("02-00-00-00-00-05")
    assert [(switch.number, row.vlan, row.port) for switch, row in found] == [(3, 100, 1), (4, 100, 1)]
    assert len(host.find_mac("02:00:00:*")) == 4
    assert host.find_mac("02:00:00:00:00:06") == []
    with pytest.raises(ValueError):
        host.find_mac("02:00:00")


def test_tables_of_addresses(host, platform):
    switch = host.switch("dvs-1")
    platform.double.answer("Ryn_Dump_Switch_MAC_Table", area=mac_table(("020000000005", 100, 1)))
    platform.double.answer("Ryn_Dump_Port_MAC_Table", area=mac_table()[:327696])
    table = switch.macs()
    assert (len(table), str(table[0].mac), table.limit, table.limit_exceeded) == (1, "02:00:00:00:00:05", 4096, None)
    assert host.port("dvs-1/1").macs().limit_exceeded == 0
    switch.clear_macs()
    assert platform.double.calls()[-1].op == "Ryn_Clear_Switch_MAC_Table"


def test_the_snapshot_is_a_record_and_the_modules_text(host, platform):
    import _libryn

    area = Bytes(4096).u32(0, 1, 2)
    area.i32(8, -5).u64(13, 1 << 3 | 1).u64(37, 1)  # load, ports 0 and 3 send, port 64 receives
    at = 8 + 37
    area.i32(at, -1).u32(at + 4, 0xFFFFFFFF, 0xAB, 1, 1).i32(at + 20, 2).u32(at + 24, 7, 9)
    area.i32(at + 32, 3).u32(at + 36, 0x80000000, 1)
    area.i32(at + 44, 2).u32(at + 48, 1, 2, 0, 0)
    platform.double.answer("Ryn_DumpLBSnapshot", area=area)
    snapshot = host.switch("dvs-1").balancer.snapshot()
    assert str(snapshot) == _libryn.DumpLBSnapshot(3)
    (group,) = snapshot.groups
    assert (group.load, group.tx_ports, group.rx_ports) == (-5, (0, 3), (64,))
    assert [vertex.number for vertex in snapshot.vertices] == [-1, 2]
    assert snapshot.edges == ((-1, 2, 7, 9),)
    assert snapshot.edges[0].ema == 9


def test_an_empty_snapshot(host):
    snapshot = host.switch("dvs-1").balancer.snapshot()
    assert str(snapshot) == "\nGroups\n\nVeticies and Edges\n"
    assert snapshot == ((), ())


def test_the_balancers_figures(host, platform):
    area = Bytes(9224).u32(8 + 48 * 2, 11, 12, 3, 4)
    platform.double.answer("Ryn_Dump_LB_PortStats", area=area)
    stats = host.switch("dvs-1").balancer.port_stats()
    assert (len(stats.ports), len(stats.cores)) == (128, 64)
    port = stats.ports[2]
    assert (port.port, port.number0, port.number4, port.core_a, port.core_b) == (2, 11, 12, 3, 4)


def test_buffer_pools_are_set_up_only_where_a_switch_is_served(host, platform):
    assert host.init_fastslabs() is False
    assert "Ryn_Init_Mbuf_Fastslabs" not in platform.double.ops()
    platform.double.add_switch("poll", "id-p", global_={"com.talvor.extraconfig.opaqueDvs.ryn": b"poll"})
    assert host.init_fastslabs() is True
    platform.double.answer("Ryn_Init_Mbuf_Fastslabs", status=5)
    with pytest.raises(ryn.PlatformError):
        host.init_fastslabs()


def test_a_failed_call_has_its_operation_arguments_and_status(host, platform):
    platform.double.answer("Ryn_Get_Port_Stats", status=0x0BAD0003)
    with pytest.raises(ryn.NotFound) as caught:
        host.port("dvs-1/1").counters()
    assert (caught.value.operation, caught.value.arguments, caught.value.status) == (
        "Ryn_Get_Port_Stats",
        (3, 1),
        0x0BAD0003,
    )


def test_port_and_mirror_records(host, platform):
    platform.double.answer("Ryn_Get_Port_Conf", area=Bytes(1272).u32(0, 11).u32(20, 0x11).u64(24, 1 << 63))
    config = host.port("dvs-1/1").config()
    assert (config.dvport, config.ladrf, str(ryn.ReceiveFlags(config.flags))) == (11, 1 << 63, "UNICAST|PROMISC")
    assert host.switch("dvs-1").mirrors() == []
    assert host.port("dvs-1/1").netq().filters == ()
