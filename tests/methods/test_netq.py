"""GetPortNetQInfo: the receive filters of a port in the network hardware, and the queues that serve them."""

import random
import struct

import pytest
from harness import ANY, BUFFER, DICT_ITEM, Bytes, Call, Outcome, capture_stderr, lost_blocks, run

INVALID_PARAMETER = "TypeError: Invalid parameter passed.\n"
INVALID = "Invalid response returned.\n"
NO_DICT = "Failed to allocate NetQ Info resp.\n"

GET = "Ryn_Get_Port_NetQ_Info"
SIZE = 524288
MAC_ONLY, GENEVE = 0, 1
OUTER, INNER = bytes.fromhex("02112201020a"), bytes.fromhex("fffe80017f00")


def queue(port=0, qid=0, fid=0):
    return struct.pack("<IIQ", port, qid, fid)


def rxfilter(kind, body=b"", queues=(), length=None, count=None):
    """The bytes of a filter: its head, its body, its queues. The bits set between kind and length are not read."""
    return (
        struct.pack(
            "<HHHH", kind, 0xFFFF, len(body) if length is None else length, len(queues) if count is None else count
        )
        + body
        + b"".join(queue(*each) for each in queues)
    )


def geneve(outer, inner, vni):
    return outer + inner + struct.pack("<I", vni)


def response(*filters, count=None, swID=3, port=5, is_uplink=1, fill=b"\xff"):
    """An answer with every unread bit set."""
    area = Bytes(SIZE).raw(0, fill * SIZE).u32(0, swID, port, 0xFFFFFFFF)
    area.u16(12, is_uplink, len(filters) if count is None else count)
    return area.raw(16, b"".join(filters))


def signed(fid):
    return fid - (fid >> 63 << 64)


def q_info(queues):
    return [{"rynPortID": port, "qid": qid, "fid": signed(fid)} for port, qid, fid in queues]


def info(*filters, swID=3, port=5, is_uplink=1):
    return {
        "isUplink": is_uplink,
        "swID": swID,
        "rynPortID": port,
        "filters": [{"rxf": rxf, "qInfo": q_info(queues)} for rxf, queues in filters],
    }


def mac_text(mac):
    return "%02x:%02x:%02x:%02x:%02x:%02x" % tuple(mac)


def mac_only_text(mac):
    return "macOnly:" + mac_text(mac)


def geneve_text(outer, inner, vni):
    return "geneve:outer:%s:inner:%s:vni:%d" % (mac_text(outer), mac_text(inner), vni)


def read(ryn, double, area):
    double.answer(GET, area=area)
    return run(ryn.GetPortNetQInfo, 3, 5)


def test_three_filters(ryn, double):
    outcome = read(
        ryn,
        double,
        response(
            rxfilter(MAC_ONLY, OUTER + b"\xff\xff", [(500, 501, 7), (0xFFFFFFFF, 0x80000000, 1 << 63)]),
            rxfilter(GENEVE, geneve(OUTER, INNER, 5001) + b"\xff" * 8, [(1, 2, 0xFFFFFFFFFFFFFFFF)]),
            rxfilter(7, b"\0" * 24, [(3, 4, 0x7FFFFFFFFFFFFFFF)]),
        ),
    )
    assert outcome == Outcome(
        {
            "isUplink": 1,
            "swID": 3,
            "rynPortID": 5,
            "filters": [
                {
                    "rxf": "macOnly:02:11:22:01:02:0a",
                    "qInfo": [
                        {"rynPortID": 500, "qid": 501, "fid": 7},
                        {"rynPortID": 4294967295, "qid": 2147483648, "fid": -9223372036854775808},
                    ],
                },
                {
                    "rxf": "geneve:outer:02:11:22:01:02:0a:inner:ff:fe:80:01:7f:00:vni:5001",
                    "qInfo": [{"rynPortID": 1, "qid": 2, "fid": -1}],
                },
                {"rxf": "UnknownFilter", "qInfo": [{"rynPortID": 3, "qid": 4, "fid": 9223372036854775807}]},
            ],
        }
    )
    assert double.calls() == [Call(GET, swID=3, rynPortID=5, length=524288, zeroed=True)]


def test_order_of_keys(ryn, double):
    found = read(ryn, double, response(rxfilter(MAC_ONLY, OUTER, [(1, 2, 3)]))).value
    assert list(found) == ["isUplink", "swID", "rynPortID", "filters"]
    assert list(found["filters"][0]) == ["rxf", "qInfo"]
    assert list(found["filters"][0]["qInfo"][0]) == ["rynPortID", "qid", "fid"]


