// Bounded walks over answers whose records follow one another: the entries of a flow page, mirror sessions, the filters
// of network queues, the groups and vertices of a balancer snapshot.
//
// All of them are read the same way:
//
//   FlowEntries entries(page);
//   for (FlowEntry entry; entries.Next(&entry);)
//     ...
//   if (!entries.Complete()) the answer announces more than it holds
//
// Next is false after the last record, and at one that does not lie whole inside the answer. A walk reads nothing
// outside its answer whatever the answer says; it copies heads of fixed size, and the answer has to outlive it.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "host/native.h"
#include "host/records/flowcache.h"
#include "host/records/loadbal.h"
#include "host/records/uplinks.h"

// Whether a walk reaches its last record: IsWhole<FlowEntry>(FlowEntries(page)).
template <class Record, class Walk>
bool IsWhole(Walk walk) {
  for (Record record; walk.Next(&record);) {
  }
  return walk.Complete();
}

// ---- Flow table ---------------------------------------------------------------------------------------------------

struct FlowEntry {
  FlowKey key;
  // The actions record: at least its first 64 bytes, and no further than its own length and the valid bytes of the page
  // reach. Fields below offset 64 are read with Get, others with GetOrZero.
  View actions{nullptr, 0};
};

// The entries of a page. Each needs 64 + 64 valid bytes.
class FlowEntries {
 public:
  explicit FlowEntries(const FlowPage& page)
      : bytes_(reinterpret_cast<const unsigned char*>(&page)),
        end_(std::min<std::size_t>(page.validBytes, sizeof(page))),
        left_(page.count) {}

  bool Next(FlowEntry* entry) {
    const std::size_t actions = position_ + sizeof(FlowKey);
    if (left_ == 0 || actions + kActionsHeadBytes > end_)
      return false;
    const std::size_t length = Load<std::uint16_t>(bytes_, actions + kLength.offset);
    entry->key = Load<FlowKey>(bytes_, position_);
    entry->actions = View(bytes_ + actions, std::min(std::max(length, kActionsHeadBytes), end_ - actions));
    position_ = actions + length;
    --left_;
    return true;
  }

  bool Complete() const { return left_ == 0; }

 private:
  const unsigned char* bytes_;
  std::size_t position_ = offsetof(FlowPage, entries);
  std::size_t end_;
  std::uint32_t left_;
};

// ---- Mirror sessions ----------------------------------------------------------------------------------------------

class MirrorSessions {
 public:
  explicit MirrorSessions(const MirrorConf& conf) : conf_(conf), left_(conf.sessionCount) {}

  bool Next(MirrorSession* session) {
    if (left_ == 0 || position_ + sizeof(MirrorSession) > sizeof(conf_))
      return false;
    const auto head = Load<MirrorSession>(&conf_, position_);
    const std::size_t end = position_ + SessionLength(head.vlanCount);
    if (end > sizeof(conf_))
      return false;
    *session = head;
    vlans_ = position_ + sizeof(MirrorSession);
    position_ = end;
    --left_;
    return true;
  }

  bool Complete() const { return left_ == 0; }

  // VLAN ID `index`, below session.vlanCount, of the session that Next read last.
  std::uint16_t Vlan(std::size_t index) const {
    return Load<std::uint16_t>(&conf_, vlans_ + index * sizeof(std::uint16_t));
  }

 private:
  const MirrorConf& conf_;
  std::size_t position_ = offsetof(MirrorConf, sessions);
  std::size_t vlans_ = 0;
  std::uint32_t left_;
};

// ---- Network queues -----------------------------------------------------------------------------------------------

inline NetQHeader HeaderOf(const NetQResponse& response) { return Load<NetQHeader>(response.bytes, 0); }

struct NetQFilterView {
  NetQFilter head = {};
  View body{nullptr, 0};  // from the first byte of the filter's body to the end of the response

