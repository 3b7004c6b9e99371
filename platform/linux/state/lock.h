// Locks between threads and processes: places (byte offsets) of a state folder's lock file.
#pragma once

#include "base/fd.h"
#include "platform/linux/state/files.h"

#include <sys/types.h>

#include <set>

// The place that lock_files takes. The folder's owner decides what the next ones mean.
inline constexpr off_t place_of_files = 0;

// The place for NAME, beyond those. Computed alike by every build of every program. If two names share a
// place, one waits for the other.
off_t place_of_name(const std::string &name);

// Waits for the lock on the folder's files, which is held until the descriptor closes. On failure the result
// is closed, with errno and without a log line; ENOENT: there is no folder.
unique_fd lock_files(const state_folder &folder);

// The same for any places, locked in ascending order so that two callers cannot wait for each other.
unique_fd lock_places(const state_folder &folder, const std::set<off_t> &places);

// The same without waiting; EAGAIN: another holder has one of them.
unique_fd try_lock_places(const state_folder &folder, const std::set<off_t> &places);

// True if anyone holds that place, including this process.
bool is_locked(const state_folder &folder, off_t place);
