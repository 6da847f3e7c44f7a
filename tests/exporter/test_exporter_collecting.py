"""Rounds, time-outs and ages; what starts and ends the exporter; what it may call."""

import contextlib
import os
import re
import signal
import socket
import subprocess
import time
from pathlib import Path

import exporting
import pytest
from exporting import exporting as exporter_on
from exporting import named, run, series, wait_for
from scripts import Scripts

FAST = ("--interval", "0.1", "--timeout", "0.3")
ON = {"switch", "port", "uplink", "flow", "fpo", "core", "balancer"}


@pytest.fixture
def scripts(tmp_path: Path) -> Scripts:
    scripts = Scripts(tmp_path)
    scripts.switches((0, "a", 1500))
    scripts.ports(0, [(3, 1)])
    return scripts


def success(samples: dict, collector: str) -> str:
    return samples[series("ryn_collector_success", collector=collector)]


def age(samples: dict, collector: str) -> float:
    return float(samples[series("ryn_collector_age_seconds", collector=collector)])


def test_collectors_by_default_and_by_flag(default_host):
    def collectors(*arguments):
        seen = exporting.parse(run(default_host, "--once", *arguments).stdout)
        return {dict(labels)["collector"] for labels in named(seen, "ryn_collector_success")}

    assert collectors() == ON
    assert collectors("--with", "queue,mac", "--with", "netq", "--with", "mirror") == ON | {
        "queue",
        "mac",
        "netq",
        "mirror",
    }
    assert collectors("--without", "switch,port,uplink,flow") == {"fpo", "core", "balancer"}
    assert collectors("--without", "port", "--with", "port") == ON


def test_large_answers_are_asked_for_by_flag_only(scripts):
    run(scripts, "--once")
    large = ("Ryn_Dump_Switch_MAC_Table", "Ryn_Get_Port_NetQ_Info", "Ryn_Get_Mirror_Conf", "Ryn_Get_Uplink_Queue_Stats")
    assert not [call for call in scripts.calls() if call.startswith(large)]


@pytest.mark.parametrize("operation, failing", [
    ("Ryn_Get_Port_Stats", {"port"}), ("Ryn_Get_Port_Stats_Slowpath-0-3", {"port"}), ("Ryn_Get_Flow_Timeout", {"flow"}),
    ("Ryn_Get_Flow_Stats", {"flow"}), ("Ryn_Get_FPO_Stats", {"fpo"}), ("Ryn_GetLBWeights", {"balancer"}),
    ("Ryn_GetCurrentLBData", {"balancer"}), ("Ryn_Dump_LB_PortStats", {"core"}),
    ("Ryn_Get_Port_List-0", {"port", "uplink"}),
    ("Ryn_Get_LCore_ID_Bitmap", {"flow", "fpo", "core"}), ("Ryn_GetSwitchBurstSize", {"switch"}),
    ("DVSQOB_StateGet", {"switch"}),
])  # fmt: skip
def test_a_failure_is_its_collector_s_alone(scripts, operation, failing):
    scripts.answer("Ryn_Get_LCore_ID_Bitmap", b"\1" + bytes(7))
    scripts.answer(operation, status=0x0BAD0007)
    done = run(scripts, "--once")
    assert done.returncode == 0
    samples = exporting.parse(done.stdout)
    assert {name for name in ON if success(samples, name) == "0"} == failing
    for name in failing:
        assert re.search(
            rf"^ryn-exporter: {name}: {operation.partition('-')[0]}\b.*: status 0x0bad0007$", done.stderr, re.MULTILINE
        ), done.stderr
    assert samples[series("ryn_up")] == "1"


def test_what_is_gone_is_left_out(scripts):
    """A port that goes between the listing and its counters is no failure."""
    scripts.ports(0, [(3, 1), (4, 1)])
    scripts.answer("Ryn_Get_Port_Stats-0-3", status=0x0BAD0003)
    samples = exporting.parse(run(scripts, "--once").stdout)
    assert success(samples, "port") == "1"
    assert {dict(labels)["port"] for labels in named(samples, "ryn_port_info")} == {"4"}


