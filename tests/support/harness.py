"""The test harness: the platform double from Python, exact outcomes of calls, and byte areas built by offset.

A test takes the fixtures `ryn` (the module), `double` (the platform double, cleared before each test) and, for the
exported entry points, `native` (ctypes.PyDLL of the module's file). It scripts what the platform answers, runs the
method, and compares the whole outcome and the recorded calls::

    from harness import ANY, NULL, Bytes, Call, Outcome, run, u32

    def test_lists_the_switches(ryn, double):
        area = Bytes(2568).u32(0, 1)                              # areas are written by offset
        area.text(8, "dvs-1").u32(8 + 128, 3).u64(8 + 152, 1 << 63)
        double.answer("Ryn_Get_Switch_List", area=area)           # status 0, every call
        outcome = run(ryn.ListSwitches)
        assert outcome == Outcome([{"name": "dvs-1", ...}])       # value, nothing on stderr, no error
        assert list(outcome.value[0]) == ["name", "swID", ...]    # the order of keys is checked separately
        assert double.calls() == [Call("Ryn_Get_Switch_List", length=2568, zeroed=True)]

    def test_failures(ryn, double):
        assert run(ryn.ListPorts, 16) == Outcome(None, "TypeError: Invalid switch ID passed.\\n")
        assert run(ryn.ListPorts, "x") == Outcome(None, "TypeError: Invalid switch ID passed.\\n", (TypeError, ANY))
        assert double.calls() == []                               # the library was not called
        double.answer("Ryn_Get_Port_List", status=5)
        assert run(ryn.ListPorts, 3) == Outcome(None, "Failed to retrieve list of ports.\\n")

    def test_null(ryn, double):                                   # null without an error, or with one
        double.answer("Ryn_Get_Uplink_Stats", status=1)
        assert run(ryn.GetUplinkStats, 0, 0) == Outcome(NULL, "Failed to get uplink stats.\\n")

    def test_property(ryn, double):                               # aliases and properties
        double.add_switch("dvs-1", id="id-1")                     # also host={...}, global_={...}, class_name="vswitch"
        double.answer("DVSQOB_HostPropGet", area=u32(0, 1))       # the block's exact bytes
        assert run(ryn.GetSwitchBurstSize, "dvs-1") == Outcome(1)
        assert double.blocks() == (1, 1)                          # handed out, freed

`run` calls the method past the interpreter's own check, so that a result given together with an error shows as both.
`Outcome.error` is None or (type, text). `run(..., failing_allocation=n)` lets the n-th allocation of the interpreter
fail (and all after it with following=True), and `outcome.allocation_failed` tells whether the call got that far.

    def test_does_not_leak(ryn, double):
        assert lost_blocks(lambda: ryn.ListPorts(0)) == 0         # of the interpreter's memory, per call

Answers: `double.answer(op, status=, area=, length=, times=, overrun=)`. With `times=N` it serves the next N calls,
otherwise all calls for which no counted answer is left. `length=` is what goes into the length word (it is left alone
by default). An area's bytes are cut to the room that there is, unless overrun=True. An operation without a script
answers 0 and fills nothing; the look-ups of switches and properties answer from the switches that were added.
Scalar outputs are areas too: area=u32(1).

What happens while the module is loaded is scripted by the environment of a fresh interpreter (tests/double/double.h)::

    done = python("import _libryn, harness; print(harness.set_up().ops())", RYN_DOUBLE_LOAD="stateget=3")

Recorded arguments have the names of the prototypes in platform/*.h; texts come as str, arrays of integers as lists,
others as bytes, the length word as it came in as `length`, and `zeroed` says whether the output area came in all zero.
"""

from __future__ import annotations

import contextlib
import ctypes
import gc
import json
import os
import struct
import subprocess
import sys
from array import array
from dataclasses import dataclass, field
from itertools import repeat
from pathlib import Path
from typing import Any, Callable, Iterator
from unittest.mock import ANY

