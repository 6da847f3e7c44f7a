"""Several processes share one host; any of them may die at any moment."""

import contextlib
import sqlite3
import time

import pytest

import simulated

# Every operation that reads, with the areas that the module hands it
READS = [
    ["=Ryn_Get_Switch_List", {"area": 2568}],
    ["=Ryn_Get_Port_List", 0, {"area": 11532}],
    ["=Ryn_Get_Port_Stats", 0, 2, {"area": 128}],
    ["=Ryn_Get_Port_Stats_Slowpath", 0, 2, {"area": 128}],
    ["=Ryn_Get_Port_Conf", 0, 2, {"area": 1272}],
    ["=Ryn_GetLRO", 0, 0, 2, {"out": 4}],
    ["=Ryn_Dump_Port_MAC_Table", 0, 2, {"area": 327696}],
    ["=Ryn_Dump_Switch_MAC_Table", 0, {"area": 1310736}],
    ["=Ryn_Dump_Flow_Table", 0, 1, 10, {"area": 10260}, 0],
    ["=Ryn_Get_Flow_Stats", 0, [0, 1, 2], 3, 0, {"area": 1544}],
    ["=Ryn_Get_Flow_Timeout", {"out": 4}],
    ["=Ryn_Get_FPO_Stats", 0, [0, 1, 2], 3, {"area": 1800}],
    ["=Ryn_Get_FPO_Uplink_Status", 0, 0, {"area": 40}],
    ["=Ryn_Get_Port_Tx_Uplink", 0, 2, {"area": 18}],
    ["=Ryn_Get_Mirror_Conf", 0, {"area": 2048}],
    ["=Ryn_Get_Uplink_Priv_Stats_Len", 0, 0, {"area": 4}],
    ["=Ryn_Get_Uplink_Priv_Stats", 0, 0, {"area": 700}],
    ["=Ryn_Get_Uplink_Stats", 0, 0, {"area": 192}],
    ["=Ryn_Get_Uplink_Queue_Stats", 0, 0, 1, 0, {"area": 192}],
    ["=Ryn_Get_Panic_On_Tx_Hang", 0, {"out": 4}],
    ["=Ryn_Get_Port_NetQ_Info", 0, 0, {"area": 524288}],
    ["=Ryn_List_Dev_Affinity", {"area": 1156}],
    ["=Ryn_GetLBWeights", {"out": 32}],
    ["=Ryn_GetCurrentLBData", "dvs-1-set", 128, {"out": 24}],
    ["=Ryn_DumpLBSnapshot", [0], {"area": 4096}],
    ["=Ryn_Dump_LB_PortStats", 0, {"area": 9224}],
    ["=Ryn_GetSwitchNUMATeam", "dvs-1-set", 128, {"out": 1}],
    ["=Ryn_GetSwitchBurstSize", "dvs-1-set", {"out": 4}],
    ["=Ryn_Get_LCore_ID_Bitmap", 0, {"out": 8}],
]


def test_two_processes_answer_with_the_same_bytes(host):
    host.step(123.456)
    first = host.process.calls(host.state, READS)
    second = host.other.calls(host.state, READS)
    for call, one, other in zip(READS, first, second):
        assert one["status"] == 0, call
        assert one == other, call
    # And with the same bytes again, in a process that has seen nothing before
    late = simulated.Process(host.state)
    try:
        assert late.calls(host.state, READS) == first
    finally:
        late.close()


def test_two_hosts_made_alike_answer_alike(host, template, tmp_path):
    twin = host.copy(tmp_path / "twin.db")
    for one in (host, twin):
        one.SetPortLRO(0, 3, 0)
        one.step(77)
        one.ClearSwitchFlowTable(0)
        one.step(1)
    assert host.process.calls(host.state, READS) == host.process.calls(twin.state, READS)