def test_up_follows_the_listing_of_the_switches(scripts):
    with exporter_on(scripts, *FAST) as exporter:
        assert exporter.scrape()[series("ryn_up")] == "1"
        scripts.answer("Ryn_Get_Switch_List", status=1)
        down = exporter.until(lambda seen: seen[series("ryn_up")] == "0")
        assert {success(down, name) for name in ON} == {"0"}
        scripts.hang("Ryn_Get_Switch_List")
        time.sleep(0.5)
        assert exporter.scrape()[series("ryn_up")] == "0"
        scripts.switches((0, "a", 1500))
        up = exporter.until(lambda seen: seen[series("ryn_up")] == "1" and success(seen, "balancer") == "1")
        assert {success(up, name) for name in ON} == {"1"}
        assert "switch: Ryn_Get_Switch_List: status 0x00000001\n" in exporter.stop()[2]


def test_a_failed_collector_keeps_its_values_for_ten_intervals(scripts):
    mtu, port = series("ryn_switch_mtu_bytes", switch="a"), "ryn_port_macs"
    with exporter_on(scripts, *FAST) as exporter:
        exporter.until(lambda seen: success(seen, "port") == "1")
        scripts.answer("Ryn_Get_Port_Stats", status=7)
        failed = exporter.until(lambda seen: success(seen, "port") == "0")
        assert named(failed, port)
        while named(seen := exporter.scrape(), port):
            assert age(seen, "port") <= 1.0
        assert age(seen, "port") > 1.0
        assert seen[mtu] == "1500" and age(seen, "switch") < 0.5
        scripts.forget("Ryn_Get_Port_Stats")
        exporter.until(lambda seen: success(seen, "port") == "1" and named(seen, port))
        lines = exporter.stop()[2].splitlines()
    # Told once when it begins and once when it ends
    assert [line for line in lines if "port:" in line] == [
        "ryn-exporter: port: Ryn_Get_Port_Stats, switch 0, port 3: status 0x00000007",
        "ryn-exporter: port: works again",
    ]


def test_a_hung_call_delays_no_scrape_and_lets_all_grow_old(scripts):
    with exporter_on(scripts, *FAST) as exporter:
        exporter.until(lambda seen: success(seen, "flow") == "1")
        scripts.hang("Ryn_Get_Flow_Timeout")
        hung = exporter.until(lambda seen: success(seen, "flow") == "0")
        assert float(hung[series("ryn_collector_duration_seconds", collector="flow")]) >= 0.3
        assert hung[series("ryn_up")] == "1"
        before = len(scripts.ends())
        start = time.monotonic()
        for _ in range(20):
            exporter.scrape()
        assert time.monotonic() - start < 5
        old = exporter.until(lambda seen: age(seen, "port") > 1.2)
        assert success(old, "port") == "1" and success(old, "flow") == "0"
        assert {"ryn_port_macs", "ryn_flow_timeout_seconds"}.isdisjoint(name for name, _ in old)
        assert len(scripts.ends()) == before  # no second call was begun
        assert exporter.request("/healthy")[0].status == 503
        scripts.forget("Ryn_Get_Flow_Timeout")
        exporter.until(lambda seen: success(seen, "flow") == "1" and age(seen, "port") < 1)
        assert exporter.request("/healthy")[0].status == 200


def test_one_operation_at_a_time(scripts):
    scripts.ports(0, [(n, 1) for n in range(20)])
    with exporter_on(scripts, "--interval", "0.1") as exporter:
        for _ in range(30):
            exporter.scrape()
        wait_for(lambda: len(scripts.calls()) > 200)
        exporter.stop()
    lines = scripts.ends()
    for begin, end in zip(lines[::2], lines[1::2]):
        assert end == "end " + begin


