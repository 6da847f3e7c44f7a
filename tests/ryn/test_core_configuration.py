"""The configuration is one for the process: reloading it, walking it, and _libryn beside both. Worth most under
AddressSanitizer: a handle that outlives a reload is memory that was freed.
"""

from __future__ import annotations

import threading
from typing import Callable

import pytest
from harness import MISSING, Double, u32

ROUNDS = 300


@pytest.fixture
def core(_module, double: Double):
    import ryn._core

    double.recording(False)
    double.answer("DVSQOB_StateGet", area=b"state")
    return ryn._core


def at_once(*works: Callable[[], None]) -> None:
    """Each in a thread of its own, ROUNDS times."""
    errors: list[BaseException] = []

    def repeat(work: Callable[[], None]) -> None:
        try:
            for _ in range(ROUNDS):
                work()
        except BaseException as error:
            errors.append(error)

    threads = [threading.Thread(target=repeat, args=(work,)) for work in works]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert errors == []


@pytest.mark.parametrize("timeout", [None, 30.0])
def test_hosts_look_ups_and_the_module_at_once(core, platform, timeout):
    """Three threads: new hosts, look-ups of a switch, and the module's look-ups, which hold the interpreter lock."""
    import _libryn

    import ryn

    platform.double.recording(False)
    platform.double.answer("DVSQOB_HostPropGet", area=u32(0, 1, 60, 40, 10, 5))
    host = ryn.Host(timeout=timeout)

    def make_host() -> None:
        assert [dvs.alias for dvs in ryn.Host(timeout=timeout).switches()] == ["dvs-1"]

    def look_up() -> None:
        assert host.switch("dvs-1").name == "dvs-1-set"

    def ask_the_module() -> None:
        assert _libryn.GetLBAlgorithm("dvs-1") == "cpu"

    at_once(make_host, look_up, ask_the_module)


def test_a_reload_fetches_first(core, double):
    """The order of the operations; the lock is held from the reset on, which test_core_turns does not show."""
    double.recording(True)
    core.Platform().reload()
    assert double.ops() == ["DVSQOB_StateGet", "DVSState_ConfigReset", "DVSState_ConfigDeserialize"]


def test_a_state_that_cannot_be_fetched_changes_nothing(core, double):
    import ryn

    double.recording(True)
    double.answer("DVSQOB_StateGet", status=MISSING)
    with pytest.raises(ryn.NotFound) as raised:
        core.Platform().reload()
    assert (raised.value.operation, raised.value.arguments) == ("DVSQOB_StateGet", ())
    assert double.ops() == ["DVSQOB_StateGet"]


@pytest.mark.parametrize("failing", ["DVSState_ConfigReset", "DVSState_ConfigDeserialize"])
def test_a_state_that_cannot_be_loaded_gives_way_to_the_former(core, double, failing):
    import ryn

    platform = core.Platform()
    double.answer("DVSQOB_StateGet", area=b"first")
    platform.reload()
    double.answer("DVSQOB_StateGet", area=b"second")
    double.answer(failing, status=9, times=1)
    double.recording(True)
    with pytest.raises(ryn.PlatformError) as raised:
        platform.reload()
    assert (raised.value.operation, raised.value.status) == (failing, 9)
    loaded = [call for call in double.calls() if call.op == "DVSState_ConfigDeserialize"]
    assert loaded[-1].args["state"] == b"first"
    double.answer("DVSQOB_StateGet", area=b"third")
    platform.reload()
    assert double.calls()[-1].args["state"] == b"third"


def test_names_of_the_configuration(core, double):
    """Bytes that are no UTF-8 survive; a property that is not there is None."""
    double.add_switch("a", b"id-\xff", "other", global_={"com.talvor.common.alias": b"al\xff\0"})
    double.add_switch("b", "id-b", host={"com.talvor.common.host.portset": "set-b"})
    assert core.Platform().configured_switches() == [
        ("id-\udcff", "al\udcff", None, "other"),
        ("id-b", None, "set-b", "vswitch"),
    ]


def test_buffer_pools(core, double):
    """Asked for only where some switch is served."""
    double.recording(True)
    double.add_switch("a", "id", global_={"com.talvor.extraconfig.opaqueDvs.ryn": "false"})
    assert core.Platform().init_fastslabs() is False
    assert "Ryn_Init_Mbuf_Fastslabs" not in double.ops()
    double.add_switch("b", "id", global_={"com.talvor.extraconfig.opaqueDvs.ryn": "poll"})
    assert core.Platform().init_fastslabs() is True
    assert double.ops()[-1] == "Ryn_Init_Mbuf_Fastslabs"
    double.answer("Ryn_Init_Mbuf_Fastslabs", status=3)
    with pytest.raises(Exception, match="Ryn_Init_Mbuf_Fastslabs"):
        core.Platform().init_fastslabs()
