"""Settings have effects that a script can see."""

import pytest
import simulated

IDENTIFIER = "a91c20da-b05c-4387-a4701d270827"  # dvs-1's
TCP_PORT = 14  # of the default profile's first switch; receives TCP from another port


def growth(host, seconds: float, *call) -> dict:
    """How much the counters that a call answers with grow in so much time."""

    def read() -> dict:
        value = getattr(host, call[0])(*call[1:])
        return dict(value["uplinkStats"]) if isinstance(value, dict) and "uplinkStats" in value else value

    before = read()
    host.step(seconds)
    after = read()
    return {name: after[name] - before[name] for name in after}


def flow_totals(host, sw: int = 0) -> dict:
    records = host.GetFlowStats(sw, [], 0)
    return {name: sum(record[name] for record in records) for name in records[0]}


def test_receive_offload_makes_fewer_and_larger_packets(host):
    host.SetPortLRO(0, TCP_PORT, 1)
    on = growth(host, 10, "GetPortStats", 0, TCP_PORT)
    host.SetPortLRO(0, TCP_PORT, 0)
    off = growth(host, 10, "GetPortStats", 0, TCP_PORT)
    assert off["rxPkts"] > 2 * on["rxPkts"] > 0
    assert on["rxBytes"] / on["rxPkts"] > 2 * off["rxBytes"] / off["rxPkts"]
    assert abs(on["rxBytes"] - off["rxBytes"]) < off["rxBytes"] // 10


def uplink_shares(host) -> list[int]:
    """Of what port 2 sends in some seconds while it alone sends, each uplink's packets."""
    before = [dict(host.GetUplinkStats(0, uplink)["uplinkStats"])["txPkts"] for uplink in (0, 1)]
    host.step(10)
    after = [dict(host.GetUplinkStats(0, uplink)["uplinkStats"])["txPkts"] for uplink in (0, 1)]
    return [b - a for a, b in zip(before, after)]


def test_the_policy_decides_which_uplinks_counters_rise(host):
    host.apply("DELETE FROM conversation")
    host.apply(
        "INSERT INTO conversation (id, sw, src_port, src_ip, dst_ip, milli_pps, size, flows)"
        " VALUES (1, 0, 2, x'0a000001', x'0a000002', 1000000, 100, 4)"
    )
    shares = {}
    for kind, uplinks in (("Single", [1, 0]), ("LAG", [0, 1]), ("All", [0, 1]), ("SrcMAC", [0, 1]), ("NoTeaming", [1])):
        host.SetPortTxUplink(0, 2, {"txType": kind, "txUplinks": uplinks})
        shares[kind] = uplink_shares(host)
    assert shares["Single"] == shares["NoTeaming"] == [0, 10_000]
    assert shares["LAG"] == [5_000, 5_000]
    assert shares["All"] == [10_000, 10_000]
    assert sorted(shares["SrcMAC"]) == [0, 10_000]


def test_teams_fail_over_unless_there_is_no_team(host):
    host.apply("DELETE FROM conversation")
    host.apply(
        "INSERT INTO conversation (id, sw, src_port, src_ip, dst_ip, milli_pps, size, flows)"
        " VALUES (1, 0, 2, x'0a000001', x'0a000002', 1000000, 100, 4)"
    )
    begin = host.now_ms()
    nics = dict(host.rows("SELECT port, nic FROM port WHERE sw = 0 AND kind = 2"))
    host.apply(
        "INSERT INTO event (kind, target, from_ms, until_ms)"
        f" VALUES ('uplink-down', '{nics[0]}', {begin}, {begin + 100_000})"
    )
    host.SetPortTxUplink(0, 2, {"txType": "Single", "txUplinks": [0, 1]})
    assert uplink_shares(host) == [0, 10_000]
    host.SetPortTxUplink(0, 2, {"txType": "NoTeaming", "txUplinks": [0, 1]})
    drops = host.GetPortStats(0, 2)["txDrops"]
    assert uplink_shares(host) == [0, 0]
    assert host.GetPortStats(0, 2)["txDrops"] - drops == 10_000
    host.step(100)  # the link is up again
    assert uplink_shares(host) == [10_000, 0]