__all__ = [
    "ANY",
    "BUFFER",
    "DICT_ITEM",
    "LIST_ITEM",
    "MISSING",
    "NULL",
    "Bytes",
    "Call",
    "Double",
    "Outcome",
    "TOOLS",
    "UNDER_ASAN",
    "capture_stderr",
    "leave",
    "lost_blocks",
    "python",
    "run",
    "u8",
    "u16",
    "u32",
    "u64",
]

UNDER_ASAN = "libasan" in os.environ.get("LD_PRELOAD", "")  # keeps freed memory for a while

# The environment of other programs: a sanitizer that is preloaded for the module does not concern them.
TOOLS = {name: value for name, value in os.environ.items() if name not in ("LD_PRELOAD", "LD_LIBRARY_PATH")}

MISSING = 0xBAD0003  # the status of a property that is not there

# The three errors of building results
BUFFER = (SystemError, "Failed to allocate buffer.\n")
LIST_ITEM = (SystemError, "Failed to set list item.\n")
DICT_ITEM = (SystemError, "Failed to set dict item.\n")


class _Null:
    def __repr__(self) -> str:
        return "NULL"


NULL = _Null()  # a null result


@dataclass
class Outcome:
    """The outcome of a call: its result (or NULL), the exact text on standard error, Python's error as (type, text)."""

    value: Any
    stderr: str = ""
    error: tuple | None = None
    allocation_failed: bool = field(default=False, compare=False, repr=False)

    def __post_init__(self) -> None:
        # True == 1, but the two are different results
        self.kind = type(self.value)

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, Outcome):
            return NotImplemented
        return (self.value, self.stderr, self.error) == (other.value, other.stderr, other.error) and (
            self.kind is other.kind or self.value is ANY or other.value is ANY
        )


@contextlib.contextmanager
def capture_stderr() -> Iterator[list[str]]:
    """Takes what the process writes to file descriptor 2; the list holds the one text afterwards."""
    texts: list[str] = []
    saved, file = os.dup(2), os.memfd_create("stderr")
    try:
        os.dup2(file, 2)
        yield texts
    finally:
        os.dup2(saved, 2)
        texts.append(os.pread(file, os.fstat(file).st_size, 0).decode("utf-8", "surrogateescape"))
        os.close(saved)
        os.close(file)


def run(function: Any, *args: Any, failing_allocation: int = -1, following: bool = False) -> Outcome:
    import _probe

    with capture_stderr() as texts:
        has_result, result, error, allocation_failed = _probe.call(function, args, failing_allocation, following)
    return Outcome(
        result if has_result else NULL,
        texts[0],
        None if error is None else (type(error), str(error)),
        allocation_failed,
    )


def python(code: str, **environment: str) -> subprocess.CompletedProcess[str]:
    """Runs code in a fresh interpreter, with this module to import, under further environment settings."""
    settings = {**os.environ, **environment}
    settings["PYTHONPATH"] = os.pathsep.join([str(Path(__file__).parent), settings["PYTHONPATH"]])
    # Not in the root, whose ryn/ lacks what is built
    return subprocess.run(
        [sys.executable, "-c", code],
        env=settings,
        text=True,
        capture_output=True,
        timeout=60,
        cwd=Path(__file__).parent,
    )


def leave(status: int) -> None:
    """Ends a child of a test: the interpreter's own end is left out, but not what loaded libraries do at exit."""
    sys.stdout.flush()
    sys.stderr.flush()
    ctypes.CDLL(None).exit(status)


def lost_blocks(work: Callable[[], object], calls: int = 100) -> float:
    """The interpreter's blocks that each call of `work` loses, exactly. Skips where it does not count them.

    The default of calls is more than the interpreter's free lists hold. For a call that fails, `work` is best
    partial(_probe.call, function, args, -1): an exception that is raised takes memory of its own.
    """
    if sys.getallocatedblocks() == 0:
        import pytest  # not there for every interpreter that uses this file

        pytest.skip("PYTHONMALLOC: the interpreter counts no blocks")
    double = Double()
    double.recording(False)
    counts = array("q", [0, 0])  # an int object for the first count would be counted by the second
    gc.collect()
    gc.disable()
    try:
        with capture_stderr():
            for place in (0, 1):
                for _ in repeat(None, calls):  # the first round warms up and fills the free lists
                    work()
                counts[place] = sys.getallocatedblocks()
    finally:
        gc.enable()
        double.recording(True)
    return (counts[1] - counts[0]) / calls


