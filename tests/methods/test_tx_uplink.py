"""GetPortTxUplink and SetPortTxUplink: the transmit policy of a port.

SetPortTxUplink converts objects of the caller, so code of the caller runs inside it: whatever that code does, what is
sent is what was checked, and a request that is refused sends nothing.
"""

import gc
import random
import sys
from array import array

import pytest
from harness import ANY, NULL, Bytes, Call, Outcome, capture_stderr, lost_blocks, python, run

INVALID = "TypeError: Invalid parameter passed.\n"
NO_TYPE = "Missing txType.\n"
NO_UPLINKS = "Missing txUplinks.\n"
TOO_MANY = "Too many uplinks.\n"
NOT_SET = "Failed to set port TX uplink.\n"
NAMES = ["None", "Single", "LAG", "SrcMAC", "All", "NoTeaming"]
NO_INT = 0xFFFFFFFF  # what an item that is not an int becomes

GET = "Ryn_Get_Port_Tx_Uplink"
SET = "Ryn_Set_Port_Tx_Uplink"


def record(code, count, *uplinks):
    return Bytes(18).u8(0, code, count).u16(2, *uplinks)


def sent(code, uplinks, swID=3, port=5):
    """The one call that sends a policy: the array has 8 places, the rest of them 0."""
    return [
        Call(
            SET, swID=swID, rynPortID=port, txType=code, count=len(uplinks), uplinks=uplinks + [0] * (8 - len(uplinks))
        )
    ]


def policy(uplinks, name="Single"):
    return {"txType": name, "txUplinks": uplinks}


# ---- Reading ---------------------------------------------------------------------------------------------------------


def test_reads_a_policy(ryn, double):
    double.answer(GET, area=record(2, 3, 7, 0x8000, 0xFFFF, *[0xEEEE] * 5))
    outcome = run(ryn.GetPortTxUplink, 3, 5)
    assert outcome == Outcome({"txType": "LAG", "txUplinks": [7, 0x8000, 0xFFFF]})
    assert list(outcome.value) == ["txType", "txUplinks"]
    assert double.calls() == [Call(GET, swID=3, rynPortID=5, length=18, zeroed=True)]


@pytest.mark.parametrize(
    "code, name", [*enumerate(NAMES), (6, "Unknown"), (0x7F, "Unknown"), (0x80, "Unknown"), (0xFF, "Unknown")]
)
def test_names_of_the_teaming_types(ryn, double, code, name):
    double.answer(GET, area=record(code, 0))
    assert run(ryn.GetPortTxUplink, 0, 0) == Outcome({"txType": name, "txUplinks": []})


@pytest.mark.parametrize("count", range(9))
def test_only_as_many_uplinks_as_the_count_says(ryn, double, count):
    uplinks = [0xFFFF - 257 * i for i in range(8)]
    double.answer(GET, area=record(1, count, *uplinks))
    assert run(ryn.GetPortTxUplink, 0, 0) == Outcome({"txType": "Single", "txUplinks": uplinks[:count]})


@pytest.mark.parametrize("count", [9, 10, 127, 128, 255])
def test_count_above_eight_is_not_clamped_and_shows_zeros_behind_the_record(ryn, double, count):
    double.answer(GET, area=record(1, count, *[0xFFFF] * 8))
    value = {"txType": "Single", "txUplinks": [0xFFFF] * 8 + [0] * (count - 8)}
    assert run(ryn.GetPortTxUplink, 0, 0) == Outcome(value)


def test_library_that_fills_nothing_gives_an_empty_policy(ryn, double):
    assert run(ryn.GetPortTxUplink, 0, 0) == Outcome({"txType": "None", "txUplinks": []})


@pytest.mark.parametrize("length", [0, 2, 17, 19, 0xFFFFFFFF])
def test_length_word_that_comes_back_is_not_looked_at(ryn, double, length):
    double.answer(GET, area=record(4, 2, 300, 301), length=length)
    assert run(ryn.GetPortTxUplink, 0, 0) == Outcome({"txType": "All", "txUplinks": [300, 301]})


