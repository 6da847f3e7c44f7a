// Text as Python strs.
#pragma once

#include <cstdint>
#include <string_view>

#include "host/text.h"
#include "libryn/base/values.h"

// A MAC address (WriteMac) as a str; null with Python's error set.
Ref MacText(const std::uint8_t* mac);

// A str of characters below 128, which need no decoding; null with Python's error set.
Ref AsciiText(std::string_view text);
