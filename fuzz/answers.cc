// Methods over whatever the datapath library answers.
#include <iterator>

#include "libryn/flowcache/flowcache.h"
#include "libryn/loadbal/loadbal.h"
#include "libryn/ports/ports.h"
#include "libryn/uplinks/uplinks.h"
#include "model.h"
#include "targets.h"

namespace {

constexpr std::size_t kFlowPage = 10260, kSnapshot = 4096, kBalancerStats = 9224, kMirrorConf = 2048, kNetQ = 524288,
                      kSwitchList = 2568, kPortList = 11532, kPortConf = 1272, kDevices = 1156, kFlowStats = 1544,
                      kFPOStats = 1800;

bool IsNone(const Ref& result) { return result.get() == Py_None; }

// The text of a result as Python shows it, which is how the models of nested values spell theirs.
std::string Shown(const Ref& result) { return TextOf(Ref(PyObject_Repr(result.get())).get()); }

std::string Number(std::uint64_t value) { return std::to_string(value); }

// A list with as many items as there is room for, each shown as its model says: of a long one the first and the last.
template <class Model>
void CheckItems(PyObject* list, std::size_t count, std::size_t room, Model model) {
  constexpr std::size_t kLooked = 300;
  const std::size_t items = std::min(count, room);
  Expect(PyList_Check(list) && PyList_GET_SIZE(list) == static_cast<Py_ssize_t>(items), "as many as there is room for");
  for (std::size_t i = 0; i < items; i += i < kLooked || i + 1 == items ? 1 : items - i - 1)
    ExpectEqual(Shown(NewRef(PyList_GET_ITEM(list, static_cast<Py_ssize_t>(i)))), "{" + model(i) + "}", "an item");
}

// The same for records that begin with a name of fixed width: each ends at its NUL or with its field, and one that is
// not UTF-8 ends the method. The count stands at the start of the area.
void CheckNamed(const Ref& list, const Bytes& area, std::size_t head, std::size_t record, std::size_t width,
                std::size_t room, const char* key, std::initializer_list<Cell> cells) {
  const std::size_t count = std::min<std::size_t>(At<std::uint32_t>(area, 0), room);
  std::vector<std::string> names;
  for (std::size_t i = 0; i < count; ++i) {
    std::string name;
    for (std::size_t at = head + record * i; name.size() < width && At<char>(area, at + name.size());)
      name += At<char>(area, at + name.size());
    const Ref text(PyUnicode_DecodeUTF8(name.data(), static_cast<Py_ssize_t>(name.size()), nullptr));
    PyErr_Clear();
    if (!text)
      return Expect(IsNone(list), "a name that is not UTF-8 ends the method");
    names.push_back(Shown(text));
  }
  CheckItems(list.get(), count, room, [&](std::size_t i) {
    return std::string("'") + key + "': " + names[i] + ", " + CellsModel(area, head + record * i, cells);
  });
}

}  // namespace

// ---- Flow cache ----------------------------------------------------------------------------------------------------

void FuzzFlowPage(Input input) {
  const Bytes page = Resized(input.Rest(), kFlowPage);
  Answer("Ryn_Dump_Flow_Table", page);
  const Ref dict = Run(PyRYN_Dump_Flow_Table, Args("(iiii)", 1, 2, 3, 4));

  const std::uint32_t count = At<std::uint32_t>(page, 12);
  const std::size_t valid = std::min<std::size_t>(At<std::uint32_t>(page, 16), kFlowPage);
  PyObject* const list = IsNone(dict) ? nullptr : PyDict_GetItemString(dict.get(), "list");
  std::size_t at = 20;
  for (std::uint32_t i = 0; i < count; ++i) {
    if (at + 304 > valid)
      return Expect(!list, "an entry with fewer than 304 bytes left is refused");
    const Bytes key(page.begin() + static_cast<std::ptrdiff_t>(at),
                    page.begin() + static_cast<std::ptrdiff_t>(at + 64));
    const Bytes actions(page.begin() + static_cast<std::ptrdiff_t>(at + 64), page.end());
    const auto [line, result] = ActionsModel(actions, 512);
    if (result != 0)
      return Expect(!list, "an actions line that does not fit is refused");
    if (list) {
      Expect(i < static_cast<std::uint32_t>(PyList_GET_SIZE(list)), "the list is as long as the count");
      PyObject* const item = PyList_GET_ITEM(list, static_cast<Py_ssize_t>(i));
      ExpectEqual(TextOf(item, "key"), FlowKeyModel(key), "key");
      ExpectEqual(TextOf(item, "actions"), line, "actions");
      ExpectEqual(TextOf(item, "stats"), StatisticsModel(actions), "stats");
    }
    at += 64U + At<std::uint16_t>(actions, 62);
  }
  Expect(list && PyList_GET_SIZE(list) == static_cast<Py_ssize_t>(count), "a page whose entries fit is listed");
}

