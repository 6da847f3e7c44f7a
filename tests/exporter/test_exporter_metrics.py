"""What the metrics say: of a simulated host the same as the methods, of scripted answers each byte where it belongs."""

import gzip
import json
import shutil
import struct
import subprocess
from pathlib import Path

import exporting
import pytest
from exporting import exporting as exporter_on
from exporting import named, parse, run, series
from scripts import Scripts

ALL = ("--with", "queue,mac,netq,mirror")
INFOS = {"ryn_switch_info", "ryn_port_info", "ryn_balancer_info", "ryn_mirror_info", "ryn_build_info"}


@pytest.fixture(scope="module")
def samples(default_host):
    done = run(default_host, "--once", *ALL)
    assert (done.returncode, done.stderr) == (0, "")
    return parse(done.stdout)


@pytest.fixture(scope="module")
def facts(default_host):
    """The same host, read through the methods."""
    return json.loads(
        default_host.methods(
            """if True:
        import json
        switches = m.ListSwitches()
        ports = [(s["name"], s["swID"], p) for s in switches for p in m.ListPorts(s["swID"])]
        uplinks = [(name, sw, p) for name, sw, p in ports if p["clientType"] == "UPLINK"]
        cores = m.ListLCoreIDs(0)
        print(json.dumps({
            "switches": switches,
            "ports": [[name, p, m.GetPortStats(sw, p["rynPortID"])] for name, sw, p in ports],
            "uplinks": [[name, p, m.GetUplinkStats(sw, p["rynPortID"]),
                         [m.GetUplinkQueueStats(sw, p["rynPortID"], 0, q) for q in range(p["numRxQ"])],
                         [m.GetUplinkQueueStats(sw, p["rynPortID"], 1, q) for q in range(p["numTxQ"])]]
                        for name, sw, p in uplinks],
            "flows": [[s["name"], m.GetFlowStats(s["swID"], cores, 0)] for s in switches],
            "fpo": [[s["name"], m.GetFPOStats(s["swID"], cores)] for s in switches],
            "usage": [[core, m.DumpLBPortStats(0, 0, 127)[5][core][0]] for core in cores],
            "weights": [w["weight"] for w in m.GetLBWeights()],
            "timeout": m.GetFlowTimeout(),
            "bursts": [m.GetSwitchBurstSize(alias) for alias in ("dvs-1", "dvs-2")],
            "algorithms": [m.GetLBAlgorithm(alias) for alias in ("dvs-1", "dvs-2")],
            "macs": [[s["name"], m.ListSwitchMACTable(s["swID"])] for s in switches],
            "netq": [[name, p["rynPortID"], len(m.GetPortNetQInfo(sw, p["rynPortID"])["filters"])]
                     for name, sw, p in ports],
            "mirrors": [[s["name"], [c["index"] for c in m.GetMirrorConf(s["swID"])]] for s in switches],
        }))"""
        )
    )


def test_ports_have_the_counters_of_both_paths(samples, facts):
    """Of every listed port, an uplink's too, always with `path`."""
    for name, port, stats in facts["ports"]:
        for path, prefix in (("fast", ""), ("slow", "sp")):
            for direction, side in (("receive", "rx"), ("transmit", "tx")):
                for what, key in (("packets", "Pkts"), ("bytes", "Bytes"), ("drops", "Drops"), ("errors", "Errors")):
                    metric = f"ryn_port_{direction}_{what}_total"
                    value = samples[series(metric, switch=name, port=port["rynPortID"], path=path)]
                    field = side + key
                    assert value == str(stats[prefix + field[0].upper() + field[1:] if prefix else field]), metric
    assert len(named(samples, "ryn_port_receive_packets_total")) == 2 * len(facts["ports"])


def test_ports_are_described(samples, facts):
    infos = named(samples, "ryn_port_info")
    assert set(infos.values()) == {"1"}
    assert {tuple(sorted(labels)) for labels in infos} == {
        tuple(
            sorted(
                {
                    "switch": name,
                    "port": str(port["rynPortID"]),
                    "dvport": str(port["portID"]),
                    "kind": port["clientType"],
                    "mac": port["hwAddr"],
                }.items()
            )
        )
        for name, port, _ in facts["ports"]
    }
    for name, port, _ in facts["ports"]:
        assert samples[series("ryn_port_macs", switch=name, port=port["rynPortID"])] == str(port["numMACs"])


