// Files and folders of the kernel's pseudo file systems. Whatever is read here may vanish at any moment and
// may have any size: a missing or unreadable file is a null result, never an error.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

inline constexpr size_t attribute_limit = size_t{64} * 1024;

// The first LIMIT bytes of a file.
std::optional<std::string> read_bytes(const std::string &path, size_t limit = attribute_limit);

// A text attribute without its closing newline; blanks stay.
std::optional<std::string> read_attribute(const std::string &path);

// An attribute that is a decimal number.
std::optional<uint64_t> read_number(const std::string &path);

// Writes TEXT with one write call, as attributes want it. False on failure, errno then says why.
bool write_attribute(const std::string &path, const std::string &text);

// The sorted names in a folder, "." and ".." left out. Null on failure, errno then says why.
std::optional<std::vector<std::string>> list_folder(const std::string &path);

// The kernel name of the disk with that node, e.g. cciss!c0d0 for /dev/cciss/c0d0: sysfs has no slash in
// names.
std::string disk_name_of(std::string path);
