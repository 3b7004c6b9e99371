// A new signature for a disk that has none.
#pragma once

#include <cstdint>

// A random number of 31 bits. The generator is seeded with the clock's second at each call.
uint32_t gen_signature();

// Writes a signature to the disk that no other disk of the host has. Enumerates the disks, so it can take
// seconds.
void set_disk_signature(const char *path);
