"""Random hosts, used in random ways by two processes in turn."""

import shutil
import tempfile
from pathlib import Path

import simulated
from figures import Figures, check_sums, flow_table
from hostile_answers import SOAK
from hypothesis import HealthCheck, given, note, settings
from hypothesis import strategies as st

KINDS = ("None", "Single", "LAG", "SrcMAC", "All", "NoTeaming")
CORES = [[0, 1], [4, 5, 31]]


def some(values, most: int):
    return st.lists(st.sampled_from(values), min_size=1, max_size=most, unique=True)


@st.composite
def descriptions(draw, identifiers: dict) -> dict:
    """A host of one or two switches that have the default host's names, so that its processes know them."""
    nodes = draw(st.integers(1, 2))
    nics = [f"nic{n}" for n in range(draw(st.integers(2, 4)))]
    description: dict = {
        "host": "random",
        "seed": draw(st.integers(0, 2**31)),
        "flow_timeout": f"{draw(st.integers(0, 30))}s",
        "clock": {"uptime": draw(st.sampled_from(("0s", "7s", "1h", "30d"))), "frozen": True},
        "balancer": {"period": draw(st.sampled_from(("100ms", "1s", "5s")))},
        "numa": [
            {"lcores": CORES[node], "capacity": draw(st.sampled_from((20_000, 300_000, 5_000_000)))}
            for node in range(nodes)
        ],
        "nics": {
            nic: {
                "numa": draw(st.integers(0, nodes - 1)),
                "link": draw(st.sampled_from(("10M", "1G", "100G"))),
                "crc_ppm": draw(st.sampled_from((0, 30, 900_000))),
                "drop_ppm": draw(st.sampled_from((0, 777))),
                "fpo": draw(st.sampled_from(("none", "Model 1 Level 1", "Model 1 Level 2", "Model 2"))),
            }
            for nic in nics
        },
        "switches": [],
        "ports": [],
        "traffic": [],
        "events": [],
    }
    for n, alias in enumerate(simulated.SWITCHES[: draw(st.integers(1, 2))]):
        uplinks = nics[n::2]
        machines = [f"vm-{n}-{m}" for m in range(draw(st.integers(1, 5)))]
        switch: dict = {
            "alias": alias,
            "name": alias + "-set",
            "id": identifiers[alias],
            "uplinks": uplinks,
            "mtu": draw(st.sampled_from((1500, 9000))),
            "marker": "poll",
            "flow_cache": draw(st.booleans()),
            "numa_team": draw(st.booleans()),
            "burst": draw(st.sampled_from((1, 32, 64))),
            "mac_limit": draw(st.sampled_from((3, 65536))),
            "balancer": {"metric": draw(st.sampled_from(("none", "cpu", "count"))), "high": 30, "low": 20, "pause": 1},
        }
        if draw(st.booleans()):
            switch["mirrors"] = [
                {
                    "session": 1,
                    "in": draw(some(machines + uplinks, 2)),
                    "out": draw(some(machines + uplinks, 2)),
                    "to": draw(some(machines + uplinks, 2)),
                    "sampling_rate": draw(st.sampled_from((1, 7))),
                    "snap_len": draw(st.sampled_from((0, 64))),
                }
            ]
        description["switches"].append(switch)
        for machine in machines:
            description["ports"].append(
                {
                    "switch": alias,
                    "vm": machine,
                    "vlan": n,
                    "queues": draw(st.integers(1, 3)),
                    "active": draw(st.sampled_from((True, True, True, False))),
                    "lro": draw(st.booleans()),
                    "macs_behind": draw(st.sampled_from((0, 5))),
                    "teaming": {"type": draw(st.sampled_from(KINDS)), "uplinks": draw(some(uplinks, 2))},
                }
            )
        for place in range(draw(st.integers(1, 4))):
            source = draw(st.sampled_from(machines + uplinks))
            targets = [machine for machine in machines if machine != source]
            targets += ["uplink"] if source in machines else []
            if not targets:
                continue
            talk = {
                "from": source,
                "to": draw(st.sampled_from(targets)),
                "dport": 1000 + place,  # else two conversations between the same ends may have a flow in common
                "pps": draw(st.sampled_from((0.001, 3, 999.5, 40_000, 2_000_000))),
                "size": draw(st.sampled_from((60, 700, 2000))),
                "reply": draw(st.sampled_from((0, 0.3, 2))),
                "flows": draw(st.sampled_from((1, 3, 500))),
                "churn_ppm": draw(st.sampled_from((0, 1, 5000, 100_000))),
                "slow": draw(st.sampled_from((0, 0.01, 1))),
                "proto": draw(st.sampled_from(("tcp", "udp", "icmp"))),
                "delivery": draw(st.sampled_from(("unicast", "unicast", "multicast", "broadcast"))),
                "actions": draw(st.sampled_from(([], [], ["DROP"], ["SP"], ["VDR", "ENCAP VNI"]))),
                "start": draw(st.sampled_from(("0s", "5s"))),
                "pattern": draw(
                    st.sampled_from(
                        (
                            {},
                            {"swing": 1, "period": "3s"},
                            {"swing": 0.5},
                            {"burst": {"every": "2s", "for": "500ms", "times": 9}},
                        )
                    )
                ),
            }
            if talk["delivery"] != "unicast":
                talk["reply"] = 0
            description["traffic"].append(talk)
    return description


