#include "platform/linux/devices/vpd.h"

#include "platform/linux/host/text.h"

#include <algorithm>
#include <cstdint>
#include <vector>

namespace {

enum class designator_type : uint8_t { t10 = 1, naa = 3 };
constexpr uint8_t code_set_binary = 1;
constexpr uint8_t association_lun = 0;

struct designator {
    uint8_t code_set = 0;
    uint8_t association = 0;
    uint8_t type = 0;
    std::string_view value;
};

uint8_t byte_at(std::string_view bytes, size_t offset)
{
    return static_cast<uint8_t>(bytes[offset]);
}

// The bytes after the four-byte header, cut to the length that the header gives. Empty for another page.
std::string_view page_body(std::string_view page, uint8_t code)
{
    if (page.size() < 4 || byte_at(page, 1) != code)
        return {};
    return page.substr(4, size_t{byte_at(page, 2)} * 256 + byte_at(page, 3));
}

bool is_hex(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

bool has_guid_form(std::string_view text)
{
    constexpr std::string_view form = "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx";
    return std::equal(text.begin(), text.end(), form.begin(), form.end(),
                      [](char c, char expected) { return expected == 'x' ? is_hex(c) : c == expected; });
}

std::vector<designator> designators(std::string_view body)
{
    std::vector<designator> found;
    while (body.size() >= 4) {
        const size_t length = byte_at(body, 3);
        if (body.size() < 4 + length)
            break;
        const uint8_t kind = byte_at(body, 1);
        found.push_back({static_cast<uint8_t>(byte_at(body, 0) & 0x0f), static_cast<uint8_t>((kind >> 4) & 3),
                         static_cast<uint8_t>(kind & 0x0f), body.substr(4, length)});
        body.remove_prefix(4 + length);
    }
    return found;
}

std::optional<std::string> naa_name(const designator &from)
{
    // NAA 2, 3 and 5 are 8 bytes long, NAA 6 is 16.
    if (from.code_set != code_set_binary || (from.value.size() != 8 && from.value.size() != 16))
        return std::nullopt;
    std::string name;
    for (size_t i = 0; i < from.value.size(); i++) {
        constexpr std::string_view digits = "0123456789abcdef";
        name += digits[byte_at(from.value, i) >> 4];
        name += digits[byte_at(from.value, i) & 0x0f];
    }
    return name;
}

std::optional<std::string> vendor_text(const designator &from)
{
    const std::string_view text = trim_padding(from.value);
    const bool printable = std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
    if (text.empty() || !printable)
        return std::nullopt;
    return std::string(text);
}

std::optional<std::string> identifier_of(const designator &from, designator_type wanted)
{
    if (from.type != static_cast<uint8_t>(wanted))
        return std::nullopt;
    return wanted == designator_type::naa ? naa_name(from) : vendor_text(from);
}

} // namespace

std::optional<std::string> guid_of_serial_page(std::string_view page)
{
    std::string_view serial = trim_padding(page_body(page, 0x80));
    if (serial.size() >= 2 && serial.front() == '{' && serial.back() == '}')
        serial = serial.substr(1, serial.size() - 2);
    if (!has_guid_form(serial))
        return std::nullopt;
    return std::string(serial);
}

std::optional<std::string> identifier_of_designation_page(std::string_view page)
{
    const auto all = designators(page_body(page, 0x83));
    // Names of the target or its port are the same for all its logical units, so they come last.
    for (const bool of_the_lun : {true, false}) {
        for (const designator_type type : {designator_type::naa, designator_type::t10}) {
            for (const designator &candidate : all) {
                if ((candidate.association == association_lun) != of_the_lun)
                    continue;
                if (auto identifier = identifier_of(candidate, type))
                    return identifier;
            }
        }
    }
    return std::nullopt;
}