def test_random_policies(ryn, double):
    chance = random.Random(51)
    for _ in range(300):
        code, count = chance.choice([chance.randrange(8), chance.randrange(256)]), chance.randrange(10)
        uplinks = [chance.choice([0, 1, 255, 256, 0x7FFF, 0x8000, 0xFFFF, chance.randrange(1 << 16)]) for _ in range(8)]
        double.answer(GET, area=record(code, count, *uplinks))
        name = NAMES[code] if code < 6 else "Unknown"
        assert run(ryn.GetPortTxUplink, 0, 0) == Outcome({"txType": name, "txUplinks": [*uplinks, 0][:count]})


@pytest.mark.parametrize("status", [1, 0xBAD0003, 0x80000000, 0xFFFFFFFF])
def test_library_failure_when_reading(ryn, double, status):
    double.answer(GET, status=status, area=record(1, 8, *range(8)))
    assert run(ryn.GetPortTxUplink, 3, 5) == Outcome(None, "Failed to get port TX uplink.\n")


@pytest.mark.parametrize("uplinks, blocks", [([], 1), ([1], 2), ([1, 2, 3, 4, 5, 6, 7, 8], 2), ([300, 301], 4)])
def test_one_list_leaks_per_read(ryn, double, uplinks, blocks):
    """The list object, its array if it has items, and the ints that the interpreter does not share: no block more."""
    double.answer(GET, area=record(1, len(uplinks), *uplinks))
    double.recording(False)
    assert lost_blocks(lambda: ryn.GetPortTxUplink(0, 0)) == blocks


def test_list_read_has_one_reference_more_than_the_dict_holds(ryn, double):
    double.answer(GET, area=record(1, 1, 1))
    value = ryn.GetPortTxUplink(0, 0)
    references = sys.getrefcount(value["txUplinks"]), sys.getrefcount(value)
    assert references == (1 + 1 + 1, 1 + 1)  # the dict's, the leaked one, the look's own; the variable's, the look's


def test_failed_read_does_not_leak(ryn, double):
    double.answer(GET, status=1, area=record(1, 8, *range(300, 308)))
    double.recording(False)
    with capture_stderr():
        assert lost_blocks(lambda: ryn.GetPortTxUplink(0, 0)) == 0


def test_no_memory_for_the_name_of_an_item():
    """The name is made at the process's first call: without it the item is not found, and is found the next time."""
    done = python(
        """
import harness
harness.set_up()
import _libryn
for failing_allocation in (0, -1):
    print(harness.run(_libryn.SetPortTxUplink, 0, 0, {"txType": "None", "txUplinks": []},
                      failing_allocation=failing_allocation))
"""
    )
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout.splitlines() == [
        str(Outcome(None, NO_TYPE, (MemoryError, ""), allocation_failed=True)),
        str(Outcome(None)),
    ]


def test_no_memory_when_reading(ryn, double):
    """First the list, whose failure gives None, then its items, whose failure gives null: silently, with the error
    that Python set. The dict comes last."""
    double.answer(GET, area=record(1, 3, 300, 301, 302))
    value = run(ryn.GetPortTxUplink, 0, 0)
    seen, outcome, n = [], None, 0
    with capture_stderr():  # of the harness's own
        while outcome != value:
            outcome = run(ryn.GetPortTxUplink, 0, 0, failing_allocation=n)
            n += 1
            if seen[-1:] != [outcome]:
                seen.append(outcome)
    no_memory = (MemoryError, "")
    assert seen == [Outcome(None, "", no_memory), Outcome(NULL, "", no_memory), value]
    assert n > 4


# ---- Arguments of both -----------------------------------------------------------------------------------------------

GOOD = policy([1, 2])


