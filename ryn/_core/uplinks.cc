// Platform's methods for uplinks, mirroring, network queues and devices.

#include "host/read/uplinks.h"
#include "host/change/datapath.h"
#include "host/operations.h"
#include "host/read/flows.h"
#include "ryn/_core/mac_address.h"
#include "ryn/_core/platform.h"

namespace ryn {

using namespace operations;

namespace {

// ---- Counters and the driver's text -------------------------------------------------------------------------------

Ref UplinkCountersOf(const UplinkStats& stats) {
  return RecordOf(RecordTypeOf(kUplinkCountersRecord), kUplinkCounters,
                  [&](std::size_t i) { return Int(stats.counters[i]); });
}

PyObject* Counters(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  std::uint32_t dvs, port;
  if (!ReadArguments("uplink_counters", values, count, Switch(&dvs), Port(&port)))
    return nullptr;
  return Get<UplinkStats>(
      self, Operation(kGetUplinkStats, dvs, port), [=](UplinkStats* stats) { return GetUplinkStats(dvs, port, stats); },
      UplinkCountersOf);
}

PyObject* QueueCounters(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  std::uint32_t dvs, port, queue, kind;
  if (!ReadArguments("uplink_queue_counters", values, count, Switch(&dvs), Port(&port), Number{&queue, "queue"},
                     Flag(&kind, "kind")))
    return nullptr;
  return Get<UplinkStats>(
      self, Operation(kGetUplinkQueueStats, dvs, port, queue, kind),
      [=](UplinkStats* stats) { return GetUplinkQueueStats(dvs, port, queue, kind != 0, stats); }, UplinkCountersOf);
}

// An uplink whose length cannot be asked for has no text, as for one of length 0.
struct DriverTextWork {
  std::uint32_t dvs, port;
  PrivateStats stats;

  void Run(Line& line) {
    std::uint32_t length = 0;
    Status status;
    Operation operation(kGetUplinkPrivStatsLen, dvs, port);
    if (!line.Try(operation, &status, [&] { return GetUplinkPrivStatsLen(dvs, port, &length); }))
      return;
    if (status.kind == Status::Kind::kInvalidResponse) {
      line.Fail(operation, status);
      return;
    }
    operation.name = kGetUplinkPrivStats;
    if (status.Ok() && length > 0)
      line.Call(operation, [&] { return GetUplinkPrivStats(dvs, port, length, &stats); });
  }
};

PyObject* DriverText(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  DriverTextWork work;
  if (!ReadArguments("uplink_driver_text", values, count, Switch(&work.dvs), Port(&work.port)))
    return nullptr;
  return Perform(TimeoutOf(self), std::move(work),
                 [](DriverTextWork& done) { return Text(done.stats.Text()).release(); });
}

// ---- Policies -----------------------------------------------------------------------------------------------------

constexpr const char* kTeamingTypes[] = {"None", "Single", "LAG", "SrcMAC", "All", "NoTeaming"};

Ref TeamingOf(const TxUplinks& policy) {
  const char* const type = policy.txType < std::size(kTeamingTypes) ? kTeamingTypes[policy.txType] : "Unknown";
  return Record(RecordTypeOf(kTeaming), Text(type),
                Tuple(policy.count, [&](std::size_t i) { return Int(policy.uplinks[i]); }));
}

PyObject* PortTeaming(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  std::uint32_t dvs, port;
  if (!ReadArguments("teaming", values, count, Switch(&dvs), Port(&port)))
    return nullptr;
  return Get<TxUplinks>(
      self, Operation(kGetPortTxUplink, dvs, port),
      [=](TxUplinks* policy) { return GetPortTxUplink(dvs, port, policy); }, TeamingOf);
}

// A type by its name.
struct TeamingType {
  std::uint32_t* code;

  bool operator()(PyObject* object) const {
    if (!PyUnicode_Check(object)) {
      PyErr_Format(PyExc_TypeError, "a teaming type is a str, not %.100s", Py_TYPE(object)->tp_name);
      return false;
    }
    for (*code = 0; *code < std::size(kTeamingTypes); ++*code) {
      if (PyUnicode_CompareWithASCIIString(object, kTeamingTypes[*code]) == 0)
        return true;
    }
    PyErr_Format(PyExc_ValueError, "%R is no teaming type: None, Single, LAG, SrcMAC, All or NoTeaming", object);
    return false;
  }
};

struct TeamingWork {
  std::uint32_t dvs, port, type, count;
  std::uint32_t uplinks[kMaxTxUplinks] = {};

