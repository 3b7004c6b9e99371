#include "platform/linux/state/settings.h"

#include "platform/linux/host/sysfs.h"
#include "platform/linux/host/text.h"
#include "platform/linux/host/weak_log.h"
#include "platform/linux/state/text.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <set>

namespace {

constexpr char path[] = "/etc/kavtessaron/embedded.conf";

// "" for what was read without a fault.
using complaint = std::string;

// A number may end with K, M or G.
std::optional<uint64_t> scan_number(std::string_view text)
{
    constexpr std::string_view units = "KMG";
    const size_t unit = text.empty() ? std::string_view::npos : units.find(text.back());
    const unsigned shift = unit == std::string_view::npos ? 0 : static_cast<unsigned>(unit + 1) * 10;
    if (shift > 0)
        text.remove_suffix(1);
    const auto number = parse_number(text);
    if (!number || *number > UINT64_MAX >> shift)
        return std::nullopt;
    return *number << shift;
}

complaint set_number(std::string_view text, uint64_t least, uint64_t most, uint64_t &value)
{
    const auto number = scan_number(text);
    if (!number)
        return "is no number";
    if (*number < least || *number > most)
        return "is not between " + std::to_string(least) + " and " + std::to_string(most);
    value = *number;
    return "";
}

template <class Duration>
complaint set_duration(std::string_view text, uint64_t least, uint64_t most, Duration &value)
{
    uint64_t number = 0;
    complaint wrong = set_number(text, least, most, number);
    if (wrong.empty())
        value = Duration(number);
    return wrong;
}

complaint set_freeze(std::string_view text, embedded_settings &all)
{
    if (text != "yes" && text != "no")
        return "is neither yes nor no";
    all.freeze = text == "yes";
    return "";
}

complaint set_freeze_after(std::string_view text, embedded_settings &all)
{
    return set_duration(text, 0, 86400, all.freeze_after);
}

complaint set_freeze_deadline(std::string_view text, embedded_settings &all)
{
    return set_duration(text, 500, 5000, all.freeze_deadline);
}

complaint set_throttle(std::string_view text, embedded_settings &all)
{
    uint64_t rate = 0;
    complaint wrong = set_number(text, 0, UINT64_MAX, rate);
    if (wrong.empty())
        all.throttle = rate;
    return wrong;
}

complaint set_tracking_page(std::string_view text, embedded_settings &all)
{
    const auto page = scan_number(text);
    if (!page || (*page != 0 && (*page < 4096 || *page > 1 << 20 || !std::has_single_bit(*page))))
        return "is neither 0 nor a power of two between 4096 and 1M";
    all.tracking_page = *page;
    return "";
}

complaint set_tracking_memory(std::string_view text, embedded_settings &all)
{
    return set_number(text, 4096, uint64_t{4} << 30, all.tracking_memory);
}

complaint set_unkept(std::string_view text, embedded_settings &all)
{
    if (text != "journal" && text != "refuse")
        return "is neither journal nor refuse";
    all.unkept = text == "journal" ? unkept_marks::journal : unkept_marks::refused;
    return "";
}

complaint set_fill_limit(std::string_view text, embedded_settings &all)
{
    uint64_t limit = 0;
    complaint wrong = set_number(text, 1, 100, limit);
    if (wrong.empty())
        all.fill_limit = static_cast<unsigned>(limit);
    return wrong;
}

constexpr struct {
    std::string_view key;
    complaint (*set)(std::string_view text, embedded_settings &all);
} known[] = {{"fill_limit", set_fill_limit},
             {"freeze", set_freeze},
             {"freeze_after", set_freeze_after},
             {"freeze_deadline", set_freeze_deadline},
             {"throttle", set_throttle},
             {"tracking_page", set_tracking_page},
             {"tracking_memory", set_tracking_memory},
             {"unkept", set_unkept}};

std::string_view without_blanks(std::string_view text)
{
    constexpr std::string_view blanks = " \t\r";
    const size_t first = std::min(text.find_first_not_of(blanks), text.size());
    return text.substr(first, text.find_last_not_of(blanks) + 1 - first);
}

// For a log line: safe and short, whatever the file holds.
std::string shown(std::string_view text)
{
    constexpr size_t longest = 60;
    return escaped(text.substr(0, longest), plain_in_values) + (text.size() > longest ? "..." : "");
}

complaint set_value(std::string_view key, std::string_view value, embedded_settings &all)
{
    if (is_keep_key(key))
        return set_keep_rule(key, value, all.keep);
    return std::ranges::find(known, key, [](const auto &one) { return one.key; })->set(value, all);
}

bool is_setting(std::string_view key)
{
    return is_keep_key(key) || std::ranges::any_of(known, [&](const auto &one) { return one.key == key; });
}

complaint read_line(std::string_view line, std::set<std::string_view> &keys, embedded_settings &all)
{
    line = without_blanks(line.substr(0, line.find('#')));
    if (line.empty())
        return "";
    const size_t sign = line.find('=');
    if (sign == std::string_view::npos)
        return "\"" + shown(line) + "\" has no =";
    const std::string_view key = without_blanks(line.substr(0, sign));
    const std::string_view value = without_blanks(line.substr(sign + 1));
    if (!is_setting(key))
        return "there is no setting \"" + shown(key) + "\"";
    if (!keys.insert(key).second)
        return shown(key) + " is set a second time";
    const complaint wrong = set_value(key, value, all);
    return wrong.empty() ? "" : shown(key) + ": \"" + shown(value) + "\" " + wrong;
}

embedded_settings read_lines(std::string_view text)
{
    embedded_settings all;
    std::set<std::string_view> keys;
    for (unsigned number = 1; !text.empty(); number++) {
        const size_t end = std::min(text.find('\n'), text.size());
        const complaint wrong = read_line(text.substr(0, end), keys, all);
        if (!wrong.empty())
            log_warning("%s:%u: %s; the line is left out", path, number, wrong.c_str());
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return all;
}

// What was read last. Kept, so that the same fault is not in the log again with each look.
struct last_reading {
    std::mutex lock; // guards the others
    std::string text;
    std::string problem; // why the file could not be read; "": it could
    embedded_settings settings;
};

std::string problem_of(const std::optional<std::string> &text)
{
    if (!text && errno != ENOENT)
        return strerror(errno);
    return text && text->size() > attribute_limit ? "it is too large" : "";
}

} // namespace

embedded_settings read_settings()
{
    // Never destroyed: threads may still use it while the process ends.
    static auto *last = new last_reading;
    const auto text = read_bytes(path, attribute_limit + 1);
    const std::string problem = problem_of(text);
    const std::lock_guard held(last->lock);
    const bool is_new_problem = last->problem != problem;
    last->problem = problem;
    if (!problem.empty()) {
        if (is_new_problem)
            log_warning("%s cannot be read: %s; what was read before holds", path, problem.c_str());
        return last->settings;
    }
    if (last->text != text.value_or("")) {
        last->settings = read_lines(text.value_or(""));
        last->text = text.value_or("");
    }
    return last->settings;
}
