#include "ryn/_core/counters.h"

#include <cstring>

namespace ryn {
namespace {

constexpr std::size_t kCounterCount = 16;

// The platform's order of the counters, by the record's: packets come first there.
constexpr std::size_t kPlatformIndex[kCounterCount] = {1, 0, 3, 2, 5, 4, 6, 7, 9, 8, 11, 10, 13, 12, 14, 15};

const RecordTypes* record_types;

struct PortCountersObject {
  PyObject head;
  PathCounters counters;
};

struct CounterTable {
  PyObject head;
  PathCounters* rows;  // owned, from the standard allocator
  std::size_t count;
};

std::uint64_t Counter(const PortStats& stats, std::size_t field) {
  return Load<std::uint64_t>(&stats, kPlatformIndex[field] * sizeof(std::uint64_t));
}

Ref CountersOf(const PortStats& stats) {
  return RecordOf((*record_types)[kCounters], kCounterCount, [&](std::size_t i) { return Int(Counter(stats, i)); });
}

// A sum that may need 65 bits.
Ref Sum(std::uint64_t a, std::uint64_t b) {
  if (a + b >= a)
    return Int(a + b);
  const Ref first = Int(a), second = Int(b);
  return Ref(first && second ? PyNumber_Add(first.get(), second.get()) : nullptr);
}

Ref TotalOf(const PathCounters& counters) {
  return RecordOf((*record_types)[kCounters], kCounterCount,
                  [&](std::size_t i) { return Sum(Counter(counters.fast, i), Counter(counters.slow, i)); });
}

// ---- PortCounters -------------------------------------------------------------------------------------------------

const PathCounters& Native(PyObject* self) { return As<PortCountersObject>(self)->counters; }

bool ReadCounters(PyObject* values, PortStats* stats) {
  const Ref items(PySequence_Fast(values, "counters are a sequence"));
  if (!items)
    return false;
  if (PySequence_Fast_GET_SIZE(items.get()) != static_cast<Py_ssize_t>(kCounterCount)) {
    PyErr_SetString(PyExc_ValueError, "counters of a path are 16 numbers");
    return false;
  }
  for (std::size_t i = 0; i < kCounterCount; ++i) {
    std::uint64_t counter;
    const Ref item = Share(PySequence_Fast_GET_ITEM(items.get(), static_cast<Py_ssize_t>(i)));
    if (!ReadNumber(item.get(), "a counter", UINT64_MAX, &counter))
      return false;
    std::memcpy(reinterpret_cast<char*>(stats) + kPlatformIndex[i] * sizeof(counter), &counter, sizeof(counter));
  }
  return true;
}

PyObject* New(PyTypeObject*, PyObject* args, PyObject* keywords) {
  static const char* names[] = {"fast", "slow", nullptr};
  PyObject *fast, *slow;
  PathCounters counters;
  if (!PyArg_ParseTupleAndKeywords(args, keywords, "OO:PortCounters", const_cast<char**>(names), &fast, &slow) ||
      !ReadCounters(fast, &counters.fast) || !ReadCounters(slow, &counters.slow))
    return nullptr;
  return NewPortCounters(counters);
}

PyObject* Fast(PyObject* self, void*) { return CountersOf(Native(self).fast).release(); }
PyObject* Slow(PyObject* self, void*) { return CountersOf(Native(self).slow).release(); }
PyObject* Total(PyObject* self, void*) { return TotalOf(Native(self)).release(); }

Ref Pair(PyObject* self) {
  Ref fast = CountersOf(Native(self).fast), slow = CountersOf(Native(self).slow);
  return Ref(fast && slow ? PyTuple_Pack(2, fast.get(), slow.get()) : nullptr);
}

PyObject* Repr(PyObject* self) {
  const Ref pair = Pair(self);
  return pair ? PyUnicode_FromFormat("ryn.PortCounters(fast=%R, slow=%R)", PyTuple_GET_ITEM(pair.get(), 0),
                                     PyTuple_GET_ITEM(pair.get(), 1))
              : nullptr;
}

Py_hash_t Hash(PyObject* self) {
  const Ref pair = Pair(self);
  return pair ? PyObject_Hash(pair.get()) : -1;
}

PyObject* Compare(PyObject* left, PyObject* right, int operation) {
  if (Py_TYPE(left) != &port_counters_type || Py_TYPE(right) != &port_counters_type ||
      (operation != Py_EQ && operation != Py_NE))
    Py_RETURN_NOTIMPLEMENTED;
  const bool equal = std::memcmp(&Native(left), &Native(right), sizeof(PathCounters)) == 0;
  return PyBool_FromLong(equal == (operation == Py_EQ));
}

PyObject* Iterate(PyObject* self) {
  const Ref pair = Pair(self);
  return pair ? PyObject_GetIter(pair.get()) : nullptr;
}

PyObject* Reduce(PyObject* self, PyObject*) {
  Ref pair = Pair(self);
  return pair ? Py_BuildValue("ON", &port_counters_type, pair.release()) : nullptr;
}

PyGetSetDef properties[] = {
    {"fast", Fast, nullptr, "Counters of the fast path.", nullptr},
    {"slow", Slow, nullptr, "Counters of the slow path.", nullptr},
    {"total", Total, nullptr, "The plain sum of both, counter by counter, made when asked for.", nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

PyMethodDef methods[] = {{"__reduce__", Reduce, METH_NOARGS, nullptr}, {nullptr, nullptr, 0, nullptr}};

PyTypeObject MakePortCountersType() {
  PyTypeObject type = StaticType("ryn.PortCounters");
  type.tp_doc =
      "PortCounters(fast, slow)\n--\n\n"
      "The traffic counters of a port, unsigned, of 64 bits. Each path has 16 numbers in the order of Counters.";
  type.tp_basicsize = sizeof(PortCountersObject);
  type.tp_new = New;
  type.tp_repr = Repr;
  type.tp_hash = Hash;
  type.tp_richcompare = Compare;
  type.tp_iter = Iterate;
  type.tp_getset = properties;
  type.tp_methods = methods;
  return type;
}

// ---- CounterTable -------------------------------------------------------------------------------------------------

PyObject* NewTable(PyTypeObject*, PyObject* args, PyObject* keywords) {
  static const char* names[] = {"data", nullptr};
  const char* data;
  Py_ssize_t size;
  if (!PyArg_ParseTupleAndKeywords(args, keywords, "y#:CounterTable", const_cast<char**>(names), &data, &size))
    return nullptr;
  const std::size_t bytes = static_cast<std::size_t>(size);
  if (bytes % sizeof(PathCounters) != 0) {
    PyErr_SetString(PyExc_ValueError, "a row of counters has 256 bytes");
    return nullptr;
  }
  HeapArea<PathCounters> rows(static_cast<PathCounters*>(std::malloc(bytes ? bytes : 1)));
  if (!rows)
    return PyErr_NoMemory();
  std::memcpy(rows.get(), data, bytes);
  return NewCounterTable(std::move(rows), bytes / sizeof(PathCounters));
}

void DeallocateTable(PyObject* self) {
  std::free(As<CounterTable>(self)->rows);
  PyObject_Free(self);
}

std::size_t SizeOf(const CounterTable* table) { return table->count * sizeof(PathCounters); }

Py_ssize_t TableLength(PyObject* self) { return static_cast<Py_ssize_t>(As<CounterTable>(self)->count); }

PyObject* TableItem(PyObject* self, Py_ssize_t index) {
  const auto* const table = As<CounterTable>(self);
  if (index < 0 || static_cast<std::size_t>(index) >= table->count) {
    PyErr_SetString(PyExc_IndexError, "there is no such row");
    return nullptr;
  }
  return NewPortCounters(table->rows[index]);
}

PyObject* CompareTables(PyObject* left, PyObject* right, int operation) {
  if (Py_TYPE(left) != &counter_table_type || Py_TYPE(right) != &counter_table_type ||
      (operation != Py_EQ && operation != Py_NE))
    Py_RETURN_NOTIMPLEMENTED;
  const auto *const a = As<CounterTable>(left), *const b = As<CounterTable>(right);
  const bool equal = a->count == b->count && std::memcmp(a->rows, b->rows, SizeOf(a)) == 0;
  return PyBool_FromLong(equal == (operation == Py_EQ));
}

PyObject* ReduceTable(PyObject* self, PyObject*) {
  const auto* const table = As<CounterTable>(self);
  return Py_BuildValue("O(y#)", &counter_table_type, reinterpret_cast<const char*>(table->rows),
                       static_cast<Py_ssize_t>(SizeOf(table)));
}

PyObject* SizeOfTable(PyObject* self, PyObject*) {
  return PyLong_FromSize_t(sizeof(CounterTable) + SizeOf(As<CounterTable>(self)));
}

// What a counter grew by. False when it fell: it was reset. A fall of more than half its range is a wrap.
bool Grown(std::uint64_t later, std::uint64_t earlier, std::uint64_t* growth) {
  *growth = later - earlier;
  return later >= earlier || earlier - later > std::uint64_t{1} << 63;
}

PyObject* Rates(PyObject* self, PyObject* args) {
  Py_ssize_t row, earlier_row;
  PyObject* other;
  double seconds;
  if (!PyArg_ParseTuple(args, "nO!nd:rates", &row, &counter_table_type, &other, &earlier_row, &seconds))
    return nullptr;
  const auto *const table = As<CounterTable>(self), *const earlier_table = As<CounterTable>(other);
  if (row < 0 || static_cast<std::size_t>(row) >= table->count || earlier_row < 0 ||
      static_cast<std::size_t>(earlier_row) >= earlier_table->count) {
    PyErr_SetString(PyExc_IndexError, "there is no such row");
    return nullptr;
  }
  if (!(seconds > 0)) {
    PyErr_SetString(PyExc_ValueError, "a rate needs more than 0 seconds");
    return nullptr;
  }
  const PathCounters &later = table->rows[row], &earlier = earlier_table->rows[earlier_row];
  double rates[kCounterCount];
  for (std::size_t i = 0; i < kCounterCount; ++i) {
    std::uint64_t fast, slow;
    if (!Grown(Counter(later.fast, i), Counter(earlier.fast, i), &fast) ||
        !Grown(Counter(later.slow, i), Counter(earlier.slow, i), &slow))
      return Py_BuildValue("OO", Py_None, Py_True);
    rates[i] = (static_cast<double>(fast) + static_cast<double>(slow)) / seconds;
  }
  Ref record = RecordOf((*record_types)[kRates], kCounterCount,
                        [&](std::size_t i) { return Ref(PyFloat_FromDouble(rates[i])); });
  return record ? Py_BuildValue("NO", record.release(), Py_False) : nullptr;
}

PyMethodDef table_methods[] = {
    {"rates", Rates, METH_VARARGS,
     "rates($self, row, earlier, earlier_row, seconds, /)\n--\n\n"
     "What the row's totals grew by a second since the row of the earlier table, and whether a counter was reset\n"
     "meanwhile: (Rates, False) or (None, True). IndexError for rows, ValueError for seconds not above 0."},
    {"__reduce__", ReduceTable, METH_NOARGS, nullptr},
    {"__sizeof__", SizeOfTable, METH_NOARGS, nullptr},
    {nullptr, nullptr, 0, nullptr},
};

PySequenceMethods table_sequence = {};

PyTypeObject MakeCounterTableType() {
  table_sequence.sq_length = TableLength;
  table_sequence.sq_item = TableItem;
  PyTypeObject type = StaticType("ryn.CounterTable");
  type.tp_doc =
      "CounterTable(data)\n--\n\n"
      "Counters of many ports: 256 bytes a row, 16 numbers of the fast path and 16 of the slow one as the\n"
      "platform lays them out. Rows become PortCounters when touched.";
  type.tp_basicsize = sizeof(CounterTable);
  type.tp_new = NewTable;
  type.tp_dealloc = DeallocateTable;
  type.tp_hash = PyObject_HashNotImplemented;
  type.tp_richcompare = CompareTables;
  type.tp_as_sequence = &table_sequence;
  type.tp_iter = PySeqIter_New;
  type.tp_methods = table_methods;
  return type;
}

}  // namespace

PyTypeObject port_counters_type = MakePortCountersType();
PyTypeObject counter_table_type = MakeCounterTableType();

PyObject* NewPortCounters(const PathCounters& counters) {
  auto* const object = PyObject_New(PortCountersObject, &port_counters_type);
  if (object)
    object->counters = counters;
  return reinterpret_cast<PyObject*>(object);
}

PyObject* NewCounterTable(HeapArea<PathCounters> rows, std::size_t count) {
  auto* const table = PyObject_New(CounterTable, &counter_table_type);
  if (!table)
    return nullptr;
  table->rows = rows.release();
  table->count = count;
  return reinterpret_cast<PyObject*>(table);
}

bool AddCounterTypes(PyObject* module, const RecordTypes* records) {
  record_types = records;
  const Ref names(Py_BuildValue("(ss)", "fast", "slow"));
  if (!names || !AddType(module, &port_counters_type) || !AddType(module, &counter_table_type) ||
      PyDict_SetItemString(port_counters_type.tp_dict, "_fields", names.get()) != 0)
    return false;
  PyType_Modified(&port_counters_type);
  return true;
}

}  // namespace ryn
