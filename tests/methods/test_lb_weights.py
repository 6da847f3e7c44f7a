"""The balancer's eight weights: read, set some, reset."""

from __future__ import annotations

import itertools
import random

import pytest
from harness import ANY, BUFFER, DICT_ITEM, Bytes, Call, Outcome, run, u32
from objects import NOT_INTS, Index, RaisingIndex

NAMES = [
    "Cross-NUMA Communication Weight",
    "Cross-NUMA Migration Weight",
    "Cross-Lcore Communication Weight",
    "Cross-Lcore Migration Weight",
    "VM Affinity Weight",
    "Device Affinity Weight",
    "Stability Decay Rate",
    "Port Count Weight",
]
KEEP = 0xFFFFFFFF
CURRENT = [1000, 0, 0x80000000, 7, 0xFFFFFFFE, 1, 0xFFFFFFFF, 300]

INVALID = "TypeError: Invalid parameter passed.\n"
GET_FAILED = "ValueError: Failed to get LB weight parameters.\n"

GET = Call("Ryn_GetLBWeights", zeroed=True)


def set_call(*weights: int) -> Call:
    return Call("Ryn_SetLBWeights", weights=u32(*weights))


@pytest.fixture
def weights(ryn, double):
    """The module over a datapath whose weights are CURRENT."""
    double.answer("Ryn_GetLBWeights", area=u32(*CURRENT))
    return ryn


# ---- GetLBWeights ---------------------------------------------------------------------------------------------------


def test_weights_in_the_order_of_the_record(weights, double):
    outcome = run(weights.GetLBWeights)
    assert outcome == Outcome([{"weightName": name, "weight": weight} for name, weight in zip(NAMES, CURRENT)])
    assert [list(item) for item in outcome.value] == [["weightName", "weight"]] * 8
    assert double.calls() == [GET]


@pytest.mark.parametrize("place", range(8))
@pytest.mark.parametrize("weight", [1, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF])
def test_each_word_is_unsigned_at_its_own_place(ryn, double, place, weight):
    double.answer("Ryn_GetLBWeights", area=Bytes(32).u32(4 * place, weight))
    assert [item["weight"] for item in run(ryn.GetLBWeights).value] == [weight if i == place else 0 for i in range(8)]


def test_library_that_fills_nothing(ryn, double):
    assert run(ryn.GetLBWeights) == Outcome([{"weightName": name, "weight": 0} for name in NAMES])


@pytest.mark.parametrize("args", [(1,), (1, "x"), (None,) * 9, (RaisingIndex(),)])
def test_getting_ignores_its_arguments(weights, double, args):
    assert run(weights.GetLBWeights, *args) == run(weights.GetLBWeights)
    assert double.calls() == [GET, GET]


@pytest.mark.parametrize("status", [1, 0xBAD0007, 0xFFFFFFFF])
def test_getting_fails(ryn, double, status):
    double.answer("Ryn_GetLBWeights", status=status, area=u32(*CURRENT))
    assert run(ryn.GetLBWeights) == Outcome(None, GET_FAILED)


def test_dicts_are_not_shared(weights):
    first, second = run(weights.GetLBWeights).value, run(weights.GetLBWeights).value
    first[0]["weight"] = "changed"
    assert second[0]["weight"] == CURRENT[0]
    assert len({id(item) for item in second}) == 8


def test_each_failing_allocation_has_its_outcome(weights):
    no_list = Outcome(None, "Failed to allocate tunable list.\n", (MemoryError, ANY))
    expected = run(weights.GetLBWeights)
    seen = []
    for n in range(200):
        outcome = run(weights.GetLBWeights, failing_allocation=n)
        if not outcome.allocation_failed:
            break
        seen.append(outcome)
    assert outcome == expected
    assert seen[0] == no_list
    allowed = [no_list, Outcome(None, "", BUFFER), Outcome(None, "", DICT_ITEM)]
    assert [outcome for outcome in seen if outcome not in allowed] == []
    assert [outcome for outcome in allowed if outcome not in seen] == []


# ---- SetLBWeights ---------------------------------------------------------------------------------------------------


def test_setting_all(weights, double):
    assert run(weights.SetLBWeights, 1, 2, 3, 4, 5, 6, 7, 8) == Outcome(None)
    assert double.calls() == [GET, set_call(1, 2, 3, 4, 5, 6, 7, 8)]


def test_setting_one_keeps_the_others(weights, double):
    assert run(weights.SetLBWeights, 5, -1, -1, -1, -1, -1, -1, -1) == Outcome(None)
    assert double.calls() == [GET, set_call(5, *CURRENT[1:])]


