// A snapshot that is attached for as long as something is done with it.
#pragma once

#include "platform/linux/agent/snapshot_acts.h"

#include <functional>
#include <map>
#include <string>

// Takes a line for the person who waits.
using line_taker = std::function<void(const std::string &line)>;

// Ends the devices. The kernel may keep one for a moment after its last user has closed it, so this waits for
// some seconds. False with the reason in WHY.
bool detach_patiently(const std::string &name, std::string *why);

// The kernel's names of the disks of this host by their GUIDs.
std::map<std::string, std::string> disk_titles();

// The kernel's name of the disk with that GUID; the GUID if the host has no such disk.
std::string disk_title(const std::string &guid);
