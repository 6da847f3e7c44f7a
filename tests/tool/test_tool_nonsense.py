"""What makes no sense is refused at once, with its line and its key; what a method may set is taken back."""

import json

import pytest
from ryn_sim import hosts
from ryn_sim.errors import BadInput

HOST = """\
host: h
numa: [{lcores: [0, 1]}]
nics: {n0: {numa: 0}}
switches: [{alias: s, uplinks: [n0]}]
ports: [{switch: s, vm: a}, {switch: s, vm: b}]
"""


def problems(text: str) -> list[str]:
    with pytest.raises(BadInput) as raised:
        hosts.compiled(text, "h.yaml", "h.yaml")
    return str(raised.value).splitlines()


@pytest.mark.parametrize(
    "text, expected",
    [
        (HOST + "traffic: [{from: a, to: a, pps: 1}]\n", 'h.yaml:6: traffic[0].to: "a" cannot talk to itself'),
        (HOST + "traffic: [{from: a, to: b, pps: 2G}]\n", 'h.yaml:6: traffic[0].pps: expected at most 1G packets a second, got "2G"'),  # noqa: E501
        (
            HOST.replace("vm: b", "vm: b, mac: '02:00:00:00:00:09'").replace("vm: a", "vm: a, mac: '02:00:00:00:00:09'"),  # noqa: E501
            "h.yaml:5: ports[1].mac: the address 02:00:00:00:00:09 is that of s/1 already",
        ),
        (HOST.replace("vm: b", "vm: uplink"), "h.yaml:5: ports[1].vm: a machine cannot be called"),
        (HOST.replace("n0", "uplink"), "h.yaml:3: nics.uplink: a NIC cannot be called"),
        (
            HOST.replace("alias: s,", "alias: s, mac_entries: [{port: 1, mac: '01:00:5e:00:00:01'}],"),
            "h.yaml:4: switches[0].mac_entries[0].mac: expected the address of one station",
        ),
        (HOST.replace("vm: b", "vm: b, mac: 'ff:ff:ff:ff:ff:ff'"), "ports[1].mac: expected the address of one station"),
        (HOST.replace("vm: b", "vm: b, multicast: ['02:00:00:00:00:01']"), "ports[1].multicast[0]: expected a group address"),  # noqa: E501
        (
            HOST.replace("alias: s,", f"alias: s, mirrors: [{', '.join(f'{{session: {n}}}' for n in range(29))}],"),
            "h.yaml:4: switches[0].mirrors[28]: expected sessions that fit the 2048 bytes of GetMirrorConf's answer",
        ),
        (HOST + "events: [{event: uplink-down, target: n0, value: 3}]\n", "events[0].value: uplink-down has no value"),
        (HOST + "events: [{event: mac-limit, target: z}]\n", 'events[0].target: there is no switch "z"; known: s'),
        (HOST + "events: [{event: counters-near-wrap, target: z}]\n", 'events[0].target: there is no port "z"'),
        (HOST + "events: [{event: counters-near-wrap, target: s/9}]\n", 'events[0].target: there is no port "s/9"'),
        (
            HOST + "events: [{event: counters-near-wrap, target: a, until: 5s}]\n",
            "events[0].until: counters-near-wrap happens once, it has no end",
        ),
        (HOST + "events: [{event: core-stuck, target: 0, from: 5s, until: 5s}]\n", "until: expected a time after from"),
        (HOST + "faults: [{operation: Ryn_GetLRO, status: 0}]\n", "faults[0].status: expected a number from 1"),
        (HOST + "faults: [{operation: Ryn_GetLRO, status: 1, where: sw}]\n", "faults[0].where: expected an argument"),
        (HOST + "faults: [{operation: Ryn_GetLRO, status: 1, from: 5s, until: 3s}]\n", "faults[0].until: expected a time after from"),  # noqa: E501
        (HOST + "faults: [{operation: Ryn_GetLRO, status: 1, corrupt: ones}]\n", "faults[0].corrupt: a status is answered instead"),  # noqa: E501
        (HOST + "traffic: [{from: a, to: b, pps: -5}]\n", "traffic[0].pps: expected packets a second, such as 250"),
        (
            HOST.replace("alias: s,", "alias: s, mac_entries: [{port: 9, mac: '02:00:00:00:00:01'}],"),
            "h.yaml:4: switches[0].mac_entries[0].port: there is no port 9",
        ),
        (
            HOST.replace("alias: s,", "alias: s, mac_entries: [{port: 1, mac: '02:00:00:00:00:01', vlan: 4096}],"),
            "h.yaml:4: switches[0].mac_entries[0].vlan: expected a VLAN from 0 to 4095, got 4096",
        ),
        (
            HOST.replace("alias: s,", "alias: s, properties: {host: {a: 5}},"),
            "h.yaml:4: switches[0].properties.host.a: expected a property's value: text:WORDS",
        ),
        (
            HOST.replace("[{alias: s,", "[{alias: t, name: s}, {alias: s,"),
            'h.yaml:4: switches[1].alias: the portset name "s" is taken already',
        ),
        (HOST + "---\nhost: i\n", "expected a single document in the stream, but found another"),
        (HOST + "faults: [{operation: Ryn_GetLRO, status: 1, where: [sw=0, prot=4]}]\n", "faults[0].where[1]: expected an argument"),  # noqa: E501
    ],
)  # fmt: skip
def test_nonsense_is_refused_with_its_line_and_key(text, expected):
    (line,) = problems(text)
    assert expected in line


