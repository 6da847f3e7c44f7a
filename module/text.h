// Text of fixed layout, composed without allocation.
#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "module/values.h"

constexpr std::size_t kMacTextLength = 17;

// Writes the 17 characters "02:00:00:0a:0b:fc", no NUL, of the 6 bytes of a MAC address.
void WriteMac(const std::uint8_t* mac, char* out);

// The same as a str; null with Python's error set.
Ref MacText(const std::uint8_t* mac);

// The digits of a number, for Append and its kin.
class Digits {
 public:
  template <class Number>
  Digits(Number value, int base) {
    length_ = static_cast<std::size_t>(std::to_chars(digits_, digits_ + sizeof(digits_), value, base).ptr - digits_);
  }
  operator std::string_view() const { return {digits_, length_}; }

 private:
  char digits_[20];  // the longest: 64 bits in decimal
  std::size_t length_;
};

inline Digits Decimal(std::uint64_t value) { return {value, 10}; }
inline Digits SignedDecimal(std::int32_t value) { return {value, 10}; }
inline Digits Hex(std::uint64_t value) { return {value, 16}; }

// Text written piece by piece into an area of the caller. What does not fit is cut off, but counted, just as a chain
// of bounded prints would do it.
class BoundedText {
 public:
  BoundedText(char* area, std::size_t capacity) : area_(area), capacity_(capacity) {}

  void Append(std::string_view piece);
  void AppendLeft(std::string_view piece, std::size_t width);   // padded with blanks behind it
  void AppendRight(std::string_view piece, std::size_t width);  // padded with blanks before it

  // Ends the text with a NUL, which takes the last place of a full area. Does nothing to an area of size 0.
  void Terminate();

  std::size_t Length() const { return length_; }  // as if there were no end
  bool IsFull() const { return length_ >= capacity_; }
  std::string_view View() const { return {area_, length_ < capacity_ ? length_ : capacity_}; }

 private:
  void AppendBlanks(std::size_t count);

  char* area_;
  std::size_t capacity_;
  std::size_t length_ = 0;
};
