#include "exporter/round.h"

#include <fnmatch.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <memory>

#include "host/names.h"
#include "host/native.h"
#include "host/read/ports.h"

namespace {

using std::chrono::steady_clock;

bool Matches(const std::vector<std::string>& patterns, const HostSwitch& hostSwitch, std::uint32_t port) {
  const std::string name = hostSwitch.name + '/' + std::to_string(port);
  return patterns.empty() || std::any_of(patterns.begin(), patterns.end(), [&](const std::string& pattern) {
           return fnmatch(pattern.c_str(), name.c_str(), 0) == 0;
         });
}

// Whether a switch is written like one before it: a series that stands twice makes Prometheus refuse the scrape.
bool IsTaken(const std::vector<HostSwitch>& switches, const HostSwitch& hostSwitch) {
  return std::any_of(switches.begin(), switches.end(),
                     [&](const HostSwitch& other) { return LabelsOf(other).Text() == LabelsOf(hostSwitch).Text(); });
}

}  // namespace

void Round::Begin(Time deadline) {
  deadline_ = deadline;
  failure_.clear();
  gone_ = false;
}

bool Round::InTime() {
  if (steady_clock::now() < deadline_)
    return true;
  if (failure_.empty())
    failure_ = "takes longer than the time-out";
  return false;
}

bool Round::Check(const Status& status, const HostSwitch* hostSwitch, const HostPort* port) {
  gone_ = false;
  if (status.Ok())
    return InTime();

  failure_ = status.operation;
  if (hostSwitch)
    failure_ += ", switch " + std::to_string(hostSwitch->number);
  if (port)
    failure_ += ", port " + std::to_string(port->number);
  if (status.kind == Status::Kind::kFailed) {
    char code[24];
    std::snprintf(code, sizeof(code), ": status 0x%08" PRIx32, status.code);
    failure_ += code;
    gone_ = hostSwitch && status.code == kNotFound;
  } else {
    failure_ += status.kind == Status::Kind::kNoMemory ? ": out of memory" : ": the answer is not valid";
  }
  return false;
}

bool Round::ListSwitches() {
  const auto list = std::make_unique<SwitchList>();
  if (!Check(GetSwitchList(list.get())))
    return false;
  for (std::uint32_t i = 0; i < list->count; ++i) {
    const SwitchRecord& record = list->switches[i];
    HostSwitch listed{record.swID, record.mtu, std::string(FieldText(record.name)), {}, {}, {}};
    if (!IsTaken(switches_, listed))
      switches_.push_back(std::move(listed));
  }
  return true;
}

// The configuration is only replaced where the state has changed, which it seldom has.
bool Round::LoadConfiguration() {
  HostState state;
  if (!Check(FetchState(&state)))
    return false;
  HostState& former = configuration_->state;
  if (state.length == former.length && former.bytes &&
      std::memcmp(state.bytes.get(), former.bytes.get(), state.length) == 0)
    return true;
  if (!Check(LoadState(state, former.bytes ? &former : nullptr)))
    return false;
  former = std::move(state);
  return true;
}

bool Round::NameSwitches() {
  const bool loaded = LoadConfiguration();
  SwitchDirectory directory;
  if (!Check(directory.Read()))
    return false;
  for (HostSwitch& hostSwitch : switches_) {
    for (std::size_t i = 0; i < directory.Size(); ++i) {
      if (directory[i].DatapathName() != hostSwitch.name)
        continue;
      hostSwitch.alias = directory[i].alias;
      hostSwitch.id = directory[i].id;
      break;
    }
  }
  return loaded;
}

bool Round::ListPorts(HostSwitch* hostSwitch) {
  if (hostSwitch->ports)
    return true;
  const auto list = std::make_unique<PortList>();
  if (!Check(GetPortList(hostSwitch->number, list.get()), hostSwitch)) {
    if (!Gone())
      return false;
    list->count = 0;
  }
  std::vector<HostPort> ports;
  for (std::uint32_t i = 0; i < list->count; ++i) {
    const HostPort port{list->ports[i].rynPortID, list->ports[i]};
    const auto same = [&](const HostPort& other) { return other.number == port.number; };
    if (Matches(options_.ports, *hostSwitch, port.number) && std::none_of(ports.begin(), ports.end(), same))
      ports.push_back(port);
  }
  hostSwitch->ports = std::move(ports);
  return true;
}

Labels LabelsOf(const HostSwitch& hostSwitch) { return Labels().Add("switch", hostSwitch.name); }

Labels LabelsOf(const HostSwitch& hostSwitch, const HostPort& port) {
  return LabelsOf(hostSwitch).Add("port", port.number);
}
