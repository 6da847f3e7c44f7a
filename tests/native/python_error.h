// Python's pending error in tests.
#pragma once

#include <string>

#include "libryn/base/values.h"

// "Type: text" of the pending error, which is cleared; "" when there is none.
inline std::string TakeError() {
  PyObject *type, *value, *traceback;
  PyErr_Fetch(&type, &value, &traceback);
  if (!type)
    return "";
  PyErr_NormalizeException(&type, &value, &traceback);
  const Ref owned_type(type), owned_value(value), owned_traceback(traceback);
  const Ref text(PyObject_Str(value));
  return std::string(reinterpret_cast<PyTypeObject*>(type)->tp_name) + ": " + PyUnicode_AsUTF8(text.get());
}
