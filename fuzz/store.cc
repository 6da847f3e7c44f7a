// The switch-state library's side: aliases, properties, markers.
#include <deque>

#include "double.h"
#include "flowcache/flowcache.h"
#include "include/libryn.h"
#include "loadbal/loadbal.h"
#include "targets.h"
#include "uplinks/uplinks.h"

namespace {

constexpr char kPortset[] = "com.talvor.common.host.portset", kAlias[] = "com.talvor.common.alias";
constexpr char kMarker[] = "com.talvor.extraconfig.opaqueDvs.ryn";
constexpr std::uint32_t kNoSuchSwitch = 0x0BAD0003, kBadParameter = 0x0BAD0007;

struct Switch {
  std::string alias, class_name;
  std::string id;
  std::unique_ptr<std::string> portset, global_alias;
};

std::unique_ptr<std::string> TakeOptional(Input& input, std::size_t most) {
  return input.Take<std::uint8_t>() & 1 ? std::make_unique<std::string>(input.TakeText(most)) : nullptr;
}

std::deque<Switch> TakeSwitches(Input& input) {
  std::deque<Switch> switches(input.Take<std::uint8_t>() % 4);
  for (Switch& dvs : switches) {
    static constexpr const char* kClasses[] = {"vswitch", "vswitc", "vswitches", ""};
    dvs.class_name = kClasses[input.Take<std::uint8_t>() % 4];
    dvs.alias = input.TakeText(200);
    dvs.id = input.TakeText(80);
    dvs.portset = TakeOptional(input, 200);
    dvs.global_alias = TakeOptional(input, 200);

    const int handle = double_add_switch(dvs.alias.c_str(), dvs.class_name.c_str(), dvs.id.data(), dvs.id.size());
    if (dvs.portset)
      double_add_property(handle, 0, kPortset, dvs.portset->c_str(), dvs.portset->size() + 1);
    if (dvs.global_alias)
      double_add_property(handle, 1, kAlias, dvs.global_alias->c_str(), dvs.global_alias->size() + 1);
  }
  return switches;
}

// A property of the first switch with that identifier that has it, as the double looks it up.
const std::string* Property(const std::deque<Switch>& switches, const std::string& id,
                            std::unique_ptr<std::string> Switch::*property) {
  for (const Switch& dvs : switches)
    if (std::strncmp(dvs.id.c_str(), id.c_str(), 64) == 0 && dvs.*property)
      return (dvs.*property).get();
  return nullptr;
}

std::string Padded(std::string text, std::size_t size) {
  text.resize(size);
  return text;
}

}  // namespace

void FuzzAlias(Input input) {
  const std::uint8_t modes = input.Take<std::uint8_t>();
  double_visit_all(modes & 1);
  const std::deque<Switch> switches = TakeSwitches(input);
  const std::string alias = modes & 2 && !switches.empty() ? switches.back().alias : input.TakeText(200);
  const std::string portset = input.TakeText(300);

  const Switch* found = nullptr;
  for (const Switch& dvs : switches)
    if (!found && dvs.alias == alias)
      found = &dvs;

  const std::unique_ptr<char[]> id(new char[64]), name(new char[128]), back(new char[128]);
  std::memset(id.get(), '#', 64);
  std::memset(name.get(), '#', 128);
  std::uint32_t status = DVSAliasToSwitchId(alias.c_str(), id.get());
  const bool served = found && found->class_name == "vswitch";
  Expect(status == (!found ? kNoSuchSwitch : served ? 0 : kBadParameter), "status of an identifier");
  ExpectEqual({id.get(), 64}, served ? Padded(found->id.substr(0, 63), 64) : std::string(64, '#'), "an identifier");

  status = DVSAliasToPortsetName(alias.c_str(), name.get());
  Expect(status == (found ? 0 : kNoSuchSwitch), "status of a portset name");
  if (found) {
    const std::string* text = Property(switches, found->id, &Switch::portset);
    if (!text)
      text = Property(switches, found->id, &Switch::global_alias);
    ExpectEqual({name.get(), 128}, Padded(text ? *text : found->id, 128), "a portset name");
  } else {
    ExpectEqual({name.get(), 128}, std::string(128, '#'), "an area that is left alone");
  }

  std::memset(back.get(), '#', 128);
  status = DVSPortsetNameToAlias(portset.c_str(), back.get());
  Expect(status == (portset.empty() ? kBadParameter : 0), "status of an alias");
  if (portset.empty())
    return ExpectEqual({back.get(), 128}, std::string(128, '#'), "an area that is left alone");
  std::string expected(128, '\0');
  for (const Switch& dvs : switches) {
    const std::string* const prefix = Property(switches, dvs.id, &Switch::portset);
    if (!prefix || portset.compare(0, prefix->size(), *prefix) != 0)
      continue;
    if (const std::string* const text = Property(switches, dvs.id, &Switch::global_alias))
      expected.replace(0, std::min<std::size_t>(text->size(), 128), text->substr(0, 128));
    else
      expected.replace(0, std::min<std::size_t>(portset.size(), 127) + 1, portset.substr(0, 127) + '\0');
    if (!(modes & 1))
      break;
  }
  // What stands behind the first NUL is filled up with NULs.
  ExpectEqual({back.get(), 128}, Padded(expected.substr(0, expected.find('\0')), 128), "an alias");
}

