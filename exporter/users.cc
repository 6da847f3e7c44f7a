#include "exporter/users.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "exporter/journal.h"

namespace {

constexpr int kTriesPerSecond = 4;  // a hash may take a tenth of a second, in which nobody else is served

// In a time that does not tell where they differ
bool IsSame(std::string_view text, std::string_view other) {
  unsigned char difference = text.size() == other.size() ? 0 : 1;
  for (std::size_t i = 0; i < text.size(); ++i)
    difference |= static_cast<unsigned char>(text[i] ^ (i < other.size() ? other[i] : '\0'));
  return difference == 0;
}

}  // namespace

bool Users::Read(const std::string& file) {
  std::ifstream lines(file);
  if (!lines) {
    LogError("%s: %s", file.c_str(), std::strerror(errno));
    return false;
  }
  int number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    if (line.empty() || line[0] == '#')
      continue;
    const std::size_t colon = line.find(':');
    User user;
    if (colon != line.npos)
      user = {line.substr(0, colon), line.substr(colon + 1), {}};
    // Of a hash that crypt knows, another one of that kind is as long.
    const char* const hash = user.hash.empty() ? nullptr : crypt_r("", user.hash.c_str(), area_.get());
    if (user.name.empty() || !hash || std::strlen(hash) != user.hash.size()) {
      LogError("%s:%d: expected NAME:HASH, HASH as crypt(3) makes it", file.c_str(), number);
      return false;
    }
    users_.push_back(std::move(user));
  }
  if (users_.empty())
    LogError("%s: no user stands in it", file.c_str());
  return !users_.empty();
}

Users::Verdict Users::Check(std::string_view name, std::string_view password) {
  const auto found = std::find_if(users_.begin(), users_.end(), [&](const User& user) { return user.name == name; });
  if (found != users_.end() && !found->right.empty() && IsSame(password, found->right))
    return Verdict::kRight;

  const auto now = std::chrono::steady_clock::now();
  if (now - second_ >= std::chrono::seconds(1)) {
    second_ = now;
    wrong_ = 0;
  }
  if (wrong_ >= kTriesPerSecond)
    return Verdict::kTooMany;
  ++wrong_;

  // A name that is not there takes as long as one that is.
  const User& user = found != users_.end() ? *found : users_.front();
  const std::string text(password);
  const char* const hash = crypt_r(text.c_str(), user.hash.c_str(), area_.get());
  if (found == users_.end() || !hash || !IsSame(hash, user.hash))
    return Verdict::kWrong;
  found->right = text;
  --wrong_;
  return Verdict::kRight;
}
