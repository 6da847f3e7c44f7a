"""Exit codes, and messages that say what to do."""

from __future__ import annotations

import json
import os
import subprocess
import sys
from pathlib import Path

import pytest
from ctl import BUILD, RYNCTL, Ctl


@pytest.mark.parametrize(
    "arguments, message",
    [
        (["prot"], "there is no 'prot'; did you mean 'port'?"),
        (["port"], "port needs a verb: list, show"),
        (["port", "stast"], "did you mean 'stats'?"),
        (["port", "list", "--fliter", "x"], "did you mean '--filter'?"),
        (["port", "show"], "the following arguments are required: PORT"),
        (["port", "list", "a", "b"], "unrecognized arguments: b"),
        (["port", "show", "dvs-1"], "a port is SWITCH/NUMBER"),
        (["switch", "set", "dvs-1", "brust_size", "1"], "did you mean 'burst_size'?"),
        (["switch", "set", "dvs-1", "burst_size", "0"], "not within 1"),
        (["switch", "set", "dvs-1", "burst_size", "x"], "'x' is no number"),
        (["switch", "set", "dvs-1", "burst_size", "1", "2"], "takes 1 value"),
        (["switch", "set", "dvs-1", "lro", "maybe"], "on or off"),
        (["switch", "get", "dvs-1", "uplink_mac_learn"], "can be set, but not read"),
        (["uplink", "set", "dvs-1/0", "ring_size", "1000", "1024"], "no multiple of 32"),
        (["uplink", "set", "dvs-1/0", "ring_size", "1024"], "takes 2 values"),
        (["lb", "set", "dvs-1", "algorithm", "gpu"], "there are none, cpu, count"),
        (["lb", "set", "dvs-1", "low", "4000000000"], "above the high one"),
        (["port", "set", "dvs-1/3", "teaming", "LGA", "0"], "did you mean 'LAG'?"),
        (["port", "migrate", "dvs-1/3", "2", "2", "-1", "--yes"], "not within 0"),
        (["mac", "add", "dvs-1/3", "02:00:00", "--vlan", "1"], ""),
        (["mac", "add", "dvs-1/3", "02:00:00:00:00:01", "--vlan", "4096"], "not within 0 to 4095"),
        (["host", "set", "weights.x", "1"], "has no setting 'weights.x'"),
        (["host", "reset", "all"], "there is weights"),
        (["flow", "list", "--protocol", "tpc"], "'tpc'"),
        (["flow", "list", "--core", "32"], "not within 0 to 31"),
        (["mac", "clear", "dvs-1"], "--yes says that it is meant"),
        (["raw", "ListSwitchs"], "did you mean 'ListSwitches'?"),
        (["raw", "ListPorts", "None"], "ListPorts: "),
        (["completion", "fish"], "there is for bash, zsh"),
        (["top", "prots"], "did you mean 'ports'?"),
        (["--timeout", "0", "switch", "list"], "no number of seconds above 0"),
        (["--host=-oProxyCommand=x", "switch", "list"], "is no host"),
        (["--bogus"], "--bogus stands without a command"),
    ],
)
def test_usage(still: Ctl, arguments, message):
    done = still(*arguments, code=2)
    assert done.stdout == ""
    assert message in done.stderr.splitlines()[-1] and done.stderr.splitlines()[-1].startswith("rynctl: ")


@pytest.mark.parametrize(
    "arguments",
    [
        ["switch", "show", "dvs-9"],
        ["port", "show", "dvs-1/99"],
        ["port", "show", "dvs-9/0"],
        ["device", "show", "lunic9"],
        ["core", "show", "63"],
        ["find", "nothing-like-it"],
        ["find", "02:00:00:ff:ff:ff"],
        ["find", "192.0.2.254"],
        ["mac", "list", "dvs-1/99"],
        ["uplink", "show", "dvs-1/3"],
        ["port", "set", "dvs-1/99", "lro", "on"],
        ["device", "set", "lunic9", "affinity", "1"],
    ],
)
def test_no_such_object(still: Ctl, arguments):
    assert still.refused(*arguments, code=3)


def test_errors_are_objects_with_j(still: Ctl):
    done = still("-j", "switch", "show", "dvs-9", code=3)
    error = json.loads(done.stderr)["error"]
    assert done.stdout == "" and list(error) == ["kind", "message", "operation", "arguments", "status"]
    assert error["kind"] == "NotFound" and "dvs-9" in error["message"]
    assert (error["operation"], error["arguments"], error["status"]) == (None, None, None)


def test_a_status_of_the_platform(ctl: Ctl):
    ctl.sim("fault", "add", "Ryn_Get_Port_Stats", "--status", "0xbad0001")
    message = ctl.refused("port", "stats", "dvs-1/3", code=1)
    assert "Ryn_Get_Port_Stats(0, 3)" in message and "0x0bad0001" in message
    error = json.loads(ctl("-j", "port", "stats", "dvs-1/3", code=1).stderr)["error"]
    assert error["operation"] == "Ryn_Get_Port_Stats" and error["arguments"] == [0, 3]
    assert error["status"] == 0xBAD0001


