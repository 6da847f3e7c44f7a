// The text of a balancer snapshot.
#pragma once

#include <cstddef>

#include "host/records/loadbal.h"
#include "host/text.h"

// The module shows the first so many bytes of the text.
constexpr std::size_t kSnapshotTextBytes = 16384;

// Appends the whole text. Only records that lie whole inside the snapshot are shown, whatever its counts say.
void AppendSnapshot(const LBSnapshot& snapshot, BoundedText* text);
