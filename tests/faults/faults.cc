// The Python module `_faults`: lets a chosen call fail that the module under test makes of the interpreter or of the
// allocator, and tells what its calls cost.
//
// bind() puts wrappers into the import table of one loaded object, so that its calls are seen and no others, jumps at
// the end of a function included; it works with every interpreter, linked statically or not. A wrapper whose turn it
// is sets MemoryError("injected") and answers as the function does when it fails.
#define PY_SSIZE_T_CLEAN
#include <Python.h>

#include <dlfcn.h>
#include <elf.h>
#include <link.h>
#include <malloc.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>
#include <type_traits>

namespace {

constexpr Py_ssize_t kOff = -2;  // calls pass unseen

struct Event {
  const void* function;
  std::size_t size;  // of an area
  const char* text;  // of a text that is made into a str; texts of the module are constants
};

// Some calls are made without the interpreter lock, or by a thread of its own.
Event events[1 << 16];
std::atomic<Py_ssize_t> event_count;
std::atomic<Py_ssize_t> made_with_error;  // calls that were made while an error was set
std::atomic<Py_ssize_t> failing = kOff;   // the number of the call that fails

bool Fails(const void* function, const char* text = nullptr, std::size_t size = 0) {
  const Py_ssize_t wanted = failing;
  if (wanted == kOff)
    return false;
  const Py_ssize_t number = event_count++;
  if (static_cast<std::size_t>(number) >= std::size(events))
    std::abort();
  if (PyGILState_Check() && PyErr_Occurred())
    ++made_with_error;
  events[number] = {function, size, text};
  return number == wanted;
}

void SetInjected() { PyErr_SetString(PyExc_MemoryError, "injected"); }

template <class Function>
const void* Address(Function* function) {
  return reinterpret_cast<const void*>(function);
}

template <class... Args>
const char* TextOf(Args...) {
  return nullptr;
}

const char* TextOf(const char* text) { return text; }

template <auto function>
struct Fallible;

// Answers null or -1 when it fails.
template <class Result, class... Args, Result (*function)(Args...)>
struct Fallible<function> {
  static Result Call(Args... args) {
    if (!Fails(Address(function), TextOf(args...)))
      return function(args...);
    SetInjected();
    if constexpr (std::is_pointer_v<Result>)
      return nullptr;
    else
      return static_cast<Result>(-1);
  }
};

// A store that takes the item over: the reference is dropped when it fails, as the real function does.
template <int (*function)(PyObject*, Py_ssize_t, PyObject*)>
int FallibleStore(PyObject* container, Py_ssize_t index, PyObject* item) {
  if (!Fails(Address(function)))
    return function(container, index, item);
  Py_XDECREF(item);
  SetInjected();
  return -1;
}

int ParseTuple(PyObject* args, const char* format, ...) {
  if (Fails(Address(PyArg_ParseTuple))) {
    SetInjected();
    return 0;
  }
  std::va_list variables;
  va_start(variables, format);
  const int parsed = PyArg_VaParse(args, format, variables);
  va_end(variables);
  return parsed;
}

int ParseTupleAndKeywords(PyObject* args, PyObject* keywords, const char* format, char** names, ...) {
  if (Fails(Address(PyArg_ParseTupleAndKeywords))) {
    SetInjected();
    return 0;
  }
  std::va_list variables;
  va_start(variables, names);
  const int parsed = PyArg_VaParseTupleAndKeywords(args, keywords, format, names, variables);
  va_end(variables);
  return parsed;
}

// What a failing call has built is dropped, and with it the references that it was to take over.
PyObject* BuildValue(const char* format, ...) {
  const bool fails = Fails(Address(Py_BuildValue));
  std::va_list values;
  va_start(values, format);
  PyObject* built = Py_VaBuildValue(format, values);
  va_end(values);
  if (fails) {
    Py_CLEAR(built);
    SetInjected();
  }
  return built;
}

PyObject* CallWithValues(PyObject* function, const char* format, std::va_list values) {
  PyObject* const arguments = Py_VaBuildValue(("(" + std::string(format ? format : "") + ")").c_str(), values);
  PyObject* const result = arguments ? PyObject_CallObject(function, arguments) : nullptr;
  Py_XDECREF(arguments);
  return result;
}

PyObject* CallFunction(PyObject* function, const char* format, ...) {
  if (Fails(Address(PyObject_CallFunction))) {
    SetInjected();
    return nullptr;
  }
  std::va_list values;
  va_start(values, format);
  PyObject* const result = CallWithValues(function, format, values);
  va_end(values);
  return result;
}

PyObject* CallMethod(PyObject* object, const char* name, const char* format, ...) {
  if (Fails(Address(PyObject_CallMethod), name)) {
    SetInjected();
    return nullptr;
  }
  PyObject* const method = PyObject_GetAttrString(object, name);
  if (!method)
    return nullptr;
  std::va_list values;
  va_start(values, format);
  PyObject* const result = CallWithValues(method, format, values);
  va_end(values);
  Py_DECREF(method);
  return result;
}

// Of one argument, as all calls here have it.
PyObject* CallFunctionObjArgs(PyObject* function, PyObject* argument, PyObject* end) {
  if (end)
    std::abort();
  if (!Fails(Address(PyObject_CallFunctionObjArgs)))
    return PyObject_CallFunctionObjArgs(function, argument, nullptr);
  SetInjected();
  return nullptr;
}

PyObject* FromFormat(const char* format, ...) {
  if (Fails(Address(PyUnicode_FromFormat), format)) {
    SetInjected();
    return nullptr;
  }
  std::va_list values;
  va_start(values, format);
  PyObject* const text = PyUnicode_FromFormatV(format, values);
  va_end(values);
  return text;
}

PyObject* TuplePack(Py_ssize_t size, ...) {
  if (Fails(Address(PyTuple_Pack))) {
    SetInjected();
    return nullptr;
  }
  PyObject* const tuple = PyTuple_New(size);
  std::va_list items;
  va_start(items, size);
  for (Py_ssize_t i = 0; tuple && i < size; ++i) {
    PyObject* const item = va_arg(items, PyObject*);
    Py_INCREF(item);
    PyTuple_SET_ITEM(tuple, i, item);
  }
  va_end(items);
  return tuple;
}

void* Malloc(std::size_t size) { return Fails(Address(std::malloc), nullptr, size) ? nullptr : std::malloc(size); }

void* Calloc(std::size_t count, std::size_t size) {
  return Fails(Address(std::calloc), nullptr, count * size) ? nullptr : std::calloc(count, size);
}

void* Realloc(void* area, std::size_t size) {
  return Fails(Address(std::realloc), nullptr, size) ? nullptr : std::realloc(area, size);
}

int CreateThread(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*), void* argument) {
  return Fails(Address(pthread_create)) ? EAGAIN : pthread_create(thread, attributes, start, argument);
}

