"""NUMA-aware teaming and burst size of a switch: the property, or what the datapath says without it."""

from dataclasses import dataclass

import pytest
from harness import MISSING, Bytes, Call, Outcome, run, u8, u32

WORDS = [0, 1, 2, 32, 255, 256, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF]
STATUSES = [1, MISSING, 0x0BAD0007, 0x80000000, 0xFFFFFFFF]
NO_ID = "Failed to find dvs ID for dvs alias dvs-1.\n"
NO_PORTSET = "Failed to get portset name from dvs dvs-1.\n"
PORTSET = b"portset-1".ljust(128, b"\0")


@dataclass
class Setting:
    name: str
    length: int  # of the property
    datapath: Call  # how the datapath is asked

    @property
    def key(self) -> str:
        return f"com.talvor.kiv.ryn.{'teaming' if self.length == 5 else 'burstsize'}"

    @property
    def unknown_version(self) -> str:
        return f"Format of property {self.key} value is from unknown version.\n"

    @property
    def odd_length(self) -> str:
        return f"Property {self.key} value length is odd.\n"

    @property
    def not_set(self) -> str:
        return f"Failed to set DVS property {self.key}\n"

    def read(self) -> list[Call]:
        return [*ID, Call("DVSQOB_HostPropGet", switchId="id-1", key=self.key), Call("DVSQOB_DataFree", isNull=0)]

    def fallback(self) -> list[Call]:
        return [
            *self.read()[:-1],
            ID[0],
            ID[2],
            Call("DVSState_HostPropLookup", switchId="id-1", key="com.talvor.common.host.portset"),
            Call("DVSData_Data", datum="com.talvor.common.host.portset"),
            self.datapath,
        ]

    def written(self, record: bytes) -> list[Call]:
        return [
            *ID,
            Call("DVSQOB_HostPropSet", switchId="id-1", key=self.key, value=record, length=self.length, option=16),
        ]


# Only the teaming call takes the size of the portset name.
TEAMING = Setting("SwitchNUMATeam", 5, Call("Ryn_GetSwitchNUMATeam", portset=PORTSET, portsetSize=128, zeroed=True))
BURST = Setting("SwitchBurstSize", 8, Call("Ryn_GetSwitchBurstSize", portset=PORTSET, zeroed=True))
both = pytest.mark.parametrize("setting", [TEAMING, BURST], ids=lambda setting: setting.name)

ID = [
    Call("DVSState_SwitchFindByAlias", alias="dvs-1"),
    Call("DVS_ClassName", dvs="dvs-1"),
    Call("DVS_SwitchId", dvs="dvs-1"),
]


@pytest.fixture
def dvs(double) -> str:
    double.add_switch("dvs-1", id="id-1", host={"com.talvor.common.host.portset": "portset-1"})
    return "dvs-1"


@pytest.fixture
def get(ryn, dvs):
    return lambda setting, alias=dvs: run(getattr(ryn, f"Get{setting.name}"), alias)


@pytest.fixture
def set_(ryn, dvs):
    return lambda setting, value, alias=dvs: run(getattr(ryn, f"Set{setting.name}"), alias, value)


# Reading the property


def test_teaming_is_on_for_every_byte_but_0(double, get):
    for flag in range(256):
        double.answer("DVSQOB_HostPropGet", area=u32(0) + u8(flag))
        double.forget_calls()
        assert get(TEAMING) == Outcome(flag != 0), flag
        assert double.calls() == TEAMING.read(), flag


@pytest.mark.parametrize("packets", WORDS)
def test_burst_size_is_the_word_behind_the_version(double, get, packets):
    double.answer("DVSQOB_HostPropGet", area=u32(0, packets))
    assert get(BURST) == Outcome(packets)
    assert double.calls() == BURST.read()


@both
@pytest.mark.parametrize("version", [1, 2, 0x100, 0x10000, 0x01000000, 0x80000000, 0xFFFFFFFF])
def test_a_wrong_version_is_refused_and_the_block_released(double, get, setting, version):
    double.answer("DVSQOB_HostPropGet", area=u32(version) + bytes(setting.length - 4))
    assert get(setting) == Outcome(None, setting.unknown_version)
    assert double.calls() == setting.read()


@both
@pytest.mark.parametrize("fill", [b"\0", b"\1", b"\xff"])
def test_every_wrong_length_is_odd_and_the_block_released(double, get, setting, fill):
    for length in {*range(65), 4096} - {setting.length}:
        double.answer("DVSQOB_HostPropGet", area=bytes(min(length, 4)) + fill * max(length - 4, 0))
        double.forget_calls()
        assert get(setting) == Outcome(None, setting.odd_length), length
        assert double.calls() == setting.read(), length


@both
def test_the_version_is_looked_at_before_the_length(double, get, setting):
    for length in {*range(1, 65), 4096}:
        for place in range(min(length, 4)):  # bytes that are missing count as 0
            double.answer("DVSQOB_HostPropGet", area=Bytes(length).u8(place, 0x80))
            assert get(setting) == Outcome(None, setting.unknown_version), (length, place)
    handed_out, freed = double.blocks()
    assert handed_out == freed


@both
def test_success_without_a_block_is_an_odd_length(double, get, setting):
    assert get(setting) == Outcome(None, setting.odd_length)
    double.answer("DVSQOB_HostPropGet", length=setting.length)  # bytes at no address
    assert get(setting) == Outcome(None, setting.odd_length)


# Without the property


