#include "exporter/journal.h"

#include <systemd/sd-daemon.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace {

// One write for a message, so that those of two threads do not mix.
[[gnu::format(printf, 2, 0)]] void Write(const char* level, const char* format, va_list arguments) {
  static const bool journal = std::getenv("JOURNAL_STREAM") != nullptr;
  char text[1024];
  std::vsnprintf(text, sizeof(text), format, arguments);
  std::fprintf(stderr, "%s%s\n", journal ? level : "ryn-exporter: ", text);
}

}  // namespace

void LogInfo(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  Write(SD_INFO, format, arguments);
  va_end(arguments);
}

void LogError(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  Write(SD_ERR, format, arguments);
  va_end(arguments);
}
