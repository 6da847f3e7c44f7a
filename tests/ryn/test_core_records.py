"""Records, addresses, counters, MAC tables and flows: what they are without any platform."""

from __future__ import annotations

import copy
import ipaddress
import pickle
import struct
import subprocess
import sys

import pytest
from harness import UNDER_ASAN, Bytes

ADDRESS = bytes([2, 0, 0, 0xAA, 0xBB, 0xCC])


@pytest.fixture
def records(_module):
    import ryn._records

    return ryn._records


def test_records_need_no_platform_library(records):
    """In a process that finds no platform library, records and rates work, and only making a Host fails."""
    if UNDER_ASAN:
        pytest.skip("its libraries would have to be loaded first")
    code = """
import ryn
print(ryn.MacAddress(bytes(6)), len(ryn.MacTable(bytes(40))), ryn.CounterTable(bytes(256))[0].total.tx_bytes)
try:
    ryn.Host()
except ryn.PlatformNotFound as error:
    print(isinstance(error, ImportError))
"""
    folder = records.__file__.rpartition("/ryn/")[0]
    done = subprocess.run(
        [sys.executable, "-c", code], cwd="/", text=True, capture_output=True, env={"PYTHONPATH": folder}, timeout=60
    )
    assert (done.stdout, done.stderr) == ("00:00:00:00:00:00 2 0\nTrue\n", "")


def test_records_are_named_tuples_of_the_package(records):
    import ryn

    for name in (each for each in dir(records) if each[0].isupper()):
        assert getattr(ryn, name, None) is getattr(records, name) or name == "ListedPort", name
    counters = records.Counters(range(16))
    assert counters.rx_errors == 15 and counters[1] == counters.tx_bytes == 1
    assert counters._fields[:2] == ("tx_packets", "tx_bytes")
    assert repr(counters).startswith("ryn.Counters(tx_packets=0, tx_bytes=1,")
    assert pickle.loads(pickle.dumps(counters)) == copy.deepcopy(counters) == counters
    assert hash(counters) == hash(records.Counters(range(16)))
    with pytest.raises((AttributeError, TypeError)):
        counters.tx_bytes = 5


COUNTERS = [
    f"{way}_{what}"
    for way in ("tx", "rx")
    for what in "packets bytes multicast_packets multicast_bytes broadcast_packets broadcast_bytes drops errors".split()
]
FIELDS = {
    "Counters": COUNTERS,
    "Rates": COUNTERS,
    "UplinkCounters": """rx_packets tx_packets rx_bytes tx_bytes rx_errors tx_errors rx_drops tx_drops
        rx_multicast_packets rx_broadcast_packets
        tx_multicast_packets tx_broadcast_packets collisions rx_length_errors rx_overflow_errors
        rx_crc_errors rx_frame_align_errors rx_fifo_errors rx_miss_errors tx_aborted_errors tx_carrier_errors
        tx_fifo_errors tx_heartbeat_errors tx_window_errors""".split(),
    "SwitchRecord": "name number max_ports active_ports ports mtu core_count cores".split(),
    "MacEntry": "mac vlan port generation".split(),
    "Device": "name affinity".split(),
    "Teaming": "type uplinks".split(),
    "PortConfig": """dvport flags ladrf mac untagged_vlan forged_allowed vni sample_rate multicast
        vlan_ranges""".split(),
    "Mirror": """index encap_vlan snap_len sampling_rate no_input no_output vlan_encap orig_vlan source_in source_out
        destinations vlans""".split(),
    "NetQ": "switch port is_uplink filters".split(),
    "NetQFilter": "kind text queues".split(),
    "NetQQueue": "port queue flow".split(),
    "FlowStats": "core flows hits misses fpo_hits local_hits insert_failures".split(),
    "FpoStats": """core hits mark_mismatches pnic_mismatches delayed_matches ephemeral_flows
        transient_flows""".split(),
    "Offload": "level groups priorities mark_bits flows counters key_bits dec_ttl actions".split(),
    "Weights": """cross_numa_communication cross_numa_migration cross_lcore_communication cross_lcore_migration
        vm_affinity device_affinity stability_decay port_count""".split(),
    "BalancerGroup": "load tx_ports rx_ports".split(),
    "BalancerVertex": "number wid flags outgoing incoming".split(),
    "BalancerEdge": "peer load ema".split(),
    "BalancerPort": """port number0 number4 core_a core_b usage0 usage1 usage2 usage3 load_a load_b""".split(),
    "BalancerCore": "core usage load".split(),
    "DvsRecord": "id alias portset class_name".split(),
}
NAMED_TUPLES = {
    "Options": "high low pause sensitivity".split(),
    "Setting": "name value source stored running".split(),
    "RingSize": "tx rx".split(),
    "Edge": "source target load ema".split(),
    "Snapshot": "groups vertices".split(),
    "BalancerStats": "ports cores".split(),
    "PortKey": "switch number dvport mac".split(),
}


