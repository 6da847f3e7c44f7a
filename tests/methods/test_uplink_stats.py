"""Counters of uplinks and of their queues, private statistics, and two policies of a switch's uplinks."""

import random
import resource
import sys
from pathlib import Path

import pytest
from harness import ANY, NULL, Bytes, Call, Outcome, capture_stderr, lost_blocks, run, u32, u64

INVALID = "TypeError: Invalid parameter passed.\n"
NO_STATS = "Failed to get uplink stats.\n"
NO_LIST = "Failed to allocate uplink stats.\n"
NO_COUNTER = "Failed to allocate uplink stats counter.\n"

LEN, PRIVATE, STATS = "Ryn_Get_Uplink_Priv_Stats_Len", "Ryn_Get_Uplink_Priv_Stats", "Ryn_Get_Uplink_Stats"
QUEUE = "Ryn_Get_Uplink_Queue_Stats"

NAMES = [
    "rxPkts",
    "txPkts",
    "rxBytes",
    "txBytes",
    "rxErrors",
    "txErrors",
    "rxDrops",
    "txDrops",
    "rxMulticastPkts",
    "rxBroadcastPkts",
    "txMulticastPkts",
    "txBroadcastPkts",
    "collisions",
    "rxLengthErrors",
    "rxOverflowErrors",
    "rxCRCErrors",
    "rxFrameAlignErrors",
    "rxFifoErrors",
    "rxMissErrors",
    "txAbortedErrors",
    "txCarrierErrors",
    "txFifoErrors",
    "txHeartbeatErrors",
    "txWindowErrors",
]
COUNTERS = [1000 + i for i in range(24)]


def pairs(counters=COUNTERS):
    return [(name, counter - (counter >> 63 << 64)) for name, counter in zip(NAMES, counters, strict=True)]


def private(double, reported, text=b"", **answer):
    double.answer(LEN, area=u32(reported))
    double.answer(PRIVATE, area=text, **answer)
    double.answer(STATS, area=u64(*COUNTERS))


def stats(text, counters=COUNTERS):
    return Outcome({"uplinkStats": pairs(counters), "privStats": text})


# ---- The list of counters --------------------------------------------------------------------------------------------


def test_counters_in_order(ryn, double):
    private(double, 5, b"text\0")
    outcome = run(ryn.GetUplinkStats, 3, 5)
    assert outcome == stats("text")
    assert list(outcome.value) == ["uplinkStats", "privStats"]
    assert double.calls() == [
        Call(LEN, swID=3, rynPortID=5, length=4, zeroed=True),
        Call(PRIVATE, swID=3, rynPortID=5, length=5, zeroed=True),
        Call(STATS, swID=3, rynPortID=5, length=192, zeroed=True),
    ]


def test_list_is_of_tuples(ryn, double):
    double.answer(STATS, area=u64(*COUNTERS))
    found = run(ryn.GetUplinkStats, 0, 0).value["uplinkStats"]
    assert type(found) is list and len(found) == 24
    assert {(type(pair), len(pair), type(pair[0]), type(pair[1])) for pair in found} == {(tuple, 2, str, int)}


@pytest.mark.parametrize("place", range(24))
def test_place_of_each_counter(ryn, double, place):
    double.answer(STATS, area=Bytes(192).u64(8 * place, 1 << 40))
    found = run(ryn.GetUplinkStats, 0, 0).value["uplinkStats"]
    assert [pair for pair in found if pair[1]] == [(NAMES[place], 1 << 40)]


@pytest.mark.parametrize(
    "counter, shown",
    [
        (0, 0),
        (0xFFFFFFFF, 0xFFFFFFFF),
        (0x7FFFFFFFFFFFFFFF, 0x7FFFFFFFFFFFFFFF),
        (1 << 63, -(1 << 63)),
        (0xFFFFFFFFFFFFFFFF, -1),
        (0xFFFFFFFFFFFFFFFE, -2),
    ],
)
def test_counter_with_the_top_bit_is_negative(ryn, double, counter, shown):
    for op, call in [
        (STATS, lambda: run(ryn.GetUplinkStats, 0, 0).value["uplinkStats"]),
        (QUEUE, lambda: run(ryn.GetUplinkQueueStats, 0, 0, 0, 0).value),
    ]:
        double.answer(op, area=u64(*[counter] * 24))
        assert call() == [(name, shown) for name in NAMES]


