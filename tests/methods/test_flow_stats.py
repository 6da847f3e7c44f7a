"""GetFlowStats and the controls of the flow cache."""

from __future__ import annotations

import random
import struct
import sys

import pytest
from harness import ANY, BUFFER, Bytes, Call, Outcome, run
from objects import NOT_INTS, Index, RaisingIndex

STATS = 1544
ROOM = 32
KEYS = ["lcoreID", "numFlows", "hits", "miss", "fpoHits", "localHits", "keyInsertFailCount"]
RECORD = struct.Struct("<IIQQQQQ")

INVALID = "TypeError: Invalid parameter passed.\n"
INVALID_TWICE = "TypeError: Invalid parameter passed.\n\n"

TOP = (1 << 64) - 1


def stats(records: list[tuple[int, ...]], count: int | None = None, fill: int = 0) -> Bytes:
    area = Bytes(bytes([fill]) * STATS).u32(0, len(records) if count is None else count)
    for i, record in enumerate(records[:ROOM]):
        area.raw(8 + 48 * i, RECORD.pack(*record))
    return area


def dicts(records: list[tuple[int, ...]]) -> list[dict[str, int]]:
    return [dict(zip(KEYS, (value & 0xFFFFFFFF for value in record))) for record in records]


@pytest.fixture
def get(ryn, double):
    def get(area: bytes | None, *args: object) -> Outcome:
        double.answer("Ryn_Get_Flow_Stats", area=area)
        return run(ryn.GetFlowStats, *(args or (3, (), 0)))

    return get


# ---- GetFlowStats: arguments ----------------------------------------------------------------------------------------


def test_passes_the_cores_in_the_order_of_the_tuple(ryn, double):
    assert run(ryn.GetFlowStats, 3, (5, 1, 63, 5), 7) == Outcome([])
    assert double.calls() == [
        Call("Ryn_Get_Flow_Stats", swID=3, lcores=[5, 1, 63, 5], lcoreCount=4, option=7, length=STATS, zeroed=True)
    ]


def test_empty_tuple_calls_the_library_with_a_count_of_0(get, double):
    records = [(1, 2, 3, 4, 5, 6, 7)]
    assert get(stats(records), 3, (), 0) == Outcome(dicts(records))
    assert (double.calls()[0].lcores, double.calls()[0].lcoreCount) == ([], 0)


@pytest.mark.parametrize("switch, passed", [(15, 15), (16, 16), (-1, 0xFFFFFFFF), ((1 << 32) + 1, 1)])
def test_switch_is_not_checked(ryn, double, switch, passed):
    assert run(ryn.GetFlowStats, switch, (1,), 0) == Outcome([])
    assert double.calls()[0].swID == passed


@pytest.mark.parametrize("option", [0, 1, 0x80000000, -1])
def test_third_argument_is_passed_through(ryn, double, option):
    assert run(ryn.GetFlowStats, 0, (1,), option) == Outcome([])
    assert double.calls()[0].option == option % (1 << 32)


@pytest.mark.parametrize(
    "core, passed",
    [
        (0, 0),
        (64, 64),
        (0xFFFFFFFF, 0xFFFFFFFF),
        (1 << 32, 0),
        ((1 << 32) + 5, 5),
        ((1 << 63) - 1, 0xFFFFFFFF),
        (-1, 0xFFFFFFFF),
        (-2, 0xFFFFFFFE),
        (-(1 << 63), 0),
        (True, 1),
    ],
)
def test_cores_are_truncated_to_32_bits_and_not_checked(ryn, double, core, passed):
    assert run(ryn.GetFlowStats, 0, (core,), 0) == Outcome([])
    assert double.calls()[0].lcores == [passed]


def test_core_is_asked_once_for_its_number(ryn, double):
    cores = Index(4), Index(9)
    assert run(ryn.GetFlowStats, 0, cores, 0) == Outcome([])
    assert double.calls()[0].lcores == [4, 9]
    assert [core.asked for core in cores] == [1, 1]


@pytest.mark.parametrize(
    "core, error",
    [
        ("1", TypeError),
        (1.0, TypeError),
        (None, TypeError),
        ((), TypeError),
        (1 << 63, OverflowError),
        (-(1 << 63) - 1, OverflowError),
        (RaisingIndex(), ZeroDivisionError),
        (Index(1 << 64), OverflowError),
    ],
)
def test_core_that_is_no_int_becomes_4294967295_and_the_error_stays(get, double, core, error):
    records = [(1, 2, 3, 4, 5, 6, 7)]
    assert get(stats(records), 0, (7, core, 8), 0) == Outcome(dicts(records), "", (error, ANY))
    assert double.calls()[0].lcores == [7, 0xFFFFFFFF, 8]