def test_every_record_is_here(records):
    made_of_fields = {name for name in dir(records) if issubclass(type(getattr(records, name)), type)} - {
        "CounterTable",
        "Flow",
        "FlowFilter",
        "ListedPort",
        "MacAddress",
        "MacTable",
        "PortCounters",
    }
    assert made_of_fields == set(FIELDS)


@pytest.mark.parametrize("name", [*FIELDS, *NAMED_TUPLES])
def test_a_record_has_its_fields_and_cannot_be_changed(_module, name):
    import ryn

    kind, fields = getattr(ryn, name), {**FIELDS, **NAMED_TUPLES}[name]
    assert list(kind._fields) == fields
    values = range(len(fields))
    record = kind(values) if name in FIELDS else kind(*values)
    assert [getattr(record, field) for field in fields] == list(record) == list(values)
    assert pickle.loads(pickle.dumps(record)) == copy.copy(record) == record and type(copy.copy(record)) is kind
    assert hash(record) == hash(copy.deepcopy(record)) and record != tuple(reversed(values))
    assert repr(record).split("(")[0].rpartition(".")[2] == name and f"{fields[-1]}={values[-1]}" in repr(record)
    with pytest.raises(AttributeError):
        setattr(record, fields[0], 5)
    with pytest.raises(AttributeError):
        record.nothing = 5
    with pytest.raises(TypeError):
        record[0] = 5


# ---- Addresses


@pytest.mark.parametrize("text", ["02:00:00:aa:bb:cc", "02-00-00-AA-BB-CC", "02:00:00:Aa:bB:cc"])
def test_address_from_text(records, text):
    mac = records.MacAddress(text)
    assert (str(mac), mac.packed, bytes(mac)) == ("02:00:00:aa:bb:cc", ADDRESS, ADDRESS)
    assert repr(mac) == "ryn.MacAddress('02:00:00:aa:bb:cc')"
    assert mac == records.MacAddress(ADDRESS) == records.MacAddress(mac) != records.MacAddress(bytes(6))
    assert mac != str(mac) and mac != ADDRESS
    assert hash(mac) == hash(records.MacAddress(ADDRESS))
    assert pickle.loads(pickle.dumps(mac)) == mac
    assert (mac.is_local, mac.is_multicast) == (True, False)


@pytest.mark.parametrize(
    "wrong",
    [
        "",
        "02:00:00:aa:bb",
        "02:00:00:aa:bb:cc:",
        "02:00:00:aa:bb:cg",
        "02:00-00:aa:bb:cc",
        "2:0:0:a:b:c",
        "020000aabbcc",
        "02:00:00:*",
        "\udcff",
        "é",
        b"",
        b"12345",
        b"1234567",
    ],
)
def test_what_is_no_address(records, wrong):
    with pytest.raises(ValueError):
        records.MacAddress(wrong)


def test_addresses_are_ordered_and_of_few_types(records):
    macs = [records.MacAddress(bytes([0, 0, 0, 0, 0, i])) for i in (3, 1, 2)]
    assert [mac.packed[5] for mac in sorted(macs)] == [1, 2, 3]
    assert macs[1] < macs[0] and not macs[0] <= macs[1]
    for wrong in (1, None, bytearray(6)):
        with pytest.raises(TypeError):
            records.MacAddress(wrong)
    with pytest.raises(TypeError):
        macs[0] < "x"


