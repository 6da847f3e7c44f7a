"""The ring sizes of an uplink, a property of its port, and the affinity of the host's devices."""

import random

import pytest
from harness import BUFFER, MISSING, Bytes, Call, Outcome, lost_blocks, run, u32

PROPERTY = "com.talvor.extraconfig.opqueDvs.ryn.uplinkRing"  # letter for letter
WORDS = [0, 1, 31, 32, 1000, 2048, 0x7FFFFFFF, 0x80000000, 0xFFFFFFE0, 0xFFFFFFFF]
STATUSES = [1, 0x0BAD0002, 0x0BAD0004, 0x0BAD0007, 0x80000000, 0x8BAD0003, 0xFFFFFFFF]  # all but "no such property"

IDS = "id-1", "port-7"
READ = Call("DVSQOB_PortDataGet", switchId="id-1", portId="port-7", key=PROPERTY)
FREED = Call("DVSQOB_DataFree", isNull=0)
UNALIGNED = "ValueError: Ring size must be 32 aligned.\n"
TEXTS = ["", "id-1", "%s%n", "50 1a \u00e9\u4e2d", "x" * 5000]


def written(tx: int, rx: int) -> Call:
    return Call(
        "DVSQOB_PortDataSet", switchId="id-1", portId="port-7", key=PROPERTY, value=u32(tx, rx), length=8, option=8
    )


# Reading the ring sizes


@pytest.mark.parametrize("tx", WORDS)
@pytest.mark.parametrize("rx", WORDS)
def test_sizes_are_the_two_words_of_the_property(ryn, double, tx, rx):
    double.answer("DVSQOB_PortDataGet", area=u32(tx, rx))
    assert run(ryn.GetUplinkRingSize, *IDS) == Outcome((tx, rx))
    assert double.calls() == [READ, FREED]  # no alias is looked up


def test_port_without_the_property(ryn, double):
    double.answer("DVSQOB_PortDataGet", status=MISSING)
    assert run(ryn.GetUplinkRingSize, *IDS) == Outcome((2048, 1024))
    assert double.calls() == [READ]


@pytest.mark.parametrize("status", STATUSES)
def test_any_other_status_is_reported(ryn, double, status):
    double.answer("DVSQOB_PortDataGet", status=status)
    assert run(ryn.GetUplinkRingSize, *IDS) == Outcome(None, "ValueError: Failed to read property data length.\n")
    assert double.calls() == [READ]


@pytest.mark.parametrize("fill", [b"\0", b"\xff"])
def test_every_wrong_length_is_invalid_and_the_block_released(ryn, double, fill):
    for length in {*range(65), 4096} - {8}:
        double.answer("DVSQOB_PortDataGet", area=fill * length)
        double.forget_calls()
        outcome = run(ryn.GetUplinkRingSize, *IDS)
        assert outcome == Outcome(None, "ValueError: Invalid property data length.\n"), length
        assert double.calls() == [READ, FREED], length


def test_success_without_a_block_is_invalid(ryn, double):
    invalid = Outcome(None, "ValueError: Invalid property data length.\n")
    assert run(ryn.GetUplinkRingSize, *IDS) == invalid
    double.answer("DVSQOB_PortDataGet", length=8)  # eight bytes at no address
    assert run(ryn.GetUplinkRingSize, *IDS) == invalid


@pytest.mark.parametrize("switch_id", TEXTS)
@pytest.mark.parametrize("port_id", TEXTS)
def test_identifiers_are_passed_unchanged(ryn, double, switch_id, port_id):
    double.answer("DVSQOB_PortDataGet", status=MISSING)
    run(ryn.GetUplinkRingSize, switch_id, port_id)
    run(ryn.SetUplinkRingSize, switch_id, port_id, 0, 0)
    assert [(call.switchId, call.portId) for call in double.calls()] == 2 * [(switch_id, port_id)]


# Writing the ring sizes


