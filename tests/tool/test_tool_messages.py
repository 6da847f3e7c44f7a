"""What a script's user reads when an operation of the platform fails: every operation is made to, with any status."""

import contextlib
import io
import json
import re
import shutil

import pytest
from ryn_sim import cli, names
from simtool import ROOT, Sim

NOT_FOUND = 0x0BAD0003
STATUSES = (1, 0x0BAD0001, NOT_FOUND, 0x0BAD0007, 0xFFFFFFFF)
KEY = "com.talvor.kiv.ryn."
LOADBAL, TEAMING, BURST, FPO = KEY + "loadbal", KEY + "teaming", KEY + "burstsize", KEY + "fpo"
RING = "com.talvor.extraconfig.opqueDvs.ryn.uplinkRing"
NO_SWITCH = "Failed to find dvs ID for dvs alias dvs-1.\n"
SWITCH_ID = "a91c20da-b05c-4387-a4701d270827"  # dvs-1's

# An operation, a call that reaches it, and what is then on the screen
FAILURES = [
    ("Ryn_Get_Switch_List", "ListSwitches()", "Failed to retrieve list of switches.\n"),
    ("Ryn_Get_Port_List", "ListPorts(0)", "Failed to retrieve list of ports.\n"),
    ("Ryn_Get_Port_Stats", "GetPortStats(0, 2)", "Failed to retrieve port stats.\n"),
    ("Ryn_Get_Port_Stats_Slowpath", "GetPortStats(0, 2)", "Failed to retrieve slowpath port stats.\n"),
    ("Ryn_Get_Port_Conf", "GetPortConf(0, 2)", "Failed to retrieve port conf.\n"),
    ("Ryn_Migrate_Port", "MigratePort(0, 2, 1, 1, 0)", "Failed to migrate port.\n"),
    ("Ryn_Unpin_Port", "UnpinPort(0, 2, 0)", "Failed to unpin port.\n"),
    ("Ryn_Reset_Port", "ResetPort(0, 2)", "Failed to reset port.\n"),
    ("Ryn_GetLRO", "GetPortLRO(0, 2)", "ValueError: Failed to get LRO.\n\n"),
    ("Ryn_GetLRO", "GetSwitchLRO(0)", "ValueError: Failed to get LRO.\n\n"),
    ("Ryn_SetLRO", "SetPortLRO(0, 2, 1)", "ValueError: Failed to set LRO.\n\n"),
    ("Ryn_SetLRO", "SetSwitchLRO(0, 1)", "ValueError: Failed to set LRO.\n\n"),
    ("Ryn_Dump_Port_MAC_Table", "ListPortMACTable(0, 2)", "Failed to retrieve mac table.\n"),
    ("Ryn_Clear_Port_MAC_Table", "ClearPortMACTable(0, 2)", "Failed to clear mac table.\n"),
    ("Ryn_Dump_Switch_MAC_Table", "ListSwitchMACTable(0)", "Failed to retrieve switch mac table.\n"),
    ("Ryn_Clear_Switch_MAC_Table", "ClearSwitchMACTable(0)", "Failed to clear mac table.\n"),
    ("Ryn_MAC_Entry_Ops", "AddMACEntry(0, 2, 0x554433221102, 5)", "Failed to add a MAC entry."),
    ("Ryn_MAC_Entry_Ops", "DelMACEntry(0, 2, 0x554433221102, 5)", "Failed to delete MAC entry.\n"),
    ("Ryn_Dump_Flow_Table", "DumpFlowTable(0, 1, 0, 0)", "Failed to retrieve flow table.\n\n"),
    ("Ryn_Get_Flow_Stats", "GetFlowStats(0, (), 0)", "Failed to retrieve flow stats.\n"),
    ("Ryn_Clear_Switch_Flow_Table", "ClearSwitchFlowTable(0)", "Failed clear switch flow table\n"),
    ("Ryn_Enable_Switch_Flow_Cache", "EnableSwitchFlowCache(0, 1)", "Failed to enable switch flow cache.\n"),
    ("Ryn_Enable_Switch_Flow_Cache", "EnableSwitchFlowCache(0, 0)", "Failed to disable switch flow cache.\n"),
    ("Ryn_Get_Flow_Timeout", "GetFlowTimeout()", "ValueError: Failed to get flow timeout.\n\n"),
    ("Ryn_Set_Flow_Timeout", "SetFlowTimeout(5)", "ValueError: Failed to set flow timeout.\n\n"),
    ("Ryn_Get_FPO_Stats", "GetFPOStats(0, ())", "Failed to retrieve flow stats.\n"),
    ("Ryn_Get_FPO_Uplink_Status", "GetFPOUplinkStatus(0, 0)", "Failed to get FPO uplink status.\n"),
    ("Ryn_Get_Port_Tx_Uplink", "GetPortTxUplink(0, 2)", "Failed to get port TX uplink.\n"),
    (
        "Ryn_Set_Port_Tx_Uplink",
        "SetPortTxUplink(0, 2, {'txType': 'LAG', 'txUplinks': []})",
        "Failed to set port TX uplink.\n",
    ),
    ("Ryn_Get_Mirror_Conf", "GetMirrorConf(0)", "Failed to Get port mirror conf.\n"),
    ("Ryn_Get_Uplink_Priv_Stats_Len", "GetUplinkStats(0, 0)", ""),  # the private text is then left out
    ("Ryn_Get_Uplink_Priv_Stats", "GetUplinkStats(0, 0)", "Failed to get private stats.\n"),
    ("Ryn_Get_Uplink_Stats", "GetUplinkStats(0, 0)", "Failed to get uplink stats.\n"),
    ("Ryn_Get_Uplink_Queue_Stats", "GetUplinkQueueStats(0, 0, 0, 0)", "Failed to get uplink stats.\n"),
    ("Ryn_Set_Uplink_MAC_Learn", "SetUplinkMACLearn(0, 1)", "Failed to set uplink mac learn policy.\n"),
    ("Ryn_Get_Panic_On_Tx_Hang", "GetPanicOnTxHang(0)", "Failed to get panic on Tx hang configuration.\n"),
    ("Ryn_Set_Panic_On_Tx_Hang", "SetPanicOnTxHang(0, 1)", "Failed to enable panic on Tx hang.\n"),
    ("Ryn_Set_Panic_On_Tx_Hang", "SetPanicOnTxHang(0, 0)", "Failed to disable panic on Tx hang.\n"),
    ("Ryn_Get_Port_NetQ_Info", "GetPortNetQInfo(0, 0)", "Failed to get uplink stats.\n"),
    ("Ryn_List_Dev_Affinity", "ListDevAffinity()", "ValueError: Failed to list device affinity.\n"),
    ("Ryn_Set_Dev_Affinity", "SetDevAffinity('lunic0', 0)", "ValueError: Failed to set device affinity.\n"),
    ("Ryn_GetLBWeights", "GetLBWeights()", "ValueError: Failed to get LB weight parameters.\n"),
    ("Ryn_GetLBWeights", "SetLBWeights(1, 1, 1, 1, 1, 1, 1, -1)", "ValueError: Failed to get LB weight parameters.\n"),
    ("Ryn_SetLBWeights", "SetLBWeights(1, 1, 1, 1, 1, 1, 1, 1)", "ValueError: Failed to set LB weight.\n"),
    ("Ryn_ResetLBWeights", "ResetLBWeights()", "ValueError: Failed to reset load balancer weights.\n"),
    ("Ryn_GetCurrentLBData", "GetLBParams('dvs-1')", ""),
    ("Ryn_GetCurrentLBData", "SetLBAlgorithm('dvs-1', 'cpu')", ""),
    ("Ryn_DumpLBSnapshot", "DumpLBSnapshot(0)", "ValueError: Failed to dump LB topology: 0x%x.\n"),
    ("Ryn_Dump_LB_PortStats", "DumpLBPortStats(0, 0, 127)", "ValueError: Failed to dump LB statistics.\n"),
    ("Ryn_GetSwitchNUMATeam", "GetSwitchNUMATeam('dvs-1')", ""),
    ("Ryn_GetSwitchBurstSize", "GetSwitchBurstSize('dvs-1')", ""),
    ("Ryn_Get_LCore_ID_Bitmap", "ListLCoreIDs(0)", "TypeError: Failed to get lcore ID bitmap.\n\n"),
    ("Ryn_Init_Mbuf_Fastslabs", "InitMbufFastslabs()", "TypeError: Failed to init RYN mbuf fastslabs.\n\n"),
    ("DVSState_SwitchFindByAlias", "GetFPOEnabled('dvs-1')", NO_SWITCH),
    ("DVS_ClassName", "GetFPOEnabled('dvs-1')", NO_SWITCH),
    ("DVSQOB_HostPropGet", "GetFPOEnabled('dvs-1')", f"Failed to get DVS property {FPO}\n"),
    ("DVSQOB_HostPropSet", "EnableFPO('dvs-1', 1)", f"Failed to set DVS property {FPO}\n"),
    ("DVSQOB_HostPropSet", "SetLBParams('dvs-1', 60, 40, 1, 1)", f"Failed to set DVS property {LOADBAL}\n"),
    ("DVSQOB_HostPropSet", "SetSwitchNUMATeam('dvs-1', 1)", f"Failed to set DVS property {TEAMING}\n"),
    ("DVSQOB_HostPropSet", "SetSwitchBurstSize('dvs-1', 1)", f"Failed to set DVS property {BURST}\n"),
    (
        "DVSQOB_PortDataGet",
        f"GetUplinkRingSize('{SWITCH_ID}', '1000')",
        "ValueError: Failed to read property data length.\n",
    ),
    (
        "DVSQOB_PortDataSet",
        f"SetUplinkRingSize('{SWITCH_ID}', '1000', 32, 32)",
        "ValueError: Failed to set port property.\n",
    ),
]
# That a property is not there is no failure.
NO_FAILURE = {"DVSQOB_HostPropGet", "DVSQOB_PortDataGet"}

