// A mark: the moment of which a snapshot of one mirror, or of all mirrors of a group, is taken.
#pragma once

#include <string>
#include <vector>

struct mark_order {
    std::string what;               // as the journal names it: "disk", or "group" and a name
    std::vector<std::string> guids; // of the mirrors, without braces, none twice
};

// All or nothing: what hooks had done when something failed is undone. Keeps whoever marks one of the same
// mirrors waiting. Either way a line goes into the journal. 0, or -1 after a log line.
int mark_mirrors(const mark_order &order);
