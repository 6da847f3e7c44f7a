// The chain of bounded prints that the module's texts stand for: each gets the room that is left.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

class Prints {
 public:
  explicit Prints(std::size_t size) : area_(size + 1), size_(size) {}

  [[gnu::format(printf, 2, 3)]] void Print(const char* format, ...) {
    const std::size_t at = IsFull() ? size_ : length_;
    std::va_list values;
    va_start(values, format);
    length_ += static_cast<std::size_t>(std::vsnprintf(area_.data() + at, size_ - at, format, values));
    va_end(values);
  }

  bool IsFull() const { return length_ >= size_; }
  std::size_t Length() const { return length_; }  // as reported, past the end too
  std::string Text() const { return area_.data(); }

 private:
  std::vector<char> area_;
  std::size_t size_;
  std::size_t length_ = 0;
};
