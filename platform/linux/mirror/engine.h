// The mirrors of this host. One process runs them: the first that calls any of these functions while no other
// does. All other processes only read. Any number of threads may call these functions.
#pragma once

#include "base/fd.h"
#include "platform/linux/mirror/level_hold.h"
#include "platform/linux/mirror/mirror_view.h"

#include <chrono>

// All mirrors, sorted by source. Also empty, after a log line, if they cannot be read.
std::vector<mirror_view> list_mirrors();

// These return false after a log line; nothing has then changed.
bool protect_disk(const std::string &src_guid, const std::string &dest_guid);
bool unprotect_disk(const std::string &src_guid);
bool resync_disk(const std::string &src_guid);
bool stop_resync(const std::string &src_guid);

// Waits until the mirror is held at a level; see level_hold.h. Closed with errno.
unique_fd hold_at_level(const std::string &dest_guid, std::chrono::milliseconds limit, hold_manner manner);
