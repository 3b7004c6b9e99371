// The mirror relationships of this host, as the mirror library tells of them.
#pragma once

#include "platform/linux/agent_devices.h"
#include "platform/linux/state_fd.h"

#include <optional>

struct level_mirrors {
    std::vector<marked_device> mirrors; // in the order asked for
    state_fd hold;                      // nothing is written to them until it closes
};

// Waits, for a limited time, until every one of these mirrors is level with its disk, all of them at one
// moment. Null with the reason in WHY.
std::optional<level_mirrors> wait_until_level(const std::vector<std::string> &guids, std::string *why);
