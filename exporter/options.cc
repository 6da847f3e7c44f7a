#include "exporter/options.h"

#include <arpa/inet.h>
#include <getopt.h>
#include <netinet/in.h>

#include <algorithm>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string_view>

const char kUsage[] =
    "Usage: ryn-exporter [OPTION...]\n"
    "Offers the counters and settings of this host's datapath to Prometheus. It only reads.\n"
    "\n"
    "  --listen ADDRESS:PORT  where to listen; may be given several times (127.0.0.1:9717)\n"
    "  --interval SECONDS     time between two rounds of the collectors (10)\n"
    "  --timeout SECONDS      time after which a collector counts as failed (5)\n"
    "  --with LIST            collectors to run beside the usual ones: queue, mac, netq, mirror\n"
    "  --without LIST         collectors not to run: switch, port, uplink, flow, fpo, core, balancer\n"
    "  --ports GLOB           only ports whose SWITCH/PORT matches, such as 'dvs-1/*'; may be given several times\n"
    "  --tls-cert FILE        serve TLS with this certificate (PEM) ...\n"
    "  --tls-key FILE         ... and this key (PEM)\n"
    "  --users FILE           ask for a name and a password; lines of FILE are NAME:HASH, HASH as crypt(3) makes it\n"
    "  --host-name NAME       a name of this host that a Host header may give\n"
    "  --insecure             listen beyond loopback without TLS and --users\n"
    "  --once                 print the metrics of one round, for a textfile collector\n"
    "  --metrics              print the list of all metrics, as a table in Markdown\n"
    "  --help, --version\n"
    "\n"
    "LIST is separated by commas. /metrics has the metrics, /healthy says whether they are being collected.\n"
    "Exit codes: 0 ended as asked, 1 failed (with --once: the switches could not be listed), 2 wrong usage.\n";

namespace {

[[gnu::format(printf, 1, 2)]] bool Refuse(const char* format, ...) {
  std::fputs("ryn-exporter: ", stderr);
  va_list arguments;
  va_start(arguments, format);
  std::vfprintf(stderr, format, arguments);
  va_end(arguments);
  std::fputc('\n', stderr);
  return false;
}

bool ReadPort(std::string_view text, std::uint16_t* port) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *port);
  return error == std::errc() && end == text.data() + text.size();
}

// A numeric address and a port: 127.0.0.1:9717, [::1]:9717, or localhost:9717 for the first of these.
bool ReadAddress(const char* argument, ListenAddress* address) {
  const std::string_view text = argument;
  const std::size_t colon = text.rfind(':');
  std::uint16_t port = 0;
  if (colon == text.npos || !ReadPort(text.substr(colon + 1), &port))
    return Refuse("--listen wants ADDRESS:PORT, such as 127.0.0.1:9717 or [::1]:9717, not '%s'", argument);
  std::string host(text.substr(0, colon));
  if (host == "localhost")
    host = "127.0.0.1";

  address->text = argument;
  if (sockaddr_in v4 = {}; inet_pton(AF_INET, host.c_str(), &v4.sin_addr) == 1) {
    v4.sin_family = AF_INET;
    v4.sin_port = htons(port);
    std::memcpy(&address->address, &v4, address->length = sizeof(v4));
    return true;
  }
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
    host = host.substr(1, host.size() - 2);
    if (sockaddr_in6 v6 = {}; inet_pton(AF_INET6, host.c_str(), &v6.sin6_addr) == 1) {
      v6.sin6_family = AF_INET6;
      v6.sin6_port = htons(port);
      std::memcpy(&address->address, &v6, address->length = sizeof(v6));
      return true;
    }
  }
  return Refuse("--listen wants a numeric address before the port, not '%s' (an IPv6 address stands in brackets)",
                argument);
}

bool IsLoopback(const ListenAddress& address) {
  if (address.address.ss_family == AF_INET) {
    sockaddr_in v4;
    std::memcpy(&v4, &address.address, sizeof(v4));
    return ntohl(v4.sin_addr.s_addr) >> 24 == 127;
  }
  sockaddr_in6 v6;
  std::memcpy(&v6, &address.address, sizeof(v6));
  return IN6_IS_ADDR_LOOPBACK(&v6.sin6_addr) != 0;
}

bool ReadSeconds(const char* option, const char* text, std::chrono::nanoseconds* time) {
  constexpr double kLeast = 0.1, kMost = 86400;
  double seconds = 0;
  const char* const end = text + std::strlen(text);
  const auto [stop, error] = std::from_chars(text, end, seconds, std::chars_format::fixed);
  if (error != std::errc() || stop != end || !(seconds >= kLeast && seconds <= kMost))
    return Refuse("%s wants seconds from 0.1 to 86400, not '%s'", option, text);
  *time = std::chrono::nanoseconds(static_cast<std::int64_t>(seconds * 1e9));
  return true;
}