def test_random_counters(ryn, double):
    chance = random.Random(53)
    for _ in range(200):
        counters = [
            chance.choice([0, 1, 1 << 63, (1 << 64) - 1, chance.getrandbits(64), chance.getrandbits(20)]) for _ in NAMES
        ]
        double.answer(STATS, area=u64(*counters))
        double.answer(QUEUE, area=u64(*counters))
        assert run(ryn.GetUplinkStats, 0, 0) == stats("", counters)
        assert run(ryn.GetUplinkQueueStats, 0, 0, 0, 0) == Outcome(pairs(counters))


def test_library_that_fills_nothing_gives_zeros(ryn, double):
    assert run(ryn.GetUplinkStats, 3, 5) == stats("", [0] * 24)
    assert run(ryn.GetUplinkQueueStats, 3, 5, 0, 0) == Outcome(pairs([0] * 24))


@pytest.mark.parametrize("length", [0, 8, 191, 193, 0xFFFFFFFF])
def test_length_of_the_counters_that_comes_back_is_not_looked_at(ryn, double, length):
    double.answer(STATS, area=u64(*COUNTERS), length=length)
    double.answer(QUEUE, area=u64(*COUNTERS), length=length)
    assert run(ryn.GetUplinkStats, 0, 0) == stats("")
    assert run(ryn.GetUplinkQueueStats, 0, 0, 0, 0) == Outcome(pairs())


# ---- Private statistics ----------------------------------------------------------------------------------------------


def test_length_of_zero_is_an_empty_text_without_a_second_question(ryn, double):
    private(double, 0, b"not asked for")
    assert run(ryn.GetUplinkStats, 3, 5) == stats("")
    assert double.ops() == [LEN, STATS]


@pytest.mark.parametrize("status", [1, 0xBAD0003, 0x80000000, 0xFFFFFFFF])
def test_length_that_is_not_told_is_an_empty_text_without_a_message(ryn, double, status):
    """Even when the failed call left a length."""
    private(double, 100, b"not asked for")
    double.answer(LEN, status=status, area=u32(100))
    assert run(ryn.GetUplinkStats, 3, 5) == stats("")
    assert double.ops() == [LEN, STATS]


@pytest.mark.parametrize(
    "length, data, text",
    [
        (1, b"", ""),
        (1, b"\0", ""),
        (1, b"x", "x"),
        (2, b"x\0", "x"),
        (4, b"text", "text"),
        (5, b"text\0", "text"),
        (100, b"text\0behind the NUL", "text"),
        (100, b"a\nb\tc: 1\n", "a\nb\tc: 1\n"),
        (8, b"\0hidden", ""),
        (6, "é\U0001F600".encode(), "é\U0001F600"),
        (4096, b"y" * 4096, "y" * 4096),
        (65536, b"z" * 65535, "z" * 65535),
    ],
    ids=lambda value: None if isinstance(value, int) or len(value) > 20 else repr(value),
)
def test_text_ends_at_its_nul_or_at_the_reported_length(ryn, double, length, data, text):
    private(double, length, data)
    assert run(ryn.GetUplinkStats, 3, 5) == stats(text)
    assert double.calls()[1] == Call(PRIVATE, swID=3, rynPortID=5, length=length, zeroed=True)


@pytest.mark.parametrize("length", [0, 1, 3, 5, 1000, 0x7FFFFFFF, 0xFFFFFFFF])
def test_length_word_that_the_library_changes_does_not_move_the_end(ryn, double, length):
    """The area is as long as was reported before, and so is the text."""
    private(double, 4, b"text", length=length)
    assert run(ryn.GetUplinkStats, 3, 5) == stats("text")


