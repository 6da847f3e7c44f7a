// Rendering of the balancer's snapshot.
#pragma once

#include "host/records/loadbal.h"
#include "libryn/base/text.h"

// Appends the whole text. Only records that lie whole inside the snapshot are shown, whatever its counts say.
void AppendSnapshot(const LBSnapshot& snapshot, BoundedText* text);
