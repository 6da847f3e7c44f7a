// The switch-state library's side: names, properties, markers.
#include <deque>

#include "double.h"
#include "host/names.h"
#include "libryn/flowcache/flowcache.h"
#include "libryn/include/libryn.h"
#include "libryn/loadbal/loadbal.h"
#include "libryn/uplinks/uplinks.h"
#include "main.h"
#include "targets.h"

namespace {

constexpr char kPortset[] = "com.talvor.common.host.portset", kAlias[] = "com.talvor.common.alias";
constexpr char kMarker[] = "com.talvor.extraconfig.opaqueDvs.ryn";
constexpr std::uint32_t kNoSuchSwitch = 0x0BAD0003, kBadArgument = 0x0BAD0007;

struct Switch {
  std::string alias, class_name;
  std::string id;
  std::unique_ptr<std::string> portset, global_alias;
};

std::unique_ptr<std::string> TakeOptional(Input& input, std::size_t most) {
  return input.Take<std::uint8_t>() & 1 ? std::make_unique<std::string>(input.TakeText(most)) : nullptr;
}

void AddText(int handle, int global, const char* key, const std::string& text, bool terminated) {
  double_add_property(handle, global, key, text.c_str(), text.size() + (terminated || text.empty()));
}

// Texts of properties end at a NUL or, unless they are empty, with the property.
std::deque<Switch> TakeSwitches(Input& input, bool terminated) {
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
      AddText(handle, 0, kPortset, *dvs.portset, terminated);
    if (dvs.global_alias)
      AddText(handle, 1, kAlias, *dvs.global_alias, terminated);
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
  const std::deque<Switch> switches = TakeSwitches(input, !(modes & 4));
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
  Expect(status == (!found ? kNoSuchSwitch : served ? 0 : kBadArgument), "status of an identifier");
  ExpectEqual({id.get(), 64}, served ? Padded(found->id.substr(0, 63), 64) : std::string(64, '#'), "an identifier");

  status = DVSAliasToPortsetName(alias.c_str(), name.get());
  Expect(status == (found ? 0 : kNoSuchSwitch), "status of a portset name");
  if (found) {
    const std::string* text = Property(switches, found->id, &Switch::portset);
    if (!text)
      text = Property(switches, found->id, &Switch::global_alias);
    ExpectEqual({name.get(), 128}, Padded(text ? *text : found->id.substr(0, 64), 128), "a portset name");
  } else {
    ExpectEqual({name.get(), 128}, std::string(128, '#'), "an area that is left alone");
  }

  std::memset(back.get(), '#', 128);
  status = DVSPortsetNameToAlias(portset.c_str(), back.get());
  Expect(status == (portset.empty() ? kBadArgument : 0), "status of an alias");
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

// The copy of all names that ryn and the exporter work with. It is read twice: the second time replaces the first.
void FuzzSwitchDirectory(Input input) {
  const std::uint8_t modes = input.Take<std::uint8_t>();
  double_visit_all(modes & 1);
  SwitchDirectory directory;
  if (modes & 2) {
    double_add_switch("former", "vswitch", "former", 6);
    Expect(directory.Read().Ok() && directory.Size() == 1, "a switch is read");
    Reset();
  }
  const std::deque<Switch> switches = TakeSwitches(input, !(modes & 4));
  Expect(directory.Read().Ok() && directory.Size() == switches.size(), "every switch is read");

  for (std::size_t i = 0; i < switches.size(); ++i) {
    const Switch& dvs = switches[i];
    const SwitchNames names = directory[i];
    const std::string id = dvs.id.substr(0, 64);
    const std::string* const alias = Property(switches, id, &Switch::global_alias);
    const std::string* const portset = Property(switches, id, &Switch::portset);
    ExpectEqual(names.id, id, "an identifier");
    ExpectEqual(names.className, dvs.class_name, "a class");
    Expect(names.HasAlias() == (alias != nullptr) && names.HasPortset() == (portset != nullptr), "a name or none");
    if (alias)
      ExpectEqual(names.alias, *alias, "an alias");
    if (portset)
      ExpectEqual(names.portset, *portset, "a portset name");
    const std::string& name = portset ? *portset : alias ? *alias : id;
    ExpectEqual(names.DatapathName(), name.substr(0, 128), "the datapath's name");
    ExpectEqual({names.Id().text, 64}, Padded(id.substr(0, 63), 64), "the key of the switch's properties");
  }
}

namespace {

// Each method that reads or writes a property, on one switch, against what the property and the datapath hold.
class PropertyModel {
 public:
  PropertyModel(const Bytes* property, std::uint32_t failure, Bytes running)
      : property_(property), failure_(failure), running_(std::move(running)) {}

  // The record of that size: the property's, or the datapath's without one; none when the property is not one.
  std::unique_ptr<Bytes> Record(std::size_t size) const {
    if (!property_)
      return std::make_unique<Bytes>(running_.begin(), running_.begin() + static_cast<std::ptrdiff_t>(size));
    const bool taken = At<std::uint32_t>(*property_, 0) == 0 && property_->size() == size;
    return taken ? std::make_unique<Bytes>(*property_) : nullptr;
  }

  std::string Params() const {
    const auto record = Record(24);
    if (!record)
      return "None";
    static constexpr const char* kNames[] = {"LCore usage threshold high", "LCore usage threshold low",
                                             "LCore usage diff to pause balancing", "Traffic variation sensitivity"};
    std::string text;
    for (std::size_t i = 0; i < 4; ++i)
      text += std::string(i ? ", ('" : "('") + kNames[i] + "', " +
              std::to_string(At<std::uint32_t>(*record, 8 + 4 * i)) + ")";
    return "(" + text + ")";
  }

  std::string Algorithm() const {
    const auto record = Record(24);
    static constexpr const char* kNames[] = {"'none'", "'cpu'", "'count'"};
    const std::uint32_t metric = record ? At<std::uint32_t>(*record, 4) : 0;
    return !record ? "None" : metric < 3 ? kNames[metric] : "'invalid'";
  }

  // The datapath answers with the value alone, at the start of its area.
  std::string Team() const {
    const auto record = Record(5);
    return !record ? "None" : (property_ ? (*record)[4] : running_[0]) ? "True" : "False";
  }
  std::string Burst() const {
    const auto record = Record(8);
    return !record ? "None" : std::to_string(At<std::uint32_t>(property_ ? *record : running_, property_ ? 4 : 0));
  }

  // These two have a fixed value for a property that is not there, and no version.
  std::string Offload() const { return Unversioned(4, "1"); }
  std::string Rings() const { return Unversioned(8, "(2048, 1024)"); }

 private:
  std::string Unversioned(std::size_t size, const char* absent) const {
    if (!property_)
      return failure_ == kNoSuchSwitch ? absent : "None";
    if (property_->size() != size)
      return "None";
    const std::string first = std::to_string(At<std::uint32_t>(*property_, 0));
    return size == 4 ? first : "(" + first + ", " + std::to_string(At<std::uint32_t>(*property_, 4)) + ")";
  }

  const Bytes* property_;
  std::uint32_t failure_;
  Bytes running_;
};

// A setter of the balancer's options stores the whole record as `change` leaves it, or answers False and stores
// nothing.
template <class Change>
void CheckStored(Method method, Ref args, std::unique_ptr<Bytes> record, Change change) {
  const bool stores = record && change(record.get());
  double_forget_calls();
  double_recording(1);
  const Ref result(method(nullptr, args.get()));
  double_recording(0);
  Expect(result.get() == (stores ? Py_True : Py_False), "True when a record was stored");
  const std::string_view calls = double_calls();
  const std::size_t call = calls.find("\"DVSQOB_HostPropSet\"");
  Expect((call != calls.npos) == stores, "a record is stored once it is whole");
  if (!stores)
    return;
  std::string digits;
  for (const unsigned char byte : *record) {
    static constexpr char kHex[] = "0123456789abcdef";
    digits += {kHex[byte >> 4], kHex[byte & 15]};
  }
  constexpr std::string_view kValue = "\"value\": {\"bytes\": \"";
  ExpectEqual(calls.substr(calls.find(kValue, call) + kValue.size(), digits.size()), digits, "a stored record");
}

void Put(Bytes* record, std::size_t offset, std::uint32_t value) { std::memcpy(record->data() + offset, &value, 4); }

}  // namespace

void FuzzProperties(Input input) {
  const std::uint32_t status = input.Take<std::uint8_t>() % 3 * 0x5D68001;  // 0, or one that fails
  const bool absent = input.Take<std::uint8_t>() & 1;
  Bytes running = input.Take(24);
  running.resize(24);
  const Bytes value = input.Rest();
  const std::uint32_t failure = absent ? kNoSuchSwitch : status;
  double_add_switch("dvs-1", "vswitch", "id-1", 4);
  for (const char* read : {"DVSQOB_HostPropGet", "DVSQOB_PortDataGet"}) {
    if (failure)
      Fail(read, failure);
    else
      Answer(read, value);
  }
  for (const char* read : {"Ryn_GetCurrentLBData", "Ryn_GetSwitchNUMATeam", "Ryn_GetSwitchBurstSize"})
    Answer(read, running);

  const PropertyModel model(failure ? nullptr : &value, failure, running);
  const auto check = [](const Ref& result, const std::string& expected, const char* what) {
    ExpectEqual(TextOf(Ref(PyObject_Repr(result.get())).get()), expected, what);
  };
  check(Run(PyRYN_GetLBParams, Args("(s)", "dvs-1")), model.Params(), "the balancer's options");
  check(Run(PyRYN_GetLBAlgorithm, Args("(s)", "dvs-1")), model.Algorithm(), "the balancer's metric");
  check(Run(PyRYN_GetSwitchNUMATeam, Args("(s)", "dvs-1")), model.Team(), "teaming");
  check(Run(PyRYN_GetSwitchBurstSize, Args("(s)", "dvs-1")), model.Burst(), "a burst size");
  check(Run(PyRYN_GetFPOEnabled, Args("(s)", "dvs-1")), model.Offload(), "offload");
  check(Run(PyRYN_Get_Uplink_Ring_Size, Args("(ss)", "id-1", "port-1")), model.Rings(), "ring sizes");

  CheckStored(PyRYN_SetLBParams, Args("(siiii)", "dvs-1", -1, 5, -1, 6), model.Record(24), [](Bytes* record) {
    Put(record, 0, 0);
    Put(record, 12, 5);
    Put(record, 20, 6);
    return At<std::uint32_t>(*record, 8) >= 5;
  });
  CheckStored(PyRYN_SetLBAlgorithm, Args("(ss)", "dvs-1", "cpu"), model.Record(24), [](Bytes* record) {
    Put(record, 0, 0);
    Put(record, 4, 1);
    return true;
  });
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