def test_length_of_the_length_that_comes_back_is_not_looked_at(ryn, double):
    private(double, 4, b"text")
    double.answer(LEN, area=u32(4), length=0)
    assert run(ryn.GetUplinkStats, 3, 5) == stats("text")


def test_very_large_text(ryn, double):
    size = 256 << 20
    double.recording(False)
    private(double, size, b"x" * size)
    outcome = run(ryn.GetUplinkStats, 3, 5)
    double.reset()
    text = outcome.value.pop("privStats")
    assert outcome == Outcome({"uplinkStats": pairs()})
    assert len(text) == size and text.count("x") == size


def test_short_text_in_a_very_large_area(ryn, double):
    double.recording(False)
    private(double, 256 << 20, b"text\0")
    assert run(ryn.GetUplinkStats, 3, 5) == stats("text")


@pytest.mark.parametrize(
    "data", [b"\xff", b"text \xe9", b"\xed\xa0\x80", b"\xc3", b"\xf8\x88\x80\x80\x80", b"\xc0\x80"]
)
def test_text_that_is_no_utf8_gives_null_with_the_decoding_error(ryn, double, data):
    private(double, len(data) + 1, data)
    assert run(ryn.GetUplinkStats, 3, 5) == Outcome(NULL, "", (UnicodeDecodeError, ANY))
    with pytest.raises(UnicodeDecodeError):
        ryn.GetUplinkStats(3, 5)


def test_bytes_behind_the_nul_need_not_be_utf8(ryn, double):
    private(double, 10, b"text\0\xff\xff")
    assert run(ryn.GetUplinkStats, 3, 5) == stats("text")


def test_character_that_the_length_cuts_is_no_utf8(ryn, double):
    private(double, 2, "aé".encode())
    assert run(ryn.GetUplinkStats, 3, 5) == Outcome(NULL, "", (UnicodeDecodeError, ANY))


# ---- Failures of the statistics --------------------------------------------------------------------------------------


@pytest.mark.parametrize("status", [1, 0xBAD0003, 0x80000000, 0xFFFFFFFF])
def test_private_statistics_that_fail_give_null_without_an_error(ryn, double, status):
    private(double, 5, b"text\0", status=status)
    assert run(ryn.GetUplinkStats, 3, 5) == Outcome(NULL, "Failed to get private stats.\n")
    assert double.ops() == [LEN, PRIVATE]  # the counters are not read
    with capture_stderr(), pytest.raises(SystemError, match="returned NULL without setting an exception"):
        ryn.GetUplinkStats(3, 5)


@pytest.mark.parametrize("length", [0, 5])
@pytest.mark.parametrize("status", [1, 0xBAD0003, 0x80000000, 0xFFFFFFFF])
def test_counters_that_fail_give_null_without_an_error(ryn, double, length, status):
    private(double, length, b"text\0")
    double.answer(STATS, status=status, area=u64(*COUNTERS))
    assert run(ryn.GetUplinkStats, 3, 5) == Outcome(NULL, NO_STATS)
    with capture_stderr(), pytest.raises(SystemError, match="returned NULL without setting an exception"):
        ryn.GetUplinkStats(3, 5)


@pytest.mark.parametrize("status", [1, 0xBAD0003, 0x80000000, 0xFFFFFFFF])
def test_queue_counters_that_fail_give_none(ryn, double, status):
    """The same text as for the whole uplink, another result."""
    double.answer(QUEUE, status=status, area=u64(*COUNTERS))
    assert run(ryn.GetUplinkQueueStats, 3, 5, 0, 0) == Outcome(None, NO_STATS)


def test_no_memory_for_the_private_statistics(ryn, double):
    in_use = int(Path("/proc/self/statm").read_text().split()[0]) * resource.getpagesize()
    limits = resource.getrlimit(resource.RLIMIT_AS)
    double.recording(False)
    private(double, 0xFFFFFFFF, b"text\0")
    resource.setrlimit(resource.RLIMIT_AS, (in_use + (1 << 30), limits[1]))
    try:
        outcome = run(ryn.GetUplinkStats, 3, 5)
    finally:
        resource.setrlimit(resource.RLIMIT_AS, limits)
    assert outcome == Outcome(None, "Failed to allocate memory.\n")