void FuzzFlowStats(Input input) {
  const Bytes area = input.Rest();
  Answer("Ryn_Get_Flow_Stats", area);
  const Ref list = Run(PyRYN_Get_Flow_Stats, Args("(i(iii)i)", 1, 2, 3, 4, 5));
  CheckItems(list.get(), At<std::uint32_t>(area, 0), 32, [&](std::size_t i) {
    return CellsModel(Resized(area, kFlowStats), 8 + 48 * i,
                      {{"lcoreID", 0},
                       {"numFlows", 4},
                       {"hits", 8, Kind::kLowWord},
                       {"miss", 16, Kind::kLowWord},
                       {"fpoHits", 24, Kind::kLowWord},
                       {"localHits", 32, Kind::kLowWord},
                       {"keyInsertFailCount", 40, Kind::kLowWord}});
  });
}

void FuzzFPOStats(Input input) {
  const Bytes area = input.Rest();
  Answer("Ryn_Get_FPO_Stats", area);
  Answer("Ryn_Get_FPO_Uplink_Status", area);
  const Ref list = Run(PyRYN_Get_FPO_Stats, Args("(i(ii))", 1, 2, 3));
  CheckItems(list.get(), At<std::uint32_t>(area, 0), 32, [&](std::size_t i) {
    return CellsModel(Resized(area, kFPOStats), 8 + 56 * i,
                      {{"lcoreID", 0},
                       {"hits", 8, Kind::kLowWord},
                       {"markMismatched", 16, Kind::kLowWord},
                       {"pnicMismatched", 24, Kind::kLowWord},
                       {"delayMarkMatching", 32, Kind::kLowWord},
                       {"ephemeralFlows", 40, Kind::kLowWord},
                       {"transientFlows", 48, Kind::kLowWord}});
  });

  const Ref status = Run(PyRYN_Get_FPO_Uplink_Status, Args("(ii)", 1, 2));
  static constexpr const char* kLevels[] = {"Not Supported", "Model 1 Level 1", "Model 1 Level 2", "Model 2"};
  const auto level = At<std::uint32_t>(area, 0);
  ExpectEqual(Shown(status),
              std::string("{'level': '") + kLevels[level < 4 ? level : 0] + "', " +
                  CellsModel(Resized(area, 40), 0,
                             {{"numGroupSupported", 4},
                              {"numPrioritySupported", 8},
                              {"maxMarkActionBits", 12},
                              {"maxFlowsSupported", 16},
                              {"maxCountersSupported", 20},
                              {"maxFlowKeyLengthInBits", 24},
                              {"maxDecTTLActions", 28},
                              {"actionsSupported", 32, Kind::kSigned}}) +
                  "}",
              "what an uplink can offload");
}

// ---- Load balancer -------------------------------------------------------------------------------------------------

void FuzzSnapshot(Input input) {
  const Bytes area = Resized(input.Rest(), kSnapshot);
  Answer("Ryn_DumpLBSnapshot", area);
  const Ref text = Run(PyRYN_DumpLBSnapshot, Args("(i)", 1));
  ExpectEqual(TextOf(text.get()), SnapshotModel(area).substr(0, 16384), "a snapshot's text");
}

