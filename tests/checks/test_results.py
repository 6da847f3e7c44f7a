"""Properties of every result of every method; tests/support/results.py has the list."""

from __future__ import annotations

from typing import Any

import conversions
import pytest
import results
from branches import branches
from failing_calls import load_faults, run_failing
from harness import Double
from method_table import METHODS, Method


def test_every_result(ryn, double: Double):
    assert results.check(ryn, double) > 300


@pytest.fixture(scope="module")
def faults(_module, pytestconfig: Any):
    faults = load_faults(pytestconfig.ryn_double)
    faults.bind(_module.__file__)
    return faults


@pytest.mark.parametrize("method", METHODS, ids=lambda method: method.name)
def test_nothing_is_built_while_an_error_is_pending(ryn, double: Double, faults, method: Method):
    """The interpreter's own functions may take a pending error for their own; some abort in a debug build."""
    for branch in branches(method):
        double.reset()
        branch.script(double)
        _, trace = run_failing(faults, getattr(ryn, method.name), branch.args, -1)
        assert faults.made_with_error() == 0, (branch.name, trace)


@pytest.mark.parametrize("name", ["SetPortTxUplink", "GetFlowStats", "GetFPOStats"])
def test_nothing_is_built_while_the_error_of_an_item_is_pending(ryn, double: Double, faults, name: str):
    (method,) = [method for method in METHODS if method.name == name]
    items = [*conversions.NO_INTS[:4], 1 << 70, 5]
    method.script(double)
    args = (
        (0, 0, {"txType": "All", "txUplinks": items})
        if name == "SetPortTxUplink"
        else (0, tuple(items), 0)[: len(method.args)]
    )
    outcome, trace = run_failing(faults, getattr(ryn, name), args, -1)
    assert outcome.error and outcome.error[0] is TypeError and len(trace) > len(items)
    assert faults.made_with_error() == 0
