"""What every method has in common, tested for each row of method_table.py."""

import re
from functools import partial
from itertools import repeat
from pathlib import Path
from typing import Callable

import _probe
import pytest
from harness import ANY, Call, Double, Outcome, capture_stderr, lost_blocks, run
from memory import native_bytes
from method_table import METHODS, Failure, Method
from objects import for_the_parser


def methods(which: Callable[[Method], object]) -> pytest.MarkDecorator:
    return pytest.mark.parametrize(
        "method", [method for method in METHODS if which(method)], ids=lambda method: method.name
    )


every_method = methods(lambda method: True)
every_failure = pytest.mark.parametrize(
    "method, failure",
    [(method, failure) for method in METHODS for failure in method.failures],
    ids=[f"{method.name}-{failure.name}" for method in METHODS for failure in method.failures],
)


class BadIndex:
    def __index__(self):
        raise KeyError("index")


# A method without a row here, or out of order, fails.
def test_every_method_has_its_row(ryn):
    assert [name for name in vars(ryn) if not name.startswith("__")] == [method.name for method in METHODS]


def test_rows_reach_every_operation_of_the_datapath_library():
    header = (Path(__file__).parents[2] / "platform" / "ryn.h").read_text()
    reached = {call.op for method in METHODS for call in method.calls if call.op.startswith("Ryn_")}
    fallbacks = {"Ryn_GetCurrentLBData", "Ryn_GetSwitchNUMATeam", "Ryn_GetSwitchBurstSize"}  # without a property
    assert fallbacks <= {failure.name for method in METHODS for failure in method.failures}
    declared = set(re.findall(r"^uint32_t (Ryn_\w+)\(", header, re.MULTILINE))
    assert declared - reached - fallbacks == set(), "add a row for each to tests/support/method_table.py"
    assert reached | fallbacks == declared


def platform_calls(double: Double) -> list[Call]:
    """But for the look-ups in the switch configuration."""
    return [call for call in double.calls() if call.op.startswith(("Ryn_", "DVSQOB_"))]


@every_method
def test_good_call(ryn, double, method: Method):
    method.script(double)
    assert run(getattr(ryn, method.name), *method.args) == Outcome(method.value)
    assert platform_calls(double) == method.calls
    handed_out, freed = double.blocks()
    assert handed_out == freed


@every_method
def test_order_of_keys(ryn, double, method: Method):
    method.script(double)
    assert repr(run(getattr(ryn, method.name), *method.args).value) == repr(method.value)


def wrong_arguments(method: Method):
    """Each unit of the format refused in turn, with the error that the parser sets."""
    yield "too few", method.args[:-1], TypeError
    yield "too many", (*method.args, 0), TypeError
    for place, unit in enumerate(method.format or ""):
        units: dict[str, list] = {
            "I": [("a text", TypeError), (BadIndex(), KeyError)],
            "L": [("a text", TypeError), (BadIndex(), KeyError), (1 << 63, OverflowError)],
            "s": [(5, TypeError), (None, TypeError), ("a\0b", ValueError), ("\udc80", UnicodeEncodeError)],
            "O": [],
        }
        for value, error in units[unit]:
            yield f"{value!r} at {place}", (*method.args[:place], value, *method.args[place + 1 :]), error


@methods(lambda method: method.format is not None)
def test_wrong_arguments(ryn, double, method: Method):
    method.script(double)
    for name, args, error in wrong_arguments(method):
        outcome = run(getattr(ryn, method.name), *args)
        assert outcome == Outcome(method.invalid_value, method.invalid or "", (error, ANY)), name
        assert double.calls() == [], name


@methods(lambda method: method.format is None)
def test_arguments_are_not_looked_at(ryn, double, method: Method):
    method.script(double)
    assert run(getattr(ryn, method.name), "a text", 5, None) == Outcome(method.value)


@every_method
def test_keyword_arguments_are_refused(ryn, double, method: Method):
    with pytest.raises(TypeError, match="takes no keyword arguments"):
        getattr(ryn, method.name)(*method.args, x=1)
    assert double.calls() == []


@every_method
def test_arguments_out_of_range(ryn, double, method: Method):
    method.script(double)
    refused = [
        (*method.args[:place], value, *method.args[place + 1 :])
        for place, maximum in enumerate(method.maxima)
        if maximum is not None
        for value in (maximum + 1, -1, 0xFFFFFFFF)
    ]
    for args in [*refused, *method.refused]:
        assert run(getattr(ryn, method.name), *args) == Outcome(method.invalid_value, method.invalid or ""), args
        assert double.calls() == [], args


