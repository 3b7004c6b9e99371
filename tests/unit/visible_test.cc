#include "tools/common/text_table.h"
#include "tools/common/visible.h"

#include <gtest/gtest.h>

#include <clocale>

TEST(Visible, LeavesNothingThatATerminalObeys)
{
    const struct {
        std::string text, shown;
    } cases[] = {
        {"", ""},
        {"a \xc3\xa9 \xe2\x82\xac \xf0\x9f\x92\xbe ~", "a \xc3\xa9 \xe2\x82\xac \xf0\x9f\x92\xbe ~"},
        {"\x1b[31mred\x7f\r\n\t", "?[31mred????"},
        {std::string("a\0b", 3), "a?b"},
        {"\xc2\x9b"
         "31m\xc2\x80\xc2\x9f\xc2\xa0",
         "?31m??\xc2\xa0"}, // C1 in UTF-8, then a blank
        {"\x9b"
         "31m\x80\x9f",
         "?31m??"}, // the same as lone bytes
        {"\xe2\x80\xaa\xe2\x80\xae\xe2\x81\xa6\xe2\x81\xa9", "????"},
        {"\xe2\x80\xa9\xe2\x80\xaf\xe2\x81\xa5\xe2\x81\xaa",
         "\xe2\x80\xa9\xe2\x80\xaf\xe2\x81\xa5\xe2\x81\xaa"},
        {"\xc0\x9b\xe0\x82\x9b\xf0\x80\x82\x9b", "?????????"}, // longer forms of U+009B
        {"\xed\xa0\x80\xf4\x90\x80\x80\xff\xf8", "?????????"}, // no characters
        {"\xe2\x82", "??"},
        {"\xe2\x82\x1b[x", "???[x"},
    };
    for (const auto &one : cases)
        EXPECT_EQ(visible(one.text), one.shown);
    EXPECT_EQ(visible("a\n\tb\r\n", line_ends::kept), "a\n?b?\n");
}

TEST(Visible, ATableIsAlignedAsATerminalShowsIt)
{
    setlocale(LC_CTYPE, "C.UTF-8");
    EXPECT_EQ(align({{"\xe6\x97\xa5\xe6\x9c\xac", "x"}, {"e\xcc\x81", "x"}, {"long", "x"}}),
              "  \xe6\x97\xa5\xe6\x9c\xac  x\n  e\xcc\x81     x\n  long  x\n");
    EXPECT_EQ(cut_to_width("a\xe6\x97\xa5"
                           "b",
                           2),
              "a");
}
