// The work of the verb init.
#pragma once

#include "tools/qelc/outcome.h"
#include "tools/qelc/subcommand_options.h"

outcome init(const verb_options &given);
