// Which snapshot a command has taken. The daemon's answer does not say it; the agent's records do, on the
// host itself.
#pragma once

#include "tools/qelc/subcommand_options.h"

#include <set>

class new_snapshots {
public:
    // Looks which ones there are before the command, if it IS_WANTED.
    explicit new_snapshots(bool is_wanted);

    // Prints the name of the one that the command has taken, on standard error with JSON, and gives it the
    // note. Says nothing of a snapshot that no keeper keeps, unless there is a note. Returns what the program
    // ends with.
    int tell(const verb_options &given, bool as_json) const;

private:
    std::set<std::string> former_;
};
