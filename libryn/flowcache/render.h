// Text of one flow-cache entry, for the dump; the formatters for native callers are declared in include/libryn.h.
#pragma once

#include "host/native.h"
#include "host/text.h"

// Writes the line of a flow key, which is at most kFlowKeyLineLength long; no NUL. Its length.
constexpr std::size_t kFlowKeyLineLength = 190;
std::size_t WriteFlowKey(const void* key, char* line);

// The line of an actions record; loads past the end of `actions` give 0. False when there was an action or an instance
// left and no room to begin it.
bool AppendActions(const View& actions, BoundedText* line);

// The statistics, or "Not Applicable" and false when they do not apply to the flow.
bool AppendStatistics(const View& actions, BoundedText* text);
