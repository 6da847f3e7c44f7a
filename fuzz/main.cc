// One program for all targets: ryn_fuzz --target=NAME, otherwise as libFuzzer has it; ryn_fuzz --list names them.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "targets.h"

namespace {

struct Target {
  const char* name;
  void (*run)(Input input);
};

constexpr Target kTargets[] = {
    {"alias", FuzzAlias},
    {"balancer_figures", FuzzBalancerFigures},
    {"bounded_actions", FuzzBoundedActions},
    {"device_affinity", FuzzDeviceAffinity},
    {"fastslabs", FuzzFastslabs},
    {"flow_actions", FuzzFlowActions},
    {"flow_key", FuzzFlowKey},
    {"flow_page", FuzzFlowPage},
    {"flow_statistics", FuzzFlowStatistics},
    {"flow_stats", FuzzFlowStats},
    {"fpo_stats", FuzzFPOStats},
    {"mirror_conf", FuzzMirrorConf},
    {"netq", FuzzNetQ},
    {"port_conf", FuzzPortConf},
    {"port_flags", FuzzPortFlags},
    {"port_list", FuzzPortList},
    {"port_macs", FuzzPortMacs},
    {"port_stats", FuzzPortStats},
    {"properties", FuzzProperties},
    {"snapshot", FuzzSnapshot},
    {"snapshot_text", FuzzSnapshotText},
    {"switch_list", FuzzSwitchList},
    {"switch_macs", FuzzSwitchMacs},
    {"tx_uplink", FuzzTxUplink},
    {"uplink_stats", FuzzUplinkStats},
};

const Target* chosen;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  static constexpr char kOption[] = "--target=";
  for (int i = 1; i < *argc; ++i) {
    const char* const argument = (*argv)[i];
    if (std::strcmp(argument, "--list") == 0) {
      for (const Target& target : kTargets)
        std::puts(target.name);
      std::exit(0);
    }
    if (std::strncmp(argument, kOption, sizeof(kOption) - 1) == 0)
      for (const Target& target : kTargets)
        if (std::strcmp(argument + sizeof(kOption) - 1, target.name) == 0)
          chosen = &target;
  }
  if (!chosen) {
    std::fputs("ryn_fuzz --target=NAME; --list names the targets\n", stderr);
    std::exit(2);
  }
  SetUp();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  chosen->run({data, size});
  Reset();
  return 0;
}
