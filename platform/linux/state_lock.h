// What keeps threads and processes apart: places of a state folder's lock file.
#pragma once

#include "platform/linux/state_fd.h"
#include "platform/linux/state_files.h"

#include <sys/types.h>

#include <set>

// The place that lock_files takes. The next ones are the owner's to give a meaning.
inline constexpr off_t place_of_files = 0;

// A place beyond those. Two names of one place only come one after the other.
off_t place_of_name(const std::string &name);

// Waits until nobody else changes files of the folder, and is the one who may until the descriptor closes.
// Closed, with errno and without a log line, when that cannot be; ENOENT: there is no folder.
state_fd lock_files(const state_folder &folder);

// The same for any places, in an order that all share: otherwise two callers could wait for each other.
state_fd lock_places(const state_folder &folder, const std::set<off_t> &places);

// The same without waiting; EAGAIN: somebody else has one of them.
state_fd try_lock_places(const state_folder &folder, const std::set<off_t> &places);

// Whether anybody has that place, this process included.
bool is_locked(const state_folder &folder, off_t place);
