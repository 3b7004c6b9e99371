// A log that keeps its lines for the test to compare; linked in place of the daemon's own.
#pragma once

#include "base/log.h"

#include <string>

// The lines up to that level since the last call, each as "LEVEL message\n"; forgets all lines. Comparing the
// whole text finds the line that is missing as well as the one that nobody expects.
std::string take_log(int level = LOG_WARNING);