# Operations that no method of its own reaches, or without a message: what comes of it
CONSEQUENCES = [
    ("DVSState_ConfigReset", "GetFPOEnabled('dvs-1')", NO_SWITCH, None),
    ("DVSQOB_StateGet", "GetFPOEnabled('dvs-1')", NO_SWITCH, None),
    ("DVSState_ConfigDeserialize", "GetFPOEnabled('dvs-1')", NO_SWITCH, None),
    ("DVS_SwitchId", "SetSwitchBurstSize('dvs-1', 9)", f"Failed to set DVS property {BURST}\n", None),
    ("DVSState_SwitchForEach", "InitMbufFastslabs()", "", None),
    ("DVSState_GlobalPropForEach", "InitMbufFastslabs()", "", None),
    ("DVSData_Name", "InitMbufFastslabs()", "", None),
    ("DVSData_Data", "GetSwitchBurstSize('dvs-1')", "", None),  # an empty portset name
    # Without its portset name the switch is looked for by its alias.
    ("DVSState_HostPropLookup", "GetSwitchBurstSize('dvs-1')", "", 32),
    ("DVSState_PortFind", "0 or __import__('ctypes').CDLL(r.__file__).DVPortExist(1000, 0, 0, 0, 0, 0)", "", 0),
]

SCRIPT = """
import json, os, sys
import _libryn as r
screen = os.memfd_create("screen")
terminal = os.dup(2)
os.dup2(screen, 2)
results = []
for line in sys.argv[1:]:
    begin = os.lseek(screen, 0, os.SEEK_CUR)
    try:
        value = eval(line if line[0] == "0" else "r." + line)
    except SystemError:  # the method answers nothing at all
        value = "SystemError"
    end = os.lseek(screen, 0, os.SEEK_CUR)
    results.append([value, os.pread(screen, end - begin, begin).decode()])
os.dup2(terminal, 2)
print(json.dumps(results))
"""