PENDING = (MemoryError, "")


def failing_allocations(function, *args):
    """The outcomes of calls in which the first, second, ... allocation fails, while no freed list or tuple is there to
    be used again."""
    import _probe

    outcomes = [Outcome(None, allocation_failed=True)]
    while outcomes[-1].allocation_failed:
        with capture_stderr() as texts:
            in_use = [([], (i, i)) for i in range(3000)]  # noqa: F841
            has_result, value, error, failed = _probe.call(function, args, len(outcomes) - 1)
            del in_use
        outcomes.append(Outcome(value if has_result else NULL, texts[0], error and (type(error), str(error)), failed))
    return outcomes[1:-1]


def test_queue_counters_without_memory(ryn, double):
    """None from the builder of the list is the method's result."""
    double.answer(QUEUE, area=u64(*COUNTERS))
    run(ryn.GetUplinkQueueStats, 0, 0, 0, 0)
    outcomes = failing_allocations(ryn.GetUplinkQueueStats, 0, 0, 0, 0)
    # The list is an object and an array; a counter is an int and a tuple.
    assert outcomes == [Outcome(None, NO_LIST, PENDING)] * 2 + [Outcome(None, NO_COUNTER, PENDING)] * 48


def test_counters_without_memory_are_none_in_the_result(ryn, double):
    """None from the builder of the list is taken as the value as it stands."""
    private(double, 5, b"text\0")
    run(ryn.GetUplinkStats, 0, 0)
    outcomes = failing_allocations(ryn.GetUplinkStats, 0, 0)
    value = {"uplinkStats": None, "privStats": "text"}
    assert outcomes[:50] == [Outcome(value, NO_LIST, PENDING)] * 2 + [Outcome(value, NO_COUNTER, PENDING)] * 48
    assert len(outcomes) > 50
    assert [each for each in outcomes[50:] if each != Outcome(NULL, "", PENDING)] == []


# ---- Leaks, deliberate and none --------------------------------------------------------------------------------------


@pytest.mark.parametrize("counters, blocks", [([7] * 24, 26), (COUNTERS, 50)], ids=["shared ints", "own ints"])
@pytest.mark.parametrize("length", [0, 5])
def test_one_list_leaks_per_call(ryn, double, counters, blocks, length):
    """The list object, its array, 24 tuples, and the ints that the interpreter does not share: no block more."""
    private(double, length, b"text\0")
    double.answer(STATS, area=u64(*counters))
    double.recording(False)
    assert lost_blocks(lambda: ryn.GetUplinkStats(0, 0), 200) == blocks


def test_list_has_one_reference_more_than_the_dict_holds(ryn, double):
    value = ryn.GetUplinkStats(0, 0)
    references = sys.getrefcount(value["uplinkStats"]), sys.getrefcount(value)
    assert references == (1 + 1 + 1, 1 + 1)  # the dict's, the leaked one, the look's own; the variable's, the look's


def test_list_of_a_queue_does_not_leak(ryn, double):
    double.answer(QUEUE, area=u64(*COUNTERS))
    double.recording(False)
    assert lost_blocks(lambda: ryn.GetUplinkQueueStats(0, 0, 0, 0), 200) == 0


@pytest.mark.parametrize("op", [PRIVATE, STATS])
def test_failed_calls_leak_nothing(ryn, double, op):
    private(double, 5, b"text\0")
    double.answer(op, status=1)
    double.recording(False)

    def work():
        try:
            ryn.GetUplinkStats(0, 0)
        except SystemError:
            pass

    with capture_stderr():
        assert lost_blocks(work, 200) == 0


