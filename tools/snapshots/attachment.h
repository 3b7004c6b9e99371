// A snapshot that is attached for as long as something is done with it.
#pragma once

#include "platform/linux/agent/snapshot_list.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

// Takes a line for the person who waits.
using line_taker = std::function<void(const std::string &line)>;

struct attached_snapshot {
    snapshot record;
    std::vector<std::string> devices; // paths, in the order of its members
    bool was_attached = false;        // before
};

// Null with the reason in WHY; nothing is attached then that was not before.
std::optional<attached_snapshot> attach_if_needed(const std::string &name, std::string *why);

// Ends the devices. The kernel may keep one for a moment after its last user has closed it, so this waits for
// some seconds. False with the reason in WHY.
bool detach_patiently(const std::string &name, std::string *why);

// The kernel's name of the disk with that GUID; the GUID if the host has no such disk.
std::string disk_title(const std::string &guid);
