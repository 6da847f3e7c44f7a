"""Malformed answers and malicious arguments. Most useful under the sanitizers: ./dev asan.

Whatever the platform answers and whatever a script passes, no call reads or writes outside its memory, takes more than
a second or 64 MiB, prints anything but its own texts, or leaves any other error than its own.
"""

from __future__ import annotations

import re
import time
from pathlib import Path

import pytest
from harness import BUFFER, MISSING, NULL, UNDER_ASAN, Double, Outcome, python, run, u32
from hostile_answers import RESPONSES, Field, Response
from method_table import METHODS, Method

MEBIBYTE = 1 << 20
MOST_SECONDS = 10 if UNDER_ASAN else 1  # it also marks each byte of an area, of which a response may ask for 4 GiB

STATUSES = [1, 3, 7, 0x0BAD0003, 0x0BAD0007, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF]


def resident_memory() -> int:
    """Now; the peak is forgotten, so that peak_memory() tells that from here on."""
    Path("/proc/self/clear_refs").write_text("5")
    return memory_of("VmRSS")


def peak_memory() -> int:
    return memory_of("VmHWM")


def memory_of(name: str) -> int:
    found = re.search(rf"^{name}:\s+(\d+) kB$", Path("/proc/self/status").read_text(), re.MULTILINE)
    assert found
    return int(found[1]) * 1024


# The texts that a response alone can cause
TEXTS = re.compile(
    r"(Invalid response returned\.\n|Invalid action\n|Failed to allocate memory\.\n"
    r"|Format of property com\.talvor\.kiv\.ryn\.\w+ value is from unknown version\.\n)?"
)


def check(ryn, response: Response, name: str) -> None:
    start = time.process_time()
    outcome = run(getattr(ryn, response.method), *response.args)
    seconds = time.process_time() - start
    assert seconds < MOST_SECONDS, name
    assert TEXTS.fullmatch(outcome.stderr), (name, outcome)
    if outcome.error is None:
        assert outcome.value is not NULL and (outcome.value is None) == bool(outcome.stderr), (name, outcome)
    else:  # names and texts that are no UTF-8
        assert outcome == Outcome(None, error=BUFFER) or outcome.error[0] is UnicodeDecodeError, (name, outcome)


@pytest.mark.parametrize("response", RESPONSES, ids=lambda response: response.id)
def test_fields_out_of_their_range(ryn, double: Double, response: Response):
    double.recording(False)
    response.prepare(double)
    before = resident_memory()
    for name, area in response.areas():
        double.answer(response.op, area=area)
        check(ryn, response, name)
    if response.op.startswith("Ryn_"):
        for value in Field(0, 4, response.size).values():  # the length word as the library leaves it
            double.answer(response.op, area=response.zeros(), length=value)
            check(ryn, response, f"length {value:#x}")
        double.answer(response.op)
        check(ryn, response, "nothing filled in")
    handed_out, freed = double.blocks()
    assert handed_out == freed
    assert peak_memory() - before <= 64 * MEBIBYTE or UNDER_ASAN


# What the datapath runs with, and what comes of it when a property cannot be read, for whatever reason
RUNNING = {
    "Ryn_GetCurrentLBData": u32(0, 1, 2000, 80, 70, 60),
    "Ryn_GetSwitchNUMATeam": b"\1",
    "Ryn_GetSwitchBurstSize": u32(33),
}
OF_THE_DATAPATH = {
    "GetLBParams": (
        ("LCore usage threshold high", 2000),
        ("LCore usage threshold low", 80),
        ("LCore usage diff to pause balancing", 70),
        ("Traffic variation sensitivity", 60),
    ),
    "SetLBParams": True,
    "GetLBAlgorithm": "cpu",
    "SetLBAlgorithm": True,
    "GetSwitchNUMATeam": True,
    "GetSwitchBurstSize": 33,
}
# And without one whose absence is no failure
WITHOUT_PROPERTY = {"GetFPOEnabled": 1, "GetUplinkRingSize": (2048, 1024)}


