// Mirror volumes of this host as they are remembered in /var/lib/qelcd-volumes. Only root may read them.
#pragma once

#include "base/fd.h"
#include "platform/linux/state/store.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// A volume is whole while it may be used. What is left in another state is the trace of a command that was
// ended before it was done: what it made is removed by the next one.
enum class volume_state { creating, whole, deleting };
enum class volume_kind { file, thin, thick };

struct volume_record {
    std::string name;
    std::string guid; // made of its signature, see disk_signature.h
    volume_state state = volume_state::creating;
    volume_kind kind = volume_kind::file;
    std::string place;  // path of the file, or VG/LV
    uint64_t size = 0;  // bytes, of the disk that it was made for
    uint64_t block = 0; // bytes, of a logical block

    bool operator==(const volume_record &) const = default;
};

const char *text_of(volume_state state);
const char *text_of(volume_kind kind);

// True for a name that a file, an LVM volume and a record can have.
bool is_volume_name(const std::string &name);

// Held by a command that changes anything, until the descriptor closes; waits for another one. Closed after a
// log line.
unique_fd lock_volumes();

// These return false or null after a log line.
bool save_volume(const volume_record &volume);
bool forget_volume(const volume_record &volume);
std::optional<std::vector<volume_record>> load_volumes(bad_files bad);

// The paths of records that were set aside, since they are damaged.
std::vector<std::string> damaged_volumes();
