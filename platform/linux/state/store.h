// Records of a state folder, one file each, named by the record's key. All functions may be called from any
// number of threads and processes. A file that is torn or was not written by the folder's owner is set aside
// with a log line and counts as missing.
#pragma once

#include "platform/linux/state/files.h"
#include "platform/linux/state/text.h"

struct record_kind {
    const state_folder &folder;
    const char *name;
    bool (*is_sound)(const record_fields &fields); // the first field is the key
};

// Replaces the record with that key. False after a log line.
bool store_record(const record_kind &kind, const record_fields &fields);

// 1 if it was removed, 0 if it did not exist, -1 after a log line.
int remove_record(const record_kind &kind, const std::string &key);

// Sets aside a record that is complete but contradicts another one. False after a log line.
bool set_aside_record(const record_kind &kind, const std::string &key);

// What load_records does with files that are not records. LEFT_ALONE: skips them, for a process that only
// reads.
enum class bad_files { set_aside, left_alone };

// All records of that kind, ordered by file name. Null after a log line.
std::optional<std::vector<record_fields>> load_records(const record_kind &kind,
                                                       bad_files bad = bad_files::set_aside);
