"""GetPortStats: the counters of both paths, and the calls that fetch them."""

import random
import struct
import sys

import pytest
from harness import ANY, BUFFER, DICT_ITEM, Bytes, Call, Outcome, capture_stderr, lost_blocks, run, u64

RECORD = 128
OFFSETS = {
    "txBytes": 0,
    "txPkts": 8,
    "txMcastBytes": 16,
    "txMcastPkts": 24,
    "txBcastBytes": 32,
    "txBcastPkts": 40,
    "txDrops": 48,
    "txErrors": 56,
    "rxBytes": 64,
    "rxPkts": 72,
    "rxMcastBytes": 80,
    "rxMcastPkts": 88,
    "rxBcastBytes": 96,
    "rxBcastPkts": 104,
    "rxDrops": 112,
    "rxErrors": 120,
}
KEYS = [
    "txPkts",
    "txBytes",
    "txMcastPkts",
    "txMcastBytes",
    "txBcastPkts",
    "txBcastBytes",
    "txDrops",
    "txErrors",
    "rxPkts",
    "rxBytes",
    "rxMcastPkts",
    "rxMcastBytes",
    "rxBcastPkts",
    "rxBcastBytes",
    "rxDrops",
    "rxErrors",
]
SLOW_KEYS = [
    "spTxPkts",
    "spTxBytes",
    "spTxMcastPkts",
    "spTxMcastBytes",
    "spTxBcastPkts",
    "spTxBcastBytes",
    "spTxDrops",
    "spTxErrors",
    "spRxPkts",
    "spRxBytes",
    "spRxMcastPkts",
    "spRxMcastBytes",
    "spRxBcastPkts",
    "spRxBcastBytes",
    "spRxDrops",
    "spRxErrors",
]
INVALID = "TypeError: Invalid parameter passed.\n"

counts_blocks = pytest.mark.skipif(sys.getallocatedblocks() == 0, reason="PYTHONMALLOC: no blocks are counted")


def counters(fast: bytes, slow: bytes) -> dict:
    return {
        **{key: struct.unpack_from("<q", fast, OFFSETS[key])[0] for key in KEYS},
        **{slow_key: struct.unpack_from("<q", slow, OFFSETS[key])[0] for key, slow_key in zip(KEYS, SLOW_KEYS)},
    }


def answer(double, fast: bytes, slow: bytes) -> None:
    double.answer("Ryn_Get_Port_Stats", area=fast)
    double.answer("Ryn_Get_Port_Stats_Slowpath", area=slow)


def test_each_counter_has_its_key_packets_before_bytes(ryn, double):
    answer(double, u64(*range(1000, 1016)), u64(*range(2000, 2016)))
    outcome = run(ryn.GetPortStats, 0, 0)
    assert (outcome.stderr, outcome.error) == ("", None)
    assert list(outcome.value.items()) == [
        ("txPkts", 1001),
        ("txBytes", 1000),
        ("txMcastPkts", 1003),
        ("txMcastBytes", 1002),
        ("txBcastPkts", 1005),
        ("txBcastBytes", 1004),
        ("txDrops", 1006),
        ("txErrors", 1007),
        ("rxPkts", 1009),
        ("rxBytes", 1008),
        ("rxMcastPkts", 1011),
        ("rxMcastBytes", 1010),
        ("rxBcastPkts", 1013),
        ("rxBcastBytes", 1012),
        ("rxDrops", 1014),
        ("rxErrors", 1015),
        ("spTxPkts", 2001),
        ("spTxBytes", 2000),
        ("spTxMcastPkts", 2003),
        ("spTxMcastBytes", 2002),
        ("spTxBcastPkts", 2005),
        ("spTxBcastBytes", 2004),
        ("spTxDrops", 2006),
        ("spTxErrors", 2007),
        ("spRxPkts", 2009),
        ("spRxBytes", 2008),
        ("spRxMcastPkts", 2011),
        ("spRxMcastBytes", 2010),
        ("spRxBcastPkts", 2013),
        ("spRxBcastBytes", 2012),
        ("spRxDrops", 2014),
        ("spRxErrors", 2015),
    ]


