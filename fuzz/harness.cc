#include "harness.h"

#include <sanitizer/allocator_interface.h>

#include <cstdarg>

#include "double.h"
#include "main.h"

// ---- The double ----------------------------------------------------------------------------------------------------

namespace {

void Script(const char* operation, const Bytes& area, std::uint32_t status, std::int64_t length) {
  static constexpr unsigned char kNothing = 0;
  const DoubleAnswer answer = {status, -1, area.empty() ? &kNothing : area.data(), area.size(), length, 0};
  double_answer(operation, &answer);
}

}  // namespace

void Answer(const char* operation, const Bytes& area, std::uint32_t status) { Script(operation, area, status, -1); }

void AnswerWithLength(const char* operation, const Bytes& area, std::uint32_t length) {
  Script(operation, area, 0, length);
}

void Fail(const char* operation, std::uint32_t status) {
  const DoubleAnswer answer = {status, -1, nullptr, 0, -1, 0};
  double_answer(operation, &answer);
}

// ---- Calls ---------------------------------------------------------------------------------------------------------

namespace {

// The number of values in a result.
std::size_t Walk(PyObject* object) {
  Expect(object != nullptr, "no place of a result is empty");
  std::size_t values = 1;
  if (PyDict_Check(object)) {
    PyObject *key, *value;
    for (Py_ssize_t at = 0; PyDict_Next(object, &at, &key, &value);)
      values += Walk(key) + Walk(value);
  } else if (PyList_Check(object)) {
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(object); ++i)
      values += Walk(PyList_GET_ITEM(object, i));
  } else if (PyTuple_Check(object)) {
    for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(object); ++i)
      values += Walk(PyTuple_GET_ITEM(object, i));
  } else {
    Expect(PyUnicode_Check(object) || PyLong_Check(object) || object == Py_None, "a result is of plain values");
  }
  return values;
}

constexpr std::size_t kMostValues = 5000;  // of a result that is built over and over

}  // namespace

Ref Run(Method method, Ref args, unsigned rules) {
  const auto call = [&] {
    Ref result(method(nullptr, args.get()));
    const bool failed = PyErr_Occurred() != nullptr;
    PyErr_Clear();
    Expect(result || failed || (rules & kMayBeNull), "a null result has an error");
    Expect(!failed || !result || result.get() == Py_None, "a result that was built has no error beside it");
    Expect(double_blocks_out() == double_blocks_freed(), "every property block is returned");
    return result;
  };

  Ref result = call();
  const std::size_t values = result ? Walk(result.get()) : 0;
  if ((rules & kMayLeak) || values > kMostValues)
    return result;
  // What the interpreter and the module keep on purpose is there by now.
  result.reset();
  const auto leaves_something = [&] {
    const std::size_t before = __sanitizer_get_current_allocated_bytes();
    call();
    return __sanitizer_get_current_allocated_bytes() != before;
  };
  // A thread of libFuzzer's own may allocate meanwhile; what a call leaves it leaves each time.
  Expect(!leaves_something() || !leaves_something() || !leaves_something(), "nothing is left behind");
  return call();
}

Ref Args(const char* format, ...) {
  std::va_list values;
  va_start(values, format);
  Ref args(Py_VaBuildValue(format, values));
  va_end(values);
  Expect(args != nullptr, "the arguments can be made");
  return args;
}

std::string TextOf(PyObject* text) {
  Py_ssize_t size = 0;
  const char* const utf8 = PyUnicode_AsUTF8AndSize(text, &size);
  Expect(utf8 != nullptr, "a text is a str");
  return {utf8, static_cast<std::size_t>(size)};
}

std::string TextOf(PyObject* dict, const char* key) { return TextOf(PyDict_GetItemString(dict, key)); }

void SetUp() {
  PyPreConfig allocator;
  PyPreConfig_InitIsolatedConfig(&allocator);
  allocator.allocator = PYMEM_ALLOCATOR_MALLOC;  // so that AddressSanitizer sees each object
  Expect(!PyStatus_Exception(Py_PreInitialize(&allocator)), "the interpreter takes its allocator");
  PyConfig config;
  PyConfig_InitIsolatedConfig(&config);
  config.install_signal_handlers = 0;
  Expect(!PyStatus_Exception(Py_InitializeFromConfig(&config)), "the interpreter starts");
  PyConfig_Clear(&config);
  PyGC_Disable();  // what it frees would be counted
  Reset();
}

void Reset() {
  double_reset();
  double_recording(0);
}
