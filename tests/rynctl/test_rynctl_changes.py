"""Commands that change: old and new value, read back, refused where it is dangerous, in the system's log."""

from __future__ import annotations

import os
import socket
import threading
from pathlib import Path

import pexpect
import pytest
from ctl import ROOT, Ctl

MAC = "02:00:00:aa:bb:cc"

# Command line, key, old and new value on the default host; None as old: the platform does not tell.
CHANGES = [
    ("switch set dvs-1 burst_size 64", "burst_size", 32, 64),
    ("switch set dvs-1 numa_teaming on", "numa_teaming", False, True),
    ("switch set dvs-1 lro off", "lro", True, False),
    ("switch set dvs-1 panic_on_tx_hang on --yes", "panic_on_tx_hang", 0, 1),
    ("port set dvs-1/3 lro off", "lro", True, False),
    ("uplink set dvs-1/0 ring_size 1024 512", "ring_size", None, [1024, 512]),
    ("lb set dvs-1 algorithm count", "algorithm", "cpu", "count"),
    ("lb set dvs-1 high 70", "high", None, 70),
    ("lb set dvs-1 low 30", "low", None, 30),
    ("lb set dvs-1 pause 7", "pause", None, 7),
    ("lb set dvs-1 sensitivity 9", "sensitivity", None, 9),
    ("fpo disable dvs-1", "fpo", True, False),
    ("device set lunic0 affinity 1", "affinity", 0, 1),
    ("host set flow_timeout 45", "flow_timeout", None, 45),
    ("host set weights.vm_affinity 77", "weights.vm_affinity", None, 77),
    (f"mac add dvs-1/3 {MAC} --vlan 100", f"mac {MAC} vlan 100", False, True),
]
UNVERIFIED = [
    ("switch set dvs-1 uplink_mac_learn off", "uplink_mac_learn"),
    ("flow disable dvs-1", "flow_cache"),
    ("flow enable dvs-1", "flow_cache"),
    ("port unpin dvs-1/3 0", "unpin"),
    ("port reset dvs-1/3 --yes", "reset"),
    ("host set fastslabs on", "fastslabs"),
]


def change(ctl: Ctl, line: str) -> dict:
    (row,) = ctl.data(*line.split())
    assert list(row) == ["object", "key", "old", "new", "result"]
    return row


@pytest.mark.parametrize("line, key, old, new", CHANGES, ids=[line for line, *_ in CHANGES])
def test_a_change_is_planned_made_and_then_unchanged(ctl: Ctl, line, key, old, new):
    planned = change(ctl, f"{line} --dry-run")
    assert (planned["key"], planned["new"], planned["result"]) == (key, new, "planned")
    assert change(ctl, f"{line} --dry-run") == planned  # nothing was changed
    made = change(ctl, line)
    assert made == {**planned, "result": "changed"}
    assert old is None or made["old"] == old
    assert change(ctl, line) == {**made, "old": new, "result": "unchanged"}


@pytest.mark.parametrize("line, key", UNVERIFIED, ids=[line for line, _ in UNVERIFIED])
def test_what_cannot_be_read_back_is_unverified(ctl: Ctl, line, key):
    assert change(ctl, f"{line} --dry-run")["result"] == "planned"
    made = change(ctl, line)
    assert (made["key"], made["old"], made["result"]) == (key, None, "unverified")


def test_teaming(ctl: Ctl):
    old = ctl.data("port", "get", "dvs-1/3", "teaming")[0]["value"]
    made = change(ctl, "port set dvs-1/3 teaming Single 1")
    assert (made["old"], made["new"], made["result"]) == (old, ["Single", 1], "changed")
    assert ctl.data("port", "get", "dvs-1/3", "teaming")[0]["value"] == ["Single", 1]
    assert change(ctl, "port set dvs-1/3 teaming Single 1")["result"] == "unchanged"


def test_mac_del_and_clear(ctl: Ctl):
    change(ctl, f"mac add dvs-1/3 {MAC} --vlan 7")
    assert [row["vlan"] for row in ctl.data("mac", "list", "dvs-1/3") if row["mac"] == MAC] == [7]
    made = change(ctl, f"mac del dvs-1/3 {MAC} --vlan 7")
    assert (made["old"], made["new"], made["result"]) == (True, False, "changed")
    before = len(ctl.data("mac", "list", "dvs-1"))
    made = change(ctl, "mac clear dvs-1 --yes")
    assert made["old"] == before > made["new"] and made["result"] == "changed"


