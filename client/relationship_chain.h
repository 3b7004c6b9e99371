// The mirror relationships that the twinvault library lists, given back to it at the end.
#pragma once

#include <tw.h>

struct relationship_chain {
    tw_relationship *first; // null: none
    // Those of one source disk; for a null GUID all of them.
    explicit relationship_chain(const char *src_guid = nullptr) : first(tw_disk_stat(src_guid)) {}
    relationship_chain(const relationship_chain &) = delete;
    relationship_chain &operator=(const relationship_chain &) = delete;
    ~relationship_chain() { tw_disk_stat_release(first); }
};
