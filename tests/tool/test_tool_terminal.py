"""What somebody sees at a terminal of 80 columns, and what goes into a pipe."""

import re

import pytest
from simtool import TOOL

pexpect = pytest.importorskip("pexpect")


def at_terminal(sim, *arguments: object, columns: int = 80, **environment: str) -> str:
    """All that a command writes to a terminal, with its control sequences."""
    terminal = pexpect.spawn(
        "/usr/bin/python3",
        [str(TOOL), *map(str, arguments)],
        env={**sim.environment, "TERM": "xterm", **environment},
        encoding="utf-8",
        dimensions=(50, columns),
        timeout=120,
    )
    text = str(terminal.read())
    terminal.close()
    assert terminal.exitstatus == 0, text
    return text


def plain(text: str) -> list[str]:
    return re.sub(r"\x1b\[[0-9;]*[mK]", "", text).splitlines()


@pytest.fixture
def overloaded(live):
    live("init", "overloaded")
    live("clock", "freeze")
    return live


def test_what_loses_packets_is_red_and_headings_are_bold(overloaded):
    text = at_terminal(overloaded, "show", "links")
    heading, *rows = text.splitlines()
    assert heading.startswith("\x1b[1mNIC") and heading.endswith("\x1b[0m")
    for row in rows:
        assert row.startswith("\x1b[31m") == (not row.split()[-1].startswith("0")), row
    assert any(row.startswith("\x1b[31m") for row in rows) and not all(row.startswith("\x1b[31m") for row in rows)


@pytest.mark.parametrize("environment", [{"NO_COLOR": "1"}, {"TERM": "dumb"}])
def test_colour_can_be_turned_off(overloaded, environment):
    assert "\x1b" not in at_terminal(overloaded, "show", "links", **environment)
    assert "\x1b[31m" in at_terminal(overloaded, "show", "links", NO_COLOR="")


def test_a_pipe_gets_no_colour_and_the_same_figures(overloaded):
    piped = overloaded("show", "rates")
    assert "\x1b" not in piped and plain(at_terminal(overloaded, "show", "rates")) == piped.splitlines()


def test_a_wide_terminal_is_used(overloaded):
    narrow, wide = (plain(at_terminal(overloaded, "show", "rates", columns=columns)) for columns in (80, 200))
    assert max(map(len, narrow)) <= 80 < max(map(len, wide)) and len(wide) < len(narrow)


def test_long_work_says_how_far_it_is_and_cleans_up(live):
    text = at_terminal(live, "init", "large")
    assert re.search(r"\r\x1b\[Kcompiling: [0-9]+ of [0-9]+", text)
    assert plain(text)[-3:] == [
        'made the simulated host "default" from large.yaml:',
        "  16 switches, 2048 ports, 4000 conversations",
        f"  {live.path()}",
    ]
    assert "compiling" not in live.process("init", "large", "--host", "again").stderr


def test_called_bare_it_says_how_to_begin(sim):
    lines = plain(at_terminal(sim))
    assert lines[0] == "ryn-sim makes, shows and changes simulated hosts." and len(lines) < 20
    for command in ("init", "run -- python3 script.py", "show", "ls ports.web-0", "set ports.web-0.lro=off"):
        assert any(line.startswith(f"  ryn-sim {command}  ") for line in lines), command
    assert sim().splitlines() == lines
