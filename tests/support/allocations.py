"""Makes allocations of the interpreter fail in each branch of each method: each one alone, then all from each one on.

Run by any interpreter that the module is built for: `python -c "import allocations; allocations.sweep()"`. Every call
returns, with the usual result or with Python's MemoryError or SystemError; it prints only the texts of its table and
leaks no property block; and the next call succeeds.

Single failures are tried on both sides of the interpreter's check of results. Failures of all allocations from one on
are tried past it only: the interpreter aborts when it has no memory to report a result that comes with an error.
"""

from __future__ import annotations

import gc
import re
from typing import Any, Callable, Iterator

import harness
from branches import Branch, branches
from harness import NULL, Outcome, capture_stderr, run
from method_table import METHODS, Method

GOOD_IN_A_ROW = 8  # more successes in a row than there are failures without effect: no allocation is left


def alone_by_the_interpreter(function: Callable, args: tuple, good: Outcome) -> Iterator[Outcome]:
    """Ends once calls succeed; a result that the interpreter refused is NULL here."""
    import _testcapi

    n = good_in_a_row = 0
    while good_in_a_row < GOOD_IN_A_ROW:
        result: Any = NULL
        error = None
        with capture_stderr() as texts:
            _testcapi.set_nomemory(n, n + 1)
            try:
                result = function(*args)
            except (MemoryError, SystemError) as raised:
                error = raised
            finally:
                _testcapi.remove_mem_hooks()
        if good.value is NULL and type(error) is SystemError:  # the interpreter's, for a null without an error
            error = None
        outcome = Outcome(result, texts[0], None if error is None else (type(error), ""))
        good_in_a_row = good_in_a_row + 1 if outcome == good else 0
        n += 1
        yield outcome


def by_the_probe(function: Callable, args: tuple, following: bool) -> Iterator[Outcome]:
    n, outcome = 0, run(function, *args, failing_allocation=0, following=following)
    while outcome.allocation_failed:
        yield outcome
        n += 1
        outcome = run(function, *args, failing_allocation=n, following=following)


def texts_of(method: Method, good: Outcome) -> re.Pattern:
    """The texts that a call may write: the good call's, that of refused arguments, and those without memory."""
    texts = {
        good.stderr,
        method.invalid or "",
        "Failed to allocate memory.\n",
        "Failed to allocate memory\n",
        *(outcome.stderr for outcome in method.no_memory),
    }
    return re.compile("(" + "|".join(map(re.escape, texts)) + ")*")


def sweep_branch(double: harness.Double, function: Callable, method: Method, branch: Branch) -> int:
    double.reset()
    double.recording(False)
    branch.script(double)
    args = branch.args
    good = run(function, *args)
    texts = texts_of(method, good)
    points = 0
    for name, outcomes in (
        ("alone", by_the_probe(function, args, False)),
        ("all from it on", by_the_probe(function, args, True)),
        ("the interpreter's", alone_by_the_interpreter(function, args, good)),
    ):
        for n, outcome in enumerate(outcomes):
            where = f"{method.name}, {branch.name}, {name}, allocation {n}: {outcome}"
            assert texts.fullmatch(outcome.stderr), where
            assert outcome == good or outcome.error and outcome.error[0] in (MemoryError, SystemError), where
            points += outcome != good
    assert run(function, *args) == good, method.name
    handed_out, freed = double.blocks()
    assert handed_out == freed, method.name
    return points


def sweep() -> None:
    """Prints how many calls ended with an error."""
    double = harness.set_up()
    import _libryn

    gc.disable()
    print(
        sum(
            sweep_branch(double, getattr(_libryn, method.name), method, branch)
            for method in METHODS
            for branch in branches(method)
        )
    )
