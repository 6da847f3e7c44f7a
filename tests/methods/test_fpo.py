"""Flow processing offload: the setting of a switch, the counters of the cores, the abilities of an uplink."""

import random

import pytest
from harness import ANY, MISSING, Bytes, Call, Outcome, run, u32

PROPERTY = "com.talvor.kiv.ryn.fpo"
INVALID, INVALID_TWICE = "TypeError: Invalid parameter passed.\n", "TypeError: Invalid parameter passed.\n\n"
NO_PROPERTY = "Failed to get DVS property com.talvor.kiv.ryn.fpo\n"
BAD_FORMAT = "Format of property com.talvor.kiv.ryn.fpo is invalid\n"
NOT_SET = "Failed to set DVS property com.talvor.kiv.ryn.fpo\n"

WORDS = [0, 1, 2, 7, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF]
STATUSES = [1, 0x0BAD0002, 0x0BAD0004, 0x0BAD0007, 0x80000000, 0x8BAD0003, 0xFFFFFFFF]  # all but "no such property"

RESOLVED = [
    Call("DVSState_SwitchFindByAlias", alias="dvs-1"),
    Call("DVS_ClassName", dvs="dvs-1"),
    Call("DVS_SwitchId", dvs="dvs-1"),
]
READ = Call("DVSQOB_HostPropGet", switchId="id-1", key=PROPERTY)
FREED = Call("DVSQOB_DataFree", isNull=0)


@pytest.fixture
def dvs(double) -> str:
    double.add_switch("dvs-1", id="id-1")
    return "dvs-1"


def written(value: int, switch_id: str = "id-1") -> Call:
    return Call("DVSQOB_HostPropSet", switchId=switch_id, key=PROPERTY, value=u32(value), length=4, option=16)


# Reading the setting


@pytest.mark.parametrize("word", WORDS)
def test_setting_is_the_word_of_the_property(ryn, double, dvs, word):
    double.answer("DVSQOB_HostPropGet", area=u32(word))
    assert run(ryn.GetFPOEnabled, dvs) == Outcome(word)
    assert double.calls() == [*RESOLVED, READ, FREED]  # the datapath is not asked


def test_switch_without_the_property_reads_as_1(ryn, double, dvs):
    double.answer("DVSQOB_HostPropGet", status=MISSING)
    assert run(ryn.GetFPOEnabled, dvs) == Outcome(1)
    assert double.calls() == [*RESOLVED, READ]


@pytest.mark.parametrize("status", STATUSES)
def test_any_other_status_is_reported(ryn, double, dvs, status):
    double.answer("DVSQOB_HostPropGet", status=status)
    assert run(ryn.GetFPOEnabled, dvs) == Outcome(None, NO_PROPERTY)
    assert double.calls() == [*RESOLVED, READ]


@pytest.mark.parametrize("fill", [b"\0", b"\1", b"\xff"])
def test_every_wrong_length_is_invalid_and_the_block_released(ryn, double, dvs, fill):
    for length in {*range(65), 4096} - {4}:
        double.answer("DVSQOB_HostPropGet", area=fill * length)
        double.forget_calls()
        assert run(ryn.GetFPOEnabled, dvs) == Outcome(None, BAD_FORMAT), length
        assert double.calls() == [*RESOLVED, READ, FREED], length
    assert double.blocks() == (65, 65)


def test_success_without_a_block_is_invalid(ryn, double, dvs):
    assert run(ryn.GetFPOEnabled, dvs) == Outcome(None, BAD_FORMAT)
    double.answer("DVSQOB_HostPropGet", length=4)  # four bytes at no address
    assert run(ryn.GetFPOEnabled, dvs) == Outcome(None, BAD_FORMAT)


@pytest.mark.parametrize("length", [0, 1, 63, 64, 200])
def test_key_is_the_identifier_of_63_characters_at_most(ryn, double, length):
    key = "x" * min(length, 63)
    double.add_switch("dvs-1", id="x" * length)
    double.answer("DVSQOB_HostPropGet", area=u32(5))
    assert run(ryn.GetFPOEnabled, "dvs-1") == Outcome(5)
    assert run(ryn.EnableFPO, "dvs-1", 5) == Outcome(True)
    assert [call.switchId for call in double.calls() if call.op.startswith("DVSQOB_HostProp")] == [key, key]


# Storing the setting


@pytest.mark.parametrize(
    "value, stored", [*zip(WORDS, WORDS), (-1, 0xFFFFFFFF), (-2, 0xFFFFFFFE), (True, 1), ((1 << 32) + 5, 5)]
)
def test_any_value_is_stored_unchanged(ryn, double, dvs, value, stored):
    assert run(ryn.EnableFPO, dvs, value) == Outcome(True)
    assert double.calls() == [*RESOLVED, written(stored)]


