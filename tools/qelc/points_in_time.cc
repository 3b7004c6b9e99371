#include "tools/qelc/points_in_time.h"

#include <cctype>
#include <charconv>
#include <ctime>
#include <limits>

namespace {
// The fields as TEXT has them; none if it has another form. A time of day may be left out. REST is what
// follows.
std::optional<tm> read_fields(const char *text, const char *&rest)
{
    tm fields{};
    rest = strptime(text, "%Y-%m-%d", &fields);
    if (!rest)
        return std::nullopt;
    if ((*rest != ' ' && *rest != 'T') || !isdigit(static_cast<unsigned char>(rest[1])))
        return fields;
    rest = strptime(rest + 1, "%H:%M", &fields);
    if (rest && *rest == ':')
        rest = strptime(rest, ":%S", &fields);
    return rest ? std::optional(fields) : std::nullopt;
}

bool is_same_time(const tm &one, const tm &other)
{
    return one.tm_mday == other.tm_mday && one.tm_hour == other.tm_hour && one.tm_min == other.tm_min;
}

std::optional<uint64_t> local_point(const tm &fields)
{
    tm moved = fields;
    moved.tm_isdst = -1;
    const time_t seconds = mktime(&moved);
    if (seconds <= 0 || !is_same_time(moved, fields))
        return std::nullopt;
    return static_cast<uint64_t>(seconds);
}

// Seconds east of Greenwich: "Z", or a sign with HH:MM.
std::optional<int> read_zone(const std::string &text)
{
    if (text == "Z")
        return 0;
    tm fields{};
    const bool has_sign = text.size() == 6 && (text[0] == '+' || text[0] == '-');
    const char *end = has_sign ? strptime(text.c_str() + 1, "%H:%M", &fields) : nullptr;
    if (!end || *end != '\0')
        return std::nullopt;
    const int seconds = fields.tm_hour * 3600 + fields.tm_min * 60;
    return text[0] == '-' ? -seconds : seconds;
}

std::optional<uint64_t> zoned_point(const tm &fields, const std::string &zone)
{
    const auto east = read_zone(zone);
    tm moved = fields;
    const time_t seconds = timegm(&moved);
    if (!east || !is_same_time(moved, fields) || seconds - *east <= 0)
        return std::nullopt;
    return static_cast<uint64_t>(seconds - *east);
}

// With what follows the time as a zone: that of this process if nothing does, or the very abbreviation by
// which local_time_text shows it.
std::optional<uint64_t> parse_date(const std::string &text)
{
    const char *rest = nullptr;
    const auto fields = read_fields(text.c_str(), rest);
    if (!fields)
        return std::nullopt;
    const std::string zone = *rest == ' ' ? rest + 1 : rest;
    if (zone == "Z" || zone.starts_with('+') || zone.starts_with('-'))
        return zoned_point(*fields, zone);
    const auto point = local_point(*fields);
    return point && (*rest == '\0' || text == local_time_text(*point)) ? point : std::nullopt;
}

// "22:00", "today 22:00", "tomorrow 22:00", "tomorrow".
std::optional<uint64_t> parse_time_of_day(const std::string &text)
{
    const size_t gap = text.find(' ');
    const bool tomorrow = text.starts_with("tomorrow"), today = text.starts_with("today");
    const bool has_day = tomorrow || today;
    const std::string clock = !has_day ? text : gap == std::string::npos ? "00:00" : text.substr(gap + 1);
    if (has_day && text.substr(0, gap) != (tomorrow ? "tomorrow" : "today"))
        return std::nullopt;
    const time_t now = time(nullptr);
    tm fields{};
    localtime_r(&now, &fields);
    fields.tm_sec = 0;
    const char *rest = strptime(clock.c_str(), "%H:%M", &fields);
    if (!rest || *rest != '\0')
        return std::nullopt;
    const auto on_day = [&fields](int days) {
        tm day = fields;
        day.tm_mday += days;
        day.tm_isdst = -1;
        const time_t point = mktime(&day);
        return day.tm_hour == fields.tm_hour ? std::optional(static_cast<uint64_t>(point)) : std::nullopt;
    };
    const auto point = on_day(tomorrow ? 1 : 0);
    return !has_day && point && *point <= static_cast<uint64_t>(now) ? on_day(1) : point;
}

// The fields of a point in time; none if it is too large for a date.
std::optional<tm> fields_of(uint64_t seconds, tm *(*split)(const time_t *, tm *))
{
    tm fields{};
    const auto point = static_cast<time_t>(seconds);
    const bool fits = seconds <= std::numeric_limits<time_t>::max() && split(&point, &fields);
    return fits ? std::optional(fields) : std::nullopt;
}
} // namespace

std::optional<uint64_t> parse_point_in_time(const std::string &text)
{
    if (text == "now")
        return static_cast<uint64_t>(time(nullptr));
    int64_t seconds = 0; // the daemon's arithmetic is signed
    const char *last = text.data() + text.size();
    const auto [end, failure] = std::from_chars(text.data(), last, seconds);
    if (end == last)
        return failure == std::errc() && seconds > 0 ? std::optional<uint64_t>(seconds) : std::nullopt;
    const auto point = parse_date(text);
    return point ? point : parse_time_of_day(text);
}

std::optional<uint32_t> parse_interval(const std::string &text)
{
    constexpr struct {
        const char *name;
        uint32_t seconds;
    } units[] = {{"", 1}, {"s", 1}, {"min", 60}, {"m", 60}, {"h", 3600}, {"d", 86400}, {"w", 604800}};
    uint32_t count = 0;
    const char *last = text.data() + text.size();
    const auto [end, failure] = std::from_chars(text.data(), last, count);
    const std::string name(*end == ' ' && end + 1 < last ? end + 1 : end, last);
    for (const auto &unit : units) {
        if (failure == std::errc() && name == unit.name && count > 0 &&
            count <= std::numeric_limits<uint32_t>::max() / unit.seconds)
            return count * unit.seconds;
    }
    return std::nullopt;
}

std::string local_time_text(uint64_t seconds)
{
    char text[64];
    const auto fields = fields_of(seconds, localtime_r);
    if (!fields || strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S %Z", &*fields) == 0)
        return std::to_string(seconds);
    return text;
}

std::string utc_time_text(uint64_t seconds)
{
    char text[64];
    const auto fields = fields_of(seconds, gmtime_r);
    if (!fields || strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &*fields) == 0)
        return std::to_string(seconds);
    return text;
}

std::string date_text(uint64_t seconds)
{
    const std::string whole = local_time_text(seconds);
    return whole.substr(0, whole.find(' '));
}

std::string clock_text(time_t point)
{
    char text[64];
    tm local{};
    return localtime_r(&point, &local) && strftime(text, sizeof text, "%H:%M:%S %Z", &local) ? text : "";
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
