"""The balancer's metric and thresholds of a switch, kept in one property, and the datapath's values without it."""

import random

import pytest
from harness import ANY, MISSING, Bytes, Call, Outcome, run, u32

PROPERTY = "com.talvor.kiv.ryn.loadbal"
UNKNOWN_VERSION = f"Format of property {PROPERTY} value is from unknown version.\n"
ODD_LENGTH = f"Property {PROPERTY} value length is odd.\n"
NOT_SET = f"Failed to set DVS property {PROPERTY}\n"
NO_ID = "Failed to find dvs ID for dvs alias dvs-1.\n"
NO_PORTSET = "Failed to get portset name from dvs dvs-1.\n"

NAMES = [
    "LCore usage threshold high",
    "LCore usage threshold low",
    "LCore usage diff to pause balancing",
    "Traffic variation sensitivity",
]
KEEP = 0xFFFFFFFF
WORDS = [0, 1, 50, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFE, 0xFFFFFFFF]
STATUSES = [1, MISSING, 0x0BAD0007, 0x80000000, 0xFFFFFFFF]

# Each method, its arguments after the alias, and its result on failure
METHODS = [
    ("GetLBAlgorithm", (), None),
    ("SetLBAlgorithm", ("cpu",), False),
    ("GetLBParams", (), None),
    ("SetLBParams", (80, 20, 10, 5), False),
]
every_method = pytest.mark.parametrize("name, arguments, failure", METHODS, ids=[name for name, *_ in METHODS])

# The calls of each step
ID = [
    Call("DVSState_SwitchFindByAlias", alias="dvs-1"),
    Call("DVS_ClassName", dvs="dvs-1"),
    Call("DVS_SwitchId", dvs="dvs-1"),
]
READ = [*ID, Call("DVSQOB_HostPropGet", switchId="id-1", key=PROPERTY), Call("DVSQOB_DataFree", isNull=0)]
FALLBACK = [
    *READ[:-1],
    ID[0],
    ID[2],
    Call("DVSState_HostPropLookup", switchId="id-1", key="com.talvor.common.host.portset"),
    Call("DVSData_Data", datum="com.talvor.common.host.portset"),
    Call("Ryn_GetCurrentLBData", portset=b"portset-1".ljust(128, b"\0"), portsetSize=128, zeroed=True),
]


def written(*words: int) -> list[Call]:
    return [*ID, Call("DVSQOB_HostPropSet", switchId="id-1", key=PROPERTY, value=u32(*words), length=24, option=16)]


def params(*values: int) -> tuple[tuple[str, int], ...]:
    return tuple(zip(NAMES, values))


@pytest.fixture
def dvs(double) -> str:
    double.add_switch("dvs-1", id="id-1", host={"com.talvor.common.host.portset": "portset-1"})
    return "dvs-1"


@pytest.fixture
def stored(double, dvs):
    """Gives the switch the property; the words are metric, high, low, pause, sensitivity."""
    return lambda *words: double.answer("DVSQOB_HostPropGet", area=u32(0, *words)) or dvs


@pytest.fixture
def current(double, dvs):
    """Takes the property from the switch and gives the datapath values; the words as above, after a version."""

    def set_up(*words: int, version: int = 0) -> str:
        double.answer("DVSQOB_HostPropGet", status=MISSING)
        double.answer("Ryn_GetCurrentLBData", area=u32(version, *words))
        return dvs

    return set_up


# Reading the property


@every_method
def test_a_wrong_version_is_refused_and_the_block_released(ryn, double, dvs, name, arguments, failure):
    for version in [1, 2, 0x100, 0x10000, 0x01000000, 0x80000000, 0xFFFFFFFF]:
        double.answer("DVSQOB_HostPropGet", area=u32(version, 1, 80, 20, 10, 5))
        double.forget_calls()
        assert run(getattr(ryn, name), dvs, *arguments) == Outcome(failure, UNKNOWN_VERSION), version
        assert double.calls() == READ, version


