// Which platform libraries this process runs on.
#pragma once

// Whether both of them are the simulated host's stand-ins, by the version texts that these export. Looks symbols up in
// the libraries that the calling object was linked against; calls none of their operations.
bool IsSimulated();
