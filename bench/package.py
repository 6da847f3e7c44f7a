"""What the package ryn costs, against _libryn: ./dev bench runs this, after its own.

    bench/package.py                      on the platform double, each ratio with its limit
    bench/package.py --docs               writes the figures into docs/performance.md as well
    bench/package.py --case counters

Measured as bench/run.py does. The same calls on a simulated host stand beside, without a limit: there they take
most of the time.
"""

from __future__ import annotations

import argparse
import importlib
import json
import os
import random
import statistics
import struct
import subprocess
import sys
import tempfile
from dataclasses import dataclass
from pathlib import Path
from typing import Any, Callable

ROOT = Path(__file__).resolve().parents[1]
sys.path[:0] = [str(ROOT / "tests/support")]

from measuring import Contender, machine, measure, median_ratio, table, time_text  # noqa: E402

PAGE = ROOT / "docs/performance.md"
BEGIN, END = "<!-- written by bench/package.py: begin -->\n", "<!-- written by bench/package.py: end -->\n"
ROWS = 65536
PAGES, FLOWS_OF_A_PAGE, ENTRY = 3031, 33, 304  # 100,023 flows
SWITCHES, PORTS = 16, 128


@dataclass
class Case:
    name: str
    title: str  # of the call, against that of _libryn
    limit: float
    ours: Callable[[], Any]
    theirs: Callable[[], Any]


# ---- The platform double


def mac_table() -> bytes:
    rows = b"".join(
        struct.pack("<6sHIII", struct.pack(">HI", 0x0200, i), i % 4096, i % 128, 0, i % 7) for i in range(ROWS)
    )
    return struct.pack("<IIII", ROWS, 0, ROWS, 0) + rows


def flow_page(last_octet: int) -> bytes:
    """Full of flows to 10.0.0.N, with actions that fill a line of text."""
    entries = bytearray(FLOWS_OF_A_PAGE * ENTRY)
    for i in range(FLOWS_OF_A_PAGE):
        key, actions = ENTRY * i, ENTRY * i + 64
        struct.pack_into("<H2x", entries, key + 12, 100 << 4)
        struct.pack_into(">HH", entries, key + 16, 50000 + i, 443)
        entries[key + 23 : key + 32] = bytes([6, 10, 0, 0, 5, 10, 0, 0, last_octet])
        struct.pack_into("<Q8xQ", entries, actions + 24, 1000 + i, 64000 + i)
        struct.pack_into("<I", entries, actions + 56, 1 << 3 | 1 << 10 | 1 << 20)
        struct.pack_into("<BH", entries, actions + 61, 8, ENTRY - 64)
    return bytes(8) + struct.pack("<III", 0, FLOWS_OF_A_PAGE, 20 + len(entries)) + bytes(entries)


def set_the_stage() -> Any:
    import harness
    from harness import Bytes

    double = harness.set_up()
    import _libryn  # noqa: F401  gives libjorPublic.so what it needs

    double.reset()
    double.recording(False)
    switches, ports = Bytes(2568).u32(0, SWITCHES), Bytes(11532).u32(4, PORTS)
    for i in range(SWITCHES):
        switches.raw(8 + 160 * i, b"dvs-%d" % i).u32(8 + 160 * i + 128, i, 128, PORTS, PORTS, 9000, 4)
    for i in range(PORTS):
        at = 12 + 90 * i
        ports.u32(at, 1000 + i, i).u8(at + 8, 4, 4, 2, 0, 0, 0, 1, i).u16(at + 16, 3).u32(at + 18, 1)
        ports.u8(at + 26, 0, 1, 2, 3).u8(at + 58, 0, 1, 2, 3)
    double.answer("Ryn_Get_Switch_List", area=switches)
    double.answer("Ryn_Get_Port_List", area=ports)
    double.answer("Ryn_Get_Port_Stats", area=struct.pack("<16Q", *range(10**9, 10**9 + 16)))
    double.answer("Ryn_Get_Port_Stats_Slowpath", area=struct.pack("<16Q", *range(10**6, 10**6 + 16)))
    double.answer("Ryn_Dump_Switch_MAC_Table", area=mac_table())
    return double


