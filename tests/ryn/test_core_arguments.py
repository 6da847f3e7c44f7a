"""What the core is not to be given: every call refuses it with TypeError or ValueError, and calls nothing."""

from __future__ import annotations

from typing import Any

import pytest
from core_calls import CALLS
from harness import Bytes, Double

import ryn

package: Any = ryn  # whose annotations forbid what is tried here
METHODS = {call.name: call.args for call in CALLS}
MORE = {
    "ports": (0, None, ryn.Port),
    "all_counters": ((), ryn.Port),
    "flows": (0, 0, False, None),
    "configured_switches": (),
    "init_fastslabs": (),
}
EVERY_METHOD = {**METHODS, **MORE}


class Unruly:
    """Whatever it is asked for is an error of its own."""

    def raises(self, *_: Any) -> Any:
        raise KeyError("of its own")

    __index__ = __bool__ = __iter__ = __float__ = raises


WRONG: dict[type, list[tuple[Any, type]]] = {
    int: [(None, TypeError), (1.0, TypeError), ("1", TypeError), (-1, ValueError), (1 << 64, ValueError)],
    str: [(None, TypeError), (b"x", TypeError), ("a\0b", ValueError), ("\ud800", ValueError)],
    bytes: [(5, TypeError), (bytearray(6), TypeError), (None, TypeError)],
    tuple: [(5, TypeError), ((None,), TypeError), ((-1,), ValueError), (range(100), ValueError)],
}


@pytest.fixture
def core(_module, double: Double):
    import ryn._core

    return ryn._core


@pytest.mark.parametrize("name", EVERY_METHOD)
def test_the_number_of_arguments(core, double, name):
    method, args = getattr(core.Platform(), name), EVERY_METHOD[name]
    for given in [(*args, 0), args[:-1]] if args else [(0,)]:
        with pytest.raises(TypeError, match=rf"{name}\(\) takes {len(args)} arguments \({len(given)} given\)"):
            method(*given)
    with pytest.raises(TypeError, match="keyword"):
        method(*args, switch=1)
    assert double.calls() == []


@pytest.mark.parametrize("name", METHODS)
def test_each_argument(core, double, name):
    method, args = getattr(core.Platform(), name), METHODS[name]
    for i, good in enumerate(args):
        for wrong, error in WRONG[type(good)]:
            with pytest.raises(error):
                method(*args[:i], wrong, *args[i + 1 :])
        if not isinstance(good, (str, bytes)):
            with pytest.raises(KeyError, match="of its own"):
                method(*args[:i], Unruly(), *args[i + 1 :])
    assert double.calls() == []


@pytest.mark.parametrize(
    "switches, error",
    [
        (5, TypeError),
        ([5], TypeError),
        ([(0,)], TypeError),
        ([(0, 1, 2)], TypeError),
        ([[0, 1]], TypeError),
        ([("0", 1)], TypeError),
        ([(16, 1)], ValueError),
        ([(-1, 1)], ValueError),
        ([(0, 1)] * 17, ValueError),
        (Unruly(), KeyError),
    ],
)
def test_bad_switches_to_count_of(core, double, switches, error):
    with pytest.raises(error):
        core.Platform().all_counters(switches, ryn.Port)
    assert double.calls() == []


@pytest.mark.parametrize("kind", [None, 5, object, int, ryn.Switch])
def test_the_type_of_ports_is_one_of_ports(core, double, kind):
    with pytest.raises(TypeError, match="ListedPort"):
        core.Platform().ports(0, None, kind)
    with pytest.raises(TypeError, match="ListedPort"):
        core.Platform().all_counters((), kind)
    assert double.calls() == []


@pytest.mark.parametrize(
    "args, error",
    [
        ((16, 0, False, None), ValueError),
        ((0, 32, False, None), ValueError),
        ((0, 0, Unruly(), None), KeyError),
        ((0, 0, False, {"sport": 5}), TypeError),
    ],
)
def test_bad_walks(core, double, args, error):
    with pytest.raises(error):
        core.Platform().flows(*args)
    assert double.calls() == []


@pytest.mark.parametrize("weights", [(1,) * 7, (1,) * 9, ()])
def test_there_are_eight_weights(core, double, weights):
    with pytest.raises(ValueError, match="weights"):
        core.Platform().set_weights(weights)
    assert double.calls() == []


def test_a_teaming_type_has_a_name(core, double):
    for wrong, error in (("lag", ValueError), ("", ValueError), (2, TypeError)):
        with pytest.raises(error):
            core.Platform().set_teaming(0, 0, wrong, ())
    assert double.calls() == []


def test_a_platform_and_what_it_makes_are_made_by_the_package_alone(core):
    import ryn._records

    for wrong in ((), (1,), (1, 2)):
        with pytest.raises(TypeError):
            ryn._records.ListedPort(*wrong)
        with pytest.raises(TypeError):
            type(core.Platform().flows(0, 0, False, None))(*wrong)
    with pytest.raises(TypeError):
        core.Platform(1.0, 2.0)
    with pytest.raises(TypeError):
        core.Platform(limit=1.0)
    with pytest.raises(KeyError):
        core.Platform(Unruly())


