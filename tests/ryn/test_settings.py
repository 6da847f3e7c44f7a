"""Settings: where they are kept, what they are without that, what is refused, and that each change is read back."""

import pytest
from harness import MISSING, Bytes, u32
from platform_script import PortLine

import ryn

LOADBAL = "com.talvor.kiv.ryn.loadbal"
TEAMING = "com.talvor.kiv.ryn.teaming"
BURST = "com.talvor.kiv.ryn.burstsize"
FPO = "com.talvor.kiv.ryn.fpo"
RING = "com.talvor.extraconfig.opqueDvs.ryn.uplinkRing"
READS = {
    "Ryn_Get_Switch_List",
    "Ryn_Get_Port_List",
    "DVSQOB_HostPropGet",
    "DVSQOB_PortDataGet",
    "DVSQOB_DataFree",
    "Ryn_GetCurrentLBData",
    "Ryn_GetLRO",
    "Ryn_GetLBWeights",
}


@pytest.fixture
def switch(host):
    return host.switch("dvs-1")


def changes(platform) -> list:
    """The operations that were called and change something."""
    return [call for call in platform.double.calls() if "Set" in call.op]


# What the host keeps comes first, then what the datapath runs with, then a default


def test_a_stored_value_is_the_value(switch, platform):
    platform.property(u32(0, 2, 70, 30, 20, 10))
    platform.options(1, 1, 1, 1, 1)
    assert switch.balancer.algorithm == "count"
    assert switch.balancer.options == (70, 30, 20, 10)
    assert switch.balancer.options.low == 30
    platform.property(u32(0, 64))
    assert switch.burst_size == 64
    platform.property(u32(0) + b"\x05")
    assert switch.numa_teaming is True
    platform.property(u32(7))
    assert switch.fpo == 7


def test_without_one_the_datapath_is_asked(switch, platform):
    platform.options(9, 80, 20, 5, 3)
    platform.double.answer("Ryn_GetSwitchBurstSize", area=u32(32))
    platform.double.answer("Ryn_GetSwitchNUMATeam", area=b"\0")
    assert (switch.balancer.algorithm, switch.balancer.options) == ("invalid", (80, 20, 5, 3))
    assert (switch.burst_size, switch.numa_teaming) == (32, False)
    portsets = [call.portset for call in platform.double.calls() if hasattr(call, "portset")]
    assert [bytes(p if isinstance(p, bytes) else p.encode()).rstrip(b"\0") for p in portsets] == [b"dvs-1-set"] * 4


def test_offload_without_a_property_is_on(switch):
    assert switch.fpo == 1


def test_settings_say_where_each_value_comes_from(switch, platform):
    platform.options(1, 80, 20, 5, 3)
    platform.double.answer("Ryn_GetSwitchBurstSize", area=u32(32))
    platform.double.answer("Ryn_GetLRO", area=u32(1))
    platform.double.answer("Ryn_Get_Panic_On_Tx_Hang", area=u32(1))
    settings = switch.settings()
    assert set(settings) == {"burst_size", "numa_teaming", "algorithm", "options", "fpo", "lro", "panic_on_tx_hang"}
    assert settings["burst_size"] == ("burst_size", 32, "datapath", None, 32)
    assert settings["algorithm"] == ("algorithm", "cpu", "datapath", None, "cpu")
    assert settings["fpo"] == ("fpo", 1, "default", None, None)
    assert settings["lro"] == ("lro", True, "datapath", None, True)
    assert settings["panic_on_tx_hang"].value == 1
    platform.property(u32(0, 64))
    burst = ryn.Setting("burst_size", 64, "property", 64, 32)
    with pytest.raises(ryn.InvalidResponse):
        switch.settings()  # the same bytes are no balancer record
    platform.property(u32(0, 2, 70, 30, 20, 10))
    assert (burst.stored, burst.running) == (64, 32)


def test_stored_and_running_differ_until_the_datapath_has_taken_it_over(switch, platform):
    from ryn import settings

    platform.options(1, 80, 20, 5, 3)
    platform.property(u32(0, 2, 70, 30, 20, 10))
    kept = settings._kept_setting(switch, "algorithm")
    assert kept == ("algorithm", "count", "property", "count", "cpu")
    platform.double.answer("Ryn_GetCurrentLBData", status=1)
    assert settings._kept_setting(switch, "algorithm").running is None


