#include "ryn/_core/values.h"

#include <cstring>

namespace ryn {

Ref TextBytes(PyObject* text) {
  if (!PyUnicode_Check(text)) {
    PyErr_Format(PyExc_TypeError, "expected str, not %.100s", Py_TYPE(text)->tp_name);
    return nullptr;
  }
  Ref bytes(PyUnicode_AsEncodedString(text, "utf-8", "surrogateescape"));
  if (bytes && std::strlen(PyBytes_AS_STRING(bytes.get())) != static_cast<std::size_t>(PyBytes_GET_SIZE(bytes.get()))) {
    PyErr_SetString(PyExc_ValueError, "a text for the platform has no NUL");
    return nullptr;
  }
  return bytes;
}

bool ReadNumber(PyObject* object, const char* name, std::uint64_t most, std::uint64_t* number) {
  const Ref index(PyNumber_Index(object));
  if (!index)
    return false;
  *number = PyLong_AsUnsignedLong(index.get());
  if (PyErr_Occurred()) {
    if (!PyErr_ExceptionMatches(PyExc_OverflowError))
      return false;
    PyErr_Clear();  // negative, or beyond 64 bits
  } else if (*number <= most) {
    return true;
  }
  PyErr_Format(PyExc_ValueError, "%s is %R: 0 to %llu", name, index.get(), static_cast<unsigned long long>(most));
  return false;
}

PyTypeObject StaticType(const char* name) {
  const PyVarObject heads[] = {PyVarObject_HEAD_INIT(nullptr, 0)};
  PyTypeObject type = {};
  type.ob_base = heads[0];
  type.tp_name = name;
  type.tp_flags = Py_TPFLAGS_DEFAULT;
  return type;
}

bool AddType(PyObject* module, PyTypeObject* type) {
  if (PyType_Ready(type) != 0)
    return false;
  auto* const object = reinterpret_cast<PyObject*>(type);
  Py_INCREF(object);
  if (PyModule_AddObject(module, std::strrchr(type->tp_name, '.') + 1, object) == 0)
    return true;
  Py_DECREF(object);
  return false;
}

Ref Imported(const char* module, const char* name) {
  const Ref imported(PyImport_ImportModule(module));
  return Ref(imported ? PyObject_GetAttrString(imported.get(), name) : nullptr);
}

}  // namespace ryn