def test_what_still_makes_sense_is_taken():
    rows = hosts.compiled(HOST + "traffic: [{from: '*', to: a, pps: 1G}]\n", "h", "h")
    assert [row["src_port"] for row in rows["conversation"]] == [0, 2]  # a pattern leaves the receiver itself out
    assert rows["conversation"][0]["milli_pps"] == 10**12
    hosts.compiled(
        HOST.replace("alias: s,", "alias: s, mirrors: [" + ", ".join(f"{{session: {n}}}" for n in range(28)) + "],"),
        "h",
        "h",
    )


def test_all_problems_are_named_at_once_references_too():
    found = problems(
        HOST.replace("vm: b", "vm: b, vlan: 5000")
        + "seed: x\ntraffic: [{from: a, to: c, pps: 1}, {from: a, to: a, pps: no}]\n"
    )
    assert [line.split(": ")[1] for line in found] == [
        "ports[1].vlan",
        "seed",
        "traffic[0].to",
        "traffic[1].pps",
        "traffic[1].to",
    ]


def test_keys_given_twice_and_tags_are_named_with_all_else():
    found = problems(HOST + "seed: x\nabout: a\nabout: b\nflow_timeout: !mine 5s\n? [a]\n: 3\nclock: {speed: 1e999}\n")
    assert found == [
        'h.yaml:6: seed: expected a number from 0 to 9223372036854775807, got "x"',
        "h.yaml:8: about: this key is given twice",
        'h.yaml:9: flow_timeout: the tag "!mine" has no meaning here',
        "h.yaml:10: the description: expected a plain text as key",
        'h.yaml:12: clock.speed: expected a speed from 0.001 to 1000000, in seconds of host time a second, got "1e999"',
    ]


def test_an_event_names_its_target_as_people_do():
    text = HOST + "events: [{event: mac-limit, target: s}, {event: mac-limit, target: 0}]\n"
    assert [row["target"] for row in hosts.compiled(text, "h", "h")["event"]] == ["0", "0"]
    names = ("a", "s/1", "0/1")
    text = HOST + f"events: [{', '.join(f'{{event: counters-near-wrap, target: {name}}}' for name in names)}]\n"
    assert [row["target"] for row in hosts.compiled(text, "h", "h")["event"]] == ["0/1"] * 3


def test_what_refers_to_something_unread_is_not_blamed():
    """The switch has no alias that can be read: that the port's switch is missing follows from that."""
    (line, _) = sorted(problems(HOST.replace("alias: s", "alais: s")))
    assert 'unknown key; did you mean "alias"?' in line or "is missing" in line


