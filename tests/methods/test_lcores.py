"""The datapath's cores, and its packet-buffer pools, which are set up when a switch is marked for the datapath."""

import random

import pytest
from harness import MISSING, Call, Outcome, run, u64

MARKER = "com.talvor.extraconfig.opaqueDvs.ryn"
STATUSES = [1, MISSING, 0x0BAD0007, 0x80000000, 0xFFFFFFFF]
NO_BITMAP = "TypeError: Failed to get lcore ID bitmap.\n\n"


# The cores


def cores(bitmap: int) -> tuple[int, ...]:
    return tuple(n for n in range(64) if bitmap >> n & 1)


@pytest.mark.parametrize(
    "bitmap",
    [
        0,
        1,
        1 << 63,
        (1 << 64) - 1,
        1 | 1 << 5 | 1 << 63,
        0xFF << 24,
        0x5555555555555555,
        0xAAAAAAAAAAAAAAAA,
        0xFFFFFFFF,
        0xFFFFFFFF00000000,
        0x0102040810204080,
    ],
)
def test_cores_are_the_bits_set_ascending(ryn, double, bitmap):
    double.answer("Ryn_Get_LCore_ID_Bitmap", area=u64(bitmap))
    assert run(ryn.ListLCoreIDs, 0) == Outcome(cores(bitmap))


def test_every_byte_value_at_every_place(ryn, double):
    double.recording(False)
    for place in range(8):
        for byte in range(256):
            double.answer("Ryn_Get_LCore_ID_Bitmap", area=u64(byte << 8 * place))
            assert run(ryn.ListLCoreIDs, 0) == Outcome(cores(byte << 8 * place))


def test_any_bitmap(ryn, double):
    numbers = random.Random(1)
    double.recording(False)
    for _ in range(500):
        bitmap = numbers.getrandbits(64) & numbers.choice([-1, numbers.getrandbits(64)])
        double.answer("Ryn_Get_LCore_ID_Bitmap", area=u64(bitmap))
        assert run(ryn.ListLCoreIDs, 0) == Outcome(cores(bitmap))


@pytest.mark.parametrize("swID, passed", [(0, 0), (15, 15), (16, 16), (-1, 0xFFFFFFFF), ((1 << 32) + 3, 3)])
def test_switch_is_for_the_datapath_to_judge(ryn, double, swID, passed):
    assert run(ryn.ListLCoreIDs, swID) == Outcome(())
    assert double.calls() == [Call("Ryn_Get_LCore_ID_Bitmap", swID=passed, zeroed=True)]


@pytest.mark.parametrize("status", STATUSES)
def test_failure_prints_its_message_and_goes_on(ryn, double, status):
    double.answer("Ryn_Get_LCore_ID_Bitmap", status=status)
    assert run(ryn.ListLCoreIDs, 0) == Outcome((), NO_BITMAP)
    double.answer("Ryn_Get_LCore_ID_Bitmap", status=status, area=u64(1 | 1 << 63))  # the word as it then stands
    assert run(ryn.ListLCoreIDs, 0) == Outcome((0, 63), NO_BITMAP)


# The pools


def serves(value: bytes) -> bool:
    """Whether a value of the marker, over at most its first five bytes, equals a word and its terminator that far."""

    def equals(word: bytes) -> bool:
        for ours, theirs in zip(value[:5], word + b"\0"):
            if ours != theirs:
                return False
            if ours == 0:
                return True
        return True

    return any(map(equals, (b"true", b"poll", b"intr")))


@pytest.mark.parametrize(
    "value, served",
    [
        (b"true", True),
        (b"poll", True),
        (b"intr", True),
        (b"true\0", True),
        (b"poll\0", True),
        (b"intr\0", True),
        (b"poll\0 and more", True),  # five bytes decide
        (b"polling", False),
        (b"truest", False),
        (b"intro", False),
        (b"true ", False),
        (b"true\n", False),
        (b"", True),  # nothing is compared
        (b"t", True),
        (b"tr", True),
        (b"tru", True),
        (b"p", True),
        (b"po", True),
        (b"i", True),
        (b"in", True),
        (b"tr\0", False),
        (b"tru\0", False),
        (b"\0", False),
        (b"\0\0\0\0\0", False),
        (b"pol\0\0", False),
        (b"TRUE", False),
        (b"Poll", False),
        (b"false", False),
        (b"no", False),
        (b" true", False),
        (b"1", False),
        (b"yes", False),
        (b"tp", False),
        (b"troll", False),
        (b"\xff", False),
        (b"t\xff", False),
    ],
)
def test_values_of_the_marker(ryn, double, value, served):
    assert serves(value) == served
    double.add_switch("dvs-1", global_={MARKER: value})
    assert run(ryn.InitMbufFastslabs) == Outcome(True if served else None)
    assert double.ops() == [
        "DVSState_SwitchForEach",
        "DVSState_GlobalPropForEach",
        "DVSData_Name",
        "DVSData_Data",
        *["Ryn_Init_Mbuf_Fastslabs"] * served,
    ]


