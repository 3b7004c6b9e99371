// The records of restores that are not finished, /var/lib/kavcdpagt/GUID.restore. As long as there is one,
// its disk may hold a part of the snapshot and a part of what it held before.
#pragma once

#include "base/fd.h"

#include <optional>
#include <string>
#include <vector>

struct restore_record {
    std::string disk;          // GUID without braces, of the disk that is written to
    std::string snapshot;      // by name
    bool was_attached = false; // before the restore

    bool operator==(const restore_record &) const = default;
};

// False after a log line, with errno.
bool store_restore(const restore_record &one);

// False after a log line; true if there is none.
bool forget_restore(const std::string &disk);

// Null after a log line.
std::optional<std::vector<restore_record>> load_restores();

// The right to restore to that disk, until the descriptor closes. Does not wait: closed with errno, EAGAIN if
// another process has it.
unique_fd try_lock_restore(const std::string &disk);

// True if a process is at it.
bool is_restore_running(const std::string &disk);
