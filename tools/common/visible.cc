#include "tools/common/visible.h"

#include <cstdint>
#include <cwchar>

namespace {
struct character {
    uint32_t code;
    size_t length; // in bytes; 0: not a character
};

// The first character of TEXT, which is not empty.
character first_character(std::string_view text)
{
    const auto lead = static_cast<unsigned char>(text[0]);
    if (lead < 0x80)
        return {lead, 1};
    const size_t length = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
    if (lead < 0xc0 || lead > 0xf4 || text.size() < length)
        return {0, 0};
    uint32_t code = lead & (0x7fU >> length);
    for (const char byte : text.substr(1, length - 1)) {
        if ((static_cast<unsigned char>(byte) & 0xc0) != 0x80)
            return {0, 0};
        code = code << 6 | (static_cast<unsigned char>(byte) & 0x3f);
    }
    constexpr uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool is_surrogate = code >= 0xd800 && code <= 0xdfff;
    return {code, code < smallest[length] || code > 0x10ffff || is_surrogate ? 0 : length};
}

bool is_obeyed(uint32_t code)
{
    return code < 0x20 || (code >= 0x7f && code <= 0x9f) || (code >= 0x202a && code <= 0x202e) ||
           (code >= 0x2066 && code <= 0x2069);
}
} // namespace

std::string visible(std::string_view text, line_ends ends)
{
    std::string safe;
    while (!text.empty()) {
        const auto [code, length] = first_character(text);
        const bool stays = length > 0 && (!is_obeyed(code) || (code == '\n' && ends == line_ends::kept));
        safe += stays ? text.substr(0, length) : "?";
        text.remove_prefix(length > 0 ? length : 1);
    }
    return safe;
}

namespace {
size_t width_of(const character &one)
{
    const int width = one.length > 0 ? wcwidth(static_cast<wchar_t>(one.code)) : 1;
    return width < 0 ? 1 : static_cast<size_t>(width);
}
} // namespace

size_t shown_width(std::string_view text)
{
    size_t width = 0;
    while (!text.empty()) {
        const character first = first_character(text);
        width += width_of(first);
        text.remove_prefix(first.length > 0 ? first.length : 1);
    }
    return width;
}

std::string cut_to_width(const std::string &text, size_t columns)
{
    size_t bytes = 0;
    for (size_t width = 0; bytes < text.size();) {
        const character first = first_character(std::string_view(text).substr(bytes));
        width += width_of(first);
        if (width > columns)
            break;
        bytes += first.length > 0 ? first.length : 1;
    }
    return text.substr(0, bytes);
}