def test_clearing_the_flow_table_makes_a_burst_of_misses(host):
    host.step(20)
    before = flow_totals(host)
    host.ClearSwitchFlowTable(0)
    assert flow_totals(host)["numFlows"] == 0
    host.step(0.1)
    burst = flow_totals(host)
    host.step(0.1)
    later = flow_totals(host)
    assert burst["miss"] - before["miss"] > 5 * (later["miss"] - burst["miss"])
    assert 0 < burst["numFlows"] <= later["numFlows"]


def test_without_the_flow_cache_everything_is_slow(host):
    host.EnableSwitchFlowCache(0, 0)
    before = flow_totals(host)
    port = growth(host, 10, "GetPortStats", 0, 2)
    assert port["txPkts"] == 0 and port["spTxPkts"] > 0
    after = flow_totals(host)
    assert after["hits"] == before["hits"] and after["numFlows"] == 0
    assert host.DumpFlowTable(0, 0, 0, 0) == {"startIndex": 0, "list": []}
    host.EnableSwitchFlowCache(0, 1)
    port = growth(host, 10, "GetPortStats", 0, 2)
    assert port["txPkts"] > 50 * port["spTxPkts"]


def test_the_timeout_decides_how_large_the_table_grows(host):
    usual = flow_totals(host)["numFlows"]
    host.SetFlowTimeout(60)
    assert flow_totals(host)["numFlows"] == pytest.approx(usual, rel=0.01)  # what has left the table stays out
    host.step(60)
    grown = flow_totals(host)["numFlows"]
    assert grown > usual * 1.5
    host.SetFlowTimeout(1)
    assert flow_totals(host)["numFlows"] < usual


def test_offload_takes_hits_from_the_cores(host):
    names = {uplink: host.GetFPOUplinkStatus(sw, uplink)["level"] for sw in (0, 1) for uplink in (0, 1)}
    levels = {host.GetFPOUplinkStatus(sw, uplink)["level"] for sw in (0, 1) for uplink in (0, 1)}
    assert levels == {"Not Supported", "Model 1 Level 1", "Model 1 Level 2", "Model 2"}, names
    before = flow_totals(host)
    host.step(10)
    on = flow_totals(host)
    host.EnableFPO("dvs-1", 0)
    still = flow_totals(host)
    host.step(10)
    off = flow_totals(host)
    assert on["fpoHits"] - before["fpoHits"] > on["localHits"] - before["localHits"]
    assert off["fpoHits"] == still["fpoHits"]
    assert off["localHits"] - still["localHits"] > on["localHits"] - before["localHits"]
    assert host.DumpFlowTable(0, 0, 0, 1)["list"] == []


def test_small_rings_lose_packets(host):
    host.SetUplinkRingSize(IDENTIFIER, "1000", 2048, 1024)
    assert growth(host, 10, "GetUplinkStats", 0, 0)["rxDrops"] == 0
    host.SetUplinkRingSize(IDENTIFIER, "1000", 64, 64)
    small = growth(host, 10, "GetUplinkStats", 0, 0)
    assert small["rxDrops"] > 0 and small["txDrops"] > 0
    host.SetUplinkRingSize(IDENTIFIER, "1000", 0, 0)
    none = growth(host, 10, "GetUplinkStats", 0, 0)
    assert none["rxPkts"] == none["txPkts"] == 0


@pytest.mark.parametrize("bursts", [False, True])
def test_a_link_carries_no_more_than_it_can(bursts, tmp_path, processes):
    description = """
host: h
numa: [{lcores: [0, 1, 2, 3], capacity: 4M}]
nics: {slow: {numa: 0, link: 1G}, fast: {numa: 0, link: 100G}}
switches: [{alias: s, mtu: 9000, uplinks: [slow, fast]}]
ports:
  - {switch: s, vm: a, teaming: {type: Single, uplinks: [slow]}}
  - {switch: s, vm: b, teaming: {type: Single, uplinks: [fast]}}
traffic:
  - {from: a, to: uplink, pps: 200k, size: 1000}
  - {from: slow, to: a, pps: 200k, size: 1500}
  - {from: b, to: uplink, pps: 200k, size: 1000}
  - {from: fast, to: b, pps: 200k, size: 1500}
"""
    if bursts:
        description = description.replace("200k", "200k, pattern: {burst: {every: 1s, for: 250ms, times: 5}}")
    host = simulated.Host(simulated.make(tmp_path / "host.db", description), *processes)
    slow, fast = growth(host, 10, "GetUplinkStats", 0, 0), growth(host, 10, "GetUplinkStats", 0, 1)
    for way in ("tx", "rx"):
        # A frame takes 24 bytes more of the wire than its own.
        assert 0.99e9 < 8 * (slow[way + "Bytes"] + 24 * slow[way + "Pkts"]) / 10 < 1.0001e9
        assert slow[way + "Drops"] > 0 and fast[way + "Drops"] == 0
        assert slow[way + "Pkts"] + slow[way + "Drops"] == pytest.approx(2_000_000, abs=4)
        assert fast[way + "Pkts"] == pytest.approx(2_000_000, abs=4)
    assert slow["txFifoErrors"] == slow["txDrops"] and slow["rxFifoErrors"] == slow["rxDrops"]