def test_switches_are_described(samples, facts):
    infos = {dict(labels)["switch"]: dict(labels) for labels in named(samples, "ryn_switch_info")}
    assert sorted(infos) == sorted(switch["name"] for switch in facts["switches"])
    for switch, alias, burst in zip(facts["switches"], ("dvs-1", "dvs-2"), facts["bursts"]):
        name = switch["name"]
        assert infos[name]["number"] == str(switch["swID"])
        assert infos[name]["alias"] == alias
        assert len(infos[name]["id"]) > 8
        assert samples[series("ryn_switch_mtu_bytes", switch=name)] == str(switch["mtu"])
        assert samples[series("ryn_switch_burst_size", switch=name)] == str(burst)


def test_uplinks_have_their_own_counters_without_a_path(samples, facts):
    links = {}
    for name, port, stats, received, sent in facts["uplinks"]:
        labels = {"switch": name, "port": port["rynPortID"]}
        counters = dict(stats["uplinkStats"])
        for direction, side in (("receive", "rx"), ("transmit", "tx")):
            for what, key in (("packets", "Pkts"), ("bytes", "Bytes"), ("drops", "Drops"), ("errors", "Errors")):
                assert samples[series(f"ryn_uplink_{direction}_{what}_total", **labels)] == str(counters[side + key])
        for direction, side, queues in (("receive", "rx", received), ("transmit", "tx", sent)):
            for number, queue in enumerate(queues):
                for what, key in (("packets", "Pkts"), ("bytes", "Bytes")):
                    metric = f"ryn_uplink_queue_{direction}_{what}_total"
                    assert samples[series(metric, **labels, queue=number)] == str(dict(queue)[side + key])
        if stats["privStats"]:
            links[frozenset((key, str(value)) for key, value in labels.items())] = "1"
    assert len(links) == 3  # the driver of the fourth says nothing
    assert named(samples, "ryn_uplink_link_up") == links


def test_flow_cache_and_offload_by_core(samples, facts):
    fields = {
        "entries": "numFlows",
        "hits_total": "hits",
        "misses_total": "miss",
        "offload_hits_total": "fpoHits",
        "local_hits_total": "localHits",
        "key_insert_failures_total": "keyInsertFailCount",
    }
    for name, records in facts["flows"]:
        for record in records:
            for metric, field in fields.items():
                value = samples[series(f"ryn_flow_cache_{metric}", switch=name, core=record["lcoreID"])]
                assert int(value) % 2**32 == record[field]
    fields = {
        "hits_total": "hits",
        "mark_mismatches_total": "markMismatched",
        "ephemeral_flows": "ephemeralFlows",
        "pnic_mismatches_total": "pnicMismatched",
        "delayed_mark_matches_total": "delayMarkMatching",
        "transient_flows": "transientFlows",
    }
    for name, records in facts["fpo"]:
        for record in records:
            for metric, field in fields.items():
                value = samples[series(f"ryn_fpo_{metric}", switch=name, core=record["lcoreID"])]
                assert int(value) % 2**32 == record[field]
    assert samples[series("ryn_flow_timeout_seconds")] == str(facts["timeout"])


def test_core_usage_is_0_to_1_and_of_the_host(samples, facts):
    usage = named(samples, "ryn_core_usage_ratio")
    assert {dict(labels)["core"] for labels in usage} == {str(core) for core, _ in facts["usage"]}
    for core, percent in facts["usage"]:
        value = float(samples[series("ryn_core_usage_ratio", core=core)])
        assert 0 <= value <= 1
        assert int(value * 100 + 1e-9) == percent
    assert any(float(value) > 0.01 for value in usage.values())


