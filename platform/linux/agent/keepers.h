// Keepers: programs that keep what a mirror holds as a snapshot, and list, attach and remove it. The vendor's
// stand in keepers.d beside the embedded libraries, the site's in /etc/kavtessaron/keepers.d; docs/agent.md
// has their contract. Nothing here logs: the reason is for the caller.
#pragma once

#include "platform/linux/agent/snapshots.h"

#include <optional>
#include <string>
#include <vector>

struct keeper {
    std::string name;
    std::string path;
};

inline const std::string keeper_folder = "/etc/kavtessaron/keepers.d";

// In the order of their names. The site's replaces the vendor's of the same name; one that is no program, for
// example a link to /dev/null, only takes that one away. Null with the reason in WHY.
std::optional<std::vector<keeper>> list_keepers(std::string *why);

enum class keeper_verb { probe, mark, undo, list, attach, detach, remove, space };

struct keeper_answer {
    bool is_done = false;
    bool is_not_mine = false; // it has nothing to do with that mirror
    std::string output;       // without the last end of line
    std::string why;          // not done
};

// Runs VERB for one member of a snapshot and waits for its end; kills it if it takes too long. LOCK is that
// of the snapshot: if this process is killed, the keeper and what it has started hold it until they have
// ended.
keeper_answer ask_keeper(const keeper &who, keeper_verb verb, const snapshot &of, const snapshot_member &one,
                         const unique_fd &lock);

// The same, by the name of the member's keeper.
keeper_answer ask_keeper_of(keeper_verb verb, const snapshot &of, const snapshot_member &one,
                            const unique_fd &lock);

// The answer of LIST for these places. Sizes may take the keeper long to find.
keeper_answer ask_keeper_for_list(const std::string &name, const std::vector<std::string> &places,
                                  bool with_sizes);