@pytest.mark.parametrize(
    "script",
    [
        lambda double: None,
        lambda double: double.answer(PRIVATE, status=1),
        lambda double: double.answer(STATS, status=1),
        lambda double: double.answer(PRIVATE, area=b"\xff"),
    ],
    ids=["success", "no private statistics", "no counters", "no UTF-8"],
)
def test_private_area_is_freed(ryn, double, script):
    """An area of 64 MiB in each of 100 calls."""
    private(double, 64 << 20, b"text\0")
    script(double)
    double.recording(False)
    in_use = int(Path("/proc/self/statm").read_text().split()[0])
    with capture_stderr():
        for _ in range(100):
            try:
                ryn.GetUplinkStats(0, 0)
            except (SystemError, UnicodeDecodeError):
                pass
    grown = int(Path("/proc/self/statm").read_text().split()[0]) - in_use
    assert grown * resource.getpagesize() < 10 * (64 << 20)  # a sanitizer holds freed areas for a while


# ---- Queues ----------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize(
    "kind, passed", [(0, 0), (1, 1), (2, 1), (5, 1), (0x80000000, 1), (-1, 1), (1 << 32, 0), ((1 << 32) + 7, 1)]
)
@pytest.mark.parametrize("queue", [0, 3, 0x80000000, 0xFFFFFFFF])
def test_kind_and_queue_change_places_on_the_way(ryn, double, kind, passed, queue):
    """The script names the kind third and the queue fourth, the datapath takes the queue third."""
    double.answer(QUEUE, area=u64(*COUNTERS))
    assert run(ryn.GetUplinkQueueStats, 3, 5, kind, queue) == Outcome(pairs())
    assert double.calls() == [Call(QUEUE, swID=3, rynPortID=5, queue=queue, queueKind=passed, length=192, zeroed=True)]


def test_negative_queue_wraps(ryn, double):
    run(ryn.GetUplinkQueueStats, 3, 5, 0, -1)
    assert double.calls()[0].queue == 0xFFFFFFFF


# ---- MAC learning ----------------------------------------------------------------------------------------------------


@pytest.mark.parametrize(
    "enable, passed", [(0, 0), (1, 1), (2, 1), (0x80000000, 1), (-1, 1), (1 << 32, 0), (True, 1), (False, 0)]
)
def test_any_value_but_zero_enables_mac_learning(ryn, double, enable, passed):
    assert run(ryn.SetUplinkMACLearn, 15, enable) == Outcome(None)
    assert double.calls() == [Call("Ryn_Set_Uplink_MAC_Learn", swID=15, enable=passed)]


@pytest.mark.parametrize("status", [1, 0xBAD0003, 0x80000000, 0xFFFFFFFF])
@pytest.mark.parametrize("enable", [0, 1])
def test_mac_learning_that_fails(ryn, double, enable, status):
    double.answer("Ryn_Set_Uplink_MAC_Learn", status=status)
    assert run(ryn.SetUplinkMACLearn, 0, enable) == Outcome(None, "Failed to set uplink mac learn policy.\n")


# ---- Panic on a transmit hang ----------------------------------------------------------------------------------------


@pytest.mark.parametrize("setting", [0, 1, 2, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF])
def test_panic_setting_is_the_number_that_the_datapath_tells(ryn, double, setting):
    double.answer("Ryn_Get_Panic_On_Tx_Hang", area=u32(setting))
    assert run(ryn.GetPanicOnTxHang, 15) == Outcome(setting)  # an int: Outcome tells 1 from True
    assert double.calls() == [Call("Ryn_Get_Panic_On_Tx_Hang", swID=15, zeroed=True)]


def test_panic_setting_that_is_not_filled_in_is_zero(ryn, double):
    assert run(ryn.GetPanicOnTxHang, 0) == Outcome(0)


@pytest.mark.parametrize("status", [1, 0xBAD0003, 0x80000000, 0xFFFFFFFF])
def test_panic_setting_that_cannot_be_read(ryn, double, status):
    double.answer("Ryn_Get_Panic_On_Tx_Hang", status=status, area=u32(1))
    assert run(ryn.GetPanicOnTxHang, 0) == Outcome(None, "Failed to get panic on Tx hang configuration.\n")


