// The configuration file: the client record on disk, the daemon's only persistent state.
#pragma once

#include "client/client.h"

#include <memory>

constexpr char config_path[] = "/etc/kavtessaron/qelcd.conf";

// A new record from the file; null after a log line if the file is missing, is not a configuration file, or
// has a section that cannot be loaded. A disk's schedule whose next run has passed continues with the next
// slot.
std::unique_ptr<qel_t> qelcfg_read(const char *path);

// Rewrites the file in place. Does nothing for a null argument. The caller holds the record's lock.
void qelcfg_write(const char *path, const qel_t *c);

// The same with config_path.
std::unique_ptr<qel_t> qel_load();
void qel_save(const qel_t *c);
