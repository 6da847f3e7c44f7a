// The flow cache: text of its entries, the paged dump, counters and controls, flow processing offload.
#pragma once

#include "libryn/base/python.h"

// dump.cc
PyObject* PyRYN_Dump_Flow_Table(PyObject* module, PyObject* args);

// stats.cc
PyObject* PyRYN_Get_Flow_Stats(PyObject* module, PyObject* args);
PyObject* PyRYN_Clear_Switch_Flow_Table(PyObject* module, PyObject* args);
PyObject* PyRYN_Enable_Switch_Flow_Cache(PyObject* module, PyObject* args);
PyObject* PyRYN_GetFlowTimeout(PyObject* module, PyObject* args);
PyObject* PyRYN_SetFlowTimeout(PyObject* module, PyObject* args);

// fpo.cc
PyObject* PyRYN_GetFPOEnabled(PyObject* module, PyObject* args);
PyObject* PyRYN_EnableFPO(PyObject* module, PyObject* args);
PyObject* PyRYN_Get_FPO_Stats(PyObject* module, PyObject* args);
PyObject* PyRYN_Get_FPO_Uplink_Status(PyObject* module, PyObject* args);
