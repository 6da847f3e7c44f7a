"""What is wrong with a description, on which line, and what was expected."""

import textwrap

import pytest
from ryn_sim import hosts
from ryn_sim.errors import BadInput
from simtool import PROFILES, ROOT

HEAD = "host: h\nnuma: [{lcores: [0, 1]}]\n"
SWITCH = HEAD + "nics: {n0: {numa: 0}}\nswitches: [{alias: s, uplinks: [n0]}]\n"
PORT = SWITCH + "ports: [{switch: s, vm: a}, {switch: s, vm: b}]\n"


@pytest.mark.parametrize(
    "text, expected",
    [
        ("", "1: the description is empty"),
        ("[]", "1: the description: expected a mapping that begins with host:, got an empty list"),
        ("host: [", "2: not valid YAML"),
        ("host: h\nnuma:\n  - lcores: [0\n", "not valid YAML"),
        ("a: &x [*x]\n", "1: an alias must not contain itself"),
        ("host: h\nhost: i\n", "2: host: this key is given twice"),
        ("host: !thing h\n", '1: host: the tag "!thing" has no meaning here'),
        ("host: h\n", 'the description: the key "numa" is missing'),
        (HEAD + "switchs: []\n", '3: switchs: unknown key; did you mean "switches"?'),
        (HEAD + "switches:\n  - alias: s\n    mtuu: 3\n", '5: switches[0].mtuu: unknown key; did you mean "mtu"?'),
        (HEAD + "switches:\n  - mtu: 3\n", '4: switches[0]: the key "alias" is missing'),
        (HEAD + "seed: -1\n", "3: seed: expected a number from 0 to 9223372036854775807, got -1"),
        (HEAD + "seed: yes\n", "3: seed: expected a number from 0 to 9223372036854775807, got true"),
        (HEAD + "about: 5\n", "3: about: expected a text, got 5"),
        (HEAD + "flow_timeout: soon\n", "3: flow_timeout: expected a duration such as 30s"),
        (HEAD + "flow_timeout: 500ms\n", "3: flow_timeout: expected whole seconds"),
        (HEAD + "clock: {speed: 0}\n", "3: clock.speed: expected a speed from 0.001 to 1000000"),
        (HEAD + "clock: {speed: 1.00001}\n", "3: clock.speed: expected a multiple of 1/1000, got 1.00001"),
        (HEAD + "balancer: {period: 50ms}\n", '3: balancer.period: expected at least 100ms, got "50ms"'),
        (HEAD + "balancer: {weights: {port_cuont: 1}}\n", 'unknown key; did you mean "port_count"?'),
        ("host: h\nnuma: []\n", "2: numa: expected a list of one to eight NUMA nodes, got an empty list"),
        ("host: h\nnuma: [{lcores: [64]}]\n", "2: numa[0].lcores[0]: expected a core number from 0 to 63, got 64"),
        ("host: h\nnuma: [{lcores: [1]}, {lcores: [1]}]\n", "2: numa[1].lcores[0]: core 1 is listed already"),
        ("host: a/b\nnuma: [{lcores: [1]}]\n", "1: host: expected a name of up to 63"),
        (HEAD + "nics: {n: {numa: 1}}\n", "3: nics.n.numa: expected one of the 1 NUMA nodes (from 0), got 1"),
        (
            HEAD + "nics: {n: {numa: 0, link: 5}}\n",
            "3: nics.n.link: expected bits a second, a multiple of 1M, from 1M to 1T, got 5",
        ),
        (HEAD + "nics: {n: {numa: 0, fpo: Model 3}}\n", "nics.n.fpo: expected one of none,"),
        (SWITCH + "ports: [{switch: t}]\n", '5: ports[0].switch: there is no switch "t"; known: s'),
        (SWITCH + "ports: [{switch: s, nic: n1}]\n", '5: ports[0].nic: there is no NIC "n1"; known: n0'),
        (SWITCH + "ports: [{switch: s, nic: n0}]\n", 'ports[0]: the NIC "n0" is an uplink already'),
        (SWITCH + "ports: [{switch: s, kind: UPLINK}]\n", "a port is an UPLINK if and only if it has a nic"),
        (SWITCH + "ports: [{switch: s, port: 128}]\n", "ports[0].port: expected a port number from 0 to 127, got 128"),
        (SWITCH + "ports: [{switch: s, port: 3}, {switch: s, port: 3}]\n", "ports[1].port: port 3 is taken already"),
        (SWITCH + "ports: [{switch: s, count: 128}]\n", 'ports[0]: expected at most 128 ports on "s"'),
        (SWITCH + "ports: [{switch: s, count: 2, vm: x}]\n", "ports[0].vm: expected a name with {n} in it"),
        (SWITCH + "ports: [{switch: s, mac: 0:1}]\n", "ports[0].mac: expected a MAC address such as"),
        (SWITCH + "ports: [{switch: s, core: 7}]\n", "ports[0].core: there is no core 7"),
        (
            SWITCH + "ports: [{switch: s, vlans: [9-5]}]\n",
            "ports[0].vlans[0]: expected a VLAN, or a range within 0 to 4095",
        ),
        (SWITCH + "ports: [{switch: s, teaming: {type: LAG, uplinks: [n1]}}]\n", '"s" has no uplink "n1"'),
        (PORT + "traffic: [{from: c, to: uplink, pps: 1}]\n", '6: traffic[0].from: there is no port "c"'),
        (PORT + "traffic: [{from: a, to: c*, pps: 1}]\n", '6: traffic[0].to: there is no port "c*"'),
        (PORT + "traffic: [{from: a, to: '[ab]', pps: 1}]\n", 'expected one port, "[ab]" stands for 2'),
        (PORT + "traffic: [{from: n0, to: uplink, pps: 1}]\n", "expected a port, since the sender is an uplink"),
        (PORT + "traffic: [{from: a, to: b, pps: 1.0005}]\n", "traffic[0].pps: expected a multiple of 0.001"),
        (PORT + "traffic: [{from: a, to: b, pps: fast}]\n", "traffic[0].pps: expected packets a second"),
        (PORT + "traffic: [{from: a, to: b, pps: 1, src_ip: '2001:db8::1'}]\n", "src_ip and dst_ip of one family"),
        (PORT + "traffic: [{from: a, to: b, pps: 1, src_ip: 1.2.3.456}]\n", "expected an IPv4 or IPv6 address"),
        (
            PORT + "traffic: [{from: a, to: b, pps: 1, actions: [VRR]}]\n",
            'there is no action "VRR"; did you mean "VR"?',
        ),
        (
            PORT + "traffic: [{from: a, to: b, pps: 1, start: 5s, stop: 4s}]\n",
            "stop: expected a time at or after start",
        ),
        (
            PORT + "traffic: [{from: a, to: b, pps: 1, pattern: {burst: {every: 1s, for: 2s, times: 2}}}]\n",
            "traffic[0].pattern.burst.for: expected a burst no longer",
        ),
        (HEAD + "faults: [{operation: Ryn_GetLR0, status: 1}]\n", 'did you mean "Ryn_GetLRO"?'),
        (HEAD + "faults: [{operation: Ryn_*}]\n", "faults[0]: expected at least one of status, delay, corrupt"),
        (HEAD + "events: [{event: core-stuck, target: 5}]\n", 'events[0].target: there is no core "5"; known: 0, 1'),
        (HEAD + "events: [{event: uplink-down, target: n0}]\n", 'events[0].target: there is no NIC "n0"'),
        (
            HEAD + "switches: [{alias: s, properties: {host: {a.b: 'u32:1,4294967296'}}}]\n",
            "switches[0].properties.host.a.b: expected numbers from 0 to 4294967295",
        ),
        (HEAD + "switches: [{alias: s, datapath: false, mtu: 5}]\n", "switches[0].mtu: only a switch of the datapath"),
        (HEAD + "switches: [{alias: s}, {alias: s}]\n", '3: switches[1].alias: the alias "s" is taken already'),
        (
            HEAD + "switches: [" + ", ".join(f"{{alias: s{n}}}" for n in range(17)) + "]\n",
            "switches[16]: expected at most 16 switches of the datapath",
        ),
    ],
)
def test_a_message_names_line_key_and_expectation(text, expected):
    with pytest.raises(BadInput) as raised:
        hosts.compiled(text, "host.yaml", "host.yaml")
    assert str(raised.value).startswith("host.yaml:") and expected in str(raised.value)


