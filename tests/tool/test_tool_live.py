"""A host in use: what the tool changes is seen by programs, and no counter jumps back."""

import json
import os
import pathlib
import shutil
import subprocess
import sys
import time

import demo_page
import pytest
from simtool import ROOT, Sim


def on_host(sim, program: str):
    """Runs a Python program on the host. It prints JSON."""
    done = sim.process("run", "--", "/usr/bin/python3", "-c", "import _libryn as ryn, json\n" + program)
    assert done.returncode == 0, done
    return json.loads(done.stdout)


def stats(sim, switch: int = 0, port: int = 2) -> dict:
    return on_host(sim, f"print(json.dumps(ryn.GetPortStats({switch}, {port})))")


@pytest.fixture(scope="module")
def frozen_store(tmp_path_factory) -> pathlib.Path:
    """A host whose clock stands. It is made once and copied, since most tests begin with one."""
    sim = Sim(tmp_path_factory.mktemp("frozen"))
    sim("init")
    sim("clock", "freeze")
    whole = sim.path().with_name("whole.db")  # the host's own file may still have a write-ahead log beside it
    sim("save", str(whole))
    return whole


@pytest.fixture
def host(live, frozen_store):
    live.path().parent.mkdir(parents=True)
    shutil.copy(frozen_store, live.path())
    return live


def test_set_is_seen_by_programs(host):
    host(
        "set",
        "switches.dvs-1.mtu=4000",
        "ports.web-0.lro=off",
        "ports.dvs-1/3.vlan=77",
        "flow_timeout=30s",
        "balancer.weights.port_count=9",
        "switches.dvs-2.stored.burst=128",
        "nics.lunic3.affinity=0",
    )
    program = """print(json.dumps([ryn.ListSwitches()[0]["mtu"], ryn.GetPortLRO(0, 2), ryn.GetPortLRO(0, 4),
        ryn.GetPortConf(0, 3)["untaggedVlanID"], ryn.GetFlowTimeout(), ryn.GetLBWeights()[7]["weight"],
        ryn.GetSwitchBurstSize("dvs-2"), ryn.ListDevAffinity()[3]["affinity"]]))"""
    assert on_host(host, program) == [4000, False, True, 77, 30, 9, 128, 0]


def test_what_programs_set_is_exported(host):
    (switch_id,) = {
        switch["id"] for switch in json.loads(host("export", "--json"))["switches"] if switch["alias"] == "dvs-1"
    }
    on_host(
        host,
        f"SWITCH_ID = {switch_id!r}"
        """
ryn.SetLBAlgorithm("dvs-1", "count"); ryn.SetSwitchNUMATeam("dvs-1", 1); ryn.EnableFPO("dvs-1", 7)
ryn.SetPortTxUplink(0, 4, {"txType": "SrcMAC", "txUplinks": [1]}); ryn.SetFlowTimeout(99); ryn.SetPortLRO(0, 5, 0)
ryn.SetPanicOnTxHang(1, 1); ryn.SetDevAffinity("lunic1", 1); ryn.MigratePort(0, 6, 3, 3, 1)
ryn.SetUplinkRingSize(SWITCH_ID, "1001", 64, 96)
print("null")""",
    )
    found = json.loads(host("export", "--json"))
    assert found["switches"][0]["stored"] == {
        "fpo": 7,
        "numa_team": True,
        "balancer": {"metric": "count", "high": 60, "low": 40, "pause": 10, "sensitivity": 5},
    }
    ports = {port.get("vm"): port for port in found["ports"]}
    assert ports["web-2"]["teaming"] == {"type": "SrcMAC", "uplinks": ["lunic1"]}
    assert ports["web-3"]["lro"] is False
    assert (ports["web-4"]["core"], ports["web-4"]["pinned"]) == (3, True)
    assert found["flow_timeout"] == "99s"
    assert {port["nic"]: port.get("rings") for port in found["ports"] if "nic" in port}["lunic1"] == {
        "tx": 64,
        "rx": 96,
    }
    assert found["switches"][1]["panic_on_tx_hang"] is True
    assert found["nics"]["lunic1"]["affinity"] == 1


