// Mirror volumes of this host: made, shown as loop devices, listed and removed. A command that is killed at
// any moment leaves nothing half for long: the next one removes what it was about to make, and ends a
// removal.
#pragma once

#include "tools/volumes/record.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

// Takes a line for the person who waits.
using line_taker = std::function<void(const std::string &line)>;

struct volume_wish {
    std::string disk;         // as find_disk takes it
    std::string where;        // as read_place takes it
    std::string name;         // "": made from its GUID
    bool may_be_lost = false; // at the next start of the host
    bool is_plan = false;     // nothing is made; the new volume has no device
};

struct new_volume {
    std::string name;
    std::string device;    // path
    std::string guid;      // of the volume
    std::string disk_guid; // of the disk that it was made for; "" if that has none
};

// What is to be known beside the end goes to SAY: the room that there is, and what became of the traces of
// earlier commands.

// Null with the reason in WHY; nothing is left then.
std::optional<new_volume> create_volume(const volume_wish &wish, const line_taker &say, std::string *why);

// Removes the volume with what is on it. Returns why not, "" on success.
std::string delete_volume(const std::string &name, const line_taker &say);

// Why it would not be deleted; "" if it would.
std::string deletion_objection(const volume_record &volume);

struct volume_device {
    std::string name;
    std::string device; // path; "" if there is a FAULT and no device
    std::string fault;  // "" for none
    bool is_new = false;
};

// Shows all volumes as disks that are not. Null with the reason in WHY.
std::optional<std::vector<volume_device>> attach_volumes(const line_taker &say, std::string *why);

struct volume_view {
    volume_record volume;
    std::optional<uint64_t> taken;     // bytes
    std::optional<std::string> device; // path
    std::string fault;                 // why there is no device
    std::string source;                // GUID of the disk that it mirrors; "" for none
    std::string source_name;           // of that disk, if the host has it
};

// Null after a log line.
std::optional<std::vector<volume_view>> view_volumes();