def test_slow_answers_count_against_the_time_out(scripts):
    """A collector that is still at work after --timeout has failed, whatever comes then."""
    scripts.hang("Ryn_Get_FPO_Stats")
    scripts.answer("Ryn_Get_LCore_ID_Bitmap", b"\1" + bytes(7))
    with exporter_on(scripts, "--interval", "60", "--timeout", "0.3") as exporter:
        exporter.until(lambda seen: success(seen, "fpo") == "0")
        scripts.forget("Ryn_Get_FPO_Stats")
        done = exporter.until(lambda seen: success(seen, "balancer") == "1")
        assert success(done, "fpo") == "0"
        assert "fpo: takes longer than the time-out" in exporter.stop()[2]


# ---- Begin and end ---------------------------------------------------------------------------------------------------


class Manager:
    """A service manager: takes what the exporter says of itself."""

    def __init__(self, folder: Path) -> None:
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.path = str(folder / "notify")
        self.socket.bind(self.path)
        self.socket.settimeout(exporting.PATIENCE)

    def hears(self) -> str:
        return self.socket.recv(1000).decode()


def test_ready_after_the_first_round(scripts, tmp_path):
    scripts.hang("Ryn_Get_Port_Stats")
    manager = Manager(tmp_path)
    with exporter_on(scripts, "--timeout", "20", NOTIFY_SOCKET=manager.path) as exporter:
        with pytest.raises(TimeoutError):
            exporter.request("/healthy", timeout=0.5)
        scripts.forget("Ryn_Get_Port_Stats")
        assert manager.hears() == "READY=1"
        assert success(exporter.scrape(), "port") == "1"


def test_ready_after_the_time_out_where_a_call_hangs(scripts, tmp_path):
    scripts.hang("Ryn_Get_Switch_List")
    manager = Manager(tmp_path)
    with exporter_on(scripts, "--timeout", "0.3", NOTIFY_SOCKET=manager.path) as exporter:
        assert manager.hears() == "READY=1"
        seen = exporter.scrape()
        assert seen[series("ryn_up")] == "0"
        assert {success(seen, name) for name in ON} == {"0"}
        assert not named(seen, "ryn_collector_age_seconds")


def test_watchdog_is_fed_while_a_call_hangs(scripts, tmp_path):
    scripts.hang("Ryn_Get_Port_Stats")
    manager = Manager(tmp_path)
    with exporter_on(scripts, "--timeout", "0.2", NOTIFY_SOCKET=manager.path, WATCHDOG_USEC="300000"):
        assert [manager.hears() for _ in range(5)] == ["READY=1"] + 4 * ["WATCHDOG=1"]


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
@pytest.mark.parametrize("hangs", [None, "Ryn_Get_Port_Stats"])
def test_a_signal_ends_it_within_two_seconds(scripts, number, hangs):
    with exporter_on(scripts, *FAST) as exporter:
        exporter.scrape()
        if hangs:
            scripts.hang(hangs)
            exporter.until(lambda seen: success(seen, "port") == "0")
        code, seconds, said = exporter.stop(number)
    assert code == 0 and seconds < 2, said


def test_a_signal_ends_it_before_the_first_round_too(scripts):
    scripts.hang("Ryn_Get_Switch_List")
    with exporter_on(scripts, "--timeout", "20") as exporter:
        wait_for(lambda: (scripts.folder / "calls").exists())
        code, seconds, _ = exporter.stop()
    assert code == 0 and seconds < 2


def test_once_prints_what_it_has(scripts):
    scripts.hang("Ryn_Get_FPO_Stats")
    scripts.answer("Ryn_Get_LCore_ID_Bitmap", b"\1" + bytes(7))
    start = time.monotonic()
    done = run(scripts, "--once", "--timeout", "0.5")
    assert 0.5 <= time.monotonic() - start < 5
    samples = exporting.parse(done.stdout)
    assert done.returncode == 0 and samples[series("ryn_up")] == "1"
    assert success(samples, "flow") == "1" and success(samples, "fpo") == "0"


