#include "platform/linux/state/text.h"

#include <algorithm>

namespace {

constexpr std::string_view digits = "0123456789ABCDEF";

bool is_plain(char c, std::string_view plain)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           plain.find(c) != std::string_view::npos;
}

std::optional<std::string> unescaped(std::string_view text)
{
    std::string plain;
    while (!text.empty()) {
        const bool is_code = text[0] == '%';
        if (!is_code) {
            plain += text[0];
        } else {
            const size_t high = text.size() > 2 ? digits.find(text[1]) : std::string_view::npos;
            const size_t low = text.size() > 2 ? digits.find(text[2]) : std::string_view::npos;
            // A C text cannot hold a zero byte, so %00 is never written.
            if (high == std::string_view::npos || low == std::string_view::npos || high + low == 0)
                return std::nullopt;
            plain += static_cast<char>(high * 16 + low);
        }
        text.remove_prefix(is_code ? 3 : 1);
    }
    return plain;
}

// Removes the first line with its newline from TEXT and returns it.
std::string_view take_line(std::string_view &text)
{
    const size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return line;
}

} // namespace

std::string escaped(std::string_view text, std::string_view plain)
{
    std::string safe;
    for (const char c : text) {
        if (is_plain(c, plain)) {
            safe += c;
            continue;
        }
        const auto byte = static_cast<unsigned char>(c);
        safe += '%';
        safe += digits[byte / 16];
        safe += digits[byte % 16];
    }
    return safe;
}

std::string encode_record(std::string_view owner, std::string_view kind, const record_fields &fields)
{
    std::string text = std::string(owner) + ' ' + std::string(kind) + " 1\n";
    for (const auto &[key, value] : fields)
        text += key + ' ' + escaped(value, plain_in_values) + '\n';
    return text + "end\n";
}

std::optional<record_fields> decode_record(std::string_view owner, std::string_view kind,
                                           std::string_view text)
{
    record_fields fields;
    std::string_view rest = text;
    take_line(rest);
    for (std::string_view line = take_line(rest); line != "end"; line = take_line(rest)) {
        const size_t blank = line.find(' ');
        if (blank == std::string_view::npos)
            return std::nullopt;
        auto value = unescaped(line.substr(blank + 1));
        if (!value)
            return std::nullopt;
        fields.emplace_back(line.substr(0, blank), std::move(*value));
    }
    if (fields.empty() || encode_record(owner, kind, fields) != text)
        return std::nullopt;
    return fields;
}
