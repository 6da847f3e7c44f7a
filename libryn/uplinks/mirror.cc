// GetMirrorConf: the port-mirroring sessions of a switch, and the builders it shares with native callers.

#include <bit>

#include "host/native.h"
#include "host/records/uplinks.h"
#include "libryn/base/call.h"
#include "libryn/base/values.h"
#include "libryn/include/libryn.h"
#include "libryn/uplinks/uplinks.h"
#include "platform/ryn.h"

namespace {

constinit Key kNoInput{"noInput"};
constinit Key kNoOutput{"noOutput"};
constinit Key kVlanEncap{"vlanEncap"};
constinit Key kOrigVlan{"OrigVlan"};
constinit Key kIndex{"index"};
constinit Key kEncapVlanID{"encapVlanID"};
constinit Key kSamplingRate{"samplingRate"};
constinit Key kSnapLen{"snapLen"};
constinit Key kSrcInPorts{"srcInPorts"};
constinit Key kSrcOutPorts{"srcOutPorts"};
constinit Key kDstPorts{"dstPorts"};
constinit Key kVlans{"vlans"};

constexpr std::size_t kMaxSessions = sizeof(MirrorConf::sessions) / sizeof(MirrorSession);

// Whether the whole session lies inside the configuration.
bool IsWhole(const MirrorConf& conf, std::size_t offset) {
  if (offset + sizeof(MirrorSession) > sizeof(conf))
    return false;
  const auto vlanCount = Load<std::uint16_t>(&conf, offset + offsetof(MirrorSession, vlanCount));
  return offset + SessionLength(vlanCount) <= sizeof(conf);
}

Ref FlagBit(std::uint16_t flags, int bit) { return Int(flags >> bit & 1); }

// Deliberate: the lists are None when they failed, and are stored as they are.
bool FillSession(PyObject* dict, const MirrorSession& session, const void* vlans) {
  return SetOrReport(dict, kNoInput, FlagBit(session.flags, 0)) &&
         SetOrReport(dict, kNoOutput, FlagBit(session.flags, 1)) &&
         SetOrReport(dict, kVlanEncap, FlagBit(session.flags, 2)) &&
         SetOrReport(dict, kOrigVlan, FlagBit(session.flags, 3)) && SetOrReport(dict, kIndex, Int(session.index)) &&
         SetOrReport(dict, kEncapVlanID, Int(session.encapVlanID)) &&
         SetOrReport(dict, kSamplingRate, Int(session.samplingRate)) &&
         SetOrReport(dict, kSnapLen, Int(session.snapLen)) &&
         SetOrReport(dict, kSrcInPorts, Ref(PyRYN_CreatePortList(session.srcInCount, session.srcInPorts))) &&
         SetOrReport(dict, kSrcOutPorts, Ref(PyRYN_CreatePortList(session.srcOutCount, session.srcOutPorts))) &&
         SetOrReport(dict, kDstPorts, Ref(PyRYN_CreatePortList(session.dstCount, session.dstPorts))) &&
         SetOrReport(dict, kVlans, Ref(PyRYN_CreateVlanList(session.vlanCount, vlans)));
}

}  // namespace

PyObject* PyRYN_CreatePortList(std::uint16_t count, const void* bitmap) {
  Ref list = NewList(count);
  if (!list)
    return NoneAfter("Failed to allocate memory\n");  // Deliberate: without a full stop.
  std::uint16_t position = 0;
  for (std::uint32_t word = 0; word < 2 && position < count; ++word) {
    for (auto rest = Load<std::uint64_t>(bitmap, word * 8); rest != 0 && position < count; rest &= rest - 1) {
      if (!SetItemOrReport(list.get(), position++, Int(64 * word + static_cast<std::uint32_t>(std::countr_zero(rest)))))
        return NoneWithError();
    }
  }
  return list.release();
}

PyObject* PyRYN_CreateVlanList(std::uint16_t count, const void* vlans) {
  Ref list = NewList(count);
  if (!list)
    return NoneAfter("Failed to allocate memory.\n");
  for (std::size_t i = 0; i < count; ++i) {
    if (!SetItemOrReport(list.get(), i, Int(Load<std::uint16_t>(vlans, i * sizeof(std::uint16_t)))))
      return NoneWithError();
  }
  return list.release();
}

PyObject* PyRYN_CreateMirrorSession(const void* conf, std::uint32_t* offset, std::uint32_t) {
  Ref dict(PyDict_New());
  if (!dict)
    return NoneAfter("Failed to allocate memory.\n");
  const auto session = Load<MirrorSession>(conf, *offset);
  const void* const vlans = static_cast<const std::uint8_t*>(conf) + *offset + sizeof(MirrorSession);
  if (!FillSession(dict.get(), session, vlans))
    return NoneWithError();
  *offset += static_cast<std::uint32_t>(SessionLength(session.vlanCount));
  return dict.release();
}

PyObject* PyRYN_Get_Mirror_Conf(PyObject*, PyObject* args) {
  std::uint32_t swID;
  if (!ParseArgs(args, &swID) || !IsSwitch(swID))
    return NoneAfter("TypeError: Invalid switch ID passed.\n");

  const auto conf = AllocateRecord<MirrorConf>();
  if (!conf)
    return NoneAfter("Failed to allocate memory.\n");

  std::uint32_t length = sizeof(MirrorConf);
  if (Ryn_Get_Mirror_Conf(swID, conf.get(), &length) != 0)
    return NoneAfter("Failed to Get port mirror conf.\n");  // Deliberate: a capital letter inside.

  if (conf->sessionCount > kMaxSessions)
    return NoneAfter("Invalid response returned.\n");
  Ref list = NewList(conf->sessionCount);
  if (!list)
    return NoneAfter("Failed to allocate memory.\n");

  std::uint32_t offset = offsetof(MirrorConf, sessions);
  for (std::size_t i = 0; i < conf->sessionCount; ++i) {
    if (!IsWhole(*conf, offset))
      return NoneAfter("Invalid response returned.\n");
    // Deliberate: a session that fails is stored as None, and the next is read from the same place.
    if (!SetItemOrReport(list.get(), i, Ref(PyRYN_CreateMirrorSession(conf.get(), &offset, conf->header))))
      return NoneWithError();
  }
  return list.release();
}
