// Waiting for disks to appear on this host.
#pragma once

// How often a handler looks for the disks.
constexpr unsigned device_wait_passes = 9;

// Call before look number PASS, counted from 0. Sleeps, longer each time; in one pass it searches all buses
// instead. All sleeps take forty seconds together. The first sleep is taken even if the disks are already
// there.
void wait_for_devices(unsigned pass);
