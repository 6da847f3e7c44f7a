// Rendering of the balancer's snapshot.
#pragma once

#include "loadbal/records.h"
#include "module/text.h"

// Appends the whole text. Only records that lie whole inside the snapshot are shown, whatever its counts say.
void AppendSnapshot(const LBSnapshot& snapshot, BoundedText* text);
