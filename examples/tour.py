#!/usr/bin/python3
"""A tour of a simulated host: what is there, what flows, what the balancer does, what a failure looks like.

Run it on a host of its own, since it changes settings and the clock:

    ryn-sim init --host tour
    ryn-sim run --host tour -- examples/tour.py

With --still the host's clock is stepped instead of waited for, so that a new host gives the same figures each time.
"""

import argparse
import json
import os
import pathlib
import subprocess
import sys
import time

import _libryn

TOOL = os.environ.get("RYN_SIM", str(pathlib.Path(__file__).resolve().parents[1] / "simhost" / "tool" / "ryn-sim"))
WIDTH = 100


class Stopped(Exception):
    """A method answered None; its own message stands on standard error."""


def ask(method, *arguments):
    result = method(*arguments)
    if result is None:
        raise Stopped(f"{method.__name__} has failed")
    return result


def ryn_sim(*arguments):
    """The simulated host's own tool, for what no script can do on a real one: moving its clock, making calls fail."""
    sys.stdout.flush()
    return subprocess.run([TOOL, *arguments], check=True, stdout=subprocess.PIPE, text=True).stdout


def stand_still():
    """Stops the host's clock at the next full minute, so that it does not matter when the host was made."""
    ryn_sim("clock", "freeze")
    passed = json.loads(ryn_sim("clock", "--json"))["time"] % 60
    ryn_sim("clock", "step", f"{60 - passed:.3f}s")


def headline(text):
    print(f"\n-- {text} ".ljust(WIDTH, "-"))


def short(number):
    for suffix, scale in (("G", 1e9), ("M", 1e6), ("k", 1e3)):
        if number >= scale:
            return f"{number / scale:.1f}{suffix}"
    return f"{number:.0f}"


def inventory():
    headline("Inventory")
    for switch in ask(_libryn.ListSwitches):
        ports = ask(_libryn.ListPorts, switch["swID"])
        kinds = {}
        for port in ports:
            kinds[port["clientType"]] = kinds.get(port["clientType"], 0) + 1
        counted = ", ".join(f"{number} {kind}" for kind, number in kinds.items())
        print(f"switch {switch['swID']}  {switch['name']:<12} MTU {switch['mtu']:<5} {len(ports):3} ports: {counted}")
    print("cores    ", ", ".join(map(str, ask(_libryn.ListLCoreIDs, 0))))
    print(
        "devices  ",
        ", ".join(f"{device['devname']} (node {device['affinity']})" for device in ask(_libryn.ListDevAffinity)),
    )


def rates(still, seconds=2):
    headline(f"Rates over {seconds} seconds: the busiest ports")
    ports = [
        (switch["swID"], port)
        for switch in ask(_libryn.ListSwitches)
        for port in ask(_libryn.ListPorts, switch["swID"])
    ]

    def read():
        return [ask(_libryn.GetPortStats, number, port["rynPortID"]) for number, port in ports], time.monotonic()

    before, begun = read()
    if still:
        ryn_sim("clock", "step", f"{seconds}s")
    else:
        time.sleep(seconds)
    after, ended = read()
    passed = seconds if still else ended - begun
    rows = []
    for (number, port), old, new in zip(ports, before, after):
        pace = {key: (new[key] - old[key]) / passed for key in new}
        rows.append((pace["txPkts"] + pace["rxPkts"], number, port, pace))
    rows.sort(key=lambda row: -row[0])
    print("switch  port  kind      sent pkt/s     bit/s   received pkt/s     bit/s   slow path pkt/s  drops/s")
    for _, number, port, pace in rows[:8]:
        print(
            f"{number:6}  {port['rynPortID']:4}  {port['clientType']:<8}  {short(pace['txPkts']):>10}"
            f"  {short(8 * pace['txBytes']):>8}   {short(pace['rxPkts']):>14}  {short(8 * pace['rxBytes']):>8}"
            f"   {short(pace['spTxPkts'] + pace['spRxPkts']):>15}  {short(pace['txDrops'] + pace['rxDrops']):>7}"
        )