@pytest.mark.parametrize("swID, port", [(0, 0), (15, 127), (1 << 32, 0), (0, (1 << 32) + 127), (-(1 << 32), 0)])
def test_bounds_that_are_accepted(ryn, double, swID, port):
    assert run(ryn.GetPortTxUplink, swID, port).stderr == ""
    assert run(ryn.SetPortTxUplink, swID, port, GOOD) == Outcome(None)
    assert [(call.op, call.swID, call.rynPortID) for call in double.calls()] == [
        (GET, swID & 0xFFFFFFFF, port & 0xFFFFFFFF),
        (SET, swID & 0xFFFFFFFF, port & 0xFFFFFFFF),
    ]


@pytest.mark.parametrize(
    "swID, port",
    [(16, 0), (-1, 0), (0, 128), (0, -1), (0x80000000, 0), (0, 0x80000000), (16, 128), ((1 << 32) + 16, 0), (0, 255)],
)
def test_bounds_that_are_refused(ryn, double, swID, port):
    assert run(ryn.GetPortTxUplink, swID, port) == Outcome(None, INVALID)
    assert run(ryn.SetPortTxUplink, swID, port, GOOD) == Outcome(None, INVALID)
    assert double.calls() == []


class Raises:
    def __index__(self):
        raise LookupError("no number")


@pytest.mark.parametrize(
    "args, error",
    [
        ((), TypeError),
        ((0,), TypeError),
        (("0", 0), TypeError),
        ((0, None), TypeError),
        ((0.0, 0), TypeError),
        ((0, 1.0), TypeError),
        ((Raises(), 0), LookupError),
        ((0, Raises()), LookupError),
        (([], {}), TypeError),
    ],
)
def test_arguments_that_are_not_understood(ryn, double, args, error):
    assert run(ryn.GetPortTxUplink, *args) == Outcome(None, INVALID, (error, ANY))
    assert run(ryn.SetPortTxUplink, *args, GOOD) == Outcome(None, INVALID, (error, ANY))
    assert double.calls() == []


@pytest.mark.parametrize(
    "name, args", [("GetPortTxUplink", (0, 0, 0)), ("SetPortTxUplink", (0, 0)), ("SetPortTxUplink", (0, 0, GOOD, 0))]
)
def test_wrong_number_of_arguments(ryn, double, name, args):
    assert run(getattr(ryn, name), *args) == Outcome(None, INVALID, (TypeError, ANY))
    assert double.calls() == []


def test_refused_switch_is_not_asked_for_its_policy(ryn, double):
    """The bounds come before the dict is looked at."""
    assert run(ryn.SetPortTxUplink, 16, 0, None) == Outcome(None, INVALID)


# ---- Writing ---------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("code, name", enumerate(NAMES))
def test_sets_each_teaming_type(ryn, double, code, name):
    assert run(ryn.SetPortTxUplink, 3, 5, policy([7, 8], name)) == Outcome(None)
    assert double.calls() == sent(code, [7, 8])


@pytest.mark.parametrize(
    "name",
    [
        "none",
        "Unknown",
        "",
        "single",
        "SINGLE",
        "Single ",
        " Single",
        "Lag",
        "LAGG",
        "LA",
        "NoTeamin",
        "NoTeaming1",
        "éa",
        "\U0001F600",
        "%s%n",
        "x" * 5000,
        "1",
    ],
)
def test_other_names_are_refused_with_their_text(ryn, double, name):
    assert run(ryn.SetPortTxUplink, 3, 5, policy([], name)) == Outcome(None, f"Invalid txType {name}.\n")
    assert double.calls() == []


def test_name_with_a_nul_is_none_of_the_six(ryn, double):
    assert run(ryn.SetPortTxUplink, 3, 5, policy([], "Single\0")) == Outcome(None, "Invalid txType Single.\n")
    assert double.calls() == []


@pytest.mark.parametrize("count", range(9))
def test_sends_up_to_eight_uplinks(ryn, double, count):
    uplinks = [0xFFFFFFF0 + i for i in range(count)]
    assert run(ryn.SetPortTxUplink, 3, 5, policy(uplinks)) == Outcome(None)
    assert double.calls() == sent(1, uplinks)


