// The site's hooks: programs that take a snapshot of a mirror in the site's own way.
#pragma once

#include "platform/linux/agent/devices.h"

inline const std::string hook_folder = "/etc/kavtessaron/mark.d";

enum class hook_action { mark, undo };

// The names of all hooks in the order in which they run; empty if the folder does not exist. False with the
// reason in WHY.
bool list_hooks(std::vector<std::string> *names, std::string *why);

// Runs one hook and waits for it; kills it if it takes too long. False with the reason in WHY.
bool run_hook(const std::string &name, hook_action action, const marked_device &of, std::string *why);
