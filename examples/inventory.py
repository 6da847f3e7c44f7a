#!/usr/bin/python3
"""Prints the switches of the host and their ports: as tables, or as one JSON document with --json."""

from __future__ import annotations

import argparse
import itertools
import json
import sys
from typing import Iterable, List, Sequence

import ryn

COLUMNS = ("port", "dvport", "kind", "mac", "mac_count", "tx_cores", "rx_cores")


def row(port: ryn.Port) -> List[object]:
    return [port.number, port.dvport, port.kind, port.mac, port.mac_count, runs(port.tx_cores), runs(port.rx_cores)]


def runs(numbers: Sequence[int]) -> str:
    """Numbers in their order, with three or more equal ones in a row as 5*3."""
    groups = [(number, len(list(group))) for number, group in itertools.groupby(numbers)]
    return ",".join(f"{number}*{count}" if count > 2 else ",".join([str(number)] * count) for number, count in groups)


def ranges(numbers: Iterable[int]) -> str:
    """Ascending numbers, neighbours together: 0-3,8-11."""
    spans: List[List[int]] = []
    for number in numbers:
        if spans and spans[-1][1] == number - 1:
            spans[-1][1] = number
        else:
            spans.append([number, number])
    return ",".join(f"{first}-{last}" if last > first else str(first) for first, last in spans)


def print_table(lines: List[List[str]]) -> None:
    widths = [max(map(len, column)) for column in zip(*lines)]
    for line in lines:
        print("  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip())


def print_inventory(switches: List[ryn.Switch]) -> None:
    if not switches:
        print("no switches")
    for switch in switches:
        ports = switch.ports()
        print(
            f"Switch {switch.number}, {switch}: {len(ports)} of {switch.max_ports} ports"
            f" ({switch.active_ports} active), MTU {switch.mtu}, cores {ranges(switch.cores or ())}"
        )
        if ports:
            print_table([list(COLUMNS), *([str(cell) for cell in row(port)] for port in ports)])
        print()


def document(switches: List[ryn.Switch]) -> List[object]:
    return [
        {
            "switch": str(switch),
            "number": switch.number,
            "mtu": switch.mtu,
            "cores": switch.cores,
            "ports": [
                {
                    "port": port.number,
                    "dvport": port.dvport,
                    "kind": str(port.kind),
                    "mac": str(port.mac),
                    "mac_count": port.mac_count,
                    "tx_cores": port.tx_cores,
                    "rx_cores": port.rx_cores,
                }
                for port in switch.ports()
            ],
        }
        for switch in switches
    ]


def main() -> None:
    parser = argparse.ArgumentParser(description="Print the switches of the host and their ports.")
    parser.add_argument("--json", action="store_true", help="print one JSON document")
    options = parser.parse_args()

    # Those that only the configuration knows have no number.
    switches = [switch for switch in ryn.Host().switches() if switch.number is not None]
    if options.json:
        print(json.dumps(document(switches), indent=2))
    else:
        print_inventory(switches)


if __name__ == "__main__":
    try:
        main()
    except ryn.Error as error:
        sys.exit(f"inventory: {error}")
    except BrokenPipeError:  # such as: inventory.py | head
        sys.stderr.close()
        sys.exit(1)