def test_a_switch_that_only_the_configuration_knows_has_the_settings_that_can_be_read(host, platform):
    platform.configure("alone", "id-alone", "alone-set")
    switch = host.switch("alone")
    for op in ("Ryn_GetCurrentLBData", "Ryn_GetSwitchBurstSize", "Ryn_GetSwitchNUMATeam"):
        platform.double.answer(op, status=MISSING)
    assert switch.settings() == {"fpo": ("fpo", 1, "default", None, None)}
    platform.double.answer("DVSQOB_HostPropGet", area=u32(0, 64), times=1)
    assert switch.settings()["burst_size"] == ("burst_size", 64, "property", 64, None)
    platform.double.answer("DVSQOB_HostPropGet", status=MISSING, times=4)  # of the four settings before
    platform.double.answer("DVSQOB_HostPropGet", area=u32(7), times=1)
    assert switch.settings() == {"fpo": ("fpo", 7, "property", 7, None)}
    with pytest.raises(ryn.NotFound):
        switch.burst_size
    assert len(host.counters()) == 3
    platform.double.answer("DVSQOB_HostPropGet", status=5)
    with pytest.raises(ryn.PlatformError, match="0x00000005"):
        switch.settings()
    for name in ("lro", "panic_on_tx_hang"):
        with pytest.raises(ryn.NotFound, match="the datapath does not know"):
            getattr(switch, name)


def test_a_switch_without_settings_says_why(host, platform):
    platform.datapath(("dvs-1-set", 3), ("other", 5))
    with pytest.raises(ryn.NotFound, match="no settings"):
        host.switch("other").settings()
    platform.configure("odd", "id-odd", class_name="portgroup")
    with pytest.raises(ryn.BadParameter, match="portgroup"):
        host.switch("odd").settings()


# Malformed properties


@pytest.mark.parametrize("value", [b"", u32(1, 64), u32(0), u32(0, 64, 0), b"\0" * 7, b"\1"])
@pytest.mark.parametrize("name", ["burst_size", "numa_teaming", "algorithm", "options"])
def test_a_malformed_property_is_no_value(switch, platform, name, value):
    platform.property(value)
    with pytest.raises(ryn.InvalidResponse) as caught:
        getattr(switch.balancer if name in ("algorithm", "options") else switch, name)
    assert caught.value.operation == "DVSQOB_HostPropGet"
    assert caught.value.arguments[0] == "id-1"


@pytest.mark.parametrize("value", [b"", b"\1", u32(0, 1)])
def test_a_malformed_offload_property_is_no_value(switch, platform, value):
    platform.property(value)
    with pytest.raises(ryn.InvalidResponse):
        switch.fpo


def test_a_property_that_cannot_be_read_is_an_error_and_no_fall_back(switch, platform):
    platform.double.answer("DVSQOB_HostPropGet", status=5)
    for name in ("burst_size", "numa_teaming", "fpo"):
        with pytest.raises(ryn.PlatformError):
            getattr(switch, name)


def test_a_switch_of_another_class_has_no_settings(host, platform):
    platform.configure("odd", "id-odd", class_name="portgroup")
    with pytest.raises(ryn.BadParameter, match="portgroup"):
        host.switch("odd").burst_size


# Changes


@pytest.mark.parametrize(
    "name, value, key, stored",
    [
        ("burst_size", 64, BURST, u32(0, 64)),
        ("numa_teaming", True, TEAMING, u32(0) + b"\1"),
        ("numa_teaming", False, TEAMING, u32(0) + b"\0"),
        ("fpo", False, FPO, u32(0)),
        ("fpo", 7, FPO, u32(7)),
    ],
)
def test_a_change_is_stored_and_read_back(switch, platform, name, value, key, stored):
    platform.property(stored)  # what is read back
    setattr(switch, name, value)
    (call,) = changes(platform)
    assert (call.op, call.switchId, call.key, call.value) == ("DVSQOB_HostPropSet", "id-1", key, stored)
    after = platform.double.ops()[platform.double.ops().index("DVSQOB_HostPropSet") + 1 :]
    assert "DVSQOB_HostPropGet" in after


def test_a_change_of_the_algorithm_keeps_the_options(switch, platform):
    platform.property(u32(0, 2, 70, 30, 20, 10))
    platform.double.answer("DVSQOB_HostPropGet", status=MISSING, times=1)
    platform.options(1, 70, 30, 20, 10)
    switch.balancer.algorithm = "count"
    (call,) = changes(platform)
    assert (call.key, call.value) == (LOADBAL, u32(0, 2, 70, 30, 20, 10))


def test_options_that_are_none_stay_as_they_are(switch, platform):
    platform.double.answer("DVSQOB_HostPropGet", area=u32(0, 1, 80, 20, 5, 3), times=1)
    platform.property(u32(0, 1, 60, 20, 10, 3))
    switch.balancer.options = (60, None, 10, None)
    (call,) = changes(platform)
    assert call.value == u32(0, 1, 60, 20, 10, 3)


