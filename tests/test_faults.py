"""Each call that the module makes of the interpreter or the allocator fails once, in each method and each branch of it.

failing_calls.py does the work.
"""

from __future__ import annotations

import ctypes
import subprocess
from typing import Any

import pytest

from failing_calls import fail_each_call, load_faults
from fault_rules import INJECTED, item
from harness import Bytes, Double, capture_stderr, python
from method_table import METHODS, Method

# Functions that the module uses and that cannot fail, or whose failure is their answer.
CANNOT_FAIL = {
    "PyErr_Clear", "PyErr_Fetch", "PyErr_GetRaisedException", "PyErr_Occurred", "PyErr_Restore",
    "PyErr_SetRaisedException", "PyErr_SetString", "_Py_Dealloc",
}
ALLOCATORS = {"malloc", "calloc", "realloc", "aligned_alloc", "posix_memalign", "memalign", "reallocarray", "strdup",
              "strndup", "asprintf", "vasprintf", "_Znwm", "_Znam"}


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


POINTS: dict[str, int] = {}


@pytest.mark.parametrize("method", METHODS, ids=lambda method: method.name)
def test_every_call_fails(ryn, double: Double, faults, method: Method):
    POINTS[method.name] = fail_each_call(ryn, double, faults, method)
    if method.format is not None:
        assert POINTS[method.name] > 0


def test_number_of_points():
    if len(POINTS) < len(METHODS):
        pytest.skip("counts only when all methods ran")
    assert sum(POINTS.values()) > 2000


# Constants that are made at their first use: a fresh process for each


def test_every_constant_fails_at_its_first_use():
    done = python("import failing_calls; failing_calls.fail_constants()")
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
