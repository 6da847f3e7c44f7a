// Reading a method's arguments, checking their ranges, reporting failure.
//
// A method that fails for a reason of its own (an argument, a native area, a status of a platform library) writes one
// fixed message to standard error and returns None; nothing is raised, and an error that Python has already set
// stays set. Failures while Python containers are built are reported by values.h.
//
// Deliberate: the texts are fixed to the byte. Some end in two line ends, and words like "TypeError: " are only words.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "libryn/base/python.h"

constexpr std::uint32_t kMaxSwitchId = 15;
constexpr std::uint32_t kMaxPortId = 127;

inline bool IsSwitch(std::uint32_t swID) { return swID <= kMaxSwitchId; }
inline bool IsPort(std::uint32_t rynPortID) { return rynPortID <= kMaxPortId; }

// The unit of Python's argument parser for a variable's type. Any other type does not compile.
consteval char ArgUnit(const std::uint32_t*) { return 'I'; }  // wraps, no range check
consteval char ArgUnit(const long long*) { return 'L'; }
consteval char ArgUnit(const char* const*) { return 's'; }  // borrowed from the argument
consteval char ArgUnit(PyObject* const*) { return 'O'; }    // borrowed from the argument

// Converts an argument whose exact type is the one that its unit expects. False leaves it to the parser, which handles
// everything else and costs as much as the rest of a setter.
inline bool TakeExact(PyObject* argument, std::uint32_t* variable) {
  if (!PyLong_CheckExact(argument))
    return false;
  *variable = static_cast<std::uint32_t>(PyLong_AsUnsignedLongMask(argument));
  return true;
}
inline bool TakeExact(PyObject* argument, const char** variable) {
  if (!PyUnicode_CheckExact(argument) || !PyUnicode_IS_COMPACT_ASCII(argument))
    return false;
  *variable = static_cast<const char*>(PyUnicode_DATA(argument));
  return std::strlen(*variable) == static_cast<std::size_t>(PyUnicode_GET_LENGTH(argument));
}
inline bool TakeExact(PyObject* argument, PyObject** variable) {
  *variable = argument;
  return true;
}
inline bool TakeExact(PyObject*, long long*) { return false; }

// Reads the positional arguments into the variables, whose types spell the format. False with Python's error set when
// they do not fit; the variables must not be read then.
template <class... Variable>
bool ParseArgs(PyObject* args, Variable*... variables) {
  static constexpr char kFormat[] = {ArgUnit(static_cast<Variable*>(nullptr))..., '\0'};
  Py_ssize_t i = 0;
  if (PyTuple_GET_SIZE(args) == sizeof...(Variable) && (TakeExact(PyTuple_GET_ITEM(args, i++), variables) && ...))
    return true;
  return PyArg_ParseTuple(args, kFormat, variables...) != 0;
}

// New references to the singletons.
PyObject* None();
PyObject* Bool(bool value);

// Writes a message to standard error.
[[gnu::format(printf, 1, 2)]] void Report(const char* format, ...);

// Reports, then returns None, or False for the setters that return a bool.
[[gnu::format(printf, 1, 2)]] PyObject* NoneAfter(const char* format, ...);
[[gnu::format(printf, 1, 2)]] PyObject* FalseAfter(const char* format, ...);

// Saves the first conversion error so work continues with the indicator clear, and restores it at the end of the method
// unless a later failure has set an error of its own.
class DeferredError {
 public:
  DeferredError() = default;
  DeferredError(const DeferredError&) = delete;
  DeferredError& operator=(const DeferredError&) = delete;
  ~DeferredError();

  // Takes ownership of the current error, if one is set; a second one is dropped.
  void Save();

 private:
  PyObject* type_ = nullptr;  // all three owned; null while no error is saved
  PyObject* value_ = nullptr;
  PyObject* traceback_ = nullptr;
};

// The low 32 bits of a caller's object, converted as a signed long. An object that is not an int and has no __index__,
// or null, gives 4294967295, and its error is saved.
std::uint32_t LowWord(PyObject* object, DeferredError* error);
