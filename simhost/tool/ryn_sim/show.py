"""The command show: the host's inventory and settings, as tables or JSON."""

from __future__ import annotations

from . import names, units, values
from .errors import BadInput, Failed, nearest
from .store import Store
from .table import print_json, print_table


def show_command(options) -> None:
    sections = {
        "summary": _summary,
        "cores": _cores,
        "nics": _nics,
        "switches": _switches,
        "ports": _ports,
        "traffic": _traffic,
        "mirrors": _mirrors,
        "properties": _properties,
        "balancer": _balancer,
        "moves": _moves,
    }
    if options.what not in (*sections, "all"):
        raise BadInput(f'show: there is no "{options.what}" to show{nearest(options.what, [*sections, "all"])}')
    store = Store(options.path)
    wanted = [name for name in sections if name != "summary"] if options.what == "all" else [options.what]
    with store.reading():
        sw = _switch_number(store, options.switch)
        results = {name: sections[name](store, sw) for name in wanted}
    if options.json:
        plain = {name: rows for name, (rows, _) in results.items()}
        print_json(plain if options.what == "all" else plain[options.what])
        return
    for index, (name, (rows, columns)) in enumerate(results.items()):
        if len(results) > 1:
            print(("\n" if index else "") + name.capitalize())
        print_table(rows, columns)


def _switch_number(store: Store, name: str | None) -> int | None:
    if name is None:
        return None
    for row in store.rows("SELECT sw, alias, name FROM sw JOIN dvs USING (switch_id)"):
        if name in (row["alias"], row["name"], str(row["sw"])):
            return row["sw"]
    known = [row["alias"] for row in store.rows("SELECT alias FROM sw JOIN dvs USING (switch_id)")]
    raise Failed(f'there is no switch "{name}" of the datapath{nearest(name, known)}')


def _only(sw: int | None, table: str) -> str:
    return "" if sw is None else f" WHERE {table}.sw = {sw}"


def _summary(store: Store, _):
    rows = []
    for row in store.rows("SELECT switch_id, alias, class FROM dvs ORDER BY alias"):
        found = store.rows("SELECT * FROM sw WHERE switch_id = ?", row["switch_id"])
        sw = found[0]["sw"] if found else None
        entry = {
            "switch": row["alias"],
            "number": sw,
            "name": found[0]["name"] if found else None,
            "uplinks": [],
            "ports": 0,
            "conversations": 0,
            "mean_pps": 0,
        }
        if found:
            entry["uplinks"] = [
                port["nic"] for port in store.rows("SELECT nic FROM port WHERE sw = ? AND kind = 2 ORDER BY port", sw)
            ]
            entry["ports"] = store.row("SELECT COUNT(*) FROM port WHERE sw = ?", sw)[0]
            count, sum_of_rates = store.row(
                "SELECT COUNT(*), COALESCE(SUM(milli_pps * (1000 + reply_permille) / 1000), 0) FROM conversation"
                " WHERE sw = ?",
                sw,
            )
            entry["conversations"], entry["mean_pps"] = count, sum_of_rates // 1000
        rows.append(entry)
    return rows, ["switch", "number", "name", "uplinks", "ports", "conversations", "mean_pps"]


def _cores(store: Store, _):
    rows = [
        {"core": row["lcore"], "numa": row["node"], "capacity": row["packets_per_s"]}
        for row in store.rows("SELECT * FROM lcore ORDER BY lcore")
    ]
    return rows, ["core", "numa", "capacity"]


def _nics(store: Store, _):
    rows = []
    for row in store.rows(
        "SELECT nic.*, port.sw, port.port FROM nic LEFT JOIN port ON port.nic = nic.name ORDER BY name"
    ):
        rows.append(
            {
                "nic": row["name"],
                "numa": row["node"],
                "affinity": row["affinity"],
                "link": f"{units.quantity_text(row['link_mbps'] * 10**6)}",
                "link_mbps": row["link_mbps"],
                "fpo": names.name_of(names.FPO_LEVELS, row["fpo_level"]),
                "crc_ppm": row["crc_ppm"],
                "drop_ppm": row["drop_ppm"],
                "uplink": None if row["sw"] is None else f"{row['sw']}/{row['port']}",
            }
        )
    return rows, ["nic", "numa", "affinity", "link", "fpo", "crc_ppm", "drop_ppm", "uplink"]


def _switches(store: Store, sw):
    rows = []
    for row in store.rows(f"SELECT sw.*, alias, class FROM sw JOIN dvs USING (switch_id){_only(sw, 'sw')} ORDER BY sw"):
        rows.append(
            {
                "number": row["sw"],
                "alias": row["alias"],
                "name": row["name"],
                "id": row["switch_id"],
                "class": row["class"],
                "mtu": row["mtu"],
                "max_ports": row["max_ports"],
                "lro": row["lro"],
                "flow_cache": bool(row["flow_cache"]),
                "burst": row["burst_size"],
                "numa_team": row["numa_team"],
                "mac_limit": row["mac_limit"],
                "panic": row["panic_on_tx_hang"],
                "mac_learn": row["uplink_mac_learn"],
                "metric": names.name_of(names.METRICS, row["lb_metric"]),
            }
        )
    return rows, ["number", "alias", "name", "mtu", "lro", "flow_cache", "burst", "numa_team", "mac_limit", "metric"]


