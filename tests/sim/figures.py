"""Everything that is counted on a host, and how it must add up."""

import itertools

import simulated

FLOW_COUNTERS = ("hits", "miss", "fpoHits", "localHits", "keyInsertFailCount")


class Figures:
    """Everything that is counted on a host, read at one moment (the clock stands)."""

    def __init__(self, host: simulated.Host) -> None:
        self.switches = [switch["swID"] for switch in host.ListSwitches()]
        lists = host.many([["ListPorts", sw] for sw in self.switches])
        self.kind = {
            (sw, port["rynPortID"]): port["clientType"] for sw, ports in zip(self.switches, lists) for port in ports
        }
        self.queues = {
            (sw, port["rynPortID"]): (port["numRxQ"], port["numTxQ"])
            for sw, ports in zip(self.switches, lists)
            for port in ports
        }
        keys = list(self.kind)
        self.ports = dict(zip(keys, host.many([["GetPortStats", *key] for key in keys])))
        self.uplink_keys = [key for key in keys if self.kind[key] == "UPLINK"]
        self.uplinks = {
            key: dict(stats["uplinkStats"])
            for key, stats in zip(self.uplink_keys, host.many([["GetUplinkStats", *key] for key in self.uplink_keys]))
        }
        flows = host.many([["GetFlowStats", sw, [], 0] for sw in self.switches])
        self.flows = {
            (sw, record["lcoreID"]): record for sw, records in zip(self.switches, flows) for record in records
        }
        self.host = host

    def counters(self) -> dict:
        """Every counter by a name of its own."""
        counters: dict = {(key, name): value for key, stats in self.ports.items() for name, value in stats.items()}
        counters |= {
            (key, "uplink", name): value for key, stats in self.uplinks.items() for name, value in stats.items()
        }
        counters |= {(key, "flow", name): record[name] for key, record in self.flows.items() for name in FLOW_COUNTERS}
        return counters

    def queue_sums(self, key) -> dict:
        """The sums of an uplink's queues, receive and transmit queues together."""
        calls = [
            ["GetUplinkQueueStats", *key, kind, queue] for kind in (0, 1) for queue in range(self.queues[key][kind])
        ]
        sums = dict.fromkeys(self.uplinks[key], 0)
        for queue in self.host.many(calls):
            for name, value in queue:
                sums[name] += value
        return sums

    def unicast(self, sw: int, way: str) -> int:
        """Unicast packets that entered the switch ("in") or left it ("out"), those lost on the way out included."""
        total = 0
        for (own, port), stats in self.ports.items():
            if own != sw:
                continue
            side = "tx" if (self.kind[own, port] == "UPLINK") == (way == "out") else "rx"
            for path in (side, "sp" + side.capitalize()):
                total += stats[path + "Pkts"] - stats[path + "McastPkts"] - stats[path + "BcastPkts"]
        return total


def check_sums(figures: Figures) -> None:
    for key in figures.uplink_keys:
        uplink, port = figures.uplinks[key], figures.ports[key]
        assert figures.queue_sums(key) == uplink
        for name in ("rxPkts", "txPkts", "rxBytes", "txBytes"):
            assert uplink[name] == port[name] + port["sp" + name[0].upper() + name[1:]], (key, name)
        assert uplink["rxErrors"] == uplink["rxCRCErrors"] + uplink["rxLengthErrors"] == port["rxErrors"]
        assert uplink["rxDrops"] == uplink["rxFifoErrors"] + uplink["rxMissErrors"] == port["rxDrops"]
        assert uplink["txDrops"] == port["txDrops"] + port["spTxDrops"]
    for record in figures.flows.values():
        assert record["hits"] == (record["fpoHits"] + record["localHits"]) % 2**32


def flow_table(host: simulated.Host, sw: int, lcore: int) -> list[dict]:
    """The whole table, page by page."""
    table: list[dict] = []
    pages = itertools.count()
    while True:
        page = host.DumpFlowTable(sw, lcore, len(table), 0)
        assert page is not None and next(pages) < 3000
        assert page["startIndex"] == len(table) + len(page["list"])
        if not page["list"]:
            return table
        table += page["list"]