@pytest.mark.parametrize("room", [0, 1, 15, 16, 100])
def test_answers_stay_within_the_room_there_is(host, room):
    """What lies behind the room that the length word states is not touched."""
    for call in READS:
        if not any(isinstance(argument, dict) and "area" in argument for argument in call):
            continue
        guarded = [{"area": room, "guard": 256} if isinstance(argument, dict) else argument for argument in call]
        answer = host.many([guarded])[0]
        assert answer["intact"], call
        assert all(length <= room for length in answer["lengths"]), call


def test_a_reader_does_not_write(host):
    host.many(READS)  # what was due is replayed now

    def version() -> int:
        with contextlib.closing(sqlite3.connect(host.state)) as store:
            return store.execute("SELECT sum(length(counts)) + (SELECT tick_ms FROM balancer) FROM base").fetchone()[0]

    with contextlib.closing(sqlite3.connect(host.state)) as watcher:
        before = watcher.execute("PRAGMA data_version").fetchone(), version()
        host.many(READS)
        host.other.calls(host.state, READS)
        assert (watcher.execute("PRAGMA data_version").fetchone(), version()) == before


def test_a_killed_writer_leaves_a_good_store(host):
    """Kills a process in the middle of its writing, again and again."""
    host.run()
    last = host.GetPortStats(0, 2)["txPkts"]
    for attempt in range(12):
        victim = simulated.Process(host.state)
        victim.calls(host.state, [["now_ms"]])
        victim.send(host.state, [["SetPortLRO", 0, 2 + n % 8, n % 2] for n in range(5000)])
        time.sleep(0.01 + attempt * 0.007)
        victim.kill()
        assert host.rows("PRAGMA integrity_check") == [("ok",)]
        host.SetFlowTimeout(attempt + 1)
        assert host.elsewhere("GetFlowTimeout") == attempt + 1
        now = host.GetPortStats(0, 2)["txPkts"]
        assert now >= last
        last = now


def test_eight_processes_at_once(host):
    host.run()
    processes = [simulated.Process(host.state) for _ in range(8)]
    try:
        for number, process in enumerate(processes):
            calls: list = []
            for n in range(40):
                calls += [["SetPortLRO", 0, 2 + number, n % 2], ["GetPortLRO", 0, 2 + number], ["GetPortStats", 0, 2]]
            process.send(host.state, calls)
        for process in processes:
            values = process.receive()
            assert process.stderr == ""
            assert values[1::3] == [bool(n % 2) for n in range(40)]  # nobody's setting is lost
            counts = [stats["txPkts"] for stats in values[2::3]]
            assert counts == sorted(counts)
    finally:
        for process in processes:
            process.close()
    assert host.rows("PRAGMA integrity_check") == [("ok",)]


def test_a_child_goes_on_by_itself(host):
    host.SetLBWeights(*[3] * 8)
    assert host.many([["fork"]]) == [True]
    assert [row["weight"] for row in host.GetLBWeights()] == [7] * 8  # the child's
    host.SetLBWeights(*[4] * 8)
    assert [row["weight"] for row in host.elsewhere("GetLBWeights")] == [4] * 8


def test_a_store_that_is_replaced_is_noticed(host, template):
    host.SetFlowTimeout(99)
    replacement = host.copy(host.state.with_name("other.db"))
    replacement.SetFlowTimeout(98)
    with contextlib.closing(sqlite3.connect(replacement.state)) as store:
        store.execute("PRAGMA wal_checkpoint(TRUNCATE)")
    for suffix in ("-wal", "-shm"):
        host.state.with_name("host.db" + suffix).unlink(missing_ok=True)
    replacement.state.rename(host.state)
    assert host.GetFlowTimeout() == 98


def test_time_does_not_go_back(host):
    host.run(speed=1000)
    times = [host.now_ms() for _ in range(50)]
    assert times == sorted(times) and times[-1] - times[0] > 1000
    host.apply("UPDATE clock SET mode = 'freeze', base_host_ns = (SELECT base_host_ns FROM clock) + 3600000000000")
    assert host.now_ms() == host.elsewhere("now_ms") >= times[-1]
