// Messages on standard error; under systemd with their level in front, which the journal reads and takes away.
#pragma once

[[gnu::format(printf, 1, 2)]] void LogInfo(const char* format, ...);
[[gnu::format(printf, 1, 2)]] void LogError(const char* format, ...);
