#!/usr/bin/python3
"""Prints the switches of the host and their ports: as tables, or as one JSON document with --json.

A method of _libryn that fails prints a line on standard error and returns None. That line is the only place where the
reason stands, so a script leaves standard error alone, checks for None, and ends with a status of its own.
"""

import argparse
import itertools
import json
import sys

import _libryn

PORT_COLUMNS = ("rynPortID", "portID", "clientType", "hwAddr", "numMACs", "numTxQ", "numRxQ", "txQLM", "rxQLM")


def read_inventory():
    """The switches, each with its ports under "ports"; None if something could not be read."""
    switches = _libryn.ListSwitches()
    if switches is None:
        return None
    for switch in switches:
        switch["ports"] = _libryn.ListPorts(switch["swID"])
        if switch["ports"] is None:
            return None
    return switches


def core_numbers(bitmap):
    """Bit n of the bitmap stands for core n. It comes as a signed number, so core 63 makes it negative."""
    return [core for core in range(64) if bitmap >> core & 1]


def ranges(numbers):
    """Ascending numbers, neighbours together: 0-3,8-11."""
    spans = []
    for number in numbers:
        if spans and spans[-1][1] == number - 1:
            spans[-1][1] = number
        else:
            spans.append([number, number])
    return ",".join(f"{first}-{last}" if last > first else str(first) for first, last in spans)


def text_of(value):
    """A list as its items, with three or more equal ones in a row as 5*3."""
    if not isinstance(value, list):
        return str(value)
    runs = [(item, len(list(run))) for item, run in itertools.groupby(value)]
    return ",".join(f"{item}*{count}" if count > 2 else ",".join([str(item)] * count) for item, count in runs)


def print_table(columns, rows):
    lines = [columns, *([text_of(row[column]) for column in columns] for row in rows)]
    widths = [max(map(len, column)) for column in zip(*lines)]
    for line in lines:
        print("  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip())


def print_inventory(switches):
    if not switches:
        print("no switches")
    for switch in switches:
        print(
            f"Switch {switch['swID']}, {switch['name']}: {switch['numPorts']} of {switch['maxPorts']} ports"
            f" ({switch['numActivePorts']} active), MTU {switch['mtu']}, cores {ranges(core_numbers(switch['lcores']))}"
        )
        if switch["ports"]:
            print_table(PORT_COLUMNS, switch["ports"])
        print()


def main():
    parser = argparse.ArgumentParser(description="Print the switches of the host and their ports.")
    parser.add_argument("--json", action="store_true", help="print one JSON document")
    options = parser.parse_args()

    switches = read_inventory()
    if switches is None:
        return 1
    if options.json:
        print(json.dumps(switches, indent=2))
    else:
        print_inventory(switches)
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except BrokenPipeError:  # such as: inventory.py | head
        sys.stderr.close()
        sys.exit(1)
