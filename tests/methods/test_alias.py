"""The resolvers for native callers: an alias to a switch identifier or a portset name, and a portset name back."""

import ctypes
from typing import Callable

import pytest
from harness import Call

NOT_FOUND, BAD_PARAMETER = 0xBAD0003, 0xBAD0007
PORTSET, ALIAS = "com.talvor.common.host.portset", "com.talvor.common.alias"

ROOM = {"DVSAliasToSwitchId": 64, "DVSAliasToPortsetName": 128, "DVSPortsetNameToAlias": 128}
UNTOUCHED = b"\xa5"


@pytest.fixture
def resolve(native) -> Callable[[str, bytes | None], tuple[int, bytes | None]]:
    """Calls a resolver; returns its status and the output area, or None if that was not touched."""

    def call(name: str, text: bytes | None) -> tuple[int, bytes | None]:
        function, room = native[name], ROOM[name]
        function.argtypes, function.restype = [ctypes.c_char_p, ctypes.c_char_p], ctypes.c_uint32
        area = ctypes.create_string_buffer(UNTOUCHED * (room + 64), room + 64)
        status = function(text, area)
        assert area.raw[room:] == UNTOUCHED * 64, "written past the area"
        output = area.raw[:room]
        return status, None if output == UNTOUCHED * room else output

    return call


@pytest.fixture(autouse=True)
def silent(capfd):
    """None of these functions prints anything."""
    yield
    assert capfd.readouterr() == ("", "")


def filled_up(text: bytes) -> tuple[int, bytes]:
    return 0, text.ljust(128, b"\0")


# An alias to a switch identifier


@pytest.mark.parametrize("function", ["DVSAliasToSwitchId", "DVSAliasToPortsetName"])
@pytest.mark.parametrize("alias", [b"dvs-2", b"dvs-", b"dvs-10", b"DVS-1", b"", b"\xff\xfe"])
def test_unknown_alias_leaves_the_output_untouched(resolve, double, function, alias):
    double.add_switch("dvs-1")
    assert resolve(function, alias) == (NOT_FOUND, None)
    assert double.calls() == [Call("DVSState_SwitchFindByAlias", alias=alias.decode("utf-8", "surrogateescape"))]


def test_identifier_by_way_of_alias_and_class(resolve, double):
    double.add_switch("dvs-1", id="id-1")
    double.add_switch("dvs-2", id="id-2", host={PORTSET: "portset-2"}, global_={ALIAS: "dvs-2"})
    assert resolve("DVSAliasToSwitchId", b"dvs-2") == (0, b"id-2".ljust(64, b"\0"))
    assert double.calls() == [
        Call("DVSState_SwitchFindByAlias", alias="dvs-2"),
        Call("DVS_ClassName", dvs="dvs-2"),
        Call("DVS_SwitchId", dvs="dvs-2"),
    ]


@pytest.mark.parametrize("alias", [b"", b"\xff\xfe", "dvs-\u00e9".encode(), b"x" * 5000, b"%s%n"])
def test_any_text_is_an_alias(resolve, double, alias):
    double.add_switch(alias, id="id-1")
    assert resolve("DVSAliasToSwitchId", alias) == (0, b"id-1".ljust(64, b"\0"))
    assert resolve("DVSAliasToPortsetName", alias) == filled_up(b"id-1")


@pytest.mark.parametrize("class_name", ["vswitch2", "vswitch-", "vswitc", "VSWITCH", "vswitch ", " vswitch", "x", ""])
def test_another_class_has_no_identifier_but_a_portset_name(resolve, double, class_name):
    double.add_switch("dvs-1", id="id-1", class_name=class_name, host={PORTSET: "portset-1"})
    assert resolve("DVSAliasToSwitchId", b"dvs-1") == (BAD_PARAMETER, None)
    assert resolve("DVSAliasToPortsetName", b"dvs-1") == filled_up(b"portset-1")
    assert double.ops().count("DVS_ClassName") == 1  # the second one does not look at the class


