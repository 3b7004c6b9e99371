// What the tests borrow from the host, given back even when the test process dies: mounts are made in a
// mount namespace of its own, loop devices detach themselves when their last descriptor closes.
#pragma once

#include "platform/include/kavdisk.h"

#include <cstdint>
#include <map>
#include <string>

// Moves this process into its own mount namespace, once. False, with a reason, where that is not allowed.
bool enter_private_mounts(std::string &reason);

// Runs a shell command with VARIABLES in its environment, output discarded. True when it exits with 0.
bool run(const std::string &command, const std::map<std::string, std::string> &variables = {});

std::string read_file(const std::string &path);
void write_file(const std::string &path, const std::string &text); // with the folders above it

struct borrowed {
    borrowed() = default;
    borrowed(const borrowed &) = delete;
    borrowed &operator=(const borrowed &) = delete;
};

struct temp_folder : borrowed {
    temp_folder();
    ~temp_folder();
    const std::string path;
};

// An empty tmpfs over an existing folder.
struct covered_folder : borrowed {
    explicit covered_folder(const std::string &folder);
    ~covered_folder();
    const std::string path;
};

// A loop device over an image file.
struct loop_device : borrowed {
    loop_device(const std::string &image, bool read_only);
    ~loop_device();
    std::string path; // empty when none could be attached
    int node = -1;
};

struct disk_list : borrowed {
    explicit disk_list(int flag);
    ~disk_list();
    const kavdisk_dev *find(const std::string &path) const;
    int result = 0;
    kav_list head;
};

const kavdisk_part *find_part(const kavdisk_dev *dev, const std::string &name);
