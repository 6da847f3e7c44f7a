// Python's header as every file of the module includes it.
#pragma once

#define PY_SSIZE_T_CLEAN
#include <Python.h>
