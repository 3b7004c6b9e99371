// The devices that the agent knows: every mirror that was ever marked, until it is forgotten.
#pragma once

#include "kavagt.h"

#include <memory>
#include <string>
#include <vector>

struct marked_device {
    std::string guid; // without braces
    std::string path;
};

struct device_freer {
    void operator()(Kavdev *device) const noexcept;
};
using device_record = std::unique_ptr<Kavdev, device_freer>; // malloc'd, its path as well

// What fits into the agent's record beside the braces.
inline constexpr size_t longest_guid = sizeof(Kavdev::guid) - 3;

// The path may be another one than before. False after a log line.
bool keep_device(const marked_device &marked);

// 1 when it is gone, 0 when there was none, -1 after a log line.
int forget_device(const std::string &guid);

// False after a log line.
bool load_devices(std::vector<device_record> *devices);
