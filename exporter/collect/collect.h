// The functions of the collectors' table (exporter/collectors.h), a file a subject.
#pragma once

#include "exporter/collectors.h"
#include "exporter/round.h"

bool CollectSwitches(Round& round, Snapshot* snapshot);
bool CollectPorts(Round& round, Snapshot* snapshot);
bool CollectUplinks(Round& round, Snapshot* snapshot);
bool CollectFlows(Round& round, Snapshot* snapshot);
bool CollectOffload(Round& round, Snapshot* snapshot);
bool CollectCores(Round& round, Snapshot* snapshot);
bool CollectBalancer(Round& round, Snapshot* snapshot);
bool CollectQueues(Round& round, Snapshot* snapshot);
bool CollectMacs(Round& round, Snapshot* snapshot);
bool CollectFilters(Round& round, Snapshot* snapshot);
bool CollectMirrors(Round& round, Snapshot* snapshot);
