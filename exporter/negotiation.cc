#include "exporter/negotiation.h"

#include <strings.h>

#include <algorithm>
#include <optional>

namespace {

std::string_view Trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t";
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos)
    return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

bool IsSame(std::string_view text, std::string_view other) {
  return text.size() == other.size() && strncasecmp(text.data(), other.data(), text.size()) == 0;
}

// Cuts the part before the next separator off the front, separators in quotes not counted.
std::string_view NextPart(std::string_view* text, char separator) {
  bool quoted = false;
  std::size_t end = 0;
  for (; end < text->size() && (quoted || (*text)[end] != separator); ++end) {
    if ((*text)[end] == '"')
      quoted = !quoted;
    else if (quoted && (*text)[end] == '\\' && end + 1 < text->size())
      ++end;
  }
  const std::string_view part = text->substr(0, end);
  text->remove_prefix(std::min(end + 1, text->size()));
  return Trimmed(part);
}

std::string_view Unquoted(std::string_view text) {
  return text.size() >= 2 && text.front() == '"' && text.back() == '"' ? text.substr(1, text.size() - 2) : text;
}

// A quality value, "0" to "1" with at most three decimals, in thousandths; nothing when it is malformed.
std::optional<int> ReadQuality(std::string_view text) {
  if (text.empty() || text.size() > 5 || (text[0] != '0' && text[0] != '1') || (text.size() > 1 && text[1] != '.'))
    return std::nullopt;
  int thousandths = (text[0] - '0') * 1000;
  int unit = 100;
  for (std::size_t i = 2; i < text.size(); ++i, unit /= 10) {
    if (text[i] < '0' || text[i] > '9')
      return std::nullopt;
    thousandths += (text[i] - '0') * unit;
  }
  return thousandths <= 1000 ? std::optional(thousandths) : std::nullopt;
}

// A range of an Accept header, or an encoding, with what goes with it
struct Wish {
  std::string_view name;
  std::string_view version;  // "" when none is named
  int quality = 1000;        // a malformed one counts as 0
};

// Takes the next element of a list off its front.
Wish NextWish(std::string_view* list) {
  std::string_view element = NextPart(list, ',');
  Wish wish;
  wish.name = NextPart(&element, ';');
  while (!element.empty()) {
    std::string_view parameter = NextPart(&element, ';');
    const std::string_view name = NextPart(&parameter, '=');
    if (IsSame(name, "q"))
      wish.quality = ReadQuality(parameter).value_or(0);
    else if (IsSame(name, "version"))
      wish.version = Unquoted(Trimmed(parameter));
  }
  return wish;
}

// What a client makes of something that is offered: the quality of the most specific wish that fits, of several the
// highest; -1 when none fits.
class Verdict {
 public:
  void Count(int specificity, int quality) {
    if (specificity < specificity_)
      return;
    quality_ = specificity > specificity_ ? quality : std::max(quality_, quality);
    specificity_ = specificity;
  }
  int Quality() const { return quality_; }

 private:
  int specificity_ = -1;
  int quality_ = -1;
};

void CountRange(const Wish& wish, std::string_view type, std::initializer_list<std::string_view> versions,
                Verdict* verdict) {
  const std::string_view group = type.substr(0, type.find('/') + 1);
  if (IsSame(wish.name, type)) {
    if (wish.version.empty())
      verdict->Count(2, wish.quality);
    else if (std::find(versions.begin(), versions.end(), wish.version) != versions.end())
      verdict->Count(3, wish.quality);
  } else if (wish.name.ends_with("/*") && IsSame(wish.name.substr(0, wish.name.size() - 1), group)) {
    verdict->Count(1, wish.quality);
  } else if (wish.name == "*/*") {
    verdict->Count(0, wish.quality);
  }
}

}  // namespace

Format ChooseFormat(std::string_view accept) {
  Verdict text, openMetrics;
  while (!accept.empty()) {
    const Wish wish = NextWish(&accept);
    CountRange(wish, "text/plain", {"0.0.4"}, &text);
    CountRange(wish, "application/openmetrics-text", {"1.0.0"}, &openMetrics);
  }
  const bool better = openMetrics.Quality() > 0 && openMetrics.Quality() > text.Quality();
  return better ? Format::kOpenMetrics : Format::kText;
}

bool WantsGzip(std::string_view acceptEncoding) {
  Verdict gzip, plain;
  while (!acceptEncoding.empty()) {
    const Wish wish = NextWish(&acceptEncoding);
    if (IsSame(wish.name, "gzip") || IsSame(wish.name, "x-gzip"))
      gzip.Count(1, wish.quality);
    else if (wish.name == "*")
      gzip.Count(0, wish.quality);
    else if (IsSame(wish.name, "identity"))
      plain.Count(1, wish.quality);
  }
  return gzip.Quality() > 0 && gzip.Quality() >= plain.Quality();
}

bool IsOwnHost(std::string_view host, std::string_view address, std::string_view hostName) {
  std::string_view name = host, rest;
  if (host.starts_with('[')) {
    const std::size_t end = host.find(']');
    if (end == std::string_view::npos)
      return false;
    name = host.substr(1, end - 1);
    rest = host.substr(end + 1);
    if (name.find(':') == std::string_view::npos)
      return false;  // only IPv6 addresses stand in brackets
  } else if (const std::size_t colon = host.find(':'); colon != std::string_view::npos) {
    name = host.substr(0, colon);
    rest = host.substr(colon);
  }
  if (!rest.empty() && (rest.size() > 6 || rest[0] != ':' || rest.find_first_not_of("0123456789", 1) != rest.npos))
    return false;
  return !name.empty() && (IsSame(name, "localhost") || IsSame(name, address) || IsSame(name, hostName));
}