@methods(lambda method: method.maxima)
def test_greatest_arguments_are_accepted(ryn, double, method: Method):
    method.script(double)
    greatest = tuple(
        value if maximum is None else maximum
        for value, maximum in zip(method.args, (*method.maxima, *repeat(None, len(method.args))))
    )
    outcome = run(getattr(ryn, method.name), *greatest)
    assert (outcome.stderr, outcome.error) == ("", None)
    assert double.ops() == [call.op for call in method.calls]


@methods(lambda method: method.format)
def test_numbers_wrap(ryn, double, method: Method):
    """A number is taken modulo 2**32: 2**32 more than the good call's makes the same call."""
    method.script(double)
    wrapped = tuple(arg + (1 << 32) if unit == "I" else arg for unit, arg in zip(method.format or "", method.args))
    assert run(getattr(ryn, method.name), *wrapped) == Outcome(method.value)


@methods(lambda method: method.format)
def test_arguments_that_only_the_parser_reads(ryn, double, method: Method):
    """A subclass of str and what has an __index__ make the same call as the plain types."""
    method.script(double)
    assert run(getattr(ryn, method.name), *map(for_the_parser, method.args)) == Outcome(method.value)
    assert platform_calls(double) == method.calls


@every_failure
def test_failure(ryn, double, method: Method, failure: Failure):
    method.script(double)
    failure.script(double)
    args = method.args if failure.args is None else failure.args
    assert run(getattr(ryn, method.name), *args) == failure.outcome
    handed_out, freed = double.blocks()
    assert handed_out == freed


def test_every_operation_fails_in_some_row():
    """A row for each operation that a good call makes, except those whose status has no effect."""
    unseen = {"DVSQOB_DataFree"}
    for method in METHODS:
        failing = {failure.name for failure in method.failures}
        # A property that can't be read is not a failure: the datapath's value stands in, or 1 without one.
        missing = {call.op for call in method.calls} - failing - unseen - {"DVSQOB_HostPropGet"}
        assert missing == set(), method.name


# Leaks: exact counts over many calls, of the interpreter's blocks and of the C library's


@every_method
def test_good_call_does_not_leak(ryn, double, method: Method):
    method.script(double)
    assert lost_blocks(partial(_probe.call, getattr(ryn, method.name), method.args, -1)) == method.leaks


@every_failure
def test_failure_does_not_leak(ryn, double, method: Method, failure: Failure):
    method.script(double)
    failure.script(double)
    args = method.args if failure.args is None else failure.args
    assert lost_blocks(partial(_probe.call, getattr(ryn, method.name), args, -1)) == failure.leaks


@methods(lambda method: method.format)
def test_refused_arguments_do_not_leak(ryn, double, method: Method):
    for name, args, _ in wrong_arguments(method):
        assert lost_blocks(partial(_probe.call, getattr(ryn, method.name), args, -1)) == 0, name


@pytest.mark.skipif(native_bytes() == 0, reason="a sanitizer's allocator tells nothing")
@every_method
def test_native_areas_are_freed(ryn, double, method: Method):
    """What the C library has allocated, over good calls and every failure that has no deliberate leak."""
    function = getattr(ryn, method.name)
    ways = [None] * (not method.leaks) + [failure for failure in method.failures if not failure.leaks]

    def call_in_every_way() -> None:
        for failure in ways:
            double.reset()
            double.recording(False)
            method.script(double)
            if failure:
                failure.script(double)
            args = failure.args if failure and failure.args is not None else method.args
            _probe.call(function, args, -1)
            _probe.call(function, args, -1)
        double.reset()

    def growth(rounds: int) -> int:
        before = native_bytes()
        for _ in range(rounds):
            call_in_every_way()
        return native_bytes() - before

    with capture_stderr():
        call_in_every_way()
        # The interpreter's own work now and then takes or gives back a block: a leak shows every time.
        growths = [growth(10) for _ in range(5)]
    assert 0 in growths


# Failing allocations


@every_method
def test_failing_allocations(ryn, double, method: Method):
    """Each allocation of the interpreter fails once, until one call needs no more of them."""
    method.script(double)
    function = getattr(ryn, method.name)
    assert run(function, *method.args) == Outcome(method.value)  # texts that are made once are made
    double.recording(False)
    for n in range(10000):
        outcome = run(function, *method.args, failing_allocation=n)
        if not outcome.allocation_failed:
            break
        assert outcome in method.no_memory, n
    assert outcome == Outcome(method.value)
    assert (n > 0) == bool(method.no_memory)
    handed_out, freed = double.blocks()
    assert handed_out == freed


@methods(lambda method: method.no_memory and not method.leaks)
def test_failing_allocations_do_not_leak(ryn, double, method: Method):
    method.script(double)
    function, args = getattr(ryn, method.name), method.args

    def fail_each() -> None:
        failed, n = True, 0
        while failed:
            failed = _probe.call(function, args, n)[3]
            n += 1

    assert lost_blocks(fail_each) == 0
