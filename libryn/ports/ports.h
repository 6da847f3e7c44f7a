// Switch and port inspection: listings, counters, configuration, MAC tables, placement, large receive offload.
#pragma once

#include "libryn/base/python.h"

// listing.cc
PyObject* PyRYN_List_Switches(PyObject* module, PyObject* args);
PyObject* PyRYN_List_Ports(PyObject* module, PyObject* args);

// stats.cc
PyObject* PyRYN_Get_Port_Stats(PyObject* module, PyObject* args);

// conf.cc
PyObject* PyRYN_Get_Port_Conf(PyObject* module, PyObject* args);

// mactable.cc
PyObject* PyRYN_List_Port_MACTable(PyObject* module, PyObject* args);
PyObject* PyRYN_Clear_Port_MACTable(PyObject* module, PyObject* args);
PyObject* PyRYN_Add_MAC_Entry(PyObject* module, PyObject* args);
PyObject* PyRYN_Del_MAC_Entry(PyObject* module, PyObject* args);
PyObject* PyRYN_List_Switch_MACTable(PyObject* module, PyObject* args);
PyObject* PyRYN_Clear_Switch_MACTable(PyObject* module, PyObject* args);

// placement.cc
PyObject* PyRYN_Migrate_Port(PyObject* module, PyObject* args);
PyObject* PyRYN_Unpin_Port(PyObject* module, PyObject* args);
PyObject* PyRYN_Reset_Port(PyObject* module, PyObject* args);

// lro.cc
PyObject* PyRYN_GetPortLRO(PyObject* module, PyObject* args);
PyObject* PyRYN_SetPortLRO(PyObject* module, PyObject* args);
PyObject* PyRYN_GetSwitchLRO(PyObject* module, PyObject* args);
PyObject* PyRYN_SetSwitchLRO(PyObject* module, PyObject* args);
