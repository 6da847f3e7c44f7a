"""--watch, top, diff and find."""

from __future__ import annotations

import csv
import io
import json
import os
import re
import shlex
import signal
import subprocess
import time
from pathlib import Path
from typing import Iterator

import pexpect
import pytest
from ctl import ROOT, RYNCTL, Ctl


@pytest.fixture
def running(ctl: Ctl) -> Ctl:
    """On a host whose clock runs fast."""
    ctl.sim("clock", "speed", "20")
    ctl.sim("clock", "run")
    return ctl


def test_watch_repeats(running: Ctl):
    done = running("-j", "port", "stats", "dvs-1/3", "--watch", "--interval", "0.2", "--count", "3")
    envelopes = [json.loads(line) for line in done.stdout.splitlines()]
    assert len(envelopes) == 3 and len({each["time"] for each in envelopes}) == 3
    sent = [each["data"][0]["tx_packets"] for each in envelopes]
    assert sent[0] < sent[1] < sent[2]
    lines = running("-o", "csv", "switch", "list", "--watch", "--interval", "0.1", "--count", "2").stdout.splitlines()
    assert lines.count("number,name,alias,id,mtu,max_ports") == 1 and len(lines) == 1 + 2 * 3
    table = running("switch", "list", "--watch", "--interval", "0.1", "--count", "2").stdout
    assert table.count("NUMBER") == 2 and "\x1b" not in table


def test_control_c_ends_a_watch_with_0(running: Ctl):
    child = subprocess.Popen(
        ["/usr/bin/python3", str(RYNCTL), "-j", "switch", "list", "--watch", "--interval", "60"],
        env=running.environment,
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        text=True,
    )
    assert child.stdout and json.loads(child.stdout.readline())["data"]
    child.send_signal(signal.SIGINT)
    assert child.wait(20) == 0 and child.stderr and child.stderr.read() == ""


@pytest.mark.parametrize("what", ["ports", "cores", "flows"])
def test_top_in_a_pipe(running: Ctl, what: str):
    done = running("-j", "top", what, "--interval", "0.3", "--count", "2", "--limit", "5")
    first, second = [json.loads(line) for line in done.stdout.splitlines()]
    assert first["schema"] == second["schema"] == f"ryn/top.{what}/1" and 1 <= len(second["data"]) <= 5
    if what == "ports":
        rates = [row["tx_bytes"] for row in second["data"]]
        assert rates == sorted(rates, reverse=True) and rates[0] > 0
    rows = list(csv.reader(io.StringIO(running("-o", "csv", "top", what, "--interval", "0.2", "--count", "1").stdout)))
    assert len({len(row) for row in rows}) == 1


def test_top_marks_resets(running: Ctl):
    child = subprocess.Popen(
        [
            "/usr/bin/python3",
            str(RYNCTL),
            "-j",
            "top",
            "--interval",
            "2",
            "--count",
            "1",
            "--filter",
            "port=3",
            "--filter",
            "switch=dvs-1-set",
        ],
        env=running.environment,
        stdout=subprocess.PIPE,
        text=True,
    )
    time.sleep(0.8)  # after the first reading, before the second
    running("port", "reset", "dvs-1/3", "--yes")
    output, _ = child.communicate(timeout=30)
    (row,) = json.loads(output)["data"]
    assert row["reset"] is True and row["tx_packets"] is None


class Terminal:
    """A terminal of 80 columns by tmux, in which a command runs."""

    def __init__(self, folder: Path, environment: dict[str, str], *command: str):
        self.tmux = ["tmux", "-S", str(folder / "tmux"), "-f", "/dev/null"]
        self.environment = {**environment, "TERM": "screen"}
        self("new-session", "-d", "-x", "80", "-y", "24", f"{shlex.join(command)}; echo ended with $?; sleep 60")

    def __call__(self, *arguments: str) -> str:
        return subprocess.run(
            [*self.tmux, *arguments], env=self.environment, text=True, check=True, stdout=subprocess.PIPE
        ).stdout

    def press(self, *keys: str) -> None:
        self("send-keys", *keys)

    def shows(self, pattern: str) -> str:
        """The screen, as soon as it shows this."""
        end = time.monotonic() + 60
        while True:
            screen = self("capture-pane", "-p")
            if re.search(pattern, screen, re.MULTILINE):
                return screen
            assert time.monotonic() < end, f"no {pattern!r} in\n{screen}"
            time.sleep(0.05)


@pytest.fixture
def top(running: Ctl, tmp_path: Path, request) -> Iterator[Terminal]:
    language = {"LANG": request.param, "LC_ALL": request.param}
    terminal = Terminal(
        tmp_path, {**running.environment, **language}, "/usr/bin/python3", str(RYNCTL), "top", "--interval", "0.5"
    )
    yield terminal
    terminal("kill-server")


@pytest.mark.parametrize("top", ["C.UTF-8", "C"], indirect=True)
def test_top_on_a_terminal(top: Terminal):
    screen = top.shows(r"^dvs-2-set +8 +VNIC")
    assert screen.splitlines()[0].startswith("rynctl top ports") and "(simulated)" in screen.splitlines()[0]
    assert screen.isascii() and "DROPS[1/s]" in screen
    rates = re.findall(r"VNIC +([\d.]+[kMG]?)", screen)
    assert len(rates) > 5
    top.press("?")
    top.shows("turn the order round")
    top.press("x")
    top.shows("by tx_bytes")
    top.press("s")
    top.shows("by rx_bytes")
    top.press("/")
    top.shows("^filter:")
    top.press("kind=QOBNIC", "Enter")
    screen = top.shows("where kind=QOBNIC")
    assert "VNIC" not in screen and "2 of 35" in screen
    top.press("/")
    top.shows("^filter:")
    top.press("nonsense=1", "Enter")
    top.shows("there is no column 'nonsense'")
    top.press("q")
    top.shows("ended with 0")


