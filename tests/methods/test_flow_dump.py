"""DumpFlowTable: one page of a core's flow cache."""

from __future__ import annotations

import random
import struct
from typing import Any, Sequence

import flow
import pytest
from harness import ANY, BUFFER, DICT_ITEM, Bytes, Call, Outcome, run
from objects import NOT_INTS, Index

PAGE = 10260
FIRST_ENTRY = 20

BAD_ARGUMENTS = "TypeError: Invalid parameter passed.\n"
NO_MEMORY = "Failed to allocate memory.\n"
INVALID = "Invalid response returned.\n"

PROLOGUE = dict(swID=1, lcore=2, startIndex=3, flag=0, length=PAGE, zeroed=True)


def page(
    entries: Sequence[bytes] = (), start: int = 0, count: int | None = None, valid: int | None = None, fill: int = 0
) -> Bytes:
    """Entries are given with their key; `fill` is in every byte that is not read."""
    body = b"".join(entries)
    area = Bytes(bytes([fill]) * PAGE)
    area.u32(8, start, len(entries) if count is None else count)
    area.u32(16, FIRST_ENTRY + max(len(body), 304 if entries else 0) if valid is None else valid)
    return area.raw(FIRST_ENTRY, body)


def entry(key: bytes = flow.key(), length: int = 240, **fields: Any) -> bytes:
    """A key and an actions record of `length` bytes."""
    record = flow.actions(max(length, 4096), len=length, **fields)
    return key + record[:length]


def item(key: bytes, record: bytes) -> dict[str, str]:
    return {"key": flow.key_line(key), "actions": flow.actions_line(record)[0], "stats": flow.stats_text(record)}


def items(area: bytes, count: int) -> list[dict[str, str]]:
    """What the walk must find; records have zeros past the page."""
    found, at = [], FIRST_ENTRY
    for _ in range(count):
        found.append(item(area[at : at + 64], area[at + 64 : PAGE]))
        at += 64 + struct.unpack_from("<H", area, at + 126)[0]
    return found


@pytest.fixture
def dump(ryn, double):
    def dump(area: bytes | None, *args: object) -> Outcome:
        double.answer("Ryn_Dump_Flow_Table", area=area)
        return run(ryn.DumpFlowTable, *(args or (1, 2, 3, 0)))

    return dump


# ---- Arguments ------------------------------------------------------------------------------------------------------


def test_passes_its_arguments_on(ryn, double):
    run(ryn.DumpFlowTable, 1, 2, 3, 0)
    assert double.calls() == [Call("Ryn_Dump_Flow_Table", **PROLOGUE)]


@pytest.mark.parametrize("flag, passed", [(0, 0), (1, 1), (2, 1), (0x80000000, 1), (-1, 1), (1 << 32, 0), (True, 1)])
def test_flag_is_passed_as_0_or_1(ryn, double, flag, passed):
    run(ryn.DumpFlowTable, 1, 2, 3, flag)
    assert double.calls() == [Call("Ryn_Dump_Flow_Table", **PROLOGUE | {"flag": passed})]


@pytest.mark.parametrize(
    "switch, passed", [(15, 15), (16, 16), (-1, 0xFFFFFFFF), ((1 << 32) + 3, 3), (1 << 31, 1 << 31)]
)
def test_switch_is_not_checked(ryn, double, switch, passed):
    assert run(ryn.DumpFlowTable, switch, 2, 3, 0) == Outcome({"startIndex": 0, "list": []})
    assert double.calls() == [Call("Ryn_Dump_Flow_Table", **PROLOGUE | {"swID": passed})]


@pytest.mark.parametrize("lcore", [0, 31, Index(31), (1 << 32) + 31])
def test_lcore_up_to_31_is_accepted(ryn, double, lcore):
    assert run(ryn.DumpFlowTable, 1, lcore, 3, 0) == Outcome({"startIndex": 0, "list": []})
    assert double.calls()[0].lcore in (0, 31)


