// The mirror relationships that the twinvault library lists; the destructor releases them.
#pragma once

#include "base/exceptions.h"

#include <tw.h>

struct relationship_chain {
    tw_relationship *first; // null: there are none
    // The relationships of one source disk; all of them for a null GUID. Throws std::bad_alloc if the library
    // says with errno that it ran out of memory: that is not the same as none.
    explicit relationship_chain(const char *src_guid = nullptr)
    {
        errno = 0;
        first = tw_disk_stat(src_guid);
        if (!first)
            throw_if_memory_ran_out();
    }
    relationship_chain(const relationship_chain &) = delete;
    relationship_chain &operator=(const relationship_chain &) = delete;
    ~relationship_chain() { tw_disk_stat_release(first); }
};
