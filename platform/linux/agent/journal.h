// The journal of all marks, /var/lib/kavcdpagt/journal, one line each.
#pragma once

#include <string>

// The current time (UTC), as a line of the journal begins with it.
std::string time_now();

// Appends a line that begins with the current time and flushes it to disk. False after a log line; nothing is
// then appended.
bool append_journal(const std::string &text);
