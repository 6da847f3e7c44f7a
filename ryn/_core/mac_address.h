// MacAddress: six bytes.
#pragma once

#include <cstdint>

#include "ryn/_core/values.h"

namespace ryn {

struct MacAddress {
  PyObject head;
  std::uint8_t bytes[6];
};

constexpr std::size_t kMacTextLength = 17;

// Writes "02:00:00:0a:0b:fc", no NUL.
inline void WriteMacText(const std::uint8_t* mac, char* text) {
  constexpr char kDigits[] = "0123456789abcdef";
  for (int i = 0; i < 6; ++i) {
    text[3 * i] = kDigits[mac[i] >> 4];
    text[3 * i + 1] = kDigits[mac[i] & 0x0F];
    if (i < 5)
      text[3 * i + 2] = ':';
  }
}

extern PyTypeObject mac_address_type;

PyObject* NewMacAddress(const std::uint8_t* bytes);

// The bytes of an address, which may be a MacAddress, 6 bytes, or a text with colons or dashes. False with TypeError or
// ValueError.
bool ReadMacAddress(PyObject* address, std::uint8_t* bytes);

// The first bytes of an address, and how many they are: as above, or a text that ends in "*" after whole bytes.
bool ReadMacPattern(PyObject* pattern, std::uint8_t* bytes, std::size_t* length);

}  // namespace ryn
