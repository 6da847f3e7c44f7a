// Platform's methods for switches and ports: listings, counters, MAC tables, configuration, placement.

#include <cstring>

#include "host/change/ports.h"
#include "host/operations.h"
#include "host/read/balancer.h"
#include "host/read/ports.h"
#include "ryn/_core/platform.h"

namespace ryn {

using namespace operations;

Ref BitsOf(const std::uint64_t* words, std::size_t count, std::size_t most) {
  std::uint8_t bits[128];
  std::size_t found = 0;
  for (std::size_t word = 0; word < count; ++word) {
    for (std::uint64_t left = words[word]; left != 0 && found < most; left &= left - 1)
      bits[found++] = static_cast<std::uint8_t>(64 * word + static_cast<std::size_t>(std::countr_zero(left)));
  }
  return Tuple(found, [&](std::size_t i) { return Int(bits[i]); });
}

namespace {

// ---- Listings -----------------------------------------------------------------------------------------------------

Ref SwitchOf(const SwitchRecord& dvs) {
  return Record(RecordTypeOf(kSwitchRecord), Text(FieldText(dvs.name)), Int(dvs.swID), Int(dvs.maxPorts),
                Int(dvs.numActivePorts), Int(dvs.numPorts), Int(dvs.mtu), Int(dvs.numLcores),
                BitsOf(&dvs.lcores, 1, 64));
}

PyObject* Switches(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  if (!ReadArguments("switches", values, count))
    return nullptr;
  return Get<SwitchList>(self, Operation(kGetSwitchList), GetSwitchList, [](const SwitchList& list) {
    return List(list.count, [&](std::size_t i) { return SwitchOf(list.switches[i]); });
  });
}

// A subclass of ListedPort whose instances are no larger: they are made without a call of its code.
struct PortType {
  PyTypeObject** type;

  bool operator()(PyObject* object) const {
    if (PyType_Check(object) && PyType_IsSubtype(As<PyTypeObject>(object), records_api->listed_port)) {
      *type = As<PyTypeObject>(object);
      return true;
    }
    PyErr_SetString(PyExc_TypeError, "the type of ports is to be derived from ListedPort");
    return false;
  }
};

Ref PortsOf(const PortList& list, PyObject* dvs, PyTypeObject* type) {
  return List(list.count, [&](std::size_t i) { return Ref(records_api->new_listed_port(type, dvs, list.ports[i])); });
}

PyObject* Ports(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  std::uint32_t number;
  PyObject* dvs;
  PyTypeObject* type;
  if (!ReadArguments("ports", values, count, Switch(&number), Object{&dvs}, PortType{&type}))
    return nullptr;
  return Get<PortList>(
      self, Operation(kGetPortList, number), [number](PortList* list) { return GetPortList(number, list); },
      [&](const PortList& list) { return PortsOf(list, dvs, type); });
}

PyObject* Cores(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  std::uint32_t dvs;
  if (!ReadArguments("cores", values, count, Number{&dvs, "switch"}))
    return nullptr;
  return Get<std::uint64_t>(
      self, Operation(kGetLCoreIDBitmap, dvs), [dvs](std::uint64_t* bitmap) { return GetLCoreIDBitmap(dvs, bitmap); },
      [](const std::uint64_t& bitmap) { return BitsOf(&bitmap, 1, 64); });
}

// ---- Counters -----------------------------------------------------------------------------------------------------

bool ReadCounters(Line& line, std::uint32_t dvs, std::uint32_t port, PathCounters* counters) {
  return line.Call(Operation(kGetPortStats, dvs, port), [&] { return GetPortStats(dvs, port, &counters->fast); }) &&
         line.Call(Operation(kGetPortStatsSlowpath, dvs, port),
                   [&] { return GetPortStatsSlowpath(dvs, port, &counters->slow); });
}

PyObject* PortCounters(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  struct Work {
    std::uint32_t dvs, port;
    PathCounters counters;
    void Run(Line& line) { ReadCounters(line, dvs, port, &counters); }
  } work;
  if (!ReadArguments("port_counters", values, count, Switch(&work.dvs), Port(&work.port)))
    return nullptr;
  return Perform(TimeoutOf(self), work, [](Work& done) { return records_api->new_port_counters(done.counters); });
}

// Every port of some switches with its counters.
class AllCounters {
 public:
  std::uint32_t switches[16];
  std::uint32_t switch_count = 0;

