"""One operation at a time, calls with a time limit, and what becomes of a call that is given up.

An operation that is held returns only when another Python thread tells it to: that it does return shows that the
interpreter lock was free meanwhile. No test looks at a clock but for being over in the end.
"""

from __future__ import annotations

import os
import threading
import time
from typing import Any, Callable

import pytest
from core_calls import CALLS
from harness import Bytes, Double, Held, python

FOREVER = 30.0  # seconds: a time limit that is not to pass
SOON = 0.02


@pytest.fixture
def core(_module):
    import ryn._core

    return ryn._core


@pytest.fixture
def hold(double: Double):
    """Holds operations, and lets go of what is still held in the end."""
    held: list[Held] = []

    def make(op: str) -> Held:
        held.append(double.hold_call(op))
        return held[-1]

    double.recording(False)
    yield make
    for each in held:
        each.close()  # a call that waits finds the end of its pipe


class Call(threading.Thread):
    """A call in a thread of its own."""

    def __init__(self, function: Callable, *args: Any) -> None:
        super().__init__(daemon=True)
        self.function, self.args = function, args
        self.result: Any = None
        self.error: BaseException | None = None
        self.start()

    def run(self) -> None:
        try:
            self.result = self.function(*self.args)
        except BaseException as error:
            self.error = error

    def value(self) -> Any:
        self.join(FOREVER)
        assert not self.is_alive()
        if self.error:
            raise self.error
        return self.result


def wait_for_turn_to_be_free(platform) -> None:
    """Until the call that was given up has returned."""
    import ryn

    deadline = time.monotonic() + FOREVER
    while True:
        try:
            platform.flow_timeout()
            return
        except ryn.TimeoutError:
            assert time.monotonic() < deadline


@pytest.mark.parametrize("timeout", [None, FOREVER])
@pytest.mark.parametrize(
    "name, op, args", [call[:3] for call in CALLS], ids=[f"{call.name}-{call.op}" for call in CALLS]
)
def test_the_interpreter_lock_is_free_while_an_operation_is_out(core, hold, name, op, args, timeout):
    held = hold(op)
    call = Call(getattr(core.Platform(timeout), name), *args)
    held.wait()
    held.release()  # Python runs, else it could not be released
    call.value()


@pytest.mark.parametrize(
    "name, op, args", [call[:3] for call in CALLS], ids=[f"{call.name}-{call.op}" for call in CALLS]
)
def test_a_call_past_its_limit_names_operation_and_arguments(core, hold, name, op, args):
    import ryn

    held = hold(op)
    with pytest.raises(ryn.TimeoutError) as raised:
        getattr(core.Platform(SOON), name)(*args)
    error = raised.value
    assert (error.operation, error.seconds, error.refused) == (op, SOON, None)
    assert isinstance(error.arguments, tuple) and op in str(error)
    # Until it returns, no other is made
    with pytest.raises(ryn.TimeoutError) as raised:
        core.Platform().cores(0)
    assert (raised.value.operation, raised.value.arguments) == (op, error.arguments)
    assert raised.value.refused == "Ryn_Get_LCore_ID_Bitmap"
    assert op in str(raised.value) and "Ryn_Get_LCore_ID_Bitmap" in str(raised.value)
    held.release()
    wait_for_turn_to_be_free(core.Platform())