@pytest.mark.parametrize(
    "tx, rx, stored",
    [
        (4096, 512, (4096, 512)),
        (0, 0, (0, 0)),
        (32, 4294967264, (32, 4294967264)),
        (4294967264, 32, (4294967264, 32)),
        (0x80000000, 0x7FFFFFE0, (0x80000000, 0x7FFFFFE0)),
        (-32, 1 << 32, (4294967264, 0)),  # wrapped
        (((1 << 40) + 64), False, (64, 0)),
    ],
)
def test_multiples_of_32_are_stored_without_bounds(ryn, double, tx, rx, stored):
    assert run(ryn.SetUplinkRingSize, *IDS, tx, rx) == Outcome(None)
    assert double.calls() == [written(*stored)]


def test_bytes_of_the_stored_value(ryn, double):
    run(ryn.SetUplinkRingSize, *IDS, 4096, 512)
    assert double.calls()[0].value == bytes.fromhex("0010000000020000")
    double.answer("DVSQOB_PortDataGet", area=double.calls()[0].value)
    assert run(ryn.GetUplinkRingSize, *IDS) == Outcome((4096, 512))


def test_every_size_that_is_no_multiple_of_32_is_refused(ryn, double):
    for size in [*range(129), 1000, 0x7FFFFFFF, 0x80000001, 0xFFFFFFE1, 0xFFFFFFFF]:
        for tx, rx in ((size, 64), (64, size), (size, size)):
            double.forget_calls()
            outcome = run(ryn.SetUplinkRingSize, *IDS, tx, rx)
            if size % 32:
                assert outcome == Outcome(None, UNALIGNED), size  # once, even if both are
                assert double.calls() == [], size
            else:
                assert outcome == Outcome(None), size
                assert double.calls() == [written(tx, rx)], size


@pytest.mark.parametrize("status", [*STATUSES, MISSING])
def test_failed_store(ryn, double, status):
    double.answer("DVSQOB_PortDataSet", status=status)
    assert run(ryn.SetUplinkRingSize, *IDS, 64, 64) == Outcome(None, "ValueError: Failed to set port property.\n")
    assert double.calls() == [written(64, 64)]


# Listing the devices


def devices_area(count: int, devices: list[tuple[bytes, int]], unread: int = 0xFF) -> Bytes:
    """Devices of (field of the name, affinity); every byte that is not written is `unread`."""
    area = Bytes(bytes([unread]) * 1156).u32(0, count)
    for i, (name, affinity) in enumerate(devices):
        area.raw(4 + 36 * i, name).u32(4 + 36 * i + 32, affinity)
    return area


def device_dicts(*devices: tuple[str, int]) -> list[dict[str, object]]:
    return [{"devname": name, "affinity": affinity} for name, affinity in devices]


@pytest.mark.parametrize("count", [0, 1, 2, 31, 32])
def test_one_dict_per_device_in_order(ryn, double, count):
    numbers = random.Random(count)
    for _ in range(20):
        names = ["".join(numbers.choices("lunic0123\u00e9 %", k=numbers.randrange(16))) for _ in range(count)]
        affinities = [numbers.choice([*WORDS, numbers.getrandbits(32)]) for _ in range(count)]
        area = devices_area(count, [(name.encode() + b"\0", value) for name, value in zip(names, affinities)])
        double.answer("Ryn_List_Dev_Affinity", area=area)
        outcome = run(ryn.ListDevAffinity)
        assert outcome == Outcome(device_dicts(*zip(names, affinities)))
        assert all(list(device) == ["devname", "affinity"] for device in outcome.value)


