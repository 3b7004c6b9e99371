// A mark: a snapshot of one mirror, or of all mirrors of a group at one moment.
#pragma once

#include <string>
#include <vector>

struct mark_order {
    std::string group;              // its name; "" for a mark of one disk
    std::vector<std::string> guids; // of the mirrors, without braces or duplicates
};

// Marks all mirrors or none: after a failure the hooks and keepers that have run are undone. Fails for a
// mirror that nothing would keep, unless the site has set that it is only to stand in the journal. Waits for
// other marks of the same mirrors. Writes a line to the journal either way. Returns 0, or -1 after a log
// line.
int mark_mirrors(const mark_order &order);