def test_what_was_stored_is_read(ryn, double, dvs):
    run(ryn.EnableFPO, dvs, 7)
    double.answer("DVSQOB_HostPropGet", area=double.calls()[-1].value)
    assert run(ryn.GetFPOEnabled, dvs) == Outcome(7)


@pytest.mark.parametrize("status", [*STATUSES, MISSING])
def test_failed_store_is_told_by_its_message_alone_and_answers_true(ryn, double, dvs, status):
    double.answer("DVSQOB_HostPropSet", status=status)
    assert run(ryn.EnableFPO, dvs, 0) == Outcome(True, NOT_SET)
    assert double.calls() == [*RESOLVED, written(0)]


# Aliases


@pytest.mark.parametrize("alias", ["", "dvs-2", "100%s%n", "dvs-\u00e9\u4e2d", "x" * 10000, "two\nlines"])
@pytest.mark.parametrize("method, arguments, value", [("GetFPOEnabled", (), None), ("EnableFPO", (1,), False)])
def test_unknown_alias_is_shown_as_it_is(ryn, double, dvs, method, arguments, value, alias):
    outcome = run(getattr(ryn, method), alias, *arguments)
    assert outcome == Outcome(value, f"Failed to find dvs ID for dvs alias {alias}.\n")
    assert double.calls() == [Call("DVSState_SwitchFindByAlias", alias=alias)]


@pytest.mark.parametrize("class_name", ["vswitch2", "vswitc", ""])
def test_switch_of_another_class_is_not_found(ryn, double, class_name):
    double.add_switch("dvs-1", class_name=class_name)
    assert run(ryn.GetFPOEnabled, "dvs-1") == Outcome(None, "Failed to find dvs ID for dvs alias dvs-1.\n")
    assert run(ryn.EnableFPO, "dvs-1", 1) == Outcome(False, "Failed to find dvs ID for dvs alias dvs-1.\n")
    assert double.ops() == 2 * ["DVSState_SwitchFindByAlias", "DVS_ClassName"]


# The counters of the cores

COUNTERS = ["hits", "markMismatched", "pnicMismatched", "delayMarkMatching", "ephemeralFlows", "transientFlows"]


def stats_area(count: int, records: list[tuple[int, ...]], unread: int = 0xFF) -> Bytes:
    """Records of (core, six counters); every byte that is not read is `unread`."""
    area = Bytes(bytes([unread]) * 1800).u32(0, count)
    for i, (lcore, *counters) in enumerate(records):
        area.u32(8 + 56 * i, lcore).u64(8 + 56 * i + 8, *counters)
    return area


def stats_dict(record: tuple[int, ...]) -> dict[str, int]:
    lcore, *counters = record
    return {"lcoreID": lcore, **{key: counter % 2**32 for key, counter in zip(COUNTERS, counters)}}


def stats_call(swID: int, lcores: list[int]) -> Call:
    return Call("Ryn_Get_FPO_Stats", swID=swID, lcores=lcores, lcoreCount=len(lcores), length=1800, zeroed=True)


def random_record(numbers: random.Random) -> tuple[int, ...]:
    extremes = [0, 1, (1 << 31) - 1, 1 << 31, (1 << 32) - 1, 1 << 32, (1 << 32) + 5, 1 << 63, (1 << 64) - 1]
    return (
        numbers.choice([0, 63, 64, 1 << 31, (1 << 32) - 1, numbers.getrandbits(32)]),
        *(numbers.choice([*extremes, numbers.getrandbits(64), numbers.getrandbits(64)]) for _ in COUNTERS),
    )


@pytest.mark.parametrize("count", [0, 1, 2, 31, 32])
def test_one_dict_per_record_with_counters_modulo_2_to_the_32(ryn, double, count):
    numbers = random.Random(count)
    for _ in range(20):
        records = [random_record(numbers) for _ in range(count)]
        double.answer("Ryn_Get_FPO_Stats", area=stats_area(count, records))
        outcome = run(ryn.GetFPOStats, 0, (0,))
        assert outcome == Outcome([stats_dict(record) for record in records])
        assert all(list(row) == ["lcoreID", *COUNTERS] for row in outcome.value)