@pytest.mark.parametrize("status", STATUSES)
def test_teaming_of_the_datapath(double, get, status):
    double.answer("DVSQOB_HostPropGet", status=status)
    for flag in (0, 1, 2, 127, 128, 255):
        double.answer("Ryn_GetSwitchNUMATeam", area=u8(flag))
        double.forget_calls()
        assert get(TEAMING) == Outcome(flag != 0), flag
        assert double.calls() == TEAMING.fallback(), flag


@pytest.mark.parametrize("status", STATUSES)
def test_burst_size_of_the_datapath(double, get, status):
    double.answer("DVSQOB_HostPropGet", status=status)
    for packets in WORDS:
        double.answer("Ryn_GetSwitchBurstSize", area=u32(packets))
        double.forget_calls()
        assert get(BURST) == Outcome(packets)
        assert double.calls() == BURST.fallback()


@both
def test_a_block_that_comes_with_a_failed_read_is_neither_looked_at_nor_released(double, get, setting):
    double.answer("DVSQOB_HostPropGet", status=MISSING, area=u32(1, 2, 3))
    double.answer(setting.datapath.op, area=b"\1")
    assert get(setting) == Outcome(True if setting is TEAMING else 1)
    assert double.calls() == setting.fallback()


@both
def test_a_datapath_that_fills_nothing(double, get, setting):
    double.answer("DVSQOB_HostPropGet", status=MISSING)
    assert get(setting) == Outcome(False if setting is TEAMING else 0)


@both
@pytest.mark.parametrize("status", STATUSES)
def test_a_datapath_that_fails_is_silent(double, get, setting, status):
    double.answer("DVSQOB_HostPropGet", status=MISSING)
    double.answer(setting.datapath.op, status=status, area=b"\1")
    assert get(setting) == Outcome(None)
    assert double.calls() == setting.fallback()


@both
def test_no_portset_name(double, get, setting):
    """The alias is gone when it is looked up for the second time."""
    double.answer("DVSQOB_HostPropGet", status=MISSING)
    double.answer("DVSState_SwitchFindByAlias", status=1)
    double.answer("DVSState_SwitchFindByAlias", times=1)
    assert get(setting) == Outcome(None, NO_PORTSET)
    assert double.calls() == setting.fallback()[:5]


@both
@pytest.mark.parametrize("length", [0, 127, 128, 300])
def test_portset_name_goes_in_with_128_bytes_terminated_or_not(double, get, setting, length):
    double.add_switch("dvs-2", id="id-2", host={"com.talvor.common.host.portset": "x" * length})
    double.answer("DVSQOB_HostPropGet", status=MISSING)
    get(setting, "dvs-2")
    assert double.calls()[-1].portset == (b"x" * length)[:128].ljust(128, b"\0")


# Writing


@pytest.mark.parametrize(
    "value, flag",
    [
        (0, 0),
        (1, 1),
        (2, 2),
        (255, 255),
        (256, 0),
        (257, 1),
        (0x80, 0x80),
        (0x80000000, 0),
        (-1, 255),
        (-256, 0),
        (1 << 32, 0),
        (True, 1),
    ],
)
def test_only_the_low_8_bits_of_teaming_are_stored(double, get, set_, value, flag):
    assert set_(TEAMING, value) == Outcome(None)
    assert double.calls() == TEAMING.written(u8(0, 0, 0, 0, flag))
    double.answer("DVSQOB_HostPropGet", area=double.calls()[-1].value)
    assert get(TEAMING) == Outcome(flag != 0)


@pytest.mark.parametrize("value, packets", [*zip(WORDS, WORDS), (-1, 0xFFFFFFFF), ((1 << 32) + 5, 5)])
def test_every_burst_size_is_stored_as_given(double, get, set_, value, packets):
    assert set_(BURST, value) == Outcome(None)
    assert double.calls() == BURST.written(u32(0, packets))
    double.answer("DVSQOB_HostPropGet", area=double.calls()[-1].value)
    assert get(BURST) == Outcome(packets)


@both
def test_a_property_is_written_whatever_it_was_before(double, set_, setting):
    double.answer("DVSQOB_HostPropGet", area=u32(9))
    assert set_(setting, 1) == Outcome(None)
    assert "DVSQOB_HostPropGet" not in double.ops()


@both
@pytest.mark.parametrize("status", STATUSES)
def test_failed_store(double, set_, setting, status):
    double.answer("DVSQOB_HostPropSet", status=status)
    assert set_(setting, 1) == Outcome(None, setting.not_set)
    assert double.ops().count("DVSQOB_HostPropSet") == 1


# Aliases


@both
@pytest.mark.parametrize("alias", ["", "dvs-2", "100%s%n", "dvs-\u00e9\u4e2d", "x" * 10000])
def test_unknown_alias_is_shown_as_it_is(double, get, set_, setting, alias):
    message = f"Failed to find dvs ID for dvs alias {alias}.\n"
    assert get(setting, alias) == Outcome(None, message)
    assert set_(setting, 1, alias) == Outcome(None, message)
    assert double.calls() == 2 * [Call("DVSState_SwitchFindByAlias", alias=alias)]


@both
def test_switch_of_another_class_is_not_found(double, get, set_, setting):
    double.reset()
    double.add_switch("dvs-1", class_name="vswitch2")
    assert get(setting) == Outcome(None, NO_ID)
    assert set_(setting, 1) == Outcome(None, NO_ID)
    assert double.ops() == 2 * ["DVSState_SwitchFindByAlias", "DVS_ClassName"]
