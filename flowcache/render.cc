// Rendering of flow keys, actions and statistics. Runs once per flow of large tables: no allocation, no print formats.

#include "flowcache/render.h"

#include <arpa/inet.h>

#include <bit>
#include <cstdint>
#include <limits>

#include "flowcache/records.h"
#include "include/libryn.h"

namespace {

constexpr std::uint8_t kProtocolIcmp = 1;
constexpr std::uint8_t kProtocolIcmpV6 = 58;

// Bits of the action bitmap; those without a name have no text.
enum Action : int {
  kActionKcpInputChildPort = 2,
  kActionLro = 3,
  kActionIpfixIngress = 4,
  kActionDrop = 5,
  kActionDfwOnSrcPort = 6,
  kActionDpIsValid = 7,
  kActionSp = 8,
  kActionVi = 10,
  kActionVr = 11,
  kActionPi = 12,
  kActionPr = 13,
  kActionGvlanInsert = 16,
  kActionVdr = 18,
  kActionVni = 20,
  kActionVniEncap = 21,
  kActionDecap = 22,
  kActionGvlanRemove = 23,
  kActionIpfixEgress = 26,
  kActionDfwOnDstPort = 27,
  kActionKcpOutputVlan = 28,
};

constexpr bool Has(std::uint32_t bitmap, Action action) { return (bitmap >> action & 1) != 0; }

void AppendMac(const std::uint8_t* mac, BoundedText* line) {
  char text[kMacTextLength];
  WriteMac(mac, text);
  line->Append({text, sizeof(text)});
}

void AppendColumn(std::string_view text, std::size_t width, BoundedText* line) {
  line->Append("  ");
  line->AppendLeft(text, width);
}

void AppendIPv4Column(const std::uint8_t* address, BoundedText* line) {
  char area[16];
  BoundedText quad(area, sizeof(area));
  for (int i = 0; i < 4; ++i) {
    if (i > 0)
      quad.Append(".");
    quad.Append(Decimal(address[i]));
  }
  AppendColumn(quad.View(), 45, line);
}

void AppendIPv6Column(const std::uint8_t* address, BoundedText* line) {
  char text[INET6_ADDRSTRLEN];
  inet_ntop(AF_INET6, address, text, sizeof(text));
  AppendColumn(text, 45, line);
}

// As the C library prints a pointer.
void AppendPointer(std::uint64_t value, BoundedText* line) {
  if (value == 0) {
    line->Append("(nil)");
  } else {
    line->Append("0x");
    line->Append(Hex(value));
  }
}

void AppendNumber(std::string_view name, std::uint64_t value, BoundedText* line) {
  line->Append(name);
  line->Append(Decimal(value));
  line->Append("; ");
}

void AppendHeader(const View& actions, std::uint32_t bitmap, BoundedText* line) {
  line->Append("bmap:");
  AppendPointer(bitmap, line);
  line->Append(" inval(s):");
  line->Append(Decimal(actions.Get(kInvalCount)));
  line->Append(" cg:");
  AppendPointer(actions.Get(kHandle), line);
  line->Append(" dp:");
  if (Has(bitmap, kActionDpIsValid)) {
    line->Append(Decimal(actions.Get(kDp)));
  } else {
    line->Append("-");
  }
  AppendNumber(" len:", actions.Get(kLength), line);
}

// False when an instance found no room to begin.
bool AppendVdr(const View& actions, BoundedText* line) {
  const std::uint32_t count = actions.Get(kVdrCount);
  AppendNumber("VDR inst: ", count, line);
  for (std::uint32_t i = 0; i < count; ++i) {
    if (line->IsFull())
      return false;
    line->Append("INST ");
    line->Append(Decimal(i + 1));
    line->Append(": 0x");
    line->Append(Hex(actions.Get(kVdrInstance, kVdrStride * i)));
    line->Append("; ");
  }
  return true;
}

std::uint32_t EncapVni(const View& actions) {
  return std::uint32_t{actions.Get(kEncapVni)} << 16 | std::uint32_t{actions.Get(kEncapVni, 1)} << 8 |
         std::uint32_t{actions.Get(kEncapVni, 2)};
}

// A record of which nobody has said where it ends.
View Unbounded(const void* record) { return View(record, std::numeric_limits<std::size_t>::max()); }

}  // namespace

