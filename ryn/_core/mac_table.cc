#include "ryn/_core/mac_table.h"

#include <cstring>

#include "ryn/_core/mac_address.h"

namespace ryn {
namespace {

const RecordTypes* record_types;

struct Table {
  PyObject head;
  MacTableHead* answer;  // owned; the rows follow it
  Py_ssize_t count;
  bool of_port;
};

// The rows are 20 bytes each, with gaps that nobody reads: native integers at their natural places.
char row_format[] = "T{(6)B:mac:H:vlan:I:port:4xI:generation:}";
Py_ssize_t row_stride = sizeof(MacEntry);

const MacEntry* Rows(const Table* table) { return reinterpret_cast<const MacEntry*>(table->answer + 1); }

Ref Row(const MacEntry& row) {
  return Record((*record_types)[kMacEntry], Ref(NewMacAddress(row.mac)), Int(row.vlanID), Int(row.rynPortID),
                Int(row.macGenDiff));
}

std::size_t BytesOf(std::size_t count) { return sizeof(MacTableHead) + count * sizeof(MacEntry); }

// Room for `count` rows; a head without count.
HeapArea<MacTableHead> Allocate(std::size_t count) {
  HeapArea<MacTableHead> answer(static_cast<MacTableHead*>(std::malloc(BytesOf(count))));
  if (answer)
    std::memset(answer.get(), 0, sizeof(MacTableHead));
  else
    PyErr_NoMemory();
  return answer;
}

MacEntry* RowsOf(MacTableHead* answer) { return reinterpret_cast<MacEntry*>(answer + 1); }

// A table of the rows that are chosen, with the limits of the table that they come from.
PyObject* Chosen(const Table* table, HeapArea<MacTableHead> answer, std::size_t count) {
  answer->macLimit = table->answer->macLimit;
  answer->limitExceeded = table->answer->limitExceeded;
  return NewMacTable(std::move(answer), count, table->of_port);
}

PyObject* New(PyTypeObject*, PyObject* args, PyObject* keywords) {
  static const char* names[] = {"data", "limit", "limit_exceeded", nullptr};
  const char* data;
  Py_ssize_t size;
  PyObject *limit = nullptr, *exceeded = Py_None;
  if (!PyArg_ParseTupleAndKeywords(args, keywords, "y#|OO:MacTable", const_cast<char**>(names), &data, &size, &limit,
                                   &exceeded))
    return nullptr;
  const std::size_t bytes = static_cast<std::size_t>(size);
  if (bytes % sizeof(MacEntry) != 0) {
    PyErr_SetString(PyExc_ValueError, "a row of a MAC table has 20 bytes");
    return nullptr;
  }
  HeapArea<MacTableHead> answer = Allocate(bytes / sizeof(MacEntry));
  if (!answer || (limit && !ReadNumber(limit, "limit", UINT32_MAX, &answer->macLimit)) ||
      (exceeded != Py_None && !ReadNumber(exceeded, "limit_exceeded", UINT32_MAX, &answer->limitExceeded)))
    return nullptr;
  std::memcpy(RowsOf(answer.get()), data, bytes);
  return NewMacTable(std::move(answer), bytes / sizeof(MacEntry), exceeded != Py_None);
}

void Deallocate(PyObject* self) {
  std::free(As<Table>(self)->answer);
  PyObject_Free(self);
}

PyObject* Limit(PyObject* self, void*) { return Int(As<Table>(self)->answer->macLimit).release(); }

PyObject* LimitExceeded(PyObject* self, void*) {
  const auto* const table = As<Table>(self);
  return (table->of_port ? Int(table->answer->limitExceeded) : None()).release();
}

Py_ssize_t Length(PyObject* self) { return As<Table>(self)->count; }

PyObject* Item(PyObject* self, Py_ssize_t index) {
  const auto* const table = As<Table>(self);
  if (index < 0 || index >= table->count) {
    PyErr_SetString(PyExc_IndexError, "there is no such row");
    return nullptr;
  }
  return Row(Rows(table)[index]).release();
}

PyObject* Slice(const Table* table, PyObject* slice) {
  Py_ssize_t start, stop, step;
  if (PySlice_Unpack(slice, &start, &stop, &step) != 0)
    return nullptr;
  const auto count = static_cast<std::size_t>(PySlice_AdjustIndices(table->count, &start, &stop, step));
  HeapArea<MacTableHead> answer = Allocate(count);
  if (!answer)
    return nullptr;
  for (std::size_t i = 0; i < count; ++i)
    RowsOf(answer.get())[i] = Rows(table)[start + static_cast<Py_ssize_t>(i) * step];
  return Chosen(table, std::move(answer), count);
}

PyObject* Subscript(PyObject* self, PyObject* key) {
  const auto* const table = As<Table>(self);
  if (PySlice_Check(key))
    return Slice(table, key);
  const Py_ssize_t index = PyNumber_AsSsize_t(key, PyExc_IndexError);
  if (index == -1 && PyErr_Occurred())
    return nullptr;
  return Item(self, index < 0 ? index + table->count : index);
}

struct Pattern {
  std::uint8_t bytes[6];
  std::size_t length;

