#include "libryn/base/call.h"

#include <cstdarg>
#include <cstdio>

#include "libryn/base/values.h"

namespace {

PyObject* NewReference(PyObject* object) {
  Py_INCREF(object);
  return object;
}

}  // namespace

PyObject* None() { return NewReference(Py_None); }

PyObject* Bool(bool value) { return NewReference(value ? Py_True : Py_False); }

void Report(const char* format, ...) {
  std::va_list values;
  va_start(values, format);
  std::vfprintf(stderr, format, values);
  va_end(values);
}

PyObject* NoneAfter(const char* format, ...) {
  std::va_list values;
  va_start(values, format);
  std::vfprintf(stderr, format, values);
  va_end(values);
  return None();
}

PyObject* FalseAfter(const char* format, ...) {
  std::va_list values;
  va_start(values, format);
  std::vfprintf(stderr, format, values);
  va_end(values);
  return Bool(false);
}

// Python 3.12 replaced the triple with the exception alone and deprecated the old pair of calls.
#if PY_VERSION_HEX >= 0x030C0000

void DeferredError::Save() {
  PyObject* const error = PyErr_GetRaisedException();
  if (value_) {
    Py_XDECREF(error);
  } else {
    value_ = error;
  }
}

DeferredError::~DeferredError() {
  if (value_ && !PyErr_Occurred()) {
    PyErr_SetRaisedException(value_);
  } else {
    Py_XDECREF(value_);
  }
}

#else

void DeferredError::Save() {
  if (type_) {
    PyErr_Clear();
  } else {
    PyErr_Fetch(&type_, &value_, &traceback_);
  }
}

DeferredError::~DeferredError() {
  if (type_ && !PyErr_Occurred()) {
    PyErr_Restore(type_, value_, traceback_);
  } else {
    Py_XDECREF(type_);
    Py_XDECREF(value_);
    Py_XDECREF(traceback_);
  }
}

#endif

namespace {

// Before Python 3.10 the conversion accepts anything that has __int__, such as 1.5 or Decimal(7).
#if PY_VERSION_HEX >= 0x030A0000

long AsLong(PyObject* object) { return PyLong_AsLong(object); }

#else

long AsLong(PyObject* object) {
  const Ref integer(PyNumber_Index(object));
  return integer ? PyLong_AsLong(integer.get()) : -1;
}

#endif

}  // namespace

std::uint32_t LowWord(PyObject* object, DeferredError* error) {
  const long value = object ? AsLong(object) : -1;
  if (value == -1)
    error->Save();
  return static_cast<std::uint32_t>(value);
}
