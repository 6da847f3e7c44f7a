"""How long the simulated host's operations take: ./dev bench runs this, after its own.

    bench/simhost.py [--check] [--docs]

Each operation that reads is called on a host of the profile `default` through ctypes, which adds about a microsecond;
figures are medians of wall time. Limits: 50 microseconds for a read on `default`, 20 milliseconds for a full MAC table
of `large`. A setting is measured through the method that makes it, SetPortLRO, which changes what is counted each time.
"""

from __future__ import annotations

import argparse
import ctypes
import json
import os
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
PAGE = ROOT / "docs" / "simulated-host.md"
BEGIN, END = "<!-- written by ./dev bench --docs: begin -->\n", "<!-- end -->\n"
ROUNDS = 500
LIMIT_US = 50
LIMIT_MAC_TABLE_MS = 20
PORTSET = b"dvs-1-set"
NOT_FOUND = 0x0BAD0003  # an answer as well: of a property that is not there


class Area:
    """A buffer for the operation, with its length word behind it, or without one."""

    def __init__(self, size: int, length: bool = True) -> None:
        self.buffer, self.size = ctypes.create_string_buffer(size), size
        self.word = ctypes.c_uint32(size) if length else None

    def arguments(self) -> list:
        return [self.buffer] + ([ctypes.byref(self.word)] if self.word is not None else [])


def words(*numbers: int) -> ctypes.Array:
    return (ctypes.c_uint32 * len(numbers))(*numbers)


def readings(switch_id: bytes) -> list[tuple]:
    """Every operation that reads, with arguments that make it answer."""
    value, length, datum = ctypes.c_void_p(), ctypes.c_uint32(), ctypes.c_void_p()
    out = [ctypes.byref(value), ctypes.byref(length)]
    return [
        ("Ryn_Get_Switch_List", Area(2568)),
        ("Ryn_Get_Port_List", 0, Area(11532)),
        ("Ryn_Get_Port_Stats", 0, 2, Area(128)),
        ("Ryn_Get_Port_Stats_Slowpath", 0, 2, Area(128)),
        ("Ryn_Get_Port_Conf", 0, 2, Area(1272)),
        ("Ryn_GetLRO", 0, 0, 2, Area(4, False)),
        ("Ryn_Dump_Port_MAC_Table", 0, 18, Area(327696)),
        ("Ryn_Dump_Switch_MAC_Table", 0, Area(1310736)),
        ("Ryn_Dump_Flow_Table", 0, 1, 10, Area(10260), 0),
        ("Ryn_Get_Flow_Stats", 0, words(0, 1, 2, 3, 8, 9, 10, 11), 8, 0, Area(1544)),
        ("Ryn_Get_Flow_Timeout", Area(4, False)),
        ("Ryn_Get_FPO_Stats", 0, words(0, 1, 2, 3, 8, 9, 10, 11), 8, Area(1800)),
        ("Ryn_Get_FPO_Uplink_Status", 0, 0, Area(40)),
        ("Ryn_Get_Port_Tx_Uplink", 0, 2, Area(18)),
        ("Ryn_Get_Mirror_Conf", 0, Area(2048)),
        ("Ryn_Get_Uplink_Priv_Stats_Len", 0, 0, Area(4)),
        ("Ryn_Get_Uplink_Priv_Stats", 0, 0, Area(700)),
        ("Ryn_Get_Uplink_Stats", 0, 0, Area(192)),
        ("Ryn_Get_Uplink_Queue_Stats", 0, 0, 1, 0, Area(192)),
        ("Ryn_Get_Panic_On_Tx_Hang", 0, Area(4, False)),
        ("Ryn_Get_Port_NetQ_Info", 0, 0, Area(524288)),
        ("Ryn_List_Dev_Affinity", Area(1156)),
        ("Ryn_GetLBWeights", Area(32, False)),
        ("Ryn_GetCurrentLBData", PORTSET, 128, Area(24, False)),
        ("Ryn_DumpLBSnapshot", words(0), Area(4096)),
        ("Ryn_Dump_LB_PortStats", 0, Area(9224)),
        ("Ryn_GetSwitchNUMATeam", PORTSET, 128, Area(1, False)),
        ("Ryn_GetSwitchBurstSize", PORTSET, Area(4, False)),
        ("Ryn_Get_LCore_ID_Bitmap", 0, Area(8, False)),
        ("DVSState_SwitchFindByAlias", b"dvs-1"),
        ("DVSState_HostPropLookup", switch_id, b"com.talvor.common.host.portset", ctypes.byref(datum)),
        ("DVSState_GlobalPropLookup", switch_id, b"com.talvor.common.alias", ctypes.byref(datum)),
        ("DVSQOB_HostPropGet", switch_id, b"com.talvor.common.host.portset", *out),
        ("DVSQOB_PortDataGet", switch_id, b"1000", b"com.talvor.extraconfig.opqueDvs.ryn.uplinkRing", *out),
    ]