@pytest.mark.parametrize("trouble", [
    lambda scripts: scripts.answer("Ryn_Get_Switch_List", status=0x0BAD0001),
    lambda scripts: scripts.hang("Ryn_Get_Switch_List"),
], ids=["fails", "hangs"])  # fmt: skip
def test_once_without_switches(scripts, trouble):
    trouble(scripts)
    done = run(scripts, "--once", "--timeout", "0.3")
    assert done.returncode == 1
    assert "\nryn_up 0\n" in done.stdout


def test_once_says_that_nobody_took_it(default_host):
    with open("/dev/full", "w") as full:
        done = subprocess.run(
            [exporting.PROGRAM, "--once"], env=default_host.values, stdout=full, stderr=subprocess.PIPE, text=True
        )
    assert (done.returncode, done.stderr) == (1, "ryn-exporter: the metrics could not be written\n")


@pytest.mark.parametrize("arguments, message", [
    (["--listen", "0.0.0.0:0"], "0.0.0.0:0 is not a loopback address"),
    (["--listen", "[::]:0"], "[::]:0 is not a loopback address"),
    (["--listen", "127.0.0.1:0", "--listen", "192.0.2.1:0"], "192.0.2.1:0 is not a loopback address"),
    (["--listen", "192.0.2.1:0", "--tls-cert", "c", "--tls-key", "k"], "is not a loopback address"),
    (["--listen", "192.0.2.1:0", "--users", "u"], "is not a loopback address"),
    (["--listen", "host:1"], "numeric address"), (["--listen", "127.0.0.1"], "ADDRESS:PORT"),
    (["--listen", "127.0.0.1:65536"], "ADDRESS:PORT"), (["--listen", "::1:80"], "numeric address"),
    (["--interval", "0"], "--interval wants seconds"), (["--interval", "1s"], "--interval wants seconds"),
    (["--timeout", "-1"], "--timeout wants seconds"), (["--timeout", "nan"], "--timeout wants seconds"),
    (["--with", "macs"], "no collector 'macs'"), (["--without", "port,"], "no collector ''"),
    (["--tls-cert", "c"], "go together"), (["--nonsense"], "--nonsense"), (["word"], "'word'"),
    (["--users", "/nonexistent"], "/nonexistent"), (["--tls-cert", "/nonexistent", "--tls-key", "k"], "/nonexistent"),
    (["--tls-cert", "/dev/null", "--tls-key", "/dev/null"], "/dev/null"),
])  # fmt: skip
def test_wrong_usage(default_host, arguments, message):
    done = run(default_host, *arguments)
    assert (done.returncode, done.stdout) == (2, "")
    assert message in done.stderr


def test_an_address_in_use_is_a_failure(default_host):
    with contextlib.closing(socket.create_server(("127.0.0.1", 0))) as taken:
        port = taken.getsockname()[1]
        done = run(default_host, "--listen", f"127.0.0.1:{port}")
    assert done.returncode == 1
    assert done.stderr == f"ryn-exporter: cannot listen on 127.0.0.1:{port}: Address already in use\n"


def test_insecure_listens_anywhere(default_host):
    with exporter_on(default_host, "--insecure", address="0.0.0.0") as exporter:
        exporter.address = "127.0.0.1"
        assert "ryn_up 1\n" in exporter.text()


def test_help_names_every_collector_and_flag(default_host):
    done = run(default_host, "--help")
    assert done.returncode == 0
    assert max(map(len, done.stdout.splitlines())) <= 110
    collectors = {row["collector"] for row in exporting.table()} - {"always"}
    assert collectors == ON | {"queue", "mac", "netq", "mirror"}
    for word in [*collectors, "--listen", "--interval", "--timeout", "--with", "--without", "--ports", "--insecure",
                 "--tls-cert", "--tls-key", "--users", "--host-name", "--once"]:  # fmt: skip
        assert word in done.stdout
    assert re.fullmatch(r"ryn-exporter \d+\.\d+\.\d+ \(simulated platform\)\n", run(default_host, "--version").stdout)