@pytest.mark.parametrize(
    "counter, shown",
    [
        ((1 << 32) + 5, 5),
        (1 << 32, 0),
        ((1 << 32) - 1, (1 << 32) - 1),
        (1 << 63, 0),
        ((1 << 64) - 1, (1 << 32) - 1),
        (1 << 31, 1 << 31),
    ],
)
@pytest.mark.parametrize("place", range(6), ids=COUNTERS)
def test_counter_is_shown_as_its_low_32_bits(ryn, double, place, counter, shown):
    record = (3, *(counter if i == place else i for i in range(6)))
    double.answer("Ryn_Get_FPO_Stats", area=stats_area(1, [record]))
    assert run(ryn.GetFPOStats, 0, ()).value[0][COUNTERS[place]] == shown


@pytest.mark.parametrize("count", [33, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF])
def test_count_beyond_the_room_gives_as_many_records_as_there_is_room_for(ryn, double, count):
    records = [(i, *6 * [i]) for i in range(32)]
    double.answer("Ryn_Get_FPO_Stats", area=stats_area(count, records))
    assert run(ryn.GetFPOStats, 0, (0,)) == Outcome([stats_dict(record) for record in records])


@pytest.mark.parametrize("length", [None, 0, 8, 0xFFFFFFFF])
def test_length_that_comes_back_is_not_looked_at(ryn, double, length):
    double.answer("Ryn_Get_FPO_Stats", area=stats_area(1, [(5, *6 * [6])]), length=length)
    assert run(ryn.GetFPOStats, 0, (0,)) == Outcome([stats_dict((5, *6 * [6]))])


def test_library_that_fills_nothing_gives_an_empty_list(ryn, double):
    assert run(ryn.GetFPOStats, 0, (0,)) == Outcome([])


@pytest.mark.parametrize("swID, passed", [(0, 0), (15, 15), (16, 16), (-1, 0xFFFFFFFF), ((1 << 32) + 3, 3)])
def test_switch_is_for_the_datapath_to_judge(ryn, double, swID, passed):
    assert run(ryn.GetFPOStats, swID, (5, 0)) == Outcome([])
    assert double.calls() == [stats_call(passed, [5, 0])]


class Index:
    def __init__(self, value):
        self.value = value

    def __index__(self):
        if isinstance(self.value, Exception):
            raise self.value
        return self.value


@pytest.mark.parametrize(
    "items, passed",
    [
        ((), []),
        ((63, 0, 63), [63, 0, 63]),
        (tuple(range(64)), list(range(64))),
        ((-1, -2, 1 << 32, (1 << 32) + 5, (1 << 63) - 1, -1 << 63), [0xFFFFFFFF, 0xFFFFFFFE, 0, 5, 0xFFFFFFFF, 0]),
        ((True, False, Index(7), Index(-1)), [1, 0, 7, 0xFFFFFFFF]),
    ],
)
def test_cores_go_in_as_the_low_32_bits_of_each_item(ryn, double, items, passed):
    assert run(ryn.GetFPOStats, 0, items) == Outcome([])
    assert double.calls() == [stats_call(0, passed)]


@pytest.mark.parametrize(
    "items, passed, error",
    [
        (("5",), [0xFFFFFFFF], TypeError),
        ((5.0, 6), [0xFFFFFFFF, 6], TypeError),
        ((1, None), [1, 0xFFFFFFFF], TypeError),
        ((1 << 63, 1), [0xFFFFFFFF, 1], OverflowError),
        (((-1 << 63) - 1,), [0xFFFFFFFF], OverflowError),
        ((Index(KeyError("first")), 2, "second"), [0xFFFFFFFF, 2, 0xFFFFFFFF], KeyError),  # the first error
        ((-1, Index(KeyError("first")), -1, Index(ValueError("second"))), 4 * [0xFFFFFFFF], KeyError),
        ((Index("no int"),), [0xFFFFFFFF], TypeError),
    ],
)
def test_items_that_are_no_ints_go_in_as_4294967295_and_the_error_stays(ryn, double, items, passed, error):
    double.answer("Ryn_Get_FPO_Stats", area=stats_area(1, [(1, *6 * [2])]))
    assert run(ryn.GetFPOStats, 0, items) == Outcome([stats_dict((1, *6 * [2]))], "", (error, ANY))
    assert double.calls() == [stats_call(0, passed)]
    double.answer("Ryn_Get_FPO_Stats", status=1)
    assert run(ryn.GetFPOStats, 0, items) == Outcome(None, "Failed to retrieve flow stats.\n", (error, ANY))


class Tuple(tuple):
    """Its own length and items are not asked for."""

    def __len__(self):
        raise AssertionError

    def __getitem__(self, index):
        raise AssertionError

    def __iter__(self):
        raise AssertionError