@pytest.mark.parametrize("settle", [0, 0.05])
def test_what_does_not_read_back_was_not_applied(platform, settle):
    host = ryn.Host(settle=settle)
    platform.property(u32(0, 32))
    with pytest.raises(ryn.NotApplied) as caught:
        host.switch("dvs-1").burst_size = 64
    assert (caught.value.name, caught.value.wanted, caught.value.value) == ("burst_size", 64, 32)


def test_a_change_may_take_until_it_has_settled(platform):
    host = ryn.Host(settle=60)
    platform.double.answer("DVSQOB_HostPropGet", area=u32(0, 32), times=3)
    platform.property(u32(0, 64))
    host.switch("dvs-1").burst_size = 64
    assert platform.double.ops().count("DVSQOB_HostPropGet") == 4


def test_a_change_that_cannot_be_stored_is_an_error(switch, platform):
    platform.double.answer("DVSQOB_HostPropSet", status=9)
    with pytest.raises(ryn.PlatformError, match="0x00000009") as caught:
        switch.fpo = 0
    assert caught.value.operation == "DVSQOB_HostPropSet"
    assert caught.value.arguments[:2] == ("id-1", FPO)


@pytest.mark.parametrize(
    "name, value, error",
    [
        ("burst_size", 0, ValueError),
        ("burst_size", -1, ValueError),
        ("burst_size", 1 << 32, ValueError),
        ("burst_size", "64", TypeError),
        ("burst_size", 1.0, TypeError),
        ("burst_size", None, TypeError),
        ("numa_teaming", 2, ValueError),
        ("numa_teaming", "on", TypeError),
        ("fpo", -1, ValueError),
        ("fpo", 1 << 32, ValueError),
        ("fpo", None, TypeError),
        ("lro", -1, ValueError),
        ("lro", "on", TypeError),
        ("panic_on_tx_hang", 2, ValueError),
        ("panic_on_tx_hang", None, TypeError),
    ],
)
def test_bad_values_are_refused_before_anything_is_changed(switch, platform, name, value, error):
    with pytest.raises(error):
        setattr(switch, name, value)
    assert changes(platform) == []


@pytest.mark.parametrize(
    "options, error",
    [
        ((50, 60, 1, 1), ValueError),  # low above high
        ((None, 81, None, None), ValueError),  # low above the stored high
        ((19, None, None, None), ValueError),  # high below the stored low
        ((1, 1, 1), ValueError),
        ((1, 1, 1, 1, 1), ValueError),
        ((-1, 1, 1, 1), ValueError),
        ((1 << 32, 1, 1, 1), ValueError),
        ((1, "1", 1, 1), TypeError),
    ],
)
def test_bad_options_are_refused_before_anything_is_changed(switch, platform, options, error):
    platform.property(u32(0, 1, 80, 20, 5, 3))
    with pytest.raises(error):
        switch.balancer.options = options
    assert changes(platform) == []


def test_numbers_of_other_types_are_numbers(host, switch, platform):
    numpy = pytest.importorskip("numpy")
    platform.property(u32(0, 64))
    switch.burst_size = numpy.uint16(64)
    (call,) = changes(platform)
    assert call.value == u32(0, 64)
    platform.double.answer("Ryn_GetLBWeights", area=u32(*range(8)))
    host.balancer_weights = numpy.arange(8)
    assert changes(platform)[-1].weights == u32(*range(8))
    for wrong in (numpy.float64(64), numpy.array([64, 65])):
        with pytest.raises(TypeError):
            switch.burst_size = wrong


def test_a_low_threshold_that_equals_the_high_one_is_taken(switch, platform):
    platform.property(u32(0, 1, 50, 50, 5, 3))
    switch.balancer.options = (50, 50, 5, 3)
    assert len(changes(platform)) == 1


@pytest.mark.parametrize(
    "name, error", [("CPU", ValueError), ("invalid", ValueError), ("", ValueError), (1, TypeError)]
)
def test_a_bad_algorithm_is_refused_before_anything_is_called(switch, platform, name, error):
    platform.double.forget_calls()
    with pytest.raises(error):
        switch.balancer.algorithm = name
    assert platform.double.calls() == []


def test_offload_on_receive_of_a_switch(switch, platform):
    platform.double.answer("Ryn_GetLRO", area=u32(1))
    switch.lro = 7
    (call,) = changes(platform)
    assert (call.scope, call.swID, call.rynPortID, call.state) == (1, 3, 0, 7)
    with pytest.raises(ryn.NotApplied):
        switch.lro = False