@pytest.mark.parametrize("count", [9, 10, 100, 70000])
def test_more_than_eight_uplinks_are_refused(ryn, double, count):
    assert run(ryn.SetPortTxUplink, 3, 5, policy([1] * count)) == Outcome(None, TOO_MANY)
    assert double.calls() == []


@pytest.mark.parametrize(
    "value, low_word",
    [
        (0, 0),
        (1, 1),
        (-1, NO_INT),
        (-2, 0xFFFFFFFE),
        (0x7FFFFFFF, 0x7FFFFFFF),
        (0x80000000, 0x80000000),
        (0xFFFFFFFF, NO_INT),
        (1 << 32, 0),
        ((1 << 32) + 5, 5),
        (-(1 << 32) + 6, 6),
        ((1 << 63) - 1, NO_INT),
        (-(1 << 63), 0),
        (True, 1),
    ],
)
def test_low_32_bits_of_an_uplink_are_sent(ryn, double, value, low_word):
    assert run(ryn.SetPortTxUplink, 3, 5, policy([value])) == Outcome(None)
    assert double.calls() == sent(1, [low_word])


class Index:
    def __init__(self, value):
        self.value = value

    def __index__(self):
        return self.value


def test_index_of_an_object_is_sent(ryn, double):
    assert run(ryn.SetPortTxUplink, 3, 5, policy([Index(7), 8, Index(-1)])) == Outcome(None)
    assert double.calls() == sent(1, [7, 8, NO_INT])


@pytest.mark.parametrize(
    "item, error",
    [
        ("1", TypeError),
        (None, TypeError),
        (1.0, TypeError),
        ([], TypeError),
        (b"1", TypeError),
        (1 << 63, OverflowError),
        (-(1 << 63) - 1, OverflowError),
        (1 << 5000, OverflowError),
        (Raises(), LookupError),
        (Index("1"), TypeError),
        (Index(1 << 64), OverflowError),
    ],
)
def test_item_that_is_no_int_is_sent_as_all_ones_and_leaves_its_error(ryn, double, item, error):
    assert run(ryn.SetPortTxUplink, 3, 5, policy([1, item, 3])) == Outcome(None, "", (error, ANY))
    assert double.calls() == sent(1, [1, NO_INT, 3])


def test_first_error_of_several_items_is_the_one_that_stays(ryn, double):
    outcome = run(ryn.SetPortTxUplink, 3, 5, policy([1 << 80, Raises(), "x", 4]))
    assert outcome == Outcome(None, "", (OverflowError, ANY))
    assert double.calls() == sent(1, [NO_INT, NO_INT, NO_INT, 4])


def test_later_item_is_converted_with_a_clean_indicator(ryn, double):
    seen = []

    class Looks:
        def __index__(self):
            seen.append(sys.exc_info())
            return len(seen)

    assert run(ryn.SetPortTxUplink, 3, 5, policy(["x", Looks()])) == Outcome(None, "", (TypeError, ANY))
    assert seen == [(None, None, None)]
    assert double.calls() == sent(1, [NO_INT, 1])


@pytest.mark.parametrize("status", [1, 0xBAD0003, 0x80000000, 0xFFFFFFFF])
def test_library_failure_when_writing(ryn, double, status):
    double.answer(SET, status=status)
    assert run(ryn.SetPortTxUplink, 3, 5, policy([1])) == Outcome(None, NOT_SET)


def test_library_failure_does_not_hide_the_error_of_an_item(ryn, double):
    double.answer(SET, status=1)
    assert run(ryn.SetPortTxUplink, 3, 5, policy(["x"])) == Outcome(None, NOT_SET, (TypeError, ANY))


def test_uplinks_that_do_not_exist_are_passed_through(ryn, double):
    assert run(ryn.SetPortTxUplink, 3, 5, policy([9999999, 9999999])) == Outcome(None)
    assert double.calls() == sent(1, [9999999, 9999999])


def test_what_was_read_can_be_written(ryn, double):
    double.answer(GET, area=record(3, 3, 7, 0xFFFF, 9))
    assert run(ryn.SetPortTxUplink, 3, 5, ryn.GetPortTxUplink(3, 5)) == Outcome(None)
    assert double.calls()[1:] == sent(3, [7, 0xFFFF, 9])


