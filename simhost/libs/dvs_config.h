// The distributed switches as one process knows them: a copy made when the configuration was loaded. What changes on
// the host afterwards does not show here.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "simhost/host/store.h"

namespace simhost {

struct ConfigData {
  std::string name;
  std::string value;  // followed by a NUL, so that a text without one of its own may be read
};

struct ConfigSwitch {
  std::array<char, 128> id{};  // readers copy 64 bytes whatever its length
  std::string alias;
  std::string class_name;
  std::vector<ConfigData> host;
  std::vector<ConfigData> global;
  std::vector<std::uint32_t> ports;  // numbers of distributed ports
};

using Config = std::vector<ConfigSwitch>;

// The switch-state store as one block of bytes, and back. Nothing: the bytes are not such a block.
std::string SerializeConfig(Store& store);
std::optional<Config> DeserializeConfig(std::string_view bytes);

}  // namespace simhost
