// How many snapshots stay, as an administrator says it: "all", or for example "last 10, daily 7, monthly 12".
#pragma once

#include <limits>
#include <map>
#include <string>
#include <string_view>

inline constexpr unsigned all_snapshots = std::numeric_limits<unsigned>::max();

// So many of the last snapshots stay, and the first one each of so many hours, days, weeks and months.
struct keep_rule {
    unsigned last = all_snapshots, hourly = 0, daily = 0, weekly = 0, monthly = 0;

    bool operator==(const keep_rule &) const = default;
};

struct keep_rules {
    keep_rule usual;
    std::map<std::string, keep_rule> others; // by "disk GUID" and "group NAME"; a GUID has small letters

    const keep_rule &rule_for(bool is_group, const std::string &name) const;
    bool operator==(const keep_rules &) const = default;
};

// Sets the rule of KEY, which is "keep", "keep disk GUID" or "keep group NAME". Returns what is wrong with
// VALUE, "" for nothing; nothing of that disk or group is then let go.
std::string set_keep_rule(std::string_view key, std::string_view value, keep_rules &all);

// Whether KEY is one of these.
bool is_keep_key(std::string_view key);