@pytest.mark.parametrize(
    "lcores",
    [tuple(range(65)), (0,) * 1000, Tuple(range(65)), [0], "0", b"0", {0}, {0: 0}, 0, None, range(3), Index(3)],
)
def test_no_tuple_of_at_most_64_items_is_refused_without_an_error(ryn, double, lcores):
    assert run(ryn.GetFPOStats, 0, lcores) == Outcome(None, INVALID_TWICE)
    assert double.calls() == []


def test_tuple_subclass_is_a_tuple(ryn, double):
    assert run(ryn.GetFPOStats, 0, Tuple(range(64))) == Outcome([])
    assert double.calls() == [stats_call(0, list(range(64)))]


@pytest.mark.parametrize("status", [*STATUSES, MISSING])
def test_failure_has_the_words_of_the_flow_statistics(ryn, double, status):
    double.answer("Ryn_Get_FPO_Stats", status=status, area=stats_area(1, [(1, *6 * [2])]))
    assert run(ryn.GetFPOStats, 0, (0,)) == Outcome(None, "Failed to retrieve flow stats.\n")


# The abilities of an uplink

CAPS = [
    "numGroupSupported",
    "numPrioritySupported",
    "maxMarkActionBits",
    "maxFlowsSupported",
    "maxCountersSupported",
    "maxFlowKeyLengthInBits",
    "maxDecTTLActions",
]
LEVELS = {1: "Model 1 Level 1", 2: "Model 1 Level 2", 3: "Model 2"}


def caps_dict(level: int, numbers: list[int], actions: int) -> dict[str, object]:
    return {
        "level": LEVELS.get(level, "Not Supported"),
        **dict(zip(CAPS, numbers)),
        "actionsSupported": actions - (1 << 64) if actions >> 63 else actions,
    }


@pytest.mark.parametrize("level", [0, 1, 2, 3, 4, 5, 0x101, 0x01000000, 0x7FFFFFFF, 0x80000001, 0xFFFFFFFF])
def test_level_names(ryn, double, level):
    double.answer("Ryn_Get_FPO_Uplink_Status", area=Bytes(40).u32(0, level))
    assert run(ryn.GetFPOUplinkStatus, 0, 0) == Outcome(caps_dict(level, 7 * [0], 0))


@pytest.mark.parametrize("actions", [0, 1, (1 << 63) - 1, 1 << 63, (1 << 64) - 1])
def test_actions_are_signed(ryn, double, actions):
    double.answer("Ryn_Get_FPO_Uplink_Status", area=Bytes(40).u64(32, actions))
    assert run(ryn.GetFPOUplinkStatus, 0, 0) == Outcome(caps_dict(0, 7 * [0], actions))


def test_every_field_at_its_place(ryn, double):
    numbers = random.Random(1)
    for _ in range(200):
        level = numbers.choice([*range(5), numbers.getrandbits(32)])
        words = [numbers.choice([0, 1 << 31, (1 << 32) - 1, numbers.getrandbits(32)]) for _ in CAPS]
        actions = numbers.choice([1 << 63, numbers.getrandbits(64)])
        double.answer("Ryn_Get_FPO_Uplink_Status", area=Bytes(40).u32(0, level, *words).u64(32, actions))
        outcome = run(ryn.GetFPOUplinkStatus, 0, 0)
        assert outcome == Outcome(caps_dict(level, words, actions))
        assert list(outcome.value) == ["level", *CAPS, "actionsSupported"]


def test_uplink_that_is_not_filled_is_not_supported(ryn, double):
    assert run(ryn.GetFPOUplinkStatus, 15, 127) == Outcome(caps_dict(0, 7 * [0], 0))
    assert double.calls() == [Call("Ryn_Get_FPO_Uplink_Status", swID=15, rynPortID=127, length=40, zeroed=True)]


@pytest.mark.parametrize("swID, rynPortID", [(16, 0), (3, 128), (-1, 0), (0, -1), (16, 128), (1 << 31, 0)])
def test_switch_or_port_out_of_range(ryn, double, swID, rynPortID):
    assert run(ryn.GetFPOUplinkStatus, swID, rynPortID) == Outcome(None, INVALID)
    assert double.calls() == []


@pytest.mark.parametrize("status", [*STATUSES, MISSING])
def test_failed_uplink_status(ryn, double, status):
    double.answer("Ryn_Get_FPO_Uplink_Status", status=status, area=Bytes(40).u32(0, 3))
    assert run(ryn.GetFPOUplinkStatus, 1, 2) == Outcome(None, "Failed to get FPO uplink status.\n")
