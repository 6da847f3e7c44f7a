"""Faults and events: what goes wrong on purpose."""

import pytest
import simulated


def fault(host, operation: str, *where: str, **columns) -> None:
    names = ", ".join(["operation", *columns])
    values = ", ".join("NULL" if value is None else repr(value) for value in [operation, *columns.values()])
    host.apply(f"INSERT INTO fault ({names}) VALUES ({values})")
    for seq, condition in enumerate(where):
        name, _, glob = condition.partition("=")
        host.apply(f"INSERT INTO fault_where SELECT max(id), {seq}, '{name}', '{glob}' FROM fault")


def event(host, kind: str, target: str, begin: int, end: int) -> None:
    host.apply(f"INSERT INTO event (kind, target, from_ms, until_ms) VALUES ('{kind}', '{target}', {begin}, {end})")


def outcomes(host, count: int, *call) -> list:
    host.process.send(host.state, [list(call)] * count)
    return host.process.receive()


def test_a_status(host):
    fault(host, "Ryn_Get_Switch_List", status=0xBAD0007)
    assert host.complaint("ListSwitches") == "Failed to retrieve list of switches.\n"
    assert host.rows("SELECT operation, arguments, what FROM log") == [("Ryn_Get_Switch_List", "", "status 0x0BAD0007")]
    host.apply("DELETE FROM fault")
    assert len(host.ListSwitches()) == 2


def test_after_some_calls_and_some_times(host):
    fault(host, "Ryn_GetLRO", status=5, after=2, times=3)
    assert outcomes(host, 8, "GetPortLRO", 0, 2) == [True, True, None, None, None, True, True, True]
    assert host.rows("SELECT calls, hits FROM fault") == [(8, 3)]


def test_calls_of_all_processes_count(host):
    fault(host, "Ryn_GetLRO", status=5, after=1, times=1)
    assert host.GetPortLRO(0, 2) is True
    host.other.send(host.state, [["GetPortLRO", 0, 2]])
    assert host.other.receive() == [None]
    assert host.GetPortLRO(0, 2) is True


def test_a_probability_is_a_matter_of_the_seed(host, tmp_path):
    twin = host.copy(tmp_path / "twin.db")
    for one in (host, twin):
        fault(one, "Ryn_GetLRO", status=5, probability_ppm=300_000, seed=3)
    first = outcomes(host, 200, "GetPortLRO", 0, 2)
    assert first == outcomes(twin, 200, "GetPortLRO", 0, 2)
    assert 30 < first.count(None) < 90


def test_an_argument_decides(host):
    fault(host, "Ryn_Get_Port_Stats", "port=2", status=5)
    assert host.complaint("GetPortStats", 0, 2) == "Failed to retrieve port stats.\n"
    assert host.GetPortStats(0, 3)["txPkts"] > 0
    fault(host, "DVSQOB_HostPropSet", "key=*.fpo", status=5)
    assert host.complaint("EnableFPO", "dvs-1", 1) == "Failed to set DVS property com.talvor.kiv.ryn.fpo\n"
    host.SetSwitchBurstSize("dvs-1", 16)
    assert host.GetSwitchBurstSize("dvs-1") == 16


def test_a_glob_of_operations(host):
    fault(host, "Ryn_Get_*Stats*", status=5)
    assert host.complaint("GetPortStats", 0, 2) != ""
    assert host.complaint("GetFlowStats", 0, [0], 0) != ""
    assert host.GetFlowTimeout() == 10


def test_only_within_its_time(host):
    now = host.now_ms()
    fault(host, "Ryn_GetLRO", status=5, from_ms=now + 1000, until_ms=now + 2000)
    assert host.GetPortLRO(0, 2) is True
    host.step(1)
    assert host.complaint("GetPortLRO", 0, 2) == "ValueError: Failed to get LRO.\n\n"
    host.step(1)
    assert host.GetPortLRO(0, 2) is True


def test_a_delay(host):
    fault(host, "Ryn_GetLRO", delay_ms=120)
    assert host.many([["time", ["GetPortLRO", 0, 2]]])[0] >= 0.12
    assert host.GetPortLRO(0, 2) is True
    assert host.many([["time", ["GetPortConf", 0, 2]]])[0] < 0.1


@pytest.mark.parametrize(
    "corrupt, check",
    [
        ("zero", lambda good, bad: bad == bytes(len(good))),
        ("ones", lambda good, bad: bad == b"\xff" * len(good)),
        ("half", lambda good, bad: bad[:64] == good[:64] and bad[64:] == bytes(64)),
        ("random", lambda good, bad: bad != good and len(set(bad)) > 30),
    ],
)
def test_a_corrupted_answer(host, corrupt, check):
    call = ["=Ryn_Get_Port_Stats", 0, 2, {"area": 128, "guard": 64}]
    good = host.many([call])[0]
    fault(host, "Ryn_Get_Port_Stats", corrupt=corrupt)
    bad = host.many([call])[0]
    assert bad["status"] == 0 and bad["intact"]
    assert check(bytes.fromhex(good["areas"][0]), bytes.fromhex(bad["areas"][0]))


def test_the_module_survives_corrupted_answers(host):
    fault(host, "*", corrupt="random", seed=11)
    calls = [
        ["ListSwitches"],
        ["ListPorts", 0],
        ["GetPortConf", 0, 2],
        ["DumpFlowTable", 0, 1, 0, 0],
        ["GetMirrorConf", 0],
        ["GetPortNetQInfo", 0, 0],
        ["DumpLBSnapshot", 0],
        ["ListPortMACTable", 0, 2],
        ["DumpLBPortStats", 0, 0, 127],
        ["GetPortTxUplink", 0, 2],
    ]
    for _ in range(5):
        for call in calls:
            host.process.send(host.state, [["quiet", *call]])
            host.process.receive()
    host.apply("DELETE FROM fault")
    assert len(host.ListSwitches()) == 2