struct Import {
  const char* name;  // as the import table has it
  const char* function;
  const void* real;
  const void* wrapper;
};

#define IMPORT(name, wrapper) \
  { #name, #name, Address(name), Address(wrapper) }
#define FALLIBLE(name) IMPORT(name, Fallible<name>::Call)

const Import kImports[] = {
    FALLIBLE(PyBytes_FromStringAndSize),
    FALLIBLE(PyCapsule_Import),
    FALLIBLE(PyCapsule_New),
    FALLIBLE(PyDescr_NewMethod),
    FALLIBLE(PyDict_GetItemWithError),
    FALLIBLE(PyDict_New),
    FALLIBLE(PyDict_SetItem),
    FALLIBLE(PyDict_SetItemString),
    FALLIBLE(PyErr_CheckSignals),
    FALLIBLE(PyFloat_AsDouble),
    FALLIBLE(PyFloat_FromDouble),
    FALLIBLE(PyImport_ImportModule),
    FALLIBLE(PyList_Append),
    FALLIBLE(PyList_AsTuple),
    FALLIBLE(PyList_GetItem),
    FALLIBLE(PyList_New),
    IMPORT(PyList_SetItem, FallibleStore<PyList_SetItem>),
    FALLIBLE(PyList_Size),
    FALLIBLE(PyLong_AsLong),
    FALLIBLE(PyLong_AsUnsignedLong),
    FALLIBLE(PyLong_FromLong),
    FALLIBLE(PyLong_FromSize_t),
    FALLIBLE(PyLong_FromUnsignedLong),
    FALLIBLE(PyModule_AddObject),
    FALLIBLE(PyModule_Create2),
    FALLIBLE(PyNumber_Add),
    FALLIBLE(PyNumber_AsSsize_t),
    FALLIBLE(PyNumber_Index),
    IMPORT(PyObject_CallFunctionObjArgs, CallFunctionObjArgs),
    FALLIBLE(PyObject_GetAttrString),
    FALLIBLE(PyObject_GetIter),
    FALLIBLE(PyObject_Hash),
    FALLIBLE(PyObject_IsTrue),
    FALLIBLE(PyObject_SetAttrString),
    FALLIBLE(PySequence_Fast),
    FALLIBLE(PySequence_Tuple),
    FALLIBLE(PySlice_Unpack),
    FALLIBLE(PyStructSequence_New),
    FALLIBLE(PyStructSequence_NewType),
    FALLIBLE(PyTuple_New),
    IMPORT(PyTuple_Pack, TuplePack),
    IMPORT(PyTuple_SetItem, FallibleStore<PyTuple_SetItem>),
    FALLIBLE(PyType_Ready),
    FALLIBLE(PyUnicode_AsEncodedString),
    FALLIBLE(PyUnicode_AsUTF8AndSize),
    FALLIBLE(PyUnicode_DecodeUTF8),
    IMPORT(PyUnicode_FromFormat, FromFormat),
    FALLIBLE(PyUnicode_FromString),
    FALLIBLE(PyUnicode_FromStringAndSize),
    FALLIBLE(PyUnicode_InternFromString),
    FALLIBLE(PyUnicode_Join),
    FALLIBLE(PyUnicode_New),
    FALLIBLE(_PyObject_New),
    // Their names depend on the version, and may be macros
    {"PyArg_ParseTuple", "PyArg_ParseTuple", Address(PyArg_ParseTuple), Address(ParseTuple)},
    {"_PyArg_ParseTuple_SizeT", "PyArg_ParseTuple", Address(PyArg_ParseTuple), Address(ParseTuple)},
    {"Py_BuildValue", "Py_BuildValue", Address(Py_BuildValue), Address(BuildValue)},
    {"_Py_BuildValue_SizeT", "Py_BuildValue", Address(Py_BuildValue), Address(BuildValue)},
    {"PyArg_ParseTupleAndKeywords", "PyArg_ParseTupleAndKeywords", Address(PyArg_ParseTupleAndKeywords),
     Address(ParseTupleAndKeywords)},
    {"_PyArg_ParseTupleAndKeywords_SizeT", "PyArg_ParseTupleAndKeywords", Address(PyArg_ParseTupleAndKeywords),
     Address(ParseTupleAndKeywords)},
    {"PyObject_CallFunction", "PyObject_CallFunction", Address(PyObject_CallFunction), Address(CallFunction)},
    {"_PyObject_CallFunction_SizeT", "PyObject_CallFunction", Address(PyObject_CallFunction), Address(CallFunction)},
    {"PyObject_CallMethod", "PyObject_CallMethod", Address(PyObject_CallMethod), Address(CallMethod)},
    {"_PyObject_CallMethod_SizeT", "PyObject_CallMethod", Address(PyObject_CallMethod), Address(CallMethod)},
    {"pthread_create", "pthread_create", Address(pthread_create), Address(CreateThread)},
    {"malloc", "malloc", Address(std::malloc), Address(Malloc)},
    {"calloc", "calloc", Address(std::calloc), Address(Calloc)},
    {"realloc", "realloc", Address(std::realloc), Address(Realloc)},
};

// Tables of a loaded object by the tags of its dynamic section, whose addresses the loader may have relocated.
class Object {
 public:
  explicit Object(const link_map* map) : map_(map) {}

  ElfW(Addr) Base() const { return map_->l_addr; }

  std::uintptr_t Value(ElfW(Sxword) tag) const {
    for (const ElfW(Dyn)* entry = map_->l_ld; entry->d_tag != DT_NULL; ++entry)
      if (entry->d_tag == tag)
        return entry->d_un.d_val;
    return 0;
  }

  template <class T>
  const T* Table(ElfW(Sxword) tag) const {
    const auto address = Value(tag);
    return reinterpret_cast<const T*>(address && address < Base() ? Base() + address : address);
  }

 private:
  const link_map* map_;
};

void PutInto(std::uintptr_t slot, const void* wrapper) {
  const auto page_size = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  const auto page = slot / page_size * page_size;  // the table is read-only once the loader is done
  mprotect(reinterpret_cast<void*>(page), page_size, PROT_READ | PROT_WRITE);
  std::memcpy(reinterpret_cast<void*>(slot), &wrapper, sizeof(wrapper));
}

void BindRelocations(const Object& object, const ElfW(Rela) * relocations, std::size_t size) {
  const auto* const symbols = object.Table<ElfW(Sym)>(DT_SYMTAB);
  const auto* const names = object.Table<char>(DT_STRTAB);
  for (std::size_t i = 0; i < size / sizeof(*relocations); ++i) {
    const char* const name = names + symbols[ELF64_R_SYM(relocations[i].r_info)].st_name;
    for (const Import& import : kImports)
      if (std::strcmp(name, import.name) == 0)
        PutInto(object.Base() + relocations[i].r_offset, import.wrapper);
  }
}

PyObject* Bind(PyObject*, PyObject* args) {
  const char* file;
  if (!PyArg_ParseTuple(args, "s:bind", &file))
    return nullptr;
  void* const handle = dlopen(file, RTLD_LAZY | RTLD_NOLOAD);
  link_map* map = nullptr;
  if (!handle || dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0)
    return PyErr_Format(PyExc_OSError, "not loaded: %s", file);
  const Object object(map);
  BindRelocations(object, object.Table<ElfW(Rela)>(DT_JMPREL), object.Value(DT_PLTRELSZ));
  BindRelocations(object, object.Table<ElfW(Rela)>(DT_RELA), object.Value(DT_RELASZ));
  dlclose(handle);
  Py_RETURN_NONE;
}

PyObject* Arm(PyObject*, PyObject* args) {
  Py_ssize_t wanted;
  if (!PyArg_ParseTuple(args, "n:arm", &wanted))
    return nullptr;
  event_count = 0;
  made_with_error = 0;
  failing = wanted;
  Py_RETURN_NONE;
}

PyObject* NameOf(const Event& event) {
  for (const Import& import : kImports)
    if (import.real == event.function)
      return Py_BuildValue("(sz)", import.function, event.text);
  return PyErr_Format(PyExc_AssertionError, "a call without a name");
}

PyObject* Trace(PyObject*, PyObject*) {
  failing = kOff;
  PyObject* const trace = PyList_New(event_count);
  for (Py_ssize_t i = 0; trace && i < event_count; ++i)
    PyList_SET_ITEM(trace, i, NameOf(events[i]));
  return trace;
}

PyObject* MadeWithError(PyObject*, PyObject*) { return PyLong_FromSsize_t(made_with_error); }

PyObject* Sizes(PyObject*, PyObject*) {
  PyObject* const sizes = PyList_New(0);
  for (Py_ssize_t i = 0; sizes && i < event_count; ++i) {
    if (events[i].function != Address(std::malloc) && events[i].function != Address(std::calloc))
      continue;
    PyObject* const size = PyLong_FromSize_t(events[i].size);
    PyList_Append(sizes, size);
    Py_DECREF(size);
  }
  return sizes;
}

PyObject* Imports(PyObject*, PyObject*) {
  PyObject* const names = PyList_New(0);
  for (const Import& import : kImports) {
    PyObject* const name = Py_BuildValue("s", import.name);
    PyList_Append(names, name);
    Py_DECREF(name);
  }
  return names;
}

struct Held {
  long long blocks, bytes, references;
};

Held HeldNow(PyObject* count_blocks) {
  PyObject* const blocks = PyObject_CallObject(count_blocks, nullptr);
  const struct mallinfo2 info = mallinfo2();
  const Held held = {PyLong_AsLongLong(blocks), static_cast<long long>(info.uordblks + info.hblkhd),
                     Py_REFCNT(Py_None) + Py_REFCNT(Py_True) + Py_REFCNT(Py_False)};
  Py_DECREF(blocks);
  return held;
}

PyObject* Measure(PyObject*, PyObject* args) {
  PyObject *function, *arguments;
  Py_ssize_t wanted, calls;
  if (!PyArg_ParseTuple(args, "O!O!nn:measure", &PyCFunction_Type, &function, &PyTuple_Type, &arguments, &wanted,
                        &calls))
    return nullptr;
  PyObject* const count_blocks = PySys_GetObject("getallocatedblocks");  // borrowed
  const auto method = PyCFunction_GetFunction(function);
  PyObject* const self = PyCFunction_GetSelf(function);
  Held before = {};
  for (Py_ssize_t i = 0; i < 2 * calls; ++i) {
    if (i % calls == 0)  // the second time is the one that counts: the first half fills free lists and caches
      before = HeldNow(count_blocks);
    failing = wanted;
    event_count = 0;
    Py_XDECREF(method(self, arguments));
    failing = kOff;
    PyErr_Clear();
  }
  const Held after = HeldNow(count_blocks);
  return Py_BuildValue("LLL", after.blocks - before.blocks, after.bytes - before.bytes,
                       after.references - before.references);
}

PyMethodDef methods[] = {
    {"bind", Bind, METH_VARARGS, "bind(file): watch the calls that this loaded object makes"},
    {"imports", Imports, METH_NOARGS, "The names of the functions that can be let fail, as an import table has them"},
    {"arm", Arm, METH_VARARGS, "arm(n): record from now on, and let call n fail, counted from 0; -1: none"},
    {"trace", Trace, METH_NOARGS, "Stop; the calls since arm() as (function, text of a str that was made or None)"},
    {"made_with_error", MadeWithError, METH_NOARGS, "How many calls since arm() were made while an error was set"},
    {"sizes", Sizes, METH_NOARGS, "The sizes of the native areas that were asked for since arm(), in order"},
    {"measure", Measure, METH_VARARGS,
     "measure(function, args, n, calls) -> (blocks, bytes, references)\n\n"
     "What so many calls of a built-in function keep when their call n fails (-1: none): blocks of the interpreter, "
     "bytes of the allocator, references to None, True and False"},
    {nullptr, nullptr, 0, nullptr},
};

PyModuleDef definition = {PyModuleDef_HEAD_INIT, "_faults", nullptr, -1, methods, nullptr, nullptr, nullptr, nullptr};

}  // namespace

PyMODINIT_FUNC PyInit__faults();
PyMODINIT_FUNC PyInit__faults() { return PyModule_Create(&definition); }
