// The Python module `_floor`: calls that do nothing, and an interpreter whose small-object arenas stay mapped.
#define PY_SSIZE_T_CLEAN
#include <Python.h>

#include <cstdint>
#include <cstdlib>
#include <vector>

namespace {

PyObject* Nothing(PyObject*, PyObject*) { Py_RETURN_NONE; }

PyObject* TwoNumbers(PyObject*, PyObject* args) {
  std::uint32_t first, second;
  if (!PyArg_ParseTuple(args, "II", &first, &second))
    return nullptr;
  Py_RETURN_NONE;
}

PyObjectArenaAllocator original;
std::vector<void*> kept;  // all of one size

void* Allocate(void*, size_t size) {
  if (kept.empty())
    return original.alloc(original.ctx, size);
  void* const arena = kept.back();
  kept.pop_back();
  return arena;
}

void Keep(void*, void* arena, size_t) { kept.push_back(arena); }

PyObject* KeepArenas(PyObject*, PyObject*) {
  PyObject_GetArenaAllocator(&original);
  PyObjectArenaAllocator keeping = {nullptr, Allocate, Keep};
  PyObject_SetArenaAllocator(&keeping);
  Py_RETURN_NONE;
}

PyMethodDef methods[] = {
    {"nothing", Nothing, METH_VARARGS, "Looks at no argument, returns None."},
    {"two_numbers", TwoNumbers, METH_VARARGS, "Reads two numbers, returns None."},
    {"keep_arenas", KeepArenas, METH_NOARGS, "Arenas that the interpreter gives back are handed out again."},
    {nullptr, nullptr, 0, nullptr},
};

PyModuleDef definition = {PyModuleDef_HEAD_INIT, "_floor", nullptr, -1, methods, nullptr, nullptr, nullptr, nullptr};

}  // namespace

PyMODINIT_FUNC PyInit__floor();
PyMODINIT_FUNC PyInit__floor() { return PyModule_Create(&definition); }