@pytest.mark.parametrize("lcore", [32, 63, 64, 255, 1 << 31, -1])
def test_lcore_above_31_is_refused(ryn, double, lcore):
    assert run(ryn.DumpFlowTable, 1, lcore, 3, 0) == Outcome(None, BAD_ARGUMENTS)
    assert double.calls() == []


@pytest.mark.parametrize("start", [0, 1, 1 << 31, 4294967294, -2])
def test_start_index_is_accepted(ryn, double, start):
    assert run(ryn.DumpFlowTable, 1, 2, start, 0) == Outcome({"startIndex": 0, "list": []})
    assert double.calls()[0].startIndex == start % (1 << 32)


@pytest.mark.parametrize("start", [4294967295, -1, (1 << 64) - 1])
def test_start_index_4294967295_is_refused(ryn, double, start):
    assert run(ryn.DumpFlowTable, 1, 2, start, 0) == Outcome(None, BAD_ARGUMENTS)
    assert double.calls() == []


@pytest.mark.parametrize("args", [(), (1,), (1, 2, 3), (1, 2, 3, 0, 0)])
def test_wrong_number_of_arguments(ryn, double, args):
    assert run(ryn.DumpFlowTable, *args) == Outcome(None, BAD_ARGUMENTS, (TypeError, ANY))
    assert double.calls() == []


@pytest.mark.parametrize("place", range(4))
@pytest.mark.parametrize("bad, error", NOT_INTS)
def test_argument_that_is_no_int(ryn, double, place, bad, error):
    args = [1, 2, 3, 0]
    args[place] = bad
    assert run(ryn.DumpFlowTable, *args) == Outcome(None, BAD_ARGUMENTS, (error, ANY))
    assert double.calls() == []


# ---- Pages ----------------------------------------------------------------------------------------------------------


def test_empty_page(dump):
    assert dump(page(start=7)) == Outcome({"startIndex": 7, "list": []})


def test_library_that_fills_nothing(dump):
    assert dump(None) == Outcome({"startIndex": 0, "list": []})


def test_keys_in_their_order(dump):
    value = dump(page([entry()])).value
    assert list(value) == ["startIndex", "list"]
    assert list(value["list"][0]) == ["key", "actions", "stats"]


@pytest.mark.parametrize("start", [0, 1, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF])
def test_start_index_comes_from_the_response_and_is_unsigned(dump, start):
    assert dump(page(start=start)) == Outcome({"startIndex": start, "list": []})


def test_one_flow(dump):
    key = flow.key(protocol=6, ports=b"\x00\x50\x01\xbb", address1=b"\n\0\0\1", second_ipv4=b"\n\0\0\2")
    one = entry(key, 304, bitmap=0x2C00C, child_port=9, cg=0x7F00, flags=8, packets=4, bytes=400)
    assert dump(page([one], start=1)) == Outcome(
        {
            "startIndex": 1,
            "list": [
                {
                    "key": "00:00:00:00:00:00  00:00:00:00:00:00  0     0        10.0.0.1"
                    + 37 * " "
                    + "  10.0.0.2"
                    + 37 * " "
                    + "  6      0        80            443         ",
                    "actions": "bmap:0x2c00c inval(s):0 cg:0x7f00 dp:- len:304; KCPInputChildPort: 9; LRO; ",
                    "stats": "pktsSinceLastFlush:4 bytesSinceLastFlush:400",
                }
            ],
        }
    )


def test_flow_with_drop_renders_normally(dump):
    outcome = dump(page([entry(bitmap=0x400028)]))
    assert outcome.value["list"][0]["actions"].endswith("len:240; LRO; DROP; ")


def test_entries_are_as_long_as_their_records_say(dump):
    lengths = [240, 241, 1000, 243, 0x100, 304]
    entries = [entry(flow.key(protocol=i), length, bitmap=0x400, vi=i) for i, length in enumerate(lengths)]
    area = page(entries)
    assert dump(area) == Outcome({"startIndex": 0, "list": items(area, len(entries))})


