// What the verbs for single snapshots share, and the work of the verb snapshots restore.
#pragma once

#include "platform/linux/agent/snapshots.h"
#include "tools/qelc/outcome.h"
#include "tools/qelc/subcommand_options.h"

// The first snapshot that was named; throws verb_end if there is none of that name.
snapshot require_snapshot(const verb_options &given);

outcome restore(const verb_options &given);
