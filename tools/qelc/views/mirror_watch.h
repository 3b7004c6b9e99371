// The progress of mirrors, until nothing is copied any more.
#pragma once

#include "tools/qelc/host.h"
#include "tools/qelc/subcommand_options.h"

// Follows the mirrors of the disks that were given, of all if none were, and says in the end whether each is
// level. With --watch it shows what runs: on a terminal a bar for each that is redrawn in place, elsewhere a
// line for each change. Goes on when the working process is restarted.
outcome follow_mirrors(host &at, const verb_options &given);