  void Run(Line& line) {
    list_.reset(static_cast<PortList*>(std::malloc(sizeof(PortList))));
    const bool room = list_ && Reserve(switch_count * std::size_t{kMaxPorts});
    if (!room)
      line.Fail(Operation(kGetPortList), NoMemory(kGetPortList));
    for (std::uint32_t i = 0; room && i < switch_count; ++i) {
      if (!ReadSwitch(line, i))
        return;
    }
  }

  std::size_t Count() const { return count_; }
  std::uint32_t SwitchIndex(std::size_t i) const { return rows_.get()[i].switch_index; }
  const PortRecord& Port(std::size_t i) const { return rows_.get()[i].port; }
  HeapArea<PathCounters> TakeCounters() {
    void* const fitted = std::realloc(counters_.get(), (count_ ? count_ : 1) * sizeof(PathCounters));
    if (!fitted)
      return std::move(counters_);
    static_cast<void>(counters_.release());
    return HeapArea<PathCounters>(static_cast<PathCounters*>(fitted));
  }

 private:
  struct Row {
    std::uint32_t switch_index;
    PortRecord port;
  };

  bool Reserve(std::size_t count) {
    rows_.reset(static_cast<Row*>(std::malloc((count ? count : 1) * sizeof(Row))));
    counters_.reset(static_cast<PathCounters*>(std::malloc((count ? count : 1) * sizeof(PathCounters))));
    return rows_ && counters_;
  }

  // A switch that is not there any more has no ports.
  bool ListPorts(Line& line, std::uint32_t dvs, PortList* list) {
    const Operation operation(kGetPortList, dvs);
    Status status;
    if (!line.Try(operation, &status, [&] { return GetPortList(dvs, list); }))
      return false;
    if (status.kind == Status::Kind::kFailed && status.code == kNotFound)
      list->count = 0;
    else if (!status.Ok())
      return line.Fail(operation, status);
    return true;
  }

  bool ReadSwitch(Line& line, std::uint32_t index) {
    const std::uint32_t dvs = switches[index];
    if (!ListPorts(line, dvs, list_.get()))
      return false;
    for (std::uint32_t i = 0; i < list_->count; ++i) {
      const PortRecord& port = list_->ports[i];
      bool gone;
      if (!ReadPort(line, dvs, port, &counters_.get()[count_], &gone))
        return false;
      if (!gone)
        rows_.get()[count_++] = {index, port};
    }
    return true;
  }

  // A port whose counters cannot be read is gone where a new listing does not have it any more.
  bool ReadPort(Line& line, std::uint32_t dvs, const PortRecord& port, PathCounters* counters, bool* gone) {
    const std::uint32_t number = port.rynPortID;
    *gone = false;
    Status status;
    Operation operation(kGetPortStats, dvs, number);
    if (!line.Try(operation, &status, [&] { return GetPortStats(dvs, number, &counters->fast); }))
      return false;
    if (status.Ok()) {
      operation.name = kGetPortStatsSlowpath;
      if (!line.Try(operation, &status, [&] { return GetPortStatsSlowpath(dvs, number, &counters->slow); }))
        return false;
      if (status.Ok())
        return true;
    }
    return IsGone(line, dvs, port, gone) && (*gone || line.Fail(operation, status));
  }

  bool IsGone(Line& line, std::uint32_t dvs, const PortRecord& port, bool* gone) {
    HeapArea<PortList> now(static_cast<PortList*>(std::malloc(sizeof(PortList))));
    if (!now)
      return line.Fail(Operation(kGetPortList, dvs), NoMemory(kGetPortList));
    if (!ListPorts(line, dvs, now.get()))
      return false;
    *gone = true;
    for (std::uint32_t i = 0; i < now->count; ++i) {
      if (now->ports[i].rynPortID == port.rynPortID && now->ports[i].portID == port.portID)
        *gone = false;
    }
    return true;
  }

