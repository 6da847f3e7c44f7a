// Reads the rows of a store and refuses what cannot be: a column of the wrong type, or a value outside its limits, is a
// StoreError that names the row and the column. Nothing else looks at columns by their position.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "simhost/host/store.h"

namespace simhost {

using Mac = std::array<std::uint8_t, 6>;

// For a column that holds one of a few texts: those texts, by the enumerators that they are read as (rows.h).
template <class Enum>
inline constexpr std::array<std::string_view, 0> kTextsOf{};

template <class Enum>
constexpr std::string_view TextOf(Enum value) {
  return kTextsOf<Enum>[static_cast<std::size_t>(value)];
}

// What a store has, as it may stand in a message: cut to 60 bytes, those that are not printable as \xNN.
std::string Printable(std::string_view text);

class RowReader {
 public:
  // keys: so many columns, the first ones, say which row it is.
  RowReader(const Statement& statement, const char* table, int keys)
      : statement_(statement), table_(table), keys_(keys) {}

  // A number from low to high. A bool is false for 0 and true for all others.
  template <class T>
  void Number(const char* column, std::int64_t low, std::int64_t high, T& field) {
    field = static_cast<T>(CheckedNumber(column, low, high));
  }

  // A text of low to high bytes.
  void Text(const char* column, std::int64_t low, std::int64_t high, std::string& field);

  // One of a few texts, as its enumerator.
  template <class Enum>
  void Choice(const char* column, Enum& field) {
    field = static_cast<Enum>(CheckedChoice(column, kTextsOf<Enum>));
  }

  // A blob of low to high bytes.
  void Bytes(const char* column, std::int64_t low, std::int64_t high, std::vector<std::uint8_t>& field);
  void Bytes(const char* column, std::int64_t low, std::int64_t high, Mac& field);

  // The same for columns that may be NULL.
  template <class T>
  void Number(const char* column, std::int64_t low, std::int64_t high, std::optional<T>& field) {
    if (!SkipNull(field))
      Number(column, low, high, field.emplace());
  }
  template <class T>
  void Text(const char* column, std::int64_t low, std::int64_t high, std::optional<T>& field) {
    if (!SkipNull(field))
      Text(column, low, high, field.emplace());
  }
  template <class Enum>
  void Choice(const char* column, std::optional<Enum>& field) {
    if (!SkipNull(field))
      Choice(column, field.emplace());
  }
  template <class T>
  void Bytes(const char* column, std::int64_t low, std::int64_t high, std::optional<T>& field) {
    if (!SkipNull(field))
      Bytes(column, low, high, field.emplace());
  }

  // Ends the reading with a StoreError: the column of this row cannot be so. `what` is printable.
  [[noreturn]] void Refuse(const char* column, const std::string& what) const;

 private:
  template <class T>
  bool SkipNull(std::optional<T>& field) {
    field.reset();
    const bool null = statement_.IsNull(next_);
    next_ += null ? 1 : 0;
    return null;
  }
  std::int64_t CheckedNumber(const char* column, std::int64_t low, std::int64_t high);
  std::size_t CheckedChoice(const char* column, std::span<const std::string_view> texts);
  void Expect(const char* column, int type) const;
  std::span<const std::uint8_t> CheckedBytes(const char* column, std::int64_t low, std::int64_t high);

  const Statement& statement_;
  const char* table_;
  int keys_;
  int next_ = 0;
};

// Calls use(row, reader) for each row of a kind, in the order of its query. Columns are read in the order in which the
// row's Read names them, which is that of its query: generate.py writes both.
template <class Row, class Use>
void ForEach(Store& store, const Use& use) {
  Statement statement = store.Prepare(Row::kQuery);
  while (statement.Step()) {
    RowReader reader(statement, Row::kTable, Row::kKeys);
    Row row;
    row.Read(reader);
    use(row, reader);
  }
}

// The only row of a kind.
template <class Row>
Row OnlyRow(Store& store) {
  std::optional<Row> only;
  ForEach<Row>(store, [&](Row& row, RowReader&) { only = std::move(row); });
  if (!only)
    throw StoreError(std::string(Row::kTable) + ": the store has no such row");
  return std::move(*only);
}

}  // namespace simhost