void FuzzBalancerFigures(Input input) {
  const std::uint32_t first = input.Take<std::uint8_t>() % 128, last = first + input.Take<std::uint8_t>() % 4;
  const Bytes area = Resized(input.Rest(), kBalancerStats);
  if (last > 127)
    return;
  Answer("Ryn_Dump_LB_PortStats", area);
  const Ref result = Run(PyRYN_DumpLBPortStats, Args("(iII)", 1, first, last));

  // Wide arithmetic, reduced after each step
  using Wide = unsigned __int128;
  const auto reduced = [](Wide value) { return static_cast<std::uint64_t>(value); };
  const auto units = [&](std::size_t now, std::size_t before) {
    const Wide difference = (Wide{1} << 64) + At<std::uint64_t>(area, now) - At<std::uint64_t>(area, before) + 0xFFFFF;
    return reduced(difference) / 0x100000;
  };
  const auto loads = [&](Wide work) { return reduced(work + 99999) / 100000; };
  const auto usage = [&](std::uint32_t core, unsigned scale, std::uint64_t counter) {
    if (core > 63)
      return std::uint64_t{0};
    const std::size_t at = 6152 + 48 * std::size_t{core};
    const std::uint64_t divisor = reduced(Wide{units(at + 16, at + 24)} * At<std::uint64_t>(area, at + 32));
    return divisor ? reduced(Wide{reduced(Wide{units(at, at + 8)} * scale)} * counter) / divisor : 0;
  };

  std::string columns[5], cores;
  for (std::uint32_t port = first; port <= last; ++port) {
    const std::size_t at = 8 + 48 * std::size_t{port};
    const std::string comma = port == first && port == last ? "," : port == last ? "" : ", ";
    for (std::size_t word = 0; word < 4; ++word)
      columns[word] += Number(At<std::uint32_t>(area, at + 4 * word)) + comma;
    const auto core = [&](int j) { return At<std::uint32_t>(area, at + 8 + 4 * static_cast<std::size_t>(j % 2)); };
    const auto counter = [&](int j) { return At<std::uint64_t>(area, at + 16 + 8 * static_cast<std::size_t>(j)); };
    columns[4] += "(";
    for (int j = 0; j < 4; ++j)
      columns[4] += Number(usage(core(j), j < 2 ? 200 : 100, counter(j))) + ", ";
    columns[4] += Number(loads(Wide{2} * counter(0) + counter(2))) + ", " +
                  Number(loads(Wide{2} * counter(1) + counter(3))) + ")" + comma;
  }
  for (std::size_t core = 0; core < 64; ++core) {
    const std::size_t at = 6152 + 48 * core;
    const auto word = [&](std::size_t i) { return At<std::uint64_t>(area, at + 8 * i); };
    const std::uint64_t period = word(2) - word(3);
    cores += "(" + Number(period ? reduced(Wide{word(0) - word(1)} * 100) / period : 0) + ", " +
             Number(loads(word(4))) + (core < 63 ? "), " : ")");
  }
  std::string expected = "(";
  for (const std::string& column : columns)
    expected += "(" + column + "), ";
  ExpectEqual(Shown(result), expected + "(" + cores + "))", "the balancer's figures");
}

// ---- Switches and ports --------------------------------------------------------------------------------------------

void FuzzSwitchList(Input input) {
  const Bytes area = Resized(input.Rest(), kSwitchList);
  Answer("Ryn_Get_Switch_List", area);
  CheckNamed(Run(PyRYN_List_Switches, Args("()")), area, 8, 160, 128, 16, "name",
             {{"swID", 128},
              {"maxPorts", 132},
              {"numActivePorts", 136},
              {"numPorts", 140},
              {"mtu", 144},
              {"numLcores", 148},
              {"lcores", 152, Kind::kSigned}});
}

