// The log hooks that libjorPublic.so takes from the object that loads it. Whatever loads that library links these and
// exports them by name; without them its load fails, or the process ends at the first log line.
#pragma once

extern "C" {
[[gnu::visibility("default")]] void Log(const char* format, ...);
[[gnu::visibility("default")]] void Warning(const char* format, ...);
[[gnu::visibility("default")]] void Panic(const char* format, ...);
}
