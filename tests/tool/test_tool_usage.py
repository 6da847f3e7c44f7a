"""The command line: help, exit codes, hosts side by side."""

import json
import re
import shutil
import sqlite3
import subprocess
import threading

import pytest
from ryn_sim import table
from ryn_sim.generate import DOCUMENTED
from ryn_sim.members.conversation import CONVERSATION
from ryn_sim.members.nic import NIC
from ryn_sim.members.port import PORT_ENTITY
from ryn_sim.members.switch import SWITCH
from simtool import PROFILES, ROOT, TOOL

COMMANDS = [
    *("init", "info", "show", "ls", "get", "set", "export", "save", "restore", "clone", "reset", "rm", "run", "clock"),
    *("fault", "event", "log", "completion"),
]


@pytest.mark.parametrize("command", COMMANDS)
def test_every_command_has_help_that_fits(sim, command):
    text = sim(command, "--help", COLUMNS="80")
    assert text.startswith("usage: ryn-sim " + command)
    assert max(map(len, text.splitlines())) <= 80
    assert command in sim("--help")


@pytest.mark.parametrize(
    "arguments",
    [
        ["dance"],
        ["init", "default", "again"],
        ["init", "--seed", "x"],
        ["init", "nowhere"],
        ["--host", "a/b", "info"],
        ["--host", "", "info"],
        ["--host", "a", "--state", "b", "info"],
        ["run"],
        ["run", "--"],
        ["info", "--", "ls"],
        ["set"],
        ["fault"],
        ["fault", "add"],
        ["clock", "back"],
    ],
)
def test_bad_usage_is_exit_code_2(sim, arguments):
    assert sim.fails(2, *arguments)


@pytest.mark.parametrize("command", ["info", "show", "export", "reset", "rm", "clock", "log"])
def test_a_host_that_is_not_there_is_exit_code_1(sim, command):
    assert 'no simulated host "nobody"' in sim.fails(1, command, "--host", "nobody")


def test_a_profile_that_is_nearly_right_is_proposed(sim):
    assert 'did you mean "asymmetric"?' in sim.fails(2, "init", "asymetric")


@pytest.mark.parametrize(
    "arguments, expected",
    [
        (["evnt"], 'there is no command "evnt"; did you mean "event"?'),
        (["clock", "setp", "5s"], 'there is no action "setp"; did you mean "step"?'),
        (["fault", "lst"], 'there is no action "lst"; did you mean "list"?'),
        (["fault", "add", "Ryn_GetLRO", "--stats", "5"], 'did you mean "--status"?'),
        (["fault", "add", "Ryn_GetLRO", "--corrupt", "zeroes"], 'did you mean "zero"?'),
        (["init", "--forse"], 'did you mean "--force"?'),
        (["info", "--follow"], "--follow means nothing here"),
    ],
)
def test_what_is_nearly_right_is_proposed(sim, arguments, expected):
    assert expected in sim.fails(2, *arguments)


def test_a_host_of_nearly_that_name_is_proposed(sim):
    sim("init", "empty", "--host", "lab-7")
    message = 'ryn-sim: there is no simulated host "lab7" (make it with: ryn-sim init); did you mean "lab-7"?\n'
    assert sim.fails(1, "show", "--host", "lab7") == message
    assert sim.fails(1, "run", "--host", "lab7", "--", "true") == message


def test_the_manual_page_is_sound_and_names_all_options(sim):
    page = ROOT / "simhost" / "tool" / "ryn-sim.1"
    if shutil.which("groff") is None:
        pytest.skip("there is no groff to set the page")
    done = subprocess.run(["groff", "-man", "-Tascii", "-ww", page], capture_output=True, text=True)
    assert (done.returncode, done.stderr) == (0, "")
    text = re.sub(r"\x1b\[[0-9;]*m|.\x08|-\n *", "", done.stdout)
    for command in [*([name] for name in COMMANDS), ["fault", "add"]]:
        options = set(re.findall(r"(--[a-z]+)", sim(*command, "--help").partition("\noptions:")[2]))
        assert [option for option in sorted(options) if option not in text] == [], command


