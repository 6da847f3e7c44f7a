// Scripts the double for the tests of host/. Answers are written by offset, from the layouts that the platform
// documents, never with the structs under test.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "double.h"

class Bytes {
 public:
  explicit Bytes(std::size_t size, unsigned char fill = 0) : bytes_(size, fill) {}

  Bytes& U8(std::size_t at, std::uint8_t value) { return Integer(at, value, 1); }
  Bytes& U16(std::size_t at, std::uint16_t value) { return Integer(at, value, 2); }
  Bytes& U32(std::size_t at, std::uint32_t value) { return Integer(at, value, 4); }
  Bytes& U64(std::size_t at, std::uint64_t value) { return Integer(at, value, 8); }
  Bytes& Text(std::size_t at, std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i)
      bytes_.at(at + i) = static_cast<unsigned char>(text[i]);
    return *this;
  }

  const unsigned char* Data() const { return bytes_.data(); }
  std::size_t Size() const { return bytes_.size(); }

 private:
  Bytes& Integer(std::size_t at, std::uint64_t value, std::size_t width) {
    for (std::size_t i = 0; i < width; ++i)
      bytes_.at(at + i) = static_cast<unsigned char>(value >> 8 * i);
    return *this;
  }

  std::vector<unsigned char> bytes_;
};

// The double forgets all scripts, switches and calls before each test.
class HostTest : public testing::Test {
 protected:
  HostTest() { double_reset(); }

  // Every further call answers these bytes, or this status; with `times`, the next calls.
  static void Answer(const char* operation, const Bytes& bytes, std::int32_t times = -1, std::int64_t length = -1) {
    const DoubleAnswer answer = {0, times, bytes.Data(), bytes.Size(), length, 0};
    double_answer(operation, &answer);
  }
  static void Fail(const char* operation, std::uint32_t status, std::int32_t times = -1) {
    const DoubleAnswer answer = {status, times, nullptr, 0, -1, 0};
    double_answer(operation, &answer);
  }

  // The calls since the last look, one a line: OPERATION {ARGUMENTS as JSON}.
  static std::string Calls() {
    std::string calls = double_calls();
    double_forget_calls();
    return calls;
  }

  static int AddSwitch(std::string_view alias, std::string_view id, const char* className = "vswitch") {
    return double_add_switch(std::string(alias).c_str(), className, id.data(), id.size());
  }
  static void AddPortset(int dvs, std::string_view text) {
    double_add_property(dvs, 0, "com.talvor.common.host.portset", text.data(), text.size());
  }
  static void AddAlias(int dvs, std::string_view text) {
    double_add_property(dvs, 1, "com.talvor.common.alias", text.data(), text.size());
  }
};
