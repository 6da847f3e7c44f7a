#include "script.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "call.h"
#include "double.h"

namespace {

constexpr std::size_t kPage = 4096;

// The readable pages of a block of this size: at least one, so that its end can be told from its address.
std::size_t ReadableSize(std::size_t size) { return (size / kPage + 1) * kPage; }

PageEnd AtPageEnd(const void* bytes, std::size_t size) {
  const std::size_t readable = ReadableSize(size);
  void* const pages = mmap(nullptr, readable + kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (pages == MAP_FAILED)
    std::abort();
  auto* const end = static_cast<unsigned char*>(pages) + readable;
  if (mprotect(end, kPage, PROT_NONE) != 0)
    std::abort();
  if (size)
    std::memcpy(end - size, bytes, size);
  return {end - size, {size}};
}

Answer MakeAnswer(std::uint32_t status, std::int64_t length, const void* area, std::size_t size, bool overrun) {
  const auto* bytes = static_cast<const unsigned char*>(area);
  return {status, length, bytes != nullptr, overrun,
          bytes ? std::vector(bytes, bytes + size) : std::vector<unsigned char>()};
}

void Stand(Double& d, const char* operation, Answer answer) {
  d.scripts[operation].standing = std::make_unique<Answer>(std::move(answer));
}

unsigned char HexDigit(char c) { return static_cast<unsigned char>(c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10); }

void ScriptTheLoad(Double& d, std::string_view settings) {
  while (!settings.empty()) {
    const auto end = settings.find(',');
    const std::string setting(settings.substr(0, end));
    settings.remove_prefix(end == settings.npos ? settings.size() : end + 1);
    const auto equals = setting.find('=');
    const auto name = setting.substr(0, equals), value = equals == setting.npos ? "" : setting.substr(equals + 1);
    const auto status = static_cast<std::uint32_t>(std::strtoul(value.c_str(), nullptr, 0));
    if (name == "reset") {
      Stand(d, "DVSState_ConfigReset", MakeAnswer(status, -1, nullptr, 0, false));
    } else if (name == "stateget") {
      auto& standing = d.scripts["DVSQOB_StateGet"].standing;
      if (!standing)
        standing = std::make_unique<Answer>();
      standing->status = status;
    } else if (name == "deserialize") {
      Stand(d, "DVSState_ConfigDeserialize", MakeAnswer(status, -1, nullptr, 0, false));
    } else if (name == "state") {
      auto& standing = d.scripts["DVSQOB_StateGet"].standing;
      if (!standing)
        standing = std::make_unique<Answer>();
      standing->fills = true;
      for (std::size_t i = 0; i + 1 < value.size(); i += 2)
        standing->area.push_back(static_cast<unsigned char>(HexDigit(value[i]) << 4 | HexDigit(value[i + 1])));
    } else if (name == "log") {
      d.log_hooks = status != 0;
    } else {
      std::abort();  // a test that misspells a setting tests nothing
    }
  }
}

void AppendNumber(std::string& out, std::uint64_t value) {
  char digits[20];
  int n = 0;
  do {
    digits[n++] = static_cast<char>('0' + value % 10);
  } while (value /= 10);
  while (n)
    out += digits[--n];
}

bool AllZero(const void* area, std::size_t size) {
  const auto* bytes = static_cast<const unsigned char*>(area);
  return size == 0 || (bytes[0] == 0 && std::memcmp(bytes, bytes + 1, size - 1) == 0);
}

}  // namespace

void Unmap::operator()(unsigned char* bytes) const {
  munmap(bytes + size - ReadableSize(size), ReadableSize(size) + kPage);
}

Double& TheDouble() {
  static Double* const the_double = [] {
    auto* made = new Double;
    if (const char* settings = std::getenv("RYN_DOUBLE_LOAD"))
      ScriptTheLoad(*made, settings);
    return made;
  }();
  return *the_double;
}

namespace {

std::deque<Property> Copy(const std::deque<Property>& properties) {
  std::deque<Property> copies;
  for (const Property& property : properties)
    copies.push_back({property.name, AtPageEnd(property.value.get(), property.size), property.size});
  return copies;
}

}  // namespace

void UnloadSwitches() {
  auto& d = TheDouble();
  for (const Switch& dvs : d.switches)
    d.unloaded.push_back({dvs.alias, dvs.class_name, dvs.identifier,
                          AtPageEnd(dvs.identifier.data(), dvs.identifier.size()), Copy(dvs.host), Copy(dvs.global)});
  d.switches.clear();
}

void LoadSwitches() {
  auto& d = TheDouble();
  if (!d.unloaded.empty())
    d.switches = std::move(d.unloaded);
  d.unloaded.clear();
}

void Call::RecordOperation(const char* operation) {
  auto& calls = TheDouble().calls;
  calls += R"({"op": ")";
  calls += operation;
  calls += R"(", "args": {)";
}

void Call::RecordEnd() { TheDouble().calls += "}}\n"; }

namespace {

void Hold(int entered, int go_on) {
  char byte = 0;
  if (write(entered, &byte, 1) != 1 || read(go_on, &byte, 1) < 0)
    std::abort();
}

}  // namespace

void Call::NextOf(Script& script) {
  auto& counted = script.counted;
  while (!counted.empty() && counted.front().left == 0)  // kept until now because its last call used it
    counted.pop_front();
  if (counted.empty())
    return;
  if (counted.front().entered >= 0) {
    const auto [answer, left, entered, go_on] = std::move(counted.front());
    counted.pop_front();
    Hold(entered, go_on);
    answer_ = script.standing.get();
    return NextOf(script);
  }
  --counted.front().left;
  answer_ = &counted.front().answer;
}

