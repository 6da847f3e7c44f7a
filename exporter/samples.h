// Samples: what a collector read, kept small until a scrape asks for it as text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "exporter/buffer.h"
#include "exporter/metrics.h"

// The labels of a series as they are written: {name="value",...}, or nothing when there are none. Text that is not
// UTF-8 gets U+FFFD in place of each sequence that is not valid.
class Labels {
 public:
  Labels& Add(std::string_view name, std::string_view value);
  Labels& Add(std::string_view name, std::uint64_t value);

  // With its closing brace
  std::string Text() const { return text_.empty() ? text_ : text_ + '}'; }

 private:
  std::string text_;
};

// Series that have their labels in common: a column for each metric, a row for each set of labels.
class Samples {
 public:
  explicit Samples(std::initializer_list<const Metric*> columns) : columns_(columns) {}

  // Adds a row; `values` are those of the columns, in order. No two rows may have the same labels.
  void Add(const Labels& labels, std::initializer_list<std::uint64_t> values);
  // The same for columns of decimal fractions
  void AddReal(const Labels& labels, std::initializer_list<double> values);

  // Writes the metric of a column with all its series.
  void Write(std::size_t column, bool openMetrics, Buffer* out) const;

  std::size_t Columns() const { return columns_.size(); }
  std::size_t Rows() const { return ends_.size(); }

 private:
  std::vector<const Metric*> columns_;
  std::string labels_;               // of all rows, one behind another
  std::vector<std::uint32_t> ends_;  // where in it a row's labels end
  std::vector<std::uint64_t> values_;
};