def test_no_filters(ryn, double):
    assert read(ryn, double, response()) == Outcome(info())


def test_library_that_fills_nothing_gives_an_empty_response(ryn, double):
    assert run(ryn.GetPortNetQInfo, 3, 5) == Outcome(info(swID=0, port=0, is_uplink=0))


@pytest.mark.parametrize(
    "field, values",
    [
        ("swID", [0, 16, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF]),
        ("port", [0, 128, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF]),
        ("is_uplink", [0, 1, 2, 0x7FFF, 0x8000, 0xFFFF]),
    ],
)
def test_header_is_shown_as_it_came(ryn, double, field, values):
    """The response's own identifiers, not the call's; an int, not a bool."""
    for value in values:
        outcome = read(ryn, double, response(**{field: value}))
        assert outcome == Outcome(info(**{field: value}))
        assert type(outcome.value["isUplink"]) is int


@pytest.mark.parametrize("length", [0, 16, 524287, 524289, 0xFFFFFFFF])
def test_length_word_that_comes_back_is_not_looked_at(ryn, double, length):
    double.answer(GET, area=response(rxfilter(7, b"", [(1, 2, 3)])), length=length)
    assert run(ryn.GetPortNetQInfo, 3, 5) == Outcome(info(("UnknownFilter", [(1, 2, 3)])))


# ---- The text of a filter --------------------------------------------------------------------------------------------


@pytest.mark.parametrize("kind", [2, 3, 7, 0xFF, 0x100, 0x101, 0x7FFF, 0x8000, 0xFFFF])
def test_any_other_kind_is_unknown_and_its_body_is_skipped(ryn, double, kind):
    outcome = read(ryn, double, response(rxfilter(kind, OUTER * 5, [(1, 2, 3)]), rxfilter(MAC_ONLY, INNER)))
    assert outcome == Outcome(info(("UnknownFilter", [(1, 2, 3)]), (mac_only_text(INNER), [])))


@pytest.mark.parametrize("mac", ["000000000000", "ffffffffffff", "0a0b0c0d0e0f", "f0e0d0c0b0a0", "80017f90a1b2"])
def test_mac_only(ryn, double, mac):
    mac = bytes.fromhex(mac)
    assert read(ryn, double, response(rxfilter(MAC_ONLY, mac))) == Outcome(info((mac_only_text(mac), [])))


@pytest.mark.parametrize("vni", [0, 1, 9, 10, 5001, 16777215, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF])
def test_geneve_vni_is_decimal_and_unsigned(ryn, double, vni):
    found = read(ryn, double, response(rxfilter(GENEVE, geneve(INNER, OUTER, vni))))
    assert found == Outcome(info((geneve_text(INNER, OUTER, vni), [])))
    assert found.value["filters"][0]["rxf"].endswith(f":vni:{vni}")


@pytest.mark.parametrize("kind, needs", [(MAC_ONLY, 6), (GENEVE, 16)])
def test_body_shorter_than_its_kind_reads_on_into_what_follows(ryn, double, kind, needs):
    """Where the fields lie does not depend on the body's length; that says only where the queues begin."""
    bytes_read = bytes(range(0xA0, 0xB0))
    for length in range(needs):
        body, rest = bytes_read[:length], bytes_read[length:]
        area = response(rxfilter(kind, body, count=1)).raw(16 + 8 + length, rest)
        queues = struct.unpack_from("<IIQ", area, 16 + 8 + length)
        text = mac_only_text(bytes_read[:6])
        if kind == GENEVE:
            text = geneve_text(bytes_read[:6], bytes_read[6:12], int.from_bytes(bytes_read[12:], "little"))
        assert read(ryn, double, area) == Outcome(info((text, [queues])))


@pytest.mark.parametrize("length", [6, 7, 8, 16, 255, 256, 0x7FFF, 0x8000, 0xFFFF])
def test_queues_begin_behind_the_body_whatever_its_length(ryn, double, length):
    area = response(rxfilter(MAC_ONLY, OUTER.ljust(length, b"\xff"), [(1, 2, 3)]), rxfilter(9, b"", [(4, 5, 6)]))
    assert read(ryn, double, area) == Outcome(info((mac_only_text(OUTER), [(1, 2, 3)]), ("UnknownFilter", [(4, 5, 6)])))


@pytest.mark.parametrize("queues", [0, 1, 2, 3, 1000])
def test_next_filter_begins_behind_the_last_queue(ryn, double, queues):
    queues = [(i, 2 * i, 3 * i) for i in range(queues)]
    area = response(rxfilter(MAC_ONLY, OUTER, queues), rxfilter(MAC_ONLY, INNER, queues))
    assert read(ryn, double, area) == Outcome(info((mac_only_text(OUTER), queues), (mac_only_text(INNER), queues)))


