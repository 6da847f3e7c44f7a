#!/usr/bin/python3
"""Prints the flows of a host that match, one a line, or as JSON lines with --json.

    flows.py --dst 10.0.0.0/24 --action DROP

A table is read page by page while the datapath goes on working: flows that come and go between two pages can be missed
or, rarely, be seen twice.
"""

from __future__ import annotations

import argparse
import itertools
import json
import sys
from typing import Union

import ryn


def line(flow: ryn.Flow) -> str:
    packets = "-" if flow.packets is None else flow.packets
    return (
        f"switch {flow.switch}, core {flow.core:2}  {packets:>8} packets  {flow.src} -> {flow.dst},"
        f" protocol {flow.protocol}, ports {flow.sport} -> {flow.dport}, VLAN {flow.vlan}  {flow.actions}"
    )


def document(flow: ryn.Flow) -> str:
    fields = {name: getattr(flow, name) for name in flow._fields}
    return json.dumps(fields, default=str)


def main() -> None:
    parser = argparse.ArgumentParser(description="Print the flows of the host that match.")
    parser.add_argument("--switch", help="of this switch alone: an alias, a name or a number")
    parser.add_argument("--core", type=int, action="append", dest="cores", help="of this core alone; can be repeated")
    parser.add_argument("--src", help="from this address or network")
    parser.add_argument("--dst", help="to this address or network")
    parser.add_argument("--dport", type=int, help="to this port")
    parser.add_argument("--protocol", help="tcp, udp, icmp or icmp6")
    parser.add_argument("--action", help="with this action, such as DROP")
    parser.add_argument("--limit", type=int, metavar="N", help="end after so many flows")
    parser.add_argument("--json", action="store_true", help="print a JSON document per line and flow")
    options = parser.parse_args()

    host = ryn.Host()
    place: Union[ryn.Host, ryn.Switch] = host if options.switch is None else host.switch(options.switch)
    flows = place.flows(
        cores=options.cores,
        src=options.src,
        dst=options.dst,
        dport=options.dport,
        protocol=options.protocol,
        action=options.action,
    )
    for flow in itertools.islice(flows, options.limit):
        print(document(flow) if options.json else line(flow))
    if flows.unlisted:
        print(f"flows: {flows.unlisted} flows of cores above 31 are not listed", file=sys.stderr)


if __name__ == "__main__":
    try:
        main()
    except (ryn.Error, ValueError) as error:
        sys.exit(f"flows: {error}")
    except BrokenPipeError:  # such as: flows.py | head
        sys.stderr.close()
        sys.exit(1)
