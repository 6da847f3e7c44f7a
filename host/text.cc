#include "host/text.h"

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