def measure(library, name: str, *arguments) -> float:
    """The median of a call's time, in microseconds."""
    function = getattr(library, name)
    areas = [argument for argument in arguments if isinstance(argument, Area)]
    native = [
        part for argument in arguments for part in (argument.arguments() if isinstance(argument, Area) else [argument])
    ]
    times = []
    for _ in range(ROUNDS):
        for area in areas:
            if area.word is not None:
                area.word.value = area.size
        begun = time.perf_counter_ns()
        status = function(*native)
        times.append(time.perf_counter_ns() - begun)
    assert name == "DVSState_SwitchFindByAlias" or status & 0xFFFFFFFF in (0, NOT_FOUND), (name, hex(status))
    return statistics.median(times) / 1000


def measure_setting(set_port_lro, sw: int, port: int, rounds: int) -> float:
    """The median of a setting's time by its method, in microseconds; each one changes what is counted."""
    times = []
    for number in range(rounds):
        begun = time.perf_counter_ns()
        set_port_lro(sw, port, number % 2)
        times.append(time.perf_counter_ns() - begun)
    return statistics.median(times) / 1000


def child(profile: str) -> None:
    """Runs on the host, and prints a line for each operation."""
    import _libryn  # takes its switches from the host, and gives libjorPublic.so what it needs

    libraries = {"R": ctypes.CDLL("libryn.so"), "D": ctypes.CDLL("libjorPublic.so")}
    switch_id = os.environ["SWITCH_ID"].encode() + bytes(64)
    if profile == "large":
        area = Area(1310736)
        print(
            "table",
            measure(libraries["R"], "Ryn_Dump_Switch_MAC_Table", 0, area),
            int.from_bytes(area.buffer.raw[:4], "little"),
        )
        begun = time.perf_counter_ns()
        table = _libryn.ListSwitchMACTable(1)
        assert table is not None and len(table["MacTableList"]) == 65536
        print("method", (time.perf_counter_ns() - begun) / 1000)
        print("setting", measure_setting(_libryn.SetPortLRO, 0, 2, ROUNDS // 20))
        return
    for name, *arguments in readings(switch_id):
        print(name, measure(libraries[name[0]], name, *arguments))
    print("setting", measure_setting(_libryn.SetPortLRO, 0, 2, ROUNDS))


def on_host(profile: str) -> list[list[str]]:
    with tempfile.TemporaryDirectory() as folder:
        tool = ["/usr/bin/python3", str(ROOT / "simhost" / "tool" / "ryn-sim")]
        state = ["--state", f"{folder}/host.db"]
        subprocess.run([*tool, "init", profile, *state], check=True, stdout=subprocess.DEVNULL)
        shown = subprocess.run([*tool, "export", "--json", *state], check=True, capture_output=True, text=True).stdout
        environment = {**os.environ, "SWITCH_ID": json.loads(shown)["switches"][0]["id"]}
        done = subprocess.run(
            [*tool, "run", *state, "--", sys.executable, __file__, "--child", profile],
            check=True,
            stdout=subprocess.PIPE,
            text=True,
            env=environment,
        )
        return [
            line.rsplit(" ", 1) if not line.startswith("table") else line.split() for line in done.stdout.splitlines()
        ]


def main() -> int:
    parser = argparse.ArgumentParser(description="Time the simulated host's operations.")
    parser.add_argument("--check", action="store_true", help="fail when a limit is passed")
    parser.add_argument("--docs", action="store_true", help=f"write the figures into {PAGE.relative_to(ROOT)}")
    parser.add_argument("--child", help=argparse.SUPPRESS)
    options = parser.parse_args()
    if options.child:
        child(options.child)
        return 0
    rows = [(name, float(time_us)) for name, time_us in on_host("default")]
    (_, table_us, entries), (_, method_us), (_, large_setting_us) = on_host("large")
    reads, setting = rows[:-1], rows[-1][1]
    slowest = max(reads, key=lambda row: row[1])
    median = statistics.median(time_us for _, time_us in reads)
    text = (
        f"Of {len(reads)} operations that read, on `default`, in microseconds: median {median:.1f}, slowest"
        f" {slowest[1]:.1f}\n(`{slowest[0]}`); a setting by its method takes {setting:.0f}, on `large`"
        f" {float(large_setting_us) / 1000:.1f} ms. The MAC table of a\nswitch of `large`, {int(entries):,} addresses:"
        f" {float(table_us) / 1000:.2f} ms in the stand-in, {float(method_us) / 1000:.0f} ms for `ListSwitchMACTable`"
        " as a whole.\n"
    )
    for name, time_us in reads:
        print(f"{name:32} {time_us:8.1f} us")
    print("\n" + text, end="")
    if options.docs:
        page = PAGE.read_text()
        PAGE.write_text(page[: page.index(BEGIN) + len(BEGIN)] + "\n" + text + "\n" + page[page.index(END) :])
    late = [name for name, time_us in reads if time_us > LIMIT_US]
    late += ["the full MAC table"] if float(table_us) > LIMIT_MAC_TABLE_MS * 1000 else []
    for name in late:
        print(f"over its limit: {name}", file=sys.stderr)
    return 1 if late and options.check else 0


if __name__ == "__main__":
    sys.exit(main())
