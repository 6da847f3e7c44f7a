"""What one process sets, another one gets, and a later one as well."""

import pytest
import simulated

IDENTIFIER = "a91c20da-b05c-4387-a4701d270827"  # dvs-1's


@pytest.mark.parametrize(
    "setting, getting, expected",
    [
        (["SetPortLRO", 0, 5, 0], ["GetPortLRO", 0, 5], False),
        (["SetPortLRO", 0, 5, 7], ["GetPortLRO", 0, 5], True),
        (["SetSwitchLRO", 0, 0], ["GetSwitchLRO", 0], False),
        (["SetSwitchLRO", 1, 0], ["GetPortLRO", 1, 3], False),
        (
            ["SetPortTxUplink", 0, 5, {"txType": "LAG", "txUplinks": [1, 0]}],
            ["GetPortTxUplink", 0, 5],
            {"txType": "LAG", "txUplinks": [1, 0]},
        ),
        (
            ["SetPortTxUplink", 0, 5, {"txType": "None", "txUplinks": []}],
            ["GetPortTxUplink", 0, 5],
            {"txType": "None", "txUplinks": []},
        ),
        (["SetFlowTimeout", 33], ["GetFlowTimeout"], 33),
        (["SetPanicOnTxHang", 0, 1], ["GetPanicOnTxHang", 0], 1),
        (["SetUplinkRingSize", IDENTIFIER, "1000", 4096, 512], ["GetUplinkRingSize", IDENTIFIER, "1000"], [4096, 512]),
        (["SetSwitchNUMATeam", "dvs-1", 257], ["GetSwitchNUMATeam", "dvs-1"], True),
        (["SetSwitchBurstSize", "dvs-1", 8], ["GetSwitchBurstSize", "dvs-1"], 8),
        (["EnableFPO", "dvs-1", 7], ["GetFPOEnabled", "dvs-1"], 7),
        (["SetLBAlgorithm", "dvs-2", "count"], ["GetLBAlgorithm", "dvs-2"], "count"),
    ],
)
def test_a_setting_shows_in_another_process(host, setting, getting, expected):
    assert host.elsewhere(*getting) != expected or getting[0] == "GetPortLRO"
    getattr(host, setting[0])(*setting[1:])
    assert host.elsewhere(*getting) == expected
    late = simulated.Process(host.state)
    try:
        assert late.calls(host.state, [getting]) == [expected]
    finally:
        late.close()


def test_a_port_can_be_set_after_its_switch(host):
    host.SetSwitchLRO(0, 0)
    host.SetPortLRO(0, 5, 1)
    assert host.elsewhere("GetPortLRO", 0, 5) is True
    assert host.elsewhere("GetPortLRO", 0, 6) is False


def test_weights_are_set_and_reset(host):
    before = host.GetLBWeights()
    host.SetLBWeights(1, -1, 3, 4, 5, 6, 7, 4294967294)
    after = [row["weight"] for row in host.elsewhere("GetLBWeights")]
    assert after == [1, before[1]["weight"], 3, 4, 5, 6, 7, 4294967294]
    host.ResetLBWeights()
    assert host.elsewhere("GetLBWeights") == before


def test_the_balancers_options_come_from_the_datapath_until_they_are_set(host):
    before = host.GetLBParams("dvs-1")
    assert host.SetLBParams("dvs-1", 90, -1, -1, 3) is True
    after = host.elsewhere("GetLBParams", "dvs-1")
    assert [value for _, value in after] == [90, before[1][1], before[2][1], 3]
    # The datapath follows the property.
    words = bytes.fromhex(host.many([["=Ryn_GetCurrentLBData", "dvs-1-set", 128, {"out": 24}]])[0]["areas"][0])
    assert int.from_bytes(words[8:12], "little") == 90


def test_device_affinity_moves_the_uplinks_work(host):
    assert {"devname": "lunic0", "affinity": 0} in host.ListDevAffinity()
    host.SetDevAffinity("lunic0", 1)
    assert {"devname": "lunic0", "affinity": 1} in host.elsewhere("ListDevAffinity")
    uplink = host.elsewhere("ListPorts", 0)[0]
    assert set(uplink["txQLM"] + uplink["rxQLM"]) <= {8, 9, 10, 11}


