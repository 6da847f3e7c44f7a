#include "libryn/base/text.h"

Ref MacText(const std::uint8_t* mac) {
  Ref text(PyUnicode_New(kMacTextLength, 127));
  if (text)
    WriteMac(mac, reinterpret_cast<char*>(PyUnicode_1BYTE_DATA(text.get())));
  return text;
}

Ref AsciiText(std::string_view text) {
  Ref str(PyUnicode_New(static_cast<Py_ssize_t>(text.size()), 127));
  if (str)
    std::memcpy(PyUnicode_1BYTE_DATA(str.get()), text.data(), text.size());
  return str;
}

void BoundedText::AppendCut(std::string_view piece) {
  if (!IsFull())
    std::memcpy(area_ + length_, piece.data(), std::min(piece.size(), capacity_ - length_));
  length_ += piece.size();
}

void BoundedText::AppendPaddedOrCut(std::string_view piece, std::size_t blanks) {
  AppendBlanks(blanks);
  AppendCut(piece);
}

void BoundedText::AppendBlanks(std::size_t count) {
  if (!IsFull())
    std::memset(area_ + length_, ' ', std::min(count, capacity_ - length_));
  length_ += count;
}

std::string_view BoundedText::Terminate() {
  if (capacity_ == 0)
    return {};
  const std::size_t length = std::min(length_, capacity_ - 1);
  area_[length] = '\0';
  return {area_, length};
}
