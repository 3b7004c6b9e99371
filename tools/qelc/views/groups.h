// The consistency groups in the host's answer.
#pragma once

#include "base/text.h"

#include <optional>
#include <string>
#include <vector>

struct group_view {
    std::string name;
    std::vector<std::string> disks; // GUIDs
};

// None if the text is not a list of groups.
std::optional<std::vector<group_view>> groups_of(const char *answer);

// The groups as a table, or "no groups". None if the text is not a list of groups.
optional_text groups_page(const char *answer);