@every_method
def test_every_wrong_length_is_odd_and_the_block_released(ryn, double, dvs, name, arguments, failure):
    for length in {*range(65), 4096} - {24}:
        double.answer("DVSQOB_HostPropGet", area=bytes(min(length, 4)) + b"\xff" * max(length - 4, 0))
        double.forget_calls()
        assert run(getattr(ryn, name), dvs, *arguments) == Outcome(failure, ODD_LENGTH), length
        assert double.calls() == READ, length


@every_method
def test_the_version_is_looked_at_before_the_length(ryn, double, dvs, name, arguments, failure):
    for length in {*range(65), 4096} - {0, 24}:
        for place in range(min(length, 4)):  # bytes that are missing count as 0
            double.answer("DVSQOB_HostPropGet", area=Bytes(length).u8(place, 0x80))
            assert run(getattr(ryn, name), dvs, *arguments) == Outcome(failure, UNKNOWN_VERSION), (length, place)
    handed_out, freed = double.blocks()
    assert handed_out == freed


@every_method
def test_success_without_a_block_is_an_odd_length(ryn, double, dvs, name, arguments, failure):
    assert run(getattr(ryn, name), dvs, *arguments) == Outcome(failure, ODD_LENGTH)
    double.answer("DVSQOB_HostPropGet", length=24)  # 24 bytes at no address
    assert run(getattr(ryn, name), dvs, *arguments) == Outcome(failure, ODD_LENGTH)


@every_method
def test_a_property_that_blocks_the_switch_is_never_written(ryn, double, dvs, name, arguments, failure):
    for area in (u32(1, 1, 80, 20, 10, 5), bytes(20), bytes(25), b""):
        double.answer("DVSQOB_HostPropGet", area=area)
        run(getattr(ryn, name), dvs, *arguments)
    assert not {"DVSQOB_HostPropSet", "Ryn_GetCurrentLBData"} & set(double.ops())


def test_the_property_comes_before_the_datapath(ryn, double, stored):
    double.answer("Ryn_GetCurrentLBData", area=u32(0, 2, 9, 9, 9, 9))
    dvs = stored(1, 80, 20, 10, 5)
    assert run(ryn.GetLBAlgorithm, dvs) == Outcome("cpu")
    assert double.calls() == READ
    assert run(ryn.GetLBParams, dvs) == Outcome(params(80, 20, 10, 5))
    assert double.calls() == [*READ, *READ]


# Without the property


@pytest.mark.parametrize("status", STATUSES)
def test_whatever_the_status_of_the_read_the_datapath_stands_in(ryn, double, current, status):
    dvs = current(2, 80, 20, 10, 5)
    double.answer("DVSQOB_HostPropGet", status=status)
    assert run(ryn.GetLBAlgorithm, dvs) == Outcome("count")
    assert double.calls() == FALLBACK
    assert run(ryn.GetLBParams, dvs) == Outcome(params(80, 20, 10, 5))


@every_method
def test_a_block_that_comes_with_a_failed_read_is_neither_looked_at_nor_released(
    ryn, double, current, name, arguments, failure
):
    dvs = current(1, 80, 20, 10, 5)
    double.answer("DVSQOB_HostPropGet", status=MISSING, area=u32(1, 2, 3, 4, 5))
    assert run(getattr(ryn, name), dvs, *arguments) == Outcome(
        {"GetLBAlgorithm": "cpu", "GetLBParams": params(80, 20, 10, 5)}.get(name, True)
    )
    assert double.calls()[: len(FALLBACK)] == FALLBACK
    assert "DVSQOB_DataFree" not in double.ops()


@pytest.mark.parametrize("version", [1, 0x80000000, 0xFFFFFFFF])
def test_the_version_of_the_datapath_is_not_looked_at_and_is_written_as_0(ryn, double, current, version):
    dvs = current(2, 80, 20, 10, 5, version=version)
    assert run(ryn.GetLBAlgorithm, dvs) == Outcome("count")
    double.forget_calls()
    assert run(ryn.SetLBAlgorithm, dvs, "cpu") == Outcome(True)
    assert double.calls() == [*FALLBACK, *written(0, 1, 80, 20, 10, 5)]


