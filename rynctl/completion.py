"""`rynctl completion bash|zsh`: scripts made by shtab from the table of commands, with live names of this host."""

from __future__ import annotations

import argparse
from typing import TYPE_CHECKING, Any, Dict, List

from rynctl import commands
from rynctl.commands import COMMANDS, OBJECTS, SHORT
from rynctl.errors import DONE, CommandError, UsageError

if TYPE_CHECKING:
    from rynctl.cli import Context

# Functions of the shells that ask this host; a command that fails offers nothing.
PREAMBLE = {
    "bash": """\
_rynctl_switches() { compgen -W "$(rynctl switch list -o csv --columns name 2>/dev/null | tail -n +2)" -- "$1"; }
_rynctl_ports() {
  compgen -W "$(rynctl port list -o csv --columns switch,port 2>/dev/null | tail -n +2 | tr , /)" -- "$1"
}
_rynctl_devices() { compgen -W "$(rynctl device list -o csv --columns device 2>/dev/null | tail -n +2)" -- "$1"; }
""",
    "zsh": """\
_rynctl_switches() { compadd -- ${(f)"$(rynctl switch list -o csv --columns name 2>/dev/null | tail -n +2)"} }
_rynctl_ports() {
  compadd -- ${(f)"$(rynctl port list -o csv --columns switch,port 2>/dev/null | tail -n +2 | tr , /)"}
}
_rynctl_devices() { compadd -- ${(f)"$(rynctl device list -o csv --columns device 2>/dev/null | tail -n +2)"} }
""",
}
LIVE = ("switches", "ports", "devices")


def add(parser: argparse.ArgumentParser, command: commands.Command) -> None:
    for argument in command.arguments:
        count: Any = argument.nargs
        action: Any = parser.add_argument(argument.key, nargs=count, help=argument.text)
        if argument.names in LIVE:
            action.complete = {shell: f"_rynctl_{argument.names}" for shell in PREAMBLE}
        elif argument.names:
            action.choices = argument.names.split()
    for option in commands.options(command):
        flags = [SHORT[option.flag], option.flag] if option.flag in SHORT else [option.flag]
        if option.metavar:
            parser.add_argument(*flags, choices=option.choices or None, help=option.text)
        else:
            parser.add_argument(*flags, action="store_true", help=option.text)


def whole_parser() -> argparse.ArgumentParser:
    """All commands in one parser, as shtab wants it; the commands themselves are parsed one by one."""
    parser = argparse.ArgumentParser("rynctl", description="Inspect and tune this host's fast-path virtual switch.")
    parser.add_argument("--version", action="store_true", help="print the version")
    objects = parser.add_subparsers()
    verbs: Dict[str, Any] = {}
    for name in OBJECTS:
        verbs[name] = objects.add_parser(name, help=f"{', '.join(commands.verbs(name))}").add_subparsers()
    for words, command in COMMANDS.items():
        parent = verbs[words[0]] if len(words) == 2 else objects
        add(parent.add_parser(words[-1], help=command.text), command)
    return parser


def shells() -> List[str]:
    return list(PREAMBLE)


def run(context: Context) -> int:
    shell = context.options.shell
    if shell not in PREAMBLE:
        raise UsageError(f"there is no completion for {shell!r}; there is for {', '.join(PREAMBLE)}")
    try:
        import shtab
    except ImportError:
        raise CommandError("completion needs shtab: apt install python3-shtab") from None
    print(shtab.complete(whole_parser(), shell=shell, preamble=PREAMBLE))
    return DONE
