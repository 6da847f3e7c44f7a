"""The command line: what can be said, and who does it."""

from __future__ import annotations

import argparse
import difflib
import os
import re
import sys
from typing import Any, NoReturn

from . import VERSION
from .errors import BadInput, Failed, nearest
from .members.event import EVENT_TARGETS, EVENTS, Event

_EPILOG = """\
A simulated host stands in for a virtualisation host: scripts written with _libryn run against it
with "ryn-sim run -- COMMAND". It is one file that all processes share; its clock runs and its
traffic flows without any process of its own.

exit codes: 0 done, 1 could not be done, 2 wrong usage or input (run: those of COMMAND, 127 if
there is no such command, 126 if it cannot be run)
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
Changes settings of the host. Each PATH is a key's place in what "ryn-sim export" writes, its
parts separated by dots. Switches, ports and NICs are named, conversations counted from 0. VALUE is
written as in YAML; null takes the setting back to what it is when nothing is said. All changes are
made at once, or none.

  ryn-sim set flow_timeout=30s switches.dvs-1.mtu=9000
  ryn-sim set ports.web-0.lro=off ports.dvs-1/18.teaming='{type: LAG}'
  ryn-sim set nics.lunic2.crc_ppm=500 traffic.3.pps=80k balancer.weights.port_count=9
"""

_CLOCK_HELP = """\
Without a word: shows the clock. The host's clock never goes back.

  run          let it run
  freeze       stop it
  speed N      let it run N times as fast as the wall's (0.001 to 1000000)
  step TIME    stop it TIME later, such as 5s
  warp TIME    jump TIME ahead, such as 2h, and go on as before
"""

_FAULT_HELP = """\
Makes operations of the platform libraries fail, hesitate or answer wrongly.

  ryn-sim fault add Ryn_GetLRO --status 0xbad0007 --after 2 --times 1
  ryn-sim fault add 'DVSQOB_*' --where 'key=*.fpo' --probability 0.2
  ryn-sim fault add Ryn_Get_Port_Stats --delay 250ms --until 1m
  ryn-sim fault list | fault remove 2 | fault clear
"""


def _event_help(event: Event) -> str:
    about = event.about.replace("`value`", "--value")
    if event.values:
        return f"{about} ({', '.join(map(str, event.values))})"
    return about + (f" ({event.default})" if event.default is not None else "")


_EVENT_HELP = (
    "Lets something happen to the host, at once or --in some time, for good or --for some time.\n\n"
    + "".join(f"  {f'{event.name} {EVENT_TARGETS[event.target]}':<33}{_event_help(event)}\n" for event in EVENTS)
    + "  list, end ID\n"
)


class _Parser(argparse.ArgumentParser):
    """Names what comes nearest to a word or an option that it does not know."""

    def error(self, message: str) -> NoReturn:
        wrong = re.fullmatch(r"argument (\S+): invalid choice: '(.*)' \(choose from (.*)\)", message)
        if wrong:
            known = re.findall(r"'([^']*)'", wrong[3])
            message = f'argument {wrong[1]}: there is no "{wrong[2]}"{nearest(wrong[2], known)}'
        unknown = re.fullmatch(r"unrecognized arguments: (-\S+).*", message)
        if unknown:
            close = difflib.get_close_matches(unknown[1].partition("=")[0], sorted(self._all_options()), n=1)
            message += f'; did you mean "{close[0]}"?' if close else ""
        super().error(message)

    def _all_options(self) -> set[str]:
        found = set(self._option_string_actions)
        for action in self._actions:
            if isinstance(action, argparse._SubParsersAction):
                found = found.union(*(parser._all_options() for parser in action.choices.values()))
        return found