class Host(simulated.Host):
    """A host in use: what was set must be what is got, by the other process."""

    def __init__(self, state: Path, process, other) -> None:
        super().__init__(state, process, other)
        self.expected: dict = {}
        self.pinned: dict = {}
        self.reset: set = set()
        figures = Figures(self)
        self.last, self.kinds = figures.counters(), figures.kind
        self.nics = [row["devname"] for row in self.ListDevAffinity()]
        self.cores = self.ListLCoreIDs(0)
        self.nodes = 1 if max(self.cores) == 1 else 2

    def perform(self, data) -> None:
        """One thing that scripts or time may do."""
        draw = data.draw
        sw, port = draw(st.sampled_from(sorted(self.kinds)))
        alias, flag = simulated.SWITCHES[sw], draw(st.integers(0, 1))
        uplinks = [other for own, other in sorted(self.kinds) if own == sw and self.kinds[own, other] == "UPLINK"]
        machine = self.kinds[sw, port] != "UPLINK"
        number = draw(st.sampled_from((0, 1, 50, 64, 4096)))
        kind = draw(st.sampled_from(KINDS))
        chosen = draw(st.permutations(uplinks))[: draw(st.integers(0, 2))]
        tx, rx = draw(st.sampled_from(self.cores)), draw(st.sampled_from(self.cores))
        nic = draw(st.sampled_from(self.nics))
        mac = draw(st.sampled_from((0x554433221102, 0x060504030202)))
        ways = {
            "step": lambda: self.step(draw(st.sampled_from((0.001, 0.3, 2, 11, 700)))),
            "port lro": lambda: self.set(["SetPortLRO", sw, port, flag], ["GetPortLRO", sw, port], flag == 1),
            "switch lro": lambda: self.set_switch_lro(sw, flag),
            "policy": lambda: self.set(
                ["SetPortTxUplink", sw, port, {"txType": kind, "txUplinks": chosen}],
                ["GetPortTxUplink", sw, port],
                {"txType": kind, "txUplinks": chosen},
            ),
            "timeout": lambda: self.set(["SetFlowTimeout", number], ["GetFlowTimeout"], number),
            "panic": lambda: self.set(["SetPanicOnTxHang", sw, flag], ["GetPanicOnTxHang", sw], flag),
            "burst": lambda: self.set(["SetSwitchBurstSize", alias, number], ["GetSwitchBurstSize", alias], number),
            "teaming": lambda: self.set(["SetSwitchNUMATeam", alias, flag], ["GetSwitchNUMATeam", alias], flag == 1),
            "offload": lambda: self.set(["EnableFPO", alias, flag], ["GetFPOEnabled", alias], flag),
            "metric": lambda: self.set(["SetLBAlgorithm", alias, "count"], ["GetLBAlgorithm", alias], "count"),
            "weights": lambda: self.call(["SetLBWeights", *[number] * 8]),
            "affinity": lambda: self.call(["SetDevAffinity", nic, draw(st.integers(0, self.nodes - 1))]),
            "flow cache": lambda: self.call(["EnableSwitchFlowCache", sw, flag]),
            "clear flows": lambda: self.call(["ClearSwitchFlowTable", sw]),
            "clear macs": lambda: self.call(["ClearSwitchMACTable", sw], ["ClearPortMACTable", sw, port]),
            "learning": lambda: self.call(["SetUplinkMACLearn", sw, flag]),
            "buffers": lambda: self.call(["InitMbufFastslabs"]),
            "migrate": lambda: self.migrate(sw, port, tx, rx) if machine else None,
            "unpin": lambda: self.unpin(sw, port),
            "reset": lambda: self.reset_port(sw, port),
            "trouble": lambda: self.trouble(
                draw(st.sampled_from(("uplink-down", "uplink-hang"))),
                nic,
                draw(st.integers(0, 3000)),
                draw(st.integers(1, 9000)),
            ),
            "stuck": lambda: self.trouble("core-stuck", str(tx), 0, draw(st.integers(1, 9000))),
            "entry": lambda: self.quietly("AddMACEntry" if flag else "DelMACEntry", 0, port, mac, 9),
        }
        what = draw(st.sampled_from(sorted(ways)))
        note(f"{what}: {sw}/{port} {flag} {number} {kind} {chosen} {tx} {rx} {nic}")
        ways[what]()

    def call(self, *calls) -> None:
        self.process.calls(self.state, list(calls))

    def quietly(self, *call) -> None:
        """A call that may well be refused: the entry is not there, the table is full."""
        self.process.send(self.state, [list(call)])
        self.process.receive()

    def set(self, setting: list, getting: list, value) -> None:
        self.call(setting)
        self.expected[tuple(getting)] = value

    def set_switch_lro(self, sw: int, flag: int) -> None:
        self.set(["SetSwitchLRO", sw, flag], ["GetSwitchLRO", sw], flag == 1)
        for own, port in self.kinds:
            if own == sw:
                self.expected["GetPortLRO", sw, port] = flag == 1

    def migrate(self, sw: int, port: int, tx: int, rx: int) -> None:
        self.call(["MigratePort", sw, port, tx, rx, 1])
        self.pinned[sw, port] = tx, rx

    def unpin(self, sw: int, port: int) -> None:
        self.call(["UnpinPort", sw, port, 0])
        self.pinned.pop((sw, port), None)

    def reset_port(self, sw: int, port: int) -> None:
        self.call(["ResetPort", sw, port])
        self.reset.add((sw, port))

    def trouble(self, kind: str, target: str, ahead: int, length: int) -> None:
        begin = self.now_ms() + ahead
        self.apply(
            "INSERT INTO event (kind, target, from_ms, until_ms)"
            f" VALUES ('{kind}', '{target}', {begin}, {begin + length})"
        )

    def check(self) -> None:
        figures = Figures(self)
        now = figures.counters()
        fallen = [
            name
            for name in now
            if now[name] < self.last.get(name, 0)
            and name[1] != "flow"  # those show their low 32 bits only
            and name[0] not in self.reset
        ]
        assert fallen == []
        check_sums(figures)
        # The other process sees all of it, and goes on from here.
        self.process, self.other = self.other, self.process
        assert Figures(self).counters() == now
        values = self.many([list(getting) for getting in self.expected])
        assert dict(zip(self.expected, values)) == self.expected
        ports = {
            (sw, port["rynPortID"]): (set(port["txQLM"]), set(port["rxQLM"]))
            for sw in figures.switches
            for port in self.ListPorts(sw)
        }
        for key, (tx, rx) in self.pinned.items():
            assert ports[key] == ({tx}, {rx})
        for sw in figures.switches:
            whole = self.ListSwitchMACTable(sw)
            parts = []
            for own, port in self.kinds:
                parts += self.ListPortMACTable(sw, port)["MacTableList"] if own == sw else []
            assert whole["MacTableList"] == parts and len(parts) <= whole["MacLimit"]
        self.last = now
        self.reset.clear()

    def check_flow_tables(self) -> None:
        """Each is as long as is said, and no flow is in it twice."""
        for sw in sorted({sw for sw, _ in self.kinds}):
            for record in self.GetFlowStats(sw, [], 0):
                if record["numFlows"] > 3000:
                    continue
                table = flow_table(self, sw, record["lcoreID"])
                assert len(table) == record["numFlows"]
                keys = [row["key"] for row in table if row["key"].split()[6] != "1"]  # ICMP has no ports to differ by
                assert len(set(keys)) == len(keys)


def test_random_hosts_in_use(template, processes):
    identifiers = dict(simulated.Host(template, *processes).rows("SELECT alias, switch_id FROM dvs"))

    @settings(max_examples=1000 if SOAK else 40, deadline=None, suppress_health_check=list(HealthCheck))
    @given(description=descriptions(identifiers), data=st.data())
    def use(description, data) -> None:
        from ryn_sim.yaml_text import to_yaml

        folder = Path(tempfile.mkdtemp(prefix="ryn-sim-"))
        try:
            host = Host(simulated.make(folder / "host.db", to_yaml(description)), *processes)
            for _ in range(data.draw(st.integers(1, 8))):
                host.perform(data)
                host.check()
            host.check_flow_tables()
        finally:
            shutil.rmtree(folder)

    use()
