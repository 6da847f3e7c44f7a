// Uplinks and mirroring: transmit policy, mirror sessions, statistics and policies, network queues, ring sizes, device
// affinity.
#pragma once

#include "libryn/base/python.h"

// txuplink.cc
PyObject* PyRYN_Get_Port_Tx_Uplink(PyObject* module, PyObject* args);
PyObject* PyRYN_Set_Port_Tx_Uplink(PyObject* module, PyObject* args);

// mirror.cc
PyObject* PyRYN_Get_Mirror_Conf(PyObject* module, PyObject* args);

// stats.cc
PyObject* PyRYN_Get_Uplink_Stats(PyObject* module, PyObject* args);
PyObject* PyRYN_Get_Uplink_Queue_Stats(PyObject* module, PyObject* args);
PyObject* PyRYN_Set_Uplink_MAC_Learn(PyObject* module, PyObject* args);
PyObject* PyRYN_Get_Panic_On_Tx_Hang(PyObject* module, PyObject* args);
PyObject* PyRYN_Set_Panic_On_Tx_Hang(PyObject* module, PyObject* args);

// netq.cc
PyObject* PyRYN_Get_Port_NetQ_Info(PyObject* module, PyObject* args);

// ringsize.cc
PyObject* PyRYN_Get_Uplink_Ring_Size(PyObject* module, PyObject* args);
PyObject* PyRYN_Set_Uplink_Ring_Size(PyObject* module, PyObject* args);

// affinity.cc
PyObject* PyRYN_List_Device_Affinity(PyObject* module, PyObject* args);
PyObject* PyRYN_Set_Device_Affinity(PyObject* module, PyObject* args);