@every_method
@pytest.mark.parametrize("status", STATUSES)
def test_a_datapath_that_fails_is_silent(ryn, double, current, name, arguments, failure, status):
    dvs = current(1, 80, 20, 10, 5)
    double.answer("Ryn_GetCurrentLBData", status=status, area=u32(0, 1, 80, 20, 10, 5))
    assert run(getattr(ryn, name), dvs, *arguments) == Outcome(failure)
    assert double.calls() == FALLBACK


@every_method
def test_no_portset_name(ryn, double, current, name, arguments, failure):
    """The alias is gone when it is looked up for the second time."""
    dvs = current(1, 80, 20, 10, 5)
    double.answer("DVSState_SwitchFindByAlias", status=1)
    double.answer("DVSState_SwitchFindByAlias", times=1)
    assert run(getattr(ryn, name), dvs, *arguments) == Outcome(failure, NO_PORTSET)
    assert double.calls() == FALLBACK[:5]


def test_a_datapath_that_fills_nothing_reports_zeros(ryn, double, dvs):
    double.answer("DVSQOB_HostPropGet", status=MISSING)
    assert run(ryn.GetLBAlgorithm, dvs) == Outcome("none")
    assert run(ryn.GetLBParams, dvs) == Outcome(params(0, 0, 0, 0))


@pytest.mark.parametrize("length", [0, 1, 127, 128, 129, 300])
def test_portset_name_goes_in_with_128_bytes_terminated_or_not(ryn, double, length):
    double.add_switch("dvs-1", id="id-1", host={"com.talvor.common.host.portset": "x" * length})
    double.answer("DVSQOB_HostPropGet", status=MISSING)
    assert run(ryn.GetLBAlgorithm, "dvs-1") == Outcome("none")
    last = double.calls()[-1]
    assert (last.portset, last.portsetSize) == ((b"x" * length)[:128].ljust(128, b"\0"), 128)


# Aliases


@every_method
@pytest.mark.parametrize("alias", ["", "dvs-2", "100%s%n", "dvs-\u00e9\u4e2d", "x" * 10000])
def test_unknown_alias_is_shown_as_it_is(ryn, double, dvs, name, arguments, failure, alias):
    outcome = run(getattr(ryn, name), alias, *arguments)
    assert outcome == Outcome(failure, f"Failed to find dvs ID for dvs alias {alias}.\n")
    assert double.calls() == [Call("DVSState_SwitchFindByAlias", alias=alias)]


@every_method
def test_switch_of_another_class_is_not_found(ryn, double, name, arguments, failure):
    double.add_switch("dvs-1", class_name="vswitch2")
    assert run(getattr(ryn, name), "dvs-1", *arguments) == Outcome(failure, NO_ID)


@pytest.mark.parametrize("name, arguments", [(name, arguments) for name, arguments, _ in METHODS if "Set" in name])
def test_alias_that_is_gone_when_the_record_is_written(ryn, double, stored, name, arguments):
    dvs = stored(1, 80, 20, 10, 5)
    double.answer("DVSState_SwitchFindByAlias", status=1)
    double.answer("DVSState_SwitchFindByAlias", times=1)
    assert run(getattr(ryn, name), dvs, *arguments) == Outcome(False, NO_ID)
    assert double.calls() == [*READ, ID[0]]


# The metric


@pytest.mark.parametrize(
    "word, name",
    [
        (0, "none"),
        (1, "cpu"),
        (2, "count"),
        (3, "invalid"),
        (7, "invalid"),
        (0x100, "invalid"),
        (0x80000001, "invalid"),
        (0xFFFFFFFF, "invalid"),
    ],
)
def test_names_of_the_metric(ryn, stored, current, word, name):
    assert run(ryn.GetLBAlgorithm, stored(word, 1, 2, 3, 4)) == Outcome(name)
    assert run(ryn.GetLBAlgorithm, current(word, 1, 2, 3, 4)) == Outcome(name)


