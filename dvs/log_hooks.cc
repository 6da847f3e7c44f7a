// The log hooks that the switch-state library takes from its host. None of them reads its arguments.

#include "include/libryn.h"

void Log(const char*, ...) {}

void Warning(const char*, ...) {}

// Deliberate: neither logs nor ends the process, which belongs to somebody else.
void Panic(const char*, ...) {}
