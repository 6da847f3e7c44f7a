"""What all methods have in common, shown by those of the ports: arguments, results, and how a failure is told."""

import contextlib
import io
import os
import subprocess
import sys

import pytest
from harness import ANY, BUFFER, DICT_ITEM, Bytes, Call, Outcome, capture_stderr, lost_blocks, python, run

INVALID = "TypeError: Invalid parameter passed.\n"
COMPLAINT = "returned a result with an (error|exception) set"


class Index:
    """A number by `__index__`, which tells when it is asked."""

    asked: list = []

    def __init__(self, value):
        self.value = value

    def __index__(self):
        Index.asked.append(self.value)
        if isinstance(self.value, BaseException):
            raise self.value
        return self.value


@pytest.fixture(autouse=True)
def _nothing_asked():
    Index.asked = []


# ---- Arguments


@pytest.mark.parametrize(
    "number, wrapped",
    [
        (0, 0),
        (True, 1),
        (0xFFFFFFFF, 0xFFFFFFFF),
        (-1, 0xFFFFFFFF),
        (-2, 0xFFFFFFFE),
        (1 << 32, 0),
        (-(1 << 32), 0),
        ((1 << 32) - 1 + (1 << 32), 0xFFFFFFFF),
        ((1 << 63) + 5, 5),
        ((1 << 64) + 7, 7),
        (-(1 << 64) + 9, 9),
        (10**30, 10**30 % (1 << 32)),
        (-(10**30), -(10**30) % (1 << 32)),
        (Index(77), 77),
        (Index(-1), 0xFFFFFFFF),
        (Index(1 << 40), 0),
    ],
)
def test_unsigned_numbers_wrap(ryn, double, number, wrapped):
    assert run(ryn.MigratePort, 0, 0, number, 0, number) == Outcome(None)
    assert (double.calls()[0].option1, double.calls()[0].option3) == (wrapped, wrapped)


@pytest.mark.parametrize(
    "number, mac",
    [
        (Index(0x0102), "020100000000"),
        (Index(-1), "ffffffffffff"),
        (True, "010000000000"),
    ],
)
def test_signed_number_by_index(ryn, double, number, mac):
    assert run(ryn.AddMACEntry, 0, 0, number, 0) == Outcome(None)
    assert double.calls()[0].mac.hex() == mac


class OnlyInt:
    def __int__(self):
        return 1


class IntSubclass(int):
    def __index__(self):
        raise AssertionError("an int is taken as it is")


def test_subclass_of_int_is_an_int(ryn, double):
    assert run(ryn.UnpinPort, IntSubclass(1), IntSubclass(2), IntSubclass(3)) == Outcome(None)
    assert double.calls() == [Call("Ryn_Unpin_Port", swID=1, rynPortID=2, option=3)]


@pytest.mark.parametrize(
    "wrong, error",
    [
        (OnlyInt(), TypeError),
        (1.0, TypeError),
        (float("nan"), TypeError),
        (Index("1"), TypeError),
        (Index(None), TypeError),
        (Index(KeyError("k")), KeyError),
        (Index(OverflowError("o")), OverflowError),
        (Index(MemoryError()), MemoryError),
        (Index(KeyboardInterrupt()), KeyboardInterrupt),
        (Index(SystemExit(3)), SystemExit),
        (object(), TypeError),
    ],
)
@pytest.mark.parametrize(
    "method, place", [("MigratePort", place) for place in range(5)] + [("AddMACEntry", place) for place in range(4)]
)
def test_number_that_cannot_be_read_leaves_its_own_error(ryn, double, method, place, wrong, error):
    args = [0] * (5 if method == "MigratePort" else 4)
    args[place] = wrong
    assert run(getattr(ryn, method), *args) == Outcome(None, INVALID, (error, ANY))
    assert double.calls() == []


def test_arguments_are_read_from_the_left_until_one_fails(ryn, double):
    run(ryn.MigratePort, Index(1), Index(2), Index(3), Index(KeyError()), Index(5))
    assert [type(value) for value in Index.asked] == [int, int, int, KeyError]
    Index.asked = []
    run(ryn.AddMACEntry, Index(1), Index(2), Index(3), Index(4))
    assert Index.asked == [1, 2, 3, 4]


def test_wrong_count_is_refused_before_any_argument_is_read(ryn, double):
    assert run(ryn.MigratePort, Index(1), Index(2), Index(3), Index(4)) == Outcome(None, INVALID, (TypeError, ANY))
    assert Index.asked == []