def test_an_uplink_is_set_by_its_name(host):
    host("set", "ports.lunic0.rings={tx: 64, rx: 96}", "ports.dvs-1/1.queues=2")
    (found,) = on_host(host, "print(json.dumps([[port['numTxQ'] for port in ryn.ListPorts(0)[:2]]]))")
    assert found == [4, 2]
    assert "rings: {tx: 64, rx: 96}" in host("export")


def test_a_setting_taken_back_is_as_if_never_made(host):
    host("set", "about=the first change also stores where the datapath has placed the ports")
    before = host("export")
    host("set", "switches.dvs-1.mtu=4000", "ports.fw-0.multicast=['01:00:5e:00:00:01', '01:00:5e:00:00:02']")
    assert host("export") != before
    host("set", "switches.dvs-1.mtu=null", "ports.fw-0.multicast=null")
    assert host("export") == before
    assert host("set", "switches.dvs-1.mtu=1500") == "nothing to change\n"


def test_more_traffic_counts_from_now_on(host):
    before = stats(host)
    host("set", "traffic.0.pps=80k")
    assert stats(host) == before
    host("clock", "step", "10s")
    faster = stats(host)
    host("set", "traffic.0.pps=1")
    assert stats(host) == faster
    host("clock", "step", "10s")
    slower = stats(host)
    assert faster["txPkts"] - before["txPkts"] > 2 * (slower["txPkts"] - faster["txPkts"]) > 0


@pytest.mark.parametrize(
    "setting, expected",
    [
        ("mtu", "expected PATH=VALUE"),
        ("=5", "expected PATH=VALUE"),
        ("switches.dvs-9.mtu=3", 'there is no "dvs-9" among switches'),
        ("switches.dvs-1=3", "expected a path further in, such as switches.dvs-1.mtu=9000"),
        ("switches.dvs-1.mut=3", 'unknown key; did you mean "mtu"?'),
        ("switches.dvs-1.mtu=many", 'mtu: expected a number from 0 to 4294967295, got "many"'),
        ("switches.dvs-1.mtu=[", "not valid YAML"),
        ("switches.dvs-1.alias.x=3", 'there is nothing within "alias"'),
        ("switches.dvs-1.balancer.high.x=3", "balancer.high: expected a number from 0 to 4294967295, got a mapping"),
        ("ports.web-99.vlan=3", 'there is no "web-99" among ports; did you mean'),
        ("ports.web-0.port=3", "this stays as it is"),
        ("traffic.66.pps=3", "known: 0 to 65"),
        ("clock.speed=3", "use: ryn-sim clock"),
        ("seed=3", "use: ryn-sim init --seed"),
        ("flow_timeot=3", 'unknown key; did you mean "flow_timeout"?'),
    ],
)
def test_a_wrong_setting_changes_nothing(host, setting, expected):
    before = host("export")
    assert expected in host.fails(2, "set", "ports.web-0.vlan=7", setting)
    assert host("export") == before


def test_a_property_is_set_by_its_key(host):
    key = "com.talvor.kiv.ryn.burstsize"
    host("set", f"switches.dvs-1.properties.host.{key}=u32:0,77")
    assert on_host(host, 'print(json.dumps(ryn.GetSwitchBurstSize("dvs-1")))') == 77
    host("set", f"switches.dvs-1.properties.host.{key}=u32:3,77")
    done = host.process("run", "--", "/usr/bin/python3", "-c", 'import _libryn; _libryn.GetSwitchBurstSize("dvs-1")')
    assert done.stderr == f"Format of property {key} value is from unknown version.\n"


def test_the_clock_never_goes_back(live):
    live("init")
    times = []

    def look():
        times.append(json.loads(live("clock", "--json"))["time"])

    look()
    for arguments in (
        ["speed", "60"],
        ["freeze"],
        ["freeze"],
        ["step", "5s"],
        ["run"],
        ["warp", "2h"],
        ["speed", "0.5"],
        ["freeze"],
    ):
        live("clock", *arguments)
        look()
    assert times == sorted(times) and times[-1] > times[0] + 7205
    frozen = times[-1]
    live("clock", "step", "1h30m")
    live("clock", "warp", "250ms")
    assert json.loads(live("clock", "--json")) == {"time": frozen + 5400.25, "mode": "frozen", "speed": 0.5}


