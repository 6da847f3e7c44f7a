"""Each call that the package's extensions make of the interpreter or of libc fails once, in everything they can do.

The work ends in MemoryError, or with its good result where the failure is none of the caller's business (an area that
is not shrunk); nothing is kept, and the same work succeeds afterwards.
"""

from __future__ import annotations

import copy
import ctypes
import gc
import importlib.util
import os
import subprocess
import sys
from array import array
from itertools import repeat
from pathlib import Path
from typing import Any, Callable

import harness
import pytest
from branches import THREE_RECORDS
from core_calls import CALLS, CoreCall
from failing_calls import in_child, load_faults
from harness import MISSING, UNDER_ASAN, Bytes, Double, python
from method_table import SNAPSHOT_AREA
from platform_script import PORTS, port_list, switch_list

# Functions that the extensions use and that cannot fail, or whose failure is their answer.
CANNOT_FAIL = {
    "PyBool_FromLong",
    "PyErr_Clear",
    "PyErr_ExceptionMatches",
    "PyErr_Format",
    "PyErr_NoMemory",
    "PyErr_Occurred",
    "PyErr_SetObject",
    "PyErr_SetString",
    "PyEval_RestoreThread",
    "PyEval_SaveThread",
    "PyObject_Free",
    "PyObject_GC_UnTrack",
    "PyObject_HashNotImplemented",  # an entry of a type, not called from here
    "PyObject_SelfIter",  # the same
    "PySeqIter_New",  # the same
    "PySlice_AdjustIndices",
    "PyType_IsSubtype",
    "PyType_Modified",
    "PyUnicode_CompareWithASCIIString",
    "_Py_Dealloc",
}
ALLOCATORS = {"malloc", "calloc", "realloc", "pthread_create", "_Znwm", "_Znam", "aligned_alloc", "strdup"}
OFF = -2
CALLS_OF_A_MEASUREMENT = 20  # more than the allocator caches of one size
MEASUREMENTS = 3


@pytest.fixture(scope="module")
def extensions(_module):
    import ryn._core
    import ryn._records
    import ryn.errors  # noqa: F401  what is imported at first use is there
    import ryn.names  # noqa: F401

    return ryn._core, ryn._records


@pytest.fixture(scope="module")
def faults(extensions, pytestconfig: Any):
    faults = load_faults(pytestconfig.ryn_double)
    for extension in extensions:
        faults.bind(extension.__file__)
    yield faults
    faults.arm(OFF)


@pytest.mark.parametrize("number", [0, 1], ids=["_core", "_records"])
def test_every_import_that_can_fail_is_let_fail(extensions, faults, number):
    listing = subprocess.run(
        ["nm", "-D", "--undefined-only", extensions[number].__file__], check=True, text=True, capture_output=True
    ).stdout
    imports = {fields[1].split("@")[0] for fields in map(str.split, listing.splitlines()) if fields[0] == "U"}
    functions = {name for name in imports if name.lstrip("_").startswith("Py") or name in ALLOCATORS}
    functions = {name for name in functions if not name.endswith(("Struct", "_Type")) and not name.startswith("PyExc_")}
    assert functions - CANNOT_FAIL - set(faults.imports()) == set()


# ---- What the extensions can do


def answers(double: Double) -> None:
    """An answer with some records for every operation that has any, and nothing left of what was counted."""
    double.reset()
    double.recording(False)
    for script in THREE_RECORDS.values():
        script(double)
    double.answer("Ryn_Get_Switch_List", area=switch_list(("set-\udcff", 1), ("", 2), ("x" * 128, 15)))
    double.answer("Ryn_Get_Port_List", area=port_list(*PORTS))
    double.answer("Ryn_DumpLBSnapshot", area=SNAPSHOT_AREA)
    double.answer("Ryn_Get_Uplink_Priv_Stats_Len", area=b"\x08\0\0\0")
    double.answer("Ryn_Get_Uplink_Priv_Stats", area=b"a: 1\xff\n\0")
    double.answer("Ryn_Dump_Flow_Table")  # no flows
    double.answer("DVSQOB_StateGet", area=b"state")
    double.answer("DVSQOB_HostPropGet", area=b"\1\2\3")
    double.answer("DVSQOB_PortDataGet", area=b"\1\2\3")
    double.add_switch("a", b"id-\xff", "other", global_={"com.talvor.common.alias": b"al\xff\0"})
    served: dict[str, bytes | str] = {"com.talvor.extraconfig.opaqueDvs.ryn": "poll"}
    double.add_switch("b", "id-b", host={"com.talvor.common.host.portset": "set-b"}, global_=served)