  HeapArea<PortList> list_;
  HeapArea<Row> rows_;
  HeapArea<PathCounters> counters_;
  std::size_t count_ = 0;
};

PyObject* MakeAllCounters(AllCounters& work, PyObject* switches, PyTypeObject* type) {
  Ref ports = List(work.Count(), [&](std::size_t i) {
    PyObject* const pair = PyTuple_GET_ITEM(switches, static_cast<Py_ssize_t>(work.SwitchIndex(i)));
    return Ref(records_api->new_listed_port(type, PyTuple_GET_ITEM(pair, 1), work.Port(i)));
  });
  if (!ports)
    return nullptr;
  Ref table(records_api->new_counter_table(work.TakeCounters(), work.Count()));
  return table ? PyTuple_Pack(2, ports.get(), table.get()) : nullptr;
}

// Pairs of a switch's number and the object that its ports are to show.
Ref ReadSwitches(PyObject* object, AllCounters* work) {
  Ref switches(PySequence_Tuple(object));
  if (!switches)
    return nullptr;
  const Py_ssize_t count = PyTuple_GET_SIZE(switches.get());
  if (count > 16) {
    PyErr_SetString(PyExc_ValueError, "there are at most 16 switches");
    return nullptr;
  }
  for (Py_ssize_t i = 0; i < count; ++i) {
    PyObject* const pair = PyTuple_GET_ITEM(switches.get(), i);
    if (!PyTuple_Check(pair) || PyTuple_GET_SIZE(pair) != 2) {
      PyErr_SetString(PyExc_TypeError, "a switch is a pair of its number and an object");
      return nullptr;
    }
    if (!Switch(&work->switches[i])(PyTuple_GET_ITEM(pair, 0)))
      return nullptr;
  }
  work->switch_count = static_cast<std::uint32_t>(count);
  return switches;
}

PyObject* EveryCounter(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  PyObject* object;
  PyTypeObject* type;
  if (!ReadArguments("all_counters", values, count, Object{&object}, PortType{&type}))
    return nullptr;
  AllCounters work;
  const Ref switches = ReadSwitches(object, &work);
  if (!switches)
    return nullptr;
  return Perform(TimeoutOf(self), std::move(work),
                 [&](AllCounters& done) { return MakeAllCounters(done, switches.get(), type); });
}

// ---- MAC tables ---------------------------------------------------------------------------------------------------

template <class Area>
Ref TableOf(HeapArea<Area>& area, bool of_port) {
  const std::size_t count = area->count;
  return Ref(records_api->new_mac_table(HeapArea<MacTableHead>(reinterpret_cast<MacTableHead*>(area.release())), count,
                                        of_port));
}

PyObject* PortMacs(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  std::uint32_t dvs, port;
  if (!ReadArguments("port_macs", values, count, Switch(&dvs), Port(&port)))
    return nullptr;
  return Get<HeapArea<PortMacTable>>(
      self, Operation(kDumpPortMACTable, dvs, port),
      [=](HeapArea<PortMacTable>* table) { return DumpPortMACTable(dvs, port, table); },
      [](HeapArea<PortMacTable>& table) { return TableOf(table, true); });
}

PyObject* SwitchMacs(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  std::uint32_t dvs;
  if (!ReadArguments("switch_macs", values, count, Switch(&dvs)))
    return nullptr;
  return Get<HeapArea<SwitchMacTable>>(
      self, Operation(kDumpSwitchMACTable, dvs),
      [=](HeapArea<SwitchMacTable>* table) { return DumpSwitchMACTable(dvs, table); },
      [](HeapArea<SwitchMacTable>& table) { return TableOf(table, false); });
}

PyObject* ClearPortMacs(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  std::uint32_t dvs, port;
  if (!ReadArguments("clear_port_macs", values, count, Switch(&dvs), Port(&port)))
    return nullptr;
  return Change(self, Operation(kClearPortMACTable, dvs, port), [=] { return ClearPortMACTable(dvs, port); });
}

PyObject* ClearSwitchMacs(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  std::uint32_t dvs;
  if (!ReadArguments("clear_switch_macs", values, count, Switch(&dvs)))
    return nullptr;
  return Change(self, Operation(kClearSwitchMACTable, dvs), [=] { return ClearSwitchMACTable(dvs); });
}

// The address is the work's own: the operation is named while it is out.
struct MacEntryWork {
  std::uint32_t dvs, port, vlan;
  std::uint8_t mac[6];
  bool add;

