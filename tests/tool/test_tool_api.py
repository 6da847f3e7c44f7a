"""Simulated hosts as Python objects, and the fixture for pytest."""

import json
import os
import pathlib
import shutil
import subprocess
import sys
import textwrap

import pytest
import ryn_sim
from simtool import ROOT

LISTED = "import _libryn as ryn, json; print(json.dumps([ryn.GetPortLRO(0, 2), ryn.GetPortStats(0, 2)['txPkts']]))"


pytestmark = pytest.mark.usefixtures("built")


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


def test_values_are_of_their_own_types(simulated_host):
    found = {path: simulated_host.get(path) for path in
             ("flow_timeout", "nics.lunic2.link", "traffic.0.pps", "clock.frozen", "ports.web-0.teaming.uplinks",
              "balancer.weights.vm_affinity", "switches.dvs-1.uplinks", "switches.dvs-1.stored.burst")}  # fmt: skip
    assert list(found.values()) == [10, 10**10, 40000, True, ["lunic0", "lunic1"], 6, ["lunic0", "lunic1"], None]
    assert simulated_host.show("nics")[2]["link"] == 10**10
    assert simulated_host.get("nics")["lunic2"]["link"] == 10**10
    properties = simulated_host.get("switches.dvs-1.properties")
    assert properties["global"]["com.talvor.common.alias"] == "text:dvs-1"


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
        (lambda host: host.event("mac-limit", 9), "there is no switch"),
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
    with pytest.raises(ryn_sim.Failed, match="exists already"):
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
    with pytest.raises(ryn_sim.Failed, match="exists already"):
        ryn_sim.make("empty", at=tmp_path / "x.db")
    with pytest.raises(ryn_sim.BadInput, match=r"the description:2: numa"):
        ryn_sim.make("host: h\nnuma: 3\n", at=tmp_path / "y.db")
    assert ryn_sim.load(tmp_path / "x.db").info()["clock"] == "running"
    assert "default" in ryn_sim.profiles() and not (tmp_path / "y.db").exists()
    host.remove()
    with pytest.raises(ryn_sim.Failed, match="no simulated host"):
        ryn_sim.load(tmp_path / "x.db")


@pytest.fixture
def installed(tmp_path):
    """What an installation has: everything in one private folder, but for the launcher."""
    private = tmp_path / "usr" / "lib" / "ryn-sim"
    shutil.copytree(ROOT / "simhost" / "tool" / "ryn_sim", private / "ryn_sim")
    shutil.copytree(ROOT / "simhost" / "profiles", private / "profiles")
    for name in ("schema.sql", "host.schema.json"):
        shutil.copy(ROOT / "simhost" / name, private)
    for name in ("libryn.so", "libjorPublic.so", "libryn_sim.so"):
        shutil.copy(pathlib.Path(os.environ["RYN_BUILD"]) / "simhost" / name, private)
    (tmp_path / "usr" / "bin").mkdir()
    shutil.copy(ROOT / "simhost" / "tool" / "ryn-sim", tmp_path / "usr" / "bin")
    return tmp_path / "usr" / "bin" / "ryn-sim"


@pytest.fixture
def users_folder(tmp_path):
    """An empty project with the test that docs/ryn-sim.md shows, and nothing of ours on the path."""
    page = (ROOT / "docs" / "ryn-sim.md").read_text()
    example = textwrap.dedent(page.partition("<!-- a test -->\n\n")[2].partition("\n\n<!-- end of the test -->")[0])
    folder = tmp_path / "project"
    folder.mkdir()
    (folder / "conftest.py").write_text('pytest_plugins = ["ryn_sim.pytest_plugin"]\n')
    (folder / "test_mine.py").write_text(example)
    return folder


def passes(tool, folder, **environment: str) -> None:
    left = {name: value for name, value in os.environ.items() if not name.startswith("RYN_")}
    done = subprocess.run(
        ["/usr/bin/python3", tool, "run", "--", "/usr/bin/python3", "-m", "pytest", "-qp", "no:cacheprovider", "."],
        capture_output=True, text=True, cwd=folder, env={**left, "HOME": str(folder), "PYTHONPATH": "",
                                                         "LD_LIBRARY_PATH": "", "XDG_STATE_HOME": "", **environment},
    )  # fmt: skip
    assert (done.returncode, done.stderr) == (0, "") and "2 passed" in done.stdout, done


def test_the_fixture_serves_a_users_test(users_folder):
    libraries = os.path.join(os.environ["RYN_BUILD"], "simhost")
    passes(ROOT / "simhost" / "tool" / "ryn-sim", users_folder, RYN_SIM_LIBS=libraries)


def test_the_installed_fixture_serves_a_users_test(users_folder, installed):
    """The module is installed by itself, somewhere on Python's path."""
    passes(installed, users_folder, PYTHONPATH=os.path.join(os.environ["RYN_BUILD"], "libryn"))


def has_mypy() -> bool:
    return subprocess.run([sys.executable, "-m", "mypy", "--version"], capture_output=True).returncode == 0


USERS_TEST = """
import pytest
import ryn_sim

@pytest.mark.simulated_host("overloaded", seed=3)
def test_it(simulated_host: ryn_sim.Host) -> None:
    number: int = simulated_host.fault("Ryn_GetLRO", where=["sw=0"], times=1)
    now: float = simulated_host.step("5s")
    pairs = [(row["from"], row["lost"]) for row in simulated_host.show("rates")]
    text: str = simulated_host.run(["/usr/bin/python3", "-c", "print(1)"]).stdout
    assert pairs and number and now and text
    with pytest.raises(ryn_sim.BadInput):
        simulated_host.set({"ports.nobody.lro": False})
    twin: ryn_sim.Host = simulated_host.clone("twin.db")
    twin.remove()
"""


@pytest.mark.skipif(not has_mypy(), reason="there is no mypy")
def test_a_users_test_is_checked_strictly(tmp_path):
    """The package is marked as typed, so a user's mistakes are found and nothing else."""
    environment = {**os.environ, "MYPYPATH": str(ROOT / "simhost" / "tool")}

    def mypy(text: str) -> subprocess.CompletedProcess:
        (tmp_path / "test_mine.py").write_text(text)
        command = [sys.executable, "-m", "mypy", "--strict", "--cache-dir", str(tmp_path / "cache"), "test_mine.py"]
        return subprocess.run(command, capture_output=True, text=True, cwd=tmp_path, env=environment)

    assert (ROOT / "simhost" / "tool" / "ryn_sim" / "py.typed").exists()
    done = mypy(USERS_TEST)
    assert done.returncode == 0, done.stdout
    done = mypy(USERS_TEST.replace("number: int", "number: str").replace('step("5s")', "step([5])"))
    assert done.returncode == 1 and done.stdout.count("error:") == 2, done.stdout


@pytest.mark.skipif(not has_mypy(), reason="there is no mypy")
def test_the_package_is_typed_throughout(tmp_path):
    done = subprocess.run(
        [sys.executable, "-m", "mypy", "--strict", "--ignore-missing-imports", "--cache-dir", str(tmp_path), "ryn_sim"],
        capture_output=True, text=True, cwd=ROOT / "simhost" / "tool",
    )  # fmt: skip
    assert done.returncode == 0, done.stdout


def test_every_public_name_says_what_it_is():
    for name in ryn_sim.__all__:
        assert name == "VERSION" or getattr(ryn_sim, name).__doc__, name
    for name, member in vars(ryn_sim.Host).items():
        if not name.startswith("_"):
            assert (member.fget if isinstance(member, property) else member).__doc__, name
