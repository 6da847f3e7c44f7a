#!/usr/bin/env python3
"""What a scrape costs: the exporter's way, prometheus-cpp and Python's client, in one run over the platform double.

The host has 16 switches of 128 ports. Each way reads it and makes the text of the port collector's metrics; counted is
CPU time, the ways in a new order in each round. Fails where the exporter takes more than its share of the others' time.

    bench/exporter.py BUILD [--rounds N]     LD_LIBRARY_PATH and PYTHONPATH as for the tests
"""

from __future__ import annotations

import argparse
import random
import statistics
import struct
import subprocess
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "tests" / "support"))

import harness  # noqa: E402
from prometheus_client.registry import Collector  # noqa: E402

LIMITS = {"prometheus-cpp": 0.15, "python3-prometheus-client": 0.04}  # the exporter's time, of theirs
SWITCHES, PORTS = 16, 128
FIELDS = [f"{side}{what}" for side in ("rx", "tx") for what in ("Pkts", "Bytes", "Drops", "Errors")]
METRICS = [
    f"ryn_port_{way}_{what}" for way in ("receive", "transmit") for what in ("packets", "bytes", "drops", "errors")
]


def script_host(double: harness.Double) -> None:
    switches, ports = bytearray(2568), bytearray(11532)
    struct.pack_into("<I", switches, 0, SWITCHES)
    for i in range(SWITCHES):
        name = f"dvs-{i}-set".encode()
        switches[8 + 160 * i : 8 + 160 * i + len(name)] = name
        struct.pack_into("<I", switches, 8 + 160 * i + 128, i)
    struct.pack_into("<I", ports, 4, PORTS)
    for i in range(PORTS):
        struct.pack_into("<II", ports, 12 + 90 * i, 1000 + i, i)
        struct.pack_into("<I", ports, 12 + 90 * i + 18, 1)
    counters = struct.pack("<16Q", *(123456789012 + n for n in range(16)))
    for operation, area in (("Ryn_Get_Switch_List", switches), ("Ryn_Get_Port_List", ports),
                            ("Ryn_Get_Port_Stats", counters), ("Ryn_Get_Port_Stats_Slowpath", counters)):  # fmt: skip
        double.answer(operation, area=bytes(area))


class Client(Collector):
    """A collector as one writes it with Python's client library, over the methods."""

    def __init__(self) -> None:
        import _libryn
        from prometheus_client import CollectorRegistry, core, generate_latest

        self.methods, self.core, self.generate = _libryn, core, generate_latest
        self.registry = CollectorRegistry(auto_describe=False)
        self.registry.register(self)

    def describe(self):
        return []

    def collect(self):
        info = self.core.GaugeMetricFamily("ryn_port_info", "-", labels=["switch", "port", "dvport", "kind", "mac"])
        macs = self.core.GaugeMetricFamily("ryn_port_macs", "-", labels=["switch", "port"])
        counters = [self.core.CounterMetricFamily(name, "-", labels=["switch", "port", "path"]) for name in METRICS]
        for switch in self.methods.ListSwitches():
            for port in self.methods.ListPorts(switch["swID"]):
                name, number = switch["name"], str(port["rynPortID"])
                info.add_metric([name, number, str(port["portID"]), port["clientType"], port["hwAddr"]], 1)
                macs.add_metric([name, number], port["numMACs"])
                stats = self.methods.GetPortStats(switch["swID"], port["rynPortID"])
                for family, field in zip(counters, FIELDS):
                    family.add_metric([name, number, "fast"], stats[field])
                    family.add_metric([name, number, "slow"], stats["sp" + field[0].upper() + field[1:]])
        return [info, macs, *counters]

    def scrape(self) -> tuple[int, int, int]:
        start = time.process_time_ns()
        text = self.generate(self.registry)
        spent = time.process_time_ns() - start
        return spent, sum(not line.startswith(b"#") for line in text.splitlines()), len(text)


class Native:
    """bench/exporter.cc as a process of its own."""

    def __init__(self, program: Path) -> None:
        self.process = subprocess.Popen([program], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)

    def scrape(self, way: str) -> tuple[int, int, int]:
        assert self.process.stdin and self.process.stdout
        self.process.stdin.write(way + "\n")
        self.process.stdin.flush()
        spent, series, size = map(int, self.process.stdout.readline().split())
        return spent, series, size


def main() -> int:
    parser = argparse.ArgumentParser(description=(__doc__ or "").partition("\n")[0])
    parser.add_argument("build", type=Path)
    parser.add_argument("--rounds", type=int, default=15)
    arguments = parser.parse_args()
    double = harness.set_up()
    client = Client()  # loads the module, which the double's other half needs
    double.recording(False)
    script_host(double)
    native = Native(arguments.build / "bench" / "exporter_scrape")
    ways = {
        "ryn-exporter": lambda: native.scrape("exporter"),
        "prometheus-cpp": lambda: native.scrape("prometheus-cpp"),
        "python3-prometheus-client": client.scrape,
    }
    times: dict[str, list[int]] = {way: [] for way in ways}
    series = {}
    for turn in range(arguments.rounds + 1):
        for way in random.sample(list(ways), len(ways)):
            spent, series[way], _ = ways[way]()
            if turn > 0:  # the first one warms up
                times[way].append(spent)
    if set(series.values()) != {SWITCHES * PORTS * 18}:
        print(f"the ways show different series: {series}")
        return 1
    own = statistics.median(times["ryn-exporter"])
    print(f"{series['ryn-exporter']:,} series, median CPU time of {arguments.rounds} scrapes\n")
    print("| Way | ms | ryn-exporter takes of it | limit |\n|---|---|---|---|")
    print(f"| ryn-exporter | {own / 1e6:.1f} | | |")
    failed = False
    for way, limit in LIMITS.items():
        median = statistics.median(times[way])
        failed |= own / median > limit
        print(f"| {way} | {median / 1e6:.1f} | {own / median:.3f} | {limit} |")
    return int(failed)


if __name__ == "__main__":
    sys.exit(main())
