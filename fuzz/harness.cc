#include "harness.h"

#include <sanitizer/allocator_interface.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "double.h"

// The harness itself looks for what a call leaves behind: some leave an object on purpose.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() { return "detect_leaks=0"; }

Bytes Input::Take(std::size_t size) {
  const Bytes taken(data_, data_ + std::min(size, left_));
  Skip(taken.size());
  return taken;
}

std::string Input::TakeText(std::size_t most) {
  std::string text;
  while (left_ > 0 && text.size() < most) {
    const char c = Take<char>();
    if (c == '\0')
      break;
    text += c;
  }
  return text;
}

std::string TextArea::Text() const {
  if (size_ == 0)
    return {};
  const auto* const nul = static_cast<const char*>(std::memchr(area_.get(), '\0', size_));
  Expect(nul != nullptr, "a text has its NUL inside the area");
  for (const char* c = nul + 1; c < area_.get() + size_; ++c)
    Expect(*c == kUnwritten, "nothing is written behind the NUL");
  return {area_.get(), static_cast<std::size_t>(nul - area_.get())};
}

void Expect(bool holds, const char* what) {
  if (holds)
    return;
  // libFuzzer may have closed standard error; its report tells the place.
  std::printf("\nNOT SO: %s\n", what);
  std::fflush(stdout);
  std::abort();
}

void ExpectEqual(std::string_view found, std::string_view expected, const char* what) {
  if (found == expected)
    return;
  std::printf("\nfound:    %.*s\nexpected: %.*s\n", static_cast<int>(found.size()), found.data(),
              static_cast<int>(expected.size()), expected.data());
  Expect(false, what);
}

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