  void Run(Line& line) {
    line.Call(Operation(kSetPortTxUplink, dvs, port, type, count, Argument::Numbers(uplinks, count)),
              [this] { return SetPortTxUplink(dvs, port, type, count, uplinks); });
  }
};

PyObject* SetTeaming(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  TeamingWork work;
  if (!ReadArguments("set_teaming", values, count, Switch(&work.dvs), Port(&work.port), TeamingType{&work.type},
                     Numbers{work.uplinks, &work.count, "uplinks", kMaxTxUplinks}))
    return nullptr;
  return Perform(TimeoutOf(self), work, [](TeamingWork&) { return None().release(); });
}

PyObject* PanicOnTxHang(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  std::uint32_t dvs;
  if (!ReadArguments("panic_on_tx_hang", values, count, Switch(&dvs)))
    return nullptr;
  return Get<std::uint32_t>(
      self, Operation(kGetPanicOnTxHang, dvs), [=](std::uint32_t* setting) { return GetPanicOnTxHang(dvs, setting); },
      [](const std::uint32_t& setting) { return Int(setting); });
}

PyObject* ChangePanicOnTxHang(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  std::uint32_t dvs, on;
  if (!ReadArguments("set_panic_on_tx_hang", values, count, Switch(&dvs), Flag(&on, "on")))
    return nullptr;
  return Change(self, Operation(kSetPanicOnTxHang, dvs, on), [=] { return SetPanicOnTxHang(dvs, on); });
}

PyObject* ChangeUplinkLearning(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  std::uint32_t dvs, on;
  if (!ReadArguments("set_uplink_learning", values, count, Switch(&dvs), Flag(&on, "on")))
    return nullptr;
  return Change(self, Operation(kSetUplinkMACLearn, dvs, on), [=] { return SetUplinkMACLearn(dvs, on); });
}

// ---- Offload ------------------------------------------------------------------------------------------------------

const char* LevelName(std::uint32_t level) {
  switch (level) {
    case 1:
      return "Model 1 Level 1";
    case 2:
      return "Model 1 Level 2";
    case 3:
      return "Model 2";
    default:
      return "Not Supported";
  }
}

PyObject* UplinkOffload(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  std::uint32_t dvs, port;
  if (!ReadArguments("offload", values, count, Switch(&dvs), Port(&port)))
    return nullptr;
  return Get<FPOUplinkCaps>(
      self, Operation(kGetFPOUplinkStatus, dvs, port),
      [=](FPOUplinkCaps* caps) { return GetFPOUplinkStatus(dvs, port, caps); },
      [](const FPOUplinkCaps& caps) {
        return Record(RecordTypeOf(kOffload), Text(LevelName(caps.level)), Int(caps.numGroupSupported),
                      Int(caps.numPrioritySupported), Int(caps.maxMarkActionBits), Int(caps.maxFlowsSupported),
                      Int(caps.maxCountersSupported), Int(caps.maxFlowKeyLengthInBits), Int(caps.maxDecTTLActions),
                      Int(caps.actionsSupported));
      });
}

// ---- Mirror sessions ----------------------------------------------------------------------------------------------

Ref SessionOf(const MirrorSession& session, const MirrorSessions& sessions) {
  const auto flag = [&](unsigned bit) { return Bool((session.flags >> bit & 1) != 0); };
  return Record(RecordTypeOf(kMirror), Int(session.index), Int(session.encapVlanID), Int(session.snapLen),
                Int(session.samplingRate), flag(0), flag(1), flag(2), flag(3),
                BitsOf(session.srcInPorts, 2, session.srcInCount), BitsOf(session.srcOutPorts, 2, session.srcOutCount),
                BitsOf(session.dstPorts, 2, session.dstCount),
                Tuple(session.vlanCount, [&](std::size_t i) { return Int(sessions.Vlan(i)); }));
}

PyObject* Mirrors(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  std::uint32_t dvs;
  if (!ReadArguments("mirrors", values, count, Switch(&dvs)))
    return nullptr;
  return Get<MirrorConf>(
      self, Operation(kGetMirrorConf, dvs), [=](MirrorConf* conf) { return GetMirrorConf(dvs, conf); },
      [](const MirrorConf& conf) {
        Ref list(PyList_New(0));
        MirrorSessions sessions(conf);
        for (MirrorSession session; list && sessions.Next(&session);) {
          const Ref record = SessionOf(session, sessions);
          if (!record || PyList_Append(list.get(), record.get()) != 0)
            return Ref();
        }
        return list;
      });
}

// ---- Network queues -----------------------------------------------------------------------------------------------

struct MacText {
  char text[kMacTextLength + 1] = {};
  explicit MacText(const std::uint8_t* mac) { WriteMacText(mac, text); }
};

Ref FilterText(const NetQFilterView& filter) {
  if (filter.head.kind == kMacOnlyFilter) {
    const auto body = filter.Body<MacOnlyBody>();
    return Ref(PyUnicode_FromFormat("macOnly:%s", MacText(body.mac).text));
  }
  if (filter.head.kind == kGeneveFilter) {
    const auto body = filter.Body<GeneveBody>();
    return Ref(PyUnicode_FromFormat("geneve:outer:%s:inner:%s:vni:%u", MacText(body.outerMac).text,
                                    MacText(body.innerMac).text, body.vni));
  }
  return Text("UnknownFilter");
}

Ref FilterOf(const NetQFilterView& filter, const NetQFilters& filters) {
  return Record(RecordTypeOf(kNetQFilterRecord), Int(filter.head.kind), FilterText(filter),
                Tuple(filter.head.queueCount, [&](std::size_t i) {
                  const NetQQueue queue = filters.Queue(i);
                  return Record(RecordTypeOf(kNetQQueueRecord), Int(queue.rynPortID), Int(queue.qid), Int(queue.fid));
                }));
}

Ref FiltersOf(const NetQResponse& response) {
  const Ref list(PyList_New(0));
  NetQFilters filters(response);
  for (NetQFilterView filter; list && filters.Next(&filter);) {
    const Ref record = FilterOf(filter, filters);
    if (!record || PyList_Append(list.get(), record.get()) != 0)
      return nullptr;
  }
  return Ref(list ? PyList_AsTuple(list.get()) : nullptr);
}

PyObject* NetQ(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  std::uint32_t dvs, port;
  if (!ReadArguments("netq", values, count, Switch(&dvs), Port(&port)))
    return nullptr;
  return Get<HeapArea<NetQResponse>>(
      self, Operation(kGetPortNetQInfo, dvs, port),
      [=](HeapArea<NetQResponse>* response) { return GetPortNetQInfo(dvs, port, response); },
      [](const HeapArea<NetQResponse>& response) {
        const NetQHeader header = HeaderOf(*response);
        return Record(RecordTypeOf(kNetQ), Int(header.swID), Int(header.rynPortID), Bool(header.isUplink != 0),
                      FiltersOf(*response));
      });
}

// ---- Devices ------------------------------------------------------------------------------------------------------

PyObject* Devices(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  if (!ReadArguments("devices", values, count))
    return nullptr;
  return Get<DeviceList>(self, Operation(kListDevAffinity), ListDevAffinity, [](const DeviceList& list) {
    return List(list.count, [&](std::size_t i) {
      const DeviceRecord& device = list.devices[i];
      return Record(RecordTypeOf(kDevice), Text(FieldText(device.name)), Int(device.affinity));
    });
  });
}

struct AffinityWork {
  OwnText device;
  std::uint32_t affinity;