def test_first_error_of_several_cores_is_the_one_that_stays(ryn, double):
    cores = RaisingIndex(KeyError("first")), "second", RaisingIndex(IndexError("third"))
    assert run(ryn.GetFlowStats, 0, cores, 0) == Outcome([], "", (KeyError, "'first'"))
    assert double.calls()[0].lcores == [0xFFFFFFFF] * 3


def test_error_of_an_item_gives_way_to_a_later_one_and_is_not_kept(ryn, double):
    class First(Exception):
        pass

    double.answer("Ryn_Get_Flow_Stats", area=stats([(1, 2, 3, 4, 5, 6, 7)]))
    errors = First(), KeyError("the second")
    cores = tuple(map(RaisingIndex, errors))  # a leaked traceback would hold them

    def call(n: int) -> tuple[bool, tuple[str, str | None]]:
        outcome = run(ryn.GetFlowStats, 0, cores, 0, failing_allocation=n)
        for error in errors:
            error.__traceback__ = None
        return outcome.allocation_failed, (outcome.stderr, outcome.error[0].__name__ if outcome.error else None)

    watched = [First, *errors, *cores]
    references = list(map(sys.getrefcount, watched))
    seen, n, failed = [], 0, True
    while failed:
        failed, outcome = call(n)
        assert list(map(sys.getrefcount, watched)) == references, outcome
        seen.append(outcome)
        n += 1
    assert seen[-1] == ("", "First")
    assert {("Failed to allocate memory.\n", "MemoryError"), ("", "SystemError")} <= set(seen)


def test_conversion_of_a_core_runs_without_a_pending_error(ryn, double):
    class Converts:
        def __index__(self) -> int:
            return int("12")  # would fail oddly if an error were set

    assert run(ryn.GetFlowStats, 0, ("x", Converts()), 0) == Outcome([], "", (TypeError, ANY))
    assert double.calls()[0].lcores == [0xFFFFFFFF, 12]


def test_core_whose_conversion_calls_the_method_again(ryn, double):
    class Nested:
        def __index__(self) -> int:
            ryn.GetFlowStats(1, (2,), 3)
            return 4

    assert run(ryn.GetFlowStats, 0, (Nested(), 5), 0) == Outcome([])
    assert [(call.swID, call.lcores) for call in double.calls()] == [(1, [2]), (0, [4, 5])]


def test_error_of_a_core_stays_behind_a_failure_of_the_library(ryn, double):
    double.answer("Ryn_Get_Flow_Stats", status=1)
    assert run(ryn.GetFlowStats, 0, ("x",), 0) == Outcome(None, "Failed to retrieve flow stats.\n", (TypeError, ANY))


@pytest.mark.parametrize("count", [1, 63, 64])
def test_up_to_64_cores(ryn, double, count):
    assert run(ryn.GetFlowStats, 0, tuple(range(count)), 0) == Outcome([])
    assert (double.calls()[0].lcores, double.calls()[0].lcoreCount) == ([*range(count)], count)


@pytest.mark.parametrize(
    "cores",
    [
        [1],
        None,
        1,
        "1",
        b"1",
        {1},
        {1: 1},
        range(3),
        iter((1,)),
        RaisingIndex(),
        tuple(range(65)),
        (None,) * 1000,
    ],
)
def test_cores_that_are_no_tuple_of_at_most_64_are_refused_without_an_error(ryn, double, cores):
    assert run(ryn.GetFlowStats, 0, cores, 0) == Outcome(None, INVALID_TWICE)
    assert double.calls() == []


def test_tuple_subclass_is_a_tuple(ryn, double):
    class Cores(tuple):
        def __len__(self) -> int:
            return 1000

        def __getitem__(self, index):
            raise IndexError

    assert run(ryn.GetFlowStats, 0, Cores((1, 2)), 0) == Outcome([])
    assert double.calls()[0].lcores == [1, 2]


@pytest.mark.parametrize("args", [(), (1,), (1, ()), (1, (), 0, 0)])
def test_wrong_number_of_arguments(ryn, double, args):
    assert run(ryn.GetFlowStats, *args) == Outcome(None, INVALID_TWICE, (TypeError, ANY))
    assert double.calls() == []


@pytest.mark.parametrize("place", [0, 2])
@pytest.mark.parametrize("bad, error", NOT_INTS)
def test_argument_that_is_no_int(ryn, double, place, bad, error):
    args = [1, (1,), 0]
    args[place] = bad
    assert run(ryn.GetFlowStats, *args) == Outcome(None, INVALID_TWICE, (error, ANY))
    assert double.calls() == []


