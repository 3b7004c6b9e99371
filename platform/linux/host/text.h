// Parsing small texts of the kernel: numbers, device numbers, padded strings.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

// The pieces of TEXT between separators that are not empty; they point into it.
std::vector<std::string_view> split(std::string_view text, char separator);

// The decimal number that TEXT consists of; null for anything else, and for a number that is too large.
std::optional<uint64_t> parse_number(std::string_view text);

// "MAJOR:MINOR"; null for anything else.
std::optional<dev_t> parse_device_number(std::string_view text);

// TEXT without leading and trailing blanks and NULs, which SCSI devices use as padding.
std::string_view trim_padding(std::string_view text);
