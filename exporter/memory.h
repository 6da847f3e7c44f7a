// Keeping the process small.
#pragma once

// Gives back what only the start needed: pages of the libraries' code and constants, which come back from their files
// where they are touched again, and free memory of the allocator. To be called once things have settled.
void ReleaseStartupMemory();
