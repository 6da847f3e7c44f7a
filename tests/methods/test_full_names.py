"""Names that fill their fixed-width field, so that no NUL ends them, in every operation that takes or gives one."""

import ctypes
import re
from pathlib import Path

import pytest
from harness import MISSING, Bytes, Call, Outcome, run
from method_table import PORTSET

BEHIND = b"\xa5"  # what follows a field: no NUL, and not UTF-8


@pytest.mark.parametrize("length", [1, 126, 127, 128])
def test_name_of_a_switch(ryn, double, length):
    name = "".join(chr(0x61 + i % 26) for i in range(length))
    area = Bytes(BEHIND * 2568).u32(0, 16)
    for i in range(16):
        area.raw(8 + 160 * i, name.encode().ljust(128, b"\0"))
    double.answer("Ryn_Get_Switch_List", area=area)
    outcome = run(ryn.ListSwitches)
    assert [switch["name"] for switch in outcome.value] == [name] * 16
    assert outcome.error is None


@pytest.mark.parametrize("length", [1, 30, 31, 32])
def test_name_of_a_device(ryn, double, length):
    name = "".join(chr(0x61 + i % 26) for i in range(length))
    area = Bytes(BEHIND * 1156).u32(0, 32)
    for i in range(32):
        area.raw(4 + 36 * i, name.encode().ljust(32, b"\0"))
    double.answer("Ryn_List_Dev_Affinity", area=area)
    outcome = run(ryn.ListDevAffinity)
    assert [device["devname"] for device in outcome.value] == [name] * 32
    assert outcome.error is None


@pytest.mark.parametrize("length", [31, 32, 33, 127, 128, 5000])
def test_device_is_passed_on_whole(ryn, double, length):
    assert run(ryn.SetDevAffinity, "d" * length, 3) == Outcome(None)
    assert double.calls() == [Call("Ryn_Set_Dev_Affinity", device="d" * length, affinity=3)]


# The methods that ask the datapath about a switch by its portset name
ASKS = [
    ("GetLBAlgorithm", (), "Ryn_GetCurrentLBData"),
    ("GetLBParams", (), "Ryn_GetCurrentLBData"),
    ("SetLBAlgorithm", ("cpu",), "Ryn_GetCurrentLBData"),
    ("SetLBParams", (1, 1, 1, 1), "Ryn_GetCurrentLBData"),
    ("GetSwitchNUMATeam", (), "Ryn_GetSwitchNUMATeam"),
    ("GetSwitchBurstSize", (), "Ryn_GetSwitchBurstSize"),
]


@pytest.mark.parametrize("method, more, op", ASKS, ids=[method for method, *_ in ASKS])
@pytest.mark.parametrize("length", [1, 127, 128, 129, 300])
@pytest.mark.parametrize("end", [b"", b"\0"], ids=["no NUL", "NUL"])
def test_portset_name_of_a_switch(ryn, double, method, more, op, length, end):
    name = bytes(1 + i % 255 for i in range(length))
    double.add_switch("dvs-1", id="id-1", host={PORTSET: name + end})
    double.answer("DVSQOB_HostPropGet", status=MISSING)
    assert run(getattr(ryn, method), "dvs-1", *more).error is None
    (asked,) = [call for call in double.calls() if call.op == op]
    assert asked.portset == name[:128].ljust(128, b"\0")


def test_no_operation_of_the_datapath_that_takes_a_name_is_left_out():
    header = (Path(__file__).parents[2] / "platform/ryn.h").read_text()
    takes_a_name = set(re.findall(r"(Ryn_\w+)\((?:[^)]*, )?const char\*", header))
    assert takes_a_name == {op for *_, op in ASKS} | {"Ryn_Set_Dev_Affinity"}


# The methods that key a property by the switch's identifier
KEYED = [
    ("GetLBAlgorithm", ()),
    ("SetLBAlgorithm", ("cpu",)),
    ("GetLBParams", ()),
    ("SetLBParams", (1, 1, 1, 1)),
    ("GetSwitchNUMATeam", ()),
    ("SetSwitchNUMATeam", (1,)),
    ("GetSwitchBurstSize", ()),
    ("SetSwitchBurstSize", (1,)),
    ("GetFPOEnabled", ()),
    ("EnableFPO", (1,)),
]


@pytest.mark.parametrize("method, more", KEYED, ids=[method for method, _ in KEYED])
@pytest.mark.parametrize("length", [1, 62, 63, 64, 65, 200])
def test_identifier_of_a_switch(ryn, double, method, more, length):
    """It is cut at 63 bytes: its last byte is set to 0."""
    identifier = "".join(chr(0x61 + i % 26) for i in range(length))
    double.add_switch("dvs-1", id=identifier, host={PORTSET: "portset-1"})
    run(getattr(ryn, method), "dvs-1", *more)
    keyed = [call.switchId for call in double.calls() if call.op.startswith("DVSQOB_HostProp")]
    assert keyed and set(keyed) == {identifier[:63]}


def test_alias_output_is_not_terminated_where_it_fills_its_field(native, double):
    find = native["DVSPortsetNameToAlias"]
    find.argtypes, find.restype = [ctypes.c_char_p, ctypes.c_char_p], ctypes.c_uint32
    for length in (127, 128, 129):
        double.reset()
        double.add_switch("dvs-1", host={PORTSET: b"p"}, global_={"com.talvor.common.alias": b"a" * length})
        area = ctypes.create_string_buffer(BEHIND * 129, 129)
        assert find(b"p" * length, area) == 0
        assert area.raw == (b"a" * length)[:128].ljust(128, b"\0") + BEHIND
