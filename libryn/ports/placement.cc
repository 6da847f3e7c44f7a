// MigratePort, UnpinPort, ResetPort: a port's place on the datapath cores.

#include "libryn/base/call.h"
#include "libryn/ports/ports.h"
#include "platform/ryn.h"

PyObject* PyRYN_Migrate_Port(PyObject*, PyObject* args) {
  std::uint32_t swID, rynPortID, option1, option2, option3;
  if (!ParseArgs(args, &swID, &rynPortID, &option1, &option2, &option3) || !IsSwitch(swID) || !IsPort(rynPortID))
    return NoneAfter("TypeError: Invalid parameter passed.\n");
  if (Ryn_Migrate_Port(swID, rynPortID, option1, option2, option3) != 0)
    return NoneAfter("Failed to migrate port.\n");
  return None();
}

PyObject* PyRYN_Unpin_Port(PyObject*, PyObject* args) {
  std::uint32_t swID, rynPortID, option;
  if (!ParseArgs(args, &swID, &rynPortID, &option) || !IsSwitch(swID) || !IsPort(rynPortID))
    return NoneAfter("TypeError: Invalid parameter passed.\n");
  if (Ryn_Unpin_Port(swID, rynPortID, option) != 0)
    return NoneAfter("Failed to unpin port.\n");
  return None();
}

PyObject* PyRYN_Reset_Port(PyObject*, PyObject* args) {
  std::uint32_t swID, rynPortID;
  if (!ParseArgs(args, &swID, &rynPortID) || !IsSwitch(swID) || !IsPort(rynPortID))
    return NoneAfter("TypeError: Invalid parameter passed.\n");
  if (Ryn_Reset_Port(swID, rynPortID) != 0)
    return NoneAfter("Failed to reset port.\n");
  return None();
}
