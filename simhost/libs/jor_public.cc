// Stand-ins for the operations of libjorPublic.so.
#include "platform/jor_public.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>

#include "simhost/host/session.h"
#include "simhost/libs/dvs_config.h"

// Whoever loads the library gives it these.
extern "C" {
void Log(const char* format, ...);
void Warning(const char* format, ...);
void Panic(const char* format, ...);
}

namespace simhost {

namespace {

// What a process has loaded. Handles lead into it and hold until it is reset or loaded again.
struct Loading {
  std::mutex mutex;
  std::shared_ptr<Config> config = std::make_shared<Config>();
};

Loading& OwnLoading() {
  static Loading loading;
  return loading;
}

std::shared_ptr<Config> Loaded() {
  const std::lock_guard lock(OwnLoading().mutex);
  return OwnLoading().config;
}

void Install(Config loaded) {
  auto next = std::make_shared<Config>(std::move(loaded));
  const std::lock_guard lock(OwnLoading().mutex);
  OwnLoading().config = std::move(next);
}

ConfigSwitch* SwitchOf(DVSSwitch* handle) { return reinterpret_cast<ConfigSwitch*>(handle); }
DVSSwitch* HandleOf(ConfigSwitch& dvs) { return reinterpret_cast<DVSSwitch*>(&dvs); }
ConfigData* DataOf(DVSData* handle) { return reinterpret_cast<ConfigData*>(handle); }
DVSData* HandleOf(ConfigData& datum) { return reinterpret_cast<DVSData*>(&datum); }

// Identifiers as the platform takes them: 64 bytes at most, with or without a NUL.
std::string_view View64(const char* switch_id) {
  return switch_id != nullptr ? std::string_view(switch_id, strnlen(switch_id, 64)) : std::string_view();
}
std::string_view TextOf(const char* text) { return text != nullptr ? std::string_view(text) : std::string_view(); }

// Only a fault makes a look-up in the loaded configuration fail; that the store cannot be reached does not. Operations
// that answer no status then answer as if there was nothing.
bool Fails(const char* operation) { return FaultOf({operation, {}}) != kOk; }

// A property of the loaded configuration, as it was then. The handle leads into it, and holds until another is loaded.
std::uint32_t Lookup(const char* operation, const char* switch_id, const char* key,
                     std::vector<ConfigData> ConfigSwitch::*scope, DVSData** datum) {
  if (switch_id == nullptr || key == nullptr || datum == nullptr)
    return kBadParameter;
  if (const std::uint32_t status = FaultOf({operation, {{"switch", View64(switch_id)}, {"key", TextOf(key)}}});
      status != kOk)
    return status;
  const std::shared_ptr<Config> loaded = Loaded();
  for (ConfigSwitch& dvs : *loaded) {
    if (View64(dvs.id.data()) != View64(switch_id))
      continue;
    for (ConfigData& candidate : dvs.*scope) {
      if (candidate.name == key) {
        *datum = HandleOf(candidate);
        return kOk;
      }
    }
  }
  return kNotFound;
}

// A block for the caller, who frees it.
std::uint32_t HandOver(const void* bytes, std::size_t size, void** value, std::uint32_t* length, Area& answer) {
  void* block = std::malloc(std::max<std::size_t>(size, 1));
  if (block == nullptr) {
    Panic("out of memory for %zu bytes\n", size);
    return kNoRoom;
  }
  answer = Area(block, size);
  if (size > 0)
    answer.PutBytes(0, bytes, size);
  *value = block;
  *length = static_cast<std::uint32_t>(size);
  return kOk;
}

// A property as it is now, in a block that the caller frees; an empty value is a block too, of length 0.
std::uint32_t GetProperty(const Call& call, std::string_view scope, std::string_view switch_id, std::string_view port,
                          std::string_view key, void** value, std::uint32_t* length) {
  if (value == nullptr || length == nullptr)
    return kBadParameter;
  Area answer;
  return ReadHost(call, &answer, [&](const simhost::View& host) {
    Statement row =
        host.store.Prepare("SELECT value FROM prop WHERE scope = ? AND switch_id = ? AND port = ? AND key = ?", scope,
                           switch_id, port, key);
    if (!row.Step())
      return kNotFound;
    return HandOver(row.Blob(0).data(), row.Blob(0).size(), value, length, answer);
  });
}

// Any value is stored as it is, of whatever form. The switch has to be there; the key need not mean anything.
std::uint32_t SetProperty(const Call& call, std::string_view scope, std::string_view switch_id, std::string_view port,
                          std::string_view key, const void* value, std::uint32_t length) {
  return ChangeHost(call, [&](Change& host) {
    if (key.empty() || (value == nullptr && length > 0))
      return kBadParameter;
    if (!host.store.Prepare("SELECT 1 FROM dvs WHERE switch_id = ?", switch_id).Step())
      return kNotFound;
    host.store.Run("INSERT OR REPLACE INTO prop (scope, switch_id, port, key, value) VALUES (?, ?, ?, ?, ?)", scope,
                   switch_id, port, key, std::span(static_cast<const std::uint8_t*>(value), length));
    return kOk;
  });
}

// A port that the switch does not have is a bad parameter, unlike a property that the port does not have.
bool HasPort(Store& store, std::string_view switch_id, std::string_view port) {
  return store
      .Prepare("SELECT 1 FROM port JOIN sw USING (sw) WHERE switch_id = ? AND CAST(dvport AS TEXT) = ?", switch_id,
               port)
      .Step();
}

}  // namespace

}  // namespace simhost

