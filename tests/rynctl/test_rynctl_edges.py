"""What seldom happens: closed streams, interruptions, odd names, narrow terminals, other interpreters."""

from __future__ import annotations

import json
import signal
import subprocess
import sys
import time
from pathlib import Path

import interpreters
import pytest
from ctl import PROFILES, ROOT, RYNCTL, TOOL, Ctl, new_host
from test_rynctl_output import terminal

sys.path.append(str(ROOT))


def shell(ctl: Ctl, line: str) -> subprocess.CompletedProcess[str]:
    """A line of bash; rynctl is the variable's value."""
    return subprocess.run(
        ["bash", "-c", line.replace("rynctl", f"/usr/bin/python3 {RYNCTL}", 1)],
        env=ctl.environment,
        text=True,
        capture_output=True,
        timeout=60,
        errors="surrogateescape",
    )


def test_a_closed_input_is_no_terminal(ctl: Ctl):
    done = shell(ctl, "rynctl mac clear dvs-1 <&-")
    assert done.returncode == 2 and "--yes" in done.stderr and "Traceback" not in done.stderr


def test_a_closed_output_is_an_error_before_anything_is_sent(ctl: Ctl):
    done = shell(ctl, "rynctl switch set dvs-1 burst_size 64 >&-")
    assert (done.returncode, done.stderr) == (1, "rynctl: standard output is closed; nothing was done\n")
    assert ctl.data("switch", "get", "dvs-1", "burst_size")[0]["value"] == 32
    assert shell(ctl, "rynctl switch list <&- >&- 2>&-").returncode == 1


def test_closed_standard_error(ctl: Ctl):
    done = shell(ctl, "rynctl -j switch list 2>&-")
    assert done.returncode == 0 and json.loads(done.stdout)["data"]
    assert shell(ctl, "rynctl switch lits 2>&-").returncode == 2


@pytest.mark.parametrize(
    "arguments, message",
    [(["switch", "get", "dvs-1"], ""), (["port", "set", "dvs-1/3", "lro", "off"], "may still happen")],
)
def test_control_c_ends_a_command_that_waits_for_the_platform(ctl: Ctl, arguments, message):
    for operation in ("Ryn_GetSwitchBurstSize", "Ryn_SetLRO"):
        ctl.sim("fault", "add", operation, "--delay", "300s")
    child = subprocess.Popen(
        ["/usr/bin/python3", str(RYNCTL), *arguments],
        env=ctl.environment,
        text=True,
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
    )
    time.sleep(2)
    assert child.poll() is None
    child.send_signal(signal.SIGINT)
    output, errors = child.communicate(timeout=30)  # long before the platform answers
    assert child.returncode in (1, 130) and output == "" and "Traceback" not in errors
    assert message in errors


def test_timeout_ends_raw_and_doctor(ctl: Ctl):
    ctl.sim("fault", "add", "Ryn_GetSwitchBurstSize", "--delay", "300s")
    message = ctl("--timeout", "0.5", "raw", "GetSwitchBurstSize", "dvs-1", code=1).stderr
    assert "GetSwitchBurstSize has not returned for 0.5 s" in message and "may still happen" in message
    assert ctl("--timeout", "30", "raw", "GetLBAlgorithm", "dvs-1").stdout == "cpu\n"
    assert "did you mean" in ctl("--timeout", "30", "raw", "ListSwitchs", code=2).stderr
    ctl.sim("fault", "add", "Ryn_Get_Switch_List", "--delay", "300s")
    done = ctl("-j", "--timeout", "0.5", "doctor", code=1)
    (row,) = [row for row in json.loads(done.stdout)["data"] if row["status"] == "failed"]
    assert row["check"] == "datapath" and "has not returned" in row["detail"]


def test_settings_of_a_switch_that_is_only_configured(still: Ctl):
    rows = still.data("switch", "get", "dvs-3")
    assert [row["key"] for row in rows] == ["burst_size", "numa_teaming", "lro", "panic_on_tx_hang"]
    assert {row["value"] for row in rows} == {None}
    assert [row["value"] for row in still.data("lb", "get", "dvs-3")] == [None] * 5
    assert [row["source"] for row in still.data("fpo", "get", "dvs-3")] == ["default"]
    # Asked for alone, it is an error that names the operation
    assert "Ryn_GetSwitchBurstSize('dvs-3')" in still.refused("switch", "get", "dvs-3", "burst_size", code=3)
    for words in ("lb stats", "flow stats", "mirror list", "fpo stats", "lb dump"):
        assert "the datapath does not know switch dvs-3" in still.refused(*words.split(), "dvs-3", code=3)
    assert still.data("port", "list", "dvs-3") == [] == still.data("uplink", "list", "dvs-3")


def test_find_says_what_it_found(still: Ctl):
    assert still.data("find", "lunic2")[0]["detail"].startswith("lunic2, affinity ")
    assert still.data("find", "dvs-3")[0]["detail"] == "only configured, alias dvs-3, 0 ports"
    uplink = still.data("uplink", "list", "dvs-2")[1]
    row = still.data("find", uplink["mac"])[0]
    assert (row["match"], row["kind"], row["flows"]) == ("port", "UPLINK", 0)