def u8(*values: int) -> bytes:
    return struct.pack(f"<{len(values)}B", *values)


def u16(*values: int) -> bytes:
    return struct.pack(f"<{len(values)}H", *values)


def u32(*values: int) -> bytes:
    return struct.pack(f"<{len(values)}I", *values)


def u64(*values: int) -> bytes:
    return struct.pack(f"<{len(values)}Q", *values)


class Bytes(bytearray):
    """A zeroed area of fixed size that is written by offset: Bytes(12).u32(4, 1).text(8, "abc")."""

    def raw(self, offset: int, data: bytes) -> Bytes:
        assert 0 <= offset and offset + len(data) <= len(self), "written past the area"
        self[offset : offset + len(data)] = data
        return self

    def text(self, offset: int, text: str) -> Bytes:
        """The characters alone; the area's zeros terminate them."""
        return self.raw(offset, text.encode())

    def u8(self, offset: int, *values: int) -> Bytes:
        return self.raw(offset, u8(*values))

    def u16(self, offset: int, *values: int) -> Bytes:
        return self.raw(offset, u16(*values))

    def u32(self, offset: int, *values: int) -> Bytes:
        return self.raw(offset, u32(*values))

    def i32(self, offset: int, *values: int) -> Bytes:
        return self.raw(offset, struct.pack(f"<{len(values)}i", *values))

    def u64(self, offset: int, *values: int) -> Bytes:
        return self.raw(offset, u64(*values))


class Call:
    """A recorded call: `call.op`, and its arguments as attributes."""

    def __init__(self, op: str, **args: Any) -> None:
        self.op = op
        self.args = args

    def __getattr__(self, name: str) -> Any:
        try:
            return self.__dict__["args"][name]
        except KeyError:
            raise AttributeError(f"{self!r} has no {name}") from None

    def __eq__(self, other: object) -> bool:
        return isinstance(other, Call) and (self.op, self.args) == (other.op, other.args)

    def __repr__(self) -> str:
        return f"Call({', '.join([repr(self.op), *(f'{name}={value!r}' for name, value in self.args.items())])})"


class _Answer(ctypes.Structure):
    _fields_ = [
        ("status", ctypes.c_uint32),
        ("times", ctypes.c_int32),
        ("area", ctypes.c_char_p),
        ("size", ctypes.c_size_t),
        ("length", ctypes.c_int64),
        ("overrun", ctypes.c_int32),
    ]


def _recorded(value: Any) -> Any:
    if isinstance(value, dict):
        ((kind, digits),) = value.items()
        data = bytes.fromhex(digits)
        return data if kind == "bytes" else data.decode("utf-8", "surrogateescape")
    return value


class Held:
    """A call that waits inside the platform."""

    def __init__(self) -> None:
        self.entered, self.go_on = os.pipe(), os.pipe()

    def wait(self) -> None:
        """Returns when the operation has been called. Lets go of the interpreter lock meanwhile."""
        assert os.read(self.entered[0], 1) == b"\0"

    def release(self) -> None:
        os.write(self.go_on[1], b"\0")

    def close(self) -> None:
        for descriptor in (*self.entered, *self.go_on):
            os.close(descriptor)


