#include "commands/device_wait.h"

#include "base/clock.h"

#include <kavdisk.h>

void wait_for_devices(unsigned pass)
{
    constexpr unsigned rescan_pass = 4;
    constexpr unsigned second = 1000; // milliseconds
    if (pass == rescan_pass)
        kavdisk_rescan_dev(0);
    else
        clock_sleep_ms((pass + 1) * second);
}
