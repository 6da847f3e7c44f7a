// Rendering of flow keys, actions and statistics. Runs once per flow of large tables: no allocation, no print formats.

#include "libryn/flowcache/render.h"

#include <arpa/inet.h>

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>

#include "host/records/flowcache.h"
#include "libryn/include/libryn.h"

namespace {

// Type and code of these stand where other protocols have their ports, but in the byte order of the host.
constexpr std::uint8_t kProtocolIcmp = 1;
constexpr std::uint8_t kProtocolIcmpV6 = 58;

constexpr bool Has(std::uint32_t bitmap, Action action) { return (bitmap >> action & 1) != 0; }

// A flow key's line starts out blank. The next column begins two blanks after the width of this one, or after its text
// if that is longer.
char* NextColumn(char* column, const char* end, std::ptrdiff_t width) {
  return column + std::max(end - column, width) + 2;
}

char* WriteNumberColumn(std::uint32_t number, std::ptrdiff_t width, char* column) {
  return NextColumn(column, std::to_chars(column, column + 10, number).ptr, width);
}

char* WriteIPv4(const std::uint8_t* address, char* out) {
  for (int i = 0; i < 4; ++i) {
    if (i > 0)
      *out++ = '.';
    const Octet& octet = kOctets[address[i]];
    std::memcpy(out, octet.digits, octet.length);
    out += octet.length;
  }
  return out;
}

// Four hex digits at most, without leading zeros.
char* WriteWord(std::uint32_t word, char* out) { return std::to_chars(out, out + 4, word, 16).ptr; }

// The format of inet_ntop, which is not used: it prints word by word, which took longer than the rest of the line.
char* WriteIPv6(const std::uint8_t* address, char* out) {
  constexpr int kWords = 8;
  std::uint32_t words[kWords];
  for (int i = 0; i < kWords; ++i)
    words[i] = static_cast<std::uint32_t>(address[2 * i] << 8 | address[2 * i + 1]);

  // The first of the longest runs of zeros is left out, unless it is a single word.
  int gap = kWords, gapEnd = kWords + 1;
  for (int begin = 0; begin < kWords; ++begin) {
    int end = begin;
    while (end < kWords && words[end] == 0)
      ++end;
    if (end - begin > gapEnd - gap) {
      gap = begin;
      gapEnd = end;
    }
    begin = end;
  }
  // The last two words are shown as an IPv4 address when only zeros, or zeros and 0xffff, precede them.
  const bool endsInIPv4 = gap == 0 && (gapEnd == 6 || (gapEnd == 5 && words[5] == 0xFFFF));

  for (int i = 0; i < kWords; ++i) {
    if (i > gap && i < gapEnd)
      continue;
    if (i > 0 || i == gap)
      *out++ = ':';
    if (i == 6 && endsInIPv4)
      return WriteIPv4(address + 12, out);
    if (i != gap)
      out = WriteWord(words[i], out);
  }
  if (gapEnd == kWords)
    *out++ = ':';
  return out;
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

template <std::size_t size>
void AppendNumber(const char (&name)[size], std::uint64_t value, BoundedText* line) {
  line->Append(std::string_view(name, size - 1));
  line->Append(Decimal(value));
  line->Append("; ");
}

// `dp` is shown only where the bitmap says that it holds something. The length is the record's own claim.
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

// False when there was no room to begin an instance.
bool AppendVdr(const View& actions, BoundedText* line) {
  const std::uint32_t count = actions.GetOrZero(kVdrCount);
  AppendNumber("VDR inst: ", count, line);
  for (std::uint32_t i = 0; i < count; ++i) {
    if (line->IsFull())
      return false;
    line->Append("INST ");
    line->Append(Decimal(i + 1));
    line->Append(": 0x");
    line->Append(Hex(actions.GetOrZero(kVdrInstance, kVdrStride * i)));
    line->Append("; ");
  }
  return true;
}

// A VNI of 24 bits, highest byte first as on the wire.
std::uint32_t EncapVni(const View& actions) {
  return std::uint32_t{actions.GetOrZero(kEncapVni)} << 16 | std::uint32_t{actions.GetOrZero(kEncapVni, 1)} << 8 |
         std::uint32_t{actions.GetOrZero(kEncapVni, 2)};
}

// A record whose end is not known.
View Unbounded(const void* record) { return View(record, std::numeric_limits<std::size_t>::max()); }

}  // namespace

std::size_t WriteFlowKey(const void* key, char* line) {
  FlowKey flow;
  std::memcpy(&flow, key, sizeof(flow));

  std::memset(line, ' ', kFlowKeyLineLength);
  WriteMac(flow.mac1, line);
  char* column = NextColumn(line, line, kMacTextLength);
  WriteMac(flow.mac2, column);
  column = NextColumn(column, column, kMacTextLength);
  column = WriteNumberColumn(flow.flagsAndVlan >> 4, 4, column);
  column = WriteNumberColumn(flow.number14 & 0x7FFF, 7, column);
  if (flow.flagsAndVlan & kFlowKeyIsIPv6) {
    column = NextColumn(column, WriteIPv6(flow.address1, column), 45);
    column = NextColumn(column, WriteIPv6(flow.address2, column), 45);
  } else {
    column = NextColumn(column, WriteIPv4(flow.address1, column), 45);
    column = NextColumn(column, WriteIPv4(flow.address1 + 4, column), 45);
  }
  column = WriteNumberColumn(flow.protocol, 5, column);
  column = WriteNumberColumn(std::uint32_t{flow.number20High} << 16 | flow.number20Low, 7, column);

  const bool isIcmp = flow.protocol == kProtocolIcmp || flow.protocol == kProtocolIcmpV6;
  for (const std::uint16_t field : flow.transport)
    column = WriteNumberColumn(isIcmp ? field : ntohs(field), 12, column);
  return static_cast<std::size_t>(column - line) - 2;  // no column follows the last
}

bool AppendActions(const View& actions, BoundedText* line) {
  const std::uint32_t bitmap = actions.Get(kBitmap);
  AppendHeader(actions, bitmap, line);
  for (std::uint32_t rest = bitmap; rest != 0; rest &= rest - 1) {  // the lowest bit first
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
        return true;  // no later action takes place
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
        break;  // bits without a name are shown in the header alone
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

void FCFlowKeyToStr(const void* key, char* text) { text[WriteFlowKey(key, text)] = '\0'; }

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
