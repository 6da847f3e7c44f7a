"""Names of a description and the numbers that stand for them in the store."""

from __future__ import annotations

from typing import Mapping

WEIGHTS = (
    "cross_numa_communication",
    "cross_numa_migration",
    "cross_lcore_communication",
    "cross_lcore_migration",
    "vm_affinity",
    "device_affinity",
    "stability_decay",
    "port_count",
)
DEFAULT_WEIGHTS = (10, 20, 4, 8, 6, 12, 2, 1)

METRICS = {"none": 0, "cpu": 1, "count": 2}
KINDS = {"VNIC": 1, "UPLINK": 2, "GENERIC": 3, "QOBNIC": 4}
UPLINK = KINDS["UPLINK"]
TX_TYPES = {"None": 0, "Single": 1, "LAG": 2, "SrcMAC": 3, "All": 4, "NoTeaming": 5}
FILTERS = {"UNICAST": 1, "MULTICAST": 2, "ALLMULTI": 4, "BROADCAST": 8, "PROMISC": 16, "USE_LADRF": 32}
MIRROR_FLAGS = {"noInput": 1, "noOutput": 2, "vlanEncap": 4, "OrigVlan": 8}
DELIVERIES = ("unicast", "multicast", "broadcast")
PROTOCOLS = {"icmp": 1, "tcp": 6, "udp": 17, "icmp6": 58}

# As the flow table's text names them.
ACTIONS = {
    "KCPInputChildPort": 2,
    "LRO": 3,
    "IPFIX Ingress": 4,
    "DROP": 5,
    "DFW on srcPort": 6,
    "DP": 7,
    "SP": 8,
    "VI": 10,
    "VR": 11,
    "PI": 12,
    "PR": 13,
    "GVLAN Insert": 16,
    "VDR": 18,
    "VNI": 20,
    "ENCAP VNI": 21,
    "DECAP": 22,
    "GVLAN Remove": 23,
    "IPFIX Egress": 26,
    "DFW on dstPort": 27,
    "KCPOutputVLAN": 28,
}

FPO_LEVELS = {"none": 0, "Model 1 Level 1": 1, "Model 1 Level 2": 2, "Model 2": 3}
FPO_LIMITS = ("groups", "priorities", "mark_bits", "flows", "counters", "key_bits", "dec_ttl", "actions")
# What a NIC of each level offers unless its description says otherwise: this simulation's own choice.
FPO_DEFAULTS = {
    0: (0, 0, 0, 0, 0, 0, 0, 0),
    1: (2, 2, 16, 2048, 1024, 296, 0, 0x1F),
    2: (4, 4, 24, 8192, 8192, 512, 0, 0x7FF),
    3: (8, 16, 32, 65536, 65536, 640, 1, 0x3FFFF),
}

PORTSET = "com.talvor.common.host.portset"
ALIAS = "com.talvor.common.alias"
MARKER = "com.talvor.extraconfig.opaqueDvs.ryn"
STORED_BALANCER = "com.talvor.kiv.ryn.loadbal"
STORED_TEAMING = "com.talvor.kiv.ryn.teaming"
STORED_BURST = "com.talvor.kiv.ryn.burstsize"
STORED_FPO = "com.talvor.kiv.ryn.fpo"
UPLINK_RING = "com.talvor.extraconfig.opqueDvs.ryn.uplinkRing"

FAULT_ARGUMENTS = ("sw", "port", "lcore", "scope", "key", "switch", "dvport", "alias", "device")
CORRUPTIONS = ("zero", "ones", "random", "half")

# The operations of the two libraries, for faults and for `info`.
OPERATIONS = """
Ryn_Get_Switch_List Ryn_Get_Port_List Ryn_Get_Port_Stats Ryn_Get_Port_Stats_Slowpath Ryn_Get_Port_Conf
Ryn_Migrate_Port Ryn_Unpin_Port Ryn_Reset_Port Ryn_GetLRO Ryn_SetLRO Ryn_Dump_Port_MAC_Table Ryn_Clear_Port_MAC_Table
Ryn_Dump_Switch_MAC_Table Ryn_Clear_Switch_MAC_Table Ryn_MAC_Entry_Ops Ryn_Dump_Flow_Table Ryn_Get_Flow_Stats
Ryn_Clear_Switch_Flow_Table Ryn_Enable_Switch_Flow_Cache Ryn_Get_Flow_Timeout Ryn_Set_Flow_Timeout Ryn_Get_FPO_Stats
Ryn_Get_FPO_Uplink_Status Ryn_Get_Port_Tx_Uplink Ryn_Set_Port_Tx_Uplink Ryn_Get_Mirror_Conf
Ryn_Get_Uplink_Priv_Stats_Len Ryn_Get_Uplink_Priv_Stats Ryn_Get_Uplink_Stats Ryn_Get_Uplink_Queue_Stats
Ryn_Set_Uplink_MAC_Learn Ryn_Get_Panic_On_Tx_Hang Ryn_Set_Panic_On_Tx_Hang Ryn_Get_Port_NetQ_Info Ryn_List_Dev_Affinity
Ryn_Set_Dev_Affinity Ryn_GetLBWeights Ryn_SetLBWeights Ryn_ResetLBWeights Ryn_GetCurrentLBData Ryn_DumpLBSnapshot
Ryn_Dump_LB_PortStats Ryn_GetSwitchNUMATeam Ryn_GetSwitchBurstSize Ryn_Get_LCore_ID_Bitmap Ryn_Init_Mbuf_Fastslabs
DVSState_ConfigReset DVSQOB_StateGet DVSState_ConfigDeserialize DVSState_SwitchFindByAlias DVSState_SwitchForEach
DVS_ClassName DVS_SwitchId DVSState_HostPropLookup DVSState_GlobalPropLookup DVSState_GlobalPropForEach DVSData_Name
DVSData_Data DVSState_PortFind DVSQOB_HostPropGet DVSQOB_HostPropSet DVSQOB_PortDataGet DVSQOB_PortDataSet
DVSQOB_DataFree
""".split()
CANNOT_FAIL = "DVSQOB_DataFree"


def name_of(table: Mapping[str, int], number: int) -> str | int:
    """The name that stands for a number, or the number itself."""
    for name, value in table.items():
        if value == number:
            return name
    return number