# ---- Counters


def test_total_is_the_plain_sum(records):
    most = (1 << 64) - 1
    counters = records.PortCounters([most] * 16, [1] * 16)
    assert set(counters.total) == {1 << 64} and set(counters.fast) == {most}
    fast, slow = counters
    assert (fast, slow) == (counters.fast, counters.slow)
    assert pickle.loads(pickle.dumps(counters)) == counters != records.PortCounters([0] * 16, [1] * 16)
    assert hash(counters) == hash(copy.copy(counters)) and counters._fields == ("fast", "slow")
    assert repr(counters).startswith("ryn.PortCounters(fast=ryn.Counters(tx_packets=18446744073709551615")


@pytest.mark.parametrize("wrong", [[0] * 15, [0] * 17, [-1] * 16, [1 << 64] * 16])
def test_what_are_no_counters(records, wrong):
    with pytest.raises(ValueError):
        records.PortCounters(wrong, [0] * 16)


def counter_row(**numbers: int) -> bytes:
    """Bytes of a row: the platform has the byte counter before the packet counter."""
    row = Bytes(256)
    for name, at in (("tx_bytes", 0), ("tx_packets", 8), ("rx_errors", 120), ("slow_tx_packets", 128 + 8)):
        row.u64(at, numbers.get(name, 0))
    return bytes(row)


def test_rates(records):
    earlier = records.CounterTable(counter_row() + counter_row(tx_packets=10, slow_tx_packets=5, rx_errors=1))
    later = records.CounterTable(counter_row(tx_packets=30, slow_tx_packets=10, rx_errors=1))
    rates, reset = later.rates(0, earlier, 1, 2.0)
    assert (rates.tx_packets, rates.rx_errors, rates.tx_bytes, reset) == (12.5, 0.0, 0.0, False)
    assert earlier.rates(1, later, 0, 2.0) == (None, True)  # it fell


@pytest.mark.parametrize(
    "then, now, growth",
    [
        ((1 << 64) - 10, 5, 15),
        ((1 << 63) + 1, 0, (1 << 63) - 1),
        (1 << 63, 0, None),
        (5, 4, None),
        (5, 5, 0),
    ],
)
def test_a_fall_of_more_than_half_the_range_is_a_wrap(records, then, now, growth):
    tables = [records.CounterTable(counter_row(slow_tx_packets=number)) for number in (then, now)]
    rates, reset = tables[1].rates(0, tables[0], 0, 1.0)
    assert reset == (growth is None)
    assert rates is None or rates.tx_packets == float(growth)


def test_counter_table(records):
    table = records.CounterTable(counter_row(tx_packets=1) + counter_row(tx_packets=2))
    assert [row.fast.tx_packets for row in table] == [1, 2] and table[-1].fast.tx_packets == 2
    assert pickle.loads(pickle.dumps(table)) == table != records.CounterTable(b"")
    for wrong in (2, -3):
        with pytest.raises(IndexError):
            table[wrong]
        with pytest.raises(IndexError):
            table.rates(wrong, table, 0, 1.0)
    for seconds in (0, -1, float("nan")):
        with pytest.raises(ValueError):
            table.rates(0, table, 0, seconds)
    with pytest.raises(ValueError):
        records.CounterTable(bytes(255))
    with pytest.raises(TypeError):
        hash(table)


# ---- MAC tables


def mac_row(mac: bytes, vlan: int, port: int, generation: int) -> bytes:
    return struct.pack("<6sHIII", mac, vlan, port, 0xDEAD, generation)


@pytest.fixture
def table(records):
    rows = [mac_row(bytes([2, 0, 0, 0, i >> 8, i & 255]), i % 3, i % 5, i) for i in range(300)]
    return records.MacTable(b"".join(rows), 1000, 7)


def test_rows_of_a_table(records, table):
    row = table[258]
    assert row == (records.MacAddress("02:00:00:00:01:02"), 0, 3, 258)
    assert (row.mac.packed[5], row.vlan, row.port, row.generation) == (2, 0, 3, 258)
    assert (len(table), table.limit, table.limit_exceeded) == (300, 1000, 7)
    assert table[-1] == table[299] and [row.generation for row in table] == list(range(300))
    for wrong in (300, -301):
        with pytest.raises(IndexError):
            table[wrong]


