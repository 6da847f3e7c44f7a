// The switch configuration store. Its entry points for native callers stand in include/libryn.h.
#pragma once

#include "host/status.h"
