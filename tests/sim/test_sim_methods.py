"""Every method of the module on every shipped host, and the same answers for everybody."""

import re
from pathlib import Path

import pytest
import simulated

PROFILES = ("default", "empty", "large", "overloaded", "asymmetric", "degraded")
ACTIONS = {
    "KCPInputChildPort",
    "LRO",
    "IPFIX Ingress",
    "DROP",
    "DFW on srcPort",
    "SP",
    "VI",
    "VR",
    "PI",
    "PR",
    "GVLAN Insert",
    "VDR inst",
    "INST",
    "VNI",
    "ENCAP VNI",
    "DECAP",
    "GVLAN Remove",
    "IPFIX Egress",
    "DFW on dstPort",
    "KCPOutputVLAN",
}


@pytest.fixture(params=PROFILES)
def profile(request, tmp_path: Path):
    """A host made from a profile, and a process that has loaded its switches."""
    state = simulated.make(tmp_path / "host.db", request.param)
    process = simulated.Process(state)
    yield simulated.Host(state, process, process)
    process.close()


class Inventory:
    def __init__(self, host: simulated.Host) -> None:
        self.switches = [switch["swID"] for switch in host.ListSwitches()]
        self.rows = {
            (sw, port["rynPortID"]): port
            for sw, ports in zip(self.switches, host.many([["ListPorts", sw] for sw in self.switches]))
            for port in ports
        }
        self.ports = list(self.rows)
        self.uplinks = [key for key, port in self.rows.items() if port["clientType"] == "UPLINK"]
        self.cores = dict(zip(self.switches, host.many([["ListLCoreIDs", sw] for sw in self.switches])))
        self.names = host.rows("SELECT alias, switch_id FROM dvs JOIN sw USING (switch_id) ORDER BY sw")
        self.dvports = host.rows(
            "SELECT switch_id, CAST(dvport AS TEXT) FROM port JOIN sw USING (sw)" " WHERE kind = 2 ORDER BY sw, port"
        )


def readings(found: Inventory) -> list:
    """A call of each method that reads, for everything that there is on the host."""
    queues = [
        (key, kind, queue)
        for key in found.uplinks
        for kind, count in ((0, "numRxQ"), (1, "numTxQ"))
        for queue in range(found.rows[key][count])
    ]
    aliases = [alias for alias, _ in found.names]
    return [
        *(["ListSwitches"], ["GetFlowTimeout"], ["GetLBWeights"], ["ListDevAffinity"]),
        *(
            [name, sw]
            for sw in found.switches
            for name in (
                "ListPorts",
                "ListSwitchMACTable",
                "GetSwitchLRO",
                "GetMirrorConf",
                "GetPanicOnTxHang",
                "DumpLBSnapshot",
                "ListLCoreIDs",
            )
        ),
        *(["DumpLBPortStats", sw, 0, 127] for sw in found.switches),
        *(["GetFlowStats", sw, [], 0] for sw in found.switches),
        *(["GetFPOStats", sw, []] for sw in found.switches),
        *(["DumpFlowTable", sw, core, 0, 0] for sw in found.switches for core in found.cores[sw] if core < 32),
        *(
            [name, *key]
            for key in found.ports
            for name in (
                "GetPortStats",
                "GetPortConf",
                "ListPortMACTable",
                "GetPortLRO",
                "GetPortTxUplink",
                "GetPortNetQInfo",
            )
        ),
        *([name, *key] for key in found.uplinks for name in ("GetUplinkStats", "GetFPOUplinkStatus")),
        *(["GetUplinkQueueStats", *key, kind, queue] for key, kind, queue in queues),
        *(
            [name, alias]
            for alias in aliases
            for name in ("GetLBParams", "GetLBAlgorithm", "GetFPOEnabled", "GetSwitchNUMATeam", "GetSwitchBurstSize")
        ),
        *(["GetUplinkRingSize", *port] for port in found.dvports),
    ]


