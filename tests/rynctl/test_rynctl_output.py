"""Rows first, pictures of rows second: all formats show the same, on every host."""

from __future__ import annotations

import csv
import io
import json
import re
import sys
from pathlib import Path

import jsonschema
import pexpect
import pytest
from ctl import PROFILES, ROOT, Ctl, new_host

sys.path.append(str(ROOT))
from rynctl.render import short  # noqa: E402

READING = {
    "switch list": "",
    "switch show": "S",
    "switch get": "S",
    "port list": "",
    "port show": "P",
    "port stats": "S",
    "port get": "P",
    "uplink list": "",
    "uplink show": "U",
    "uplink stats": "",
    "uplink queues": "U",
    "uplink dump": "U",
    "uplink get": "U",
    "mac list": "S",
    "flow list": "--core 0 --limit 50",
    "flow dump": "S --core 0",
    "flow stats": "",
    "mirror list": "",
    "mirror show": "S",
    "netq list": "P",
    "netq show": "P",
    "lb list": "",
    "lb show": "S",
    "lb stats": "",
    "lb dump": "S",
    "lb get": "S",
    "fpo list": "",
    "fpo show": "S",
    "fpo stats": "",
    "fpo get": "S",
    "core list": "",
    "core show": "0",
    "device list": "",
    "device show": "lunic0",
    "device get": "lunic0",
    "host list": "",
    "host show": "",
    "host get": "",
    "find": "S",
    "doctor": "",
}


@pytest.fixture(scope="module", params=PROFILES)
def profile(request, tmp_path_factory: pytest.TempPathFactory) -> Ctl:
    return Ctl(new_host(tmp_path_factory.mktemp(request.param) / "host.db", request.param))


def names(ctl: Ctl) -> dict[str, str]:
    """What S, P and U stand for on a host: a switch, a port, an uplink."""
    switches = [each["alias"] or each["name"] for each in ctl.data("switch", "list") if each["number"] is not None]
    if not switches:
        return {}
    ports = ctl.data("port", "list", switches[0])
    uplinks = [each["port"] for each in ports if each["kind"] == "UPLINK"]
    return {"S": switches[0], "P": f"{switches[0]}/{ports[-1]['port']}", "U": f"{switches[0]}/{uplinks[0]}"}


def commands(ctl: Ctl) -> list[list[str]]:
    known = names(ctl)
    found = []
    for words, arguments in READING.items():
        given = arguments.split()
        if not known and (given or words == "doctor"):
            continue
        found.append([*words.split(), *(known.get(each, each) for each in given)])
    return found


def test_every_reading_command_is_tried_here():
    from rynctl.commands import COMMANDS

    reading = {command.name for command in COMMANDS.values() if command.kind in ("list", "show")}
    assert reading == set(READING) - {"doctor"}


def as_csv(value: object) -> str:
    if value is None:
        return ""
    return json.dumps(value) if isinstance(value, (bool, list)) else str(value)


def test_formats_show_the_same_rows(profile: Ctl):
    for arguments in commands(profile):
        done = profile("-j", *arguments)
        output = json.loads(done.stdout)
        table = output["schema"].split("/")[1]
        assert done.stderr == "" and done.stdout.count("\n") == 1
        jsonschema.validate(output, json.loads((ROOT / f"rynctl/schemas/{table}.json").read_text()))
        assert output["backend"] == "simulated"
        assert re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z", output["time"])
        rows = output["data"]

        lines = profile("-o", "jsonl", *arguments).stdout.splitlines()
        assert [json.loads(line) for line in lines] == rows, arguments
        heading, *records = csv.reader(io.StringIO(profile("-o", "csv", *arguments).stdout))
        assert len(records) == len(rows)
        for record, row in zip(records, rows):
            assert heading == list(row)
            for text, value in zip(record, row.values()):
                assert text == as_csv(value), arguments
        shown = profile(*arguments)
        assert shown.stderr == f"simulated host {output['host']}\n" or arguments == ["doctor"]
        assert "\x1b" not in shown.stdout


def test_what_is_empty_is_an_empty_list(tmp_path: Path):
    ctl = Ctl(new_host(tmp_path / "host.db", "empty"))
    for words in (
        "switch list",
        "port list",
        "port stats",
        "uplink list",
        "flow stats",
        "mirror list",
        "lb list",
        "fpo list",
        "core list",
        "lb stats",
    ):
        assert ctl.data(*words.split()) == []
        assert ctl("-o", "jsonl", *words.split()).stdout == ""
        assert ctl("-o", "csv", *words.split()).stdout.count("\n") == 1
        assert ctl(*words.split()).stdout.count("\n") == 1  # the heading


@pytest.mark.parametrize(
    "number, text",
    [
        (0, "0"),
        (9999, "9999"),
        (10000, "10.00k"),
        (12344, "12.34k"),
        (12345, "12.35k"),
        (99994, "99.99k"),
        (99995, "100.0k"),
        (999949, "999.9k"),
        (999950, "1.000M"),
        (1234567, "1.235M"),
        (10**9, "1.000G"),
        (10**12, "1.000T"),
        (123456789012345, "123.5T"),
        (2**64 - 1, "18446744T"),
        (-12345, "-12.35k"),
    ],
)
def test_numbers_of_tables(number, text):
    assert short(number) == text


def test_tables_shorten_counters_and_nothing_else(still: Ctl):
    row = still.data("port", "stats", "dvs-1/3", "--columns", "switch,port,tx_packets")[0]
    heading, line = still("port", "stats", "dvs-1/3", "--columns", "switch,port,tx_packets").stdout.splitlines()
    assert heading.split() == ["SWITCH", "PORT", "TX_PACKETS"]
    assert row["tx_packets"] >= 10_000
    assert line.split() == [row["switch"], str(row["port"]), short(row["tx_packets"])]


