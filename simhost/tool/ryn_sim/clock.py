"""The command clock: how the host's time goes on."""

from __future__ import annotations

from fractions import Fraction

from . import units
from .errors import BadInput, Failed
from .store import Library, Store
from .table import print_json


def clock_command(options) -> None:
    store = Store(options.path)
    action, amount = options.action, options.amount
    if action in ("speed", "step", "warp") and amount is None:
        raise BadInput(
            f"clock {action}: expected {'a number' if action == 'speed' else 'a time'}, such as"
            f" {'clock speed 60' if action == 'speed' else f'clock {action} 5s'}"
        )
    if action in ("show", "run", "freeze") and amount is not None:
        raise BadInput(f'clock {action}: nothing is expected after it, got "{amount}"')
    changes = {
        "show": lambda: [],
        "run": lambda: [("run", 0)],
        "freeze": lambda: [("freeze", 0)],
        "speed": lambda: [("speed_permille", _permille(amount)), ("run", 0)],
        "step": lambda: [("freeze", 0), ("step_ms", _milliseconds("step", amount))],
        "warp": lambda: [("warp_ms", _milliseconds("warp", amount))],
    }[action]()
    if changes:
        library = Library(options.path)
        for what, number in changes:
            if library.clock(what, number) != 0:
                raise Failed(f"{options.path}: the clock could not be changed ({what})")
    row = store.row("SELECT * FROM clock")
    facts = {
        "time": store.now_ns() / 10**9,
        "mode": "frozen" if row["mode"] == "freeze" else "running",
        "speed": row["speed_permille"] / 1000,
    }
    if options.json:
        print_json(facts)
    else:
        pace = f", at {facts['speed']:g} times the wall's speed" if facts["speed"] != 1 else ""
        print(f"host time {units.age_text(store.now_ns())} ({facts['time']:.3f} s), {facts['mode']}{pace}")


def _permille(text: str) -> int:
    try:
        exact = Fraction(text) * 1000
    except (ValueError, ZeroDivisionError):
        exact = Fraction(0)
    if exact.denominator != 1 or not 1 <= exact <= 10**9:
        raise BadInput(f'clock speed: expected a speed from 0.001 to 1000000, got "{text}"')
    return int(exact)


def _milliseconds(action: str, text: str) -> int:
    try:
        ns = units.nanoseconds(text)
    except ValueError:
        ns = 0
    if ns <= 0 or ns % 10**6:
        back = "; the clock never goes back" if text.startswith("-") else ""
        raise BadInput(f'clock {action}: expected a time such as 5s, 250ms or 2h, got "{text}"{back}')
    return ns // 10**6
