"""Each call that the module makes of the interpreter or the allocator fails once, in each method and each branch of it.

The result, Python's error and the text on standard error are what the method's table of failures says (fault_rules.py),
and nothing is kept: no block of the interpreter, no byte of the allocator, no property block, no reference to a
singleton, but for what a method keeps on purpose.
"""

from __future__ import annotations

import ctypes
import gc
import importlib
import os
import pickle
import subprocess
import sys
import traceback
from pathlib import Path
from typing import Any, Callable

import pytest

import harness
from branches import branches
from fault_rules import INJECTED, expected, item
from harness import Bytes, Double, Outcome, capture_stderr, python, run
from method_table import METHODS, Method

# Functions that the module uses and that cannot fail, or whose failure is their answer.
CANNOT_FAIL = {
    "PyErr_Clear", "PyErr_Fetch", "PyErr_GetRaisedException", "PyErr_Occurred", "PyErr_Restore",
    "PyErr_SetRaisedException", "PyErr_SetString", "_Py_Dealloc",
}
ALLOCATORS = {"malloc", "calloc", "realloc", "aligned_alloc", "posix_memalign", "memalign", "reallocarray", "strdup",
              "strndup", "asprintf", "vasprintf", "_Znwm", "_Znam"}


def load_faults(double: Double) -> Any:
    sys.path.insert(0, str(double.folder.parent / "faults"))
    return importlib.import_module("_faults")


@pytest.fixture(scope="module")
def faults(_module, pytestconfig: pytest.Config):
    faults = load_faults(pytestconfig.ryn_double)
    faults.bind(_module.__file__)
    return faults


def test_every_import_that_can_fail_is_let_fail(_module, faults):
    listing = subprocess.run(["nm", "-D", "--undefined-only", _module.__file__], check=True, text=True,
                             capture_output=True).stdout
    imports = {fields[1].split("@")[0] for fields in map(str.split, listing.splitlines()) if fields[0] == "U"}
    functions = {name for name in imports if name.lstrip("_").startswith("Py") or name in ALLOCATORS}
    functions = {name for name in functions if not name.endswith("Struct") and not name.startswith("PyExc_")}
    assert functions - CANNOT_FAIL - set(faults.imports()) == set()
    assert len(functions & set(faults.imports())) > 15


def kept_on_purpose(method: Method, function: str, leaks: int) -> tuple[int, int]:
    """Blocks, and references to None, that are kept when this call of the method fails."""
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


CALLS = 20  # of each measurement: more than the allocator caches of one size
MEASUREMENTS = 3
POINTS: dict[str, int] = {}


def assert_kept(faults: Any, function: Callable, args: tuple, n: int, wanted: tuple[int, int, int], point: str) -> None:
    """What is kept at each call shows in each measurement; what the allocator keeps in reserve does not."""
    for _ in range(MEASUREMENTS):
        gc.collect()  # empties the free lists
        with capture_stderr():
            kept = faults.measure(function, args, n, CALLS)
        if not sys.getallocatedblocks():  # PYTHONMALLOC: nothing but references is counted
            kept = *wanted[:2], kept[2]
        if kept == wanted:
            break
    assert kept == wanted, point


@pytest.mark.parametrize("method", METHODS, ids=lambda method: method.name)
def test_every_call_fails(ryn, double, faults, method: Method):
    function = getattr(ryn, method.name)
    points = 0
    for branch in branches(method):
        double.reset()
        double.recording(False)
        branch.script(double)
        run(function, *branch.args)  # the constants are made
        base, whole_trace = run_failing(faults, function, branch.args, -1)
        gc.collect()
        gc.freeze()
        gc.disable()
        try:
            for n, (name, _) in enumerate(whole_trace):
                point = f"{branch.name}: call {n}, {name}"
                outcome, trace = run_failing(faults, function, branch.args, n)
                assert trace[:n + 1] == whole_trace[:n + 1], point
                assert outcome == expected(method, whole_trace, n, base), point
                blocks, nones = kept_on_purpose(method, name, branch.leaks)
                assert_kept(faults, function, branch.args, n, (CALLS * blocks, 0, CALLS * nones), point)
                points += 1
        finally:
            gc.enable()
            gc.unfreeze()
        assert run(function, *branch.args) == base  # as if nothing had happened
        handed_out, freed = double.blocks()
        assert handed_out == freed
    POINTS[method.name] = points
    if method.format is not None:
        assert points > 0


def test_number_of_points():
    if len(POINTS) < len(METHODS):
        pytest.skip("counts only when all methods ran")
    assert sum(POINTS.values()) > 2000


