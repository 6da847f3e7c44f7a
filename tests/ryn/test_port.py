"""What can be done with a port, and that nothing is sent to a number that is another port's now."""

import pytest
from harness import Bytes, u32
from platform_script import PORTS, PortLine

import ryn

MAC = "02:00:00:aa:bb:cc"
MAC_BYTES = bytes.fromhex("020000aabbcc")

CHANGES = {
    "lro": lambda port: setattr(port, "lro", True),
    "teaming": lambda port: setattr(port, "teaming", ("LAG", [0, 1])),
    "add_mac": lambda port: port.add_mac(MAC),
    "del_mac": lambda port: port.del_mac(MAC),
    "clear_macs": lambda port: port.clear_macs(),
    "migrate": lambda port: port.migrate(2, 2, 0),
    "unpin": lambda port: port.unpin(0),
    "reset": lambda port: port.reset(),
}
OPERATIONS = {
    "lro": "Ryn_SetLRO",
    "teaming": "Ryn_Set_Port_Tx_Uplink",
    "add_mac": "Ryn_MAC_Entry_Ops",
    "del_mac": "Ryn_MAC_Entry_Ops",
    "clear_macs": "Ryn_Clear_Port_MAC_Table",
    "migrate": "Ryn_Migrate_Port",
    "unpin": "Ryn_Unpin_Port",
    "reset": "Ryn_Reset_Port",
}


@pytest.fixture
def port(host, platform) -> ryn.Port:
    found = host.port("dvs-1/1")
    platform.double.forget_calls()
    return found


def readable(platform) -> None:
    """What is set reads back."""
    platform.double.answer("Ryn_GetLRO", area=u32(1))
    platform.double.answer("Ryn_Get_Port_Tx_Uplink", area=Bytes(18).u8(0, 2, 2).u16(2, 0, 1))


def test_every_change_is_here():
    assert set(CHANGES) == set(OPERATIONS)


@pytest.mark.parametrize("name", CHANGES)
def test_a_change_looks_first_and_then_reaches_the_port(port, platform, name):
    readable(platform)
    CHANGES[name](port)
    ops = platform.double.ops()
    assert ops[:2] == ["Ryn_Get_Port_List", OPERATIONS[name]]
    call = platform.double.calls()[1]
    assert (call.swID, call.rynPortID) == (3, 1)


@pytest.mark.parametrize(
    "now",
    [
        [],
        [PortLine(1, 12, mac=PORTS[1].mac)],
        [PortLine(1, 11, mac=b"\x02\x00\x00\x00\x00\x99")],
        [PortLine(2, 11, mac=PORTS[1].mac)],
    ],
    ids=["none", "another distributed port", "another address", "another number"],
)
@pytest.mark.parametrize("name", CHANGES)
def test_nothing_is_sent_to_a_port_that_is_gone(port, platform, name, now):
    platform.ports(*now)
    with pytest.raises(ryn.Gone) as caught:
        CHANGES[name](port)
    assert (caught.value.operation, caught.value.arguments, caught.value.status) == (None, None, None)
    assert "dvs-1/1" in str(caught.value)
    assert platform.double.ops() == ["Ryn_Get_Port_List"]


def test_a_port_of_a_switch_that_is_gone_is_gone(port, platform):
    platform.double.answer("Ryn_Get_Port_List", status=0x0BAD0003)
    with pytest.raises(ryn.Gone):
        port.reset()
    platform.double.answer("Ryn_Get_Port_List", status=5)
    with pytest.raises(ryn.PlatformError) as caught:
        port.reset()
    assert not isinstance(caught.value, ryn.Gone)


def test_what_else_has_changed_does_not_matter(port, platform):
    platform.ports(PortLine(1, 11, kind=3, mac=PORTS[1].mac, mac_count=9, tx_cores=(5, 6)))
    port.reset()
    assert platform.double.ops() == ["Ryn_Get_Port_List", "Ryn_Reset_Port"]


def test_a_port_keeps_what_the_listing_gave_until_it_is_refreshed(port, platform):
    platform.ports(PortLine(1, 11, mac=PORTS[1].mac, mac_count=9, tx_cores=(5, 6)))
    assert (port.mac_count, port.tx_cores) == (2, (0,))
    switch = port.switch
    assert port.refresh() is port
    assert (port.mac_count, port.tx_cores, port.switch is switch) == (9, (5, 6), True)
    platform.ports()
    with pytest.raises(ryn.Gone):
        port.refresh()
    assert port.mac_count == 9


# The arguments, and that wrong ones are refused before anything is called