def test_exactly_64_bytes_are_copied_past_the_end_of_a_short_identifier(resolve, double):
    double.add_switch("dvs-1", id=b"id-1\0" + bytes(range(5, 64)))
    assert resolve("DVSAliasToSwitchId", b"dvs-1") == (0, b"id-1\0" + bytes(range(5, 63)) + b"\0")


@pytest.mark.parametrize("length", [62, 63, 64, 65, 200])
def test_identifier_ends_at_its_64th_byte(resolve, double, length):
    identifier = bytes(1 + i % 255 for i in range(length))
    double.add_switch("dvs-1", id=identifier)
    assert resolve("DVSAliasToSwitchId", b"dvs-1") == (0, identifier[:63].ljust(64, b"\0"))


# An alias to a portset name


@pytest.mark.parametrize(
    "host, global_, name, look_ups",
    [
        ({PORTSET: "portset-1"}, {ALIAS: "alias-1"}, b"portset-1", ["DVSState_HostPropLookup"]),
        ({}, {ALIAS: "alias-1"}, b"alias-1", ["DVSState_HostPropLookup", "DVSState_GlobalPropLookup"]),
        ({}, {}, b"id-1", ["DVSState_HostPropLookup", "DVSState_GlobalPropLookup"]),
        # Empty texts are found; the keys are those of the one kind of property each
        ({PORTSET: ""}, {ALIAS: "alias-1"}, b"", ["DVSState_HostPropLookup"]),
        ({}, {ALIAS: ""}, b"", ["DVSState_HostPropLookup", "DVSState_GlobalPropLookup"]),
        (
            {ALIAS: "host-alias"},
            {PORTSET: "global-portset"},
            b"id-1",
            ["DVSState_HostPropLookup", "DVSState_GlobalPropLookup"],
        ),
    ],
)
def test_portset_name_falls_back_to_the_alias_then_to_the_identifier(resolve, double, host, global_, name, look_ups):
    double.add_switch("dvs-1", id="id-1", host=host, global_=global_)
    assert resolve("DVSAliasToPortsetName", b"dvs-1") == filled_up(name)
    keys = {"DVSState_HostPropLookup": PORTSET, "DVSState_GlobalPropLookup": ALIAS}
    assert [call for call in double.calls() if call.op.endswith("Lookup")] == [
        Call(op, switchId="id-1", key=keys[op]) for op in look_ups
    ]


@pytest.mark.parametrize("status", [1, NOT_FOUND, BAD_PARAMETER, 0x80000000, 0xFFFFFFFF])
def test_any_status_of_a_look_up_counts_as_not_found(resolve, double, status):
    double.add_switch("dvs-1", id="id-1", host={PORTSET: "portset-1"}, global_={ALIAS: "alias-1"})
    double.answer("DVSState_HostPropLookup", status=status)
    assert resolve("DVSAliasToPortsetName", b"dvs-1") == filled_up(b"alias-1")
    assert resolve("DVSPortsetNameToAlias", b"portset-1") == filled_up(b"")
    double.answer("DVSState_GlobalPropLookup", status=status)
    assert resolve("DVSAliasToPortsetName", b"dvs-1") == filled_up(b"id-1")
    double.answer("DVSState_HostPropLookup", status=0)
    assert resolve("DVSPortsetNameToAlias", b"portset-1") == filled_up(b"portset-1")


@pytest.mark.parametrize("length", [0, 1, 126, 127, 128, 129, 300])
@pytest.mark.parametrize("source", ["portset", "alias", "identifier"])
def test_portset_name_is_filled_up_with_nuls_and_unterminated_from_128_bytes(resolve, double, source, length):
    name = bytes(1 + i % 255 for i in range(length))
    double.add_switch(
        "dvs-1",
        id=name if source == "identifier" else "id-1",
        host={PORTSET: name + b"\0"} if source == "portset" else {},
        global_={ALIAS: name + b"\0"} if source == "alias" else {},
    )
    expected = name[:64] if source == "identifier" else name[:128]  # an identifier has 64 bytes, whether or not a NUL
    assert resolve("DVSAliasToPortsetName", b"dvs-1") == (0, expected.ljust(128, b"\0"))


