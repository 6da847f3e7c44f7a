"""Each call that the module makes to the interpreter or the allocator fails once, in each method and each branch of it.

failing_calls.py does the work.
"""

from __future__ import annotations

import ctypes
import subprocess
import sys
from functools import partial
from typing import Any, Callable

import pytest
from branches import branches
from failing_calls import assert_kept, fail_each_call, load_faults, run_failing
from fault_rules import INJECTED, item
from harness import BUFFER, Bytes, Double, capture_stderr, lost_blocks, python, u16, u32
from method_table import METHODS, Method

# Functions that the module uses and that cannot fail, or whose failure is their answer.
CANNOT_FAIL = {
    "PyErr_Clear",
    "PyErr_Fetch",
    "PyErr_GetRaisedException",
    "PyErr_Occurred",
    "PyErr_Restore",
    "PyErr_SetRaisedException",
    "PyErr_SetString",
    "PyLong_AsUnsignedLongMask",  # of ints
    "PyObject_GC_Track",
    "PyObject_GC_UnTrack",
    "_Py_Dealloc",
}
ALLOCATORS = {
    "malloc",
    "calloc",
    "realloc",
    "aligned_alloc",
    "posix_memalign",
    "memalign",
    "reallocarray",
    "strdup",
    "strndup",
    "asprintf",
    "vasprintf",
    "_Znwm",
    "_Znam",
}


@pytest.fixture(scope="module")
def faults(_module, pytestconfig: Any):
    faults = load_faults(pytestconfig.ryn_double)
    faults.bind(_module.__file__)
    return faults


def test_every_import_that_can_fail_is_let_fail(_module, faults):
    listing = subprocess.run(
        ["nm", "-D", "--undefined-only", _module.__file__], check=True, text=True, capture_output=True
    ).stdout
    imports = {fields[1].split("@")[0] for fields in map(str.split, listing.splitlines()) if fields[0] == "U"}
    functions = {name for name in imports if name.lstrip("_").startswith("Py") or name in ALLOCATORS}
    functions = {name for name in functions if not name.endswith(("Struct", "_Type")) and not name.startswith("PyExc_")}
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


@pytest.mark.parametrize(
    "method",
    [method for method in METHODS if method.format and "L" not in method.format],
    ids=lambda method: method.name,
)
def test_plain_arguments_are_taken_without_the_parser(ryn, double: Double, faults, method: Method):
    """Which takes longer than the rest of a setter."""
    method.script(double)
    _, trace = run_failing(faults, getattr(ryn, method.name), method.args, -1)
    assert "PyArg_ParseTuple" not in [name for name, _ in trace]


# The heap areas of each method, in bytes; all other methods have none.
AREAS = {
    "ListSwitches": [2568],
    "ListPorts": [11532],
    "GetPortStats": [128],
    "GetPortConf": [1272],
    "ListPortMACTable": [327696],
    "ListSwitchMACTable": [1310736],
    "DumpFlowTable": [10260],
    "GetFlowStats": [1544],
    "GetFPOStats": [1800],
    "GetMirrorConf": [2048],
    "GetUplinkStats": [6],
    "GetPortNetQInfo": [524288],
    "ListDevAffinity": [1156],
}


@pytest.mark.parametrize("method", METHODS, ids=lambda method: method.name)
def test_areas_are_asked_for_with_exactly_their_size(ryn, double: Double, faults, method: Method):
    """In each branch that gets as far."""
    seen = []
    for branch in branches(method):
        double.reset()
        branch.script(double)
        run_failing(faults, getattr(ryn, method.name), branch.args, -1)
        seen.append(faults.sizes())
    wanted = AREAS.get(method.name, [])
    assert seen[0] == wanted
    assert [sizes for sizes in seen if sizes not in (wanted, [])] == []


@pytest.mark.parametrize("length", [1, 5, 4096, 4097, 100_000])
def test_area_of_the_private_statistics_is_as_long_as_reported(ryn, double: Double, faults, length: int):
    double.answer("Ryn_Get_Uplink_Priv_Stats_Len", area=u32(length))
    run_failing(faults, ryn.GetUplinkStats, (0, 0), -1)
    assert faults.sizes() == [length]


class Unconvertible:
    def __index__(self) -> int:
        raise KeyError("made for this conversion")


def test_error_of_an_argument_gives_way_to_a_later_one_and_is_freed(ryn, double: Double, faults):
    double.answer("Ryn_Get_Flow_Stats", area=Bytes(1544).u32(0, 1))
    double.recording(False)
    args = (3, (Unconvertible(),), 0)
    base, trace = run_failing(faults, ryn.GetFlowStats, args, -1)
    assert base.error == (KeyError, "'made for this conversion'")
    later = {"PyList_New": INJECTED, "PyDict_New": BUFFER}
    for n, (name, _) in enumerate(trace):
        if name in later:
            assert run_failing(faults, ryn.GetFlowStats, args, n)[0].error == later[name]
            assert_kept(faults, ryn.GetFlowStats, args, n, (0, 0, 0), name)
    assert later.keys() <= {name for name, _ in trace}


