// The fuzz targets, by name; each takes an input.
#pragma once

#include "harness.h"

// rendering.cc: texts and figures, without the interpreter
void FuzzFlowKey(Input input);
void FuzzFlowActions(Input input);
void FuzzBoundedActions(Input input);
void FuzzFlowStatistics(Input input);
void FuzzPortFlags(Input input);
void FuzzSnapshotText(Input input);
void FuzzBalancerFigures(Input input);

// answers.cc: methods over what the datapath library answers
void FuzzFlowPage(Input input);
void FuzzSnapshot(Input input);
void FuzzSwitchList(Input input);
void FuzzPortList(Input input);
void FuzzPortStats(Input input);
void FuzzPortConf(Input input);
void FuzzPortMacs(Input input);
void FuzzSwitchMacs(Input input);
void FuzzFlowStats(Input input);
void FuzzFPOStats(Input input);
void FuzzTxUplink(Input input);
void FuzzMirrorConf(Input input);
void FuzzUplinkStats(Input input);
void FuzzNetQ(Input input);
void FuzzDeviceAffinity(Input input);

// reading.cc: what ryn and the exporter read of the datapath library's answers
void FuzzFlowWalk(Input input);
void FuzzMirrorSessions(Input input);
void FuzzNetQFilters(Input input);
void FuzzSnapshotRecords(Input input);

// tables.cc: the package's tables
void FuzzMacTable(Input input);
void FuzzFlowFilter(Input input);

// store.cc: the switch-state library's switches and properties
void FuzzAlias(Input input);
void FuzzSwitchDirectory(Input input);
void FuzzProperties(Input input);
void FuzzFastslabs(Input input);
