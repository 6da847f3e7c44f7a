// The tool's own way to the host: a library that only ryn-sim and the tests load.
#include <cstdlib>
#include <cstring>
#include <string>

#include "simhost/host/session.h"
#include "simhost/traffic/rates.h"

using namespace simhost;

extern "C" {

#pragma GCC visibility push(default)

int64_t ryn_sim_now_ms(void);
int64_t ryn_sim_catch_up(void);
uint32_t ryn_sim_apply(const char* sql);
int64_t ryn_sim_set_clock(int32_t running, int64_t speed_permille, int64_t ahead_ns);
char* ryn_sim_rates(void);
void ryn_sim_free(char* text);

// The host's time; -1 if its store cannot be used.
int64_t ryn_sim_now_ms(void) { return HostNowMs(); }

// The same, when all that is due has been replayed, as each method does.
int64_t ryn_sim_catch_up(void) { return CatchUpHost(); }

// Changes the store of a host in use by SQL, so that no count jumps.
uint32_t ryn_sim_apply(const char* sql) { return sql != nullptr ? ApplySql(sql) : kBadParameter; }

// Sets the clock: running 1, standing 0, or as it is (-1); a speed in permille, or as it is (0); so much ahead of now.
// Answers the host's time, -1 if that cannot be.
int64_t ryn_sim_set_clock(int32_t running, int64_t speed_permille, int64_t ahead_ns) {
  const std::optional<bool> runs = running < 0 ? std::nullopt : std::optional(running != 0);
  return SetHostClock(runs, speed_permille, ahead_ns) == kOk ? CatchUpHost() : -1;
}

// What flows at this moment, as JSON (docs/simulated-host.md says what is in it), for ryn_sim_free; null if the store
// cannot be used.
char* ryn_sim_rates(void) {
  std::string text;
  const uint32_t status = ReadHost({"", {}}, nullptr, [&](const View& host) {
    text = RatesAsJson(host.model, host.ms);
    return kOk;
  });
  return status == kOk ? strdup(text.c_str()) : nullptr;
}

void ryn_sim_free(char* text) { std::free(text); }

#pragma GCC visibility pop

}  // extern "C"