def _ports(store: Store, sw):
    rows = []
    for row in store.rows(
        f"SELECT port.*, alias FROM port JOIN sw USING (sw) JOIN dvs USING (switch_id){_only(sw, 'port')}"
        " ORDER BY port.sw, port.port"
    ):
        rows.append(
            {
                "switch": row["alias"],
                "number": row["sw"],
                "port": row["port"],
                "client": row["nic"] or row["client"],
                "kind": names.name_of(names.KINDS, row["kind"]),
                "dvport": row["dvport"],
                "active": bool(row["active"]),
                "mac": units.mac_text(row["mac"]),
                "vlan": row["vlan"],
                "vni": row["vni"],
                "queues": f"{row['tx_queues']}/{row['rx_queues']}",
                "lro": row["lro"],
                "teaming": names.name_of(names.TX_TYPES, row["tx_type"]),
                "pinned": bool(row["pinned"]),
                "tx_core": row["tx_core"],
                "rx_core": row["rx_core"],
                "cores": f"{_core(row['tx_core'])}/{_core(row['rx_core'])}",
            }
        )
    return rows, ["switch", "port", "client", "kind", "mac", "vlan", "vni", "queues", "teaming", "cores", "pinned"]


def _core(number: int) -> str:
    return "-" if number < 0 else str(number)


def _traffic(store: Store, sw):
    called = {
        (row["sw"], row["port"]): row["nic"] or row["client"] or f"{row['sw']}/{row['port']}"
        for row in store.rows("SELECT sw, port, nic, client FROM port")
    }
    rows = []
    for position, row in enumerate(store.rows("SELECT * FROM conversation ORDER BY id")):
        if sw is not None and row["sw"] != sw:
            continue
        mean = row["milli_pps"] / 1000
        rows.append(
            {
                "index": position,
                "from": called.get((row["sw"], row["src_port"])),
                "to": "uplink" if row["dst_port"] is None else called.get((row["sw"], row["dst_port"])),
                "proto": names.name_of(names.PROTOCOLS, row["protocol"]),
                "dport": row["dst_l4"],
                "vlan": row["vlan"],
                "vni": row["vni"],
                "mean_pps": mean,
                "pps": units.short(mean),
                "size": row["size"],
                "reply": row["reply_permille"] / 1000,
                "flows": row["flows"],
                "swing": row["swing_permille"] / 1000,
                "burst": None
                if not row["burst_every_ms"]
                else f"x{row['burst_permille'] / 1000:g} {units.duration_text(row['burst_for_ms'] * 10**6)}/"
                f"{units.duration_text(row['burst_every_ms'] * 10**6)}",
            }
        )
    return rows, [
        "index",
        "from",
        "to",
        "proto",
        "dport",
        "vlan",
        "vni",
        "pps",
        "size",
        "reply",
        "flows",
        "swing",
        "burst",
    ]


def _mirrors(store: Store, sw):
    rows = []
    for row in store.rows(
        f"SELECT mirror.*, alias FROM mirror JOIN sw USING (sw) JOIN dvs USING (switch_id){_only(sw, 'mirror')}"
        " ORDER BY mirror.sw, session"
    ):
        ports = {
            role: [
                found["port"]
                for found in store.rows(
                    "SELECT port FROM mirror_port WHERE sw = ? AND session = ? AND role = ? ORDER BY port",
                    row["sw"],
                    row["session"],
                    role,
                )
            ]
            for role in ("in", "out", "dst")
        }
        vlans = [
            found["vlan"]
            for found in store.rows(
                "SELECT vlan FROM mirror_vlan WHERE sw = ? AND session = ? ORDER BY seq", row["sw"], row["session"]
            )
        ]
        rows.append(
            {
                "switch": row["alias"],
                "session": row["session"],
                "in": ports["in"],
                "out": ports["out"],
                "to": ports["dst"],
                "vlans": vlans,
                "encap_vlan": row["encap_vlan"],
                "sampling": row["sampling_rate"],
                "snap_len": row["snap_len"],
                "flags": [word for word, bit in names.MIRROR_FLAGS.items() if row["flags"] & bit],
            }
        )
    return rows, ["switch", "session", "in", "out", "to", "vlans", "encap_vlan", "sampling", "snap_len", "flags"]


def _properties(store: Store, sw):
    rows = []
    for row in store.rows(
        "SELECT prop.*, alias, sw FROM prop JOIN dvs USING (switch_id) LEFT JOIN sw USING (switch_id)"
        " ORDER BY alias, scope, port, key"
    ):
        if sw is None or row["sw"] == sw:
            rows.append(
                {
                    "switch": row["alias"],
                    "scope": row["scope"],
                    "port": row["port"] or None,
                    "key": row["key"],
                    "value": values.to_text(row["value"]),
                }
            )
    return rows, ["switch", "scope", "port", "key", "value"]


def _balancer(store: Store, _):
    rows = [
        {"weight": names.WEIGHTS[row["position"]], "value": row["value"], "default": row["default_value"]}
        for row in store.rows("SELECT * FROM weight ORDER BY position")
    ]
    return rows, ["weight", "value", "default"]


def _moves(store: Store, sw):
    rows = [
        {
            "at": units.age_text(row["at_ms"] * 10**6),
            "at_ms": row["at_ms"],
            "switch": row["alias"],
            "port": row["port"],
            "client": row["client"],
            "from": row["from_core"],
            "to": row["to_core"],
        }
        for row in store.rows(
            "SELECT move.*, alias, client FROM move JOIN sw USING (sw) JOIN dvs USING (switch_id)"
            f" LEFT JOIN port ON port.sw = move.sw AND port.port = move.port{_only(sw, 'move')} ORDER BY move.id"
        )
    ]
    return rows, ["at", "switch", "port", "client", "from", "to"]