def test_hosts_stand_side_by_side(sim):
    sim("init", "--host", "one")
    sim("--host", "two", "init", "empty")
    assert json.loads(sim("info", "--json", "--host", "one"))["ports"] == 35
    assert json.loads(sim("info", "--json", RYN_SIM_HOST="two"))["ports"] == 0
    assert json.loads(sim("info", "--json", RYN_SIM_STATE=str(sim.path("one"))))["ports"] == 35
    assert json.loads(sim("info", "--json", "--host", "two", RYN_SIM_STATE=str(sim.path("one"))))["ports"] == 0
    assert json.loads(sim("info", "--json", "--host", "two"))["hosts"] == ["one", "two"]
    sim("rm", "--host", "one")
    assert not sim.path("one").exists() and sim.path("two").exists()


def test_a_host_may_lie_anywhere(sim, tmp_path):
    file = tmp_path / "a folder" / "my host?.db"
    sim("init", "--state", file)
    assert file.exists()
    assert json.loads(sim("info", "--json", "--state", file))["state"] == str(file)


def test_init_keeps_what_is_there_unless_forced(sim):
    sim("init", "empty")
    assert "exists already" in sim.fails(1, "init", "default")
    assert json.loads(sim("info", "--json"))["profile"] == "empty"
    sim("init", "default", "--force")
    assert json.loads(sim("info", "--json"))["profile"] == "default"


