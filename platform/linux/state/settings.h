// The settings of the embedded libraries, /etc/kavtessaron/embedded.conf.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

struct embedded_settings {
    bool freeze = false;
    std::chrono::seconds freeze_after{10};
    std::chrono::milliseconds freeze_deadline{2000};
    std::optional<uint64_t> throttle;
    uint64_t tracking_page = 0;
    uint64_t tracking_memory = uint64_t{64} << 20;
};

// What the file says; the defaults where it says nothing.
embedded_settings read_settings();
