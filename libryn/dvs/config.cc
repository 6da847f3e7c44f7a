// The configuration load, once per process, when the shared object is loaded.

#include "host/config.h"
#include "libryn/include/libryn.h"

std::uint32_t DVSLoadConfig() { return FetchAndLoadState().code; }

// A failed load is silent: the module still imports, and no alias is found.
[[gnu::constructor]] void LibraryInit() { DVSLoadConfig(); }
