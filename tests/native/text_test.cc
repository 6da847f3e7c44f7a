#include "libryn/base/text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "host/native.h"
#include "prints.h"

namespace {

// A text area of exact size on the heap, so that a sanitizer sees a write past it
struct Area {
  explicit Area(std::size_t size) : bytes(size, '#') { bytes.shrink_to_fit(); }
  std::vector<char> bytes;
};

TEST(BoundedText, EqualsAChainOfBoundedPrints) {
  std::mt19937_64 random(1);
  for (int round = 0; round < 20000; ++round) {
    const std::size_t size = 1 + random() % 80;
    Area area(size);
    BoundedText text(area.bytes.data(), size);
    Prints prints(size);
    for (int piece = 0; piece < 6; ++piece) {
      const std::uint64_t value = random() >> random() % 64;
      const auto small = static_cast<std::int32_t>(static_cast<std::uint32_t>(value));
      const int width = static_cast<int>(random() % 20);
      switch (random() % 5) {
        case 0:
          text.Append(Decimal(value));
          prints.Print("%lu", value);
          break;
        case 1:
          text.AppendRight(Decimal(value), static_cast<std::size_t>(width));
          prints.Print("%*lu", width, value);
          break;
        case 2:
          text.AppendRight(SignedDecimal(small), static_cast<std::size_t>(width));
          prints.Print("%*d", width, small);
          break;
        case 3:
          text.AppendRight(Hex(value), static_cast<std::size_t>(width));
          prints.Print("%*lx", width, value);
          break;
        default:
          text.Append("piece; ");
          prints.Print("piece; ");
      }
      ASSERT_EQ(text.Length(), prints.Length());
      ASSERT_EQ(text.IsFull(), prints.IsFull());
    }
    ASSERT_EQ(text.View(), std::string_view(area.bytes.data(), std::min(size, prints.Length())));
    text.Terminate();
    ASSERT_EQ(std::string(area.bytes.data()), prints.Text());
  }
}

TEST(BoundedText, LeavesAnAreaOfSizeZeroAlone) {
  char byte = '#';
  BoundedText text(&byte, 0);
  text.Append("abc");
  text.AppendRight("abc", 10);
  text.Terminate();
  EXPECT_EQ(byte, '#');
  EXPECT_EQ(text.Length(), 13U);
  EXPECT_TRUE(text.IsFull());
  EXPECT_EQ(text.View(), "");
}

TEST(BoundedText, TakesTheExtremes) {
  char area[64];
  BoundedText text(area, sizeof(area));
  text.Append(Decimal(~std::uint64_t{0}));
  text.Append(" ");
  text.Append(SignedDecimal(std::numeric_limits<std::int32_t>::min()));
  text.Append(" ");
  text.Append(Hex(~std::uint64_t{0}));
  EXPECT_EQ(text.View(), "18446744073709551615 -2147483648 ffffffffffffffff");
}

TEST(Mac, EqualsItsPrint) {
  std::mt19937_64 random(2);
  for (int round = 0; round < 20000; ++round) {
    std::uint8_t mac[6];
    for (auto& byte : mac)
      byte = static_cast<std::uint8_t>(random());
    char printed[18], written[18] = {};
    std::snprintf(printed, sizeof(printed), "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4],
                  mac[5]);
    WriteMac(mac, written);
    ASSERT_STREQ(written, printed);
    ASSERT_STREQ(PyUnicode_AsUTF8(MacText(mac).get()), printed);
  }
}

TEST(Load, ReadsAtAnyPosition) {
  const std::vector<unsigned char> bytes = {0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0xF8};
  EXPECT_EQ(Load<std::uint16_t>(bytes.data(), 1), 0x0201);
  EXPECT_EQ(Load<std::uint32_t>(bytes.data(), 3), 0x06050403U);
  EXPECT_EQ(Load<std::uint64_t>(bytes.data(), 1), 0xF807060504030201U);
  EXPECT_EQ(Load<std::int32_t>(bytes.data(), 5), static_cast<std::int32_t>(0xF8070605U));
}

TEST(View, ReadsAFieldThatIsThereAndZerosPastItsEnd) {
  const std::vector<unsigned char> bytes = {1, 2, 3, 4, 5, 6};
  const View view(bytes.data(), bytes.size());
  constexpr Field<std::uint32_t> kAt2 = {2};
  EXPECT_EQ(view.Get(kAt2), 0x06050403U);
  EXPECT_EQ(view.GetOrZero(kAt2), 0x06050403U);
  EXPECT_EQ(view.GetOrZero(kAt2, 1), 0x060504U);  // the last byte is missing
  EXPECT_EQ(view.GetOrZero(kAt2, 3), 0x06U);
  EXPECT_EQ(view.GetOrZero(kAt2, 4), 0U);
  EXPECT_EQ(view.GetOrZero(kAt2, std::size_t{1} << 40), 0U);
}

TEST(FieldText, EndsAtItsNulOrItsWidth) {
  const char terminated[8] = {'a', 'b', '\0', 'c'};
  EXPECT_EQ(FieldText(terminated), "ab");
  const char full[4] = {'a', 'b', 'c', 'd'};
  EXPECT_EQ(FieldText(full), "abcd");
}

}  // namespace
