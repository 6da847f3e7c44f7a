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
from dataclasses import dataclass
from pathlib import Path
from typing import Any, Callable

import pytest

import harness
from fault_rules import INJECTED, expected, item
from harness import Bytes, Double, Outcome, capture_stderr, python, run, u64
from method_table import METHODS, Failure, Method, nothing

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


# Branches of each method: its good call, its failures, and answers of 0 and of 3 records


def list_ports(double: Double) -> None:
    area = Bytes(11532).u32(4, 3)
    for i, (tx, rx, client) in enumerate([(0, 2, 1), (1, 0, 4), (2, 1, 77)]):
        area.u8(12 + 90 * i + 8, tx, rx).u32(12 + 90 * i + 18, client)
    double.answer("Ryn_Get_Port_List", area=area)


def port_conf(double: Double) -> None:
    double.answer("Ryn_Get_Port_Conf", area=Bytes(1272).u32(16, 3, 0x3F).u32(48, 3).u16(248, 1, 2, 300, 300))


def flow_page(double: Double) -> None:
    area = Bytes(10260).u32(12, 3, 20 + 3 * 304)
    for i, (bitmap, flags) in enumerate([(1 << 5, 8), (1 << 18 | 1 << 21, 0), (0, 8)]):
        area.u32(20 + 304 * i + 64 + 56, bitmap).u8(20 + 304 * i + 64 + 61, flags).u16(20 + 304 * i + 126, 240)
    double.answer("Ryn_Dump_Flow_Table", area=area)


def mirror_conf(double: Double) -> None:
    area, offset = Bytes(2048).u16(4, 3), 8
    for index, vlans in enumerate([0, 3, 5]):
        area.u16(offset + 4, 1000 + index).u16(offset + 14, index, 2 - index, 1, vlans)
        area.u64(offset + 24, index, 0, 0, 2 - index, 1 << 9)
        offset += 72 + (2 * vlans + 7) // 8 * 8
    double.answer("Ryn_Get_Mirror_Conf", area=area)


def netq_info(double: Double) -> None:
    area, offset = Bytes(524288).u16(12, 0, 3), 16
    for kind, length, queues in [(1, 16, 2), (7, 8, 0), (0, 6, 1)]:
        area.u16(offset, kind).u16(offset + 4, length, queues)
        offset += 8 + length + 16 * queues
    double.answer("Ryn_Get_Port_NetQ_Info", area=area)


def records(op: str, size: int) -> Callable[[Double], None]:
    return lambda double: double.answer(op, area=Bytes(size).u32(0, 3))


THREE_RECORDS: dict[str, Callable[[Double], None]] = {
    "ListSwitches": records("Ryn_Get_Switch_List", 2568),
    "ListPorts": list_ports,
    "ListPortMACTable": records("Ryn_Dump_Port_MAC_Table", 327696),
    "ListSwitchMACTable": records("Ryn_Dump_Switch_MAC_Table", 1310736),
    "GetFlowStats": records("Ryn_Get_Flow_Stats", 1544),
    "GetFPOStats": records("Ryn_Get_FPO_Stats", 1800),
    "DumpFlowTable": flow_page,
    "GetPortConf": port_conf,
    "GetPortTxUplink": lambda double: double.answer("Ryn_Get_Port_Tx_Uplink", area=Bytes(18).u8(0, 9, 3)),
    "GetMirrorConf": mirror_conf,
    "GetPortNetQInfo": netq_info,
    "ListDevAffinity": records("Ryn_List_Dev_Affinity", 1156),
    "ListLCoreIDs": lambda double: double.answer("Ryn_Get_LCore_ID_Bitmap", area=u64(1 << 63 | 1 << 5 | 1)),
}
THREE_ARGS = {"GetFlowStats": (0, (1, 2, 3), 0), "GetFPOStats": (0, (1, 2, 3))}


@dataclass
class Branch:
    name: str
    script: Callable[[Double], None]
    args: tuple
    leaks: int = 0  # blocks that a call keeps on purpose when it gets to its end


def branches(method: Method) -> list[Branch]:
    def of_failure(failure: Failure) -> Branch:
        def script(double: Double) -> None:
            method.script(double)
            failure.script(double)

        return Branch(failure.name, script, method.args if failure.args is None else failure.args, failure.leaks)

    result = [Branch("good", method.script, method.args, method.leaks), *map(of_failure, method.failures)]
    if method.name in THREE_RECORDS:
        # GetPortTxUplink keeps its list: the object, and the array of one that is not empty
        none, three = (1, 2) if method.leaks else (0, 0)
        result.append(Branch("0 records", nothing, method.args, none))
        result.append(Branch("3 records", THREE_RECORDS[method.name], THREE_ARGS.get(method.name, method.args), three))
    if method.name == "DumpLBPortStats":
        result += [Branch("no port", method.script, (3, 6, 5)), Branch("3 ports", method.script, (3, 5, 7))]
    return result


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
