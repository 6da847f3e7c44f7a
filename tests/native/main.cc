// Runs the native tests inside an embedded interpreter.
#include <gtest/gtest.h>

#include "libryn/base/python.h"

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  Py_InitializeEx(0);
  const int result = RUN_ALL_TESTS();
  return Py_FinalizeEx() == 0 ? result : 1;
}
