// Points in time as a person writes and reads them, in the time zone of this process.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

constexpr char point_in_time_forms[] =
    "now, HH:MM, today or tomorrow HH:MM, YYYY-MM-DD [HH:MM[:SS] [zone]], or seconds "
    "since the epoch";
constexpr char interval_forms[] = "a number of seconds, or a number with s, min, h, d or w";

// Seconds since the epoch, more than 0. A time of day alone is the next one. None for a text in another form,
// or for a time that the calendar or the clock skips.
std::optional<uint64_t> parse_point_in_time(const std::string &text);

// Seconds, more than 0. None for a text in another form.
std::optional<uint32_t> parse_interval(const std::string &text);

// "2031-05-01 12:00:00 CEST"; the number itself if it is too large for a date.
std::string local_time_text(uint64_t seconds);

// That for programs, "2031-05-01T10:00:00Z" (RFC 3339).
std::string utc_time_text(uint64_t seconds);

// "2031-05-01".
std::string date_text(uint64_t seconds);

// "12:00:00 CEST".
std::string clock_text(time_t point);

// "90 s", "10 min", "1 h", "2 d": in the largest unit that divides it.
std::string interval_text(uint32_t seconds);