pytestmark = pytest.mark.usefixtures("built")


@pytest.fixture(scope="module")
def store(tmp_path_factory):
    sim = Sim(tmp_path_factory.mktemp("host"))
    sim("init")
    sim("clock", "freeze")
    return sim.path()


@pytest.fixture
def host(live, store):
    live.path().parent.mkdir(parents=True)
    shutil.copy(store, live.path())
    return live


def tool(host, *arguments) -> None:
    """The tool, without a process of its own."""
    with contextlib.redirect_stdout(io.StringIO()):
        assert cli.main([*map(str, arguments), "--state", str(host.path())]) == 0


def outcomes(host, *calls) -> list:
    """What each of these calls of a script answers, and what it shows on the screen."""
    done = host.process("run", "--", "/usr/bin/python3", "-c", SCRIPT, *calls)
    assert (done.returncode, done.stderr) == (0, "")
    return json.loads(done.stdout)


@pytest.mark.parametrize("operation, call, message", FAILURES)
def test_each_failure_is_seen_with_any_status(host, operation, call, message):
    for status in STATUSES:
        tool(host, "fault", "add", operation, "--status", hex(status), "--times", 1)
    for status, (value, screen) in zip(STATUSES, outcomes(host, *[call] * len(STATUSES))):
        if status == NOT_FOUND and operation in NO_FAILURE:
            assert (screen, value is not None) == ("", True)
        else:
            assert screen == (message % status if "%" in message else message)


