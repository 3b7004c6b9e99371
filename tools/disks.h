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
    uint64_t used = 0; // likewise
    std::string file_system;
};

struct disk_view {
    std::string name;
    std::string guid;
    uint64_t size = 0; // bytes
    std::string table; // "MBR", "GPT"; "" for none
    std::string vendor;
    bool is_system = false;
    std::vector<partition_view> partitions;
};

// CLIENT is the element of a host in a report. None when it holds no list of disks.
std::optional<std::vector<disk_view>> disks_of(const xmlNode *client);

// The same of a whole report; none also when the text is no client report.
std::optional<std::vector<disk_view>> disks_of(const char *report);

std::string disks_table(const std::vector<disk_view> &disks);

// The disks of a report in a table. Says so when there are none; none when the text is no client report.
optional_text disks_page(const char *report);
