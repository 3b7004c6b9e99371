#include "tools/common/human_text.h"

#include <cstdio>
#include <iterator>

std::string size_text(uint64_t bytes)
{
    constexpr const char *units[] = {"B", "KiB", "MiB", "GiB", "TiB", "PiB"};
    auto size = static_cast<double>(bytes);
    size_t unit = 0;
    for (; size >= 1024 && unit + 1 < std::size(units); ++unit)
        size /= 1024;
    char text[32];
    snprintf(text, sizeof text, size < 10 && unit > 0 ? "%.1f %s" : "%.0f %s", size, units[unit]);
    return text;
}

std::string time_text(uint64_t seconds)
{
    constexpr struct {
        uint32_t seconds;
        const char *name;
    } units[] = {{24 * 60 * 60, " d"}, {60 * 60, " h"}, {60, " min"}};
    for (const auto &unit : units) {
        if (seconds / unit.seconds >= 2)
            return std::to_string(seconds / unit.seconds) + unit.name;
    }
    return std::to_string(seconds) + " s";
}