def test_migrating_and_unpinning(host):
    host.MigratePort(0, 5, 11, 10, 1)
    port = next(port for port in host.elsewhere("ListPorts", 0) if port["rynPortID"] == 5)
    assert set(port["txQLM"]) == {11} and set(port["rxQLM"]) == {10}
    assert host.rows("SELECT pinned FROM port WHERE sw = 0 AND port = 5") == [(1,)]
    host.UnpinPort(0, 5, 0)
    assert host.rows("SELECT pinned FROM port WHERE sw = 0 AND port = 5") == [(0,)]


@pytest.mark.parametrize(
    "call, message",
    [
        (["MigratePort", 0, 5, 60, 60, 0], "Failed to migrate port.\n"),
        (["MigratePort", 0, 127, 0, 0, 0], "Failed to migrate port.\n"),
        (["UnpinPort", 9, 0, 0], "Failed to unpin port.\n"),
        (["ResetPort", 0, 126], "Failed to reset port.\n"),
        (["SetPortLRO", 0, 126, 1], "ValueError: Failed to set LRO.\n\n"),
        (["GetSwitchLRO", 9], "ValueError: Failed to get LRO.\n\n"),
        (["SetPortTxUplink", 0, 5, {"txType": "Single", "txUplinks": [5]}], "Failed to set port TX uplink.\n"),
        (["SetDevAffinity", "lunic9", 0], "ValueError: Failed to set device affinity.\n"),
        (["SetDevAffinity", "lunic0", 7], "ValueError: Failed to set device affinity.\n"),
        (["GetFPOUplinkStatus", 0, 5], "Failed to get FPO uplink status.\n"),
        (["GetUplinkQueueStats", 0, 0, 0, 31], "Failed to get uplink stats.\n"),
        (["ListPorts", 5], "Failed to retrieve list of ports.\n"),
        (["ClearSwitchFlowTable", 5], "Failed clear switch flow table\n"),
        (["GetUplinkRingSize", IDENTIFIER, "4"], "ValueError: Failed to read property data length.\n"),
        (["SetUplinkRingSize", "nothing", "1000", 32, 32], "ValueError: Failed to set port property.\n"),
    ],
)
def test_what_means_nothing_is_refused(host, call, message):
    assert host.complaint(*call) == message


def test_ring_sizes_before_they_are_set(host):
    assert host.GetUplinkRingSize(IDENTIFIER, "1001") == [2048, 1024]


def test_look_ups_answer_as_loaded_and_properties_as_they_are_now(host):
    host.apply(f"UPDATE dvs SET alias = 'renamed' WHERE switch_id = '{IDENTIFIER}'")
    assert host.GetFPOEnabled("dvs-1") == 1  # the old alias still leads to the switch
    host.apply(f"INSERT INTO prop VALUES ('host', '{IDENTIFIER}', '', 'com.talvor.kiv.ryn.fpo', x'05000000')")
    assert host.GetFPOEnabled("dvs-1") == 5
    late = simulated.Process(host.state)
    try:
        assert late.calls(host.state, [["GetFPOEnabled", "renamed"]]) == [5]
        late.send(host.state, [["GetFPOEnabled", "dvs-1"]])
        assert late.receive() == [None]
        assert late.stderr == "Failed to find dvs ID for dvs alias dvs-1.\n"
    finally:
        late.close()


def test_malformed_properties_are_kept_as_they_are(host):
    key = "com.talvor.kiv.ryn.loadbal"
    host.apply(f"INSERT INTO prop VALUES ('host', '{IDENTIFIER}', '', '{key}', x'01000000')")
    assert host.complaint("GetLBAlgorithm", "dvs-1") == f"Format of property {key} value is from unknown version.\n"


def test_fast_slabs(host):
    assert host.InitMbufFastslabs() is True
    assert host.rows("SELECT fastslabs FROM host") == [(1,)]
    host.apply("DELETE FROM prop WHERE key = 'com.talvor.extraconfig.opaqueDvs.ryn'")
    late = simulated.Process(host.state)
    try:
        assert late.calls(host.state, [["InitMbufFastslabs"]]) == [None]
    finally:
        late.close()