# ---- Records


def records() -> list:
    flow = ryn.Flow(0, 1, bytes(4), bytes(4), 1, 2, 6, 5, 1, 1, 8, True, bytes(6), bytes(6), 1, 2)
    return [
        ryn.PortCounters(range(16), range(16)),
        ryn.CounterTable(bytes(256)),
        ryn.MacTable(bytes(40)),
        ryn.MacAddress(bytes(6)),
        flow,
    ]


@pytest.mark.parametrize("value", records(), ids=lambda value: type(value).__name__)
def test_comparing_with_something_else(value):
    assert (value == 5, value != 5, 5 == value, value == value, value != value) == (False, True, False, True, False)
    with pytest.raises(TypeError):
        value < 5
    if not isinstance(value, ryn.MacAddress):
        with pytest.raises(TypeError):
            value < value


def test_rows_of_a_table_are_compared_one_by_one():
    for at in (0, 5, 6, 7, 8, 11, 16, 19, 20, 39):
        assert ryn.MacTable(bytes(40)) != ryn.MacTable(bytes(Bytes(40).u8(at, 1))), at


def test_tables_are_compared_with_their_size_and_limits():
    assert ryn.CounterTable(bytes(256)) != ryn.CounterTable(bytes(512))
    assert ryn.CounterTable(bytes(512)) != ryn.CounterTable(bytes(Bytes(512).u8(511, 1)))
    assert ryn.MacTable(bytes(20), 1, 0) != ryn.MacTable(bytes(20), 1, 1)
    assert ryn.PortCounters(range(16), range(16)) != ryn.PortCounters(range(16), range(1, 17))


@pytest.mark.parametrize("row, earlier_row", [(1, 0), (-1, 0), (0, 1), (0, -1), (1 << 40, 0)])
def test_rates_are_of_rows_that_there_are(row, earlier_row):
    table = ryn.CounterTable(bytes(256))
    with pytest.raises(IndexError):
        table.rates(row, table, earlier_row, 1.0)


@pytest.mark.parametrize(
    "work, error",
    [
        (lambda: package.FlowFilter().matches(5), TypeError),
        (lambda: package.FlowFilter(5), TypeError),
        (lambda: package.FlowFilter(src=(bytes(4),)), TypeError),
        (lambda: package.FlowFilter(src=("10.0.0.1", 5)), AttributeError),
        (lambda: package.FlowFilter(actions=-1), ValueError),
        (lambda: package.MacTable(), TypeError),
        (lambda: package.MacTable("x"), TypeError),
        (lambda: package.MacTable(b"", -1), ValueError),
        (lambda: package.MacTable(b"", 1, 1 << 32), ValueError),
        (lambda: package.MacTable(bytes(20))["0"], TypeError),
        (lambda: package.MacTable(bytes(20))[::0], ValueError),
        (lambda: package.MacTable(bytes(20))[1 << 80], IndexError),
        (lambda: package.MacTable(bytes(20)).find(5), TypeError),
        (lambda: package.MacTable(bytes(20)).select("02:*"), TypeError),
        (lambda: package.MacTable(bytes(20)).select(port=-1), ValueError),
        (lambda: package.MacTable(bytes(20)).select(mac=5), TypeError),
        (lambda: package.CounterTable(), TypeError),
        (lambda: package.CounterTable(bytes(256)).rates(0, b"", 0, 1.0), TypeError),
        (lambda: package.PortCounters([0] * 16), TypeError),
        (lambda: package.PortCounters([0] * 16, 5), TypeError),
        (lambda: package.PortCounters([0] * 16, ["0"] * 16), TypeError),
        (lambda: package.MacAddress(), TypeError),
        (lambda: package.Flow(0), TypeError),
    ],
)
def test_what_records_are_not_made_of(work, error):
    with pytest.raises(error):
        work()


@pytest.mark.parametrize("at", range(16))
def test_each_field_of_a_flow_has_a_range(at):
    good = [0, 1, bytes(4), bytes(4), 1, 2, 6, 5, 1, 1, 8, True, bytes(6), bytes(6), 1, 2]
    package.Flow(*good)
    for wrong in (-1, 1 << 64, "x", b"x", 1.5):
        given = [*good[:at], wrong, *good[at + 1 :]]
        if at == 11:
            assert package.Flow(*given).offloaded is True
            continue
        with pytest.raises((TypeError, ValueError, AttributeError)):
            package.Flow(*given)


def test_a_port_is_compared_with_ports_alone(host):
    port = host.port("dvs-1/1")
    for method in (port._same_record, port._replace_record):
        with pytest.raises(TypeError, match="expected a port"):
            method(5)
    assert port != 5 and port == port
