#include "ryn/_core/flow.h"

#include <algorithm>

#include "host/native.h"
#include "ryn/_core/mac_address.h"

namespace ryn {
namespace {

struct FlowObject {
  PyObject head;
  FlowFields fields;
};

const FlowFields& Fields(PyObject* self) { return As<FlowObject>(self)->fields; }

// ---- The fields ---------------------------------------------------------------------------------------------------

Ref AddressOf(const std::uint8_t* address, bool ipv6) {
  const Ref type = Imported("ipaddress", ipv6 ? "IPv6Address" : "IPv4Address");
  const Ref bytes = Bytes(address, ipv6 ? 16 : 4);
  return Ref(type && bytes ? PyObject_CallFunctionObjArgs(type.get(), bytes.get(), nullptr) : nullptr);
}

Ref ActionsOf(std::uint32_t bitmap) {
  const Ref type = Imported("ryn.names", "Actions");
  const Ref bits = Int(bitmap);
  return Ref(type && bits ? PyObject_CallFunctionObjArgs(type.get(), bits.get(), nullptr) : nullptr);
}

struct FlowField {
  const char* name;
  const char* doc;
  Ref (*get)(const FlowFields& flow);
};

// In their public order.
constexpr FlowField kFields[] = {
    {"switch", "Number of the switch.", [](const FlowFields& flow) { return Int(flow.dvs); }},
    {"core", "The datapath core whose cache has the flow.", [](const FlowFields& flow) { return Int(flow.core); }},
    {"src", "The first address of the key, an object of ipaddress.",
     [](const FlowFields& flow) { return AddressOf(flow.src, flow.ipv6); }},
    {"dst", "The second address of the key, an object of ipaddress.",
     [](const FlowFields& flow) { return AddressOf(flow.dst, flow.ipv6); }},
    {"sport", "Source port, or the type of ICMP.", [](const FlowFields& flow) { return Int(flow.sport); }},
    {"dport", "Destination port, or the code of ICMP.", [](const FlowFields& flow) { return Int(flow.dport); }},
    {"protocol", "Number of the IP protocol.", [](const FlowFields& flow) { return Int(flow.protocol); }},
    {"vlan", "0 to 4095.", [](const FlowFields& flow) { return Int(flow.vlan); }},
    {"packets", "Since the last flush; None where statistics do not apply.",
     [](const FlowFields& flow) { return flow.counted ? Int(flow.packets) : None(); }},
    {"bytes", "Since the last flush; None where statistics do not apply.",
     [](const FlowFields& flow) { return flow.counted ? Int(flow.bytes) : None(); }},
    {"actions", "The bits of the bitmap by name, a ryn.Actions.",
     [](const FlowFields& flow) { return ActionsOf(flow.bitmap); }},
    {"offloaded", "Whether the page was asked for with flag 1.",
     [](const FlowFields& flow) { return Bool(flow.offloaded); }},
    {"mac_a", "The first MacAddress of the key.",
     [](const FlowFields& flow) { return Ref(NewMacAddress(flow.mac_a)); }},
    {"mac_b", "The second MacAddress of the key.",
     [](const FlowFields& flow) { return Ref(NewMacAddress(flow.mac_b)); }},
    {"number15", "A number of 15 bits whose meaning is the datapath's.",
     [](const FlowFields& flow) { return Int(flow.number15); }},
    {"number24", "A number of 24 bits whose meaning is the datapath's.",
     [](const FlowFields& flow) { return Int(flow.number24); }},
    {"bitmap", "The actions as a number.", [](const FlowFields& flow) { return Int(flow.bitmap); }},
};
constexpr std::size_t kFieldCount = sizeof(kFields) / sizeof(kFields[0]);

PyObject* GetField(PyObject* self, void* field) {
  return static_cast<const FlowField*>(field)->get(Fields(self)).release();
}

PyGetSetDef properties[kFieldCount + 1];

PyObject* Repr(PyObject* self) {
  const Ref parts(PyList_New(0)), comma(PyUnicode_FromString(", "));
  if (!parts || !comma)
    return nullptr;
  for (const FlowField& field : kFields) {
    const Ref value = field.get(Fields(self));
    const Ref part(value ? PyUnicode_FromFormat("%s=%R", field.name, value.get()) : nullptr);
    if (!part || PyList_Append(parts.get(), part.get()) != 0)
      return nullptr;
  }
  const Ref joined(PyUnicode_Join(comma.get(), parts.get()));
  return joined ? PyUnicode_FromFormat("ryn.Flow(%U)", joined.get()) : nullptr;
}

Py_hash_t Hash(PyObject* self) {
  const Ref bytes = Bytes(&Fields(self), sizeof(FlowFields));
  return bytes ? PyObject_Hash(bytes.get()) : -1;
}

PyObject* Compare(PyObject* left, PyObject* right, int operation) {
  if (Py_TYPE(left) != &flow_type || Py_TYPE(right) != &flow_type || (operation != Py_EQ && operation != Py_NE))
    Py_RETURN_NOTIMPLEMENTED;
  const bool equal = std::memcmp(&Fields(left), &Fields(right), sizeof(FlowFields)) == 0;
  return PyBool_FromLong(equal == (operation == Py_EQ));
}

// Of plain values, so that a pickled flow can be read without the modules that its fields come from.
PyObject* Reduce(PyObject* self, PyObject*) {
  const FlowFields& flow = Fields(self);
  const Py_ssize_t size = flow.ipv6 ? 16 : 4;
  Ref packets = flow.counted ? Int(flow.packets) : None(), bytes = flow.counted ? Int(flow.bytes) : None();
  if (!packets || !bytes)
    return nullptr;
  return Py_BuildValue("O(IIy#y#HHBHNNIOy#y#HI)", &flow_type, flow.dvs, flow.core, flow.src, size, flow.dst, size,
                       flow.sport, flow.dport, flow.protocol, flow.vlan, packets.release(), bytes.release(),
                       flow.bitmap, flow.offloaded ? Py_True : Py_False, flow.mac_a, Py_ssize_t{6}, flow.mac_b,
                       Py_ssize_t{6}, flow.number15, flow.number24);
}

// 4 or 16 bytes, as themselves or as the `packed` of an object of ipaddress.
bool ReadAddress(PyObject* address, std::uint8_t* bytes, bool* ipv6) {
  const Ref packed = PyBytes_Check(address) ? Share(address) : Ref(PyObject_GetAttrString(address, "packed"));
  if (!packed)
    return false;
  const Py_ssize_t size = PyBytes_Check(packed.get()) ? PyBytes_GET_SIZE(packed.get()) : 0;
  if (size != 4 && size != 16) {
    PyErr_SetString(PyExc_ValueError, "an address has 4 or 16 bytes");
    return false;
  }
  *ipv6 = size == 16;
  std::memset(bytes, 0, 16);
  std::memcpy(bytes, PyBytes_AS_STRING(packed.get()), static_cast<std::size_t>(size));
  return true;
}

PyObject* NewFromFields(PyTypeObject*, PyObject* args, PyObject* keywords) {
  static const char* names[] = {"switch",   "core",  "src",      "dst",      "sport",   "dport",
                                "protocol", "vlan",  "packets",  "bytes",    "actions", "offloaded",
                                "mac_a",    "mac_b", "number15", "number24", nullptr};
  PyObject *dvs, *core, *src, *dst, *sport, *dport, *protocol, *vlan, *packets, *bytes, *actions, *mac_a, *mac_b;
  PyObject *number15, *number24;
  int offloaded;
  if (!PyArg_ParseTupleAndKeywords(args, keywords, "OOOOOOOOOOOpOOOO:Flow", const_cast<char**>(names), &dvs, &core,
                                   &src, &dst, &sport, &dport, &protocol, &vlan, &packets, &bytes, &actions, &offloaded,
                                   &mac_a, &mac_b, &number15, &number24))
    return nullptr;
  FlowFields flow = {};
  bool src_ipv6, dst_ipv6;
  if (!ReadNumber(dvs, "switch", UINT32_MAX, &flow.dvs) || !ReadNumber(core, "core", UINT32_MAX, &flow.core) ||
      !ReadAddress(src, flow.src, &src_ipv6) || !ReadAddress(dst, flow.dst, &dst_ipv6) ||
      !ReadNumber(sport, "sport", UINT16_MAX, &flow.sport) || !ReadNumber(dport, "dport", UINT16_MAX, &flow.dport) ||
      !ReadNumber(protocol, "protocol", UINT8_MAX, &flow.protocol) || !ReadNumber(vlan, "vlan", 4095, &flow.vlan) ||
      !ReadNumber(actions, "actions", UINT32_MAX, &flow.bitmap) || !ReadMacAddress(mac_a, flow.mac_a) ||
      !ReadMacAddress(mac_b, flow.mac_b) || !ReadNumber(number15, "number15", 0x7FFF, &flow.number15) ||
      !ReadNumber(number24, "number24", 0xFFFFFF, &flow.number24))
    return nullptr;
  if (src_ipv6 != dst_ipv6 || (packets == Py_None) != (bytes == Py_None)) {
    PyErr_SetString(PyExc_ValueError, "src and dst are of one family, packets and bytes are both None or both not");
    return nullptr;
  }
  flow.ipv6 = src_ipv6;
  flow.offloaded = offloaded != 0;
  flow.counted = packets != Py_None;
  if (flow.counted && (!ReadNumber(packets, "packets", UINT64_MAX, &flow.packets) ||
                       !ReadNumber(bytes, "bytes", UINT64_MAX, &flow.bytes)))
    return nullptr;
  return NewFlow(flow);
}

PyMethodDef methods[] = {{"__reduce__", Reduce, METH_NOARGS, nullptr}, {nullptr, nullptr, 0, nullptr}};

PyTypeObject MakeFlowType() {
  for (std::size_t i = 0; i < kFieldCount; ++i)
    properties[i] = {kFields[i].name, GetField, nullptr, kFields[i].doc, const_cast<FlowField*>(&kFields[i])};
  PyTypeObject type = StaticType("ryn.Flow");
  type.tp_doc =
      "Flow(switch, core, src, dst, sport, dport, protocol, vlan, packets, bytes, actions, offloaded, mac_a, mac_b, "
      "number15, number24)\n--\n\n"
      "An entry of a flow cache, immutable. Addresses are objects of ipaddress, made when asked for.";
  type.tp_basicsize = sizeof(FlowObject);
  type.tp_new = NewFromFields;
  type.tp_repr = Repr;
  type.tp_hash = Hash;
  type.tp_richcompare = Compare;
  type.tp_getset = properties;
  type.tp_methods = methods;
  return type;
}

// ---- FlowFilter ---------------------------------------------------------------------------------------------------

// A pair of an address of 4 or 16 bytes and the length of its prefix in bits, or None.
bool ReadAddressMatch(PyObject* pair, AddressMatch* match) {
  if (pair == Py_None)
    return true;
  PyObject *address, *length;
  std::uint8_t value[16];
  std::uint32_t bits;
  bool ipv6;
  if (!PyTuple_Check(pair)) {
    PyErr_SetString(PyExc_TypeError, "an address to match is a pair of its bytes and the length of its prefix");
    return false;
  }
  if (!PyArg_ParseTuple(pair, "OO:address", &address, &length) || !ReadAddress(address, value, &ipv6) ||
      !ReadNumber(length, "prefix length", ipv6 ? 128 : 32, &bits))
    return false;
  match->given = true;
  match->ipv6 = ipv6;
  std::uint8_t mask[16];
  for (std::uint32_t i = 0; i < sizeof(mask); ++i) {
    const std::uint32_t set = bits > 8 * i ? std::min<std::uint32_t>(bits - 8 * i, 8) : 0;
    mask[i] = static_cast<std::uint8_t>(0xFF00 >> set);
    value[i] &= mask[i];
  }
  std::memcpy(match->value, value, sizeof(value));
  std::memcpy(match->mask, mask, sizeof(mask));
  return true;
}

bool ReadNumberMatch(PyObject* object, const char* name, std::uint64_t most, NumberMatch* match) {
  match->given = object != Py_None;
  return !match->given || ReadNumber(object, name, most, &match->value);
}

bool ReadMacMatch(PyObject* object, MacMatch* match) {
  match->given = object != Py_None;
  return !match->given || ReadMacAddress(object, match->value);
}

PyObject* NewFilter(PyTypeObject* type, PyObject* args, PyObject* keywords) {
  static const char* names[] = {"src",  "dst",     "sport", "dport", "protocol",
                                "vlan", "actions", "mac_a", "mac_b", nullptr};
  PyObject *src = Py_None, *dst = Py_None, *sport = Py_None, *dport = Py_None, *protocol = Py_None, *vlan = Py_None;
  PyObject *actions = nullptr, *mac_a = Py_None, *mac_b = Py_None;
  if (!PyArg_ParseTupleAndKeywords(args, keywords, "|$OOOOOOOOO:FlowFilter", const_cast<char**>(names), &src, &dst,
                                   &sport, &dport, &protocol, &vlan, &actions, &mac_a, &mac_b))
    return nullptr;
  FlowMatch match = {};
  if (!ReadAddressMatch(src, &match.src) || !ReadAddressMatch(dst, &match.dst) ||
      !ReadNumberMatch(sport, "sport", UINT16_MAX, &match.sport) ||
      !ReadNumberMatch(dport, "dport", UINT16_MAX, &match.dport) ||
      !ReadNumberMatch(protocol, "protocol", UINT8_MAX, &match.protocol) ||
      !ReadNumberMatch(vlan, "vlan", 4095, &match.vlan) ||
      (actions && !ReadNumber(actions, "actions", UINT32_MAX, &match.actions)) || !ReadMacMatch(mac_a, &match.mac_a) ||
      !ReadMacMatch(mac_b, &match.mac_b))
    return nullptr;
  auto* const filter = PyObject_New(FlowFilter, type);
  if (filter)
    filter->match = match;
  return reinterpret_cast<PyObject*>(filter);
}

PyObject* FilterMatches(PyObject* self, PyObject* flow) {
  if (Py_TYPE(flow) != &flow_type) {
    PyErr_Format(PyExc_TypeError, "expected a Flow, not %.100s", Py_TYPE(flow)->tp_name);
    return nullptr;
  }
  return PyBool_FromLong(As<FlowFilter>(self)->match.Matches(Fields(flow)));
}

PyMethodDef filter_methods[] = {
    {"matches", FilterMatches, METH_O, "matches($self, flow, /)\n--\n\nWhether the flow has all that is asked for."},
    {nullptr, nullptr, 0, nullptr},
};

PyTypeObject MakeFilterType() {
  PyTypeObject type = StaticType("ryn.FlowFilter");
  type.tp_doc =
      "FlowFilter(*, src=None, dst=None, sport=None, dport=None, protocol=None, vlan=None, actions=0, mac_a=None, "
      "mac_b=None)\n--\n\n"
      "What a flow has to match; None: anything. Addresses are pairs of 4 or 16 bytes and the length of a prefix in\n"
      "bits; of the actions all bits have to be set. ValueError for numbers out of range.";
  type.tp_basicsize = sizeof(FlowFilter);
  type.tp_new = NewFilter;
  type.tp_methods = filter_methods;
  return type;
}

}  // namespace

PyTypeObject flow_type = MakeFlowType();
PyTypeObject flow_filter_type = MakeFilterType();

bool AddFlowTypes(PyObject* module) {
  if (!AddType(module, &flow_type) || !AddType(module, &flow_filter_type))
    return false;
  const Ref names = Tuple(kFieldCount, [](std::size_t i) { return Ref(PyUnicode_FromString(kFields[i].name)); });
  if (!names || PyDict_SetItemString(flow_type.tp_dict, "_fields", names.get()) != 0)
    return false;
  PyType_Modified(&flow_type);
  return true;
}

PyObject* NewFlow(const FlowFields& fields) {
  auto* const flow = PyObject_New(FlowObject, &flow_type);
  if (flow)
    flow->fields = fields;
  return reinterpret_cast<PyObject*>(flow);
}

}  // namespace ryn
