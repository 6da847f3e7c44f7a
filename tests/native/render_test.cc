// The flow-cache formatters against the print formats that define their layout, on 100,000 random records each and at
// every size of the area.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "libryn/include/libryn.h"
#include "prints.h"

namespace {

using Record = std::vector<unsigned char>;  // of exact size, so that a sanitizer sees a read past it

template <class T>
T At(const Record& record, std::size_t offset) {
  T value;
  std::memcpy(&value, record.data() + offset, sizeof(value));
  return value;
}

Record Random(std::mt19937_64& random, std::size_t size) {
  Record record(size);
  for (std::size_t at = 0; at < size; at += sizeof(std::uint64_t)) {
    const std::uint64_t word = random();
    std::memcpy(record.data() + at, &word, std::min(sizeof(word), size - at));
  }
  return record;
}

// An area between guard bytes.
class Area {
 public:
  explicit Area(std::size_t size) : size_(size), bytes_(kGuards + size + kGuards, kGuard) {}
  char* Start() { return bytes_.data() + kGuards; }

  // The text; it ends inside the area, and no byte is written behind its NUL or outside of the area.
  std::string Text() const {
    const auto start = bytes_.begin() + kGuards, end = start + static_cast<std::ptrdiff_t>(size_);
    const auto nul = std::find(start, end, '\0');
    EXPECT_TRUE(nul != end || size_ == 0) << "not terminated";
    EXPECT_EQ(std::count(bytes_.begin(), start, kGuard), kGuards);
    EXPECT_EQ(std::count(nul == end ? end : nul + 1, bytes_.end(), kGuard), bytes_.end() - nul - (nul != end));
    return {start, nul};
  }

 private:
  static constexpr std::ptrdiff_t kGuards = 32;
  static constexpr char kGuard = '#';

