// The journal of all marks, /var/lib/kavcdpagt/journal, a line each.
#pragma once

#include <string>

// Appends a line that begins with the present time. All of it is on the disk then, or nothing of it stays;
// false after a log line.
bool append_journal(const std::string &text);