def test_a_conversation_weighs_on_its_core_while_it_lasts(tmp_path, processes):
    description = """
host: h
numa: [{lcores: [0], capacity: 1M}]
switches: [{alias: s}]
ports: [{switch: s, vm: a}, {switch: s, vm: b}]
traffic:
  - {from: a, to: b, pps: 600k, size: 100, dport: 1}
  - {from: a, to: b, pps: 600k, size: 100, dport: 2, start: 10s, stop: 20s}
"""
    host = simulated.Host(simulated.make(tmp_path / "host.db", description), *processes)
    drops = [growth(host, 10, "GetPortStats", 0, 0)["txDrops"] for _ in range(3)]
    assert drops[0] == drops[2] == 0 and drops[1] > 1_000_000
    # Nobody looked in between, and the figures are the same.
    late = simulated.Host(simulated.make(tmp_path / "late.db", description), *processes)
    late.step(30)
    assert late.GetPortStats(0, 0) == host.GetPortStats(0, 0)


def test_flows_do_what_their_actions_say(tmp_path, processes):
    description = """
host: h
numa: [{lcores: [0, 1]}]
nics: {n0: {numa: 0}}
switches: [{alias: s, uplinks: [n0]}]
ports: [{switch: s, vm: a}, {switch: s, vm: b}, {switch: s, vm: c}]
traffic:
  - {from: a, to: b, pps: 1000, size: 100, actions: [DROP]}
  - {from: a, to: c, pps: 1000, size: 100, actions: [SP]}
"""
    host = simulated.Host(simulated.make(tmp_path / "host.db", description), *processes)
    dropped, slow = growth(host, 10, "GetPortStats", 0, 2), growth(host, 10, "GetPortStats", 0, 3)
    assert (dropped["rxPkts"], dropped["rxDrops"] + dropped["spRxDrops"]) == (0, 10_000)
    assert (slow["rxPkts"], slow["spRxPkts"]) == (0, 10_000)
    flows = [flow["actions"] for core in (0, 1) for flow in host.DumpFlowTable(0, core, 0, 0)["list"]]
    assert sorted(flow.rpartition("; ")[0].rpartition("; ")[2] for flow in flows) == ["DROP", "SP"]


# Two machines that talk to each other and to the world, one that listens, and sessions that may copy it to them.
MIRRORED = """
host: h
numa: [{lcores: [0, 1, 2, 3]}]
nics: {n0: {numa: 0}, n1: {numa: 0}}
switches: [{alias: s, uplinks: [n0, n1], mirrors: [%s]}]
ports:
  - {switch: s, vm: a, vlan: 5, teaming: {type: Single, uplinks: [n0]}}
  - {switch: s, vm: b, vlan: 5, teaming: {type: Single, uplinks: [n0]}}
  - {switch: s, vm: tap, kind: GENERIC}
traffic:
  - {from: a, to: b, pps: 1000, size: 500, reply: 0.5, reply_size: 90, flows: 3}
  - {from: a, to: uplink, pps: 300, size: 700, reply: 1, reply_size: 80}
"""