def test_what_follows_the_end_of_a_portset_name_is_not_copied(resolve, double):
    double.add_switch("dvs-1", host={PORTSET: b"portset\0tail\0"})
    assert resolve("DVSAliasToPortsetName", b"dvs-1") == filled_up(b"portset")


@pytest.mark.parametrize("source", ["portset", "alias"])
@pytest.mark.parametrize("length", [1, 126, 127, 128, 129, 300])
def test_property_text_without_nul_ends_where_the_property_does(resolve, double, source, length):
    name = bytes(1 + i % 255 for i in range(length))
    double.add_switch("dvs-1", host={PORTSET: name} if source == "portset" else {}, global_={ALIAS: name})
    assert resolve("DVSAliasToPortsetName", b"dvs-1") == (0, name[:128].ljust(128, b"\0"))


@pytest.mark.parametrize(
    "length, text",
    [
        (1, b"p"),
        (7, b"portset"),
        (8, b"portset-"),
        (9, b"portset-1"),
        (10, b"portset-1"),
        (0xFFFFFFFF, b"portset-1"),  # the NUL comes first
        (0, b"portset-1"),  # a length of 0 says nothing of a text that is there
    ],
)
def test_property_text_ends_at_its_nul_or_at_the_reported_length(resolve, double, length, text):
    double.add_switch("dvs-1", host={PORTSET: "portset-1"})
    double.answer("DVSData_Data", length=length)
    assert resolve("DVSAliasToPortsetName", b"dvs-1") == filled_up(text)


# A portset name to an alias


@pytest.mark.parametrize("name", [None, b""])
def test_no_name_is_a_bad_parameter(resolve, double, name):
    double.add_switch("dvs-1", host={PORTSET: ""}, global_={ALIAS: "alias-1"})
    assert resolve("DVSPortsetNameToAlias", name) == (BAD_PARAMETER, None)
    assert double.calls() == []


@pytest.mark.parametrize(
    "switches", [[], [("dvs-1", {}, {ALIAS: "alias-1"})], [("dvs-1", {PORTSET: "portset-1"}, {ALIAS: "alias-1"})]]
)
def test_unknown_portset_name_gives_all_zeros(resolve, double, switches):
    for alias, host, global_ in switches:
        double.add_switch(alias, host=host, global_=global_)
    assert resolve("DVSPortsetNameToAlias", b"portset-2") == (0, bytes(128))
    assert double.ops().count("DVSState_SwitchForEach") == 1
    assert double.calls()[0] == Call("DVSState_SwitchForEach", contextIsNull=0)


def test_alias_of_a_portset_name(resolve, double):
    double.add_switch("dvs-1", id="id-1", host={PORTSET: "portset-1"}, global_={ALIAS: "alias-1"})
    double.add_switch("dvs-2", id="id-2", global_={ALIAS: "alias-2"})
    double.add_switch(
        "dvs-3", id="id-3", host={PORTSET: "portset-3"}, global_={ALIAS: "alias-3"}, class_name="not looked at"
    )
    assert resolve("DVSPortsetNameToAlias", b"portset-3") == filled_up(b"alias-3")
    assert [call for call in double.calls() if call.op.endswith("Lookup")] == [
        Call("DVSState_HostPropLookup", switchId="id-1", key=PORTSET),
        Call("DVSState_HostPropLookup", switchId="id-2", key=PORTSET),
        Call("DVSState_HostPropLookup", switchId="id-3", key=PORTSET),
        Call("DVSState_GlobalPropLookup", switchId="id-3", key=ALIAS),
    ]


@pytest.mark.parametrize(
    "portset, wanted, matches",
    [
        ("portset-1", b"portset-10", True),
        ("portset-10", b"portset-1", False),
        ("portset-1", b"Portset-1", False),
        ("portset-1", b"xportset-1", False),
        ("p", b"portset-1", True),
        ("", b"anything", True),
        ("\u00e9", "\u00e9-1".encode(), True),
        ("%s", b"%s%n", True),
        ("portset" * 100, b"portset" * 100 + b"-1", True),
    ],
)
def test_prefix_match(resolve, double, portset, wanted, matches):
    double.add_switch("dvs-1", host={PORTSET: portset}, global_={ALIAS: "alias-1"})
    assert resolve("DVSPortsetNameToAlias", wanted) == filled_up(b"alias-1" if matches else b"")