def test_arguments_are_the_numbers_and_texts_handed_over(core, hold):
    import ryn

    for name, args, op, expected in [
        ("migrate", (1, 2, 3, 4, 5), "Ryn_Migrate_Port", (1, 2, 3, 4, 5)),
        ("add_mac", (1, 2, "02-00-00-AA-BB-CC", 7), "Ryn_MAC_Entry_Ops", (1, 2, "02:00:00:aa:bb:cc", 7, 1)),
        ("del_mac", (1, 2, "02-00-00-AA-BB-CC", 7), "Ryn_MAC_Entry_Ops", (1, 2, "02:00:00:aa:bb:cc", 7, 0)),
        ("flow_stats", (1, (3, 63)), "Ryn_Get_Flow_Stats", (1, (3, 63), 2, 0)),
        ("set_affinity", ("eth\udcff", 2), "Ryn_Set_Dev_Affinity", ("eth\udcff", 2)),
        ("set_host_property", ("id", "k", b"\1\xff"), "DVSQOB_HostPropSet", ("id", "k", "01ff", 2, 16)),
        ("set_port_property", ("id", "9", "k", b"\1\xff"), "DVSQOB_PortDataSet", ("id", "9", "k", "01ff", 2, 8)),
        ("set_weights", ([7] * 8,), "Ryn_SetLBWeights", (7,) * 8),
        ("set_teaming", (1, 2, "SrcMAC", [4]), "Ryn_Set_Port_Tx_Uplink", (1, 2, 3, 1, (4,))),
        ("running_options", ("set",), "Ryn_GetCurrentLBData", ("set", 128)),
    ]:
        held = hold(op)
        with pytest.raises(ryn.TimeoutError) as raised:
            getattr(core.Platform(SOON), name)(*args)
        assert raised.value.arguments == expected
        held.release()
        wait_for_turn_to_be_free(core.Platform())


def test_long_texts_of_a_call_that_is_out_are_cut(core, hold):
    import ryn

    held = hold("Ryn_Set_Dev_Affinity")
    with pytest.raises(ryn.TimeoutError) as raised:
        core.Platform(SOON).set_affinity("x" * 5000, 2)
    assert raised.value.arguments == ("x" * 1024, 2)
    held.release()
    wait_for_turn_to_be_free(core.Platform())


@pytest.mark.parametrize("timeouts", [(None, None), (None, FOREVER), (FOREVER, None), (FOREVER, FOREVER)])
def test_one_operation_at_a_time(core, double, hold, timeouts):
    first = hold("Ryn_Get_LCore_ID_Bitmap")
    second = hold("Ryn_Get_Flow_Timeout")
    one = Call(core.Platform(timeouts[0]).cores, 0)
    first.wait()
    other = Call(core.Platform(timeouts[1]).flow_timeout)
    os.set_blocking(second.entered[0], False)
    time.sleep(0.05)  # nothing can happen in it
    with pytest.raises(BlockingIOError):
        second.wait()
    assert one.is_alive() and other.is_alive()
    first.release()
    one.value()
    os.set_blocking(second.entered[0], True)
    second.wait()
    second.release()
    other.value()


def test_whoever_waits_for_another_call_names_it_when_its_limit_has_passed(core, hold):
    import ryn

    held = hold("Ryn_Get_LCore_ID_Bitmap")
    one = Call(core.Platform().cores, 3)
    held.wait()
    with pytest.raises(ryn.TimeoutError) as raised:
        core.Platform(SOON).flow_timeout()
    assert (raised.value.operation, raised.value.arguments) == ("Ryn_Get_LCore_ID_Bitmap", (3,))
    assert raised.value.refused == "Ryn_Get_Flow_Timeout"
    # It was not made, and is not made later; the other call is not given up
    held.release()
    assert one.value() == ()


@pytest.mark.parametrize("timeout", [None, FOREVER])
def test_every_call_is_refused_while_one_is_out_that_was_given_up(core, double, hold, timeout):
    import ryn

    held = hold("Ryn_Get_LCore_ID_Bitmap")
    with pytest.raises(ryn.TimeoutError):
        core.Platform(SOON).cores(5)
    platform = core.Platform(timeout)
    double.recording(True)
    works = [(call.op, getattr(platform, call.name), call.args) for call in CALLS]
    works.append(("Ryn_Get_Port_List", platform.ports, (1, None, ryn.Port)))
    works.append(("Ryn_Get_Port_List", platform.all_counters, ([(1, None)], ryn.Port)))
    works.append(("Ryn_Dump_Flow_Table", lambda: next(platform.flows(0, 0, False, None)), ()))
    double.add_switch("a", "id", global_={"com.talvor.extraconfig.opaqueDvs.ryn": "poll"})
    works.append(("Ryn_Init_Mbuf_Fastslabs", platform.init_fastslabs, ()))
    first = {call.name: call.op for call in reversed(CALLS)}  # of a call that makes two operations
    for op, method, args in works:
        with pytest.raises(ryn.TimeoutError) as raised:
            method(*args)
        assert (raised.value.operation, raised.value.arguments) == ("Ryn_Get_LCore_ID_Bitmap", (5,))
        assert raised.value.refused == first.get(getattr(method, "__name__", ""), op)
    assert [name for name in double.ops() if name.startswith(("Ryn_", "DVSQOB_"))] == []
    held.release()
    wait_for_turn_to_be_free(core.Platform())