def busiest_flows():
    headline("The busiest flows")
    found = []
    for switch in ask(_libryn.ListSwitches):
        for core in ask(_libryn.ListLCoreIDs, switch["swID"]):
            start = 0
            while core < 32:
                page = ask(_libryn.DumpFlowTable, switch["swID"], core, start, 0)
                if not page["list"]:
                    break
                start += len(page["list"])
                for flow in page["list"]:
                    if flow["stats"].startswith("pktsSinceLastFlush:"):
                        packets = int(flow["stats"].split()[0].partition(":")[2])
                        found.append((packets, switch["swID"], core, flow))
    found.sort(key=lambda row: -row[0])
    print(f"{len(found)} flows in all. The busiest between any two addresses, by packets since the last flush:")
    shown = set()
    for packets, number, core, flow in found:
        fields = flow["key"].split()
        if len(shown) == 6 or (fields[4], fields[5]) in shown:
            continue
        shown.add((fields[4], fields[5]))
        address = f"{fields[4]} -> {fields[5]}, protocol {fields[6]}, ports {fields[8]} -> {fields[9]}"
        print(f"{packets:10}  switch {number}, core {core:2}  {address}"[:WIDTH])
        # What follows the header of the line are the actions.
        actions = flow["actions"].partition("len:")[2].partition("; ")[2].rstrip()
        if len(actions) > WIDTH - 12:
            actions = actions[: WIDTH - 16].rpartition("; ")[0] + "; ..."
        print("            " + actions)


def core_usage(number):
    """The usage of each core in percent, as the balancer saw it last."""
    cores = ask(_libryn.DumpLBPortStats, number, 0, 0)[5]
    return {core: cores[core][0] for core in ask(_libryn.ListLCoreIDs, number)}


def print_usage(number):
    for core, usage in core_usage(number).items():
        print(f"  core {core:2} {usage:4} %  {'#' * (usage * 60 // 100)}")


def placement(number):
    return {port["rynPortID"]: set(port["txQLM"] + port["rxQLM"]) for port in ask(_libryn.ListPorts, number)}


def moves_in_a_minute(number):
    before = placement(number)
    ryn_sim("clock", "warp", "1m")
    after = placement(number)
    moved = [port for port in before if before[port] != after[port]]
    if not moved:
        print("  in the next minute: no port is moved")
    for port in moved:
        print(f"  in the next minute: port {port}: cores {sorted(before[port])} -> {sorted(after[port])}")


def balancer(number=0):
    headline(f"The load balancer, on switch {number}")
    cores = ask(_libryn.ListLCoreIDs, number)
    busy = [
        port["rynPortID"] for port in ask(_libryn.ListPorts, number) if port["clientType"] == "VNIC" and port["numTxQ"]
    ]
    print("Nobody may move anything: the weights of migration are set high.")
    print(f"Ports {busy[0]} to {busy[13]} go to core {cores[0]}.")
    _libryn.SetLBWeights(-1, 1000000, -1, 1000000, -1, -1, -1, -1)
    for port in busy[:14]:
        _libryn.MigratePort(number, port, cores[0], cores[0], 0)
    moves_in_a_minute(number)
    print_usage(number)
    _libryn.ResetLBWeights()
    weights = {entry["weightName"]: entry["weight"] for entry in ask(_libryn.GetLBWeights)}
    print(f"Back to the default weights (Cross-NUMA Migration Weight {weights['Cross-NUMA Migration Weight']}):")
    moves_in_a_minute(number)
    print_usage(number)


def failure():
    headline("A failure")
    print("ryn-sim fault add Ryn_Get_Port_Stats_Slowpath --status 0xbad0001 --times 1")
    ryn_sim("fault", "add", "Ryn_Get_Port_Stats_Slowpath", "--status", "0xbad0001", "--times", "1")
    print(">>> _libryn.GetPortStats(0, 2)      # its message goes to standard error:")
    sys.stdout.flush()
    result = _libryn.GetPortStats(0, 2)
    print(f"{result!r}")
    print("ryn-sim log")
    (line,) = json.loads(ryn_sim("log", "-n", "1", "--json"))
    print(f"    {line['operation']}({line['arguments']}): {line['what']}")
    ryn_sim("fault", "clear")


def main():
    parser = argparse.ArgumentParser(description="A tour of a simulated host.")
    parser.add_argument("--still", action="store_true", help="step the clock instead of waiting for it")
    still = parser.parse_args().still
    if "RYN_SIM_STATE" not in os.environ:
        print("the tour changes the host: run it on a simulated one, with ryn-sim run", file=sys.stderr)
        return 1
    print("This host is simulated: what follows is computed from a description, not measured on hardware.")
    try:
        if still:
            stand_still()
        inventory()
        rates(still)
        busiest_flows()
        balancer()
        failure()
    except (Stopped, OSError, subprocess.CalledProcessError) as error:
        print(f"the tour ends here: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