def test_any_value_of_the_marker(ryn, double):
    numbers = random.Random(2)
    outcomes = set()
    for _ in range(2000):
        value = bytearray(numbers.choice([b"true", b"poll", b"intr"]) + bytes(numbers.randrange(4)))
        if numbers.random() < 0.6:
            value[numbers.randrange(len(value))] = numbers.choice(b"truepolintr\0\xff")
        del value[numbers.randrange(len(value) + 1) :]
        double.reset()
        double.add_switch("dvs-1", global_={MARKER: bytes(value)})
        assert run(ryn.InitMbufFastslabs) == Outcome(True if serves(value) else None), value
        outcomes.add((len(value), serves(value)))
    assert {(length, served) for length in range(1, 8) for served in (True, False)} <= outcomes


@pytest.mark.parametrize(
    "name",
    [
        MARKER + "x",
        MARKER + ".",
        MARKER[:-1],
        "x" + MARKER,
        MARKER.upper(),
        "",
        MARKER.replace("opaque", "opque"),
        "com.talvor.common.alias",
    ],
)
def test_only_the_exact_name_is_the_marker(ryn, double, name):
    double.add_switch("dvs-1", global_={name: "true"})
    assert run(ryn.InitMbufFastslabs) == Outcome(None)
    assert double.ops() == ["DVSState_SwitchForEach", "DVSState_GlobalPropForEach", "DVSData_Name"]


def test_marker_is_looked_for_among_the_global_properties(ryn, double):
    double.add_switch("dvs-1", host={MARKER: "true"})
    assert run(ryn.InitMbufFastslabs) == Outcome(None)


def test_without_a_switch_nothing_is_called(ryn, double):
    assert run(ryn.InitMbufFastslabs) == Outcome(None)
    assert double.calls() == [Call("DVSState_SwitchForEach", contextIsNull=0)]


# Several switches, each with its global properties in order; the switches that are visited if the iterations stop
SWITCHES = [
    ([{MARKER: "true"}, {MARKER: "true"}], True, 1),
    ([{MARKER: "false"}, {MARKER: "poll"}, {MARKER: "false"}], True, 2),  # what was found stays found
    ([{}, {"other": "true"}, {MARKER: "intr"}], True, 3),
    ([{"other": "x", MARKER: "poll", "another": "x"}, {}], True, 1),
    ([{MARKER: "false"}, {MARKER + "x": "true"}, {}], False, 3),
]


@pytest.mark.parametrize("properties, served, visited", SWITCHES)
@pytest.mark.parametrize("visit_all", [False, True])
def test_one_marked_switch_is_enough_whether_or_not_the_iterations_stop(
    ryn, double, properties, served, visited, visit_all
):
    for number, global_ in enumerate(properties):
        double.add_switch(f"dvs-{number}", id=f"id-{number}", class_name="not looked at", global_=global_)
    double.visit_all(visit_all)
    assert run(ryn.InitMbufFastslabs) == Outcome(True if served else None)
    ops = double.ops()
    assert ops.count("DVSState_GlobalPropForEach") == (len(properties) if visit_all else visited)
    assert ops.count("Ryn_Init_Mbuf_Fastslabs") == served


@pytest.mark.parametrize("visit_all", [False, True])
def test_the_visits_of_properties_stop_at_the_marker(ryn, double, visit_all):
    double.add_switch("dvs-1", global_={"before": "x", MARKER: "true", "after": "x"})
    double.visit_all(visit_all)
    run(ryn.InitMbufFastslabs)
    names = [call.datum for call in double.calls() if call.op == "DVSData_Name"]
    assert names == ["before", MARKER, "after"][: 3 if visit_all else 2]


def test_searches_do_not_remember_each_other(ryn, double):
    double.add_switch("dvs-1", global_={MARKER: "true"})
    assert run(ryn.InitMbufFastslabs) == Outcome(True)
    double.reset()
    double.add_switch("dvs-1", global_={MARKER: "false"})
    assert run(ryn.InitMbufFastslabs) == Outcome(None)


def test_property_without_a_name_or_without_bytes(ryn, double):
    double.add_switch("dvs-1", global_={MARKER: "false"})
    double.answer("DVSData_Data", status=1, length=0)
    assert run(ryn.InitMbufFastslabs) == Outcome(True)  # an empty value
    double.answer("DVSData_Name", status=1)
    assert run(ryn.InitMbufFastslabs) == Outcome(None)


@pytest.mark.parametrize("length", [1, 4, 5, 0xFFFFFFFF])
def test_marker_whose_value_is_null_in_spite_of_its_length_is_not_served(ryn, double, length):
    double.add_switch("dvs-1", global_={MARKER: "true"})
    double.answer("DVSData_Data", status=1, length=length)
    assert run(ryn.InitMbufFastslabs) == Outcome(None)
    assert "Ryn_Init_Mbuf_Fastslabs" not in double.ops()


@pytest.mark.parametrize("arguments", [(), (1,), ("x", None, [])])
def test_arguments_are_ignored(ryn, double, arguments):
    double.add_switch("dvs-1", global_={MARKER: "true"})
    assert run(ryn.InitMbufFastslabs, *arguments) == Outcome(True)


@pytest.mark.parametrize("status", STATUSES)
def test_failed_pools(ryn, double, status):
    double.add_switch("dvs-1", global_={MARKER: "true"})
    double.answer("Ryn_Init_Mbuf_Fastslabs", status=status)
    assert run(ryn.InitMbufFastslabs) == Outcome(False, "TypeError: Failed to init RYN mbuf fastslabs.\n\n")
