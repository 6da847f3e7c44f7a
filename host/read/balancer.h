// Reading the core load balancer: weights, topology, figures of ports and cores, what runs for a switch; the cores.
//
// Arguments, records, failures and threads are as in host/read/ports.h: one operation of libryn.so a function, the
// record zeroed before the call, no configuration touched. A `portset` is the name by which the datapath knows a
// switch, in an area of 128 bytes (PortsetName::text).
#pragma once

#include <cstddef>
#include <cstdint>

#include "host/native.h"
#include "host/records/loadbal.h"
#include "host/status.h"
#include "host/walks.h"

// Ryn_GetLBWeights: the host's weights.
Status GetLBWeights(LBWeights* weights);

// Ryn_GetCurrentLBData, Ryn_GetSwitchNUMATeam, Ryn_GetSwitchBurstSize: what runs in the datapath, whatever is stored as
// a property. flag: 0 is off, anything else on. burst: in packets.
Status GetCurrentLBData(const char* portset, LBSwitchOptions* options);
Status GetSwitchNUMATeam(const char* portset, std::uint8_t* flag);
Status GetSwitchBurstSize(const char* portset, std::uint32_t* burst);

// Ryn_Get_LCore_ID_Bitmap: bit n is set where core n (0 to 63) exists.
Status GetLCoreIDBitmap(std::uint32_t swID, std::uint64_t* bitmap);

// Ryn_Dump_LB_PortStats: raw counters; host/figures.h computes usages and loads from them.
Status DumpLBPortStats(std::uint32_t swID, LBPortStats* stats);

// Ryn_DumpLBSnapshot. kInvalidResponse where a group or a vertex with its edges reaches past the end; the readers below
// then stop before it.
Status DumpLBSnapshot(std::uint32_t swID, LBSnapshot* snapshot);
