// Platform's methods for the configuration and the properties that the host keeps, and for the buffer pools.

#include "host/change/datapath.h"
#include "host/change/properties.h"
#include "host/config.h"
#include "host/names.h"
#include "host/operations.h"
#include "host/properties.h"
#include "ryn/_core/platform.h"

namespace ryn {

using namespace operations;

namespace {

PyObject* RaiseStatus(const Operation& operation, const Status& status) {
  Failure failure;
  failure.kind = Failure::Kind::kStatus;
  failure.operation = operation;
  failure.status = status;
  Raise(failure);
  return nullptr;
}

// ---- The configuration --------------------------------------------------------------------------------------------

// What the configuration was last loaded from by us. There is one configuration for the process; the interpreter lock
// guards it, and this.
HostState former_state;
bool has_former_state;

struct FetchWork {
  HostState state;

  void Run(Line& line) {
    line.Call(Operation(kStateGet), [this] { return FetchState(&state); });
  }
};

PyObject* Reload(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  if (!ReadArguments("reload", values, count))
    return nullptr;
  return Perform(TimeoutOf(self), FetchWork(), [](FetchWork& done) -> PyObject* {
    // In one piece with the interpreter lock held: others walk the configuration, and hold handles into it.
    const Status status = LoadState(done.state, has_former_state ? &former_state : nullptr);
    if (!status.Ok())
      return RaiseStatus(Operation(status.operation), status);
    former_state = std::move(done.state);
    has_former_state = true;
    return None().release();
  });
}

Ref TextOrNone(std::string_view text) { return text.data() ? Text(text) : None(); }

PyObject* ConfiguredSwitches(PyObject*, PyObject* const* values, Py_ssize_t count) {
  if (!ReadArguments("configured_switches", values, count))
    return nullptr;
  SwitchDirectory switches;
  if (!switches.Read().Ok())
    return PyErr_NoMemory();
  return List(switches.Size(),
              [&](std::size_t i) {
                const SwitchNames names = switches[i];
                return Record(RecordTypeOf(kDvsRecord), Text(names.id), TextOrNone(names.alias),
                              TextOrNone(names.portset), Text(names.className));
              })
      .release();
}

// ---- Properties ---------------------------------------------------------------------------------------------------

// A switch's identifier, cut as the keys of properties are.
struct SwitchIdOf {
  SwitchId* id;

  bool operator()(PyObject* object) const {
    const Ref bytes = TextBytes(object);
    if (bytes)
      std::strncpy(id->text, PyBytes_AS_STRING(bytes.get()), sizeof(id->text) - 1);
    return bytes != nullptr;
  }
};

// A copy of a property's value, null where there is none; its block goes back while the turn lasts.
struct ValueCopy {
  HeapArea<char> bytes;
  std::size_t length = 0;
  bool found = false;

  template <class Read>
  Status Take(const char* operation, Read read) {
    PropertyValue value;
    if (const Status status = read(&value); !status.Ok())
      return status;
    found = true;
    length = value.Bytes() ? value.Length() : 0;
    bytes.reset(static_cast<char*>(std::malloc(length + 1)));
    if (!bytes)
      return NoMemory(operation);
    if (length > 0)
      std::memcpy(bytes.get(), value.Bytes(), length);
    return {};
  }

  PyObject* Value() const { return (found ? Bytes(bytes.get(), length) : None()).release(); }
};

// Makes an operation that looks a property up: that there is none is no failure.
template <class Make>
void Find(Line& line, const Operation& operation, Make make) {
  Status status;
  if (!line.Try(operation, &status, make))
    return;
  const bool none = status.kind == Status::Kind::kFailed && status.code == kNotFound;
  if (!status.Ok() && !none)
    line.Fail(operation, status);
}

struct HostPropertyWork {
  SwitchId id;
  OwnText key;
  ValueCopy value;

  void Run(Line& line) {
    Find(line, Operation(kHostPropGet, id.text, key.get()), [this] {
      return value.Take(kHostPropGet, [this](PropertyValue* found) { return found->ReadHost(id.text, key.get()); });
    });
  }
};

PyObject* HostProperty(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  HostPropertyWork work;
  if (!ReadArguments("host_property", values, count, SwitchIdOf{&work.id}, TextOf{&work.key}))
    return nullptr;
  return Perform(TimeoutOf(self), std::move(work), [](HostPropertyWork& done) { return done.value.Value(); });
}

struct PortPropertyWork {
  OwnText id, port, key;
  ValueCopy value;

