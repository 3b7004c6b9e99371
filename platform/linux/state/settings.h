// What an administrator has set for the embedded libraries: /etc/kavtessaron/embedded.conf.
#pragma once

#include "platform/linux/state/keep_rule.h"

#include <chrono>
#include <cstdint>
#include <optional>

// What becomes of a mark of a mirror that nothing would keep.
enum class unkept_marks : uint8_t { refused, journal }; // journal: it is a line there, and keeps no data

struct embedded_settings {
    bool freeze = false;
    std::chrono::seconds freeze_after{10};           // without a level, until file systems are frozen
    std::chrono::milliseconds freeze_deadline{2000}; // thawed at the latest then
    std::optional<uint64_t> throttle; // bytes per second, 0: no limit; null: what the mirrors' own file says
    uint64_t tracking_page = 0;       // bytes; 0: the smallest that fits into the memory
    uint64_t tracking_memory = uint64_t{64} << 20; // bytes per disk for the marks
    unkept_marks unkept = unkept_marks::refused;
    keep_rules keep;
    unsigned fill_limit = 95; // percent of a store at which nothing more is kept there; 100: no limit

    bool operator==(const embedded_settings &) const = default;
};

// Reads the file. Each line that cannot be used gets a log line, once for each content of the file, and the
// default, or the first value, holds. No file: the defaults. While the file cannot be read, what was read
// last holds. May be called at any time by any thread.
embedded_settings read_settings();
