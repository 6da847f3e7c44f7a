"""Load is what arrives: what cores and links that have too much to do lose, stage by stage, and who receives at all."""

import shutil
import tempfile
from pathlib import Path

import pytest
import simulated
from figures import Figures, check_sums
from hostile_answers import SOAK
from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st

LOSSES = ("link_in", "errors", "device_in", "nowhere", "core_in", "dropped", "core_out", "device_out", "link_out")


def make(path: Path, description: str, processes) -> simulated.Host:
    return simulated.Host(simulated.make(path, description), *processes)


def usage(host) -> list[int]:
    """Percent of each core in the balancer's last window."""
    return [figure for figure, _ in host.DumpLBPortStats(0, 0, 0)[5]]


def growth(host, seconds: float, port: int) -> dict:
    before = host.GetPortStats(0, port)
    host.step(seconds)
    after = host.GetPortStats(0, port)
    return {name: after[name] - before[name] for name in after}


TWO_CORES = """
host: h
numa: [{lcores: [0, 1], capacity: 1000}]
switches: [{alias: s, balancer: {metric: none}}]
ports:
  - {switch: s, vm: m-0, core: 0, pinned: true, lro: false}
  - {switch: s, vm: m-1, core: 1, pinned: true, lro: false}
traffic:
  - {from: m-0, to: m-1, pps: 10000, size: 100, slow: 0%s}
"""


def test_a_receiver_sees_what_the_senders_core_let_through(tmp_path, processes):
    """Capacity 1000, 10,000 packets a second to another core: 1,357 pass, which is 41 % of the other core's time."""
    host = make(tmp_path / "host.db", TWO_CORES % "", processes)
    host.step(20)  # past the first packet, which misses
    sent = growth(host, 10, 0)
    assert sent["txPkts"] == pytest.approx(13_570, abs=15)
    assert sent["txPkts"] + sent["txDrops"] == 100_000
    assert usage(host)[:2] == [95, 40]
    received = growth(host, 10, 1)
    assert received["rxPkts"] == pytest.approx(13_570, abs=15)
    assert received["rxDrops"] == received["spRxDrops"] == 0


def test_answers_need_something_to_answer(tmp_path, processes):
    host = make(tmp_path / "host.db", TWO_CORES % ", reply: 1, reply_size: 100", processes)
    host.step(20)
    asked, answered = growth(host, 10, 1), host.many([["rates"]])[0]["conversations"][1]
    assert answered["direction"] == "back"
    assert answered["offered"] == pytest.approx(asked["rxPkts"] / 10, rel=0.1)
    assert answered["offered"] < 1_500


@pytest.mark.parametrize(
    "question, answers",
    [
        ("{from: a, to: b, pps: 1000, size: 100, reply: 1}", 1000),
        ("{from: a, to: sleeper, pps: 1000, size: 100, reply: 1}", 0),
        ("{from: a, to: b, pps: 1000, size: 2000, reply: 1}", 0),  # larger than the switch lets in
        ("{from: a, to: b, pps: 1000, size: 100, reply: 1, actions: [DROP]}", 0),
        ("{from: a, to: other, pps: 1000, size: 100, reply: 1}", 0),  # another VLAN
        ("{from: a, to: other, pps: 1000, size: 100, reply: 1, vdr: 1}", 1000),
        ("{from: a, to: over, pps: 1000, size: 100, reply: 1}", 0),  # an overlay network
        ("{from: a, to: trunk, pps: 1000, size: 100, reply: 1}", 1000),
        ("{from: a, to: deaf, pps: 1000, size: 100, reply: 1}", 0),  # its filter takes no unicast
        ("{from: a, to: uplink, pps: 1000, size: 100, reply: 1}", 1000),
    ],
)
def test_who_is_not_reached_does_not_answer(tmp_path, processes, question, answers):
    description = """
host: h
numa: [{lcores: [0, 1]}]
nics: {n0: {numa: 0}}
switches: [{alias: s, uplinks: [n0]}]
ports:
  - {switch: s, vm: a, vlan: 5}
  - {switch: s, vm: b, vlan: 5, lro: false}
  - {switch: s, vm: sleeper, vlan: 5, active: false}
  - {switch: s, vm: other, vlan: 6}
  - {switch: s, vm: over, vni: 7000}
  - {switch: s, vm: trunk, vlans: [5, 6]}
  - {switch: s, vm: deaf, vlan: 5, filter: [BROADCAST]}
traffic: [%s]
"""
    host = make(tmp_path / "host.db", description % question, processes)
    host.SetSwitchLRO(0, 0)
    got = growth(host, 10, 1)
    assert got["rxPkts"] + got["spRxPkts"] == answers * 10
    sent = host.GetPortStats(0, 1)
    if answers == 0 and "2000" not in question and "DROP" not in question:
        assert sent["txDrops"] == 10_000 and sent["txPkts"] == 0  # arrives nowhere


