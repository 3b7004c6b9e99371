// A mark: a snapshot of one mirror, or of all mirrors of a group at one moment.
#pragma once

#include <string>
#include <vector>

struct mark_order {
    std::string what;               // as the journal names it: "disk", or "group" and a name
    std::vector<std::string> guids; // of the mirrors, without braces or duplicates
};

// Marks all mirrors or none: after a failure the hooks that have run are undone. Waits for other marks of the
// same mirrors. Writes a line to the journal either way. Returns 0, or -1 after a log line.
int mark_mirrors(const mark_order &order);
