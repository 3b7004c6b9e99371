#include "platform/linux/state/text.h"

#include "base/secret.h"

#include <algorithm>

namespace {

constexpr std::string_view digits = "0123456789ABCDEF";

bool is_plain(char c, std::string_view plain)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           plain.find(c) != std::string_view::npos;
}

constexpr size_t most_fields = 16; // so that the list of any record never moves, which would leave copies

// False for a text that escaped would not write. PLAIN gets its memory at once, so that it leaves no copies.
bool unescape(std::string_view text, std::string &plain)
{
    plain.reserve(text.size());
    while (!text.empty()) {
        const bool is_code = text[0] == '%';
        if (!is_code) {
            plain += text[0];
        } else {
            const size_t high = text.size() > 2 ? digits.find(text[1]) : std::string_view::npos;
            const size_t low = text.size() > 2 ? digits.find(text[2]) : std::string_view::npos;
            // A C text cannot hold a zero byte, so %00 is never written.
            if (high == std::string_view::npos || low == std::string_view::npos || high + low == 0)
                return false;
            plain += static_cast<char>(high * 16 + low);
        }
        text.remove_prefix(is_code ? 3 : 1);
    }
    return true;
}

void append_escaped(std::string &safe, std::string_view text, std::string_view plain)
{
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
    append_escaped(safe, text, plain);
    return safe;
}

std::string encode_record(std::string_view owner, std::string_view kind, const record_fields &fields)
{
    size_t most = owner.size() + kind.size() + std::string_view("  1\nend\n").size();
    for (const auto &[key, value] : fields)
        most += key.size() + 3 * value.size() + 2;
    std::string text;
    text.reserve(most);
    text.append(owner).append(" ").append(kind).append(" 1\n");
    for (const auto &[key, value] : fields) {
        text.append(key).append(" ");
        append_escaped(text, value, plain_in_values);
        text += '\n';
    }
    text += "end\n";
    return text;
}

std::optional<record_fields> decode_record(std::string_view owner, std::string_view kind,
                                           std::string_view text)
{
    record_fields fields;
    fields.reserve(most_fields);
    const wiped_at_end unless_returned(fields);
    std::string_view rest = text;
    take_line(rest);
    for (std::string_view line = take_line(rest); line != "end"; line = take_line(rest)) {
        const size_t blank = line.find(' ');
        if (blank == std::string_view::npos)
            return std::nullopt;
        fields.emplace_back(line.substr(0, blank), "");
        if (!unescape(line.substr(blank + 1), fields.back().second))
            return std::nullopt;
    }
    std::string encoded = encode_record(owner, kind, fields);
    const wiped_at_end after_comparison(encoded);
    if (fields.empty() || encoded != text)
        return std::nullopt;
    return fields;
}
