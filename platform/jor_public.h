// The operations of libjorPublic.so, the switch-state library, that the module uses.
//
// Operations that return uint32_t return a status code, 0 for success, unless they say otherwise. Handles and texts
// belong to the library. The library takes `Log`, `Warning` and `Panic` from the object that loads it.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct DVSSwitch DVSSwitch;  // a distributed switch
typedef struct DVSData DVSData;      // a property: a name and a value
typedef struct DVSPort DVSPort;      // a distributed port

// Visitors answer 1 when they have found what they look for, else 0; the library may then stop.
typedef int (*DVSSwitchVisitor)(DVSSwitch* dvs, void* context);
typedef int (*DVSDataVisitor)(DVSData* datum, void* context);

// The in-process configuration. *state: a block of the standard allocator that passes to the caller.
uint32_t DVSState_ConfigReset(void);
uint32_t DVSQOB_StateGet(void** state, uint32_t* length);
uint32_t DVSState_ConfigDeserialize(const void* state, uint32_t length);

// Switches and their properties, as the configuration has them
DVSSwitch* DVSState_SwitchFindByAlias(const char* alias);
void DVSState_SwitchForEach(DVSSwitchVisitor visitor, void* context);
const char* DVS_ClassName(DVSSwitch* dvs);
const char* DVS_SwitchId(DVSSwitch* dvs);  // at least 64 readable bytes
uint32_t DVSState_HostPropLookup(const char* switchId, const char* key, DVSData** datum);
uint32_t DVSState_GlobalPropLookup(const char* switchId, const char* key, DVSData** datum);
void DVSState_GlobalPropForEach(DVSSwitch* dvs, DVSDataVisitor visitor, void* context);
const char* DVSData_Name(DVSData* datum);
uint32_t DVSData_Data(DVSData* datum, const void** value);  // returns the length of the value
DVSPort* DVSState_PortFind(uintptr_t a, uintptr_t b, uintptr_t c, uintptr_t d, uintptr_t e, uintptr_t f);

// Properties as the host keeps them. *value: a block that the caller releases with DVSQOB_DataFree.
// Status 0xbad0003: there is no such property.
uint32_t DVSQOB_HostPropGet(const char* switchId, const char* key, void** value, uint32_t* length);
uint32_t DVSQOB_HostPropSet(const char* switchId, const char* key, const void* value, uint32_t length, uint32_t option);
uint32_t DVSQOB_PortDataGet(const char* switchId, const char* portId, const char* key, void** value, uint32_t* length);
uint32_t DVSQOB_PortDataSet(const char* switchId, const char* portId, const char* key, const void* value,
                            uint32_t length, uint32_t option);
void DVSQOB_DataFree(void* value);

#ifdef __cplusplus
}
#endif
