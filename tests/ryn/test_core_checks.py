"""Every call of the core under what should not happen: failing operations, hostile answers, memory that runs out,
and calls that keep something.
"""

from __future__ import annotations

import gc
import random
import sys
from itertools import repeat
from typing import Any, Callable

import pytest
from core_calls import CALLS, CoreCall
from harness import UNDER_ASAN, Bytes, Double, lost_blocks, run

IDS = [f"{call.name}-{call.op}" for call in CALLS]
READS = [call for call in CALLS if call.size]
STATUSES = [1, 0x0BAD0003, 0x0BAD0007, 0x80000000, 0xFFFFFFFF]
LOOKUPS = {"host_property", "port_property"}


@pytest.fixture
def core(_module, double: Double):
    import ryn._core

    double.recording(False)
    return ryn._core


def consume(value: Any) -> None:
    """Touches all that a result shows."""
    repr(value)
    if isinstance(value, (list, tuple)):
        for each in value[:100]:
            consume(each)
    elif type(value).__name__ == "MacTable":
        for row in (*value[:50], *value[-50:]):
            repr(row)
        value.find("02:*")
        memoryview(value).tobytes()


def outcome(function: Callable, *args: Any) -> BaseException | None:
    try:
        consume(function(*args))
    except Exception as error:
        return error
    return None


def test_every_call_stands_in_the_table(core):
    rows = {call.name for call in CALLS}
    methods = {name for name in dir(core.Platform) if not name.startswith("_")} - {"timeout"}
    elsewhere = {"ports", "all_counters", "flows", "configured_switches", "init_fastslabs"}
    assert methods - rows - elsewhere == set(), "add a row for each to tests/ryn/core_calls.py"
    assert methods - rows == elsewhere


@pytest.mark.parametrize("timeout", [None, 30.0])
@pytest.mark.parametrize("call", CALLS, ids=IDS)
def test_failing_operation(core, double, call: CoreCall, timeout):
    """The error has the operation, its arguments and the status; nothing is printed."""
    import ryn

    double.answer(call.op)
    for status in STATUSES:
        double.answer(call.op, status=status)
        result = run(getattr(core.Platform(timeout), call.name), *call.args)
        assert result.stderr == ""
        if call.op == "Ryn_Get_Uplink_Priv_Stats_Len":
            assert (result.value, result.error) == ("", None)  # no length, no text
        elif call.name in LOOKUPS and status == 0x0BAD0003:
            assert (result.value, result.error) == (None, None)
        else:
            kinds = {0x0BAD0003: ryn.NotFound, 0x0BAD0007: ryn.BadParameter}
            with pytest.raises(kinds.get(status, ryn.PlatformError)) as raised:
                getattr(core.Platform(timeout), call.name)(*call.args)
            error = raised.value
            assert (error.operation, error.status) == (call.op, status) and isinstance(error.arguments, tuple)
            assert call.op in str(error) and f"0x{status:08x}" in str(error)
            for argument in error.arguments:
                assert repr(argument) in str(error)


