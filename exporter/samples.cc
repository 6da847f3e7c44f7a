#include "exporter/samples.h"

#include <bit>

namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";  // U+FFFD

struct Sequence {
  std::size_t length;
  bool valid;
};

// The UTF-8 sequence at the front of a text that is not empty. Of one that is not valid (overlong, a surrogate, beyond
// U+10FFFF, cut) the length is that of the part which could have begun a valid one, at least 1.
Sequence FirstSequence(std::string_view text) {
  const auto byte = [&](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U; };
  const unsigned first = byte(0), second = byte(1);
  if (first < 0x80)
    return {1, true};
  if (first < 0xC2 || first > 0xF4)
    return {1, false};
  const std::size_t length = first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
  const unsigned low = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
  const unsigned high = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
  if (second < low || second > high)
    return {1, false};
  for (std::size_t i = 2; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80)
      return {i, false};
  }
  return {length, true};
}

// Both formats escape the same three characters.
void AddEscaped(std::string_view value, std::string* out) {
  while (!value.empty()) {
    const Sequence sequence = FirstSequence(value);
    if (!sequence.valid)
      out->append(kReplacement);
    else if (value[0] == '\n')
      out->append("\\n");
    else if (value[0] == '\\' || value[0] == '"')
      out->append({'\\', value[0]});
    else
      out->append(value.substr(0, sequence.length));
    value.remove_prefix(sequence.length);
  }
}

}  // namespace

Labels& Labels::Add(std::string_view name, std::string_view value) {
  text_ += text_.empty() ? '{' : ',';
  text_ += name;
  text_ += "=\"";
  AddEscaped(value, &text_);
  text_ += '"';
  return *this;
}

Labels& Labels::Add(std::string_view name, std::uint64_t value) {
  char digits[20];
  return Add(name, std::string_view(digits, std::to_chars(digits, digits + sizeof(digits), value).ptr));
}

void Samples::Add(const Labels& labels, std::initializer_list<std::uint64_t> values) {
  labels_ += labels.Text();
  ends_.push_back(static_cast<std::uint32_t>(labels_.size()));
  values_.insert(values_.end(), values);
}

void Samples::AddReal(const Labels& labels, std::initializer_list<double> values) {
  Add(labels, {});
  for (const double value : values)
    values_.push_back(std::bit_cast<std::uint64_t>(value));
}

void Samples::Write(std::size_t column, bool openMetrics, Buffer* out) const {
  const Metric& metric = *columns_[column];
  if (ends_.empty())
    return;
  const bool counter = metric.type == MetricType::kCounter;
  std::string_view family = metric.name;
  if (openMetrics && counter)
    family.remove_suffix(std::string_view("_total").size());  // there the family is named without it

  out->Reserve(4 * metric.name.size() + metric.help.size() + 80);
  out->Add("# HELP ");
  out->Add(family);
  out->Add(' ');
  out->Add(metric.help);
  out->Add("\n# TYPE ");
  out->Add(family);
  out->Add(counter ? " counter\n" : " gauge\n");
  if (openMetrics && !metric.unit.empty() && family.ends_with(metric.unit)) {
    out->Add("# UNIT ");
    out->Add(family);
    out->Add(' ');
    out->Add(metric.unit);
    out->Add('\n');
  }

  std::size_t begin = 0;
  const std::uint64_t* value = values_.data() + column;
  for (const std::uint32_t end : ends_) {
    out->Reserve(metric.name.size() + (end - begin) + 40);
    out->Add(metric.name);
    out->Add(std::string_view(labels_).substr(begin, end - begin));
    out->Add(' ');
    if (metric.real)
      out->AddReal(std::bit_cast<double>(*value));
    else
      out->AddNumber(*value);
    out->Add('\n');
    begin = end;
    value += columns_.size();
  }
}