def settings(found: Inventory) -> list:
    """A call of each method that sets or clears something, for one thing of each kind."""
    calls: list = [
        ["SetFlowTimeout", 7],
        ["SetLBWeights", *range(8)],
        ["ResetLBWeights"],
        ["SetDevAffinity", "lunic0", 0],
    ]
    calls += [["InitMbufFastslabs"]] if found.switches else []  # without switches nobody serves them
    for sw in found.switches[:1]:
        calls += [
            ["SetSwitchLRO", sw, 0],
            ["SetUplinkMACLearn", sw, 1],
            ["SetPanicOnTxHang", sw, 1],
            ["EnableSwitchFlowCache", sw, 1],
            ["ClearSwitchFlowTable", sw],
            ["ClearSwitchMACTable", sw],
        ]
    for sw, port in found.ports[:1] + found.ports[-1:]:
        core = found.cores[sw][0]
        calls += [
            ["SetPortLRO", sw, port, 1],
            ["MigratePort", sw, port, core, core, 0],
            ["UnpinPort", sw, port, 0],
            ["ResetPort", sw, port],
            ["ClearPortMACTable", sw, port],
            ["SetPortTxUplink", sw, port, {"txType": "LAG", "txUplinks": []}],
        ]
    for port in [port for sw, port in found.ports if sw == 0][:1]:  # entries are those of switch 0
        entry = [0, port, 0x554433221102, 9]
        calls += [["ClearSwitchMACTable", 0], ["AddMACEntry", *entry], ["DelMACEntry", *entry]]
    for alias, _ in found.names[-1:]:
        calls += [
            ["SetLBAlgorithm", alias, "count"],
            ["SetLBParams", alias, 70, 30, 5, 5],
            ["EnableFPO", alias, 1],
            ["SetSwitchNUMATeam", alias, 1],
            ["SetSwitchBurstSize", alias, 48],
        ]
    for port in found.dvports[:1]:
        calls += [["SetUplinkRingSize", *port, 1024, 512]]
    return calls


def test_the_calls_are_all_methods(host):
    found = Inventory(host)
    table = set(host.many([["methods"]])[0])
    called = {call[0] for call in readings(found) + settings(found)}
    assert called == table, f"add calls to readings() or settings(), or take them out: {sorted(called ^ table)}"


def test_nothing_fails_on_any_profile(profile):
    """No method has anything to say on standard error, before and after everything has been set."""
    found = Inventory(profile)
    assert bool(found.ports) == (profile.rows("SELECT name FROM host") != [("sim-empty",)])
    if len(found.ports) > 1000:
        del found.ports[::2], found.ports[::2], found.switches[3:]
    calls = readings(found)
    assert profile.many([["unanswered", *calls]]) == [[]]
    profile.many(settings(found))
    profile.step(61)
    assert profile.many([["unanswered", *calls]]) == [[]]


def test_every_answer_is_plausible_on_the_default_host(host):
    found = Inventory(host)
    calls = readings(found)
    answers = list(zip(calls, host.many(calls)))
    empty = {call[0] for call, value in answers if value in ([], {}, (), "", None)}
    assert empty == set()

    def of(method: str) -> list:
        return [value for call, value in answers if call[0] == method]

    assert any(row["hits"] > 1000 * row["miss"] > 0 for rows in of("GetFlowStats") for row in rows)
    assert any(row["hits"] > 1000 * row["ephemeralFlows"] > 0 for rows in of("GetFPOStats") for row in rows)
    assert sum(len(page["list"]) > 0 for page in of("DumpFlowTable")) > 10
    assert {len(sessions) for sessions in of("GetMirrorConf")} == {1, 3}
    assert all(table["MacTableList"] for table in of("ListSwitchMACTable"))
    assert {info["isUplink"] for info in of("GetPortNetQInfo")} == {0, 1}
    kinds = {re.split("[:-]", rule["rxf"])[0] for info in of("GetPortNetQInfo") for rule in info["filters"]}
    assert len(kinds) == 3
    busy = sum(stats["txPkts"] + stats["rxPkts"] > 0 for stats in of("GetPortStats"))
    slow = sum(stats["spTxPkts"] + stats["spRxPkts"] > 0 for stats in of("GetPortStats"))
    assert busy == slow == len(found.ports) - 2  # two spare ports are idle
    errors = [dict(stats["uplinkStats"])["rxCRCErrors"] > 0 for stats in of("GetUplinkStats")]
    assert sorted(errors) == [False, False, False, True]
    assert {policy["txType"] for policy in of("GetPortTxUplink")} == {"Single", "LAG", "SrcMAC", "All", "NoTeaming"}
    assert set(of("GetPortLRO")) == {False, True}


def test_every_action_that_can_be_shown_occurs(host):
    words = set()
    for sw in (0, 1):
        for core in host.ListLCoreIDs(sw):
            start = 0
            while page := host.DumpFlowTable(sw, core, start, 0)["list"]:
                start += len(page)
                for flow in page:
                    line = flow["actions"].partition("len:")[2].partition("; ")[2]
                    words |= {re.split(r":| \d", action)[0] for action in line.split("; ") if action.strip()}
    assert words == ACTIONS


def test_all_methods_answer_alike_in_two_processes_on_two_hosts(tmp_path, processes):
    """Two hosts made from the same description, used in the same way by one process each."""
    twins = [
        simulated.Host(simulated.make(tmp_path / f"{n}.db", "default"), process, process)
        for n, process in enumerate(processes)
    ]
    answers = []
    for twin in twins:
        found = Inventory(twin)
        own = []
        for _ in range(3):
            own.append(twin.many(readings(found)))
            own.append(twin.many(settings(found)))
            twin.step(123.456)
        answers.append(own)
    assert answers[0] == answers[1]
