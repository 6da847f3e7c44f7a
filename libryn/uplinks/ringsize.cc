// The ring sizes of an uplink, kept as a property of its distributed port.

#include <cstdint>
#include <cstring>

#include "libryn/base/call.h"
#include "libryn/dvs/property.h"
#include "libryn/uplinks/uplinks.h"
#include "platform/jor_public.h"

namespace {

// Deliberate: not spelled as other keys are ("opaqueDvs"); the sizes are found under this one.
constexpr char kProperty[] = "com.talvor.extraconfig.opqueDvs.ryn.uplinkRing";

struct RingSizes {
  std::uint32_t tx;
  std::uint32_t rx;
};
static_assert(sizeof(RingSizes) == 8);

constexpr RingSizes kDefaults = {2048, 1024};
constexpr std::uint32_t kAlignment = 32;

bool IsAligned(std::uint32_t size) { return size % kAlignment == 0; }

}  // namespace

PyObject* PyRYN_Get_Uplink_Ring_Size(PyObject*, PyObject* args) {
  const char *switchId, *portId;
  if (!ParseArgs(args, &switchId, &portId))
    return NoneAfter("TypeError: Invalid parameter passed.\n");

  RingSizes sizes = kDefaults;
  PropertyValue value;
  const std::uint32_t status = value.ReadPort(switchId, portId, kProperty);
  if (status != 0 && status != kNotFound)
    return NoneAfter("ValueError: Failed to read property data length.\n");
  if (status == 0) {
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
    return NoneAfter("ValueError: Ring size must be %u aligned.\n", kAlignment);
  constexpr std::uint32_t kOption = 8;  // the switch-state library's
  if (DVSQOB_PortDataSet(switchId, portId, kProperty, &sizes, sizeof(sizes), kOption) != 0)
    return NoneAfter("ValueError: Failed to set port property.\n");
  return None();
}
