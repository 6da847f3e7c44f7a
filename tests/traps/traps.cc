// Tells which instructions of a loaded object run: each gets a trap that goes off once, is noted, and takes itself
// away. For mutate.py, which loads this library by ctypes.
#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace {

constexpr std::uint8_t kTrap = 0xCC;  // int3

struct Place {
  std::uint8_t* instruction;
  std::uint8_t first_byte;
  bool ran;
};

std::vector<Place> places;  // in the order of their addresses

void GoOff(int, siginfo_t*, void* context) {
  greg_t& next = static_cast<ucontext_t*>(context)->uc_mcontext.gregs[REG_RIP];
  auto* const instruction = reinterpret_cast<std::uint8_t*>(next) - 1;
  const auto found =
      std::lower_bound(places.begin(), places.end(), instruction,
                       [](const Place& place, std::uint8_t* wanted) { return place.instruction < wanted; });
  if (found == places.end() || found->instruction != instruction)
    std::abort();  // somebody else's trap
  found->ran = true;
  *instruction = found->first_byte;
  --next;
}

}  // namespace

// Makes the pages of the instructions writable. False when the system refuses.
extern "C" [[gnu::visibility("default")]] int traps_set(const std::uintptr_t* addresses, std::size_t count);
extern "C" [[gnu::visibility("default")]] void traps_arm();
// Fills in 1 for each instruction that ran since the traps were armed.
extern "C" [[gnu::visibility("default")]] void traps_read(std::uint8_t* ran);

int traps_set(const std::uintptr_t* addresses, std::size_t count) {
  const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  for (std::size_t i = 0; i < count; ++i) {
    auto* const instruction = reinterpret_cast<std::uint8_t*>(addresses[i]);
    if (mprotect(reinterpret_cast<void*>(addresses[i] / page * page), page, PROT_READ | PROT_WRITE | PROT_EXEC) != 0)
      return 0;
    places.push_back({instruction, *instruction, false});
  }
  struct sigaction action = {};
  action.sa_sigaction = GoOff;
  action.sa_flags = SA_SIGINFO;
  return sigaction(SIGTRAP, &action, nullptr) == 0;
}

void traps_arm() {
  for (Place& place : places) {
    place.ran = false;
    *place.instruction = kTrap;
  }
}

void traps_read(std::uint8_t* ran) {
  for (std::size_t i = 0; i < places.size(); ++i)
    ran[i] = places[i].ran;
}