def test_balancer(samples, facts):
    assert [
        samples[series("ryn_balancer_info", switch=switch["name"], algorithm=algorithm)]
        for switch, algorithm in zip(facts["switches"], facts["algorithms"])
    ] == ["1", "1"]
    names = [
        "cross_numa_communication",
        "cross_numa_migration",
        "cross_lcore_communication",
        "cross_lcore_migration",
        "vm_affinity",
        "device_affinity",
        "stability_decay",
        "port_count",
    ]
    weights = {dict(labels)["weight"]: value for labels, value in named(samples, "ryn_balancer_weight").items()}
    assert weights == {name: str(weight) for name, weight in zip(names, facts["weights"])}


def test_tables_by_flag(samples, facts):
    for name, table in facts["macs"]:
        assert samples[series("ryn_mac_entries", switch=name)] == str(len(table["MacTableList"]))
        assert samples[series("ryn_mac_limit", switch=name)] == str(table["MacLimit"])
    for name, port, filters in facts["netq"]:
        assert samples[series("ryn_netq_filters", switch=name, port=port)] == str(filters)
    sessions = {(dict(labels)["switch"], int(dict(labels)["session"])) for labels in named(samples, "ryn_mirror_info")}
    assert sessions == {(name, index) for name, indices in facts["mirrors"] for index in indices}


def test_every_metric_is_a_row_of_the_table_with_its_labels(default_host):
    text = run(default_host, "--once", *ALL).stdout
    rows = {row["metric"]: row for row in exporting.table()}
    assert {name for name, _ in parse(text)} == set(rows)
    for name, labels in parse(text):
        assert {label for label, _ in labels} == set(filter(None, rows[name]["labels"].split(","))), name
        assert not {"port", "core"} <= {label for label, _ in labels}
    for name, row in rows.items():
        assert f"# HELP {name} {row['meaning']}\n# TYPE {name} {row['type']}\n" in text
        assert text.count(f"# TYPE {name} ") == 1
        assert row["type"] == ("counter" if name.endswith("_total") else "gauge")
        assert row["source"] and row["collector"] and "\\" not in row["meaning"]
    assert all(rows[name]["type"] == "gauge" for name in INFOS)


def test_documents_have_the_table():
    shown = (exporting.ROOT / "docs" / "fleet.md").read_text()
    assert run(exporting.Environment(exporting.BUILD / "simhost"), "--metrics").stdout in shown


@pytest.mark.skipif(not shutil.which("promtool"), reason="needs promtool")
def test_promtool_finds_nothing(default_host):
    text = run(default_host, "--once", *ALL).stdout
    done = subprocess.run(["promtool", "check", "metrics"], input=text, text=True, capture_output=True)
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")


def test_both_formats_say_the_same(default_host):
    parser = pytest.importorskip("prometheus_client.openmetrics.parser")
    with exporter_on(default_host, *ALL, "--interval", "60") as exporter:
        plain = exporter.scrape()
        response, body = exporter.request(Accept="application/openmetrics-text; version=1.0.0")
        text = body.decode()
    assert response.headers["Content-Type"] == "application/openmetrics-text; version=1.0.0; charset=utf-8"
    assert text.endswith("\n# EOF\n") and text.count("# EOF") == 1
    assert "_created" not in text
    assert "# TYPE ryn_port_receive_bytes counter\n# UNIT ryn_port_receive_bytes bytes\n" in text
    ages = {key for key in plain if key[0].startswith("ryn_collector_")}
    assert {k: v for k, v in parse(text).items() if k not in ages} == {k: v for k, v in plain.items() if k not in ages}
    families = list(parser.text_string_to_metric_families(text))  # refuses what is not OpenMetrics
    assert {family.type for family in families} == {"counter", "gauge"}
    assert sum(len(family.samples) for family in families) == len(plain)
    assert all(sample.timestamp is None for family in families for sample in family.samples)


# ---- Scripted answers ------------------------------------------------------------------------------------------------


@pytest.fixture
def scripts(tmp_path: Path) -> Scripts:
    return Scripts(tmp_path)


def once(scripts: Scripts, *arguments: str) -> dict:
    done = run(scripts, "--once", *arguments)
    assert (done.returncode, done.stderr) == (0, "")
    return parse(done.stdout)