@pytest.mark.parametrize("call", READS, ids=[f"{call.name}-{call.op}" for call in READS])
def test_hostile_answers(core, double, call: CoreCall):
    """Whatever the answer, a call ends in a result that can be looked at or in an error of the package."""
    import ryn

    chance = random.Random(call.name)
    function = getattr(core.Platform(), call.name)
    if call.op == "Ryn_Get_Uplink_Priv_Stats_Len":
        double.answer("Ryn_Get_Uplink_Priv_Stats", area=b"\xff" * 64)
    size = min(call.size, 65536)
    answers = [b"", b"\0" * size, b"\xff" * size, b"\x7f" * size, b"\1" * size, b"\2\0" * (size // 2)]
    answers += [chance.randbytes(size) for _ in range(20)]
    for _ in range(60):  # small numbers in the first words, where counts and lengths stand
        head = b"".join(
            chance.choice([0, 1, 3, 63, 64, 65, 127, 128, 255, 0xFFFF, 1 << 31, (1 << 32) - 1]).to_bytes(4, "little")
            for _ in range(8)
        )
        answers.append((head + chance.randbytes(size))[:size])
    for answer in answers:
        double.answer(call.op, area=answer)
        error = outcome(function, *call.args)
        assert error is None or isinstance(error, ryn.Error), error
    handed_out, freed = double.blocks()
    assert handed_out == freed


FLOW_SIZES = [0, 1, 63, 64, 65, 240, 304, 10239, 65535]


def flow_page(rows: int, length: int, valid: int, start: int = 0) -> Bytes:
    page = Bytes(10260).u32(8, start, rows, valid)
    at = 20
    for _ in range(rows):
        if at + 128 > 10260:
            break
        page.u16(at + 126, length)
        at += 64 + length
    return page


def test_hostile_flow_pages(core, double):
    import ryn

    platform = core.Platform()
    for rows in (1, 2, 33, 80, 81, 1000, 1 << 31, (1 << 32) - 1):
        for length in FLOW_SIZES:
            for valid in (0, 20, 147, 148, 10260, 10261, (1 << 32) - 1):
                double.answer("Ryn_Dump_Flow_Table", area=flow_page(rows, length, valid), times=1)
                double.answer("Ryn_Dump_Flow_Table")
                walk = platform.flows(0, 0, False, None)
                try:
                    for _, flow in zip(range(2000), walk):
                        repr(flow)
                except ryn.InvalidResponse as error:
                    assert error.operation == "Ryn_Dump_Flow_Table"
                    assert list(walk) == []
                else:
                    assert 20 + 128 <= valid


# ---- What calls keep


def answers_of(call: CoreCall) -> list[dict[str, Any]]:
    """No answer, one of a few records, one that is malformed or full, and a failure."""
    few = Bytes(call.size or 1)
    if call.size >= 8:
        few.u32(0, 1, 1)
    return [{"area": few}, {"area": b"\xff" * min(call.size, 9000)}, {"status": 7}]


@pytest.mark.skipif(sys.getallocatedblocks() == 0, reason="PYTHONMALLOC: no blocks are counted")
@pytest.mark.parametrize("timeout", [None, 30.0])
@pytest.mark.parametrize("call", CALLS, ids=IDS)
def test_calls_keep_nothing(core, double, call: CoreCall, timeout):
    function = getattr(core.Platform(timeout), call.name)
    for answer in answers_of(call):
        double.answer(call.op, **answer)
        work = lambda: outcome(function, *call.args)  # noqa: E731
        work()
        # A leak is a block a call at least; the worker may hold a few blocks at the moment of the second count.
        assert lost_blocks(work) <= (0 if timeout is None else 0.5)
    handed_out, freed = double.blocks()
    assert handed_out == freed


def resident() -> int:
    with open("/proc/self/statm") as statm:
        return int(statm.read().split()[1]) * 4096


@pytest.mark.skipif(UNDER_ASAN, reason="AddressSanitizer keeps freed memory for a while")
@pytest.mark.parametrize("timeout", [None, 30.0])
def test_large_answers_are_given_back(core, double, timeout):
    """Native areas are no blocks of the interpreter: a lost one would show after a few calls."""
    double.answer("Ryn_Dump_Switch_MAC_Table", area=Bytes(1310736).u32(0, 65536))
    double.answer("Ryn_Get_Port_NetQ_Info", status=5)
    platform = core.Platform(timeout)

    def work() -> None:
        table = platform.switch_macs(0)
        table[::2].select(vlan=0)
        outcome(platform.netq, 0, 0)

    for _ in range(5):
        work()
    before = resident()
    for _ in repeat(None, 100):
        work()
    assert resident() - before < 16 << 20  # a leak of one of the areas were 32 MiB at least


# ---- Memory that runs out


@pytest.mark.parametrize("call", CALLS, ids=IDS)
def test_allocations_that_fail(core, double, call: CoreCall):
    """Each allocation of the interpreter fails, alone and with all behind it: MemoryError or the good result."""
    import ryn.names  # noqa: F401  what is imported at first use is there

    for answer in answers_of(call)[:1]:
        double.answer(call.op, **answer)
        function = getattr(core.Platform(), call.name)
        good = run(function, *call.args)
        assert good.error is None
        for following in (False, True):
            for n in range(1000):
                result = run(function, *call.args, failing_allocation=n, following=following)
                assert result.stderr == ""
                assert result.error is None or result.error[0] is MemoryError, (n, result)
                if not result.allocation_failed:
                    break
            else:
                pytest.fail("it never succeeds")
        assert run(function, *call.args) == good
    gc.collect()
