// A mirror relationship as stored in /var/lib/twinvault.
#pragma once

#include "platform/linux/mirror/write_mark.h"
#include "platform/linux/state/folders.h"
#include "platform/linux/state/store.h"

enum class sync_state { never, copying, recovering, level, cancelled };

struct mirror_record {
    std::string src_guid;
    std::string dest_guid;
    std::string src_path; // as last seen
    std::string dest_path;
    bool src_is_up = true;
    bool dest_is_up = true;
    uint64_t size = 0; // of the source, in bytes
    sync_state state = sync_state::never;
    uint64_t position = 0; // everything before it is safely on the mirror
    write_mark mark;       // of the source, when the current pass began or when the two were last level
    write_mark dest_mark;  // of the mirror, likewise

    bool operator==(const mirror_record &) const = default;
};

// The longest GUID that fits into a tw_relationship.
inline constexpr size_t longest_guid_text = 63;

// "Sync Finished" and the other texts of tw_relationship.
const char *text_of(sync_state state);

unsigned percent_of(const mirror_record &record, uint64_t position);

// These return false or null after a log line.
bool save_mirror(const mirror_record &record);
bool forget_mirror(const mirror_record &record);
bool set_aside_mirror(const mirror_record &record);
std::optional<std::vector<mirror_record>> load_mirrors(bad_files bad);