def flow_pages(double: Double) -> None:
    """A page of three flows, then an empty one."""
    answers(double)
    area = Bytes(10260).u32(8, 0, 3, 20 + 3 * 304)
    for i in range(3):
        area.u16(20 + 304 * i + 126, 240)
    double.answer("Ryn_Dump_Flow_Table", area=area, times=1)


def core_works(platform: Any, core: Any) -> dict[str, Callable[[Double], Any]]:
    """Calls of the platform by name; each scripts what a call uses up."""
    import ryn

    class Port(ryn._records.ListedPort):  # type: ignore[name-defined]
        __slots__ = ()

    def flows(double: Double, **wanted: Any) -> list:
        flow_pages(double)
        return list(platform.flows(0, 0, True, ryn.FlowFilter(**wanted) if wanted else None))

    def all_counters(double: Double) -> tuple:
        ports, table = platform.all_counters([(1, "one"), (2, "two")], Port)
        return [(port.switch, port.number) for port in ports], table

    def one_port_goes(double: Double) -> tuple:
        answers(double)
        double.answer("Ryn_Get_Port_List", area=port_list(*PORTS), times=1)
        double.answer("Ryn_Get_Port_List", area=port_list(*PORTS[1:]), times=1)
        double.answer("Ryn_Get_Port_Stats", status=MISSING, times=1)
        return all_counters(double)

    def making(call: CoreCall) -> Callable[[Double], Any]:
        return lambda double: getattr(platform, call.name)(*call.args)

    works = {f"{call.name}-{call.op}": making(call) for call in CALLS}
    works |= {
        "ports": lambda double: [(port.number, port.mac) for port in platform.ports(3, "switch", Port)],
        "all_counters": all_counters,
        "all_counters, a port goes": one_port_goes,
        "flows": flows,
        "flows, filtered": lambda double: flows(double, sport=7, src=(bytes(4), 0), mac_a=bytes(6)),
        "configured_switches": lambda double: platform.configured_switches(),
        "init_fastslabs": lambda double: platform.init_fastslabs(),
        "Platform": lambda double: core.Platform(timeout=2.5).timeout,
        "backend": lambda double: core.backend(),
    }
    return works


def failures(platform: Any) -> dict[str, Callable[[Double], Any]]:
    """Calls that end in an error of the package: their text, since errors have no equality."""
    import ryn

    def told(work: Callable[[Double], Any]) -> Callable[[Double], Any]:
        def run(double: Double) -> tuple:
            try:
                work(double)
            except ryn.Error as error:
                return type(error).__name__, str(error)
            raise AssertionError("it succeeded")

        return run

    def failing(op: str, status: int, name: str, *args: Any) -> Callable[[Double], Any]:
        def run(double: Double) -> Any:
            answers(double)
            double.answer(op, status=status, times=1)
            return getattr(platform, name)(*args)

        return told(run)

    def invalid(double: Double) -> Any:
        answers(double)
        double.answer("Ryn_Get_Mirror_Conf", area=b"\xff" * 2048, times=1)
        return platform.mirrors(0)

    return {
        "numbers": failing("Ryn_Migrate_Port", 5, "migrate", 0, 1, 2, 3, 4),
        "texts": failing("Ryn_Set_Dev_Affinity", MISSING, "set_affinity", "eth\udcff", 1),
        "address": failing("Ryn_MAC_Entry_Ops", 0x0BAD0007, "add_mac", 0, 1, bytes(6), 5),
        "bytes": failing("DVSQOB_HostPropSet", 9, "set_host_property", "id", "key", b"\1\2"),
        "list of numbers": failing("Ryn_Get_Flow_Stats", 1, "flow_stats", 0, (1, 2)),
        "invalid answer": told(invalid),
        "reload": failing("DVSState_ConfigDeserialize", 4, "reload"),
    }


