"""Large receive offload, of ports and of whole switches."""

import pytest
from harness import ANY, Call, Outcome, run, u32

INVALID = "TypeError: Invalid parameter passed.\n\n"

# The operation, its scope, whether a port is named, whether a state is set
METHODS = {
    "GetPortLRO": ("Ryn_GetLRO", 0, True, False),
    "SetPortLRO": ("Ryn_SetLRO", 0, True, True),
    "GetSwitchLRO": ("Ryn_GetLRO", 1, False, False),
    "SetSwitchLRO": ("Ryn_SetLRO", 1, False, True),
}
GETTERS, SETTERS = ["GetPortLRO", "GetSwitchLRO"], ["SetPortLRO", "SetSwitchLRO"]
every_method = pytest.mark.parametrize("method", METHODS)
getters, setters = pytest.mark.parametrize("method", GETTERS), pytest.mark.parametrize("method", SETTERS)
STATUSES = [1, 2, 0x0BAD0003, 0x80000000, 0xFFFFFFFF]


def arguments(method: str, swID: object = 0, rynPortID: object = 0, state: object = 0) -> tuple:
    _, _, names_port, sets = METHODS[method]
    return (swID, *[rynPortID] * names_port, *[state] * sets)


def call(method: str, swID: int = 0, rynPortID: int = 0, state: int = 0) -> Call:
    op, scope, names_port, sets = METHODS[method]
    last = {"state": state} if sets else {"zeroed": True}
    return Call(op, scope=scope, swID=swID, rynPortID=rynPortID if names_port else 0, **last)


@every_method
@pytest.mark.parametrize("swID, rynPortID", [(0, 0), (15, 127), (15, 0), (0, 127), (9, 64)])
def test_scope_and_port_that_the_library_gets(ryn, double, method, swID, rynPortID):
    assert run(getattr(ryn, method), *arguments(method, swID, rynPortID, 1)).stderr == ""
    assert double.calls() == [call(method, swID, rynPortID, 1)]


@every_method
def test_every_switch_and_port_reaches_the_library(ryn, double, method):
    for swID in range(16):
        for rynPortID in range(128):
            getattr(ryn, method)(*arguments(method, swID, rynPortID))
    assert double.calls() == [call(method, swID, rynPortID) for swID in range(16) for rynPortID in range(128)]


@getters
@pytest.mark.parametrize(
    "state, is_on",
    [
        (0, False),
        (1, True),
        (2, True),
        (0x100, True),
        (0x10000, True),
        (0x1000000, True),
        (0x7FFFFFFF, True),
        (0x80000000, True),
        (0xFFFFFFFF, True),
    ],
)
def test_any_state_but_0_is_on(ryn, double, method, state, is_on):
    double.answer("Ryn_GetLRO", area=u32(state))
    assert run(getattr(ryn, method), *arguments(method)) == Outcome(is_on)


@getters
def test_state_that_the_library_does_not_store_is_off(ryn, double, method):
    assert run(getattr(ryn, method), *arguments(method)) == Outcome(False)


@getters
@pytest.mark.parametrize("status", STATUSES)
@pytest.mark.parametrize("state", [0, 1])
def test_state_that_cannot_be_read_is_none_and_not_false(ryn, double, method, status, state):
    double.answer("Ryn_GetLRO", status=status, area=u32(state))
    assert run(getattr(ryn, method), *arguments(method)) == Outcome(None, "ValueError: Failed to get LRO.\n\n")


@setters
@pytest.mark.parametrize(
    "state, passed_on",
    [
        (0, 0),
        (1, 1),
        (2, 2),
        (7, 7),
        (True, 1),
        (False, 0),
        (0x7FFFFFFF, 0x7FFFFFFF),
        (1 << 31, 1 << 31),
        (0xFFFFFFFF, 0xFFFFFFFF),
        (-1, 0xFFFFFFFF),
        (1 << 32, 0),
        ((1 << 32) + 7, 7),
    ],
)
def test_state_is_passed_on_as_it_is_and_not_made_0_or_1(ryn, double, method, state, passed_on):
    assert run(getattr(ryn, method), *arguments(method, 0, 0, state)) == Outcome(None)
    assert double.calls() == [call(method, 0, 0, passed_on)]


@setters
@pytest.mark.parametrize("status", STATUSES)
def test_state_that_cannot_be_set(ryn, double, method, status):
    double.answer("Ryn_SetLRO", status=status)
    assert run(getattr(ryn, method), *arguments(method)) == Outcome(None, "ValueError: Failed to set LRO.\n\n")


@every_method
@pytest.mark.parametrize("swID", [16, 17, 65536, 1 << 31, 0xFFFFFFFF, -1, -16, (1 << 32) + 16])
def test_switch_out_of_range(ryn, double, method, swID):
    assert run(getattr(ryn, method), *arguments(method, swID)) == Outcome(None, INVALID)
    assert double.calls() == []


@pytest.mark.parametrize("method", ["GetPortLRO", "SetPortLRO"])
@pytest.mark.parametrize("rynPortID", [128, 129, 65536, 1 << 31, 0xFFFFFFFF, -1, -128, (1 << 32) + 128])
def test_port_out_of_range(ryn, double, method, rynPortID):
    assert run(getattr(ryn, method), *arguments(method, 15, rynPortID)) == Outcome(None, INVALID)
    assert double.calls() == []


@every_method
@pytest.mark.parametrize("wrong", ["0", None, 0.0, 1j, b"\0", [], "\udc80"])
def test_what_is_no_number(ryn, double, method, wrong):
    for place in range(len(arguments(method))):
        args = list(arguments(method))
        args[place] = wrong
        assert run(getattr(ryn, method), *args) == Outcome(None, INVALID, (TypeError, ANY)), place
    assert double.calls() == []


@every_method
def test_wrong_number_of_arguments(ryn, double, method):
    for count in {*range(5)} - {len(arguments(method))}:
        assert run(getattr(ryn, method), *(0,) * count) == Outcome(None, INVALID, (TypeError, ANY)), count
    assert double.calls() == []
