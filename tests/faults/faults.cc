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
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <type_traits>

namespace {

constexpr Py_ssize_t kOff = -2;  // calls pass unseen

struct Event {
  const void* function;
  std::size_t size;  // of an area
  const char* text;  // of a text that is made into a str; texts of the module are constants
};

Event events[1 << 16];
Py_ssize_t event_count;
Py_ssize_t made_with_error;  // calls that were made while an error was set
Py_ssize_t failing = kOff;   // the number of the call that fails

bool Fails(const void* function, const char* text = nullptr, std::size_t size = 0) {
  if (failing == kOff)
    return false;
  if (static_cast<std::size_t>(event_count) == std::size(events))
    std::abort();
  if (PyErr_Occurred())
    ++made_with_error;
  events[event_count] = {function, size, text};
  return event_count++ == failing;
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
      return -1;
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

PyObject* BuildValue(const char* format, ...) {
  if (Fails(Address(Py_BuildValue))) {
    SetInjected();
    return nullptr;
  }
  std::va_list values;
  va_start(values, format);
  PyObject* const built = Py_VaBuildValue(format, values);
  va_end(values);
  return built;
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
    FALLIBLE(PyDict_GetItemWithError),
    FALLIBLE(PyDict_New),
    FALLIBLE(PyDict_SetItem),
    FALLIBLE(PyList_GetItem),
    FALLIBLE(PyList_New),
    IMPORT(PyList_SetItem, FallibleStore<PyList_SetItem>),
    FALLIBLE(PyList_Size),
    FALLIBLE(PyLong_AsLong),
    FALLIBLE(PyLong_FromLong),
    FALLIBLE(PyLong_FromUnsignedLong),
    FALLIBLE(PyModule_Create2),
    FALLIBLE(PyTuple_New),
    IMPORT(PyTuple_Pack, TuplePack),
    IMPORT(PyTuple_SetItem, FallibleStore<PyTuple_SetItem>),
    FALLIBLE(PyUnicode_AsUTF8AndSize),
    FALLIBLE(PyUnicode_FromStringAndSize),
    FALLIBLE(PyUnicode_InternFromString),
    FALLIBLE(PyUnicode_New),
    // Their names depend on the version, and may be macros
    {"PyArg_ParseTuple", "PyArg_ParseTuple", Address(PyArg_ParseTuple), Address(ParseTuple)},
    {"_PyArg_ParseTuple_SizeT", "PyArg_ParseTuple", Address(PyArg_ParseTuple), Address(ParseTuple)},
    {"Py_BuildValue", "Py_BuildValue", Address(Py_BuildValue), Address(BuildValue)},
    {"_Py_BuildValue_SizeT", "Py_BuildValue", Address(Py_BuildValue), Address(BuildValue)},
    {"malloc", "malloc", Address(std::malloc), Address(Malloc)},
    {"calloc", "calloc", Address(std::calloc), Address(Calloc)},
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
  if (!PyArg_ParseTuple(args, "n:arm", &failing))
    return nullptr;
  event_count = made_with_error = 0;
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
