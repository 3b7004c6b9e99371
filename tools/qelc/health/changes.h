// What has changed on a host between two looks.
#pragma once

#include "tools/qelc/health/host_health.h"

#include <ctime>
#include <string>
#include <vector>

struct host_change {
    time_t time = 0;
    const char *about;    // "daemon", "adoption", "mirror", "snapshot"
    std::string now;      // what it is now: "up", "recovering", "taken"
    std::string was;      // "" for what has no state before
    std::string name;     // of the disk, the group or the manager; "" for the daemon
    std::string guid;     // of the disk
    std::string snapshot; // its name
    std::string reason;
};

// What AFTER cannot tell, because the daemon does not answer, is taken to be as it was BEFORE.
void carry_over(const host_health &before, host_health &after);

// In the order of the list above.
std::vector<host_change> changes_between(const host_health &before, const host_health &after);

// The marks that AFTER has read.
std::vector<host_change> marks_in(const host_health &after);

// "sdb: recovering", for a person.
std::string text_of(const host_change &change);
