"""The figures of a simulated host agree with each other, never fall, and are the same for everybody."""

import shutil
import tempfile
from pathlib import Path

import simulated
from figures import Figures, check_sums, flow_table
from hostile_answers import SOAK
from hypothesis import HealthCheck, settings
from hypothesis import strategies as st
from hypothesis.stateful import RuleBasedStateMachine, initialize, invariant, rule, run_state_machine_as_test


def test_sums_of_the_default_host(host):
    check_sums(Figures(host))
    host.step(12.3)
    check_sums(Figures(host))


def test_the_size_of_a_flow_table_is_its_length_and_no_key_occurs_twice(host):
    for record in host.GetFlowStats(0, [], 0):
        table = flow_table(host, 0, record["lcoreID"])
        assert len(table) == record["numFlows"] > 0
        assert len({row["key"] for row in table}) == len(table)


def test_no_packet_is_lost_between_the_ports(host):
    host.SetSwitchLRO(0, 0)  # else a port counts the packets that it is handed
    host.SetSwitchLRO(1, 0)
    host.apply("DELETE FROM mirror_port")  # and copies are more than what came in
    before = Figures(host)
    host.step(30)
    after = Figures(host)
    for sw in before.switches:
        entered = after.unicast(sw, "in") - before.unicast(sw, "in")
        left = after.unicast(sw, "out") - before.unicast(sw, "out")
        lost = 0
        for key, stats in after.ports.items():
            names = ("txDrops", "spTxDrops") if after.kind[key] == "UPLINK" else ("rxDrops", "spRxDrops")
            if key[0] == sw:
                lost += sum(stats[name] - before.ports[key][name] for name in names)
        assert entered == left + lost and entered > 100_000


def test_what_left_the_ports_left_by_the_uplinks(host):
    """One port, one peer outside: the port's packets are the uplink's."""
    host.apply("DELETE FROM conversation")
    host.apply(
        "INSERT INTO conversation (id, sw, src_port, protocol, src_ip, dst_ip, milli_pps, size, flows)"
        " VALUES (1, 0, 2, 17, x'0a000001', x'0a000002', 12345678, 200, 5)"
    )
    before = Figures(host)
    host.step(1000)
    after = Figures(host)
    gone = {key: after.counters()[key] - before.counters()[key] for key in after.counters()}
    sent = gone[(0, 2), "txPkts"] + gone[(0, 2), "spTxPkts"]
    # Settings take effect at a moment of the clock, so the rate is seen whole.
    assert sent == 12_345_678
    assert sum(gone[(0, uplink), "uplink", "txPkts"] for uplink in (0, 1)) == sent
    assert gone[(0, 2), "txBytes"] + gone[(0, 2), "spTxBytes"] == sent * 200


def test_the_balancers_figures_agree(host):
    host.step(60)
    ports, cores = [], []
    for sw in (0, 1):
        stats = host.DumpLBPortStats(sw, 0, 127)
        ports += list(zip(stats[2], stats[3], stats[4]))
        cores = stats[5]
    work = dict.fromkeys(range(64), 0)
    for core_a, core_b, figures in ports:
        work[core_a] += figures[4]
        work[core_b] += figures[5]
    for core, (usage, load) in enumerate(cores):
        assert usage <= 100
        assert abs(work[core] - load) <= 128  # each port's figure is rounded up
    assert max(usage for usage, _ in cores) > 10


def test_a_group_for_each_core_and_a_vertex_for_each_port(host):
    text = host.DumpLBSnapshot(0)
    assert text.startswith("\nGroups\n[  0 load ")
    assert text.count("->\n") + text.count("-> [") == len(host.ListPorts(0))


def test_driver_text(host):
    lines = host.GetUplinkStats(0, 0)["privStats"].splitlines()
    assert lines[0] == "lunic0 (simulated)" and "link_up: 00000000000000000001" in lines
    packets = sum(int(line.split(": ")[1]) for line in lines if line.startswith("rx_packets_queue"))
    assert packets == dict(host.GetUplinkStats(0, 0)["uplinkStats"])["rxPkts"]
    silent = [port for sw in (0, 1) for port in range(2) if host.GetUplinkStats(sw, port)["privStats"] == ""]
    assert silent, "one device's driver says nothing"


def test_running_counters_never_fall(host):
    host.run()
    last = Figures(host).counters()
    for _ in range(20):
        host.SetPortLRO(0, 5, 1)
        now = Figures(host).counters()
        assert [name for name in now if now[name] < last.get(name, 0)] == []
        last = now