# Constants that are made at their first use: a fresh process for each


def test_every_constant_fails_at_its_first_use():
    done = python("import failing_calls; failing_calls.fail_constants()")
    assert done.stderr == ""
    assert int(done.stdout) > 200


# Entry points for native callers, and the import itself


def entry_point(native: ctypes.PyDLL, name: str) -> Callable:
    """One that returns an object."""
    function = native[name]
    function.restype = ctypes.py_object
    return function


def outcome_of(call: Callable[[], Any]) -> tuple[Any, str]:
    """The result or the error, and the text on standard error."""
    with capture_stderr() as texts:
        try:
            result: Any = call()
        except (SystemError, MemoryError) as error:
            result = type(error), str(error)
    return result, texts[0]


def ports_call(native: ctypes.PyDLL, count: int) -> Callable[[], Any]:
    bitmap = (ctypes.c_uint64 * 2)(1 << 63 | 1, 1 << 63)
    return partial(entry_point(native, "PyRYN_CreatePortList"), count, bitmap)


def vlans_call(native: ctypes.PyDLL, count: int) -> Callable[[], Any]:
    return partial(entry_point(native, "PyRYN_CreateVlanList"), count, (ctypes.c_uint16 * 3)(1000, 1001, 1002))


def session_call(native: ctypes.PyDLL, count: int) -> Callable[[], Any]:
    """Lists of that many ports and VLANs."""
    create = entry_point(native, "PyRYN_CreateMirrorSession")
    session = Bytes(8 + 80).u16(8 + 4, 300, 301, 302, 303, 15, count, count, count, count)
    records = bytes(session.u64(8 + 24, 1, 7, 2, 7, 4, 7).u16(8 + 72, 4092, 4093, 4094))
    offset = ctypes.c_uint32()

    def call() -> Any:
        offset.value = 8
        result = create(records, ctypes.byref(offset), 0)
        assert offset.value == 80 + 8 * (count > 0)
        return result

    return call


def netq_call(native: ctypes.PyDLL, count: int) -> Callable[[], Any]:
    """That many filters, each with as many queues."""
    info = entry_point(native, "PyRYN_PortNetQInfo")
    calloc = ctypes.CDLL(None).calloc
    calloc.restype = ctypes.c_void_p
    records = u16(count) + b"".join(u16(kind, 0, 16, count) + bytes(16 + 16 * count) for kind in range(count))

    def call() -> Any:
        response = calloc(524288, 1)  # passes to the callee
        ctypes.memmove(response + 14, records, len(records))
        return info(ctypes.c_void_p(response), 524288)

    return call


# Of a session: three lists of ports, one of VLANs
NO_LISTS = [*["Failed to allocate memory\n"] * 3, "Failed to allocate memory.\n"]


@pytest.mark.parametrize("count", [0, 1, 3])
@pytest.mark.parametrize(
    "builder, no_container",
    [
        (ports_call, "Failed to allocate memory\n"),
        (vlans_call, "Failed to allocate memory.\n"),
        (session_call, "Failed to allocate memory.\n"),
        (netq_call, "Failed to allocate NetQ Info resp.\n"),
    ],
    ids=["CreatePortList", "CreateVlanList", "CreateMirrorSession", "PortNetQInfo"],
)
def test_every_call_of_a_builder_fails(native, faults, builder: Callable, no_container: str, count: int):
    call = builder(native, count)
    good = outcome_of(call)
    faults.arm(-1)
    assert outcome_of(call) == good
    trace = faults.trace()
    assert len(trace) > count
    created = [n for n, (function, _) in enumerate(trace) if function == "PyList_New"]

    def expected(n: int) -> tuple[Any, str]:
        if n == 0:
            return INJECTED, no_container
        if builder is session_call and n in created:
            return INJECTED, NO_LISTS[created.index(n)]
        return item(trace, n).error, ""

    for n in range(len(trace)):
        faults.arm(n)
        outcome = outcome_of(call)
        assert faults.trace()[n] == trace[n]
        assert outcome == expected(n), (n, trace[n])

    def fail_each() -> None:
        for n in range(len(trace)):
            faults.arm(n)
            try:
                call()
            except (SystemError, MemoryError):
                pass

    # A session that lacks a list is a dict beside an error, which ctypes never drops: GetMirrorConf is measured above.
    lost = lost_blocks(fail_each) if sys.getallocatedblocks() and builder is not session_call else 0
    faults.arm(-2)
    assert lost == 0
    assert outcome_of(call) == good


def test_import_fails(native, faults):
    faults.arm(0)
    result = outcome_of(entry_point(native, "PyInit__libryn"))
    assert (result, faults.trace()) == ((INJECTED, ""), [("PyModule_Create2", None)])
