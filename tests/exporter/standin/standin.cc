// Platform libraries whose answers come from a folder of scripts, which may change while a program uses them.
//
// RYN_STANDIN names the folder. An operation looks for the file OPERATION-A-B, then OPERATION-A, then OPERATION, where
// A and B are its numbers of switch and port (or a property's key), and answers the bytes that stand in it. Its first 4
// bytes are the status; while they are "hang" the call does not return. Without a file it answers 0 and fills nothing.
// Every call is written to the file "calls": its name and numbers, and "end" with the same when it returns.
//
// Built twice, once for each library.

#include <fcntl.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "platform/jor_public.h"
#include "platform/ryn.h"

namespace {

std::string Folder() {
  const char* const folder = std::getenv("RYN_STANDIN");
  return folder ? folder : ".";
}

bool ReadScript(const std::string& name, std::vector<unsigned char>* bytes) {
  bytes->clear();
  std::FILE* const file = std::fopen((Folder() + '/' + name).c_str(), "rb");
  if (!file)
    return false;
  unsigned char piece[4096];
  for (std::size_t size; (size = std::fread(piece, 1, sizeof(piece), file)) > 0;)
    bytes->insert(bytes->end(), piece, piece + size);
  std::fclose(file);
  return bytes->size() >= 4;
}

class Call {
 public:
  explicit Call(const std::string& operation, const std::vector<std::string>& arguments = {}) : text_(operation) {
    std::vector<std::string> names{operation};
    for (const std::string& argument : arguments) {
      names.push_back(names.back() + '-' + argument);
      text_ += ' ' + argument;
    }
    Write(text_);
    for (auto name = names.rbegin(); name != names.rend(); ++name) {
      while (ReadScript(*name, &bytes_) && std::memcmp(bytes_.data(), "hang", 4) == 0)
        usleep(10000);
      if (bytes_.size() >= 4)
        break;
      bytes_.clear();
    }
  }
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;
  ~Call() { Write("end " + text_); }

  std::uint32_t Status() const {
    std::uint32_t status = 0;
    if (bytes_.size() >= 4)
      std::memcpy(&status, bytes_.data(), 4);
    return status;
  }

  std::size_t Size() const { return bytes_.size() < 4 ? 0 : bytes_.size() - 4; }
  const void* Bytes() const { return bytes_.data() + 4; }

  std::uint32_t Fill(void* area, std::size_t room) const {
    if (area && Size() > 0)
      std::memcpy(area, Bytes(), Size() < room ? Size() : room);
    return Status();
  }