@pytest.mark.parametrize("name", ["a b", "a/b/c", "", "-", "é", "\x1b[2J", "a\nb", "\udcff\udc80", "x" * 5000])
def test_odd_names(still: Ctl, name: str):
    message = still.refused("switch", "show", "--", name, code=3)
    assert message.isprintable()
    error = json.loads(still("-j", "switch", "show", "--", name, code=3).stderr.encode("utf-8"))
    assert error["error"]["kind"] == "NotFound"
    assert still("find", "--", name, code=3).stdout == ""
    assert still("switch", "list", "--filter", f"name={name}", "-o", "jsonl").stdout == ""


def test_bytes_that_are_no_utf_8(still: Ctl):
    """Escaped in tables and JSON, as they came in CSV."""
    code = (
        "import sys, types; sys.path.append(sys.argv[1])\n"
        "from rynctl.columns import Column\nfrom rynctl.commands import COMMANDS\nfrom rynctl.output import Output\n"
        "options = types.SimpleNamespace(output=sys.argv[2], color=None, columns='name', filter=[], sort=None)\n"
        "out = Output(COMMANDS['switch', 'list'], options)\n"
        "out.rows([{'name': 'a\\udcffb\\x1b'}])\n"
    )

    def shown(output: str) -> bytes:
        command = ["/usr/bin/python3", "-c", code, str(ROOT), output]
        return subprocess.run(command, env=still.environment, check=True, stdout=subprocess.PIPE).stdout

    assert shown("table") == b"NAME\na\\xffb\\x1b\n"
    assert shown("csv") == b"name\na\xffb\x1b\n"
    assert json.loads(shown("json").decode("ascii"))["data"] == [{"name": "a\udcffb\x1b"}]
    assert json.loads(shown("jsonl").decode("ascii")) == {"name": "a\udcffb\x1b"}


def test_a_limit_ends_reading():
    from rynctl.columns import COLUMNS
    from rynctl.select import Selection

    rows = iter([{"number": number} for number in range(9)])
    selection = Selection(COLUMNS["switch.list"], ["number>1"], None, "2")
    assert [row["number"] for row in selection.rows(rows)] == [2, 3]
    assert next(rows)["number"] == 4  # not read
    assert [row["number"] for row in Selection(COLUMNS["switch.list"], [], "-number", "1").rows(rows)] == [8]


def test_json_lines_while_watching_are_rows(still: Ctl):
    lines = still("-o", "jsonl", "switch", "list", "--watch", "--interval", "0.05", "--count", "3").stdout.splitlines()
    rows = [json.loads(line) for line in lines]
    assert len(rows) == 9 and rows[:3] == rows[3:6] == rows[6:]


@pytest.mark.parametrize("width", [1, 2, 9, 24])
def test_narrow_terminals_fold_nothing(still: Ctl, width: int):
    for words in ("port list dvs-1", "switch show dvs-1", "lb get dvs-1", "find dvs-1/3"):
        lines = terminal(still, width, *words.split(), NO_COLOR="1").splitlines()
        assert len(lines) > 2 and max(map(len, lines)) <= width


def test_doctor_tells_remedies_where_the_table_has_no_room(still: Ctl):
    text = terminal(still, 80, "doctor", NO_COLOR="1")
    assert "\nbackend: simulated\n  mend it: leave ryn-sim run" in text
    assert "mend it" not in still("doctor").stdout


def test_help_with_other_words(still: Ctl):
    assert still("-j", "--help").stdout == still("--help").stdout
    assert still("help", "port").stdout == still("port", "--help").stdout
    assert still("help", "port", "stats").stdout == still("port", "stats", "--help").stdout
    error = json.loads(still("-j", "port", "list", "--limit", code=2).stderr)["error"]
    assert error["kind"] == "UsageError" and "--limit" in error["message"]
    assert "above 0" in still.refused("port", "list", "--watch", "--interval", "1e300")
    assert "above 0" in still.refused("port", "list", "--timeout", "1e300")


@pytest.mark.parametrize("profile", PROFILES)
def test_ryn_sim_puts_rynctl_on_the_path(tmp_path: Path, profile: str):
    ctl = Ctl(new_host(tmp_path / "host.db", profile))
    done = subprocess.run(
        [*TOOL, "run", "--", "rynctl", "-j", "switch", "list"],
        env={**ctl.environment, "PYTHONPATH": ""},
        check=True,
        stdout=subprocess.PIPE,
    )
    assert json.loads(done.stdout)["data"] == ctl.data("switch", "list")


@interpreters.each
def test_every_interpreter_runs_it(interpreter: Path, tmp_path: Path):
    """Compiles all files; commands without a module for this interpreter say what is missing."""
    code = "import sys; [compile(open(path, encoding='utf-8').read(), path, 'exec') for path in sys.argv[1:]]"
    environment = {"PATH": "/usr/bin:/bin", "HOME": str(tmp_path), "PYTHONDONTWRITEBYTECODE": "1"}
    files = [*map(str, (ROOT / "rynctl").glob("*.py")), str(RYNCTL)]
    subprocess.run([str(interpreter), "-W", "error", "-c", code, *files], check=True, env=environment)
    modules = ", ".join(f"rynctl.{Path(path).stem}" for path in files[:-1])
    path = {**environment, "PYTHONPATH": str(ROOT)}
    subprocess.run([str(interpreter), "-W", "error", "-c", f"import {modules}"], check=True, env=path, cwd=tmp_path)
    for arguments in (["--help"], ["--version"], ["port", "stats", "--help"]):
        subprocess.run([str(interpreter), str(RYNCTL), *arguments], check=True, env=environment, stdout=subprocess.PIPE)