@pytest.mark.parametrize("op", ["Ryn_Get_Port_List", "Ryn_Get_Port_Stats", "Ryn_Get_Port_Stats_Slowpath"])
def test_reading_every_port_ends_at_an_operation_that_is_late(core, double, hold, op):
    import ryn

    double.answer("Ryn_Get_Port_List", area=Bytes(11532).u32(4, 2).u32(16, 7))
    held = hold(op)
    with pytest.raises(ryn.TimeoutError) as raised:
        core.Platform(SOON).all_counters([(3, None)], ryn.Port)
    assert (raised.value.operation, raised.value.arguments[:1], raised.value.refused) == (op, (3,), None)
    held.release()
    wait_for_turn_to_be_free(core.Platform())


def test_an_operation_that_was_refused_is_not_made_later(core, double, hold):
    import ryn

    held = hold("Ryn_Get_LCore_ID_Bitmap")
    one = Call(core.Platform().cores, 3)
    held.wait()
    with pytest.raises(ryn.TimeoutError):
        core.Platform(SOON).set_flow_timeout(5)
    double.recording(True)
    held.release()
    one.value()
    core.Platform(FOREVER).switches()
    assert "Ryn_Set_Flow_Timeout" not in double.ops()


def test_a_call_that_was_given_up_makes_no_further_operation(core, double, hold):
    import ryn

    held = hold("Ryn_Get_Port_Stats")
    with pytest.raises(ryn.TimeoutError):
        core.Platform(SOON).port_counters(0, 0)
    double.recording(True)
    held.release()
    wait_for_turn_to_be_free(core.Platform())
    assert "Ryn_Get_Port_Stats_Slowpath" not in double.ops()


def test_what_a_late_call_brings_goes_nowhere(core, double, hold):
    """The areas are the worker's: a caller that has gone sees nothing of them."""
    import ryn

    double.answer("Ryn_Dump_Switch_MAC_Table", area=Bytes(1310736).u32(0, 65536))
    for _ in range(20):
        held = hold("Ryn_Dump_Switch_MAC_Table")
        with pytest.raises(ryn.TimeoutError):
            core.Platform(SOON).switch_macs(0)
        held.release()
        wait_for_turn_to_be_free(core.Platform())
    assert len(core.Platform(FOREVER).switch_macs(0)) == 65536


def test_many_threads_with_and_without_a_limit(core, double):
    double.recording(False)
    double.answer("Ryn_Get_Port_Stats", area=Bytes(128).u64(0, *range(1, 17)))
    platforms = [core.Platform(FOREVER), core.Platform()]
    expected = platforms[1].port_counters(0, 0)

    def work(platform) -> bool:
        return all(platform.port_counters(0, 0) == expected for _ in range(300))

    assert all(call.value() for call in [Call(work, platforms[i % 2]) for i in range(8)])


def test_the_configuration_can_be_walked_while_a_call_is_out(core, double, hold):
    double.add_switch("dvs-1", "id-1")
    held = hold("Ryn_Get_LCore_ID_Bitmap")
    call = Call(core.Platform().cores, 0)
    held.wait()
    assert [dvs.id for dvs in core.Platform().configured_switches()] == ["id-1"]
    held.release()
    call.value()


def test_a_flow_walk_ends_at_a_page_that_is_late(core, hold):
    import ryn

    held = hold("Ryn_Dump_Flow_Table")
    flows = core.Platform(SOON).flows(0, 3, True, None)
    with pytest.raises(ryn.TimeoutError) as raised:
        next(flows)
    assert raised.value.arguments == (0, 3, 0, 1)
    assert list(flows) == []
    held.release()
    wait_for_turn_to_be_free(core.Platform())


