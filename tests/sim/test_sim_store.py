"""Where a host is kept, and what happens when it cannot be."""

import contextlib
import re
import sqlite3
import subprocess
import sys
from pathlib import Path

import pytest
import simulated

ROOT = Path(__file__).parents[2]


def script(code: str, **more: str) -> subprocess.CompletedProcess:
    return subprocess.run(
        [sys.executable, "-c", code], text=True, capture_output=True, env=simulated.environment(**more)
    )


def test_a_host_is_made_at_its_first_use(tmp_path):
    path = tmp_path / "a" / "b" / "new.db"
    done = script("import _libryn; print(len(_libryn.ListSwitches()))", RYN_SIM_STATE=str(path))
    assert (done.stdout, done.stderr) == ("2\n", "")
    with contextlib.closing(sqlite3.connect(path)) as store:
        assert store.execute("PRAGMA journal_mode").fetchone() == ("wal",)
        assert store.execute("SELECT profile FROM host").fetchone() == ("default",)
    assert {file.name for file in path.parent.iterdir()} <= {"new.db", "new.db-wal", "new.db-shm"}


@pytest.mark.parametrize("name, expected", [("", "default.db"), ("lab-7", "lab-7.db")])
def test_hosts_by_name(tmp_path, name, expected):
    more = {"RYN_SIM_HOST": name} if name else {}
    assert script("import _libryn", XDG_STATE_HOME=str(tmp_path), **more).stderr == ""
    assert (tmp_path / "ryn-sim" / expected).exists()


def refused(done: subprocess.CompletedProcess, message: str) -> bool:
    return done.stdout == "None\n" and f"ryn-sim: {message}" in done.stderr


LIST = "import _libryn; print(_libryn.ListSwitches())"


@pytest.mark.parametrize("name", ["../x", "a/b", "/tmp/x", ".hidden", "-x", "x" * 64, "a b", "\u00e9"])
def test_a_name_that_leads_elsewhere_is_refused(tmp_path, name):
    (tmp_path / "state").mkdir()
    done = script(LIST, XDG_STATE_HOME=str(tmp_path / "state"), RYN_SIM_HOST=name)
    assert refused(done, 'RYN_SIM_HOST: "') and "is not a name for a host" in done.stderr
    assert [file for file in tmp_path.rglob("*") if file.is_file()] == []


@pytest.mark.parametrize("home", ["", "relative"])
def test_without_a_home_there_is_no_host(tmp_path, home):
    done = script(f"import os; os.chdir({str(tmp_path)!r})\n" + LIST, HOME=home, XDG_STATE_HOME="")
    assert refused(done, "neither XDG_STATE_HOME nor HOME names a folder to keep hosts in")
    assert not Path("/.local").exists() and list(tmp_path.iterdir()) == []


@pytest.mark.parametrize("umask, mode", [(0o022, 0o600), (0o000, 0o600), (0o177, 0o600)])
def test_a_host_is_its_owners_alone(tmp_path, umask, mode):
    path = tmp_path / "own.db"
    script(f"import os; os.umask({umask})\nimport _libryn; _libryn.ListSwitches()", RYN_SIM_STATE=str(path))
    assert path.stat().st_mode & 0o777 == mode


def test_without_a_state_folder_of_its_own(tmp_path):
    assert script("import _libryn", HOME=str(tmp_path), XDG_STATE_HOME="").stderr == ""
    assert (tmp_path / ".local" / "state" / "ryn-sim" / "default.db").exists()


def test_many_make_the_same_host_at_once(tmp_path):
    code = "import _libryn; print(_libryn.ListPorts(0)[2]['hwAddr'])"
    env = simulated.environment(RYN_SIM_STATE=str(tmp_path / "new.db"))
    children = [
        subprocess.Popen(
            [sys.executable, "-c", code], text=True, env=env, stdout=subprocess.PIPE, stderr=subprocess.PIPE
        )
        for _ in range(6)
    ]
    assert {child.communicate() for child in children} == {("02:00:00:07:00:02\n", "")}


