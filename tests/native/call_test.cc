#include "libryn/base/call.h"

#include <gtest/gtest.h>

#include <string>

#include "libryn/base/values.h"
#include "python_error.h"

namespace {

TEST(ParseArgs, ReadsEachUnit) {
  const Ref args(Py_BuildValue("(KLsO)", 1ULL << 32 | 5, -7LL, "text", Py_Ellipsis));
  std::uint32_t number = 0;
  long long wide = 0;
  const char* text = nullptr;
  PyObject* object = nullptr;
  ASSERT_TRUE(ParseArgs(args.get(), &number, &wide, &text, &object));
  EXPECT_EQ(number, 5U);  // wraps
  EXPECT_EQ(wide, -7);
  EXPECT_STREQ(text, "text");
  EXPECT_EQ(object, Py_Ellipsis);
}

// Arguments of the exact type are taken without the parser; all else is for it to judge.
TEST(ParseArgs, AgreesWithTheParser) {
  const char* const kMakers[] = {
      "5",      "-1",        "2**32 + 5", "2**80",   "-2**80",   "True", "type('N', (int,), {})(7)",
      "'abc'",  "'\\u20ac'", "'\\udc80'", "'a\\0b'", "'abc\\0'", "''",   "type('S', (str,), {})('sub')",
      "b'abc'", "None",      "1.5",       "[]",
  };
  const Ref globals(PyDict_New());
  PyDict_SetItemString(globals.get(), "__builtins__", PyEval_GetBuiltins());
  for (const char* maker : kMakers) {
    const Ref object(PyRun_String(maker, Py_eval_input, globals.get(), globals.get()));
    ASSERT_TRUE(object) << maker;
    const Ref args(PyTuple_Pack(2, object.get(), object.get()));

    std::uint32_t number = 0, parsedNumber = 0;
    PyObject *rest = nullptr, *parsedRest = nullptr;
    const bool taken = ParseArgs(args.get(), &number, &rest);
    const std::string error = taken ? "" : TakeError();
    ASSERT_EQ(taken, PyArg_ParseTuple(args.get(), "IO", &parsedNumber, &parsedRest) != 0) << maker;
    ASSERT_EQ(error, taken ? "" : TakeError()) << maker;
    ASSERT_TRUE(!taken || (number == parsedNumber && rest == parsedRest)) << maker;

    const char *text = nullptr, *parsedText = nullptr;
    const bool textTaken = ParseArgs(args.get(), &text, &rest);
    const std::string textError = textTaken ? "" : TakeError();
    ASSERT_EQ(textTaken, PyArg_ParseTuple(args.get(), "sO", &parsedText, &parsedRest) != 0) << maker;
    ASSERT_EQ(textError, textTaken ? "" : TakeError()) << maker;
    ASSERT_TRUE(!textTaken || std::string(text) == parsedText) << maker;
  }
}

TEST(ParseArgs, LeavesPythonsErrorSet) {
  const Ref args(Py_BuildValue("(s)", "no number"));
  std::uint32_t number = 0;
  EXPECT_FALSE(ParseArgs(args.get(), &number));
  EXPECT_EQ(TakeError().substr(0, 9), "TypeError");
}

TEST(Ranges, EndAt15And127) {
  EXPECT_TRUE(IsSwitch(0) && IsSwitch(15) && IsPort(0) && IsPort(127));
  EXPECT_FALSE(IsSwitch(16) || IsSwitch(0xFFFFFFFF) || IsPort(128) || IsPort(0xFFFFFFFF));
}

TEST(Failures, WriteTheirTextAndAnswer) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(Ref(NoneAfter("number %u\n", 5U)).get(), Py_None);
  EXPECT_EQ(Ref(FalseAfter("text %s", "abc")).get(), Py_False);
  Report("\n\n");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "number 5\ntext abc\n\n");
}

TEST(LowWord, TakesTheLow32BitsOfASignedLong) {
  DeferredError error;
  EXPECT_EQ(LowWord(Ref(PyLong_FromLongLong((1LL << 32) + 5)).get(), &error), 5U);
  EXPECT_EQ(LowWord(Ref(PyLong_FromLong(-1)).get(), &error), 0xFFFFFFFFU);
  EXPECT_FALSE(PyErr_Occurred());
}

TEST(LowWord, OfANonIntSavesItsErrorAndRestoresItAtTheEnd) {
  {
    DeferredError error;
    EXPECT_EQ(LowWord(Py_None, &error), 0xFFFFFFFFU);
    EXPECT_FALSE(PyErr_Occurred());  // the work goes on with a clean indicator
    EXPECT_EQ(LowWord(Ref(PyLong_FromLongLong(7)).get(), &error), 7U);
  }
  EXPECT_EQ(TakeError().substr(0, 9), "TypeError");
}

TEST(DeferredError, SavesTheFirst) {
  {
    DeferredError error;
    PyErr_SetString(PyExc_KeyError, "first");
    error.Save();
    PyErr_SetString(PyExc_ValueError, "second");
    error.Save();
    EXPECT_FALSE(PyErr_Occurred());
  }
  EXPECT_EQ(TakeError(), "KeyError: 'first'");
}

TEST(DeferredError, GivesWayToALaterFailuresOwn) {
  {
    DeferredError error;
    PyErr_SetString(PyExc_KeyError, "first");
    error.Save();
    PyErr_SetString(PyExc_SystemError, "later");
  }
  EXPECT_EQ(TakeError(), "SystemError: later");
}

TEST(DeferredError, WithoutOneLeavesNone) {
  {
    DeferredError error;
    error.Save();
  }
  EXPECT_EQ(TakeError(), "");
}

}  // namespace
