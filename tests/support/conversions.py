"""Items of a caller's list or tuple that are not ints: what each is passed on as, on every interpreter.

An item is converted by the signed-long conversion. What is not an int and has no __index__ is passed to the platform as
4294967295, with TypeError pending; interpreters before 3.10 would take anything that has __int__.
"""

from __future__ import annotations

from decimal import Decimal
from fractions import Fraction
from typing import Any

from harness import ANY, Double, run

ALL_ONES = 0xFFFFFFFF


class IntAlone:
    """Has __int__, which is never called."""

    def __init__(self) -> None:
        self.asked = 0

    def __int__(self) -> int:
        self.asked += 1
        return 7


class IntSubclass(int):
    def __int__(self) -> int:
        raise AssertionError("an int is taken as it is")

    __index__ = __int__


NO_INTS: list[Any] = [1.5, 7.0, Decimal(7), Fraction(7), IntAlone(), 7j, "7", b"7", None, (7,)]


def check(ryn: Any, double: Double) -> int:
    """Each of them between two ints, in each place that takes such items. Returns how many calls were made."""
    calls = 0
    for item, passed, error in [*((item, ALL_ONES, (TypeError, ANY)) for item in NO_INTS), (IntSubclass(9), 9, None)]:
        for method, args, argument in [
            (ryn.SetPortTxUplink, (0, 0, {"txType": "All", "txUplinks": [5, item, 6]}), "uplinks"),
            (ryn.GetFlowStats, (0, (5, item, 6), 0), "lcores"),
            (ryn.GetFPOStats, (0, (5, item, 6)), "lcores"),
        ]:
            double.reset()
            outcome = run(method, *args)
            assert (outcome.stderr, outcome.error) == ("", error), (method.__name__, item, outcome)
            (sent,) = double.calls()
            assert getattr(sent, argument)[:3] == [5, passed, 6], (method.__name__, item, sent)
            calls += 1
    assert not any(item.asked for item in NO_INTS if isinstance(item, IntAlone))
    return calls
