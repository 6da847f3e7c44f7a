#include "simhost/libs/dvs_config.h"

#include <algorithm>
#include <cstring>

namespace simhost {

namespace {

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

struct StoredData {
  std::string scope;
  std::string name;
  std::string value;
};

}  // namespace

std::string SerializeConfig(Store& store) {
  Writer out;
  out.Raw(kMagic);
  Statement count = store.Prepare("SELECT count(*) FROM dvs");
  count.Step();
  out.Word(static_cast<std::uint64_t>(count.Int(0)));

  Statement switches = store.Prepare("SELECT switch_id, alias, class FROM dvs ORDER BY switch_id");
  Statement props = store.Prepare(
      "SELECT scope, key, value FROM prop WHERE switch_id = ? AND scope IN ('host', 'global') ORDER BY scope, key");
  Statement ports = store.Prepare("SELECT dvport FROM port JOIN sw USING (sw) WHERE switch_id = ? ORDER BY dvport");
  while (switches.Step()) {
    const std::string id = switches.Text(0);
    out.Text(id);
    out.Text(switches.Text(1));
    out.Text(switches.Text(2));
    std::vector<StoredData> data;
    props.Bind(std::string_view(id));
    while (props.Step()) {
      const std::span<const std::uint8_t> value = props.Blob(2);
      data.push_back({props.Text(0), props.Text(1), std::string(value.begin(), value.end())});
    }
    props.Reset();
    out.Word(data.size());
    for (const StoredData& datum : data) {
      out.Text(datum.scope);
      out.Text(datum.name);
      out.Text(datum.value);
    }
    std::vector<std::int64_t> numbers;
    ports.Bind(std::string_view(id));
    while (ports.Step())
      numbers.push_back(ports.Int(0));
    ports.Reset();
    out.Word(numbers.size());
    for (const std::int64_t number : numbers)
      out.Word(static_cast<std::uint64_t>(number));
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
    std::memcpy(dvs.id.data(), id.data(), std::min(id.size(), dvs.id.size() - 1));
    dvs.alias = in.Text();
    dvs.class_name = in.Text();
    const std::uint32_t props = in.Word();
    for (std::uint32_t p = 0; p < props && in.ok(); ++p) {
      std::vector<ConfigData>& scope = in.Text() == "host" ? dvs.host : dvs.global;
      const std::string_view name = in.Text();
      scope.push_back({std::string(name), std::string(in.Text())});
    }
    const std::uint32_t ports = in.Word();
    for (std::uint32_t p = 0; p < ports && in.ok(); ++p)
      dvs.ports.push_back(in.Word());
  }
  if (!in.ok() || !in.at_end())
    return std::nullopt;
  return config;
}

}  // namespace simhost
