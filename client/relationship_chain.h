// The mirror relationships that the twinvault library lists, given back to it at the end.
#pragma once

#include <tw.h>

struct relationship_chain {
    tw_relationship *first = tw_disk_stat(nullptr); // null: none
    relationship_chain() = default;
    relationship_chain(const relationship_chain &) = delete;
    relationship_chain &operator=(const relationship_chain &) = delete;
    ~relationship_chain() { tw_disk_stat_release(first); }
};