def on_the_double() -> tuple[list[Case], list[tuple[str, float, float]]]:
    """The cases, and sizes in bytes with their limits."""
    double = set_the_stage()
    import _floor

    _libryn: Any = importlib.import_module("_libryn")  # whose results are never None here

    import ryn

    _floor.keep_arenas()
    host = ryn.Host()
    switch = host.switches()[0]
    port = switch.ports()[7]
    full = switch.macs()
    wanted = full[54321].mac
    plain, last = flow_page(7), flow_page(6)

    def script_flows() -> None:  # by both contenders: 100,023 flows of which 33 match
        double.answer("Ryn_Dump_Flow_Table", area=plain, times=PAGES - 1)
        double.answer("Ryn_Dump_Flow_Table", area=last, times=1)
        double.answer("Ryn_Dump_Flow_Table", area=bytes(20), times=1)

    def walk() -> int:
        script_flows()
        return sum(1 for _ in switch.flows(dst="10.0.0.6", cores=[0]))

    def dump() -> int:
        script_flows()
        start = 0
        while page := _libryn.DumpFlowTable(0, 0, start, 0)["list"]:
            start += len(page)
        return start

    def each_by_itself() -> list:
        return [_libryn.GetPortStats(i, k) for i in range(SWITCHES) for k in range(PORTS)]

    assert port.counters().fast.tx_bytes == _libryn.GetPortStats(0, 7)["txBytes"]
    assert len(switch.ports()) == len(_libryn.ListPorts(0)) == PORTS and len(full) == ROWS
    assert [row.port for row in full.find(wanted)] == [54321 % 128]
    assert (walk(), dump()) == (FLOWS_OF_A_PAGE, PAGES * FLOWS_OF_A_PAGE)
    assert len(host.counters()) == SWITCHES * PORTS

    def table_of_dicts() -> object:
        return _libryn.ListSwitchMACTable(0)

    return [
        Case("counters", "`port.counters()`, `GetPortStats`", 0.6, port.counters, lambda: _libryn.GetPortStats(0, 7)),
        Case("ports", "`switch.ports()` of 128 ports, `ListPorts`", 0.8, switch.ports, lambda: _libryn.ListPorts(0)),
        Case("macs", "`switch.macs()` of 65,536 rows, `ListSwitchMACTable`", 1 / 50, switch.macs, table_of_dicts),
        Case(
            "find",
            "`table.find()` of one address, `ListSwitchMACTable`",
            1 / 20,
            lambda: full.find(wanted),
            table_of_dicts,
        ),
        Case("flows", "filtered `switch.flows()` of 100,023, `DumpFlowTable`", 1 / 3, walk, dump),
        Case("all", "`host.counters()` of 2,048 ports, `GetPortStats` of each", 0.6, host.counters, each_by_itself),
    ], [("a MAC table of 65,536 rows, in bytes", sys.getsizeof(full), 16 + 20 * ROWS + 1024)]


# ---- A simulated host


