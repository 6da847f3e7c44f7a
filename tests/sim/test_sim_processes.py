"""Several processes share one host; any of them may die at any moment."""

import contextlib
import random
import signal
import sqlite3
import subprocess
import sys
import time
from pathlib import Path

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


# Sets three things to the same number, says so, and goes on with the next number.
COUNTING = """
import os, _libryn
n = 0
while True:
    n += 1
    _libryn.SetLBWeights(*[n] * 8)
    _libryn.SetSwitchBurstSize("dvs-1", n)
    _libryn.SetFlowTimeout(n)
    os.write(1, b"%d\\n" % n)
"""


def start(code: str, host: Path) -> subprocess.Popen:
    return subprocess.Popen(
        [sys.executable, "-c", code], stdout=subprocess.PIPE, env=simulated.environment(RYN_SIM_STATE=str(host))
    )


def test_a_killed_writer_loses_no_setting_that_it_had_finished(host):
    host.run()
    chance = random.Random(5)
    last = host.GetPortStats(0, 2)["txPkts"]
    for _ in range(20):
        with start(COUNTING, host.state) as victim:
            done = victim.stdout.readline()
            time.sleep(chance.uniform(0, 0.03))
            victim.kill()
            done += victim.stdout.read()
        finished = int(done.splitlines()[-1])
        assert host.rows("PRAGMA integrity_check") == [("ok",)]
        weights = {row["weight"] for row in host.GetLBWeights()}
        assert weights in ({finished}, {finished + 1})  # all of them, or none
        assert host.GetSwitchBurstSize("dvs-1") in (finished, finished + 1)
        assert host.elsewhere("GetFlowTimeout") in (finished, finished + 1)
        now = host.GetPortStats(0, 2)["txPkts"]
        assert now >= last
        last = now


def test_a_host_is_made_whole_or_not_at_all(tmp_path):
    """Kills processes while they make a host."""
    chance = random.Random(6)
    half_made = 0
    for attempt in range(10):
        path = tmp_path / str(attempt) / "host.db"
        with start("import _libryn", path) as victim:
            while not path.parent.exists() and victim.poll() is None:
                pass
            time.sleep(chance.uniform(0, 0.005))
            victim.kill()
        half_made += not path.exists()
        late = simulated.Process(path)
        try:
            assert [switch["swID"] for switch in late.calls(path, [["ListSwitches"]])[0]] == [0, 1]
        finally:
            late.close()
    assert half_made > 0


def test_eight_processes_at_once(host):
    """Readers and writers, with a look of the balancer every 100 ms and a fault that counts all calls."""
    host.apply("UPDATE balancer SET period_ms = 100")
    host.apply("INSERT INTO fault (operation, delay_ms, probability_ppm) VALUES ('Ryn_GetLRO', 1, 0)")
    host.run()
    processes = [simulated.Process(host.state) for _ in range(8)]
    try:
        for number, process in enumerate(processes):
            calls: list = []
            for n in range(40):
                calls += [
                    ["SetPortLRO", 0, 2 + number, n % 2],
                    ["GetPortLRO", 0, 2 + number],
                    ["GetPortStats", 0, 2],
                    ["SetPortTxUplink", 0, 2 + number, {"txType": "LAG", "txUplinks": [n % 2]}],
                    ["GetPortTxUplink", 0, 2 + number],
                ]
            process.send(host.state, calls)
        for process in processes:
            values = process.receive()
            assert process.stderr == ""
            assert values[1::5] == [bool(n % 2) for n in range(40)]  # nobody's setting is lost
            assert [policy["txUplinks"] for policy in values[4::5]] == [[n % 2] for n in range(40)]
            counts = [stats["txPkts"] for stats in values[2::5]]
            assert counts == sorted(counts)
    finally:
        for process in processes:
            process.close()
    assert host.rows("SELECT calls, hits FROM fault") == [(8 * 40, 0)]
    assert host.rows("PRAGMA integrity_check") == [("ok",)]


# Sends what it had to say of a reading that was below the one before it, and how many readings there were.
READING = """
import os, sys, time, _libryn
names = ("txPkts", "spTxPkts", "rxPkts", "spRxPkts")
end, readings, fallen, last = time.monotonic() + float(sys.argv[1]), 0, [], dict.fromkeys(names, 0)
while time.monotonic() < end:
    now = _libryn.GetPortStats(0, 2)
    fallen += [(name, last[name], now[name]) for name in names if now[name] < last[name]]
    readings, last = readings + 1, now
print(readings, fallen[:3])
"""

# The flow cache decides which path packets take, so a reading by the wrong setting is far off.
SWITCHING = """
import _libryn
n = 0
while True:
    n += 1
    _libryn.EnableSwitchFlowCache(0, n % 2)
"""


def test_no_counter_falls_while_others_change_what_is_counted(host):
    """Writers are stopped now and then, as a busy machine does, between deciding on a moment and their commit."""
    host.run(speed=50)
    chance = random.Random(9)
    arguments = {"env": simulated.environment(RYN_SIM_STATE=str(host.state)), "text": True}
    writers = [subprocess.Popen([sys.executable, "-c", SWITCHING], **arguments) for _ in range(3)]
    readers = [
        subprocess.Popen([sys.executable, "-c", READING, "6"], stdout=subprocess.PIPE, **arguments) for _ in range(2)
    ]
    try:
        while any(reader.poll() is None for reader in readers):
            writer = chance.choice(writers)
            writer.send_signal(signal.SIGSTOP)
            time.sleep(chance.uniform(0.01, 0.06))
            writer.send_signal(signal.SIGCONT)
            time.sleep(chance.uniform(0, 0.005))
        for reader in readers:
            readings, fallen = reader.communicate()[0].split(" ", 1)
            assert int(readings) > 100 and fallen == "[]\n"
        assert all(writer.poll() is None for writer in writers)
    finally:
        for process in writers + readers:
            process.kill()
            process.wait()


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
