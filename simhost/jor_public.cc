// Stand-ins for the operations of libjorPublic.so.

#include "platform/jor_public.h"

// What an operation answers that this host does not model (yet).
static constexpr uint32_t kNotModelled = 0x0BAD0001;

extern "C" {

#pragma GCC visibility push(default)

// Says that this library is a stand-in of a simulated host.
extern const char jor_sim_version[];
const char jor_sim_version[] = "1";

uint32_t DVSState_ConfigReset() { return kNotModelled; }
uint32_t DVSQOB_StateGet(void**, uint32_t*) { return kNotModelled; }
uint32_t DVSState_ConfigDeserialize(const void*, uint32_t) { return kNotModelled; }
DVSSwitch* DVSState_SwitchFindByAlias(const char*) { return nullptr; }
void DVSState_SwitchForEach(DVSSwitchVisitor, void*) {}
const char* DVS_ClassName(DVSSwitch*) { return nullptr; }
const char* DVS_SwitchId(DVSSwitch*) { return nullptr; }
uint32_t DVSState_HostPropLookup(const char*, const char*, DVSData**) { return kNotModelled; }
uint32_t DVSState_GlobalPropLookup(const char*, const char*, DVSData**) { return kNotModelled; }
void DVSState_GlobalPropForEach(DVSSwitch*, DVSDataVisitor, void*) {}
const char* DVSData_Name(DVSData*) { return nullptr; }
uint32_t DVSData_Data(DVSData*, const void**) { return 0; }
DVSPort* DVSState_PortFind(uintptr_t, uintptr_t, uintptr_t, uintptr_t, uintptr_t, uintptr_t) { return nullptr; }
uint32_t DVSQOB_HostPropGet(const char*, const char*, void**, uint32_t*) { return kNotModelled; }
uint32_t DVSQOB_HostPropSet(const char*, const char*, const void*, uint32_t, uint32_t) { return kNotModelled; }
uint32_t DVSQOB_PortDataGet(const char*, const char*, const char*, void**, uint32_t*) { return kNotModelled; }
uint32_t DVSQOB_PortDataSet(const char*, const char*, const char*, const void*, uint32_t, uint32_t) {
  return kNotModelled;
}
void DVSQOB_DataFree(void*) {}

#pragma GCC visibility pop

}  // extern "C"