def on_a_simulated_host() -> list[Case]:
    _libryn: Any = importlib.import_module("_libryn")  # whose results are never None here

    import ryn

    host = ryn.Host()
    switch = host.switches()[0]
    port = switch.ports()[2]
    number, core = switch.number, host.cores[0]
    everything = [(each.number, port.number) for each in host.switches() for port in each.ports()]
    full = switch.macs()
    wanted = full[len(full) // 2].mac

    def dump() -> None:
        start, pages = 0, 0
        while (page := _libryn.DumpFlowTable(number, core, start, 0))["list"]:
            start = max(page["startIndex"], start + len(page["list"]))
            pages += 1

    return [
        Case("counters", "counters", 0, port.counters, lambda: _libryn.GetPortStats(number, port.number)),
        Case("ports", "ports", 0, switch.ports, lambda: _libryn.ListPorts(number)),
        Case("macs", "macs", 0, switch.macs, lambda: _libryn.ListSwitchMACTable(number)),
        Case("find", "find", 0, lambda: full.find(wanted), lambda: _libryn.ListSwitchMACTable(number)),
        Case("flows", "flows", 0, lambda: list(switch.flows(dst="192.0.2.255", cores=[core])), dump),
        Case("all", "all", 0, host.counters, lambda: [_libryn.GetPortStats(*each) for each in everything]),
    ]


def simulated(options: argparse.Namespace) -> dict[str, float]:
    """The same ratios on a new simulated host, from a process that runs on it."""
    tool = ["/usr/bin/python3", str(ROOT / "simhost/tool/ryn-sim")]
    with tempfile.TemporaryDirectory() as folder:
        state = ["--state", f"{folder}/host.db"]
        subprocess.run([*tool, "init", "large", *state], check=True, stdout=subprocess.DEVNULL)
        command = [*tool, "run", *state, "--", sys.executable, __file__, "--child", "--rounds", str(options.rounds)]
        command += [f"--case={name}" for name in options.case or ()]
        done = subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True, env=dict(os.environ))
    return json.loads(done.stdout)


# ---- Measuring


def run_cases(cases: list[Case], rounds: int) -> dict[str, tuple[float, float, float]]:
    """Nanoseconds of ours and theirs, and the ratio, by the case's name."""
    chance = random.Random(1)
    found = {}
    for case in cases:
        print(f"{case.title} ...", file=sys.stderr)
        times = measure([Contender("ours", case.ours), Contender("theirs", case.theirs)], rounds, chance)
        ours, theirs = (statistics.median(times[name]) for name in ("ours", "theirs"))
        found[case.name] = ours, theirs, median_ratio(times, "ours", "theirs")
    return found


def ratio_text(ratio: float) -> str:
    return f"{ratio:.2f}" if ratio >= 0.1 else f"1/{1 / ratio:.0f}"


def main() -> int:
    parser = argparse.ArgumentParser(description="What the package ryn costs, against _libryn.")
    parser.add_argument("--rounds", type=int, default=15)
    parser.add_argument("--case", action="append")
    parser.add_argument("--docs", action="store_true", help=f"write the figures into {PAGE.relative_to(ROOT)}")
    parser.add_argument("--child", action="store_true", help=argparse.SUPPRESS)
    options = parser.parse_args()

    cases, sizes = (on_a_simulated_host(), []) if options.child else on_the_double()
    chosen = [case for case in cases if not options.case or case.name in options.case]
    found = run_cases(chosen, options.rounds)
    if options.child:
        print(json.dumps({name: ratio for name, (_, _, ratio) in found.items()}))
        return 0

    beside = simulated(options)
    rows = [
        [
            case.title,
            *map(time_text, found[case.name][:2]),
            ratio_text(found[case.name][2]),
            ratio_text(case.limit),
            ratio_text(beside[case.name]),
        ]
        for case in chosen
    ]
    parts = [table(["case", "`ryn`", "`_libryn`", "ratio", "at most", "on a simulated host"], rows)]
    parts += [f"{title[0].upper()}{title[1:]}: {size:,}, at most {limit:,}." for title, size, limit in sizes]
    about = "; ".join(f"{name} {value}" for name, value in machine().items())
    parts += [f"Measured on: {about}; {options.rounds} rounds."]
    text = "\n\n".join(parts) + "\n"
    print(text)
    if options.docs:
        before, _, rest = PAGE.read_text().partition(BEGIN)
        PAGE.write_text(before + BEGIN + "\n" + text + "\n" + END + rest.partition(END)[2])
    late = [case.title for case in chosen if found[case.name][2] > case.limit]
    late += [title for title, size, limit in sizes if size > limit]
    for title in late:
        print(f"over its limit: {title}", file=sys.stderr)
    return 1 if late else 0


if __name__ == "__main__":
    sys.exit(main())
