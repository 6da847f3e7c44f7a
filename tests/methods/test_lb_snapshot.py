"""DumpLBSnapshot: the balancer's topology as text, against a plain model in Python's % formatting."""

from __future__ import annotations

import ctypes
import random
import re
import struct
import subprocess
from pathlib import Path
from typing import Callable, Sequence

import pytest
from harness import ANY, NULL, Bytes, Call, Outcome, run
from objects import NOT_INTS, Index

AREA, TEXT = 4096, 16384
GROUP, VERTEX, EDGE = 37, 20, 12  # bytes

HEADINGS = "\nGroups\n" "\nVeticies and Edges\n"
INVALID = "TypeError: Invalid parameter passed.\n"


def group(load: int = 0, tx: int = 0, rx: int = 0, unread: int = 0) -> bytes:
    """The sets are numbers of 128 bits."""
    return struct.pack("<iB", load, unread) + tx.to_bytes(16, "little") + rx.to_bytes(16, "little")


def vertex(
    number: int = 0,
    wid: int = 0,
    flags: int = 0,
    out: Sequence[tuple[int, int, int]] = (),
    into: Sequence[tuple[int, int, int]] = (),
) -> bytes:
    """Edges are (peer, load, EMA), as they lie in the record."""
    edges = b"".join(struct.pack("<iII", *edge) for edge in [*out, *into])
    return struct.pack("<iIIII", number, wid, flags, len(out), len(into)) + edges


def snapshot(
    groups: Sequence[bytes] = (),
    vertices: Sequence[bytes] = (),
    group_count: int | None = None,
    vertex_count: int | None = None,
) -> Bytes:
    area = Bytes(AREA)
    area.u32(0, len(groups) if group_count is None else group_count)
    area.u32(4, len(vertices) if vertex_count is None else vertex_count)
    return area.raw(8, b"".join([*groups, *vertices])[: AREA - 8])


def ports(words: bytes, suffix: str) -> str:
    bits = int.from_bytes(words, "little")
    return "".join(" [%d-%s]" % (port, suffix) for port in range(128) if bits >> port & 1)


