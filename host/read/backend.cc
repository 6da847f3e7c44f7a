#include "host/read/backend.h"

#include <dlfcn.h>

// RTLD_NEXT and RTLD_DEFAULT would also search objects that have nothing to do with the platform, and an extension of
// Python is loaded in a scope of its own: each library is asked itself, without loading it anew.
static bool Exports(const char* library, const char* symbol) {
  void* const handle = dlopen(library, RTLD_LAZY | RTLD_NOLOAD);
  if (!handle)
    return false;
  const bool found = dlsym(handle, symbol) != nullptr;
  dlclose(handle);
  return found;
}

bool IsSimulated() { return Exports("libryn.so", "ryn_sim_version") && Exports("libjorPublic.so", "jor_sim_version"); }