def test_random_responses(ryn, double):
    chance = random.Random(54)

    def number(bits):
        return chance.choice([0, 1, (1 << bits) - 1, 1 << bits - 1, (1 << bits - 1) - 1, chance.getrandbits(bits)])

    for _ in range(120):
        filters, values = [], []
        for _ in range(chance.randrange(12)):
            kind = chance.choice([MAC_ONLY, GENEVE, chance.randrange(2, 1 << 16)])
            outer, inner, vni = chance.randbytes(6), chance.randbytes(6), number(32)
            body = geneve(outer, inner, vni) + chance.randbytes(chance.choice([0, 1, 5, 100]))
            queues = [(number(32), number(32), number(64)) for _ in range(chance.choice([0, 1, 2, 7]))]
            filters.append(rxfilter(kind, body, queues))
            values.append(
                (
                    {MAC_ONLY: mac_only_text(outer), GENEVE: geneve_text(outer, inner, vni)}.get(kind, "UnknownFilter"),
                    queues,
                )
            )
        header = dict(swID=number(32), port=number(32), is_uplink=number(16))
        assert read(ryn, double, response(*filters, **header)) == Outcome(info(*values, **header))


# ---- The end of the area ---------------------------------------------------------------------------------------------


def padding(room):
    """Filters without queues whose bytes, heads and bodies, are `room` altogether."""
    filters = []
    while room > 0:
        length = min(room - 8, 0xFFFF)
        if 0 < room - 8 - length < 8:  # no room for another head
            length -= 8
        filters.append(rxfilter(9, b"\0" * length))
        room -= 8 + length
    return filters


UNKNOWN: tuple = ("UnknownFilter", [])


@pytest.mark.parametrize(
    "beyond, body, queues",
    [
        (beyond, *each)
        for each in [(0, 0), (0, 1), (16, 0), (16, 3), (5, 2), (24, 100)]
        for beyond in (0, 1, 2, 7, 8, 15, 16)
        if beyond <= 8 + each[0] + 16 * each[1]
    ],
)
def test_filter_that_ends_with_the_area_or_behind_it(ryn, double, beyond, body, queues):
    """The last byte of the area may be used, and no byte past it."""
    size = 8 + body + 16 * queues
    before = padding(SIZE - 16 - size + beyond)
    area = response(*before, count=len(before) + 1)
    last = rxfilter(9, b"\0" * body, [(1, 2, 3)] * queues)
    area.raw(SIZE - size + beyond, last[: size - beyond])
    outcome = read(ryn, double, area)
    if beyond == 0:
        assert outcome == Outcome(info(*[UNKNOWN] * len(before), ("UnknownFilter", [(1, 2, 3)] * queues)))
    else:
        assert outcome == Outcome(None, INVALID)


@pytest.mark.parametrize(
    "kind, length, text",
    [
        (MAC_ONLY, 0, mac_only_text(bytes(6))),
        (MAC_ONLY, 4, mac_only_text(OUTER[:4] + bytes(2))),
        (MAC_ONLY, 6, mac_only_text(OUTER)),
        (GENEVE, 0, geneve_text(bytes(6), bytes(6), 0)),
        (GENEVE, 9, geneve_text(OUTER, INNER[:3] + bytes(3), 0)),
        (GENEVE, 13, geneve_text(OUTER, INNER, 0x89)),
        (GENEVE, 16, geneve_text(OUTER, INNER, 0x89)),
    ],
)
def test_short_body_at_the_end_of_the_area_reads_zeros_behind_it(ryn, double, kind, length, text):
    last = rxfilter(kind, geneve(OUTER, INNER, 0x89)[:length])
    before = padding(SIZE - 16 - len(last))
    assert read(ryn, double, response(*before, last)) == Outcome(info(*[UNKNOWN] * len(before), (text, [])))


@pytest.mark.parametrize("count", [0x7FFF, 0x8000, 65533, 65534])
def test_as_many_filters_as_the_area_holds(ryn, double, count):
    """Heads of 8 bytes each, without bodies and queues."""
    area = response(count=count, fill=b"\0")
    assert read(ryn, double, area) == Outcome(info(*[(mac_only_text(bytes(6)), [])] * count))


def test_one_filter_more_than_the_area_holds(ryn, double):
    assert read(ryn, double, response(count=65535, fill=b"\0")) == Outcome(None, INVALID)


@pytest.mark.parametrize("count", [1, 2, 9, 0x8000, 0xFFFF])
def test_count_that_leads_behind_the_area(ryn, double, count):
    """What is not a filter reads as one of 65535 bytes and 65535 queues."""
    assert read(ryn, double, response(count=count)) == Outcome(None, INVALID)