def test_a_place_where_nothing_can_be_kept():
    done = script(
        "import _libryn; print(_libryn.ListSwitches(), _libryn.GetFlowTimeout())", RYN_SIM_STATE="/proc/nowhere/host.db"
    )
    assert done.stdout == "None None\n"
    lines = done.stderr.splitlines()
    own = [line for line in lines if line.startswith("ryn-sim: ")]
    assert own and all(line.startswith("ryn-sim: /proc/nowhere/host.db: ") for line in own)
    assert "Failed to retrieve list of switches." in lines
    assert "ValueError: Failed to get flow timeout." in lines


@pytest.mark.parametrize("content", [b"not a database at all" * 100, b""])
def test_a_file_that_is_no_store(tmp_path, content):
    path = tmp_path / "host.db"
    path.write_bytes(content)
    done = script("import _libryn; print(_libryn.ListSwitches())", RYN_SIM_STATE=str(path))
    assert done.stdout == "None\n"
    assert f"ryn-sim: {path}: " in done.stderr
    assert path.read_bytes() == content  # left as it was


def test_a_store_of_another_version(host):
    with contextlib.closing(sqlite3.connect(host.state)) as store:
        store.execute("PRAGMA user_version = 77")
    done = script("import _libryn; print(_libryn.ListSwitches())", RYN_SIM_STATE=str(host.state))
    assert done.stdout == "None\n"
    assert "is not a store of this version of the simulated host" in done.stderr


def test_a_store_that_somebody_holds(host):
    """A reader goes on; a writer waits, and gives up with a status."""
    with contextlib.closing(sqlite3.connect(host.state, isolation_level=None)) as store:
        host.GetFlowTimeout()
        store.execute("BEGIN IMMEDIATE")
        assert host.GetFlowTimeout() == 10
        complaint = host.complaint("SetFlowTimeout", 5)
        assert complaint.endswith("ValueError: Failed to set flow timeout.\n\n") and "locked" in complaint
        store.execute("ROLLBACK")
    host.SetFlowTimeout(5)
    assert host.elsewhere("GetFlowTimeout") == 5


def test_statements_that_fail_change_nothing(host):
    before = host.rows("SELECT * FROM base ORDER BY 1, 2, 3")
    host.process.send(host.state, [["apply", "UPDATE host SET seed = 99; UPDATE no_table SET x = 1"]])
    assert host.process.receive() == [simulated.NO_STORE]
    assert "no such table: no_table" in host.process.stderr
    assert host.rows("SELECT seed FROM host") != [(99,)]
    assert host.rows("SELECT * FROM base ORDER BY 1, 2, 3") == before


def test_the_stand_ins_say_what_they_are():
    for library, symbol in (("libryn.so", "ryn_sim_version"), ("libjorPublic.so", "jor_sim_version")):
        names = subprocess.run(
            ["nm", "-D", "--defined-only", simulated.BUILD / "simhost" / library],
            text=True,
            capture_output=True,
            check=True,
        ).stdout.split()
        assert symbol in names


def test_the_libraries_export_the_platforms_operations_and_nothing_else():
    """Symbols of any kind, those that the C++ library's templates bring along too."""
    for library, header, own in (
        ("libryn.so", "ryn.h", {"ryn_sim_version"}),
        ("libjorPublic.so", "jor_public.h", {"jor_sim_version"}),
    ):
        declared = set(re.findall(r"\b((?:Ryn|DVS)\w*_\w+)\(", (ROOT / "platform" / header).read_text()))
        lines = subprocess.run(
            ["nm", "-D", "--defined-only", simulated.BUILD / "simhost" / library],
            text=True,
            capture_output=True,
            check=True,
        ).stdout.splitlines()
        exported = {line.split()[-1] for line in lines if "__odr_asan" not in line}  # a sanitizer's own
        assert declared - exported == set(), "define each in simhost/libs/"
        assert exported == declared | own


def test_the_switch_state_library_takes_its_log_from_the_loader():
    lines = subprocess.run(
        ["nm", "-D", "--undefined-only", simulated.BUILD / "simhost" / "libjorPublic.so"],
        text=True,
        capture_output=True,
        check=True,
    ).stdout.splitlines()
    assert {"Log", "Warning", "Panic"} <= {line.split()[-1] for line in lines}
