// Records of a state folder, one file each, named by the record's key. All of these may be called from any
// number of threads and processes. A file that is torn, or that the folder's owner never wrote, is set aside
// with a log line, and there is no such record then.
#pragma once

#include "platform/linux/state_files.h"
#include "platform/linux/state_text.h"

struct record_kind {
    const state_folder &folder;
    const char *name;
    bool (*is_sound)(const record_fields &fields); // the first field is the key
};

// Replaces the record with that key. False after a log line.
bool store_record(const record_kind &kind, const record_fields &fields);

// 1 when it is gone, 0 when there was none, -1 after a log line.
int remove_record(const record_kind &kind, const std::string &key);

// Sets a record aside that is whole, but cannot be true. False after a log line.
bool set_aside_record(const record_kind &kind, const std::string &key);

// What becomes of files that are no records when all are loaded: with LEFT_ALONE they are passed over, for a
// process that only reads.
enum class bad_files { set_aside, left_alone };

// All of that kind, in the order of their files' names. Null after a log line.
std::optional<std::vector<record_fields>> load_records(const record_kind &kind,
                                                       bad_files bad = bad_files::set_aside);
