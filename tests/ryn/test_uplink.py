"""Uplinks: queues, the driver's text and what is read out of it."""

import pytest
from harness import Bytes, u32

import ryn
from ryn.uplink import driver_statistics

TEXT = (
    "driver: sim 1\nlink_up: 1\n  rx queue 0 : 12\nspeed: 25G\nload: -3\nshare: 0.5\n"
    "last: 18446744073709551616\r\n: 4\nempty:\n"
)


@pytest.fixture
def uplink(host, platform) -> ryn.Uplink:
    (found,) = host.switch("dvs-1").uplinks()
    platform.double.forget_calls()
    return found


def driver_text(platform, text: str) -> None:
    data = text.encode() + b"\0"
    platform.double.answer("Ryn_Get_Uplink_Priv_Stats_Len", area=u32(len(data)))
    platform.double.answer("Ryn_Get_Uplink_Priv_Stats", area=data)


def test_an_uplink_is_no_port(uplink):
    assert not isinstance(uplink, ryn.Port)
    assert isinstance(uplink.port, ryn.Port)
    assert (uplink.number, str(uplink), uplink.switch.alias) == (0, "dvs-1/0", "dvs-1")
    assert uplink == ryn.Uplink(uplink.port) and len({uplink, ryn.Uplink(uplink.port)}) == 1
    assert uplink != uplink.port


def test_counters_are_unsigned(uplink, platform):
    platform.double.answer("Ryn_Get_Uplink_Stats", area=Bytes(192).u64(0, (1 << 64) - 1).u64(120, 7))
    counters = uplink.counters()
    assert (counters.rx_packets, counters.rx_crc_errors, len(counters)) == ((1 << 64) - 1, 7, 24)


def test_there_are_as_many_queues_as_the_port_has(uplink, platform):
    assert len(uplink.queues(0)) == 3  # of the receive queues
    assert len(uplink.queues(1)) == 2
    asked = [(call.swID, call.rynPortID, call.queue, call.queueKind) for call in platform.double.calls()]
    assert asked == [(3, 0, 0, 0), (3, 0, 1, 0), (3, 0, 2, 0), (3, 0, 0, 1), (3, 0, 1, 1)]


@pytest.mark.parametrize("kind, error", [(2, ValueError), (-1, ValueError), ("rx", TypeError)])
def test_there_are_two_kinds_of_queues(uplink, platform, kind, error):
    with pytest.raises(error):
        uplink.queues(kind)
    assert platform.double.calls() == []


def test_driver_statistics_are_lines_with_a_decimal_number():
    assert driver_statistics(TEXT) == {"link_up": 1, "rx queue 0": 12, "last": 1 << 64}


def test_a_number_without_an_end_is_no_number():
    text = f"a: {'9' * 641}\nb: {'9' * 640}\nc: {'9' * 100_000}\nd: 4\n"
    assert driver_statistics(text) == {"b": 10**640 - 1, "d": 4}


def test_a_long_line_takes_no_time_worth_mentioning():
    """A pattern that tries each blank anew would take minutes."""
    assert driver_statistics("a" + 200_000 * " " + "\nb" + 200_000 * " " + ":" + 200_000 * " " + "1") == {"b": 1}


@pytest.mark.parametrize("line", ["a: 1: 2", "a:b: 2", ": 2", " : 2", "a 2", "a: 2 3", "a: +2", "a: 0x2", "a:"])
def test_lines_of_another_form_are_no_statistics(line):
    assert driver_statistics(line) == {}


def test_of_one_name_the_last_counts():
    assert driver_statistics("a: 1\n a : 2 \n") == {"a": 2}


def test_digits_are_ascii():
    assert driver_statistics("a: \u0661\nb: \uff11\n") == {}


@pytest.mark.parametrize(
    "text, up",
    [
        ("link_up: 1\n", True),
        ("link_up: 0\n", False),
        ("a: 1\nlink_up: 1", True),
        ("", None),
        ("link_up: yes\n", None),
        ("link_up: -1\n", None),
        ("my_link_up: 1\n", None),
        ("link_up\n", None),
        ("Link_up: 1\n", None),
    ],
)
def test_the_link_is_up_or_down_only_where_the_driver_says_so(uplink, platform, text, up):
    driver_text(platform, text)
    assert uplink.link_up is up


def test_the_drivers_text(uplink, platform):
    assert (uplink.driver_text, uplink.driver_stats, uplink.link_up) == ("", {}, None)
    driver_text(platform, TEXT)
    assert uplink.driver_text == TEXT
    assert uplink.driver_stats == driver_statistics(TEXT)


def test_offload(uplink, platform):
    platform.double.answer("Ryn_Get_FPO_Uplink_Status", area=Bytes(40).u32(0, 3, 1, 2, 3, 4, 5, 6, 7).u64(32, 1 << 63))
    assert (uplink.offload.level, uplink.offload.flows, uplink.offload.actions) == ("Model 2", 4, 1 << 63)


@pytest.mark.parametrize(
    "level, text",
    [
        (0, "Not Supported"),
        (1, "Model 1 Level 1"),
        (2, "Model 1 Level 2"),
        (3, "Model 2"),
        (4, "Not Supported"),
        (0xFFFFFFFF, "Not Supported"),
    ],
)
def test_levels_of_offload(uplink, platform, level, text):
    platform.double.answer("Ryn_Get_FPO_Uplink_Status", area=Bytes(40).u32(0, level))
    assert uplink.offload.level == text