@pytest.mark.parametrize("word, name", enumerate(["none", "cpu", "count"]))
@pytest.mark.parametrize("before", [0, 1, 2, 7])
def test_metric_is_written_with_the_words_as_they_were_read(ryn, double, stored, before, word, name):
    """A low threshold above the high one is written back, and an unchanged record is written too."""
    assert run(ryn.SetLBAlgorithm, stored(before, 20, 80, 0xFFFFFFFF, 0x80000000), name) == Outcome(True)
    assert double.calls() == [*READ, *written(0, word, 20, 80, 0xFFFFFFFF, 0x80000000)]


@pytest.mark.parametrize(
    "name",
    [
        "invalid",
        "CPU",
        "Cpu",
        "",
        " cpu",
        "cpu ",
        "cp",
        "cpus",
        "counts",
        "0",
        "%s%n",
        "n\u00f6ne",
        "x" * 10000,
        "cpu\n",
    ],
)
def test_any_other_name_is_refused_and_shown(ryn, double, stored, name):
    assert run(ryn.SetLBAlgorithm, stored(1, 80, 20, 10, 5), name) == Outcome(False, f"Invalid metric name {name}.\n")
    assert double.calls() == READ


def test_the_options_are_read_before_the_name_is_looked_at(ryn, double, dvs):
    assert run(ryn.SetLBAlgorithm, "dvs-2", "bad") == Outcome(False, "Failed to find dvs ID for dvs alias dvs-2.\n")
    double.answer("DVSQOB_HostPropGet", area=u32(1, 1, 80, 20, 10, 5))
    assert run(ryn.SetLBAlgorithm, dvs, "bad") == Outcome(False, UNKNOWN_VERSION)
    double.answer("DVSQOB_HostPropGet", status=MISSING)
    double.answer("Ryn_GetCurrentLBData", status=1)
    assert run(ryn.SetLBAlgorithm, dvs, "bad") == Outcome(False)


def test_the_first_change_creates_the_whole_record_from_the_datapath(ryn, double, current):
    dvs = current(1, 80, 20, 10, 5)
    assert run(ryn.SetLBAlgorithm, dvs, "count") == Outcome(True)
    assert double.calls() == [*FALLBACK, *written(0, 2, 80, 20, 10, 5)]
    double.answer("DVSQOB_HostPropGet", area=double.calls()[-1].value)
    double.forget_calls()
    assert run(ryn.GetLBAlgorithm, dvs) == Outcome("count")
    assert run(ryn.GetLBParams, dvs) == Outcome(params(80, 20, 10, 5))
    assert "Ryn_GetCurrentLBData" not in double.ops()


# The thresholds


def test_params_are_named_and_never_negative(ryn, stored):
    numbers = random.Random(1)
    for _ in range(200):
        words = [numbers.choice([*WORDS, numbers.getrandbits(32)]) for _ in NAMES]
        outcome = run(ryn.GetLBParams, stored(numbers.getrandbits(32), *words))
        assert outcome == Outcome(params(*words))
        assert [type(pair) for pair in outcome.value] == 4 * [tuple]


@pytest.mark.parametrize(
    "read, arguments, words",
    [
        ((1, 80, 20, 10, 5), (70, 30, 11, 6), (1, 70, 30, 11, 6)),
        ((1, 80, 20, 10, 5), (-1, -1, -1, -1), (1, 80, 20, 10, 5)),  # an unchanged record is written all the same
        ((1, 80, 20, 10, 5), (KEEP, 30, KEEP, 6), (1, 80, 30, 10, 6)),
        ((7, 80, 20, 10, 5), (-1, -1, 0, 0), (7, 80, 20, 0, 0)),  # an unknown metric is carried over
        ((2, 80, 20, 10, 5), (50, 50, -1, -1), (2, 50, 50, 10, 5)),  # equal thresholds
        ((2, 80, 20, 10, 5), (0, 0, 0, 0), (2, 0, 0, 0, 0)),
        ((2, 80, 20, 10, 5), (0x80000000, 0x7FFFFFFF, -2, -2), (2, 0x80000000, 0x7FFFFFFF, -2 % 2**32, -2 % 2**32)),
        ((2, KEEP, 20, 10, 5), (-1, -2, -1, -1), (2, KEEP, -2 % 2**32, 10, 5)),
        ((2, KEEP, KEEP, 10, 5), (-1, -1, -1, -1), (2, KEEP, KEEP, 10, 5)),
        ((2, 80, 20, 10, 5), ((1 << 32) + 90, 90, (1 << 33) - 1, True), (2, 90, 90, 10, 1)),
    ],
)
def test_params_are_merged_into_what_was_read(ryn, double, stored, current, read, arguments, words):
    assert run(ryn.SetLBParams, stored(*read), *arguments) == Outcome(True)
    assert double.calls() == [*READ, *written(0, *words)]
    double.forget_calls()
    assert run(ryn.SetLBParams, current(*read), *arguments) == Outcome(True)
    assert double.calls() == [*FALLBACK, *written(0, *words)]


