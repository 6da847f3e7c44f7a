#!/usr/bin/python3
"""Pages through the whole flow table of one core and writes it as text, or as JSON lines with --json.

A table is read page by page while the datapath goes on working: flows that come and go between two pages can be missed
or, rarely, be seen twice. How far it is shows on standard error if that is a terminal.
"""

import argparse
import json
import sys

import _libryn


def pages(switch, core, start, flag):
    """The pages of the table from an index on; the last item is None if a page could not be read."""
    index = start
    while True:
        page = _libryn.DumpFlowTable(switch, core, index, flag)
        if page is None:
            yield None
            return
        if not page["list"]:
            return
        yield page
        index += len(page["list"])


def number_of_flows(switch, core):
    """How long the table is about to be, for the progress line only; 0 if nobody knows."""
    stats = _libryn.GetFlowStats(switch, (core,), 0)
    return sum(entry["numFlows"] for entry in stats or [] if entry["lcoreID"] == core)


def main():
    parser = argparse.ArgumentParser(description="Print the whole flow table of one core.")
    parser.add_argument("switch", type=int, help="the switch's number, as ListSwitches has it")
    parser.add_argument("core", type=int, help="the core's number, as ListLCoreIDs has it")
    parser.add_argument("--start", type=int, default=0, metavar="N", help="begin at this index")
    parser.add_argument("--limit", type=int, metavar="N", help="end after so many flows")
    parser.add_argument("--flag", type=int, default=0, help="handed to the datapath as it is")
    parser.add_argument("--json", action="store_true", help="print a JSON document per line and flow")
    options = parser.parse_args()

    show_progress = sys.stderr.isatty() and not sys.stdout.isatty()
    expected = number_of_flows(options.switch, options.core) if show_progress else 0
    seen = 0
    failed = False
    for page in pages(options.switch, options.core, options.start, options.flag):
        if page is None:
            failed = True
            break
        flows = page["list"]
        if options.limit is not None:
            flows = flows[: options.limit - seen]
        for flow in flows:
            if options.json:
                print(json.dumps(flow))
            else:
                print(flow["key"].rstrip(), "    " + flow["actions"], "    " + flow["stats"], sep="\n")
        seen += len(flows)
        if show_progress:
            print(f"\r{seen} flows" + (f" of about {expected}" if expected else ""), end="", file=sys.stderr)
        if options.limit is not None and seen >= options.limit:
            break
    if show_progress:
        print(file=sys.stderr)
    return 1 if failed else 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except BrokenPipeError:  # such as: flows.py 0 1 | head
        sys.stderr.close()
        sys.exit(1)
