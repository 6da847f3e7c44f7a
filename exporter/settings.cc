#include "exporter/settings.h"

#include <algorithm>
#include <cstring>

#include "host/names.h"
#include "host/properties.h"
#include "host/read/balancer.h"

namespace {

template <class Record, class ReadDatapath>
Status ReadSetting(const HostSwitch& hostSwitch, const char* property, Record* record, ReadDatapath readDatapath) {
  if (!hostSwitch.id.empty()) {
    const Status status = GetPropertyRecord(hostSwitch.id.c_str(), property, record);
    if (status.Ok() || status.kind == Status::Kind::kInvalidResponse)
      return status;
  }
  PortsetName name;
  std::memcpy(name.text, hostSwitch.name.data(), std::min(hostSwitch.name.size(), kPortsetNameBytes));
  return readDatapath(name.text);
}

}  // namespace

Status ReadBurstSize(const HostSwitch& hostSwitch, BurstSize* burst) {
  return ReadSetting(hostSwitch, kBurstSizeProperty, burst,
                     [&](const char* name) { return GetSwitchBurstSize(name, &burst->packets); });
}

Status ReadBalancerOptions(const HostSwitch& hostSwitch, LBSwitchOptions* options) {
  return ReadSetting(hostSwitch, kLoadBalanceProperty, options,
                     [&](const char* name) { return GetCurrentLBData(name, options); });
}
