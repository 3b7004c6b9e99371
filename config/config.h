// The configuration file: the client record on disk, the daemon's only persistent state.
#pragma once

#include "client/client.h"

#include <memory>

constexpr char config_path[] = "/etc/kavtessaron/qelcd.conf";

// A new record from the file; null after a log line when it is missing, not such a file, or has a section
// that cannot be loaded. Schedules whose next run has passed are moved on to the next slot of their grid.
std::unique_ptr<qel_t> qelcfg_read(const char *path);

// Rewrites the file, in place. A null argument does nothing. The caller holds the record's lock.
void qelcfg_write(const char *path, const qel_t *c);

// The same with config_path.
std::unique_ptr<qel_t> qel_load();
void qel_save(const qel_t *c);