def test_panic_setting_without_memory(ryn, double):
    double.answer("Ryn_Get_Panic_On_Tx_Hang", area=u32(1000))
    assert run(ryn.GetPanicOnTxHang, 0, failing_allocation=0) == Outcome(NULL, "", PENDING)


@pytest.mark.parametrize("setting", [0, 1, True, False, 1 << 32, (1 << 32) + 1])
def test_sets_panic(ryn, double, setting):
    assert run(ryn.SetPanicOnTxHang, 15, setting) == Outcome(None)
    assert double.calls() == [Call("Ryn_Set_Panic_On_Tx_Hang", swID=15, setting=int(setting) & 0xFFFFFFFF)]


@pytest.mark.parametrize("setting", [2, 3, -1, 0x80000000, (1 << 32) + 2])
def test_panic_setting_above_one_is_refused(ryn, double, setting):
    assert run(ryn.SetPanicOnTxHang, 0, setting) == Outcome(None, INVALID)
    assert double.calls() == []


@pytest.mark.parametrize("status", [1, 0xBAD0003, 0x80000000, 0xFFFFFFFF])
@pytest.mark.parametrize("setting, word", [(0, "disable"), (1, "enable")])
def test_panic_that_cannot_be_set(ryn, double, setting, word, status):
    double.answer("Ryn_Set_Panic_On_Tx_Hang", status=status)
    assert run(ryn.SetPanicOnTxHang, 0, setting) == Outcome(None, f"Failed to {word} panic on Tx hang.\n")


# ---- Arguments -------------------------------------------------------------------------------------------------------

GOOD = {
    "GetUplinkStats": (15, 127),
    "GetUplinkQueueStats": (15, 127, 0, 0),
    "SetUplinkMACLearn": (15, 0),
    "GetPanicOnTxHang": (15,),
    "SetPanicOnTxHang": (15, 0),
}


class Raises:
    def __index__(self):
        raise LookupError("no number")


@pytest.mark.parametrize("name", GOOD)
@pytest.mark.parametrize("swID", [16, 17, -1, 0x7FFFFFFF, 0x80000000, (1 << 32) + 16])
def test_switch_that_is_refused(ryn, double, name, swID):
    assert run(getattr(ryn, name), swID, *GOOD[name][1:]) == Outcome(None, INVALID)
    assert double.calls() == []


@pytest.mark.parametrize("name", GOOD)
@pytest.mark.parametrize("swID", [0, 15, 1 << 32, -(1 << 32) + 15])
def test_switch_that_is_accepted(ryn, double, name, swID):
    assert run(getattr(ryn, name), swID, *GOOD[name][1:]).stderr == ""
    assert {call.swID for call in double.calls()} == {swID & 0xFFFFFFFF}


@pytest.mark.parametrize("name", ["GetUplinkStats", "GetUplinkQueueStats"])
@pytest.mark.parametrize("port", [128, 255, -1, 0x80000000, (1 << 32) + 128])
def test_port_that_is_refused(ryn, double, name, port):
    assert run(getattr(ryn, name), 0, port, *GOOD[name][2:]) == Outcome(None, INVALID)
    assert double.calls() == []


@pytest.mark.parametrize("name", GOOD)
def test_arguments_that_are_not_understood(ryn, double, name):
    good, method = GOOD[name], getattr(ryn, name)
    wrong = [(), good[:-1], (*good, 0)]
    for place in range(len(good)):
        for value in ("0", None, 0.0, b"0", [0]):
            wrong.append((*good[:place], value, *good[place + 1 :]))
    for args in wrong:
        assert run(method, *args) == Outcome(None, INVALID, (TypeError, ANY)), args
    for place in range(len(good)):
        args = (*good[:place], Raises(), *good[place + 1 :])
        assert run(method, *args) == Outcome(None, INVALID, (LookupError, "no number")), args
    assert double.calls() == []
