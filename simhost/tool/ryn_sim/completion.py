"""The command completion: a script, made by shtab, with which a shell completes commands, options and names."""

from __future__ import annotations

import argparse
from typing import Any, Callable

from . import names, paths
from .errors import Failed
from .members.event import EVENTS


def _paths(prefix: str) -> list[str]:
    """The paths of a host that go on from what is typed."""
    from .browse import ls

    return [row["key"] for row in ls(_store(), prefix.rpartition(".")[0])]


def _targets(_: str) -> list[str]:
    rows = [("nic", "name"), ("lcore", "lcore"), ("dvs", "alias"), ("port", "client")]
    found = [str(row[0]) for table, column in rows for row in _store().rows(f"SELECT {column} FROM {table}")]
    return [name for name in found if name]


def _store() -> Any:
    from .store import Store

    return Store(paths.state_path(None, None))


def _sections(_: str) -> list[str]:
    from .show import SECTIONS

    return [*SECTIONS, "all"]


CLOCK_ACTIONS = ("show", "run", "freeze", "speed", "step", "warp")
# What can be completed, by the names that its shell function and the arguments of the parser have for it
CANDIDATES: dict[str, Callable[[str], list[str]]] = {
    "hosts": lambda _: paths.all_hosts(),
    "profiles": lambda _: paths.profiles(),
    "sections": _sections,
    "switches": lambda _: [row["alias"] for row in _store().rows("SELECT alias FROM dvs ORDER BY alias")],
    "paths": _paths,
    "operations": lambda _: names.OPERATIONS,
    "corruptions": lambda _: [*names.CORRUPTIONS],
    "clock": lambda _: [*CLOCK_ACTIONS],  # of an argument's choices, shtab offers the first alone to bash
    "events": lambda _: [*(event.name for event in EVENTS), "list", "end"],
    "targets": _targets,
}

# A function of the shell for each of them; one that fails offers nothing.
_FUNCTIONS = {
    "bash": '_ryn_sim_{0}() {{ compgen -W "$(ryn-sim completion --candidates {0} -- "$1" 2>/dev/null)" -- "$1"; }}\n',
    "zsh": "_ryn_sim_{0}() {{"
    ' compadd -- ${{(f)"$(ryn-sim completion --candidates {0} -- "$PREFIX" 2>/dev/null)"}} }}\n',
}
SHELLS = tuple(_FUNCTIONS)


def completes(action: argparse.Action, candidates: str) -> None:
    """Says what an argument of the parser is to be completed with."""
    assert candidates in CANDIDATES, candidates
    action.complete = {shell: f"_ryn_sim_{candidates}" for shell in SHELLS}  # type: ignore[attr-defined]


def completion_command(options: argparse.Namespace) -> None:
    """Prints a shell's script, or the candidates that the script asks for."""
    if options.candidates:
        print("\n".join(CANDIDATES[options.candidates](options.arguments[0] if options.arguments else "")))
        return
    try:
        import shtab
    except ImportError:
        raise Failed("completion needs shtab (Debian: python3-shtab)") from None
    from .cli import whole_parser

    preamble = {shell: "".join(map(function.format, CANDIDATES)) for shell, function in _FUNCTIONS.items()}
    print(shtab.complete(whole_parser(), shell=options.shell, preamble=preamble))
