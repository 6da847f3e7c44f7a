"""Turns a store back into a description, and a description into YAML."""

from __future__ import annotations

import ipaddress
import struct
from fractions import Fraction

from . import units, values, words
from .compile import conversation_defaults, default_uplinks, implied_properties

_STORED_SHAPES = {words.STORED_FPO: 4, words.STORED_BURST: 8, words.STORED_TEAMING: 5, words.STORED_BALANCER: 24}


def _setting(number: int) -> bool | int:
    return bool(number) if number in (0, 1) else number


def _duration(ms: int) -> str:
    return units.duration_text(ms * 10**6)


def _share(number: int, scale: int) -> int | float:
    exact = Fraction(number, scale)
    return int(exact) if exact.denominator == 1 else float(exact)


class _Entry(dict):
    """A mapping that leaves out what is as it would be anyway."""

    def put(self, key: str, value, default=None, shown=None) -> None:
        if value != default:
            self[key] = value if shown is None else shown(value)


def describe(store, every_port: bool = False) -> dict:
    """The description of the host as it stands: compiled again, it gives the same rows (but for counts and history).

    every_port: uplinks stand among the ports even if their switch's list of names says all.
    """
    with store.reading():
        return _Describer(store, every_port).description


class _Describer:
    def __init__(self, store, every_port: bool):
        self._store = store
        self._every_port = every_port
        rows = store.rows
        self._switches = {
            row["sw"]: dict(row) for row in rows("SELECT sw.*, alias, class FROM sw JOIN dvs USING (switch_id)")
        }
        self._ports = {(row["sw"], row["port"]): dict(row) for row in rows("SELECT * FROM port ORDER BY sw, port")}
        self._uplinks: dict[int, list[int]] = {}
        for (sw, port), row in self._ports.items():
            if row["kind"] == words.UPLINK:
                self._uplinks.setdefault(sw, []).append(port)
        self._seed = 1
        self._name_ports()
        # Ring sizes that ports have, where they have the form that the module writes.
        known = {(self._switches[sw]["switch_id"], str(row["dvport"])) for (sw, _), row in self._ports.items()}
        self._rings = {
            (row["switch_id"], row["port"]): row["value"]
            for row in rows("SELECT * FROM prop WHERE scope = 'port' AND key = ?", words.UPLINK_RING)
            if (row["switch_id"], row["port"]) in known and len(row["value"]) == 8
        }
        host = self.description = _Entry()
        self._host(host)
        host["numa"] = self._numa()
        host.put("nics", {row["name"]: self._nic(row) for row in rows("SELECT * FROM nic ORDER BY name")}, {})
        host.put("switches", [self._switch(row) for row in self._dvs_in_order()], [])
        host.put(
            "ports",
            [self._port(row) for row in self._ports.values() if not (row["nic"] and row["sw"] in self._plain_uplinks)],
            [],
        )
        host.put(
            "traffic",
            [
                self._conversation(position, row)
                for position, row in enumerate(rows("SELECT * FROM conversation ORDER BY id"))
            ],
            [],
        )
        host.put("faults", [self._fault(row) for row in rows("SELECT * FROM fault ORDER BY id")], [])
        host.put("events", [self._event(row) for row in rows("SELECT * FROM event ORDER BY id")], [])

    def _name_ports(self) -> None:
        """What each port is called by others: its machine's or NIC's name where that is plain and its own."""
        counts: dict[str, int] = {}
        for row in self._ports.values():
            name = row["nic"] or row["client"]
            counts[name] = counts.get(name, 0) + 1
        self._names = {}
        for key, row in self._ports.items():
            name = row["nic"] or row["client"]
            plain = name and counts[name] == 1 and name != "uplink" and not set("*?[/") & set(name)
            self._names[key] = name if plain else f"{self._switches[key[0]]['alias']}/{key[1]}"

    def _host(self, host: _Entry) -> None:
        row = self._store.row("SELECT * FROM host")
        self._seed = row["seed"]
        host["host"] = row["name"]
        host.put("about", row["description"], "")
        host.put("seed", row["seed"], 1)
        host.put("flow_timeout", row["flow_timeout_s"], 10, lambda seconds: _duration(seconds * 1000))
        host.put("flow_floor", row["flow_floor_ms"], 0, _duration)
        host.put("fastslabs", row["fastslabs"], 0, _setting)
        row = self._store.row("SELECT * FROM clock")
        clock = _Entry()
        clock.put("uptime", row["base_host_ns"], 0, units.duration_text)
        clock.put("speed", row["speed_permille"], 1000, lambda number: _share(number, 1000))
        clock.put("frozen", row["mode"] == "freeze", False)
        host.put("clock", clock, {})
        balancer, weights, defaults = _Entry(), _Entry(), _Entry()
        balancer.put("period", self._store.row("SELECT period_ms FROM balancer")[0], 5000, _duration)
        for row in self._store.rows("SELECT * FROM weight ORDER BY position"):
            name = words.WEIGHTS[row["position"]]
            weights.put(name, row["value"], row["default_value"])
            defaults.put(name, row["default_value"], words.DEFAULT_WEIGHTS[row["position"]])
        balancer.put("weights", weights, {})
        balancer.put("default_weights", defaults, {})
        host.put("balancer", balancer, {})

    def _numa(self) -> list:
        nodes: dict[int, list] = {}
        for row in self._store.rows("SELECT * FROM lcore ORDER BY lcore"):
            nodes.setdefault(row["node"], []).append(row)
        result = []
        for node in sorted(nodes):
            entry = _Entry(lcores=[row["lcore"] for row in nodes[node]])
            entry.put("capacity", nodes[node][0]["packets_per_s"], 1000000, units.quantity_text)
            result.append(entry)
        return result

    def _nic(self, row) -> dict:
        entry = _Entry(numa=row["node"])
        entry.put("affinity", row["affinity"], row["node"])
        entry.put("link", row["link_mbps"], 25000, lambda mbps: units.quantity_text(mbps * 10**6))
        entry.put("driver_text", _setting(row["driver_text"]), True)
        entry.put("crc_ppm", row["crc_ppm"], 0)
        entry.put("drop_ppm", row["drop_ppm"], 0)
        entry.put("fpo", row["fpo_level"], 0, lambda level: words.name_of(words.FPO_LEVELS, level))
        limits = _Entry()
        for limit, default in zip(words.FPO_LIMITS, words.FPO_DEFAULTS[row["fpo_level"]]):
            limits.put(limit, values.unsigned(row[f"fpo_{limit}"]), default)
        entry.put("fpo_limits", limits, {})
        return entry

    def _dvs_in_order(self) -> list:
        """Switches of the datapath by their numbers, then the others by their aliases."""
        numbers = {row["switch_id"]: number for number, row in self._switches.items()}
        dvs = self._store.rows("SELECT * FROM dvs ORDER BY alias")
        # A switch whose uplinks are all as the list of their names would make them is written with that list.
        self._plain_uplinks = {
            sw
            for sw, uplinks in self._uplinks.items()
            if not self._every_port
            and uplinks == list(range(len(uplinks)))
            and all(set(self._port(self._ports[sw, port])) <= {"switch", "nic", "port"} for port in uplinks)
        }
        return sorted(dvs, key=lambda row: (numbers.get(row["switch_id"], 16), row["alias"]))

    def _switch(self, dvs) -> dict:
        row = next((row for row in self._switches.values() if row["switch_id"] == dvs["switch_id"]), None)
        entry = _Entry(alias=dvs["alias"], id=dvs["switch_id"])
        entry.put("class", dvs["class"], "vswitch")
        properties = {
            (prop["scope"], prop["port"], prop["key"]): prop["value"]
            for prop in self._store.rows(
                "SELECT * FROM prop WHERE switch_id = ? ORDER BY scope, port, key", dvs["switch_id"]
            )
        }
        if row:
            entry.put("name", row["name"], dvs["alias"])
            # The portset property follows the name; one that is there though it says the alias is written as such.
            if properties.get(("host", "", words.PORTSET)) == row["name"].encode() + b"\0":
                entry["name"] = row["name"]
            entry["number"] = row["sw"]
        else:
            entry["datapath"] = False
        marker = properties.get(("global", "", words.MARKER), b"")
        if marker[-1:] == b"\0" and values.to_text(marker) == f"text:{marker[:-1].decode(errors='replace')}":
            entry["marker"] = marker[:-1].decode()
        if row:
            self._datapath_switch(entry, row)
        self._stored(entry, properties)
        self._properties(entry, dvs, properties)
        if row:
            entry.put(
                "mirrors",
                [
                    self._mirror(row["sw"], mirror)
                    for mirror in self._store.rows("SELECT * FROM mirror WHERE sw = ? ORDER BY session", row["sw"])
                ],
                [],
            )
            entry.put(
                "mac_entries",
                [
                    self._mac_entry(found)
                    for found in self._store.rows(
                        "SELECT * FROM mac_entry WHERE sw = ? ORDER BY port, mac, vlan", row["sw"]
                    )
                ],
                [],
            )
        return entry

    def _datapath_switch(self, entry: _Entry, row: dict) -> None:
        entry.put("mtu", row["mtu"], 1500)
        entry.put("max_ports", row["max_ports"], 128)
        if row["sw"] in self._plain_uplinks:
            entry["uplinks"] = [self._ports[row["sw"], port]["nic"] for port in self._uplinks[row["sw"]]]
        for key, column, default in (
            ("lro", "lro", 1),
            ("flow_cache", "flow_cache", 1),
            ("panic_on_tx_hang", "panic_on_tx_hang", 0),
            ("uplink_mac_learn", "uplink_mac_learn", 1),
            ("numa_team", "numa_team", 0),
        ):
            entry.put(key, row[column], default, _setting)
        entry.put("mac_limit", row["mac_limit"], 65536)
        entry.put("burst", row["burst_size"], 32)
        balancer = _Entry()
        balancer.put("metric", row["lb_metric"], 1, lambda number: words.name_of(words.METRICS, number))
        for key, default in (("high", 60), ("low", 40), ("pause", 10), ("sensitivity", 5)):
            balancer.put(key, row[f"lb_{key}"], default)
        entry.put("balancer", balancer, {})
        entry.put("flows_cleared", row["flow_cleared_ms"], 0, _duration)
        entry.put("macs_cleared", row["mac_cleared_ms"], 0, _duration)

    @staticmethod
    def _stored(entry: _Entry, properties: dict) -> None:
        """The settings among the properties, where they have the form that the module writes."""
        stored = _Entry()
        for key, size in _STORED_SHAPES.items():
            raw = properties.get(("host", "", key))
            if raw is None or len(raw) != size or (key != words.STORED_FPO and raw[:4] != bytes(4)):
                continue
            if key == words.STORED_FPO:
                stored["fpo"] = struct.unpack("<I", raw)[0]
            elif key == words.STORED_BURST:
                stored["burst"] = struct.unpack_from("<I", raw, 4)[0]
            elif key == words.STORED_TEAMING:
                stored["numa_team"] = _setting(raw[4])
            else:
                metric, *numbers = struct.unpack_from("<5I", raw, 4)
                if metric in words.METRICS.values():
                    stored["balancer"] = {
                        "metric": words.name_of(words.METRICS, metric),
                        **dict(zip(("high", "low", "pause", "sensitivity"), numbers)),
                    }
        entry.put("stored", stored, {})

    def _properties(self, entry: _Entry, dvs, properties: dict) -> None:
        """What of the properties the switch's and the ports' own keys do not say already."""
        implied = implied_properties(entry)
        given: dict = {}
        for scope, port, key in sorted(set(implied) | set(properties)):
            raw = properties.get((scope, port, key))
            if raw == implied.get((scope, port, key)):
                continue
            if key == words.UPLINK_RING and (dvs["switch_id"], port) in self._rings:
                continue
            text = None if raw is None else values.to_text(raw)
            if scope == "port":
                given.setdefault("ports", {}).setdefault(port, {})[key] = text
            else:
                given.setdefault(scope, {})[key] = text
        entry.put("properties", given, {})

    def _mirror(self, sw: int, row) -> dict:
        entry = _Entry(session=row["session"])
        for role, key in (("in", "in"), ("out", "out"), ("dst", "to")):
            ports = [
                found["port"]
                for found in self._store.rows(
                    "SELECT port FROM mirror_port WHERE sw = ? AND session = ? AND role = ? ORDER BY port",
                    sw,
                    row["session"],
                    role,
                )
            ]
            entry.put(key, [self._names.get((sw, port), port) for port in ports], [])
        entry.put(
            "vlans",
            [
                found["vlan"]
                for found in self._store.rows(
                    "SELECT vlan FROM mirror_vlan WHERE sw = ? AND session = ? ORDER BY seq", sw, row["session"]
                )
            ],
            [],
        )
        entry.put("encap_vlan", row["encap_vlan"], 0)
        entry.put("snap_len", row["snap_len"], 0)
        entry.put("sampling_rate", row["sampling_rate"], 1)
        entry.put("flags", [word for word, bit in words.MIRROR_FLAGS.items() if row["flags"] & bit], [])
        return entry

    @staticmethod
    def _mac_entry(row) -> dict:
        entry = _Entry(port=row["port"], mac=units.mac_text(row["mac"]))
        entry.put("vlan", row["vlan"], 0)
        entry.put("deleted", not row["present"], False)
        entry.put("at", row["at_ms"], 0, _duration)
        return entry

    def _port(self, row: dict) -> dict:
        sw, number = row["sw"], row["port"]
        entry = _Entry(switch=self._switches[sw]["alias"])
        entry.put("vm", row["client"], "")
        entry.put("nic", row["nic"])
        entry["port"] = number
        entry.put("kind", row["kind"], words.UPLINK if row["nic"] else 1, lambda kind: words.name_of(words.KINDS, kind))
        entry.put("dvport", row["dvport"], values.dvport(sw, number))
        entry.put("active", bool(row["active"]), True)
        entry.put("mac", row["mac"], values.port_mac(self._seed, sw, number, row["nic"] is not None), units.mac_text)
        entry.put("macs_behind", row["macs_behind"], 0)
        entry.put("mac_limit", row["mac_limit"], 16384)
        queues = 4 if row["nic"] else 1
        if row["tx_queues"] == row["rx_queues"]:
            entry.put("queues", row["tx_queues"], queues)
        else:
            entry.put("tx_queues", row["tx_queues"], queues)
            entry.put("rx_queues", row["rx_queues"], queues)
        if row["filter_flags"] != 11:
            entry["filter"] = [word for word, bit in words.FILTERS.items() if row["filter_flags"] & bit]
            further = row["filter_flags"] & ~sum(words.FILTERS.values())
            entry["filter"] += [further] if further else []
        entry.put("ladrf", values.unsigned(row["ladrf"]), 0)
        entry.put("vlan", row["vlan"], 0)
        entry.put("vni", row["vni"], 0)
        entry.put("forged", row["forged_ok"], 0, _setting)
        entry.put("sample_rate", row["sample_rate"], 0)
        entry.put("lro", row["lro"], 1, _setting)
        self._teaming(entry, row)
        if row["tx_core"] == row["rx_core"]:
            entry.put("core", row["tx_core"], -1)
        else:
            entry.put("tx_core", row["tx_core"], -1)
            entry.put("rx_core", row["rx_core"], -1)
        entry.put("pinned", _setting(row["pinned"]), False)
        where = "WHERE sw = ? AND port = ? ORDER BY seq"
        entry.put(
            "multicast",
            [
                units.mac_text(found["mac"])
                for found in self._store.rows(f"SELECT mac FROM port_mcast {where}", sw, number)
            ],
            [],
        )
        entry.put(
            "vlans",
            [
                found["first"] if found["first"] == found["last"] else f"{found['first']}-{found['last']}"
                for found in self._store.rows(f"SELECT first, last FROM port_vlan_range {where}", sw, number)
            ],
            [],
        )
        rings = self._rings.get((self._switches[sw]["switch_id"], str(row["dvport"])))
        if rings:
            entry["rings"] = dict(zip(("tx", "rx"), struct.unpack("<II", rings)))
        entry.put("flows_cleared", row["flow_cleared_ms"], 0, _duration)
        entry.put("macs_cleared", row["mac_cleared_ms"], 0, _duration)
        return entry

    def _teaming(self, entry: _Entry, row: dict) -> None:
        sw = row["sw"]
        chosen = [
            found["uplink"]
            for found in self._store.rows(
                "SELECT uplink FROM port_uplink WHERE sw = ? AND port = ? ORDER BY seq", sw, row["port"]
            )
        ]
        usual = chosen == default_uplinks(row["kind"], self._uplinks.get(sw, []))
        if row["tx_type"] == 1 and usual:
            return
        entry["teaming"] = {"type": words.name_of(words.TX_TYPES, row["tx_type"])}
        if not usual:
            known = self._uplinks.get(sw, [])
            entry["teaming"]["uplinks"] = [self._ports[sw, port]["nic"] if port in known else port for port in chosen]

    def _conversation(self, position: int, row) -> dict:
        sw = row["sw"]
        source = self._ports[sw, row["src_port"]]
        target = self._ports[sw, row["dst_port"]] if row["dst_port"] is not None else None
        defaults = conversation_defaults(source, target, row["protocol"], position)
        entry = _Entry(
            {"from": self._names[sw, row["src_port"]], "to": self._names[sw, row["dst_port"]] if target else "uplink"}
        )
        pps = Fraction(row["milli_pps"], 1000)
        entry["pps"] = units.quantity_text(int(pps)) if pps.denominator == 1 else float(pps)
        if isinstance(entry["pps"], str) and entry["pps"][-1] in "GT":
            entry["pps"] = int(pps)
        entry.put("size", row["size"], 512)
        entry.put("reply", row["reply_permille"], 0, lambda number: _share(number, 1000))
        entry.put("reply_size", row["reply_size"], 66)
        entry.put("delivery", row["delivery"], "unicast")
        entry.put("proto", row["protocol"], 6, lambda number: words.name_of(words.PROTOCOLS, number))
        entry.put("sport", row["src_l4"], defaults["src_l4"])
        entry.put("dport", row["dst_l4"], defaults["dst_l4"])
        for key in ("src_ip", "dst_ip"):
            entry.put(key, row[key], defaults[key], lambda raw: str(ipaddress.ip_address(raw)))
        entry.put("dst_mac", row["dst_mac"], None, units.mac_text)
        entry.put("vlan", row["vlan"], defaults["vlan"])
        entry.put("vni", row["vni"], defaults["vni"])
        entry.put("flows", row["flows"], 1)
        entry.put("churn_ppm", row["churn_ppm"], 0)
        entry.put("slow", row["slow_permille"], 1, lambda number: _share(number, 1000))
        pattern = _Entry()
        pattern.put("swing", row["swing_permille"], 0, lambda number: _share(number, 1000))
        pattern.put("period", row["period_ms"], 86400000, _duration)
        pattern.put("phase", row["phase_ms"], 0, _duration)
        if (row["burst_every_ms"], row["burst_for_ms"], row["burst_permille"]) != (0, 0, 1000):
            pattern["burst"] = {
                "every": _duration(row["burst_every_ms"]),
                "for": _duration(row["burst_for_ms"]),
                "times": _share(row["burst_permille"], 1000),
            }
        entry.put("pattern", pattern, {})
        entry.put("start", row["start_ms"], 0, _duration)
        entry.put("stop", row["stop_ms"], None, _duration)
        entry.put("actions", [words.name_of(words.ACTIONS, bit) for bit in range(32) if row["actions"] >> bit & 1], [])
        entry.put("vdr", row["vdr"], 0)
        return entry

    @staticmethod
    def _fault(row) -> dict:
        entry = _Entry(operation=row["operation"])
        if row["where_name"]:
            entry["where"] = f"{row['where_name']}={row['where_glob']}"
        entry.put("status", row["status"])
        entry.put("delay", row["delay_ms"], 0, _duration)
        entry.put("corrupt", row["corrupt"])
        entry.put("after", row["after"], 0)
        entry.put("times", row["times"])
        entry.put("probability", row["probability_ppm"], 10**6, lambda number: _share(number, 10**6))
        entry.put("seed", row["seed"], 1)
        entry.put("from", row["from_ms"], None, _duration)
        entry.put("until", row["until_ms"], None, _duration)
        return entry

    @staticmethod
    def _event(row) -> dict:
        entry = _Entry(event=row["kind"], target=int(row["target"]) if row["target"].isdecimal() else row["target"])
        entry.put("value", row["value"])
        entry.put("from", row["from_ms"], 0, _duration)
        entry.put("until", row["until_ms"], None, _duration)
        return entry