void FuzzPortList(Input input) {
  const Bytes area = Resized(input.Rest(), kPortList);
  Answer("Ryn_Get_Port_List", area);
  const Ref list = Run(PyRYN_List_Ports, Args("(i)", 1));
  CheckItems(list.get(), At<std::uint32_t>(area, 4), 128, [&](std::size_t i) {
    const std::size_t record = 12 + 90 * i;
    static constexpr const char* kClients[] = {"UNKNOWN", "VNIC", "UPLINK", "GENERIC", "QOBNIC"};
    const auto client = At<std::uint32_t>(area, record + 18);
    std::string text = CellsModel(area, record,
                                  {{"portID", 0},
                                   {"rynPortID", 4},
                                   {"numTxQ", 8, Kind::kByte},
                                   {"numRxQ", 9, Kind::kByte},
                                   {"hwAddr", 10, Kind::kMac},
                                   {"numMACs", 16, Kind::kHalf}}) +
                       ", 'clientType': '" + kClients[client < 5 ? client : 0] + "'";
    for (const std::size_t received : {0U, 1U}) {
      text += received ? ", 'rxQLM': [" : ", 'txQLM': [";
      const std::size_t queues = std::min<std::size_t>(area[record + 8 + received], 32);
      for (std::size_t queue = 0; queue < queues; ++queue)
        text += (queue ? ", " : "") + Number(area[record + 26 + 32 * received + queue]);
      text += "]";
    }
    return text;
  });
}

void FuzzPortStats(Input input) {
  const std::uint32_t length = input.Take<std::uint32_t>(), failing = input.Take<std::uint8_t>() % 4;
  const Bytes fast = input.Take(200), slow = input.Rest();
  AnswerWithLength("Ryn_Get_Port_Stats", fast, length);
  if (failing == 1)
    Answer("Ryn_Get_Port_Stats_Slowpath", slow, 7);
  else
    AnswerWithLength("Ryn_Get_Port_Stats_Slowpath", slow, length);
  const Ref dict = Run(PyRYN_Get_Port_Stats, Args("(ii)", 1, 2), failing == 1 ? kMayLeak : kPlain);
  if (failing == 1)
    return Expect(IsNone(dict), "counters of the slow path that cannot be read end the method");

  std::string expected;
  const auto counters = [&](const Bytes& record, const char* sent, const char* received) {
    struct Counter {
      const char* name;
      std::size_t offset;
    };
    static constexpr Counter kCounters[] = {{"Pkts", 8},        {"Bytes", 0},      {"McastPkts", 24},
                                            {"McastBytes", 16}, {"BcastPkts", 40}, {"BcastBytes", 32},
                                            {"Drops", 48},      {"Errors", 56}};
    for (const std::size_t base : {0U, 64U})
      for (const Counter& counter : kCounters)
        expected += (expected.empty() ? "'" : ", '") + std::string(base ? received : sent) + counter.name +
                    "': " + std::to_string(At<std::int64_t>(record, base + counter.offset));
  };
  counters(Resized(fast, 128), "tx", "rx");
  counters(Resized(Resized(slow, std::min<std::size_t>({length, slow.size(), 128})), 128), "spTx", "spRx");
  ExpectEqual(Shown(dict), "{" + expected + "}", "counters of both paths");
}

