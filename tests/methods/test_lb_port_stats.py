"""DumpLBPortStats: the balancer's figures, against a plain model of its arithmetic modulo 2 to the power 64."""

from __future__ import annotations

import random
import struct

import pytest
from harness import ANY, Bytes, Call, Outcome, run
from objects import NOT_INTS, Index

AREA, PORTS, CORES = 9224, 8, 6152  # size; offsets of the port and core records
RECORD = 48
PORT = struct.Struct("<IIIIQQQQ")  # P0, P1, core A, core B, C0 to C3
CORE = struct.Struct("<QQQQQ")  # busy now, busy before, time now, time before, work total

MOD = 1 << 64
TOP = MOD - 1
UNIT = 1 << 20

INVALID = "TypeError: Invalid parameter passed.\n"


def stats(ports: dict[int, tuple[int, ...]] = {}, cores: dict[int, tuple[int, ...]] = {}, fill: int = 0) -> Bytes:
    """Records by number, zeros elsewhere; `fill` is in the bytes that are not read."""
    area = Bytes(AREA).raw(0, bytes([fill]) * 8)
    for core in range(64):
        area.raw(CORES + RECORD * core + 40, bytes([fill]) * 8)
    for number, record in ports.items():
        area.raw(PORTS + RECORD * number, PORT.pack(*record))
    for number, record in cores.items():
        area.raw(CORES + RECORD * number, CORE.pack(*record))
    return area


def core_of(area: bytes, number: int) -> tuple[int, ...]:
    return CORE.unpack_from(area, CORES + RECORD * number)


def usage(area: bytes, core: int, scale: int, counter: int) -> int:
    if core > 63:
        return 0
    busy_now, busy_before, time_now, time_before, work = core_of(area, core)
    period = (time_now + 0xFFFFF - time_before) % MOD // UNIT
    busy = (busy_now + 0xFFFFF - busy_before) % MOD // UNIT
    if period == 0 or work == 0 or period * work % MOD == 0:
        return 0
    return busy * scale * counter % MOD // (period * work % MOD)


def port_figures(area: bytes, record: tuple[int, ...]) -> tuple[int, ...]:
    _, _, a, b, *c = record
    return (
        usage(area, a, 200, c[0]),
        usage(area, b, 200, c[1]),
        usage(area, a, 100, c[2]),
        usage(area, b, 100, c[3]),
        (2 * c[0] + c[2] + 99999) % MOD // 100000,
        (2 * c[1] + c[3] + 99999) % MOD // 100000,
    )


