// Which snapshot a command has taken. The daemon's answer does not say it; the agent's records do, on the
// host itself.
#pragma once

#include "tools/qelc/bodies/protection.h"
#include "tools/qelc/outcome.h"

#include <set>

class new_snapshots {
public:
    // Looks which ones there are before the command, if it IS_WANTED.
    explicit new_snapshots(bool is_wanted);

    // The name of the one that the command has taken of SOURCE; "" if no keeper of this host keeps it.
    std::string find(const snapshot_source &source) const;

    // Gives the one that the command has taken of SOURCE the note, unless that is "". Returns an item with
    // its name, or SOURCE's, if no keeper of this host keeps it.
    outcome name_and_note(const snapshot_source &source, const std::string &note, verb_item of_source) const;

private:
    std::set<std::string> former_;
};