class Double:
    """The control side of the platform double in Python; tests/double/double.h tells more."""

    def __init__(self) -> None:
        # By name, so that it is the library that the module is bound to
        self._ryn = ctypes.CDLL("libryn.so")
        if not hasattr(self._ryn, "double_reset"):
            raise RuntimeError("libryn.so is not the platform double; run the tests with ./dev test")
        self.folder = Path(_file_of("libryn.so")).parent
        self._ryn.double_calls.restype = ctypes.c_char_p
        self._ryn.double_blocks_out.restype = ctypes.c_uint64
        self._ryn.double_blocks_freed.restype = ctypes.c_uint64
        self._ryn.double_add_switch.argtypes = [ctypes.c_char_p, ctypes.c_char_p, ctypes.c_char_p, ctypes.c_size_t]
        self._ryn.double_add_property.argtypes = [
            ctypes.c_int,
            ctypes.c_int,
            ctypes.c_char_p,
            ctypes.c_char_p,
            ctypes.c_size_t,
        ]
        self._operations: Any = None

    def reset(self) -> None:
        self._ryn.double_reset()

    def answer(
        self,
        op: str,
        status: int = 0,
        area: bytes | None = None,
        length: int | None = None,
        times: int | None = None,
        overrun: bool = False,
    ) -> None:
        if self._operations is None:
            self._operations = ctypes.CDLL("libjorPublic.so")  # knows libryn.so's too; needs the module to be loaded
        assert hasattr(self._operations, op), f"no such operation: {op}"
        data = None if area is None else bytes(area)
        self._ryn.double_answer(
            op.encode(),
            ctypes.byref(
                _Answer(
                    status,
                    -1 if times is None else times,
                    data,
                    len(data or b""),
                    -1 if length is None else length,
                    overrun,
                )
            ),
        )

    def hold_call(self, op: str) -> Held:
        """Lets the next call of the operation wait until it is told to go on."""
        held = Held()
        self._ryn.double_hold(op.encode(), held.entered[1], held.go_on[0])
        return held

    def calls(self) -> list[Call]:
        return [
            Call(call["op"], **{name: _recorded(value) for name, value in call["args"].items()})
            for call in map(json.loads, self._ryn.double_calls().decode().splitlines())
        ]

    def ops(self) -> list[str]:
        return [call.op for call in self.calls()]

    def forget_calls(self) -> None:
        self._ryn.double_forget_calls()

    def recording(self, on: bool) -> None:
        self._ryn.double_recording(on)

    def add_switch(
        self,
        alias: str | bytes,
        id: str | bytes = "id",
        class_name: str = "vswitch",
        host: dict[str, bytes | str] | None = None,
        global_: dict[str, bytes | str] | None = None,
    ) -> None:
        """Property values: bytes as they are, a str with the terminating NUL. `id` may hold bytes behind a NUL."""
        name, identifier = (text.encode() if isinstance(text, str) else text for text in (alias, id))
        dvs = self._ryn.double_add_switch(name, class_name.encode(), identifier, len(identifier))
        for is_global, properties in enumerate((host, global_)):
            for key, value in (properties or {}).items():
                data = value.encode() + b"\0" if isinstance(value, str) else bytes(value)
                self._ryn.double_add_property(dvs, is_global, key.encode(), data, len(data))

    def visit_all(self, on: bool = True) -> None:
        """Iterations go on after a visitor has said that it found what it looks for."""
        self._ryn.double_visit_all(on)

    def find_port(self, on: bool = True) -> None:
        self._ryn.double_find_port(on)

    def log_hooks(self, on: bool = True) -> None:
        """DVSState_ConfigReset calls Log, Warning and Panic, and records each that came back."""
        self._ryn.double_log_hooks(on)

    def blocks(self) -> tuple[int, int]:
        """Property blocks handed out, and how many of them were freed."""
        return self._ryn.double_blocks_out(), self._ryn.double_blocks_freed()


def _file_of(library: str) -> str:
    """The file that a loaded library came from."""
    for line in Path("/proc/self/maps").read_text().splitlines():
        if line.endswith("/" + library):
            return line.split(maxsplit=5)[5]
    raise RuntimeError(f"{library} is not loaded")


def set_up() -> Double:
    double = Double()
    sys.path.insert(0, str(double.folder))  # where _probe is
    return double
