// The command line.
#pragma once

#include <sys/socket.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "exporter/collectors.h"

struct ListenAddress {
  sockaddr_storage address = {};
  socklen_t length = 0;
  std::string text;  // as it was given
};

struct Options {
  std::vector<ListenAddress> listen;
  std::chrono::nanoseconds interval = std::chrono::seconds(10);  // from the begin of a round to that of the next
  std::chrono::nanoseconds timeout = std::chrono::seconds(5);    // of a collector
  CollectorSet collectors = DefaultCollectors();
  std::vector<std::string> ports;  // glob patterns over SWITCH/PORT; none: all
  bool insecure = false;
  std::string certificateFile, keyFile, usersFile, hostName;

  enum class Action { kServe, kOnce, kListMetrics, kHelp, kVersion } action = Action::kServe;
};

// Reads the command line. False after a message on standard error; the exit code is 2 then.
bool ReadOptions(int count, char** arguments, Options* options);

extern const char kUsage[];