def test_ranges_are_checked_when_all_arguments_are_read(ryn, double):
    assert run(ryn.MigratePort, Index(16), Index(128), Index(3), Index(4), Index(5)) == Outcome(None, INVALID)
    assert Index.asked == [16, 128, 3, 4, 5]
    assert run(ryn.MigratePort, 16, 128, 0, 0, "x") == Outcome(None, INVALID, (TypeError, ANY))  # one line all the same


def test_methods_may_be_called_while_an_argument_is_read(ryn, double):
    double.answer("Ryn_Get_Switch_List", area=Bytes(2568).u32(0, 3))

    class Calls:
        def __index__(self):
            assert len(ryn.ListSwitches()) == 3
            ryn.ResetPort(1, 2)
            return 5

    assert run(ryn.ListPorts, Calls()) == Outcome([])
    assert double.ops() == ["Ryn_Get_Switch_List", "Ryn_Reset_Port", "Ryn_Get_Port_List"]


# ---- Failure


@pytest.mark.parametrize("method, args", [("ListPorts", ("x",)), ("MigratePort", ()), ("GetPortLRO", (0, None))])
def test_script_sees_the_interpreters_complaint_caused_by_the_parsers_error(ryn, double, method, args):
    with capture_stderr(), pytest.raises(SystemError, match=COMPLAINT) as raised:
        getattr(ryn, method)(*args)
    assert isinstance(raised.value.__cause__, TypeError)


def test_script_sees_the_interpreters_complaint_caused_by_the_modules_error(ryn, double):
    double.answer("Ryn_Get_Switch_List", area=Bytes(2568).u32(0, 1).raw(8, b"\xff"))
    with capture_stderr() as texts, pytest.raises(SystemError, match=COMPLAINT) as raised:
        ryn.ListSwitches()
    assert (type(raised.value.__cause__), str(raised.value.__cause__)) == BUFFER
    assert texts == [""]


def test_failure_of_the_library_raises_nothing(ryn, double):
    double.answer("Ryn_Reset_Port", status=1)
    with capture_stderr() as texts:
        assert ryn.ResetPort(0, 0) is None
        assert ryn.ResetPort(16, 0) is None
    assert texts == ["Failed to reset port.\n" + INVALID]


def test_messages_go_to_the_process_and_not_to_the_interpreters_stream(ryn, double):
    stream = io.StringIO()
    with contextlib.redirect_stderr(stream):
        assert run(ryn.ResetPort, 16, 0) == Outcome(None, INVALID)
    assert stream.getvalue() == ""


def test_message_that_nobody_can_take_is_no_failure(ryn, double):
    saved = os.dup(2)
    os.close(2)
    try:
        assert ryn.ResetPort(16, 0) is None
    finally:
        os.dup2(saved, 2)
        os.close(saved)
    assert run(ryn.ResetPort, 16, 0) == Outcome(None, INVALID)


@pytest.mark.parametrize(
    "method, args, op",
    [
        ("ListSwitches", (), "Ryn_Get_Switch_List"),
        ("ListPorts", (0,), "Ryn_Get_Port_List"),
        ("GetPortConf", (0, 0), "Ryn_Get_Port_Conf"),
        ("ListPortMACTable", (0, 0), "Ryn_Dump_Port_MAC_Table"),
        ("ListSwitchMACTable", (0,), "Ryn_Dump_Switch_MAC_Table"),
        ("GetPortStats", (0, 0), "Ryn_Get_Port_Stats"),
    ],
)
def test_answer_of_a_failing_library_is_not_looked_at(ryn, double, method, args, op):
    double.answer(op, status=1, area=b"\xff" * 128)
    outcome = run(getattr(ryn, method), *args)
    assert (outcome.value, outcome.error) == (None, None)
    assert double.ops() == [op]


# ---- Results


def test_calls_do_not_share_what_can_be_changed(ryn, double):
    area = Bytes(11532).u32(4, 2).u8(12 + 8, 2, 2).u8(102 + 8, 2, 2)
    double.answer("Ryn_Get_Port_List", area=area)
    first, second = ryn.ListPorts(0), ryn.ListPorts(0)
    assert first == second
    containers = [item for rows in (first, second) for row in rows for item in (row, row["txQLM"], row["rxQLM"])]
    assert len({id(container) for container in [first, second, *containers]}) == 14
    first[0]["txQLM"].append(1)
    first[0].clear()
    assert ryn.ListPorts(0) == second