bool ReadCollectors(const char* option, std::string_view list, bool on, CollectorSet* collectors) {
  while (true) {
    const std::size_t comma = std::min(list.find(','), list.size());
    const std::string_view name = list.substr(0, comma);
    const auto* const found = std::find_if(std::begin(kCollectors), std::end(kCollectors),
                                           [&](const Collector& collector) { return collector.name == name; });
    if (found == std::end(kCollectors)) {
      std::string known;
      for (const Collector& collector : kCollectors)
        known.append(known.empty() ? "" : ", ").append(collector.name);
      return Refuse("%s: there is no collector '%.*s'; there are %s", option, static_cast<int>(name.size()),
                    name.data(), known.c_str());
    }
    (*collectors)[static_cast<std::size_t>(found - kCollectors)] = on;
    if (comma == list.size())
      return true;
    list.remove_prefix(comma + 1);
  }
}

enum Option : int {
  kListen = 256,
  kInterval,
  kTimeout,
  kWith,
  kWithout,
  kPorts,
  kInsecure,
  kTlsCert,
  kTlsKey,
  kUsers,
  kHostName,
  kOnce,
  kMetricsList,
  kHelp,
  kVersion,
};

constexpr option kOptions[] = {
    {"listen", required_argument, nullptr, kListen},      {"interval", required_argument, nullptr, kInterval},
    {"timeout", required_argument, nullptr, kTimeout},    {"with", required_argument, nullptr, kWith},
    {"without", required_argument, nullptr, kWithout},    {"ports", required_argument, nullptr, kPorts},
    {"insecure", no_argument, nullptr, kInsecure},        {"tls-cert", required_argument, nullptr, kTlsCert},
    {"tls-key", required_argument, nullptr, kTlsKey},     {"users", required_argument, nullptr, kUsers},
    {"host-name", required_argument, nullptr, kHostName}, {"once", no_argument, nullptr, kOnce},
    {"metrics", no_argument, nullptr, kMetricsList},      {"help", no_argument, nullptr, kHelp},
    {"version", no_argument, nullptr, kVersion},          {nullptr, 0, nullptr, 0},
};

bool ReadOption(int option, const char* value, Options* options) {
  switch (option) {
    case kListen:
      return ReadAddress(value, &options->listen.emplace_back());
    case kInterval:
      return ReadSeconds("--interval", value, &options->interval);
    case kTimeout:
      return ReadSeconds("--timeout", value, &options->timeout);
    case kWith:
      return ReadCollectors("--with", value, true, &options->collectors);
    case kWithout:
      return ReadCollectors("--without", value, false, &options->collectors);
    case kPorts:
      options->ports.emplace_back(value);
      return true;
    case kInsecure:
      options->insecure = true;
      return true;
    case kTlsCert:
      options->certificateFile = value;
      return true;
    case kTlsKey:
      options->keyFile = value;
      return true;
    case kUsers:
      options->usersFile = value;
      return true;
    case kHostName:
      options->hostName = value;
      return true;
    case kOnce:
      options->action = Options::Action::kOnce;
      return true;
    case kMetricsList:
      options->action = Options::Action::kListMetrics;
      return true;
    case kHelp:
      options->action = Options::Action::kHelp;
      return true;
    case kVersion:
      options->action = Options::Action::kVersion;
      return true;
    default:
      return false;  // getopt has said what is wrong
  }
}

}  // namespace

bool ReadOptions(int count, char** arguments, Options* options) {
  for (int option; (option = getopt_long(count, arguments, "", kOptions, nullptr)) != -1;) {
    if (!ReadOption(option, optarg, options)) {
      std::fputs("Try 'ryn-exporter --help'.\n", stderr);
      return false;
    }
  }
  if (optind < count)
    return Refuse("there is no argument '%s' to take", arguments[optind]);
  if (options->certificateFile.empty() != options->keyFile.empty())
    return Refuse("--tls-cert and --tls-key go together");
  if (options->listen.empty())
    ReadAddress("127.0.0.1:9717", &options->listen.emplace_back());

  const bool guarded = !options->certificateFile.empty() && !options->usersFile.empty();
  for (const ListenAddress& address : options->listen) {
    if (!IsLoopback(address) && !guarded && !options->insecure)
      return Refuse("%s is not a loopback address: that takes --tls-cert, --tls-key and --users, or --insecure",
                    address.text.c_str());
  }
  return true;
}