def test_counters_are_exact_and_unsigned(scripts):
    """Each counter from its own bytes, up to the last bit."""
    scripts.switches((0, "a", 1500))
    scripts.ports(0, [(3, 1), (5, 2)])
    fast, slow = [2**64 - 1 - n for n in range(16)], [2**63 + n for n in range(16)]
    scripts.answer("Ryn_Get_Port_Stats", struct.pack("<16Q", *fast))
    scripts.answer("Ryn_Get_Port_Stats_Slowpath-0-3", struct.pack("<16Q", *slow))
    scripts.answer("Ryn_Get_Uplink_Stats-0-5", struct.pack("<24Q", *(2**64 - 100 + n for n in range(24))))
    samples = once(scripts)
    positions = {
        "transmit_bytes": 0,
        "transmit_packets": 1,
        "transmit_drops": 6,
        "transmit_errors": 7,
        "receive_bytes": 8,
        "receive_packets": 9,
        "receive_drops": 14,
        "receive_errors": 15,
    }
    for metric, position in positions.items():
        name = f"ryn_port_{metric}_total"
        assert samples[series(name, switch="a", port=3, path="fast")] == str(fast[position])
        assert samples[series(name, switch="a", port=3, path="slow")] == str(slow[position])
        assert samples[series(name, switch="a", port=5, path="slow")] == "0"
    positions = {
        "receive_packets": 0,
        "transmit_packets": 1,
        "receive_bytes": 2,
        "transmit_bytes": 3,
        "receive_errors": 4,
        "transmit_errors": 5,
        "receive_drops": 6,
        "transmit_drops": 7,
    }
    for metric, position in positions.items():
        name = f"ryn_uplink_{metric}_total"
        assert named(samples, name) == {series(name, switch="a", port=5)[1]: str(2**64 - 100 + position)}


@pytest.mark.parametrize(
    "name, shown",
    [
        (b"plain", "plain"),
        (b'a"b\\c\nd', 'a\\"b\\\\c\\nd'),
        ("größe 数 \U0001f41f".encode(), "größe 数 \U0001f41f"),
        *(
            (raw, raw.decode("utf-8", "replace"))
            for raw in (
                b"\xff",
                b"x\x80y",
                b"\xc0\xaf",
                b"\xe0\x80\x80",
                b"\xed\xa0\x80",
                b"\xf4\x90\x80\x80",
                b"\xf0\x9f\x90",
                b"ab\xe6\x95",
                b"\xf0\x9f\x90\x41",
                b"\xc3\xc3\xa9",
            )
        ),
    ],
)
def test_text_is_escaped_and_utf_8(scripts, name, shown):
    scripts.switches((0, name, 9000))
    done = subprocess.run([exporting.PROGRAM, "--once"], env=scripts.values, capture_output=True, timeout=30)
    assert f'ryn_switch_mtu_bytes{{switch="{shown}"}} 9000\n'.encode() in done.stdout


def test_a_name_without_end_is_read_to_its_width(scripts):
    scripts.switches((0, b"n" * 128, 1), (1, b"m", 2))
    assert samples_of_mtu(once(scripts)) == {"n" * 128: "1", "m": "2"}


def samples_of_mtu(samples: dict) -> dict[str, str]:
    return {dict(labels)["switch"]: value for labels, value in named(samples, "ryn_switch_mtu_bytes").items()}


def test_no_series_stands_twice(scripts):
    """Switches that are written alike, ports and cores that are listed twice: the first one counts."""
    scripts.switches((0, b"\xfe", 1), (1, b"\xff", 2), (2, b"b", 3))
    scripts.ports(2, [(7, 1), (7, 1), (8, 1)])
    scripts.answer("Ryn_Get_LCore_ID_Bitmap-2", struct.pack("<Q", 0b110))
    record = struct.pack("<II5Q", 1, 10, 1, 2, 3, 4, 5)
    scripts.answer("Ryn_Get_Flow_Stats-2", struct.pack("<II", 4, 0) + 3 * record + struct.pack("<II5Q", 9, *6 * [1]))
    samples = once(scripts)  # refuses a series that stands twice
    assert samples_of_mtu(samples) == {"\ufffd": "1", "b": "3"}
    assert {dict(labels)["port"] for labels in named(samples, "ryn_port_macs")} == {"7", "8"}
    assert named(samples, "ryn_flow_cache_entries") == {series("", switch="b", core=1)[1]: "10"}


