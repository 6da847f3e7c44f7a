#!/usr/bin/env python3
"""Three simulated hosts, three exporters and a Prometheus on loopback; shows what an operator would see of them.

    fleet/fleet.py [--build FOLDER] [--keep]

Rates in Prometheus are those of the hosts' descriptions; a link that goes down fires its alert; a changed setting
shows; a killed exporter shows as down and comes back. Ends by itself, in under two minutes, with 0 when all of that was
seen. --keep leaves everything running until Ctrl-C, to be looked at in a browser.
"""

from __future__ import annotations

import argparse
import contextlib
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import urllib.parse
import urllib.request
from pathlib import Path
from typing import Any, Callable

ROOT = Path(__file__).resolve().parents[1]
TOOL = ROOT / "simhost" / "tool" / "ryn-sim"
RULES = ROOT / "fleet" / "prometheus"

RATES = {"hv-1": 5000, "hv-2": 12000, "hv-3": 800}  # packets a second from web-0 to web-1
TO_UPLINKS = 2000  # packets a second from each machine
BUDGET = 110  # seconds for everything
WINDOW = 20  # seconds that rates are taken over
PORT_OF_WEB_0 = 2  # behind the two uplinks

START = time.monotonic()


def say(text: str) -> None:
    print(f"{time.monotonic() - START:5.1f} s  {text}", flush=True)


class Failed(Exception):
    pass


def wait_for(what: str, look: Callable[[], Any]) -> Any:
    """What `look` returns, as soon as it is true; Failed when the time for everything is over."""
    while not (seen := look()):
        if time.monotonic() - START > BUDGET:
            raise Failed(f"waited in vain for {what}")
        time.sleep(0.1)
    return seen


class Host:
    """A simulated host with its exporter."""

    def __init__(self, name: str, seed: int, folder: Path, build: Path) -> None:
        self.name, self.program = name, build / "exporter" / "ryn-exporter"
        self.environment = {key: value for key, value in os.environ.items() if not key.startswith("RYN_SIM_")}
        self.environment.update(
            RYN_SIM_STATE=str(folder / f"{name}.db"),
            RYN_SIM_LIBS=str(build / "simhost"),
            LD_LIBRARY_PATH=str(build / "simhost"),
        )
        self.environment.pop("NOTIFY_SOCKET", None)
        text = (ROOT / "fleet" / "hosts" / "steady.yaml").read_text()
        for word, value in (("NAME", name), ("SEED", seed), ("PPS", RATES[name])):
            text = text.replace(word, str(value))
        self.sim("init", "-", text=text)
        self.log = (folder / f"{name}.log").open("w+")
        self.port = 0
        self.start()

    def sim(self, *arguments: str, text: str = "") -> None:
        command = [sys.executable, str(TOOL), *arguments]
        done = subprocess.run(command, env=self.environment, input=text, text=True, capture_output=True, timeout=60)
        if done.returncode != 0:
            raise Failed(f"ryn-sim {' '.join(arguments)}: {done.stderr.strip()}")

    def start(self) -> None:
        """Starts the exporter, after the first time at the port that it had."""
        self.log.truncate(0)
        self.exporter = subprocess.Popen(
            [self.program, "--listen", f"127.0.0.1:{self.port}", "--interval", "0.1"],
            env=self.environment,
            stderr=self.log,
        )
        if self.port == 0:
            found = wait_for(f"the exporter of {self.name}", lambda: re.search(r"port (\d+)", self.said()))
            self.port = int(found[1])

    def said(self) -> str:
        return Path(self.log.name).read_text()

    @property
    def target(self) -> str:
        return f"127.0.0.1:{self.port}"


class Prometheus:
    """Debian's Prometheus with the fleet's rules, on a port of its own, at one scrape a second."""

    def __init__(self, hosts: list[Host], folder: Path) -> None:
        settings = (RULES / "prometheus.yml").read_text()
        (folder / "prometheus.yml").write_text(settings.replace(": 15s", ": 1s"))
        shutil.copy(RULES / "rules.yml", folder)
        (folder / "targets").mkdir()
        groups = [{"targets": [host.target], "labels": {"host": host.name, "environment": "test"}} for host in hosts]
        (folder / "targets" / "hosts.yml").write_text(json.dumps(groups))  # JSON is YAML
        self.log = (folder / "prometheus.log").open("w")
        self.url = ""
        self.process = subprocess.Popen(
            ["prometheus", f"--config.file={folder}/prometheus.yml", f"--storage.tsdb.path={folder}/data"]
            + ["--web.listen-address=127.0.0.1:0", "--log.level=info"],
            stdout=self.log,
            stderr=subprocess.STDOUT,
        )
        self.url = f"http://127.0.0.1:{wait_for('Prometheus', self.port)}"
        wait_for("Prometheus to be ready", self.is_ready)

    def port(self) -> int:
        """The port that it listens on, of the sockets that are its own."""
        if self.process.poll() is not None:
            raise Failed(f"Prometheus ended: {Path(self.log.name).read_text()[-500:]}")
        own = set()
        for entry in os.scandir(f"/proc/{self.process.pid}/fd"):
            with contextlib.suppress(OSError):
                own.add(os.readlink(entry.path))
        for line in Path(f"/proc/{self.process.pid}/net/tcp").read_text().splitlines()[1:]:
            fields = line.split()
            if fields[3] == "0A" and f"socket:[{fields[9]}]" in own:
                return int(fields[1].partition(":")[2], 16)
        return 0

    def is_ready(self) -> bool:
        with contextlib.suppress(OSError):
            return urllib.request.urlopen(f"{self.url}/-/ready", timeout=5).status == 200
        return False

    def get(self, path: str) -> Any:
        with urllib.request.urlopen(f"{self.url}/api/v1/{path}", timeout=10) as answer:
            return json.load(answer)["data"]

    def query(self, expression: str) -> dict[str, float]:
        """The value of each host."""
        result = self.get("query?" + urllib.parse.urlencode({"query": expression}))["result"]
        return {sample["metric"].get("host", ""): float(sample["value"][1]) for sample in result}

    def firing(self) -> set[tuple[str, str]]:
        """Names of alerts, with their hosts."""
        alerts = self.get("alerts")["alerts"]
        return {(a["labels"]["alertname"], a["labels"].get("host", "")) for a in alerts if a["state"] == "firing"}