void FuzzPortConf(Input input) {
  const Bytes area = Resized(input.Rest(), kPortConf);
  Answer("Ryn_Get_Port_Conf", area);
  const Ref dict = Run(PyRYN_Get_Port_Conf, Args("(ii)", 1, 2));
  const std::size_t addresses = At<std::uint32_t>(area, 16), ranges = At<std::uint32_t>(area, 48);
  std::string expected = CellsModel(area, 0, {{"portID", 0}}) + ", 'flags': '" +
                         FlagsModel(At<std::uint32_t>(area, 20)) + "', " +
                         CellsModel(area, 0,
                                    {{"ladrf", 24, Kind::kSigned},
                                     {"hwAddr", 32, Kind::kMac},
                                     {"untaggedVlanID", 38, Kind::kHalf},
                                     {"forgedMACAllowed", 40, Kind::kByte},
                                     {"numMcastAddrs", 16},
                                     {"vni", 44},
                                     {"sampleRate", 244}});
  for (std::size_t i = 0; i < std::min<std::size_t>(addresses, 32); ++i)
    expected += (i ? ", '" : ", 'mcastAddrList': ['") + MacModel(area, 52 + 6 * i) + "'";
  expected += (addresses ? "], " : ", ") + CellsModel(area, 0, {{"numTaggedVlanRanges", 48}});
  for (std::size_t at = 248; at < 248 + 4 * std::min<std::size_t>(ranges, 256); at += 4)
    expected += (at > 248 ? ", '" : ", 'vlanRanges': ['") + Number(At<std::uint16_t>(area, at)) + "-" +
                Number(At<std::uint16_t>(area, at + 2)) + "'";
  ExpectEqual(Shown(dict), "{" + expected + (ranges ? "]}" : "}"), "a port's configuration");
}

namespace {

void CheckMacTable(const Ref& dict, const Bytes& area, std::size_t room) {
  PyObject* const list = PyDict_GetItemString(dict.get(), "MacTableList");
  Expect(list != nullptr, "a table has a list");
  CheckItems(list, At<std::uint32_t>(area, 0), room, [&](std::size_t i) {
    return CellsModel(area, 16 + 20 * i,
                      {{"macAddr", 0, Kind::kMac}, {"vlanID", 6, Kind::kHalf}, {"rynPortID", 8}, {"macGenDiff", 16}});
  });
}

std::string ShownUnder(const Ref& dict, const char* key) {
  return Shown(NewRef(PyDict_GetItemString(dict.get(), key)));
}

}  // namespace

void FuzzPortMacs(Input input) {
  const Bytes area = TakeCounted<std::uint32_t>(input, {0});  // zeros behind it
  Answer("Ryn_Dump_Port_MAC_Table", area);
  const Ref dict = Run(PyRYN_List_Port_MACTable, Args("(ii)", 1, 2));
  CheckMacTable(dict, area, 16384);
  Expect(PyDict_GET_SIZE(dict.get()) == 3, "three keys");
  ExpectEqual(ShownUnder(dict, "MacLimit"), Number(At<std::uint32_t>(area, 8)), "a limit");
  ExpectEqual(ShownUnder(dict, "LimitExceeded"), Number(At<std::uint32_t>(area, 12)), "a limit's excess");
}

void FuzzSwitchMacs(Input input) {
  const Bytes area = TakeCounted<std::uint32_t>(input, {0});
  Answer("Ryn_Dump_Switch_MAC_Table", area);
  const Ref dict = Run(PyRYN_List_Switch_MACTable, Args("(i)", 1));
  CheckMacTable(dict, area, 65536);
  Expect(PyDict_GET_SIZE(dict.get()) == 2, "two keys");
  ExpectEqual(ShownUnder(dict, "MacLimit"), Number(At<std::uint32_t>(area, 8)), "a limit");
}

// ---- Uplinks -------------------------------------------------------------------------------------------------------

void FuzzTxUplink(Input input) {
  const Bytes area = Resized(input.Rest(), 18);
  Answer("Ryn_Get_Port_Tx_Uplink", area);
  const Ref dict = Run(PyRYN_Get_Port_Tx_Uplink, Args("(ii)", 1, 2), kMayLeak);
  static constexpr const char* kTypes[] = {"None", "Single", "LAG", "SrcMAC", "All", "NoTeaming"};
  std::string expected =
      std::string("{'txType': '") + (area[0] < 6 ? kTypes[area[0]] : "Unknown") + "', 'txUplinks': [";
  for (std::size_t i = 0; i < area[1]; ++i)  // 0 behind the room
    expected += (i ? ", " : "") + Number(i < 8 ? At<std::uint16_t>(area, 2 + 2 * i) : 0);
  ExpectEqual(Shown(dict), expected + "]}", "a transmit policy");
}

