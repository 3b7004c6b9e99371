#include "client/local_document.h"
#include "tests/support/captured_log.h"
#include "tests/unit/shown.h"

#include <gtest/gtest.h>

namespace {
TEST(LocalDocument, ExtremeNumbersAndLongListsAreWrittenInTheirWay)
{
    qel_t c;
    c.manager = std::make_unique<qel_manager>();
    c.manager->guid = "<&\">";
    c.manager->ip_list.assign(40, {inet_addr("192.168.100.100")});
    c.cdpsch_list.push_back({"l", "m", 1, 18446744073709551615u, 4294967295u});
    const std::string text = qel_to_xml(&c).value_or("");
    EXPECT_NE(text.find("<Client GUID=\"\" Alias=\"\"/><Manager GUID=\"&lt;&amp;&quot;&gt;\" IPs="),
              text.npos);
    EXPECT_NE(text.find("StartTime=\"18446744073709551615\" Timeout=\"-1\"/></Tessaron>\n"), text.npos);
    const std::unique_ptr<qel_t> read = xml_to_qel(text.c_str());
    ASSERT_TRUE(read);
    EXPECT_EQ(read->manager->ip_list.size(), 32u) << "more do not fit";
}

TEST(LocalDocument, WhatIsIncompleteIsLeftOut)
{
    const std::pair<const char *, const char *> cases[] = {
        {"<Tessaron> <Client GUID='g' Alias=''/> <Manager GUID='m' IPs='10.0.0.1  nonsense'/> <Other/>"
         "<CDPSchedule Local='l' Mirror='m' StartTime='12x'/>"
         "<CDPSchedule Local='l' Mirror='m' StartTime='12x' Timeout='30'/></Tessaron>",
         "g - 0 0; ; m - [10.0.0.1 0.0.0.0];; l>m@0/12/30"},
        {"<Tessaron><Client Alias='without GUID'/></Tessaron>", "- - 0 0; ; - - [];;"},
    };
    for (const auto &[text, record] : cases) {
        const std::unique_ptr<qel_t> c = xml_to_qel(text);
        ASSERT_TRUE(c) << text;
        EXPECT_EQ(shown(*c), record);
    }
    take_log();
    for (const char *text : {static_cast<const char *>(nullptr), "<Tessaron>", "<Other/>"})
        EXPECT_EQ(xml_to_qel(text), nullptr);
    EXPECT_EQ(take_log(), "3 Failed to parse xml document\n3 Error: xml's root node must be 'Tessaron'\n");
}
} // namespace
