#include "simhost/libs/dvs_config.h"

#include <algorithm>
#include <cstring>
#include <map>

#include "simhost/host/rows.h"

namespace simhost {

namespace {

// Its own form, which only this library reads. Words are 32 bits, little-endian; a text is its length and its bytes:
//
//     magic, switches, for each: identifier, alias, class,
//         properties, for each: scope, key, value,
//         ports, for each: number
constexpr std::string_view kMagic = "DVSCFG1\n";

class Writer {
 public:
  void Word(std::uint64_t value) {
    for (int shift = 0; shift < 32; shift += 8)
      bytes_ += static_cast<char>(value >> shift & 0xFF);
  }
  void Text(std::string_view text) {
    Word(text.size());
    bytes_ += text;
  }
  void Raw(std::string_view text) { bytes_ += text; }
  std::string Take() { return std::move(bytes_); }

 private:
  std::string bytes_;
};

// Reads what a Writer wrote. After the first thing that is not there, everything is empty and ok() is false.
class Reader {
 public:
  explicit Reader(std::string_view bytes) : rest_(bytes) {}

  bool ok() const { return ok_; }
  bool at_end() const { return rest_.empty(); }
  std::string_view Raw(std::size_t size) {
    if (!ok_ || size > rest_.size()) {
      ok_ = false;
      return {};
    }
    const std::string_view part = rest_.substr(0, size);
    rest_.remove_prefix(size);
    return part;
  }
  std::uint32_t Word() {
    std::uint32_t value = 0;
    const std::string_view bytes = Raw(4);
    for (std::size_t i = 0; i < bytes.size(); ++i)
      value |= static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[i])) << (8 * i);
    return value;
  }
  std::string_view Text() { return Raw(Word()); }

 private:
  std::string_view rest_;
  bool ok_ = true;
};

}  // namespace

// Properties of ports are not in it: they are asked for one by one, as they are now. Switches without a datapath are.
std::string SerializeConfig(Store& store) {
  std::map<std::string, std::vector<PropertyRow>> properties;  // by switch, as the store orders them
  ForEach<PropertyRow>(store, [&](PropertyRow& row, const RowReader&) {
    if (row.scope != PropertyScope::kPort)
      properties[row.switch_id].push_back(std::move(row));
  });
  std::map<int, std::string> switch_ids;
  ForEach<SwitchRow>(store, [&](const SwitchRow& row, const RowReader&) { switch_ids[row.id] = row.switch_id; });
  std::map<std::string, std::vector<std::uint32_t>> ports;
  ForEach<PortRow>(store,
                   [&](const PortRow& row, const RowReader&) { ports[switch_ids[row.sw]].push_back(row.dvport); });

  Writer out;
  out.Raw(kMagic);
  std::vector<DvsRow> switches;
  ForEach<DvsRow>(store, [&](const DvsRow& row, const RowReader&) { switches.push_back(row); });
  out.Word(switches.size());
  for (const DvsRow& dvs : switches) {
    out.Text(dvs.switch_id);
    out.Text(dvs.alias);
    out.Text(dvs.class_name);
    const std::vector<PropertyRow>& own = properties[dvs.switch_id];
    out.Word(own.size());
    for (const PropertyRow& property : own) {
      out.Text(TextOf(property.scope));
      out.Text(property.key);
      out.Text({reinterpret_cast<const char*>(property.value.data()), property.value.size()});
    }
    std::vector<std::uint32_t>& numbers = ports[dvs.switch_id];
    std::sort(numbers.begin(), numbers.end());
    out.Word(numbers.size());
    for (const std::uint32_t number : numbers)
      out.Word(number);
  }
  return out.Take();
}

std::optional<Config> DeserializeConfig(std::string_view bytes) {
  Reader in(bytes);
  if (in.Raw(kMagic.size()) != kMagic)
    return std::nullopt;
  Config config;
  const std::uint32_t switches = in.Word();
  for (std::uint32_t i = 0; i < switches && in.ok(); ++i) {
    ConfigSwitch& dvs = config.emplace_back();
    const std::string_view id = in.Text();
    // Cut to the room there is, a NUL behind it at least.
    std::memcpy(dvs.id.data(), id.data(), std::min(id.size(), dvs.id.size() - 1));
    dvs.alias = in.Text();
    dvs.class_name = in.Text();
    const std::uint32_t props = in.Word();
    for (std::uint32_t p = 0; p < props && in.ok(); ++p) {
      std::vector<ConfigData>& scope = in.Text() == TextOf(PropertyScope::kHost) ? dvs.host : dvs.global;
      const std::string_view name = in.Text();
      scope.push_back({std::string(name), std::string(in.Text())});
    }
    const std::uint32_t ports = in.Word();
    for (std::uint32_t p = 0; p < ports && in.ok(); ++p)
      dvs.ports.push_back(in.Word());
  }
  if (!in.ok() || !in.at_end())  // bytes left over are as wrong as bytes missing
    return std::nullopt;
  return config;
}

}  // namespace simhost
