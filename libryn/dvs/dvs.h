// The switch configuration store. Its entry points for native callers stand in include/libryn.h.
#pragma once

#include <cstdint>

constexpr std::uint32_t kNotFound = 0x0BAD0003;      // no such switch, no such property
constexpr std::uint32_t kBadParameter = 0x0BAD0007;  // bad parameter, or a switch of another class
