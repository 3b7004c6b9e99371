#include "platform/linux/devices/vpd.h"

#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;

std::string page(char code, const std::string &body, int announced = -1)
{
    const size_t length = announced < 0 ? body.size() : static_cast<size_t>(announced);
    return "\0"s + code + static_cast<char>(length >> 8) + static_cast<char>(length & 0xff) + body;
}

std::string designator(int code_set, int association, int type, const std::string &value, int announced = -1)
{
    const int length = announced < 0 ? static_cast<int>(value.size()) : announced;
    return ""s + static_cast<char>(code_set) + static_cast<char>(association << 4 | type) + '\0' +
           static_cast<char>(length) + value;
}

struct page_case {
    const char *circumstance;
    std::string page;
    std::string expected; // empty: none
};

TEST(SerialPage, GivesTheSerialOnlyInGuidForm)
{
    const std::string guid = "0A1b2c3d-1111-2222-3333-444455556666";
    const page_case cases[] = {
        {"blanks and NULs around", page('\x80', "  " + guid + " \0\0"s), guid},
        {"braces", page('\x80', "{" + guid + "}"), guid},
        {"one brace", page('\x80', "{" + guid), ""},
        {"a digit short", page('\x80', guid.substr(1)), ""},
        {"a digit over", page('\x80', guid + "0"), ""},
        {"no hexadecimal digit", page('\x80', "g" + guid.substr(1)), ""},
        {"hyphen missing", page('\x80', "0A1b2c3d01111-2222-3333-444455556666"), ""},
        {"announced length past the end", page('\x80', guid, 4096), guid},
        {"announced length cuts", page('\x80', guid, 20), ""},
        {"other page", page('\x83', guid), ""},
        {"header cut", page('\x80', guid).substr(0, 3), ""},
    };
    for (const page_case &one : cases)
        EXPECT_EQ(guid_of_serial_page(one.page).value_or(""), one.expected) << one.circumstance;
}

TEST(DesignationPage, GivesTheNameOfTheLogicalUnitFirst)
{
    const std::string naa5 = "\x50\x01\x43\x80\xab\xcd\xef\x01";
    const std::string naa6 = "\x60\x01\x40\x5f\x00\x11\x22\x33\x44\x55\x66\x77\x88\x99\xaa\xbb"s;
    const std::string t10 = designator(2, 0, 1, "ACME    DISK 0001   ");
    const std::string port = designator(1, 1, 3, naa5);
    const std::string lun = designator(1, 0, 3, naa6);
    const std::string lun_text = "6001405f00112233445566778899aabb";
    const page_case cases[] = {
        {"unit's NAA after everything else", page('\x83', port + t10 + lun), lun_text},
        {"unit's text before a port's NAA", page('\x83', port + t10), "ACME    DISK 0001"},
        {"port's NAA alone", page('\x83', designator(1, 1, 4, "\0\0\0\1"s) + port), "50014380abcdef01"},
        {"NAA of a wrong length", page('\x83', designator(1, 0, 3, naa5 + "x")), ""},
        {"NAA of length 0", page('\x83', designator(1, 0, 3, "") + lun), lun_text},
        {"NAA that is no binary", page('\x83', designator(2, 0, 3, naa5)), ""},
        {"text that cannot be printed", page('\x83', designator(2, 0, 1, "AC\x01ME")), ""},
        {"text of blanks only", page('\x83', designator(2, 0, 1, "    ")), ""},
        {"designator past the end of the page", page('\x83', designator(1, 0, 3, naa6, 17)), ""},
        {"page longer than its length says", page('\x83', t10 + lun, static_cast<int>(t10.size())),
         "ACME    DISK 0001"},
        {"three bytes of a designator header", page('\x83', "\1\3\0"s), ""},
        {"no page", "", ""},
    };
    for (const page_case &one : cases)
        EXPECT_EQ(identifier_of_designation_page(one.page).value_or(""), one.expected) << one.circumstance;
}

} // namespace
