// Building Python values: owned references, keys, and dicts, lists and tuples filled item by item.
//
// Functions that "report" set SystemError with one of three fixed texts when they fail; the method then returns
// NoneWithError(). All others leave whatever error Python set.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>

#include "libryn/base/python.h"

struct DecRef {
  void operator()(PyObject* object) const { Py_DECREF(object); }
};

// An owned reference.
using Ref = std::unique_ptr<PyObject, DecRef>;

// A new reference to a borrowed object; null stays null.
inline Ref NewRef(PyObject* object) {
  Py_XINCREF(object);
  return Ref(object);
}

// The key of a dict, or another fixed text: an interned str, made at its first use and kept for the life of the
// process. Storing by object instead of by C text makes the listings three to four times faster, and all rows of a
// listing share their keys.
class Key {
 public:
  explicit consteval Key(const char* text) : text_(text) {}

  // Borrowed; null with Python's error set when the str cannot be made; the next use tries again.
  PyObject* Object() {
    if (!object_)
      object_ = PyUnicode_InternFromString(text_);
    return object_;
  }

 private:
  const char* text_;
  PyObject* object_ = nullptr;
};

// An int from a field, by the signed-long conversion: a field of 32 bits or less is never negative, a 64-bit field is
// reinterpreted as signed.
inline Ref Int(std::uint64_t field) { return Ref(PyLong_FromLong(static_cast<long>(field))); }

// A str from UTF-8 bytes; null with Python's decoding error when they are not.
inline Ref Text(std::string_view utf8) {
  return Ref(PyUnicode_FromStringAndSize(utf8.data(), static_cast<Py_ssize_t>(utf8.size())));
}

// A list of `size` items, all None at first, so that code which reaches it half built (a collector callback) finds no
// empty slot. `size` is never a count from a library that was not bounded before. Null with Python's error set.
Ref NewList(std::size_t size);

// A list of ints or strs, item i being make(i). Making them runs no foreign code, so no other code sees the list before
// it is full, unless memory runs out. Null with Python's error set.
template <class Make>
Ref ValueList(std::size_t size, Make make) {
  Ref list(PyList_New(static_cast<Py_ssize_t>(size)));
  for (std::size_t i = 0; list && i < size; ++i) {
    Ref value = make(i);
    if (!value)
      return nullptr;
    PyList_SET_ITEM(list.get(), static_cast<Py_ssize_t>(i), value.release());
  }
  return list;
}

// A tuple of `size` Nones, for results that are built place by place.
Ref NewTuple(std::size_t size);

// Hides a new list or tuple from the garbage collector while it is filled, so that a collection neither visits it nor
// exposes its empty slots. Not for an empty tuple, which is shared.
class GcUntracked {
 public:
  explicit GcUntracked(PyObject* container) : container_(container) { PyObject_GC_UnTrack(container); }
  GcUntracked(const GcUntracked&) = delete;
  GcUntracked& operator=(const GcUntracked&) = delete;
  ~GcUntracked() { PyObject_GC_Track(container_); }

 private:
  PyObject* container_;
};

// Report what could not be created, or not be stored in a list or a dict. They return false.
bool ReportNoBuffer();
bool ReportNoListItem();
bool ReportNoDictItem();

// Set an item and leave Python's own error on failure: false, also for a null value. `Set` and `SetOrReport` are forced
// inline: out of line they were a tenth of the time of a listing, and after a chain of them the compiler would test the
// values that were moved away.
[[gnu::always_inline]] inline bool Set(PyObject* dict, Key& key, Ref value) {
  PyObject* const name = value ? key.Object() : nullptr;
  return name && PyDict_SetItem(dict, name, value.get()) == 0;
}
inline bool SetItem(PyObject* tuple, std::size_t index, Ref value) {
  return value && PyTuple_SetItem(tuple, static_cast<Py_ssize_t>(index), value.release()) == 0;
}

// Set an item of a dict or a list, steal the reference, and report on failure: a null value could not be created.
[[gnu::always_inline]] inline bool SetOrReport(PyObject* dict, Key& key, Ref value) {
  if (!value)
    return ReportNoBuffer();
  if (Set(dict, key, std::move(value)))
    return true;
  return ReportNoDictItem();
}

inline bool SetItemOrReport(PyObject* list, std::size_t index, Ref value) {
  if (!value)
    return ReportNoBuffer();
  if (PyList_SetItem(list, static_cast<Py_ssize_t>(index), value.release()) == 0)
    return true;
  return ReportNoListItem();
}

// Create an empty dict as an item of a list, or a list of `size` Nones as an item of a dict, to be filled afterwards.
// They report. The caller's own reference keeps the new container alive whatever happens to the outer one.
Ref SetNewDict(PyObject* list, std::size_t index);
Ref SetNewList(PyObject* dict, Key& key, std::size_t size);

// Deliberate: None is returned although an error is set; the interpreter then raises a SystemError of its own at the
// call, caused by ours. Scripts and tests rely on that pairing.
PyObject* NoneWithError();
