"""The platform double itself: an operation's test is worth what its double records and answers."""

import ctypes
import re
import threading
from pathlib import Path

import pytest
from harness import ANY, Bytes, Call, Outcome, python, run, u32

PLATFORM = Path(__file__).parents[2] / "platform"
PROTOTYPE = re.compile(r"^\w[\w ]*?[ *]+(\w+)\(", re.MULTILINE)


@pytest.fixture
def operations(ryn) -> ctypes.CDLL:
    return ctypes.CDLL("libjorPublic.so")  # depends on libryn.so: its look-up finds both libraries' operations


def test_every_operation_of_the_headers_is_there(operations):
    headers = [PLATFORM / "ryn.h", PLATFORM / "jor_public.h"]
    names = [name for header in headers for name in PROTOTYPE.findall(header.read_text())]
    assert len(names) == len(set(names)) > 50
    assert [name for name in names if not hasattr(operations, name)] == []


def test_answers_and_records(operations, double):
    area, length = (ctypes.c_ubyte * 12)(), ctypes.c_uint32(10)
    double.answer("Ryn_Get_Port_List", area=bytes(range(1, 13)), length=7)
    assert operations.Ryn_Get_Port_List(3, area, ctypes.byref(length)) == 0
    assert bytes(area) == bytes([*range(1, 11), 0, 0])  # no byte past the room
    assert length.value == 7
    assert double.calls() == [Call("Ryn_Get_Port_List", swID=3, length=10, zeroed=True)]
    double.forget_calls()
    operations.Ryn_Get_Port_List(3, area, ctypes.byref(length))
    assert double.calls() == [Call("Ryn_Get_Port_List", swID=3, length=7, zeroed=False)]


def test_overrun_when_told_so(operations, double):
    area, length = (ctypes.c_ubyte * 12)(), ctypes.c_uint32(10)
    double.answer("Ryn_Get_Port_List", area=b"\1" * 12, overrun=True)
    operations.Ryn_Get_Port_List(3, area, ctypes.byref(length))
    assert bytes(area) == b"\1" * 12
    assert length.value == 10  # left alone


def test_counted_answers_come_first_then_the_standing_one(operations, double):
    double.answer("Ryn_Reset_Port", status=9)
    double.answer("Ryn_Reset_Port", status=1, times=2)
    double.answer("Ryn_Reset_Port", status=2, times=1)
    assert [operations.Ryn_Reset_Port(0, 0) for _ in range(5)] == [1, 1, 2, 9, 9]
    double.answer("Ryn_Reset_Port", status=8)
    assert operations.Ryn_Reset_Port(0, 0) == 8
    double.reset()
    assert operations.Ryn_Reset_Port(0, 0) == 0


def test_misspelt_operation_is_refused(double):
    with pytest.raises(AssertionError):
        double.answer("Ryn_Get_Ports")


def test_inputs_are_recorded(operations, double):
    operations.Ryn_MAC_Entry_Ops(1, 2, b"\2\x11\x22\x33\x44\x55", 4094, 1)
    operations.Ryn_Set_Port_Tx_Uplink(1, 2, 3, 1, (ctypes.c_uint32 * 8)(7))
    operations.Ryn_Set_Dev_Affinity("lunic\u00e90".encode(), 0xFFFFFFFF)
    operations.Ryn_Get_Flow_Stats(
        0, (ctypes.c_uint32 * 64)(5, 6), 2, 1, ctypes.create_string_buffer(8), ctypes.byref(ctypes.c_uint32(8))
    )
    assert double.calls() == [
        Call("Ryn_MAC_Entry_Ops", swID=1, rynPortID=2, mac=b"\2\x11\x22\x33\x44\x55", vlanID=4094, operation=1),
        Call("Ryn_Set_Port_Tx_Uplink", swID=1, rynPortID=2, txType=3, count=1, uplinks=[7, 0, 0, 0, 0, 0, 0, 0]),
        Call("Ryn_Set_Dev_Affinity", device="lunic\u00e90", affinity=0xFFFFFFFF),
        Call("Ryn_Get_Flow_Stats", swID=0, lcores=[5, 6], lcoreCount=2, option=1, length=8, zeroed=True),
    ]


def test_recording_off(operations, double):
    double.recording(False)
    double.answer("Ryn_Reset_Port", status=4)
    assert operations.Ryn_Reset_Port(0, 0) == 4
    assert double.calls() == []
    double.reset()
    operations.Ryn_Reset_Port(0, 0)
    assert double.ops() == ["Ryn_Reset_Port"]


def test_blocks_are_counted(operations, double):
    block, length = ctypes.c_void_p(), ctypes.c_uint32(77)
    arguments = b"id", b"key", ctypes.byref(block), ctypes.byref(length)
    assert operations.DVSQOB_HostPropGet(*arguments) == 0
    assert (block.value, length.value) == (None, 77)  # nothing scripted, nothing handed out
    double.answer("DVSQOB_HostPropGet", area=u32(0, 5))
    operations.DVSQOB_HostPropGet(*arguments)
    assert ctypes.string_at(block.value, length.value) == u32(0, 5)
    assert double.blocks() == (1, 0)
    operations.DVSQOB_DataFree(block)
    assert double.blocks() == (1, 1)
    double.answer("DVSQOB_HostPropGet", area=u32(0), length=24)  # a lie about the length
    operations.DVSQOB_HostPropGet(*arguments)
    assert length.value == 24
    operations.DVSQOB_DataFree(block)


