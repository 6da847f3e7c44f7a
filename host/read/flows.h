// Reading the flow cache: its pages, its counters, flow processing offload.
//
// Arguments, records, failures and threads are as in host/read/ports.h: one operation of libryn.so a function, the
// record zeroed before the call, counts cut to their room, no configuration touched.
#pragma once

#include <cstddef>
#include <cstdint>

#include "host/native.h"
#include "host/records/flowcache.h"
#include "host/status.h"
#include "host/walks.h"

// ---- Flow table ---------------------------------------------------------------------------------------------------

// Ryn_Dump_Flow_Table: a page of the flows of one core (0 to 31), from `startIndex` on, which is not 4294967295. `flag`
// is the operation's own: 0 for the flow cache, 1 for the flows that are offloaded. The answer is taken as it came; use
// FlowWalk to ask for pages, and FlowEntries to read one.
Status DumpFlowTable(std::uint32_t swID, std::uint32_t lcore, std::uint32_t startIndex, bool flag, FlowPage* page);

// The most flows of one core that a walk accepts: a datapath that reports more is going in circles.
constexpr std::uint32_t kMaxFlows = 1U << 20;

// Walks the flow table of a core, page by page, into one area:
//
//   FlowWalk walk(swID, lcore, flag);
//   while (!walk.Done()) {
//     if (const Status status = walk.NextPage(page); !status.Ok()) ...
//     read the entries of *page
//   }
//
// A page is asked for from the index that the one before reported where that lies beyond the index asked for, else from
// the index asked for plus the entries read. An empty page ends the walk.
class FlowWalk {
 public:
  FlowWalk(std::uint32_t swID, std::uint32_t lcore, bool flag) : swID_(swID), lcore_(lcore), flag_(flag) {}

  bool Done() const { return done_; }
  std::uint32_t Index() const { return index_; }  // the one that the next page is asked for from

  // Reads the next page, possibly an empty one, and checks it whole: its entries can be read to the last.
  // kInvalidResponse where an entry is cut off, where the next index would be 4294967295 or more, and beyond kMaxFlows
  // flows. After a failure the walk is done.
  Status NextPage(FlowPage* page);

 private:
  std::uint32_t swID_;
  std::uint32_t lcore_;
  std::uint32_t index_ = 0;
  std::uint32_t flows_ = 0;
  bool flag_;
  bool done_ = false;
};

// ---- Counters of cores --------------------------------------------------------------------------------------------

// Core numbers for one question: at most kMaxLcoreRecords, since its answer has no room for more. The operations are
// handed an array of 64 whatever the count.
struct LcoreList {
  std::uint32_t ids[64] = {};
  std::uint32_t count = 0;
};

// Takes the lowest cores out of a bitmap (bit n is core n), at most kMaxLcoreRecords of them. To ask about all cores of
// a bitmap: while (bitmap != 0) ask about TakeLcores(&bitmap).
LcoreList TakeLcores(std::uint64_t* bitmap);

// Ryn_Get_Flow_Stats, Ryn_Get_FPO_Stats: a record for each core that the datapath answers about; it need not be one
// that was asked for. `option` is the operation's own, 0 as far as we know. Counters are 64 bits unsigned.
Status GetFlowStats(std::uint32_t swID, const LcoreList& lcores, std::uint32_t option, FlowStats* stats);
Status GetFPOStats(std::uint32_t swID, const LcoreList& lcores, FPOLcoreStats* stats);

// ---- Settings -----------------------------------------------------------------------------------------------------

// Ryn_Get_Flow_Timeout: how long an idle flow stays in the cache, in seconds; one value for the host.
Status GetFlowTimeout(std::uint32_t* seconds);

// Ryn_Get_FPO_Uplink_Status: what an uplink can offload.
Status GetFPOUplinkStatus(std::uint32_t swID, std::uint32_t rynPortID, FPOUplinkCaps* caps);