def test_cores_of_the_bitmap_are_asked_32_at_a_time(scripts):
    scripts.switches((0, b"a", 1))
    scripts.answer("Ryn_Get_LCore_ID_Bitmap-0", struct.pack("<Q", 2**64 - 1))
    for first in (0, 32):
        cores = range(first, first + 32)
        scripts.answer(
            f"Ryn_Get_Flow_Stats-0-{first}",
            struct.pack("<II", 32, 0)
            + b"".join(
                struct.pack("<II5Q", core, 100 + core, *(2**33 + core + n for n in range(5))) for core in cores
            ),
        )
        scripts.answer(
            f"Ryn_Get_FPO_Stats-0-{first}",
            struct.pack("<II", 32, 0)
            + b"".join(struct.pack("<II6Q", core, 0, *(2**34 + core + n for n in range(6))) for core in cores),
        )
    samples = once(scripts)
    assert [call for call in scripts.calls() if call.startswith(("Ryn_Get_Flow_Stats", "Ryn_Get_FPO_Stats"))] == [
        "Ryn_Get_Flow_Stats 0 0 32",
        "Ryn_Get_Flow_Stats 0 32 32",
        "Ryn_Get_FPO_Stats 0 0 32",
        "Ryn_Get_FPO_Stats 0 32 32",
    ]
    for core in range(64):
        labels = {"switch": "a", "core": core}
        assert samples[series("ryn_flow_cache_entries", **labels)] == str(100 + core)
        for n, metric in enumerate(
            ["hits_total", "misses_total", "offload_hits_total", "local_hits_total", "key_insert_failures_total"]
        ):
            assert samples[series(f"ryn_flow_cache_{metric}", **labels)] == str(2**33 + core + n)
        for n, metric in enumerate(
            [
                "hits_total",
                "mark_mismatches_total",
                "pnic_mismatches_total",
                "delayed_mark_matches_total",
                "ephemeral_flows",
                "transient_flows",
            ]
        ):
            assert samples[series(f"ryn_fpo_{metric}", **labels)] == str(2**34 + core + n)


def test_core_usage_is_asked_once_and_stays_within_its_bounds(scripts):
    scripts.switches((0, b"a", 1), (1, b"b", 1), (2, b"c", 1))
    scripts.answer("Ryn_Dump_LB_PortStats-0", status=5)
    scripts.answer("Ryn_Get_LCore_ID_Bitmap", struct.pack("<Q", 0b10111))
    records = {
        0: (75, 0, 100, 0),
        1: (300, 0, 100, 0),
        2: (5, 0, 0, 0),
        3: (50, 0, 100, 0),
        4: (2**64 - 1, 5, 50, 10),
    }
    area = bytearray(9224)
    for core, (busy, before, now, then) in records.items():
        struct.pack_into("<4Q", area, 6152 + 48 * core, busy, before, now, then)
    scripts.answer("Ryn_Dump_LB_PortStats-1", bytes(area))
    samples = once(scripts)
    usage = {dict(labels)["core"]: float(value) for labels, value in named(samples, "ryn_core_usage_ratio").items()}
    assert usage == {"0": 0.75, "1": 1, "2": 0, "4": 1}
    calls = [call for call in scripts.calls() if call.startswith("Ryn_Dump_LB_PortStats")]
    assert calls == ["Ryn_Dump_LB_PortStats 0", "Ryn_Dump_LB_PortStats 1"]