# ---- The program -----------------------------------------------------------------------------------------------------

# What it may call of the platform: it only reads. The configuration that two of these replace is the process's own.
IMPORTS = """
DVSData_Data DVSQOB_DataFree DVSQOB_HostPropGet DVSQOB_StateGet DVSState_ConfigDeserialize DVSState_ConfigReset
DVSState_GlobalPropLookup DVSState_HostPropLookup DVSState_SwitchForEach DVS_ClassName DVS_SwitchId
Ryn_Dump_LB_PortStats Ryn_Dump_Switch_MAC_Table Ryn_GetCurrentLBData Ryn_GetLBWeights Ryn_GetSwitchBurstSize
Ryn_Get_FPO_Stats Ryn_Get_Flow_Stats Ryn_Get_Flow_Timeout Ryn_Get_LCore_ID_Bitmap Ryn_Get_Mirror_Conf Ryn_Get_Port_List
Ryn_Get_Port_NetQ_Info Ryn_Get_Port_Stats Ryn_Get_Port_Stats_Slowpath Ryn_Get_Switch_List Ryn_Get_Uplink_Priv_Stats
Ryn_Get_Uplink_Priv_Stats_Len Ryn_Get_Uplink_Queue_Stats Ryn_Get_Uplink_Stats
""".split()


def tool(*command: object) -> str:
    return subprocess.run(list(map(str, command)), text=True, capture_output=True, check=True).stdout


def test_takes_what_was_reviewed_of_the_platform():
    lines = tool("nm", "-D", "--undefined-only", exporting.PROGRAM).splitlines()
    taken = {line.split()[-1].partition("@")[0] for line in lines}
    assert sorted(name for name in taken if name.startswith(("Ryn_", "DVS"))) == IMPORTS
    changing = re.compile(r"_Set|Set_|_Clear_|Migrate|Unpin|Reset_Port|ResetLB|Enable|Entry_Ops|PropSet|DataSet|Init_")
    assert not list(filter(changing.search, IMPORTS))


def test_platform_libraries_stay_replaceable():
    dynamic = tool("readelf", "-d", exporting.PROGRAM)
    needed = re.findall(r"NEEDED.*\[(.*)\]", dynamic)
    assert {"libryn.so", "libjorPublic.so"} <= set(needed)
    assert not re.search("RPATH|RUNPATH", dynamic)


def test_gives_the_platform_its_log_hooks():
    lines = tool("nm", "-D", "--defined-only", exporting.PROGRAM).splitlines()
    own = {line.split()[-1] for line in lines if line.split()[1] == "T"}
    assert {"Log", "Warning", "Panic"} <= own
    if "libasan" not in os.environ.get("LD_PRELOAD", ""):
        assert own == {"Log", "Warning", "Panic"}


UNIT = exporting.ROOT / "exporter" / "ryn-exporter.service"


def test_unit_is_hardened(tmp_path):
    analyze = "/usr/bin/systemd-analyze"
    if not os.path.exists(analyze):
        pytest.skip("needs systemd-analyze")
    done = subprocess.run(
        [analyze, "security", "--offline=true", "--no-pager", "--threshold=20", UNIT], text=True, capture_output=True
    )
    assert done.returncode == 0, done.stdout[-400:] + done.stderr
    figure = re.search(r"Overall exposure level for ryn-exporter.service: ([\d.]+)", done.stdout)
    assert figure
    assert f"`systemd-analyze security` gives the unit {figure[1]}" in (exporting.ROOT / "docs/fleet.md").read_text()


def test_unit_waits_for_readiness_and_is_watched():
    lines = UNIT.read_text().splitlines()
    for line in ("Type=notify", "Restart=on-failure", "DynamicUser=yes"):
        assert line in lines
    assert any(line.startswith("WatchdogSec=") for line in lines)
