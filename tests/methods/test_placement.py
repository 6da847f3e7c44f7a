"""MigratePort, UnpinPort and ResetPort: moving a port on the datapath cores."""

import random

import pytest
from harness import ANY, Call, Outcome, run

INVALID = "TypeError: Invalid parameter passed.\n"

# The operation, the names of its arguments, the text for its failure
METHODS = {
    "MigratePort": (
        "Ryn_Migrate_Port",
        ["swID", "rynPortID", "option1", "option2", "option3"],
        "Failed to migrate port.\n",
    ),
    "UnpinPort": ("Ryn_Unpin_Port", ["swID", "rynPortID", "option"], "Failed to unpin port.\n"),
    "ResetPort": ("Ryn_Reset_Port", ["swID", "rynPortID"], "Failed to reset port.\n"),
}
every_method = pytest.mark.parametrize("method", METHODS)
STATUSES = [1, 2, 0x0BAD0003, 0x0BAD0007, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF]


def arguments(method: str, swID: object = 0, rynPortID: object = 0, *options: object) -> tuple:
    """As many as the method takes; options that are not given are 0."""
    return (swID, rynPortID, *options, 0, 0, 0)[: len(METHODS[method][1])]


@every_method
def test_arguments_are_passed_on_in_their_order(ryn, double, method):
    op, names, _ = METHODS[method]
    args = arguments(method, 3, 4, 5, 6, 7)
    assert run(getattr(ryn, method), *args) == Outcome(None)
    assert double.calls() == [Call(op, **dict(zip(names, args)))]


@every_method
def test_every_switch_and_port_reaches_the_library(ryn, double, method):
    for swID in range(16):
        for rynPortID in range(128):
            assert getattr(ryn, method)(*arguments(method, swID, rynPortID)) is None
    assert [(call.swID, call.rynPortID) for call in double.calls()] == [
        (swID, rynPortID) for swID in range(16) for rynPortID in range(128)
    ]


@every_method
@pytest.mark.parametrize(
    "port",
    [
        (16, 0),
        (0, 128),
        (16, 128),
        (15, 128),
        (16, 127),
        (-1, 0),
        (0, -1),
        (-16, 0),
        (0, -128),
        (1 << 31, 0),
        (0, 1 << 31),
        (0xFFFFFFFF, 0),
        (0, 0xFFFFFFFF),
        ((1 << 32) + 16, 0),
        (0, (1 << 32) + 128),
        (127, 15),
    ],
)
def test_port_out_of_range_reaches_nothing(ryn, double, method, port):
    assert run(getattr(ryn, method), *arguments(method, *port)) == Outcome(None, INVALID)
    assert double.calls() == []


@pytest.mark.parametrize(
    "method, place", [("MigratePort", 2), ("MigratePort", 3), ("MigratePort", 4), ("UnpinPort", 2)]
)
@pytest.mark.parametrize(
    "value, passed_on",
    [
        (0, 0),
        (1, 1),
        (63, 63),
        (64, 64),
        (128, 128),
        (65536, 65536),
        (0x7FFFFFFF, 0x7FFFFFFF),
        (1 << 31, 1 << 31),
        (0xFFFFFFFF, 0xFFFFFFFF),
        (-1, 0xFFFFFFFF),
        (1 << 32, 0),
        ((1 << 32) + 9, 9),
        (-(1 << 31), 1 << 31),
        ((1 << 64) - 1, 0xFFFFFFFF),
        (1 << 200, 0),
        (True, 1),
    ],
)
def test_options_are_not_checked(ryn, double, method, place, value, passed_on):
    args = list(arguments(method))
    args[place] = value
    assert run(getattr(ryn, method), *args) == Outcome(None)
    args[place] = passed_on
    assert [*double.calls()[0].args.values()] == args


@every_method
def test_random_arguments(ryn, double, method):
    rng = random.Random(38)
    op, names, _ = METHODS[method]
    for _ in range(200):
        args = tuple(rng.choice([rng.getrandbits(4), rng.getrandbits(5), rng.getrandbits(32)]) for _ in names)
        double.forget_calls()
        outcome = run(getattr(ryn, method), *args)
        if args[0] < 16 and args[1] < 128:
            assert (outcome, double.calls()) == (Outcome(None), [Call(op, **dict(zip(names, args)))])
        else:
            assert (outcome, double.calls()) == (Outcome(None, INVALID), [])


@every_method
@pytest.mark.parametrize("status", STATUSES)
def test_failure_answers_none_as_success_does(ryn, double, method, status):
    op, _, text = METHODS[method]
    double.answer(op, status=status)
    assert run(getattr(ryn, method), *arguments(method, 15, 127)) == Outcome(None, text)
    assert double.ops() == [op]  # once, not again


@every_method
@pytest.mark.parametrize("wrong", ["0", None, 0.0, 1j, b"\0", [], "\udc80"])
def test_what_is_no_number(ryn, double, method, wrong):
    for place in range(len(METHODS[method][1])):
        args = list(arguments(method))
        args[place] = wrong
        assert run(getattr(ryn, method), *args) == Outcome(None, INVALID, (TypeError, ANY)), place
    assert double.calls() == []


@every_method
def test_wrong_number_of_arguments(ryn, double, method):
    for count in {*range(8)} - {len(METHODS[method][1])}:
        assert run(getattr(ryn, method), *(0,) * count) == Outcome(None, INVALID, (TypeError, ANY)), count
    assert double.calls() == []
