#include "tools/qelc/points_in_time.h"

#include <charconv>
#include <ctime>
#include <limits>

namespace {
constexpr char format[] = "%Y-%m-%d %H:%M:%S";

std::optional<uint64_t> parse_local_time(const std::string &text)
{
    tm fields{};
    const char *rest = strptime(text.c_str(), "%Y-%m-%d %H:%M", &fields);
    if (rest && *rest == ':')
        rest = strptime(rest, ":%S", &fields);
    if (!rest || *rest != '\0')
        return std::nullopt;
    fields.tm_isdst = -1;
    tm moved = fields;
    const time_t seconds = mktime(&moved);
    if (seconds <= 0 || moved.tm_mday != fields.tm_mday || moved.tm_hour != fields.tm_hour ||
        moved.tm_min != fields.tm_min)
        return std::nullopt;
    return static_cast<uint64_t>(seconds);
}
} // namespace

std::optional<uint64_t> parse_point_in_time(const std::string &text)
{
    if (text == "now")
        return static_cast<uint64_t>(time(nullptr));
    int64_t seconds = 0; // the daemon's arithmetic is signed
    const char *last = text.data() + text.size();
    const auto [end, failure] = std::from_chars(text.data(), last, seconds);
    if (end != last)
        return parse_local_time(text);
    return failure == std::errc() && seconds > 0 ? std::optional<uint64_t>(seconds) : std::nullopt;
}

std::string local_time_text(uint64_t seconds)
{
    tm fields{};
    const auto point = static_cast<time_t>(seconds);
    char text[32];
    if (seconds > std::numeric_limits<time_t>::max() || !localtime_r(&point, &fields) ||
        strftime(text, sizeof text, format, &fields) == 0)
        return std::to_string(seconds);
    return text;
}

std::string interval_text(uint32_t seconds)
{
    constexpr struct {
        uint32_t seconds;
        const char *name;
    } units[] = {{24 * 60 * 60, " d"}, {60 * 60, " h"}, {60, " min"}};
    for (const auto &unit : units) {
        if (seconds % unit.seconds == 0)
            return std::to_string(seconds / unit.seconds) + unit.name;
    }
    return std::to_string(seconds) + " s";
}