def to_yaml(description: dict) -> str:
    """The description as people write it: a block for the whole, a line for each thing in it."""
    import yaml

    from .document import _Loader

    class Dumper(getattr(yaml, "CSafeDumper", yaml.SafeDumper)):
        """Quotes what either this tool's or another reader of YAML would take for something other than a text."""

        yaml_implicit_resolvers = {key: list(found) for key, found in yaml.SafeDumper.yaml_implicit_resolvers.items()}

        def ignore_aliases(self, data):
            return True

    for first, found in _Loader.yaml_implicit_resolvers.items():
        Dumper.yaml_implicit_resolvers.setdefault(first, []).extend(found)

    class Line(dict):
        """Written in braces."""

    Dumper.add_representer(
        Line, lambda dumper, data: dumper.represent_mapping("tag:yaml.org,2002:map", data, flow_style=True)
    )
    Dumper.add_representer(
        list,
        lambda dumper, data: dumper.represent_sequence(
            "tag:yaml.org,2002:seq", data, flow_style=not any(isinstance(item, dict) for item in data)
        ),
    )

    def lines(value):
        """Everything within this value on one line, if it is short enough."""
        if isinstance(value, list):
            return [lines(item) for item in value]
        return Line((key, lines(item)) for key, item in value.items()) if isinstance(value, dict) else value

    def block(value):
        """A mapping with a line for each key; a list or mapping of mappings has a line for each of those."""
        if isinstance(value, list):
            return [block(item) if isinstance(item, dict) and not _is_plain(item) else lines(item) for item in value]
        if not isinstance(value, dict):
            return value
        return {key: block(item) if key == "properties" else lines(item) for key, item in value.items()}

    parts = []
    for key, value in description.items():
        shaped = block(value) if key in ("nics", "switches", "balancer") else lines(value)
        part = yaml.dump(
            {key: shaped}, Dumper=Dumper, sort_keys=False, width=110, allow_unicode=True, default_flow_style=False
        )
        gap = "\n" if key in ("numa", "nics", "switches", "ports", "traffic", "faults", "events", "balancer") else ""
        parts.append(gap + part)
    return "# A simulated host. ryn-sim init makes it; ryn-sim export wrote this.\n" + "".join(parts)


def _is_plain(value: dict) -> bool:
    return not any(isinstance(item, (dict, list)) for item in value.values())
