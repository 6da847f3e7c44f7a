// Changing ports, their MAC tables and their receive offload.
//
// Each function calls the one operation of libryn.so that its comment names, hands its arguments over as they are (the
// datapath judges them) and returns the status. Success says that the datapath took the change, not that it shows
// already. No function here touches the configuration; of threads see host/read/ports.h.
#pragma once

#include <cstdint>

#include "host/status.h"

// Ryn_Migrate_Port, Ryn_Unpin_Port: place a port on other cores, or let the balancer place it. What the options mean is
// the datapath's.
Status MigratePort(std::uint32_t swID, std::uint32_t rynPortID, std::uint32_t option1, std::uint32_t option2,
                   std::uint32_t option3);
Status UnpinPort(std::uint32_t swID, std::uint32_t rynPortID, std::uint32_t option);

// Ryn_Reset_Port
Status ResetPort(std::uint32_t swID, std::uint32_t rynPortID);

// Ryn_SetLRO for one port, and for a whole switch, which overrides its ports: 0 is off, 1 on.
Status SetPortLRO(std::uint32_t swID, std::uint32_t rynPortID, std::uint32_t state);
Status SetSwitchLRO(std::uint32_t swID, std::uint32_t state);

// Ryn_Clear_Port_MAC_Table, Ryn_Clear_Switch_MAC_Table
Status ClearPortMACTable(std::uint32_t swID, std::uint32_t rynPortID);
Status ClearSwitchMACTable(std::uint32_t swID);

// Ryn_MAC_Entry_Ops. mac: 6 bytes, in the order in which they are written. vlanID: 0 to 4095. The switch is the one
// that is named, unlike in the module's method.
Status AddMACEntry(std::uint32_t swID, std::uint32_t rynPortID, const std::uint8_t (&mac)[6], std::uint16_t vlanID);
Status DeleteMACEntry(std::uint32_t swID, std::uint32_t rynPortID, const std::uint8_t (&mac)[6], std::uint16_t vlanID);