@pytest.mark.parametrize(
    "part", [slice(10), slice(-10, None), slice(None, None, -1), slice(5, 200, 7), slice(250, 20, -7), slice(9, 9)]
)
def test_slices_are_tables(records, table, part):
    assert type(table[part]) is records.MacTable and table[part].limit == 1000
    assert [row.generation for row in table[part]] == list(range(300))[part]


def test_search(records, table):
    assert [row.generation for row in table.find("02-00-00-00-01-02")] == [258]
    assert table.find(bytes([2, 0, 0, 0, 1, 2])) == table.find(records.MacAddress("02:00:00:00:01:02"))
    assert [row.generation for row in table.find("02:00:00:00:01:*")] == list(range(256, 300))
    assert len(table.find("*")) == 300 and table.find("03:*") == []
    for wrong in ("02:00:00:0*", "**", "02:00:00", "02:00:00:00:01:02*"):
        with pytest.raises(ValueError):
            table.find(wrong)
    selected = table.select(mac="02:00:00:00:00:*", vlan=1, port=2)
    assert [row.generation for row in selected] == [i for i in range(256) if i % 3 == 1 and i % 5 == 2]
    assert table.select() == table and len(table.select(port=9)) == 0
    with pytest.raises(ValueError):
        table.select(vlan=65536)


def test_buffer_of_a_table(table):
    view = memoryview(table)
    assert (view.format, view.itemsize, view.shape, view.readonly) == (
        "T{(6)B:mac:H:vlan:I:port:4xI:generation:}",
        20,
        (300,),
        True,
    )
    assert view.tobytes()[258 * 20 :][:20] == mac_row(bytes([2, 0, 0, 0, 1, 2]), 0, 3, 258)
    with open("/dev/zero", "rb") as zeros, pytest.raises((BufferError, TypeError)):
        zeros.readinto(table)


def test_table_read_by_numpy_without_a_copy(table):
    import numpy

    array = numpy.asarray(table)
    assert array.dtype.names == ("mac", "vlan", "port", "generation") and array.shape == (300,)
    assert array["port"].tolist() == [i % 5 for i in range(300)]
    assert bytes(array["mac"][258]) == bytes([2, 0, 0, 0, 1, 2]) and not array.flags.writeable
    assert array.__array_interface__["data"][0] == numpy.frombuffer(table, "u1").__array_interface__["data"][0]


def test_equality_pickling_and_size_of_tables(records, table):
    assert pickle.loads(pickle.dumps(table)) == table == table[:] != table[:-1]
    assert records.MacTable(bytes(20)) != records.MacTable(bytes(20), 1) != records.MacTable(bytes(20), 1, 0)
    apart = bytearray(20)
    apart[12] = 1  # bytes between the fields are nobody's
    assert records.MacTable(bytes(20)) == records.MacTable(bytes(apart))
    assert records.MacTable(b"").limit_exceeded is None
    assert sys.getsizeof(table) <= 16 + 20 * 300 + 1024
    with pytest.raises(TypeError):
        hash(table)
    with pytest.raises(ValueError):
        records.MacTable(bytes(19))


# ---- Flows


@pytest.fixture
def flow(records):
    return records.Flow(
        3,
        4,
        bytes([10, 0, 0, 1]),
        bytes([10, 0, 0, 2]),
        5000,
        443,
        6,
        100,
        7,
        8,
        1 << 5 | 1 << 30,
        True,
        ADDRESS,
        bytes(6),
        0x7FFF,
        0xFFFFFF,
    )


