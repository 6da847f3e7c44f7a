"""Names: which switch a number or a text stands for, and which port."""

import pytest
from platform_script import PORTS, PortLine, port_list

import ryn


def test_configuration_and_datapath_are_joined_by_the_portset_name(host):
    (switch,) = host.switches()
    assert (switch.number, switch.name, switch.alias, switch.id) == (3, "dvs-1-set", "dvs-1", "id-1")
    assert (switch.mtu, switch.max_ports, switch.active_ports, switch.port_count) == (9000, 128, 2, 3)
    assert switch.cores == (0, 2, 63)
    assert str(switch) == "dvs-1"


def test_names_are_matched_whole(host, platform):
    platform.datapath(("dvs-1-set0", 0), ("dvs-1-se", 1), ("xdvs-1-set", 2))
    assert [(s.number, s.alias) for s in host.switches()] == [(0, None), (1, None), (2, None), (None, "dvs-1")]


@pytest.mark.parametrize(
    "portset, alias, name", [("p", "a", "p"), (None, "a", "a"), (None, None, "id-2"), ("", "a", "")]
)
def test_portset_else_alias_else_identifier_is_the_datapaths_name(host, platform, portset, alias, name):
    platform.configure(alias, "id-2", portset)
    platform.datapath(("dvs-1-set", 3), (name, 4))
    switch = host.switch(4)
    assert (switch.name, switch.alias, switch.id) == (name, alias, "id-2")


def test_a_switch_that_only_the_configuration_knows_has_no_number(host, platform):
    platform.configure("dvs-9", "id-9", "dvs-9-set")
    switch = host.switch("dvs-9")
    assert (switch.number, switch.name, switch.mtu, switch.max_ports, switch.cores) == (
        None,
        "dvs-9-set",
        None,
        None,
        None,
    )
    assert (switch.ports(), switch.uplinks()) == ([], [])
    with pytest.raises(ryn.NotFound, match="the datapath does not know switch dvs-9"):
        switch.macs()
    with pytest.raises(ryn.NotFound):
        host.port("dvs-9/0")


def test_a_switch_that_the_configuration_does_not_know_has_no_alias(host, platform):
    platform.datapath(("other", 5))
    switch = host.switch("other")
    assert (switch.number, switch.alias, switch.id, str(switch)) == (5, None, None, "other")
    with pytest.raises(ryn.NotFound, match="no settings"):
        switch.fpo


def test_a_text_is_an_alias_else_a_name_else_digits(host, platform):
    platform.configure("x", "id-x", "name-of-4")
    platform.configure("6", "id-6", "name-of-5")
    platform.datapath(("dvs-1-set", 3), ("name-of-4", 4), ("name-of-5", 5), ("x", 6), ("4", 7))
    assert host.switch("x").number == 4  # an alias before a name
    assert host.switch("6").number == 5  # an alias before digits
    assert host.switch("4").number == 7  # a name before digits
    assert host.switch("3").number == 3
    assert host.switch("name-of-5").number == 5
    assert host.switch(6).number == 6  # an int is a number


@pytest.mark.parametrize("which", ["dvs", "dvs-11", "", " 3", "+3", "\u0663", "9", 9, -1])
def test_what_is_not_there_is_not_found(host, which):
    with pytest.raises(ryn.NotFound) as caught:
        host.switch(which)
    assert (caught.value.operation, caught.value.arguments, caught.value.status) == (None, None, None)
    assert repr(which) in str(caught.value)


@pytest.mark.parametrize("which", [None, 3.0, b"dvs-1", ["dvs-1"]])
def test_what_is_neither_a_number_nor_a_text_is_a_type_error(host, which):
    with pytest.raises(TypeError):
        host.switch(which)


def test_two_matches_in_one_step_are_ambiguous_and_both_are_named(host, platform):
    platform.configure("dvs-1", "id-twin", "twin-set")
    with pytest.raises(ryn.Ambiguous) as caught:
        host.switch("dvs-1")
    assert "'id-1'" in str(caught.value) and "'id-twin'" in str(caught.value)
    assert host.switch("dvs-1-set").id == "id-1"  # the next step has one


def test_two_switches_of_the_configuration_may_claim_one_of_the_datapath(host, platform):
    platform.configure("rival", "id-2", "dvs-1-set")
    with pytest.raises(ryn.Ambiguous, match="'dvs-1'.*'rival'"):
        host.switch(3)
    assert host.switch("rival").number == 3
    assert len(host.counters()) == len(PORTS)  # each port once


def test_texts_that_are_not_utf_8_survive(host, platform):
    name = b"net-\xff".decode("utf-8", "surrogateescape")
    platform.datapath((name, 3))
    assert host.switch(name).name == name