def test_unread_bytes_of_the_page_do_not_show(dump):
    entries = [entry(), entry(bitmap=8)]
    assert dump(page(entries, fill=0xFF)).value == dump(page(entries)).value


def test_full_page_of_33_entries(dump):
    rng = random.Random(45)
    entries = [entry(flow.random_key(rng), bitmap=rng.getrandbits(32) & ~0x260000) for _ in range(33)]
    area = page(entries)
    assert dump(area) == Outcome({"startIndex": 0, "list": items(area, 33)})


def test_entry_shorter_than_its_fields_shows_the_bytes_of_the_next(dump):
    # The fields of a record lie where they lie, whatever its length.
    first, second = entry(length=64, bitmap=0x40), flow.key(mac1=b"\1\2\3\4\5\6") + flow.actions(304, len=304)
    area = page([first, second])
    outcome = dump(area)
    assert outcome == Outcome({"startIndex": 0, "list": items(area, 2)})
    assert "inval(s):1541;" not in outcome.value["list"][0]["actions"]
    assert "inval(s):1541 " in outcome.value["list"][0]["actions"]  # bytes 68 to 71: the end of the next key's MAC


def test_random_pages_match_the_model(dump):
    rng = random.Random(46)
    for _ in range(60):
        entries, room = [], PAGE - FIRST_ENTRY
        while room >= flow.MIN_ENTRY and len(entries) < 40:
            length = rng.choice([240, 240, 272, rng.randint(0, 600)])
            record = bytearray(flow.random_actions(rng, 4096, 4)[: max(length, 64)])
            flow.set_fields(record, len=max(length, 64))
            entries.append((flow.random_key(rng) + record)[:room])
            room -= len(entries[-1])
        area = page(entries, start=rng.getrandbits(32), valid=PAGE, fill=0)
        outcome = dump(area)
        expected = items(area, len(entries)) if fits(area, len(entries)) else None
        if expected is None:
            assert outcome.value is None and outcome.stderr in (INVALID, "Invalid action\n")
        else:
            assert outcome == Outcome({"startIndex": struct.unpack_from("<I", area, 8)[0], "list": expected})


def fits(area: bytes, count: int) -> bool:
    at = FIRST_ENTRY
    for _ in range(count):
        if at + flow.MIN_ENTRY > PAGE or flow.actions_line(area[at + 64 :], 512)[1]:
            return False
        at += 64 + struct.unpack_from("<H", area, at + 126)[0]
    return True


# ---- Malformed answers ----------------------------------------------------------------------------------------------


@pytest.mark.parametrize(
    "valid, accepted",
    [
        (FIRST_ENTRY + 304, True),
        (FIRST_ENTRY + 303, False),
        (FIRST_ENTRY, False),
        (0, False),
        (PAGE, True),
        (PAGE + 1, True),
        (0xFFFFFFFF, True),
    ],
)
def test_entry_needs_304_valid_bytes(dump, valid, accepted):
    area = page([entry(length=0)], valid=valid)
    expected = Outcome({"startIndex": 0, "list": items(area, 1)}) if accepted else Outcome(None, INVALID)
    assert dump(area) == expected


def test_last_entry_with_fewer_than_304_bytes_left_is_refused_even_if_its_own_length_is_smaller(dump):
    entries = [entry(length=100), entry(length=100)]
    assert dump(page(entries, valid=FIRST_ENTRY + 2 * 164)) == Outcome(None, INVALID)
    area = page(entries, valid=FIRST_ENTRY + 164 + 304)
    assert dump(area) == Outcome({"startIndex": 0, "list": items(area, 2)})


def test_only_the_rule_of_304_bytes_refuses_an_entry(dump):
    # The last record claims to end far past the page.
    area = page([entry(), entry(length=240)])
    struct.pack_into("<H", area, FIRST_ENTRY + 304 + 126, 0xFFFF)
    assert dump(area) == Outcome({"startIndex": 0, "list": items(area, 2)})


