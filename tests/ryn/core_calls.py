"""Every call of ryn._core.Platform, with an operation that it makes, its arguments, and the size of the answer.

A call that makes two operations stands in two rows.
"""

from __future__ import annotations

from typing import NamedTuple


class CoreCall(NamedTuple):
    name: str
    op: str
    args: tuple
    size: int = 0  # of the operation's area in bytes; 0: it brings nothing back


CALLS = [
    CoreCall("switches", "Ryn_Get_Switch_List", (), 2568),
    CoreCall("cores", "Ryn_Get_LCore_ID_Bitmap", (0,), 8),
    CoreCall("port_counters", "Ryn_Get_Port_Stats", (0, 0), 128),
    CoreCall("port_counters", "Ryn_Get_Port_Stats_Slowpath", (0, 0), 128),
    CoreCall("port_config", "Ryn_Get_Port_Conf", (0, 0), 1272),
    CoreCall("port_macs", "Ryn_Dump_Port_MAC_Table", (0, 0), 327696),
    CoreCall("switch_macs", "Ryn_Dump_Switch_MAC_Table", (0,), 1310736),
    CoreCall("clear_port_macs", "Ryn_Clear_Port_MAC_Table", (0, 0)),
    CoreCall("clear_switch_macs", "Ryn_Clear_Switch_MAC_Table", (0,)),
    CoreCall("add_mac", "Ryn_MAC_Entry_Ops", (0, 0, b"\2\0\0\0\0\1", 5)),
    CoreCall("del_mac", "Ryn_MAC_Entry_Ops", (0, 0, b"\2\0\0\0\0\1", 5)),
    CoreCall("migrate", "Ryn_Migrate_Port", (0, 0, 1, 2, 3)),
    CoreCall("unpin", "Ryn_Unpin_Port", (0, 0, 1)),
    CoreCall("reset_port", "Ryn_Reset_Port", (0, 0)),
    CoreCall("port_lro", "Ryn_GetLRO", (0, 0), 4),
    CoreCall("set_port_lro", "Ryn_SetLRO", (0, 0, 1)),
    CoreCall("switch_lro", "Ryn_GetLRO", (0,), 4),
    CoreCall("set_switch_lro", "Ryn_SetLRO", (0, 1)),
    CoreCall("flow_stats", "Ryn_Get_Flow_Stats", (0, (1, 2)), 1544),
    CoreCall("fpo_stats", "Ryn_Get_FPO_Stats", (0, (1, 2)), 1800),
    CoreCall("clear_flows", "Ryn_Clear_Switch_Flow_Table", (0,)),
    CoreCall("set_flow_cache", "Ryn_Enable_Switch_Flow_Cache", (0, 1)),
    CoreCall("flow_timeout", "Ryn_Get_Flow_Timeout", (), 4),
    CoreCall("set_flow_timeout", "Ryn_Set_Flow_Timeout", (10,)),
    CoreCall("uplink_counters", "Ryn_Get_Uplink_Stats", (0, 0), 192),
    CoreCall("uplink_queue_counters", "Ryn_Get_Uplink_Queue_Stats", (0, 0, 3, 1), 192),
    CoreCall("uplink_driver_text", "Ryn_Get_Uplink_Priv_Stats_Len", (0, 0), 4),
    CoreCall("teaming", "Ryn_Get_Port_Tx_Uplink", (0, 0), 18),
    CoreCall("set_teaming", "Ryn_Set_Port_Tx_Uplink", (0, 0, "LAG", (0, 1))),
    CoreCall("panic_on_tx_hang", "Ryn_Get_Panic_On_Tx_Hang", (0,), 4),
    CoreCall("set_panic_on_tx_hang", "Ryn_Set_Panic_On_Tx_Hang", (0, 1)),
    CoreCall("set_uplink_learning", "Ryn_Set_Uplink_MAC_Learn", (0, 1)),
    CoreCall("offload", "Ryn_Get_FPO_Uplink_Status", (0, 0), 40),
    CoreCall("mirrors", "Ryn_Get_Mirror_Conf", (0,), 2048),
    CoreCall("netq", "Ryn_Get_Port_NetQ_Info", (0, 0), 524288),
    CoreCall("devices", "Ryn_List_Dev_Affinity", (), 1156),
    CoreCall("set_affinity", "Ryn_Set_Dev_Affinity", ("lunic0", 1)),
    CoreCall("weights", "Ryn_GetLBWeights", (), 32),
    CoreCall("set_weights", "Ryn_SetLBWeights", (tuple(range(8)),)),
    CoreCall("reset_weights", "Ryn_ResetLBWeights", ()),
    CoreCall("balancer_snapshot", "Ryn_DumpLBSnapshot", (0,), 4096),
    CoreCall("balancer_port_stats", "Ryn_Dump_LB_PortStats", (0,), 9224),
    CoreCall("running_options", "Ryn_GetCurrentLBData", ("set",), 24),
    CoreCall("running_numa_teaming", "Ryn_GetSwitchNUMATeam", ("set",), 1),
    CoreCall("running_burst_size", "Ryn_GetSwitchBurstSize", ("set",), 4),
    CoreCall("reload", "DVSQOB_StateGet", (), 100),
    CoreCall("host_property", "DVSQOB_HostPropGet", ("id", "key"), 24),
    CoreCall("set_host_property", "DVSQOB_HostPropSet", ("id", "key", b"\1\2")),
    CoreCall("port_property", "DVSQOB_PortDataGet", ("id", "1000", "key"), 8),
    CoreCall("set_port_property", "DVSQOB_PortDataSet", ("id", "1000", "key", b"\1\2")),
]
