"""The command clock: how the host's time goes on."""

from __future__ import annotations

import time
from fractions import Fraction

from . import units
from .errors import BadInput
from .store import Store, host_ns
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
    if action == "speed":
        _change(store, running=True, speed=_permille(amount))
    elif action in ("step", "warp"):
        ahead = _nanoseconds(action, amount)
        _change(store, running=False if action == "step" else None, ahead=ahead)
    elif action != "show":
        _change(store, running=action == "run")
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


# A change holds from so much wall time after it was made: till then others may still reckon by what was before.
_LEAD_NS = 10_000_000


def _change(store: Store, running: bool | None, speed: int | None = None, ahead: int = 0) -> None:
    """Lets the clock run or stand (None: as it does), at a speed, from a time that is at or after all that was seen."""
    with store.writing() as db:
        row = db.execute("SELECT * FROM clock").fetchone()
        ran = row["mode"] == "run"
        wall = time.time_ns() + (_LEAD_NS if ran else 0)
        base = host_ns(row, wall) + ahead
        if base >= 1 << 62:
            raise BadInput("clock: that is more than the clock can count (about 146 years)")
        mode = "run" if (ran if running is None else running) else "freeze"
        if mode == "freeze":  # at a full millisecond, which is as exact as its time is shown
            base = -(-base // 10**6) * 10**6
        db.execute(
            "UPDATE clock SET mode = ?, base_wall_ns = ?, base_host_ns = ?, speed_permille = ?",
            (mode, wall, base, speed or row["speed_permille"]),
        )


def _permille(text: str) -> int:
    try:
        exact = Fraction(text) * 1000
    except (ValueError, ZeroDivisionError):
        exact = Fraction(0)
    if exact.denominator != 1 or not 1 <= exact <= 10**9:
        raise BadInput(f'clock speed: expected a speed from 0.001 to 1000000, got "{text}"')
    return int(exact)


def _nanoseconds(action: str, text: str) -> int:
    try:
        ns = units.nanoseconds(text)
    except ValueError:
        ns = 0
    if ns <= 0 or ns % 10**6:
        back = "; the clock never goes back" if text.startswith("-") else ""
        raise BadInput(f'clock {action}: expected a time such as 5s, 250ms or 2h, got "{text}"{back}')
    return ns
