// What ryn and the exporter read with: the functions of host/read/ and the walks over their answers, against whatever
// the datapath library answers. Records are compared as bytes at the places where an independent model expects them.
#include <array>
#include <memory>

#include "double.h"
#include "host/read/balancer.h"
#include "host/read/flows.h"
#include "host/read/uplinks.h"
#include "targets.h"

namespace {

constexpr std::size_t kFlowPage = 10260, kSnapshot = 4096, kMirrorConf = 2048, kNetQ = 524288;

// A record is these bytes of an area; bytes behind `end` are 0.
template <class Record>
void ExpectAt(const Record& record, const Bytes& area, std::size_t at, std::size_t size, const char* what,
              std::size_t end = static_cast<std::size_t>(-1)) {
  Expect(sizeof(record) == size, "a record has its size");
  Bytes expected(size);
  if (const std::size_t last = std::min({at + size, area.size(), end}); at < last)
    std::memcpy(expected.data(), area.data() + at, last - at);
  Expect(std::memcmp(&record, expected.data(), size) == 0, what);
}

// An answer is valid if it is whole.
void ExpectValid(Status status, bool whole) {
  Expect(status.kind == (whole ? Status::Kind::kOk : Status::Kind::kInvalidResponse), "an answer is valid if whole");
}

}  // namespace

// ---- Flow table ----------------------------------------------------------------------------------------------------

namespace {

// The entries of a page, as far as they lie whole inside its valid bytes. Returns whether that is all of them.
bool CheckEntries(const FlowPage& page, const Bytes& area) {
  const std::uint32_t count = At<std::uint32_t>(area, 12);
  const std::size_t valid = std::min<std::size_t>(At<std::uint32_t>(area, 16), kFlowPage);
  FlowEntries entries(page);
  FlowEntry entry;
  std::size_t at = 20;
  for (std::uint32_t i = 0; i < count; ++i) {
    if (at + 128 > valid) {
      Expect(!entries.Next(&entry) && !entries.Complete(), "an entry without its 128 bytes is not read");
      return false;
    }
    Expect(entries.Next(&entry), "an entry is read");
    ExpectAt(entry.key, area, at, 64, "a key");
    const std::size_t actions = at + 64, length = At<std::uint16_t>(area, actions + 62);
    const std::size_t size = std::min(std::max<std::size_t>(length, 64), valid - actions);
    Expect(entry.actions.Size() == size, "the bytes of the actions");
    ExpectAt(entry.actions.LoadOrZeros<std::array<unsigned char, 304>>(), area, actions, 304, "actions",
             actions + size);
    ExpectAt(entry.actions.GetOrZero(Field<std::uint64_t>{size - 3}), area, actions + size - 3, 8,
             "a field across the end", actions + size);
    at = actions + length;
  }
  Expect(!entries.Next(&entry) && entries.Complete(), "a page ends with its last entry");
  return true;
}

void ExpectRecorded(const std::string& argument) {
  Expect(std::string_view(double_calls()).find(argument) != std::string_view::npos, argument.c_str());
}

}  // namespace

