"""The command clock: how the host's time goes on."""

from __future__ import annotations

import argparse
from fractions import Fraction
from typing import Any

from . import units
from .errors import BadInput
from .library import Library
from .store import Store
from .table import print_json


def clock_command(options: argparse.Namespace) -> None:
    """Changes the clock if that is wanted, and shows it."""
    store = Store(options.path)
    action, amount = options.action, options.amount
    if action in ("speed", "step", "warp") and amount is None:
        expected = "a number" if action == "speed" else "a time"
        example = "clock speed 60" if action == "speed" else f"clock {action} 5s"
        raise BadInput(f"clock {action}: expected {expected}, such as {example}")
    if action in ("show", "run", "freeze") and amount is not None:
        raise BadInput(f'clock {action}: nothing is expected after it, got "{amount}"')
    if action == "speed":
        change(store, running=True, speed_permille=permille(amount))
    elif action in ("step", "warp"):
        change(store, running=False if action == "step" else None, ahead_ns=nanoseconds(action, amount))
    elif action != "show":
        change(store, running=action == "run")
    facts = state(store)
    if options.json:
        print_json(facts)
    else:
        pace = f", at {facts['speed']:g} times real time" if facts["speed"] != 1 else ""
        now = f"{units.age_text(round(facts['time'] * 10**9))} ({facts['time']:.3f} s)"
        print(f"host time {now}, {facts['mode']}{pace}")


def state(store: Store) -> dict[str, Any]:
    """Host time in seconds, whether the clock runs, and how fast."""
    row = store.row("SELECT * FROM clock")
    return {
        "time": store.now_ns() / 10**9,
        "mode": "frozen" if row["mode"] == "freeze" else "running",
        "speed": row["speed_permille"] / 1000,
    }


def change(store: Store, running: bool | None, speed_permille: int = 0, ahead_ns: int = 0) -> None:
    """Lets the clock run or stand (None: as it does), at a speed (0: as it is), so much ahead of now."""
    if store.now_ns() + ahead_ns >= 1 << 62:
        raise BadInput("clock: that is more than the clock can count (about 146 years)")
    Library(store.path).set_clock(running, speed_permille, ahead_ns)


def permille(text: str) -> int:
    """A speed of the command line, in thousandths of real time."""
    try:
        exact = Fraction(text) * 1000
    except (ValueError, ZeroDivisionError):
        exact = Fraction(0)
    if exact.denominator != 1 or not 1 <= exact <= 10**9:
        raise BadInput(f'clock speed: expected a speed from 0.001 to 1000000, got "{text}"')
    return int(exact)


def nanoseconds(action: str, text: str) -> int:
    """A time of the command line; `action` is what it is for."""
    try:
        ns = units.nanoseconds(text)
    except ValueError:
        ns = 0
    if ns <= 0 or ns % 10**6:
        back = "; the clock never goes back" if text.startswith("-") else ""
        raise BadInput(f'clock {action}: expected a time such as 5s, 250ms or 2h, got "{text}"{back}')
    return ns