def test_flow_clear(ctl: Ctl):
    made = change(ctl, "flow clear dvs-1 --yes")
    assert made["old"] > made["new"] and made["result"] == "changed"


def test_migrate(ctl: Ctl):
    made = change(ctl, "port migrate dvs-1/3 8 9 1 --yes")
    assert (made["new"], made["result"]) == ([[8, 8], [9, 9]], "changed")
    (port,) = ctl.data("port", "show", "dvs-1/3")
    assert (port["tx_cores"], port["rx_cores"]) == ([8, 8], [9, 9])


def test_weights_are_reset(ctl: Ctl):
    defaults = [row["value"] for row in ctl.data("host", "get") if row["key"].startswith("weights.")]
    change(ctl, "host set weights.port_count 1234")
    made = change(ctl, "host reset weights --yes")
    assert made["old"] != made["new"] == defaults and made["result"] == "changed"


def test_get_says_where_a_value_comes_from(ctl: Ctl):
    (row,) = ctl.data("switch", "get", "dvs-1", "burst_size")
    assert (row["value"], row["source"], row["stored"], row["running"]) == (32, "datapath", None, 32)
    change(ctl, "switch set dvs-1 burst_size 64")
    (row,) = ctl.data("switch", "get", "dvs-1", "burst_size")
    assert (row["value"], row["source"], row["stored"]) == (64, "property", 64)


DANGEROUS = [
    "mac clear dvs-1",
    "mac clear dvs-1/3",
    "flow clear dvs-1",
    "port reset dvs-1/3",
    "port migrate dvs-1/3 8 9 1",
    "host reset weights",
    "switch set dvs-1 panic_on_tx_hang on",
]


@pytest.mark.parametrize("line", DANGEROUS)
def test_what_is_dangerous_needs_a_yes(ctl: Ctl, line):
    assert "--yes" in ctl.refused(*line.split())
    assert "Ryn_Clear" not in ctl.sim("log") and "Ryn_Reset" not in ctl.sim("log")
    assert change(ctl, f"{line} --dry-run")["result"] == "planned"


def ask(ctl: Ctl, answer: str) -> tuple[int, str]:
    child = pexpect.spawn(
        "/usr/bin/python3",
        [str(ROOT / "rynctl/rynctl"), "mac", "clear", "dvs-1"],
        timeout=30,
        env=ctl.environment,
        encoding="utf-8",
        dimensions=(30, 80),
    )
    child.expect(r"dvs-1-set: forget its MAC addresses\? \[y/N\] ")
    child.sendline(answer)
    child.expect(pexpect.EOF)
    child.close()
    return child.exitstatus, child.before


def test_on_a_terminal_it_asks(ctl: Ctl):
    before = len(ctl.data("mac", "list", "dvs-1"))
    code, text = ask(ctl, "")
    assert code == 1 and "nothing was changed" in text
    assert len(ctl.data("mac", "list", "dvs-1")) == before
    code, text = ask(ctl, "y")
    assert code == 0 and "changed" in text
    assert len(ctl.data("mac", "list", "dvs-1")) < before


@pytest.fixture
def syslog():
    """What is written to /dev/log, while nobody else listens there."""
    path = Path("/dev/log")
    if path.exists() or not os.access("/dev", os.W_OK):
        pytest.skip("/dev/log is somebody else's")
    server = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    server.bind(str(path))
    server.settimeout(0.2)
    lines: list[str] = []
    end = threading.Event()

    def listen() -> None:
        while not end.is_set():
            try:
                lines.append(server.recv(65536).decode())
            except socket.timeout:
                pass

    thread = threading.Thread(target=listen)
    thread.start()

    def heard() -> list[str]:
        end.set()
        thread.join()
        return lines

    yield heard
    end.set()
    thread.join()
    server.close()
    path.unlink()


def test_each_change_is_one_line_in_the_log(ctl: Ctl, syslog):
    change(ctl, "switch set dvs-1 burst_size 64 --dry-run")
    change(ctl, "switch set dvs-1 burst_size 32")  # as it is
    change(ctl, "switch set dvs-1 burst_size 64")
    ctl.sim("fault", "add", "Ryn_SetLRO", "--status", "0xbad0007")
    ctl("port", "set", "dvs-1/3", "lro", "off", code=1)
    made, failed = syslog()
    assert " rynctl[" in made and "user=root" in made
    assert made.rstrip("\0\n").endswith("dvs-1-set burst_size: 32 -> 64, changed")
    assert "command=rynctl -j switch set dvs-1 burst_size 64" in made
    assert "dvs-1-set/3 lro: true -> false, failed: " in failed and "0x0bad0007" in failed
