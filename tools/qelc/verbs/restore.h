// The work of the verb snapshots restore.
#pragma once

#include "tools/qelc/subcommand_options.h"

// Returns what the program ends with.
int restore(const verb_options &given, bool as_json);