# Constants that are made at their first use: a fresh process for each


def fail_constants() -> None:
    """Run by a fresh interpreter: in a child for each, the first making of each constant of each method fails."""
    double = harness.set_up()
    import _libryn

    faults = load_faults(double)
    faults.bind(_libryn.__file__)
    points = 0
    for method in METHODS:
        function = getattr(_libryn, method.name)
        for branch in branches(method):
            double.reset()
            double.recording(False)
            branch.script(double)

            def answer(n: int) -> tuple:
                outcome, trace = run_failing(faults, function, branch.args, n)
                return outcome, trace, run(function, *branch.args)

            base, trace, _ = in_child(lambda: answer(-1))
            for n in [n for n, (name, _) in enumerate(trace) if name == "PyUnicode_InternFromString"]:
                outcome, _, again = in_child(lambda: answer(n))
                point = f"{method.name}, {branch.name}: call {n}, {trace[n][1]!r}"
                assert outcome == expected(method, trace, n, base), (point, outcome)
                assert again == base, (point, again)  # made at the next use
                points += 1
    print(points)


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
            os._exit(status)
    os.close(writing)
    with os.fdopen(reading, "rb") as pipe:
        answer = pipe.read()
    _, status = os.wait()
    assert status == 0, f"the child ended with {status:#x}"
    return pickle.loads(answer)


def test_every_constant_fails_at_its_first_use():
    done = python("import test_faults; test_faults.fail_constants()")
    assert done.stderr == ""
    assert int(done.stdout) > 200


# Entry points for native callers, and the import itself


def native_call(native: ctypes.PyDLL, name: str, *args: Any) -> tuple[Any, str]:
    """The result or the error of an entry point that returns an object, and its text on standard error."""
    function = native[name]
    function.restype = ctypes.py_object
    with capture_stderr() as texts:
        try:
            result: Any = function(*args)
        except (SystemError, MemoryError) as error:
            result = type(error), str(error)
    return result, texts[0]


PORT_BITMAP = (ctypes.c_uint64 * 2)(1 << 63 | 1, 1 << 63)
VLANS = (ctypes.c_uint16 * 3)(1000, 1001, 1002)
SESSION = Bytes(8 + 80).u16(8 + 4, 300, 301, 302, 303, 15, 1, 1, 1, 1).u64(8 + 24, 1, 0, 2, 0, 4, 0).u16(8 + 72, 4094)


def session_call(native: ctypes.PyDLL) -> tuple[Any, str]:
    offset = ctypes.c_uint32(8)
    result, text = native_call(native, "PyRYN_CreateMirrorSession", bytes(SESSION), ctypes.byref(offset), 0)
    assert offset.value == 88 or not isinstance(result, dict)
    return result, text


def netq_call(native: ctypes.PyDLL) -> tuple[Any, str]:
    libc = ctypes.CDLL(None)
    libc.calloc.restype = ctypes.c_void_p
    response = libc.calloc(524288, 1)  # passes to the callee
    ctypes.memset(response + 14, 1, 1)
    return native_call(native, "PyRYN_PortNetQInfo", ctypes.c_void_p(response), 524288)


@pytest.mark.parametrize("call, no_container", [
    (lambda native: native_call(native, "PyRYN_CreatePortList", 3, PORT_BITMAP), "Failed to allocate memory\n"),
    (lambda native: native_call(native, "PyRYN_CreateVlanList", 3, VLANS), "Failed to allocate memory.\n"),
    (session_call, "Failed to allocate memory.\n"),
    (netq_call, "Failed to allocate NetQ Info resp.\n"),
], ids=["CreatePortList", "CreateVlanList", "CreateMirrorSession", "PortNetQInfo"])
def test_every_call_of_a_builder_fails(native, faults, call, no_container: str):
    good = call(native)
    faults.arm(-1)
    call(native)
    trace = faults.trace()
    assert len(trace) > 3
    for n in range(len(trace)):
        faults.arm(n)
        result, text = call(native)
        assert faults.trace()[n] == trace[n]
        if n == 0:
            assert (result, text) == (INJECTED, no_container)
        elif call is session_call and text:  # a list without memory
            assert result == INJECTED and text in ("Failed to allocate memory\n", "Failed to allocate memory.\n")
        else:
            assert (result, text) == (item(trace, n).error, ""), (n, trace[n])
    assert call(native) == good


def test_import_fails(native, faults):
    faults.arm(0)
    result = native_call(native, "PyInit__libryn")
    assert (result, faults.trace()) == ((INJECTED, ""), [("PyModule_Create2", None)])
