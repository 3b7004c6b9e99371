#include "platform/linux/state/keep_rule.h"

#include "platform/linux/host/text.h"

#include <algorithm>
#include <cctype>

namespace {

constexpr struct {
    std::string_view word;
    unsigned keep_rule::*number;
} kinds[] = {{"last", &keep_rule::last},
             {"hourly", &keep_rule::hourly},
             {"daily", &keep_rule::daily},
             {"weekly", &keep_rule::weekly},
             {"monthly", &keep_rule::monthly}};

std::string name_of(bool is_group, std::string name)
{
    if (is_group)
        return "group " + name;
    for (char &one : name)
        one = static_cast<char>(tolower(static_cast<unsigned char>(one)));
    return "disk " + name;
}

// The first word of TEXT, which loses it and the blanks around it.
std::string_view take_word(std::string_view &text)
{
    constexpr std::string_view blanks = " \t";
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    const std::string_view word = text.substr(0, text.find_first_of(blanks));
    text.remove_prefix(word.size());
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    return word;
}

// "usual" for "keep" alone; "" if KEY is no such key.
std::string whom(std::string_view key)
{
    if (take_word(key) != "keep")
        return "";
    if (key.empty())
        return "usual";
    const std::string_view kind = take_word(key);
    return (kind == "disk" || kind == "group") && !key.empty() ? name_of(kind == "group", std::string(key))
                                                               : "";
}

// A part of a rule, as "daily 7".
std::string add_part(std::string_view part, keep_rule &rule)
{
    constexpr unsigned most = 100000;
    const std::string_view word = take_word(part);
    const auto *const kind = std::ranges::find(kinds, word, [](const auto &one) { return one.word; });
    if (kind == std::end(kinds))
        return "is neither all nor parts like last 10, hourly 24, daily 7, weekly 4, monthly 12";
    const auto number = parse_number(part);
    if (!number || *number < 1 || *number > most)
        return "has no number from 1 to " + std::to_string(most) + " after " + std::string(word);
    if (rule.*kind->number != 0)
        return "has " + std::string(word) + " twice";
    rule.*kind->number = static_cast<unsigned>(*number);
    return "";
}

std::string scan_rule(std::string_view text, keep_rule &rule)
{
    keep_rule found = {.last = 0};
    std::string wrong;
    do {
        const size_t comma = std::min(text.find(','), text.size());
        std::string_view part = text.substr(0, comma);
        part = part.substr(0, part.find_last_not_of(" \t") + 1);
        wrong = add_part(part, found);
        text.remove_prefix(std::min(comma + 1, text.size()));
    } while (wrong.empty() && !text.empty());
    if (wrong.empty())
        rule = found;
    return wrong;
}

} // namespace

const keep_rule &keep_rules::rule_for(bool is_group, const std::string &name) const
{
    const auto found = others.find(name_of(is_group, name));
    return found == others.end() ? usual : found->second;
}

std::string set_keep_rule(std::string_view key, std::string_view value, keep_rules &all)
{
    const std::string name = whom(key);
    keep_rule &rule = name == "usual" ? all.usual : all.others[name];
    return value == "all" ? "" : scan_rule(value, rule);
}

bool is_keep_key(std::string_view key)
{
    return !whom(key).empty();
}