@pytest.mark.parametrize(
    "delivery, receivers",
    [
        ("broadcast", {"same", "trunk", "some", "all", "hash"}),
        ("multicast", {"same", "trunk", "all", "mine"}),
    ],
)
def test_vlans_and_filters_decide_who_receives(tmp_path, processes, delivery, receivers):
    ports = {
        "same": "vlan: 5",
        "trunk": "vlans: [1-9]",
        "other": "vlan: 6",
        "over": "vni: 7000",
        "some": "vlan: 5, filter: [UNICAST, BROADCAST]",
        "all": "vlan: 5, filter: [PROMISC]",
        "mine": 'vlan: 5, filter: [MULTICAST], multicast: ["01:00:5e:00:00:fb"]',
        "theirs": 'vlan: 5, filter: [MULTICAST], multicast: ["01:00:5e:00:00:01"]',
        "hash": "vlan: 5, filter: [BROADCAST, USE_LADRF], ladrf: 0",
    }
    description = "host: h\nnuma: [{lcores: [0, 1]}]\nswitches: [{alias: s}]\nports:\n  - {switch: s, vm: a, vlan: 5}\n"
    description += "".join(f"  - {{switch: s, vm: {name}, {more}}}\n" for name, more in ports.items())
    description += f"traffic: [{{from: a, to: same, pps: 100, size: 100, proto: udp, delivery: {delivery}}}]\n"
    host = make(tmp_path / "host.db", description, processes)
    host.step(10)
    got = [host.GetPortStats(0, port + 1) for port in range(len(ports))]
    counts = [stats["rxPkts"] + stats["spRxPkts"] for stats in got]
    assert {name for name, count in zip(ports, counts) if count} == receivers
    assert set(counts) == {0, 1000}


def test_the_rate_of_a_conversation_is_its_mean_with_bursts(tmp_path, processes):
    burst = ", pattern: {burst: {every: 20s, for: 4s, times: 4}}"
    description = (TWO_CORES % burst).replace("10000", "1000").replace("capacity: 1000", "capacity: 1M")
    host = make(tmp_path / "host.db", description, processes)
    host.step(20)
    assert growth(host, 200, 0)["txPkts"] == 200_000
    assert growth(host, 1, 0)["txPkts"] == 2_500  # 625 and four times as much


def test_a_core_loses_in_a_burst_and_not_between_bursts(tmp_path, processes):
    burst = ", pattern: {burst: {every: 20s, for: 4s, times: 4}}"
    description = (TWO_CORES % burst).replace("10000", "1500")
    host = make(tmp_path / "host.db", description, processes)
    host.step(20)
    lost = [growth(host, 2, 0)["txDrops"] for _ in range(10)]
    assert all(lost[:2]) and not any(lost[2:])
    assert lost[0] == pytest.approx(2 * (3750 - 1357), abs=10)