def test_a_wrong_description_makes_nothing(sim, tmp_path):
    (tmp_path / "host.yaml").write_text(HEAD + "sede: 3\n")
    expected = f'ryn-sim: {tmp_path / "host.yaml"}:3: sede: unknown key; did you mean "seed"?\n'
    assert sim.fails(2, "init", tmp_path / "host.yaml") == expected
    assert not sim.path().exists()


def test_all_problems_are_reported_in_the_order_of_their_lines(sim):
    text = HEAD + "seed: x\nabout: 3\nswitches:\n  - alias: s\n    mtu: big\n"
    lines = sim.fails(2, "init", "-", text=text).splitlines()
    assert [line.split(":")[2] for line in lines] == ["3", "4", "7"]
    assert all(line.startswith("ryn-sim: standard input:") for line in lines)


def test_a_flood_of_problems_is_cut(sim):
    text = HEAD + "ports:\n" + "  - {switch: nowhere}\n" * 50
    lines = sim.fails(2, "init", "-", text=text).splitlines()
    assert len(lines) == 21 and lines[-1].endswith("and 30 further problems")


def test_check_makes_nothing(sim):
    assert "is right" in sim("init", "default", "--check")
    assert not sim.path().exists()


def test_a_file_that_cannot_be_read_is_named(sim, tmp_path):
    assert "nothing.yaml" in sim.fails(2, "init", tmp_path / "nothing.yaml")
    (tmp_path / "raw.yaml").write_bytes(b"host: \xff\n")
    assert "not a text in UTF-8" in sim.fails(2, "init", tmp_path / "raw.yaml")


