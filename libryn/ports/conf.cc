// GetPortConf: the configuration of one port; FlagsToStr.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string_view>

#include "host/native.h"
#include "host/records/ports.h"
#include "libryn/base/call.h"
#include "libryn/base/text.h"
#include "libryn/base/values.h"
#include "libryn/include/libryn.h"
#include "libryn/ports/ports.h"
#include "platform/ryn.h"

namespace {

constinit Key kPortID{"portID"};
constinit Key kFlags{"flags"};
constinit Key kLadrf{"ladrf"};
constinit Key kHwAddr{"hwAddr"};
constinit Key kUntaggedVlanID{"untaggedVlanID"};
constinit Key kForgedMACAllowed{"forgedMACAllowed"};
constinit Key kNumMcastAddrs{"numMcastAddrs"};
constinit Key kVni{"vni"};
constinit Key kSampleRate{"sampleRate"};
constinit Key kMcastAddrList{"mcastAddrList"};
constinit Key kNumTaggedVlanRanges{"numTaggedVlanRanges"};
constinit Key kVlanRanges{"vlanRanges"};

Ref FlagsText(std::uint32_t flags) {
  char words[119];  // all words together take 55 characters
  FlagsToStr(flags, words, sizeof(words));
  return Text(words);
}

Ref RangeText(VlanRange range) {
  char area[48];  // more than needed, so that each number has room for the longest
  BoundedText text(area, sizeof(area));
  text.Append(Decimal(range.first));
  text.Append("-");
  text.Append(Decimal(range.last));
  return AsciiText(text.View());
}

Ref McastAddrs(const PortConf& conf) {
  return ValueList(std::min(conf.numMcastAddrs, kMaxMcastAddrs),
                   [&](std::size_t i) { return MacText(conf.mcastAddrs[i]); });
}

Ref VlanRanges(const PortConf& conf) {
  return ValueList(std::min(conf.numTaggedVlanRanges, kMaxVlanRanges),
                   [&](std::size_t i) { return RangeText(conf.vlanRanges[i]); });
}

bool FillConf(PyObject* dict, const PortConf& conf) {
  return SetOrReport(dict, kPortID, Int(conf.portID)) && SetOrReport(dict, kFlags, FlagsText(conf.flags)) &&
         SetOrReport(dict, kLadrf, Int(conf.ladrf)) && SetOrReport(dict, kHwAddr, MacText(conf.hwAddr)) &&
         SetOrReport(dict, kUntaggedVlanID, Int(conf.untaggedVlanID)) &&
         SetOrReport(dict, kForgedMACAllowed, Int(conf.forgedMACAllowed)) &&
         SetOrReport(dict, kNumMcastAddrs, Int(conf.numMcastAddrs)) && SetOrReport(dict, kVni, Int(conf.vni)) &&
         SetOrReport(dict, kSampleRate, Int(conf.sampleRate)) &&
         (conf.numMcastAddrs == 0 || SetOrReport(dict, kMcastAddrList, McastAddrs(conf))) &&
         SetOrReport(dict, kNumTaggedVlanRanges, Int(conf.numTaggedVlanRanges)) &&
         (conf.numTaggedVlanRanges == 0 || SetOrReport(dict, kVlanRanges, VlanRanges(conf)));
}

}  // namespace

void FlagsToStr(std::uint32_t flags, char* text, std::uint32_t size) {
  static constexpr std::string_view kWords[] = {"UNICAST ",   "MULTICAST ", "ALLMULTI ",
                                                "BROADCAST ", "PROMISC ",   "USE_LADRF "};
  BoundedText words(text, size);
  for (std::size_t bit = 0; bit < std::size(kWords); ++bit) {
    if (flags & (1U << bit))
      words.Append(kWords[bit]);
  }
  words.Terminate();
}

PyObject* PyRYN_Get_Port_Conf(PyObject*, PyObject* args) {
  std::uint32_t swID, rynPortID;
  if (!ParseArgs(args, &swID, &rynPortID) || !IsSwitch(swID) || !IsPort(rynPortID))
    return NoneAfter("TypeError: Invalid parameter passed.\n");

  const auto conf = AllocateRecord<PortConf>();
  if (!conf)
    return NoneAfter("Failed to allocate memory.\n");

  std::uint32_t length = sizeof(PortConf);
  if (Ryn_Get_Port_Conf(swID, rynPortID, conf.get(), &length) != 0)
    return NoneAfter("Failed to retrieve port conf.\n");

  Ref dict(PyDict_New());
  if (!dict)
    return NoneAfter("Failed to allocate memory.\n");
  if (!FillConf(dict.get(), *conf))
    return NoneWithError();
  return dict.release();
}