@pytest.mark.parametrize("count", [2, 3, 157, 1000, 0x80000000, 0xFFFFFFFF])
def test_count_above_what_the_valid_bytes_hold(dump, count):
    assert dump(page([entry()], count=count)) == Outcome(None, INVALID)


def test_most_entries_that_a_page_can_hold(dump):
    # Records of length 0: only the keys take room.
    assert len(dump(page(count=156, valid=PAGE)).value["list"]) == 156
    assert dump(page(count=157, valid=PAGE)) == Outcome(None, INVALID)


@pytest.mark.parametrize("valid", [PAGE + 1, PAGE + 64, 0x7FFFFFFF, 0xFFFFFFFF])
def test_valid_bytes_count_as_10260_at_most(dump, valid):
    assert dump(page(count=157, valid=valid)) == Outcome(None, INVALID)


def test_arguments_of_an_action_behind_the_page_are_zeros(dump):
    # The walk's last place: 304 bytes before the end, so the record has 240 bytes.
    last = PAGE - flow.MIN_ENTRY
    area = Bytes(bytes([0xEE]) * PAGE).u32(8, 5, 2, PAGE).raw(FIRST_ENTRY, entry(length=last - FIRST_ENTRY - 64))
    area.raw(last, flow.key())
    flow.set_fields(area, last + 64, bitmap=1 << 21 | 1 << 28, len=1)
    value = dump(area).value
    assert value["list"][1]["actions"].endswith(" len:1; VNI: 4008636142; ENCAP VNI: 0; KCPOutputVLAN: 61166; ")
    flow.set_fields(area, last + 64, bitmap=1 << 18)
    assert dump(area).value["list"][1]["actions"].endswith(" len:1; VDR inst: 0; ")


def test_instances_that_reach_behind_the_page_are_zeros(dump):
    last = PAGE - flow.MIN_ENTRY - 50
    area = Bytes(bytes([0xEE]) * PAGE).u32(8, 5, 2, PAGE).raw(FIRST_ENTRY, entry(length=last - FIRST_ENTRY - 64))
    area.raw(last, flow.key())
    flow.set_fields(area, last + 64, bitmap=1 << 18, len=1, vdr_count=3)
    # 290 bytes are left for the record: instance 0 lies in them, the others past them
    actions = dump(area).value["list"][1]["actions"]
    assert actions.endswith("VDR inst: 3; INST 1: 0xeeeeeeee; INST 2: 0x0; INST 3: 0x0; ")


def test_instance_cut_by_the_end_of_the_page_has_zeros_in_its_high_bytes(dump):
    last = PAGE - 64 - 276
    area = Bytes(bytes([0xEE]) * PAGE).u32(8, 5, 2, PAGE).raw(FIRST_ENTRY, entry(length=last - FIRST_ENTRY - 64))
    area.raw(last, flow.key())
    flow.set_fields(area, last + 64, bitmap=1 << 18, len=1, vdr_count=1)
    assert dump(area).value["list"][1]["actions"].endswith("VDR inst: 1; INST 1: 0xeeee; ")


def one_flow_of_line_length(length: int) -> tuple[Bytes, str]:
    """An entry whose actions line has that length: instances, and the cg handle for the rest."""
    for cg in (0, 0x10, 0x100, 0x1000, 0x10000, 0x100000):
        for count in range(20, 40):
            for narrow in range(7):
                values = [0x10000000] * (count - 1) + [0x10 << 4 * narrow]
                size = 274 + 32 * count
                record = flow.actions(size, bitmap=0x40000, cg=cg, instances=values, len=size)
                text = flow.actions_line(record)[0]
                if len(text) == length:
                    return page([flow.key() + record]), text
    raise AssertionError(length)


def test_line_of_512_bytes_cut_in_its_last_action(dump):
    for length in (510, 511, 512, 513):
        area, text = one_flow_of_line_length(length)
        assert dump(area).value["list"][0]["actions"] == text[:511]


