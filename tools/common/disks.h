// The disks in a client report.
#pragma once

#include "base/xml.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct partition_view {
    std::string name;
    std::string guid;
    uint64_t size = 0; // bytes
    uint64_t used = 0; // bytes
    std::string file_system;
    std::string label = ""; // of the file system; a report does not tell it
};

struct disk_view {
    std::string name;
    std::string guid;
    uint64_t size = 0; // bytes
    std::string table; // "MBR", "GPT"; "" for none
    std::string vendor;
    bool is_system = false;
    std::vector<partition_view> partitions;
    std::string role = ""; // among mirrors, in words; "" for none, and as a report has it
};

// CLIENT is the element of the host in a report. None if it has no list of disks.
std::optional<std::vector<disk_view>> disks_of(const xmlNode *client);

// The same for a whole report. None also if the text is not a client report.
std::optional<std::vector<disk_view>> disks_of(const char *report);

std::string disks_table(const std::vector<disk_view> &disks);