  std::size_t size_;
  std::vector<char> bytes_;
};

std::string FlowKeyLine(const Record& key) {
  char line[256];
  const unsigned vlan = key[13] * 16U + (key[12] >> 4);
  int at = std::snprintf(line, sizeof(line), "%02x:%02x:%02x:%02x:%02x:%02x  %02x:%02x:%02x:%02x:%02x:%02x  %-4u  %-7u",
                         key[0], key[1], key[2], key[3], key[4], key[5], key[6], key[7], key[8], key[9], key[10],
                         key[11], vlan, At<std::uint16_t>(key, 14) & 0x7FFFU);
  for (std::size_t place = 0; place < 2; ++place) {
    char address[46];
    if (key[12] & 2) {
      inet_ntop(AF_INET6, key.data() + 24 + 16 * place, address, sizeof(address));
    } else {
      const unsigned char* quad = key.data() + 24 + 4 * place;
      std::snprintf(address, sizeof(address), "%u.%u.%u.%u", quad[0], quad[1], quad[2], quad[3]);
    }
    at += std::snprintf(line + at, sizeof(line) - static_cast<std::size_t>(at), "  %-45s", address);
  }
  const bool icmp = key[23] == 1 || key[23] == 58;
  const auto first = At<std::uint16_t>(key, 16), second = At<std::uint16_t>(key, 18);
  std::snprintf(line + at, sizeof(line) - static_cast<std::size_t>(at), "  %-5u  %-7u  %-12u  %-12u", key[23],
                At<std::uint16_t>(key, 20) + key[22] * 65536U, icmp ? first : ntohs(first),
                icmp ? second : ntohs(second));
  return line;
}

TEST(FlowKey, EqualsItsPrint) {
  std::mt19937_64 random(3);
  for (int round = 0; round < 100000; ++round) {
    Record key = Random(random, 64);
    if (round % 4 == 0)
      key[23] = round % 8 == 0 ? 1 : 58;
    if (round % 3 == 0)  // addresses with runs of zeros
      std::memset(key.data() + 24, 0, random() % 33);
    if (round % 5 == 0) {  // and anywhere, some before an IPv4 address
      for (std::size_t at = 24; at < 56; at += 2) {
        if (random() % 2 == 0)
          std::memset(key.data() + at, 0, 2);
      }
      if (round % 2 == 0)
        std::memset(key.data() + 34, 0xFF, 2);
    }
    Area area(LIBRYN_FLOW_KEY_TEXT_SIZE);
    FCFlowKeyToStr(key.data(), area.Start());
    ASSERT_EQ(area.Text(), FlowKeyLine(key));
  }
}

// The actions line, step by step
std::pair<std::string, int> ActionsLine(const Record& actions, std::uint32_t size) {
  Prints line(size);
  const auto bitmap = At<std::uint32_t>(actions, 56);
  const auto pointer = [](std::uint64_t value) { return reinterpret_cast<void*>(value); };
  if (bitmap & 0x80) {
    line.Print("bmap:%p inval(s):%u cg:%p dp:%u len:%u; ", pointer(bitmap), At<std::uint32_t>(actions, 68),
               pointer(At<std::uint64_t>(actions, 8)), actions[64], At<std::uint16_t>(actions, 62));
  } else {
    line.Print("bmap:%p inval(s):%u cg:%p dp:- len:%u; ", pointer(bitmap), At<std::uint32_t>(actions, 68),
               pointer(At<std::uint64_t>(actions, 8)), At<std::uint16_t>(actions, 62));
  }
  static constexpr const char* kPlain[32] = {nullptr,
                                             nullptr,
                                             nullptr,
                                             "LRO; ",
                                             "IPFIX Ingress; ",
                                             nullptr,
                                             "DFW on srcPort; ",
                                             nullptr,
                                             "SP; ",
                                             nullptr,
                                             nullptr,
                                             "VR; ",
                                             nullptr,
                                             "PR; ",
                                             nullptr,
                                             nullptr,
                                             "GVLAN Insert; ",
                                             nullptr,
                                             nullptr,
                                             nullptr,
                                             nullptr,
                                             nullptr,
                                             "DECAP; ",
                                             "GVLAN Remove; ",
                                             nullptr,
                                             nullptr,
                                             "IPFIX Egress; ",
                                             "DFW on dstPort; "};
  for (std::uint32_t rest = bitmap; rest; rest &= rest - 1) {
    const int bit = __builtin_ctz(rest);
    if (line.IsFull())
      return {line.Text(), 1};
    if (kPlain[bit])
      line.Print("%s", kPlain[bit]);
    if (bit == 2)
      line.Print("KCPInputChildPort: %u; ", At<std::uint32_t>(actions, 114));
    if (bit == 5) {
      line.Print("DROP; ");
      return {line.Text(), 0};
    }
    if (bit == 10)
      line.Print("VI: %u; ", At<std::uint16_t>(actions, 74));
    if (bit == 12)
      line.Print("PI: %u; ", actions[72]);
    if (bit == 18) {
      line.Print("VDR inst: %u; ", actions[256]);
      for (unsigned i = 0; i < actions[256]; ++i) {
        if (line.IsFull())
          return {line.Text(), 1};
        line.Print("INST %u: 0x%x; ", i + 1, At<std::uint32_t>(actions, 274 + 32 * std::size_t{i}));
      }
    }
    if (bit == 20 || bit == 21)
      line.Print("VNI: %u; ", At<std::uint32_t>(actions, 76));
    if (bit == 21)
      line.Print("ENCAP VNI: %u; ", actions[244] * 65536U + actions[245] * 256U + actions[246]);
    if (bit == 28)
      line.Print("KCPOutputVLAN: %u; ", At<std::uint16_t>(actions, 118));
  }
  return {line.Text(), 0};
}

void ExpectActions(const Record& actions, std::uint32_t size) {
  Area area(size);
  const int result = FCActionsToStr(actions.data(), area.Start(), size, 0);
  const auto [line, expected] = ActionsLine(actions, size);
  ASSERT_EQ(area.Text(), line) << size;
  ASSERT_EQ(result, expected) << line;
}

Record RandomActions(std::mt19937_64& random, unsigned max_instances) {
  const auto instances = static_cast<unsigned char>(random() % (max_instances + 1));
  Record actions = Random(random, 274 + 32 * std::size_t{std::max<unsigned>(instances, 1)});
  actions[256] = instances;
  std::uint32_t bitmap = static_cast<std::uint32_t>(random());
  for (std::uint64_t thinning = random() % 4; thinning; --thinning)
    bitmap &= static_cast<std::uint32_t>(random());
  if (random() % 4)
    bitmap &= ~0x20U;  // without "DROP; ", which ends the line
  std::memcpy(actions.data() + 56, &bitmap, sizeof(bitmap));
  if (random() % 5 == 0)
    std::memset(actions.data() + 8, 0, 8);
  return actions;
}

TEST(Actions, EqualTheirPrints) {
  std::mt19937_64 random(4);
  for (int round = 0; round < 100000 && !HasFatalFailure(); ++round)
    ExpectActions(RandomActions(random, round % 8 ? 12 : 255),
                  round % 2 ? static_cast<std::uint32_t>(random() % 601) : 512);
}

TEST(Actions, EqualTheirPrintsAtEverySize) {
  std::mt19937_64 random(6);
  for (int round = 0; round < 40 && !HasFatalFailure(); ++round) {
    const Record actions = RandomActions(random, 20);
    for (std::uint32_t size = 0; size <= 600 && !HasFatalFailure(); ++size)
      ExpectActions(actions, size);
  }
}

TEST(Actions, EachBitAloneEqualsItsPrintsAtEverySize) {
  std::mt19937_64 random(7);
  for (int bit = 0; bit < 32; ++bit) {
    Record actions = RandomActions(random, 3);
    const std::uint32_t bitmap = 1U << bit;
    std::memcpy(actions.data() + 56, &bitmap, sizeof(bitmap));
    for (std::uint32_t size = 0; size <= 600 && !HasFatalFailure(); ++size)
      ExpectActions(actions, size);
  }
}

TEST(Statistics, EqualTheirPrint) {
  std::mt19937_64 random(5);
  for (int round = 0; round < 100000; ++round) {
    const Record actions = Random(random, 62);
    char expected[128] = "Not Applicable";
    if (actions[61] & 8)
      std::snprintf(expected, sizeof(expected), "pktsSinceLastFlush:%lu bytesSinceLastFlush:%lu",
                    At<std::uint64_t>(actions, 24), At<std::uint64_t>(actions, 40));
    const auto size = static_cast<std::uint32_t>(random() % 129);
    Area area(size);
    ASSERT_EQ(FCActionsStatsToStr(actions.data(), area.Start(), size), actions[61] & 8 ? 0 : 14);
    ASSERT_EQ(area.Text(), std::string(expected).substr(0, size > 0 ? size - 1 : 0));
  }
}

TEST(Flags, EqualTheirPrints) {
  static constexpr const char* kWords[] = {"UNICAST ",   "MULTICAST ", "ALLMULTI ",
                                           "BROADCAST ", "PROMISC ",   "USE_LADRF "};
  for (std::uint32_t flags = 0; flags < 256; ++flags) {
    std::string words;
    for (unsigned bit = 0; bit < 6; ++bit)
      if (flags >> bit & 1)
        words += kWords[bit];
    for (std::uint32_t size = 1; size < 70; ++size) {
      std::vector<char> text(size, '#');
      FlagsToStr(flags, text.data(), size);
      ASSERT_EQ(std::string(text.data()), words.substr(0, size - 1));
    }
  }
  char untouched = '#';
  FlagsToStr(0xFFFFFFFF, &untouched, 0);
  EXPECT_EQ(untouched, '#');
}

}  // namespace