 private:
  static void Write(const std::string& line) {
    const int log = open((Folder() + "/calls").c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    dprintf(log, "%s\n", line.c_str());
    close(log);
  }

  std::string text_;
  std::vector<unsigned char> bytes_;
};

[[maybe_unused]] std::string N(std::uint64_t number) { return std::to_string(number); }

}  // namespace

extern "C" {

#ifdef STANDIN_RYN

uint32_t Ryn_Get_Switch_List(void* area, uint32_t* length) { return Call(__func__).Fill(area, *length); }
uint32_t Ryn_Get_Port_List(uint32_t sw, void* area, uint32_t* length) {
  return Call(__func__, {N(sw)}).Fill(area, *length);
}
uint32_t Ryn_Get_Port_Stats(uint32_t sw, uint32_t port, void* area, uint32_t* length) {
  return Call(__func__, {N(sw), N(port)}).Fill(area, *length);
}
uint32_t Ryn_Get_Port_Stats_Slowpath(uint32_t sw, uint32_t port, void* area, uint32_t* length) {
  return Call(__func__, {N(sw), N(port)}).Fill(area, *length);
}
uint32_t Ryn_Get_Uplink_Stats(uint32_t sw, uint32_t port, void* area, uint32_t* length) {
  return Call(__func__, {N(sw), N(port)}).Fill(area, *length);
}
uint32_t Ryn_Get_Uplink_Queue_Stats(uint32_t sw, uint32_t port, uint32_t queue, uint32_t kind, void* area,
                                    uint32_t* length) {
  return Call(__func__, {N(sw), N(port), N(kind), N(queue)}).Fill(area, *length);
}
uint32_t Ryn_Get_Uplink_Priv_Stats_Len(uint32_t sw, uint32_t port, uint32_t* size, uint32_t* length) {
  return Call(__func__, {N(sw), N(port)}).Fill(size, *length);
}
uint32_t Ryn_Get_Uplink_Priv_Stats(uint32_t sw, uint32_t port, void* area, uint32_t* length) {
  return Call(__func__, {N(sw), N(port)}).Fill(area, *length);
}
uint32_t Ryn_Get_Flow_Stats(uint32_t sw, const uint32_t* lcores, uint32_t count, uint32_t, void* area,
                            uint32_t* length) {
  return Call(__func__, {N(sw), N(count ? lcores[0] : 64), N(count)}).Fill(area, *length);
}
uint32_t Ryn_Get_FPO_Stats(uint32_t sw, const uint32_t* lcores, uint32_t count, void* area, uint32_t* length) {
  return Call(__func__, {N(sw), N(count ? lcores[0] : 64), N(count)}).Fill(area, *length);
}
uint32_t Ryn_Get_Flow_Timeout(uint32_t* seconds) { return Call(__func__).Fill(seconds, 4); }
uint32_t Ryn_GetLBWeights(void* area) { return Call(__func__).Fill(area, 32); }
uint32_t Ryn_GetCurrentLBData(const char* portset, uint32_t, void* area) {
  return Call(__func__, {std::string(portset, strnlen(portset, 128))}).Fill(area, 24);
}
uint32_t Ryn_GetSwitchBurstSize(const char* portset, uint32_t* burst) {
  return Call(__func__, {std::string(portset, strnlen(portset, 128))}).Fill(burst, 4);
}
uint32_t Ryn_GetSwitchNUMATeam(const char*, uint32_t, uint8_t* flag) { return Call(__func__).Fill(flag, 1); }
uint32_t Ryn_Get_LCore_ID_Bitmap(uint32_t sw, uint64_t* bitmap) { return Call(__func__, {N(sw)}).Fill(bitmap, 8); }
uint32_t Ryn_Dump_LB_PortStats(uint32_t sw, void* area, uint32_t* length) {
  return Call(__func__, {N(sw)}).Fill(area, *length);
}
uint32_t Ryn_Dump_Switch_MAC_Table(uint32_t sw, void* area, uint32_t* length) {
  return Call(__func__, {N(sw)}).Fill(area, *length);
}
uint32_t Ryn_Get_Port_NetQ_Info(uint32_t sw, uint32_t port, void* area, uint32_t* length) {
  return Call(__func__, {N(sw), N(port)}).Fill(area, *length);
}
uint32_t Ryn_Get_Mirror_Conf(uint32_t sw, void* area, uint32_t* length) {
  return Call(__func__, {N(sw)}).Fill(area, *length);
}

#else

uint32_t DVSState_ConfigReset(void) { return Call(__func__).Status(); }
uint32_t DVSQOB_StateGet(void** state, uint32_t* length) {
  const Call call(__func__);
  if (call.Status() != 0)
    return call.Status();
  *state = std::malloc(call.Size() + 1);
  *length = static_cast<uint32_t>(call.Size());
  call.Fill(*state, call.Size());
  return 0;
}
uint32_t DVSState_ConfigDeserialize(const void*, uint32_t) { return Call(__func__).Status(); }
DVSSwitch* DVSState_SwitchFindByAlias(const char*) { return nullptr; }
void DVSState_SwitchForEach(DVSSwitchVisitor, void*) { Call call(__func__); }
const char* DVS_ClassName(DVSSwitch*) { return "vswitch"; }
const char* DVS_SwitchId(DVSSwitch*) { return ""; }
uint32_t DVSState_HostPropLookup(const char*, const char*, DVSData**) { return 0x0BAD0003; }
uint32_t DVSState_GlobalPropLookup(const char*, const char*, DVSData**) { return 0x0BAD0003; }
void DVSState_GlobalPropForEach(DVSSwitch*, DVSDataVisitor, void*) {}
const char* DVSData_Name(DVSData*) { return ""; }
uint32_t DVSData_Data(DVSData*, const void**) { return 0; }
uint32_t DVSQOB_HostPropGet(const char*, const char* key, void** value, uint32_t* length) {
  const Call call(__func__, {key});
  if (call.Status() != 0 || call.Size() == 0)
    return call.Status() ? call.Status() : 0x0BAD0003;
  *value = std::malloc(call.Size());
  *length = static_cast<uint32_t>(call.Size());
  call.Fill(*value, call.Size());
  return 0;
}
void DVSQOB_DataFree(void* value) { std::free(value); }

#endif

}  // extern "C"
