"""Turns a checked description into the rows of a store."""

from __future__ import annotations

import fnmatch
import ipaddress
import struct
from fractions import Fraction

from . import units, values, words
from .check import Problems, shown
from .document import Document
from .errors import nearest

# The tables in the order in which they can be filled, and the columns that are written.
COLUMNS = {
    "host": "id name profile description seed flow_timeout_s flow_floor_ms fastslabs",
    "clock": "id mode base_wall_ns base_host_ns speed_permille",
    "lcore": "lcore node packets_per_s",
    "nic": "name node affinity link_mbps driver_text crc_ppm drop_ppm fpo_level fpo_groups fpo_priorities fpo_mark_bits"
    " fpo_flows fpo_counters fpo_key_bits fpo_dec_ttl fpo_actions",
    "dvs": "switch_id alias class",
    "prop": "scope switch_id port key value",
    "sw": "sw switch_id name max_ports mtu lro flow_cache panic_on_tx_hang uplink_mac_learn mac_limit burst_size"
    " numa_team lb_metric lb_high lb_low lb_pause lb_sensitivity flow_cleared_ms mac_cleared_ms",
    "port": "sw port dvport kind nic client active mac macs_behind tx_queues rx_queues filter_flags ladrf vlan forged_ok"
    " vni sample_rate lro tx_type mac_limit tx_core rx_core pinned flow_cleared_ms mac_cleared_ms",
    "port_uplink": "sw port seq uplink",
    "port_mcast": "sw port seq mac",
    "port_vlan_range": "sw port seq first last",
    "mirror": "sw session encap_vlan snap_len sampling_rate flags",
    "mirror_port": "sw session role port",
    "mirror_vlan": "sw session seq vlan",
    "mac_entry": "sw port mac vlan present at_ms",
    "conversation": "id sw src_port dst_port delivery protocol src_ip dst_ip src_l4 dst_l4 dst_mac vlan vni milli_pps"
    " reply_permille size reply_size flows churn_ppm slow_permille swing_permille period_ms phase_ms"
    " burst_every_ms burst_for_ms burst_permille start_ms stop_ms actions vdr",
    "weight": "position value default_value",
    "balancer": "id period_ms",
    "fault": "id operation where_name where_glob status delay_ms corrupt after times probability_ppm seed from_ms"
    " until_ms",
    "event": "id kind target value from_ms until_ms",
}
COLUMNS = {table: tuple(columns.split()) for table, columns in COLUMNS.items()}

_GLOB = frozenset("*?[")
_LONGEST_NS = 100 * 365 * 86400 * 10**9