ALL_ONES = b"\xff" * 1310736  # each count above its room, each number as large as can be
SWITCHES = Bytes(2568).u32(0, 16).raw(8, bytes(2560).replace(b"\0", b"x"))


@pytest.mark.skipif(sys.getallocatedblocks() == 0, reason="PYTHONMALLOC: no blocks are counted")
@pytest.mark.parametrize(
    "method, args, op, area",
    [
        ("ListSwitches", (), "Ryn_Get_Switch_List", SWITCHES),
        (
            "ListSwitches",
            (),
            "Ryn_Get_Switch_List",
            Bytes(2568).raw(0, SWITCHES).u8(8 + 15 * 160, 0xFF),
        ),  # the last name
        ("ListPorts", (0,), "Ryn_Get_Port_List", ALL_ONES),
        ("GetPortStats", (0, 0), "Ryn_Get_Port_Stats", ALL_ONES),
        ("GetPortConf", (0, 0), "Ryn_Get_Port_Conf", ALL_ONES),
        ("ListPortMACTable", (0, 0), "Ryn_Dump_Port_MAC_Table", b"\xff\0" * 1000),
        ("ListSwitchMACTable", (0,), "Ryn_Dump_Switch_MAC_Table", b"\xff\0" * 1000),
    ],
    ids=lambda value: value if isinstance(value, str) else "",
)
def test_no_large_result_leaves_anything_behind(ryn, double, method, args, op, area):
    double.recording(False)
    double.answer(op, area=area)
    assert run(getattr(ryn, method), *args).error in (None, BUFFER)
    assert lost_blocks(lambda: run(getattr(ryn, method), *args), 20) == 0


def test_rows_share_their_keys(ryn, double):
    double.answer("Ryn_Get_Port_List", area=Bytes(11532).u32(4, 128))
    rows = ryn.ListPorts(0) + ryn.ListPorts(1)
    assert len({id(key) for row in rows for key in row}) == 9


def test_no_call_lets_go_of_the_interpreter_lock(ryn):
    names = subprocess.run(
        ["nm", "-D", "--undefined-only", ryn.__file__], capture_output=True, text=True, check=True
    ).stdout.split()
    assert "PyList_New" in names
    assert [name for name in names if name.startswith(("PyEval_", "PyGILState_", "PyThread", "PyRun_"))] == []


FIRST_USE = """
import harness, os, _libryn
double = harness.set_up()
double.recording(False)
double.answer("Ryn_Get_Port_List", area=harness.Bytes(11532).u32(4, 1).u32(12, 1000).u8(20, 1, 2).u32(30, 2))
harness.run(_libryn.ListPorts, 16, failing_allocation=0)  # warms up all but the keys
for n in range(1000):
    if os.fork() == 0:
        outcome = harness.run(_libryn.ListPorts, 0, failing_allocation=n)
        print(outcome.stderr.strip(), outcome.error and outcome.error[1].strip(), [*_libryn.ListPorts(0)[0].items()],
              sep="|", flush=True)
        harness.leave(0 if outcome.allocation_failed else 1)
    if os.wait()[1] != 0:
        break
"""


def test_key_that_cannot_be_made_fails_its_store_and_is_made_at_the_next(ryn):
    """In a fresh process no key exists yet. Each of its forks lets another allocation of its first call fail."""
    done = python(FIRST_USE)
    assert done.stderr == ""
    texts, errors, values = zip(*(line.split("|") for line in done.stdout.splitlines()))
    assert {*values} == {
        str(
            [
                ("portID", 1000),
                ("rynPortID", 0),
                ("numTxQ", 1),
                ("numRxQ", 2),
                ("hwAddr", "00:00:00:00:00:00"),
                ("numMACs", 0),
                ("clientType", "UPLINK"),
                ("txQLM", [0]),
                ("rxQLM", [0, 0]),
            ]
        )
    }
    assert (texts[-1], errors[-1]) == ("", "None")  # no allocation is left that could fail
    assert set(zip(texts[:-1], errors[:-1])) == {
        ("Failed to allocate port list.", ""),
        ("", BUFFER[1].strip()),
        ("", DICT_ITEM[1].strip()),
    }
    assert errors.count(DICT_ITEM[1].strip()) >= 9  # one a key, and the growing of the dict
