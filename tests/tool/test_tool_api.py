"""Simulated hosts as Python objects, and the fixture for pytest."""

import json
import os
import subprocess
import sys
import textwrap

import pytest
import ryn_sim
from simtool import ROOT

LISTED = "import _libryn as ryn, json; print(json.dumps([ryn.GetPortLRO(0, 2), ryn.GetPortStats(0, 2)['txPkts']]))"


@pytest.fixture(autouse=True)
def built(monkeypatch):
    """The stand-ins of this build."""
    if "RYN_BUILD" in os.environ:
        monkeypatch.setenv("RYN_SIM_LIBS", os.path.join(os.environ["RYN_BUILD"], "simhost"))


def script(host: ryn_sim.Host, code: str):
    done = host.run(["/usr/bin/python3", "-c", code])
    assert (done.returncode, done.stderr) == (0, ""), done
    return json.loads(done.stdout)


def test_a_test_gets_a_host_of_its_own_whose_clock_stands(simulated_host):
    assert simulated_host.info()["clock"] == "frozen"
    assert os.environ["RYN_SIM_STATE"] == simulated_host.path
    before = script(simulated_host, LISTED)
    assert script(simulated_host, LISTED) == before and before[0] is True
    assert simulated_host.step("5s") == simulated_host.now == 3605
    assert script(simulated_host, LISTED)[1] > before[1]


@pytest.mark.simulated_host("empty", seed=9)
def test_a_marker_says_which_host(simulated_host):
    assert simulated_host.info()["ports"] == 0 and simulated_host.info()["seed"] == 9


@pytest.mark.simulated_host({"host": "mine", "numa": [{"lcores": [3]}]})
def test_a_host_may_be_described_in_the_test(simulated_host):
    assert [core["core"] for core in simulated_host.show("cores")] == [3]
    assert simulated_host.describe()["host"] == "mine"


def test_settings_are_made_and_read(simulated_host):
    assert simulated_host.set({"ports.web-0.lro": False, "switches.dvs-1.mtu": 4000}) == 2
    assert (simulated_host.get("ports.web-0.lro"), simulated_host.get("switches.dvs-1")["mtu"]) == (False, 4000)
    assert script(simulated_host, LISTED)[0] is False
    assert simulated_host.set({"ports.web-0.lro": None}) == 1
    with pytest.raises(ryn_sim.BadInput, match=r"set: ports.web-0.vlan: expected a VLAN from 0 to 4095, got 5000"):
        simulated_host.set({"ports.web-1.vlan": 7, "ports.web-0.vlan": 5000})
    assert simulated_host.get("ports.web-1.vlan") == 100


def test_faults_and_events_strike(simulated_host):
    number = simulated_host.fault("Ryn_GetLRO", where=["sw=0", "port=4"], times=1)
    done = simulated_host.run(
        ["/usr/bin/python3", "-c", "import _libryn as r; print([r.GetPortLRO(0, p) for p in (2, 4, 4)])"]
    )
    assert done.stdout == "[True, None, True]\n"
    assert [(fault["id"], fault["calls"], fault["hits"]) for fault in simulated_host.faults()] == [(number, 2, 1)]
    assert [line["operation"] for line in simulated_host.log("Ryn_*")] == ["Ryn_GetLRO"]
    assert simulated_host.clear_faults() == 1
    event = simulated_host.event("uplink-down", "lunic1", lasting="30s")
    assert [(found["id"], found["stage"]) for found in simulated_host.events()] == [(event, "on")]
    simulated_host.step(31)
    assert simulated_host.events()[0]["stage"] == "over"


@pytest.mark.parametrize(
    "call, message",
    [
        (lambda host: host.fault("Ryn_GetLR0"), "did you mean"),
        (lambda host: host.fault("Ryn_GetLRO", status=0), "expected a number from 1 to 4294967295, got 0"),
        (lambda host: host.fault("Ryn_GetLRO", where="prot=4"), "expected ARGUMENT=GLOB"),
        (lambda host: host.event("uplink-dwn", "lunic1"), "did you mean"),
        (lambda host: host.event("mac-limit", 9), "there is no switch number"),
        (lambda host: host.step("soon"), "expected seconds, or a time"),
        (lambda host: host.show("prots"), "expected one of"),
        (lambda host: host.get("ports.web-0.vlann"), "did you mean"),
    ],
)
def test_what_is_wrong_is_said(simulated_host, call, message):
    with pytest.raises(ryn_sim.BadInput, match=message):
        call(simulated_host)


