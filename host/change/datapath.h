// Changing the flow cache, uplinks, devices, the balancer's weights and the buffer pools.
//
// As in host/change/ports.h: one operation of libryn.so a function, arguments handed over as they are, its status
// returned, no configuration touched.
#pragma once

#include <cstdint>

#include "host/records/loadbal.h"
#include "host/records/uplinks.h"
#include "host/status.h"

// Ryn_Clear_Switch_Flow_Table, Ryn_Enable_Switch_Flow_Cache. enable: 0 or 1.
Status ClearSwitchFlowTable(std::uint32_t swID);
Status EnableSwitchFlowCache(std::uint32_t swID, std::uint32_t enable);

// Ryn_Set_Flow_Timeout: in seconds, for the whole host.
Status SetFlowTimeout(std::uint32_t seconds);

// Ryn_Set_Port_Tx_Uplink. txType: as in TxUplinks. uplinks: the first `count` (0 to 8) of the array.
Status SetPortTxUplink(std::uint32_t swID, std::uint32_t rynPortID, std::uint32_t txType, std::uint32_t count,
                       const std::uint32_t (&uplinks)[kMaxTxUplinks]);

// Ryn_Set_Uplink_MAC_Learn, Ryn_Set_Panic_On_Tx_Hang: 0 is off, 1 on.
Status SetUplinkMACLearn(std::uint32_t swID, std::uint32_t enable);
Status SetPanicOnTxHang(std::uint32_t swID, std::uint32_t setting);

// Ryn_Set_Dev_Affinity. device: its name, NUL-terminated.
Status SetDevAffinity(const char* device, std::uint32_t affinity);

// Ryn_SetLBWeights, Ryn_ResetLBWeights: all eight at once, those that stay as they are included.
Status SetLBWeights(const LBWeights& weights);
Status ResetLBWeights();

// Ryn_Init_Mbuf_Fastslabs. For hosts with a switch that the datapath serves (HasServedSwitch in host/names.h).
Status InitMbufFastslabs();
