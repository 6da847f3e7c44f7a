// Reading switches and their ports: listings, counters, configuration, receive offload, MAC tables.
//
// Each function calls the one operation of libryn.so that its comment names and returns its status. `swID` is the
// number of a switch (0 to 15), `rynPortID` that of a port on it (0 to 127); they are handed over as they are, the
// datapath judges them. The answer goes into a record of the caller's, zeroed before the call: what the datapath does
// not fill is 0. On success every count is at most the room of its array; after a failure the record's content is
// unspecified.
//
// Threads: no function here touches the configuration or any state of host/, so no lock is needed for its sake.
// Whether the platform bears two operations at a time is not known; callers run one at a time.
#pragma once

#include <cstdint>

#include "host/native.h"
#include "host/records/ports.h"
#include "host/status.h"

// Ryn_Get_Switch_List: every switch of the datapath. SwitchRecord::name is read with FieldText.
Status GetSwitchList(SwitchList* list);

// Ryn_Get_Port_List: every port of a switch. numTxQ and numRxQ are at most kMaxQueues.
Status GetPortList(std::uint32_t swID, PortList* list);

// Ryn_Get_Port_Stats, Ryn_Get_Port_Stats_Slowpath: what a port's fast path and its slow path counted since it was
// reset, in packets and bytes, 64 bits unsigned.
Status GetPortStats(std::uint32_t swID, std::uint32_t rynPortID, PortStats* stats);
Status GetPortStatsSlowpath(std::uint32_t swID, std::uint32_t rynPortID, PortStats* stats);

// Ryn_Get_Port_Conf
Status GetPortConf(std::uint32_t swID, std::uint32_t rynPortID, PortConf* conf);

// Ryn_GetLRO for one port, and for a switch as a whole: 0 is off, anything else on.
Status GetPortLRO(std::uint32_t swID, std::uint32_t rynPortID, std::uint32_t* state);
Status GetSwitchLRO(std::uint32_t swID, std::uint32_t* state);

// Ryn_Dump_Port_MAC_Table, Ryn_Dump_Switch_MAC_Table. The tables take 320 KiB and 1.25 MiB of address space; pages that
// the datapath does not fill take no memory. *table is replaced on success only. Its limitExceeded is a port's alone.
Status DumpPortMACTable(std::uint32_t swID, std::uint32_t rynPortID, HeapArea<PortMacTable>* table);
Status DumpSwitchMACTable(std::uint32_t swID, HeapArea<SwitchMacTable>* table);