def test_counters_follow_the_clock(host):
    first = stats(host)
    assert stats(host) == first
    host("clock", "step", "1s")
    second = stats(host)
    assert all(second[key] >= first[key] for key in first) and second["txPkts"] > first["txPkts"]
    host("clock", "speed", "1000")
    time.sleep(0.1)
    assert stats(host)["txPkts"] > second["txPkts"]


@pytest.mark.parametrize(
    "arguments, expected",
    [
        (["step"], "expected a time"),
        (["step", "-5"], "the clock never goes back"),
        (["warp", "0"], "expected a time"),
        (["warp", "1us"], "expected a time"),
        (["speed"], "expected a number"),
        (["speed", "0"], "expected a speed"),
        (["speed", "fast"], "expected a speed"),
        (["speed", "1/0"], "expected a speed"),
        (["freeze", "5s"], "nothing is expected after it"),
        (["warp", "100000d"], "more than the clock can count"),
    ],
)
def test_a_clock_cannot_be_misled(host, arguments, expected):
    before = host("clock")
    assert expected in host.fails(2, "clock", *arguments)
    assert host("clock") == before


def test_a_fault_is_felt_counted_and_logged(host):
    host("fault", "add", "Ryn_GetLRO", "--status", "0xbad0007", "--after", "1", "--times", "2", "--where", "port=4")
    program = "print(json.dumps([ryn.GetPortLRO(0, p) for p in (4, 5, 4, 4, 4)]))"
    done = host.process("run", "--", "/usr/bin/python3", "-c", "import _libryn as ryn, json\n" + program)
    assert json.loads(done.stdout) == [True, True, None, None, True]
    assert done.stderr == "ValueError: Failed to get LRO.\n\n" * 2
    (fault,) = json.loads(host("fault", "list", "--json"))
    assert (fault["calls"], fault["hits"], fault["status"]) == (4, 2, 0xBAD0007)
    lines = json.loads(host("log", "--json"))
    assert [line["operation"] for line in lines] == ["Ryn_GetLRO"] * 2
    assert "0x0BAD0007" in host("log", "-n", "1") and len(host("log", "-n", "1").splitlines()) == 1
    assert host("log", "--operation", "DVS*") == "nothing in the log\n"
    assert host("log", "--clear") == "removed 2 lines\n"


def test_many_operations_can_be_made_to_fail(host):
    host("fault", "add", "Ryn_*", "--status", "0xffffffff")
    done = host.process(
        "run", "--", "/usr/bin/python3", "-c", "import _libryn as r; print(r.ListSwitches(), r.ListPorts(0))"
    )
    assert done.stdout == "None None\n"
    assert done.stderr == "Failed to retrieve list of switches.\nFailed to retrieve list of ports.\n"
    host("fault", "clear")
    assert host("fault", "list") == "no faults\n"


def test_a_fault_holds_in_its_time(host):
    host("fault", "add", "Ryn_Get_Flow_Timeout", "--status", "1", "--from", "10s", "--until", "20s")

    def timeout():
        return json.loads(
            host.process(
                "run",
                "--",
                "/usr/bin/python3",
                "-c",
                "import _libryn as r, json; print(json.dumps(r.GetFlowTimeout()))",
            ).stdout
        )

    found = [timeout()]
    for _ in range(2):
        host("clock", "step", "10s")
        found.append(timeout())
    assert found == [10, None, 10]


@pytest.mark.parametrize(
    "arguments, expected",
    [
        (["Ryn_GetLr0", "--status", "1"], 'did you mean "Ryn_GetLRO"?'),
        (["Ryn_GetLRO", "--status", "4294967296"], "--status: expected a number from 1 to 4294967295"),
        (["Ryn_GetLRO", "--status", "0"], "--status: expected a number from 1 to 4294967295"),
        (["DVSQOB_DataFree", "--status", "1"], "has nothing to answer, so it cannot fail"),
        (["Ryn_GetLRO", "--status", "no"], "--status: expected a number"),
        (["Ryn_GetLRO", "--status", "1", "--times", "0"], "--times: expected a number from 1"),
        (["Ryn_GetLRO", "--status", "1", "--probability", "2"], "--probability: expected a number from 0 to 1"),
        (
            ["Ryn_GetLRO", "--status", "1", "--where", "prot=4"],
            'expected ARGUMENT=GLOB, got "prot=4"; did you mean "port"?',
        ),
        (["Ryn_GetLRO", "--delay", "soon"], "--delay: expected a time"),
        (["Ryn_GetLRO", "--delay", "1", "--from", "5s", "--until", "5s"], "--until: expected a time after --from"),
        (["Ryn_GetLRO", "--corrupt", "badly"], 'there is no --corrupt "badly"; known: zero, ones, random, half'),
    ],
)
def test_a_wrong_fault_is_refused(host, arguments, expected):
    assert expected in host.fails(2, "fault", "add", *arguments)
    assert json.loads(host("fault", "list", "--json")) == []


