"""save, restore and clone on the command line: all of a host, what was counted included. export: the description."""

import json

import pytest

COUNTED = "import _libryn as ryn, json; print(json.dumps([ryn.GetPortStats(0, port) for port in (0, 2)]))"


def counted(live, host: str = "default") -> list:
    done = live.process("run", "--host", host, "--", "/usr/bin/python3", "-c", COUNTED)
    assert done.stderr == "", done
    return json.loads(done.stdout)


@pytest.fixture
def used(live):
    """A host that has counted, was changed, and stands."""
    live("init")
    live("set", "ports.web-0.lro=off")
    live("clock", "step", "30s")
    live("fault", "add", "Ryn_GetLRO")
    return live


def test_a_saved_host_is_restored_to_the_packet(used, tmp_path):
    before = counted(used)
    assert used("save", tmp_path / "saved").endswith(f"to {tmp_path / 'saved'}\n")
    used("clock", "step", "1h")
    used("fault", "clear")
    assert counted(used) != before
    used("restore", tmp_path / "saved")
    assert counted(used) == before and len(json.loads(used("fault", "list", "--json"))) == 1
    used("restore", tmp_path / "saved", "--host", "elsewhere")
    assert counted(used, "elsewhere") == before
    assert [file.name for file in tmp_path.iterdir() if file.name.startswith("saved")] == ["saved"]


def test_a_clone_goes_its_own_way(used):
    used("clone", "twin")
    assert counted(used, "twin") == counted(used)
    used("clock", "step", "5s", "--host", "twin")
    assert counted(used, "twin") != counted(used)
    assert "exists already" in used.fails(1, "clone", "twin")
    used("clone", "twin", "--force")
    assert counted(used, "twin") == counted(used)


def test_an_export_says_that_it_keeps_no_counts(used, tmp_path):
    text = used("export", tmp_path / "host.yaml") or (tmp_path / "host.yaml").read_text()
    head = " ".join(line.lstrip("# ") for line in text.splitlines() if line.startswith("#"))
    assert "What was counted is not kept here" in head and "ryn-sim save keeps everything" in head
    assert "without what was counted" in used("export", "--help").replace("\n", " ").replace("Write ", "")
    used("init", tmp_path / "host.yaml", "--host", "again")
    # LRO was on for an hour here; that host has never had it
    assert counted(used)[1]["rxPkts"] < counted(used, "again")[1]["rxPkts"]
    assert used("export", "--host", "again") == text
