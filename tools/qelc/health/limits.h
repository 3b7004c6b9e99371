// What is still well: beyond these a host gets a warning, or is critical. In seconds.
#pragma once

#include <cstdint>

struct health_limits {
    // Since a mirror was level last.
    uint32_t behind_warning = 5 * 60;
    uint32_t behind_critical = 60 * 60;

    // Since the last snapshot of a disk or a group; 0: a warning when its schedule has missed one.
    uint32_t snapshot_warning = 0;
    uint32_t snapshot_critical = 0; // 0: never

    // Since the last heartbeat; its manager calls the host silent after as long as the first one.
    uint32_t heartbeat_warning = 30;
    uint32_t heartbeat_critical = 10 * 60;
};
