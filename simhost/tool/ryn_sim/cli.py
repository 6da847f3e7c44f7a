"""The command line: what can be said, and who does it."""

from __future__ import annotations

import argparse
import difflib
import os
import re
import sys
import textwrap
from typing import Any, NoReturn

from . import VERSION
from .completion import CANDIDATES, CLOCK_ACTIONS, SHELLS, completes
from .errors import BadInput, Failed, nearest
from .members.event import EVENT_TARGETS, EVENTS
from .names import CORRUPTIONS

_EPILOG = """\
A simulated host stands in for a virtualisation host: scripts written with
_libryn run on it by "ryn-sim run -- COMMAND". It is one file that all processes
share; its clock runs and its traffic flows without any process of its own.

exit codes: 0 done, 1 could not be done, 2 wrong usage or input (run: that of
COMMAND, 127 if there is no such command, 126 if it cannot be executed)
"""

_FIRST_STEPS = """\
ryn-sim makes, shows and changes simulated hosts.

  ryn-sim init                        make the host "default"
  ryn-sim run -- python3 script.py    run a script on it
  ryn-sim show                        what there is; show rates: what flows now
  ryn-sim ls ports.web-0              everything that can be set of a port
  ryn-sim set ports.web-0.lro=off     change it
  ryn-sim fault add Ryn_GetLRO        make an operation fail
  ryn-sim clock step 5s               let five seconds pass

ryn-sim --help lists all commands, ryn-sim COMMAND --help says what one takes.
"""

_SET_HELP = """\
Changes settings of the host, all of them or none. A PATH is a key's place in
what "ryn-sim export" writes, its parts separated by dots ("ryn-sim ls" lists
them). Switches, ports and NICs go by their names, conversations by their number
in "ryn-sim show traffic". A VALUE is written as in YAML; null takes the setting
back to its default.

  ryn-sim set flow_timeout=30s switches.dvs-1.mtu=9000
  ryn-sim set ports.web-0.lro=off ports.dvs-1/18.teaming='{type: LAG}'
  ryn-sim set nics.lunic2.crc_ppm=500 traffic.3.pps=80k
"""

_CLOCK_HELP = """\
Shows the host's clock, or changes it. It never goes back.

  run          let it run
  freeze       stop it
  speed N      let it run N times as fast as real time (0.001 to 1000000)
  step TIME    stop it TIME later, such as 5s
  warp TIME    jump TIME ahead, such as 2h, and go on as before
"""

_FAULT_HELP = """\
Makes operations of the platform libraries fail, answer late or wrongly.

  ryn-sim fault add Ryn_GetLRO --status 0xbad0007 --after 2 --times 1
  ryn-sim fault add 'DVSQOB_*' --where 'key=*.fpo' --probability 0.2
  ryn-sim fault add Ryn_Get_Port_Stats --delay 250ms --until 1m
  ryn-sim fault list | fault remove 2 | fault clear
"""


def _event_help() -> str:
    """Each event with its target and, on a line below if it is long, what it does."""
    lines = ["Makes something happen to the host, now or --in some time, for good or --for", "some time.", ""]
    for event in EVENTS:
        value = f" ({', '.join(map(str, event.values)) or event.default})" if event.default is not None else ""
        about = event.about.replace("`value`", "--value") + value
        lines += textwrap.wrap(about, 79, initial_indent=f"  {f'{event.name} {EVENT_TARGETS[event.target]}':<26}",
                               subsequent_indent=" " * 28)  # fmt: skip
    return "\n".join([*lines, "  list, end ID"]) + "\n"