class Compiler:
    """One run over one description. `rows` holds the result; what does not fit together goes to `problems`."""

    def __init__(self, document: Document, profile: str, progress=lambda done, of: None):
        self.description = document.value
        self.problems = Problems(document)
        self.rows: dict[str, list[tuple]] = {table: [] for table in COLUMNS}
        self._progress = progress
        self._ports: dict[tuple[int, int], dict] = {}
        self._dvports: set[tuple[int, int]] = set()
        self._by_name: dict[str, list[tuple[int, int]]] = {}
        self._switch_by_alias: dict[str, dict] = {}
        self._host(profile)
        self._hardware()
        self._switches()
        self._all_ports()
        self._mirrors()
        self._traffic()
        self._trouble()
        self.problems.raise_any()

    def _add(self, table: str, **columns) -> None:
        names = COLUMNS[table]
        assert len(columns) == len(names), (table, set(names) ^ set(columns))
        self.rows[table].append(tuple(columns[name] for name in names))

    # Single values, each with its limit -----------------------------------------------------------------------------

    def _ns(self, path, value) -> int:
        ns = units.nanoseconds(value)
        if ns > _LONGEST_NS:
            self.problems.add(path, f"expected at most 100 years, got {shown(value)}")
            return 0
        return ns

    def _ms(self, path, value) -> int:
        ns = self._ns(path, value)
        if ns % 10**6:
            self.problems.add(path, f"expected whole milliseconds, got {shown(value)}")
        return ns // 10**6

    def _quantity(self, path, value, low: int, high: int, unit: int, what: str) -> int:
        """A quantity in multiples of a unit, in that unit."""
        try:
            number = units.quantity(value)
        except ValueError:
            number = -1
        if number % unit or not low <= number // unit <= high:
            least, most = units.quantity_text(low * unit), units.quantity_text(high * unit)
            self.problems.add(path, f"expected {what} from {least} to {most}, got {shown(value)}")
            return low
        return number // unit

    def _optional_ms(self, path, mapping: dict, key: str) -> int | None:
        return self._ms((*path, key), mapping[key]) if key in mapping else None

    def _scaled(self, path, value, scale: int) -> int:
        exact = Fraction(str(value)) * scale
        if exact.denominator != 1:
            self.problems.add(path, f"expected a multiple of {Fraction(1, scale)!s}, got {shown(value)}")
        return int(exact)

    def _within(self, path, number: int, low: int, high: int, what: str) -> int:
        if not low <= number <= high:
            self.problems.add(path, f"expected {what} from {low} to {high}, got {number}")
        return number

    # The parts of a description -------------------------------------------------------------------------------------

    def _host(self, profile: str) -> None:
        host = self.description
        timeout = self._ns(("flow_timeout",), host.get("flow_timeout", 10))
        if timeout % 10**9 or timeout > 4294967295 * 10**9:
            self.problems.add(
                ("flow_timeout",), f"expected whole seconds up to 4294967295, got {shown(host['flow_timeout'])}"
            )
        self.seed = host.get("seed", 1)
        self._add(
            "host",
            id=1,
            name=host["host"],
            profile=profile,
            description=host.get("about", ""),
            seed=self.seed,
            flow_timeout_s=timeout // 10**9,
            flow_floor_ms=self._ms(("flow_floor",), host.get("flow_floor", 0)),
            fastslabs=int(host.get("fastslabs", 0)),
        )
        clock = host.get("clock", {})
        self._add(
            "clock",
            id=1,
            mode="freeze" if clock.get("frozen") else "run",
            base_wall_ns=0,
            base_host_ns=self._ns(("clock", "uptime"), clock.get("uptime", 0)),
            speed_permille=self._scaled(("clock", "speed"), clock.get("speed", 1), 1000),
        )
        balancer = host.get("balancer", {})
        period = self._ms(("balancer", "period"), balancer.get("period", 5))
        if period < 100:
            self.problems.add(("balancer", "period"), f"expected at least 100ms, got {shown(balancer['period'])}")
        self._add("balancer", id=1, period_ms=period)
        defaults = balancer.get("default_weights", {})
        for position, name in enumerate(words.WEIGHTS):
            default = defaults.get(name, words.DEFAULT_WEIGHTS[position])
            value = balancer.get("weights", {}).get(name, default)
            self._add("weight", position=position, value=value, default_value=default)

    def _hardware(self) -> None:
        nodes = self.description["numa"]
        self._cores: set[int] = set()
        for index, node in enumerate(nodes):
            capacity = self._quantity(
                ("numa", index, "capacity"), node.get("capacity", "1M"), 1000, 10**9, 1, "packets a second"
            )
            for place, lcore in enumerate(node["lcores"]):
                if lcore in self._cores:
                    self.problems.add(("numa", index, "lcores", place), f"core {lcore} is there already")
                self._cores.add(lcore)
                self._add("lcore", lcore=lcore, node=index, packets_per_s=capacity)
        self._nics = self.description.get("nics", {})
        for name, nic in self._nics.items():
            path = ("nics", name)
            if not 1 <= len(name.encode()) <= 31:
                self.problems.add(path, "expected a name of 1 to 31 bytes")
            if nic["numa"] >= len(nodes):
                self.problems.add(
                    (*path, "numa"), f"expected one of the {len(nodes)} NUMA nodes (from 0), got {nic['numa']}"
                )
            link_mbps = self._quantity(
                (*path, "link"), nic.get("link", "25G"), 1, 10**6, 10**6, "bits a second, a multiple of 1M,"
            )
            level = words.FPO_LEVELS[nic.get("fpo", "none")]
            limits = dict(zip(words.FPO_LIMITS, words.FPO_DEFAULTS[level])) | nic.get("fpo_limits", {})
            limits["actions"] = values.signed(limits["actions"])
            self._add(
                "nic",
                name=name,
                node=nic["numa"],
                affinity=nic.get("affinity", nic["numa"]),
                link_mbps=link_mbps,
                driver_text=int(nic.get("driver_text", True)),
                crc_ppm=nic.get("crc_ppm", 0),
                drop_ppm=nic.get("drop_ppm", 0),
                fpo_level=level,
                **{f"fpo_{limit}": number for limit, number in limits.items()},
            )

    def _switches(self) -> None:
        switches = self.description.get("switches", [])
        taken = {switch["number"] for switch in switches if "number" in switch}
        names: set[str] = set()
        ids: set[str] = set()
        for index, switch in enumerate(switches):
            path = ("switches", index)
            alias = switch["alias"]
            if alias in self._switch_by_alias:
                self.problems.add((*path, "alias"), f'the alias "{alias}" is there already')
                continue
            switch_id = switch.get("id") or values.switch_id(self.description["host"], alias)
            if switch_id in ids:
                self.problems.add((*path, "id"), f'the identifier "{switch_id}" is there already')
                continue
            ids.add(switch_id)
            state = {"id": switch_id, "sw": None, "path": path, "switch": switch, "free": []}
            self._switch_by_alias[alias] = state
            self._add("dvs", switch_id=switch_id, alias=alias, **{"class": switch.get("class", "vswitch")})
            self._properties(state)
            if not switch.get("datapath", True):
                for key in (
                    "number",
                    "uplinks",
                    "mirrors",
                    "mac_entries",
                    "lro",
                    "flow_cache",
                    "panic_on_tx_hang",
                    "max_ports",
                    "uplink_mac_learn",
                    "mac_limit",
                    "burst",
                    "numa_team",
                    "balancer",
                    "mtu",
                    "flows_cleared",
                    "macs_cleared",
                ):
                    if key in switch:
                        self.problems.add((*path, key), "only a switch of the datapath has this (datapath is false)")
                continue
            if "number" in switch:
                number = switch["number"]
                if any(other["sw"] == number for other in self._switch_by_alias.values()):
                    self.problems.add((*path, "number"), f"number {number} is there already")
                    continue
            else:
                number = next((free for free in range(16) if free not in taken), None)
                if number is None:
                    self.problems.add(path, "expected at most 16 switches of the datapath")
                    continue
                taken.add(number)
            state["sw"] = number
            name = switch.get("name", alias)
            if name in names:
                self.problems.add((*path, "name"), f'the name "{name}" is there already')
                continue
            names.add(name)
            if len(name.encode()) > 127:
                self.problems.add((*path, "name"), "expected at most 127 bytes")
            balancer = switch.get("balancer", {})
            self._add(
                "sw",
                sw=number,
                switch_id=switch_id,
                name=name,
                max_ports=switch.get("max_ports", 128),
                mtu=switch.get("mtu", 1500),
                lro=int(switch.get("lro", 1)),
                flow_cache=int(switch.get("flow_cache", True)),
                panic_on_tx_hang=int(switch.get("panic_on_tx_hang", 0)),
                uplink_mac_learn=int(switch.get("uplink_mac_learn", 1)),
                mac_limit=switch.get("mac_limit", 65536),
                burst_size=switch.get("burst", 32),
                numa_team=int(switch.get("numa_team", 0)),
                lb_metric=words.METRICS[balancer.get("metric", "cpu")],
                lb_high=balancer.get("high", 60),
                lb_low=balancer.get("low", 40),
                lb_pause=balancer.get("pause", 10),
                lb_sensitivity=balancer.get("sensitivity", 5),
                flow_cleared_ms=self._ms((*path, "flows_cleared"), switch.get("flows_cleared", 0)),
                mac_cleared_ms=self._ms((*path, "macs_cleared"), switch.get("macs_cleared", 0)),
            )
            entries: set[tuple] = set()
            for place, entry in enumerate(switch.get("mac_entries", [])):
                key = (entry["port"], units.mac(entry["mac"]), entry.get("vlan", 0))
                if key in entries:
                    self.problems.add((*path, "mac_entries", place), "this entry is there already")
                entries.add(key)
                self._add(
                    "mac_entry",
                    sw=number,
                    port=key[0],
                    mac=key[1],
                    vlan=key[2],
                    present=int(not entry.get("deleted", False)),
                    at_ms=self._ms((*path, "mac_entries", place, "at"), entry.get("at", 0)),
                )

    def _properties(self, state: dict) -> None:
        """A switch's properties: those that its own keys stand for, then what `properties` adds, changes or removes."""
        switch, path = state["switch"], state["path"]
        properties = implied_properties(switch)
        given = switch.get("properties", {})
        for scope in ("host", "global"):
            for key, text in given.get(scope, {}).items():
                properties.pop((scope, "", key), None)
                if text is not None:
                    properties[scope, "", key] = self._value((*path, "properties", scope, key), text)
        for port, entries in given.get("ports", {}).items():
            for key, text in entries.items():
                if text is not None:
                    properties["port", port, key] = self._value((*path, "properties", "ports", port, key), text)
        state["properties"] = properties
        for (scope, port, key), value in properties.items():
            self._add("prop", scope=scope, switch_id=state["id"], port=port, key=key, value=value)

    def _value(self, path, text: str) -> bytes:
        try:
            return values.to_bytes(text)
        except ValueError:
            self.problems.add(path, f"expected numbers from 0 to 4294967295, got {shown(text)}")
            return b""

    def _all_ports(self) -> None:
        """Numbers first, since those given by hand are taken before others are dealt out."""
        entries = []
        for alias, state in self._switch_by_alias.items():
            for place, nic in enumerate(state["switch"].get("uplinks", [])):
                entries.append((state, {"switch": alias, "nic": nic}, (*state["path"], "uplinks", place), None))
        for index, port in enumerate(self.description.get("ports", [])):
            path = ("ports", index)
            state = self._switch_by_alias.get(port["switch"])
            if not state:
                self.problems.add(
                    (*path, "switch"),
                    f'there is no switch "{port["switch"]}"' + nearest(port["switch"], self._switch_by_alias),
                )
                continue
            if state["sw"] is None:
                self.problems.add(
                    (*path, "switch"), f'"{port["switch"]}" is not a switch of the datapath, it has no ports'
                )
                continue
            if port.get("count", 1) > 1 and "nic" in port:
                self.problems.add((*path, "count"), "expected 1 for a port with a nic")
            if port.get("count", 1) > 1 and "{n}" not in port.get("vm", "{n}"):
                self.problems.add((*path, "vm"), "expected a name with {n} in it, since count is above 1")
            for place in range(port.get("count", 1)):
                entries.append((state, port, path, place if "count" in port else None))
        taken: set[tuple[int, int]] = set()
        numbers: list[int | None] = []
        for state, port, path, place in entries:
            number = port["port"] + (place or 0) if "port" in port else None
            if number is not None:
                if number > 127 or (state["sw"], number) in taken:
                    self.problems.add(
                        (*path, "port"),
                        f"port {number} is there already"
                        if number <= 127
                        else f"expected port numbers up to 127, got {number}",
                    )
                taken.add((state["sw"], number))
            numbers.append(number)
        lowest: dict[int, int] = {}
        for index, (state, port, path, place) in enumerate(entries):
            sw = state["sw"]
            if sw is None:
                continue
            if numbers[index] is None:
                free = lowest.get(sw, 0)
                while (sw, free) in taken:
                    free += 1
                lowest[sw] = free + 1
                if free > 127:
                    self.problems.add(path, f'expected at most 128 ports on "{port["switch"]}"')
                    continue
                numbers[index] = free
            self._port(state, port, path, numbers[index], place)
            if index % 64 == 0:
                self._progress(index, len(entries))
        self._progress(len(entries), len(entries))
        self._team_up()

    def _port(self, state: dict, port: dict, path, number: int, place: int | None) -> None:
        sw = state["sw"]
        nic = port.get("nic")
        kind = words.KINDS.get(port.get("kind"), port.get("kind", words.UPLINK if nic else words.KINDS["VNIC"]))
        if (kind == words.UPLINK) != (nic is not None):
            self.problems.add((*path, "kind"), "a port is an UPLINK if and only if it has a nic")
        if nic is not None and nic not in self._nics:
            at = path if "uplinks" in path else (*path, "nic")
            self.problems.add(at, f'there is no NIC "{nic}"{nearest(nic, self._nics)}')
        elif nic is not None and nic in self._by_name:
            self.problems.add(path, f'the NIC "{nic}" is an uplink already')
        client = port.get("vm", "")
        step = place or 0
        if place is not None:
            client = client.replace("{n}", str(port.get("first", 0) + place))
        dvport = port["dvport"] + step if "dvport" in port else values.dvport(sw, number)
        if (sw, dvport) in self._dvports:
            self.problems.add((*path, "dvport"), f"the distributed port {dvport} is there already")
        self._dvports.add((sw, dvport))
        mac = units.mac(port["mac"]) if "mac" in port else values.port_mac(self.seed, sw, number, nic is not None)
        if "mac" in port and step:
            mac = ((int.from_bytes(mac, "big") + step) & (1 << 48) - 1).to_bytes(6, "big")
        queues = port.get("queues", 4 if nic else 1)
        flags = 0
        for word in port.get("filter", ["UNICAST", "MULTICAST", "BROADCAST"]):
            flags |= words.FILTERS.get(word, word)
        core = {}
        for direction in ("tx_core", "rx_core"):
            core[direction] = port.get(direction, port.get("core", -1))
            if core[direction] != -1 and core[direction] not in self._cores:
                at = direction if direction in port else "core"
                self.problems.add((*path, at), f"there is no core {core[direction]}")
        row = dict(
            sw=sw,
            port=number,
            dvport=dvport,
            kind=kind,
            nic=nic,
            client=client,
            active=int(port.get("active", True)),
            mac=mac,
            macs_behind=port.get("macs_behind", 0),
            tx_queues=port.get("tx_queues", queues),
            rx_queues=port.get("rx_queues", queues),
            filter_flags=flags,
            ladrf=values.signed(port.get("ladrf", 0)),
            vlan=port.get("vlan", 0),
            forged_ok=int(port.get("forged", 0)),
            vni=port.get("vni", 0),
            sample_rate=port.get("sample_rate", 0),
            lro=int(port.get("lro", 1)),
            tx_type=words.TX_TYPES[port.get("teaming", {}).get("type", "Single")],
            mac_limit=port.get("mac_limit", 16384),
            **core,
            pinned=int(port.get("pinned", False)),
            flow_cleared_ms=self._ms((*path, "flows_cleared"), port.get("flows_cleared", 0)),
            mac_cleared_ms=self._ms((*path, "macs_cleared"), port.get("macs_cleared", 0)),
        )
        self._add("port", **row)
        self._ports[sw, number] = row | {"alias": port["switch"], "entry": port, "path": path}
        self._by_name.setdefault(nic or client, []).append((sw, number))
        self._by_name[f"{port['switch']}/{number}"] = [(sw, number)]
        for seq, text in enumerate(port.get("multicast", [])):
            self._add("port_mcast", sw=sw, port=number, seq=seq, mac=units.mac(text))
        for seq, item in enumerate(port.get("vlans", [])):
            first, _, last = str(item).partition("-")
            first, last = int(first), int(last or first)
            if not first <= last <= 4095:
                self.problems.add((*path, "vlans", seq), f"expected a range within 0 to 4095, got {shown(item)}")
            self._add("port_vlan_range", sw=sw, port=number, seq=seq, first=first, last=last)
        if "rings" in port:
            if ("port", str(dvport), words.UPLINK_RING) in state["properties"]:
                self.problems.add((*path, "rings"), "the switch's properties have this port's rings already")
            rings = struct.pack("<II", port["rings"]["tx"], port["rings"]["rx"])
            self._add("prop", scope="port", switch_id=state["id"], port=str(dvport), key=words.UPLINK_RING, value=rings)

    def _team_up(self) -> None:
        """Each port's uplinks, once all uplinks have their numbers. One that says nothing may use all of its switch."""
        uplinks: dict[int, list[int]] = {}
        for (sw, number), port in sorted(self._ports.items()):
            if port["kind"] == words.UPLINK:
                uplinks.setdefault(sw, []).append(number)
        for (sw, number), port in self._ports.items():
            teaming = port["entry"].get("teaming", {})
            if "uplinks" in teaming:
                chosen = []
                for place, item in enumerate(teaming["uplinks"]):
                    if isinstance(item, str):
                        found = [
                            at for at in self._by_name.get(item, []) if at[0] == sw and at[1] in uplinks.get(sw, [])
                        ]
                        if not found:
                            known = [self._ports[sw, uplink]["nic"] for uplink in uplinks.get(sw, [])]
                            self.problems.add(
                                (*port["path"], "teaming", "uplinks", place),
                                f'"{port["alias"]}" has no uplink "{item}"{nearest(item, known)}',
                            )
                            continue
                        item = found[0][1]
                    chosen.append(item)
            else:
                chosen = default_uplinks(port["kind"], uplinks.get(sw, []))
            for seq, uplink in enumerate(chosen):
                self._add("port_uplink", sw=sw, port=number, seq=seq, uplink=uplink)

    def _find(self, path, name, sw: int | None = None) -> list[tuple[int, int]]:
        """The ports that a name, a pattern or SWITCH/NUMBER stands for; a number stands for a port of switch `sw`."""
        if isinstance(name, int):
            found = [(sw, name)] if (sw, name) in self._ports else []
        elif name in self._by_name and name:
            found = self._by_name[name]
        elif _GLOB & set(name):
            found = sorted(
                {
                    at
                    for known, places in self._by_name.items()
                    if fnmatch.fnmatchcase(known, name)
                    for at in places
                    if known.count("/") == name.count("/")
                }
            )
        else:
            found = []
        if sw is not None:
            found = [at for at in found if at[0] == sw]
        if not found:
            known = [known for known in self._by_name if "/" not in known]
            self.problems.add(
                path, f"there is no port {shown(name)}" + ("" if isinstance(name, int) else nearest(name, known))
            )
        return found

    def _mirrors(self) -> None:
        for state in self._switch_by_alias.values():
            if state["sw"] is None:
                continue
            sessions: set[int] = set()
            for index, mirror in enumerate(state["switch"].get("mirrors", [])):
                path, session = (*state["path"], "mirrors", index), mirror["session"]
                if session in sessions:
                    self.problems.add((*path, "session"), f"session {session} is there already")
                    continue
                sessions.add(session)
                self._add(
                    "mirror",
                    sw=state["sw"],
                    session=session,
                    encap_vlan=mirror.get("encap_vlan", 0),
                    snap_len=mirror.get("snap_len", 0),
                    sampling_rate=mirror.get("sampling_rate", 1),
                    flags=sum(words.MIRROR_FLAGS[word] for word in set(mirror.get("flags", []))),
                )
                for role, key in (("in", "in"), ("out", "out"), ("dst", "to")):
                    chosen = {
                        at
                        for place, name in enumerate(mirror.get(key, []))
                        for at in self._find((*path, key, place), name, state["sw"])
                    }
                    for _, port in sorted(chosen):
                        self._add("mirror_port", sw=state["sw"], session=session, role=role, port=port)
                for seq, vlan in enumerate(mirror.get("vlans", [])):
                    self._add("mirror_vlan", sw=state["sw"], session=session, seq=seq, vlan=vlan)

    def _traffic(self) -> None:
        conversations = self.description.get("traffic", [])
        for index, entry in enumerate(conversations):
            path = ("traffic", index)
            sources = self._find((*path, "from"), entry["from"])
            target = None
            if entry["to"] != "uplink":
                found = self._find((*path, "to"), entry["to"])
                if len(found) > 1:
                    self.problems.add((*path, "to"), f"expected one port, {shown(entry['to'])} stands for {len(found)}")
                if not found:
                    continue
                target = found[0]
                if sources and all(source[0] != target[0] for source in sources):
                    self.problems.add(
                        (*path, "to"), f"{shown(entry['to'])} is on another switch than {shown(entry['from'])}"
                    )
                sources = [source for source in sources if source[0] == target[0] and source != target]
            for sw, number in sources:
                if target is None and self._ports[sw, number]["kind"] == words.UPLINK:
                    self.problems.add((*path, "to"), "expected a port, since the sender is an uplink")
                    continue
                self._conversation(path, entry, sw, number, target)
            self._progress(index + 1, len(conversations))

    def _conversation(self, path, entry: dict, sw: int, number: int, target) -> None:
        position = len(self.rows["conversation"])
        defaults = conversation_defaults(
            self._ports[sw, number],
            self._ports[target] if target else None,
            words.PROTOCOLS.get(entry.get("proto"), entry.get("proto", 6)),
            position,
        )
        addresses = {}
        for key, column in (("src_ip", "src_ip"), ("dst_ip", "dst_ip")):
            addresses[column] = defaults[column]
            if key in entry:
                try:
                    addresses[column] = ipaddress.ip_address(entry[key]).packed
                except ValueError:
                    self.problems.add((*path, key), f"expected an IPv4 or IPv6 address, got {shown(entry[key])}")
        if len(addresses["src_ip"]) != len(addresses["dst_ip"]):
            self.problems.add(path, "expected src_ip and dst_ip of one family (the one left out is an IPv4 address)")
        if isinstance(entry["pps"], str):
            text = entry["pps"].rstrip("kM")
            exact = Fraction(text) * {"k": 1000, "M": 10**6}.get(entry["pps"][len(text) :], 1) * 1000
        else:
            exact = Fraction(str(entry["pps"])) * 1000
        if exact.denominator != 1 or exact > 10**12:
            self.problems.add((*path, "pps"), f"expected a multiple of 0.001 up to 1000M, got {shown(entry['pps'])}")
        pattern = entry.get("pattern", {})
        if "daily" in pattern and {"swing", "period"} & set(pattern):
            self.problems.add((*path, "pattern", "daily"), "daily is a swing with a period of a day, expected no other")
        burst = pattern.get("burst", {"every": 0, "for": 0, "times": 1})
        at = (*path, "pattern")
        period = self._within(
            (*at, "period"), self._ms((*at, "period"), pattern.get("period", "1d")), 1000, 604800000, "milliseconds"
        )
        every, lasting = (self._ms((*at, "burst", key), burst[key]) for key in ("every", "for"))
        if lasting > every:
            self.problems.add(
                (*at, "burst", "for"), "expected a burst no longer than what lies between the starts of two"
            )
        start, stop = self._ms((*path, "start"), entry.get("start", 0)), self._optional_ms(path, entry, "stop")
        if stop is not None and stop < start:
            self.problems.add((*path, "stop"), "expected a time at or after start")
        actions = 0
        for place, action in enumerate(entry.get("actions", [])):
            if isinstance(action, str) and action not in words.ACTIONS:
                self.problems.add(
                    (*path, "actions", place), f"there is no action {shown(action)}{nearest(action, words.ACTIONS)}"
                )
                continue
            actions |= 1 << words.ACTIONS.get(action, action)
        self._add(
            "conversation",
            id=position + 1,
            sw=sw,
            src_port=number,
            dst_port=target[1] if target else None,
            delivery=entry.get("delivery", "unicast"),
            protocol=defaults["protocol"],
            **addresses,
            src_l4=entry.get("sport", defaults["src_l4"]),
            dst_l4=entry.get("dport", defaults["dst_l4"]),
            dst_mac=units.mac(entry["dst_mac"]) if "dst_mac" in entry else None,
            vlan=entry.get("vlan", defaults["vlan"]),
            vni=entry.get("vni", defaults["vni"]),
            milli_pps=int(exact),
            reply_permille=self._scaled((*path, "reply"), entry.get("reply", 0), 1000),
            size=entry.get("size", 512),
            reply_size=entry.get("reply_size", 66),
            flows=entry.get("flows", 1),
            churn_ppm=entry.get("churn_ppm", 0),
            slow_permille=self._scaled((*path, "slow"), entry.get("slow", 0.001), 1000),
            swing_permille=self._scaled((*at, "swing"), pattern.get("swing", pattern.get("daily", 0)), 1000),
            period_ms=period,
            phase_ms=self._ms((*at, "phase"), pattern.get("phase", 0)),
            burst_every_ms=every,
            burst_for_ms=lasting,
            burst_permille=self._scaled((*at, "burst", "times"), burst["times"], 1000),
            start_ms=start,
            stop_ms=stop,
            actions=actions,
            vdr=entry.get("vdr", 0),
        )

    def _trouble(self) -> None:
        for index, fault in enumerate(self.description.get("faults", [])):
            path = ("faults", index)
            problem = unknown_operation(fault["operation"])
            if problem:
                self.problems.add((*path, "operation"), problem)
            if not {"status", "delay", "corrupt"} & set(fault):
                self.problems.add(path, "expected at least one of status, delay, corrupt")
            name, _, glob = fault.get("where", "").partition("=")
            self._add(
                "fault",
                id=index + 1,
                operation=fault["operation"],
                where_name=name or None,
                where_glob=glob if name else None,
                status=fault.get("status"),
                delay_ms=self._ms((*path, "delay"), fault.get("delay", 0)),
                corrupt=fault.get("corrupt"),
                after=fault.get("after", 0),
                times=fault.get("times"),
                probability_ppm=self._scaled((*path, "probability"), fault.get("probability", 1), 10**6),
                seed=fault.get("seed", 1),
                from_ms=self._optional_ms(path, fault, "from"),
                until_ms=self._optional_ms(path, fault, "until"),
            )
        for index, event in enumerate(self.description.get("events", [])):
            path = ("events", index)
            start, stop = self._ms((*path, "from"), event.get("from", 0)), self._optional_ms(path, event, "until")
            if stop is not None and stop <= start:
                self.problems.add((*path, "until"), "expected a time after from")
            target = str(event["target"])
            problem = unknown_target(event["event"], target, self._nics, self._cores, self._ports)
            if problem:
                self.problems.add((*path, "target"), problem)
            self._add(
                "event",
                id=index + 1,
                kind=event["event"],
                target=target,
                value=event.get("value"),
                from_ms=start,
                until_ms=stop,
            )