  void Run(Line& line) {
    Find(line, Operation(kPortDataGet, id.get(), port.get(), key.get()), [this] {
      return value.Take(kPortDataGet,
                        [this](PropertyValue* found) { return found->ReadPort(id.get(), port.get(), key.get()); });
    });
  }
};

PyObject* PortProperty(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  PortPropertyWork work;
  if (!ReadArguments("port_property", values, count, TextOf{&work.id}, TextOf{&work.port}, TextOf{&work.key}))
    return nullptr;
  return Perform(TimeoutOf(self), std::move(work), [](PortPropertyWork& done) { return done.value.Value(); });
}

// The bytes of a value to be stored, copied.
struct OwnBytes {
  HeapArea<char> bytes;
  std::uint32_t length = 0;
};

struct BytesOf {
  OwnBytes* value;

  bool operator()(PyObject* object) const {
    if (!PyBytes_Check(object)) {
      PyErr_Format(PyExc_TypeError, "a property's value is bytes, not %.100s", Py_TYPE(object)->tp_name);
      return false;
    }
    const auto length = static_cast<std::size_t>(PyBytes_GET_SIZE(object));
    if (length > UINT32_MAX) {
      PyErr_SetString(PyExc_ValueError, "a property's value has less than 4 GiB");
      return false;
    }
    value->bytes.reset(static_cast<char*>(std::malloc(length + 1)));
    if (!value->bytes) {
      PyErr_NoMemory();
      return false;
    }
    std::memcpy(value->bytes.get(), PyBytes_AS_STRING(object), length);
    value->length = static_cast<std::uint32_t>(length);
    return true;
  }
};

struct SetHostPropertyWork {
  SwitchId id;
  OwnText key;
  OwnBytes value;

  void Run(Line& line) {
    line.Call(Operation(kHostPropSet, id.text, key.get(), Argument::Hex(value.bytes.get(), value.length), value.length,
                        kHostPropOption),
              [this] { return SetHostProperty(id.text, key.get(), value.bytes.get(), value.length); });
  }
};

PyObject* StoreHostProperty(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  SetHostPropertyWork work;
  if (!ReadArguments("set_host_property", values, count, SwitchIdOf{&work.id}, TextOf{&work.key}, BytesOf{&work.value}))
    return nullptr;
  return Perform(TimeoutOf(self), std::move(work), [](SetHostPropertyWork&) { return None().release(); });
}

struct SetPortPropertyWork {
  OwnText id, port, key;
  OwnBytes value;

  void Run(Line& line) {
    line.Call(Operation(kPortDataSet, id.get(), port.get(), key.get(), Argument::Hex(value.bytes.get(), value.length),
                        value.length, kPortDataOption),
              [this] { return SetPortProperty(id.get(), port.get(), key.get(), value.bytes.get(), value.length); });
  }
};

PyObject* StorePortProperty(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  SetPortPropertyWork work;
  if (!ReadArguments("set_port_property", values, count, TextOf{&work.id}, TextOf{&work.port}, TextOf{&work.key},
                     BytesOf{&work.value}))
    return nullptr;
  return Perform(TimeoutOf(self), std::move(work), [](SetPortPropertyWork&) { return None().release(); });
}

// ---- Buffer pools -------------------------------------------------------------------------------------------------

PyObject* InitFastslabs(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  if (!ReadArguments("init_fastslabs", values, count))
    return nullptr;
  if (!HasServedSwitch())
    return Bool(false).release();
  struct Work {
    void Run(Line& line) { line.Call(Operation(kInitMbufFastslabs), InitMbufFastslabs); }
  };
  return Perform(TimeoutOf(self), Work(), [](Work&) { return Bool(true).release(); });
}

}  // namespace

PyMethodDef setting_methods[] = {
    Row("reload", Reload,
        "reload($self, /)\n--\n\n"
        "Reads the process's switch configuration anew. Where that fails, what was loaded before is loaded again."),
    Row("configured_switches", ConfiguredSwitches,
        "configured_switches($self, /)\n--\n\nA list of DvsRecord, in the configuration's order. Asks nobody."),
    Row("host_property", HostProperty,
        "host_property($self, switch_id, key, /)\n--\n\nThe bytes of a switch's property; None where it has none."),
    Row("set_host_property", StoreHostProperty, "set_host_property($self, switch_id, key, value, /)\n--\n\nStores it."),
    Row("port_property", PortProperty,
        "port_property($self, switch_id, dvport, key, /)\n--\n\nThe bytes of a port's property; None where it has "
        "none."),
    Row("set_port_property", StorePortProperty,
        "set_port_property($self, switch_id, dvport, key, value, /)\n--\n\nStores it."),
    Row("init_fastslabs", InitFastslabs,
        "init_fastslabs($self, /)\n--\n\n"
        "Sets up the packet-buffer pools. False, and nothing is called, where the datapath serves no switch."),
    {nullptr, nullptr, 0, nullptr},
};

}  // namespace ryn
