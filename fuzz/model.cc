#include "model.h"

#include <arpa/inet.h>

#include <cstdarg>
#include <cstdio>

namespace {

[[gnu::format(printf, 1, 2)]] std::string Print(const char* format, ...) {
  char text[256];
  std::va_list values;
  va_start(values, format);
  std::vsnprintf(text, sizeof(text), format, values);
  va_end(values);
  return text;
}

std::uint32_t BigEndian(const Bytes& bytes, std::size_t offset, std::size_t width) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < width; ++i)
    value = value << 8 | At<std::uint8_t>(bytes, offset + i);
  return value;
}

const void* Pointer(std::uint64_t value) { return reinterpret_cast<const void*>(value); }

}  // namespace

std::string FlowKeyModel(const Bytes& key) {
  const auto byte = [&](std::size_t offset) { return unsigned{At<std::uint8_t>(key, offset)}; };
  std::string line;
  for (const std::size_t mac : {0U, 6U})
    line += Print("%s%02x:%02x:%02x:%02x:%02x:%02x", mac ? "  " : "", byte(mac), byte(mac + 1), byte(mac + 2),
                  byte(mac + 3), byte(mac + 4), byte(mac + 5));
  line += Print("  %-4u  %-7u", byte(13) * 16 + byte(12) / 16, byte(14) + (byte(15) & 0x7F) * 256);
  if (byte(12) & 0x02) {
    for (const std::size_t address : {24U, 40U}) {
      char text[46];
      line += Print("  %-45s", inet_ntop(AF_INET6, key.data() + address, text, sizeof(text)));
    }
  } else {
    for (const std::size_t address : {24U, 28U})
      line +=
          Print("  %-45s",
                Print("%u.%u.%u.%u", byte(address), byte(address + 1), byte(address + 2), byte(address + 3)).c_str());
  }
  const bool icmp = byte(23) == 1 || byte(23) == 58;
  line += Print("  %-5u  %-7u", byte(23), byte(20) + byte(21) * 256 + byte(22) * 65536);
  for (const std::size_t port : {16U, 18U})
    line += Print("  %-12u", icmp ? unsigned{At<std::uint16_t>(key, port)} : BigEndian(key, port, 2));
  return line;
}

std::pair<std::string, int> ActionsModel(const Bytes& record, std::size_t size) {
  const auto bitmap = At<std::uint32_t>(record, 56);
  std::string line;
  const auto answer = [&](int result) { return std::pair(line.substr(0, size > 0 ? size - 1 : 0), result); };
  const auto vni = [&] { return Print("VNI: %u; ", At<std::uint32_t>(record, 76)); };

  line += Print("bmap:%p inval(s):%u cg:%p dp:", Pointer(bitmap), At<std::uint32_t>(record, 68),
                Pointer(At<std::uint64_t>(record, 8)));
  line += bitmap & 0x80 ? Print("%u", unsigned{At<std::uint8_t>(record, 64)}) : "-";
  line += Print(" len:%u; ", unsigned{At<std::uint16_t>(record, 62)});
  for (int bit = 0; bit < 32; ++bit) {
    const std::uint32_t mask = 1U << bit;
    if (!(bitmap & mask))
      continue;
    if (line.size() >= size)
      return answer(1);
    switch (mask) {
      case 0x00000004:
        line += Print("KCPInputChildPort: %u; ", At<std::uint32_t>(record, 114));
        break;
      case 0x00000008:
        line += "LRO; ";
        break;
      case 0x00000010:
        line += "IPFIX Ingress; ";
        break;
      case 0x00000020:
        line += "DROP; ";
        return answer(0);
      case 0x00000040:
        line += "DFW on srcPort; ";
        break;
      case 0x00000100:
        line += "SP; ";
        break;
      case 0x00000400:
        line += Print("VI: %u; ", unsigned{At<std::uint16_t>(record, 74)});
        break;
      case 0x00000800:
        line += "VR; ";
        break;
      case 0x00001000:
        line += Print("PI: %u; ", unsigned{At<std::uint8_t>(record, 72)});
        break;
      case 0x00002000:
        line += "PR; ";
        break;
      case 0x00010000:
        line += "GVLAN Insert; ";
        break;
      case 0x00040000: {
        const unsigned count = At<std::uint8_t>(record, 256);
        line += Print("VDR inst: %u; ", count);
        for (unsigned i = 0; i < count; ++i) {
          if (line.size() >= size)
            return answer(1);
          line += Print("INST %u: 0x%x; ", i + 1, At<std::uint32_t>(record, 274 + 32 * std::size_t{i}));
        }
        break;
      }
      case 0x00100000:
        line += vni();
        break;
      case 0x00200000:
        line += vni() + Print("ENCAP VNI: %u; ", BigEndian(record, 244, 3));
        break;
      case 0x00400000:
        line += "DECAP; ";
        break;
      case 0x00800000:
        line += "GVLAN Remove; ";
        break;
      case 0x04000000:
        line += "IPFIX Egress; ";
        break;
      case 0x08000000:
        line += "DFW on dstPort; ";
        break;
      case 0x10000000:
        line += Print("KCPOutputVLAN: %u; ", unsigned{At<std::uint16_t>(record, 118)});
        break;
      default:
        break;
    }
  }
  return answer(0);
}