  bool Matches(const MacEntry& row) const { return std::memcmp(row.mac, bytes, length) == 0; }
};

PyObject* Find(PyObject* self, PyObject* mac) {
  const auto* const table = As<Table>(self);
  Pattern pattern;
  if (!ReadMacPattern(mac, pattern.bytes, &pattern.length))
    return nullptr;
  Ref found(PyList_New(0));
  for (Py_ssize_t i = 0; found && i < table->count; ++i) {
    if (!pattern.Matches(Rows(table)[i]))
      continue;
    const Ref row = Row(Rows(table)[i]);
    if (!row || PyList_Append(found.get(), row.get()) != 0)
      return nullptr;
  }
  return found.release();
}

PyObject* Select(PyObject* self, PyObject* args, PyObject* keywords) {
  static const char* names[] = {"mac", "vlan", "port", nullptr};
  PyObject *mac = Py_None, *vlan = Py_None, *port = Py_None;
  if (!PyArg_ParseTupleAndKeywords(args, keywords, "|$OOO:select", const_cast<char**>(names), &mac, &vlan, &port))
    return nullptr;
  Pattern pattern = {};
  std::uint32_t wanted_vlan = 0, wanted_port = 0;
  if ((mac != Py_None && !ReadMacPattern(mac, pattern.bytes, &pattern.length)) ||
      (vlan != Py_None && !ReadNumber(vlan, "vlan", UINT16_MAX, &wanted_vlan)) ||
      (port != Py_None && !ReadNumber(port, "port", UINT32_MAX, &wanted_port)))
    return nullptr;

  const auto* const table = As<Table>(self);
  const auto matches = [&](const MacEntry& row) {
    return pattern.Matches(row) && (vlan == Py_None || row.vlanID == wanted_vlan) &&
           (port == Py_None || row.rynPortID == wanted_port);
  };
  std::size_t count = 0;
  for (Py_ssize_t i = 0; i < table->count; ++i)
    count += matches(Rows(table)[i]);
  HeapArea<MacTableHead> answer = Allocate(count);
  if (!answer)
    return nullptr;
  MacEntry* next = RowsOf(answer.get());
  for (Py_ssize_t i = 0; i < table->count; ++i) {
    if (matches(Rows(table)[i]))
      *next++ = Rows(table)[i];
  }
  return Chosen(table, std::move(answer), count);
}

PyObject* Repr(PyObject* self) {
  const auto* const table = As<Table>(self);
  const Ref limit(Limit(self, nullptr)), exceeded(LimitExceeded(self, nullptr));
  return limit && exceeded ? PyUnicode_FromFormat("<ryn.MacTable of %zd rows, limit=%R, limit_exceeded=%R>",
                                                  table->count, limit.get(), exceeded.get())
                           : nullptr;
}

// By what can be seen of the rows: the bytes between the fields are nobody's.
bool SameRow(const MacEntry& a, const MacEntry& b) {
  return std::memcmp(a.mac, b.mac, sizeof(a.mac)) == 0 && a.vlanID == b.vlanID && a.rynPortID == b.rynPortID &&
         a.macGenDiff == b.macGenDiff;
}

bool SameTable(const Table* a, const Table* b) {
  if (a->count != b->count || a->of_port != b->of_port || a->answer->macLimit != b->answer->macLimit ||
      (a->of_port && a->answer->limitExceeded != b->answer->limitExceeded))
    return false;
  for (Py_ssize_t i = 0; i < a->count; ++i) {
    if (!SameRow(Rows(a)[i], Rows(b)[i]))
      return false;
  }
  return true;
}

PyObject* Compare(PyObject* left, PyObject* right, int operation) {
  if (Py_TYPE(left) != &mac_table_type || Py_TYPE(right) != &mac_table_type ||
      (operation != Py_EQ && operation != Py_NE))
    Py_RETURN_NOTIMPLEMENTED;
  return PyBool_FromLong(SameTable(As<Table>(left), As<Table>(right)) == (operation == Py_EQ));
}

PyObject* Reduce(PyObject* self, PyObject*) {
  const auto* const table = As<Table>(self);
  Ref limit(Limit(self, nullptr)), exceeded(LimitExceeded(self, nullptr));
  if (!limit || !exceeded)
    return nullptr;
  return Py_BuildValue("O(y#NN)", &mac_table_type, reinterpret_cast<const char*>(Rows(table)),
                       table->count * row_stride, limit.release(), exceeded.release());
}

PyObject* SizeOf(PyObject* self, PyObject*) {
  return PyLong_FromSize_t(sizeof(Table) + BytesOf(static_cast<std::size_t>(As<Table>(self)->count)));
}

int GetBuffer(PyObject* self, Py_buffer* view, int flags) {
  auto* const table = As<Table>(self);
  if (flags & PyBUF_WRITABLE) {
    PyErr_SetString(PyExc_BufferError, "a MAC table is read-only");
    view->obj = nullptr;
    return -1;
  }
  view->buf = const_cast<MacEntry*>(Rows(table));
  view->obj = Share(self).release();
  view->len = table->count * row_stride;
  view->readonly = 1;
  view->itemsize = row_stride;
  view->format = (flags & PyBUF_FORMAT) ? row_format : nullptr;
  view->ndim = 1;
  view->shape = (flags & PyBUF_ND) ? &table->count : nullptr;
  view->strides = (flags & PyBUF_STRIDES) == PyBUF_STRIDES ? &row_stride : nullptr;
  view->suboffsets = nullptr;
  view->internal = nullptr;
  return 0;
}

PyGetSetDef properties[] = {
    {"limit", Limit, nullptr, "How many addresses the table may hold.", nullptr},
    {"limit_exceeded", LimitExceeded, nullptr, "The datapath's indicator; None for a switch's table.", nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

PyMethodDef methods[] = {
    {"find", Find, METH_O,
     "find($self, mac, /)\n--\n\n"
     "A list of the rows with this address, given as for MacAddress, or as the start of a text: \"02:00:00:*\"."},
    {"select", Cast<PyCFunction>(Select), METH_VARARGS | METH_KEYWORDS,
     "select($self, /, *, mac=None, vlan=None, port=None)\n--\n\n"
     "A table of the rows that match all that is given; mac as for find()."},
    {"__reduce__", Reduce, METH_NOARGS, nullptr},
    {"__sizeof__", SizeOf, METH_NOARGS, nullptr},
    {nullptr, nullptr, 0, nullptr},
};

PySequenceMethods sequence = {};
PyMappingMethods mapping = {};
PyBufferProcs buffer = {};

PyTypeObject MakeType() {
  sequence.sq_length = Length;
  sequence.sq_item = Item;
  mapping.mp_length = Length;
  mapping.mp_subscript = Subscript;
  buffer.bf_getbuffer = GetBuffer;
  PyTypeObject type = StaticType("ryn.MacTable");
  type.tp_doc =
      "MacTable(data, limit=0, limit_exceeded=None)\n--\n\n"
      "The rows of a MAC table, immutable. Rows are native records of 20 bytes, which the buffer protocol shows with "
      "the\n"
      "fields mac, vlan, port and generation, and become MacEntry when touched. Slices are tables.";
  type.tp_basicsize = sizeof(Table);
  type.tp_new = New;
  type.tp_dealloc = Deallocate;
  type.tp_repr = Repr;
  type.tp_hash = PyObject_HashNotImplemented;
  type.tp_richcompare = Compare;
  type.tp_as_sequence = &sequence;
  type.tp_iter = PySeqIter_New;
  type.tp_as_mapping = &mapping;
  type.tp_as_buffer = &buffer;
  type.tp_getset = properties;
  type.tp_methods = methods;
  return type;
}

}  // namespace

PyTypeObject mac_table_type = MakeType();

bool AddMacTableType(PyObject* module, const RecordTypes* records) {
  record_types = records;
  return AddType(module, &mac_table_type);
}

PyObject* NewMacTable(HeapArea<MacTableHead> answer, std::size_t count, bool of_port) {
  auto* const table = PyObject_New(Table, &mac_table_type);
  if (!table)
    return nullptr;
  // An answer's area has room for the longest table.
  if (void* const fitted = std::realloc(answer.get(), BytesOf(count))) {
    static_cast<void>(answer.release());
    answer.reset(static_cast<MacTableHead*>(fitted));
  }
  table->answer = answer.release();
  table->count = static_cast<Py_ssize_t>(count);
  table->of_port = of_port;
  return reinterpret_cast<PyObject*>(table);
}

}  // namespace ryn