@pytest.mark.parametrize(
    "session, packets, size",
    [
        ("{session: 1, in: [a], to: [tap]}", 13_000, (10_000 * 500 + 3_000 * 700) / 13_000),
        ("{session: 1, out: [a], to: [tap]}", 8_000, (5_000 * 90 + 3_000 * 80) / 8_000),
        ("{session: 1, in: [a], out: [a], to: [tap]}", 21_000, None),
        ("{session: 1, in: [a, b], out: [a, b], to: [tap]}", 21_000, None),  # each packet once
        ("{session: 1, in: [a], to: [tap]}, {session: 2, in: [a], to: [tap]}", 26_000, None),
        ("{session: 1, in: [a], to: [tap], snap_len: 64}", 13_000, 64),
        ("{session: 1, in: [a], to: [tap], snap_len: 64, encap_vlan: 9, flags: [vlanEncap]}", 13_000, 68),
        ("{session: 1, in: [a], to: [tap], sampling_rate: 10}", 1_300, None),
        ("{session: 1, in: [a], to: [tap], vlans: [4, 5]}", 13_000, None),
        ("{session: 1, in: [a], to: [tap], vlans: [4, 6]}", 0, None),
        ("{session: 1, in: [tap], to: [tap]}", 0, None),
        ("{session: 1, in: [s/0], to: [tap]}", 3_000, 80),  # an uplink's packets from the wire
        ("{session: 1, in: [a], to: [a]}", 0, None),  # nobody gets back what he sends
    ],
)
def test_mirror_copies_reach_their_destination(tmp_path, processes, session, packets, size):
    host = simulated.Host(simulated.make(tmp_path / "host.db", MIRRORED % session), *processes)
    got = growth(host, 10, "GetPortStats", 0, 4)
    assert got["rxPkts"] == pytest.approx(packets, abs=6) and got["spRxPkts"] == 0
    if size is not None:
        assert got["rxBytes"] / got["rxPkts"] == pytest.approx(size, rel=0.001)


def test_mirror_copies_may_leave_by_an_uplink(tmp_path, processes):
    session = "{session: 1, in: [a], to: [s/1], snap_len: 100}"
    host = simulated.Host(simulated.make(tmp_path / "host.db", MIRRORED % session), *processes)
    copies = growth(host, 10, "GetUplinkStats", 0, 1)
    assert copies["txPkts"] == pytest.approx(13_000, abs=6) and copies["txBytes"] == 100 * copies["txPkts"]
    port = host.GetPortStats(0, 1)
    assert port["txPkts"] + port["spTxPkts"] == dict(host.GetUplinkStats(0, 1)["uplinkStats"])["txPkts"]
    queues = host.many([["GetUplinkQueueStats", 0, 1, 1, queue] for queue in range(4)])
    assert sum(dict(queue)["txPkts"] for queue in queues) == port["txPkts"] + port["spTxPkts"]
    host.SetSwitchLRO(0, 0)  # a change makes no difference to what was counted
    assert host.GetPortStats(0, 1) == port


def busy_ns(host) -> int:
    host.step(10)
    return sum(load for _, load in host.DumpLBPortStats(0, 0, 0)[5])


def test_larger_bursts_cost_less_up_to_a_knee(host):
    cost = {}
    for size in (4, 32, 64, 4096):
        host.SetSwitchBurstSize("dvs-1", size)
        cost[size] = busy_ns(host)
    assert cost[4] > cost[32] > cost[64]
    assert cost[4096] == pytest.approx(cost[64], rel=0.02)


def test_traffic_follows_a_port_that_is_migrated(host):
    host.SetLBAlgorithm("dvs-1", "none")
    host.SetLBAlgorithm("dvs-2", "none")

    def loads() -> list[int]:
        host.step(10)
        return [load for _, load in host.DumpLBPortStats(0, 0, 0)[5]]

    host.MigratePort(0, 3, 0, 0, 0)
    before = loads()
    host.MigratePort(0, 3, 10, 10, 0)
    after = loads()
    assert after[0] < before[0] and after[10] > before[10]
    lcores = {queue for port in host.ListPorts(0) for queue in port["txQLM"] + port["rxQLM"]}
    assert host.ListSwitches()[0]["lcores"] == sum(1 << core for core in lcores)


def usage_of(host, core: int) -> int:
    return host.DumpLBPortStats(0, 0, 0)[5][core][0]


def test_the_balancer_balances(host):
    for port in range(2, 19):
        host.MigratePort(0, port, 0, 0, 0)
    for alias in simulated.SWITCHES:
        host.SetLBParams(alias, 50, 50, 5, 0)
        host.SetLBAlgorithm(alias, "none")
    host.step(30)
    crowded = usage_of(host, 0)
    moved = len(host.rows("SELECT * FROM move"))
    host.SetLBAlgorithm("dvs-1", "cpu")
    host.step(300)
    assert usage_of(host, 0) <= 55 < crowded
    assert len(host.rows("SELECT * FROM move")) > moved


