#include "ryn/_core/arguments.h"

namespace ryn {

const RecordsApi* records_api;

bool Numbers::operator()(PyObject* object) const {
  const Ref items(PySequence_Tuple(object));  // ours: no conversion of an item can change it
  if (!items)
    return false;
  const Py_ssize_t size = PyTuple_GET_SIZE(items.get());
  if (size > static_cast<Py_ssize_t>(room)) {
    PyErr_Format(PyExc_ValueError, "%zd %s: at most %u", size, name, room);
    return false;
  }
  for (Py_ssize_t i = 0; i < size; ++i) {
    if (!ReadNumber(PyTuple_GET_ITEM(items.get(), i), name, UINT32_MAX, &numbers[i]))
      return false;
  }
  *count = static_cast<std::uint32_t>(size);
  return true;
}

bool HasCount(const char* method, Py_ssize_t count, std::size_t expected) {
  if (count == static_cast<Py_ssize_t>(expected))
    return true;
  PyErr_Format(PyExc_TypeError, "%s() takes %zu arguments (%zd given)", method, expected, count);
  return false;
}

}  // namespace ryn
