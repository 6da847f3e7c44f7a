// Keeping the process small.
#pragma once

// Gives back what only the start needed: pages of the libraries' code and constants, which come back from their files
// where they are touched again. To be called once things have settled.
void ReleaseStartupMemory();

// Gives back what the allocator holds for later. A round leaves holes behind that the next one may not fit.
void ReleaseFreeMemory();
