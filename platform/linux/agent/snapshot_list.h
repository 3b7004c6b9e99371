// What is there of the snapshots that keepers keep.
#pragma once

#include "platform/linux/agent/snapshots.h"

#include <cstdint>
#include <functional>
#include <map>

struct kept_place {
    std::optional<uint64_t> size; // bytes that it takes, if the keeper knows
    std::string device;           // the path under which it is attached; "" if it is not
};

// What the keeper has at those of PLACES where it has something. Null with the reason in WHY.
std::optional<std::map<std::string, kept_place>> look_at_places(const std::string &keeper,
                                                                const std::vector<std::string> &places,
                                                                bool with_sizes, std::string *why);

enum class snapshot_state {
    ok,
    attached,
    unfinished, // it is being taken, or its process did not live to finish it
    gone,       // somebody removed the data of a member at least
    unknown,    // a keeper does not answer
};

struct listed_snapshot {
    snapshot record;
    snapshot_state state = snapshot_state::ok;
    std::string why;              // unknown
    std::optional<uint64_t> size; // of all members, if it was asked for
    std::vector<std::string> devices;
};

struct snapshot_question {
    std::function<bool(const snapshot &)> is_wanted = [](const snapshot &) { return true; };
    bool with_sizes = false; // which may take long
};

// The oldest first. Null, with errno, if the records cannot be read.
std::optional<std::vector<listed_snapshot>> list_snapshots(const snapshot_question &asked = {});

// One of them; null with the reason in WHY.
std::optional<listed_snapshot> look_at_snapshot(const std::string &name, std::string *why);