def test_control_c_ends_top_with_0(running: Ctl):
    child = pexpect.spawn(
        "/usr/bin/python3",
        [str(RYNCTL), "top"],
        dimensions=(24, 80),
        timeout=20,
        env=running.environment,
        encoding="utf-8",
    )
    child.expect("TX_BYTES")
    child.sendintr()
    child.expect(pexpect.EOF)
    child.close()
    assert child.exitstatus == 0


def test_diff(ctl: Ctl, tmp_path: Path):
    before, after = tmp_path / "before.json", tmp_path / "after.json"
    before.write_text(ctl("-j", "port", "stats").stdout)
    ctl.sim("clock", "step", "10s")
    after.write_text(ctl("-j", "port", "stats").stdout)
    old, new = (json.loads(path.read_text()) for path in (before, after))
    rows = ctl.data(
        "diff",
        str(before),
        str(after),
        "--filter",
        "row~port=3$",
        "--filter",
        "row~dvs-1-set",
        "--filter",
        "column=tx_packets",
    )
    was, now = (
        next(row["tx_packets"] for row in each["data"] if (row["switch"], row["port"]) == ("dvs-1-set", 3))
        for each in (old, new)
    )
    (row,) = rows
    assert (row["change"], row["before"], row["after"], row["delta"]) == ("changed", was, now, now - was)
    assert row["rate"] > 0
    assert ctl.data("diff", str(before), str(before)) == []
    old["data"], removed = old["data"][1:], old["data"][0]
    before.write_text(json.dumps(old))
    assert [
        (row["change"], row["row"]) for row in ctl.data("diff", str(before), str(after)) if row["column"] is None
    ] == [("added", f"switch={removed['switch']} port={removed['port']}")]
    after.write_text(ctl("-j", "switch", "list").stdout)
    assert "holds" in ctl.refused("diff", str(before), str(after))
    after.write_text("[]")
    assert "no output of rynctl" in ctl.refused("diff", str(before), str(after))
    assert "No such file" in ctl.refused("diff", str(before), str(tmp_path / "none"), code=1)


def test_find(still: Ctl):
    (port,) = still.data("port", "show", "dvs-1/3")
    found = still.data("find", port["mac"])
    assert {"port", "mac"} == {row["match"] for row in found}
    assert {(row["switch"], row["port"]) for row in found} == {("dvs-1-set", 3)}
    assert found[0]["uplinks"] and found[0]["cores"] and found[0]["flows"] > 0
    assert found == still.data("find", port["mac"].upper().replace(":", "-"))
    assert still.data("switch", "show", "dvs-3")[0]["cores"] is None  # only configured
    assert still.data("find", "dvs-3")[0]["flows"] is None
    (row,) = still.data("find", "dvs-1")
    assert (row["match"], row["switch"]) == ("switch", "dvs-1-set") and row["flows"] > 0
    (row,) = still.data("find", "dvs-1/3")
    assert (row["match"], row["port"], row["mac"]) == ("port", 3, port["mac"])
    (row,) = still.data("find", "lunic2")
    assert row["match"] == "device" and row["detail"]
    flow = still.data("flow", "dump", "dvs-1", "--limit", "1")[0]
    rows = still.data("find", flow["src"])
    assert rows and {row["match"] for row in rows} == {"flow"} and flow["src"] in rows[0]["detail"]


def test_raw(still: Ctl):
    value = json.loads(still("-j", "raw", "ListPorts", "0").stdout)
    assert value["schema"] == "ryn/raw/1" and value["data"][3]["rynPortID"] == 3
    assert still("raw", "GetLBAlgorithm", "dvs-1").stdout == "cpu\n"
    done = still("raw", "ListPorts", "99", code=1)
    assert done.stderr.endswith("TypeError: Invalid switch ID passed.\n")
    assert json.loads(still("-j", "raw", "GetFlowStats", "0", "(0, 1)", "0").stdout)["data"][0]["lcoreID"] == 0
    assert still("raw", "SetFlowTimeout", str(still.data("host", "get", "flow_timeout")[0]["value"])).stdout == ""


def test_flow_filters(still: Ctl):
    everything = still.data("flow", "dump", "dvs-1")
    flow = next(row for row in everything if row["protocol"] == 6 and row["dport"])
    network = flow["dst"].rsplit(".", 1)[0] + ".0/24" if "." in flow["dst"] else flow["dst"]
    options = ["--protocol", "tcp", "--dport", str(flow["dport"]), "--dst", network]
    found = still.data("flow", "dump", "dvs-1", *options)
    assert found and flow in found
    assert all(row["protocol"] == 6 and row["dport"] == flow["dport"] for row in found)
    action = flow["actions"][0]
    assert all(action in row["actions"] for row in still.data("flow", "dump", "dvs-1", "--action", action.lower()))


def test_it_runs_from_anywhere(still: Ctl, tmp_path: Path):
    (tmp_path / "rynctl").symlink_to(ROOT / "rynctl/rynctl")
    done = subprocess.run(
        ["rynctl", "-j", "switch", "list"],
        cwd=tmp_path,
        text=True,
        capture_output=True,
        env={**still.environment, "PATH": f"{tmp_path}:{os.defpath}"},
    )
    assert (done.returncode, done.stderr) == (0, "")
