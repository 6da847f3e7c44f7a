"""ls and get: every path of a host, and what it holds now."""

import json
import re

import pytest


@pytest.fixture
def host(live):
    live("init")
    return live


def test_a_list_is_listed_by_the_names_of_its_items(host):
    assert host("ls", "nics").splitlines()[:2] == ["KEY          VALUE", "nics.lunic0  numa=0 fpo=Model 2"]
    assert [row["key"] for row in json.loads(host("ls", "switches", "--json"))] == [
        *("switches.dvs-1", "switches.dvs-2", "switches.dvs-3")
    ]
    assert host("ls", "ports.") == host("ls", "ports")
    assert ["ports", "35; see: ryn-sim ls ports"] in [re.split("  +", line) for line in host("ls").splitlines()]


def test_an_item_is_listed_with_all_that_can_be_set_of_it(host):
    """Each path that ls has can be read, and what get says of it can be set again."""
    for path in ("", "ports.web-0", "nics.lunic2", "traffic.0", "switches.dvs-1"):
        rows = json.loads(host("ls", *([path] if path else []), "--json"))
        assert len(rows) > 10
        for row in rows[:: 7 if path else 9]:
            assert json.loads(host("get", row["key"], "--json")) == row["value"], row["key"]
    typed = {row["key"]: row["value"] for row in json.loads(host("ls", "ports.web-0", "--json"))}
    assert typed["ports.web-0.teaming.uplinks"] == ["lunic0", "lunic1"] and typed["ports.web-0.rings.tx"] is None
    for key in ("vlan", "lro", "mac", "filter", "mac_limit", "teaming.type", "teaming.uplinks", "pinned"):
        value = json.dumps(typed[f"ports.web-0.{key}"])
        assert host("set", f"ports.web-0.{key}={value}") == "nothing to change\n", key


@pytest.mark.parametrize(
    "path, text, value",
    [
        ("flow_timeout", "10s", 10),
        ("nics.lunic2.link", "10G", 10**10),
        ("nics.lunic0.fpo", "Model 2", "Model 2"),
        ("traffic.0.pps", "40k", 40000),
        ("traffic.0.pattern.burst.every", "1m", 60),
        ("traffic.0.slow", "0.002", 0.002),
        ("ports.web-0.lro", "yes", True),
        ("ports.web-0.nic", "null", None),
        ("ports.web-0.mac", "02:00:00:07:00:02", "02:00:00:07:00:02"),
        ("ports.fw-0.vlans", '[100, 200, "300-399"]', [100, 200, "300-399"]),
        ("balancer.weights.vm_affinity", "6", 6),
        ("switches.dvs-1.uplinks", '["lunic0", "lunic1"]', ["lunic0", "lunic1"]),
        ("switches.dvs-1.properties.global.com.talvor.common.alias", "text:dvs-1", "text:dvs-1"),
        ("switches.dvs-1.stored.balancer.high", "null", None),
    ],
)
def test_a_value_is_a_text_for_people_and_of_its_own_type_in_json(host, path, text, value):
    assert host("get", path) == text + "\n"
    found = json.loads(host("get", path, "--json"))
    assert found == value and type(found) is type(value)


def test_what_programs_have_changed_is_what_get_says(host):
    program = "import _libryn as r; r.SetPortLRO(0, 2, 0); r.SetLBWeights(*[3] * 8); r.SetFlowTimeout(77)"
    assert host.process("run", "--", "/usr/bin/python3", "-c", program).returncode == 0
    assert (host("get", "ports.web-0.lro"), host("get", "flow_timeout")) == ("no\n", "77s\n")
    assert json.loads(host("get", "balancer.weights", "--json")) == dict.fromkeys(
        json.loads(host("get", "balancer.default_weights", "--json")), 3
    )