// The pages of a walk, each with a status byte and its length in front. When the first byte is kInCircles one page is
// answered for ever, otherwise an empty one follows the last.
void FuzzFlowWalk(Input input) {
  constexpr std::uint8_t kInCircles = 0xFF;
  constexpr std::size_t kMostPages = 6;
  const auto modes = input.Take<std::uint8_t>();
  std::vector<Bytes> pages;
  std::vector<std::uint32_t> statuses;
  while (pages.size() < (modes == kInCircles ? 1 : modes % (kMostPages + 1))) {
    statuses.push_back(input.Take<std::uint8_t>() % 8 == 7 ? 0x0BAD0001 : 0);
    pages.push_back(Resized(input.Take(input.Take<std::uint16_t>() % (kFlowPage + 1)), kFlowPage));
    const DoubleAnswer answer = {statuses.back(), modes == kInCircles ? -1 : 1, pages.back().data(), kFlowPage, -1, 0};
    double_answer("Ryn_Dump_Flow_Table", &answer);
  }

  // 2^20 flows are 6554 of the fullest pages; others would take all the time.
  const bool full = modes == kInCircles && At<std::uint32_t>(pages[0], 12) >= 150;
  const std::size_t most_calls = full ? 7000 : 20;

  const auto page = std::make_unique<FlowPage>();
  FlowWalk walk(1, 2, true);
  std::uint64_t index = 0, flows = 0;
  bool done = false;
  for (std::size_t call = 0; !done && call < most_calls; ++call) {
    Expect(!walk.Done() && walk.Index() == index, "the index that is asked from");
    double_recording(modes != kInCircles);
    double_forget_calls();
    const Status status = walk.NextPage(page.get());
    double_recording(0);
    if (modes != kInCircles) {
      ExpectRecorded("\"startIndex\": " + std::to_string(index));
      ExpectRecorded("\"zeroed\": true");
    }

    const std::size_t number = modes == kInCircles ? 0 : call;
    const Bytes area = number < pages.size() ? pages[number] : Bytes(kFlowPage);
    if (number < pages.size() && statuses[number] != 0) {
      Expect(status.kind == Status::Kind::kFailed && status.code == statuses[number], "a failure is told");
      done = true;
      break;
    }
    const std::uint32_t start = At<std::uint32_t>(area, 8), count = At<std::uint32_t>(area, 12);
    ExpectAt(*page, area, 0, kFlowPage, "a page as it was answered");
    const bool whole = call > kMostPages || CheckEntries(*page, area);  // in circles it stays the same
    flows += count;
    index = start > index ? start : index + count;
    const bool valid = count == 0 || (whole && flows <= 1U << 20 && index < 0xFFFFFFFF);
    ExpectValid(status, valid);
    done = count == 0 || !valid;
  }
  Expect(walk.Done() == done, "a walk ends with an empty page or an invalid one");
}

// ---- Mirror sessions -----------------------------------------------------------------------------------------------

void FuzzMirrorSessions(Input input) {
  const Bytes area = Resized(input.Rest(), kMirrorConf);
  Answer("Ryn_Get_Mirror_Conf", area);
  const auto conf = std::make_unique<MirrorConf>();
  const Status status = GetMirrorConf(1, conf.get());
  ExpectAt(*conf, area, 0, kMirrorConf, "a configuration as it was answered");

  MirrorSessions sessions(*conf);
  MirrorSession session;
  std::size_t at = 8;
  bool whole = true;
  for (unsigned left = At<std::uint16_t>(area, 4); left > 0 && whole; --left) {
    const std::size_t vlans = At<std::uint16_t>(area, at + 20);
    const std::size_t end = at + 72 + (2 * vlans + 7) / 8 * 8;
    whole = at + 72 <= kMirrorConf && end <= kMirrorConf;
    Expect(sessions.Next(&session) == whole, "a session is read where it is whole");
    if (!whole)
      break;
    ExpectAt(session, area, at, 72, "a session");
    for (std::size_t i = 0; i < vlans; ++i)
      Expect(sessions.Vlan(i) == At<std::uint16_t>(area, at + 72 + 2 * i), "a VLAN");
    at = end;
  }
  Expect(!sessions.Next(&session) && sessions.Complete() == whole, "sessions end with the last, or a broken one");
  ExpectValid(status, whole);
}

// ---- Network queues ------------------------------------------------------------------------------------------------