std::string StatisticsModel(const Bytes& record) {
  if (!(At<std::uint8_t>(record, 61) & 0x08))
    return "Not Applicable";
  return Print("pktsSinceLastFlush:%lu bytesSinceLastFlush:%lu", At<std::uint64_t>(record, 24),
               At<std::uint64_t>(record, 40));
}

std::string SnapshotModel(const Bytes& snapshot) {
  constexpr std::uint64_t kGroup = 37, kVertex = 20, kEdge = 12;
  const std::uint64_t groups = At<std::uint32_t>(snapshot, 0), vertices = At<std::uint32_t>(snapshot, 4);
  std::string text = "\nGroups\n";
  std::uint64_t at = 8;
  for (std::uint64_t g = 0; g < groups && at + kGroup <= snapshot.size(); ++g, at += kGroup) {
    text += Print("[%3d load %3d] :", static_cast<int>(g), At<std::int32_t>(snapshot, at));
    for (const auto& [set, suffix] : {std::pair(5, "TX"), std::pair(21, "RX")})
      for (std::size_t port = 0; port < 128; ++port)
        if (snapshot[at + static_cast<std::size_t>(set) + port / 8] >> port % 8 & 1)
          text += Print(" [%d-%s]", static_cast<int>(port), suffix);
    text += "\n";
  }
  text += "\nVeticies and Edges\n";
  at = 8 + groups * kGroup;
  for (std::uint64_t v = 0; v < vertices && at + kVertex <= snapshot.size(); ++v) {
    const std::uint64_t counts[] = {At<std::uint32_t>(snapshot, at + 12), At<std::uint32_t>(snapshot, at + 16)};
    const std::uint64_t vertex = at;
    if (at + kVertex + (counts[0] + counts[1]) * kEdge > snapshot.size())
      break;
    at += kVertex;
    for (const int in : {0, 1}) {
      text += Print("[%2d WID:%10u Num:%3d F:%8x] %s", At<std::int32_t>(snapshot, vertex),
                    At<std::uint32_t>(snapshot, vertex + 4), static_cast<int>(counts[in]),
                    At<std::uint32_t>(snapshot, vertex + 8), in ? "<-" : "->");
      for (std::uint64_t e = 0; e < counts[in]; ++e, at += kEdge)
        text += Print(" [%s:%2d EMA:%3d load:%3d]", in ? "from" : "to  ", At<std::int32_t>(snapshot, at),
                      At<std::int32_t>(snapshot, at + 8), At<std::int32_t>(snapshot, at + 4));
      text += "\n";
    }
  }
  return text;
}

std::string MacModel(const Bytes& bytes, std::size_t offset) {
  const auto byte = [&](std::size_t i) { return unsigned{At<std::uint8_t>(bytes, offset + i)}; };
  return Print("%02x:%02x:%02x:%02x:%02x:%02x", byte(0), byte(1), byte(2), byte(3), byte(4), byte(5));
}

std::string CellsModel(const Bytes& area, std::size_t record, std::initializer_list<Cell> cells) {
  std::string text;
  for (const Cell& cell : cells) {
    const std::size_t at = record + cell.offset;
    text += Print("%s'%s': ", text.empty() ? "" : ", ", cell.key);
    switch (cell.kind) {
      case Kind::kByte:
        text += std::to_string(At<std::uint8_t>(area, at));
        break;
      case Kind::kHalf:
        text += std::to_string(At<std::uint16_t>(area, at));
        break;
      case Kind::kWord:
      case Kind::kLowWord:  // of 64 bits
        text += std::to_string(At<std::uint32_t>(area, at));
        break;
      case Kind::kSigned:
        text += std::to_string(At<std::int64_t>(area, at));
        break;
      case Kind::kMac:
        text += "'" + MacModel(area, at) + "'";
        break;
    }
  }
  return text;
}

std::string FlagsModel(std::uint32_t flags) {
  static constexpr const char* kWords[] = {"UNICAST", "MULTICAST", "ALLMULTI", "BROADCAST", "PROMISC", "USE_LADRF"};
  std::string text;
  for (unsigned bit = 0; bit < 6; ++bit)
    if (flags >> bit & 1)
      text += std::string(kWords[bit]) + " ";
  return text;
}