def test_of_many_that_make_a_host_at_once_one_does(sim):
    results = []
    threads = [threading.Thread(target=lambda: results.append(sim.process("init").returncode)) for _ in range(6)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert sorted(results) == [0, 1, 1, 1, 1, 1]
    assert [entry.name for entry in sim.path().parent.iterdir()] == ["default.db"]


def test_a_folder_that_cannot_be_made_is_named(sim, tmp_path):
    (tmp_path / "file").write_text("")
    assert str(tmp_path / "file") in sim.fails(1, "init", "--state", tmp_path / "file" / "x.db")


def test_a_host_is_its_owners_alone(sim):
    sim("init")
    assert sim.path().stat().st_mode & 0o777 == 0o600


@pytest.mark.parametrize("home", ["", "relative"])
def test_without_a_home_there_is_no_named_host(sim, tmp_path, home):
    message = "ryn-sim: neither XDG_STATE_HOME nor HOME names a folder to keep hosts in\n"
    assert sim.fails(1, "init", HOME=home, XDG_STATE_HOME="") == message
    sim("init", "--state", tmp_path / "x.db", HOME=home, XDG_STATE_HOME="")


def test_a_file_that_is_no_store_is_left_alone(sim, tmp_path):
    file = tmp_path / "notes.txt"
    file.write_text("these are notes, and more than sixteen bytes of them")
    for command in ("info", "export", "reset", "rm"):
        assert str(file) in sim.fails(1, command, "--state", file)
    assert file.read_text().startswith("these are notes")


def test_rm_refuses_while_somebody_has_the_host_open(sim):
    sim("init")
    with sqlite3.connect(sim.path()) as other:
        other.execute("SELECT * FROM host").fetchall()
        assert "open" in sim.fails(1, "rm")
        assert sim.path().exists()
        sim("rm", "--force")
    other.close()
    assert not sim.path().exists()


def test_rm_leaves_nothing_behind(sim):
    sim("init")
    sim("fault", "add", "Ryn_GetLRO", "--status", "1")
    sim("rm")
    assert list(sim.path().parent.iterdir()) == []


def test_reset_puts_back_what_was_changed_and_serves_who_has_it_open(sim):
    sim("init", "--seed", "5")
    fresh = sim("export")
    other = sqlite3.connect(sim.path())
    other.execute("UPDATE sw SET mtu = 4000")
    other.execute("INSERT INTO fault (operation, status) VALUES ('Ryn_GetLRO', 1)")
    other.execute("DELETE FROM conversation WHERE id > 3")
    other.commit()
    assert sim("export") != fresh
    sim("reset")
    assert sim("export") == fresh
    assert other.execute("SELECT COUNT(*) FROM conversation").fetchone() == (66,)
    assert other.execute("SELECT seed FROM host").fetchone() == (5,)
    assert other.execute("PRAGMA foreign_key_check").fetchall() == []
    other.close()


def test_reset_knows_a_description_of_ones_own(sim, tmp_path):
    file = tmp_path / "mine.yaml"
    file.write_text("host: mine\nabout: it's mine; 'quoted'\nnuma: [{lcores: [3]}]\n")
    sim("init", file)
    file.unlink()
    fresh = sim("export")
    sqlite3.connect(sim.path()).executescript("UPDATE host SET name = 'other', flow_timeout_s = 1")
    sim("reset")
    assert sim("export") == fresh


def test_an_installed_tool_finds_its_own(sim, tmp_path):
    prefix = tmp_path / "usr"
    share = prefix / "lib" / "ryn-sim"
    shutil.copytree(TOOL.parent / "ryn_sim", share / "ryn_sim")
    shutil.copytree(PROFILES, share / "profiles")
    for name in ("schema.sql", "host.schema.json"):
        shutil.copy(ROOT / "simhost" / name, share)
    for name in ("libryn.so", "libjorPublic.so", "libryn_sim.so"):
        (share / name).write_bytes(b"")
    (prefix / "bin").mkdir()
    shutil.copy(TOOL, prefix / "bin")
    environment = {name: value for name, value in sim.environment.items() if name != "RYN_SIM_LIBS"}
    for arguments in (["init"], ["run", "--", "/usr/bin/env"]):
        done = subprocess.run(
            [str(prefix / "bin" / "ryn-sim"), *arguments], capture_output=True, text=True, env=environment, timeout=60
        )
        assert done.returncode == 0, done
    assert f"\nLD_LIBRARY_PATH={share}" in "\n" + done.stdout


def test_a_reader_that_goes_away_is_no_crash(sim):
    sim("init")
    done = subprocess.run(
        ["sh", "-c", f"/usr/bin/python3 {TOOL} export | head -1"], capture_output=True, text=True, env=sim.environment
    )
    assert done.stderr == "" and len(done.stdout.splitlines()) == 1


def test_json_is_json_everywhere(sim):
    assert json.loads(sim("init", "--json"))["switches"] == 2
    sim("fault", "add", "Ryn_GetLRO", "--status", "0xbad0007")
    for arguments in (
        ["info"],
        ["export"],
        ["show", "all"],
        ["fault", "list"],
        ["event", "list"],
        ["log"],
        ["clock"],
        ["init", "--list"],
    ):
        json.loads(sim(*arguments, "--json"))
    for what in (
        "summary",
        "cores",
        "nics",
        "switches",
        "ports",
        "traffic",
        "mirrors",
        "properties",
        "balancer",
        "moves",
    ):
        assert json.loads(sim("show", what, "--json")) or what == "moves", what


@pytest.mark.parametrize("profile", ["default", "overloaded", "large"])
def test_all_of_show_fits_80_columns_and_cuts_nothing(live, profile):
    live("init", profile)
    live("clock", "warp", "10s")
    text = live("show", "all")
    assert max(map(len, text.splitlines())) <= 80 and "…" not in text
    found = json.loads(live("show", "rates", "--json"))
    shown = live("show", "rates").splitlines()[1:]
    assert sum(line[:5].strip().isdecimal() for line in shown) == len(found)
    lost = [row for row in found if row["lost_pps"]]
    assert bool(lost) == (profile != "large")
    assert all(any(where in line for line in shown) for row in lost for where in row["lost"])


@pytest.mark.parametrize(
    "arguments", [[], ["--help"], ["info"], ["init", "--list"], ["ls"], ["ls", "ports"], ["clock"]]
)
def test_what_is_printed_fits_80_columns(sim, arguments):
    sim("init", "--state", sim.folder / "x.db")
    text = sim(*arguments, RYN_SIM_STATE=str(sim.folder / "x.db"), COLUMNS="80", XDG_STATE_HOME="/x")
    assert max(len(line) for line in text.splitlines() if str(sim.folder) not in line and "/build" not in line) <= 80


def test_a_long_text_goes_on_in_the_next_line(capsys):
    table.print_table([{"name": "a", "figure": 12345678, "where": "one," * 40}], ["name", "figure", "where"])
    lines = capsys.readouterr().out.splitlines()
    assert max(map(len, lines)) <= 80 and lines[1].startswith("a     12345678  one,")
    assert "".join(line[16:] for line in lines[1:]) == "one," * 40


def test_all_members_with_a_heading_are_shown(sim):
    """One list: a heading in the table of members is a column here, in the order of the members."""
    sim("init")
    for section, entity in (("nics", NIC), ("switches", SWITCH), ("ports", PORT_ENTITY), ("traffic", CONVERSATION)):
        headings = list(dict.fromkeys(member.shown.upper() for member in entity.members if member.shown))
        line = sim("show", section).splitlines()[0]
        assert [word for word in re.split("  +", line) if word in headings] == headings
    nic = "NIC NUMA AFFINITY LINK CRC_PPM DROP_PPM FPO UPLINK"
    assert sim("show", "nics").splitlines()[0].split() == nic.split()


def test_show_takes_a_switch_by_alias_or_number(sim):
    sim("init")
    by_alias = json.loads(sim("show", "ports", "dvs-2", "--json"))
    assert by_alias == json.loads(sim("show", "ports", "1", "--json"))
    assert {port["switch"] for port in by_alias} == {"dvs-2"} and len(by_alias) == 12
    assert 'did you mean "dvs-2"?' in sim.fails(1, "show", "ports", "dvs-22")
    assert 'did you mean "ports"?' in sim.fails(2, "show", "port")


def test_light_commands_load_no_heavy_library(sim):
    sim("init")
    done = subprocess.run(
        ["/usr/bin/python3", "-X", "importtime", str(TOOL), "info"], capture_output=True, text=True, env=sim.environment
    )
    loaded = {line.rpartition("|")[2].strip() for line in done.stderr.splitlines()}
    assert done.returncode == 0 and not {"yaml", "jsonschema"} & loaded


def test_the_documentation_names_every_key_and_command(sim):
    text = (ROOT / "docs" / "ryn-sim.md").read_text()
    manual = (ROOT / "simhost" / "tool" / "ryn-sim.1").read_text()
    keys = [member.key for entity in DOCUMENTED.values() for member in entity.members if member.key]
    assert len(keys) > 120
    assert [key for key in keys if f"| `{key}` |" not in text] == []
    for command in COMMANDS:
        assert f"| `{command}" in text and f".B {command}" in manual
    assert [profile.stem for profile in PROFILES.glob("*.yaml") if f"| `{profile.stem}` |" not in text] == []


def test_the_page_on_the_model_says_what_each_setting_does():
    text = (ROOT / "docs" / "simulated-host.md").read_text()
    table = text.partition("## What settings do\n")[2].partition("\n## ")[0]
    methods = set(re.findall(r"^def (\w+)", (ROOT / "libryn" / "stubs" / "_libryn.pyi").read_text(), re.M))
    verbs = ("Set", "Enable", "Clear", "Reset", "Migrate", "Unpin", "Init")
    changing = {name for name in methods if name.startswith(verbs)}
    # What clears and resets without a word about it there: MAC tables and weights
    left_out = {"ClearPortMACTable", "ClearSwitchMACTable", "ResetLBWeights"}
    assert changing - set(re.findall(r"`(\w+)`", table)) == left_out


def test_the_version_is_the_projects(sim):
    version = sim("--version").split()[1]
    assert f"version: '{version}'" in (ROOT / "meson.build").read_text()
