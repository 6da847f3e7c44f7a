"""The texts of --help, from the table of commands."""

from __future__ import annotations

from typing import List

from rynctl import commands
from rynctl.commands import COMMANDS, OBJECTS, Command

EXAMPLES = (
    ("rynctl switch list", "the switches of this host"),
    ("rynctl port stats dvs-1 --filter 'rx_drops>0'", "ports that dropped packets"),
    ("rynctl top", "the busiest ports, live"),
    ("rynctl find 02:00:00:07:00:03", "where an address is"),
    ("rynctl lb set dvs-1 algorithm cpu --dry-run", "what a change would do"),
    ("rynctl -j uplink stats", "for programs"),
)
CODES = (
    (0, "done, or nothing to do"),
    (1, "refused or failed"),
    (2, "the command line is wrong"),
    (3, "no such object"),
    (4, "the module or the platform is missing"),
)


def usage(command: Command) -> str:
    return " ".join(["rynctl", *command.words, *(argument.name for argument in command.arguments)])


def overview() -> str:
    lines = [
        "Usage: rynctl OBJECT VERB [ARGUMENT...] [OPTION...]",
        "",
        "Inspects and tunes this host's fast-path virtual switch.",
        "",
        "Objects and their verbs:",
    ]
    for name in OBJECTS:
        lines.append(f"  {name:8} {' '.join(commands.verbs(name))}")
    lines += ["", "Others:"]
    for words, command in COMMANDS.items():
        if len(words) == 1:
            lines.append(f"  {words[0]:11} {command.text}")
    lines += ["", "Examples:"]
    for example, text in EXAMPLES:
        lines.append(f"  {example:45} {text}")
    lines += [
        "",
        "Options stand anywhere: -o table|json|jsonl|csv, -j, --columns, --sort,",
        "--filter, --limit, --watch, --dry-run, --yes, --timeout, --host, --color.",
        "rynctl OBJECT --help and rynctl OBJECT VERB --help say more; rynctl --version.",
    ]
    return "\n".join(lines) + "\n"


def object_help(name: str) -> str:
    rows: List[List[str]] = []
    for words, command in COMMANDS.items():
        if words[0] == name:
            rows.append([usage(command), command.text])
    width = max(len(left) for left, _ in rows)
    return "Usage:\n" + "".join(f"  {left:{width}}  {text}\n" for left, text in rows)