def implied_properties(switch: dict) -> dict[tuple[str, str, str], bytes]:
    """The properties that a switch's own keys stand for, by (scope, port, key)."""
    properties = {("global", "", words.ALIAS): switch["alias"].encode() + b"\0"}
    if "name" in switch:
        properties["host", "", words.PORTSET] = switch["name"].encode() + b"\0"
    if "marker" in switch:
        properties["global", "", words.MARKER] = switch["marker"].encode() + b"\0"
    stored = switch.get("stored", {})
    if "fpo" in stored:
        properties["host", "", words.STORED_FPO] = struct.pack("<I", stored["fpo"])
    if "burst" in stored:
        properties["host", "", words.STORED_BURST] = struct.pack("<II", 0, stored["burst"])
    if "numa_team" in stored:
        properties["host", "", words.STORED_TEAMING] = struct.pack("<IB", 0, int(stored["numa_team"]) & 255)
    if "balancer" in stored:
        options = stored["balancer"]
        properties["host", "", words.STORED_BALANCER] = struct.pack(
            "<6I",
            0,
            words.METRICS[options.get("metric", "cpu")],
            options.get("high", 60),
            options.get("low", 40),
            options.get("pause", 10),
            options.get("sensitivity", 5),
        )
    return properties


def default_uplinks(kind: int, uplinks: list[int]) -> list[int]:
    """The uplinks of a port that names none: all of its switch, as many as a policy holds. An uplink has none."""
    return [] if kind == words.UPLINK else uplinks[:8]


