#include "platform/linux/host/text.h"

#include <sys/sysmacros.h>

#include <algorithm>
#include <charconv>

std::vector<std::string_view> split(std::string_view text, char separator)
{
    std::vector<std::string_view> pieces;
    while (!text.empty()) {
        const size_t end = std::min(text.find(separator), text.size());
        if (end > 0)
            pieces.push_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return pieces;
}

std::optional<uint64_t> parse_number(std::string_view text)
{
    uint64_t value = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (text.empty() || error != std::errc() || stop != end)
        return std::nullopt;
    return value;
}

std::optional<dev_t> parse_device_number(std::string_view text)
{
    const size_t colon = text.find(':');
    if (colon == std::string_view::npos)
        return std::nullopt;
    const auto high = parse_number(text.substr(0, colon));
    const auto low = parse_number(text.substr(colon + 1));
    if (!high || !low || *high > UINT32_MAX || *low > UINT32_MAX)
        return std::nullopt;
    return makedev(static_cast<unsigned>(*high), static_cast<unsigned>(*low));
}

std::string_view trim_padding(std::string_view text)
{
    constexpr std::string_view padding(" \0", 2);
    const size_t first = text.find_first_not_of(padding);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(padding) - first + 1);
}
