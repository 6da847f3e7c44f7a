"""GetMirrorConf: the port-mirroring sessions of a switch."""

import random
from collections import Counter

import pytest
from harness import ANY, BUFFER, DICT_ITEM, Bytes, Call, Outcome, capture_stderr, lost_blocks, run, u16

INVALID_SWITCH = "TypeError: Invalid switch ID passed.\n"
INVALID = "Invalid response returned.\n"
NO_MEMORY = "Failed to allocate memory.\n"
NO_PORT_LIST = "Failed to allocate memory\n"  # without a full stop

GET = "Ryn_Get_Mirror_Conf"
SIZE = 2048
KEYS = [
    "noInput",
    "noOutput",
    "vlanEncap",
    "OrigVlan",
    "index",
    "encapVlanID",
    "samplingRate",
    "snapLen",
    "srcInPorts",
    "srcOutPorts",
    "dstPorts",
    "vlans",
]


def bitmap(ports):
    return sum(1 << port for port in set(ports)).to_bytes(16, "little")


def session(index=0, encap=0, snap=0, rate=0, flags=0, ports_in=(), ports_out=(), ports_dst=(), vlans=(), counts=None):
    """The bytes of a session, with every unread bit set; `counts` are other port counts than the sets'."""
    sets = ports_in, ports_out, ports_dst
    area = Bytes(72 + (2 * len(vlans) + 7) // 8 * 8)
    area.raw(0, b"\xff" * 4).u16(4, index, encap, snap, rate, flags | 0xFFF0)
    area.u16(14, *(counts or [len(set(ports)) for ports in sets]), len(vlans)).raw(22, b"\xff\xff")
    for offset, ports in zip((24, 40, 56), sets):
        area.raw(offset, bitmap(ports))
    return area.raw(72, u16(*vlans).ljust(len(area) - 72, b"\xff"))


def conf(*sessions, count=None, fill=b"\xff"):
    records = b"".join(sessions)
    area = Bytes(SIZE).raw(0, fill * SIZE).raw(0, b"\xff" * 4).u16(4, len(sessions) if count is None else count)
    return area.raw(6, b"\xff\xff").raw(8, records)


def expected(index=0, encap=0, snap=0, rate=0, flags=0, ports_in=(), ports_out=(), ports_dst=(), vlans=()):
    return {
        "noInput": flags & 1,
        "noOutput": flags >> 1 & 1,
        "vlanEncap": flags >> 2 & 1,
        "OrigVlan": flags >> 3 & 1,
        "index": index,
        "encapVlanID": encap,
        "samplingRate": rate,
        "snapLen": snap,
        "srcInPorts": sorted(set(ports_in)),
        "srcOutPorts": sorted(set(ports_out)),
        "dstPorts": sorted(set(ports_dst)),
        "vlans": list(vlans),
    }


def read(ryn, double, area):
    double.answer(GET, area=area)
    return run(ryn.GetMirrorConf, 3)


ONE = dict(
    index=300,
    encap=301,
    snap=302,
    rate=303,
    flags=0x000A,
    ports_in=[0, 63, 64, 127],
    ports_out=[5],
    ports_dst=[126],
    vlans=[1, 4094, 0xFFFF],
)


def test_one_session(ryn, double):
    outcome = read(ryn, double, conf(session(**ONE)))
    assert outcome == Outcome(
        [
            {
                "noInput": 0,
                "noOutput": 1,
                "vlanEncap": 0,
                "OrigVlan": 1,
                "index": 300,
                "encapVlanID": 301,
                "samplingRate": 303,
                "snapLen": 302,
                "srcInPorts": [0, 63, 64, 127],
                "srcOutPorts": [5],
                "dstPorts": [126],
                "vlans": [1, 4094, 0xFFFF],
            }
        ]
    )
    assert double.calls() == [Call(GET, swID=3, length=2048, zeroed=True)]


def test_sampling_rate_stands_before_snapshot_length(ryn, double):
    """In the record it is the other way round."""
    outcome = read(ryn, double, conf(session(**ONE), session()))
    assert [list(item) for item in outcome.value] == [KEYS, KEYS]


@pytest.mark.parametrize("flags", range(16))
def test_flags_are_ints_not_bools(ryn, double, flags):
    found = read(ryn, double, conf(session(flags=flags))).value[0]
    assert [found[key] for key in KEYS[:4]] == [flags >> bit & 1 for bit in range(4)]
    assert {type(found[key]) for key in KEYS[:4]} == {int}


@pytest.mark.parametrize("field", ["index", "encap", "snap", "rate"])
@pytest.mark.parametrize("value", [0, 1, 0x7FFF, 0x8000, 0xFFFF])
def test_numbers_are_never_negative(ryn, double, field, value):
    assert read(ryn, double, conf(session(**{field: value}))) == Outcome([expected(**{field: value})])


def test_no_sessions(ryn, double):
    assert read(ryn, double, conf()) == Outcome([])


def test_library_that_fills_nothing_gives_no_sessions(ryn, double):
    assert run(ryn.GetMirrorConf, 0) == Outcome([])


def test_empty_session(ryn, double):
    """No ports, no VLANs: four empty lists."""
    outcome = read(ryn, double, conf(session()))
    assert outcome == Outcome([expected()])
    assert [outcome.value[0][key] for key in KEYS[8:]] == [[], [], [], []]


@pytest.mark.parametrize("length", [0, 8, 71, 2047, 2049, 0xFFFFFFFF])
def test_length_word_that_comes_back_is_not_looked_at(ryn, double, length):
    double.answer(GET, area=conf(session(**ONE)), length=length)
    assert run(ryn.GetMirrorConf, 3) == Outcome([expected(**ONE)])


# ---- Where the next session lies -------------------------------------------------------------------------------------


@pytest.mark.parametrize("vlans, offset", [(0, 80), (1, 88), (3, 88), (4, 88), (5, 96), (8, 96), (9, 104), (100, 280)])
def test_next_session_lies_at_a_multiple_of_eight(ryn, double, vlans, offset):
    area = Bytes(SIZE).u16(4, 2).raw(8, session(vlans=range(vlans))).raw(offset, session(**ONE))
    assert read(ryn, double, area) == Outcome([expected(vlans=range(vlans)), expected(**ONE)])


@pytest.mark.parametrize("count", [2, 27, 28])
def test_many_sessions(ryn, double, count):
    """28 sessions without VLANs fill the area but for 24 bytes."""
    outcome = read(ryn, double, conf(*(session(index=i) for i in range(count))))
    assert outcome == Outcome([expected(index=i) for i in range(count)])


def test_sessions_that_fill_the_area_to_its_last_byte(ryn, double):
    sessions = [dict(index=i, vlans=[i] * 4) for i in range(24)] + [dict(index=24, vlans=range(24))]
    area = conf(*(session(**each) for each in sessions))
    assert 8 + 24 * 80 + 72 + 48 == SIZE
    assert read(ryn, double, area) == Outcome([expected(**each) for each in sessions])


def test_vlans_that_fill_the_area_to_its_last_byte(ryn, double):
    vlans = range(40000, 40000 + (SIZE - 8 - 72) // 2)
    assert len(session(vlans=vlans)) == SIZE - 8
    assert read(ryn, double, conf(session(vlans=vlans))) == Outcome([expected(vlans=vlans)])


# ---- Malformed answers -----------------------------------------------------------------------------------------------


@pytest.mark.parametrize("count", [29, 30, 0x7FFF, 0x8000, 0xFFFF])
@pytest.mark.parametrize("fill", [b"\0", b"\xff"])
def test_more_sessions_than_the_area_holds(ryn, double, count, fill):
    assert read(ryn, double, conf(count=count, fill=fill)) == Outcome(None, INVALID)


@pytest.mark.parametrize("vlans, fits", [(12, True), (13, False), (40, False)])
def test_last_session_that_begins_within_but_ends_behind_the_area(ryn, double, vlans, fits):
    """28 sessions leave 24 bytes over, which are as many as 12 VLANs of the first one take."""
    area = conf(session(vlans=[1] * vlans), *[session()] * 26, count=28, fill=b"\0")
    good = Outcome([expected(vlans=[1] * vlans), *[expected()] * 27])
    assert read(ryn, double, area) == (good if fits else Outcome(None, INVALID))


@pytest.mark.parametrize("vlan_count", [985, 0x7FFF, 0x8000, 0xFFFF])
def test_vlans_behind_the_area(ryn, double, vlan_count):
    area = conf(session()).u16(8 + 20, vlan_count)
    assert read(ryn, double, area) == Outcome(None, INVALID)


def test_session_behind_the_area_after_good_ones(ryn, double):
    area = conf(*[session(**ONE)] * 3, count=4).u16(8 + 3 * 80 + 20, 1000)
    assert read(ryn, double, area) == Outcome(None, INVALID)


def test_refused_configuration_leaks_nothing(ryn, double):
    double.answer(GET, area=conf(*[session(**ONE)] * 3, count=4).u16(8 + 3 * 80 + 20, 1000))
    double.recording(False)
    with capture_stderr():
        assert lost_blocks(lambda: ryn.GetMirrorConf(0)) == 0


@pytest.mark.parametrize("key, place, offset", [("srcInPorts", 0, 14), ("srcOutPorts", 1, 16), ("dstPorts", 2, 18)])
@pytest.mark.parametrize("count", [0, 1, 2, 3, 4, 128, 129, 0x8000, 0xFFFF])
def test_port_count_that_is_not_that_of_the_bits(ryn, double, key, place, offset, count):
    """A smaller count cuts the list; a greater one leaves places over, which hold None."""
    sets = [[], [], []]
    sets[place] = [3, 64, 127]
    names = "ports_in", "ports_out", "ports_dst"
    area = conf(session(**dict(zip(names, sets)))).u16(8 + offset, count)
    value = expected()
    value[key] = [3, 64, 127][:count] + [None] * (count - 3)
    assert read(ryn, double, area) == Outcome([value])


@pytest.mark.parametrize("port", [0, 1, 31, 32, 62, 63, 64, 65, 95, 96, 126, 127])
def test_bit_of_each_port(ryn, double, port):
    value = expected(ports_in=[port])
    assert value["srcInPorts"] == [port]
    assert read(ryn, double, conf(session(ports_in=[port]))) == Outcome([value])


def test_all_ports(ryn, double):
    everything = dict(ports_in=range(128), ports_out=range(128), ports_dst=range(128))
    assert read(ryn, double, conf(session(**everything))) == Outcome([expected(**everything)])


def test_random_configurations(ryn, double):
    chance = random.Random(52)

    def number():
        return chance.choice([0, 1, 255, 0x7FFF, 0x8000, 0xFFFF, chance.randrange(1 << 16)])

    def ports():
        return chance.sample(range(128), chance.choice([0, 1, 2, 64, 128, chance.randrange(129)]))

    for _ in range(200):
        sessions, room = [], SIZE - 8
        while chance.random() < 0.9:
            vlans = [number() for _ in range(chance.choice([0, 0, 1, 2, 3, 4, 5, 7, 8, chance.randrange(200)]))]
            sessions.append(
                dict(
                    index=number(),
                    encap=number(),
                    snap=number(),
                    rate=number(),
                    flags=chance.randrange(16),
                    ports_in=ports(),
                    ports_out=ports(),
                    ports_dst=ports(),
                    vlans=vlans,
                )
            )
            room -= len(session(vlans=vlans))
            if room < 0:
                sessions.pop()
                break
        area = conf(*(session(**each) for each in sessions))
        assert read(ryn, double, area) == Outcome([expected(**each) for each in sessions])


# ---- Failures --------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("swID", [16, 17, -1, 0x80000000, (1 << 32) + 16])
def test_switch_that_is_refused(ryn, double, swID):
    """This method says what it refuses."""
    assert run(ryn.GetMirrorConf, swID) == Outcome(None, INVALID_SWITCH)
    assert double.calls() == []


@pytest.mark.parametrize("swID", [0, 15, 1 << 32, -(1 << 32) + 15])
def test_switch_that_is_accepted(ryn, double, swID):
    assert run(ryn.GetMirrorConf, swID) == Outcome([])
    assert [call.swID for call in double.calls()] == [swID & 0xFFFFFFFF]


class Raises:
    def __index__(self):
        raise LookupError("no number")


@pytest.mark.parametrize(
    "args, error",
    [
        ((), TypeError),
        ((0, 0), TypeError),
        (("0",), TypeError),
        ((None,), TypeError),
        ((0.0,), TypeError),
        ((Raises(),), LookupError),
    ],
)
def test_arguments_that_are_not_understood(ryn, double, args, error):
    assert run(ryn.GetMirrorConf, *args) == Outcome(None, INVALID_SWITCH, (error, ANY))
    assert double.calls() == []


@pytest.mark.parametrize("status", [1, 0xBAD0003, 0x80000000, 0xFFFFFFFF])
def test_library_failure(ryn, double, status):
    """The capital in its text is its own."""
    double.answer(GET, status=status, area=conf(session(**ONE)))
    assert run(ryn.GetMirrorConf, 0) == Outcome(None, "Failed to Get port mirror conf.\n")


def failing_allocations(ryn, *args):
    """The outcomes of calls in which the first, second, ... allocation fails, while no freed dict or list is there to
    be used again."""
    import _probe

    outcomes = []
    while not outcomes or outcomes[-1].allocation_failed:
        with capture_stderr() as texts:
            in_use = [({}, []) for _ in range(200)]  # noqa: F841
            has_result, value, error, failed = _probe.call(ryn.GetMirrorConf, args, len(outcomes))
            del in_use
        assert has_result
        outcomes.append(Outcome(value, texts[0], error and (type(error), str(error)), failed))
    return outcomes[:-1]


PENDING = (MemoryError, "")


@pytest.fixture
def failures(ryn, double):
    """The outcome of each failing allocation, for two sessions whose numbers are all made anew."""
    big = dict(index=3000, encap=3001, snap=3002, rate=3003, ports_in=[1], ports_out=[2], ports_dst=[3], vlans=[4000])
    double.answer(GET, area=conf(session(**big), session(**{**big, "index": 5000})))
    first, second = run(ryn.GetMirrorConf, 0).value
    return first, second, failing_allocations(ryn, 0)


def test_list_of_sessions_that_cannot_be_made(failures):
    assert failures[2][0] == Outcome(None, NO_MEMORY, PENDING)


def test_session_that_cannot_be_made_is_none_and_the_next_is_read_from_the_same_place(failures):
    first, second, outcomes = failures
    assert Outcome([None, first], NO_MEMORY, PENDING) in outcomes
    assert Outcome([first, None], NO_MEMORY, PENDING) in outcomes


@pytest.mark.parametrize("error", [BUFFER, DICT_ITEM], ids=["an int", "a place in the dict"])
def test_session_that_cannot_be_filled_is_none_and_the_next_is_read_from_the_same_place(failures, error):
    first, second, outcomes = failures
    assert Outcome([None, first], "", error) in outcomes
    assert Outcome([first, None], "", error) in outcomes


@pytest.mark.parametrize("key", ["srcInPorts", "srcOutPorts", "dstPorts"])
def test_port_list_that_cannot_be_made_is_none_in_its_session(failures, key):
    first, second, outcomes = failures
    assert Outcome([{**first, key: None}, second], NO_PORT_LIST, PENDING) in outcomes
    assert Outcome([first, {**second, key: None}], NO_PORT_LIST, PENDING) in outcomes


def test_vlan_list_that_cannot_be_made_is_none_in_its_session(failures):
    first, second, outcomes = failures
    assert Outcome([{**first, "vlans": None}, second], NO_MEMORY, PENDING) in outcomes


def test_vlan_that_cannot_be_made_leaves_none_for_the_list(failures):
    first, second, outcomes = failures
    assert Outcome([{**first, "vlans": None}, second], "", BUFFER) in outcomes
    assert Outcome([first, {**second, "vlans": None}], "", BUFFER) in outcomes


def test_failing_allocations_come_to_nothing_else(failures):
    first, second, outcomes = failures
    ports = ["srcInPorts", "srcOutPorts", "dstPorts"]
    allowed = [
        Outcome(None, NO_MEMORY, PENDING),
        *(
            Outcome(value, text, error)
            for value in ([None, first], [first, None])
            for text, error in [(NO_MEMORY, PENDING), ("", BUFFER), ("", DICT_ITEM)]
        ),
        *(
            Outcome(value, text, error)
            for key, text in [*((key, NO_PORT_LIST) for key in ports), ("vlans", NO_MEMORY)]
            for value in ([{**first, key: None}, second], [first, {**second, key: None}])
            for error in [PENDING]
        ),
        *(
            Outcome(value, "", BUFFER)
            for value in ([{**first, "vlans": None}, second], [first, {**second, "vlans": None}])
        ),
    ]
    assert [outcome for outcome in outcomes if outcome not in allowed] == []
    # Five ints of each session are not shared by the interpreter: four of the record, one in the list of VLANs.
    assert Counter(outcome.error for outcome in outcomes)[BUFFER] == 2 * 5
