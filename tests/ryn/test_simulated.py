"""The package on simulated hosts: its guide as written, and every value against the module's."""

import json
import subprocess
from pathlib import Path

import harness
import pytest
import simulated_host

HERE = Path(__file__).parent
EXAMPLES = simulated_host.ROOT / "examples"
PROFILES = sorted(path.stem for path in (simulated_host.ROOT / "simhost" / "profiles").glob("*.yaml"))

pytestmark = pytest.mark.skipif(harness.UNDER_ASAN, reason="the simulated host is not run under the sanitizers")


def test_every_call_of_the_guide_runs_as_written(sim):
    assert sim.script(HERE / "as_written.py").splitlines()[-1] == "as written"


@pytest.mark.parametrize("profile", PROFILES)
def test_every_value_is_the_modules(tmp_path, profile):
    host = simulated_host.SimulatedHost(tmp_path, profile)
    compared = int(host.script(HERE / "compare.py"))
    assert compared > (3 if profile == "empty" else 200)


def test_the_examples_in_docstrings(sim):
    assert sim.script(HERE / "docstrings.py") == ""


# The examples


def example(sim, name: str, *arguments: str) -> subprocess.CompletedProcess:
    command = ["/usr/bin/python3", str(EXAMPLES / name), *arguments]
    return subprocess.run(command, env=sim.environment, text=True, capture_output=True, timeout=120, cwd="/")


def test_the_inventory_is_a_table_or_a_document(sim):
    text = example(sim, "inventory.py").stdout
    document = json.loads(example(sim, "inventory.py", "--json").stdout)
    assert [len(switch["ports"]) for switch in document] == [23, 12]
    assert all(port["mac"] in text for switch in document for port in switch["ports"])
    assert "cores 0-3,8-11" in text


@pytest.mark.parametrize("profile", ["default", "asymmetric", "large"])
def test_the_inventory_fits_80_columns(tmp_path, profile):
    lines = example(simulated_host.SimulatedHost(tmp_path, profile), "inventory.py").stdout.splitlines()
    assert 80 >= max(map(len, lines)) > 60


def test_the_inventory_says_why_it_failed(sim):
    sim.tool("fault", "add", "Ryn_Get_Port_List", "--status", "1", "--where", "sw=1")
    done = example(sim, "inventory.py")
    assert (done.returncode, done.stderr) == (1, "inventory: Ryn_Get_Port_List(1): failed (status 0x00000001)\n")


def test_the_inventory_of_an_empty_host(tmp_path):
    empty = simulated_host.SimulatedHost(tmp_path, "empty")
    assert example(empty, "inventory.py").stdout == "no switches\n"
    assert json.loads(example(empty, "inventory.py", "--json").stdout) == []


def test_the_flows_that_match_are_listed(sim):
    flows = [json.loads(line) for line in example(sim, "flows.py", "--core", "1", "--json").stdout.splitlines()]
    text = example(sim, "flows.py", "--core", "1").stdout.splitlines()
    assert len(flows) == len(text) > 100 and {flow["core"] for flow in flows} == {1}
    limited = example(sim, "flows.py", "--switch", "dvs-1", "--dst", "10.0.0.0/24", "--action", "drop", "--limit", "3")
    assert [" DROP" in line or "|DROP" in line for line in limited.stdout.splitlines()] == [True] * 3


@pytest.mark.parametrize(
    "arguments, says",
    [
        (["--core", "32"], "core 32 is not within 0 to 31"),
        (["--switch", "dvs-9"], "there is no switch 'dvs-9'"),
        (["--dst", "10.0.0"], "10.0.0"),
    ],
)
def test_flows_that_cannot_be_asked_for(sim, arguments, says):
    done = example(sim, "flows.py", *arguments)
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr.startswith("flows: ") and says in done.stderr and len(done.stderr.splitlines()) == 1


def test_the_event_loop_goes_on_while_readings_are_made(sim):
    sim.tool("fault", "add", "Ryn_Get_Switch_List", "--delay", "100ms")
    done = example(sim, "watch_async.py", "--interval", "0.05", "--count", "2")
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout.count("35 ports") == 2 and done.stdout.endswith("the event loop went on meanwhile\n")
