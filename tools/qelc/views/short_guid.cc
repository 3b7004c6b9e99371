#include "tools/qelc/views/short_guid.h"

#include <strings.h>

#include <algorithm>

std::string short_guid(const std::string &guid, const std::vector<std::string> &all)
{
    constexpr size_t shortest = 8;
    size_t length = std::min(shortest, guid.size());
    const auto is_like = [&](const std::string &other) {
        return other != guid && strncasecmp(other.c_str(), guid.c_str(), length) == 0;
    };
    while (length < guid.size() && std::ranges::any_of(all, is_like))
        length++;
    return guid.substr(0, length);
}