def test_panic_on_a_hang(switch, platform):
    platform.double.answer("Ryn_Get_Panic_On_Tx_Hang", area=u32(1))
    switch.panic_on_tx_hang = True
    assert switch.panic_on_tx_hang == 1
    (call,) = changes(platform)
    assert (call.swID, call.setting) == (3, 1)


def test_what_has_no_getter_is_a_method(switch, platform):
    switch.set_flow_cache(False)
    switch.set_uplink_learning(True)
    called = [(call.op, call.swID, call.enable) for call in platform.double.calls() if hasattr(call, "enable")]
    assert called == [("Ryn_Enable_Switch_Flow_Cache", 3, 0), ("Ryn_Set_Uplink_MAC_Learn", 3, 1)]
    for method in (switch.set_flow_cache, switch.set_uplink_learning):
        with pytest.raises(ValueError):
            method(2)
        with pytest.raises(TypeError):
            method("on")


# Ring sizes


def test_ring_sizes_are_kept_for_the_distributed_port(switch, platform):
    (uplink,) = switch.uplinks()
    assert uplink.ring_size == (2048, 1024)
    platform.double.answer("DVSQOB_PortDataGet", area=u32(4096, 512))
    assert (uplink.ring_size.tx, uplink.ring_size.rx) == (4096, 512)
    platform.double.forget_calls()
    uplink.ring_size = (4096, 512)
    (call,) = changes(platform)
    assert (call.op, call.switchId, call.portId, call.key, call.value) == (
        "DVSQOB_PortDataSet",
        "id-1",
        "10",
        RING,
        u32(4096, 512),
    )
    for value in (b"", u32(1), u32(1, 2, 3)):
        platform.double.answer("DVSQOB_PortDataGet", area=value)
        with pytest.raises(ryn.InvalidResponse):
            uplink.ring_size


@pytest.mark.parametrize(
    "sizes, error",
    [
        ((1000, 512), ValueError),
        ((32, 1), ValueError),
        ((32,), ValueError),
        ((32, 32, 32), ValueError),
        ((-32, 32), ValueError),
        ((1 << 32, 32), ValueError),
        (("32", 32), TypeError),
    ],
)
def test_bad_ring_sizes_are_refused_before_anything_is_called(switch, platform, sizes, error):
    (uplink,) = switch.uplinks()
    platform.double.forget_calls()
    with pytest.raises(error):
        uplink.ring_size = sizes
    assert platform.double.calls() == []


def test_ring_sizes_of_a_port_that_is_gone_are_not_set(switch, platform):
    (uplink,) = switch.uplinks()
    platform.ports(PortLine(0, 99))
    with pytest.raises(ryn.Gone):
        uplink.ring_size = (64, 64)
    assert changes(platform) == []


# Settings of the host


def test_flow_timeout(host, platform):
    platform.double.answer("Ryn_Get_Flow_Timeout", area=u32(30))
    host.flow_timeout = 30
    assert host.flow_timeout == 30
    (call,) = changes(platform)
    assert call.seconds == 30
    with pytest.raises(ValueError):
        host.flow_timeout = -1


def test_weights(host, platform):
    platform.double.answer("Ryn_GetLBWeights", area=u32(*range(8)))
    assert host.balancer_weights == tuple(range(8))
    assert host.balancer_weights.port_count == 7
    host.balancer_weights = range(8)
    host.balancer_weights = (None, 1, None, 3, 4, 5, 6, None)
    assert [call.weights for call in changes(platform)] == [u32(*range(8))] * 2
    platform.double.forget_calls()
    for bad, error in ((range(7), ValueError), ([-1] + [0] * 7, ValueError), (["1"] * 8, TypeError)):
        with pytest.raises(error):
            host.balancer_weights = bad
    assert changes(platform) == []
    host.reset_balancer_weights()
    assert platform.double.ops() == ["Ryn_ResetLBWeights"]


def test_devices(host, platform):
    area = Bytes(1156).u32(0, 1).text(4, "lunic0").u32(36, 1)
    platform.double.answer("Ryn_List_Dev_Affinity", area=area)
    assert host.devices() == [("lunic0", 1)]
    host.set_affinity("lunic0", 1)
    with pytest.raises(ryn.NotApplied):
        host.set_affinity("lunic0", 2)
    for bad, error in (((1, 1), TypeError), (("lunic0", "1"), TypeError), (("lunic0", -1), ValueError)):
        with pytest.raises(error):
            host.set_affinity(*bad)