def test_faults_are_removed_all_or_none(host):
    for _ in range(3):
        host("fault", "add", "Ryn_GetLRO", "--status", "1")
    assert "there is no fault 9" in host.fails(1, "fault", "remove", "1", "9")
    assert len(json.loads(host("fault", "list", "--json"))) == 3
    host("fault", "remove", "1", "3")
    assert [fault["id"] for fault in json.loads(host("fault", "list", "--json"))] == [2]


def uplink_packets(sim, port: int) -> int:
    return on_host(sim, f'print(json.dumps(dict(ryn.GetUplinkStats(0, {port})["uplinkStats"])["txPkts"]))')


def test_an_uplink_goes_down_for_a_while(host):
    host("event", "uplink-down", "lunic1", "--for", "30s")
    assert json.loads(host("event", "list", "--json"))[0]["stage"] == "on"
    host("clock", "step", "10s")
    down = uplink_packets(host, 1)
    host("clock", "step", "10s")
    assert uplink_packets(host, 1) == down
    host("clock", "step", "30s")
    assert uplink_packets(host, 1) > down
    assert json.loads(host("event", "list", "--json"))[0]["stage"] == "over"
    assert [line["operation"] for line in json.loads(host("log", "--json"))] == ["uplink-down", "uplink-down"]


def test_an_event_can_be_ended_or_called_off(host):
    host("event", "uplink-hang", "lunic0")
    host("event", "core-stuck", "3", "--in", "1h")
    host("event", "end", "1")
    host("event", "end", "2")
    host("clock", "step", "1s")
    (event,) = json.loads(host("event", "list", "--json"))
    assert (event["id"], event["stage"]) == (1, "over")
    assert "is over already" in host.fails(1, "event", "end", "1")
    assert "there is no event 2" in host.fails(1, "event", "end", "2")


def test_moves_of_the_balancer_are_shown(host):
    program = """
ryn.SetLBWeights(-1, 0, -1, 0, -1, -1, -1, -1)
for port in range(2, 16): ryn.MigratePort(0, port, 0, 0, 0)
print("null")"""
    on_host(host, program)
    host("clock", "step", "1m")
    on_host(host, "print(json.dumps(ryn.ListPorts(0)))")
    moves = json.loads(host("show", "moves", "dvs-1", "--json"))
    assert moves and all(move["switch"] == "dvs-1" and move["from"] != move["to"] for move in moves)
    assert moves[-1]["client"] in host("show", "moves")


def test_counters_come_near_their_wrap(host):
    host("event", "counters-near-wrap", "web-0", "--value", "63")
    host("clock", "step", "1ms")
    found = stats(host)
    assert 2**63 - 2**40 < found["txPkts"] < 2**63 or found["txPkts"] < -(2**63) + 2**40


def test_a_mac_limit_is_reached(host):
    host("event", "mac-limit", "dvs-1", "--value", "5")
    host("clock", "step", "1s")
    table = on_host(host, "print(json.dumps(ryn.ListSwitchMACTable(0)))")
    assert table["MacLimit"] == 5 and len(table["MacTableList"]) <= 5