  // The body as MacOnlyBody where head.kind is kMacOnlyFilter, as GeneveBody where it is kGeneveFilter. It is read
  // whole, whatever its length; bytes behind the response are 0.
  template <class Record>
  Record Body() const {
    return body.LoadOrZeros<Record>();
  }
};

// The filters of a response, each with its body and its queues.
class NetQFilters {
 public:
  explicit NetQFilters(const NetQResponse& response) : response_(response), left_(HeaderOf(response).filterCount) {}

  bool Next(NetQFilterView* filter) {
    const std::size_t body = position_ + sizeof(NetQFilter);
    if (left_ == 0 || body > sizeof(response_))
      return false;
    const auto head = Load<NetQFilter>(response_.bytes, position_);
    const std::size_t queues = body + head.bodyLength;
    const std::size_t end = queues + head.queueCount * sizeof(NetQQueue);
    if (end > sizeof(response_))
      return false;
    filter->head = head;
    filter->body = View(response_.bytes + body, sizeof(response_) - body);
    queues_ = queues;
    position_ = end;
    --left_;
    return true;
  }

  bool Complete() const { return left_ == 0; }

  // Queue `index`, below head.queueCount, of the filter that Next read last.
  NetQQueue Queue(std::size_t index) const {
    return Load<NetQQueue>(response_.bytes, queues_ + index * sizeof(NetQQueue));
  }

 private:
  const NetQResponse& response_;
  std::size_t position_ = sizeof(NetQHeader);
  std::size_t queues_ = 0;
  std::uint32_t left_;
};

// ---- Balancer snapshot --------------------------------------------------------------------------------------------

class LBGroups {
 public:
  explicit LBGroups(const LBSnapshot& snapshot) : snapshot_(snapshot), left_(snapshot.groupCount) {}

  bool Next(LBGroup* group) {
    if (left_ == 0 || position_ + sizeof(LBGroup) > sizeof(snapshot_))
      return false;
    *group = Load<LBGroup>(&snapshot_, position_);
    position_ += sizeof(LBGroup);
    --left_;
    return true;
  }

  bool Complete() const { return left_ == 0; }

 private:
  const LBSnapshot& snapshot_;
  std::size_t position_ = offsetof(LBSnapshot, records);
  std::uint32_t left_;
};

// The vertices, each with its edges. They begin behind as many groups as the snapshot announces.
class LBVertices {
 public:
  explicit LBVertices(const LBSnapshot& snapshot)
      : snapshot_(snapshot),
        position_(offsetof(LBSnapshot, records) + std::size_t{snapshot.groupCount} * sizeof(LBGroup)),
        left_(snapshot.vertexCount) {}

  bool Next(LBVertex* vertex) {
    if (left_ == 0 || position_ + sizeof(LBVertex) > sizeof(snapshot_))
      return false;
    const auto head = Load<LBVertex>(&snapshot_, position_);
    const std::size_t out = position_ + sizeof(LBVertex);
    const std::size_t in = out + std::size_t{head.outCount} * sizeof(LBEdge);
    const std::size_t end = in + std::size_t{head.inCount} * sizeof(LBEdge);
    if (end > sizeof(snapshot_))
      return false;
    *vertex = head;
    out_ = out;
    in_ = in;
    position_ = end;
    --left_;
    return true;
  }

  bool Complete() const { return left_ == 0; }

  // Edge `index` of the vertex that Next read last: below vertex.outCount, and below vertex.inCount.
  LBEdge OutEdge(std::size_t index) const { return Load<LBEdge>(&snapshot_, out_ + index * sizeof(LBEdge)); }
  LBEdge InEdge(std::size_t index) const { return Load<LBEdge>(&snapshot_, in_ + index * sizeof(LBEdge)); }

 private:
  const LBSnapshot& snapshot_;
  std::size_t position_;
  std::size_t out_ = 0;
  std::size_t in_ = 0;
  std::uint32_t left_;
};
