#include "simhost/host/row_reader.h"

#include <cstdio>

namespace simhost {

namespace {

// As a message names a column's type in the store.
const char* TypeName(int type) {
  switch (type) {
    case SQLITE_INTEGER:
      return "a number";
    case SQLITE_TEXT:
      return "a text";
    case SQLITE_BLOB:
      return "bytes";
    case SQLITE_NULL:
      return "NULL";
    default:
      return "a fraction";
  }
}

std::string Range(std::int64_t low, std::int64_t high) {
  return low == high ? std::to_string(low) : std::to_string(low) + " to " + std::to_string(high);
}

}  // namespace

// Messages go to a terminal: neither a store nor an environment may put control characters into them.
std::string Printable(std::string_view text) {
  constexpr std::size_t kMost = 60;
  std::string shown;
  for (const char c : text.substr(0, kMost)) {
    char escaped[8];
    std::snprintf(escaped, sizeof escaped, c >= ' ' && c <= '~' ? "%c" : "\\x%02x", static_cast<unsigned char>(c));
    shown += escaped;
  }
  return text.size() > kMost ? shown + "..." : shown;
}

// "port 0/12: vlan is 5000, expected 0 to 4095": the table, the row's key, the column. SQLite gives any type of key as
// text.
void RowReader::Refuse(const char* column, const std::string& what) const {
  std::string row;
  for (int key = 0; key < keys_; ++key)
    row += (row.empty() ? " " : "/") + Printable(statement_.Text(key));
  throw StoreError(std::string(table_) + row + ": " + column + " " + what);
}

// SQLite would convert a value of another type without a word, "12x" to 12 and NULL to 0.
void RowReader::Expect(const char* column, int type) const {
  if (const int found = statement_.Type(next_); found != type)
    Refuse(column, std::string("is ") + TypeName(found) + ", expected " + TypeName(type));
}

std::int64_t RowReader::CheckedNumber(const char* column, std::int64_t low, std::int64_t high) {
  Expect(column, SQLITE_INTEGER);
  const std::int64_t value = statement_.Int(next_);
  if (value < low || value > high)  // the limits are within those of the field that the caller casts to
    Refuse(column, "is " + std::to_string(value) + ", expected " + Range(low, high));
  ++next_;
  return value;
}

void RowReader::Text(const char* column, std::int64_t low, std::int64_t high, std::string& field) {
  Expect(column, SQLITE_TEXT);
  field = statement_.Text(next_);
  const auto size = static_cast<std::int64_t>(field.size());
  if (size < low || size > high)
    Refuse(column, "has " + std::to_string(size) + " bytes, expected " + Range(low, high));
  if (field.find('\0') != std::string::npos)  // C texts are made of it
    Refuse(column, "has a NUL in it");
  ++next_;
}

std::size_t RowReader::CheckedChoice(const char* column, std::span<const std::string_view> texts) {
  Expect(column, SQLITE_TEXT);
  const std::string text = statement_.Text(next_);
  const auto found = std::find(texts.begin(), texts.end(), text);
  if (found == texts.end())
    Refuse(column, "is \"" + Printable(text) + "\", which is not known");
  ++next_;
  return static_cast<std::size_t>(found - texts.begin());
}

// The bytes are SQLite's, and hold until the statement's next step.
std::span<const std::uint8_t> RowReader::CheckedBytes(const char* column, std::int64_t low, std::int64_t high) {
  Expect(column, SQLITE_BLOB);
  const std::span<const std::uint8_t> bytes = statement_.Blob(next_);
  const auto size = static_cast<std::int64_t>(bytes.size());
  if (size < low || size > high)
    Refuse(column, "has " + std::to_string(size) + " bytes, expected " + Range(low, high));
  ++next_;
  return bytes;
}

void RowReader::Bytes(const char* column, std::int64_t low, std::int64_t high, std::vector<std::uint8_t>& field) {
  const std::span<const std::uint8_t> bytes = CheckedBytes(column, low, high);
  field.assign(bytes.begin(), bytes.end());
}

void RowReader::Bytes(const char* column, std::int64_t low, std::int64_t high, Mac& field) {
  const std::span<const std::uint8_t> bytes = CheckedBytes(column, low, high);
  std::copy_n(bytes.begin(), std::min(bytes.size(), field.size()), field.begin());
}

}  // namespace simhost