# ---- What is missing, or of another type -----------------------------------------------------------------------------


@pytest.mark.parametrize(
    "third",
    [
        None,
        1,
        "txType",
        [],
        [("txType", "Single")],
        ("txType", "Single"),
        object(),
        type("Mapping", (), {"__getitem__": lambda self, key: "Single"})(),
    ],
)
def test_policy_that_is_no_dict_misses_its_type_without_an_error(ryn, double, third):
    assert run(ryn.SetPortTxUplink, 3, 5, third) == Outcome(None, NO_TYPE)
    assert double.calls() == []


@pytest.mark.parametrize(
    "third", [{}, {"txUplinks": [1]}, {"txtype": "Single", "txUplinks": [1]}, {b"txType": "Single", "txUplinks": [1]}]
)
def test_type_that_is_absent(ryn, double, third):
    assert run(ryn.SetPortTxUplink, 3, 5, third) == Outcome(None, NO_TYPE)
    assert double.calls() == []


@pytest.mark.parametrize(
    "name, error",
    [
        (None, TypeError),
        (1, TypeError),
        (b"Single", TypeError),
        (["Single"], TypeError),
        ("\ud800", UnicodeEncodeError),
        ("Single\udfff", UnicodeEncodeError),
    ],
)
def test_type_that_is_no_text_leaves_the_error_of_the_query(ryn, double, name, error):
    assert run(ryn.SetPortTxUplink, 3, 5, policy([1], name)) == Outcome(None, NO_TYPE, (error, ANY))
    assert double.calls() == []


def test_uplinks_that_are_absent(ryn, double):
    assert run(ryn.SetPortTxUplink, 3, 5, {"txType": "Single"}) == Outcome(None, NO_UPLINKS)
    assert double.calls() == []


@pytest.mark.parametrize("uplinks", [None, 1, (1, 2), "12", {1: 2}, {1, 2}, range(2), array("I", [1])])
def test_uplinks_that_are_no_list_are_too_many_and_leave_the_error_of_the_query(ryn, double, uplinks):
    """The size of what is no list is -1, which is a lot when it is taken unsigned."""
    assert run(ryn.SetPortTxUplink, 3, 5, policy(uplinks)) == Outcome(None, TOO_MANY, (SystemError, ANY))
    assert double.calls() == []


@pytest.mark.parametrize(
    "third, text",
    [
        ({"txType": "x"}, "Invalid txType x.\n"),
        ({"txUplinks": [1] * 9}, NO_TYPE),
        (policy([1] * 9, "x"), "Invalid txType x.\n"),
        (policy(None, "x"), "Invalid txType x.\n"),
    ],
)
def test_first_failure_is_the_one_reported(ryn, double, third, text):
    assert run(ryn.SetPortTxUplink, 3, 5, third) == Outcome(None, text)
    assert double.calls() == []


# ---- Subclasses ------------------------------------------------------------------------------------------------------


def refuse(*_):
    raise AssertionError("not to be called")


class Dict(dict):
    __getitem__ = __missing__ = __contains__ = __len__ = __iter__ = get = keys = refuse


class List(list):
    __getitem__ = __len__ = __iter__ = __index__ = refuse


class Str(str):
    __eq__ = __len__ = __str__ = __getitem__ = encode = refuse
    __hash__ = str.__hash__


class Int(int):
    __index__ = __int__ = __and__ = refuse


def test_subclasses_are_read_past_their_own_methods(ryn, double):
    third = Dict(policy(List([Int(7), 8]), Str("LAG")))
    assert run(ryn.SetPortTxUplink, 3, 5, third) == Outcome(None)
    assert double.calls() == sent(2, [7, 8])


def test_missing_key_of_a_subclass_is_missing(ryn, double):
    class Default(dict):
        def __missing__(self, key):
            return {"txType": "Single", "txUplinks": [1]}[key]

    assert run(ryn.SetPortTxUplink, 3, 5, Default()) == Outcome(None, NO_TYPE)
    assert run(ryn.SetPortTxUplink, 3, 5, Default(txType="Single")) == Outcome(None, NO_UPLINKS)
    assert double.calls() == []


