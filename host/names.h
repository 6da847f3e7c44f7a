// The switches of the configuration and their names.
//
// A switch has up to three: the identifier, which keys its properties; the alias, by which people know it (a global
// property); and the datapath's name for it: the portset name (a host property), else the alias, else the identifier.
//
// Threads: every function here walks the process's one configuration (DVSState_*, DVS_*, DVSData_*), which others in
// the process walk and reload too. A call has to run in one piece: hold the interpreter lock, or the program's own
// mutex where there is no interpreter, from its begin to its end, and never release it between. No handle of the
// configuration outlives a call; what is handed out are copies.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "host/native.h"
#include "host/status.h"
#include "platform/jor_public.h"

constexpr std::size_t kSwitchIdBytes = 64;
constexpr std::size_t kPortsetNameBytes = 128;
constexpr std::size_t kAliasBytes = 128;

// The identifier of a switch, NUL-terminated: the key of its host properties.
struct SwitchId {
  char text[kSwitchIdBytes] = {};
};

// The datapath's name of a switch: 128 bytes, and a NUL behind them, which a name that fills them does not have.
struct PortsetName {
  char text[kPortsetNameBytes + 1] = {};
};

// ---- All switches -------------------------------------------------------------------------------------------------

// A switch as the configuration names it. Bytes, of no certain encoding.
struct SwitchNames {
  std::string_view id;         // at most 64 bytes
  std::string_view className;  // "vswitch" for those that have settings
  std::string_view alias;      // data() is null where the switch has no such property
  std::string_view portset;    // the same

  bool HasAlias() const { return alias.data() != nullptr; }
  bool HasPortset() const { return portset.data() != nullptr; }

  // The name by which the datapath knows the switch, if it does; at most 128 bytes.
  std::string_view DatapathName() const {
    const std::string_view name = HasPortset() ? portset : HasAlias() ? alias : id;
    return name.substr(0, kPortsetNameBytes);
  }

  // The key of the switch's host properties.
  SwitchId Id() const;
};

// A copy of the names of all switches, in the configuration's order.
class SwitchDirectory {
 public:
  // Walks the configuration and replaces what the directory held. kNoMemory leaves it empty.
  Status Read();

  std::size_t Size() const { return size_; }

  // Row `index`, below Size(); its texts live until the next Read and no longer than the directory.
  SwitchNames operator[](std::size_t index) const;

 private:
  struct Text {
    std::size_t start;
    std::size_t length;  // kAbsent: no such property
  };
  struct Row {
    Text id, className, alias, portset;
  };
  static constexpr std::size_t kAbsent = static_cast<std::size_t>(-1);

  static int Visit(DVSSwitch* dvs, void* context);
  bool Add(DVSSwitch* dvs);
  bool Copy(std::string_view text, Text* copy);
  std::string_view View(Text text) const;

  HeapArea<Row> rows_;
  HeapArea<char> texts_;
  std::size_t size_ = 0, room_ = 0;
  std::size_t textSize_ = 0, textRoom_ = 0;
  bool full_ = false;  // no memory for more
};

// ---- One switch ---------------------------------------------------------------------------------------------------
// The look-ups of the module's native entry points, with what scripts rely on.

// Copies the identifier of the switch with that alias, kSwitchIdBytes whatever its length; the last byte is always NUL.
// kNotFound, or kBadParameter for a switch of another class than "vswitch": `switchId` stays as it is.
std::uint32_t FindSwitchId(const char* alias, char* switchId);

// The datapath's name of the switch with that alias, of whatever class, filled up with NULs to kPortsetNameBytes; a
// longer name is cut and not terminated. kNotFound: `portset` stays as it is.
std::uint32_t FindPortsetName(const char* alias, char* portset);

// The alias of the switch with whose portset property `portset` begins, or `portset` itself where that switch has no
// alias; kAliasBytes, not terminated where it fills them, all NULs where there is no such switch. kBadParameter for a
// null or empty name: `alias` stays as it is.
std::uint32_t FindAlias(const char* portset, char* alias);

// ---- Served switches ----------------------------------------------------------------------------------------------

// Whether some switch is marked as served by the datapath.
bool HasServedSwitch();