def record_works() -> dict[str, Callable[[Double], Any]]:
    import ryn

    def flow(family: int = 4, packets: Any = 1) -> Any:
        address = bytes(family)
        return ryn.Flow(0, 1, address, address, 1, 2, 6, 5, packets, packets, 8, True, bytes(6), bytes(6), 1, 2)

    numbers, most = list(range(16)), [(1 << 64) - 1] * 16
    counters, table = ryn.PortCounters(most, numbers), ryn.CounterTable(bytes(512))
    macs, some, other = ryn.MacTable(bytes(range(100)) * 2, 5, 1), flow(), flow(16, None)
    address = ryn.MacAddress(bytes(6))
    works: dict[str, Callable[[], Any]] = {
        "PortCounters": lambda: ryn.PortCounters(numbers, tuple(numbers)),
        "fast, slow, total": lambda: (counters.fast, counters.slow, counters.total),
        "counters shown": lambda: (repr(counters), hash(counters), list(counters), copy.copy(counters)),
        "CounterTable": lambda: (ryn.CounterTable(bytes(256)), table[1], list(table), copy.copy(table)),
        "size of a CounterTable": lambda: sys.getsizeof(table),
        "rates": lambda: table.rates(0, table, 1, 2.0),
        "reset": lambda: ryn.CounterTable(bytes(256)).rates(0, ryn.CounterTable(b"\1" * 256), 0, 2.0),
        "MacTable": lambda: ryn.MacTable(bytes(40), 7, 1),
        "rows": lambda: (macs[0], macs[-1], list(macs), macs.limit, macs.limit_exceeded),
        "slices": lambda: (macs[::-1], macs[3:]),
        "find": lambda: macs.find("00:*") + macs.find(bytes(range(6))),
        "select": lambda: macs.select(mac="00:01:*", vlan=0x0706, port=0x0B0A0908),
        "table shown": lambda: (repr(macs), copy.copy(macs), sys.getsizeof(macs)),
        "Flow": lambda: (flow(), flow(16, None)),
        "Flow of ipaddress": lambda: ryn.Flow(
            0, 1, some.src, some.dst, 1, 2, 6, 5, 1, 1, 8, False, bytes(6), bytes(6), 1, 2
        ),
        "fields of a flow": lambda: [getattr(each, name) for each in (some, other) for name in each._fields],
        "flow shown": lambda: (repr(some), hash(some), copy.copy(some), copy.copy(other)),
        "FlowFilter": lambda: ryn.FlowFilter(
            src=(bytes(4), 8), dst=(bytes(16), 9), sport=1, vlan=5, actions=8, mac_a=bytes(6)
        ).matches(some),
        "MacAddress": lambda: (ryn.MacAddress("02-00-00-AA-BB-CC"), ryn.MacAddress(bytes(6)), ryn.MacAddress(address)),
        "address shown": lambda: (str(address), repr(address), address.packed, bytes(address), copy.copy(address)),
        "address compared": lambda: (hash(address), address < address, address.is_local, address.is_multicast),
    }

    def alone(work: Callable[[], Any]) -> Callable[[Double], Any]:
        return lambda double: work()

    return {name: alone(work) for name, work in works.items()}


# ---- Letting them fail


