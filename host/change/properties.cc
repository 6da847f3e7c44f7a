#include "host/change/properties.h"

#include "host/operations.h"
#include "platform/jor_public.h"

Status SetHostProperty(const char* switchId, const char* property, const void* value, std::uint32_t length) {
  return StatusOf(operations::kHostPropSet, DVSQOB_HostPropSet(switchId, property, value, length, kHostPropOption));
}

Status SetPortProperty(const char* switchId, const char* portId, const char* property, const void* value,
                       std::uint32_t length) {
  return StatusOf(operations::kPortDataSet,
                  DVSQOB_PortDataSet(switchId, portId, property, value, length, kPortDataOption));
}
