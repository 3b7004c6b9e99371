// A change on a host, for programs.
#pragma once

#include "tools/qelc/health/changes.h"
#include "tools/qelc/views/envelope.h"

// One line.
std::string change_line(const host_change &change);

// The line before the first change: what the changes begin from.
std::string begin_line(const host_health &seen);