def test_fields_of_a_flow(flow):
    assert (flow.src, flow.dst) == (ipaddress.ip_address("10.0.0.1"), ipaddress.ip_address("10.0.0.2"))
    assert (flow.switch, flow.core, flow.sport, flow.dport, flow.protocol, flow.vlan) == (3, 4, 5000, 443, 6, 100)
    assert (flow.packets, flow.bytes, flow.offloaded, flow.bitmap) == (7, 8, True, 1 << 5 | 1 << 30)
    assert (flow.mac_a.packed, flow.number15, flow.number24) == (ADDRESS, 0x7FFF, 0xFFFFFF)
    assert "DROP" in str(flow.actions) and int(flow.actions) == flow.bitmap  # bits without a name are kept
    assert pickle.loads(pickle.dumps(flow)) == flow == copy.copy(flow)
    assert hash(flow) == hash(copy.copy(flow)) and repr(flow).startswith("ryn.Flow(switch=3, core=4, src=IPv4Address(")
    assert flow._fields[0] == "switch" and [getattr(flow, name) for name in flow._fields]


def test_a_flow_has_its_fields_and_cannot_be_changed(flow):
    assert " ".join(flow._fields) == (
        "switch core src dst sport dport protocol vlan packets bytes actions offloaded mac_a mac_b number15 number24"
        " bitmap"
    )
    for name in flow._fields:
        with pytest.raises(AttributeError):
            setattr(flow, name, getattr(flow, name))


def test_every_field_tells_flows_apart(records, flow):
    _, fields = flow.__reduce__()
    for i, value in enumerate(fields):
        other = list(fields)
        if isinstance(value, bytes):
            other[i] = value[:-1] + bytes([value[-1] ^ 1])
        else:
            other[i] = not value if isinstance(value, bool) else value ^ 1
        assert records.Flow(*other) != flow, flow._fields[i]
        assert hash(records.Flow(*other)) != hash(flow)
    assert records.Flow(*fields) == flow


def test_flow_of_ipv6_without_statistics(records):
    address = ipaddress.ip_address("2001:db8::1")
    flow = records.Flow(0, 0, address, address, 1, 2, 58, 0, None, None, 0, False, bytes(6), bytes(6), 0, 0)
    assert (flow.src, flow.packets, flow.bytes) == (address, None, None)
    assert pickle.loads(pickle.dumps(flow)) == flow
    with pytest.raises(ValueError):
        records.Flow(0, 0, address, bytes(4), 1, 2, 58, 0, None, None, 0, False, bytes(6), bytes(6), 0, 0)
    with pytest.raises(ValueError):
        records.Flow(0, 0, address, address, 1, 2, 58, 0, 1, None, 0, False, bytes(6), bytes(6), 0, 0)


@pytest.mark.parametrize(
    "wanted, matches",
    [
        ({}, True),
        ({"src": (bytes([10, 0, 0, 1]), 32)}, True),
        ({"src": (bytes([10, 0, 0, 2]), 32)}, False),
        ({"src": (bytes([10, 0, 0, 99]), 25)}, True),
        ({"src": (bytes([10, 0, 0, 129]), 25)}, False),
        ({"dst": (bytes([11, 0, 0, 0]), 7)}, True),
        ({"dst": (bytes(4), 0)}, True),
        ({"dst": (bytes(16), 0)}, False),  # of the other family
        ({"sport": 5000, "dport": 443, "protocol": 6, "vlan": 100}, True),
        ({"sport": 5001}, False),
        ({"dport": 0}, False),
        ({"protocol": 17}, False),
        ({"vlan": 0}, False),
        ({"actions": 1 << 5}, True),
        ({"actions": 1 << 5 | 1}, False),
        ({"mac_a": ADDRESS}, True),
        ({"mac_b": ADDRESS}, False),
    ],
)
def test_what_a_filter_matches(records, flow, wanted, matches):
    assert records.FlowFilter(**wanted).matches(flow) is matches


@pytest.mark.parametrize(
    "wrong, error",
    [
        ({"src": (bytes(5), 0)}, ValueError),
        ({"src": (bytes(4), 33)}, ValueError),
        ({"src": bytes(4)}, TypeError),
        ({"vlan": 4096}, ValueError),
        ({"sport": 65536}, ValueError),
        ({"protocol": 256}, ValueError),
        ({"dport": -1}, ValueError),
        ({"mac_a": "x"}, ValueError),
        ({"colour": 1}, TypeError),
        ({"sport": 1.5}, TypeError),
    ],
)
def test_what_is_no_filter(records, wrong, error):
    with pytest.raises(error):
        records.FlowFilter(**wrong)
