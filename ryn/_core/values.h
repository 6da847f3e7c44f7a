// Owned references, and Python values made of native ones. What makes a value answers null with Python's error set.
#pragma once

#define PY_SSIZE_T_CLEAN
#include <Python.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

namespace ryn {

struct DropReference {
  void operator()(PyObject* object) const { Py_DECREF(object); }
};

// A reference that we own.
using Ref = std::unique_ptr<PyObject, DropReference>;

inline Ref Share(PyObject* object) {
  Py_XINCREF(object);
  return Ref(object);
}

inline Ref None() { return Share(Py_None); }
inline Ref Bool(bool value) { return Share(value ? Py_True : Py_False); }
inline Ref Int(std::uint64_t value) { return Ref(PyLong_FromUnsignedLong(value)); }
inline Ref SignedInt(std::int64_t value) { return Ref(PyLong_FromLong(value)); }
inline Ref Bytes(const void* bytes, std::size_t size) {
  return Ref(PyBytes_FromStringAndSize(static_cast<const char*>(bytes), static_cast<Py_ssize_t>(size)));
}

// A str from a text of the platform. Bytes that are no UTF-8 survive as lone surrogates.
inline Ref Text(std::string_view text) {
  return Ref(PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "surrogateescape"));
}

// The bytes of a text for the platform, the inverse of Text. ValueError for a NUL in it, TypeError for what is no str.
Ref TextBytes(PyObject* text);

// A tuple of `size` values, item i being make(i).
template <class Make>
Ref Tuple(std::size_t size, Make make) {
  Ref tuple(PyTuple_New(static_cast<Py_ssize_t>(size)));
  for (std::size_t i = 0; tuple && i < size; ++i) {
    Ref item = make(i);
    if (!item)
      return nullptr;
    PyTuple_SET_ITEM(tuple.get(), static_cast<Py_ssize_t>(i), item.release());
  }
  return tuple;
}

// A list of values, each appended once it is made: nobody meets an empty place.
template <class Make>
Ref List(std::size_t size, Make make) {
  Ref list(PyList_New(0));
  for (std::size_t i = 0; list && i < size; ++i) {
    const Ref item = make(i);
    if (!item || PyList_Append(list.get(), item.get()) != 0)
      return nullptr;
  }
  return list;
}

template <class T>
T* As(PyObject* object) {
  return reinterpret_cast<T*>(object);
}

// A slot of a type, or a method, from a function of another signature.
template <class Slot, class Function>
Slot Cast(Function* function) {
  return reinterpret_cast<Slot>(reinterpret_cast<void (*)()>(function));
}

// An unsigned number of an argument, at most `most`. ValueError beyond, TypeError for what is no int.
bool ReadNumber(PyObject* object, const char* name, std::uint64_t most, std::uint64_t* number);
template <class T>
bool ReadNumber(PyObject* object, const char* name, std::uint64_t most, T* number) {
  std::uint64_t value;
  if (!ReadNumber(object, name, most, &value))
    return false;
  *number = static_cast<T>(value);
  return true;
}

// A type to be filled in, which has its name and nothing else.
PyTypeObject StaticType(const char* name);

// Makes a static type ready and adds it to the module under the last part of its name.
bool AddType(PyObject* module, PyTypeObject* type);

// An attribute of a module, imported when it is not yet.
Ref Imported(const char* module, const char* name);

}  // namespace ryn