def test_queues_that_fill_the_area(ryn, double):
    room = (SIZE - 16 - 8) // 16
    area = response(rxfilter(9, b"\0" * (SIZE - 16 - 8 - 16 * room), [(5, 6, 7)] * room))
    assert read(ryn, double, area) == Outcome(info(("UnknownFilter", [(5, 6, 7)] * room)))


@pytest.mark.parametrize("count", [32767, 0x8000, 0xFFFF])
def test_queues_behind_the_area(ryn, double, count):
    area = response(rxfilter(9, b"", count=count), fill=b"\0")
    assert read(ryn, double, area) == Outcome(None, INVALID)


def test_refused_response_leaks_nothing(ryn, double):
    good = rxfilter(GENEVE, geneve(OUTER, INNER, 1), [(5000, 6000, 7000)] * 20)
    double.answer(GET, area=response(*[good] * 5, rxfilter(9, b"", count=0xFFFF)))
    double.recording(False)
    with capture_stderr():
        assert lost_blocks(lambda: ryn.GetPortNetQInfo(0, 0), 100) == 0


# ---- Failures --------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize(
    "swID, port",
    [(16, 0), (-1, 0), (0, 128), (0, -1), (0x80000000, 0), (0, 0x80000000), ((1 << 32) + 16, 0), (0, (1 << 32) + 128)],
)
def test_bounds_that_are_refused(ryn, double, swID, port):
    assert run(ryn.GetPortNetQInfo, swID, port) == Outcome(None, INVALID_PARAMETER)
    assert double.calls() == []


@pytest.mark.parametrize("swID, port", [(0, 0), (15, 127), (1 << 32, 0), (0, (1 << 32) + 127)])
def test_bounds_that_are_accepted(ryn, double, swID, port):
    assert run(ryn.GetPortNetQInfo, swID, port).stderr == ""
    assert [(call.swID, call.rynPortID) for call in double.calls()] == [(swID & 0xFFFFFFFF, port & 0xFFFFFFFF)]


class Raises:
    def __index__(self):
        raise LookupError("no number")


@pytest.mark.parametrize(
    "args, error",
    [
        ((), TypeError),
        ((0,), TypeError),
        ((0, 0, 0), TypeError),
        (("0", 0), TypeError),
        ((0, None), TypeError),
        ((0, 0.0), TypeError),
        ((Raises(), 0), LookupError),
        ((0, Raises()), LookupError),
    ],
)
def test_arguments_that_are_not_understood(ryn, double, args, error):
    assert run(ryn.GetPortNetQInfo, *args) == Outcome(None, INVALID_PARAMETER, (error, ANY))
    assert double.calls() == []


@pytest.mark.parametrize("status", [1, 0xBAD0003, 0x80000000, 0xFFFFFFFF])
def test_library_failure_has_the_text_of_the_uplink_statistics(ryn, double, status):
    double.answer(GET, status=status, area=response(rxfilter(9)))
    assert run(ryn.GetPortNetQInfo, 0, 0) == Outcome(None, "Failed to get uplink stats.\n")


def test_failing_allocations(ryn, double):
    """First the dict of the response, then everything in it."""
    import _probe

    double.answer(
        GET,
        area=response(
            rxfilter(GENEVE, geneve(OUTER, INNER, 1), [(500, 600, 700)]),
            rxfilter(7),
            swID=800,
            port=900,
            is_uplink=1000,
        ),
    )
    good = run(ryn.GetPortNetQInfo, 0, 0)
    outcomes = [Outcome(None, allocation_failed=True)]
    while outcomes[-1].allocation_failed:
        with capture_stderr() as texts:
            in_use = [({}, []) for _ in range(200)]  # noqa: F841, no freed dict or list is there to be used again
            has_result, value, error, failed = _probe.call(ryn.GetPortNetQInfo, (0, 0), len(outcomes) - 1)
            del in_use
        assert has_result
        outcomes.append(Outcome(value, texts[0], error and (type(error), str(error)), failed))
    assert outcomes.pop() == good
    assert outcomes[1] == Outcome(None, NO_DICT, (MemoryError, ""))
    allowed = [Outcome(None, error=BUFFER), Outcome(None, error=DICT_ITEM)]
    assert [outcome for outcome in outcomes[2:] if outcome not in allowed] == []
    assert [outcomes.count(each) > 0 for each in allowed] == [True, True]
    assert outcomes.count(allowed[0]) >= 6 + 1 + 3 + 3  # ints, a text, three dicts and three lists