@pytest.mark.parametrize("method", METHODS, ids=lambda method: method.name)
def test_status_codes(ryn, double: Double, method: Method):
    """The code of a failing operation makes no difference, except where a table says so."""
    failures = {failure.name: failure for failure in method.failures if failure.name.startswith(("Ryn_", "DVSQOB_"))}
    function = getattr(ryn, method.name)
    for op in {call.op for call in method.calls} - {"DVSQOB_DataFree"}:
        for status in STATUSES:
            double.reset()
            method.script(double)
            for running, area in RUNNING.items():
                double.answer(running, area=area)
            double.answer(op, status=status)
            outcome = run(function, *method.args)
            if op == "Ryn_DumpLBSnapshot":
                expected = Outcome(None, f"ValueError: Failed to dump LB topology: {status:#x}.\n")
            elif op == "DVSQOB_HostPropGet" and method.name in OF_THE_DATAPATH:
                expected = Outcome(OF_THE_DATAPATH[method.name])
            elif status == MISSING and op in ("DVSQOB_HostPropGet", "DVSQOB_PortDataGet"):
                expected = Outcome(WITHOUT_PROPERTY[method.name])
            else:
                described = failures[op].outcome
                assert described
                expected = described
            assert outcome == expected, (op, hex(status))
            assert outcome.value is not NULL or method.name == "GetUplinkStats"
            handed_out, freed = double.blocks()
            assert handed_out == freed


@pytest.mark.parametrize("method", METHODS, ids=lambda method: method.name)
def test_success_with_nothing_filled_in(ryn, double: Double, method: Method):
    """Each operation alone, then all of them, answers 0 and leaves everything as it is."""
    ops = {call.op for call in method.calls}
    for silent in (*({op} for op in ops), ops):
        double.reset()
        method.script(double)
        for op in silent:
            double.answer(op)
        outcome = run(getattr(ryn, method.name), *method.args)
        assert outcome.error is None and outcome.value is not NULL, silent
        refused = outcome.value is None or outcome.value is False
        assert refused or not outcome.stderr, (silent, outcome)
        handed_out, freed = double.blocks()
        assert handed_out == freed


@pytest.mark.parametrize("response", RESPONSES, ids=lambda response: response.id)
def test_nothing_filled_in_shows_nothing_of_an_earlier_answer(ryn, double: Double, response: Response):
    """An area that was used before, on the heap, on the stack or in the module, is empty at the next call."""
    function = getattr(ryn, response.method)
    double.recording(False)
    response.prepare(double)
    double.answer(response.op, area=bytes(response.size))
    empty = run(function, *response.args)
    for fill in response.largest():
        double.answer(response.op, area=fill)
        full = run(function, *response.args)
        if response.op in ("DVSQOB_HostPropGet", "DVSQOB_PortDataGet"):  # which hand out a block, or none
            double.answer(response.op, area=bytes(response.size))
        else:
            double.answer(response.op)
        assert run(function, *response.args) == empty
    assert full != empty


@pytest.mark.parametrize(
    "method",
    [
        method
        for method in METHODS
        if method.name.startswith("Get")
        and method.calls
        and method.calls[0].op in ("DVSQOB_HostPropGet", "DVSQOB_PortDataGet")
    ],
    ids=lambda method: method.name,
)
def test_properties_of_any_length(ryn, double: Double, method: Method):
    op = method.calls[0].op
    function = getattr(ryn, method.name)
    for size in [*range(33), 64, 255, 4096]:
        for fill in (b"\0", b"\1", b"\xff"):
            double.reset()
            method.script(double)
            double.answer(op, area=fill * size)
            outcome = run(function, *method.args)
            assert outcome.error is None and outcome.value is not NULL
            assert double.blocks() == (1, 1)
    for length in (0, 1, 24, 0xFFFFFFFF):  # success without a block
        double.reset()
        method.script(double)
        double.answer(op, length=length)
        outcome = run(function, *method.args)
        assert outcome.value is None and outcome.stderr and outcome.error is None


def test_arguments_and_hooks_that_mean_harm():
    checked = {} if UNDER_ASAN else {"PYTHONMALLOC": "debug"}
    done = python("import hostile_objects; hostile_objects.attack()", **checked)
    assert (done.returncode, done.stdout, done.stderr) == (0, "unharmed\n", "")