def show_rates(prometheus: Prometheus) -> None:
    port = f'switch="dvs-1-set", port="{PORT_OF_WEB_0}"'
    rates = f"sum by (host) (rate(ryn_port_transmit_packets_total{{{port}}}[{WINDOW}s]))"
    # A rate is right when its whole window has samples.
    oldest = f"count by (host) (ryn_port_macs{{{port}}} offset {WINDOW}s)"
    wait_for("samples of the whole window", lambda: len(prometheus.query(oldest)) == len(RATES))
    seen = prometheus.query(rates)
    for name, described in RATES.items():
        wanted = described + TO_UPLINKS
        off = abs(seen[name] / wanted - 1)
        say(f"  {name}: web-0 sends {seen[name]:8.1f} packets a second; described: {wanted}; off by {off:.2%}")
        if off > 0.02:
            raise Failed(f"{name}: the rate in Prometheus is not that of the description")


def show_event(prometheus: Prometheus, host: Host) -> None:
    if prometheus.firing():
        raise Failed(f"alerts before anything happened: {prometheus.firing()}")
    host.sim("event", "uplink-down", "lunic1")
    wait_for("RynLinkDown", lambda: ("RynLinkDown", host.name) in prometheus.firing())
    say(f"  RynLinkDown fires for {host.name}")
    host.sim("event", "end", "1")
    wait_for("RynLinkDown to end", lambda: ("RynLinkDown", host.name) not in prometheus.firing())
    say("  and ends when the link is back")


def show_setting(prometheus: Prometheus, host: Host) -> None:
    before = prometheus.query("ryn_switch_burst_size")[host.name]
    host.sim("set", "switches.dvs-1.burst=64")
    wait_for("the new burst size", lambda: prometheus.query("ryn_switch_burst_size")[host.name] == 64)
    say(f"  ryn_switch_burst_size of {host.name}: {before:.0f}, then 64")


def show_loss(prometheus: Prometheus, host: Host) -> None:
    host.exporter.kill()
    host.exporter.wait()
    wait_for("the exporter to show as down", lambda: prometheus.query("up")[host.name] == 0)
    say(f"  up of {host.name}: 0")
    wait_for("RynDown", lambda: ("RynDown", host.name) in prometheus.firing())
    say(f"  RynDown fires for {host.name}")
    host.start()
    wait_for("the exporter to come back", lambda: prometheus.query("up")[host.name] == 1)
    wait_for("RynDown to end", lambda: ("RynDown", host.name) not in prometheus.firing())
    say(f"  up of {host.name}: 1 again, and the alert has ended")


def run(folder: Path, build: Path, keep: bool) -> None:
    hosts: list[Host] = []
    prometheus = None
    try:
        for seed, name in enumerate(RATES, 1):
            hosts.append(Host(name, seed, folder, build))
        say("Three simulated hosts with their exporters: " + ", ".join(f"{h.name} at {h.target}" for h in hosts))
        prometheus = Prometheus(hosts, folder)
        say(f"Prometheus at {prometheus.url}, one scrape a second")
        say(f"Rates over {WINDOW} seconds are those of the descriptions, within 2 %:")
        show_rates(prometheus)
        say("A link goes down:")
        show_event(prometheus, hosts[0])
        say("A setting is changed on a host:")
        show_setting(prometheus, hosts[1])
        say("An exporter is killed:")
        show_loss(prometheus, hosts[2])
        say("All of it was seen.")
        if keep:
            print(f"Look at {prometheus.url}/alerts; Ctrl-C ends everything.")
            with contextlib.suppress(KeyboardInterrupt):
                signal.pause()
    finally:
        for process in [host.exporter for host in hosts] + ([prometheus.process] if prometheus else []):
            process.terminate()
        for process in [host.exporter for host in hosts] + ([prometheus.process] if prometheus else []):
            try:
                process.wait(10)
            except subprocess.TimeoutExpired:
                process.kill()


def main() -> int:
    parser = argparse.ArgumentParser(description=(__doc__ or "").partition("\n")[0])
    parser.add_argument("--build", type=Path, default=ROOT / "build", help="build folder (build)")
    parser.add_argument("--keep", action="store_true", help="leave everything running until Ctrl-C")
    arguments = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="ryn-fleet-") as folder:
        try:
            run(Path(folder), arguments.build.resolve(), arguments.keep)
        except Failed as failure:
            print(f"fleet: {failure}", file=sys.stderr)
            return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