class _Parser(argparse.ArgumentParser):
    """Says in one line what is wrong, and what comes nearest to a word or an option that it does not know."""

    def __init__(self, *arguments: Any, **options: Any):
        super().__init__(*arguments, **options)
        # What begins like a negative number is a value, so that the command can say what is wrong with it
        self._negative_number_matcher = re.compile(r"-[0-9.]")

    def error(self, message: str) -> NoReturn:
        """Ends with a line that says what is wrong."""
        wrong = re.fullmatch(r"argument (\S+): invalid choice: '(.*)' \(choose from (.*)\)", message)
        missing = re.fullmatch(r"the following arguments are required: (.*)", message)
        if self.early:  # what follows may well be its value
            message = self.unexpected(self.early)
        elif missing:
            message = f"expected {missing[1]}; see: {self.prog} --help"
        elif wrong:
            known = nearest(wrong[2], re.findall(r"'([^']*)'", wrong[3])) or f"; see: {self.prog} --help"
            message = f'there is no {wrong[1].lower()} "{wrong[2]}"{known}'
        else:  # "argument --list: not allowed with argument --check"
            message = message.replace("argument -", "-").replace("argument ID", "ID")
        command = self.prog.partition(" ")[2]
        self.exit(2, f"ryn-sim: {command}{': ' if command else ''}{message}\n")

    early = ""  # an option before the command that is not known

    def unexpected(self, word: str) -> str:
        """Why a word is wrong where it stands."""
        name = word.partition("=")[0]
        if not word.startswith("-"):
            return f'nothing is expected here, got "{word}"'
        if name in self._all_options():
            return f"{name} means nothing here"
        close = difflib.get_close_matches(name, sorted(self._all_options()), n=1)
        return f"there is no option {name}" + (f'; did you mean "{close[0]}"?' if close else "")

    def knows(self, word: str) -> bool:
        """Whether a word is an option that may stand before the command."""
        return word.partition("=")[0] in self._option_string_actions

    def _all_options(self) -> set[str]:
        found = set(self._option_string_actions)
        for action in self._actions:
            if isinstance(action, argparse._SubParsersAction):
                found = found.union(*(parser._all_options() for parser in action.choices.values()))
        return found