using namespace simhost;

extern "C" {

#pragma GCC visibility push(default)

// Says that this library is a stand-in of a simulated host.
extern const char jor_sim_version[];
const char jor_sim_version[] = "1";

// Nothing is loaded then. Handles into what was loaded must not be used any more; here and in a load that is the
// caller's duty, as with the platform.
uint32_t DVSState_ConfigReset(void) {
  if (const uint32_t status = FaultOf({"DVSState_ConfigReset", {}}); status != kOk)
    return status;
  Install({});
  return kOk;
}

// The configuration as the store has it now, for DVSState_ConfigDeserialize.
uint32_t DVSQOB_StateGet(void** state, uint32_t* length) {
  if (state == nullptr || length == nullptr)
    return kBadParameter;
  Area answer;
  return ReadHost({"DVSQOB_StateGet", {}}, &answer, [&](const simhost::View& host) {
    const std::string bytes = SerializeConfig(host.store);
    return HandOver(bytes.data(), bytes.size(), state, length, answer);
  });
}

// Bytes that cannot be read are warned of, and what was loaded before stays.
uint32_t DVSState_ConfigDeserialize(const void* state, uint32_t length) {
  if (const uint32_t status = FaultOf({"DVSState_ConfigDeserialize", {}}); status != kOk)
    return status;
  if (state == nullptr)
    return kBadParameter;
  std::optional<Config> loaded = DeserializeConfig({static_cast<const char*>(state), length});
  if (!loaded) {
    Warning("the switch state of %u bytes cannot be read\n", length);
    return kBadParameter;
  }
  Log("%zu distributed switches\n", loaded->size());
  Install(std::move(*loaded));
  return kOk;
}

DVSSwitch* DVSState_SwitchFindByAlias(const char* alias) {
  if (alias == nullptr || FaultOf({"DVSState_SwitchFindByAlias", {{"alias", TextOf(alias)}}}) != kOk)
    return nullptr;
  const std::shared_ptr<Config> loaded = Loaded();
  for (ConfigSwitch& dvs : *loaded) {
    if (dvs.alias == alias)
      return HandleOf(dvs);
  }
  return nullptr;
}

// The visit stops when the visitor has found what it looks for. What is visited stays until the end, whatever the
// visitor loads meanwhile.
void DVSState_SwitchForEach(DVSSwitchVisitor visitor, void* context) {
  if (visitor == nullptr || Fails("DVSState_SwitchForEach"))
    return;
  const std::shared_ptr<Config> loaded = Loaded();
  for (ConfigSwitch& dvs : *loaded) {
    if (visitor(HandleOf(dvs), context) != 0)
      return;
  }
}

const char* DVS_ClassName(DVSSwitch* dvs) {
  return dvs == nullptr || Fails("DVS_ClassName") ? "" : SwitchOf(dvs)->class_name.c_str();
}

// Of 128 bytes, since readers copy 64 of them whatever the text's length.
const char* DVS_SwitchId(DVSSwitch* dvs) {
  static const std::array<char, 128> kNone{};
  return dvs == nullptr || Fails("DVS_SwitchId") ? kNone.data() : SwitchOf(dvs)->id.data();
}

uint32_t DVSState_HostPropLookup(const char* switchId, const char* key, DVSData** datum) {
  return Lookup("DVSState_HostPropLookup", switchId, key, &ConfigSwitch::host, datum);
}

uint32_t DVSState_GlobalPropLookup(const char* switchId, const char* key, DVSData** datum) {
  return Lookup("DVSState_GlobalPropLookup", switchId, key, &ConfigSwitch::global, datum);
}

void DVSState_GlobalPropForEach(DVSSwitch* dvs, DVSDataVisitor visitor, void* context) {
  if (dvs == nullptr || visitor == nullptr || Fails("DVSState_GlobalPropForEach"))
    return;
  for (ConfigData& datum : SwitchOf(dvs)->global) {
    if (visitor(HandleOf(datum), context) != 0)
      return;
  }
}

const char* DVSData_Name(DVSData* datum) {
  return datum == nullptr || Fails("DVSData_Name") ? "" : DataOf(datum)->name.c_str();
}

// The length; 0, and no value, for nothing. What follows a value is a NUL.
uint32_t DVSData_Data(DVSData* datum, const void** value) {
  if (datum == nullptr || value == nullptr || Fails("DVSData_Data"))
    return 0;
  *value = DataOf(datum)->value.data();
  return static_cast<uint32_t>(DataOf(datum)->value.size());
}

// a: the number of a distributed port. The other arguments mean nothing here.
DVSPort* DVSState_PortFind(uintptr_t a, uintptr_t, uintptr_t, uintptr_t, uintptr_t, uintptr_t) {
  if (Fails("DVSState_PortFind"))
    return nullptr;
  const std::shared_ptr<Config> loaded = Loaded();
  for (ConfigSwitch& dvs : *loaded) {
    const auto found = std::find(dvs.ports.begin(), dvs.ports.end(), a);
    if (found != dvs.ports.end())
      return reinterpret_cast<DVSPort*>(&*found);
  }
  return nullptr;
}

// As the store has it now, unlike the look-ups in what was loaded.
uint32_t DVSQOB_HostPropGet(const char* switchId, const char* key, void** value, uint32_t* length) {
  const std::string_view id = View64(switchId);
  const Call call{"DVSQOB_HostPropGet", {{"switch", id}, {"key", TextOf(key)}}};
  return GetProperty(call, "host", id, "", TextOf(key), value, length);
}

// option means nothing here.
uint32_t DVSQOB_HostPropSet(const char* switchId, const char* key, const void* value, uint32_t length, uint32_t) {
  const std::string_view id = View64(switchId);
  const Call call{"DVSQOB_HostPropSet", {{"switch", id}, {"key", TextOf(key)}}};
  return SetProperty(call, "host", id, "", TextOf(key), value, length);
}

uint32_t DVSQOB_PortDataGet(const char* switchId, const char* portId, const char* key, void** value, uint32_t* length) {
  const std::string_view id = TextOf(switchId);
  const std::string_view port = TextOf(portId);
  const Call call{"DVSQOB_PortDataGet", {{"switch", id}, {"dvport", port}, {"key", TextOf(key)}}};
  const uint32_t status = GetProperty(call, "port", id, port, TextOf(key), value, length);
  if (status != kNotFound)
    return status;
  // Only now does it matter whether the port is there. This second look has no name, so no fault hits the call twice.
  bool known = false;
  const uint32_t found = ReadHost({"", {}}, nullptr, [&](const simhost::View& host) {
    known = HasPort(host.store, id, port);
    return kOk;
  });
  return found != kOk ? found : known ? kNotFound : kBadParameter;
}

// option means nothing here.
uint32_t DVSQOB_PortDataSet(const char* switchId, const char* portId, const char* key, const void* value,
                            uint32_t length, uint32_t) {
  const std::string_view id = TextOf(switchId);
  const std::string_view port = TextOf(portId);
  bool known = false;
  const uint32_t found = ReadHost({"", {}}, nullptr, [&](const simhost::View& host) {
    known = HasPort(host.store, id, port);
    return kOk;
  });
  if (found != kOk || !known)
    return found != kOk ? found : kBadParameter;
  const Call call{"DVSQOB_PortDataSet", {{"switch", id}, {"dvport", port}, {"key", TextOf(key)}}};
  return SetProperty(call, "port", id, port, TextOf(key), value, length);
}

void DVSQOB_DataFree(void* value) { std::free(value); }

#pragma GCC visibility pop

}  // extern "C"
