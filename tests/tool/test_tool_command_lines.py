"""Wrong command lines: each is answered in one plain line that names what was typed, and changes nothing."""

import shlex

import pytest

LINES = [
    ("dance", 'there is no command "dance"; see: ryn-sim --help'),
    ("--hots x info", 'there is no option --hots; did you mean "--host"?'),
    ("--verison", 'there is no option --verison; did you mean "--version"?'),
    ("init nosuch", 'there is no profile "nosuch", nor a file of that name; known: asymmetric, default, degraded,'
     " empty, large, overloaded"),
    ("init nosuch.yaml", "nosuch.yaml: No such file or directory"),
    ("init /", "/: Is a directory"),
    ("init --seed -3", 'init: --seed: expected a number such as 12 or 0xbad0007, got "-3"'),
    ("init a b", 'init: nothing is expected here, got "b"'),
    ("init --check --list", "init: --list: not allowed with --check"),
    ("init --sql --force", "init: --force: not allowed with --sql"),
    ("init --list empty", "init --list: nothing is expected after it"),
    ("info --host 'a b'", '"a b" is not a name for a host: expected up to 63 letters, digits, dots, hyphens and'
     " underscores"),
    ("info --state ''", "--state: expected a file"),
    ("info --host a --state b", "--host and --state both name a host; expected one of them"),
    ("info x", 'info: nothing is expected here, got "x"'),
    ("info --follow", "info: --follow means nothing here"),
    ("info -- ls", "info: only run takes a command after --"),
    ("show prots", 'show: there is no "prots" to show; did you mean "ports"?'),
    ("show ports x y", 'show: nothing is expected here, got "y"'),
    ("ls prots", 'ls: prots: there is no "prots" here; did you mean "ports"?'),
    ("ls ports.web-99", 'ls: ports.web-99: there is no "web-99" among ports; did you mean "web-9"?'),
    ("ls traffic.999", 'ls: traffic.999: there is no "999" among traffic; known: 0 to 65'),
    ("get", "get: expected PATH; see: ryn-sim get --help"),
    ("get clock.spede", 'get: clock.spede: there is no "spede" here; did you mean "speed"?'),
    ("set", "set: expected PATH=VALUE; see: ryn-sim set --help"),
    ("set foo", 'set: expected PATH=VALUE, got "foo"'),
    ("set hots=3", 'set: hots: unknown key; did you mean "host"?'),
    ("set numa.0.capacity=3", "set: numa.0.capacity: not set here; describe another host and use: ryn-sim init"),
    ("set events=[]", "set: events: not set here; use: ryn-sim event"),
    ("set ports=3", "set: ports: expected a path further in, such as ports.NAME.vlan=200"),
    ("set 'traffic.0.pps=[1'", "set: traffic.0.pps: not valid YAML: did not find expected ',' or ']'"),
    ("set 'traffic.0.pattern={swing: 1, swing: 0}'", "set: traffic.0.pattern: swing: this key is given twice"),
    ("set traffic.0.to=nosuch", 'set: traffic.0.to: there is no port "nosuch"'),
    ("export a b", 'export: nothing is expected here, got "b"'),
    ("save", "save: expected FILE; see: ryn-sim save --help"),
    ("restore /", "/: is a directory"),
    ("restore /nosuch", "/nosuch: there is no such file"),
    ("clone default", 'clone: "default" is the host itself'),
    ("run", "run: expected a command after --, such as: ryn-sim run -- python3 script.py"),
    ("run ls -l", "run: expected the command after --: ryn-sim run -- ls -l"),
    ("clock back", 'clock: there is no action "back"; known: show, run, freeze, speed, step, warp'),
    ("clock step", "clock step: expected a time, such as clock step 5s"),
    ("clock step -5s", 'clock step: expected a time such as 5s, 250ms or 2h, got "-5s"; the clock never goes back'),
    ("clock speed 0", 'clock speed: expected a speed from 0.001 to 1000000, got "0"'),
    ("clock run 5", 'clock run: nothing is expected after it, got "5"'),
    ("fault", "fault: expected ACTION; see: ryn-sim fault --help"),
    ("fault add", "fault add: expected OPERATION; see: ryn-sim fault add --help"),
    ("fault add Nope", 'fault add: there is no operation "Nope"'),
    ("fault add Ryn_GetLRO --status 1 --corrupt ones",
     "fault add: a status is answered instead of the operation, so there is no answer to corrupt"),
    ("fault add Ryn_GetLRO --where sw", 'fault add: --where: expected ARGUMENT=GLOB, got "sw"'),
    ("fault add Ryn_GetLRO --probability 50%",
     'fault add: --probability: expected a number from 0 to 1 in steps of 0.000001, got "50%"'),
    ("fault add Ryn_GetLRO --from 5s --until 3s", "fault add: --until: expected a time after --from"),
    ("fault remove x", 'fault remove: ID: expected a number such as 12 or 0xbad0007, got "x"'),
    ("event", "event: expected EVENT|list|end; see: ryn-sim event --help"),
    ("event uplink-down", "event uplink-down: expected what it happens to; see: ryn-sim event --help"),
    ("event uplink-down lunic0 --for -1s",
     'event uplink-down: --for: expected a time such as 30s, 250ms or 2h, got "-1s"'),
    ("event mac-limit nosw", 'event mac-limit: there is no switch "nosw"; known: dvs-1, dvs-2'),
    ("event counters-near-wrap web-99",
     'event counters-near-wrap: there is no port "web-99"; did you mean "web-9"?'),
    ("event end x", 'event end: expected the number of an event, got "x"'),
    ("log -n -1", 'log: -n/--lines: expected a number such as 12 or 0xbad0007, got "-1"'),
    ("log --clear -n 3", "log --clear: nothing is expected with it"),
    ("completion fish", 'completion: there is no shell "fish"; known: bash, zsh'),
    ("completion bash --json", "completion: --json means nothing here"),
]  # fmt: skip


@pytest.mark.parametrize("line, message", LINES, ids=[line for line, _ in LINES])
def test_a_wrong_command_line_is_answered_in_one_line(live, made, line, message):
    before = live.path().read_bytes()
    assert live.fails(2, *shlex.split(line)) == f"ryn-sim: {message}\n"
    assert live.path().read_bytes() == before
    assert [file.name for file in live.path().parent.iterdir() if file.suffix == ".db"] == ["default.db"]


@pytest.fixture
def made(live):
    live("init")


def test_a_host_that_exists_is_not_replaced_in_passing(live, made, tmp_path):
    assert live.fails(1, "init") == (
        f'ryn-sim: the host "default" exists already ({live.path()}); replace it with --force\n'
    )
    (tmp_path / "saved").write_text("mine")
    assert "exists already" in live.fails(1, "save", tmp_path / "saved")
    assert live.fails(1, "save", tmp_path / "no" / "x") == f"ryn-sim: {tmp_path / 'no'}: there is no such folder\n"
    assert (tmp_path / "saved").read_text() == "mine"
