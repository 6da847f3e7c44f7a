// Which ways the packets of the host's conversations take, and what they cost, by its inventory and settings.
#pragma once

#include "simhost/host/model.h"

namespace simhost {

// Works the paths out, for a segment that begins at model.segment_ms. Call it after each change of the model.
void BuildPaths(Model& model);

// Bits that a frame of so many bytes takes of a link's time.
std::uint64_t LinkBits(std::uint64_t size);

// Packets from a port are looked up on the core where it sends, packets from the wire where the uplink receives.
int CoreIn(const Port& in);
int CoreOut(const Port& out);

// The address that a conversation's multicast or broadcast goes to.
Mac GroupOf(const Conversation& talk);

}  // namespace simhost
