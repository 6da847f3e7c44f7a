#!/usr/bin/python3
"""A tour of a simulated host: what is there, what flows, what the balancer does, what a failure looks like.

Run it on a host of its own, since it changes settings and the clock:

    ryn-sim init --host tour
    ryn-sim run --host tour -- examples/tour.py

With --still the host's clock is stepped instead of waited for, so that a new host gives the same figures each time.
"""

from __future__ import annotations

import argparse
import json
import os
import pathlib
import subprocess
import sys
import time
from collections import Counter
from typing import Dict, List, Set

import ryn

TOOL = os.environ.get("RYN_SIM", str(pathlib.Path(__file__).resolve().parents[1] / "simhost" / "tool" / "ryn-sim"))
WIDTH = 100


def ryn_sim(*arguments: str) -> str:
    """The simulated host's own tool, for what no script can do on a real one: moving its clock, making calls fail."""
    sys.stdout.flush()
    return subprocess.run([TOOL, *arguments], check=True, stdout=subprocess.PIPE, text=True).stdout


def stand_still() -> None:
    """Stops the host's clock at the next full minute, so that it does not matter when the host was made."""
    ryn_sim("clock", "freeze")
    passed = json.loads(ryn_sim("clock", "--json"))["time"] % 60
    ryn_sim("clock", "step", f"{60 - passed:.3f}s")


def headline(text: str) -> None:
    print(f"\n-- {text} ".ljust(WIDTH, "-"))


def short(number: float) -> str:
    for suffix, scale in (("G", 1e9), ("M", 1e6), ("k", 1e3)):
        if number >= scale:
            return f"{number / scale:.1f}{suffix}"
    return f"{number:.0f}"


def inventory(host: ryn.Host) -> None:
    headline("Inventory")
    for switch in host.switches():
        if switch.number is None:
            continue  # only the configuration knows it
        ports = switch.ports()
        counted = ", ".join(f"{count} {kind}" for kind, count in Counter(port.kind for port in ports).items())
        print(f"switch {switch.number}  {switch.name:<12} MTU {switch.mtu:<5} {len(ports):3} ports: {counted}")
    print("cores    ", ", ".join(map(str, host.cores)))
    print("devices  ", ", ".join(f"{device.name} (node {device.affinity})" for device in host.devices()))


def rates(host: ryn.Host, still: bool, seconds: int = 2) -> None:
    headline(f"Rates over {seconds} seconds: the busiest ports")
    earlier = host.counters()
    if still:
        ryn_sim("clock", "step", f"{seconds}s")
    else:
        time.sleep(seconds)
    later = host.counters()
    if still:  # by the clock of the host, which was stepped
        later.clock = earlier.clock + seconds
    busiest = sorted(later.rates(earlier).items(), key=lambda pair: -(pair[1].tx_packets + pair[1].rx_packets))
    print("port      kind      sent pkt/s     bit/s   received pkt/s     bit/s   slow path pkt/s  drops/s")
    for port, rate in busiest[:8]:
        slow = [reading[port].slow.tx_packets + reading[port].slow.rx_packets for reading in (earlier, later)]
        print(
            f"{port!s:<8}  {port.kind:<8}  {short(rate.tx_packets):>10}  {short(8 * rate.tx_bytes):>8}"
            f"   {short(rate.rx_packets):>14}  {short(8 * rate.rx_bytes):>8}"
            f"   {short((slow[1] - slow[0]) / seconds):>15}  {short(rate.tx_drops + rate.rx_drops):>7}"
        )


def busiest_flows(host: ryn.Host) -> None:
    headline("The busiest flows")
    flows = sorted(host.flows(), key=lambda flow: -(flow.packets or 0))
    print(f"{len(flows)} flows in all. The busiest between any two addresses, by packets since the last flush:")
    shown: Set[object] = set()
    for flow in flows:
        if len(shown) == 6 or (flow.src, flow.dst) in shown:
            continue
        shown.add((flow.src, flow.dst))
        address = f"{flow.src} -> {flow.dst}, protocol {flow.protocol}, ports {flow.sport} -> {flow.dport}"
        print(f"{flow.packets:10}  switch {flow.switch}, core {flow.core:2}  {address}"[:WIDTH])
        print(f"            {flow.actions}"[:WIDTH])


def print_usage(switch: ryn.Switch) -> None:
    """The usage of each core in percent, as the balancer saw it last."""
    cores = switch.balancer.port_stats().cores
    for core in switch.cores or ():
        print(f"  core {core:2} {cores[core].usage:4} %  {'#' * (cores[core].usage * 60 // 100)}")


def placement(switch: ryn.Switch) -> Dict[int, Set[int]]:
    return {port.number: {*port.tx_cores, *port.rx_cores} for port in switch.ports()}


def moves_in_a_minute(switch: ryn.Switch) -> None:
    before = placement(switch)
    ryn_sim("clock", "warp", "1m")
    after = placement(switch)
    moved = [port for port in before if before[port] != after[port]]
    if not moved:
        print("  in the next minute: no port is moved")
    for port in moved:
        print(f"  in the next minute: port {port}: cores {sorted(before[port])} -> {sorted(after[port])}")


def balancer(host: ryn.Host) -> None:
    switch = host.switch(0)
    headline(f"The load balancer, on {switch}")
    core = (switch.cores or (0,))[0]
    busy: List[ryn.Port] = [port for port in switch.ports() if port.kind == ryn.Kind.VNIC and port.tx_cores][:14]
    print("Nobody may move anything: the weights of migration are set high.")
    print(f"Ports {busy[0].number} to {busy[-1].number} go to core {core}.")
    host.balancer_weights = (None, 1000000, None, 1000000, None, None, None, None)
    for port in busy:
        port.migrate(core, core, 0)
    moves_in_a_minute(switch)
    print_usage(switch)
    host.reset_balancer_weights()
    print(f"Back to the default weights (cross_numa_migration {host.balancer_weights.cross_numa_migration}):")
    moves_in_a_minute(switch)
    print_usage(switch)


def failure(host: ryn.Host) -> None:
    headline("A failure")
    print("ryn-sim fault add Ryn_Get_Port_Stats_Slowpath --status 0xbad0001 --times 1")
    ryn_sim("fault", "add", "Ryn_Get_Port_Stats_Slowpath", "--status", "0xbad0001", "--times", "1")
    print('>>> host.port("dvs-1/2").counters()')
    try:
        host.port("dvs-1/2").counters()
    except ryn.PlatformError as error:
        print(f"ryn.{type(error).__name__}: {error}")
    print("ryn-sim log")
    (line,) = json.loads(ryn_sim("log", "-n", "1", "--json"))
    print(f"    {line['operation']}({line['arguments']}): {line['what']}")
    ryn_sim("fault", "clear")


def main() -> int:
    parser = argparse.ArgumentParser(description="A tour of a simulated host.")
    parser.add_argument("--still", action="store_true", help="step the clock instead of waiting for it")
    still = parser.parse_args().still
    if "RYN_SIM_STATE" not in os.environ:
        print("the tour changes the host: run it on a simulated one, with ryn-sim run", file=sys.stderr)
        return 1
    print("This host is simulated: what follows is computed from a description, not measured on hardware.")
    try:
        host = ryn.Host()
        if still:
            stand_still()
        inventory(host)
        rates(host, still)
        busiest_flows(host)
        balancer(host)
        failure(host)
    except (ryn.Error, OSError, subprocess.CalledProcessError) as error:
        print(f"the tour ends here: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