void FuzzMirrorConf(Input input) {
  const Bytes conf = Resized(TakeCounted<std::uint16_t>(input, {8 + 14, 8 + 16, 8 + 18}), kMirrorConf);
  Answer("Ryn_Get_Mirror_Conf", conf);
  const Ref list = Run(PyRYN_Get_Mirror_Conf, Args("(i)", 1));

  const auto half = [&](std::size_t at) { return At<std::uint16_t>(conf, at); };
  const auto ports = [&](unsigned count, std::size_t bitmap) {
    std::string text;
    unsigned found = 0;
    for (unsigned port = 0; port < 128 && found < count; ++port)
      if (conf[bitmap + port / 8] >> port % 8 & 1)
        text += (found++ ? ", " : "") + Number(port);
    for (; found < count; ++found)
      text += found ? ", None" : "None";
    return "[" + text + "]";
  };
  std::string expected;
  std::size_t at = 8;
  for (unsigned i = 0; i < half(4); ++i) {
    if (at + 72 > kMirrorConf || at + 72 + (2U * half(at + 20) + 7) / 8 * 8 > kMirrorConf)
      return Expect(IsNone(list), "a session that would reach past the area is refused");
    expected += i ? ", {" : "{";
    static constexpr const char* kFlags[] = {"noInput", "noOutput", "vlanEncap", "OrigVlan"};
    for (int flag = 0; flag < 4; ++flag)
      expected += std::string("'") + kFlags[flag] + "': " + Number(half(at + 12) >> flag & 1) + ", ";
    expected += "'index': " + Number(half(at + 4)) + ", 'encapVlanID': " + Number(half(at + 6)) +
                ", 'samplingRate': " + Number(half(at + 10)) + ", 'snapLen': " + Number(half(at + 8)) +
                ", 'srcInPorts': " + ports(half(at + 14), at + 24) +
                ", 'srcOutPorts': " + ports(half(at + 16), at + 40) + ", 'dstPorts': " + ports(half(at + 18), at + 56) +
                ", 'vlans': [";
    for (std::size_t vlan = 0; vlan < half(at + 20); ++vlan)
      expected += (vlan ? ", " : "") + Number(half(at + 72 + 2 * vlan));
    expected += "]}";
    at += 72 + (2U * half(at + 20) + 7) / 8 * 8;
  }
  ExpectEqual(Shown(list), "[" + expected + "]", "mirror sessions");
}