bool AppendActions(const View& actions, BoundedText* line) {
  const std::uint32_t bitmap = actions.Get(kBitmap);
  AppendHeader(actions, bitmap, line);
  for (std::uint32_t rest = bitmap; rest != 0; rest &= rest - 1) {
    if (line->IsFull())
      return false;
    switch (std::countr_zero(rest)) {
      case kActionKcpInputChildPort:
        AppendNumber("KCPInputChildPort: ", actions.Get(kKcpInputChildPort), line);
        break;
      case kActionLro:
        line->Append("LRO; ");
        break;
      case kActionIpfixIngress:
        line->Append("IPFIX Ingress; ");
        break;
      case kActionDrop:
        line->Append("DROP; ");
        return true;  // whatever else the flow would do does not happen
      case kActionDfwOnSrcPort:
        line->Append("DFW on srcPort; ");
        break;
      case kActionSp:
        line->Append("SP; ");
        break;
      case kActionVi:
        AppendNumber("VI: ", actions.Get(kVi), line);
        break;
      case kActionVr:
        line->Append("VR; ");
        break;
      case kActionPi:
        AppendNumber("PI: ", actions.Get(kPi), line);
        break;
      case kActionPr:
        line->Append("PR; ");
        break;
      case kActionGvlanInsert:
        line->Append("GVLAN Insert; ");
        break;
      case kActionVdr:
        if (!AppendVdr(actions, line))
          return false;
        break;
      case kActionVni:
        AppendNumber("VNI: ", actions.Get(kVni), line);
        break;
      case kActionVniEncap:
        AppendNumber("VNI: ", actions.Get(kVni), line);
        AppendNumber("ENCAP VNI: ", EncapVni(actions), line);
        break;
      case kActionDecap:
        line->Append("DECAP; ");
        break;
      case kActionGvlanRemove:
        line->Append("GVLAN Remove; ");
        break;
      case kActionIpfixEgress:
        line->Append("IPFIX Egress; ");
        break;
      case kActionDfwOnDstPort:
        line->Append("DFW on dstPort; ");
        break;
      case kActionKcpOutputVlan:
        AppendNumber("KCPOutputVLAN: ", actions.Get(kKcpOutputVlan), line);
        break;
      default:
        break;
    }
  }
  return true;
}

bool AppendStatistics(const View& actions, BoundedText* text) {
  if (!(actions.Get(kActionFlags) & kStatisticsApply)) {
    text->Append("Not Applicable");
    return false;
  }
  text->Append("pktsSinceLastFlush:");
  text->Append(Decimal(actions.Get(kPacketsSinceFlush)));
  text->Append(" bytesSinceLastFlush:");
  text->Append(Decimal(actions.Get(kBytesSinceFlush)));
  return true;
}

void FCFlowKeyToStr(const void* key, char* text) {
  FlowKey flow;
  std::memcpy(&flow, key, sizeof(flow));

  BoundedText line(text, LIBRYN_FLOW_KEY_TEXT_SIZE);
  AppendMac(flow.mac1, &line);
  line.Append("  ");
  AppendMac(flow.mac2, &line);
  AppendColumn(Decimal(flow.flagsAndVlan >> 4), 4, &line);
  AppendColumn(Decimal(flow.number14 & 0x7FFF), 7, &line);
  if (flow.flagsAndVlan & kFlowKeyIsIPv6) {
    AppendIPv6Column(flow.address1, &line);
    AppendIPv6Column(flow.address2, &line);
  } else {
    AppendIPv4Column(flow.address1, &line);
    AppendIPv4Column(flow.address1 + 4, &line);
  }
  AppendColumn(Decimal(flow.protocol), 5, &line);
  AppendColumn(Decimal(std::uint32_t{flow.number20High} << 16 | flow.number20Low), 7, &line);

  const bool isIcmp = flow.protocol == kProtocolIcmp || flow.protocol == kProtocolIcmpV6;
  for (const std::uint16_t field : flow.transport)
    AppendColumn(Decimal(isIcmp ? field : ntohs(field)), 12, &line);
  line.Terminate();
}

int FCActionsToStr(const void* actions, char* text, std::uint32_t size, std::uint16_t) {
  BoundedText line(text, size);
  const bool complete = AppendActions(Unbounded(actions), &line);
  line.Terminate();
  return complete ? 0 : 1;
}

int FCActionsStatsToStr(const void* actions, char* text, std::uint32_t size) {
  BoundedText statistics(text, size);
  const bool apply = AppendStatistics(Unbounded(actions), &statistics);
  statistics.Terminate();
  return apply ? 0 : static_cast<int>(statistics.Length());
}
