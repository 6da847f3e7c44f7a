"""The error of an item's conversion, which the module saves while it works on: which one stays, and what becomes of
the others. The code differs between interpreters before 3.12 and later ones, so every interpreter runs this.
"""

from __future__ import annotations

import gc
import sys
import weakref
from typing import Any, Callable, List, Tuple

from failing_calls import load_faults, run_failing
from harness import Double, lost_blocks, run

DEBUG_BUILD = hasattr(sys, "gettotalrefcount")


class Refused(Exception):
    pass


class Raises:
    def __init__(self, error: Exception) -> None:
        self.error = error

    def __index__(self) -> int:
        raise self.error


class RaisesAnew:
    """An error that is raised twice keeps the traceback of both."""

    def __index__(self) -> int:
        raise Refused


class Makes:
    """Raises an error that nobody else holds a reference to; `made` has weak ones."""

    def __init__(self) -> None:
        self.made: List[weakref.ref] = []

    def __index__(self) -> int:
        error = Refused(len(self.made))
        self.made.append(weakref.ref(error))
        raise error


Call = Tuple[Callable, tuple]


def calls(ryn: Any, *items: Any) -> List[Call]:
    """The calls that convert the items, in their order."""
    return [
        (ryn.SetPortTxUplink, (0, 0, {"txType": "All", "txUplinks": list(items)})),
        (ryn.GetFlowStats, (0, items, 0)),
        (ryn.GetFPOStats, (0, items)),
    ]


def error_of(call: Call, **failing: Any) -> Any:
    import _probe

    function, args = call
    _, _, error, _ = _probe.call(function, args, *failing.values())
    return error


def check(ryn: Any, double: Double) -> None:
    double.reset()
    double.recording(False)
    check_order_and_chaining(ryn)
    check_release(ryn)
    check_blocks(ryn)
    check_later_failure(ryn, double)
    # A debug build ends where a function of Python code has no memory and sets no error, or gives a result with one
    if not DEBUG_BUILD:
        check_failing_allocations(ryn)
        check_traceback(ryn)


def check_order_and_chaining(ryn: Any) -> None:
    """The first error stays pending, the very object, unchanged by the others."""
    errors = [Refused(i) for i in range(3)]
    for call in calls(ryn, 5, *map(Raises, errors), "no number", 6):
        error = error_of(call, failing=-1)
        assert error is errors[0], (call, error)
        assert (error.__context__, error.__cause__, error.args) == (None, None, (0,)), call
    for error in errors[1:]:
        assert (error.__context__, error.__cause__) == (None, None)


def check_release(ryn: Any) -> None:
    """The other errors are released; the pending one is released by whoever takes it."""
    for number in range(3):
        source = Makes()
        error = error_of(calls(ryn, *[source] * 8)[number], failing=-1)
        gc.collect()
        assert [made() for made in source.made] == [error] + 7 * [None], number
        del error
        gc.collect()
        assert source.made[0]() is None, number


def check_blocks(ryn: Any) -> None:
    import _probe

    if sys.getallocatedblocks():
        for function, args in calls(ryn, RaisesAnew(), 1 << 70, RaisesAnew(), "no number"):
            # A leak shows in each measurement; the interpreter's free lists do not
            lost = [lost_blocks(lambda: _probe.call(function, args, -1)) for _ in range(3)]
            assert 0 in lost, (function.__name__, lost)


def check_later_failure(ryn: Any, double: Double) -> None:
    """A failure that sets an error of its own replaces the saved one, which is released."""
    double.answer("Ryn_Get_Flow_Stats", area=bytes([3]) + bytes(1543))
    double.answer("Ryn_Get_FPO_Stats", area=bytes([3]) + bytes(1799))
    faults = load_faults(double)
    faults.bind(ryn.__file__)
    for number in (1, 2):
        function, args = calls(ryn, Makes(), Makes())[number]
        _, trace = run_failing(faults, function, args, -1)
        names = [name for name, _ in trace]
        for name, error in (("PyList_New", MemoryError), ("PyDict_New", SystemError)):
            source = Makes()
            function, args = calls(ryn, source, source)[number]
            outcome, _ = run_failing(faults, function, args, names.index(name))
            assert outcome.error and outcome.error[0] is error, (number, name, outcome)
            check_released(source)


def check_failing_allocations(ryn: Any) -> None:
    """Of the module, of the conversion and of the error that it raises: nothing of the errors is kept."""
    for number in (1, 2):
        kinds = set()
        for n in range(200):
            source = Makes()
            function, args = calls(ryn, source, source)[number]
            outcome = run(function, *args, failing_allocation=n, following=False)
            if not outcome.allocation_failed:
                break
            assert outcome.error, (number, n)
            kinds.add(outcome.error[0])
            check_released(source)
        assert {Refused, SystemError} <= kinds <= {Refused, SystemError, MemoryError}, kinds


def check_released(source: Makes) -> None:
    gc.collect()
    assert [made() for made in source.made] == [None] * len(source.made)


def check_traceback(ryn: Any) -> None:
    """The pending error still has its traceback."""
    for function, args in calls(ryn, Makes(), Makes()):
        try:
            function(*args)
        except SystemError as raised:
            cause = raised.__cause__
            assert type(cause) is Refused, function.__name__
            places = []
            place = cause.__traceback__
            while place:
                places.append(place.tb_frame.f_code.co_name)
                place = place.tb_next
            assert places[-1] == "__index__", places
        else:
            raise AssertionError("no error came through")
