"""Readings and the rates between two of them, without a platform."""

import pickle

import pytest
from harness import Bytes

import ryn

TX_PACKETS, TX_BYTES, RX_DROPS = 0, 1, 14
FIELDS = ("tx_packets", "tx_bytes", "rx_drops")


def reading(clock: float, **ports: dict) -> ryn.Reading:
    """A reading of ports that are texts, with their counters of the fast path, or of the slow one after `slow_`."""
    # A row holds what the platform fills: for each path bytes before packets, sixteen numbers of 64 bits.
    offsets = {"tx_bytes": 0, "tx_packets": 8, "rx_drops": 112}
    table = bytearray()
    for counters in ports.values():
        row = Bytes(256)
        for name, value in counters.items():
            row.u64(offsets[name[5:]] + 128 if name.startswith("slow_") else offsets[name], value)
        table += row
    return ryn.Reading(list(ports), ryn.CounterTable(bytes(table)), time_=1000 + clock, clock=clock)


def test_a_reading_is_asked_by_port():
    made = reading(5.0, a={"tx_packets": 7}, b={"rx_drops": 3})
    assert made["a"].total.tx_packets == 7
    assert made["b"].total.rx_drops == 3
    assert (list(made), len(made), "a" in made, "c" in made) == (["a", "b"], 2, True, False)
    assert [(port, counters.total.tx_packets) for port, counters in made.items()] == [("a", 7), ("b", 0)]
    with pytest.raises(KeyError):
        made["c"]


def test_a_reading_knows_its_time_and_can_be_pickled():
    made = reading(5.0, a={"tx_packets": 7})
    twin = pickle.loads(pickle.dumps(made))
    assert (twin.time, twin.clock, list(twin), twin["a"]) == (1005.0, 5.0, ["a"], made["a"])


def test_readings_and_ticks_are_shown():
    before, after = reading(5.0, a={}, b={}), reading(7.0, a={"tx_bytes": 3}, b={})
    tick = after.rates(before)
    assert (repr(after), repr(tick)) == ("<ryn.Reading of 2 ports at 1007.000>", "<ryn.Tick of 2 ports over 2.000 s>")
    assert [(port, rates.tx_bytes) for port, rates in tick.items()] == [("a", 1.5), ("b", 0.0)]


def test_a_tick_can_be_pickled():
    tick = reading(7.0, a={"tx_packets": 110}, b={}).rates(reading(5.0, a={"tx_packets": 10}, b={"tx_packets": 1}))
    twin = pickle.loads(pickle.dumps(tick))
    assert (twin.seconds, twin.time, twin.top("tx_packets"), twin.resets) == (
        2.0,
        1007.0,
        tick.top("tx_packets"),
        ("b",),
    )


def test_ports_and_rows_go_together():
    with pytest.raises(ValueError, match="2 ports, but 1 rows"):
        ryn.Reading(["a", "b"], ryn.CounterTable(bytes(256)))


def test_rates_are_of_the_totals_and_a_second():
    tick = reading(7.0, a={"tx_packets": 110, "tx_bytes": 8000}).rates(reading(5.0, a={"tx_packets": 10}))
    assert (tick.seconds, tick.time) == (2.0, 1007.0)
    assert (tick["a"].tx_packets, tick["a"].tx_bytes, tick["a"].rx_drops) == (50.0, 4000.0, 0.0)
    both = reading(1.0, a={"tx_packets": 3, "slow_tx_packets": 4}).rates(reading(0.0, a={"slow_tx_packets": 2}))
    assert both["a"].tx_packets == 5.0
    assert (list(tick), len(tick), "a" in tick, tick.resets) == (["a"], 1, True, ())


def test_the_top_is_sorted_and_cut():
    before = reading(0.0, a={}, b={}, c={})
    after = reading(1.0, a={"tx_bytes": 5}, b={"tx_bytes": 9}, c={"tx_bytes": 5})
    tick = after.rates(before)
    assert [(port, rate.tx_bytes) for port, rate in tick.top("tx_bytes", 2)] == [("b", 9.0), ("a", 5.0)]
    assert [port for port, _ in tick.top("tx_bytes")] == ["b", "a", "c"]
    assert tick.top("tx_bytes", 0) == []
    with pytest.raises(ValueError, match="'bytes'"):
        tick.top("bytes")
    with pytest.raises(ValueError, match="negative"):
        tick.top("tx_bytes", -1)


def test_a_counter_that_falls_is_a_reset_without_a_rate():
    tick = reading(1.0, a={"tx_packets": 4}, b={"tx_packets": 9}).rates(
        reading(0.0, a={"tx_packets": 5, "tx_bytes": 3}, b={"tx_packets": 2})
    )
    assert tick.resets == ("a",)
    assert list(tick) == ["b"]
    assert "a" not in tick
    with pytest.raises(KeyError):
        tick["a"]
    assert [port for port, _ in tick.top("tx_packets")] == ["b"]


def test_a_fall_of_more_than_two_to_the_63_is_a_wrap():
    near_the_end = (1 << 64) - 10
    tick = reading(1.0, a={"tx_packets": 20}).rates(reading(0.0, a={"tx_packets": near_the_end}))
    assert (tick["a"].tx_packets, tick.resets) == (30.0, ())


def test_ports_of_one_reading_only_are_left_out():
    tick = reading(1.0, b={"tx_packets": 1}, c={}).rates(reading(0.0, a={}, b={}))
    assert list(tick) == ["b"]


def test_rates_need_time_between():
    made = reading(1.0, a={})
    for earlier in (made, reading(2.0, a={})):
        with pytest.raises(ValueError, match="earlier"):
            made.rates(earlier)
