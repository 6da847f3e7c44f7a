// The bounded walks: every record at its place, and an end at the first that does not lie whole inside the answer.
#include "host/read/balancer.h"
#include "host/read/flows.h"
#include "host/read/uplinks.h"
#include "host/snapshot.h"
#include "support.h"

namespace {

constexpr std::uint32_t kMany = 0xFFFFFFFF;

class Walks : public HostTest {};

// ---- Flow table ---------------------------------------------------------------------------------------------------

// A page of `count` entries whose records are `length` bytes long, all valid.
Bytes Page(std::uint32_t startIndex, std::uint32_t count, std::uint16_t length = 64) {
  Bytes page(10260);
  page.U32(8, startIndex).U32(12, count).U32(16, 20 + count * (64 + length));
  for (std::uint32_t i = 0; i < count; ++i)
    page.U8(20 + i * (64 + length), static_cast<std::uint8_t>(i)).U16(20 + i * (64 + length) + 126, length);
  return page;
}

FlowPage Dump(const Bytes& answer) {
  double_reset();
  const DoubleAnswer scripted = {0, -1, answer.Data(), answer.Size(), -1, 0};
  double_answer("Ryn_Dump_Flow_Table", &scripted);
  FlowPage page;
  EXPECT_TRUE(DumpFlowTable(0, 0, 0, false, &page).Ok());
  return page;
}

std::size_t CountEntries(const FlowPage& page, bool* complete) {
  FlowEntries entries(page);
  std::size_t count = 0;
  for (FlowEntry entry; entries.Next(&entry);)
    EXPECT_EQ(entry.key.mac1[0], count++ % 256);
  *complete = entries.Complete();
  return count;
}

TEST_F(Walks, FlowEntriesFollowTheirLengths) {
  bool complete = false;
  EXPECT_EQ(CountEntries(Dump(Page(0, 0)), &complete), 0U);
  EXPECT_TRUE(complete);
  EXPECT_EQ(CountEntries(Dump(Page(0, 80)), &complete), 80U);  // 10240 bytes: the page is full
  EXPECT_TRUE(complete);
  EXPECT_EQ(CountEntries(Dump(Page(0, 5, 300)), &complete), 5U);
  EXPECT_TRUE(complete);
}

TEST_F(Walks, FlowEntriesEndAtOneThatIsCutOff) {
  bool complete = true;
  EXPECT_EQ(CountEntries(Dump(Page(0, 5, 300).U32(16, 20 + 4 * 364 + 127)), &complete), 4U);
  EXPECT_FALSE(complete);
  EXPECT_EQ(CountEntries(Dump(Page(0, 5, 300).U32(16, 20 + 4 * 364 + 128)), &complete), 5U);  // 64 + 64 are enough
  EXPECT_TRUE(complete);
  EXPECT_EQ(CountEntries(Dump(Page(0, 80).U32(12, kMany).U32(16, kMany)), &complete), 80U);  // ends with the page
  EXPECT_FALSE(complete);
  EXPECT_EQ(CountEntries(Dump(Page(0, 1).U32(16, 0)), &complete), 0U);
  EXPECT_FALSE(complete);
}

TEST_F(Walks, ActionsReachToTheirLengthAndTheValidBytes) {
  const auto number = [](const Bytes& page, std::size_t entry = 0) {
    const FlowPage answer = Dump(page);
    FlowEntries entries(answer);
    FlowEntry found;
    for (std::size_t i = 0; i <= entry; ++i)
      EXPECT_TRUE(entries.Next(&found));
    return found.actions.GetOrZero(kVni);
  };
  const Bytes page = Page(0, 2, 80).U32(20 + 64 + 76, 0x01020304);
  EXPECT_EQ(number(page), 0x01020304U);
  EXPECT_EQ(number(Bytes(page).U16(20 + 126, 78).U32(20 + 64 + 76, 0x01020304)), 0x0304U);  // ends inside the field
  EXPECT_EQ(number(Bytes(page).U32(12, 1).U32(16, 20 + 64 + 77)), 4U);                      // so do the valid bytes
  EXPECT_EQ(number(Bytes(page).U32(12, 1).U16(20 + 126, 0)), 0U);  // shorter than what every record has
}

TEST_F(Walks, ActionsAreAsLongAsTheySay) {
  const auto size = [](const Bytes& page) {
    const FlowPage answer = Dump(page);
    FlowEntries entries(answer);
    FlowEntry found;
    EXPECT_TRUE(entries.Next(&found));
    return found.actions.Size();
  };
  const Bytes page = Page(0, 1, 80);
  EXPECT_EQ(size(page), 80U);
  EXPECT_EQ(size(Bytes(page).U16(20 + 126, 0)), 64U);       // the head that every record has
  EXPECT_EQ(size(Bytes(page).U32(16, 20 + 64 + 77)), 77U);  // the valid bytes end before
}

TEST_F(Walks, FlowWalkGoesOnFromWhatWasReported) {
  Answer("Ryn_Dump_Flow_Table", Page(0, 2), 1);   // reports the index asked for: on from 0 + 2
  Answer("Ryn_Dump_Flow_Table", Page(40, 3), 1);  // reports the index to go on from
  Answer("Ryn_Dump_Flow_Table", Page(7, 1), 1);   // reports one that was passed: on from 40 + 1
  FlowWalk walk(3, 5, true);
  FlowPage page;
  std::vector<std::uint32_t> asked;
  while (!walk.Done()) {
    asked.push_back(walk.Index());
    ASSERT_TRUE(walk.NextPage(&page).Ok());
  }
  EXPECT_EQ(asked, (std::vector<std::uint32_t>{0, 2, 40, 41}));
  EXPECT_EQ(page.count, 0U);
  const std::string calls = Calls();
  EXPECT_NE(calls.find(R"("swID": 3, "lcore": 5, "startIndex": 41,)"), std::string::npos);
  EXPECT_NE(calls.find(R"("flag": 1)"), std::string::npos);
}

TEST_F(Walks, FlowWalkRefusesAPageThatIsCutOff) {
  Answer("Ryn_Dump_Flow_Table", Page(0, 2).U32(12, 3));
  FlowWalk walk(0, 0, false);
  FlowPage page;
  const Status status = walk.NextPage(&page);
  EXPECT_EQ(status.kind, Status::Kind::kInvalidResponse);
  EXPECT_STREQ(status.operation, "Ryn_Dump_Flow_Table");
  EXPECT_TRUE(walk.Done());
}

TEST_F(Walks, FlowWalkRefusesTheIndexThatIsNone) {
  for (const auto& [reported, count] : {std::pair(0xFFFFFFFFU, 1U), std::pair(0xFFFFFFFEU, 1U)}) {
    double_reset();
    Answer("Ryn_Dump_Flow_Table", Page(reported, count));
    FlowWalk walk(0, 0, false);
    FlowPage page;
    const Status first = walk.NextPage(&page);
    EXPECT_EQ(first.Ok(), reported != 0xFFFFFFFF);  // the second page would go on from 0xFFFFFFFE + 1
    if (first.Ok()) {
      EXPECT_EQ(walk.NextPage(&page).kind, Status::Kind::kInvalidResponse);
    }
    EXPECT_TRUE(walk.Done());
  }
}

TEST_F(Walks, FlowWalkEndsAfter2ToThe20Flows) {
  Answer("Ryn_Dump_Flow_Table", Page(0, 64));  // without end: 64 * 16384 flows are the most
  double_recording(0);
  FlowWalk walk(0, 0, false);
  FlowPage page;
  Status status;
  std::size_t flows = 0;
  for (; !walk.Done() && (status = walk.NextPage(&page)).Ok();)
    flows += page.count;
  EXPECT_EQ(flows, 1U << 20);
  EXPECT_EQ(status.kind, Status::Kind::kInvalidResponse);
}

TEST_F(Walks, FlowWalkEndsWithAFailure) {
  Fail("Ryn_Dump_Flow_Table", 9);
  FlowWalk walk(0, 0, false);
  FlowPage page;
  EXPECT_EQ(walk.NextPage(&page).code, 9U);
  EXPECT_TRUE(walk.Done());
}

// ---- Mirror sessions ----------------------------------------------------------------------------------------------

Status Mirror(const Bytes& answer, std::vector<std::uint16_t>* vlans) {
  double_reset();
  const DoubleAnswer scripted = {0, -1, answer.Data(), answer.Size(), -1, 0};
  double_answer("Ryn_Get_Mirror_Conf", &scripted);
  MirrorConf conf;
  const Status status = GetMirrorConf(0, &conf);
  MirrorSessions sessions(conf);
  for (MirrorSession session; sessions.Next(&session);) {
    vlans->push_back(session.index);
    for (std::size_t i = 0; i < session.vlanCount; ++i)
      vlans->push_back(sessions.Vlan(i));
  }
  EXPECT_EQ(sessions.Complete(), status.Ok());
  return status;
}

TEST_F(Walks, MirrorSessionsArePaddedTo8Bytes) {
  // The first has one VLAN, so the second begins 80 bytes behind it.
  const Bytes conf =
      Bytes(2048).U16(4, 2).U16(8 + 4, 11).U16(8 + 20, 1).U16(8 + 72, 100).U16(88 + 4, 12).U16(88 + 20, 0);
  std::vector<std::uint16_t> seen;
  EXPECT_TRUE(Mirror(conf, &seen).Ok());
  EXPECT_EQ(seen, (std::vector<std::uint16_t>{11, 100, 12}));
}

TEST_F(Walks, MirrorSessionsEndInsideTheConfiguration) {
  std::vector<std::uint16_t> seen;
  EXPECT_TRUE(Mirror(Bytes(2048).U16(4, 28), &seen).Ok());  // 28 * 72 bytes and 24 left
  EXPECT_EQ(seen.size(), 28U);
  seen.clear();
  EXPECT_EQ(Mirror(Bytes(2048).U16(4, 29), &seen).kind, Status::Kind::kInvalidResponse);
  EXPECT_EQ(seen.size(), 28U);
  // The VLANs of the last session: 12 of them fill the 24 bytes, a thirteenth reaches past the end.
  seen.clear();
  EXPECT_TRUE(Mirror(Bytes(2048).U16(4, 28).U16(8 + 27 * 72 + 20, 12), &seen).Ok());
  EXPECT_EQ(seen.size(), 28U + 12U);
  seen.clear();
  EXPECT_FALSE(Mirror(Bytes(2048).U16(4, 28).U16(8 + 27 * 72 + 20, 13), &seen).Ok());
  EXPECT_EQ(seen.size(), 27U);
}

// ---- Network queues -----------------------------------------------------------------------------------------------

constexpr std::size_t kNetQ = 524288;

TEST_F(Walks, NetQFiltersHaveBodiesAndQueues) {
  Bytes answer(kNetQ);
  answer.U32(0, 3).U32(4, 7).U16(12, 1).U16(14, 2);
  // macOnly with a body of 6 and one queue, then a Geneve filter whose body is said to be 2 bytes long
  answer.U16(16, 0).U16(20, 6).U16(22, 1).Text(24, "ABCDEF").U32(30, 70).U32(34, 71).U64(38, ~0ULL);
  answer.U16(46, 1).U16(50, 2).U16(52, 0).Text(54, "abcdef").U32(66, 4096);
  Answer("Ryn_Get_Port_NetQ_Info", answer);
  HeapArea<NetQResponse> response;
  ASSERT_TRUE(GetPortNetQInfo(3, 7, &response).Ok());
  EXPECT_EQ(HeaderOf(*response).rynPortID, 7U);
  NetQFilters filters(*response);
  NetQFilterView filter;
  ASSERT_TRUE(filters.Next(&filter));
  EXPECT_EQ(filter.Body<MacOnlyBody>().mac[5], 'F');
  EXPECT_EQ(filters.Queue(0).qid, 71U);
  EXPECT_EQ(filters.Queue(0).fid, ~0ULL);
  ASSERT_TRUE(filters.Next(&filter));
  EXPECT_EQ(filter.Body<GeneveBody>().outerMac[0], 'a');
  EXPECT_EQ(filter.Body<GeneveBody>().vni, 4096U);  // read whole, whatever the length says
  EXPECT_FALSE(filters.Next(&filter));
  EXPECT_TRUE(filters.Complete());
}

TEST_F(Walks, NetQFiltersEndInsideTheResponse) {
  const auto walk = [](const Bytes& answer) {
    double_reset();
    Answer("Ryn_Get_Port_NetQ_Info", answer);
    HeapArea<NetQResponse> response;
    return GetPortNetQInfo(0, 0, &response).kind;
  };
  // Empty filters of 8 bytes: 65534 of them fill the response.
  EXPECT_EQ(walk(Bytes(kNetQ).U16(14, 65534)), Status::Kind::kOk);
  EXPECT_EQ(walk(Bytes(kNetQ).U16(14, 65535)), Status::Kind::kInvalidResponse);
  // A filter of 32766 queues, then one of 63 bytes less than fits or just as many
  const std::size_t second = 16 + 8 + 32764 * 16;  // 24 bytes are left behind its head
  EXPECT_EQ(walk(Bytes(kNetQ).U16(14, 2).U16(22, 32764).U16(second + 4, 24)), Status::Kind::kOk);
  EXPECT_EQ(walk(Bytes(kNetQ).U16(14, 2).U16(22, 32764).U16(second + 4, 33)), Status::Kind::kInvalidResponse);
  EXPECT_EQ(walk(Bytes(kNetQ).U16(14, 1).U16(22, 32768)), Status::Kind::kInvalidResponse);
}

TEST_F(Walks, ANetQBodyAtTheEndIsFilledUpWithZeros) {
  // A body of 0 bytes at the very end: whatever its kind reads lies behind the response.
  const std::size_t second = kNetQ - 8 - 4;
  Bytes answer(kNetQ, 0xEE);
  answer.U32(0, 0).U32(4, 0).U16(12, 0).U16(14, 2);
  answer.U16(16, 0).U16(20, static_cast<std::uint16_t>(second - 24 - 32000 * 16)).U16(22, 32000);
  answer.U16(second, 1).U16(second + 4, 4).U16(second + 6, 0);
  Answer("Ryn_Get_Port_NetQ_Info", answer);
  HeapArea<NetQResponse> response;
  ASSERT_TRUE(GetPortNetQInfo(0, 0, &response).Ok());
  NetQFilters filters(*response);
  NetQFilterView filter;
  ASSERT_TRUE(filters.Next(&filter) && filters.Next(&filter));
  const auto body = filter.Body<GeneveBody>();
  EXPECT_EQ(body.outerMac[3], 0xEE);
  EXPECT_EQ(body.outerMac[4], 0);
  EXPECT_EQ(body.vni, 0U);
}

// ---- Balancer snapshot --------------------------------------------------------------------------------------------

TEST_F(Walks, SnapshotHasGroupsThenVerticesWithEdges) {
  Bytes answer(4096);
  answer.U32(0, 2).U32(4, 1);
  answer.U32(8, static_cast<std::uint32_t>(-5)).U64(8 + 5, 3).U64(8 + 37 + 21, 1ULL << 63);
  const std::size_t vertex = 8 + 74;
  answer.U32(vertex, 1).U32(vertex + 4, 2).U32(vertex + 8, 0xAB).U32(vertex + 12, 1).U32(vertex + 16, 2);
  answer.U32(vertex + 20, 7).U32(vertex + 24, 70).U32(vertex + 28, 71);
  answer.U32(vertex + 44, 9).U32(vertex + 48, 90).U32(vertex + 52, 91);
  Answer("Ryn_DumpLBSnapshot", answer);
  LBSnapshot snapshot;
  ASSERT_TRUE(DumpLBSnapshot(0, &snapshot).Ok());

  LBGroups groups(snapshot);
  LBGroup group;
  ASSERT_TRUE(groups.Next(&group));
  const std::int32_t load = group.load;
  EXPECT_EQ(load, -5);
  ASSERT_TRUE(groups.Next(&group));
  EXPECT_FALSE(groups.Next(&group));
  LBVertices vertices(snapshot);
  LBVertex found;
  ASSERT_TRUE(vertices.Next(&found));
  EXPECT_EQ(found.flags, 0xABU);
  EXPECT_EQ(vertices.OutEdge(0).peer, 7);
  EXPECT_EQ(vertices.InEdge(1).ema, 91U);
  EXPECT_FALSE(vertices.Next(&found));

  char area[1024];
  BoundedText text(area, sizeof(area));
  AppendSnapshot(snapshot, &text);
  EXPECT_EQ(text.View(),
            "\nGroups\n"
            "[  0 load  -5] : [0-TX] [1-TX]\n"
            "[  1 load   0] : [63-RX]\n"
            "\nVeticies and Edges\n"
            "[ 1 WID:         2 Num:  1 F:      ab] -> [to  : 7 EMA: 71 load: 70]\n"
            "[ 1 WID:         2 Num:  2 F:      ab] <- [from: 0 EMA:  0 load:  0] [from: 9 EMA: 91 load: 90]\n");
}

TEST_F(Walks, SnapshotThatReachesPastItsEndIsRefused) {
  const auto dump = [](const Bytes& answer) {
    double_reset();
    Answer("Ryn_DumpLBSnapshot", answer);
    LBSnapshot snapshot;
    return DumpLBSnapshot(0, &snapshot).kind;
  };
  EXPECT_EQ(dump(Bytes(4096).U32(0, 110)), Status::Kind::kOk);  // 8 + 110 * 37 = 4078
  EXPECT_EQ(dump(Bytes(4096).U32(0, 111)), Status::Kind::kInvalidResponse);
  EXPECT_EQ(dump(Bytes(4096).U32(0, kMany).U32(4, kMany)), Status::Kind::kInvalidResponse);
  EXPECT_EQ(dump(Bytes(4096).U32(4, 204)), Status::Kind::kOk);  // 8 + 204 * 20 = 4088
  EXPECT_EQ(dump(Bytes(4096).U32(4, 205)), Status::Kind::kInvalidResponse);
  EXPECT_EQ(dump(Bytes(4096).U32(4, 1).U32(8 + 12, 339)), Status::Kind::kOk);  // 8 + 20 + 339 * 12 = 4096
  EXPECT_EQ(dump(Bytes(4096).U32(4, 1).U32(8 + 12, 339).U32(8 + 16, 1)), Status::Kind::kInvalidResponse);
  EXPECT_EQ(dump(Bytes(4096).U32(4, 1).U32(8 + 12, kMany).U32(8 + 16, kMany)), Status::Kind::kInvalidResponse);
}

}  // namespace
