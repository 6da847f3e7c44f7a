// The module ryn._core: what needs the platform libraries.

#include "host/read/backend.h"
#include "ryn/_core/platform.h"

namespace ryn {
namespace {

// ---- Platform -----------------------------------------------------------------------------------------------------

bool ReadTimeout(PyObject* object, double* timeout) {
  *timeout = kNoTimeout;
  if (object == Py_None)
    return true;
  *timeout = PyFloat_AsDouble(object);
  if (*timeout == -1.0 && PyErr_Occurred())
    return false;
  if (*timeout > 0)
    return true;
  PyErr_Format(PyExc_ValueError, "timeout is %R: seconds above 0, or None", object);
  return false;
}

PyObject* New(PyTypeObject* type, PyObject* args, PyObject* keywords) {
  static const char* names[] = {"timeout", nullptr};
  PyObject* object = Py_None;
  double timeout;
  if (!PyArg_ParseTupleAndKeywords(args, keywords, "|O:Platform", const_cast<char**>(names), &object) ||
      !ReadTimeout(object, &timeout))
    return nullptr;
  auto* const platform = PyObject_New(Platform, type);
  if (platform)
    platform->timeout = timeout;
  return reinterpret_cast<PyObject*>(platform);
}

PyObject* Timeout(PyObject* self, void*) {
  const double timeout = TimeoutOf(self);
  return timeout == kNoTimeout ? None().release() : PyFloat_FromDouble(timeout);
}

PyGetSetDef properties[] = {
    {"timeout", Timeout, nullptr, "Seconds for an operation; None: it is waited for.", nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

PyTypeObject MakePlatformType() {
  PyTypeObject type = StaticType("ryn._core.Platform");
  type.tp_doc =
      "Platform(timeout=None)\n--\n\n"
      "A host's way to the platform. Operations are made one at a time in the process, with the interpreter lock\n"
      "released. With a timeout, in seconds, a worker makes them.\n\n"
      "ValueError for a timeout that is not above 0, TypeError for one that is no number.";
  type.tp_basicsize = sizeof(Platform);
  type.tp_new = New;
  type.tp_getset = properties;
  return type;
}

PyTypeObject platform_type = MakePlatformType();

bool AddMethods(PyMethodDef* methods) {
  for (PyMethodDef* method = methods; method->ml_name; ++method) {
    const Ref descriptor(PyDescr_NewMethod(&platform_type, method));
    if (!descriptor || PyDict_SetItemString(platform_type.tp_dict, method->ml_name, descriptor.get()) != 0)
      return false;
  }
  return true;
}

bool AddPlatform(PyObject* module) {
  if (!AddType(module, &platform_type))
    return false;
  for (PyMethodDef* methods : {port_methods, flow_methods, uplink_methods, balancer_methods, setting_methods}) {
    if (!AddMethods(methods))
      return false;
  }
  PyType_Modified(&platform_type);
  return true;
}

// ---- The module ---------------------------------------------------------------------------------------------------

PyObject* Backend(PyObject*, PyObject*) { return Text(IsSimulated() ? "simulated" : "platform").release(); }

PyMethodDef functions[] = {
    {"backend", Backend, METH_NOARGS,
     "backend()\n--\n\n\"simulated\" where both platform libraries are a simulated host's, else \"platform\"."},
    {nullptr, nullptr, 0, nullptr},
};

PyModuleDef definition = {
    PyModuleDef_HEAD_INIT,
    "ryn._core",
    "A host's way to the platform libraries.",
    -1,
    functions,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
};

bool FindRecords() {
  const Ref records(PyImport_ImportModule("ryn._records"));  // PyCapsule_Import finds only what is imported
  if (records)
    records_api = static_cast<const RecordsApi*>(PyCapsule_Import(kRecordsCapsule, 0));
  return records_api != nullptr;
}

}  // namespace
}  // namespace ryn

PyMODINIT_FUNC PyInit__core [[gnu::visibility("default")]] ();
PyMODINIT_FUNC PyInit__core() {
  if (!ryn::FindRecords() || PyType_Ready(&ryn::flow_walk_type) != 0)
    return nullptr;
  ryn::Ref module(PyModule_Create(&ryn::definition));
  if (!module || !ryn::AddPlatform(module.get()))
    return nullptr;
  return module.release();
}
