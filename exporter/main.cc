// ryn-exporter: this host's datapath for Prometheus.
//
// One thread reads the host, this one serves what it has read. Neither waits for the other.

#include <malloc.h>
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "exporter/bodies.h"
#include "exporter/collecting.h"
#include "exporter/journal.h"
#include "exporter/memory.h"
#include "exporter/metrics.h"
#include "exporter/options.h"
#include "exporter/server.h"
#include "exporter/version.h"
#include "host/read/backend.h"

namespace {

constexpr std::chrono::seconds kPatience{1};  // with a call that hangs, when the process is to end

std::string Backend() { return IsSimulated() ? "simulated" : "platform"; }

// The list of all metrics, as the documents have it
int PrintMetrics() {
  std::puts("| Metric | Type | Labels | Unit | Collector | Source | Meaning |\n|---|---|---|---|---|---|---|");
  for (const Metric& metric : kMetrics) {
    std::printf("| `%s` | %s | %s | %s | %s | %s | %s |\n", metric.name.data(),
                metric.type == MetricType::kCounter ? "counter" : "gauge", metric.labels.data(), metric.unit.data(),
                metric.collector.empty() ? "always" : metric.collector.data(), metric.source.data(),
                metric.help.data());
  }
  return std::fflush(stdout) == 0 ? 0 : 1;
}

// Ends the process with a thread that may hang in a call into the platform, and is not waited for then.
[[noreturn]] void End(Collecting* collecting, Clock::duration patience, int code) {
  collecting->Stop(patience);
  std::fflush(nullptr);
  _exit(code);
}

int PrintOnce(const Options& options) {
  Collecting collecting(options);
  collecting.Start();
  collecting.WaitForFirstRound();
  const Overview view = collecting.Look(Clock::now());
  const std::string text = PlainText(view, Backend());
  const bool written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
  if (!written)
    LogError("the metrics could not be written");
  End(&collecting, Clock::duration::zero(), view.up && written ? 0 : 1);
}

// Until the first round has ended, or for as long as a collector may take. False when the process is to end.
bool AwaitFirstRound(const Collecting& collecting, Clock::duration timeout, int stopping) {
  constexpr int kLookMs = 20;
  pollfd wait{stopping, POLLIN, 0};
  const Clock::time_point end = Clock::now() + timeout;
  while (!collecting.HasEndedRound() && Clock::now() < end) {
    if (poll(&wait, 1, kLookMs) > 0)
      return false;
  }
  return true;
}

int Serve(const Options& options) {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);  // of all threads that are to come too
  const int stopping = signalfd(-1, &signals, SFD_CLOEXEC);
  signal(SIGPIPE, SIG_IGN);

  Collecting collecting(options);
  Server server(options, collecting, Backend());
  if (const int code = server.Open(); code != 0)
    return code;

  collecting.Start();
  if (AwaitFirstRound(collecting, options.timeout, stopping)) {
    std::uint64_t watchdogUs = 0;
    const bool watched = sd_watchdog_enabled(0, &watchdogUs) > 0;
    const auto tickTime = watched ? Clock::duration(std::chrono::microseconds(watchdogUs / 3)) : std::chrono::hours(1);
    ReleaseStartupMemory();
    sd_notify(0, "READY=1");
    server.Serve(stopping, tickTime, [&] { sd_notify(0, "WATCHDOG=1"); });
  }
  sd_notify(0, "STOPPING=1");
  End(&collecting, kPatience, 0);
}

}  // namespace

int main(int count, char** arguments) {
  Options options;
  if (!ReadOptions(count, arguments, &options))
    return 2;
  // Two threads that seldom allocate at the same time: one arena keeps the memory of both together.
  mallopt(M_ARENA_MAX, 1);
  switch (options.action) {
    case Options::Action::kServe:
      return Serve(options);
    case Options::Action::kOnce:
      return PrintOnce(options);
    case Options::Action::kListMetrics:
      return PrintMetrics();
    case Options::Action::kHelp:
      return std::fputs(kUsage, stdout) >= 0 && std::fflush(stdout) == 0 ? 0 : 1;
    case Options::Action::kVersion:
      return std::printf("ryn-exporter %s (%s platform)\n", kVersion, Backend().c_str()) >= 0 ? 0 : 1;
  }
  return 2;
}