void FuzzUplinkStats(Input input) {
  const auto length = input.Take<std::uint32_t>() % 100000;  // the module allocates what it is told
  const auto kind = input.Take<std::uint8_t>();
  const auto status = [&](int bit) { return std::uint32_t{kind} >> bit & 1; };
  const Bytes counters = input.Take(192), text = input.Rest();
  Answer("Ryn_Get_Uplink_Stats", counters, status(0));
  Answer("Ryn_Get_Uplink_Queue_Stats", counters, status(4));
  Bytes word(4);
  std::memcpy(word.data(), &length, 4);
  Answer("Ryn_Get_Uplink_Priv_Stats_Len", word, status(1));
  if (status(2))
    Answer("Ryn_Get_Uplink_Priv_Stats", text, status(3));
  else
    AnswerWithLength("Ryn_Get_Uplink_Priv_Stats", text, length);

  static constexpr const char* kNames[] = {
      "rxPkts",       "txPkts",          "rxBytes",          "txBytes",         "rxErrors",           "txErrors",
      "rxDrops",      "txDrops",         "rxMulticastPkts",  "rxBroadcastPkts", "txMulticastPkts",    "txBroadcastPkts",
      "collisions",   "rxLengthErrors",  "rxOverflowErrors", "rxCRCErrors",     "rxFrameAlignErrors", "rxFifoErrors",
      "rxMissErrors", "txAbortedErrors", "txCarrierErrors",  "txFifoErrors",    "txHeartbeatErrors",  "txWindowErrors"};
  std::string list;
  for (std::size_t i = 0; i < std::size(kNames); ++i)
    list +=
        (i ? ", ('" : "[('") + std::string(kNames[i]) + "', " + std::to_string(At<std::int64_t>(counters, 8 * i)) + ")";
  list += "]";

  const std::size_t reported = status(1) ? 0 : length;
  const bool failing = (reported && status(2) && status(3)) || status(0);
  Bytes shown = Resized(text, std::min<std::size_t>(reported, text.size()));
  shown.resize(static_cast<std::size_t>(std::find(shown.begin(), shown.end(), 0) - shown.begin()));
  const Ref decoded(PyUnicode_DecodeUTF8(reinterpret_cast<const char*>(shown.data()),
                                         static_cast<Py_ssize_t>(shown.size()), nullptr));
  PyErr_Clear();
  const Ref dict = Run(PyRYN_Get_Uplink_Stats, Args("(ii)", 1, 2), kMayBeNull | kMayLeak);
  Expect((dict == nullptr) == (failing || !decoded), "null is for what failed, or is not UTF-8");
  if (dict)
    ExpectEqual(Shown(dict), "{'uplinkStats': " + list + ", 'privStats': " + Shown(decoded) + "}", "an uplink");
  const Ref queue = Run(PyRYN_Get_Uplink_Queue_Stats, Args("(iiii)", 1, 2, 3, 1));
  ExpectEqual(Shown(queue), status(4) ? "None" : list, "an uplink's queue");
}

void FuzzNetQ(Input input) {
  const Bytes response = TakeCounted<std::uint16_t>(input, {14, 16 + 6});  // zeros behind it
  Answer("Ryn_Get_Port_NetQ_Info", response);
  const Ref dict = Run(PyRYN_Get_Port_NetQ_Info, Args("(ii)", 1, 2));

  const auto half = [&](std::size_t at) { return std::size_t{At<std::uint16_t>(response, at)}; };
  const auto mac = [&](std::size_t at) { return MacModel(response, at); };
  const auto word = [&](std::size_t at) { return Number(At<std::uint32_t>(response, at)); };
  std::string filters;
  std::size_t at = 16;
  for (std::size_t i = 0; i < half(14); ++i) {
    const std::size_t body = at + 8, queues = body + half(at + 4), count = half(at + 6);
    if (body > kNetQ || queues + 16 * count > kNetQ)
      return Expect(IsNone(dict), "a filter that would reach past the response is refused");
    filters += (i ? ", {'rxf': '" : "{'rxf': '") +
               (half(at) == 0   ? "macOnly:" + mac(body)
                : half(at) == 1 ? "geneve:outer:" + mac(body) + ":inner:" + mac(body + 6) + ":vni:" + word(body + 12)
                                : std::string("UnknownFilter")) +
               "', 'qInfo': [";
    for (std::size_t queue = queues; queue < queues + 16 * count; queue += 16)
      filters += (queue > queues ? ", {'rynPortID': " : "{'rynPortID': ") + word(queue) +
                 ", 'qid': " + word(queue + 4) + ", 'fid': " + std::to_string(At<std::int64_t>(response, queue + 8)) +
                 "}";
    filters += "]}";
    at = queues + 16 * count;
  }
  ExpectEqual(Shown(dict),
              "{'isUplink': " + Number(half(12)) + ", 'swID': " + word(0) + ", 'rynPortID': " + word(4) +
                  ", 'filters': [" + filters + "]}",
              "network queues");
}

void FuzzDeviceAffinity(Input input) {
  const Bytes area = Resized(input.Rest(), kDevices);
  Answer("Ryn_List_Dev_Affinity", area);
  CheckNamed(Run(PyRYN_List_Device_Affinity, Args("()")), area, 4, 36, 32, 32, "devname", {{"affinity", 32}});
}
