// The log of unit tests, linked in place of the real one: it keeps the lines for the test to compare.
#pragma once

#include "base/log.h"

#include <string>

// The lines up to that level since the last call, each as "LEVEL message\n"; forgets all lines. Comparing the
// whole text finds the line that is missing as well as the one that nobody expects.
std::string take_log(int level = LOG_WARNING);
