// The site's hooks: programs that do what a snapshot of a mirror is at that site.
#pragma once

#include "platform/linux/agent_devices.h"

inline const std::string hook_folder = "/etc/kavtessaron/mark.d";

enum class hook_action { mark, undo };

// The names of all hooks in the order in which they run; none without the folder. False with the reason in
// WHY.
bool list_hooks(std::vector<std::string> *names, std::string *why);

// Runs one to its end, which comes by force when it takes too long. False with the reason in WHY.
bool run_hook(const std::string &name, hook_action action, const marked_device &of, std::string *why);