@pytest.mark.parametrize(
    "read, arguments",
    [
        ((1, 80, 20, 10, 5), (50, 60, -1, -1)),
        ((1, 80, 20, 10, 5), (-1, 90, -1, -1)),
        ((1, 80, 20, 10, 5), (19, -1, -1, -1)),
        ((1, 80, 20, 10, 5), (1, 0x80000000, -1, -1)),  # unsigned
        ((1, 20, 80, 10, 5), (-1, -1, 11, 6)),  # was stored like that
    ],
)
def test_low_above_high_is_refused_silently(ryn, double, stored, current, read, arguments):
    assert run(ryn.SetLBParams, stored(*read), *arguments) == Outcome(False)
    assert double.calls() == READ
    double.forget_calls()
    assert run(ryn.SetLBParams, current(*read), *arguments) == Outcome(False)
    assert double.calls() == FALLBACK


def test_any_request_on_any_record(ryn, double, stored):
    numbers = random.Random(2)

    def word() -> int:
        return numbers.choice([*WORDS, numbers.getrandbits(32)])

    outcomes = set()
    for _ in range(500):
        read, request = [word() for _ in range(5)], [word() for _ in NAMES]
        merged = [old if new == KEEP else new for old, new in zip(read[1:], request)]
        accepted = merged[1] <= merged[0]
        dvs = stored(*read)
        double.forget_calls()
        assert run(ryn.SetLBParams, dvs, *request) == Outcome(accepted)
        assert double.calls() == (READ + written(0, read[0], *merged) if accepted else READ)
        outcomes.add(accepted)
    assert outcomes == {True, False}


# Writing


@pytest.mark.parametrize("name, arguments", [(name, arguments) for name, arguments, _ in METHODS if "Set" in name])
@pytest.mark.parametrize("status", STATUSES)
def test_failed_store(ryn, double, stored, name, arguments, status):
    double.answer("DVSQOB_HostPropSet", status=status)
    assert run(getattr(ryn, name), stored(1, 80, 20, 10, 5), *arguments) == Outcome(False, NOT_SET)
    assert double.ops().count("DVSQOB_HostPropSet") == 1


def test_the_datapath_is_never_told(ryn, double, stored):
    dvs = stored(1, 80, 20, 10, 5)
    for name, arguments, _ in METHODS:
        run(getattr(ryn, name), dvs, *arguments)
    assert [op for op in double.ops() if op.startswith("Ryn_")] == []


@pytest.mark.parametrize(
    "arguments",
    [
        ("dvs-1",),
        ("dvs-1", 1, 2, 3),
        ("dvs-1", 1, 2, 3, 4, 5),
        (1, 1, 2, 3, 4),
        ("dvs-1", 1, 2, 3, "4"),
        ("dvs-1", 1.0, 2, 3, 4),
        ("dvs-1", None, 2, 3, 4),
    ],
)
def test_params_that_do_not_fit_answer_false(ryn, double, dvs, arguments):
    outcome = run(ryn.SetLBParams, *arguments)
    assert outcome == Outcome(False, "TypeError: Invalid parameter passed.\n", (TypeError, ANY))
    assert double.calls() == []