def test_a_hung_uplink_counts_a_lost_packet_once(host):
    nic = host.rows("SELECT nic FROM port WHERE sw = 0 AND port = 0")[0][0]
    begin = host.now_ms()
    host.apply(f"INSERT INTO event (kind, target, from_ms) VALUES ('uplink-hang', '{nic}', {begin})")
    host.step(5)
    stats = dict(host.GetUplinkStats(0, 0)["uplinkStats"])
    port = host.GetPortStats(0, 0)
    assert stats["txErrors"] == port["txErrors"] == port["spTxErrors"] == 0
    assert stats["txAbortedErrors"] > 0 and stats["txFifoErrors"] == 0
    assert stats["txDrops"] == stats["txAbortedErrors"] == port["txDrops"] + port["spTxDrops"]


# The profile of a host in trouble


def losses(rates: dict) -> int:
    return sum(core["lost"] for core in rates["cores"])


def check_rates(rates: dict) -> None:
    """At each stage every packet went on or was lost, and cores and links lose only what they have no time for."""
    whole = rates["until_ms"] - rates["from_ms"] == 1000
    rounded = 0 if whole else 6  # figures are for one second
    for talk in rates["conversations"]:
        lost = talk["lost"]
        assert set(lost) == set(LOSSES) and min(lost.values()) >= 0
        entered = talk["offered"] - sum(lost[stage] for stage in LOSSES[: LOSSES.index("dropped")])
        left = talk["delivered"] + sum(lost[stage] for stage in LOSSES[LOSSES.index("dropped") :])
        # Several receivers get a share of the packets each, or all of them
        fitting = [entered * copies for copies in {1, len(talk["to"])}]
        assert any(left == pytest.approx(packets, abs=rounded * max(1, len(talk["to"]))) for packets in fitting), talk
    for stages, where in ((("core_in", "core_out"), "cores"), (("link_in", "link_out"), "links")):
        lost_by_all = sum(talk["lost"][stage] for talk in rates["conversations"] for stage in stages)
        lost_there = sum(entry["lost"] for entry in rates[where])  # mirror copies, which are nobody's, among them
        assert lost_by_all <= lost_there + rounded * len(rates["conversations"])
    for core in rates["cores"]:
        assert not whole or core["busy_percent"] <= 100, core
        if core["lost"] and whole and not core["stuck"]:
            assert core["busy_percent"] >= 95, core
        if core["asked_percent"] < 95 and not core["stuck"]:
            assert core["lost"] == 0, core
    for link in rates["links"]:
        assert link["mbps"] <= link["limit_mbps"]


def test_in_the_overloaded_profile_whoever_drops_is_busy(tmp_path, processes):
    host = simulated.Host(simulated.make(tmp_path / "host.db", "overloaded"), *processes)
    seen = set()
    for _ in range(12):
        host.step(7)
        rates = host.many([["rates"]])[0]
        check_rates(rates)
        check_sums(Figures(host))
        seen |= {core["core"] for core in rates["cores"] if core["lost"]}
    assert {0, 1} <= seen
    assert any(link["lost"] and link["mbps"] >= 0.99 * link["limit_mbps"] for link in rates["links"])


def test_in_the_overloaded_profile_the_balancer_helps(tmp_path, processes):
    text = (simulated.ROOT / "simhost" / "profiles" / "overloaded.yaml").read_text()
    lost = {}
    for metric in ("cpu", "none"):
        host = make(tmp_path / f"{metric}.db", text.replace("metric: cpu", f"metric: {metric}"), processes)
        host.step(600)
        before = Figures(host)
        host.step(60)
        after = Figures(host)
        lost[metric] = sum(
            after.ports[key]["txDrops"] - before.ports[key]["txDrops"] for key in after.ports if key[1] in range(1, 9)
        )
        moved = host.rows("SELECT count(*) FROM move")[0][0]
        assert (moved > 0) == (metric == "cpu")
    assert lost["cpu"] < 0.8 * lost["none"]


