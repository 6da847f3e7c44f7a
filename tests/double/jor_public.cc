// The switch-state library's double. The configuration's switches answer look-ups and iterations; a scripted status
// other than 0 makes a look-up fail whatever the configuration has, and lets the operations that answer a text or the
// bytes of a property answer null. A scripted length is what is said of a property's length.
#include "platform/jor_public.h"

#include <cstdlib>
#include <cstring>

#include "call.h"
#include "script.h"

// As in the real library, these are left for the loading object to define.
extern "C" {
void Log(const char* format, ...);
void Warning(const char* format, ...);
void Panic(const char* format, ...);
}

namespace {

constexpr uint32_t kNotFound = 0xbad0003;
constexpr std::size_t kSwitchIdSize = 64;

Switch& Of(DVSSwitch* dvs) { return *reinterpret_cast<Switch*>(dvs); }
Property& Of(DVSData* datum) { return *reinterpret_cast<Property*>(datum); }
DVSSwitch* Handle(Switch& dvs) { return reinterpret_cast<DVSSwitch*>(&dvs); }
DVSData* Handle(Property& property) { return reinterpret_cast<DVSData*>(&property); }

uint32_t LookUp(const Call& call, std::deque<Property> Switch::*kind, const char* switchId, const char* key,
                DVSData** datum) {
  if (const auto status = call.Status())
    return status;
  for (auto& dvs : TheDouble().switches)
    if (strncmp(reinterpret_cast<const char*>(dvs.id.get()), switchId, kSwitchIdSize) == 0)
      for (auto& property : dvs.*kind)
        if (property.name == key) {
          *datum = Handle(property);
          return 0;
        }
  return kNotFound;
}

void CallLogHooks() {
  // Formats and arguments that no hook could read without harm
  Log("%s %n", nullptr, nullptr);
  CALL_OF("Log");
  Warning(nullptr);
  CALL_OF("Warning");
  Panic("%s");
  CALL_OF("Panic");
}

}  // namespace

extern "C" {

uint32_t DVSState_ConfigReset() {
  if (TheDouble().log_hooks)
    CallLogHooks();
  const std::uint32_t status = THIS_CALL.Status();
  if (status == 0)
    UnloadSwitches();
  return status;
}

uint32_t DVSQOB_StateGet(void** state, uint32_t* length) {
  Call call = THIS_CALL;
  call.Number("stateIsNull", *state == nullptr);
  call.Block(state, length);
  return call.Status();
}

uint32_t DVSState_ConfigDeserialize(const void* state, uint32_t length) {
  const std::uint32_t status = THIS_CALL.Bytes("state", state, state ? length : 0).Number("length", length).Status();
  if (status == 0)
    LoadSwitches();
  return status;
}

DVSSwitch* DVSState_SwitchFindByAlias(const char* alias) {
  const auto status = THIS_CALL.Text("alias", alias).Status();
  for (auto& dvs : TheDouble().switches)
    if (status == 0 && dvs.alias == alias)
      return Handle(dvs);
  return nullptr;
}

void DVSState_SwitchForEach(DVSSwitchVisitor visitor, void* context) {
  THIS_CALL.Number("contextIsNull", context == nullptr);
  auto& d = TheDouble();
  for (auto& dvs : d.switches)
    if (visitor(Handle(dvs), context) && !d.visit_all)
      return;
}

const char* DVS_ClassName(DVSSwitch* dvs) {
  const auto status = THIS_CALL.Text("dvs", Of(dvs).alias.c_str()).Status();
  return status ? nullptr : Of(dvs).class_name.c_str();
}

const char* DVS_SwitchId(DVSSwitch* dvs) {
  const auto status = THIS_CALL.Text("dvs", Of(dvs).alias.c_str()).Status();
  return status ? nullptr : reinterpret_cast<const char*>(Of(dvs).id.get());
}

uint32_t DVSState_HostPropLookup(const char* switchId, const char* key, DVSData** datum) {
  Call call = THIS_CALL;
  call.Text("switchId", switchId, kSwitchIdSize).Text("key", key);
  return LookUp(call, &Switch::host, switchId, key, datum);
}

uint32_t DVSState_GlobalPropLookup(const char* switchId, const char* key, DVSData** datum) {
  Call call = THIS_CALL;
  call.Text("switchId", switchId, kSwitchIdSize).Text("key", key);
  return LookUp(call, &Switch::global, switchId, key, datum);
}

void DVSState_GlobalPropForEach(DVSSwitch* dvs, DVSDataVisitor visitor, void* context) {
  THIS_CALL.Text("dvs", Of(dvs).alias.c_str()).Number("contextIsNull", context == nullptr);
  for (auto& property : Of(dvs).global)
    if (visitor(Handle(property), context) && !TheDouble().visit_all)
      return;
}

const char* DVSData_Name(DVSData* datum) {
  const auto status = THIS_CALL.Text("datum", Of(datum).name.c_str()).Status();
  return status ? nullptr : Of(datum).name.c_str();
}

uint32_t DVSData_Data(DVSData* datum, const void** value) {
  Call call = THIS_CALL;
  call.Text("datum", Of(datum).name.c_str());
  *value = call.Status() ? nullptr : Of(datum).value.get();
  return call.Length(Of(datum).size);
}

DVSPort* DVSState_PortFind(uintptr_t a, uintptr_t b, uintptr_t c, uintptr_t d, uintptr_t e, uintptr_t f) {
  THIS_CALL.Number("a", a).Number("b", b).Number("c", c).Number("d", d).Number("e", e).Number("f", f);
  static char port;
  return TheDouble().find_port ? reinterpret_cast<DVSPort*>(&port) : nullptr;
}

uint32_t DVSQOB_HostPropGet(const char* switchId, const char* key, void** value, uint32_t* length) {
  Call call = THIS_CALL;
  call.Text("switchId", switchId, kSwitchIdSize).Text("key", key);
  TheDouble().blocks_out += call.Block(value, length);
  return call.Status();
}

uint32_t DVSQOB_HostPropSet(const char* switchId, const char* key, const void* value, uint32_t length,
                            uint32_t option) {
  return THIS_CALL.Text("switchId", switchId, kSwitchIdSize)
      .Text("key", key)
      .Bytes("value", value, length)
      .Number("length", length)
      .Number("option", option)
      .Status();
}

uint32_t DVSQOB_PortDataGet(const char* switchId, const char* portId, const char* key, void** value, uint32_t* length) {
  Call call = THIS_CALL;
  call.Text("switchId", switchId).Text("portId", portId).Text("key", key);
  TheDouble().blocks_out += call.Block(value, length);
  return call.Status();
}

uint32_t DVSQOB_PortDataSet(const char* switchId, const char* portId, const char* key, const void* value,
                            uint32_t length, uint32_t option) {
  return THIS_CALL.Text("switchId", switchId)
      .Text("portId", portId)
      .Text("key", key)
      .Bytes("value", value, length)
      .Number("length", length)
      .Number("option", option)
      .Status();
}

void DVSQOB_DataFree(void* value) {
  THIS_CALL.Number("isNull", value == nullptr);
  TheDouble().blocks_freed += value != nullptr;
  std::free(value);
}

}  // extern "C"
