// What every fuzz target works with: the input, exact areas on the heap, and what has to hold. Without the interpreter.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

using Bytes = std::vector<unsigned char>;

// The input, taken piece by piece; behind its end there are zeros.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : data_(data), left_(size) {}

  template <class T>
  T Take() {
    T value = 0;
    const std::size_t taken = left_ < sizeof(T) ? left_ : sizeof(T);
    std::memcpy(&value, data_, taken);
    Skip(taken);
    return value;
  }
  Bytes Take(std::size_t size);  // at most as many as are left
  Bytes Rest() { return Take(left_); }
  std::string TakeText(std::size_t most);  // up to a NUL, which is skipped

 private:
  void Skip(std::size_t size) {
    data_ += size;
    left_ -= size;
  }

  const std::uint8_t* data_;
  std::size_t left_;
};

// A copy of exactly its size on the heap, so that AddressSanitizer sees an access past its end.
class Exact {
 public:
  explicit Exact(const Bytes& bytes) : bytes_(new unsigned char[bytes.size()]) {
    if (!bytes.empty())
      std::memcpy(bytes_.get(), bytes.data(), bytes.size());
  }
  const unsigned char* get() const { return bytes_.get(); }

 private:
  std::unique_ptr<unsigned char[]> bytes_;
};

// An area of exactly `size` bytes for text, filled with a byte that no text holds.
class TextArea {
 public:
  explicit TextArea(std::size_t size) : size_(size), area_(new char[size]) {
    std::memset(area_.get(), kUnwritten, size);
  }
  char* get() { return area_.get(); }
  // The text up to its NUL, which has to be inside the area; nothing may be written behind it.
  std::string Text() const;

 private:
  static constexpr char kUnwritten = '\x7F';
  std::size_t size_;
  std::unique_ptr<char[]> area_;
};

// Little-endian integer of a record that may be shorter: what is missing counts as 0.
template <class T>
T At(const Bytes& bytes, std::size_t offset) {
  T value = 0;
  if (offset < bytes.size())
    std::memcpy(&value, bytes.data() + offset, std::min(sizeof(T), bytes.size() - offset));
  return value;
}

inline Bytes Resized(Bytes bytes, std::size_t size) {
  bytes.resize(size);
  return bytes;
}

// The rest of an input as an area whose counts at these places are made small, unless its first byte is kAsItIs:
// results of tens of thousands of values would take all the time.
template <class T>
Bytes TakeCounted(Input input, std::initializer_list<std::size_t> counts) {
  constexpr std::uint8_t kAsItIs = 0xFF;
  const bool as_it_is = input.Take<std::uint8_t>() == kAsItIs;
  Bytes area = input.Rest();
  for (const std::size_t at : counts) {
    if (!as_it_is && area.size() >= at + sizeof(T)) {
      const T small = At<T>(area, at) % 300;
      std::memcpy(area.data() + at, &small, sizeof(small));
    }
  }
  return area;
}

// Ends the process with what was expected when that does not hold.
void Expect(bool holds, const char* what);
void ExpectEqual(std::string_view found, std::string_view expected, const char* what);
