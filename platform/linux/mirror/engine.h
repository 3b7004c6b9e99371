// The mirrors of this host. One process runs them: the first that calls any of these functions while no other
// does. All other processes only read. Any number of threads may call these functions.
#pragma once

#include "base/fd.h"
#include "platform/linux/mirror/level_hold.h"
#include "platform/linux/mirror/mirror_view.h"

#include <chrono>

// All mirrors, sorted by source. Also empty, after a log line, if they cannot be read. A mirror whose disk is
// written to all the time is level now and then, for a moment: that one has been in the course of a call that
// waits says that it is level. Such a call returns after LIMIT at the latest, and does not wait for a mirror
// for which the one before waited in vain.
std::vector<mirror_view> list_mirrors(std::chrono::milliseconds limit);

// These return false after a log line; nothing has then changed.
bool protect_disk(const std::string &src_guid, const std::string &dest_guid);
bool unprotect_disk(const std::string &src_guid);
bool resync_disk(const std::string &src_guid);
bool stop_resync(const std::string &src_guid);

// Waits until the mirror is held at a level; see level_hold.h. Closed with errno.
unique_fd hold_at_level(const std::string &dest_guid, std::chrono::milliseconds limit, hold_manner manner);
