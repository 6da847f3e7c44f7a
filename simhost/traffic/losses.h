// What cores and links lose because more is asked of them than they have time for.
//
// Host time is cut into windows of one second (shorter where a segment begins or ends). In each, packets pass stage by
// stage, and every stage sees what the last one let through:
//
//   1. a link brings in as many bits as it has time for;
//   2. cores work on what comes in, then on what goes out. A core that has not enough time for both shares it between
//      them by what each asks for; what one does not need, the other gets;
//   3. a link sends as many bits as it has time for.
//
// Who has too much to do drops evenly of all that it is given. So for each whole second these hold exactly: a core that
// drops has worked for at least 95 % of its time, and none for more than all of it; a core that was asked for less
// drops nothing; what came is what went on and what was lost. Questions that were lost in one window are not answered
// in the next.
//
// Where the peaks of all rates leave room nothing is solved at all: then nothing is lost.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "simhost/host/model.h"

namespace simhost {

// Nothing was lost yet in the segment that begins at model.segment_ms.
void BeginSegment(Model& model);

// Works out losses until host time ms; what is known already is kept.
void SolveLosses(Model& model, std::int64_t ms);

// The losses at the beginning of the latest window that lost something, as words; and back. Words that do not fit the
// model's paths say that nothing was lost yet.
std::vector<std::uint64_t> SaveLosses(const Model& model);
void RestoreLosses(Model& model, std::span<const std::uint64_t> words);

}  // namespace simhost
