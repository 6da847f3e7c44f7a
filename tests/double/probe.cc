// The Python module `_probe`: calls a built-in function directly, past the interpreter's check that a result and an
// error exclude each other, and optionally lets one of its allocations fail, or all from one on.
#define PY_SSIZE_T_CLEAN
#include <Python.h>

#include <array>

#include "failing_allocation.h"

namespace {

// Holds as many dicts and lists as the interpreter keeps for reuse, so that each new one takes an allocation. The
// collector is off meanwhile: what it frees could be reused.
class Spares {
 public:
  Spares() : collecting_(SetCollector(0)) {
    for (auto& dict : dicts_) {
      dict = PyDict_New();
      if (dict)
        PyDict_SetItemString(dict, "key", Py_None);  // an empty dict has no table of its own
    }
    for (auto& list : lists_)
      list = PyList_New(0);
  }
  ~Spares() {
    for (PyObject* dict : dicts_)
      Py_XDECREF(dict);
    for (PyObject* list : lists_)
      Py_XDECREF(list);
    SetCollector(collecting_);
  }
  Spares(const Spares&) = delete;
  Spares& operator=(const Spares&) = delete;

 private:
  // Returns what it was before.
  static int SetCollector([[maybe_unused]] int on) {
#if PY_VERSION_HEX >= 0x030A0000
    return on ? PyGC_Enable() : PyGC_Disable();
#else
    return 0;
#endif
  }

  int collecting_;
  std::array<PyObject*, 100> dicts_, lists_;
};

PyObject* OrNone(PyObject* object) {
  if (object)
    return object;
  Py_RETURN_NONE;
}

// By the convention that its flags name: a tuple, or an array of the arguments.
PyObject* CallPlain(PyObject* function, PyObject* arguments) {
  using FastCall = PyObject* (*)(PyObject*, PyObject* const*, Py_ssize_t);
  const auto method = PyCFunction_GetFunction(function);
  PyObject* const self = PyCFunction_GetSelf(function);
  if (PyCFunction_GetFlags(function) != METH_FASTCALL)
    return method(self, arguments);
  const auto fast = reinterpret_cast<FastCall>(reinterpret_cast<void (*)()>(method));
  return fast(self, PySequence_Fast_ITEMS(arguments), PyTuple_GET_SIZE(arguments));
}

PyObject* CallBuiltin(PyObject*, PyObject* args) {
  PyObject *function, *arguments;
  Py_ssize_t failing;
  int following = 0;
  if (!PyArg_ParseTuple(args, "O!O!n|p:call", &PyCFunction_Type, &function, &PyTuple_Type, &arguments, &failing,
                        &following))
    return nullptr;

  bool allocation_failed = false;
  PyObject* result;
  if (failing < 0) {
    result = CallPlain(function, arguments);
  } else {
    const Spares taken;
    const FailingAllocation failing_allocation(failing, following != 0);
    result = CallPlain(function, arguments);
    allocation_failed = failing_allocation.HasFailed();
  }

  PyObject *type, *error, *traceback;
  PyErr_Fetch(&type, &error, &traceback);
  if (type) {
    PyErr_NormalizeException(&type, &error, &traceback);
    Py_DECREF(type);
    Py_XDECREF(traceback);
  }
  PyObject* const has_result = PyBool_FromLong(result != nullptr);
  return Py_BuildValue("(NNNN)", has_result, OrNone(result), OrNone(error), PyBool_FromLong(allocation_failed));
}

PyMethodDef methods[] = {
    {"call", CallBuiltin, METH_VARARGS,
     "call(function, arguments, failing, following=False) -> (has_result, result, error, whether an allocation failed)"
     "\n\nfailing: the number of the interpreter's allocation, from 0, that fails during the call, or -1\n"
     "following: all allocations after it fail too"},
    {nullptr, nullptr, 0, nullptr},
};

PyModuleDef definition = {PyModuleDef_HEAD_INIT, "_probe", nullptr, -1, methods, nullptr, nullptr, nullptr, nullptr};

}  // namespace

PyMODINIT_FUNC PyInit__probe();
PyMODINIT_FUNC PyInit__probe() { return PyModule_Create(&definition); }
