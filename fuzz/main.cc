// A program with targets: PROGRAM --target=NAME, otherwise as libFuzzer has it; PROGRAM --list names them.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "main.h"

// The harness itself looks for what a call leaves behind: some leave an object on purpose.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() { return "detect_leaks=0"; }

namespace {

const Target* chosen;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  static constexpr char kOption[] = "--target=";
  for (int i = 1; i < *argc; ++i) {
    const char* const argument = (*argv)[i];
    if (std::strcmp(argument, "--list") == 0) {
      for (const Target& target : Targets())
        std::puts(target.name);
      std::exit(0);
    }
    if (std::strncmp(argument, kOption, sizeof(kOption) - 1) == 0)
      for (const Target& target : Targets())
        if (std::strcmp(argument + sizeof(kOption) - 1, target.name) == 0)
          chosen = &target;
  }
  if (!chosen) {
    std::fprintf(stderr, "%s --target=NAME; --list names the targets\n", (*argv)[0]);
    std::exit(2);
  }
  SetUp();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  chosen->run({data, size});
  Reset();
  return 0;
}