@pytest.mark.parametrize("changed", [places for size in (1, 2, 7) for places in itertools.combinations(range(8), size)])
def test_all_eight_are_treated_alike(weights, double, changed):
    wanted = [40 + i if i in changed else KEEP for i in range(8)]
    assert run(weights.SetLBWeights, *wanted) == Outcome(None)
    assert double.calls() == [GET, set_call(*(40 + i if i in changed else CURRENT[i] for i in range(8)))]


@pytest.mark.parametrize("marker", [-1, KEEP, (1 << 64) - 1, Index(-1)])
def test_keep_current_marker(weights, double, marker):
    assert run(weights.SetLBWeights, *[marker] * 8) == Outcome(None)
    assert double.calls() == [GET]  # no set call


def test_4294967295_cannot_be_set(weights, double):
    assert run(weights.SetLBWeights, KEEP, 5, *CURRENT[2:]) == Outcome(None)
    assert double.calls() == [GET, set_call(CURRENT[0], 5, *CURRENT[2:])]


def test_exactly_the_current_values_make_no_set_call(weights, double):
    assert run(weights.SetLBWeights, *CURRENT) == Outcome(None)
    assert double.calls() == [GET]


@pytest.mark.parametrize("place", range(8))
def test_difference_in_any_word_reaches_the_library(weights, double, place):
    wanted = [*CURRENT]
    wanted[place] ^= 0x01000000  # a high byte alone: all 32 bytes are compared
    assert run(weights.SetLBWeights, *wanted) == Outcome(None)
    wanted = [current if word == KEEP else word for word, current in zip(wanted, CURRENT)]
    assert double.calls() == [GET, set_call(*wanted)]


def test_numbers_wrap(weights, double):
    wanted = [-2, 1 << 32, (1 << 32) + 3, 0x80000000, True, Index(6), -(1 << 31), 0]
    assert run(weights.SetLBWeights, *wanted) == Outcome(None)
    assert double.calls() == [GET, set_call(0xFFFFFFFE, 0, 3, 0x80000000, 1, 6, 0x80000000, 0)]


def test_random_requests_match_the_model(ryn, double):
    rng = random.Random(61)
    for _ in range(300):
        current = [rng.choice([0, 1, KEEP, rng.getrandbits(32)]) for _ in range(8)]
        wanted = [rng.choice([KEEP, word, rng.getrandbits(32)]) for word in current]
        merged = [old if new == KEEP else new for new, old in zip(wanted, current)]
        double.forget_calls()
        double.answer("Ryn_GetLBWeights", area=u32(*current))
        assert run(ryn.SetLBWeights, *wanted) == Outcome(None)
        assert double.calls() == [GET, *([set_call(*merged)] if merged != current else [])]


def test_nothing_is_changed_when_the_current_weights_cannot_be_read(ryn, double):
    double.answer("Ryn_GetLBWeights", status=1, area=u32(*CURRENT))
    assert run(ryn.SetLBWeights, 1, 2, 3, 4, 5, 6, 7, 8) == Outcome(None, GET_FAILED)
    assert double.calls() == [GET]


@pytest.mark.parametrize("status", [1, 0xBAD0007, 0xFFFFFFFF])
def test_setting_fails(weights, double, status):
    double.answer("Ryn_SetLBWeights", status=status)
    assert run(weights.SetLBWeights, 1, 2, 3, 4, 5, 6, 7, 8) == Outcome(None, "ValueError: Failed to set LB weight.\n")


@pytest.mark.parametrize("count", [0, 1, 7, 9])
def test_wrong_number_of_arguments(weights, double, count):
    assert run(weights.SetLBWeights, *range(count)) == Outcome(None, INVALID, (TypeError, ANY))
    assert double.calls() == []


@pytest.mark.parametrize("place", range(8))
@pytest.mark.parametrize("bad, error", NOT_INTS)
def test_argument_that_is_no_int(weights, double, place, bad, error):
    args = [1] * 8
    args[place] = bad
    assert run(weights.SetLBWeights, *args) == Outcome(None, INVALID, (error, ANY))
    assert double.calls() == []


# ---- ResetLBWeights -------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("args", [(), (1,), ("x", None), (RaisingIndex(),)])
def test_resetting_ignores_its_arguments(ryn, double, args):
    assert run(ryn.ResetLBWeights, *args) == Outcome(None)
    assert double.calls() == [Call("Ryn_ResetLBWeights")]


@pytest.mark.parametrize("status", [1, 0xBAD0007, 0xFFFFFFFF])
def test_resetting_fails(ryn, double, status):
    double.answer("Ryn_ResetLBWeights", status=status)
    assert run(ryn.ResetLBWeights) == Outcome(None, "ValueError: Failed to reset load balancer weights.\n")
