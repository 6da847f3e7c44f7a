// Each function calls the one operation that it is named for, with the arguments it was given and an area that is
// zeroed and of the prescribed size; a failure names the operation and its status.
#include <functional>

#include "host/change/datapath.h"
#include "host/change/ports.h"
#include "host/change/properties.h"
#include "host/config.h"
#include "host/properties.h"
#include "host/read/balancer.h"
#include "host/read/flows.h"
#include "host/read/ports.h"
#include "host/read/uplinks.h"
#include "support.h"

namespace {

struct Row {
  const char* operation;
  const char* arguments;  // as the double records them
  std::function<Status()> call;
};

// A record that is not zero before the call.
template <class Record>
Record* Dirty() {
  static Record record;
  std::memset(static_cast<void*>(&record), 0xA5, sizeof(record));
  return &record;
}

constexpr char kPortset[128] = "net";
constexpr std::uint8_t kMac[6] = {2, 0, 0, 10, 11, 252};

#define PORT R"("swID": 3, "rynPortID": 7)"
#define AREA(size) R"(, "length": )" #size R"(, "zeroed": true)"
#define ZEROED R"(, "zeroed": true)"

std::string PortsetBytes() { return R"("portset": {"bytes": "6e6574)" + std::string(250, '0') + R"("})"; }

const std::string kOfPortset = PortsetBytes() + R"(, "portsetSize": 128, "zeroed": true)";
const std::string kOfPortsetAlone = PortsetBytes() + R"(, "zeroed": true)";

LcoreList Lcores() {
  LcoreList lcores;
  lcores.ids[0] = 5;
  lcores.ids[1] = 63;
  lcores.count = 2;
  return lcores;
}

const Row kRows[] = {
    {"Ryn_Get_Switch_List", R"("length": 2568, "zeroed": true)", [] { return GetSwitchList(Dirty<SwitchList>()); }},
    {"Ryn_Get_Port_List", R"("swID": 3)" AREA(11532), [] { return GetPortList(3, Dirty<PortList>()); }},
    {"Ryn_Get_Port_Stats", PORT AREA(128), [] { return GetPortStats(3, 7, Dirty<PortStats>()); }},
    {"Ryn_Get_Port_Stats_Slowpath", PORT AREA(128), [] { return GetPortStatsSlowpath(3, 7, Dirty<PortStats>()); }},
    {"Ryn_Get_Port_Conf", PORT AREA(1272), [] { return GetPortConf(3, 7, Dirty<PortConf>()); }},
    {"Ryn_GetLRO", R"("scope": 0, )" PORT ZEROED, [] { return GetPortLRO(3, 7, Dirty<std::uint32_t>()); }},
    {"Ryn_GetLRO", R"("scope": 1, "swID": 3, "rynPortID": 0)" ZEROED,
     [] { return GetSwitchLRO(3, Dirty<std::uint32_t>()); }},
    {"Ryn_Dump_Port_MAC_Table", PORT AREA(327696),
     [] {
       HeapArea<PortMacTable> table;
       return DumpPortMACTable(3, 7, &table);
     }},
    {"Ryn_Dump_Switch_MAC_Table", R"("swID": 3)" AREA(1310736),
     [] {
       HeapArea<SwitchMacTable> table;
       return DumpSwitchMACTable(3, &table);
     }},
    {"Ryn_Dump_Flow_Table", R"("swID": 3, "lcore": 31, "startIndex": 4294967294, "flag": 1)" AREA(10260),
     [] { return DumpFlowTable(3, 31, 4294967294, true, Dirty<FlowPage>()); }},
    {"Ryn_Get_Flow_Stats", R"("swID": 3, "lcores": [5, 63], "lcoreCount": 2, "option": 9)" AREA(1544),
     [] { return GetFlowStats(3, Lcores(), 9, Dirty<FlowStats>()); }},
    {"Ryn_Get_FPO_Stats", R"("swID": 3, "lcores": [5, 63], "lcoreCount": 2)" AREA(1800),
     [] { return GetFPOStats(3, Lcores(), Dirty<FPOLcoreStats>()); }},
    {"Ryn_Get_Flow_Timeout", R"("zeroed": true)", [] { return GetFlowTimeout(Dirty<std::uint32_t>()); }},
    {"Ryn_Get_FPO_Uplink_Status", PORT AREA(40), [] { return GetFPOUplinkStatus(3, 7, Dirty<FPOUplinkCaps>()); }},
    {"Ryn_Get_Port_Tx_Uplink", PORT AREA(18), [] { return GetPortTxUplink(3, 7, Dirty<TxUplinks>()); }},
    {"Ryn_Get_Panic_On_Tx_Hang", R"("swID": 3)" ZEROED, [] { return GetPanicOnTxHang(3, Dirty<std::uint32_t>()); }},
    {"Ryn_List_Dev_Affinity", R"("length": 1156, "zeroed": true)", [] { return ListDevAffinity(Dirty<DeviceList>()); }},
    {"Ryn_Get_Uplink_Stats", PORT AREA(192), [] { return GetUplinkStats(3, 7, Dirty<UplinkStats>()); }},
    {"Ryn_Get_Uplink_Queue_Stats", PORT R"(, "queue": 4, "queueKind": 1)" AREA(192),
     [] { return GetUplinkQueueStats(3, 7, 4, true, Dirty<UplinkStats>()); }},
    {"Ryn_Get_Uplink_Priv_Stats_Len", PORT AREA(4), [] { return GetUplinkPrivStatsLen(3, 7, Dirty<std::uint32_t>()); }},
    {"Ryn_Get_Uplink_Priv_Stats", PORT AREA(11),
     [] {
       PrivateStats stats;
       return GetUplinkPrivStats(3, 7, 11, &stats);
     }},
    {"Ryn_Get_Mirror_Conf", R"("swID": 3)" AREA(2048), [] { return GetMirrorConf(3, Dirty<MirrorConf>()); }},
    {"Ryn_Get_Port_NetQ_Info", PORT AREA(524288),
     [] {
       HeapArea<NetQResponse> response;
       return GetPortNetQInfo(3, 7, &response);
     }},
    {"Ryn_GetLBWeights", R"("zeroed": true)", [] { return GetLBWeights(Dirty<LBWeights>()); }},
    {"Ryn_GetCurrentLBData", kOfPortset.c_str(), [] { return GetCurrentLBData(kPortset, Dirty<LBSwitchOptions>()); }},
    {"Ryn_GetSwitchNUMATeam", kOfPortset.c_str(), [] { return GetSwitchNUMATeam(kPortset, Dirty<std::uint8_t>()); }},
    {"Ryn_GetSwitchBurstSize", kOfPortsetAlone.c_str(),
     [] { return GetSwitchBurstSize(kPortset, Dirty<std::uint32_t>()); }},
    {"Ryn_Get_LCore_ID_Bitmap", R"("swID": 3)" ZEROED, [] { return GetLCoreIDBitmap(3, Dirty<std::uint64_t>()); }},
    {"Ryn_Dump_LB_PortStats", R"("swID": 3)" AREA(9224), [] { return DumpLBPortStats(3, Dirty<LBPortStats>()); }},
    {"Ryn_DumpLBSnapshot", R"("swID": 3)" AREA(4096), [] { return DumpLBSnapshot(3, Dirty<LBSnapshot>()); }},

    {"Ryn_Migrate_Port", PORT R"(, "option1": 1, "option2": 2, "option3": 3)",
     [] { return MigratePort(3, 7, 1, 2, 3); }},
    {"Ryn_Unpin_Port", PORT R"(, "option": 5)", [] { return UnpinPort(3, 7, 5); }},
    {"Ryn_Reset_Port", PORT, [] { return ResetPort(3, 7); }},
    {"Ryn_SetLRO", R"("scope": 0, )" PORT R"(, "state": 1)", [] { return SetPortLRO(3, 7, 1); }},
    {"Ryn_SetLRO", R"("scope": 1, "swID": 3, "rynPortID": 0, "state": 1)", [] { return SetSwitchLRO(3, 1); }},
    {"Ryn_Clear_Port_MAC_Table", PORT, [] { return ClearPortMACTable(3, 7); }},
    {"Ryn_Clear_Switch_MAC_Table", R"("swID": 3)", [] { return ClearSwitchMACTable(3); }},
    {"Ryn_MAC_Entry_Ops", PORT R"(, "mac": {"bytes": "0200000a0bfc"}, "vlanID": 100, "operation": 1)",
     [] { return AddMACEntry(3, 7, kMac, 100); }},
    {"Ryn_MAC_Entry_Ops", PORT R"(, "mac": {"bytes": "0200000a0bfc"}, "vlanID": 100, "operation": 0)",
     [] { return DeleteMACEntry(3, 7, kMac, 100); }},
    {"Ryn_Clear_Switch_Flow_Table", R"("swID": 3)", [] { return ClearSwitchFlowTable(3); }},
    {"Ryn_Enable_Switch_Flow_Cache", R"("swID": 3, "enable": 1)", [] { return EnableSwitchFlowCache(3, 1); }},
    {"Ryn_Set_Flow_Timeout", R"("seconds": 30)", [] { return SetFlowTimeout(30); }},
    {"Ryn_Set_Port_Tx_Uplink", PORT R"(, "txType": 2, "count": 3, "uplinks": [1, 2, 70000, 0, 0, 0, 0, 0])",
     [] {
       return SetPortTxUplink(3, 7, 2, 3, {1, 2, 70000});
     }},
    {"Ryn_Set_Uplink_MAC_Learn", R"("swID": 3, "enable": 1)", [] { return SetUplinkMACLearn(3, 1); }},
    {"Ryn_Set_Panic_On_Tx_Hang", R"("swID": 3, "setting": 1)", [] { return SetPanicOnTxHang(3, 1); }},
    {"Ryn_Set_Dev_Affinity", R"("device": {"text": "6c30"}, "affinity": 2)", [] { return SetDevAffinity("l0", 2); }},
    {"Ryn_SetLBWeights", R"("weights": {"bytes": "0100000002000000030000000400000005000000060000000700000008000000"})",
     [] {
       return SetLBWeights({{1, 2, 3, 4, 5, 6, 7, 8}});
     }},
    {"Ryn_ResetLBWeights", "", [] { return ResetLBWeights(); }},
    {"Ryn_Init_Mbuf_Fastslabs", "", [] { return InitMbufFastslabs(); }},
    {"DVSQOB_HostPropSet",
     R"("switchId": {"text": "6964"}, "key": {"text": "6b"}, "value": {"bytes": "616263"}, "length": 3, "option": 16)",
     [] { return SetHostProperty("id", "k", "abc", 3); }},
    {"DVSQOB_PortDataSet",
     R"("switchId": {"text": "6964"}, "portId": {"text": "37"}, "key": {"text": "6b"}, "value": {"bytes": "616263"}, "length": 3, "option": 8)",
     [] { return SetPortProperty("id", "7", "k", "abc", 3); }},
};

class Operation : public HostTest, public testing::WithParamInterface<Row> {};

TEST_P(Operation, IsCalledOnceWithTheArguments) {
  const Status status = GetParam().call();
  EXPECT_TRUE(status.Ok());
  EXPECT_EQ(status.operation, nullptr);
  EXPECT_EQ(status.code, 0U);
  EXPECT_EQ(Calls(),
            "{\"op\": \"" + std::string(GetParam().operation) + "\", \"args\": {" + GetParam().arguments + "}}\n");
}

TEST_P(Operation, ThatFailsIsNamedWithItsStatus) {
  Fail(GetParam().operation, 0xBAD0007);
  const Status status = GetParam().call();
  EXPECT_FALSE(status.Ok());
  EXPECT_EQ(status.kind, Status::Kind::kFailed);
  EXPECT_EQ(status.code, 0xBAD0007);
  EXPECT_STREQ(status.operation, GetParam().operation);
}

INSTANTIATE_TEST_SUITE_P(All, Operation, testing::ValuesIn(kRows), [](const auto& row) {
  return std::string(row.param.operation) + "_" + std::to_string(row.index);
});

}  // namespace
