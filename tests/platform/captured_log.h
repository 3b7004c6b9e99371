// A log_write as a host program of the libraries has it; it keeps the lines.
#pragma once

#include <string>

// All lines since the last call, each with its level in front, e.g. "3 Cannot ...\n".
std::string take_log();
