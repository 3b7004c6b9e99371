// The mirror relationships of this host, as the mirror library reports them.
#pragma once

#include "base/fd.h"
#include "platform/linux/agent/devices.h"

#include <optional>

struct level_mirrors {
    std::vector<marked_device> mirrors; // in the order asked for
    std::vector<unique_fd> holds;       // nothing is written to them until these close
};

// Waits for a limited time until each of these mirrors is held as it was when it was level with its disk.
// Null with the reason in WHY.
std::optional<level_mirrors> wait_until_level(const std::vector<std::string> &guids, std::string *why);
