#include "module/values.h"

#include "module/call.h"

namespace {

bool ReportNoListItem() {
  PyErr_SetString(PyExc_SystemError, "Failed to set list item.\n");
  return false;
}

bool ReportNoDictItem() {
  PyErr_SetString(PyExc_SystemError, "Failed to set dict item.\n");
  return false;
}

}  // namespace

bool ReportNoBuffer() {
  PyErr_SetString(PyExc_SystemError, "Failed to allocate buffer.\n");
  return false;
}

PyObject* NoneWithError() { return None(); }

Ref NewList(std::size_t size) {
  const auto length = static_cast<Py_ssize_t>(size);
  Ref list(PyList_New(length));
  for (Py_ssize_t i = 0; list && i < length; ++i)
    PyList_SET_ITEM(list.get(), i, None());
  return list;
}

Ref NewTuple(std::size_t size) {
  const auto length = static_cast<Py_ssize_t>(size);
  Ref tuple(PyTuple_New(length));
  for (Py_ssize_t i = 0; tuple && i < length; ++i)
    PyTuple_SET_ITEM(tuple.get(), i, None());
  return tuple;
}

bool Put(PyObject* dict, Key& key, Ref value) {
  if (!value)
    return false;
  PyObject* const name = key.Object();
  return name && PyDict_SetItem(dict, name, value.get()) == 0;
}

bool PutItem(PyObject* tuple, std::size_t index, Ref value) {
  return value && PyTuple_SetItem(tuple, static_cast<Py_ssize_t>(index), value.release()) == 0;
}

bool Store(PyObject* dict, Key& key, Ref value) {
  if (!value)
    return ReportNoBuffer();
  return Put(dict, key, std::move(value)) || ReportNoDictItem();
}

bool StoreItem(PyObject* list, std::size_t index, Ref value) {
  if (!value)
    return ReportNoBuffer();
  return PyList_SetItem(list, static_cast<Py_ssize_t>(index), value.release()) == 0 || ReportNoListItem();
}

Ref StoreNewDict(PyObject* list, std::size_t index) {
  Ref dict(PyDict_New());
  return StoreItem(list, index, Share(dict.get())) ? std::move(dict) : nullptr;
}

Ref StoreNewList(PyObject* dict, Key& key, std::size_t size) {
  Ref list = NewList(size);
  return Store(dict, key, Share(list.get())) ? std::move(list) : nullptr;
}