  void Run(Line& line) {
    line.Call(Operation(kSetDevAffinity, device.get(), affinity),
              [this] { return SetDevAffinity(device.get(), affinity); });
  }
};

PyObject* SetAffinity(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  AffinityWork work;
  if (!ReadArguments("set_affinity", values, count, TextOf{&work.device}, Number{&work.affinity, "affinity"}))
    return nullptr;
  return Perform(TimeoutOf(self), std::move(work), [](AffinityWork&) { return None().release(); });
}

}  // namespace

PyMethodDef uplink_methods[] = {
    Row("uplink_counters", Counters, "uplink_counters($self, switch, port, /)\n--\n\nUplinkCounters of an uplink."),
    Row("uplink_queue_counters", QueueCounters,
        "uplink_queue_counters($self, switch, port, queue, kind, /)\n--\n\nThose of one queue; kind is 0 or 1."),
    Row("uplink_driver_text", DriverText,
        "uplink_driver_text($self, switch, port, /)\n--\n\nWhat the driver tells of itself; empty where it tells "
        "nothing."),
    Row("teaming", PortTeaming, "teaming($self, switch, port, /)\n--\n\nThe Teaming of a port."),
    Row("set_teaming", SetTeaming,
        "set_teaming($self, switch, port, type, uplinks, /)\n--\n\nSets it, with at most 8 uplinks."),
    Row("panic_on_tx_hang", PanicOnTxHang, "panic_on_tx_hang($self, switch, /)\n--\n\n0 or 1, as the datapath says."),
    Row("set_panic_on_tx_hang", ChangePanicOnTxHang, "set_panic_on_tx_hang($self, switch, on, /)\n--\n\nSets it."),
    Row("set_uplink_learning", ChangeUplinkLearning,
        "set_uplink_learning($self, switch, on, /)\n--\n\nWhether addresses are learned on the uplinks of a switch."),
    Row("offload", UplinkOffload, "offload($self, switch, port, /)\n--\n\nThe Offload of an uplink."),
    Row("mirrors", Mirrors, "mirrors($self, switch, /)\n--\n\nA list of Mirror."),
    Row("netq", NetQ, "netq($self, switch, port, /)\n--\n\nThe NetQ of a port."),
    Row("devices", Devices, "devices($self, /)\n--\n\nA list of Device."),
    Row("set_affinity", SetAffinity, "set_affinity($self, device, affinity, /)\n--\n\nSets the affinity of a device."),
    {nullptr, nullptr, 0, nullptr},
};

}  // namespace ryn
