// What keeps two marks of one mirror apart, in any threads and processes.
#pragma once

#include "platform/linux/state_fd.h"

#include <string>
#include <vector>

// Waits until nobody else marks any of these mirrors, and is the one who may until the descriptor closes.
// Closed after a log line.
state_fd lock_marks(const std::vector<std::string> &guids);
