#include "ryn/_core/listed_port.h"

#include <algorithm>
#include <cstring>
#include <span>

#include "ryn/_core/mac_address.h"

namespace ryn {
namespace {

const PortRecord& Record(PyObject* self) { return As<ListedPort>(self)->record; }

PyObject* Switch(PyObject* self, void*) {
  PyObject* const dvs = As<ListedPort>(self)->dvs;
  return Share(dvs ? dvs : Py_None).release();
}

PyObject* Number(PyObject* self, void*) { return Int(Record(self).rynPortID).release(); }
PyObject* DvPort(PyObject* self, void*) { return Int(Record(self).portID).release(); }
PyObject* KindCode(PyObject* self, void*) { return Int(Record(self).clientType).release(); }
PyObject* Mac(PyObject* self, void*) { return NewMacAddress(Record(self).hwAddr); }
PyObject* MacCount(PyObject* self, void*) { return Int(Record(self).numMACs).release(); }

using QueueBytes = std::span<const std::uint8_t>;

QueueBytes TxQueues(const PortRecord& port) { return {port.txQLM, std::min<std::size_t>(port.numTxQ, kMaxQueues)}; }
QueueBytes RxQueues(const PortRecord& port) { return {port.rxQLM, std::min<std::size_t>(port.numRxQ, kMaxQueues)}; }

PyObject* CoresOf(QueueBytes queues) {
  return Tuple(queues.size(), [&](std::size_t i) { return Int(queues[i]); }).release();
}

PyObject* TxCores(PyObject* self, void*) { return CoresOf(TxQueues(Record(self))); }
PyObject* RxCores(PyObject* self, void*) { return CoresOf(RxQueues(Record(self))); }

// By what can be seen of the records: other bytes are nobody's.
bool Same(const PortRecord& a, const PortRecord& b) {
  return a.portID == b.portID && a.rynPortID == b.rynPortID && a.clientType == b.clientType && a.numMACs == b.numMACs &&
         std::memcmp(a.hwAddr, b.hwAddr, sizeof(a.hwAddr)) == 0 && std::ranges::equal(TxQueues(a), TxQueues(b)) &&
         std::ranges::equal(RxQueues(a), RxQueues(b));
}

bool IsListedPort(PyObject* object) {
  if (PyObject_TypeCheck(object, &listed_port_type))
    return true;
  PyErr_Format(PyExc_TypeError, "expected a port, not %.100s", Py_TYPE(object)->tp_name);
  return false;
}

PyObject* ReplaceRecord(PyObject* self, PyObject* other) {
  if (!IsListedPort(other))
    return nullptr;
  As<ListedPort>(self)->record = Record(other);
  Py_RETURN_NONE;
}

PyObject* SameRecord(PyObject* self, PyObject* other) {
  if (!IsListedPort(other))
    return nullptr;
  return PyBool_FromLong(Same(Record(self), Record(other)));
}

int Traverse(PyObject* self, visitproc visit, void* arg) {
  Py_VISIT(As<ListedPort>(self)->dvs);
  return 0;
}

int Clear(PyObject* self) {
  Py_CLEAR(As<ListedPort>(self)->dvs);
  return 0;
}

void Deallocate(PyObject* self) {
  PyObject_GC_UnTrack(self);
  Clear(self);
  Py_TYPE(self)->tp_free(self);
}

PyGetSetDef properties[] = {
    {"switch", Switch, nullptr, "The switch that the listing was asked for.", nullptr},
    {"number", Number, nullptr, "The datapath's number of the port, 0 to 127.", nullptr},
    {"dvport", DvPort, nullptr, "The distributed port's number.", nullptr},
    {"kind_code", KindCode, nullptr, "What the port serves, as the datapath numbers it.", nullptr},
    {"mac", Mac, nullptr, "The port's MacAddress.", nullptr},
    {"mac_count", MacCount, nullptr, "How many MAC addresses are on the port.", nullptr},
    {"tx_cores", TxCores, nullptr, "The byte of each transmit queue, a tuple of at most 32.", nullptr},
    {"rx_cores", RxCores, nullptr, "The byte of each receive queue, a tuple of at most 32.", nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

PyMethodDef methods[] = {
    {"_replace_record", ReplaceRecord, METH_O, "Takes over what the other port's listing gave, but for its switch."},
    {"_same_record", SameRecord, METH_O, "Whether both listings gave the same."},
    {nullptr, nullptr, 0, nullptr},
};

PyTypeObject MakeType() {
  PyTypeObject type = StaticType("ryn.ListedPort");
  type.tp_doc = "A port as a listing gave it. Made by listings only.";
  type.tp_basicsize = sizeof(ListedPort);
  type.tp_flags |= Py_TPFLAGS_BASETYPE | Py_TPFLAGS_HAVE_GC;
  type.tp_dealloc = Deallocate;
  type.tp_traverse = Traverse;
  type.tp_clear = Clear;
  type.tp_getset = properties;
  type.tp_methods = methods;
  return type;
}

}  // namespace

PyTypeObject listed_port_type = MakeType();

PyObject* NewListedPort(PyTypeObject* type, PyObject* dvs, const PortRecord& record) {
  PyObject* const port = type->tp_alloc(type, 0);
  if (port) {
    As<ListedPort>(port)->dvs = Share(dvs).release();
    As<ListedPort>(port)->record = record;
  }
  return port;
}

}  // namespace ryn
