"""Many calls leak nothing, except for deliberate leaks, which are exact to the block.

Blocks of the interpreter, bytes of the allocator, references to the singletons and property blocks are counted over
10,000 calls of each branch of each method (100,000 when soaking), and of each way to refuse its arguments.
"""

from __future__ import annotations

import gc
import sys
from typing import Any, Callable

import pytest
from branches import branches
from failing_calls import load_faults
from harness import Double, capture_stderr, run
from hostile_answers import SOAK
from method_table import METHODS, Method

CALLS = 100_000 if SOAK else 10_000
RESERVE = 4096  # bytes that the allocator may move between its lists: less than half a byte a call

pytestmark = pytest.mark.skipif(sys.getallocatedblocks() == 0, reason="PYTHONMALLOC: no blocks are counted")


@pytest.fixture(scope="module")
def faults(_module, pytestconfig: Any):
    return load_faults(pytestconfig.ryn_double)


def kept(faults: Any, function: Callable, args: tuple, calls: int) -> tuple[int, int, int]:
    gc.collect()
    gc.disable()
    try:
        with capture_stderr():
            return faults.measure(function, args, -1, calls)
    finally:
        gc.enable()


@pytest.mark.parametrize("method", METHODS, ids=lambda method: method.name)
def test_calls_keep_nothing(ryn, double: Double, faults, method: Method):
    function = getattr(ryn, method.name)
    for branch in branches(method):
        double.reset()
        branch.script(double)
        double.recording(False)
        run(function, *branch.args)
        blocks, size, references = kept(faults, function, branch.args, CALLS)
        assert (blocks, references) == (CALLS * branch.leaks, 0), branch.name
        assert size < RESERVE or branch.leaks, branch.name  # lost blocks need space of their own
        handed_out, freed = double.blocks()
        assert handed_out == freed
