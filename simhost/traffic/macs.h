// The MAC tables: what ports learn, and what was entered by hand.
#pragma once

#include <cstdint>

#include "simhost/host/answer.h"
#include "simhost/host/model.h"

namespace simhost {

// The table of one port, or of the whole switch (port -1), in the platform's layout.
std::uint32_t WriteMacTable(const Model& model, const Switch& sw, int port, std::int64_t ms, Area& table);

// Whether there is such an entry now.
bool HasMac(const Model& model, const Switch& sw, int port, const Mac& mac, std::uint16_t vlan, std::int64_t ms);
// Whether the tables of the switch and of the port have room for one more.
bool HasRoomForMac(const Model& model, const Switch& sw, int port, std::int64_t ms);

}  // namespace simhost