def test_all_of_a_host_is_saved_restored_and_cloned(simulated_host, tmp_path):
    simulated_host.set({"ports.web-0.lro": False})
    simulated_host.step("10s")
    counted = script(simulated_host, LISTED)
    simulated_host.save(tmp_path / "saved.db")
    assert sorted(file.name for file in tmp_path.iterdir()) == ["saved.db"]
    with pytest.raises(ryn_sim.Failed, match="is there already"):
        simulated_host.save(tmp_path / "saved.db")
    twin = simulated_host.clone(tmp_path / "twin.db")
    simulated_host.set({"ports.web-0.lro": True})
    simulated_host.step("10s")
    assert script(simulated_host, LISTED) != counted == script(twin, LISTED)
    simulated_host.restore(tmp_path / "saved.db")
    assert script(simulated_host, LISTED) == counted and simulated_host.now == twin.now == 3610
    twin.step("10s"), simulated_host.step("10s")
    assert script(twin, LISTED) == script(simulated_host, LISTED)
    twin.remove()
    assert sorted(file.name for file in tmp_path.iterdir()) == ["saved.db"]


@pytest.mark.parametrize("content", [b"", b"no database at all" * 100])
def test_what_was_never_saved_is_not_restored(simulated_host, tmp_path, content):
    before = script(simulated_host, LISTED)
    (tmp_path / "other.db").write_bytes(content)
    with pytest.raises(ryn_sim.BadInput, match="other.db: "):
        simulated_host.restore(tmp_path / "other.db")
    with pytest.raises(ryn_sim.BadInput, match="there is no such file"):
        simulated_host.restore(tmp_path / "none.db")
    assert script(simulated_host, LISTED) == before


def test_a_host_is_made_once(tmp_path):
    host = ryn_sim.make("empty", at=tmp_path / "x.db", frozen=False)
    with pytest.raises(ryn_sim.Failed, match="is there already"):
        ryn_sim.make("empty", at=tmp_path / "x.db")
    with pytest.raises(ryn_sim.BadInput, match=r"the description:2: numa"):
        ryn_sim.make("host: h\nnuma: 3\n", at=tmp_path / "y.db")
    assert ryn_sim.load(tmp_path / "x.db").info()["clock"] == "running"
    assert "default" in ryn_sim.profiles() and not (tmp_path / "y.db").exists()
    host.remove()
    with pytest.raises(ryn_sim.Failed, match="no simulated host"):
        ryn_sim.load(tmp_path / "x.db")


def test_the_fixture_serves_a_users_test(tmp_path):
    """As docs/ryn-sim.md shows it, in a folder of the user's, on the user's path."""
    page = (ROOT / "docs" / "ryn-sim.md").read_text()
    example = textwrap.dedent(page.partition("<!-- a test -->\n\n")[2].partition("\n\n<!-- end of the test -->")[0])
    (tmp_path / "conftest.py").write_text('pytest_plugins = ["ryn_sim.pytest_plugin"]\n')
    (tmp_path / "test_mine.py").write_text(example)
    tool = ["/usr/bin/python3", str(ROOT / "simhost" / "tool" / "ryn-sim"), "run", "--state", str(tmp_path / "own.db")]
    subprocess.run([*tool[:2], "init", "--state", tmp_path / "own.db"], check=True, capture_output=True)
    environment = {**os.environ, "PYTHONPATH": "", "LD_LIBRARY_PATH": ""}
    done = subprocess.run(
        [*tool, "--", "/usr/bin/python3", "-m", "pytest", "-q", "-p", "no:cacheprovider", str(tmp_path)],
        capture_output=True, text=True, env=environment, cwd=tmp_path,
    )  # fmt: skip
    assert done.returncode == 0 and " passed" in done.stdout, done


def test_the_package_is_typed_throughout(tmp_path):
    mypy = subprocess.run([sys.executable, "-m", "mypy", "--version"], capture_output=True)
    if mypy.returncode != 0:
        pytest.skip("there is no mypy")
    done = subprocess.run(
        [sys.executable, "-m", "mypy", "--strict", "--ignore-missing-imports", "--cache-dir", str(tmp_path), "ryn_sim"],
        capture_output=True, text=True, cwd=ROOT / "simhost" / "tool",
    )  # fmt: skip
    assert done.returncode == 0, done.stdout