class MallInfo(ctypes.Structure):
    _fields_ = [
        (name, ctypes.c_size_t) for name in "arena ordblks smblks hblks hblkhd usmblks fsmblks uordblks".split()
    ]
    _fields_ += [("fordblks", ctypes.c_size_t), ("keepcost", ctypes.c_size_t)]


class Keeping:
    """What a work keeps at each call: blocks of the interpreter, and bytes of the allocator."""

    def __init__(self, faults: Any, double: Double) -> None:
        self.faults, self.double = faults, double
        self.information = ctypes.CDLL(None).mallinfo2
        self.information.restype = MallInfo

    def native(self) -> int:
        information = self.information()
        return information.uordblks + information.hblkhd

    def once(self, work: Callable[[Double], Any], n: int) -> tuple[int, int]:
        blocks, native = array("q", [0, 0]), array("q", [0, 0])
        for place in (0, 1):  # the first time fills free lists and caches
            for _ in repeat(None, CALLS_OF_A_MEASUREMENT):
                self.faults.arm(n)
                try:
                    work(self.double)
                except MemoryError:
                    pass
                finally:
                    self.faults.arm(OFF)
            gc.collect()
            native[place] = self.native()
            blocks[place] = sys.getallocatedblocks()
        return blocks[1] - blocks[0], native[1] - native[0]

    def check(self, work: Callable[[Double], Any], n: int, point: str) -> None:
        """What is kept at each call shows in each measurement; what the allocator keeps in reserve does not."""
        for _ in range(MEASUREMENTS):
            blocks, native = self.once(work, n)
            if blocks < CALLS_OF_A_MEASUREMENT // 2 and native < CALLS_OF_A_MEASUREMENT // 2 * 16:
                return
        raise AssertionError(f"{point}: {blocks} blocks and {native} bytes are kept by {CALLS_OF_A_MEASUREMENT} calls")


def run(faults: Any, work: Callable[[Double], Any], double: Double, n: int) -> tuple[Any, BaseException | None, list]:
    faults.arm(n)
    try:
        value, error = work(double), None
    except MemoryError as raised:
        value, error = None, raised
    finally:
        trace = faults.trace()
    return value, error, trace


def fail_each_call(faults: Any, double: Double, work: Callable[[Double], Any]) -> int:
    """Returns how many calls failed."""
    work(double)  # what is imported or made at first use is there
    base, error, whole_trace = run(faults, work, double, -1)
    assert error is None
    keeping = Keeping(faults, double)
    gc.collect()
    gc.freeze()  # what is there stays: the collections of the measurements need not walk it each time
    for n, (name, _) in enumerate(whole_trace):
        point = f"call {n}, {name}"
        value, error, trace = run(faults, work, double, n)
        assert [function for function, _ in trace[: n + 1]] == [function for function, _ in whole_trace[: n + 1]], point
        if error is None:
            assert (name, value) == ("realloc", base), point  # an area stays larger than it need be
        else:
            assert isinstance(error, MemoryError) and str(error) in ("injected", ""), (point, value)
        if not UNDER_ASAN:  # whose allocators count nothing
            keeping.check(work, n, point)
    value, error, _ = run(faults, work, double, -1)
    assert error is None and value == base
    handed_out, freed = double.blocks()
    assert handed_out == freed
    return len(whole_trace)


@pytest.fixture
def scripted(double: Double) -> Double:
    answers(double)
    return double


CORE_WORKS = [f"{call.name}-{call.op}" for call in CALLS] + [
    "ports",
    "all_counters",
    "all_counters, a port goes",
    "flows",
    "flows, filtered",
    "configured_switches",
    "init_fastslabs",
    "Platform",
    "backend",
]
ERRORS = ["numbers", "texts", "address", "bytes", "list of numbers", "invalid answer", "reload"]
POINTS: dict[str, int] = {}


@pytest.mark.parametrize("name", CORE_WORKS)
def test_every_call_of_the_core_fails(extensions, faults, scripted, name):
    works = core_works(extensions[0].Platform(), extensions[0])
    assert list(works) == CORE_WORKS
    POINTS[name] = fail_each_call(faults, scripted, works[name])