def full_text(area: bytes) -> str:
    """The whole text of the records that lie entirely inside the area."""
    group_count, vertex_count = struct.unpack_from("<II", area)
    text = "\nGroups\n"
    for g in range(min(group_count, (AREA - 8) // GROUP)):
        at = 8 + GROUP * g
        (load,) = struct.unpack_from("<i", area, at)
        text += (
            "[%3d load %3d] :" % (g, load) + ports(area[at + 5 : at + 21], "TX") + ports(area[at + 21 : at + 37], "RX")
        )
        text += "\n"
    text += "\nVeticies and Edges\n"
    at = 8 + GROUP * group_count
    for _ in range(vertex_count):
        if at + VERTEX > AREA:
            break
        number, wid, flags, *counts = struct.unpack_from("<iIIII", area, at)
        end = at + VERTEX + EDGE * sum(counts)
        if end > AREA:
            break
        at += VERTEX
        for count, arrow, label in zip(counts, ("->", "<-"), ("to  ", "from")):
            text += "[%2d WID:%10d Num:%3d F:%8x] %s" % (number, wid, count, flags, arrow)
            for _ in range(count):
                peer, load, ema = struct.unpack_from("<iii", area, at)
                text += " [%s:%2d EMA:%3d load:%3d]" % (label, peer, ema, load)
                at += EDGE
            text += "\n"
        assert at == end
    return text


@pytest.fixture
def dump(ryn, double):
    def dump(area: bytes | None, switch: int = 3) -> Outcome:
        double.answer("Ryn_DumpLBSnapshot", area=area)
        return run(ryn.DumpLBSnapshot, switch)

    return dump


# ---- Arguments and failures -----------------------------------------------------------------------------------------


@pytest.mark.parametrize("switch", [0, 15, Index(15), (1 << 32) + 15, True])
def test_passes_the_switch_by_address_and_a_cleared_area(ryn, double, switch):
    assert run(ryn.DumpLBSnapshot, switch) == Outcome(HEADINGS)
    assert double.calls() == [Call("Ryn_DumpLBSnapshot", swID=switch.__index__() % (1 << 32), length=AREA, zeroed=True)]


@pytest.mark.parametrize("switch", [16, 1 << 31, -1, 0xFFFFFFFF])
def test_switch_above_15_is_refused(ryn, double, switch):
    assert run(ryn.DumpLBSnapshot, switch) == Outcome(None, INVALID)
    assert double.calls() == []


@pytest.mark.parametrize(
    "args, error", [((), TypeError), ((1, 2), TypeError), *(((bad,), error) for bad, error in NOT_INTS)]
)
def test_arguments_that_the_parser_refuses(ryn, double, args, error):
    assert run(ryn.DumpLBSnapshot, *args) == Outcome(None, INVALID, (error, ANY))
    assert double.calls() == []


@pytest.mark.parametrize(
    "status, shown",
    [
        (1, "0x1"),
        (0xBAD0007, "0xbad0007"),
        (0x80000000, "0x80000000"),
        (0xFFFFFFFF, "0xffffffff"),
    ],
)
def test_failure_shows_the_status(ryn, double, status, shown):
    double.answer("Ryn_DumpLBSnapshot", status=status, area=snapshot([group()]))
    assert run(ryn.DumpLBSnapshot, 0) == Outcome(None, f"ValueError: Failed to dump LB topology: {shown}.\n")
    assert double.ops() == ["Ryn_DumpLBSnapshot"]


@pytest.mark.parametrize("length", [0, 8, 100, 0xFFFFFFFF])
def test_length_word_is_not_looked_at_afterwards(ryn, double, length):
    area = snapshot([group(1, 1, 1)], [vertex(1)])
    double.answer("Ryn_DumpLBSnapshot", area=area, length=length)
    assert run(ryn.DumpLBSnapshot, 0) == Outcome(full_text(area))


def test_string_that_cannot_be_created_is_null_with_pythons_error(dump, ryn):
    dump(snapshot([group()]))
    outcome = run(ryn.DumpLBSnapshot, 3, failing_allocation=0)
    assert outcome.allocation_failed
    assert outcome == Outcome(NULL, "", (MemoryError, ANY))
    assert run(ryn.DumpLBSnapshot, 3, failing_allocation=1).allocation_failed is False


# ---- Text -----------------------------------------------------------------------------------------------------------


def test_empty_snapshot_is_the_two_headings_alone(dump):
    assert dump(snapshot()) == Outcome("\nGroups\n\nVeticies and Edges\n")


def test_library_that_fills_nothing(dump):
    assert dump(None) == Outcome(HEADINGS)


def test_whole_text(dump):
    area = snapshot(
        [group(-5, 1 << 0 | 1 << 64, 1 << 3), group(1000, 0, 1 << 127)],
        [vertex(2, 7, 0xAB, [(9, 10, 11), (-100, 2000, 3000)], [(4, 5, 6)]), vertex(123, 0xFFFFFFFF, 0)],
    )
    assert dump(area) == Outcome(
        "\nGroups\n"
        "[  0 load  -5] : [0-TX] [64-TX] [3-RX]\n"
        "[  1 load 1000] : [127-RX]\n"
        "\nVeticies and Edges\n"
        "[ 2 WID:         7 Num:  2 F:      ab] -> [to  : 9 EMA: 11 load: 10] [to  :-100 EMA:3000 load:2000]\n"
        "[ 2 WID:         7 Num:  1 F:      ab] <- [from: 4 EMA:  6 load:  5]\n"
        "[123 WID:4294967295 Num:  0 F:       0] ->\n"
        "[123 WID:4294967295 Num:  0 F:       0] <-\n"
    )


def test_veticies_is_misspelt(dump):
    assert "\nVeticies and Edges\n" in dump(snapshot()).value


def test_ema_comes_before_load_against_their_order_in_the_record(dump):
    text = dump(snapshot([], [vertex(0, 0, 0, [(1, 222, 333)], [(4, 555, 666)])])).value
    assert " [to  : 1 EMA:333 load:222]\n" in text
    assert " [from: 4 EMA:666 load:555]\n" in text


def test_group_without_ports_ends_at_its_colon(dump):
    assert dump(snapshot([group()])).value.startswith("\nGroups\n[  0 load   0] :\n\n")


@pytest.mark.parametrize("port", [0, 1, 31, 32, 63, 64, 65, 95, 127])
def test_each_bit_stands_for_its_port(dump, port):
    assert "] : [%d-TX]\n" % port in dump(snapshot([group(0, 1 << port, 0)])).value
    assert "] : [%d-RX]\n" % port in dump(snapshot([group(0, 0, 1 << port)])).value


def test_all_ports_in_ascending_order_tx_before_rx(dump):
    everything = (1 << 128) - 1
    members = "".join(f" [{n}-TX]" for n in range(128)) + "".join(f" [{n}-RX]" for n in range(128))
    assert f"[  0 load   0] :{members}\n" in dump(snapshot([group(0, everything, everything)])).value


@pytest.mark.parametrize("load", [-(1 << 31), -1000, -100, -10, -1, 0, 9, 99, 999, 1000, (1 << 31) - 1])
def test_group_load_is_signed_and_3_wide(dump, load):
    assert "[  0 load %3d] :" % load in dump(snapshot([group(load)])).value


@pytest.mark.parametrize("number", [-(1 << 31), -10, -1, 0, 9, 10, 99, 100, (1 << 31) - 1])
@pytest.mark.parametrize("wid, flags", [(0, 0), (1, 1), (0x80000000, 0x80000000), (0xFFFFFFFF, 0xFFFFFFFF)])
def test_vertex_head(dump, number, wid, flags):
    text = dump(snapshot([], [vertex(number, wid, flags)])).value
    for arrow in ("->", "<-"):
        assert "[%2d WID:%10u Num:  0 F:%8x] %s\n" % (number, wid, flags, arrow) in text


@pytest.mark.parametrize(
    "figure, shown",
    [(0, 0), (999, 999), (0x7FFFFFFF, 2147483647), (0x80000000, -2147483648), (0xFFFFFFFF, -1), (0xFFFFFF9C, -100)],
)
def test_unsigned_figures_of_an_edge_show_as_signed_ones(dump, figure, shown):
    text = dump(snapshot([], [vertex(0, 0, 0, [(0, figure, 1)], [(0, 2, figure)])])).value
    assert " [to  : 0 EMA:  1 load:%3d]" % shown in text
    assert " [from: 0 EMA:%3d load:  2]" % shown in text


def test_unread_byte_of_a_group_does_not_show(dump):
    assert dump(snapshot([group(7, 5, 6, unread=0xFF)])) == dump(snapshot([group(7, 5, 6)]))


def test_bytes_behind_the_records_do_not_show(dump):
    area = snapshot([group(1, 2, 3)], [vertex(4, 5, 6, [(1, 2, 3)])])
    used = 8 + GROUP + VERTEX + EDGE
    assert dump(area[:used] + b"\xff" * (AREA - used)) == Outcome(full_text(area))


def test_random_snapshots_match_the_model(dump):
    rng = random.Random(63)

    def word() -> int:
        return rng.choice([0, 1, 99, 100, 1000, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF, rng.getrandbits(32)])

    def signed() -> int:
        return word() - (1 << 31)

    def port_set() -> int:
        return rng.choice(
            [0, 1 << rng.randrange(128), rng.getrandbits(128) & rng.getrandbits(128), rng.getrandbits(128)]
        )

    def edges() -> list[tuple[int, int, int]]:
        return [(signed(), word(), word()) for _ in range(rng.choice([0, 0, 1, 3, rng.randint(0, 12)]))]

    for _ in range(400):
        groups = [group(signed(), port_set(), port_set(), rng.getrandbits(8)) for _ in range(rng.randint(0, 6))]
        vertices = [vertex(signed(), word(), word(), edges(), edges()) for _ in range(rng.randint(0, 6))]
        area = snapshot(groups, vertices)
        expected = full_text(area)
        assert expected.count("\n") == 4 + len(groups) + 2 * len(vertices)
        assert dump(area) == Outcome(expected[:TEXT])


# ---- Counts that do not fit -----------------------------------------------------------------------------------------


@pytest.mark.parametrize("count", [110, 111, 112, 1000, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF])
def test_groups_that_do_not_lie_whole_inside_the_area_are_left_out(dump, count):
    area = snapshot([group(i) for i in range(110)], group_count=count, vertex_count=0xFFFFFFFF)
    outcome = dump(area)
    assert outcome == Outcome(full_text(area)[:TEXT])
    assert outcome.value.count(" load ") == 110  # 8 + 110 x 37 = 4078
    assert outcome.value.endswith("[109 load 109] :\n\nVeticies and Edges\n")  # 18 bytes are no vertex


@pytest.mark.parametrize("count", [19, 20, 0x80000000, 0xFFFFFFFF])
def test_vertices_that_do_not_lie_whole_inside_the_area_are_left_out(dump, count):
    area = snapshot([group()] * 100, [vertex(i) for i in range(19)], vertex_count=count)  # 8 bytes are left over
    outcome = dump(area)
    assert outcome == Outcome(full_text(area))
    assert outcome.value.endswith("[18 WID:         0 Num:  0 F:       0] <-\n")


def test_last_vertex_may_end_with_the_area(dump):
    exact = snapshot([], [vertex(5, into=[(1, 2, 3)] * 339)])
    assert 8 + VERTEX + 339 * EDGE == AREA
    assert dump(exact) == Outcome(full_text(exact)[:TEXT])
    assert "[ 5 WID:         0 Num:339 F:       0] <- [from: 1 " in dump(exact).value
    assert dump(exact.u32(8 + 12, 1)) == Outcome(HEADINGS)  # one edge more


def test_last_vertex_may_end_with_the_area_without_an_edge(dump):
    first = [vertex(1, out=[(4, 5, 6)] * 334), vertex(2), vertex(3)]
    assert 8 + sum(map(len, first)) + VERTEX == AREA
    area = snapshot([], [*first, vertex(9)])
    assert dump(area) == Outcome(full_text(area))
    assert dump(area).value.endswith("\n[ 9 WID:         0 Num:  0 F:       0] <-\n")


@pytest.mark.parametrize(
    "out, into",
    [
        (336, 0),
        (0, 336),
        (1, 335),
        (168, 168),
        (0xFFFFFFFF, 0),
        (0, 0xFFFFFFFF),
        (0xFFFFFFFF, 1),
        (0x80000000, 0x80000000),
        (0xFFFFFFFF, 0xFFFFFFFF),
        # 12 times the count wraps in 32 bits, to an end inside the area
        (0x15555556, 0),
        (0, 0x15555556),
        (0x40000000, 0),
        (0, 0x40000000),
        (0x15555556, 0x15555556),
        (0x15555555, 1),
        (1, 0x15555555),
    ],
)
def test_vertex_whose_edges_reach_past_the_area_ends_the_walk(dump, out, into):
    area = snapshot([group(3)], [vertex(8)], vertex_count=5)
    area.u32(8 + GROUP + VERTEX + 12, out, into)
    head = "[ 8 WID:         0 Num:  0 F:       0]"
    expected = f"\nGroups\n[  0 load   3] :\n\nVeticies and Edges\n{head} ->\n{head} <-\n"
    assert dump(area) == Outcome(expected)


def test_vertices_start_behind_the_groups_that_the_count_tells_of(dump):
    # 110 groups: the vertices would begin at 4078, and 111 would leave the area, although only 110 are shown.
    area = snapshot([group()] * 109, [vertex(77)])
    assert "[77 WID:" in dump(area).value
    area.u32(0, 110)
    assert dump(area).value.endswith("\nVeticies and Edges\n")


@pytest.mark.parametrize("groups, place", [(0x2298375A, 2), (0x8A60DD68, 8), (0x5306EB40, 64), (0xFFFFFFFF, None)])
def test_place_of_the_vertices_does_not_wrap(dump, groups, place):
    """In 32 bits, 37 times the first counts comes to a place inside the area, and there a vertex lies."""
    area = snapshot([], group_count=groups, vertex_count=1)
    if place is not None:
        assert groups * GROUP % (1 << 32) == place
        area.raw(8 + place, vertex(77))
    assert dump(area).value.endswith("\nVeticies and Edges\n")


def test_random_bytes_match_the_model(dump):
    rng = random.Random(64)
    for _ in range(300):
        area = Bytes(rng.randbytes(AREA) if rng.random() < 0.5 else bytes(AREA))
        area.u32(0, rng.choice([0, 1, 5, 109, 110, 111, rng.getrandbits(32)]))
        area.u32(4, rng.choice([0, 1, 5, 204, 205, rng.getrandbits(32)]))
        at = 8 + GROUP * int.from_bytes(area[:4], "little")
        while at + VERTEX <= AREA and rng.random() < 0.9:
            area.u32(at + 12, *(rng.choice([0, 1, 2, 30]) for _ in range(2)))
            at += VERTEX + EDGE * sum(struct.unpack_from("<II", area, at + 12))
        assert dump(area) == Outcome(full_text(area)[:TEXT])


# ---- The text area --------------------------------------------------------------------------------------------------


def groups_of_text_length(length: int) -> list[bytes]:
    """Groups that make a snapshot whose whole text has exactly that many characters."""
    everything = (1 << 128) - 1
    groups = [group(0, everything, everything)] * 7
    rest = length - len(full_text(snapshot(groups)))
    empty, wider = divmod(rest, len("[  0 load   0] :\n"))
    widths = [min(wider, 8), max(wider - 8, 0)]  # a load takes 3 to 11 characters
    groups += [group(-(10 ** (width + 1)) if width else 0) for width in widths] + [group()] * (empty - len(widths))
    assert len(full_text(snapshot(groups))) == length
    return groups


@pytest.mark.parametrize("length", [TEXT - 1, TEXT, TEXT + 1, TEXT + 2, TEXT + 18, TEXT + 40, TEXT + 100])
def test_text_is_the_first_16384_bytes_of_the_full_text(dump, length):
    area = snapshot(groups_of_text_length(length))
    assert dump(area) == Outcome(full_text(area)[:TEXT])


@pytest.fixture
def records(ryn) -> Callable[[], bytes]:
    """Reads the module's own area of records, which follows that of the text."""
    symbols = subprocess.run(["nm", ryn.__file__], text=True, capture_output=True, check=True).stdout
    text, area = (
        int(match[1], 16) if (match := re.search(rf"^([0-9a-f]+) b \S*{name}E?$", symbols, re.MULTILINE)) else 0
        for name in ("text_area", "snapshot_area")
    )
    if not area or area != text + TEXT:
        pytest.skip("the areas lie otherwise in this build")
    base = next(
        int(line.split("-")[0], 16)
        for line in Path("/proc/self/maps").read_text().splitlines()
        if line.endswith(ryn.__file__)
    )
    return lambda: ctypes.string_at(base + area, AREA)


@pytest.mark.parametrize(
    "behind, vertices",
    [
        (group(5, 1, 1 << 127), vertex(7, 8, 9, out=[(1, 2, 3)], into=[(4, 5, 6), (7, 8, 9)])),
        (
            group(-12345, 1 << 127 | 1 << 10 | 1, 1 << 100),
            vertex(-1, 1 << 31, 0xFFFFFFFF, out=[(-12, 345, 0xFFFFFFFF)], into=[(123, 1234, 12345), (-1, 100, 1000)]),
        ),
        (group(12), vertex(12, 34, 0x56, out=[(78, 90, 12)])),
    ],
    ids=["one digit", "many digits", "two digits"],
)
def test_cut_text_writes_nothing_behind_its_area(dump, records, behind, vertices):
    """Every piece of a line, at every character, meets the end of the area."""
    for room in range(-30, 400):  # the heading after the groups takes 20 of it
        area = snapshot([*groups_of_text_length(TEXT - room), behind], [vertices])
        assert dump(area) == Outcome(full_text(area)[:TEXT])
        assert records() == area


def test_longest_text_is_cut(dump):
    everything = (1 << 128) - 1
    for area in (
        snapshot([group(-1 << 31, everything, everything)] * 110),
        snapshot([], [vertex(0, out=[(-1 << 31, 0x80000000, 0x80000000)] * 338)]),
    ):
        assert len(full_text(area)) > TEXT
        text = dump(area).value
        assert (len(text), text) == (TEXT, full_text(area)[:TEXT])


# ---- State ----------------------------------------------------------------------------------------------------------


def test_nothing_carries_from_one_call_to_the_next(dump, double):
    everything = (1 << 128) - 1
    big = snapshot([group(-1 << 31, everything, everything)] * 110)
    small = snapshot([group(1)], [vertex(2)])
    for area in (big, None, small, None, big, small):
        double.forget_calls()
        assert dump(area) == Outcome(HEADINGS if area is None else full_text(area)[:TEXT])
        assert double.calls()[0].zeroed
    big[4:8] = b"\xff" * 4
    for partly in (b"", b"\1", bytes(8)):  # the library fills no more than this
        dump(big)
        assert dump(partly) == Outcome(full_text(Bytes(AREA).raw(0, partly)))


def test_results_do_not_change_by_later_calls(dump):
    first = dump(snapshot([group(1)])).value
    copy = first[:5] + first[5:]
    dump(snapshot([group(2)] * 50))
    assert first == copy


def test_failed_call_leaves_nothing_behind(ryn, double, dump):
    double.answer("Ryn_DumpLBSnapshot", status=1, area=snapshot([group(9)] * 110), times=1)
    assert dump(None).value is None
    double.forget_calls()
    assert dump(None) == Outcome(HEADINGS)
    assert double.calls()[0].zeroed
