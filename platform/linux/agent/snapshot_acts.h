// Attaching, detaching and removing snapshots. For qelc, which an administrator runs on the host; the agent
// itself does none of it.
#pragma once

#include "platform/linux/agent/snapshots.h"

#include <optional>
#include <string>
#include <vector>

struct attached_snapshot {
    snapshot record;
    std::vector<std::string> devices; // paths, in the order of its members
    bool was_attached = false;        // before
};

// Makes a read-only block device of each member; of one that is attached, it gives the device. All members or
// none: null with the reason in WHY, and nothing is attached then that was not before.
std::optional<attached_snapshot> attach_snapshot(const std::string &name, std::string *why);

// True if it was not attached. False with the reason in WHY.
bool detach_snapshot(const std::string &name, std::string *why);

// Removes the data and then the record. One that is attached is refused. False with the reason in WHY; what
// is left can be removed again.
bool remove_snapshot(const std::string &name, std::string *why);

// Writes a note into the record. False with the reason in WHY.
bool note_snapshot(const std::string &name, const std::string &note, std::string *why);