def whole_parser() -> _Parser:
    """The parser of all commands."""
    which = argparse.ArgumentParser(add_help=False, argument_default=argparse.SUPPRESS)
    host = which.add_argument("--host", metavar="NAME", help="the host's name (else RYN_SIM_HOST, else default)")
    completes(host, "hosts")
    which.add_argument("--state", metavar="FILE", help="the host's file (else RYN_SIM_STATE)")
    as_json = argparse.ArgumentParser(add_help=False)
    as_json.add_argument("--json", action="store_true", help="print JSON")

    parser = _Parser(
        prog="ryn-sim",
        description="Makes, shows and changes simulated hosts.",
        epilog=_EPILOG,
        formatter_class=argparse.RawDescriptionHelpFormatter,
        parents=[which],
        allow_abbrev=False,
    )
    parser.add_argument("--version", action="version", version=f"ryn-sim {VERSION}")
    commands = parser.add_subparsers(dest="command", metavar="COMMAND", required=True)

    def command(name: str, summary: str, *further: argparse.ArgumentParser, **options: Any) -> argparse.ArgumentParser:
        settings: dict[str, Any] = {"description": summary[0].upper() + summary[1:] + ".", **options}
        if "description" in options:
            settings["formatter_class"] = argparse.RawDescriptionHelpFormatter
        parents: Any = [which, *further]
        return commands.add_parser(name, help=summary, parents=parents, allow_abbrev=False, **settings)

    init = command("init", "make a host from a profile or a description", as_json)
    profile = init.add_argument(
        "what",
        nargs="?",
        default=None,
        metavar="PROFILE|FILE|-",
        help="a profile's name, a file with a description in YAML, - for standard input (default: default)",
    )
    completes(profile, "profiles")
    init.add_argument("--seed", type=_number, metavar="N", help="another seed than the description's")
    instead = init.add_mutually_exclusive_group()
    instead.add_argument("--force", action="store_true", help="replace the host if it exists already")
    instead.add_argument("--check", action="store_true", help="only say whether the description is right")
    instead.add_argument("--sql", action="store_true", help="only print the SQL that the description compiles to")
    instead.add_argument("--list", action="store_true", help="only list the profiles")

    command("info", "say what is simulated, from where, and how far", as_json)

    show = command("show", "show the host's inventory, its settings and what flows now", as_json)
    section = show.add_argument(
        "what",
        nargs="?",
        default="summary",
        metavar="WHAT",
        help="summary (default), cores, links, rates, flows (figures of the moment), nics, switches, ports, traffic,"
        " mirrors, properties, balancer, moves, all",
    )
    completes(section, "sections")
    switch = show.add_argument("switch", nargs="?", help="only of this switch (its alias or number)")
    completes(switch, "switches")

    listing = command("ls", "list what is under a path of the description", as_json)
    completes(
        listing.add_argument(
            "what", nargs="?", metavar="PATH", help="such as ports, or ports.web-0 (default: the host)"
        ),
        "paths",
    )

    getting = command("get", "print the value of a path of the description, as it holds now", as_json)
    completes(getting.add_argument("what", metavar="PATH", help="such as switches.dvs-1.mtu"), "paths")

    change = command("set", "change settings of the host", as_json, description=_SET_HELP)
    completes(change.add_argument("settings", nargs="+", metavar="PATH=VALUE"), "paths")

    export = command("export", "write the host's description in YAML, without what was counted", as_json)
    export.add_argument("file", nargs="?", default="-", help="where to (default: standard output)")

    save = command("save", "write the whole host to a file, what was counted included", as_json)
    save.add_argument("file", metavar="FILE")
    save.add_argument("--force", action="store_true", help="replace the file if it exists already")

    restore = command("restore", "put a saved host in place of this one", as_json)
    restore.add_argument("file", metavar="FILE")

    clone = command("clone", "make another host that is the same, what was counted included", as_json)
    clone.add_argument("name", metavar="NAME", help="the other host's name")
    clone.add_argument("--force", action="store_true", help="replace the other host if it exists already")

    command("reset", "put the host back to its beginning, as it was made", as_json)

    remove = command("rm", "remove the host", as_json)
    remove.add_argument("--force", action="store_true", help="also if processes have it open, and if it is not there")

    run = command(
        "run",
        "run a command on the host",
        usage="ryn-sim run [OPTION...] -- COMMAND [ARGUMENT...]",
        description="Runs a command that finds the stand-ins as its platform libraries, and this host\nbehind them.",
    )
    run.add_argument("--installed", action="store_true", help="use the installed module, not the one built here")

    clock = command("clock", "show or change the host's clock", as_json, description=_CLOCK_HELP)
    completes(clock.add_argument("action", nargs="?", default="show", choices=CLOCK_ACTIONS), "clock")
    clock.add_argument("amount", nargs="?", help="for speed, step and warp")

    fault = command("fault", "make operations fail", as_json, description=_FAULT_HELP)
    faults = fault.add_subparsers(dest="action", metavar="ACTION", required=True)
    add = faults.add_parser(
        "add", parents=[which, as_json], allow_abbrev=False, help="add a fault; the first that fits a call is applied"
    )
    operation = add.add_argument(
        "operation", metavar="OPERATION", help="an operation's name, or a pattern such as 'Ryn_Get*'"
    )
    completes(operation, "operations")
    add.add_argument(
        "--status", type=_number, help="the status to answer, instead of doing anything (0x0BAD0001 if nothing is said)"
    )
    add.add_argument("--delay", metavar="TIME", help="wait first; a bare number means milliseconds")
    completes(add.add_argument("--corrupt", choices=CORRUPTIONS, help="spoil the answer's bytes"), "corruptions")
    add.add_argument("--after", type=_number, metavar="N", help="let N calls pass first")
    add.add_argument("--times", type=_number, metavar="N", help="touch at most N calls")
    add.add_argument("--probability", metavar="P", help="touch a call with this probability, 0 to 1")
    add.add_argument("--seed", type=_number, metavar="S", help="for the probability's dice")
    add.add_argument(
        "--where",
        action="append",
        metavar="ARGUMENT=GLOB",
        help="only calls with such an argument: sw, port, lcore, scope, key, switch, dvport, alias, device;"
        " given more than once, all must hold",
    )
    add.add_argument("--from", dest="begin", metavar="TIME", help="from so long after now")
    add.add_argument("--until", metavar="TIME", help="until so long after now")
    faults.add_parser("list", parents=[which, as_json], help="list the faults and how often they struck")
    drop = faults.add_parser("remove", parents=[which, as_json], help="remove faults")
    drop.add_argument("ids", nargs="+", type=_number, metavar="ID")
    faults.add_parser("clear", parents=[which, as_json], help="remove all faults")

    event = command(
        "event", "make something happen to the host, such as a link that goes down", as_json, description=_event_help()
    )
    completes(event.add_argument("kind", metavar="EVENT|list|end"), "events")
    completes(
        event.add_argument("target", nargs="?", help="a NIC, core, switch or port; of end: the event's number"),
        "targets",
    )
    event.add_argument("--for", dest="lasting", metavar="TIME", help="how long (else: for good)")
    event.add_argument("--in", dest="ahead", metavar="TIME", help="how long from now (else: now)")
    event.add_argument("--value", type=_number, metavar="N", help="for mac-limit and counters-near-wrap")

    log = command("log", "show what faults and events did", as_json)
    log.add_argument("-n", "--lines", type=_number, default=None, metavar="N", help="only the latest N")
    log.add_argument("--operation", metavar="GLOB", help="only of such operations or events")
    log.add_argument("-f", "--follow", action="store_true", help="go on as more comes, until interrupted")
    log.add_argument("--clear", action="store_true", help="empty the log")

    completion = command("completion", "print a completion script for a shell")
    completion.add_argument("shell", metavar="SHELL", nargs="?", default="bash", choices=SHELLS, help="bash or zsh")
    completion.add_argument("--candidates", choices=CANDIDATES, help=argparse.SUPPRESS)  # for the script itself
    return parser


