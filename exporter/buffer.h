// Text written straight into one block of memory, which is used again for the next.
#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

class Buffer {
 public:
  // Makes room for `size` more bytes; what is added until then is not checked.
  void Reserve(std::size_t size) {
    if (room_ - size_ < size)
      Grow(size);
  }

  void Add(std::string_view text) {
    std::memcpy(bytes_.get() + size_, text.data(), text.size());
    size_ += text.size();
  }
  void Add(char character) { bytes_.get()[size_++] = character; }
  void AddNumber(std::uint64_t number) {  // 20 bytes at most
    char* const at = bytes_.get() + size_;
    size_ += static_cast<std::size_t>(std::to_chars(at, at + 20, number).ptr - at);
  }
  void AddReal(double number) {  // 32 bytes at most
    char* const at = bytes_.get() + size_;
    size_ += static_cast<std::size_t>(std::to_chars(at, at + 32, number).ptr - at);
  }

  void Clear() { size_ = 0; }
  std::string_view Text() const { return {bytes_.get(), size_}; }
  std::size_t Size() const { return size_; }
  std::size_t Room() const { return room_; }

  // The unused rest, and taking what was written there
  char* End() { return bytes_.get() + size_; }
  void Extend(std::size_t size) { size_ += size; }

 private:
  void Grow(std::size_t size) {
    const std::size_t room = size_ + size + (size_ + size) / 4;
    auto* const grown = static_cast<char*>(std::realloc(bytes_.get(), room));
    if (!grown)
      throw std::bad_alloc();
    static_cast<void>(bytes_.release());
    bytes_.reset(grown);
    room_ = room;
  }

  struct Free {
    void operator()(char* bytes) const { std::free(bytes); }
  };
  std::unique_ptr<char, Free> bytes_;
  std::size_t size_ = 0;
  std::size_t room_ = 0;
};