def conversation_defaults(source: dict, target: dict | None, protocol: int, position: int) -> dict:
    """What a conversation has where its description is silent."""
    inner = target if source["kind"] == words.UPLINK and target else source
    src_l4, dst_l4 = values.transport(protocol, position)
    return {
        "protocol": protocol,
        "src_l4": src_l4,
        "dst_l4": dst_l4,
        "vlan": inner["vlan"],
        "vni": inner["vni"],
        "src_ip": values.remote_ip(position)
        if source["kind"] == words.UPLINK
        else values.port_ip(source["sw"], source["port"]),
        "dst_ip": values.port_ip(target["sw"], target["port"]) if target else values.remote_ip(position),
    }


def unknown_operation(operation: str) -> str | None:
    """Why no fault can be made for this operation or pattern, if none can."""
    if operation == words.CANNOT_FAIL:
        return f"{operation} has nothing to answer, so it cannot fail"
    if any(fnmatch.fnmatchcase(known, operation) for known in words.OPERATIONS):
        return None
    return f"there is no operation {shown(operation)}{nearest(operation, words.OPERATIONS)}"


def unknown_target(event: str, target: str, nics, cores, ports) -> str | None:
    """Why an event can't have this target, if it can't. ports: of (switch number, port number)."""
    if event in ("uplink-down", "uplink-hang"):
        return None if target in nics else f"there is no NIC {shown(target)}{nearest(target, nics)}"
    if event == "core-stuck":
        known = target.isdecimal() and int(target) in cores
        return None if known else f"there is no core {shown(target)}; known: {', '.join(map(str, sorted(cores)))}"
    if event == "mac-limit":
        switches = sorted({sw for sw, _ in ports})
        known = target.isdecimal() and int(target) in switches
        return None if known else f"there is no switch number {shown(target)}{nearest(target, switches)}"
    sw, _, port = target.partition("/")
    if sw.isdecimal() and port.isdecimal() and (int(sw), int(port)) in ports:
        return None
    return f"expected SWITCH/PORT, the numbers of a switch and one of its ports, got {shown(target)}"


def literal(value) -> str:
    """A value as SQL has it."""
    if value is None:
        return "NULL"
    if isinstance(value, bytes):
        return f"x'{value.hex()}'"
    if isinstance(value, str):
        return "'" + value.replace("'", "''") + "'"
    return str(int(value))


def sql(rows: dict[str, list[tuple]]) -> str:
    """The rows as INSERT statements, for a store that schema.sql has just made."""
    parts = []
    for table, columns in COLUMNS.items():
        if rows[table]:
            tuples = ",\n".join("  (" + ", ".join(map(literal, row)) + ")" for row in rows[table])
            parts.append(f"INSERT INTO {table} ({', '.join(columns)}) VALUES\n{tuples};\n")
    return "\n".join(parts)
