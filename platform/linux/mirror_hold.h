// What keeps a mirror as it is while a snapshot of it is taken: whoever writes to a mirror holds it
// meanwhile, and so does whoever needs it unchanged. Holds keep threads and processes apart.
#pragma once

#include "platform/linux/state_fd.h"

#include <string>
#include <vector>

// Holds all of these mirrors until the descriptor closes. Closed, with errno and without waiting, when that
// cannot be; EAGAIN: somebody else holds one of them; ENOENT: there are no mirrors on this host.
state_fd try_hold_mirrors(const std::vector<std::string> &guids);

// Whether anybody holds that mirror.
bool is_mirror_held(const std::string &guid);
