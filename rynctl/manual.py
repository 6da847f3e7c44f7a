"""The manual page rynctl(8), from the table of commands: `python3 -m rynctl.manual FILE` writes it."""

from __future__ import annotations

import sys
from typing import List

from rynctl import commands, help
from rynctl.columns import COLUMNS
from rynctl.commands import COMMANDS, SHORT, Option
from rynctl.version import VERSION


def plain(text: str) -> str:
    """Text as troff reads it: no request at the start of a line, no escape, no hyphenation of options."""
    text = text.replace("\\", "\\e").replace("-", "\\-")
    return "\\&" + text if text.startswith((".", "'")) else text


def option(each: Option) -> List[str]:
    flags = ", ".join(([SHORT[each.flag]] if each.flag in SHORT else []) + [each.flag])
    metavar = f" \\fI{plain(each.metavar)}\\fR" if each.metavar else ""
    return [".TP", f"\\fB{plain(flags)}\\fR{metavar}", plain(each.text[0].upper() + each.text[1:] + ".")]


def page() -> str:
    lines = [
        f'.TH RYNCTL 8 "" "libryn {VERSION}" "System Administration"',
        ".SH NAME",
        "rynctl \\- inspect and tune a host's fast\\-path virtual switch",
        ".SH SYNOPSIS",
        ".B rynctl",
        ".I OBJECT VERB",
        "[\\fIARGUMENT\\fR...] [\\fIOPTION\\fR...]",
        ".SH DESCRIPTION",
        "rynctl shows and changes switches, ports, uplinks, MAC tables, flows, mirror sessions, receive filters, the",
        "balancer, cores and devices of the host it runs on. A switch is named by its name, alias or number, a port as",
        "SWITCH/NUMBER.",
        "On a terminal a list shows the first columns that fit; in a pipe nothing is cut.",
        ".SH COMMANDS",
    ]
    for command in COMMANDS.values():
        lines += [
            ".TP",
            f"\\fB{plain(help.usage(command))}\\fR",
            plain(command.text[0].upper() + command.text[1:] + "."),
        ]
        for each in command.options:
            lines.append(".RS")
            lines += [line for line in option(each)]
            lines.append(".RE")
    lines.append(".SH OPTIONS")
    lines.append("They stand anywhere on the command line.")
    for each in commands.COMMON:
        lines += option(each)
    lines.append(".SS Of commands that read")
    for each in commands.ROWS + commands.WATCH:
        lines += option(each)
    lines.append(".SS Of commands that change")
    for each in commands.CHANGE:
        lines += option(each)
    lines.append(".SH COLUMNS")
    for table, columns in COLUMNS.items():
        lines += [
            ".TP",
            f"\\fB{plain(table.replace('.', ' '))}\\fR",
            plain(" ".join(column.name for column in columns)),
        ]
    lines.append(".SH EXIT STATUS")
    for code, text in help.CODES:
        lines += [".TP", f"\\fB{code}\\fR", plain(text[0].upper() + text[1:] + ".")]
    lines.append(".SH EXAMPLES")
    for example, text in help.EXAMPLES:
        lines += [".TP", f"\\fB{plain(example)}\\fR", plain(text[0].upper() + text[1:] + ".")]
    lines += [
        ".SH FILES",
        ".TP",
        "\\fI/dev/log\\fR",
        "Each change is one line in the system's log, with the tag rynctl.",
    ]
    lines += [".SH SEE ALSO", "\\fBryn\\-sim\\fR(1), \\fB_libryn\\fR(3)"]
    return "\n".join(lines) + "\n"


if __name__ == "__main__":
    with open(sys.argv[1], "w", encoding="utf-8") as file:
        file.write(page())
