#include "host/change/ports.h"

#include "host/operations.h"
#include "host/records/ports.h"
#include "platform/ryn.h"

Status MigratePort(std::uint32_t swID, std::uint32_t rynPortID, std::uint32_t option1, std::uint32_t option2,
                   std::uint32_t option3) {
  return StatusOf(operations::kMigratePort, Ryn_Migrate_Port(swID, rynPortID, option1, option2, option3));
}

Status UnpinPort(std::uint32_t swID, std::uint32_t rynPortID, std::uint32_t option) {
  return StatusOf(operations::kUnpinPort, Ryn_Unpin_Port(swID, rynPortID, option));
}

Status ResetPort(std::uint32_t swID, std::uint32_t rynPortID) {
  return StatusOf(operations::kResetPort, Ryn_Reset_Port(swID, rynPortID));
}

Status SetPortLRO(std::uint32_t swID, std::uint32_t rynPortID, std::uint32_t state) {
  return StatusOf(operations::kSetLRO, Ryn_SetLRO(kPortScope, swID, rynPortID, state));
}

Status SetSwitchLRO(std::uint32_t swID, std::uint32_t state) {
  return StatusOf(operations::kSetLRO, Ryn_SetLRO(kSwitchScope, swID, kNoPort, state));
}

Status ClearPortMACTable(std::uint32_t swID, std::uint32_t rynPortID) {
  return StatusOf(operations::kClearPortMACTable, Ryn_Clear_Port_MAC_Table(swID, rynPortID));
}

Status ClearSwitchMACTable(std::uint32_t swID) {
  return StatusOf(operations::kClearSwitchMACTable, Ryn_Clear_Switch_MAC_Table(swID));
}

Status AddMACEntry(std::uint32_t swID, std::uint32_t rynPortID, const std::uint8_t (&mac)[6], std::uint16_t vlanID) {
  return StatusOf(operations::kMACEntryOps, Ryn_MAC_Entry_Ops(swID, rynPortID, mac, vlanID, kAddEntry));
}

Status DeleteMACEntry(std::uint32_t swID, std::uint32_t rynPortID, const std::uint8_t (&mac)[6], std::uint16_t vlanID) {
  return StatusOf(operations::kMACEntryOps, Ryn_MAC_Entry_Ops(swID, rynPortID, mac, vlanID, kDeleteEntry));
}