void FuzzNetQFilters(Input input) {
  const Bytes area = TakeCounted<std::uint16_t>(input, {14, 16 + 6});  // zeros behind it
  Answer("Ryn_Get_Port_NetQ_Info", area);
  HeapArea<NetQResponse> response;
  const Status status = GetPortNetQInfo(1, 2, &response);
  Expect(status.Ok() == (response != nullptr), "a response is handed over when it is valid");
  if (!response) {  // the walk over it is to end at the same place
    response = AllocateRecord<NetQResponse>();
    std::memcpy(response->bytes, area.data(), std::min(area.size(), kNetQ));
  }
  ExpectAt(HeaderOf(*response), area, 0, 16, "a header");

  NetQFilters filters(*response);
  NetQFilterView filter;
  std::size_t at = 16;
  bool whole = true;
  for (unsigned left = At<std::uint16_t>(area, 14); left > 0 && whole; --left) {
    const std::size_t body = at + 8, queues = body + At<std::uint16_t>(area, at + 4);
    const std::size_t end = queues + std::size_t{16} * At<std::uint16_t>(area, at + 6);
    whole = body <= kNetQ && end <= kNetQ;
    Expect(filters.Next(&filter) == whole, "a filter is read where it is whole");
    if (!whole)
      break;
    ExpectAt(filter.head, area, at, 8, "a filter");
    Expect(filter.body.Size() == kNetQ - body, "a body reaches to the end of the response");
    ExpectAt(filter.Body<MacOnlyBody>(), area, body, 6, "a body with one address", kNetQ);
    ExpectAt(filter.Body<GeneveBody>(), area, body, 16, "a body with two addresses", kNetQ);
    for (std::size_t i = 0; queues + 16 * i < end; ++i)
      ExpectAt(filters.Queue(i), area, queues + 16 * i, 16, "a queue");
    at = end;
  }
  Expect(!filters.Next(&filter) && filters.Complete() == whole, "filters end with the last, or a broken one");
  ExpectValid(status, whole);
}

// ---- Balancer snapshot ---------------------------------------------------------------------------------------------

void FuzzSnapshotRecords(Input input) {
  const Bytes area = Resized(input.Rest(), kSnapshot);
  Answer("Ryn_DumpLBSnapshot", area);
  const auto snapshot = std::make_unique<LBSnapshot>();
  const Status status = DumpLBSnapshot(1, snapshot.get());
  ExpectAt(*snapshot, area, 0, kSnapshot, "a snapshot as it was answered");

  LBGroups groups(*snapshot);
  LBGroup group;
  const std::uint64_t groupCount = At<std::uint32_t>(area, 0), vertexCount = At<std::uint32_t>(area, 4);
  const std::uint64_t room = (kSnapshot - 8) / 37;
  for (std::size_t i = 0; i < std::min(groupCount, room); ++i) {
    Expect(groups.Next(&group), "a group is read");
    ExpectAt(group, area, 8 + 37 * i, 37, "a group");
  }
  const bool groupsWhole = groupCount <= room;
  Expect(!groups.Next(&group) && groups.Complete() == groupsWhole, "groups end with the last that is whole");

  LBVertices vertices(*snapshot);
  LBVertex vertex;
  bool whole = true;
  std::uint64_t at = 8 + 37 * groupCount;  // whether all of them are there or not
  for (std::uint64_t left = vertexCount; left > 0 && whole; --left) {
    const std::uint64_t out = At<std::uint32_t>(area, at + 12), in = At<std::uint32_t>(area, at + 16);
    const std::uint64_t edges = at + 20, end = edges + 12 * (out + in);
    whole = edges <= kSnapshot && end <= kSnapshot;
    Expect(vertices.Next(&vertex) == whole, "a vertex is read where it is whole");
    if (!whole)
      break;
    ExpectAt(vertex, area, at, 20, "a vertex");
    for (std::size_t i = 0; i < out; ++i)
      ExpectAt(vertices.OutEdge(i), area, edges + 12 * i, 12, "an edge out");
    for (std::size_t i = 0; i < in; ++i)
      ExpectAt(vertices.InEdge(i), area, edges + 12 * (out + i), 12, "an edge in");
    at = end;
  }
  Expect(!vertices.Next(&vertex) && vertices.Complete() == whole, "vertices end with the last, or a broken one");
  ExpectValid(status, groupsWhole && whole);
}
