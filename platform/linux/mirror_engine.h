// The mirrors of this host. One process at a time runs them, the first that calls any of these while nobody
// does; every other process only reads. All of these may be called by any number of threads.
#pragma once

#include "platform/linux/mirror_record.h"

struct mirror_view {
    mirror_record record;
    unsigned percent = 0;
};

// All of them, sorted by source. Empty also when they cannot be read, after a log line.
std::vector<mirror_view> list_mirrors();

// All of these are false after a log line; then nothing has changed.
bool protect_disk(const std::string &src_guid, const std::string &dest_guid);
bool unprotect_disk(const std::string &src_guid);
bool resync_disk(const std::string &src_guid);
bool stop_resync(const std::string &src_guid);