def test_what_methods_may_set_is_exported_and_taken_back(live):
    live("init")
    script = """
import _libryn as r
r.SetFlowTimeout(4294967295); r.SetLBWeights(*[4294967294] * 8); r.SetPortLRO(0, 2, 4294967295); r.SetSwitchLRO(1, 7)
r.SetPanicOnTxHang(0, 4294967295); r.SetUplinkMACLearn(0, 9); r.SetDevAffinity("lunic0", 4294967295)
r.SetPortTxUplink(0, 4, {"txType": "LAG", "txUplinks": [4294967295] * 8}); r.EnableFPO("dvs-1", 4294967295)
r.SetSwitchBurstSize("dvs-1", 4294967295); r.SetLBParams("dvs-1", 4294967295, 0, 4294967295, 9)
r.SetSwitchNUMATeam("dvs-1", 255); r.AddMACEntry(0, 2, 0x554433221100, 5); r.AddMACEntry(0, 2, 0x554433221101, 5)
r.ResetPort(0, 3); r.ClearSwitchMACTable(0); r.ClearSwitchFlowTable(0); r.InitMbufFastslabs(); r.MigratePort(0, 6, 3, 3, 1)  # noqa: E501
print(r.ListSwitches() is not None)
"""
    done = live.process("run", "--", "/usr/bin/python3", "-c", script)
    assert done.stdout == "True\n", done
    live("clock", "freeze")
    text = live("export")
    assert "flow_timeout: 4294967295s" in text
    live("init", "-", "--host", "again", text=text)
    assert live("export", "--host", "again") == text


def test_set_speaks_of_the_path_that_was_typed(live):
    live("init")
    assert (
        live.fails(2, "set", "ports.web-0.vlan=5000")
        == "ryn-sim: set: ports.web-0.vlan: expected a VLAN from 0 to 4095, got 5000\n"
    )
    (line,) = live.fails(2, "set", "switches.dvs-1.name=dvs-2-set").splitlines()
    assert line.startswith("ryn-sim: set: switches.dvs-1.name: the rest of the host does not allow it: ")


def test_set_names_all_that_is_wrong_at_once(live):
    live("init")
    before = live("export")
    lines = live.fails(2, "set", "ports.nix.lro=on", "ports.web-0.vlan=5000", "seed=3", "mut=1", "about=x").splitlines()
    assert [line.split(": ")[2] for line in lines] == ["ports.nix.lro", "seed", "mut", "ports.web-0.vlan"]
    assert live("export") == before


@pytest.mark.parametrize(
    "path",
    [
        *("switches.dvs-1.alias=x", "switches.dvs-1.id=x", "switches.dvs-1.number=5", "switches.dvs-1.uplinks=[]"),
        *("switches.dvs-1.datapath=no", "ports.web-0.switch=dvs-2", "ports.web-0.port=99", "ports.web-0.count=3"),
    ],
)
def test_what_others_refer_to_stays(live, path):
    live("init")
    typed = path.partition("=")[0]
    expected = f"ryn-sim: set: {typed}: this stays as it is; describe another host and use: ryn-sim init\n"
    assert live.fails(2, "set", path) == expected


def test_a_machine_can_be_renamed_although_others_name_it(live):
    live("init")
    assert live("set", "ports.web-0.vm=shop") == "changed 1 row\n"
    assert live("get", "traffic.0.from") == "shop\n" and "in: [shop, web-1]" in live("export")
    assert "this path is given twice" in live.fails(2, "set", "ports.shop.lro=on", "ports.dvs-1/2.lro=off")


def test_of_two_conditions_both_count(live):
    live("init")
    live("fault", "add", "Ryn_GetLRO", "--where", "sw=0", "--where", "port=4")
    (fault,) = json.loads(live("fault", "list", "--json"))
    assert fault["where"] == ["sw=0", "port=4"]
    done = live.process(
        "run",
        "--",
        "/usr/bin/python3",
        "-c",
        "import _libryn as r; print([r.GetPortLRO(s, p) for s, p in ((0, 4), (1, 4), (0, 5))])",
    )
    assert done.stdout.startswith("[None, ") and done.stdout.count("None") == 1


@pytest.mark.parametrize(
    "arguments",
    [["set", "about=x"], ["fault", "add", "Ryn_GetLRO"], ["fault", "remove", "1"], ["fault", "clear"], ["log", "--clear"],  # noqa: E501
     ["clock", "freeze"], ["ls"], ["get", "about"], ["show", "rates"], ["clone", "other"], ["reset"], ["rm"]],
)  # fmt: skip
def test_json_works_with_what_changes_too(live, arguments):
    live("init")
    if arguments[:2] == ["fault", "remove"]:
        live("fault", "add", "Ryn_GetLRO")
    json.loads(live(*arguments, "--json"))


def test_json_is_refused_by_name_where_it_means_nothing(live):
    assert "--json" in live.fails(2, "init", "--sql", "--json")
    assert "--json" in live.fails(2, "completion", "bash", "--json")
    assert "--json" in live.fails(2, "run", "--json", "--", "true")