class Twin:
    """A key that has the hash of another. Put in before the other, it is compared first when that one is looked up."""

    def __init__(self, name, on_compare):
        self.name, self.on_compare, self.armed = name, on_compare, False

    def __hash__(self):
        return hash(self.name)

    def __eq__(self, other):
        return self.armed and isinstance(other, str) and self.on_compare(other)


def with_twin(name, on_compare, third):
    """`third` with such a key before its own."""
    twin, items = Twin(name, on_compare), [*third.items()]
    third.clear()
    third[twin] = "Single" if name == "txType" else [4]
    third.update(items)
    twin.armed = True
    return third


def test_key_of_another_type_that_equals_the_name_is_found(ryn, double):
    third = with_twin("txType", lambda other: True, with_twin("txUplinks", lambda other: True, {}))
    assert run(ryn.SetPortTxUplink, 3, 5, third) == Outcome(None)
    assert double.calls() == sent(1, [4])


@pytest.mark.parametrize("name, text", [("txType", NO_TYPE), ("txUplinks", NO_UPLINKS)])
def test_key_whose_comparison_raises_is_missing_and_leaves_the_error(ryn, double, name, text):
    def fail(other):
        raise LookupError("no comparison")

    third = with_twin(name, fail, policy([1]))
    assert run(ryn.SetPortTxUplink, 3, 5, third) == Outcome(None, text, (LookupError, "no comparison"))
    assert double.calls() == []


def test_key_whose_comparison_empties_the_dict(ryn, double):
    third = policy([1])

    def empty(other):
        third.clear()
        gc.collect()
        return False

    with_twin("txType", empty, third)
    assert run(ryn.SetPortTxUplink, 3, 5, third) == Outcome(None, NO_TYPE)
    assert double.calls() == []


@pytest.mark.parametrize("other_name", ["LAG", "no such type"])
def test_type_that_is_replaced_while_the_uplinks_are_looked_up(ryn, double, other_name):
    """What was checked is what is sent."""
    third = policy([4], "".join(["Sin", "gle"]))

    def replace(other):
        third["txType"] = other_name
        gc.collect()
        return False

    with_twin("txUplinks", replace, third)
    assert run(ryn.SetPortTxUplink, 3, 5, third) == Outcome(None)
    assert third["txType"] == other_name
    assert double.calls() == sent(1, [4])


# ---- Items whose conversion does something else ----------------------------------------------------------------------


class Does:
    """An item that carries out something when it is converted."""

    def __init__(self, action, value=7):
        self.action, self.value = action, value

    def __index__(self):
        self.action()
        return self.value


def test_item_that_empties_the_list_ends_the_others(ryn, double):
    """The count was taken before: missing items are sent like items that are not ints."""
    uplinks = []
    uplinks += [1, Does(uplinks.clear), *(10**9 + i for i in range(4))]
    assert run(ryn.SetPortTxUplink, 3, 5, policy(uplinks)) == Outcome(None, "", (IndexError, ANY))
    assert double.calls() == sent(1, [1, 7, NO_INT, NO_INT, NO_INT, NO_INT])


def test_item_that_lengthens_the_list_does_not_lengthen_what_is_sent(ryn, double):
    uplinks = []
    uplinks += [1, Does(lambda: uplinks.extend(range(1000))), 3]
    assert run(ryn.SetPortTxUplink, 3, 5, policy(uplinks)) == Outcome(None)
    assert double.calls() == sent(1, [1, 7, 3])


def test_item_that_replaces_itself_and_its_neighbours(ryn, double):
    uplinks = [1, None, 3]

    def replace():
        uplinks[:] = [100, 200, 300]
        gc.collect()

    uplinks[1] = Does(replace)
    assert run(ryn.SetPortTxUplink, 3, 5, policy(uplinks)) == Outcome(None)
    assert double.calls() == sent(1, [1, 7, 300])