@pytest.mark.parametrize("operation, call, message, value", CONSEQUENCES)
def test_each_failure_has_its_consequence(host, operation, call, message, value):
    (before,) = outcomes(host, call)
    assert before[1] == "" and (before != [value, message] or operation == "DVSState_HostPropLookup")
    tool(host, "fault", "add", operation)
    assert outcomes(host, call) == [[value, message]]
    assert operation in host("log")


def test_every_operation_can_fail():
    tested = {row[0] for row in FAILURES + CONSEQUENCES}
    # Asked only when a switch has no portset property; it has a test of its own below.
    assert tested | {"DVSState_GlobalPropLookup", names.CANNOT_FAIL} == set(names.OPERATIONS)
    declared = (ROOT / "platform" / "ryn.h").read_text() + (ROOT / "platform" / "jor_public.h").read_text()
    assert set(re.findall(r"\b((?:Ryn|DVS)\w*_\w+)\(", declared)) == set(names.OPERATIONS)


def test_a_switch_without_a_portset_name(host):
    tool(host, "set", f"switches.dvs-1.properties.host.{names.PORTSET}=null", "switches.dvs-1.alias=dvs-1")
    assert outcomes(host, "GetSwitchBurstSize('dvs-1')") == [[32, ""]]
    tool(host, "fault", "add", "DVSState_GlobalPropLookup")  # then by its identifier
    assert outcomes(host, "GetSwitchBurstSize('dvs-1')") == [[32, ""]]
    tool(host, "fault", "add", "DVSState_SwitchFindByAlias", "--after", 1)
    message = "Failed to get portset name from dvs dvs-1.\n"
    assert outcomes(host, "GetSwitchBurstSize('dvs-1')")[0][1] == message


@pytest.mark.parametrize(
    "key, size, calls",
    [
        (
            LOADBAL,
            24,
            (
                "GetLBParams('dvs-1')",
                "GetLBAlgorithm('dvs-1')",
                "SetLBParams('dvs-1', 1, 1, 1, 1)",
                "SetLBAlgorithm('dvs-1', 'cpu')",
            ),
        ),
        (TEAMING, 5, ("GetSwitchNUMATeam('dvs-1')",)),
        (BURST, 8, ("GetSwitchBurstSize('dvs-1')",)),
    ],
)
def test_malformed_properties(host, key, size, calls):
    for value, message in (
        ("01" + "00" * (size - 1), f"Format of property {key} value is from unknown version.\n"),
        ("00" * (size + 1), f"Property {key} value length is odd.\n"),
    ):
        tool(host, "set", f"switches.dvs-1.properties.host.{key}=hex:{value}")
        assert [screen for _, screen in outcomes(host, *calls)] == [message] * len(calls)


def test_malformed_single_values(host):
    tool(host, "set", f"switches.dvs-1.properties.host.{FPO}=hex:0001")
    assert outcomes(host, "GetFPOEnabled('dvs-1')") == [[None, f"Format of property {FPO} is invalid\n"]]
    tool(host, "set", f"switches.dvs-1.properties.ports={{'1000': {{{RING}: 'hex:00'}}}}")
    assert outcomes(host, f"GetUplinkRingSize('{SWITCH_ID}', '1000')") == [
        [None, "ValueError: Invalid property data length.\n"]
    ]


@pytest.mark.parametrize(
    "operation, call, corrupt, message",
    [
        ("Ryn_Dump_Flow_Table", "DumpFlowTable(0, 1, 0, 0)", "ones", "Invalid response returned.\n"),
        ("Ryn_Get_Mirror_Conf", "GetMirrorConf(0)", "ones", "Invalid response returned.\n"),
        ("Ryn_Get_Port_NetQ_Info", "GetPortNetQInfo(0, 0)", "ones", "Invalid response returned.\n"),
    ],
)
def test_answers_that_cannot_be(host, operation, call, corrupt, message):
    tool(host, "fault", "add", operation, "--corrupt", corrupt)
    assert outcomes(host, call) == [[None, message]]
