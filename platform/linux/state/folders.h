// The folders of the libraries that keep state.
#pragma once

#include "platform/linux/state/files.h"

inline constexpr state_folder twinvault = {"/var/lib/twinvault", "twinvault"};
inline constexpr state_folder kavcdpagt = {"/var/lib/kavcdpagt", "kavcdpagt"};