void Call::Name(const char* name) {
  auto& calls = TheDouble().calls;
  if (calls.back() != '{')
    calls += ", ";
  calls += '"';
  calls += name;
  calls += "\": ";
}

void Call::Hex(const char* kind, const void* bytes, std::size_t size) {
  auto& calls = TheDouble().calls;
  calls += "{\"";
  calls += kind;
  calls += "\": \"";
  for (std::size_t i = 0; i < size; ++i) {
    const unsigned byte = static_cast<const unsigned char*>(bytes)[i];
    calls += "0123456789abcdef"[byte >> 4];
    calls += "0123456789abcdef"[byte & 15];
  }
  calls += "\"}";
}

void Call::RecordNumber(const char* name, std::uint64_t value) {
  Name(name);
  AppendNumber(TheDouble().calls, value);
}

Call& Call::Numbers(const char* name, const std::uint32_t* values, std::size_t count) {
  if (recording_) {
    Name(name);
    auto& calls = TheDouble().calls;
    calls += '[';
    for (std::size_t i = 0; i < count; ++i) {
      if (i)
        calls += ", ";
      AppendNumber(calls, values[i]);
    }
    calls += ']';
  }
  return *this;
}

Call& Call::Text(const char* name, const char* text, std::size_t bound) {
  if (recording_) {
    Name(name);
    if (text)
      Hex("text", text, bound == SIZE_MAX ? std::strlen(text) : strnlen(text, bound));
    else
      TheDouble().calls += "null";
  }
  return *this;
}

Call& Call::Bytes(const char* name, const void* bytes, std::size_t size) {
  if (recording_) {
    Name(name);
    if (bytes)
      Hex("bytes", bytes, size);
    else
      TheDouble().calls += "null";
  }
  return *this;
}

void Call::Fill(void* area, std::size_t room) {
  if (recording_) {
    Name("zeroed");
    TheDouble().calls += AllZero(area, room) ? "true" : "false";
  }
  if (answer_ && answer_->fills && !answer_->area.empty()) {
    const auto size = answer_->area.size();
    std::memcpy(area, answer_->area.data(), size <= room || answer_->overrun ? size : room);
  }
}

Call& Call::Area(void* area, std::size_t room) {
  Fill(area, room);
  return *this;
}

Call& Call::Area(void* area, std::uint32_t* length) {
  Number("length", *length);
  Fill(area, *length);
  if (answer_ && answer_->length >= 0)
    *length = static_cast<std::uint32_t>(answer_->length);
  return *this;
}

bool Call::Block(void** block, std::uint32_t* length) {
  const bool hands_out = answer_ && answer_->fills;
  if (hands_out) {
    const auto& area = answer_->area;
    *block = std::malloc(area.size());
    if (!area.empty())
      std::memcpy(*block, area.data(), area.size());
    *length = static_cast<std::uint32_t>(area.size());
  }
  if (answer_ && answer_->length >= 0)
    *length = static_cast<std::uint32_t>(answer_->length);
  return hands_out;
}

extern "C" {

void double_reset() {
  auto& d = TheDouble();
  auto scripts = std::move(d.scripts);  // which the operations know by address
  for (auto& [operation, script] : scripts)
    script = Script();
  d = Double();
  d.scripts = std::move(scripts);
}

void double_answer(const char* operation, const DoubleAnswer* answer) {
  auto& script = TheDouble().scripts[operation];
  auto made = MakeAnswer(answer->status, answer->length, answer->area, answer->size, answer->overrun != 0);
  if (answer->times < 0)
    script.standing = std::make_unique<Answer>(std::move(made));
  else
    script.counted.push_back({std::move(made), answer->times});
}

void double_hold(const char* operation, int entered, int go_on) {
  TheDouble().scripts[operation].counted.push_back({{}, 1, entered, go_on});
}

void double_recording(int on) { TheDouble().recording = on != 0; }
const char* double_calls() { return TheDouble().calls.c_str(); }
void double_forget_calls() { TheDouble().calls.clear(); }

int double_add_switch(const char* alias, const char* class_name, const void* id, size_t id_size) {
  LoadSwitches();
  auto& switches = TheDouble().switches;
  auto& added = switches.emplace_back();
  added.alias = alias;
  added.class_name = class_name;
  constexpr std::size_t kReadable = 64;
  added.identifier.assign(static_cast<const char*>(id), id_size);
  added.identifier.resize(std::max(id_size, kReadable));
  added.id = AtPageEnd(added.identifier.data(), added.identifier.size());
  return static_cast<int>(switches.size() - 1);
}

void double_add_property(int dvs, int global, const char* name, const void* value, size_t size) {
  auto& owner = TheDouble().switches.at(static_cast<std::size_t>(dvs));
  (global ? owner.global : owner.host).push_back({name, AtPageEnd(value, size), static_cast<std::uint32_t>(size)});
}

void double_visit_all(int on) { TheDouble().visit_all = on != 0; }
void double_find_port(int on) { TheDouble().find_port = on != 0; }
void double_log_hooks(int on) { TheDouble().log_hooks = on != 0; }
uint64_t double_blocks_out() { return TheDouble().blocks_out; }
uint64_t double_blocks_freed() { return TheDouble().blocks_freed; }

}  // extern "C"
