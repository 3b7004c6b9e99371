// Sizes and times for a person to read.
#pragma once

#include <cstdint>
#include <string>

// "1.0 MiB", "34 GiB".
std::string size_text(uint64_t bytes);

// "45 s", "12 min", "3 h", "20 d": in the unit in which the number is small and more than 1.
std::string time_text(uint64_t seconds);