def test_a_port_is_cut_off_at_the_last_slash(host, platform):
    platform.configure("rack/2", "id-2", "rack-set")
    platform.datapath(("dvs-1-set", 3), ("rack-set", 4))
    port = host.port("rack/2/7")
    assert (port.number, port.switch.alias, str(port)) == (7, "rack/2", "rack/2/7")


def test_a_port_is_its_number_and_never_its_distributed_number(host):
    assert host.port("dvs-1/1").dvport == 11
    with pytest.raises(ryn.NotFound, match="no port 11 on switch dvs-1"):
        host.port("dvs-1/11")


@pytest.mark.parametrize("which", ["dvs-1/99", "dvs-1/128", "dvs-1/4294967297", "dvs-2/1", "/1"])
def test_a_port_that_is_not_there_is_not_found(host, which):
    with pytest.raises(ryn.NotFound):
        host.port(which)


@pytest.mark.parametrize("which", ["dvs-1", "dvs-1/", "dvs-1/x", "dvs-1/-1", "dvs-1/1.0", "dvs-1/ 1", ""])
def test_a_port_of_another_form_is_a_value_error(host, which):
    with pytest.raises(ValueError):
        host.port(which)


@pytest.mark.parametrize("which", [None, 3, b"dvs-1/1"])
def test_a_port_is_a_text(host, which):
    with pytest.raises(TypeError):
        host.port(which)


def test_what_a_port_is(host):
    uplink, vnic, odd = host.switch("dvs-1").ports()
    assert (vnic.number, vnic.dvport, vnic.kind, str(vnic.mac), vnic.mac_count) == (
        1,
        11,
        ryn.Kind.VNIC,
        "02:00:00:00:00:11",
        2,
    )
    assert (uplink.tx_cores, uplink.rx_cores, uplink.kind) == ((0, 2), (0, 2, 2), ryn.Kind.UPLINK)
    assert (str(odd.kind), int(odd.kind)) == ("UNKNOWN", 77)
    assert (str(vnic), vnic.switch.alias) == ("dvs-1/1", "dvs-1")
    assert [link.number for link in host.switch("dvs-1").uplinks()] == [0]


def test_objects_are_shown(host):
    switch = host.switch("dvs-1")
    assert (repr(switch), repr(switch.balancer)) == ("<ryn.Switch 3 dvs-1>", "<ryn.Balancer of dvs-1>")
    assert repr(switch.uplinks()[0]) == "<ryn.Uplink dvs-1/0>"


def test_ports_and_switches_are_equal_by_what_the_listing_gave(host, platform):
    one, two = host.port("dvs-1/1"), host.port("dvs-1/1")
    assert one == two and hash(one) == hash(two) and one is not two
    assert one != host.port("dvs-1/7")
    assert host.switch(3) == host.switch("dvs-1") and len({host.switch(3), host.switch("dvs-1")}) == 1
    platform.ports(PortLine(1, 11, mac=PORTS[1].mac, mac_count=9))
    assert host.port("dvs-1/1") != one
    assert (one == "dvs-1/1", host.switch(3) == 3) == (False, False)


# Where a port's record has what, in the second place of the listing
SECOND = 12 + 90


@pytest.mark.parametrize(
    "at, seen",
    [
        (0, True),  # the distributed port
        (4, True),  # the number
        (8, True),  # how many transmit queues
        (9, True),
        (15, True),  # the last byte of the address
        (16, True),  # how many addresses
        (18, True),  # the kind
        (22, False),  # nobody's
        (25, False),
        (26, True),  # the first transmit queue
        (27, False),  # the second, where there is one
        (57, False),
        (58, True),
        (59, False),
        (89, False),
    ],
)
def test_ports_are_told_apart_by_what_can_be_seen_of_them(host, platform, at, seen):
    port = host.port("dvs-1/1")
    area = port_list(*PORTS)
    area[SECOND + at] += 1
    platform.double.answer("Ryn_Get_Port_List", area=area)
    assert (host.switch("dvs-1").ports()[1] != port) == seen


@pytest.mark.parametrize("digits", ["9" * 641, "9" * 5000, "0" * 5000 + "3"])
def test_digits_without_an_end_are_no_number(host, digits):
    with pytest.raises(ryn.NotFound):
        host.switch(digits)
    with pytest.raises(ValueError, match="SWITCH/NUMBER"):
        host.port("dvs-1/" + digits)


def test_numbers_of_other_types_are_numbers(host):
    numpy = pytest.importorskip("numpy")
    assert host.switch("dvs-1").port(numpy.uint32(7)) == host.port("dvs-1/7")
    for wrong in (7.0, "7", None):
        with pytest.raises(TypeError):
            host.switch("dvs-1").port(wrong)


def test_cores_are_those_of_all_switches(host, platform):
    platform.double.answer("Ryn_Get_LCore_ID_Bitmap", area=(1 << 63 | 0b1001).to_bytes(8, "little"))
    assert host.cores == (0, 3, 63)
    platform.datapath()
    assert host.cores == ()