@pytest.mark.parametrize(
    "bits, value",
    [
        (0, 0),
        (1, 1),
        (256, 256),
        ((1 << 32) - 1, (1 << 32) - 1),
        (1 << 32, 1 << 32),
        ((1 << 63) - 1, (1 << 63) - 1),
        (1 << 63, -(1 << 63)),
        ((1 << 63) + 1, -(1 << 63) + 1),
        ((1 << 64) - 1, -1),
        ((1 << 64) - 2, -2),
    ],
)
def test_counter_at_or_above_2_to_the_63rd_comes_out_negative(ryn, double, bits, value):
    answer(double, u64(*[bits] * 16), u64(*[bits] * 16))
    assert run(ryn.GetPortStats, 0, 0) == Outcome({key: value for key in KEYS + SLOW_KEYS})


def test_random_counters(ryn, double):
    rng = random.Random(33)
    for _ in range(200):
        fast, slow = rng.randbytes(RECORD), rng.randbytes(RECORD)
        answer(double, fast, slow)
        outcome = run(ryn.GetPortStats, rng.randrange(16), rng.randrange(128))
        assert outcome == Outcome(counters(fast, slow))
        assert list(outcome.value) == KEYS + SLOW_KEYS


@pytest.mark.parametrize("is_slow", [False, True])
def test_each_byte_of_a_record_reaches_its_key(ryn, double, is_slow):
    keys = dict(zip(KEYS, SLOW_KEYS if is_slow else KEYS))
    for offset in range(RECORD):
        records = [Bytes(RECORD), Bytes(RECORD)]
        records[is_slow].u8(offset, 0xFF)
        answer(double, *records)
        value = run(ryn.GetPortStats, 0, 0).value
        assert {key for key in value if value[key]} == {
            keys[key] for key, start in OFFSETS.items() if start <= offset < start + 8
        }, offset


@pytest.mark.parametrize("swID, rynPortID", [(0, 0), (0, 127), (15, 0), (15, 127), (7, 64)])
def test_both_calls_are_about_the_port(ryn, double, swID, rynPortID):
    assert run(ryn.GetPortStats, swID, rynPortID) == Outcome({key: 0 for key in KEYS + SLOW_KEYS})
    assert double.calls() == [
        Call("Ryn_Get_Port_Stats", swID=swID, rynPortID=rynPortID, length=128, zeroed=True),
        Call("Ryn_Get_Port_Stats_Slowpath", swID=swID, rynPortID=rynPortID, length=128, zeroed=True),
    ]


def test_slow_path_that_fills_nothing_shows_zeros_not_the_fast_path_again(ryn, double):
    double.answer("Ryn_Get_Port_Stats", area=u64(*range(1000, 1016)))
    outcome = run(ryn.GetPortStats, 0, 0)
    assert outcome == Outcome(counters(u64(*range(1000, 1016)), bytes(128)))
    assert [call.zeroed for call in double.calls()] == [True, True]


@pytest.mark.parametrize(
    "left, handed_in",
    [
        (0, 0),
        (1, 1),
        (64, 64),
        (127, 127),
        (128, 128),
        (129, 128),
        (256, 128),
        (0x80000000, 128),
        (0xFFFFFFFF, 128),
    ],
)
def test_slow_path_gets_the_length_that_the_fast_path_left_but_never_more_than_the_room(ryn, double, left, handed_in):
    fast, slow = u64(*range(1000, 1016)), u64(*range(2000, 2016))
    double.answer("Ryn_Get_Port_Stats", area=fast, length=left)
    double.answer("Ryn_Get_Port_Stats_Slowpath", area=slow * 2)  # fills what it is allowed to
    outcome = run(ryn.GetPortStats, 0, 0)
    assert [call.length for call in double.calls()] == [128, handed_in]
    assert outcome == Outcome(counters(fast, slow[:handed_in] + bytes(128 - handed_in)))


@pytest.mark.parametrize("length", [0, 0xFFFFFFFF])
def test_length_that_the_slow_path_leaves_does_not_matter(ryn, double, length):
    fast, slow = u64(*range(16)), u64(*range(16, 32))
    double.answer("Ryn_Get_Port_Stats", area=fast)
    double.answer("Ryn_Get_Port_Stats_Slowpath", area=slow, length=length)
    assert run(ryn.GetPortStats, 0, 0) == Outcome(counters(fast, slow))