# The moment decides, not the way to it


def walk(host, steps, look: bool) -> list:
    for step in steps:
        host.step(step)
        if look:
            host.many([["ListPorts", 0], ["GetPortStats", 0, 2], ["SetFlowTimeout", 10]])
    return [Figures(host).counters(), host.ListPorts(0), host.DumpLBPortStats(0, 0, 127), host.DumpLBSnapshot(0)]


@pytest.mark.parametrize("profile", ["default", "overloaded", "degraded", "asymmetric"])
def test_two_ways_to_a_moment_agree(profile, tmp_path, processes):
    ends = []
    for number, (steps, look) in enumerate([([77], False), ([7, 70], True), ([0.4, 1.1, 3.5, 0.001, 4.999, 67], True)]):
        host = simulated.Host(simulated.make(tmp_path / f"{number}.db", profile), *processes)
        ends.append(walk(host, steps, look) if profile != "asymmetric" else walk_other(host, steps, look))
    assert ends[0] == ends[1] == ends[2]


def walk_other(host, steps, look: bool) -> list:
    """The same for the profile whose first switch is 3."""
    for step in steps:
        host.step(step)
        if look:
            host.many([["ListPorts", 3], ["GetPortStats", 3, 2]])
    return [Figures(host).counters(), host.ListPorts(3), host.DumpLBPortStats(3, 0, 127)]


DAYS_AHEAD = """
host: h
clock: {uptime: 1h}
balancer: {period: 100ms}
numa: [{lcores: [0, 1], capacity: 1000}]
switches: [{alias: s, balancer: {metric: count}}]
ports: [{switch: s, vm: a, core: 0}, {switch: s, vm: b, core: 0}, {switch: s, count: 2, vm: "c-{n}", core: 0}]
traffic: [{from: a, to: b, pps: 10, size: 100}]
events: [{event: core-stuck, target: 0, from: 2h, until: 3h}]
"""


def test_after_a_million_looks_the_balancer_starts_again(tmp_path, processes):
    """All looks are made that were missed, up to a million of them; of more, the latest two."""
    host = make(tmp_path / "host.db", DAYS_AHEAD, processes)
    host.step(1_000_002 * 0.1 + 0.05)
    assert host.many([["now_ms"]]) == [3_600_000 + 100_000_250]
    host.ListPorts(0)
    # Without the limit the second port had been moved by the second look, a day ago; and looks keep their moments
    assert host.rows("SELECT at_ms FROM move") == [(3_600_000,), (3_600_000 + 100_000_200,)]
    assert host.rows("SELECT tick_ms FROM balancer") == [(3_600_000 + 100_000_200,)]
    # Events happen all the same, at their time
    assert host.rows("SELECT at_ms, what FROM log") == [(7_200_000, "begins"), (10_800_000, "ends")]
    assert sum(host.GetPortStats(0, 1)[name] for name in ("rxDrops", "spRxDrops")) == 36_000
    short = make(tmp_path / "short.db", DAYS_AHEAD, processes)
    short.step(100)
    short.ListPorts(0)
    assert short.rows("SELECT at_ms FROM move") == [(3_600_000,), (3_600_100,)]


def test_a_setting_that_changes_nothing_leaves_no_trace(host):
    twin = host.copy(host.state.with_name("twin.db"))
    for _ in range(10):
        for one in (host, twin):
            one.step(0.7)
        host.SetPortLRO(0, 5, int(host.GetPortLRO(0, 5)))
        host.SetLBWeights(*[-1] * 8)
    assert host.rows("SELECT segment_ms FROM host") == twin.rows("SELECT segment_ms FROM host")
    assert Figures(host).counters() == Figures(twin).counters()


TROUBLE = (("uplink-down", "n0"), ("uplink-hang", "n1"), ("core-stuck", "1"), ("mac-limit", "0"))