# ---- GetFlowStats: results ------------------------------------------------------------------------------------------


def test_record_in_its_order_of_keys(get):
    outcome = get(stats([(1, 2, 3, 4, 5, 6, 7)]))
    assert outcome == Outcome(
        [{"lcoreID": 1, "numFlows": 2, "hits": 3, "miss": 4, "fpoHits": 5, "localHits": 6, "keyInsertFailCount": 7}]
    )
    assert list(outcome.value[0]) == KEYS


def test_no_record(get):
    assert get(stats([])) == Outcome([])


def test_library_that_fills_nothing(get):
    assert get(None) == Outcome([])


def test_top_values_are_positive(get):
    assert get(stats([(0xFFFFFFFF, 0x80000000, TOP, 1 << 31, 0xFFFFFFFF, 1 << 63, 0x180000001)])) == Outcome(
        [
            {
                "lcoreID": 0xFFFFFFFF,
                "numFlows": 0x80000000,
                "hits": 0xFFFFFFFF,
                "miss": 1 << 31,
                "fpoHits": 0xFFFFFFFF,
                "localHits": 0,
                "keyInsertFailCount": 0x80000001,
            }
        ]
    )


@pytest.mark.parametrize("key", range(2, 7))
def test_counters_are_shown_modulo_2_to_the_power_32(get, key):
    for counter, shown in ((1 << 32, 0), ((1 << 32) + 1, 1), ((1 << 32) - 1, (1 << 32) - 1), (TOP, (1 << 32) - 1)):
        record = [0] * 7
        record[key] = counter
        assert get(stats([tuple(record)])).value[0][KEYS[key]] == shown


def test_records_in_the_order_of_the_library(get):
    rng = random.Random(47)
    records = [tuple(rng.getrandbits(bits) for bits in (32, 32, 64, 64, 64, 64, 64)) for _ in range(ROOM)]
    for count in (1, 2, 31, 32):
        assert get(stats(records[:count])) == Outcome(dicts(records[:count]))


@pytest.mark.parametrize("count", [33, 64, 1000, 0x80000000, 0xFFFFFFFF])
def test_count_above_the_room_gives_as_many_records_as_there_is_room_for(get, count):
    records = [(i, *[TOP - i & 0xFFFFFFFF] * 6) for i in range(ROOM)]
    assert get(stats(records, count=count)) == Outcome(dicts(records))


def test_unread_bytes_do_not_show(get):
    records = [(1, 2, 3, 4, 5, 6, 7), (8, 9, 10, 11, 12, 13, 14)]
    assert get(stats(records, fill=0xFF)) == Outcome(dicts(records))


@pytest.mark.parametrize("length", [0, 8, 0xFFFFFFFF])
def test_length_word_is_not_looked_at_afterwards(ryn, double, length):
    records = [(1, 2, 3, 4, 5, 6, 7)]
    double.answer("Ryn_Get_Flow_Stats", area=stats(records), length=length)
    assert run(ryn.GetFlowStats, 0, (), 0) == Outcome(dicts(records))


@pytest.mark.parametrize("status", [1, 0xBAD0003, 0xFFFFFFFF])
def test_failure_of_the_library(ryn, double, status):
    double.answer("Ryn_Get_Flow_Stats", status=status, area=stats([(1, 2, 3, 4, 5, 6, 7)]))
    assert run(ryn.GetFlowStats, 0, (), 0) == Outcome(None, "Failed to retrieve flow stats.\n")
    assert double.ops() == ["Ryn_Get_Flow_Stats"]


def test_each_failing_allocation_has_its_outcome(ryn, double):
    records = [(1000 + i,) * 7 for i in range(3)]
    double.answer("Ryn_Get_Flow_Stats", area=stats(records))
    no_list = Outcome(None, "Failed to allocate memory.\n", (MemoryError, ANY))
    seen = []
    for n in range(200):
        outcome = run(ryn.GetFlowStats, 0, (1,), 0, failing_allocation=n)
        if not outcome.allocation_failed:
            break
        seen.append(outcome)
    assert outcome == Outcome(dicts(records))
    assert seen[0] == no_list
    assert len(seen) > 20
    assert [outcome for outcome in seen if outcome not in (no_list, Outcome(None, "", BUFFER))] == []
    assert Outcome(None, "", BUFFER) in seen


# ---- Controls -------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("switch", [0, 15, Index(15), (1 << 32) + 15])
def test_clear_reaches_the_library(ryn, double, switch):
    assert run(ryn.ClearSwitchFlowTable, switch) == Outcome(None)
    assert double.calls() == [Call("Ryn_Clear_Switch_Flow_Table", swID=0 if switch == 0 else 15)]


