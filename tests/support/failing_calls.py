"""Makes each call fail that a method makes to the interpreter or the allocator: the work of test_faults.py.

The outcome is what the method's table of failures says (fault_rules.py), and nothing leaks: no block of the
interpreter, no byte of the allocator, no property block, no reference to a singleton, except for deliberate leaks.
"""

from __future__ import annotations

import gc
import importlib
import os
import pickle
import sys
import traceback
from array import array
from itertools import repeat
from pathlib import Path
from typing import Any, Callable

import harness
from branches import branches
from fault_rules import expected
from harness import Double, Outcome, capture_stderr, leave, run
from method_table import METHODS, Method
from objects import for_the_parser


def load_faults(double: Double) -> Any:
    sys.path.insert(0, str(double.folder.parent / "faults"))
    return importlib.import_module("_faults")


def kept_on_purpose(method: Method, function: str, leaks: int) -> tuple[int, int]:
    """Blocks, and references to None, that leak deliberately when this call of the method fails."""
    if method.name == "GetPortTxUplink" and function == "Py_BuildValue":
        return leaks, 0
    if method.name == "GetUplinkStats":
        if function == "Py_BuildValue":
            return leaks, 0
        if function not in ("PyArg_ParseTuple", "calloc"):
            return 0, 1  # the None that stands for the list
    return 0, 0


def run_failing(faults: Any, function: Callable, args: tuple, n: int) -> tuple[Outcome, list]:
    faults.arm(n)
    outcome = run(function, *args)
    return outcome, faults.trace()


FEW_CALLS = 3  # enough to show a leak of one block each
CALLS = 20  # of each measurement: more than the allocator caches of one size
MEASUREMENTS = 3
# How many blocks an object takes, and whether the references to a singleton are counted, differs between versions
KEPT_IS_KNOWN = sys.version_info[:2] == (3, 11)


def assert_kept(faults: Any, function: Callable, args: tuple, n: int, wanted: tuple[int, int, int], point: str) -> None:
    """A leak shows in each measurement; what the allocator holds in reserve does not."""
    if wanted != (0, 0, 0) and not KEPT_IS_KNOWN:
        return
    for _ in range(MEASUREMENTS):
        gc.collect()  # empties the free lists
        with capture_stderr():
            kept = faults.measure(function, args, n, CALLS)
        if not sys.getallocatedblocks():  # PYTHONMALLOC: nothing but references is counted
            kept = *wanted[:2], kept[2]
        if kept == wanted:
            break
    assert kept == wanted, point


def fail_each_call(ryn: Any, double: Double, faults: Any, method: Method) -> int:
    """In each branch of the method, once its constants are made. Returns how many calls failed."""
    function = getattr(ryn, method.name)
    points = 0
    for branch in branches(method):
        double.reset()
        branch.script(double)
        double.recording(False)
        args = tuple(map(for_the_parser, branch.args))
        run(function, *args)  # the constants are made
        base, whole_trace = run_failing(faults, function, args, -1)
        gc.collect()
        gc.freeze()  # for good: later collections of the same process need not walk it either
        gc.disable()
        try:
            for n, (name, _) in enumerate(whole_trace):
                point = f"{method.name}, {branch.name}: call {n}, {name}"
                outcome, trace = run_failing(faults, function, args, n)
                assert trace[: n + 1] == whole_trace[: n + 1], point
                assert outcome == expected(method, whole_trace, n, base), (point, outcome)
                blocks, nones = kept_on_purpose(method, name, branch.leaks)
                assert_kept(faults, function, args, n, (CALLS * blocks, 0, CALLS * nones), point)
                points += 1
        finally:
            gc.enable()
        assert run(function, *args) == base, method.name  # as if nothing had happened
        handed_out, freed = double.blocks()
        assert handed_out == freed, method.name
    return points


def fail_constants() -> None:
    """Run by a fresh interpreter: in a child for each, making a constant of a method for the first time fails."""
    double = harness.set_up()
    import _libryn

    faults = load_faults(double)
    faults.bind(_libryn.__file__)
    forget_constants = memory_as_it_is(_libryn.__file__)
    points = 0
    for method in METHODS:
        function = getattr(_libryn, method.name)
        for branch in branches(method):
            double.reset()
            double.recording(False)
            branch.script(double)
            args = tuple(map(for_the_parser, branch.args))

            def kept(n: int) -> int:
                """The blocks that each call leaks. Interned strings stay: making one again takes no block."""
                counts = array("q", [0] * (MEASUREMENTS + 1))
                gc.disable()
                for i in range(len(counts)):
                    for _ in repeat(None, FEW_CALLS):
                        forget_constants()
                        run_failing(faults, function, args, n)
                    counts[i] = sys.getallocatedblocks()
                return min(later - earlier for earlier, later in zip(counts, counts[1:]))

            def answer(n: int) -> tuple:
                outcome, trace = run_failing(faults, function, args, n)
                again = run(function, *args)
                return outcome, trace, again, kept(n)

            base, trace, *_ = in_child(lambda: answer(-1))
            for n in [n for n, (name, _) in enumerate(trace) if name == "PyUnicode_InternFromString"]:
                outcome, _, again, blocks = in_child(lambda: answer(n))
                point = f"{method.name}, {branch.name}: call {n}, {trace[n][1]!r}"
                assert outcome == expected(method, trace, n, base), (point, outcome)
                assert again == base, (point, again)  # made at the next use
                assert blocks == 0, point
                points += 1
    print(points)


def memory_as_it_is(file: str) -> Callable[[], None]:
    """Restores a loaded object's variables to the values that they have now, in this process or in a child of it."""
    saved = []
    # By the kernel: a sanitizer's guards between the variables are copied too
    with open("/proc/self/mem", "rb", buffering=0) as memory:
        for line in Path("/proc/self/maps").read_text().splitlines():
            if line.endswith(file) and " rw" in line:
                start, end = (int(address, 16) for address in line.split()[0].split("-"))
                memory.seek(start)
                saved.append((start, memory.read(end - start)))
    assert saved

    def restore() -> None:
        with open("/proc/self/mem", "r+b", buffering=0) as memory:
            for start, content in saved:
                memory.seek(start)
                memory.write(content)

    return restore


def in_child(work: Callable[[], Any]) -> Any:
    """What the work returns in a child, which leaves this process as it was."""
    reading, writing = os.pipe()
    if os.fork() == 0:
        status = 1
        try:
            with os.fdopen(writing, "wb") as pipe:
                pipe.write(pickle.dumps(work()))
            status = 0
        except BaseException:
            traceback.print_exc()
        finally:
            leave(status)
    os.close(writing)
    with os.fdopen(reading, "rb") as pipe:
        answer = pipe.read()
    _, status = os.wait()
    assert status == 0, f"the child ended with {status:#x}"
    return pickle.loads(answer)