def test_switches_answer_lookups(operations, double):
    double.add_switch("dvs-1", id=b"id-1\0tail", class_name="other", host={"key": b"\1\2"}, global_={"key": "text"})
    operations.DVSState_SwitchFindByAlias.restype = operations.DVS_SwitchId.restype = ctypes.c_void_p
    operations.DVS_ClassName.restype = ctypes.c_char_p
    assert operations.DVSState_SwitchFindByAlias(b"dvs-2") is None
    dvs = ctypes.c_void_p(operations.DVSState_SwitchFindByAlias(b"dvs-1"))
    assert operations.DVS_ClassName(dvs) == b"other"
    assert ctypes.string_at(operations.DVS_SwitchId(dvs), 64) == b"id-1\0tail".ljust(64, b"\0")
    datum, value = ctypes.c_void_p(), ctypes.c_void_p()
    for look_up, data in (
        (operations.DVSState_HostPropLookup, b"\1\2"),
        (operations.DVSState_GlobalPropLookup, b"text\0"),
    ):
        assert look_up(b"id-1", b"key", ctypes.byref(datum)) == 0
        assert operations.DVSData_Data(datum, ctypes.byref(value)) == len(data)
        assert ctypes.string_at(value.value, len(data)) == data
        assert look_up(b"id-1", b"no key", ctypes.byref(datum)) & 0xFFFFFFFF == 0xBAD0003
        assert look_up(b"id-2", b"key", ctypes.byref(datum)) & 0xFFFFFFFF == 0xBAD0003


def test_an_alias_is_lost_when_told_so(operations, double):
    double.add_switch("dvs-1")
    double.answer("DVSState_SwitchFindByAlias", status=1)
    double.answer("DVSState_SwitchFindByAlias", times=1)
    operations.DVSState_SwitchFindByAlias.restype = ctypes.c_void_p
    assert operations.DVSState_SwitchFindByAlias(b"dvs-1") is not None
    assert operations.DVSState_SwitchFindByAlias(b"dvs-1") is None


@pytest.mark.parametrize("visit_all, visits", [(False, 1), (True, 2)])
def test_iteration_modes(operations, double, visit_all, visits):
    double.add_switch("dvs-1")
    double.add_switch("dvs-2")
    double.visit_all(visit_all)
    seen = []
    visitor = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_void_p, ctypes.c_void_p)(lambda dvs, _: seen.append(dvs) or 1)
    operations.DVSState_SwitchForEach(visitor, None)
    assert len(seen) == visits


def test_load_is_scripted_by_the_environment():
    code = "import _libryn, harness; [print(call) for call in harness.set_up().calls()]"
    done = python(code, RYN_DOUBLE_LOAD="state=0aff,deserialize=7,log=1")
    assert done.stderr == ""
    assert done.stdout.splitlines() == [
        "Call('Log')",
        "Call('Warning')",
        "Call('Panic')",
        "Call('DVSState_ConfigReset')",
        "Call('DVSQOB_StateGet', stateIsNull=1)",
        r"Call('DVSState_ConfigDeserialize', state=b'\n\xff', length=2)",
    ]


def test_outcomes_tell_results_apart():
    assert Outcome(1) != Outcome(True)
    assert Outcome(None, "x") != Outcome(None)
    assert Outcome(None, error=(TypeError, ANY)) == Outcome(None, error=(TypeError, "text"))
    assert Outcome(None, error=(TypeError, ANY)) != Outcome(None)


def test_a_result_with_an_error_shows_both(ryn, double):
    outcome = run(ryn.ListPorts, "no number")
    assert outcome == Outcome(None, "TypeError: Invalid switch ID passed.\n", (TypeError, ANY))
    with pytest.raises(SystemError) as raised:  # what a script sees instead
        ryn.ListPorts("no number")
    assert isinstance(raised.value.__cause__, TypeError)


def test_areas_do_not_grow():
    with pytest.raises(AssertionError):
        Bytes(4).u32(1, 1)
    assert Bytes(8).u16(2, 0x0201).text(4, "ab") == b"\0\0\1\2ab\0\0"


def test_held_call_waits_and_is_answered_then(operations, double):
    double.answer("Ryn_Reset_Port", status=7)
    double.answer("Ryn_Reset_Port", status=5, times=1)
    held = double.hold_call("Ryn_Reset_Port")
    answers = []
    assert operations.Ryn_Reset_Port(1, 2) == 5  # counted answers come in the order in which they were scripted
    thread = threading.Thread(target=lambda: answers.append(operations.Ryn_Reset_Port(3, 4)))
    thread.start()
    held.wait()
    assert answers == [] and double.calls() == [Call("Ryn_Reset_Port", swID=1, rynPortID=2)]
    held.release()
    thread.join()
    assert answers == [7] and double.calls()[1:] == [Call("Ryn_Reset_Port", swID=3, rynPortID=4)]
    held.close()