@pytest.mark.parametrize("switch", [16, 17, 1 << 31, -1])
def test_clear_refuses_a_switch_above_15(ryn, double, switch):
    assert run(ryn.ClearSwitchFlowTable, switch) == Outcome(None, INVALID)
    assert double.calls() == []


def test_clear_fails_without_the_word_to(ryn, double):
    double.answer("Ryn_Clear_Switch_Flow_Table", status=1)
    assert run(ryn.ClearSwitchFlowTable, 0) == Outcome(None, "Failed clear switch flow table\n")


@pytest.mark.parametrize("switch, enable", [(0, 0), (0, 1), (15, 0), (15, 1), (15, True)])
def test_enable_reaches_the_library(ryn, double, switch, enable):
    assert run(ryn.EnableSwitchFlowCache, switch, enable) == Outcome(None)
    assert double.calls() == [Call("Ryn_Enable_Switch_Flow_Cache", swID=switch, enable=int(enable))]


@pytest.mark.parametrize("switch, enable", [(16, 0), (16, 1), (-1, 1), (0, 2), (0, -1), (0, 1 << 31), (16, 2)])
def test_enable_refuses_what_is_out_of_range(ryn, double, switch, enable):
    assert run(ryn.EnableSwitchFlowCache, switch, enable) == Outcome(None, INVALID)
    assert double.calls() == []


@pytest.mark.parametrize("enable, direction", [(0, "disable"), (1, "enable")])
def test_failed_enable_names_the_direction(ryn, double, enable, direction):
    double.answer("Ryn_Enable_Switch_Flow_Cache", status=0xBAD0007)
    assert run(ryn.EnableSwitchFlowCache, 0, enable) == Outcome(None, f"Failed to {direction} switch flow cache.\n")


@pytest.mark.parametrize("seconds", [0, 1, 300, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF])
def test_timeout_is_read_unsigned(ryn, double, seconds):
    double.answer("Ryn_Get_Flow_Timeout", area=Bytes(4).u32(0, seconds))
    assert run(ryn.GetFlowTimeout) == Outcome(seconds)
    assert double.calls() == [Call("Ryn_Get_Flow_Timeout", zeroed=True)]


def test_timeout_that_the_library_does_not_fill_is_0(ryn, double):
    assert run(ryn.GetFlowTimeout) == Outcome(0)


@pytest.mark.parametrize("args", [(1,), ("x", None), (RaisingIndex(),), tuple(range(20))])
def test_getting_the_timeout_ignores_its_arguments(ryn, double, args):
    double.answer("Ryn_Get_Flow_Timeout", area=Bytes(4).u32(0, 60))
    assert run(ryn.GetFlowTimeout, *args) == Outcome(60)


def test_getting_the_timeout_fails(ryn, double):
    double.answer("Ryn_Get_Flow_Timeout", status=1, area=Bytes(4).u32(0, 60))
    assert run(ryn.GetFlowTimeout) == Outcome(None, "ValueError: Failed to get flow timeout.\n\n")


@pytest.mark.parametrize("seconds", [0, 1, 0x80000000, 0xFFFFFFFF, -1, (1 << 32) + 9, Index(7)])
def test_setting_the_timeout_takes_any_number(ryn, double, seconds):
    assert run(ryn.SetFlowTimeout, seconds) == Outcome(None)
    assert double.calls() == [Call("Ryn_Set_Flow_Timeout", seconds=seconds.__index__() % (1 << 32))]


def test_setting_the_timeout_fails(ryn, double):
    double.answer("Ryn_Set_Flow_Timeout", status=1)
    assert run(ryn.SetFlowTimeout, 5) == Outcome(None, "ValueError: Failed to set flow timeout.\n\n")


@pytest.mark.parametrize(
    "name, args, text",
    [
        ("ClearSwitchFlowTable", (1,), INVALID),
        ("EnableSwitchFlowCache", (1, 1), INVALID),
        ("SetFlowTimeout", (1,), INVALID_TWICE),
    ],
)
def test_arguments_that_the_parser_refuses(ryn, double, name, args, text):
    method = getattr(ryn, name)
    for wrong in ((), args[:-1], (*args, 1)):
        assert run(method, *wrong) == Outcome(None, text, (TypeError, ANY))
    for place in range(len(args)):
        for bad, error in NOT_INTS:
            assert run(method, *args[:place], bad, *args[place + 1 :]) == Outcome(None, text, (error, ANY))
    assert double.calls() == []