@pytest.mark.parametrize(
    "change",
    [
        lambda third: third.clear(),
        lambda third: third.update(txType="no such type", txUplinks=[9] * 9),
        lambda third: third.pop("txUplinks").clear(),
    ],
    ids=["clear", "replace", "pop"],
)
def test_item_that_changes_the_dict(ryn, double, change):
    third = {}

    def act():
        change(third)
        gc.collect()
        double.hold = [object() for _ in range(1000)]  # what was freed is used again

    third.update(txType="".join(["Sin", "gle"]), txUplinks=[1, Does(act)])
    assert run(ryn.SetPortTxUplink, 3, 5, third) == Outcome(None)
    assert double.calls() == sent(1, [1, 7])


def test_item_that_is_dropped_while_it_is_converted(ryn, double):
    uplinks = []

    class Drops:
        def __index__(self):
            del uplinks[:]
            gc.collect()
            return self.value

    item = Drops()
    item.value = 12345678901
    uplinks.append(item)
    del item
    assert run(ryn.SetPortTxUplink, 3, 5, policy(uplinks)) == Outcome(None)
    assert double.calls() == sent(1, [12345678901 & 0xFFFFFFFF])


def test_item_that_calls_the_module_again(ryn, double):
    double.answer(GET, area=record(3, 1, 9))
    third = policy([1])

    def again():
        assert ryn.SetPortTxUplink(4, 6, policy([100, 101], "All")) is None
        assert ryn.GetPortTxUplink(3, 5) == {"txType": "SrcMAC", "txUplinks": [9]}

    third["txUplinks"].append(Does(again))
    assert run(ryn.SetPortTxUplink, 3, 5, third) == Outcome(None)
    assert double.calls() == [
        *sent(4, [100, 101], 4, 6),
        Call(GET, swID=3, rynPortID=5, length=18, zeroed=True),
        *sent(1, [1, 7]),
    ]


def test_item_that_calls_the_module_again_with_the_same_dict(ryn, double):
    third, depth = policy([1]), [0]

    def again():
        depth[0] += 1
        if depth[0] < 5:
            ryn.SetPortTxUplink(3, 5, third)

    third["txUplinks"].append(Does(again))
    assert run(ryn.SetPortTxUplink, 3, 5, third) == Outcome(None)
    assert double.calls() == sent(1, [1, 7]) * 5


def test_failure_inside_an_item_stays_with_the_item(ryn, double):
    """A refused call of the module inside an item raises there, and is this item's error."""
    third = policy([Does(lambda: ryn.SetPortTxUplink(0, 0)), 2])
    assert run(ryn.SetPortTxUplink, 3, 5, third) == Outcome(None, INVALID, (SystemError, ANY))
    assert double.calls() == sent(1, [NO_INT, 2])


def test_refused_request_converts_nothing(ryn, double):
    third = policy([Does(refuse)] * 9)
    assert run(ryn.SetPortTxUplink, 3, 5, third) == Outcome(None, TOO_MANY)
    third = policy([Does(refuse)], "x")
    assert run(ryn.SetPortTxUplink, 3, 5, third) == Outcome(None, "Invalid txType x.\n")
    assert double.calls() == []


# ---- References ------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize(
    "third",
    [
        policy([300, 400]),
        policy(["x", 1 << 90]),
        policy([]),
        policy([1] * 9),
        policy((1,)),
        policy([1], "x"),
        policy([1], None),
        policy([1], "\ud800"),
        {},
        {"txType": "All"},
        None,
        policy([Index(5), Raises()]),
    ],
    ids=repr,
)
def test_writing_leaks_nothing(ryn, double, third):
    double.recording(False)

    def work():
        try:
            ryn.SetPortTxUplink(0, 0, third)
        except SystemError:
            pass

    with capture_stderr():
        assert lost_blocks(work, 200) == 0
    if isinstance(third, dict):
        for value in third.values():
            before = sys.getrefcount(value)
            with capture_stderr():
                work()
            assert sys.getrefcount(value) == before