def _number(text: str) -> int:
    try:
        number = int(text, 0)
    except ValueError:
        number = -1
    if number < 0:
        raise argparse.ArgumentTypeError(f'expected a number such as 12 or 0xbad0007, got "{text}"')
    return number


# Which module does a command; only that one is loaded.
_MODULES = {
    **dict.fromkeys(("init", "info", "export", "reset", "rm"), "hosts"),
    **dict.fromkeys(("save", "restore", "clone"), "copies"),
    **dict.fromkeys(("ls", "get"), "browse"),
    "run": "run",
    "show": "show",
    "set": "settings",
    "clock": "clock",
    "fault": "faults",
    "event": "events",
    "log": "log",
    "completion": "completion",
}


def main(arguments: list[str] | None = None) -> int:
    """Does what a command line says; answers the exit code."""
    arguments = sys.argv[1:] if arguments is None else arguments
    own, further = arguments, None
    if "--" in arguments:
        own, further = arguments[: arguments.index("--")], arguments[arguments.index("--") + 1 :]
    if not arguments:
        print(_FIRST_STEPS, end="")
        return 0
    parser = whole_parser()
    parser.early = next((word for word in own[:1] if word.startswith("-") and not parser.knows(word)), "")
    options, unexpected = parser.parse_known_args(own)
    if unexpected and options.command == "run" and not unexpected[0].startswith("-"):
        parser.error(f"run: expected the command after --: ryn-sim run -- {' '.join(unexpected)}")
    if unexpected:
        parser.error(f"{options.command}: {parser.unexpected(unexpected[0])}")
    if options.command not in ("run", "completion") and further:
        parser.error(f"{options.command}: only run takes a command after --")
    options.arguments = further
    try:
        from importlib import import_module

        from . import paths

        host, state = getattr(options, "host", None), getattr(options, "state", None)
        if host is not None and state is not None:
            raise BadInput("--host and --state both name a host; expected one of them")
        options.named = host is not None or state is not None
        options.path = paths.state_path(host, state)
        module = import_module(f".{_MODULES[options.command]}", __package__)
        getattr(module, f"{options.command}_command")(options)
        sys.stdout.flush()
        return 0
    except BadInput as error:
        print(_prefixed(error), file=sys.stderr)
        return 2
    except Failed as error:
        print(_prefixed(error), file=sys.stderr)
        return error.code
    except BrokenPipeError:
        # The reader has gone; what is left in the buffer must not be tried again at exit.
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return 1
    except KeyboardInterrupt:
        return 130


def _prefixed(error: Exception) -> str:
    return "\n".join(f"ryn-sim: {line}" for line in str(error).splitlines())
