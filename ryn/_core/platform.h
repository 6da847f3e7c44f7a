// Platform: a host's way to the platform libraries. Its methods are grouped by what they are about, each group in a
// source of its own.
#pragma once

#include <type_traits>

#include "ryn/_core/arguments.h"
#include "ryn/_core/turn.h"

namespace ryn {

struct Platform {
  PyObject head;
  double timeout;  // seconds for an operation, or kNoTimeout
};

inline double TimeoutOf(PyObject* platform) { return As<Platform>(platform)->timeout; }
inline PyTypeObject* RecordTypeOf(RecordType type) { return records_api->records[type]; }

using Method = PyObject* (*)(PyObject* self, PyObject* const* values, Py_ssize_t count);

inline PyMethodDef Row(const char* name, Method method, const char* doc) {
  return {name, Cast<PyCFunction>(method), METH_FASTCALL, doc};
}

// Makes one operation, which brings nothing back, and returns None. `make` holds native values only.
template <class Make>
PyObject* Change(PyObject* self, const Operation& operation, Make make) {
  struct Work {
    Operation operation;
    Make make;
    void Run(Line& line) { line.Call(operation, make); }
  };
  return Perform(TimeoutOf(self), Work{operation, std::move(make)}, [](Work&) { return None().release(); });
}

// Reads one record with `read(&record)`, and returns `make(record)`. Large records are no burden for a thread's stack.
template <class Record, class Read, class Make>
PyObject* Get(PyObject* self, const Operation& operation, Read read, Make make) {
  struct Small {
    Operation operation;
    Read read;
    Record record;
    Small(const Operation& given, Read reader) : operation(given), read(std::move(reader)) {}
    void Run(Line& line) {
      line.Call(operation, [this] { return read(&record); });
    }
    Record& Get() { return record; }
  };
  struct Large {
    Operation operation;
    Read read;
    HeapArea<Record> record;
    Large(const Operation& given, Read reader) : operation(given), read(std::move(reader)) {}
    void Run(Line& line) {
      record.reset(static_cast<Record*>(std::malloc(sizeof(Record))));
      if (record)
        line.Call(operation, [this] { return read(record.get()); });
      else
        line.Fail(operation, NoMemory(operation.name));
    }
    Record& Get() { return *record; }
  };
  using Work = std::conditional_t<(sizeof(Record) > 1024), Large, Small>;
  return Perform(TimeoutOf(self), Work(operation, std::move(read)),
                 [&](Work& work) { return make(work.Get()).release(); });
}

// The numbers of the bits that are set, ascending, at most `most` of them.
Ref BitsOf(const std::uint64_t* words, std::size_t count, std::size_t most);

// The methods, each list closed by an empty row.
extern PyMethodDef port_methods[];
extern PyMethodDef flow_methods[];
extern PyMethodDef uplink_methods[];
extern PyMethodDef balancer_methods[];
extern PyMethodDef setting_methods[];

// The iterator that Platform.flows() returns.
extern PyTypeObject flow_walk_type;

}  // namespace ryn
