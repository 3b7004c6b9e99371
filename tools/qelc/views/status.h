// The state of a host, for a person, a monitoring plugin and programs.
#pragma once

#include "tools/qelc/health/judge.h"
#include "tools/qelc/views/envelope.h"

#include <string>

// The first line: "CRITICAL  db1: mirror of sdb is 14 min behind".
std::string status_line(const host_health &seen, const verdict &found);

// That line, what there is of the host, the worst mirrors first, and a hint. Lines but the first and the hint
// are cut to the width of the terminal, as tables are.
std::string status_page(const host_health &seen, const verdict &found, const health_limits &limits);

// One object with all of it.
json_object status_object(const host_health &seen, const verdict &found, const health_limits &limits);

// What a mirror does: "level", "43 %, 90 MiB/s, 4 s left", "down, /dev/sdd is not there".
std::string mirror_words(const mirror_health &one);

// The last and the next snapshot of all series; 0 for none.
time_t last_snapshot(const host_health &seen);
uint64_t next_of(const host_health &seen);
