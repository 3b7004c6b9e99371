// The wait for disks that are on their way to this host.
#pragma once

// How often a handler looks for them.
constexpr unsigned device_wait_passes = 9;

// What it does before the look number PASS, from 0: mostly a longer sleep each time, once in the middle a
// search of all buses. Forty seconds of sleep in all; the first of them is taken even when the disks are
// there already.
void wait_for_devices(unsigned pass);