@pytest.mark.parametrize(
    "portset, wanted, matches",
    [
        (b"portset-1", b"portset-10", True),
        (b"portset-10", b"portset-1", False),
        (b"portset-1", b"portset-2", False),
        (b"x" * 300, b"x" * 301, True),
    ],
)
def test_prefix_match_of_a_portset_name_without_nul(resolve, double, portset, wanted, matches):
    double.add_switch("dvs-1", host={PORTSET: portset}, global_={ALIAS: b"alias-1"})
    assert resolve("DVSPortsetNameToAlias", wanted) == filled_up(b"alias-1" if matches else b"")


def test_prefix_match_is_over_the_reported_length(resolve, double):
    double.add_switch("dvs-1", host={PORTSET: "portset-1"}, global_={ALIAS: "alias-1"})
    double.answer("DVSData_Data", length=7)
    assert resolve("DVSPortsetNameToAlias", b"portset-2") == filled_up(b"alias-1")


@pytest.mark.parametrize("length", [1, 127, 128, 129, 300])
def test_long_alias_without_nul_is_cut_at_128(resolve, double, length):
    alias = bytes(1 + i % 255 for i in range(length))
    double.add_switch("dvs-1", host={PORTSET: "portset-1"}, global_={ALIAS: alias})
    assert resolve("DVSPortsetNameToAlias", b"portset-1") == (0, alias[:128].ljust(128, b"\0"))


@pytest.mark.parametrize("length", [64, 65, 200])
def test_identifier_of_64_bytes_without_nul_is_looked_up_whole(resolve, double, length):
    identifier = bytes(1 + i % 255 for i in range(length))
    double.add_switch("dvs-1", id=identifier, host={PORTSET: "portset-1"}, global_={ALIAS: "alias-1"})
    assert resolve("DVSPortsetNameToAlias", b"portset-1") == filled_up(b"alias-1")
    assert resolve("DVSAliasToPortsetName", b"dvs-1") == filled_up(b"portset-1")


@pytest.mark.parametrize("length", [1, 127, 128, 129, 300])
def test_long_alias_is_cut_at_128(resolve, double, length):
    alias = bytes(1 + i % 255 for i in range(length))
    double.add_switch("dvs-1", host={PORTSET: "portset-1"}, global_={ALIAS: alias + b"\0"})
    assert resolve("DVSPortsetNameToAlias", b"portset-1") == (0, alias[:128].ljust(128, b"\0"))


@pytest.mark.parametrize("length", [1, 126, 127, 128, 300])
def test_without_an_alias_it_is_the_wanted_name_bounded_and_terminated(resolve, double, length):
    wanted = b"portset-1" + b"%" * length
    double.add_switch("dvs-1", host={PORTSET: "portset-1"})
    assert resolve("DVSPortsetNameToAlias", wanted) == filled_up(wanted[:127])


def test_empty_alias_is_found_and_copies_nothing(resolve, double):
    double.add_switch("dvs-1", host={PORTSET: "portset-1"}, global_={ALIAS: ""})
    assert resolve("DVSPortsetNameToAlias", b"portset-1") == filled_up(b"")


