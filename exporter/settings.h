// Settings of a switch: what is stored for it as a property or, where nothing is, what runs in the datapath.
#pragma once

#include "exporter/round.h"
#include "host/records/loadbal.h"
#include "host/status.h"

// kInvalidResponse where something is stored that is no such setting.
Status ReadBurstSize(const HostSwitch& hostSwitch, BurstSize* burst);
Status ReadBalancerOptions(const HostSwitch& hostSwitch, LBSwitchOptions* options);
