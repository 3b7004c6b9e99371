// The verbs that make and end mirrors.
#pragma once

#include "tools/qelc/bodies/protection.h"
#include "tools/qelc/host.h"
#include "tools/qelc/subcommand_options.h"

struct wanted_pair {
    named_disk source;
    named_disk mirror;
};

std::vector<mirror_pair> guids_of(const std::vector<wanted_pair> &pairs);

// What the report and the disks tell against them: these throw verb_end.
void check_source(host &at, const named_disk &source); // protected already, or a mirror
void check_is_no_mirror(host &at, const named_disk &disk);
void check_pairs(host &at, const std::vector<wanted_pair> &pairs);

// Has the daemon protect them, with the group and the schedule that were given, and looks what is there then.
outcome protect_pairs(host &at, const std::vector<wanted_pair> &pairs, const verb_options &given);

// Has the daemon copy protected disks to their mirrors as a whole, and looks what it does.
outcome copy_disks(host &at, const std::vector<named_disk> &disks);

outcome protect(host &at, const verb_options &given);
outcome unprotect(host &at, const verb_options &given);
outcome resync(host &at, const verb_options &given);
outcome cancel_resync(host &at, const verb_options &given);
outcome mirror(host &at, const verb_options &given);
