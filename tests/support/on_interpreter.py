"""The checks that need no test runner, for an interpreter that the module is built for.

`python -c "import on_interpreter; on_interpreter.check()"` prints how many outcomes and failures it went through.

A debug build of the interpreter watches what an ordinary one takes on trust: it ends the process where something is
called or built while an error is pending, where a reference is dropped too often or an object is broken. It is several
times slower, so failing calls, failing allocations and the largest answers are left to the others.
"""

from __future__ import annotations

import sys
from typing import Any

import allocations
import conversions
import deferred_errors
import harness
import hostile_objects
import loading
import results
from deferred_errors import DEBUG_BUILD
from failing_calls import fail_each_call, load_faults
from harness import Outcome, run
from method_table import METHODS


def go_through_outcomes(module: Any, double: harness.Double) -> int:
    """Each method succeeds and fails as its row says; returns how many calls that took."""
    outcomes = 0
    for method in METHODS:
        for failure in (None, *method.failures):
            double.reset()
            method.script(double)
            if failure:
                failure.script(double)
            args = method.args if failure is None or failure.args is None else failure.args
            expected = failure.outcome if failure else Outcome(method.value)
            assert run(getattr(module, method.name), *args) == expected, (method.name, failure)
            outcomes += 1
    return outcomes


def outcomes() -> None:
    """The first of the checks alone."""
    double = harness.set_up()
    import _libryn

    print(f"{go_through_outcomes(_libryn, double)} outcomes")


def check() -> None:
    double = harness.set_up()
    import _libryn

    passed = go_through_outcomes(_libryn, double)
    points = 0
    if not DEBUG_BUILD:
        faults = load_faults(double)
        faults.bind(_libryn.__file__)
        points = sum(fail_each_call(_libryn, double, faults, method) for method in METHODS)
    conversions.check(_libryn, double)
    deferred_errors.check(_libryn, double)
    print(f"{results.check(_libryn, double, largest=not DEBUG_BUILD)} results")
    print(f"{sys.version.split()[0]}: {passed} outcomes, {points} failing calls")
    loading.check()
    if not DEBUG_BUILD:
        allocations.sweep()
    hostile_objects.attack()
