// Tells when the disks of this host have changed, at a cost that allows to ask every second.
#pragma once

#include <cstdint>

// Another number when a disk has come, gone, or has other content behind it than before. Looks at the host
// at most once a second; any thread may ask.
uint64_t disk_census();
