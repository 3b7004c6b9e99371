// A mirror relationship as it is kept in /var/lib/twinvault.
#pragma once

#include "platform/linux/state_folders.h"
#include "platform/linux/state_store.h"
#include "platform/linux/write_mark.h"

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
    uint64_t position = 0; // all before it is on the mirror for good
    write_mark mark;       // of the source, when what is under way began, or when the two were last level

    bool operator==(const mirror_record &) const = default;
};

// What fits into a tw_relationship.
inline constexpr size_t longest_guid_text = 63;

// "Sync Finished" and its like.
const char *text_of(sync_state state);

unsigned percent_of(const mirror_record &record, uint64_t position);

// All of these are false or null after a log line.
bool save_mirror(const mirror_record &record);
bool forget_mirror(const mirror_record &record);
bool set_aside_mirror(const mirror_record &record);
std::optional<std::vector<mirror_record>> load_mirrors(bad_files bad);
