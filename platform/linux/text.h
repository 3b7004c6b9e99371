// Small texts of the kernel: numbers, device numbers, padded strings.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string_view>

// A decimal number that fills TEXT entirely; null for anything else, an overflow included.
std::optional<uint64_t> parse_number(std::string_view text);

// "MAJOR:MINOR"; null for anything else.
std::optional<dev_t> parse_device_number(std::string_view text);

// TEXT without the blanks and NULs around it, with which SCSI devices pad.
std::string_view trim_padding(std::string_view text);