@pytest.mark.parametrize(
    "args",
    [
        (16, 0),
        (0, 128),
        (16, 128),
        (-1, 0),
        (0, -1),
        (1 << 31, 0),
        (0, 1 << 31),
        (0xFFFFFFFF, 0),
        (0, 0xFFFFFFFF),
        ((1 << 32) + 16, 0),
        (0, (1 << 32) + 128),
        (127, 15),
    ],
)
def test_port_out_of_range(ryn, double, args):
    assert run(ryn.GetPortStats, *args) == Outcome(None, INVALID)
    assert double.calls() == []


@pytest.mark.parametrize("args", [(), (0,), (0, 0, 0), ("0", 0), (0, "0"), (0, None), (0.0, 0), (16, b"\0")])
def test_what_is_no_port(ryn, double, args):
    assert run(ryn.GetPortStats, *args) == Outcome(None, INVALID, (TypeError, ANY))
    assert double.calls() == []


@pytest.mark.parametrize("status", [1, 0x0BAD0003, 0x80000000, 0xFFFFFFFF])
def test_fast_path_fails(ryn, double, status):
    double.answer("Ryn_Get_Port_Stats", status=status, area=u64(*range(16)))
    assert run(ryn.GetPortStats, 0, 0) == Outcome(None, "Failed to retrieve port stats.\n")
    assert double.ops() == ["Ryn_Get_Port_Stats"]


@pytest.mark.parametrize("status", [1, 0x0BAD0003, 0x80000000, 0xFFFFFFFF])
def test_slow_path_fails_and_no_part_of_the_dict_is_seen(ryn, double, status):
    answer(double, u64(*range(16)), u64(*range(16)))
    double.answer("Ryn_Get_Port_Stats_Slowpath", status=status)
    assert run(ryn.GetPortStats, 0, 0) == Outcome(None, "Failed to retrieve slowpath port stats.\n")
    assert double.ops() == ["Ryn_Get_Port_Stats", "Ryn_Get_Port_Stats_Slowpath"]


@counts_blocks
def test_failing_slow_path_abandons_the_dict_of_the_fast_path(ryn, double):
    double.recording(False)
    double.answer("Ryn_Get_Port_Stats_Slowpath", status=1)
    lost = {}
    for first in (0, 1000):  # 0 to 15 are made once in a process, 1000 to 1015 in each call
        double.answer("Ryn_Get_Port_Stats", area=u64(*range(first, first + 16)))
        with capture_stderr():
            lost[first] = lost_blocks(lambda: ryn.GetPortStats(0, 0), 200)
    assert lost[0] == 2  # the dict and its table
    assert lost[1000] - lost[0] == 16  # the counters in it


@counts_blocks
@pytest.mark.parametrize("fast_status", [0, 1])
def test_no_other_end_abandons_anything(ryn, double, fast_status):
    double.recording(False)
    answer(double, u64(*range(1000, 1016)), u64(*range(2000, 2016)))
    double.answer("Ryn_Get_Port_Stats", status=fast_status, area=u64(*range(1000, 1016)))
    with capture_stderr():
        assert lost_blocks(lambda: ryn.GetPortStats(0, 0), 200) == 0


def test_dict_that_cannot_be_created_is_called_a_tuple(ryn, double):
    outcome = run(ryn.GetPortStats, 0, 0, failing_allocation=0)
    assert outcome == Outcome(None, "Failed to allocate stats tuple.\n", (MemoryError, ""))
    assert double.ops() == ["Ryn_Get_Port_Stats"]


def test_counter_or_key_that_cannot_be_created_or_stored(ryn, double):
    answer(double, u64(*range(1000, 1016)), u64(*range(2000, 2016)))
    assert run(ryn.GetPortStats, 0, 0).error is None  # the keys are made
    outcomes = [run(ryn.GetPortStats, 0, 0, failing_allocation=1)]
    while outcomes[-1].allocation_failed:
        outcomes.append(run(ryn.GetPortStats, 0, 0, failing_allocation=1 + len(outcomes)))
    assert outcomes.pop() == Outcome(counters(u64(*range(1000, 1016)), u64(*range(2000, 2016))))
    assert outcomes.count(Outcome(None, error=BUFFER)) == 32  # one a counter
    assert outcomes.count(Outcome(None, error=DICT_ITEM)) == len(outcomes) - 32 > 0  # whenever the dict grows
