"""The checks of the core that need no test runner, for an interpreter that it is built for.

`python -c "import core_on_interpreter; core_on_interpreter.check()"` prints how many calls it went through.
"""

from __future__ import annotations

import copy
import gc
import pickle
import sys

import harness
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
    made = records()
    done = calls(double)
    gc.collect()
    before = sys.getallocatedblocks()
    calls(double)
    gc.collect()
    assert sys.getallocatedblocks() - before < 200
    print(f"{sys.version.split()[0]}: {made} records, {done} calls")