def _parser() -> argparse.ArgumentParser:
    which = argparse.ArgumentParser(add_help=False, argument_default=argparse.SUPPRESS)
    which.add_argument("--host", metavar="NAME", help="the host's name (else RYN_SIM_HOST, else default)")
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
    init.add_argument(
        "what",
        nargs="?",
        default=None,
        metavar="PROFILE|FILE|-",
        help="a profile's name, a file with a description in YAML, - for standard input (default: default)",
    )
    init.add_argument("--force", action="store_true", help="replace the host if it is there already")
    init.add_argument("--seed", type=_number, help="another seed than the description's")
    init.add_argument("--check", action="store_true", help="only say whether the description is right")
    init.add_argument("--sql", action="store_true", help="only print the SQL that the description compiles to")
    init.add_argument("--list", action="store_true", help="list the profiles")

    command("info", "say what is simulated, from where, and how far", as_json)

    show = command("show", "show the host's inventory, its settings and what flows now", as_json)
    show.add_argument(
        "what",
        nargs="?",
        default="summary",
        metavar="WHAT",
        help="summary (default), cores, links, rates, flows (figures of the moment), nics, switches, ports, traffic,"
        " mirrors, properties, balancer, moves, all",
    )
    show.add_argument("switch", nargs="?", help="only of this switch (its alias or number)")

    listing = command("ls", "list what is under a path of the description", as_json)
    listing.add_argument("what", nargs="?", metavar="PATH", help="such as ports, or ports.web-0 (default: the host)")

    getting = command("get", "print the value of a path of the description, as it holds now", as_json)
    getting.add_argument("what", metavar="PATH", help="such as switches.dvs-1.mtu")

    change = command("set", "change settings of the host", as_json, description=_SET_HELP)
    change.add_argument("settings", nargs="+", metavar="PATH=VALUE")

    export = command("export", "write the host's description, in YAML", as_json)
    export.add_argument("file", nargs="?", default="-", help="where to (default: standard output)")

    save = command("save", "write the whole host to a file, what was counted included", as_json)
    save.add_argument("file", metavar="FILE")
    save.add_argument("--force", action="store_true", help="replace the file if it is there already")

    restore = command("restore", "put a saved host in place of this one", as_json)
    restore.add_argument("file", metavar="FILE")

    clone = command("clone", "make another host that is the same, what was counted included", as_json)
    clone.add_argument("name", metavar="NAME", help="the other host's name")
    clone.add_argument("--force", action="store_true", help="replace the other host if it is there already")

    command("reset", "put the host back to its beginning, as it was made", as_json)

    remove = command("rm", "remove the host", as_json)
    remove.add_argument("--force", action="store_true", help="also if processes have it open, and if it is not there")

    command(
        "run",
        "run a command on the host",
        usage="ryn-sim run [--host NAME] [--state FILE] -- COMMAND [ARGUMENT...]",
        description="Runs a command that finds the stand-ins as its platform libraries and this host behind them.",
    )

    clock = command("clock", "show or change the host's clock", as_json, description=_CLOCK_HELP)
    clock.add_argument("action", nargs="?", default="show", choices=["show", "run", "freeze", "speed", "step", "warp"])
    clock.add_argument("amount", nargs="?", help="for speed, step and warp")

    fault = command("fault", "make operations fail", as_json, description=_FAULT_HELP)
    faults = fault.add_subparsers(dest="action", metavar="ACTION", required=True)
    add = faults.add_parser(
        "add", parents=[which, as_json], allow_abbrev=False, help="add a fault; the first that fits a call is applied"
    )
    add.add_argument("operation", metavar="OPERATION", help="an operation's name, or a pattern such as 'Ryn_Get*'")
    add.add_argument(
        "--status", type=_number, help="the status to answer, instead of doing anything (0x0BAD0001 if nothing is said)"
    )
    add.add_argument("--delay", metavar="TIME", help="wait first; a bare number means milliseconds")
    add.add_argument("--corrupt", choices=["zero", "ones", "random", "half"], help="spoil the answer's bytes")
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
        "event", "make something happen to the host, such as a link that goes down", as_json, description=_EVENT_HELP
    )
    event.add_argument("kind", metavar="EVENT|list|end")
    event.add_argument("target", nargs="?")
    event.add_argument("--for", dest="lasting", metavar="TIME", help="how long (else: for good)")
    event.add_argument("--in", dest="ahead", metavar="TIME", help="how long from now (else: now)")
    event.add_argument("--value", type=_number, metavar="N", help="for mac-limit and counters-near-wrap")

    log = command("log", "show what faults and events did", as_json)
    log.add_argument("-n", "--lines", type=_number, default=None, metavar="N", help="only the latest N")
    log.add_argument("--operation", metavar="GLOB", help="only of such operations or events")
    log.add_argument("-f", "--follow", action="store_true", help="go on as more comes, until interrupted")
    log.add_argument("--clear", action="store_true", help="empty the log")

    completion = command("completion", "print a completion script for a shell")
    completion.add_argument("shell", choices=["bash", "zsh", "tcsh"])
    return parser


def completion_command(options: argparse.Namespace) -> None:
    """Prints the shell's completion: in bash, eval "$(ryn-sim completion bash)"."""
    try:
        import shtab
    except ImportError:
        raise Failed("completion needs shtab (Debian: python3-shtab)") from None
    parser = _parser()
    print(shtab.complete(parser, shell=options.shell))


def _number(text: str) -> int:
    try:
        number = int(text, 0)
    except ValueError:
        number = -1
    if number < 0:
        raise argparse.ArgumentTypeError(f'"{text}" is not a number such as 12 or 0xbad0007')
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
    "completion": "cli",
}


def main(arguments: list[str] | None = None) -> int:
    arguments = sys.argv[1:] if arguments is None else arguments
    own, further = arguments, None
    if "--" in arguments:
        own, further = arguments[: arguments.index("--")], arguments[arguments.index("--") + 1 :]
    if not arguments:
        print(_FIRST_STEPS, end="")
        return 0
    parser = _parser()
    options = parser.parse_args(own)
    if options.command != "run" and further:
        parser.error("only run takes a command after --")
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