def test_the_balancer_counts_ports(host):
    host.SetLBAlgorithm("dvs-1", "count")
    for port in range(2, 19):
        host.MigratePort(0, port, 0, 0, 0)
    host.step(600)
    ports = [port for port in host.ListPorts(0) if port["clientType"] != "UPLINK"]
    count = [sum(core in port["txQLM"] + port["rxQLM"] for port in ports) for core in host.ListLCoreIDs(0)]
    assert max(count) <= 8  # of 21 that began on one core


def test_pinned_ports_stay(host):
    host.SetLBAlgorithm("dvs-1", "count")
    for port in range(2, 19):
        host.MigratePort(0, port, 0, 0, 1)
    host.step(600)
    ports = {port["rynPortID"]: port["txQLM"] for port in host.ListPorts(0)}
    assert all(set(ports[port]) == {0} for port in range(2, 19))


def test_a_weight_changes_what_the_balancer_does(host):
    for port in range(2, 19):
        host.MigratePort(0, port, 0, 0, 0)
    host.SetLBParams("dvs-1", 60, 60, 1, 0)
    other = host.copy(host.state.with_name("other.db"))
    other.SetLBWeights(-1, 1_000_000, -1, -1, -1, -1, -1, -1)  # never to the other node
    host.step(300)
    other.step(300)
    host.ListPorts(0)
    other.ListPorts(0)
    nodes = {to >= 8 for (to,) in host.rows("SELECT to_core FROM move")}
    assert nodes == {False, True}
    assert {to >= 8 for (to,) in other.rows("SELECT to_core FROM move")} == {False}


def test_a_reset_port_counts_from_nothing(host):
    assert host.GetPortStats(0, 2)["txPkts"] > 0
    host.ResetPort(0, 2)
    assert set(host.GetPortStats(0, 2).values()) == {0}
    host.step(1)
    assert host.GetPortStats(0, 2)["txPkts"] > 0


# MAC tables


def macs(host, *call) -> set:
    table = getattr(host, call[0])(*call[1:])["MacTableList"]
    return {(row["macAddr"], row["vlanID"], row["rynPortID"]) for row in table}


def test_the_switchs_table_is_its_ports_tables(host):
    whole = macs(host, "ListSwitchMACTable", 0)
    parts = [macs(host, "ListPortMACTable", 0, port["rynPortID"]) for port in host.ListPorts(0)]
    assert whole == set().union(*parts) and len(whole) == sum(map(len, parts)) > 20
    ports = {port["rynPortID"]: port["hwAddr"] for port in host.ListPorts(0)}
    assert any(row[0] == ports[2] and row[2] == 2 for row in whole)


def test_a_cleared_table_is_learned_again(host):
    by_hand = {(mac.hex(":"), vlan, port) for port, mac, vlan in host.rows("SELECT port, mac, vlan FROM mac_entry")}
    whole = macs(host, "ListSwitchMACTable", 0) - by_hand
    host.ClearSwitchMACTable(0)
    assert macs(host, "ListSwitchMACTable", 0) == by_hand != set()
    host.step(1.5)
    assert 0 < len(macs(host, "ListSwitchMACTable", 0)) - len(by_hand) < len(whole)
    host.step(1.5)
    assert macs(host, "ListSwitchMACTable", 0) == whole | by_hand
    host.ClearPortMACTable(0, 2)
    assert macs(host, "ListPortMACTable", 0, 2) == {entry for entry in by_hand if entry[2] == 2} != set()
    host.ClearPortMACTable(0, 3)
    assert macs(host, "ListPortMACTable", 0, 3) == set()
    assert macs(host, "ListPortMACTable", 0, 4) != set()


def test_entries_by_hand(host):
    # The method passes switch 0 whatever switch it is given.
    host.AddMACEntry(1, 5, 0x554433221102, 77)
    assert ("02:11:22:33:44:55", 77, 5) in macs(host, "ListPortMACTable", 0, 5)
    host.step(100)
    row = next(row for row in host.ListPortMACTable(0, 5)["MacTableList"] if row["vlanID"] == 77)
    assert row["macGenDiff"] == 10
    host.DelMACEntry(0, 5, 0x554433221102, 77)
    assert ("02:11:22:33:44:55", 77, 5) not in macs(host, "ListPortMACTable", 0, 5)
    assert host.complaint("DelMACEntry", 0, 5, 0x554433221102, 77) == "Failed to delete MAC entry.\n"
    assert host.complaint("AddMACEntry", 0, 126, 0x554433221102, 77) == "Failed to add a MAC entry."


