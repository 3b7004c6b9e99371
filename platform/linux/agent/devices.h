// The devices that the agent knows: every mirror that was ever marked, until it is removed.
#pragma once

#include "base/deleter.h"
#include "kavagt.h"

#include <memory>
#include <string>
#include <vector>

struct marked_device {
    std::string guid; // without braces
    std::string path;
    std::string source = {};      // the GUID of its disk, without braces
    std::string source_path = {}; // of its disk
};

// Frees the record and its path, which come from malloc.
void free_device(Kavdev *device);
using device_record = std::unique_ptr<Kavdev, deleter<free_device>>;

// What fits into Kavdev::guid with the braces and the final NUL.
inline constexpr size_t longest_guid = sizeof(Kavdev::guid) - 3;

// Stores a device or replaces its path. False after a log line.
bool keep_device(const marked_device &marked);

// 1 if it was removed, 0 if it did not exist, -1 after a log line.
int forget_device(const std::string &guid);

// False after a log line.
bool load_devices(std::vector<device_record> *devices);