class Changes(RuleBasedStateMachine):
    """Whatever is changed, in whatever order: the figures go on from where they were and agree."""

    template: Path
    processes: list

    @initialize()
    def start(self) -> None:
        self.folder = Path(tempfile.mkdtemp(prefix="ryn-sim-"))
        shutil.copy(self.template, self.folder / "host.db")
        self.host = simulated.Host(self.folder / "host.db", *self.processes)
        self.last = Figures(self.host).counters()
        self.reset: set = set()

    def teardown(self) -> None:
        if hasattr(self, "folder"):
            shutil.rmtree(self.folder)

    ports = st.tuples(st.sampled_from((0, 1)), st.integers(0, 11))
    cores = st.sampled_from((0, 1, 2, 3, 8, 9, 10, 11, 0xFFFFFFFF))

    @rule(seconds=st.sampled_from((0.001, 0.4, 3, 11, 700)))
    def step(self, seconds) -> None:
        self.host.step(seconds)

    @rule(port=ports, state=st.integers(0, 1))
    def lro(self, port, state) -> None:
        self.host.SetPortLRO(*port, state)

    @rule(port=ports, tx=cores, rx=cores, pin=st.integers(0, 1))
    def migrate(self, port, tx, rx, pin) -> None:
        self.host.MigratePort(*port, tx, rx, pin)

    @rule(
        port=ports,
        kind=st.sampled_from(("None", "Single", "LAG", "SrcMAC", "All", "NoTeaming")),
        uplinks=st.permutations((0, 1)),
        count=st.integers(0, 2),
    )
    def policy(self, port, kind, uplinks, count) -> None:
        self.host.SetPortTxUplink(*port, {"txType": kind, "txUplinks": uplinks[:count]})

    @rule(sw=st.integers(0, 1), enable=st.integers(0, 1))
    def flow_cache(self, sw, enable) -> None:
        self.host.EnableSwitchFlowCache(sw, enable)

    @rule(sw=st.integers(0, 1))
    def clear(self, sw) -> None:
        self.host.ClearSwitchFlowTable(sw)

    @rule(seconds=st.sampled_from((0, 1, 10, 60, 86400)))
    def timeout(self, seconds) -> None:
        self.host.SetFlowTimeout(seconds)

    @rule(port=st.sampled_from(("1000", "1001")), sizes=st.tuples(*[st.integers(0, 128)] * 2))
    def rings(self, port, sizes) -> None:
        self.host.SetUplinkRingSize("a91c20da-b05c-4387-a4701d270827", port, sizes[0] * 32, sizes[1] * 32)

    @rule(alias=st.sampled_from(simulated.SWITCHES), burst=st.sampled_from((0, 1, 8, 32, 64, 4294967295)))
    def burst(self, alias, burst) -> None:
        self.host.SetSwitchBurstSize(alias, burst)

    @rule(alias=st.sampled_from(simulated.SWITCHES), value=st.integers(0, 1))
    def teaming_and_offload(self, alias, value) -> None:
        self.host.SetSwitchNUMATeam(alias, value)
        self.host.EnableFPO(alias, 1 - value)

    @rule(alias=st.sampled_from(simulated.SWITCHES), metric=st.sampled_from(("none", "cpu", "count")))
    def metric(self, alias, metric) -> None:
        assert self.host.SetLBAlgorithm(alias, metric) is True
        assert self.host.SetLBParams(alias, 20, 15, 1, 0) is True

    @rule(device=st.sampled_from(("lunic0", "lunic1", "lunic2", "lunic3")), node=st.integers(0, 1))
    def affinity(self, device, node) -> None:
        self.host.SetDevAffinity(device, node)

    @rule(
        kind=st.sampled_from(("uplink-down", "uplink-hang")),
        device=st.sampled_from(("lunic0", "lunic1", "lunic2")),
        ahead=st.integers(0, 5000),
        length=st.one_of(st.none(), st.integers(1, 9000)),
    )
    def trouble(self, kind, device, ahead, length) -> None:
        begin = self.host.now_ms() + ahead
        end = "NULL" if length is None else begin + length
        self.host.apply(
            "INSERT INTO event (kind, target, from_ms, until_ms)" f" VALUES ('{kind}', '{device}', {begin}, {end})"
        )

    @rule(core=st.sampled_from((0, 3, 11)), length=st.integers(1, 9000))
    def stuck(self, core, length) -> None:
        begin = self.host.now_ms()
        self.host.apply(
            "INSERT INTO event (kind, target, from_ms, until_ms)"
            f" VALUES ('core-stuck', '{core}', {begin}, {begin + length})"
        )

    @rule(port=ports)
    def reset_port(self, port) -> None:
        self.host.ResetPort(*port)
        self.reset.add(port)

    @invariant()
    def figures_go_on_and_agree(self) -> None:
        if not hasattr(self, "host"):
            return
        figures = Figures(self.host)
        now = figures.counters()
        fallen = [
            name
            for name in now
            if now[name] < self.last.get(name, 0)
            and name[0] not in self.reset  # a reset begins at 0
            and name[1] != "flow"
        ]  # those show the low 32 bits only
        assert fallen == []
        check_sums(figures)
        self.last = now
        self.reset.clear()
        for sw, core in ((0, 0), (1, 9)):
            flows = figures.flows[sw, core]["numFlows"] if (sw, core) in figures.flows else 0
            assert len(self.host.DumpFlowTable(sw, core, 0, 0)["list"]) <= flows
        # Another process sees the same.
        assert Figures(simulated.Host(self.host.state, self.host.other, self.host.process)).counters() == now


def test_any_sequence_of_changes(template, processes):
    machine = type("ChangesHere", (Changes,), {"template": template, "processes": processes})
    run_state_machine_as_test(
        machine,
        settings=settings(
            max_examples=300 if SOAK else 15,
            stateful_step_count=12,
            deadline=None,
            suppress_health_check=list(HealthCheck),
        ),
    )
