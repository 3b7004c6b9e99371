// Keeps a mirror unchanged while a snapshot of it is taken. A writer of the mirror holds it, and so does a
// reader that needs it unchanged. Holds work between threads and processes.
#pragma once

#include "base/fd.h"

#include <string>
#include <vector>

// Holds all of these mirrors until the descriptor closes. Does not wait: on failure the result is closed,
// with errno. EAGAIN: another holder has one of them; ENOENT: this host has no mirrors.
unique_fd try_hold_mirrors(const std::vector<std::string> &guids);

// Tells everybody, until the descriptor closes, that this process has opened that mirror for itself alone.
unique_fd claim_mirror(const std::string &guid);

// True if anyone has claimed or holds that mirror.
bool is_mirror_in_use(const std::string &guid);
