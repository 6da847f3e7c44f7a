"""The checks of the core that need no test runner, for an interpreter that it is built for.

`python -c "import core_on_interpreter; core_on_interpreter.check()"` prints how many calls it went through.
"""

from __future__ import annotations

import copy
import gc
import pickle
import sys

import harness
import platform_script
from core_calls import CALLS


def records() -> int:
    """Records, tables and flows are made, shown, compared, copied and pickled."""
    import ryn

    flow = ryn.Flow(
        0, 1, bytes([10, 0, 0, 1]), bytes([10, 0, 0, 2]), 80, 81, 6, 5, 1, 2, 32, False, bytes(6), bytes(6), 1, 2
    )
    values = [
        ryn.Counters(range(16)),
        ryn.Weights(range(8)),
        ryn.Device(("lunic0", 1)),
        ryn.MacAddress("02-00-00-AA-BB-CC"),
        ryn.PortCounters(range(16), range(16)),
        ryn.CounterTable(bytes(512)),
        ryn.MacTable(bytes(40), 5, 1),
        flow,
    ]
    for value in values:
        assert pickle.loads(pickle.dumps(value)) == value == copy.copy(value), value
        assert repr(value)
    assert memoryview(ryn.MacTable(bytes(40))).nbytes == 40  # type: ignore[arg-type]
    assert str(flow.src) == "10.0.0.1" and flow.actions.value == 32
    return len(values)


def names() -> int:
    """Numbers with and without a name are shown, formatted, copied and pickled: interpreters differ in all of it."""
    import ryn

    shown = [
        (ryn.Kind(2), "UPLINK"),
        (ryn.Kind(77), "UNKNOWN"),
        (ryn.Actions(0), ""),
        (ryn.Actions.DROP, "DROP"),
        (ryn.Actions(0x80000028), "LRO|DROP|0x80000000"),
        (ryn.Actions(1), "0x1"),
        (ryn.ReceiveFlags(0b110001), "UNICAST|PROMISC|USE_LADRF"),
    ]
    for value, text in shown:
        assert (str(value), f"{value}", f"{value:>30}") == (text, text, f"{text:>30}"), value
        for twin in (copy.copy(value), copy.deepcopy(value), *(pickle.loads(pickle.dumps(value, p)) for p in range(6))):
            assert (type(twin), twin, str(twin)) == (type(value), value, text), value
    assert ryn.Actions.DROP in ryn.Actions(0x80000028) and ryn.Actions.SP not in ryn.Actions(0x80000028)
    for error in (ryn.NotFound("x"), ryn.InvalidResponse("op", (1,), "why"), ryn.TimeoutError("op", (1, "x"), 2.0)):
        twin = pickle.loads(pickle.dumps(error))
        assert (type(twin), str(twin), vars(twin)) == (type(error), str(error), vars(error))
    return len(shown)


def objects(double: harness.Double) -> int:
    """A host is looked through, and a setting of it changed."""
    import ryn
    import ryn._core  # noqa: F401  the double needs what it brings along

    double.reset()
    platform = platform_script.Platform(double)
    host = ryn.Host(settle=0)
    reading, port = host.counters(), host.port("dvs-1/1")
    assert len(reading) == 3 and reading[port] == port.counters()
    assert repr(port) == "<ryn.Port dvs-1/1 VNIC 02:00:00:00:00:11>"
    tick = host.counters().rates(reading)
    assert [str(key) for key, _ in pickle.loads(pickle.dumps(tick)).top("tx_bytes", 1)] == ["dvs-1-set/0"]
    platform.property(harness.u32(0, 64))
    port.switch.burst_size = 64
    try:
        port.switch.burst_size = 65
    except ryn.NotApplied as error:
        assert (error.name, error.wanted, error.value) == ("burst_size", 65, 64)
    else:
        raise AssertionError("it does not read back")
    assert list(host.flows(dst="10.0.0.0/8", action="DROP", protocol="tcp")) == []
    return len(reading)


def calls(double: harness.Double) -> int:
    """Each call with an empty answer, a full one and a failing operation, by the caller and by a worker."""
    import ryn
    from ryn import _core

    count = 0
    for platform in (_core.Platform(), _core.Platform(30.0)):
        for call in CALLS:
            double.reset()
            double.recording(False)
            answers: list[dict] = [{"area": bytes(call.size)}, {"area": b"\xff" * min(call.size, 70000)}, {"status": 7}]
            for answer in answers:
                double.answer(call.op, **answer)
                try:
                    repr(getattr(platform, call.name)(*call.args))
                except ryn.Error:
                    pass
                count += 1
    return count


def check() -> None:
    double = harness.set_up()
    made = records() + names() + objects(double)
    done = calls(double)
    gc.collect()
    before = sys.getallocatedblocks()
    calls(double)
    gc.collect()
    assert sys.getallocatedblocks() - before < 200
    print(f"{sys.version.split()[0]}: {made} records, {done} calls")
