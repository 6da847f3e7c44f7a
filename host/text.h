// Text of fixed layout, composed without allocation. What is called for each field of large tables is inline, so that
// pieces and widths that are constants cost a few moves.
#pragma once

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <system_error>

constexpr std::size_t kMacTextLength = 17;

// The two hexadecimal digits of each byte, and its one to three decimal ones.
inline constexpr auto kHexPairs = [] {
  constexpr char kDigits[] = "0123456789abcdef";
  std::array<std::array<char, 2>, 256> pairs = {};
  for (std::size_t byte = 0; byte < pairs.size(); ++byte)
    pairs[byte] = {kDigits[byte >> 4], kDigits[byte & 0x0F]};
  return pairs;
}();

struct Octet {
  char digits[3];
  std::uint8_t length;
};

inline constexpr auto kOctets = [] {
  std::array<Octet, 256> octets = {};
  for (int byte = 0; byte < 256; ++byte) {
    Octet& octet = octets[static_cast<std::size_t>(byte)];
    for (const int unit : {100, 10, 1}) {
      if (byte >= unit || unit == 1)
        octet.digits[octet.length++] = static_cast<char>('0' + byte / unit % 10);
    }
  }
  return octets;
}();

// Writes the 17 characters "02:00:00:0a:0b:fc", no NUL, of the 6 bytes of a MAC address.
inline void WriteMac(const std::uint8_t* mac, char* out) {
  std::memcpy(out, kHexPairs[mac[0]].data(), 2);
  for (int i = 1; i < 6; ++i) {
    out[3 * i - 1] = ':';
    std::memcpy(out + 3 * i, kHexPairs[mac[i]].data(), 2);
  }
}

// Numbers, for Append and its kin.
template <class Integer, int base>
struct Number {
  explicit Number(Integer number) : value(number) {}
  Integer value;
};

using Decimal = Number<std::uint64_t, 10>;
using SignedDecimal = Number<std::int32_t, 10>;
using Hex = Number<std::uint64_t, 16>;

// Text written piece by piece into an area of the caller. What does not fit is cut off, but counted, just as a chain
// of bounded prints would do it.
class BoundedText {
 public:
  BoundedText(char* area, std::size_t capacity) : area_(area), capacity_(capacity) {}

  void Append(std::string_view piece) {
    if (length_ + piece.size() > capacity_)
      return AppendCut(piece);
    std::memcpy(area_ + length_, piece.data(), piece.size());
    length_ += piece.size();
  }

  template <class Integer, int base>
  void Append(Number<Integer, base> number) {
    if (length_ + kMostDigits > capacity_)
      return AppendCut(Digits(number));
    length_ = static_cast<std::size_t>(Write(number, area_ + length_) - area_);
  }

  // Padded with blanks before it.
  void AppendRight(std::string_view piece, std::size_t width) {
    if (piece.size() > width || length_ + width > capacity_)
      return AppendPaddedOrCut(piece, width - std::min(width, piece.size()));
    std::memset(area_ + length_, ' ', width);
    length_ += width;
    std::memcpy(area_ + length_ - piece.size(), piece.data(), piece.size());
  }

  template <class Integer, int base>
  void AppendRight(Number<Integer, base> number, std::size_t width) {
    AppendRight(std::string_view(Digits(number)), width);
  }

  // Ends the text with a NUL, which takes the last place of a full area; the text before it. Does nothing to an area of
  // size 0.
  std::string_view Terminate();

  std::size_t Length() const { return length_; }  // as if there were no end
  bool IsFull() const { return length_ >= capacity_; }
  std::string_view View() const { return {area_, length_ < capacity_ ? length_ : capacity_}; }

 private:
  static constexpr std::size_t kMostDigits = 20;  // 64 bits in decimal

  template <class Integer, int base>
  static char* Write(Number<Integer, base> number, char* out) {
    return std::to_chars(out, out + kMostDigits, number.value, base).ptr;
  }

  class Digits {
   public:
    template <class Integer, int base>
    explicit Digits(Number<Integer, base> number)
        : length_(static_cast<std::size_t>(Write(number, digits_) - digits_)) {}
    operator std::string_view() const { return {digits_, length_}; }

   private:
    char digits_[kMostDigits];
    std::size_t length_;
  };

  void AppendCut(std::string_view piece);
  void AppendPaddedOrCut(std::string_view piece, std::size_t blanks);
  void AppendBlanks(std::size_t count);

  char* area_;
  std::size_t capacity_;
  std::size_t length_ = 0;
};