@pytest.mark.parametrize(
    "text, state",
    [
        (b"lunic0 (driver)\nlink_up: 1\n", "1"),
        (b"link_up: 00000", "0"),
        (b"x\nlink_up:  0017 \r\n", "1"),
        (b"", None),
        (b"link_up: yes\n", None),
        (b"link_up: \n", None),
        (b" link_up: 1\n", None),
        (b"not_link_up: 1\n", None),
        (b"link_up: 1 2\n", None),
        (b"link_up: -1\n", None),
    ],
)
def test_link_state_only_where_the_driver_says_it(scripts, text, state):
    scripts.switches((0, b"a", 1))
    scripts.ports(0, [(0, 2), (1, 1)])
    scripts.answer("Ryn_Get_Uplink_Priv_Stats_Len", struct.pack("<I", len(text)))
    scripts.answer("Ryn_Get_Uplink_Priv_Stats", text)
    assert named(once(scripts), "ryn_uplink_link_up") == ({series("", switch="a", port=0)[1]: state} if state else {})


def test_stored_settings_go_before_those_of_the_datapath(host):
    host.sim(
        "set",
        "switches.dvs-1.properties.host.com.talvor.kiv.ryn.burstsize=u32:0,77",
        "switches.dvs-2.properties.host.com.talvor.kiv.ryn.burstsize=u32:3,77",
        "switches.dvs-1.properties.host.com.talvor.kiv.ryn.loadbal=u32:0,2,60,40,10,5",
        "switches.dvs-2.properties.host.com.talvor.kiv.ryn.loadbal=u32:1",
    )
    samples = parse(run(host, "--once").stdout)
    assert named(samples, "ryn_switch_burst_size") == {series("", switch="dvs-1-set")[1]: "77"}
    algorithms = {dict(labels)["switch"]: dict(labels)["algorithm"] for labels in named(samples, "ryn_balancer_info")}
    assert algorithms == {"dvs-1-set": "count", "dvs-2-set": "invalid"}
    assert samples[series("ryn_collector_success", collector="switch")] == "1"


def test_names_follow_the_configuration(host):
    """The configuration is read anew with each round."""
    with exporter_on(host, "--interval", "0.1") as exporter:
        before = {dict(labels)["alias"] for labels in named(exporter.scrape(), "ryn_switch_info")}
        assert before == {"dvs-1", "dvs-2"}
        host.sim("set", "switches.dvs-1.properties.global.com.talvor.common.alias=text:renamed")
        exporter.until(
            lambda samples: {dict(labels)["alias"] for labels in named(samples, "ryn_switch_info")}
            == {"renamed", "dvs-2"}
        )


@pytest.mark.parametrize(
    "patterns, ports",
    [
        (["dvs-1-set/*"], 23),
        (["*/0"], 2),
        (["dvs-?-set/[01]"], 4),
        (["*"], 35),
        (["nothing"], 0),
        (["dvs-1-set/0", "dvs-2-set/1"], 2),
    ],
)
def test_ports_are_filtered(default_host, patterns, ports):
    arguments = [argument for pattern in patterns for argument in ("--ports", pattern)]
    samples = parse(run(default_host, "--once", *ALL, *arguments).stdout)
    assert len(named(samples, "ryn_port_info")) == ports
    seen = {
        tuple(dict(labels).get(key) for key in ("switch", "port")) for name, labels in samples if "port" in dict(labels)
    }
    assert len(seen) == ports


def test_a_reset_is_a_counter_that_starts_anew(host):
    host.sim("clock", "run")
    with exporter_on(host, "--interval", "0.1") as exporter:
        port = series("ryn_port_receive_packets_total", switch="dvs-1-set", port=2, path="fast")
        before = int(exporter.scrape()[port])
        assert before > 100_000
        host.methods("m.ResetPort(0, 2)")
        exporter.until(lambda samples: int(samples[port]) < before // 2)


def test_gzip_is_the_same_text(default_host):
    with exporter_on(default_host, "--interval", "60") as exporter:
        plain = exporter.scrape()
        response, body = exporter.request(Accept_Encoding="gzip")
        zipped = parse(gzip.decompress(body).decode())
    assert response.headers["Content-Encoding"] == "gzip"
    assert len(body) < 20_000
    ages = {key for key in plain if key[0].startswith("ryn_collector_")}
    assert {k: v for k, v in zipped.items() if k not in ages} == {k: v for k, v in plain.items() if k not in ages}
    assert set(zipped) == set(plain)
