#include "module/text.h"

#include <algorithm>
#include <cstring>

void WriteMac(const std::uint8_t* mac, char* out) {
  static constexpr char kHexDigits[] = "0123456789abcdef";
  for (int i = 0; i < 6; ++i) {
    if (i > 0)
      *out++ = ':';
    *out++ = kHexDigits[mac[i] >> 4];
    *out++ = kHexDigits[mac[i] & 0x0F];
  }
}

Ref MacText(const std::uint8_t* mac) {
  Ref text(PyUnicode_New(kMacTextLength, 127));
  if (text)
    WriteMac(mac, reinterpret_cast<char*>(PyUnicode_1BYTE_DATA(text.get())));
  return text;
}

void BoundedText::Append(std::string_view piece) {
  if (!IsFull())
    std::memcpy(area_ + length_, piece.data(), std::min(piece.size(), capacity_ - length_));
  length_ += piece.size();
}

void BoundedText::AppendLeft(std::string_view piece, std::size_t width) {
  Append(piece);
  AppendBlanks(width - std::min(width, piece.size()));
}

void BoundedText::AppendRight(std::string_view piece, std::size_t width) {
  AppendBlanks(width - std::min(width, piece.size()));
  Append(piece);
}

void BoundedText::AppendBlanks(std::size_t count) {
  if (!IsFull())
    std::memset(area_ + length_, ' ', std::min(count, capacity_ - length_));
  length_ += count;
}

void BoundedText::Terminate() {
  if (capacity_ > 0)
    area_[std::min(length_, capacity_ - 1)] = '\0';
}
