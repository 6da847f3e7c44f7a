// What the reading functions make of an answer: fields at their offsets, counts cut to the room.
#include "host/figures.h"
#include "host/read/balancer.h"
#include "host/read/flows.h"
#include "host/read/ports.h"
#include "host/read/uplinks.h"
#include "support.h"

namespace {

constexpr std::uint32_t kMany = 0xFFFFFFFF;

class Records : public HostTest {};

TEST_F(Records, SwitchListIsCutTo16) {
  Answer("Ryn_Get_Switch_List", Bytes(2568)
                                    .U32(0, kMany)
                                    .Text(8 + 15 * 160, "last")
                                    .U32(8 + 15 * 160 + 128, 15)
                                    .U64(8 + 15 * 160 + 152, 0x8000000000000001));
  SwitchList list;
  ASSERT_TRUE(GetSwitchList(&list).Ok());
  EXPECT_EQ(list.count, 16U);
  EXPECT_EQ(FieldText(list.switches[15].name), "last");
  EXPECT_EQ(list.switches[15].swID, 15U);
  EXPECT_EQ(list.switches[15].lcores, 0x8000000000000001);
}

TEST_F(Records, ANameThatFillsItsFieldEndsWithIt) {
  Answer("Ryn_Get_Switch_List", Bytes(2568).U32(0, 1).Text(8, std::string(128, 'x')).U32(8 + 128, 0x79797979));
  SwitchList list;
  ASSERT_TRUE(GetSwitchList(&list).Ok());
  EXPECT_EQ(FieldText(list.switches[0].name), std::string(128, 'x'));
}

TEST_F(Records, PortListIsCutTo128AndItsQueuesTo32) {
  const std::size_t last = 12 + 127 * 90;
  Answer("Ryn_Get_Port_List", Bytes(11532)
                                  .U32(4, kMany)
                                  .U32(last + 4, 127)
                                  .U8(last + 8, 33)
                                  .U8(last + 9, 255)
                                  .U8(last + 57, 9)
                                  .U8(last + 89, 8));
  PortList list;
  ASSERT_TRUE(GetPortList(1, &list).Ok());
  const std::uint32_t count = list.count, number = list.ports[127].rynPortID;
  EXPECT_EQ(count, 128U);
  EXPECT_EQ(number, 127U);
  EXPECT_EQ(list.ports[127].numTxQ, 32);
  EXPECT_EQ(list.ports[127].numRxQ, 32);
  EXPECT_EQ(list.ports[127].txQLM[31], 9);
  EXPECT_EQ(list.ports[127].rxQLM[31], 8);
}

TEST_F(Records, CountsThatFitStay) {
  Answer("Ryn_Get_Port_List", Bytes(11532).U32(4, 128).U8(12 + 8, 32).U8(12 + 9, 1));
  PortList list;
  ASSERT_TRUE(GetPortList(1, &list).Ok());
  const std::uint32_t count = list.count;
  EXPECT_EQ(count, 128U);
  EXPECT_EQ(list.ports[0].numTxQ, 32);
  EXPECT_EQ(list.ports[0].numRxQ, 1);
}

TEST_F(Records, PortConfIsCutToItsAddressesAndRanges) {
  Answer("Ryn_Get_Port_Conf", Bytes(1272).U32(16, 33).U32(48, 257).U16(248 + 4 * 255, 4094).U8(52 + 6 * 31 + 5, 7));
  PortConf conf;
  ASSERT_TRUE(GetPortConf(1, 2, &conf).Ok());
  EXPECT_EQ(conf.numMcastAddrs, 32U);
  EXPECT_EQ(conf.numTaggedVlanRanges, 256U);
  EXPECT_EQ(conf.vlanRanges[255].first, 4094);
  EXPECT_EQ(conf.mcastAddrs[31][5], 7);
}

TEST_F(Records, MacTablesAreCutToTheirRoom) {
  Answer("Ryn_Dump_Port_MAC_Table", Bytes(327696).U32(0, 16385).U32(8, 77).U32(12, 1).U16(16 + 20 * 16383 + 6, 4095));
  HeapArea<PortMacTable> port;
  ASSERT_TRUE(DumpPortMACTable(1, 2, &port).Ok());
  EXPECT_EQ(port->count, 16384U);
  EXPECT_EQ(port->macLimit, 77U);
  EXPECT_EQ(port->limitExceeded, 1U);
  EXPECT_EQ(port->entries[16383].vlanID, 4095);

  Answer("Ryn_Dump_Switch_MAC_Table", Bytes(1310736).U32(0, kMany).U32(16 + 20 * 65535 + 16, 6));
  HeapArea<SwitchMacTable> all;
  ASSERT_TRUE(DumpSwitchMACTable(1, &all).Ok());
  EXPECT_EQ(all->count, 65536U);
  EXPECT_EQ(all->entries[65535].macGenDiff, 6U);
}

TEST_F(Records, AFailureLeavesALargeRecordAsItWas) {
  Answer("Ryn_Dump_Switch_MAC_Table", Bytes(16).U32(0, 5), 1);
  HeapArea<SwitchMacTable> table;
  ASSERT_TRUE(DumpSwitchMACTable(1, &table).Ok());
  const SwitchMacTable* const before = table.get();
  Fail("Ryn_Dump_Switch_MAC_Table", 1);
  EXPECT_FALSE(DumpSwitchMACTable(1, &table).Ok());
  EXPECT_EQ(table.get(), before);
  EXPECT_EQ(table->count, 5U);
}

TEST_F(Records, StatisticsOfCoresAreCutTo32) {
  Answer("Ryn_Get_Flow_Stats", Bytes(1544).U32(0, 33).U32(8 + 48 * 31, 63).U64(8 + 48 * 31 + 40, ~0ULL));
  FlowStats flows;
  ASSERT_TRUE(GetFlowStats(1, {}, 0, &flows).Ok());
  EXPECT_EQ(flows.count, 32U);
  EXPECT_EQ(flows.records[31].lcoreID, 63U);
  EXPECT_EQ(flows.records[31].keyInsertFailCount, ~0ULL);

  Answer("Ryn_Get_FPO_Stats", Bytes(1800).U32(0, kMany).U64(8 + 56 * 31 + 48, 1ULL << 63));
  FPOLcoreStats fpo;
  ASSERT_TRUE(GetFPOStats(1, {}, &fpo).Ok());
  EXPECT_EQ(fpo.count, 32U);
  EXPECT_EQ(fpo.records[31].transientFlows, 1ULL << 63);
}

TEST_F(Records, UplinksOfAPolicyAreCutTo8AndDevicesTo32) {
  Answer("Ryn_Get_Port_Tx_Uplink", Bytes(18).U8(0, 2).U8(1, 9).U16(16, 65535));
  TxUplinks policy;
  ASSERT_TRUE(GetPortTxUplink(1, 2, &policy).Ok());
  EXPECT_EQ(policy.count, 8);
  EXPECT_EQ(policy.uplinks[7], 65535);

  Answer("Ryn_List_Dev_Affinity",
         Bytes(1156).U32(0, 33).Text(4 + 36 * 31, std::string(32, 'd')).U32(4 + 36 * 31 + 32, 3));
  DeviceList devices;
  ASSERT_TRUE(ListDevAffinity(&devices).Ok());
  EXPECT_EQ(devices.count, 32U);
  EXPECT_EQ(FieldText(devices.devices[31].name), std::string(32, 'd'));
  EXPECT_EQ(devices.devices[31].affinity, 3U);
}

TEST_F(Records, PrivateStatisticsEndAtTheirNulOrTheirLength) {
  PrivateStats stats;
  EXPECT_EQ(stats.Text(), "");
  Answer("Ryn_Get_Uplink_Priv_Stats", Bytes(8).Text(0, "abc"));
  ASSERT_TRUE(GetUplinkPrivStats(1, 2, 8, &stats).Ok());
  EXPECT_EQ(stats.Text(), "abc");
  Answer("Ryn_Get_Uplink_Priv_Stats", Bytes(8, 'x'));
  ASSERT_TRUE(GetUplinkPrivStats(1, 2, 8, &stats).Ok());
  EXPECT_EQ(stats.Text(), "xxxxxxxx");

  Fail("Ryn_Get_Uplink_Priv_Stats", 1);
  EXPECT_FALSE(GetUplinkPrivStats(1, 2, 8, &stats).Ok());
  EXPECT_EQ(stats.Text(), "xxxxxxxx");
  Calls();
  ASSERT_TRUE(GetUplinkPrivStats(1, 2, 0, &stats).Ok());
  EXPECT_EQ(stats.Text(), "");
  EXPECT_EQ(Calls(), "");
}

TEST_F(Records, PrivateStatisticsAbove16MiBAreRefused) {
  Answer("Ryn_Get_Uplink_Priv_Stats_Len", Bytes(4).U32(0, 16U << 20));
  std::uint32_t length = 0;
  ASSERT_TRUE(GetUplinkPrivStatsLen(1, 2, &length).Ok());
  EXPECT_EQ(length, 16U << 20);
  Answer("Ryn_Get_Uplink_Priv_Stats_Len", Bytes(4).U32(0, (16U << 20) + 1));
  const Status status = GetUplinkPrivStatsLen(1, 2, &length);
  EXPECT_EQ(status.kind, Status::Kind::kInvalidResponse);
  EXPECT_STREQ(status.operation, "Ryn_Get_Uplink_Priv_Stats_Len");
}

TEST_F(Records, WhatTheDatapathDoesNotFillIsZero) {
  PortStats stats;
  std::memset(&stats, 0xFF, sizeof(stats));
  ASSERT_TRUE(GetPortStats(1, 2, &stats).Ok());
  EXPECT_EQ(stats.txBytes, 0U);
  EXPECT_EQ(stats.rxErrors, 0U);
}

TEST(Lcores, AreTakenLowestFirst32AtATime) {
  std::uint64_t bitmap = ~0ULL;
  const LcoreList low = TakeLcores(&bitmap);
  EXPECT_EQ(low.count, 32U);
  EXPECT_EQ(low.ids[0], 0U);
  EXPECT_EQ(low.ids[31], 31U);
  EXPECT_EQ(bitmap, 0xFFFFFFFF00000000U);
  const LcoreList high = TakeLcores(&bitmap);
  EXPECT_EQ(high.count, 32U);
  EXPECT_EQ(high.ids[31], 63U);
  EXPECT_EQ(bitmap, 0U);
  EXPECT_EQ(TakeLcores(&bitmap).count, 0U);
}

TEST_F(Records, FiguresAreThoseOfTheirCores) {
  // Port 1 on cores 2 and 64, which there is not; 2 MiB and 4 MiB marks, counters 1000 to 4000.
  Bytes answer(9224);
  answer.U32(8 + 48 + 8, 2).U32(8 + 48 + 12, 64);
  for (std::size_t i = 0; i < 4; ++i)
    answer.U64(8 + 48 + 16 + 8 * i, 1000 * (i + 1));
  const std::size_t core = 6152 + 48 * 2;
  answer.U64(core, 2 << 20).U64(core + 16, 4 << 20).U64(core + 32, 10000);
  Answer("Ryn_Dump_LB_PortStats", answer);
  LBPortStats stats;
  ASSERT_TRUE(DumpLBPortStats(0, &stats).Ok());

  // Busy 2, period 4 units of 2 to the power 20: 2 * 200 * 1000 / (4 * 10000), 2 * 100 * 3000 / (4 * 10000).
  const PortFigures port = FiguresOf(stats.ports[1], stats.cores);
  EXPECT_EQ(std::vector<std::uint64_t>(port.values, port.values + 6), (std::vector<std::uint64_t>{10, 0, 15, 0, 1, 1}));
  const CoreFigures figures = FiguresOf(stats.cores[2]);
  EXPECT_EQ(figures.values[0], 50U);
  EXPECT_EQ(figures.values[1], 1U);
  EXPECT_EQ(FiguresOf(stats.cores[3]).values[0], 0U);
}

}  // namespace