def test_loading_survives_a_state_that_cannot_be_fetched(host):
    fault(host, "DVSQOB_StateGet", status=5)
    late = simulated.Process(host.state)
    try:
        late.send(host.state, [["GetFPOEnabled", "dvs-1"], ["GetFlowTimeout"]])
        assert late.receive() == [None, 10]
        assert late.stderr == "Failed to find dvs ID for dvs alias dvs-1.\n"
    finally:
        late.close()


def test_loading_survives_a_corrupted_state(host):
    fault(host, "DVSQOB_StateGet", corrupt="random")
    late = simulated.Process(host.state)
    try:
        late.send(host.state, [["GetFPOEnabled", "dvs-1"]])
        assert late.receive() == [None]
    finally:
        late.close()


def test_a_hung_uplink_sends_nothing_and_says_so(host):
    nic = host.rows("SELECT nic FROM port WHERE sw = 0 AND port = 0")[0][0]
    host.step(1)
    before = dict(host.GetUplinkStats(0, 0)["uplinkStats"])
    begin = host.now_ms()
    event(host, "uplink-hang", nic, begin, begin + 5000)
    host.step(5)
    hung = dict(host.GetUplinkStats(0, 0)["uplinkStats"])
    assert hung["txPkts"] == before["txPkts"]
    assert hung["txAbortedErrors"] - before["txAbortedErrors"] == hung["txDrops"] - before["txDrops"] > 1000
    assert hung["rxPkts"] > before["rxPkts"]
    host.step(5)
    assert dict(host.GetUplinkStats(0, 0)["uplinkStats"])["txPkts"] > hung["txPkts"]
    assert [what for (what,) in host.rows("SELECT what FROM log WHERE operation = 'uplink-hang'")] == ["begins", "ends"]


def test_a_hang_that_a_real_host_would_not_survive(host):
    host.SetPanicOnTxHang(0, 1)
    begin = host.now_ms()
    for nic in ("lunic0", "lunic2"):  # of switch 0 and of switch 1
        event(host, "uplink-hang", nic, begin, begin + 1000)
    host.step(1)
    host.GetFlowTimeout()
    logged = dict(host.rows("SELECT arguments, what FROM log WHERE what <> 'ends'"))
    assert logged == {"lunic0": "begins; a real host, set to panic on this, would stop", "lunic2": "begins"}


def test_an_event_between_two_looks_leaves_its_mark(host):
    """Nobody looked while the link was down; its packets are missing all the same."""
    begin = host.now_ms() + 1000
    twin = host.copy(host.state.with_name("twin.db"))
    nics = [nic for (nic,) in host.rows("SELECT nic FROM port WHERE sw = 0 AND kind = 2")]
    for nic in nics:
        event(host, "uplink-down", nic, begin, begin + 10000)
    for one in (host, twin):
        one.step(60)
    sent, usual = (dict(one.GetUplinkStats(0, 0)["uplinkStats"])["txPkts"] for one in (host, twin))
    assert sent < usual
    assert host.GetPortStats(0, 2)["txDrops"] > twin.GetPortStats(0, 2)["txDrops"]


def test_events_of_one_moment_happen_in_the_order_of_their_numbers(host):
    begin = host.now_ms() + 1000
    event(host, "uplink-down", "lunic1", begin, begin + 1000)
    event(host, "uplink-hang", "lunic0", begin, begin + 1000)
    event(host, "core-stuck", "3", begin + 1000, begin + 2000)
    host.step(5)
    host.GetFlowTimeout()
    assert host.rows("SELECT at_ms, arguments, what FROM log ORDER BY id") == [
        (begin, "lunic1", "begins"),
        (begin, "lunic0", "begins"),
        (begin + 1000, "lunic1", "ends"),
        (begin + 1000, "lunic0", "ends"),
        (begin + 1000, "3", "begins"),
        (begin + 2000, "3", "ends"),
    ]


def test_a_stuck_core_works_on_nothing(host):
    host.SetLBAlgorithm("dvs-1", "none")
    host.MigratePort(0, 2, 3, 3, 1)
    begin = host.now_ms()
    event(host, "core-stuck", "3", begin, begin + 10000)
    before = host.GetPortStats(0, 2)
    host.step(10)
    after = host.GetPortStats(0, 2)
    assert after["txPkts"] == before["txPkts"] and after["rxPkts"] == before["rxPkts"]
    assert after["txDrops"] > before["txDrops"] and after["rxDrops"] > before["rxDrops"]
    assert host.DumpLBPortStats(0, 0, 0)[5][3] == [0, 0]
    host.step(10)
    assert host.GetPortStats(0, 2)["txPkts"] > after["txPkts"]


@pytest.mark.parametrize("bits", [32, 63])
def test_counters_near_wrap(host, bits):
    now = host.now_ms()
    host.apply(f"INSERT INTO event (kind, target, value, from_ms) VALUES ('counters-near-wrap', '0/5', {bits}, {now})")
    near = host.GetPortStats(0, 5)
    for name in ("txPkts", "rxPkts"):
        assert near[name] == 2**bits - 100_000
    host.step(10)
    far = host.GetPortStats(0, 5)
    assert (far["rxPkts"] - near["rxPkts"]) % 2**64 > 100_000
    assert (far["rxPkts"] < 0) == (bits == 63)