void FuzzProperties(Input input) {
  const std::uint32_t status = input.Take<std::uint8_t>() % 3 * 0x5D68001;  // 0, or one that fails
  const bool absent = input.Take<std::uint8_t>() & 1;
  const Bytes running = input.Take(24), value = input.Rest();
  double_add_switch("dvs-1", "vswitch", "id-1", 4);
  for (const char* read : {"DVSQOB_HostPropGet", "DVSQOB_PortDataGet"}) {
    if (absent || status != 0)
      Fail(read, absent ? kNoSuchSwitch : status);
    else
      Answer(read, value);
  }
  for (const char* read : {"Ryn_GetCurrentLBData", "Ryn_GetSwitchNUMATeam", "Ryn_GetSwitchBurstSize"})
    Answer(read, running);

  const bool there = !absent && status == 0;
  const bool version0 = At<std::uint32_t>(value, 0) == 0;
  const auto check = [&](const Ref& result, std::size_t size, bool versioned) {
    if (there)
      Expect((result.get() == Py_None) == (value.size() != size || (versioned && !version0)),
             "a value is taken when its length and its version are right");
  };
  check(Run(PyRYN_GetLBParams, Args("(s)", "dvs-1")), 24, true);
  Run(PyRYN_GetLBAlgorithm, Args("(s)", "dvs-1"));
  check(Run(PyRYN_GetSwitchNUMATeam, Args("(s)", "dvs-1")), 5, true);
  const Ref burst = Run(PyRYN_GetSwitchBurstSize, Args("(s)", "dvs-1"));
  check(burst, 8, true);
  if (there && burst.get() != Py_None)
    Expect(PyLong_AsUnsignedLong(burst.get()) == At<std::uint32_t>(value, 4), "a burst size");
  check(Run(PyRYN_GetFPOEnabled, Args("(s)", "dvs-1")), 4, false);
  const Ref rings = Run(PyRYN_Get_Uplink_Ring_Size, Args("(ss)", "id-1", "port-1"));
  check(rings, 8, false);
  Run(PyRYN_SetLBParams, Args("(siiii)", "dvs-1", -1, 5, -1, 6));
  Run(PyRYN_SetLBAlgorithm, Args("(ss)", "dvs-1", "cpu"));
  Run(PyRYN_SetSwitchNUMATeam, Args("(si)", "dvs-1", 1));
  Run(PyRYN_SetSwitchBurstSize, Args("(si)", "dvs-1", 9));
}

void FuzzFastslabs(Input input) {
  const std::uint8_t modes = input.Take<std::uint8_t>();
  double_visit_all(modes & 1);
  bool served = false;
  for (std::size_t switches = input.Take<std::uint8_t>() % 4; switches > 0; --switches) {
    const int handle = double_add_switch("dvs", "vswitch", "id", 2);
    for (std::size_t properties = input.Take<std::uint8_t>() % 4; properties > 0; --properties) {
      std::string name = kMarker;
      switch (const auto change = input.Take<std::uint8_t>(); change % 4) {
        case 0:
          break;
        case 1:
          name = name.substr(0, change / 4);
          break;
        case 2:
          name += static_cast<char>(change | 1);
          break;
        default:
          name = input.TakeText(60);
      }
      const Bytes value = input.Take(input.Take<std::uint8_t>() % 12);
      double_add_property(handle, 1, name.c_str(), value.data(), value.size());
      const std::size_t compared = std::min<std::size_t>(value.size(), 5);
      for (const char* word : {"true", "poll", "intr"})
        served |= name == kMarker && (compared == 0 || std::memcmp(value.data(), word, compared) == 0);
    }
  }
  if (modes & 2)
    Answer("Ryn_Init_Mbuf_Fastslabs", {}, 3);
  const Ref result = Run(PyRyn_InitMbufFastslabs, Args("()"));
  Expect(result.get() == (!served ? Py_None : modes & 2 ? Py_False : Py_True), "a marked switch starts the pools");
}
