// The core load balancer and other tunables of the datapath.
#pragma once

#include "libryn/base/python.h"

// weights.cc
PyObject* PyRYN_GetLBWeights(PyObject* module, PyObject* args);
PyObject* PyRYN_SetLBWeights(PyObject* module, PyObject* args);
PyObject* PyRYN_ResetLBWeights(PyObject* module, PyObject* args);

// options.cc
PyObject* PyRYN_GetLBParams(PyObject* module, PyObject* args);
PyObject* PyRYN_SetLBParams(PyObject* module, PyObject* args);
PyObject* PyRYN_GetLBAlgorithm(PyObject* module, PyObject* args);
PyObject* PyRYN_SetLBAlgorithm(PyObject* module, PyObject* args);

// snapshot.cc
PyObject* PyRYN_DumpLBSnapshot(PyObject* module, PyObject* args);

// portstats.cc
PyObject* PyRYN_DumpLBPortStats(PyObject* module, PyObject* args);

// teaming.cc
PyObject* PyRYN_GetSwitchNUMATeam(PyObject* module, PyObject* args);
PyObject* PyRYN_SetSwitchNUMATeam(PyObject* module, PyObject* args);
PyObject* PyRYN_GetSwitchBurstSize(PyObject* module, PyObject* args);
PyObject* PyRYN_SetSwitchBurstSize(PyObject* module, PyObject* args);

// lcores.cc
PyObject* PyRyn_ListLCoreIDs(PyObject* module, PyObject* args);
PyObject* PyRyn_InitMbufFastslabs(PyObject* module, PyObject* args);
