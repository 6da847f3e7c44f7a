"""The table of commands: nothing is out of reach, and all that is made from it is as it is."""

from __future__ import annotations

import json
import re
import subprocess
import sys

import pytest
from ctl import BUILD, ROOT, Ctl
from method_table import METHODS

sys.path.append(str(ROOT))
from rynctl import manual, schema  # noqa: E402
from rynctl.columns import COLUMNS, TYPES  # noqa: E402
from rynctl.commands import COMMANDS, OBJECTS, verbs  # noqa: E402


def test_every_method_is_within_reach():
    reached = {method for command in COMMANDS.values() for method in command.methods}
    missing = {method.name for method in METHODS} - reached
    assert missing == set(), "name each at the command that calls it, in rynctl/commands.py"
    assert reached == {method.name for method in METHODS}


def test_objects_and_verbs_are_those_of_the_guide():
    assert set(OBJECTS) == {
        "switch",
        "port",
        "uplink",
        "mac",
        "flow",
        "mirror",
        "netq",
        "lb",
        "fpo",
        "core",
        "device",
        "host",
    }
    for line in (
        "port stats list show get set reset migrate unpin",
        "uplink stats",
        "fpo stats enable disable",
        "flow stats clear enable disable dump",
        "lb stats dump",
        "mac list add del clear",
        "mirror list",
        "netq list",
        "host reset",
    ):
        name, *wanted = line.split()
        assert set(wanted) <= set(verbs(name)), name


@pytest.mark.parametrize(
    "command", [each for each in COMMANDS.values() if each.kind != "other"], ids=lambda each: each.name
)
def test_every_command_with_rows_has_columns(command):
    names = [column.name for column in COLUMNS[command.table]]
    assert names and len(set(names)) == len(names)
    assert {column.type for column in COLUMNS[command.table]} <= set(TYPES)


def test_the_shipped_schemas_are_those_of_the_table():
    shipped = {path.stem: path.read_text() for path in schema.FOLDER.glob("*.json")}
    assert shipped == {table: schema.text(table) for table in COLUMNS}, "python3 -m rynctl.schema writes them"


def test_the_columns_that_scripts_rely_on():
    names = {table: [column.name for column in columns] for table, columns in COLUMNS.items()}
    assert names["switch.list"] == ["number", "name", "alias", "id", "mtu", "max_ports"]
    assert names["port.list"] == ["switch", "port", "dvport", "kind", "mac", "mac_count", "tx_cores", "rx_cores"]
    assert names["mac.list"][:4] == ["switch", "port", "mac", "vlan"]
    assert names["port.set"] == ["object", "key", "old", "new", "result"]
    counters = [
        f"{side}_{name}"
        for side in ("tx", "rx")
        for name in (
            "packets",
            "bytes",
            "multicast_packets",
            "multicast_bytes",
            "broadcast_packets",
            "broadcast_bytes",
            "drops",
            "errors",
        )
    ]
    assert names["port.stats"] == [
        "switch",
        "port",
        *counters,
        *(f"fast_{name}" for name in counters),
        *(f"slow_{name}" for name in counters),
    ]


def test_help_names_every_command(still: Ctl):
    overview = still("--help").stdout
    assert overview == still().stdout and max(map(len, overview.splitlines())) <= 80
    for words, command in COMMANDS.items():
        if len(words) == 1:
            assert re.search(rf"^  {words[0]} ", overview, re.MULTILINE)
        else:
            (verbs_of,) = re.findall(rf"^  {words[0]} .*", overview, re.MULTILINE)
            assert f" {words[1]}" in verbs_of
            assert command.text in still(words[0], "--help").stdout
        assert command.text[1:] in " ".join(still(*words, "--help").stdout.split())


def test_version_is_the_projects(still: Ctl):
    version = re.search(r"version: '([\d.]+)'", (ROOT / "meson.build").read_text())
    assert version and still("--version").stdout == f"rynctl {version[1]}\n"


def test_manual_page(tmp_path):
    page = BUILD / "rynctl.8"
    assert page.read_text() == manual.page()
    done = subprocess.run(
        ["man", "--warnings", "-l", str(page)],
        text=True,
        capture_output=True,
        check=True,
        env={"PATH": "/usr/bin:/bin", "MANWIDTH": "80", "LANG": "C.UTF-8"},
    )
    assert done.stderr == ""
    for command in COMMANDS.values():
        assert f"rynctl {command.name}" in " ".join(done.stdout.split())


@pytest.mark.parametrize("shell", ["bash", "zsh"])
def test_completion_scripts_are_sound(still: Ctl, shell: str, tmp_path):
    script = tmp_path / "script"
    script.write_text(still("completion", shell).stdout)
    subprocess.run([shell, "-n", str(script)], check=True)


def test_completion_knows_the_names_of_this_host(ctl: Ctl, tmp_path):
    (tmp_path / "rynctl").symlink_to(ROOT / "rynctl/rynctl")
    script = (
        ctl("completion", "bash").stdout
        + """
COMP_WORDS=(rynctl port list dvs-1)
COMP_CWORD=3
_shtab_rynctl rynctl dvs-1 list
printf '%s\\n' "${COMPREPLY[@]}"
"""
    )
    done = subprocess.run(
        ["bash", "-c", script],
        text=True,
        capture_output=True,
        check=True,
        env={**ctl.environment, "PATH": f"{tmp_path}:/usr/bin:/bin"},
    )
    assert done.stdout.split() == ["dvs-1-set"]


def test_what_a_list_imports(still: Ctl):
    """Starting is fast: none of what only other commands need is imported."""
    code = (
        "import sys; sys.path.append(sys.argv.pop(1)); sys.argv[0] = 'rynctl'\n"
        "from rynctl.cli import main\n"
        "assert main(['-j', 'switch', 'list']) == 0\n"
        "print(*sorted(sys.modules), file=sys.stderr)"
    )
    done = subprocess.run(
        ["/usr/bin/python3", "-c", code, str(ROOT)],
        env=still.environment,
        text=True,
        cwd="/",
        capture_output=True,
        check=True,
    )
    json.loads(done.stdout)
    modules = set(done.stderr.split())
    late = {
        "rich",
        "curses",
        "ssl",
        "asyncio",
        "ipaddress",
        "csv",
        "subprocess",
        "tempfile",
        "syslog",
        "ast",
        "datetime",
        "inspect",
        "_libryn",
        "shtab",
        "logging",
        "rynctl.changes",
        "rynctl.top",
        "rynctl.find",
    }
    assert not modules & late
    assert {"ryn", "ryn._core", "rynctl.rows"} <= modules


def test_the_guide_shows_what_the_commands_print():
    """Ten tasks, each with its output on a host whose clock stands."""
    import rynctl_page

    text = rynctl_page.PAGE.read_text()
    assert len(rynctl_page.COMMAND.findall(text)) == 10
    assert rynctl_page.page(text) == text, "./dev demo --docs renews it"