def test_numbers_as_people_write_them():
    from ryn_sim import units

    assert [units.quantity(value) for value in ("40k", 40000, "0.04M", "1.5G", "7")] == [40000] * 3 + [1500000000, 7]
    assert [units.nanoseconds(value) for value in ("1h30m", 5, "250ms", "0.5", "2d", "7us")] == [
        5400 * 10**9,
        5 * 10**9,
        250 * 10**6,
        5 * 10**8,
        172800 * 10**9,
        7000,
    ]
    for wrong in ("", "k", "1.5", "-1", "1kk", "0x10", True):
        with pytest.raises(ValueError):
            units.quantity(wrong)
    for wrong in ("", "s", "1", "5 s", "1h-30m", "-5s", True):
        if wrong != "1":
            with pytest.raises(ValueError):
                units.nanoseconds(wrong)


def test_a_mac_address_without_quotes_is_a_text():
    from ryn_sim.document import Document

    assert Document("a: 10:20:30:40:50:55", "x").value == {"a": "10:20:30:40:50:55"}
    assert Document("[yes, off, 0x10, 1e3, null, 010, '5']", "x").value == [True, False, 16, 1000, None, 10, "5"]


def test_every_profile_says_what_it_is(sim):
    text = sim("init", "--list")
    for file in PROFILES.glob("*.yaml"):
        about = next(line for line in file.read_text().splitlines() if line.startswith("about:"))
        assert file.stem in text and about[7:] in text


def test_the_documentations_example_is_a_host(sim):
    text = (ROOT / "docs" / "ryn-sim.md").read_text()
    begin = text.index("    host: hv0\n")
    example = textwrap.dedent(text[begin : text.index("\n\n", begin)])
    assert "1 switch, 14 ports, 13 conversations" in sim("init", "-", text=example)
    daily = sim("init", "--sql", "-", text=example.replace("swing: 0.4", "daily: 0.4"))
    assert daily == sim("init", "--sql", "-", text=example)