@pytest.mark.parametrize("name", ERRORS)
def test_every_call_on_the_way_to_an_error_fails(extensions, faults, scripted, name):
    works = failures(extensions[0].Platform())
    assert list(works) == ERRORS
    extensions[0].Platform().reload()
    assert fail_each_call(faults, scripted, works[name]) > 3


def test_every_call_of_the_records_fails(extensions, faults, scripted):
    for name, work in record_works().items():
        try:
            POINTS[name] = fail_each_call(faults, scripted, work)
        except AssertionError as error:
            raise AssertionError(f"{name}: {error}") from error


@pytest.mark.parametrize("name", CORE_WORKS)
def test_every_call_fails_where_a_worker_makes_the_operations(extensions, faults, scripted, name):
    """The caller may look at signals meanwhile, so that the calls are not always the same."""
    work = core_works(extensions[0].Platform(30.0), extensions[0])[name]
    work(scripted)
    base, _, trace = run(faults, work, scripted, -1)
    for n in range(len(trace)):
        value, error, _ = run(faults, work, scripted, n)
        assert value == base if error is None else str(error) in ("injected", ""), n
    value, error, _ = run(faults, work, scripted, OFF)
    assert (value, error) == (base, None)
    handed_out, freed = scripted.blocks()
    assert handed_out == freed


def test_number_of_points():
    if len(POINTS) < len(CORE_WORKS):
        pytest.skip("counts only when all of it ran")
    assert sum(POINTS.values()) > 900


def test_a_worker_that_cannot_be_started_is_a_memory_error():
    done = python(
        """
import harness
from failing_calls import load_faults
double = harness.set_up()
from ryn import _core
faults = load_faults(double)
faults.bind(_core.__file__)
platform = _core.Platform(30.0)
for function in ("calloc", "pthread_create"):
    for n in range(100):
        faults.arm(n)
        try:
            platform.flow_timeout()
        except MemoryError:
            pass
        trace = faults.trace()
        if trace[-1][0] == function:
            print(function)
            break
faults.arm(-2)
print(platform.flow_timeout())
"""
    )
    assert (done.returncode, done.stdout, done.stderr) == (0, "calloc\npthread_create\n0\n", "")


# ---- Importing


def fail_import(name: str) -> None:
    """Run by a fresh interpreter: in a child for each, a call of the module's initialisation fails."""
    faults = load_faults(harness.set_up())
    package = importlib.util.find_spec("ryn")
    assert package and package.origin
    (file,) = map(str, Path(package.origin).parent.glob(f"{name.partition('.')[2]}.*.so"))
    spec: Any = importlib.util.spec_from_file_location(name, file)
    ctypes.PyDLL(file)  # it is loaded, and not initialised
    faults.bind(file)

    def outcome(n: int) -> tuple:
        faults.arm(n)
        try:
            module = importlib.util.module_from_spec(spec)
            error = ""
        except MemoryError as raised:
            module, error = None, str(raised)
        return error, len(faults.trace()), sorted(dir(module)) if module else None

    good = in_child(lambda: outcome(-1))
    assert good[0] == "" and good[2]
    for n in range(good[1]):
        error, made, _ = in_child(lambda: outcome(n))
        assert (error, made >= n + 1) == ("injected", True), (n, error, made)
    print(good[1])


@pytest.mark.parametrize("name, least", [("ryn._core", 60), ("ryn._records", 100)])
def test_every_call_of_an_import_fails(name, least):
    done = python(f"import test_core_faults; test_core_faults.fail_import({name!r})", PYTHONPATH=path_of_tests())
    assert (done.returncode, done.stderr) == (0, ""), done.stderr
    assert int(done.stdout) > least


def path_of_tests() -> str:
    return os.pathsep.join([os.environ["PYTHONPATH"], os.path.dirname(__file__)])
