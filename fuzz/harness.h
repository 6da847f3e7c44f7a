// What the fuzz targets of the module share: the embedded interpreter and the platform double.
//
// A target takes an input apart, lets the double answer with it, calls the module and compares the outcome with an
// independent model or with the rules that hold for every call. It never uses the module's own records.
#pragma once

#include "libryn/base/python.h"

#include <cstdint>
#include <string>

#include "input.h"
#include "libryn/base/values.h"

// ---- The double ----------------------------------------------------------------------------------------------------

// The operation answers `status` and stores `area`, as far as there is room, or hands it out as a block.
void Answer(const char* operation, const Bytes& area, std::uint32_t status = 0);
// The same, and sets the length word.
void AnswerWithLength(const char* operation, const Bytes& area, std::uint32_t length);
// The operation fails and stores nothing.
void Fail(const char* operation, std::uint32_t status);

// ---- Calls ---------------------------------------------------------------------------------------------------------

using Method = PyObject* (*)(PyObject* module, PyObject* args);

enum Rule : unsigned {
  kPlain = 0,
  kMayBeNull = 1,  // a result may be null without an error
  kMayLeak = 2,    // the call is known to leave an object behind
};

// Calls a method and holds it to the rules of all methods: a result that can be walked, no error beside a value that
// was built, every property block returned, no memory left behind. Returns the result of the call; an error is cleared.
Ref Run(Method method, Ref args, unsigned rules = kPlain);

Ref Args(const char* format, ...);

// The text of a str, or of the value under a key of a dict, or of an item of a list.
std::string TextOf(PyObject* text);
std::string TextOf(PyObject* dict, const char* key);
