// The ring sizes of an uplink, kept as a property of its distributed port.

#include <cstdint>
#include <cstring>

#include "host/change/properties.h"
#include "host/properties.h"
#include "host/records/uplinks.h"
#include "libryn/base/call.h"
#include "libryn/uplinks/uplinks.h"

namespace {

bool IsAligned(std::uint32_t size) { return size % kRingAlignment == 0; }

}  // namespace

PyObject* PyRYN_Get_Uplink_Ring_Size(PyObject*, PyObject* args) {
  const char *switchId, *portId;
  if (!ParseArgs(args, &switchId, &portId))
    return NoneAfter("TypeError: Invalid parameter passed.\n");

  RingSizes sizes = kDefaultRingSizes;
  PropertyValue value;
  const Status status = value.ReadPort(switchId, portId, kRingSizeProperty);
  if (!status.Ok() && status.code != kNotFound)
    return NoneAfter("ValueError: Failed to read property data length.\n");
  if (status.Ok()) {
    if (value.Length() != sizeof(sizes))
      return NoneAfter("ValueError: Invalid property data length.\n");
    std::memcpy(&sizes, value.Bytes(), sizeof(sizes));
  }
  return Py_BuildValue("II", sizes.tx, sizes.rx);
}

PyObject* PyRYN_Set_Uplink_Ring_Size(PyObject*, PyObject* args) {
  const char *switchId, *portId;
  RingSizes sizes;
  if (!ParseArgs(args, &switchId, &portId, &sizes.tx, &sizes.rx))
    return NoneAfter("TypeError: Invalid parameter passed.\n");
  if (!IsAligned(sizes.tx) || !IsAligned(sizes.rx))
    return NoneAfter("ValueError: Ring size must be %u aligned.\n", kRingAlignment);
  if (!SetPortProperty(switchId, portId, kRingSizeProperty, &sizes, sizeof(sizes)).Ok())
    return NoneAfter("ValueError: Failed to set port property.\n");
  return None();
}