def test_a_platform_that_does_not_answer(ctl: Ctl):
    ctl.sim("fault", "add", "Ryn_SetLRO", "--delay", "20s")
    message = ctl.refused("--timeout", "0.5", "port", "set", "dvs-1/3", "lro", "off", code=1)
    assert "Ryn_SetLRO" in message and "may still happen" in message


def test_without_a_platform(ctl: Ctl):
    empty = {"LD_LIBRARY_PATH": "/nonexistent"}
    for arguments in (["switch", "list"], ["raw", "ListSwitches"]):
        done = ctl(*arguments, code=4, **empty)
        assert done.stdout == "" and done.stderr.startswith("rynctl: ") and "libryn.so" in done.stderr
    assert "ryn-sim run" in ctl("switch", "list", code=4, **empty).stderr
    assert json.loads(ctl("-j", "switch", "list", code=4, **empty).stderr)["error"]["kind"] == "PlatformNotFound"


def test_doctor(ctl: Ctl):
    rows = {row["check"]: row for row in ctl.data("doctor")}
    assert {row["status"] for row in rows.values()} == {"ok", "warning"}
    assert rows["backend"]["status"] == "warning" and rows["backend"]["detail"] == "simulated"
    assert rows["libryn.so"]["detail"] == str((BUILD / "simhost/libryn.so").resolve())
    assert rows["exports"]["detail"].endswith("operations") and "switches" in rows["configuration"]["detail"]
    assert rows["interpreter"]["detail"].startswith("/usr/bin/python3")
    done = ctl("-j", "doctor", code=4, LD_LIBRARY_PATH="/nonexistent")
    rows = {row["check"]: row for row in json.loads(done.stdout)["data"]}
    assert rows["libryn.so"]["status"] == "failed" and rows["libryn.so"]["fix"]
    assert rows["_libryn"]["status"] == "failed"


def test_a_closed_pipe_is_no_error(ctl: Ctl):
    command = f"/usr/bin/python3 {RYNCTL} port stats | head -n 1"
    done = subprocess.run(
        ["bash", "-o", "pipefail", "-c", command], env=ctl.environment, text=True, capture_output=True
    )
    assert done.returncode in (0, 141) and "Traceback" not in done.stderr and "rynctl:" not in done.stderr
    read, write = os.pipe()
    os.close(read)
    child = subprocess.run(
        [sys.executable, str(RYNCTL), "port", "stats", "-o", "csv"],
        env=ctl.environment,
        stdout=write,
        stderr=subprocess.PIPE,
        text=True,
    )
    os.close(write)
    assert child.returncode in (0, 141)
    assert child.stderr.replace(f"simulated host {os.uname().nodename}\n", "") == ""


def test_a_full_disk_is_one(ctl: Ctl):
    for output in ("table", "json", "csv"):
        with open("/dev/full", "w") as full:
            done = subprocess.run(
                ["/usr/bin/python3", str(RYNCTL), "port", "stats", "-o", output],
                env=ctl.environment,
                stdout=full,
                stderr=subprocess.PIPE,
                text=True,
            )
        assert done.returncode == 1 and "No space left" in done.stderr and "Traceback" not in done.stderr


# --host


@pytest.fixture
def ssh(ctl: Ctl, tmp_path: Path) -> Path:
    """An ssh that notes its arguments and runs the command here."""
    folder = tmp_path / "bin"
    folder.mkdir()
    (folder / "ssh").write_text(
        f"""#!/usr/bin/python3
import json, os, subprocess, sys
json.dump(sys.argv[1:], open({str(folder / 'seen')!r}, "w"))
if os.environ.get("SSH_FAILS"):
    sys.exit(255)
sys.exit(subprocess.call(["sh", "-c", sys.argv[3]]))
"""
    )
    (folder / "rynctl").symlink_to(RYNCTL)
    for file in folder.iterdir():
        file.chmod(0o755) if not file.is_symlink() else None
    ctl.environment["PATH"] = f"{folder}:/usr/bin:/bin"
    return folder / "seen"


def test_the_same_command_on_another_host(ctl: Ctl, ssh: Path):
    arguments = ["port", "list", "dvs-1", "--filter", "kind = 'UPLINK'; touch /nonexistent \"x\" $HOME", "-j"]
    here, there = ctl(*arguments).stdout, ctl("--host", "root@hv7", *arguments).stdout
    assert json.loads(there)["data"] == json.loads(here)["data"] == []
    seen = json.loads(ssh.read_text())
    assert seen[:2] == ["--", "root@hv7"] and len(seen) == 3
    import shlex

    assert shlex.split(seen[2]) == ["rynctl", *arguments]
    ctl("switch", "show", "dvs-9", "--host=hv7", code=3)
    assert json.loads(ssh.read_text()) == ["--", "hv7", "rynctl switch show dvs-9"]
    ctl("switch", "list", "--host", "hv7", code=1, SSH_FAILS="1")
