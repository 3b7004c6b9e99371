// Before a mirror is overwritten: what would be lost, and whether the person wants that.
#pragma once

#include "tools/qelc/bodies/protection.h"
#include "tools/qelc/disk_contents.h"
#include "tools/qelc/host.h"
#include "tools/qelc/subcommand_options.h"

// What is on the disk with that GUID: as this host sees it if it is the daemon's, else as the report tells
// it. Only the name is set if neither knows.
disk_contents contents_of(host &at, const std::string &guid);

// Shows both disks of each pair on standard error, and asks at the terminal unless --yes or --dry-run was
// given. Throws verb_end if the answer is no, or if there is no terminal to ask.
void confirm_overwriting(host &at, const std::vector<mirror_pair> &pairs, const verb_options &given);
