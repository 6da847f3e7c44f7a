// An answer in the caller's area, written field by field at its offset, little-endian, and never beyond the room that
// the caller said there is.
#pragma once

#include <algorithm>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "simhost/host/model.h"

namespace simhost {

class Area {
 public:
  Area() = default;
  Area(void* bytes, std::size_t room) : bytes_(static_cast<std::uint8_t*>(bytes)), room_(bytes != nullptr ? room : 0) {}
  // The room is *length when the call begins; Finish() stores the length of the answer there.
  Area(void* bytes, std::uint32_t* length) : Area(bytes, length != nullptr ? *length : 0) { length_ = length; }

  std::size_t room() const { return room_; }
  std::size_t used() const { return used_; }  // up to the last byte that was written
  std::uint8_t* bytes() const { return bytes_; }
  bool Fits(std::size_t offset, std::size_t size) const { return offset <= room_ && size <= room_ - offset; }
  std::size_t RoomFor(std::size_t offset, std::size_t size) const {
    return offset > room_ ? 0 : (room_ - offset) / size;
  }

  // Reports the length of the answer to the caller, whatever the status, and returns that status.
  std::uint32_t Finish(std::uint32_t status) {
    if (length_ != nullptr)
      *length_ = static_cast<std::uint32_t>(used_);
    return status;
  }

  void Clear(std::size_t size) { Zero(0, size); }
  void Zero(std::size_t offset, std::size_t size) {
    if (Fits(offset, size)) {
      std::memset(bytes_ + offset, 0, size);
      used_ = std::max(used_, offset + size);
    }
  }
  // A number as so many bits, least significant byte first; higher bits are dropped.
  void Put8(std::size_t offset, std::integral auto value) { Put(offset, static_cast<std::uint8_t>(value)); }
  void Put16(std::size_t offset, std::integral auto value) { Put(offset, static_cast<std::uint16_t>(value)); }
  void Put32(std::size_t offset, std::integral auto value) { Put(offset, static_cast<std::uint32_t>(value)); }
  void Put64(std::size_t offset, std::integral auto value) { Put(offset, static_cast<std::uint64_t>(value)); }
  void PutBytes(std::size_t offset, const void* from, std::size_t size) {
    if (Fits(offset, size)) {
      std::memcpy(bytes_ + offset, from, size);
      used_ = std::max(used_, offset + size);
    }
  }
  void PutMac(std::size_t offset, const Mac& mac) { PutBytes(offset, mac.data(), mac.size()); }
  // A text in a field of fixed width, filled up with NULs; at least one.
  void PutText(std::size_t offset, std::string_view text, std::size_t width) {
    if (!Fits(offset, width))
      return;
    std::memset(bytes_ + offset, 0, width);
    PutBytes(offset, text.data(), std::min(text.size(), width - 1));
    used_ = std::max(used_, offset + width);
  }

 private:
  template <class T>
  void Put(std::size_t offset, T value) {
    if (!Fits(offset, sizeof value))
      return;
    for (std::size_t i = 0; i < sizeof value; ++i)
      bytes_[offset + i] = static_cast<std::uint8_t>(value >> (8 * i));
    used_ = std::max(used_, offset + sizeof value);
  }

  std::uint8_t* bytes_ = nullptr;
  std::size_t room_ = 0;
  std::size_t used_ = 0;
  std::uint32_t* length_ = nullptr;
};

}  // namespace simhost