@st.composite
def overloads(draw) -> str:
    """A host that is asked for more than it can do."""
    capacity = draw(st.sampled_from((1_000, 20_000, 1_000_000)))
    rates = [1, capacity // 7, capacity, 3 * capacity, 20 * capacity]
    lines = [
        "host: random",
        f"numa: [{{lcores: [0, 1], capacity: {capacity}}}, {{lcores: [4], capacity: {capacity}}}]",
        f"nics: {{n0: {{numa: 0, link: {draw(st.sampled_from(('1M', '100M', '100G')))}, drop_ppm: 700}},"
        " n1: {numa: 1}}",
        f"switches: [{{alias: s, uplinks: [n0, n1], burst: {draw(st.sampled_from((1, 32)))},"
        f" flow_cache: {str(draw(st.booleans())).lower()},"
        f" balancer: {{metric: {draw(st.sampled_from(('cpu', 'none')))}}}"
        + draw(st.sampled_from(("", ", mirrors: [{session: 1, in: [vm-0], to: [vm-2], sampling_rate: 3}]")))
        + "}]",
        "ports:",
    ]
    for n in range(4):
        lines.append(
            f"  - {{switch: s, vm: vm-{n}, lro: false, tx_core: {draw(st.sampled_from((0, 1, 4)))},"
            f" rx_core: {draw(st.sampled_from((0, 1, 4)))},"
            f" teaming: {{type: {draw(st.sampled_from(('Single', 'LAG', 'All')))}}}}}"
        )
    troubles = draw(st.lists(st.sampled_from(TROUBLE), max_size=3))
    lines += ["events:"] if troubles else []
    for kind, target in troubles:
        begin = draw(st.sampled_from((1000, 3700, 8000)))
        lines.append(f"  - {{event: {kind}, target: {target}, from: {begin}ms, until: {begin + 2600}ms}}")
    lines.append("traffic:")
    for n in range(draw(st.integers(1, 6))):
        source = draw(st.sampled_from(("vm-0", "vm-1", "vm-2", "n0")))
        to = draw(st.sampled_from([name for name in ("vm-0", "vm-1", "vm-3") if name != source]))
        if source != "n0":
            to = draw(st.sampled_from((to, "uplink")))
        pattern = draw(
            st.sampled_from(
                ("", ", pattern: {swing: 1, period: 9s}", ", pattern: {burst: {every: 3s, for: 700ms, times: 5}}")
            )
        )
        lines.append(
            f"  - {{from: {source}, to: {to}, dport: {n + 1}, pps: {draw(st.sampled_from(rates))}, size: 200,"
            f" reply: {draw(st.sampled_from((0, 0.5, 2)))}, flows: {draw(st.sampled_from((1, 90)))},"
            f" churn_ppm: {draw(st.sampled_from((0, 9000)))}, slow: {draw(st.sampled_from((0, 0.01, 1)))}{pattern}}}"
        )
    return "\n".join(lines) + "\n"


def test_random_overloaded_hosts(processes):
    """All sums hold, no core is above 100 %, none drops below 95 %, and any two ways to a moment agree."""

    @settings(max_examples=400 if SOAK else 25, deadline=None, suppress_health_check=list(HealthCheck))
    @given(overloads(), st.lists(st.sampled_from((0.3, 1, 2.5, 8)), min_size=1, max_size=4))
    def run(description: str, steps: list) -> None:
        folder = Path(tempfile.mkdtemp(prefix="ryn-sim-"))
        try:
            host = make(folder / "host.db", description, processes)
            late = make(folder / "late.db", description, processes)
            for step in steps:
                host.step(step)
                rates = host.many([["rates"]])[0]
                check_rates(rates)
                figures = Figures(host)
                check_sums(figures)
            late.step(sum(steps))
            assert Figures(late).counters() == figures.counters()
            assert late.ListPorts(0) == host.ListPorts(0)
        finally:
            shutil.rmtree(folder)

    run()
