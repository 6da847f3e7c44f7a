// Building Python values: the failures that scripts see, and containers that other code may meet half built.

#include "libryn/base/values.h"

#include "libryn/base/call.h"

// The three texts are part of the interface, line ends included: scripts find them in the cause of the SystemError that
// the interpreter raises.
bool ReportNoListItem() {
  PyErr_SetString(PyExc_SystemError, "Failed to set list item.\n");
  return false;
}

bool ReportNoDictItem() {
  PyErr_SetString(PyExc_SystemError, "Failed to set dict item.\n");
  return false;
}

bool ReportNoBuffer() {
  PyErr_SetString(PyExc_SystemError, "Failed to allocate buffer.\n");
  return false;
}

PyObject* NoneWithError() { return None(); }

Ref NewList(std::size_t size) {
  const auto length = static_cast<Py_ssize_t>(size);
  Ref list(PyList_New(length));
  for (Py_ssize_t i = 0; list && i < length; ++i) {
    Py_INCREF(Py_None);  // each slot owns a reference
    PyList_SET_ITEM(list.get(), i, Py_None);
  }
  return list;
}

Ref NewTuple(std::size_t size) {
  const auto length = static_cast<Py_ssize_t>(size);
  Ref tuple(PyTuple_New(length));
  for (Py_ssize_t i = 0; tuple && i < length; ++i) {
    Py_INCREF(Py_None);
    PyTuple_SET_ITEM(tuple.get(), i, Py_None);
  }
  return tuple;
}

// NewRef of null is null, which SetItemOrReport and SetOrReport report as a container that could not be created.
Ref SetNewDict(PyObject* list, std::size_t index) {
  Ref dict(PyDict_New());
  return SetItemOrReport(list, index, NewRef(dict.get())) ? std::move(dict) : nullptr;
}

Ref SetNewList(PyObject* dict, Key& key, std::size_t size) {
  Ref list = NewList(size);
  return SetOrReport(dict, key, NewRef(list.get())) ? std::move(list) : nullptr;
}