def test_line_that_leaves_an_instance_over_fails_the_whole_page(dump):
    size = 274 + 32 * 60
    record = flow.actions(size, bitmap=0x40000, instances=[0xFFFFFFFF] * 60, len=size)
    assert flow.actions_line(record, 512)[1] == 1
    assert dump(page([entry(), flow.key() + record])) == Outcome(None, "Invalid action\n")


def test_action_without_room_fails_even_if_it_has_no_text(dump):
    area, _ = one_flow_of_line_length(512)
    assert dump(area).value["list"] != []
    flow.set_fields(area, FIRST_ENTRY + 64, bitmap=0x40000 | 1 << 31)
    # "bmap:0x80040000" is three digits longer, the line is full before bit 31
    assert dump(area) == Outcome(None, "Invalid action\n")


# ---- Failures -------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("status", [1, 0xBAD0003, 0xFFFFFFFF])
def test_failure_of_the_library(ryn, double, status):
    double.answer("Ryn_Dump_Flow_Table", status=status, area=page([entry()]))
    assert run(ryn.DumpFlowTable, 1, 2, 3, 0) == Outcome(None, "Failed to retrieve flow table.\n\n")
    assert double.ops() == ["Ryn_Dump_Flow_Table"]


@pytest.mark.parametrize("length", [0, 20, 0xFFFFFFFF])
def test_length_word_is_not_looked_at_afterwards(ryn, double, length):
    area = page([entry()])
    double.answer("Ryn_Dump_Flow_Table", area=area, length=length)
    assert run(ryn.DumpFlowTable, 1, 2, 3, 0) == Outcome({"startIndex": 0, "list": items(area, 1)})


def test_each_failing_allocation_has_its_outcome(ryn, double):
    area = page([entry(), entry(bitmap=8)], start=100000)
    double.answer("Ryn_Dump_Flow_Table", area=area)
    seen = []
    for n in range(200):
        outcome = run(ryn.DumpFlowTable, 1, 2, 3, 0, failing_allocation=n)
        if not outcome.allocation_failed:
            break
        seen.append(outcome)
    assert outcome == Outcome({"startIndex": 100000, "list": items(area, 2)})
    no_dict = Outcome(None, NO_MEMORY, (MemoryError, ANY))
    allowed = [no_dict, Outcome(None, "", BUFFER), Outcome(None, "", DICT_ITEM)]
    assert [outcome for outcome in seen if outcome not in allowed] == []
    assert seen[0] == no_dict
    assert [outcome for outcome in allowed if outcome not in seen] == []


# ---- Bytes between the valid ones and the end of the page ------------------------------------------------------------


@pytest.mark.parametrize("fill", [0, 0x01, 0x5A, 0xFF])
def test_arguments_between_the_valid_bytes_and_the_end_of_the_page_show_as_they_are(dump, fill):
    """They are neither zeros nor refused: an entry needs 304 valid bytes, its arguments may lie past them."""
    area = page([entry(bitmap=1 << 18 | 1 << 21, vdr_count=2)[:304]], valid=FIRST_ENTRY + 304, fill=fill)
    area.u8(FIRST_ENTRY + 64 + 256, 2)
    (row,) = dump(area).value["list"]
    instance = hex(int.from_bytes(bytes([fill]) * 4, "little"))
    vni = int.from_bytes(bytes([fill]) * 3, "little")
    assert row["actions"].endswith(f"VDR inst: 2; INST 1: {instance}; INST 2: {instance}; VNI: 0; ENCAP VNI: {vni}; ")
    assert row == items(area, 1)[0]


@pytest.mark.parametrize("fill", [0x01, 0xFF])
def test_entry_behind_the_valid_bytes_is_refused_whatever_stands_there(dump, fill):
    whole = page([entry(), entry()], fill=fill)
    assert len(dump(whole).value["list"]) == 2
    for valid in (FIRST_ENTRY + 304, FIRST_ENTRY + 2 * 304 - 1):
        whole.u32(16, valid)
        assert dump(whole) == Outcome(None, INVALID)
    whole.u32(12, 1)
    assert dump(whole) == Outcome({"startIndex": 0, "list": items(whole, 1)})
