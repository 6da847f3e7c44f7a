// Large receive offload, of a port and of a whole switch, which overrides its ports.

#include "host/records/ports.h"
#include "libryn/base/call.h"
#include "libryn/ports/ports.h"
#include "platform/ryn.h"

namespace {

// Deliberate: the messages of these four methods end in two line ends.

PyObject* GetLRO(std::uint32_t scope, std::uint32_t swID, std::uint32_t rynPortID) {
  std::uint32_t state = 0;
  if (Ryn_GetLRO(scope, swID, rynPortID, &state) != 0)
    return NoneAfter("ValueError: Failed to get LRO.\n\n");
  return Bool(state != 0);
}

PyObject* SetLRO(std::uint32_t scope, std::uint32_t swID, std::uint32_t rynPortID, std::uint32_t state) {
  if (Ryn_SetLRO(scope, swID, rynPortID, state) != 0)
    return NoneAfter("ValueError: Failed to set LRO.\n\n");
  return None();
}

}  // namespace

PyObject* PyRYN_GetPortLRO(PyObject*, PyObject* args) {
  std::uint32_t swID, rynPortID;
  if (!ParseArgs(args, &swID, &rynPortID) || !IsSwitch(swID) || !IsPort(rynPortID))
    return NoneAfter("TypeError: Invalid parameter passed.\n\n");
  return GetLRO(kPortScope, swID, rynPortID);
}

PyObject* PyRYN_SetPortLRO(PyObject*, PyObject* args) {
  std::uint32_t swID, rynPortID, state;
  if (!ParseArgs(args, &swID, &rynPortID, &state) || !IsSwitch(swID) || !IsPort(rynPortID))
    return NoneAfter("TypeError: Invalid parameter passed.\n\n");
  return SetLRO(kPortScope, swID, rynPortID, state);
}

PyObject* PyRYN_GetSwitchLRO(PyObject*, PyObject* args) {
  std::uint32_t swID;
  if (!ParseArgs(args, &swID) || !IsSwitch(swID))
    return NoneAfter("TypeError: Invalid parameter passed.\n\n");
  return GetLRO(kSwitchScope, swID, kNoPort);
}

PyObject* PyRYN_SetSwitchLRO(PyObject*, PyObject* args) {
  std::uint32_t swID, state;
  if (!ParseArgs(args, &swID, &state) || !IsSwitch(swID))
    return NoneAfter("TypeError: Invalid parameter passed.\n\n");
  return SetLRO(kSwitchScope, swID, kNoPort, state);
}