def test_tables_have_units_and_two_blanks(still: Ctl):
    lines = still("switch", "list").stdout.splitlines()
    assert re.split(r"  +", lines[0].strip()) == ["NUMBER", "NAME", "ALIAS", "ID", "MTU[B]", "MAX_PORTS"]
    # What cannot be known is a dash
    assert re.split(r"  +", lines[-1].strip())[0] == "-"


def test_columns_sort_filter_limit(still: Ctl):
    everything = still.data("port", "list")
    assert still.data("port", "list", "--columns", "mac,port") == [
        {"mac": row["mac"], "port": row["port"]} for row in everything
    ]
    assert (
        still.data("port", "list", "--sort=-port", "--limit", "3")
        == sorted(everything, key=lambda row: -row["port"])[:3]
    )
    assert still.data("port", "list", "--filter", "kind=UPLINK", "--filter", "port > 0") == [
        row for row in everything if row["kind"] == "UPLINK" and row["port"] > 0
    ]
    assert still.data("port", "list", "--filter", "mac~^02:00") == [
        row for row in everything if row["mac"].startswith("02:00")
    ]
    assert still.data("port", "list", "--filter", "kind!=VNIC", "--sort", "mac", "--limit", "0") == []
    assert still.data("switch", "list", "--filter", "number=") == [
        row for row in still.data("switch", "list") if row["number"] is None
    ]
    # Filter, sort, limit, in that order; options stand anywhere
    assert still.data("--sort=-port", "port", "--limit", "1", "list", "--filter", "kind=UPLINK", "dvs-1") == [
        max(
            (row for row in everything if row["kind"] == "UPLINK" and row["switch"] == "dvs-1-set"),
            key=lambda row: row["port"],
        )
    ]


@pytest.mark.parametrize(
    "option, message",
    [
        (["--columns", "prot"], "there is no column 'prot'; did you mean 'port'?"),
        (["--sort", "x"], "there is no column 'x'; there are switch, port,"),
        (["--filter", "port"], "is not 'KEY OP VALUE'"),
        (["--filter", "port>x"], "'x' is no number"),
        (["--filter", "mac~("], "unterminated"),
        (["--filter", "tx_cores<1"], "has no order"),
        (["--limit", "-1"], "--limit '-1' is no number of rows"),
        (["--limit", "x"], "--limit 'x' is no number of rows"),
        (["--output", "xml"], "invalid choice: 'xml'"),
        (["-j", "-o", "csv"], "exclude each other"),
        (["--count", "2"], "belong to --watch"),
        (["--watch", "--interval", "0"], "no number of seconds above 0"),
    ],
)
def test_options_that_cannot_be(still: Ctl, option, message):
    if "-j" in option:
        assert message in json.loads(still("port", "list", *option, code=2).stderr)["error"]["message"]
    else:
        assert message in still.refused("port", "list", *option)


def test_control_characters_and_bytes_are_escaped(ctl: Ctl):
    name = "a\x1b[31mb\udcff"
    from rynctl.render import cell, dumps, escaped

    assert escaped(name) == r"a\x1b[31mb\xff"
    assert cell(name, "str") == r"a\x1b[31mb\xff" and cell([name], "strs") == r"a\x1b[31mb\xff"
    assert json.loads(dumps({"name": name}))["name"] == name
    assert ctl.refused("switch", "show", "no\x1bne", code=3).count("\\x1b") == 1


def terminal(ctl: Ctl, width: int, *arguments: str, **more: str) -> str:
    """What a terminal of that width gets."""
    child = pexpect.spawn(
        "/usr/bin/python3",
        [str(ROOT / "rynctl/rynctl"), *arguments],
        dimensions=(30, width),
        env={**ctl.environment, **more},
        encoding="utf-8",
        timeout=30,
    )
    child.expect(pexpect.EOF)
    child.close()
    assert child.exitstatus == 0, child.before
    return child.before.replace("\r\n", "\n")


@pytest.mark.parametrize("width", [80, 120])
def test_a_terminal_gets_the_columns_that_fit(still: Ctl, width: int):
    for arguments in commands(still):
        text = terminal(still, width, *arguments, NO_COLOR="1")
        lines = text.splitlines()
        assert max(map(len, lines)) <= width, (arguments, max(lines, key=len))
        assert lines[0].startswith("simulated host ")  # named once, in the heading
        assert sum("simulated host" in line for line in lines) == 1
    shown = terminal(still, width, "port", "stats", "dvs-1", NO_COLOR="1").splitlines()[1].split()
    whole = still("port", "stats", "dvs-1").stdout.splitlines()[0].split()
    assert shown == whole[: len(shown)] and 2 < len(shown) < len(whole)
    # Named columns are all shown
    wide = terminal(
        still, width, "port", "stats", "dvs-1/3", "--columns", ",".join(map(str.lower, whole)), NO_COLOR="1"
    )
    assert wide.splitlines()[1].split() == whole


def test_colour(still: Ctl):
    assert "\x1b[1m" in terminal(still, 80, "switch", "list")
    assert "\x1b" not in terminal(still, 80, "switch", "list", NO_COLOR="1")
    assert "\x1b" not in terminal(still, 80, "switch", "list", "--color", "never")
    assert "\x1b[1m" in terminal(still, 80, "switch", "list", "--color", "always", NO_COLOR="1")
    assert "\x1b[1m" in still("switch", "list", "--color", "always").stdout