def test_a_flow_walk_is_one_threads_at_a_time(core, hold):
    held = hold("Ryn_Dump_Flow_Table")
    flows = core.Platform().flows(0, 3, False, None)
    call = Call(next, flows, None)
    held.wait()
    with pytest.raises(ValueError, match="another thread"):
        next(flows)
    held.release()
    assert call.value() is None


# ---- Signals, exits and forks


PRELUDE = """
import os, signal, sys, threading, time
import harness
double = harness.set_up()
import ryn
from ryn import _core as core
double.recording(False)
held = double.hold_call("Ryn_Get_LCore_ID_Bitmap")
"""


@pytest.mark.parametrize("timeout", ["None", "30"])
def test_ctrl_c_ends_the_wait_for_another_call(timeout):
    done = python(
        PRELUDE
        + f"""
call = threading.Thread(target=core.Platform().cores, args=(0,))
call.start()
held.wait()
threading.Timer(0.1, os.kill, (os.getpid(), signal.SIGINT)).start()
try:
    core.Platform({timeout}).flow_timeout()
except KeyboardInterrupt:
    print("interrupted")
held.release()
call.join()
print(core.Platform({timeout}).flow_timeout())
"""
    )
    assert (done.returncode, done.stdout, done.stderr) == (0, "interrupted\n0\n", "")


def test_ctrl_c_ends_the_wait_for_ones_own_call():
    done = python(
        PRELUDE
        + """
threading.Thread(target=lambda: (held.wait(), os.kill(os.getpid(), signal.SIGINT))).start()
try:
    core.Platform(30).cores(7)
except KeyboardInterrupt:
    print("interrupted")
try:
    core.Platform().flow_timeout()
except ryn.TimeoutError as error:
    print(error.operation, error.arguments, error.refused)
held.release()
while True:
    try:
        print(core.Platform().flow_timeout())
        break
    except ryn.TimeoutError:
        pass
"""
    )
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout == "interrupted\nRyn_Get_LCore_ID_Bitmap (7,) Ryn_Get_Flow_Timeout\n0\n"


def test_an_exception_of_any_signal_handler_ends_the_wait():
    done = python(
        PRELUDE
        + """
class Alarm(Exception):
    pass

def ring(*_):
    raise Alarm

signal.signal(signal.SIGALRM, ring)
signal.setitimer(signal.ITIMER_REAL, 0.1)
try:
    core.Platform(30).cores(7)
except Alarm:
    print("rung")
"""
    )
    assert (done.returncode, done.stdout, done.stderr) == (0, "rung\n", "")


def test_exit_does_not_wait_for_a_call_that_is_out():
    done = python(
        PRELUDE
        + """
try:
    core.Platform(0.01).cores(0)
except ryn.TimeoutError:
    print("late")
"""
    )
    assert (done.returncode, done.stdout, done.stderr) == (0, "late\n", "")


@pytest.mark.parametrize("timeout", ["0.01", "None"])
def test_a_forked_child_starts_anew(timeout):
    """A call is out in the parent, given up or not. The child makes its own calls, also with workers."""
    done = python(
        PRELUDE
        + f"""
timeout = {timeout}
if timeout is None:
    threading.Thread(target=core.Platform().cores, args=(0,), daemon=True).start()
    held.wait()
else:
    try:
        core.Platform(timeout).cores(0)
    except ryn.TimeoutError:
        print("late", flush=True)
if os.fork() == 0:
    print(core.Platform().flow_timeout(), core.Platform(30).flow_timeout(), flush=True)
    os._exit(0)
assert os.wait()[1] == 0
held.release()
"""
    )
    late = "late\n" if timeout != "None" else ""
    assert (done.returncode, done.stdout, done.stderr) == (0, late + "0 0\n", "")


def test_a_limit_is_above_0(core):
    for wrong in (0, -1, -0.5, float("nan"), float("-inf")):
        with pytest.raises(ValueError, match="timeout"):
            core.Platform(wrong)
    with pytest.raises(TypeError):
        core.Platform("1")
    assert core.Platform().timeout is None
    assert core.Platform(2).timeout == 2.0
    assert core.Platform(float("inf")).cores(0) == ()