  void Run(Line& line) {
    const auto vlanID = static_cast<std::uint16_t>(vlan);
    line.Call(Operation(kMACEntryOps, dvs, port, Argument::Mac(mac), vlan, add ? kAddEntry : kDeleteEntry),
              [&] { return add ? AddMACEntry(dvs, port, mac, vlanID) : DeleteMACEntry(dvs, port, mac, vlanID); });
  }
};

PyObject* ChangeMac(const char* name, bool add, PyObject* self, PyObject* const* values, Py_ssize_t count) {
  MacEntryWork work;
  work.add = add;
  if (!ReadArguments(name, values, count, Switch(&work.dvs), Port(&work.port), MacOf{work.mac},
                     Number{&work.vlan, "vlan", 4095}))
    return nullptr;
  return Perform(TimeoutOf(self), work, [](MacEntryWork&) { return None().release(); });
}

PyObject* AddMac(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  return ChangeMac("add_mac", true, self, values, count);
}

PyObject* DelMac(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  return ChangeMac("del_mac", false, self, values, count);
}

// ---- Configuration and placement ----------------------------------------------------------------------------------

Ref ConfigOf(const PortConf& conf) {
  return Record(
      RecordTypeOf(kPortConfig), Int(conf.portID), Int(conf.flags), Int(conf.ladrf),
      Ref(records_api->new_mac_address(conf.hwAddr)), Int(conf.untaggedVlanID), Bool(conf.forgedMACAllowed != 0),
      Int(conf.vni), Int(conf.sampleRate),
      Tuple(conf.numMcastAddrs, [&](std::size_t i) { return Ref(records_api->new_mac_address(conf.mcastAddrs[i])); }),
      Tuple(conf.numTaggedVlanRanges, [&](std::size_t i) {
        return Ref(Py_BuildValue("(HH)", conf.vlanRanges[i].first, conf.vlanRanges[i].last));
      }));
}

PyObject* PortConfig(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  std::uint32_t dvs, port;
  if (!ReadArguments("port_config", values, count, Switch(&dvs), Port(&port)))
    return nullptr;
  return Get<PortConf>(
      self, Operation(kGetPortConf, dvs, port), [=](PortConf* conf) { return GetPortConf(dvs, port, conf); }, ConfigOf);
}

PyObject* Migrate(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  std::uint32_t dvs, port, a, b, c;
  if (!ReadArguments("migrate", values, count, Switch(&dvs), Port(&port), Number{&a, "first number"},
                     Number{&b, "second number"}, Number{&c, "third number"}))
    return nullptr;
  return Change(self, Operation(kMigratePort, dvs, port, a, b, c), [=] { return MigratePort(dvs, port, a, b, c); });
}

PyObject* Unpin(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  std::uint32_t dvs, port, number;
  if (!ReadArguments("unpin", values, count, Switch(&dvs), Port(&port), Number{&number, "number"}))
    return nullptr;
  return Change(self, Operation(kUnpinPort, dvs, port, number), [=] { return UnpinPort(dvs, port, number); });
}

PyObject* Reset(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  std::uint32_t dvs, port;
  if (!ReadArguments("reset_port", values, count, Switch(&dvs), Port(&port)))
    return nullptr;
  return Change(self, Operation(kResetPort, dvs, port), [=] { return ResetPort(dvs, port); });
}

// ---- Large receive offload ----------------------------------------------------------------------------------------

PyObject* PortLro(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  std::uint32_t dvs, port;
  if (!ReadArguments("port_lro", values, count, Switch(&dvs), Port(&port)))
    return nullptr;
  return Get<std::uint32_t>(
      self, Operation(kGetLRO, kPortScope, dvs, port),
      [=](std::uint32_t* state) { return GetPortLRO(dvs, port, state); },
      [](const std::uint32_t& state) { return Bool(state != 0); });
}

PyObject* SwitchLro(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  std::uint32_t dvs;
  if (!ReadArguments("switch_lro", values, count, Switch(&dvs)))
    return nullptr;
  return Get<std::uint32_t>(
      self, Operation(kGetLRO, kSwitchScope, dvs, kNoPort),
      [=](std::uint32_t* state) { return GetSwitchLRO(dvs, state); },
      [](const std::uint32_t& state) { return Bool(state != 0); });
}

PyObject* ChangePortLro(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  std::uint32_t dvs, port, state;
  if (!ReadArguments("set_port_lro", values, count, Switch(&dvs), Port(&port), Number{&state, "state"}))
    return nullptr;
  return Change(self, Operation(kSetLRO, kPortScope, dvs, port, state), [=] { return SetPortLRO(dvs, port, state); });
}

PyObject* ChangeSwitchLro(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  std::uint32_t dvs, state;
  if (!ReadArguments("set_switch_lro", values, count, Switch(&dvs), Number{&state, "state"}))
    return nullptr;
  return Change(self, Operation(kSetLRO, kSwitchScope, dvs, kNoPort, state), [=] { return SetSwitchLRO(dvs, state); });
}

}  // namespace

PyMethodDef port_methods[] = {
    Row("switches", Switches, "switches($self, /)\n--\n\nA list of SwitchRecord, in the datapath's order."),
    Row("ports", Ports,
        "ports($self, switch_number, switch, port_type, /)\n--\n\n"
        "A list of instances of port_type, which is derived from ListedPort; each has `switch` as its switch."),
    Row("cores", Cores, "cores($self, switch_number, /)\n--\n\nA tuple of the numbers of the datapath's cores."),
    Row("port_counters", PortCounters, "port_counters($self, switch, port, /)\n--\n\nPortCounters of a port."),
    Row("all_counters", EveryCounter,
        "all_counters($self, switches, port_type, /)\n--\n\n"
        "Every port of the switches, pairs of number and object, as by ports(), and a CounterTable with a row for "
        "each.\n"
        "A port that goes meanwhile is left out."),
    Row("port_macs", PortMacs, "port_macs($self, switch, port, /)\n--\n\nThe MacTable of a port."),
    Row("switch_macs", SwitchMacs, "switch_macs($self, switch, /)\n--\n\nThe MacTable of a switch."),
    Row("clear_port_macs", ClearPortMacs, "clear_port_macs($self, switch, port, /)\n--\n\nClears a port's MAC table."),
    Row("clear_switch_macs", ClearSwitchMacs,
        "clear_switch_macs($self, switch, /)\n--\n\nClears a switch's MAC table."),
    Row("add_mac", AddMac, "add_mac($self, switch, port, mac, vlan, /)\n--\n\nAdds an entry; vlan is 0 to 4095."),
    Row("del_mac", DelMac, "del_mac($self, switch, port, mac, vlan, /)\n--\n\nDeletes an entry; vlan is 0 to 4095."),
    Row("port_config", PortConfig, "port_config($self, switch, port, /)\n--\n\nPortConfig of a port."),
    Row("migrate", Migrate,
        "migrate($self, switch, port, a, b, c, /)\n--\n\nPlaces a port; what the numbers mean is the datapath's."),
    Row("unpin", Unpin, "unpin($self, switch, port, a, /)\n--\n\nLets the balancer place a port again."),
    Row("reset_port", Reset, "reset_port($self, switch, port, /)\n--\n\nResets a port."),
    Row("port_lro", PortLro, "port_lro($self, switch, port, /)\n--\n\nWhether receive offload is on for a port."),
    Row("set_port_lro", ChangePortLro, "set_port_lro($self, switch, port, state, /)\n--\n\nSets it for a port."),
    Row("switch_lro", SwitchLro, "switch_lro($self, switch, /)\n--\n\nWhether receive offload is on for a switch."),
    Row("set_switch_lro", ChangeSwitchLro, "set_switch_lro($self, switch, state, /)\n--\n\nSets it for a switch."),
    {nullptr, nullptr, 0, nullptr},
};

}  // namespace ryn
