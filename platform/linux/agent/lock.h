// Keeps two marks of one mirror apart, between threads and processes.
#pragma once

#include "base/fd.h"

#include <string>
#include <vector>

// Waits for the right to mark these mirrors, which lasts until the descriptor closes. Closed after a log line
// on failure.
unique_fd lock_marks(const std::vector<std::string> &guids);
