// The affinity of the host's network devices, by device name.

#include <algorithm>

#include "host/native.h"
#include "host/records/uplinks.h"
#include "libryn/base/call.h"
#include "libryn/base/values.h"
#include "libryn/uplinks/uplinks.h"
#include "platform/ryn.h"

namespace {

constinit Key kDevname{"devname"};
constinit Key kAffinity{"affinity"};

}  // namespace

PyObject* PyRYN_List_Device_Affinity(PyObject*, PyObject*) {
  const auto answer = AllocateRecord<DeviceList>();
  if (!answer)
    return NoneAfter("Failed to allocate memory.\n");

  std::uint32_t length = sizeof(DeviceList);
  if (Ryn_List_Dev_Affinity(answer.get(), &length) != 0)
    return NoneAfter("ValueError: Failed to list device affinity.\n");

  const std::uint32_t count = std::min(answer->count, kMaxDevices);
  Ref list = NewList(count);
  if (!list)
    return NoneAfter("Failed to allocate port list.\n");  // Deliberate: a list of devices is called a port list.

  for (std::uint32_t i = 0; i < count; ++i) {
    const DeviceRecord& device = answer->devices[i];
    const Ref dict = SetNewDict(list.get(), i);
    if (!dict || !SetOrReport(dict.get(), kDevname, Text(FieldText(device.name))) ||
        !SetOrReport(dict.get(), kAffinity, Int(device.affinity)))
      return NoneWithError();
  }
  return list.release();
}

PyObject* PyRYN_Set_Device_Affinity(PyObject*, PyObject* args) {
  const char* device;
  std::uint32_t affinity;
  if (!ParseArgs(args, &device, &affinity))
    return NoneAfter("TypeError: Invalid parameter passed.\n");
  if (Ryn_Set_Dev_Affinity(device, affinity) != 0)
    return NoneAfter("ValueError: Failed to set device affinity.\n");
  return None();
}
