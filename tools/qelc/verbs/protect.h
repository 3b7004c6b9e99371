// The verbs that make and end mirrors.
#pragma once

#include "tools/qelc/host.h"
#include "tools/qelc/subcommand_options.h"

outcome protect(host &at, const verb_options &given);
outcome unprotect(host &at, const verb_options &given);
outcome resync(host &at, const verb_options &given);
outcome cancel_resync(host &at, const verb_options &given);
