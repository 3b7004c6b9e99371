// The mirror relationships of this host, as the mirror library reports them.
#pragma once

#include "base/fd.h"
#include "platform/linux/agent/devices.h"

#include <optional>

struct level_mirrors {
    std::vector<marked_device> mirrors; // in the order asked for
    unique_fd hold;                     // nothing is written to them until it closes
};

// Waits for a limited time until all of these mirrors are level with their disks at the same moment. Null
// with the reason in WHY.
std::optional<level_mirrors> wait_until_level(const std::vector<std::string> &guids, std::string *why);