def test_a_learned_entry_comes_back(host):
    port = next(port for port in host.ListPorts(0) if port["rynPortID"] == 2)
    entry = next(row for row in macs(host, "ListPortMACTable", 0, 2) if row[0] == port["hwAddr"])
    address = int.from_bytes(bytes.fromhex(entry[0].replace(":", "")), "little")
    host.DelMACEntry(0, 2, address, entry[1])
    assert entry not in macs(host, "ListPortMACTable", 0, 2)
    host.step(3)
    assert entry in macs(host, "ListPortMACTable", 0, 2)


def test_the_limit(host):
    host.apply(f"INSERT INTO event (kind, target, value, from_ms) VALUES ('mac-limit', '0', 1, {host.now_ms()})")
    assert host.ListSwitchMACTable(0)["MacLimit"] == 1
    table = host.ListPortMACTable(0, 0)
    assert table["LimitExceeded"] == 1 and len(table["MacTableList"]) == 1
    assert host.complaint("AddMACEntry", 0, 0, 0x554433221102, 77) == "Failed to add a MAC entry."


def ages(host, port: int) -> dict:
    return {row["macAddr"]: row["macGenDiff"] for row in host.ListPortMACTable(0, port)["MacTableList"]}


def test_addresses_age_while_they_are_not_heard(tmp_path, processes):
    description = """
host: h
numa: [{lcores: [0]}]
switches: [{alias: s}]
ports:
  - {switch: s, vm: busy, mac: "02:00:00:00:00:01"}
  - {switch: s, vm: silent, mac: "02:00:00:00:00:02"}
  - {switch: s, vm: rare, mac: "02:00:00:00:00:03", macs_behind: 2}
traffic:
  - {from: busy, to: silent, pps: 1000, size: 100}
  - {from: rare, to: silent, pps: 0.05, size: 100, dport: 2}
"""
    host = simulated.Host(simulated.make(tmp_path / "host.db", description), *processes)
    for second in range(5, 200, 5):
        host.step(5)
        assert set(ages(host, 0).values()) == {0}
        assert ages(host, 1) == {"02:00:00:00:00:02": second // 10}  # never comes back to 0 by itself
    # A packet every 20 seconds, in turn from three addresses: the latest after 180 s, then 160 s and 140 s.
    assert sorted(ages(host, 2).values()) == [1, 3, 5]
    host.step(3600)
    assert set(ages(host, 0).values()) == {0} and ages(host, 1) == {"02:00:00:00:00:02": 379}
    host.ClearPortMACTable(0, 1)
    host.step(3)
    assert ages(host, 1) == {"02:00:00:00:00:02": 0}  # the switch knows who is connected
    host.step(20)
    assert ages(host, 1)["02:00:00:00:00:02"] in (1, 2)


def test_an_address_that_the_switchs_limit_shuts_out_is_told_of(tmp_path, processes):
    description = """
host: h
numa: [{lcores: [0]}]
switches: [{alias: s, mac_limit: 3}]
ports: [{switch: s, vm: a, macs_behind: 1}, {switch: s, vm: b, macs_behind: 1}, {switch: s, vm: c, mac_limit: 9}]
"""
    host = simulated.Host(simulated.make(tmp_path / "host.db", description), *processes)
    tables = host.many([["ListPortMACTable", 0, port] for port in range(3)] + [["ListSwitchMACTable", 0]])
    assert [len(table["MacTableList"]) for table in tables] == [2, 1, 0, 3]
    assert [table["LimitExceeded"] for table in tables[:3]] == [0, 1, 1]  # a switch's table does not say


def test_uplinks_need_not_learn(host):
    assert macs(host, "ListPortMACTable", 0, 0) != set()
    host.SetUplinkMACLearn(0, 0)
    assert macs(host, "ListPortMACTable", 0, 0) == set()
    host.SetUplinkMACLearn(0, 5)
    assert macs(host, "ListPortMACTable", 0, 0) != set()