def test_mac_entries_reach_the_switch_that_was_named(port, platform):
    port.add_mac("02-00-00-AA-BB-CC", vlan=100)
    port.del_mac(MAC_BYTES)
    calls = [call for call in platform.double.calls() if call.op == "Ryn_MAC_Entry_Ops"]
    assert [(c.swID, c.rynPortID, c.mac, c.vlanID, c.operation) for c in calls] == [
        (3, 1, MAC_BYTES, 100, 1),
        (3, 1, MAC_BYTES, 0, 0),
    ]


@pytest.mark.parametrize("method", ["add_mac", "del_mac"])
@pytest.mark.parametrize(
    "mac, vlan, error",
    [
        (MAC, -1, ValueError),
        (MAC, 4096, ValueError),
        (MAC, "100", TypeError),
        (MAC, None, TypeError),
        ("02:00:00:aa:bb", 0, ValueError),
        ("02:00:00:aa:bb:cg", 0, ValueError),
        (b"12345", 0, ValueError),
        ("02:00:00:*", 0, ValueError),
        (0x020000AABBCC, 0, TypeError),
        (None, 0, TypeError),
    ],
)
def test_bad_mac_entries(port, platform, method, mac, vlan, error):
    with pytest.raises(error):
        getattr(port, method)(mac, vlan=vlan)
    assert platform.double.calls() == []


def test_the_numbers_of_migrate_and_unpin_are_handed_over_as_they_are(port, platform):
    port.migrate(9, 0xFFFFFFFF, 0)
    port.unpin(7)
    migrate, unpin = (call for call in platform.double.calls() if call.op != "Ryn_Get_Port_List")
    assert (migrate.option1, migrate.option2, migrate.option3) == (9, 0xFFFFFFFF, 0)
    assert unpin.option == 7


@pytest.mark.parametrize(
    "work, error",
    [
        (lambda port: port.migrate(-1, 0, 0), ValueError),
        (lambda port: port.migrate(0, 1 << 32, 0), ValueError),
        (lambda port: port.migrate(0, 0, "0"), TypeError),
        (lambda port: port.unpin(-1), ValueError),
        (lambda port: port.unpin(None), TypeError),
        (lambda port: setattr(port, "lro", -1), ValueError),
        (lambda port: setattr(port, "lro", "on"), TypeError),
        (lambda port: setattr(port, "teaming", ("lag", [0])), ValueError),
        (lambda port: setattr(port, "teaming", ("Unknown", [0])), ValueError),
        (lambda port: setattr(port, "teaming", (2, [0])), TypeError),
        (lambda port: setattr(port, "teaming", ("LAG", range(9))), ValueError),
        (lambda port: setattr(port, "teaming", ("LAG", [1 << 16])), ValueError),
        (lambda port: setattr(port, "teaming", ("LAG", ["0"])), TypeError),
        (lambda port: setattr(port, "teaming", ("LAG",)), ValueError),
    ],
)
def test_bad_arguments_are_refused_before_anything_is_called(port, platform, work, error):
    with pytest.raises(error):
        work(port)
    assert platform.double.calls() == []


def test_teaming(port, platform):
    readable(platform)
    assert port.teaming == ("LAG", (0, 1))
    assert (port.teaming.type, port.teaming.uplinks) == ("LAG", (0, 1))
    port.teaming = ("LAG", [0, 1])
    port.teaming = port.teaming
    call = next(call for call in platform.double.calls() if call.op == "Ryn_Set_Port_Tx_Uplink")
    assert (call.txType, call.count, call.uplinks[:2]) == (2, 2, [0, 1])
    with pytest.raises(ryn.NotApplied):
        port.teaming = ("Single", [0])


def test_receive_offload_is_read_back(port, platform):
    readable(platform)
    port.lro = True
    call = platform.double.calls()[1]
    assert (call.scope, call.swID, call.rynPortID, call.state) == (0, 3, 1, 1)
    with pytest.raises(ryn.NotApplied):
        port.lro = False


def test_a_failed_operation_says_everything(port, platform):
    platform.double.answer("Ryn_Migrate_Port", status=0x0BAD0007)
    with pytest.raises(ryn.BadParameter) as caught:
        port.migrate(2, 2, 0)
    assert (caught.value.operation, caught.value.arguments) == ("Ryn_Migrate_Port", (3, 1, 2, 2, 0))
    assert caught.value.status == 0x0BAD0007
    assert str(caught.value) == "Ryn_Migrate_Port(3, 1, 2, 2, 0): bad parameter (status 0x0bad0007)"


def test_nothing_is_printed(port, platform, capfd):
    platform.double.answer("Ryn_Reset_Port", status=5)
    with pytest.raises(ryn.PlatformError):
        port.reset()
    assert capfd.readouterr() == ("", "")


def test_names_of_a_port(port):
    assert (repr(port), str(port)) == ("<ryn.Port dvs-1/1 VNIC 02:00:00:00:00:11>", "dvs-1/1")
    assert (str(port.key), port.key.dvport) == ("dvs-1-set/1", 11)
