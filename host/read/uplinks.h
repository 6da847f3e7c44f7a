// Reading uplinks: transmit policy, mirror sessions, counters, the driver's text, network queues, device affinity.
//
// Arguments, records, failures and threads are as in host/read/ports.h: one operation of libryn.so a function, the
// record zeroed before the call, counts cut to their room, no configuration touched.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "host/native.h"
#include "host/records/uplinks.h"
#include "host/status.h"
#include "host/walks.h"

// ---- Policies -----------------------------------------------------------------------------------------------------

// Ryn_Get_Port_Tx_Uplink: how a port picks the uplink for what it sends, and from which uplinks.
Status GetPortTxUplink(std::uint32_t swID, std::uint32_t rynPortID, TxUplinks* policy);

// Ryn_Get_Panic_On_Tx_Hang: 0 is off, anything else on.
Status GetPanicOnTxHang(std::uint32_t swID, std::uint32_t* setting);

// Ryn_List_Dev_Affinity: the host's network devices. DeviceRecord::name is read with FieldText.
Status ListDevAffinity(DeviceList* devices);

// ---- Counters -----------------------------------------------------------------------------------------------------

// Ryn_Get_Uplink_Stats, and Ryn_Get_Uplink_Queue_Stats for one of its queues. `queueKind` is false for a receive queue,
// true for a transmit queue, as far as we know. Counters are 64 bits unsigned.
Status GetUplinkStats(std::uint32_t swID, std::uint32_t rynPortID, UplinkStats* stats);
Status GetUplinkQueueStats(std::uint32_t swID, std::uint32_t rynPortID, std::uint32_t queue, bool queueKind,
                           UplinkStats* stats);

// The text that an uplink's driver tells of itself, of no set form or encoding.
struct PrivateStats {
  HeapArea<char> bytes;
  std::size_t length = 0;  // up to the NUL, or to the end of the area

  std::string_view Text() const { return {bytes ? bytes.get() : "", length}; }
};

// Ryn_Get_Uplink_Priv_Stats_Len: the size of that text in bytes, 0 where there is none. kInvalidResponse above
// kMaxPrivateStatsBytes.
Status GetUplinkPrivStatsLen(std::uint32_t swID, std::uint32_t rynPortID, std::uint32_t* statsLength);

// Ryn_Get_Uplink_Priv_Stats: the text itself, for a size that GetUplinkPrivStatsLen gave; an empty one, without a call,
// for size 0. *stats is replaced on success only.
Status GetUplinkPrivStats(std::uint32_t swID, std::uint32_t rynPortID, std::uint32_t statsLength, PrivateStats* stats);

// ---- Mirror sessions ----------------------------------------------------------------------------------------------

// Ryn_Get_Mirror_Conf. kInvalidResponse where a session does not lie whole inside the configuration; MirrorSessions
// then reads what comes before it.
Status GetMirrorConf(std::uint32_t swID, MirrorConf* conf);

// ---- Network queues -----------------------------------------------------------------------------------------------

// Ryn_Get_Port_NetQ_Info: the receive filters of a port in the network hardware, and the queues that serve them. The
// response takes 512 KiB of address space; pages that the datapath does not fill take no memory. kInvalidResponse where
// a filter or its queues reach past the end. *response is replaced on success only.
Status GetPortNetQInfo(std::uint32_t swID, std::uint32_t rynPortID, HeapArea<NetQResponse>* response);
