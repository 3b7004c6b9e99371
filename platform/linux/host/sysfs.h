// Files and folders of the kernel's pseudo file systems. They may vanish at any moment and may have any size:
// a missing or unreadable file gives null and no log line.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

inline constexpr size_t attribute_limit = size_t{64} * 1024;

// The first LIMIT bytes of a file.
std::optional<std::string> read_bytes(const std::string &path, size_t limit = attribute_limit);

// A text attribute without its final newline; blanks stay.
std::optional<std::string> read_attribute(const std::string &path);

// An attribute that is a decimal number.
std::optional<uint64_t> read_number(const std::string &path);

// Writes TEXT with one write call, as attributes need it. False with errno on failure.
bool write_attribute(const std::string &path, const std::string &text);

// The sorted names in a folder, without "." and "..". Null with errno on failure.
std::optional<std::vector<std::string>> list_folder(const std::string &path);

// The kernel name of the disk with that node, e.g. cciss!c0d0 for /dev/cciss/c0d0: names in sysfs have no
// slash.
std::string disk_name_of(std::string path);
