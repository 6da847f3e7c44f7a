"""What docs/ryn-sim.md and docs/simulated-host.md show and say of the tool is what it does."""

import json
import re
import textwrap

import pytest
import ryn_sim
from simtool import ROOT

pytestmark = pytest.mark.usefixtures("built")
PAGE = (ROOT / "docs" / "ryn-sim.md").read_text()


def transcript(name: str) -> dict[str, list[str]]:
    """The commands between a mark of the page and its end, with what they print."""
    text = PAGE.partition(f"<!-- {name} -->\n\n")[2].partition(f"\n<!-- end of {name.partition(',')[0]} -->")[0]
    found: dict[str, list[str]] = {}
    for line in textwrap.dedent(text).splitlines():
        if line.startswith("$ "):
            found[line[2:]] = []
        else:
            found[list(found)[-1]].append(line)
    return found


def test_blocks_are_for_terminals_of_80_columns():
    inside = False
    for line in PAGE.splitlines():
        assert not line.startswith("    ") or len(line) <= 84, line
        inside = inside or line.startswith("    ")
    assert inside


def test_the_overloaded_host_is_shown_as_it_is(live):
    ryn_sim.make("overloaded", at=live.path()).step("3s")
    shown = transcript("overloaded, at 3s")
    assert list(shown) == ["ryn-sim show cores", "ryn-sim show rates"]
    for command, lines in shown.items():
        printed = [re.sub("[0-9.]+", "0", line) for line in live(*command.split()[1:]).splitlines()]
        assert [line for line in lines if re.sub("[0-9.]+", "0", line) not in printed] == [], (command, lines)


def test_the_wrong_description_is_answered_as_shown(sim, tmp_path, monkeypatch):
    shown = transcript("wrong")
    monkeypatch.chdir(tmp_path)
    (tmp_path / "hv.yaml").write_text("\n".join(shown["cat hv.yaml"]) + "\n")
    assert sim.fails(2, "init", "hv.yaml").splitlines() == [line for line in shown["ryn-sim init hv.yaml"] if line]


def test_where_packets_are_lost_has_a_word_each():
    source = (ROOT / "simhost" / "traffic" / "rates.cc").read_text()
    words = re.findall(r'"(\w+)"', source.partition("kStageNames{")[2].partition("}")[0])
    named = re.findall(r"`(\w+)`", PAGE.partition("| Word | Lost in |")[2].partition("\n\n")[0])
    assert len(words) > 5 and sorted(words) == sorted(named)


def test_a_copy_of_the_file_alone_lacks_the_latest(live, tmp_path):
    """Why the page says: use save or clone."""
    live("init", "empty")
    with ryn_sim.load(live.path()) as host:
        host.set({"about": "the latest"})
        (tmp_path / "copy.db").write_bytes(live.path().read_bytes())
        host.save(tmp_path / "saved.db")
    assert ryn_sim.load(tmp_path / "copy.db").get("about") != "the latest"
    assert ryn_sim.load(tmp_path / "saved.db").get("about") == "the latest"


@pytest.mark.parametrize(
    "call, answer, message",
    [
        ("ListSwitches()", [], ""),
        ("ListPorts(0)", None, "Failed to retrieve list of ports.\n"),
        ("ListLCoreIDs(0)", [], "TypeError: Failed to get lcore ID bitmap.\n\n"),
        ("ListDevAffinity()", [{"devname": "lunic0", "affinity": 0}], ""),
        ("GetFlowTimeout()", 10, ""),
        ("DumpLBSnapshot(0)", None, "ValueError: Failed to dump LB topology: 0xbad0003.\n"),
    ],
)
def test_what_an_empty_host_does_not_have_is_refused(live, call, answer, message):
    live("init", "empty")
    program = f"import _libryn as ryn, json; print(json.dumps(ryn.{call}))"
    done = live.process("run", "--", "/usr/bin/python3", "-c", program)
    assert (json.loads(done.stdout), done.stderr) == (answer, message)