def core_figures(area: bytes, number: int) -> tuple[int, int]:
    busy_now, busy_before, time_now, time_before, work = core_of(area, number)
    share = 0 if time_now == time_before else ((busy_now - busy_before) * 100 % MOD // ((time_now - time_before) % MOD))
    return share, (work + 99999) % MOD // 100000


def expected(area: bytes, first: int, last: int) -> tuple:
    records = [PORT.unpack_from(area, PORTS + RECORD * port) for port in range(first, last + 1)]
    return (
        *(tuple(record[i] for record in records) for i in range(4)),
        tuple(port_figures(area, record) for record in records),
        tuple(core_figures(area, number) for number in range(64)),
    )


@pytest.fixture
def dump(ryn, double):
    def dump(area: bytes | None, first: int = 0, last: int = 127) -> Outcome:
        double.answer("Ryn_Dump_LB_PortStats", area=area)
        return run(ryn.DumpLBPortStats, 3, first, last)

    return dump


@pytest.fixture
def figures(dump):
    """The six figures of one port: its counters on core 1 (A) and core 2 (B)."""

    def figures(counters: tuple[int, int, int, int], a: tuple[int, ...], b: tuple[int, ...] = (0,) * 5) -> tuple:
        area = stats({5: (0, 0, 1, 2, *counters)}, {1: a, 2: b})
        outcome = dump(area, 5, 5)
        assert outcome == Outcome(expected(area, 5, 5))
        return outcome.value[4][0]

    return figures


EMPTY_CORES = ((0, 0),) * 64

# ---- Arguments and failures -----------------------------------------------------------------------------------------


@pytest.mark.parametrize("switch", [0, 15, Index(15), (1 << 32) + 15])
def test_passes_the_switch_by_value_and_a_cleared_area(ryn, double, switch):
    assert run(ryn.DumpLBPortStats, switch, 0, 0).value[0] == (0,)
    passed = switch.__index__() % (1 << 32)
    assert double.calls() == [Call("Ryn_Dump_LB_PortStats", swID=passed, length=AREA, zeroed=True)]


@pytest.mark.parametrize(
    "args",
    [
        (16, 0, 0),
        (-1, 0, 0),
        (0, 128, 128),
        (0, 0, 128),
        (0, 128, 0),
        (0, -1, 0),
        (0, 0, -1),
        (0, -1, -1),
        (1 << 31, 0, 0),
        (0, 1 << 31, 1 << 31),
        (16, 128, 128),
    ],
)
def test_arguments_out_of_range(ryn, double, args):
    assert run(ryn.DumpLBPortStats, *args) == Outcome(None, INVALID)
    assert double.calls() == []


@pytest.mark.parametrize("first, last", [(2, 0), (7, 5), (127, 0), (127, 125)])
def test_first_port_more_than_one_above_the_last_is_refused_before_the_library_is_called(ryn, double, first, last):
    assert run(ryn.DumpLBPortStats, 0, first, last) == Outcome(None, INVALID)
    assert double.calls() == []


@pytest.mark.parametrize("first", [1, 6, 127])
def test_first_port_one_above_the_last_gives_empty_tuples(dump, first):
    assert dump(None, first, first - 1) == Outcome(((), (), (), (), (), EMPTY_CORES))


@pytest.mark.parametrize("args", [(), (0,), (0, 0), (0, 0, 0, 0)])
def test_wrong_number_of_arguments(ryn, double, args):
    assert run(ryn.DumpLBPortStats, *args) == Outcome(None, INVALID, (TypeError, ANY))
    assert double.calls() == []


@pytest.mark.parametrize("place", range(3))
@pytest.mark.parametrize("bad, error", NOT_INTS)
def test_argument_that_is_no_int(ryn, double, place, bad, error):
    args = [1, 1, 1]
    args[place] = bad
    assert run(ryn.DumpLBPortStats, *args) == Outcome(None, INVALID, (error, ANY))
    assert double.calls() == []


@pytest.mark.parametrize("status", [1, 0xBAD0007, 0xFFFFFFFF])
def test_failure_of_the_library(ryn, double, status):
    double.answer("Ryn_Dump_LB_PortStats", status=status, area=stats({0: (1,) * 8}))
    assert run(ryn.DumpLBPortStats, 0, 0, 0) == Outcome(None, "ValueError: Failed to dump LB statistics.\n")
    assert double.ops() == ["Ryn_Dump_LB_PortStats"]


@pytest.mark.parametrize("length", [0, 8, 0xFFFFFFFF])
def test_length_word_is_not_looked_at_afterwards(ryn, double, length):
    area = stats({0: (1, 2, 3, 4, 5, 6, 7, 8)})
    double.answer("Ryn_Dump_LB_PortStats", area=area, length=length)
    assert run(ryn.DumpLBPortStats, 0, 0, 0) == Outcome(expected(area, 0, 0))


def test_each_failing_allocation_ends_with_none_and_no_message(ryn, double):
    rng = random.Random(65)
    area = Bytes(rng.randbytes(AREA))
    area.u32(PORTS + 8, 3, 4)
    double.answer("Ryn_Dump_LB_PortStats", area=area)
    for n in range(1000):
        outcome = run(ryn.DumpLBPortStats, 0, 0, 0, failing_allocation=n)
        if not outcome.allocation_failed:
            break
        assert outcome == Outcome(None, "", (MemoryError, ANY)), n
    assert outcome == Outcome(expected(area, 0, 0))
    assert n > 64


# ---- Shape ----------------------------------------------------------------------------------------------------------


def test_one_port_gives_five_tuples_of_one_and_one_of_64(dump):
    value = dump(None, 5, 5).value
    assert value == ((0,), (0,), (0,), (0,), ((0,) * 6,), EMPTY_CORES)
    assert {type(item) for item in [value, *value, *value[4], *value[5]]} == {tuple}


@pytest.mark.parametrize("first, last", [(0, 127), (0, 0), (127, 127), (3, 9), (126, 127)])
def test_range_is_inclusive_and_indexed_by_port_number(dump, first, last):
    area = stats(
        {port: (1000 + port, 2000 + port, port % 64, 63 - port % 64, *[100000 * port] * 4) for port in range(128)}
    )
    value = dump(area, first, last).value
    assert value == expected(area, first, last)
    assert value[0] == tuple(range(1000 + first, 1001 + last))
    assert [len(item) for item in value] == [last - first + 1] * 5 + [64]


@pytest.mark.parametrize("word", [0x7FFFFFFF, 0x80000000, 0xFFFFFFFF])
def test_words_and_core_numbers_are_unsigned(dump, word):
    assert dump(stats({0: (word, word, word, word, 0, 0, 0, 0)}), 0, 0).value[:4] == ((word,),) * 4


def test_unread_bytes_do_not_show(dump):
    ports = {0: (1, 2, 3, 4, 5, 6, 7, 8)}
    cores = {3: (5 * UNIT, 0, 10 * UNIT, 0, 77), 4: (1, 2, 3, 4, 5)}
    assert dump(stats(ports, cores, fill=0xFF), 0, 0) == dump(stats(ports, cores), 0, 0)


def test_library_that_fills_nothing(dump):
    assert dump(None) == Outcome(((0,) * 128,) * 4 + (((0,) * 6,) * 128, EMPTY_CORES))


# ---- Figures of ports -----------------------------------------------------------------------------------------------

HALF_BUSY = (50 * UNIT, 0, 100 * UNIT, 0, 1000)  # busy 50 of 100 units, 1000 of work


def test_usages_and_totals(figures):
    # 50 x 200 x 100 / (100 x 1000), and with 100 for the last two counters
    assert figures((100, 200, 300, 400), HALF_BUSY, HALF_BUSY) == (10, 20, 15, 20, 1, 1)


def test_even_counters_are_measured_against_core_a_and_odd_ones_against_core_b(figures):
    assert figures((100, 100, 100, 100), HALF_BUSY, (0,) * 5)[:4] == (10, 0, 5, 0)
    assert figures((100, 100, 100, 100), (0,) * 5, HALF_BUSY)[:4] == (0, 10, 0, 5)


def test_first_two_counters_count_double(figures):
    assert figures((50000, 0, 0, 0), HALF_BUSY)[4:] == (1, 0)
    assert figures((0, 0, 100000, 0), HALF_BUSY)[4:] == (1, 0)
    assert figures((0, 100000, 0, 1), HALF_BUSY)[4:] == (0, 3)


@pytest.mark.parametrize(
    "total, shown", [(0, 0), (1, 1), (99999, 1), (100000, 1), (100001, 2), (TOP - 99999, TOP // 100000), (TOP, 0)]
)
def test_totals_are_rounded_up_and_wrap(figures, total, shown):
    assert figures((0, 0, total, total), HALF_BUSY)[4:] == (shown, shown)


def test_doubling_wraps(figures):
    assert figures((1 << 63, 1 << 63, 5, 0), HALF_BUSY)[4:] == (1, 0)


def test_core_without_work_gives_0_for_its_usages(figures):
    assert figures((1000,) * 4, (*HALF_BUSY[:4], 0), HALF_BUSY)[:4] == (0, 100, 0, 50)
    assert figures((1000,) * 4, HALF_BUSY, (*HALF_BUSY[:4], 0))[:4] == (100, 0, 50, 0)


def test_period_of_0_gives_0(figures):
    assert figures((1000,) * 4, (50 * UNIT, 0, 7, 7, 1000))[:4] == (0, 0, 0, 0)


@pytest.mark.parametrize(
    "difference, units", [(0, 0), (1, 1), (UNIT - 1, 1), (UNIT, 1), (UNIT + 1, 2), (10 * UNIT + 1, 11)]
)
def test_differences_are_rounded_up_to_units(figures, difference, units):
    # busy units are shown by 200 x 1 / (1 x 200), and the period's by 2200 / units
    assert figures((1, 0, 0, 0), (difference, 0, UNIT, 0, 200))[0] == units
    assert figures((11, 0, 0, 0), (UNIT, 0, difference, 0, 1))[0] == (2200 // units if units else 0)


def test_marks_that_ran_backwards_wrap(figures):
    # Rounded in 64 bits: (0 + 0xFFFFF - 2^20) is 2^64 - 1, which is 2^44 - 1 units
    assert figures((1, 0, 0, 0), (0, UNIT, UNIT, 0, 200))[0] == (1 << 44) - 1
    assert figures((0, 0, 1, 0), (UNIT, 0, 0, UNIT, 1))[2] == 0
    # One mark back is still inside the rounding
    assert figures((1, 0, 0, 0), (0, 1, UNIT, 0, 200))[0] == 0


def test_marks_around_the_wrap_of_64_bits(figures):
    assert figures((1, 0, 0, 0), (UNIT - 1, TOP, UNIT - 1, TOP, 200))[0] == 1


def test_product_that_wraps_to_0_gives_0(figures):
    # a period of 2^43 units, and work of 2^21
    assert figures((1000,) * 4, (UNIT, 0, 1 << 63, 0, 1 << 21))[:4] == (0, 0, 0, 0)
    assert figures((1 << 60, 0, 0, 0), (UNIT, 0, 1 << 63, 0, 1 << 20))[0] == (200 << 60) % MOD // (1 << 63)


def test_product_of_the_divisor_wraps(figures):
    # 2^43 x (2^21 + 1) leaves 2^43
    assert figures((1 << 50, 0, 0, 0), (UNIT, 0, 1 << 63, 0, (1 << 21) + 1))[0] == 200 << 7


def test_product_of_the_dividend_wraps(figures):
    assert figures((TOP, 0, TOP, 0), (UNIT, 0, UNIT, 0, 1))[0:3:2] == (MOD - 200, MOD - 100)


def test_dividend_is_multiplied_before_it_is_divided(figures):
    # 3 x 200 x 5 / (7 x 1): dividing earlier would lose the fraction
    assert figures((5, 0, 0, 0), (3 * UNIT, 0, 7 * UNIT, 0, 1))[0] == 428


def test_figures_are_unsigned(figures):
    assert figures((TOP, 0, 0, 0), (UNIT, 0, UNIT, 0, 1))[0] > 1 << 63


@pytest.mark.parametrize("number", [64, 65, 127, 128, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF])
def test_core_number_above_63_gives_0_for_its_usages_and_is_itself_shown(dump, number):
    cores = {core: HALF_BUSY for core in range(64)}
    area = stats({0: (0, 0, number, 63, *[1000] * 4), 1: (0, 0, 63, number, *[1000] * 4)}, cores)
    value = dump(area, 0, 1).value
    assert value == expected(area, 0, 1)
    assert value[2:4] == ((number, 63), (63, number))
    assert value[4] == ((0, 100, 0, 50, 1, 1), (100, 0, 50, 0, 1, 1))


def test_both_cores_may_be_the_same(dump):
    area = stats({0: (0, 0, 63, 63, 100, 200, 300, 400)}, {63: HALF_BUSY})
    assert dump(area, 0, 0).value[4] == ((10, 20, 15, 20, 1, 1),)


# ---- Figures of cores -----------------------------------------------------------------------------------------------


@pytest.mark.parametrize(
    "core, shown",
    [
        ((50, 0, 100, 0, 0), (50, 0)),
        ((1, 0, 3, 0, 1), (33, 1)),  # raw differences, far below a unit of 2 to the power 20
        ((200, 100, 300, 200, 100000), (100, 1)),
        ((5, 0, 7, 7, 100001), (0, 2)),  # the time stands still
        ((0, 1, 1, 0, 0), (MOD - 100, 0)),  # wraps
        ((1, 0, 0, 1, TOP), (0, 0)),
        ((4, TOP, 9, TOP, TOP - 99999), (50, TOP // 100000)),
        ((TOP, 0, 1, 0, 99999), (MOD - 100, 1)),
    ],
)
def test_usage_and_load_of_a_core(dump, core, shown):
    for number in (0, 31, 63):
        area = stats({}, {number: core})
        value = dump(area, 0, 0).value
        assert value[5] == tuple(shown if i == number else (0, 0) for i in range(64))
        assert value == expected(area, 0, 0)


def test_every_core_is_reported_even_for_no_port(dump):
    area = stats({}, {core: (core, 0, 100, 0, 100000 * core) for core in range(64)})
    assert dump(area, 1, 0).value[5] == tuple((core, core) for core in range(64))


# ---- Random records -------------------------------------------------------------------------------------------------


def test_random_and_extreme_records_match_the_model(dump):
    rng = random.Random(66)

    def mark() -> int:
        return rng.choice(
            [
                0,
                1,
                UNIT - 1,
                UNIT,
                UNIT + 1,
                1 << 43,
                1 << 62,
                1 << 63,
                TOP,
                TOP - UNIT,
                rng.getrandbits(64),
                rng.getrandbits(64),
                rng.getrandbits(40),
            ]
        )

    def counter() -> int:
        return rng.choice(
            [
                0,
                1,
                99999,
                100000,
                1 << 21,
                1 << 32,
                1 << 63,
                TOP,
                rng.getrandbits(64),
                rng.getrandbits(40),
                rng.getrandbits(20),
            ]
        )

    def core() -> tuple[int, ...]:
        busy, time = mark(), mark()
        return (
            busy,
            rng.choice([busy, mark(), (busy - rng.getrandbits(30)) % MOD]),
            time,
            rng.choice([time, mark(), (time - rng.getrandbits(30)) % MOD]),
            counter(),
        )

    def number() -> int:
        return rng.choice([rng.randrange(64), rng.randrange(64), 63, 64, 0xFFFFFFFF, rng.getrandbits(32)])

    for _ in range(100):
        ports = {
            port: (rng.getrandbits(32), rng.getrandbits(32), number(), number(), *(counter() for _ in range(4)))
            for port in range(128)
        }
        area = stats(ports, {n: core() for n in range(64)}, fill=rng.getrandbits(8))
        assert dump(area) == Outcome(expected(area, 0, 127))


def test_random_bytes_match_the_model(dump):
    rng = random.Random(67)
    for _ in range(60):
        area = Bytes(rng.randbytes(AREA))
        for port in range(0, 128, 2):  # else hardly a core number would be one
            area.u32(PORTS + RECORD * port + 8, rng.randrange(64), rng.randrange(64))
        first = rng.randrange(128)
        last = rng.randrange(first, 128)
        assert dump(area, first, last) == Outcome(expected(area, first, last))