@pytest.mark.parametrize(
    "field, name",
    [
        (b"\0" + b"\xff" * 31, ""),
        (b"lunic0\0" + b"\xff" * 25, "lunic0"),
        (b"x" * 31 + b"\0", "x" * 31),
        (b"x" * 32, "x" * 32),  # no NUL: the field and no further
        ("\u00e9".encode() * 16, "\u00e9" * 16),
        (b"\x01\x7f %s\n\0", "\x01\x7f %s\n"),
    ],
)
def test_name_is_the_text_of_its_field(ryn, double, field, name):
    area = devices_area(32, 32 * [(field, 0x41414141)])  # letters after a name without a NUL
    double.answer("Ryn_List_Dev_Affinity", area=area)
    assert run(ryn.ListDevAffinity) == Outcome(device_dicts(*32 * [(name, 0x41414141)]))


BAD_NAMES = [b"\xff\0", b"lunic\x80\0", b"\xc3\0", b"\xed\xa0\x80\0", b"x" * 31 + b"\xc3"]  # the last is cut in two


@pytest.mark.parametrize("name", BAD_NAMES)
@pytest.mark.parametrize("place", [0, 5, 31])
def test_name_that_is_not_utf8(ryn, double, name, place):
    devices = [(name if i == place else b"lunic\0", 1) for i in range(32)]
    double.answer("Ryn_List_Dev_Affinity", area=devices_area(32, devices))
    assert run(ryn.ListDevAffinity) == Outcome(None, "", BUFFER)


def test_list_behind_a_name_that_is_not_utf8_is_released(ryn, double):
    devices = [*31 * [(b"lunic\0", 1 << 31)], (b"\xff\0", 1)]
    double.answer("Ryn_List_Dev_Affinity", area=devices_area(32, devices))
    double.recording(False)
    assert lost_blocks(lambda: run(ryn.ListDevAffinity), 100) == 0


@pytest.mark.parametrize("count", [33, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF])
def test_count_beyond_the_room_gives_as_many_devices_as_there_is_room_for(ryn, double, count):
    double.answer("Ryn_List_Dev_Affinity", area=devices_area(count, [(b"%d\0" % i, i) for i in range(32)]))
    assert run(ryn.ListDevAffinity) == Outcome(device_dicts(*[(str(i), i) for i in range(32)]))


@pytest.mark.parametrize("arguments", [(), (1,), ("x", None, [])])
def test_arguments_are_ignored_and_an_area_that_is_not_filled_is_empty(ryn, double, arguments):
    assert run(ryn.ListDevAffinity, *arguments) == Outcome([])
    assert double.calls() == [Call("Ryn_List_Dev_Affinity", length=1156, zeroed=True)]


@pytest.mark.parametrize("length", [0, 4, 0xFFFFFFFF])
def test_length_that_comes_back_is_not_looked_at(ryn, double, length):
    double.answer("Ryn_List_Dev_Affinity", area=devices_area(1, [(b"lunic0\0", 5)]), length=length)
    assert run(ryn.ListDevAffinity) == Outcome(device_dicts(("lunic0", 5)))


@pytest.mark.parametrize("status", [*STATUSES, MISSING])
def test_failed_list(ryn, double, status):
    double.answer("Ryn_List_Dev_Affinity", status=status, area=devices_area(1, [(b"lunic0\0", 5)]))
    assert run(ryn.ListDevAffinity) == Outcome(None, "ValueError: Failed to list device affinity.\n")


# Setting a device's affinity


@pytest.mark.parametrize("device", [*TEXTS, "lunic0", "x" * 33])
@pytest.mark.parametrize("value, passed", [(0, 0), (5, 5), (0x80000000, 0x80000000), (-1, 0xFFFFFFFF), (1 << 32, 0)])
def test_name_and_affinity_are_passed_on(ryn, double, device, value, passed):
    assert run(ryn.SetDevAffinity, device, value) == Outcome(None)
    assert double.calls() == [Call("Ryn_Set_Dev_Affinity", device=device, affinity=passed)]


@pytest.mark.parametrize("status", [*STATUSES, MISSING])
def test_failed_affinity(ryn, double, status):
    double.answer("Ryn_Set_Dev_Affinity", status=status)
    assert run(ryn.SetDevAffinity, "lunic0", 1) == Outcome(None, "ValueError: Failed to set device affinity.\n")