# Several switches match: the alias of each, None without the property
@pytest.mark.parametrize(
    "visit_all, aliases, alias",
    [
        (False, ["first-alias", "second"], b"first-alias"),  # the iteration stops
        (True, ["first-alias", "second"], b"secondalias"),  # no terminator is copied: the tail of the earlier one
        (True, ["first", "second-alias"], b"second-alias"),
        (True, ["first-alias", "second", "3rd"], b"3rdondalias"),
        (True, ["first-alias", ""], b"first-alias"),
        (True, ["a-long-first-alias", None], b"portset-1"),  # the wanted name is written with its terminator
        (True, [None, "2nd"], b"2ndtset-1"),  # the tail of the wanted name
        (True, ["x" * 200, "2nd"], b"2nd" + b"x" * 125),
        (True, ["a-long-first-alias", None, "3rd"], b"3rdtset-1"),
        (True, ["a-long-first-alias", None, "3rd-alias!"], b"3rd-alias!st-alias"),  # over the wanted name's terminator
    ],
)
def test_later_match_leaves_the_tail_of_a_longer_earlier_one(resolve, double, visit_all, aliases, alias):
    for number, text in enumerate(aliases):
        double.add_switch(
            f"dvs-{number}",
            id=f"id-{number}",
            host={PORTSET: "portset-1"},
            global_={} if text is None else {ALIAS: text},
        )
    double.visit_all(visit_all)
    assert resolve("DVSPortsetNameToAlias", b"portset-1") == filled_up(alias)
    assert double.ops().count("DVSState_HostPropLookup") == (len(aliases) if visit_all else 1)


def test_iteration_goes_on_past_switches_that_do_not_match(resolve, double):
    for number, portset in enumerate(["other", "portset-1", "other"]):
        double.add_switch(
            f"dvs-{number}", id=f"id-{number}", host={PORTSET: portset}, global_={ALIAS: f"alias-{number}"}
        )
    assert resolve("DVSPortsetNameToAlias", b"portset-1") == filled_up(b"alias-1")
    assert double.ops().count("DVSState_HostPropLookup") == 2
    double.visit_all()
    assert resolve("DVSPortsetNameToAlias", b"portset-1") == filled_up(b"alias-1")  # found stays found


def test_searches_do_not_remember_each_other(resolve, double):
    double.add_switch("dvs-1", host={PORTSET: "portset-1"}, global_={ALIAS: "a-long-alias"})
    double.add_switch("dvs-2", id="id-2", host={PORTSET: "other"}, global_={ALIAS: "short"})
    assert resolve("DVSPortsetNameToAlias", b"portset-1") == filled_up(b"a-long-alias")
    assert resolve("DVSPortsetNameToAlias", b"other") == filled_up(b"short")
    assert resolve("DVSPortsetNameToAlias", b"none") == filled_up(b"")


# A library that returns null instead of a text: nothing is found


def test_switch_without_a_class(resolve, double):
    double.add_switch("dvs-1", id="id-1")
    double.answer("DVS_ClassName", status=1)
    assert resolve("DVSAliasToSwitchId", b"dvs-1") == (BAD_PARAMETER, None)


def test_switch_without_an_identifier(resolve, double):
    double.add_switch("dvs-1", id="id-1", host={PORTSET: "portset-1"})
    double.answer("DVS_SwitchId", status=1)
    assert resolve("DVSAliasToSwitchId", b"dvs-1") == (0, bytes(64))
    assert resolve("DVSAliasToPortsetName", b"dvs-1") == filled_up(b"")
    assert resolve("DVSPortsetNameToAlias", b"portset-1") == filled_up(b"")


def test_properties_without_bytes(resolve, double):
    double.add_switch("dvs-1", host={PORTSET: "portset-1"}, global_={ALIAS: "alias-1"})
    double.answer("DVSData_Data", status=1)
    assert resolve("DVSAliasToPortsetName", b"dvs-1") == filled_up(b"")
    assert resolve("DVSPortsetNameToAlias", b"portset-1") == filled_up(b"")


# Distributed ports


@pytest.mark.parametrize("found", [False, True])
def test_port_exists_hands_its_arguments_on(native, double, found):
    function = native["DVPortExist"]
    function.argtypes, function.restype = 6 * [ctypes.c_size_t], ctypes.c_int
    double.find_port(found)
    arguments = 0, 1, 0x7FFFFFFF, 0xFFFFFFFF, 1 << 63, (1 << 64) - 1
    assert function(*arguments) == int(found)
    assert double.calls() == [Call("DVSState_PortFind", **dict(zip("abcdef", arguments)))]