@pytest.mark.parametrize(
    "arguments, expected",
    [
        (["uplink-dwn", "lunic0"], 'did you mean "uplink-down"?'),
        (["uplink-down"], "expected what it happens to"),
        (["uplink-down", "lunic9"], 'there is no NIC "lunic9"; did you mean'),
        (["core-stuck", "5"], "known: 0, 1, 2, 3, 8, 9, 10, 11"),
        (["mac-limit", "7"], 'there is no switch "7"; known: dvs-1, dvs-2'),
        (["counters-near-wrap", "0/99"], 'there is no port "0/99"'),
        (["counters-near-wrap", "0/2", "--value", "31"], "expected 32, 63 or 64"),
        (["counters-near-wrap", "0/2", "--for", "5s"], "it happens once"),
        (["uplink-down", "lunic0", "--for", "0s"], "expected a time above 0"),
        (["uplink-down", "lunic0", "--value", "1"], "--value means nothing here"),
        (["list", "5"], "nothing is expected after it"),
        (["end"], "expected the number of an event"),
    ],
)
def test_a_wrong_event_is_refused(host, arguments, expected):
    assert expected in host.fails(2, "event", *arguments)
    assert json.loads(host("event", "list", "--json")) == []


def test_the_log_can_be_followed(host):
    follower = subprocess.Popen(
        ["/usr/bin/python3", str(ROOT / "simhost" / "tool" / "ryn-sim"), "log", "--follow", "--json"],
        stdout=subprocess.PIPE,
        text=True,
        env=host.environment,
    )
    try:
        host("fault", "add", "Ryn_Get_Flow_Timeout", "--delay", "1")
        assert on_host(host, "print(json.dumps(ryn.GetFlowTimeout()))") == 10
        assert json.loads(follower.stdout.readline())["operation"] == "Ryn_Get_Flow_Timeout"
    finally:
        follower.terminate()
        follower.wait()
        follower.stdout.close()


@pytest.mark.parametrize("profile", ["asymmetric", "degraded", "empty", "large", "overloaded"])
def test_every_profile_answers(live, profile):
    live("init", profile)
    program = """
switches = ryn.ListSwitches()
ports = {switch["swID"]: ryn.ListPorts(switch["swID"]) for switch in switches}
flows = [ryn.DumpFlowTable(switch["swID"], core, 0, 0) for switch in switches[:2]
         for core in ryn.ListLCoreIDs(switch["swID"])[:2] if core < 32]
tables = [ryn.ListSwitchMACTable(switch["swID"]) for switch in switches[:1]]
conf = [ryn.GetPortStats(number, port["rynPortID"]) for number, found in ports.items() for port in found[:20]]
print(json.dumps([len(switches), sum(map(len, ports.values())), None in flows + tables + conf]))"""
    expected = json.loads(live("info", "--json"))
    assert on_host(live, program) == [expected["datapath_switches"], expected["ports"], False]


# The examples ---------------------------------------------------------------------------------------------------------


def test_the_tour_goes_its_way(live):
    live("init")
    done = live.process("run", "--", "/usr/bin/python3", str(ROOT / "examples" / "tour.py"), RYN_SIM="")
    assert done.returncode == 1
    done = live.process("run", "--", "/usr/bin/python3", str(ROOT / "examples" / "tour.py"))
    assert (done.returncode, done.stderr) == (0, "")
    assert max(map(len, done.stdout.splitlines())) <= 100
    for heading in (
        "simulated",
        "Inventory",
        "Rates",
        "busiest flows",
        "load balancer",
        "A failure",
        "0x0BAD0001",
        "ryn.PlatformError: ",
    ):
        assert heading in done.stdout
    assert "no port is moved" in done.stdout and "cores [0] -> [" in done.stdout


def test_the_documents_show_the_tour_as_it_is(live):
    environment, os.environ["RYN_SIM_LIBS"] = dict(os.environ), live.environment["RYN_SIM_LIBS"]
    try:
        pages = demo_page.pages()
    finally:
        os.environ.clear()
        os.environ.update(environment)
    for path, text in pages.items():
        assert path.read_text() == text, f"{path}: ./dev demo --docs renews it"
        if path.suffix == ".md":
            lines = [line for line in text.splitlines() if not line.startswith("|")]  # but tables
            assert max(map(len, lines)) <= 120


def test_the_tour_stays_off_a_host_that_is_real():
    done = subprocess.run(
        [sys.executable, str(ROOT / "examples" / "tour.py")], capture_output=True, text=True, env={"PATH": "/usr/bin"}
    )
    assert done.returncode == 1
