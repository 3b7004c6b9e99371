// The mirror relationships that the twinvault library lists; the destructor releases them.
#pragma once

#include <tw.h>

struct relationship_chain {
    tw_relationship *first; // null: there are none
    // The relationships of one source disk; all of them for a null GUID.
    explicit relationship_chain(const char *src_guid = nullptr) : first(tw_disk_stat(src_guid)) {}
    relationship_chain(const relationship_chain &) = delete;
    relationship_chain &operator=(const relationship_chain &) = delete;
    ~relationship_chain() { tw_disk_stat_release(first); }
};
