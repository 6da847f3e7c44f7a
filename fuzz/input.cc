#include "input.h"

#include <cstdio>
#include <cstdlib>

Bytes Input::Take(std::size_t size) {
  const Bytes taken(data_, data_ + std::min(size, left_));
  Skip(taken.size());
  return taken;
}

std::string Input::TakeText(std::size_t most) {
  std::string text;
  while (left_ > 0 && text.size() < most) {
    const char c = Take<char>();
    if (c == '\0')
      break;
    text += c;
  }
  return text;
}

std::string TextArea::Text() const {
  if (size_ == 0)
    return {};
  const auto* const nul = static_cast<const char*>(std::memchr(area_.get(), '\0', size_));
  Expect(nul != nullptr, "a text has its NUL inside the area");
  for (const char* c = nul + 1; c < area_.get() + size_; ++c)
    Expect(*c == kUnwritten, "nothing is written behind the NUL");
  return {area_.get(), static_cast<std::size_t>(nul - area_.get())};
}

void Expect(bool holds, const char* what) {
  if (holds)
    return;
  // libFuzzer may have closed standard error; its report tells the place.
  std::printf("\nNOT SO: %s\n", what);
  std::fflush(stdout);
  std::abort();
}

void ExpectEqual(std::string_view found, std::string_view expected, const char* what) {
  if (found == expected)
    return;
  std::printf("\nfound:    %.*s\nexpected: %.*s\n", static_cast<int>(found.size()), found.data(),
              static_cast<int>(expected.size()), expected.data());
  Expect(false, what);
}
