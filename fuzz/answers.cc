// Methods over whatever the datapath library answers.
#include <cstdio>

#include "flowcache/flowcache.h"
#include "loadbal/loadbal.h"
#include "model.h"
#include "ports/ports.h"
#include "targets.h"
#include "uplinks/uplinks.h"

namespace {

constexpr std::size_t kFlowPage = 10260, kSnapshot = 4096, kBalancerStats = 9224, kMirrorConf = 2048, kNetQ = 524288,
                      kSwitchList = 2568, kDevices = 1156;

bool IsNone(const Ref& result) { return result.get() == Py_None; }

// The text of a result as Python shows it, which is how the models of nested values spell theirs.
std::string Shown(const Ref& result) { return TextOf(Ref(PyObject_Repr(result.get())).get()); }

std::string Number(std::uint64_t value) { return std::to_string(value); }

Bytes Resized(Bytes bytes, std::size_t size) {
  bytes.resize(size);
  return bytes;
}

// A list of records whose names of fixed width stand at their start: each ends at its NUL or with its field, and a name
// that is not UTF-8 ends the method. The count stands at the start of the area.
void CheckNames(const Ref& list, const Bytes& area, std::size_t head, std::size_t record, std::size_t width,
                std::size_t room, const char* key) {
  const std::size_t count = std::min<std::size_t>(At<std::uint32_t>(area, 0), room);
  bool decoded = true;
  for (std::size_t i = 0; i < count && decoded; ++i) {
    std::string name;
    for (std::size_t at = head + record * i; name.size() < width && At<char>(area, at + name.size());)
      name += At<char>(area, at + name.size());
    decoded = Ref(PyUnicode_DecodeUTF8(name.data(), static_cast<Py_ssize_t>(name.size()), nullptr)) != nullptr;
    PyErr_Clear();
    if (decoded && !IsNone(list))
      ExpectEqual(TextOf(PyList_GET_ITEM(list.get(), static_cast<Py_ssize_t>(i)), key), name, "a name");
  }
  Expect(IsNone(list) != decoded, "a name that is not UTF-8 ends the method");
  Expect(IsNone(list) || PyList_GET_SIZE(list.get()) == static_cast<Py_ssize_t>(count), "as many as there is room for");
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
  Answer("Ryn_Get_Flow_Stats", input.Rest());
  Run(PyRYN_Get_Flow_Stats, Args("(i(iii)i)", 1, 2, 3, 4, 5));
}

void FuzzFPOStats(Input input) {
  const Bytes area = input.Rest();
  Answer("Ryn_Get_FPO_Stats", area);
  Answer("Ryn_Get_FPO_Uplink_Status", area);
  Run(PyRYN_Get_FPO_Stats, Args("(i(ii))", 1, 2, 3));
  Run(PyRYN_Get_FPO_Uplink_Status, Args("(ii)", 1, 2));
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
  CheckNames(Run(PyRYN_List_Switches, Args("()")), area, 8, 160, 128, 16, "name");
}

void FuzzPortList(Input input) {
  Answer("Ryn_Get_Port_List", input.Rest());
  Run(PyRYN_List_Ports, Args("(i)", 1));
}

void FuzzPortStats(Input input) {
  const std::uint32_t length = input.Take<std::uint32_t>(), failing = input.Take<std::uint8_t>() % 4;
  AnswerWithLength("Ryn_Get_Port_Stats", input.Take(200), length);
  if (failing == 1)
    Answer("Ryn_Get_Port_Stats_Slowpath", input.Rest(), 7);
  else
    AnswerWithLength("Ryn_Get_Port_Stats_Slowpath", input.Rest(), length);
  Run(PyRYN_Get_Port_Stats, Args("(ii)", 1, 2), failing == 1 ? kMayLeak : kPlain);
}

void FuzzPortConf(Input input) {
  Answer("Ryn_Get_Port_Conf", input.Rest());
  Run(PyRYN_Get_Port_Conf, Args("(ii)", 1, 2));
}

void FuzzPortMacs(Input input) {
  Answer("Ryn_Dump_Port_MAC_Table", input.Rest());
  Run(PyRYN_List_Port_MACTable, Args("(ii)", 1, 2));
}

void FuzzSwitchMacs(Input input) {
  Answer("Ryn_Dump_Switch_MAC_Table", input.Rest());
  Run(PyRYN_List_Switch_MACTable, Args("(i)", 1));
}

// ---- Uplinks -------------------------------------------------------------------------------------------------------

void FuzzTxUplink(Input input) {
  const Bytes area = Resized(input.Rest(), 18);
  Answer("Ryn_Get_Port_Tx_Uplink", area);
  const Ref dict = Run(PyRYN_Get_Port_Tx_Uplink, Args("(ii)", 1, 2), kMayLeak);
  PyObject* const list = PyDict_GetItemString(dict.get(), "txUplinks");
  Expect(list && PyList_GET_SIZE(list) == area[1], "the list is as long as the count");
  for (Py_ssize_t i = 0; i < area[1]; ++i)
    Expect(PyLong_AsLong(PyList_GET_ITEM(list, i)) ==
               (i < 8 ? At<std::uint16_t>(area, 2 + 2 * static_cast<std::size_t>(i)) : 0),
           "an identifier of 16 bits, or 0 behind the room");
}

void FuzzMirrorConf(Input input) {
  const Bytes conf = Resized(input.Rest(), kMirrorConf);
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
  Answer("Ryn_Get_Uplink_Stats", input.Take(192), status(0));
  Bytes word(4);
  std::memcpy(word.data(), &length, 4);
  Answer("Ryn_Get_Uplink_Priv_Stats_Len", word, status(1));
  if (status(2))
    Answer("Ryn_Get_Uplink_Priv_Stats", input.Rest(), status(3));
  else
    AnswerWithLength("Ryn_Get_Uplink_Priv_Stats", input.Rest(), length);
  Run(PyRYN_Get_Uplink_Stats, Args("(ii)", 1, 2), kMayBeNull | kMayLeak);
  Answer("Ryn_Get_Uplink_Queue_Stats", word, status(4));
  Run(PyRYN_Get_Uplink_Queue_Stats, Args("(iiii)", 1, 2, 3, 1));
}

void FuzzNetQ(Input input) {
  const Bytes response = input.Rest();  // zeros behind it
  Answer("Ryn_Get_Port_NetQ_Info", response);
  const Ref dict = Run(PyRYN_Get_Port_NetQ_Info, Args("(ii)", 1, 2));

  const auto byte = [&](std::size_t at) { return unsigned{At<std::uint8_t>(response, at)}; };
  const auto half = [&](std::size_t at) { return std::size_t{At<std::uint16_t>(response, at)}; };
  const auto mac = [&](std::size_t at) {
    char text[18];
    std::snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", byte(at), byte(at + 1), byte(at + 2),
                  byte(at + 3), byte(at + 4), byte(at + 5));
    return std::string(text);
  };
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
  CheckNames(Run(PyRYN_List_Device_Affinity, Args("()")), area, 4, 36, 32, 32, "devname");
}
