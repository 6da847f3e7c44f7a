// One pass over the host: the inventory, which all collectors share, and what went wrong.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "exporter/options.h"
#include "exporter/samples.h"
#include "host/config.h"
#include "host/records/ports.h"
#include "host/status.h"

struct HostPort {
  std::uint32_t number;
  PortRecord record;
};

struct HostSwitch {
  std::uint32_t number;
  std::uint32_t mtu;
  std::string name;                            // the datapath's: the label "switch"
  std::string alias;                           // "" where the configuration has none, or does not know the switch
  std::string id;                              // "" where the configuration does not know the switch
  std::optional<std::vector<HostPort>> ports;  // read when first asked for
};

// The process's configuration as it was loaded last.
struct Configuration {
  HostState state;
};

class Round {
 public:
  using Time = std::chrono::steady_clock::time_point;

  Round(const Options& options, Configuration* configuration) : options_(options), configuration_(configuration) {}

  // Begins the part of a collector, which has to be done by `deadline`.
  void Begin(Time deadline);

  // Lists the switches of the datapath, then gives them their names in the configuration, which is loaded anew where it
  // has changed. False after a failure; the former names count on.
  bool ListSwitches();
  bool NameSwitches();

  std::vector<HostSwitch>& Switches() { return switches_; }

  // Calls visit(switch, port) for each port that --ports lets through, until it returns false or a listing fails. False
  // then.
  template <class Visit>
  bool ForEachPort(Visit visit) {
    for (HostSwitch& hostSwitch : switches_) {
      if (!ListPorts(&hostSwitch))
        return false;
      for (const HostPort& port : *hostSwitch.ports) {
        if (!visit(hostSwitch, port))
          return false;
      }
    }
    return true;
  }

  // Whether an answer can be used, and the collector has time left. Otherwise the reason is kept. Gone() then tells
  // whether the switch or the port is no longer there: that leaves it out, and is no failure.
  bool Check(const Status& status, const HostSwitch* hostSwitch = nullptr, const HostPort* port = nullptr);
  bool Gone() const { return gone_; }
  bool InTime();

  // What went wrong in the present collector
  const std::string& Failure() const { return failure_; }

 private:
  bool ListPorts(HostSwitch* hostSwitch);
  bool LoadConfiguration();

  const Options& options_;
  Configuration* configuration_;
  std::vector<HostSwitch> switches_;
  Time deadline_ = {};
  std::string failure_;
  bool gone_ = false;
};

Labels LabelsOf(const HostSwitch& hostSwitch);
Labels LabelsOf(const HostSwitch& hostSwitch, const HostPort& port);
